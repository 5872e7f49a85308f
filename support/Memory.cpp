// The library's heap.
#include "support/Memory.h"

#include "support/CallWrapping.h"
#include "support/LastError.h"

#include <cstdint>
#include <cstdlib>

namespace Quillon
{
namespace
{

// The event line as it is for every exception, but put together by the compiler: there is no memory to format it in.
#define KIVNST_TEXT_OF(number) #number
#define KIVNST_THROWING_AT(line)                                                                                       \
    L"Throwing exception at Memory.cpp, Quillon::AllocateObject, line " KIVNST_TEXT_OF(                                \
        line) L": MAPI_E_NOT_ENOUGH_MEMORY (0x8007000E)"

/// Says so without needing memory, and throws.
[[noreturn]] KIVNST_COLD void ThrowOutOfMemory()
{
    LogEntry(LogId::Exception, KIVNST_THROWING_AT(__LINE__));
    throw CComError(E_OUTOFMEMORY);
}

#undef KIVNST_THROWING_AT
#undef KIVNST_TEXT_OF

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
    // The text of a failure is freed on the way to the caller who asks for its code.
    const Detail::KeepLastError lastError;
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
