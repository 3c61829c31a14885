// The one worker thread ("WORKER") and its ring of 32 job slots. Jobs run one
// after another in posting order, each handler followed by its completion
// routine. A full ring blocks the poster until a slot frees; posters blocked
// together take the freed slots in the order they called post(). The worker
// itself never blocks on its own ring (it alone frees slots): its post waits
// in line without it and is placed as soon as its turn and a slot come.
#pragma once

#include "base/Lock.h"
#include "base/TaggedAlloc.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

struct Job;
using JobHandler = void (*)(Job* job);
using JobCompletion = void (*)(Job* job);

// Header of every job record; a job's payload lives in a derived struct.
struct Job {
    virtual ~Job() = default;

    JobCompletion completion = nullptr;
    void* owner = nullptr;  // block to release; the stop job's done Event
    void* context = nullptr;
    std::uint32_t type = 0;
    std::int32_t result = 0;
};

struct JobTypeEntry {
    JobHandler handler;  // nullptr in the last entry: the stop sentinel
    const char* description;
};

class JobEngine {
public:
    static constexpr std::size_t kSlots = 32;

    JobEngine() = default;
    // Stops a still running worker (its queued jobs are dropped) and joins it.
    ~JobEngine();
    JobEngine(const JobEngine&) = delete;
    JobEngine& operator=(const JobEngine&) = delete;

    // The application's engine.
    static JobEngine& instance();

    // Copies the table; its last entry is the stop sentinel. Starts the worker.
    void setJobTable(const JobTypeEntry* table, std::size_t count);
    std::size_t tableCount() const;
    const char* description(std::uint32_t type) const;

    // 0, or -1 when the queue is closed (the caller keeps the record).
    int post(Job* job);

    // Posts the stop job and waits for the worker to finish; `pump` runs
    // between 10 ms waits (the interface keeps processing its events).
    template <typename Pump>
    void stopAndWait(Pump pump)
    {
        Event done;
        Job stop;
        stop.owner = &done;
        stop.type = static_cast<std::uint32_t>(tableCount() - 1);
        if (post(&stop) != 0)
            return;
        while (!done.waitFor(10))
            pump();
        join();
    }

    bool closed() const { return m_closed; }
    bool onWorker() const { return std::this_thread::get_id() == m_workerId; }

private:
    void startWorker();
    void run();
    void join();
    // Stores `job` in the write slot and serves the next ticket; lock held.
    void placeLocked(Job* job);
    // Places the worker's waiting posts whose turn has come while slots are
    // free; lock held.
    void placeDeferredLocked();

    mutable std::mutex m_mutex;  // the queue lock
    std::condition_variable m_slotFreed;
    Event m_wake;
    struct Slot {
        std::atomic<std::uint32_t> inUse{0};
        std::atomic<Job*> job{nullptr};
    };
    std::array<Slot, kSlots> m_slots;
    std::size_t m_write = 0;
    // Posters take turns by ticket; m_serving is the ticket whose turn it is.
    std::uint64_t m_nextTicket = 0;
    std::uint64_t m_serving = 0;
    struct Deferred {
        std::uint64_t ticket;
        Job* job;
    };
    std::deque<Deferred> m_deferred;  // the worker's posts waiting in line, by ticket
    std::atomic<bool> m_closed{false};
    std::vector<JobTypeEntry> m_table;
    std::thread m_thread;
    std::thread::id m_workerId;
};

// Releases a heap job record: the owner block if set, else the record.
void releaseJob(Job* job);

// A job record of type J in a block tagged `tag`; nullptr when allocation failed.
template <typename J>
J* newJob(const char* tag)
{
    void* block = alloc::allocate(sizeof(J), tag);
    if (!block)
        return nullptr;
    J* job = new (block) J();
    job->owner = block;
    return job;
}
