// BSQ: the probe reads the selected symbols from target memory at a fixed
// period; the program collects the records it has buffered.
#include "base/Report.h"
#include "base/Text.h"
#include "probe/ProbeSampler.h"
#include "probe/SampleStore.h"
#include "probe/TarvoLibrary.h"
#include "symbols/SymbolDatabase.h"

namespace {
constexpr std::uint32_t kReadBufferLimit = 2 * 1024 * 1024;
}

int ProbeSampler::startBsq(const ProjectSettings& s, SymbolDatabase& symbols, SampleStore& store)
{
    m_bsqRunning = false;
    const auto& selected = symbols.selected();
    m_blocks.assign(selected.size() + 1, TARVO_BSQ_BLOCK{});  // ends with a zeroed entry
    for (std::size_t i = 0; i < selected.size(); ++i) {
        Node* n = selected[i];
        m_blocks[i].Addr = n->Address;
        m_blocks[i].NumBytes = n->Size;
        n->symbol().LatestSlot = -1;
        n->symbol().HasValue = false;
        n->symbol().YMinSampled = SymbolDisplaySettings{}.YMinSampled;
        n->symbol().YMaxSampled = SymbolDisplaySettings{}.YMaxSampled;
    }
    m_recordSize = store.layOut(true);

    // The buffer holds whole batches of records of every symbol (the product of
    // record size and symbol count, as the probe delivers them).
    const std::uint64_t unit = std::uint64_t(m_recordSize) * selected.size();
    const std::uint64_t bytes = unit ? kReadBufferLimit - kReadBufferLimit % unit : 0;
    m_readBuffer.assign(static_cast<std::size_t>(bytes), 0);

    const int r = tarvo::BSQ_Start(m_blocks.data(), static_cast<std::uint32_t>(selected.size()), s.SamplingPeriod,
                                   TARVO_BSQ_FLAG_TIMESTAMP);
    if (r < 0) {
        const char* why = nullptr;
        switch (r) {
        case TARVO_BSQ_ERR_NOT_SUPPORTED: why = "Target hardware does not support BSQ"; break;
        case TARVO_BSQ_ERR_TOO_MANY_BLOCKS: why = "Too many variables specified"; break;
        case TARVO_BSQ_ERR_NO_MEMORY: why = "Failed to allocate memory on debug probe"; break;
        default: break;
        }
        if (why)
            report::warning(text::format(256, "Failed to initialize BSQ: %s.", why));
        else
            report::warning("Failed to inititalize BSQ.");
        return r;
    }
    m_bsqRunning = true;
    if (tarvo::TargetIsHalted() & 0xFF)
        tarvo::Go();
    // The target runs now: the read loop asks the views to refresh.
    m_targetRunning = true;
    return r;
}

int ProbeSampler::readBsq(SampleStore& store)
{
    if (m_readBuffer.empty())
        return -1;
    if (!m_bsqRunning)
        return 0;
    const int n = tarvo::BSQ_Read(m_readBuffer.data(), static_cast<std::uint32_t>(m_readBuffer.size()));
    if (n < 0)
        return n;
    store.storeRecords(m_readBuffer.data(), static_cast<std::size_t>(n));
    if (m_targetRunning)
        if (Bridge* b = report::bridge())
            b->updateData();
    return n;
}
