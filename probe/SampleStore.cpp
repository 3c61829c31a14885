#include "probe/SampleStore.h"

#include "base/ProjectSettings.h"
#include "probe/SampleValue.h"
#include "symbols/SymbolDatabase.h"

#include <algorithm>
#include <cmath>
#include <cstring>

SampleStore::SampleStore(SymbolDatabase& symbols) : m_symbols(symbols) {}

std::size_t SampleStore::symbolCount() const { return m_symbols.selected().size(); }

std::uint32_t SampleStore::layOut(bool withTimeStamp)
{
    m_withTimeStamp = withTimeStamp;
    std::uint32_t offset = withTimeStamp ? 4 : 0;
    for (Node* n : m_symbols.selected()) {
        n->symbol().Offset = static_cast<std::int32_t>(offset);
        offset += n->Size;
    }
    m_recordSize = offset;
    return m_recordSize;
}

bool SampleStore::ensureTimeStamps()
{
    if (!m_timeStamps)
        m_timeStamps = alloc::make<std::uint32_t>(kCapacity, "Time stamps");
    return m_timeStamps != nullptr;
}

void SampleStore::clear()
{
    for (Node* n : m_symbols.selected()) {
        if (n->symbol().Values)
            std::memset(n->symbol().Values.get(), 0, kSymbolBufferBytes);
        n->symbol().LatestSlot = -1;
        n->symbol().HasValue = false;
    }
    m_write = 0;
    m_last = 0;
    m_oldest = 0;
    m_currentTimeStamp = 0;
}

void SampleStore::rewrite(const std::function<void()>& change)
{
    const std::lock_guard lock(m_rewriteLock);
    change();
}

bool SampleStore::tryRead(const std::function<void()>& read) const
{
    const std::unique_lock lock(m_rewriteLock, std::try_to_lock);
    if (!lock.owns_lock())
        return false;
    read();
    return true;
}

bool SampleStore::prepareFreshStart()
{
    clear();
    bool ok = ensureTimeStamps();
    for (Node* n : m_symbols.selected()) {
        if (!n->symbol().Values)
            n->symbol().Values = alloc::make<std::uint64_t>(kCapacity, "Symbol sample buffer");
        ok = ok && n->symbol().Values != nullptr;
    }
    if (m_timeStamps)
        std::memset(m_timeStamps.get(), 0, kTimeStampBytes);
    return ok;
}

void SampleStore::resetStatistics()
{
    for (Node* n : m_symbols.selected()) {
        n->symbol().YMaxSampled = SymbolDisplaySettings{}.YMaxSampled;
        n->symbol().YMinSampled = SymbolDisplaySettings{}.YMinSampled;
        n->symbol().YAvgSampled = 0.0;
        n->symbol().SamplesSinceStart = 0;
    }
}

std::uint32_t SampleStore::recordCount() const
{
    // Once the ring has wrapped every slot holds a record.
    return m_oldest != 0 ? kCapacity : m_last.load();
}

std::uint32_t SampleStore::slotOf(std::uint32_t i) const
{
    std::uint32_t slot = m_oldest + i;
    if (slot >= kCapacity)
        slot -= kCapacity;
    return slot;
}

std::uint32_t SampleStore::timeStampAt(std::uint32_t i) const
{
    if (i > kCapacity || !m_timeStamps)
        return 0;
    if (m_oldest == 0 && i > m_last)
        return m_timeStamps[m_last];
    return m_timeStamps[slotOf(i) % kCapacity];
}

const std::uint64_t* SampleStore::valueSlotAt(const Node& symbol, std::uint32_t i) const
{
    if (i > kCapacity || !symbol.symbol().Values)
        return nullptr;
    return &symbol.symbol().Values[slotOf(i) % kCapacity];
}

bool SampleStore::canTrigger(std::int32_t typeId)
{
    switch (typeId) {
    case kTypeFloat: case kTypeDouble: case kTypeU8: case kTypeU16: case kTypeU32:
    case kTypeS8: case kTypeS16: case kTypeS32: return true;
    default: return false;
    }
}

SampleStore::Verdict SampleStore::evaluateTrigger(const Node& symbol, std::uint32_t slot)
{
    // The previous sample sits in the slot before the current one.
    if (!symbol.symbol().HasValue)
        return Verdict::Discard;
    const std::uint32_t before = slot == 0 ? kCapacity - 1 : slot - 1;
    if (!m_triggerOn || m_triggerFired)
        return Verdict::Keep;
    if (&symbol != m_triggerSymbol || !canTrigger(symbol.TypeID))
        return Verdict::Discard;
    const double previous = sampleToDouble(symbol.TypeID, symbol.symbol().Values[before]);
    const double current = sampleToDouble(symbol.TypeID, symbol.symbol().Values[slot]);
    bool fired = m_triggerRise && previous < m_triggerLevel && m_triggerLevel <= current;
    if (!fired)
        fired = m_triggerFall && previous > m_triggerLevel && m_triggerLevel >= current;
    if (!fired)
        return Verdict::Discard;
    m_triggerFired = true;
    m_triggerTimeStamp = m_timeStamps[slot];
    if (m_project) {
        ProjectSettings s = m_project->settings();
        s.TriggerFired = true;
        m_project->apply(s);
    }
    return Verdict::Keep;
}

void SampleStore::storeRecords(const std::uint8_t* bytes, std::size_t count)
{
    if (!m_timeStamps || m_recordSize == 0)
        return;
    const std::size_t records = count / m_recordSize;
    m_lastBatch = static_cast<std::uint32_t>(records);
    if (m_project) {
        const ProjectSettings s = m_project->settings();
        m_triggerSymbol = s.TriggerSymbol;
        m_triggerLevel = s.TriggerLevel;
        m_triggerOn = s.TriggerOn;
        m_triggerRise = s.TriggerRise;
        m_triggerFall = s.TriggerFall;
        m_triggerFired = s.TriggerFired;
    } else {
        m_triggerOn = false;
    }
    const auto& symbols = m_symbols.selected();
    for (std::size_t r = 0; r < records; ++r) {
        const std::uint8_t* rec = bytes + r * m_recordSize;
        const std::uint32_t w = m_write;
        std::uint32_t ts;
        if (m_withTimeStamp) {
            std::memcpy(&ts, rec, 4);
        } else {
            ts = isEmpty() ? 0 : m_timeStamps[w == 0 ? kCapacity - 1 : w - 1] + 100;
        }
        m_timeStamps[w] = ts;
        m_currentTimeStamp = ts;
        if (m_open) {
            const bool empty = isEmpty();
            for (Node* n : symbols) {
                if (!n->symbol().Values)
                    continue;
                const SlotWindow window = slotWindow(*n);
                std::uint64_t slot = 0;
                std::memcpy(&slot, rec + n->symbol().Offset + window.offset, window.size);
                n->symbol().Values[w] = slot;
                if (empty) {
                    n->symbol().LatestSlot = static_cast<std::int32_t>(w);
                } else if (evaluateTrigger(*n, w) == Verdict::Keep) {
                    n->symbol().LatestSlot = static_cast<std::int32_t>(w);
                    const double v = sampleToDouble(n->TypeID, n->symbol().Values[w]);
                    if (v > n->symbol().YMaxSampled)
                        n->symbol().YMaxSampled = v;
                    if (v < n->symbol().YMinSampled)
                        n->symbol().YMinSampled = v;
                    // The running mean of every sample since the start; types
                    // without a plain value (NaN) would poison it.
                    if (!std::isnan(v)) {
                        const double samples = static_cast<double>(++n->symbol().SamplesSinceStart);
                        n->symbol().YAvgSampled = ((samples - 1.0) * n->symbol().YAvgSampled + v) / samples;
                    }
                } else {
                    // Waiting for the trigger: the current sample becomes the previous one.
                    m_timeStamps[0] = m_timeStamps[1];
                    n->symbol().Values[0] = n->symbol().Values[1];
                }
                n->symbol().HasValue = true;
            }
        }
        if (m_triggerOn && !m_triggerFired) {
            m_write = 1;  // keep only the record before and the current one
            continue;
        }
        m_last = w;
        if (m_last < m_oldest)
            m_oldest = m_oldest + 1;
        std::uint32_t next = w + 1;
        if (next == kCapacity) {
            next = 0;
            m_oldest = 1;
        }
        m_write = next;
    }
}

SampleStore::SlotWindow SampleStore::slotWindow(const Node& symbol)
{
    if (symbol.TypeID != kTypeBitField)
        return {0, symbol.Size < 8 ? symbol.Size : 8};
    const std::uint32_t offset = symbol.BitOffset / 32 * 4;
    if (offset >= symbol.Size)
        return {0, 0};
    const std::uint32_t size = symbol.BitOffset % 32 + symbol.BitSize > 32 ? 8 : 4;
    return {offset, std::min(size, symbol.Size - offset)};
}
