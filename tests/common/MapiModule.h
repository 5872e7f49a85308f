// The testbed's MAPI module in this process: its allocators and its counts.
#pragma once

#include "testbed/mapi/Olmapi.h"

#include <string>

namespace Tests
{

/// Loads the MAPI module of the mail client's folder (KIVNST_MAIL_CLIENT, else "..\mail-client" beside the program's
/// folder), so that the library, which takes the one that is in the process, binds it. Never unloaded.
class MapiModule
{
public:
    /// The module, loaded by the first call. Ends the process with a message when it cannot be loaded.
    static MapiModule& Get();

    HMODULE Handle() const noexcept { return m_module; }
    /// The module's full path.
    std::wstring Path() const;

    /// A block that the receiver frees with MAPIFreeBuffer. Ends the test program when there is no memory.
    void* Allocate(std::size_t size) const;
    /// A block that is freed with `parent`.
    void* AllocateMore(std::size_t size, void* parent) const;
    void Free(void* block) const;

    /// How many blocks live now, linked ones included.
    ULONG LiveBlocks() const;
    /// Allocations that succeeded since the module was loaded.
    ULONGLONG Allocations() const;
    /// Allocation calls since the module was loaded, failed ones included.
    ULONGLONG AllocationCalls() const;
    /// The n-th allocation from now (1 is the next) fails, once; 0 takes it back.
    void FailAllocation(ULONG nth) const;
    /// Ends the process when bytes around a block, or a block that was freed, have been written to.
    void CheckBlocks() const;
    /// The live blocks allocated after `allocations`, one a line; empty when there are none.
    std::string DescribeBlocks(ULONGLONG allocations) const;

private:
    MapiModule();
    Testbed::OlmapiStatistics Statistics() const;

    template <class Function>
    Function Find(const char* name) const;

    HMODULE m_module = nullptr;
    LPALLOCATEBUFFER m_allocateBuffer = nullptr;
    LPALLOCATEMORE m_allocateMore = nullptr;
    LPFREEBUFFER m_freeBuffer = nullptr;
    Testbed::OLMAPI_GET_STATISTICS m_getStatistics = nullptr;
    Testbed::OLMAPI_ENUMERATE_BLOCKS m_enumerateBlocks = nullptr;
    Testbed::OLMAPI_FAIL_ALLOCATION m_failAllocation = nullptr;
    Testbed::OLMAPI_CHECK_BLOCKS m_checkBlocks = nullptr;
};

} // namespace Tests
