// The entry of a program with main().
#include "CrtStartup.h"
#include "Program.h"

extern "C" int __cdecl main(int count, char** arguments, char** environment);

extern "C" void mainCRTStartup()
{
    _configure_narrow_argv(_crt_argv_unexpanded_arguments);
    _initialize_narrow_environment();
    Runtime::StartProgram();
    exit(main(*__p___argc(), *__p___argv(), *__p__environ()));
}
