// The library's heap.
#include "support/Memory.h"

#include "support/CallWrapping.h"

#include <cstdint>
#include <cstdlib>

namespace Quillon
{
namespace
{

/// Says so without needing memory, and throws.
[[noreturn]] KIVNST_COLD void ThrowOutOfMemory()
{
    LogEntry(LogId::Exception, L"Throwing exception at Memory.cpp, Quillon::AllocateObject: out of memory");
    throw CComError(E_OUTOFMEMORY);
}

} // namespace

void* AllocateObject(std::size_t size)
{
    void* const block = std::malloc(size ? size : 1);
    if (!block)
        ThrowOutOfMemory();
    return block;
}

void FreeObject(void* block) noexcept
{
    std::free(block);
}

namespace Detail
{

void* AllocateArray(std::size_t count, std::size_t elementSize)
{
    // Half of the address space bounds every size, so that pointer differences stay representable.
    if (count > static_cast<std::size_t>(PTRDIFF_MAX) / elementSize)
        ThrowOutOfMemory();
    return AllocateObject(count * elementSize);
}

std::size_t GrowCapacity(std::size_t capacity, std::size_t required) noexcept
{
    const std::size_t grown = capacity + capacity / 2;
    return grown > required ? grown : required;
}

} // namespace Detail
} // namespace Quillon
