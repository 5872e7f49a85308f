#include "Module.h"

#include "CrtStartup.h"

#include <vcruntime_typeinfo.h>

#pragma section(".CRT$XIA", long, read)
#pragma section(".CRT$XIZ", long, read)
#pragma section(".CRT$XCA", long, read)
#pragma section(".CRT$XCZ", long, read)

namespace
{

using CInitializer = int(__cdecl*)();
using Constructor = void(__cdecl*)();

_onexit_table_t g_exitFunctions;

} // namespace

extern "C"
{
    // Its reference shows the linker that a unit uses floating-point numbers.
    extern const int _fltused = 0x9875;

    void __cdecl __std_type_info_destroy_list(__type_info_node*);

    // The compiler puts the address of each unit's function that constructs its statics in between, the linker sorts
    // the sections by name.
    __declspec(allocate(".CRT$XIA")) extern const CInitializer firstInitializer = nullptr;
    __declspec(allocate(".CRT$XIZ")) extern const CInitializer lastInitializer = nullptr;
    __declspec(allocate(".CRT$XCA")) extern const Constructor firstConstructor = nullptr;
    __declspec(allocate(".CRT$XCZ")) extern const Constructor lastConstructor = nullptr;

    int __cdecl atexit(void(__cdecl* function)())
    {
        return _register_onexit_function(&g_exitFunctions, reinterpret_cast<_onexit_t>(function));
    }
}

namespace Runtime
{

void ConstructStatics()
{
    _initialize_onexit_table(&g_exitFunctions);
    // The linker may fill up between two units.
    for (const auto* each = &firstInitializer + 1; each < &lastInitializer; ++each)
        if (*each)
            (*each)();
    for (const auto* each = &firstConstructor + 1; each < &lastConstructor; ++each)
        if (*each)
            (*each)();
    ConstructThreadLocals();
}

void RunExitFunctions()
{
    // The C runtime empties the table before it calls; what a destructor registers stands in the table anew.
    do
        _execute_onexit_table(&g_exitFunctions);
    while (g_exitFunctions._first != g_exitFunctions._last);
    __std_type_info_destroy_list(&__type_info_root_node);
    __type_info_root_node = {};
}

} // namespace Runtime
