// The language's allocation functions, over the universal C runtime's heap. Each module has its own: what one module
// allocates only this module frees.
#include <malloc.h>
#include <new.h>
#include <stdint.h>
#include <stdlib.h>

// A program may define its own in place of any of these.
#define KIVNST_REPLACEABLE __attribute__((weak))

namespace
{

// The module's own.
std::new_handler g_handler = nullptr;

template <class Allocate>
void* AllocateOrThrow(size_t size, Allocate allocate)
{
    for (;;)
    {
        if (void* const block = allocate())
            return block;
        if (const std::new_handler handler = std::get_new_handler())
            handler();
        else if (size == SIZE_MAX)
            throw std::bad_array_new_length();
        else
            throw std::bad_alloc();
    }
}

template <class Allocate>
void* AllocateOrNull(Allocate allocate) noexcept
{
    try
    {
        return allocate();
    }
    catch (const std::bad_alloc&)
    {
        return nullptr;
    }
}

} // namespace

namespace std
{

new_handler __cdecl set_new_handler(new_handler handler) noexcept
{
    return __atomic_exchange_n(&g_handler, handler, __ATOMIC_SEQ_CST);
}

new_handler __cdecl get_new_handler() noexcept
{
    return __atomic_load_n(&g_handler, __ATOMIC_SEQ_CST);
}

} // namespace std

KIVNST_REPLACEABLE void* operator new(size_t size)
{
    return AllocateOrThrow(size, [=] { return malloc(size ? size : 1); });
}

KIVNST_REPLACEABLE void* operator new(size_t size, std::align_val_t alignment)
{
    return AllocateOrThrow(size, [=] { return _aligned_malloc(size ? size : 1, static_cast<size_t>(alignment)); });
}

KIVNST_REPLACEABLE void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return AllocateOrNull([=] { return operator new(size); });
}

KIVNST_REPLACEABLE void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return AllocateOrNull([=] { return operator new(size, alignment); });
}

KIVNST_REPLACEABLE void* operator new[](size_t size)
{
    return operator new(size);
}

KIVNST_REPLACEABLE void* operator new[](size_t size, std::align_val_t alignment)
{
    return operator new(size, alignment);
}

KIVNST_REPLACEABLE void* operator new[](size_t size, const std::nothrow_t&) noexcept
{
    return AllocateOrNull([=] { return operator new[](size); });
}

KIVNST_REPLACEABLE void* operator new[](size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return AllocateOrNull([=] { return operator new[](size, alignment); });
}

KIVNST_REPLACEABLE void operator delete(void* block) noexcept
{
    free(block);
}

KIVNST_REPLACEABLE void operator delete(void* block, std::align_val_t) noexcept
{
    _aligned_free(block);
}

KIVNST_REPLACEABLE void operator delete(void* block, size_t) noexcept
{
    operator delete(block);
}

KIVNST_REPLACEABLE void operator delete(void* block, const std::nothrow_t&) noexcept
{
    operator delete(block);
}

KIVNST_REPLACEABLE void operator delete(void* block, size_t, std::align_val_t alignment) noexcept
{
    operator delete(block, alignment);
}

KIVNST_REPLACEABLE void operator delete(void* block, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    operator delete(block, alignment);
}

KIVNST_REPLACEABLE void operator delete[](void* block) noexcept
{
    operator delete(block);
}

KIVNST_REPLACEABLE void operator delete[](void* block, std::align_val_t alignment) noexcept
{
    operator delete(block, alignment);
}

KIVNST_REPLACEABLE void operator delete[](void* block, size_t) noexcept
{
    operator delete[](block);
}

KIVNST_REPLACEABLE void operator delete[](void* block, const std::nothrow_t&) noexcept
{
    operator delete[](block);
}

KIVNST_REPLACEABLE void operator delete[](void* block, size_t, std::align_val_t alignment) noexcept
{
    operator delete[](block, alignment);
}

KIVNST_REPLACEABLE void operator delete[](void* block, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    operator delete[](block, alignment);
}
