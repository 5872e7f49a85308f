// MAPI's allocation routines as a provider is handed them, and an owner for what they allocate.
#pragma once

#include "common/Mapi.h"

#include <cstddef>
#include <utility>

namespace Common
{
/// The three allocation routines that MAPI gives a provider. A plain value; copying it copies the three pointers.
/// Thread-safe as far as the routines are, which MAPI promises.
class MapiMemory
{
public:
    MapiMemory() noexcept = default;
    MapiMemory(LPALLOCATEBUFFER allocateBuffer, LPALLOCATEMORE allocateMore, LPFREEBUFFER freeBuffer) noexcept
        : m_allocateBuffer(allocateBuffer),
          m_allocateMore(allocateMore),
          m_freeBuffer(freeBuffer)
    {
    }

    /// Whether all three routines are there.
    explicit operator bool() const noexcept { return m_allocateBuffer && m_allocateMore && m_freeBuffer; }

    /// Allocates `size` bytes, zeroed, that the holder frees with `Free`. Throws `Failure` with the routine's own code
    /// (MAPI_E_NOT_ENOUGH_MEMORY when `size` does not fit MAPI's 32 bits).
    void* Allocate(size_t size) const;

    /// Allocates `size` bytes, zeroed, that are freed together with `parent`, a block from `Allocate`. Throws as
    /// `Allocate` does.
    void* AllocateMore(size_t size, void* parent) const;

    /// Frees a block from `Allocate` and all that was linked to it; null is allowed.
    void Free(void* block) const noexcept;

    LPALLOCATEBUFFER AllocateBufferRoutine() const noexcept { return m_allocateBuffer; }
    LPALLOCATEMORE AllocateMoreRoutine() const noexcept { return m_allocateMore; }
    LPFREEBUFFER FreeBufferRoutine() const noexcept { return m_freeBuffer; }

private:
    LPALLOCATEBUFFER m_allocateBuffer = nullptr;
    LPALLOCATEMORE m_allocateMore = nullptr;
    LPFREEBUFFER m_freeBuffer = nullptr;
};

/// Owns one MAPI block (a property array, a tag array, an entry ID...) and frees it at its end. Not for row sets and
/// address lists, whose rows are blocks of their own: see `MapiRows`.
template <class T>
class MapiBlock
{
public:
    explicit MapiBlock(const MapiMemory& memory) noexcept : m_memory(memory) {}
    MapiBlock(const MapiMemory& memory, T* block) noexcept : m_memory(memory), m_block(block) {}
    MapiBlock(MapiBlock&& other) noexcept : m_memory(other.m_memory), m_block(std::exchange(other.m_block, nullptr)) {}
    MapiBlock& operator=(MapiBlock&& other) noexcept
    {
        std::swap(m_memory, other.m_memory);
        std::swap(m_block, other.m_block);
        return *this;
    }
    ~MapiBlock() { Reset(); }

    void Reset() noexcept { m_memory.Free(std::exchange(m_block, nullptr)); }
    /// Frees what is held and gives the place where a callee stores a new block.
    [[nodiscard]] T** Put() noexcept
    {
        Reset();
        return &m_block;
    }
    /// Gives the block up to the caller, who frees it.
    [[nodiscard]] T* Detach() noexcept { return std::exchange(m_block, nullptr); }

    T* Get() const noexcept { return m_block; }
    T* operator->() const noexcept { return m_block; }
    T& operator[](size_t index) const noexcept { return m_block[index]; }
    explicit operator bool() const noexcept { return m_block != nullptr; }

private:
    MapiMemory m_memory;
    T* m_block = nullptr;
};

/// Frees a row set, or an address list (which has the same layout), with all of its rows; null is allowed.
void FreeRows(const MapiMemory& memory, SRowSet* rows) noexcept;

/// Owns a row set and frees it with all of its rows.
class MapiRows
{
public:
    explicit MapiRows(const MapiMemory& memory) noexcept : m_memory(memory) {}
    MapiRows(const MapiMemory& memory, SRowSet* rows) noexcept : m_memory(memory), m_rows(rows) {}
    MapiRows(MapiRows&& other) noexcept : m_memory(other.m_memory), m_rows(std::exchange(other.m_rows, nullptr)) {}
    MapiRows(const MapiRows&) = delete;
    MapiRows& operator=(const MapiRows&) = delete;
    ~MapiRows() { Reset(); }

    void Reset() noexcept { FreeRows(m_memory, std::exchange(m_rows, nullptr)); }
    [[nodiscard]] SRowSet** Put() noexcept
    {
        Reset();
        return &m_rows;
    }
    [[nodiscard]] SRowSet* Detach() noexcept { return std::exchange(m_rows, nullptr); }

    SRowSet* Get() const noexcept { return m_rows; }
    SRowSet* operator->() const noexcept { return m_rows; }
    /// The number of rows; 0 when nothing is held.
    ULONG Count() const noexcept { return m_rows ? m_rows->cRows : 0; }
    const SRow& operator[](size_t index) const noexcept { return m_rows->aRow[index]; }
    explicit operator bool() const noexcept { return m_rows != nullptr; }

private:
    MapiMemory m_memory;
    SRowSet* m_rows = nullptr;
};
} // namespace Common
