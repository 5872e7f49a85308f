// This program's heap, which is not the library's: a block of one that gets to the other is noticed.
#pragma once

#include <cstddef>

namespace Tests
{

/// The blocks that operator new gave in this program and operator delete has not got back.
std::size_t OwnBlocks() noexcept;

/// How often operator delete got a block that is not of this heap.
std::size_t ForeignBlocks() noexcept;

} // namespace Tests
