// QTX: the firmware writes records into an up-channel of its control block;
// the channel's name tells the record format.
#include "base/Log.h"
#include "base/Report.h"
#include "base/Text.h"
#include "probe/ProbeSampler.h"
#include "probe/QtxFormat.h"
#include "probe/SampleStore.h"
#include "probe/TarvoLibrary.h"
#include "symbols/SymbolDatabase.h"

#include <chrono>
#include <cstring>
#include <thread>

namespace {

// The user's display settings of a symbol, without its sampling statistics.
SymbolDisplaySettings keptDisplay(const SymbolDisplaySettings& from)
{
    SymbolDisplaySettings d;
    d.DrawStyle = from.DrawStyle;
    d.YOffset = from.YOffset;
    d.YResolution = from.YResolution;
    d.IsAutoConfig = from.IsAutoConfig;
    d.ShowInGraph = from.ShowInGraph;
    d.HasGraphColor = from.HasGraphColor;
    d.ManualYResolution = from.ManualYResolution;
    d.GraphColor = from.GraphColor;
    return d;
}

constexpr int kSearchPolls = 2000;  // 5 ms each: 10 s
constexpr std::uint32_t kChunkLimit = 8192;
}  // namespace

void ProbeSampler::failQtx(const std::string& message)
{
    report::warning(message);
    tarvo::Close();
    m_samplingActive = false;
}

int ProbeSampler::startQtx(ProjectSettings& s, SymbolDatabase& symbols, SampleStore& store)
{
    m_qtxRunning = false;
    s.IsQTXWithTimeStamp = false;
    // The channel's description replaces the selection; what the user set up
    // for the symbols of the last session (or the project file) is kept below.
    const std::vector<Node*> previous = symbols.selected();
    Bridge* bridge = report::bridge();
    if (bridge)
        bridge->symbolsAboutToChange();
    symbols.clearSelected();
    if (bridge)
        bridge->symbolsChanged();

    if (tarvo::QTX_Control(TARVO_QTX_CMD_START, nullptr) < 0) {
        report::warning("Failed to start QTX.");
        return -1;
    }
    Log::instance().line("Waiting until QTX Control Block is found...");
    if (bridge)
        bridge->progress(0, "Searching for QTX control block ...", kProgressStart, kSearchPolls);
    int channels = TARVO_QTX_ERR_NOT_FOUND;
    for (int poll = 0; poll < kSearchPolls && channels == TARVO_QTX_ERR_NOT_FOUND; ++poll) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        std::uint32_t direction = TARVO_QTX_DIR_UP;
        channels = tarvo::QTX_Control(TARVO_QTX_CMD_GETNUMBUF, &direction);
        if (bridge)
            bridge->progress(poll + 1, {}, kProgressUpdate, kSearchPolls);
    }
    if (bridge)
        bridge->progress(kSearchPolls, {}, kProgressEnd, kSearchPolls);
    if (channels == TARVO_QTX_ERR_NOT_FOUND) {
        failQtx("QTX control block not found!");
        return -1;
    }
    if (channels < 0) {
        failQtx("Error while searching for QTX control block!");
        return -1;
    }

    std::string name;
    bool found = false;
    for (int i = 0; i < channels && !found; ++i) {
        TARVO_QTX_CHANNEL_DESC desc{};
        desc.BufferIndex = i;
        desc.Direction = TARVO_QTX_DIR_UP;
        if (tarvo::QTX_Control(TARVO_QTX_CMD_GETDESC, &desc) < 0)
            continue;
        desc.acName[sizeof desc.acName - 1] = '\0';
        if (std::strncmp(desc.acName, "Plotvik_", 7) == 0) {
            found = true;
            m_qtxChannel = static_cast<std::uint32_t>(i);
            name = desc.acName;
        }
    }
    if (!found) {
        failQtx("Failed to start QTX Sampling.\n\nNo QTX Channel named Plotvik_%Format% found");
        return -1;
    }
    const QtxFormat format = parseQtxFormat(name);
    if (!format.valid) {
        failQtx("Failed to start QTX Sampling.\n\nThe first QTX Channel named Plotvik_... found did not contain a valid VarFormat");
        return -1;
    }
    s.IsQTXWithTimeStamp = format.withTimeStamp;
    std::vector<Node*> nodes;
    for (const QtxItem& item : format.items) {
        Node* n = symbols.createDetachedSymbol();
        n->Name = item.name;
        n->NameWithParents = item.name;
        n->Size = item.size;
        n->TypeID = item.typeId;
        n->IsSigned = item.isSigned;
        n->IsLeaf = true;
        // Channel items have no identity but their place and name (several
        // may share a name): the symbol at the same place with the same name
        // lends its colour and scales.
        const std::size_t at = nodes.size();
        if (at < previous.size() && previous[at] && previous[at]->Name == item.name)
            static_cast<SymbolDisplaySettings&>(n->symbol()) = keptDisplay(previous[at]->symbol());
        nodes.push_back(n);
    }
    if (bridge)
        bridge->symbolsAboutToChange();
    symbols.setSelected(std::move(nodes));
    // The views take the new records and colour those without a colour.
    if (bridge)
        bridge->symbolsChanged();
    m_recordSize = store.layOut(format.withTimeStamp);
    m_carryCount = 0;
    std::memset(m_carry, 0, sizeof m_carry);
    m_qtxRunning = true;
    if (bridge)
        bridge->updateGui();
    return 0;
}

int ProbeSampler::restartQtx() { return tarvo::QTX_Control(TARVO_QTX_CMD_START, nullptr); }

int ProbeSampler::readQtx(SampleStore& store)
{
    if (!m_samplingActive)
        return 0;
    Bridge* bridge = report::bridge();
    if (store.isEmpty()) {
        m_carryCount = 0;
        std::memset(m_carry, 0, sizeof m_carry);
    }
    int result = 0;
    // A channel whose format names nothing to show has records of no bytes:
    // sampling runs on and stores nothing.
    if (m_recordSize != 0) {
        std::uint32_t chunk = m_recordSize * ((2u * 1024 * 1024) / m_recordSize);
        if (chunk > kChunkLimit)
            chunk = kChunkLimit;
        chunk -= m_carryCount;
        std::uint8_t buffer[kChunkLimit + sizeof m_carry];
        std::memcpy(buffer, m_carry, m_carryCount);
        const int n = tarvo::QTX_Read(m_qtxChannel, reinterpret_cast<char*>(buffer + m_carryCount), chunk);
        if (n < 0) {
            result = -1;
        } else {
            const std::uint32_t total = static_cast<std::uint32_t>(n) + m_carryCount;
            const std::uint32_t whole = total - total % m_recordSize;
            store.storeRecords(buffer, whole);
            m_carryCount = total - whole;
            if (m_carryCount > sizeof m_carry)
                m_carryCount = sizeof m_carry;
            std::memcpy(m_carry, buffer + whole, m_carryCount);
            result = n;
        }
    }
    if (bridge)
        bridge->updateData();
    return result;
}

int ProbeSampler::startSource(ProjectSettings& s, SymbolDatabase& symbols, SampleStore& store)
{
    if (s.IsQTXSession)
        return startQtx(s, symbols, store);
    return startBsq(s, symbols, store);
}

int ProbeSampler::read(const ProjectSettings& s, SampleStore& store)
{
    return s.IsQTXSession ? readQtx(store) : readBsq(store);
}
