// What start-up code calls of the universal C runtime and mingw-w64's headers do not declare everywhere.
#pragma once

#include <corecrt_startup.h>
#include <process.h>
#include <stdlib.h>

extern "C"
{
    enum _crt_app_type
    {
        _crt_unknown_app,
        _crt_console_app,
        _crt_gui_app
    };

    enum _crt_argv_mode
    {
        _crt_argv_no_arguments,
        _crt_argv_unexpanded_arguments,
        _crt_argv_expanded_arguments
    };

    void __cdecl _set_app_type(_crt_app_type type);
    int __cdecl _configure_narrow_argv(_crt_argv_mode mode);
    int __cdecl _configure_wide_argv(_crt_argv_mode mode);
    int __cdecl _initialize_narrow_environment();
    int __cdecl _initialize_wide_environment();
    [[noreturn]] void __cdecl terminate();
}
