// The console for as long as a program runs.
#include "tools/common/Program.h"

#include <atomic>

namespace Tools
{
namespace
{

/// The code page to put back; 0 where there is none to put back.
std::atomic<UINT> g_codePage = 0;

void PutBack() noexcept
{
    if (const UINT codePage = g_codePage.exchange(0))
        SetConsoleOutputCP(codePage);
}

/// On a thread of its own; what the system does about the event comes afterwards.
BOOL WINAPI BeforeTheEnd(DWORD) noexcept
{
    PutBack();
    return FALSE;
}

} // namespace

Utf8Console::Utf8Console() noexcept
{
    g_codePage = GetConsoleOutputCP();
    SetConsoleCtrlHandler(&BeforeTheEnd, TRUE);
    SetConsoleOutputCP(CP_UTF8);
}

Utf8Console::~Utf8Console()
{
    SetConsoleCtrlHandler(&BeforeTheEnd, FALSE);
    PutBack();
}

} // namespace Tools
