// MAPI's allocators at the least cost that the contract allows: a block and those linked to it are a list, each from
// the process's heap. The testbed's look for misuse, which would hide what a call costs.
#include "support/MapiHeaders.h"

#include <utility>

namespace
{

/// In front of each block; as large as the heap's alignment.
struct Header
{
    Header* next;
    void* reserved;
};

Header* Allocate(ULONG size) noexcept
{
    return static_cast<Header*>(HeapAlloc(GetProcessHeap(), 0, sizeof(Header) + size));
}

} // namespace

extern "C"
{
    SCODE STDMETHODCALLTYPE MAPIAllocateBuffer(ULONG cbSize, LPVOID* lppBuffer)
    {
        Header* const block = Allocate(cbSize);
        if (!block)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        block->next = nullptr;
        *lppBuffer = block + 1;
        return S_OK;
    }

    SCODE STDMETHODCALLTYPE MAPIAllocateMore(ULONG cbSize, LPVOID lpObject, LPVOID* lppBuffer)
    {
        Header* const block = Allocate(cbSize);
        if (!block)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        Header* const first = static_cast<Header*>(lpObject) - 1;
        block->next = std::exchange(first->next, block);
        *lppBuffer = block + 1;
        return S_OK;
    }

    ULONG STDAPICALLTYPE MAPIFreeBuffer(LPVOID lpBuffer)
    {
        if (!lpBuffer)
            return S_OK;
        for (Header* block = static_cast<Header*>(lpBuffer) - 1; block;)
            HeapFree(GetProcessHeap(), 0, std::exchange(block, block->next));
        return S_OK;
    }
}
