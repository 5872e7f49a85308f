// Points at which threads wait for each other. The standard library's latch, barrier and waiting atomics lose wake-ups
// with the compiler in use here; a mutex and a condition do not.
#pragma once

#include <condition_variable>
#include <mutex>

namespace Tests
{

/// Lets everybody through once it has been opened.
class Gate
{
public:
    void Open()
    {
        const std::lock_guard lock(m_lock);
        m_isOpen = true;
        m_opened.notify_all();
    }
    void Wait()
    {
        std::unique_lock lock(m_lock);
        m_opened.wait(lock, [this] { return m_isOpen; });
    }

private:
    std::mutex m_lock;
    std::condition_variable m_opened;
    bool m_isOpen = false;
};

/// Lets so many threads through when the last of them arrives, once.
class MeetingPoint
{
public:
    explicit MeetingPoint(int count) : m_missing(count) {}
    void Arrive()
    {
        std::unique_lock lock(m_lock);
        if (--m_missing == 0)
            m_complete.notify_all();
        m_complete.wait(lock, [this] { return m_missing <= 0; });
    }

private:
    std::mutex m_lock;
    std::condition_variable m_complete;
    int m_missing;
};

} // namespace Tests
