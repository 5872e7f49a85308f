// Visual Studio's header overloads abs(), and libc++ relies on it.
#pragma once

#include_next <stdlib.h>

#ifdef __cplusplus
extern "C++"
{
    inline long abs(long value) noexcept
    {
        return __builtin_labs(value);
    }
    inline long long abs(long long value) noexcept
    {
        return __builtin_llabs(value);
    }
}
#endif
