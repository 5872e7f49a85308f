// Free functions of the library: the PST module, the store's identifiers, the switches, the store's URL and its
// exclusion from the search index.
#pragma once

#include "support/Binary.h"
#include "support/ComPtr.h"
#include "support/Export.h"

namespace Quillon::Nst
{

/// The UID of this store provider: what PR_MDB_PROVIDER holds, and what stands in every store entry ID.
KIVNST_API extern const MAPIUID providerUid;

/// The store property that holds the entry ID of the archive subtree root.
constexpr ULONG archiveSubtreeEntryIdTag = PROP_TAG(PT_BINARY, 0x7FE2);

/// Finds and loads "mspst32.dll": resident in the process, else in the mail client's directory, else in the MAPI
/// module's. Each success takes a further reference on the module, which is never given back. Null when there is none;
/// GetLastError() is then as the search left it. Any thread.
KIVNST_API HMODULE GetPstModule() noexcept;

/// The store's own entry ID for the file at `path`: 2n + 24 bytes for a path of n characters. Any thread.
KIVNST_API Binary CreateStoreEntryID(const wchar_t* path);

/// A NOTIFKEY for an entry ID of `size` bytes: a 4-byte little-endian count, then the bytes. Throws
/// CComError(E_INVALIDARG) for a null entry ID with a size. Any thread.
KIVNST_API Binary CreateNotifyKeyFromEntryId(const unsigned char* entryId, std::size_t size);

/// The entry ID of the archive subtree root, as the store records it; null when the store has none. Any thread.
KIVNST_API Binary GetNstSubtreeEntryId(IMsgStore* store);

/// While on, the store wrapper passes every QueryInterface to the PST store, so that callers get the unwrapped store.
/// Off at load. A process-wide switch without a lock: a host sets it before it logs on.
KIVNST_API bool GetUnwrapStores() noexcept;
KIVNST_API void SetUnwrapStores(bool on) noexcept;

/// While off, as at load, modifying calls are refused with MAPI_E_NO_ACCESS; while on, they are passed through. It is
/// read on every call, so it works on open objects too. A process-wide switch without a lock.
KIVNST_API bool GetModifyStores() noexcept;
KIVNST_API void SetModifyStores(bool on) noexcept;

/// The profile section in which the archive store's message service keeps its configuration: the one that the
/// provider's own section names in PR_SERVICE_UID, or the provider's own where it names none. Never null. Throws
/// CComError for a null support object or section, Mapi::CMapiError when a section cannot be opened, CRuntimeError when
/// PR_SERVICE_UID is no UID; ends the process for a code whose die-on switch is on. Any thread.
KIVNST_API ATL::CComQIPtr<IProfSect> GetGlobalProfileSection(const ATL::CComQIPtr<IMAPISupport>& support);

/// The scheme of a store's URL for the installed mail client: "mapi15", "mapi16", or "mapi" for any other known
/// version. Throws CRuntimeError when the version cannot be determined. Any thread.
KIVNST_API StringW GetMapiUrlScheme();

/// The URL by which Windows Search addresses a store: scheme, the current user's SID, the escaped name, a hash of the
/// identifier: "mapi16://{S-1-5-21-1-2-3-1001}/Archive%2FMail(1f2e3d)/". Throws as GetMapiUrlScheme, and CWinError when
/// the user cannot be determined. Any thread.
KIVNST_API StringW GetStoreMapiUrl(const Binary& storeId, const StringW& storeName);

/// Adds a user scope rule to Windows Search that excludes the store's URL, unless it is excluded already. Throws as
/// GetStoreMapiUrl, and CComError when a step fails. The calling thread must have COM initialised.
KIVNST_API void ExcludeStoreFromIndexing(const Binary& storeId, const StringW& storeName);

} // namespace Quillon::Nst
