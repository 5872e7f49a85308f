// Starting another program from a test.
#pragma once

#include <windows.h>

namespace Tests
{

/// CreateProcessW with what tests need of its arguments, and again where Wine lost the process while it was starting:
/// CreateProcessW then fails with ERROR_INTERNAL_ERROR, and nothing of the program has run. Three attempts at most.
/// `program` and `folder` may be null, `flags` are CreateProcessW's; gives whether it was started, else GetLastError
/// tells why.
inline bool StartProcess(const wchar_t* program, wchar_t* commandLine, bool inheritsHandles, const wchar_t* folder,
                         STARTUPINFOW& startup, PROCESS_INFORMATION& started, DWORD flags = 0) noexcept
{
    for (int attempt = 1;; ++attempt)
    {
        if (CreateProcessW(program, commandLine, nullptr, nullptr, inheritsHandles ? TRUE : FALSE, flags, nullptr,
                           folder, &startup, &started))
            return true;
        if (attempt == 3 || GetLastError() != ERROR_INTERNAL_ERROR)
            return false;
    }
}

} // namespace Tests
