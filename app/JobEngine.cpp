#include "app/JobEngine.h"

#include "base/TaggedAlloc.h"

#include <pthread.h>

JobEngine& JobEngine::instance()
{
    static JobEngine engine;
    return engine;
}

JobEngine::~JobEngine()
{
    if (m_thread.joinable() && !m_closed) {
        if (m_table.empty())
            m_table.push_back({nullptr, "stop"});
        stopAndWait([] {});
    }
    join();
}

void JobEngine::join()
{
    if (m_thread.joinable() && std::this_thread::get_id() != m_thread.get_id())
        m_thread.join();
}

void JobEngine::setJobTable(const JobTypeEntry* table, std::size_t count)
{
    std::lock_guard lock(m_mutex);
    startWorker();
    m_table.assign(table, table + count);
}

std::size_t JobEngine::tableCount() const
{
    std::lock_guard lock(m_mutex);
    return m_table.size();
}

const char* JobEngine::description(std::uint32_t type) const
{
    std::lock_guard lock(m_mutex);
    return type < m_table.size() ? m_table[type].description : "";
}

void JobEngine::startWorker()
{
    if (m_thread.joinable() || m_closed)
        return;
    m_thread = std::thread([this] { run(); });
    m_workerId = m_thread.get_id();
}

int JobEngine::post(Job* job)
{
    if (m_closed)
        return -1;
    {
        std::unique_lock lock(m_mutex);
        if (m_closed)
            return -1;
        startWorker();
        // The wait releases the lock, so posters line up by ticket and look
        // at the write slot only once it is their turn: otherwise two of
        // them could wait on the same slot and the second would store its
        // job where the first already did, or after the write index moved on.
        const std::uint64_t ticket = m_nextTicket++;
        const auto turn = [&] { return ticket == m_serving && m_slots[m_write].inUse.load() == 0; };
        if (onWorker() && !turn()) {
            m_deferred.push_back({ticket, job});
            return 0;
        }
        m_slotFreed.wait(lock, [&] { return m_closed.load() || turn(); });
        if (m_closed)
            return -1;
        placeLocked(job);
        placeDeferredLocked();
    }
    // The next ticket may be waiting for its turn with its slot already free.
    m_slotFreed.notify_all();
    m_wake.set();
    return 0;
}

void JobEngine::placeLocked(Job* job)
{
    Slot& slot = m_slots[m_write];
    slot.job.store(job);
    slot.inUse.store(1);
    m_write = (m_write + 1) % kSlots;
    ++m_serving;
}

void JobEngine::placeDeferredLocked()
{
    while (!m_deferred.empty() && m_deferred.front().ticket == m_serving && m_slots[m_write].inUse.load() == 0) {
        placeLocked(m_deferred.front().job);
        m_deferred.pop_front();
    }
}

void JobEngine::run()
{
    pthread_setname_np(pthread_self(), "WORKER");
    std::size_t read = 0;
    for (;;) {
        Slot& slot = m_slots[read];
        if (slot.inUse.load() == 0) {
            m_wake.wait();
            continue;
        }
        Job* job = slot.job.load();
        std::uint32_t count;
        JobHandler handler = nullptr;
        {
            std::lock_guard lock(m_mutex);
            count = static_cast<std::uint32_t>(m_table.size());
            if (job->type < count)
                handler = m_table[job->type].handler;
        }
        if (job->type < count && job->type == count - 1) {
            // Stop job: close the queue, drop what is still queued, signal.
            // Dropped jobs get no completion, but their heap records are
            // still freed (a stack record, like the stop job, has no block).
            {
                std::lock_guard lock(m_mutex);
                m_closed = true;
                m_write = 0;
                for (Slot& s : m_slots) {
                    Job* queued = s.job;
                    if (s.inUse && queued && queued != job && queued->owner && queued->type != count - 1)
                        releaseJob(queued);
                    s.inUse = 0;
                    s.job = nullptr;
                }
                for (const Deferred& d : m_deferred) {
                    if (d.job->owner && d.job->type != count - 1)
                        releaseJob(d.job);
                }
                m_deferred.clear();
            }
            m_slotFreed.notify_all();
            if (job->owner)
                static_cast<Event*>(job->owner)->set();
            return;
        }
        if (handler)
            handler(job);
        if (job->completion)
            job->completion(job);
        {
            std::lock_guard lock(m_mutex);
            slot.job = nullptr;
            slot.inUse = 0;
            placeDeferredLocked();
        }
        m_slotFreed.notify_all();
        read = (read + 1) % kSlots;
    }
}

void releaseJob(Job* job)
{
    if (!job)
        return;
    void* block = job->owner ? job->owner : job;
    job->~Job();
    alloc::release(block);
}
