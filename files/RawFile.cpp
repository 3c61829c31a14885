#include "files/RawFile.h"

#include "base/AtomicFile.h"
#include "base/ProjectSettings.h"

#include "base/FileErrors.h"
#include "base/Log.h"
#include "base/Report.h"
#include "base/Text.h"
#include "probe/SampleStore.h"
#include "symbols/Node.h"
#include "symbols/SymbolDatabase.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

}  // namespace

std::uint32_t RawRecordSize(const SymbolDatabase& symbols)
{
    std::uint32_t size = 4;
    for (const Node* n : symbols.selected())
        size += n->Size;
    return size;
}

std::string RawExportOrderText(const SymbolDatabase& symbols)
{
    std::string textOut = "Raw data exported in the order:\nTimestamp";
    for (const Node* n : symbols.selected())
        textOut += "\n" + n->Name;
    return textOut;
}

int ExportRaw(const std::string& path, const SampleStore& store, const SymbolDatabase& symbols)
{
    AtomicFile file(path);
    if (!file.open(AtomicFile::Mode::Binary)) {
        report::error(fileerr::text("open", path, file.errorNumber()));
        return -1;
    }
    const auto& selected = symbols.selected();
    const std::uint32_t count = store.recordCount();
    std::string record;
    for (std::uint32_t i = 0; i < count; ++i) {
        record.clear();
        const std::uint32_t ts = store.timeStampAt(i);
        record.append(reinterpret_cast<const char*>(&ts), 4);
        for (const Node* n : selected) {
            // A slot holds at most 8 bytes of the symbol's part: they go back
            // to their place in it (a bit-field's word need not be the first)
            // and the rest is zero, so the record keeps the size the reader
            // expects and an import finds the same bytes.
            const std::uint64_t* slot = store.valueSlotAt(*n, i);
            const std::uint64_t value = slot ? *slot : 0;
            const SampleStore::SlotWindow window = SampleStore::slotWindow(*n);
            record.append(window.offset, '\0');
            record.append(reinterpret_cast<const char*>(&value), window.size);
            record.append(n->Size - window.offset - window.size, '\0');
        }
        file.write(record);
    }
    if (!file.commit()) {
        report::error(fileerr::text("save", path, file.errorNumber()));
        return -1;
    }
    report::information(RawExportOrderText(symbols));
    return 0;
}

std::optional<RawRecording> ReadRawRecording(const std::string& path, const SymbolDatabase& symbols)
{
    RawRecording rec;
    rec.recordSize = RawRecordSize(symbols);

    errno = 0;
    FilePtr f(std::fopen(path.c_str(), "rb"));
    if (!f) {
        report::error(fileerr::text("open", path, errno));
        return std::nullopt;
    }
    if (std::fseek(f.get(), 0, SEEK_END) != 0) {
        report::error(fileerr::text("read", path, errno));
        return std::nullopt;
    }
    const long endPos = std::ftell(f.get());
    std::rewind(f.get());
    if (endPos < 0) {
        report::error(fileerr::text("read", path, errno));
        return std::nullopt;
    }
    const auto fileSize = static_cast<std::uint64_t>(endPos);

    if (fileSize % rec.recordSize != 0)
        report::warning(text::format(512,
                                     "File size does not align with selected symbols!\nFile size: %d Bytes\n"
                                     "Size of selected symbols + timestamp: %d Bytes",
                                     static_cast<int>(fileSize), static_cast<int>(rec.recordSize)));
    // Compared with the store's buffer bytes, not with record bytes.
    const std::uint64_t bufferBytes =
        symbols.selected().size() * std::uint64_t(SampleStore::kSymbolBufferBytes) + SampleStore::kTimeStampBytes;
    if (fileSize > bufferBytes)
        report::warning("File size exceeds symbol buffers!\n Excess data will be discarded.");

    rec.bytes.resize(static_cast<std::size_t>(fileSize));
    if (fileSize > 0 && std::fread(rec.bytes.data(), 1, rec.bytes.size(), f.get()) != rec.bytes.size()) {
        report::error(fileerr::text("read", path, errno));
        return std::nullopt;
    }
    // A trailing partial record is ignored.
    rec.bytes.resize(rec.bytes.size() - rec.bytes.size() % rec.recordSize);
    return rec;
}

int StoreRawRecording(const RawRecording& recording, SampleStore& store, const ProjectSettings& settings)
{
    int result = 0;
    store.rewrite([&] {
        if (!store.prepareFreshStart()) {
            result = -1;
            return;
        }
        // The file always carries time stamps, so import with the time-stamped
        // layout; a QTX session without them gets its own layout back afterwards.
        const bool untimedQtx = settings.IsQTXSession && !settings.IsQTXWithTimeStamp;
        if (store.layOut(true) == recording.recordSize) {
            store.setOpen(true);
            store.storeRecords(recording.bytes.data(), recording.bytes.size());
            store.setOpen(false);
        } else {
            Log::instance().error("Raw import: the selection changed while the file was read");
            result = -1;
        }
        if (untimedQtx)
            store.layOut(false);
    });
    return result;
}

int ImportRaw(const std::string& path, SampleStore& store, SymbolDatabase& symbols, const ProjectSettings& settings)
{
    const auto recording = ReadRawRecording(path, symbols);
    if (!recording)
        return -1;
    return StoreRawRecording(*recording, store, settings);
}
