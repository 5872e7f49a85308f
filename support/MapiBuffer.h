// Owning pointers to MAPI memory. The two functions are defined beside the binding of the MAPI module, in mapi/.
#pragma once

#include "support/Export.h"
#include "support/MapiHeaders.h"

#include <utility>

namespace Quillon::Mapi
{

/// Frees a block that MAPI allocated, through the MAPI module in use; null is ignored. A block that cannot be freed
/// because there is no MAPI module is kept and logged at level 0. Any thread.
KIVNST_API void FreeMapiBuffer(void* buffer) noexcept;

/// Allocates `size` bytes of MAPI memory, which the receiver frees with MAPIFreeBuffer. Throws CComError on failure.
/// Any thread.
KIVNST_API void* AllocateMapiBuffer(ULONG size);

/// Frees a MAPI buffer.
struct MapiBufferDestructor
{
    void operator()(void* buffer) const noexcept
    {
        if (buffer)
            FreeMapiBuffer(buffer);
    }
};

template <class Pointer, class Destructor>
class SmartPointer;

/// Owns one block, or null; hands it to `Destructor` at its end. One pointer in size.
template <class T, class Destructor>
class SmartPointer<T*, Destructor>
{
public:
    SmartPointer() noexcept = default;
    /// Takes over `pointer`.
    explicit SmartPointer(T* pointer) noexcept : m_pointer(pointer) {}
    SmartPointer(SmartPointer&& other) noexcept : m_pointer(other.Detach()) {}
    SmartPointer(const SmartPointer&) = delete;
    ~SmartPointer() { Reset(); }
    SmartPointer& operator=(SmartPointer&& other) noexcept
    {
        Reset(other.Detach());
        return *this;
    }
    SmartPointer& operator=(const SmartPointer&) = delete;

    T* Get() const noexcept { return m_pointer; }
    T* operator->() const noexcept { return m_pointer; }
    T& operator*() const noexcept { return *m_pointer; }
    T& operator[](std::size_t index) const noexcept { return m_pointer[index]; }
    explicit operator bool() const noexcept { return m_pointer != nullptr; }
    /// Frees what is held and takes over `pointer`.
    void Reset(T* pointer = nullptr) noexcept { Destructor()(std::exchange(m_pointer, pointer)); }
    /// Hands the block to the caller.
    [[nodiscard]] T* Detach() noexcept { return std::exchange(m_pointer, nullptr); }
    /// Frees what is held and gives the address for a call that gives a block.
    T** Put() noexcept
    {
        Reset();
        return &m_pointer;
    }

private:
    T* m_pointer = nullptr;
};

using PropValuePointer = SmartPointer<SPropValue*, MapiBufferDestructor>;
using MapiErrorPointer = SmartPointer<MAPIERROR*, MapiBufferDestructor>;

} // namespace Quillon::Mapi
