// What the library does when its module is unloaded: what it took for the whole process it gives back.
#include "support/Log.h"
#include "support/ThreadMark.h"

#include <exception>

extern "C" BOOL WINAPI DllMain(HINSTANCE /*module*/, DWORD reason, void* processEnds)
{
#if defined(__GLIBCXX__)
    // The compiler's runtime is not made for being unloaded: it leaves a block of memory behind each time. It stays.
    HMODULE runtime = nullptr;
    if (reason == DLL_PROCESS_ATTACH)
        GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN, L"libstdc++-6.dll", &runtime);
#endif
    // At the end of the process the other threads have been ended wherever they were, perhaps within a lock, and the
    // system takes everything back by itself.
    if (reason == DLL_PROCESS_DETACH && !processEnds)
    {
        Quillon::Logging::SetLogSink(nullptr, nullptr);
        Quillon::Detail::ReleaseThreadMarks();
    }
    return TRUE;
}
