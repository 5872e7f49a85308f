// Checked calls of MAPI's allocation routines.
#include "common/MapiMemory.h"

#include "common/Boundary.h"

#include <cstring>
#include <limits>

namespace Common
{
namespace
{
ULONG CheckedSize(size_t size)
{
    if (size > std::numeric_limits<ULONG>::max())
        Fail(MAPI_E_NOT_ENOUGH_MEMORY, L"A MAPI block cannot be larger than 4 GiB.");
    return static_cast<ULONG>(size);
}
} // namespace

void* MapiMemory::Allocate(size_t size) const
{
    void* block = nullptr;
    Check(m_allocateBuffer(CheckedSize(size), &block), L"MAPIAllocateBuffer failed.");
    std::memset(block, 0, size);
    return block;
}

void* MapiMemory::AllocateMore(size_t size, void* parent) const
{
    void* block = nullptr;
    Check(m_allocateMore(CheckedSize(size), parent, &block), L"MAPIAllocateMore failed.");
    std::memset(block, 0, size);
    return block;
}

void MapiMemory::Free(void* block) const noexcept
{
    if (block)
        m_freeBuffer(block);
}

void FreeRows(const MapiMemory& memory, SRowSet* rows) noexcept
{
    if (!rows)
        return;
    for (ULONG row = 0; row < rows->cRows; ++row)
        memory.Free(rows->aRow[row].lpProps);
    memory.Free(rows);
}
} // namespace Common
