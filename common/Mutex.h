// Locks that leave nothing behind. Those of GCC's runtime for Windows take memory at their first use and never give it
// back, as theirs have no destructor: of an object with a lock, something would be left for ever.
#pragma once

#include <windows.h>

#include <atomic>

namespace Common
{
/// Stands where std::mutex does; a thread that has it must not lock it again.
class Mutex
{
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // Named as the standard library's guards call them.
    void lock() noexcept { AcquireSRWLockExclusive(&m_lock); } // NOLINT(readability-identifier-naming)
    bool try_lock() noexcept
    {
        return TryAcquireSRWLockExclusive(&m_lock) != 0;
    } // NOLINT(readability-identifier-naming)
    void unlock() noexcept { ReleaseSRWLockExclusive(&m_lock); } // NOLINT(readability-identifier-naming)

private:
    SRWLOCK m_lock = SRWLOCK_INIT;
};

/// Stands where std::recursive_mutex does. A critical section would do, but for Wine, which closes a handle for each
/// one that is deleted.
class RecursiveMutex
{
public:
    RecursiveMutex() = default;
    RecursiveMutex(const RecursiveMutex&) = delete;
    RecursiveMutex& operator=(const RecursiveMutex&) = delete;

    void lock() noexcept // NOLINT(readability-identifier-naming)
    {
        if (!IsOwn())
        {
            m_mutex.lock();
            m_owner.store(GetCurrentThreadId(), std::memory_order_relaxed);
        }
        ++m_depth;
    }
    bool try_lock() noexcept // NOLINT(readability-identifier-naming)
    {
        if (!IsOwn())
        {
            if (!m_mutex.try_lock())
                return false;
            m_owner.store(GetCurrentThreadId(), std::memory_order_relaxed);
        }
        ++m_depth;
        return true;
    }
    void unlock() noexcept // NOLINT(readability-identifier-naming)
    {
        if (--m_depth == 0)
        {
            // No thread has this number.
            m_owner.store(0, std::memory_order_relaxed);
            m_mutex.unlock();
        }
    }

private:
    // Only the thread itself can have written its own number.
    bool IsOwn() const noexcept { return m_owner.load(std::memory_order_relaxed) == GetCurrentThreadId(); }

    Mutex m_mutex;
    std::atomic<DWORD> m_owner = 0;
    unsigned m_depth = 0;
};
} // namespace Common
