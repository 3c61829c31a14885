#include "files/CsvExport.h"

#include "base/AtomicFile.h"

#include "base/FileErrors.h"
#include "base/Report.h"
#include "probe/SampleStore.h"
#include "symbols/Node.h"
#include "symbols/SymbolDatabase.h"

#include <cstdio>
#include <cstring>

namespace {

template <typename T>
T slotAs(std::uint64_t slot)
{
    T value;
    std::memcpy(&value, &slot, sizeof(T));  // the slot holds the target's little-endian bytes
    return value;
}

// Appends one field for `typeId`; types without a column (64-bit integers,
// bit-fields, unknown) add nothing, not even the separator.
void appendField(std::string& line, std::int32_t typeId, std::uint64_t slot)
{
    char buf[400];
    int n = 0;
    switch (typeId) {
    case 1: n = std::snprintf(buf, sizeof buf, ";%f", static_cast<double>(slotAs<float>(slot))); break;
    case 2: n = std::snprintf(buf, sizeof buf, ";%f", slotAs<double>(slot)); break;
    case 5:
    case 6: n = std::snprintf(buf, sizeof buf, ";%i", static_cast<int>(slotAs<std::uint8_t>(slot))); break;
    case 7: n = std::snprintf(buf, sizeof buf, ";%i", static_cast<int>(slotAs<std::uint16_t>(slot))); break;
    case 8:
    case 12: n = std::snprintf(buf, sizeof buf, ";%i", slotAs<std::int32_t>(slot)); break;
    case 10: n = std::snprintf(buf, sizeof buf, ";%i", static_cast<int>(slotAs<std::int8_t>(slot))); break;
    case 11: n = std::snprintf(buf, sizeof buf, ";%i", static_cast<int>(slotAs<std::int16_t>(slot))); break;
    default: return;
    }
    if (n > 0)
        line.append(buf, static_cast<std::size_t>(n) < sizeof buf ? static_cast<std::size_t>(n) : sizeof buf - 1);
}

std::string displayName(const Node& n) { return n.NameWithParents.empty() ? n.Name : n.NameWithParents; }

}  // namespace

int ExportCsv(const std::string& path, const SampleStore& store, const SymbolDatabase& symbols)
{
    AtomicFile file(path);
    if (!file.open(AtomicFile::Mode::Text)) {
        report::error(fileerr::text("open", path, file.errorNumber()));
        return -1;
    }
    const auto& selected = symbols.selected();
    std::string line = "Timestamp";
    for (const Node* n : selected)
        line += ";" + displayName(*n);
    line += '\n';
    file.write(line);

    // Slot order, not chronological: the newest slot (write index) is not
    // part of the export, and after a wrap the rows start mid-recording.
    const std::uint32_t n = store.writeIndex();
    const std::uint32_t* timeStamps = store.timeStamps();
    if (n > 1 && timeStamps) {
        for (std::uint32_t slot = 0; slot + 1 < n; ++slot) {
            line.clear();
            char buf[16];
            const int len = std::snprintf(buf, sizeof buf, "%u", timeStamps[slot]);
            line.append(buf, static_cast<std::size_t>(len));
            for (const Node* sym : selected)
                appendField(line, sym->TypeID, sym->symbol().Values ? sym->symbol().Values[slot] : 0);
            line += '\n';
            file.write(line);
        }
    }
    if (!file.commit()) {
        report::error(fileerr::text("save", path, file.errorNumber()));
        return -1;
    }
    return 0;
}
