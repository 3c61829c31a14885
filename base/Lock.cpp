#include "base/Lock.h"

#include "base/Clock.h"

#include <chrono>
#include <thread>

bool LockObject::lock(int timeoutMs)
{
    if (timeoutMs < 0) {
        m_mutex.lock();
        return true;
    }
    const auto start = clk::microseconds();
    const auto limit = static_cast<std::uint64_t>(timeoutMs) * 1000;
    for (;;) {
        if (m_mutex.try_lock())
            return true;
        const auto elapsed = clk::microseconds() - start;
        if (elapsed >= limit)
            return false;
        if (elapsed > 10000)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        else
            std::this_thread::yield();
    }
}

void LockObject::unlock() { m_mutex.unlock(); }

void Event::set()
{
    {
        std::lock_guard lock(m_mutex);
        m_signalled = true;
    }
    m_cv.notify_one();
}

void Event::wait()
{
    std::unique_lock lock(m_mutex);
    m_cv.wait(lock, [this] { return m_signalled; });
    m_signalled = false;
}

bool Event::waitFor(int timeoutMs)
{
    std::unique_lock lock(m_mutex);
    if (!m_cv.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return m_signalled; }))
        return false;
    m_signalled = false;
    return true;
}
