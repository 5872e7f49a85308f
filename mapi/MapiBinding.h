// The MAPI subsystem module, found and bound at run time: nothing here links against a MAPI library.
//
// All functions may be called on any thread. The module is found once and kept for the life of the process; while none
// is found, every call searches again.
#pragma once

#include "support/Export.h"
#include "support/MapiHeaders.h"

namespace Quillon::Mapi
{

/// The MAPI module: one already in the process ("olmapi32.dll", "msmapi32.dll"), else the one that the mail client
/// registered, else "mapi32.dll" of the system directory. Null when there is none. The caller does not free it.
KIVNST_API HMODULE GetMapiModule() noexcept;

/// Restricts the search to the mail client "Microsoft Outlook"; off at load, and nothing in this library turns it on. A
/// host sets it, if at all, before the first call.
KIVNST_API bool& GetOnlyOutlookMailClient() noexcept;

/// MAPI's function of this name; E_FAIL when MAPI cannot be bound.
KIVNST_API SCODE MAPIAllocateMore(ULONG cbSize, LPVOID lpObject, LPVOID* lppBuffer) noexcept;

/// MAPI's function of this name; E_FAIL when MAPI cannot be bound.
KIVNST_API SCODE MAPIAllocateBuffer(ULONG cbSize, LPVOID* lppBuffer) noexcept;

/// MAPI's function of this name; E_FAIL (as its unsigned result) when MAPI cannot be bound.
KIVNST_API ULONG MAPIFreeBuffer(LPVOID lpBuffer) noexcept;

/// MAPI's function of this name: wraps a provider's store entry ID, so that MAPI knows whose it is. The caller frees
/// `*lppWrappedEntry` with MAPIFreeBuffer. E_FAIL when MAPI cannot be bound.
KIVNST_API HRESULT WrapStoreEntryID(ULONG ulFlags, LPSTR lpszDLLName, ULONG cbOrigEntry, LPENTRYID lpOrigEntry,
                                    ULONG* lpcbWrappedEntry, LPENTRYID* lppWrappedEntry) noexcept;

} // namespace Quillon::Mapi
