// Where the loader enters a DLL.
#include "Module.h"

#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID reserved);
extern "C" BOOL WINAPI DefaultDllMain(HINSTANCE, DWORD, LPVOID)
{
    return TRUE;
}
#pragma comment(linker, "/alternatename:DllMain=DefaultDllMain")

namespace
{

bool g_attached = false;

// Also at the process's end, when this is its last thread: the system ended the others wherever they were, and their
// thread-local variables are not destroyed. The loader has destroyed this thread's by the module's callback.
void Detach(HINSTANCE instance, LPVOID reserved)
{
    g_attached = false;
    DllMain(instance, DLL_PROCESS_DETACH, reserved);
    Runtime::RunExitFunctions();
}

BOOL Attach(HINSTANCE instance, LPVOID reserved)
{
    try
    {
        Runtime::ConstructStatics();
    }
    catch (...)
    {
        // The module is refused, with those destroyed again that were constructed.
        Runtime::DestroyThreadLocals();
        Runtime::RunExitFunctions();
        return FALSE;
    }
    g_attached = true;
    if (DllMain(instance, DLL_PROCESS_ATTACH, reserved))
        return TRUE;
    Runtime::DestroyThreadLocals();
    Detach(instance, reserved);
    return FALSE;
}

} // namespace

extern "C" BOOL WINAPI _DllMainCRTStartup(HINSTANCE instance, DWORD reason, LPVOID reserved)
{
    if (reason == DLL_PROCESS_ATTACH)
        return Attach(instance, reserved);
    // The loader also tells a module of its end that did not come to its beginning.
    if (!g_attached)
        return TRUE;
    if (reason == DLL_PROCESS_DETACH)
        Detach(instance, reserved);
    else
        DllMain(instance, reason, reserved);
    return TRUE;
}
