// The language's allocation functions, over the universal C runtime's heap. Each module has its own: what one module
// allocates only this module frees.
#include <malloc.h>
#include <new.h>
#include <stdint.h>
#include <stdlib.h>

// The C runtime's list of one: the handler that new_handler functions of any module set there.
extern "C" int __cdecl _callnewh(size_t size);

namespace
{

template <class Allocate>
void* AllocateOrThrow(size_t size, Allocate allocate)
{
    for (;;)
    {
        if (void* const block = allocate())
            return block;
        if (_callnewh(size) == 0)
        {
            if (size == SIZE_MAX)
                throw std::bad_array_new_length();
            throw std::bad_alloc();
        }
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

void* operator new(size_t size)
{
    return AllocateOrThrow(size, [=] { return malloc(size ? size : 1); });
}

void* operator new(size_t size, std::align_val_t alignment)
{
    return AllocateOrThrow(size, [=] { return _aligned_malloc(size ? size : 1, static_cast<size_t>(alignment)); });
}

void* operator new(size_t size, const std::nothrow_t&) noexcept
{
    return AllocateOrNull([=] { return operator new(size); });
}

void* operator new(size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return AllocateOrNull([=] { return operator new(size, alignment); });
}

void* operator new[](size_t size)
{
    return operator new(size);
}

void* operator new[](size_t size, std::align_val_t alignment)
{
    return operator new(size, alignment);
}

void* operator new[](size_t size, const std::nothrow_t&) noexcept
{
    return AllocateOrNull([=] { return operator new[](size); });
}

void* operator new[](size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    return AllocateOrNull([=] { return operator new[](size, alignment); });
}

void operator delete(void* block) noexcept
{
    free(block);
}

void operator delete(void* block, std::align_val_t) noexcept
{
    _aligned_free(block);
}

void operator delete(void* block, size_t) noexcept
{
    operator delete(block);
}

void operator delete(void* block, const std::nothrow_t&) noexcept
{
    operator delete(block);
}

void operator delete(void* block, size_t, std::align_val_t alignment) noexcept
{
    operator delete(block, alignment);
}

void operator delete(void* block, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    operator delete(block, alignment);
}

void operator delete[](void* block) noexcept
{
    operator delete(block);
}

void operator delete[](void* block, std::align_val_t alignment) noexcept
{
    operator delete(block, alignment);
}

void operator delete[](void* block, size_t) noexcept
{
    operator delete[](block);
}

void operator delete[](void* block, const std::nothrow_t&) noexcept
{
    operator delete[](block);
}

void operator delete[](void* block, size_t, std::align_val_t alignment) noexcept
{
    operator delete[](block, alignment);
}

void operator delete[](void* block, std::align_val_t alignment, const std::nothrow_t&) noexcept
{
    operator delete[](block, alignment);
}
