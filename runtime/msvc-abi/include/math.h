// libc++ overloads the classification of floating-point numbers, for which it needs functions; mingw-w64 has macros.
#pragma once

#include_next <math.h>

#ifdef __cplusplus
#undef fpclassify
#undef isfinite
#undef isinf
#undef isnan
#undef isnormal
#undef signbit

extern "C++"
{
    inline int fpclassify(double value)
    {
        return __builtin_fpclassify(FP_NAN, FP_INFINITE, FP_NORMAL, FP_SUBNORMAL, FP_ZERO, value);
    }
    inline bool isfinite(double value)
    {
        return __builtin_isfinite(value);
    }
    inline bool isinf(double value)
    {
        return __builtin_isinf(value);
    }
    inline bool isnan(double value)
    {
        return __builtin_isnan(value);
    }
    inline bool isnormal(double value)
    {
        return __builtin_isnormal(value);
    }
    inline bool signbit(double value)
    {
        return __builtin_signbit(value);
    }
}
#endif
