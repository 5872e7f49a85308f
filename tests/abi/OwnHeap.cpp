#include "tests/abi/OwnHeap.h"

#include <windows.h>

#include <atomic>
#include <new>

namespace
{

constexpr unsigned long long own = 0x4B69764E73744F77;

/// Stands in front of each block, and keeps it aligned.
struct Header
{
    unsigned long long mark;
    unsigned long long size;
};

std::atomic<std::size_t> g_blocks = 0;
std::atomic<std::size_t> g_foreign = 0;

HANDLE Heap() noexcept
{
    static const HANDLE heap = HeapCreate(0, 0, 0);
    return heap;
}

void* Allocate(std::size_t size) noexcept
{
    auto* const header = static_cast<Header*>(HeapAlloc(Heap(), 0, sizeof(Header) + size));
    if (!header)
        return nullptr;
    *header = {own, size};
    ++g_blocks;
    return header + 1;
}

void Free(void* block) noexcept
{
    if (!block)
        return;
    auto* const header = static_cast<Header*>(block) - 1;
    if (header->mark != own)
    {
        ++g_foreign;
        return;
    }
    header->mark = 0;
    --g_blocks;
    HeapFree(Heap(), 0, header);
}

} // namespace

namespace Tests
{

std::size_t OwnBlocks() noexcept
{
    return g_blocks;
}

std::size_t ForeignBlocks() noexcept
{
    return g_foreign;
}

} // namespace Tests

void* operator new(std::size_t size)
{
    if (void* const block = Allocate(size))
        return block;
    throw std::bad_alloc();
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

void operator delete(void* block) noexcept
{
    Free(block);
}

void operator delete[](void* block) noexcept
{
    Free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    Free(block);
}

void operator delete[](void* block, std::size_t) noexcept
{
    Free(block);
}

void operator delete(void* block, const std::nothrow_t&) noexcept
{
    Free(block);
}

void operator delete[](void* block, const std::nothrow_t&) noexcept
{
    Free(block);
}
