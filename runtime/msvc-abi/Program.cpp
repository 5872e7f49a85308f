#include "Program.h"

#include "CrtStartup.h"
#include "Module.h"

#include <windows.h>

namespace
{

void NTAPI OnExit(void*, unsigned long, void*)
{
    Runtime::DestroyThreadLocals();
}

// An exception of C++ that nobody catches ends the program as std::terminate ends it, in whichever thread it is.
LONG WINAPI OnUnhandledException(EXCEPTION_POINTERS* pointers)
{
    constexpr DWORD cppException = 0xE06D7363;
    if (pointers->ExceptionRecord->ExceptionCode == cppException)
        terminate();
    return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

namespace Runtime
{

void StartProgram()
{
    SetUnhandledExceptionFilter(OnUnhandledException);
    _set_app_type(_crt_console_app);
    // exit() runs the C runtime's list: this thread's variables first, then the module's list as one entry of it.
    _register_thread_local_exe_atexit_callback(OnExit);
    _crt_atexit(RunExitFunctions);
    ConstructStatics();
}

} // namespace Runtime
