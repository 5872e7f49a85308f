// A variable argument list that is ended on every path.
#pragma once

#include <cstdarg>

namespace Quillon::Detail
{

/// Owns what va_start begins in `list`.
struct ArgumentList
{
    va_list list;
    ArgumentList() noexcept = default;
    ArgumentList(const ArgumentList&) = delete;
    ArgumentList& operator=(const ArgumentList&) = delete;
    ~ArgumentList() { va_end(list); }
};

} // namespace Quillon::Detail
