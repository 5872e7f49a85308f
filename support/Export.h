// What makes a name of this library visible to a host, and what keeps its memory inside the library's own module.
#pragma once

#include <cstddef>

#if defined(KIVNST_BUILDING)
#define KIVNST_API __declspec(dllexport)
#else
#define KIVNST_API __declspec(dllimport)
#endif

namespace Quillon
{

/// Allocates `size` bytes from the library's own heap. Any thread.
/// Throws CComError(E_OUTOFMEMORY), after its "Throwing exception" line, when there is no memory.
KIVNST_API void* AllocateObject(std::size_t size);

/// Frees what AllocateObject gave; null is ignored. Any thread; never throws.
KIVNST_API void FreeObject(void* block) noexcept;

} // namespace Quillon

/// Stands in the public part of an exported class: its objects, and those of classes that a host derives from it, are
/// allocated and freed by the library, so that the host's own heap may be another one. Its C++ ABI may not: a DLL built
/// by one C++ compiler serves hosts that are built for the same C++ ABI.
#define KIVNST_OWN_HEAP                                                                                                \
    static void* operator new(std::size_t size)                                                                        \
    {                                                                                                                  \
        return ::Quillon::AllocateObject(size);                                                                        \
    }                                                                                                                  \
    static void operator delete(void* block) noexcept                                                                  \
    {                                                                                                                  \
        ::Quillon::FreeObject(block);                                                                                  \
    }
