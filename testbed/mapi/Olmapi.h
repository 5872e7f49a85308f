// What olmapi32.dll exports, for those who load it: MAPI's own functions and the counts that tests read.
// Nothing links against the module; everybody finds these by name with GetProcAddress, as with the mail client's own.
#pragma once

#include "common/Mapi.h"
#include "testbed/common/Namespace.h"

namespace Testbed
{
/// The exit codes with which the module ends the process, after a line on standard error that says what was wrong.
enum class OlmapiExit : UINT
{
    /// Bytes before or behind a block were overwritten (found when it is freed or checked).
    Overrun = 201,
    /// A block was freed that had been freed already.
    DoubleFree = 202,
    /// A pointer that is no MAPI block, or no block of its own, was freed or given to MAPIAllocateMore.
    ForeignPointer = 203,
    /// OlmapiRequireNoBlocks found blocks that nobody freed.
    Leak = 204,
    /// A block was written to after it was freed.
    WriteAfterFree = 205,
    /// A support object was called after its last reference had been released.
    LostObject = 206
};

/// Counts of blocks; linked blocks (MAPIAllocateMore) count as blocks too.
struct OlmapiStatistics
{
    /// Size of this structure in bytes; the caller sets it.
    ULONG cbSize;
    /// Blocks that live now, and the bytes that their callers asked for.
    ULONG cLive;
    ULONGLONG cbLive;
    /// Allocations that succeeded, and freed blocks, since the module was loaded.
    ULONGLONG cAllocated;
    ULONGLONG cFreed;
    /// Allocation calls, failed ones included.
    ULONGLONG cCalls;
};

/// One live block.
struct OlmapiBlock
{
    const void* pvBlock;
    /// The block that it is linked to and freed with; null for a block of its own.
    const void* pvRoot;
    ULONG cb;
    /// The number of the allocation, counted from 1; a second run of a deterministic test gives the same number.
    ULONGLONG ullSerial;
};

/// Called for each live block; returning FALSE ends the enumeration. Must not call the module.
using OLMAPI_BLOCK_CALLBACK = BOOL(WINAPI*)(const OlmapiBlock* lpBlock, LPVOID lpvContext);

/// "OlmapiGetStatistics": fills the structure; FALSE when cbSize is not its size. Thread-safe, as all of these.
using OLMAPI_GET_STATISTICS = BOOL(WINAPI*)(OlmapiStatistics* lpStatistics);
/// "OlmapiEnumerateBlocks": calls back for each live block whose serial is at least `ullFirstSerial`, in the order of
/// their allocation; returns how many it told of.
using OLMAPI_ENUMERATE_BLOCKS = ULONG(WINAPI*)(ULONGLONG ullFirstSerial, OLMAPI_BLOCK_CALLBACK lpfnCallback,
                                               LPVOID lpvContext);
/// "OlmapiFailAllocation": the n-th allocation call from now (1 is the next) fails with MAPI_E_NOT_ENOUGH_MEMORY, once;
/// 0 takes a failure that is still to come back.
using OLMAPI_FAIL_ALLOCATION = void(WINAPI*)(ULONG ulNth);
/// "OlmapiCheckBlocks": checks the guard bytes of all live blocks and the poison of those freed last; ends the process
/// when one is damaged.
using OLMAPI_CHECK_BLOCKS = void(WINAPI*)();
/// "OlmapiRequireNoBlocks": checks the blocks and ends the process, with a list on standard error, when blocks live
/// whose serial is at least `ullFirstSerial` (0: any).
using OLMAPI_REQUIRE_NO_BLOCKS = void(WINAPI*)(ULONGLONG ullFirstSerial);

/// "WrapStoreEntryID".
using WRAPSTOREENTRYID = HRESULT(WINAPI*)(ULONG ulFlags, LPSTR lpszDLLName, ULONG cbOrigEntry, LPENTRYID lpOrigEntry,
                                          ULONG* lpcbWrappedEntry, LPENTRYID* lppWrappedEntry);
/// "FGetComponentPath".
using FGETCOMPONENTPATH = BOOL(WINAPI*)(LPSTR szComponent, LPSTR szQualifier, LPSTR szDllPath, DWORD cchBufferSize,
                                        BOOL fInstall);
} // namespace Testbed
