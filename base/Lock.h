// The lock object and the auto-reset event shared by the job engine, the
// settings store and the main window's bridge.
#pragma once

#include <condition_variable>
#include <mutex>

// A mutual-exclusion lock with an optional time-out. lock(-1) waits forever.
class LockObject {
public:
    // Returns true when the lock was taken. A finite wait polls try_lock and,
    // once 10 ms have passed, sleeps 1 ms between tries.
    bool lock(int timeoutMs = -1);
    void unlock();

private:
    std::mutex m_mutex;
};

class LockGuard {
public:
    explicit LockGuard(LockObject& l) : m_lock(l) { m_lock.lock(); }
    ~LockGuard() { m_lock.unlock(); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    LockObject& m_lock;
};

// Auto-reset event: set() wakes one waiter (or the next one to wait), and the
// event resets as that wait returns.
class Event {
public:
    void set();
    void wait();
    // Returns true when signalled within the time.
    bool waitFor(int timeoutMs);

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    bool m_signalled = false;
};
