// The ring of sample records filled by the read loops and by raw import, read
// by the graph, the watch table, the status bar and the exports. Each selected
// symbol keeps its values in its own buffer of 8-byte slots.
#pragma once

#include "base/TaggedAlloc.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>

class SharedSettings;
class SymbolDatabase;
struct Node;

class SampleStore {
public:
    static constexpr std::uint32_t kCapacity = 1u << 20;
    static constexpr std::size_t kSymbolBufferBytes = std::size_t(kCapacity) * 8;  // 8 MiB
    static constexpr std::size_t kTimeStampBytes = std::size_t(kCapacity) * 4;     // 4 MiB

    explicit SampleStore(SymbolDatabase& symbols);

    // Types the trigger compares; on any other (bool, 64-bit, bit-field) it never fires.
    static bool canTrigger(std::int32_t typeId);

    // The project whose trigger settings decide what is kept; when the
    // trigger fires its fired flag is written back there.
    void setProject(SharedSettings* project) { m_project = project; }

    // Record layout: offsets in selection order from 4 (time-stamped records)
    // or 0 (QTX without time stamp). Returns the record size.
    std::uint32_t layOut(bool withTimeStamp);
    std::uint32_t recordSize() const { return m_recordSize; }
    bool withTimeStamp() const { return m_withTimeStamp; }

    // The single writer: `count` bytes holding whole records.
    void storeRecords(const std::uint8_t* bytes, std::size_t count);

    // A raw import rewrites the whole store while the views may be reading
    // it; the two exclude each other so a picture never mixes two recordings.
    // The read loops only append and need neither.
    void rewrite(const std::function<void()>& change);
    // Runs `read` unless a rewrite is under way; false then, without waiting.
    bool tryRead(const std::function<void()>& read) const;

    // Zero the buffers and indices.
    void clear();
    // Fresh start: clear, allocate missing symbol buffers, zero the time stamps.
    bool prepareFreshStart();
    // Reset the running maximum and minimum of every selected symbol.
    void resetStatistics();

    void setOpen(bool on) { m_open = on; }
    bool isOpen() const { return m_open; }
    void setFreshStart(bool on) { m_freshStart = on; }
    bool freshStart() const { return m_freshStart; }

    bool isEmpty() const { return m_write == 0 && m_oldest == 0 && m_last == 0; }
    std::uint32_t recordCount() const;
    std::uint32_t writeIndex() const { return m_write; }
    std::uint32_t oldestIndex() const { return m_oldest; }
    std::uint32_t lastIndex() const { return m_last; }
    bool hasWrapped() const { return m_oldest != 0; }
    std::uint32_t currentTimeStamp() const { return m_currentTimeStamp; }
    std::uint32_t lastBatchRecords() const { return m_lastBatch; }
    // Time stamp of the record in which the trigger last fired.
    std::uint32_t triggerTimeStamp() const { return m_triggerTimeStamp; }

    // Chronological access, i counted from the oldest record.
    std::uint32_t timeStampAt(std::uint32_t i) const;
    const std::uint64_t* valueSlotAt(const Node& symbol, std::uint32_t i) const;
    // Raw slot-order access (CSV export).
    const std::uint32_t* timeStamps() const { return m_timeStamps.get(); }

    std::size_t symbolCount() const;

    // The bytes of a symbol's part of a record that its 8-byte slot keeps.
    // A bit-field's part is its whole structure: the slot keeps the 32-bit
    // word that holds bit BitOffset, or two words when the field crosses
    // into the next one; its value then starts at bit BitOffset mod 32 of the
    // slot. Any other symbol keeps its first 8 bytes.
    struct SlotWindow {
        std::uint32_t offset = 0, size = 0;
    };
    static SlotWindow slotWindow(const Node& symbol);


private:
    std::uint32_t slotOf(std::uint32_t i) const;
    bool ensureTimeStamps();

    enum class Verdict { Keep, Discard };
    Verdict evaluateTrigger(const Node& symbol, std::uint32_t slot);

    SymbolDatabase& m_symbols;
    mutable std::mutex m_rewriteLock;
    SharedSettings* m_project = nullptr;  // not owned
    // Trigger snapshot of the current batch.
    const Node* m_triggerSymbol = nullptr;
    double m_triggerLevel = 0.0;
    bool m_triggerOn = false, m_triggerRise = false, m_triggerFall = false, m_triggerFired = false;
    alloc::Block<std::uint32_t> m_timeStamps;
    // Indices are written by the worker and read by the interface thread.
    std::atomic<std::uint32_t> m_write{0};
    std::atomic<std::uint32_t> m_last{0};
    std::atomic<std::uint32_t> m_oldest{0};
    std::atomic<std::uint32_t> m_currentTimeStamp{0};
    std::atomic<std::uint32_t> m_triggerTimeStamp{0};
    std::uint32_t m_lastBatch = 0;
    std::uint32_t m_recordSize = 4;
    bool m_withTimeStamp = true;
    bool m_open = false;
    bool m_freshStart = true;
};
