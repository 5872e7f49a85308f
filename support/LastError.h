// Keeping the calling thread's last error.
#pragma once

#include <windows.h>

namespace Quillon::Detail
{

/// Leaves the thread's last error as it found it: what tells of a failure, and what tidies up behind it, must not
/// disturb the code that the caller asks for next.
class KeepLastError
{
public:
    KeepLastError() noexcept : m_error(GetLastError()) {}
    KeepLastError(const KeepLastError&) = delete;
    KeepLastError& operator=(const KeepLastError&) = delete;
    ~KeepLastError() { SetLastError(m_error); }

private:
    DWORD m_error;
};

} // namespace Quillon::Detail
