// A turn that one program of the machine has at a time.
#pragma once

#include <windows.h>

namespace Testbed
{
/// Waits for the named mutex and holds it. A program that is ended passes it on.
class Turn
{
public:
    explicit Turn(const wchar_t* name) noexcept : m_mutex(CreateMutexW(nullptr, FALSE, name))
    {
        if (m_mutex)
            WaitForSingleObject(m_mutex, INFINITE);
    }
    ~Turn()
    {
        if (m_mutex)
        {
            ReleaseMutex(m_mutex);
            CloseHandle(m_mutex);
        }
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    HANDLE m_mutex;
};
} // namespace Testbed
