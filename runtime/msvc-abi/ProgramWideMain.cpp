// The entry of a program with wmain().
#include "CrtStartup.h"
#include "Program.h"

extern "C" int __cdecl wmain(int count, wchar_t** arguments, wchar_t** environment);

extern "C" void wmainCRTStartup()
{
    _configure_wide_argv(_crt_argv_unexpanded_arguments);
    _initialize_wide_environment();
    Runtime::StartProgram();
    exit(wmain(*__p___argc(), *__p___wargv(), *__p__wenviron()));
}
