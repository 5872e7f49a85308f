// The one place where the library allocates from its heap; what a host sees of it is in Export.h.
#pragma once

#include "support/Export.h"

#include <cstddef>

namespace Quillon::Detail
{

/// Allocates `count` elements of `elementSize` bytes, uninitialised. Throws CComError(E_OUTOFMEMORY), also where the
/// size does not fit into size_t. Free with FreeObject.
void* AllocateArray(std::size_t count, std::size_t elementSize);

/// The capacity to grow to, so that `required` elements fit and repeated appending stays linear.
std::size_t GrowCapacity(std::size_t capacity, std::size_t required) noexcept;

} // namespace Quillon::Detail
