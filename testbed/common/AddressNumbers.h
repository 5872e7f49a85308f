// Numbers for bookmarks and connections that look like addresses.
#pragma once

#include "common/Mapi.h"
#include "testbed/common/Namespace.h"

#include <optional>

/// The number that stands for a bookmark or connection to the outside. A store provider may give the address of what
/// it keeps, and does; so these have upper halves that are not zero and differ from one to the next, and whoever keeps
/// only 32 bits of one is refused.
namespace Testbed::AddressNumbers
{
constexpr ULONG_PTR first = 0x00007FF600010040;
constexpr ULONG_PTR step = 0x0000000100000040;

constexpr ULONG_PTR Of(ULONG count) noexcept
{
    return first + count * step;
}

/// What `number` was made of, or nothing for one that was not.
constexpr std::optional<ULONG> CountOf(ULONG_PTR number) noexcept
{
    const ULONG_PTR count = (number - first) / step;
    return count <= MAXDWORD && Of(static_cast<ULONG>(count)) == number ? std::optional(static_cast<ULONG>(count))
                                                                        : std::nullopt;
}
} // namespace Testbed::AddressNumbers
