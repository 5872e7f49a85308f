// Included in front of every unit: what libc++ calls of the universal C runtime and mingw-w64's headers do not declare.
#pragma once

#include <corecrt.h>

#ifdef __cplusplus
extern "C"
{
#endif
    int __cdecl ___mb_cur_max_l_func(_locale_t);
    float __cdecl _strtof_l(const char*, char**, _locale_t);
    long double __cdecl _strtold_l(const char*, char**, _locale_t);
#ifdef __cplusplus
}
#endif
