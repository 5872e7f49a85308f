// How a store is named in profiles: by its path, and by the store entry ID that holds it.
#pragma once

#include "common/PropValue.h"
#include "testbed/common/Namespace.h"

#include <string>

namespace Testbed::Pst
{
/// The UID of this provider: what PR_MDB_PROVIDER holds, whatever a profile says.
extern const MAPIUID providerUid;

/// `path` as all parts of the provider compare it: full, with backslashes.
std::wstring FullPath(const std::wstring& path);

/// The store's own entry ID: 4 flag bytes of 0, the provider's UID, 2 bytes of 0, the path with its terminator.
Bytes MakeStoreEntryId(const std::wstring& path);

/// The path in a store entry ID, wrapped or not; empty when it holds none.
std::wstring PathOfStoreEntryId(const void* entryId, size_t size);

/// Whether two store entry IDs, wrapped or not, name the same store.
bool SameStore(const void* entryId1, size_t size1, const void* entryId2, size_t size2);

/// The path among property values, that of PR_PST_PATH before that of a configuration, wide before narrow; empty when
/// there is none. Error entries are passed over. Throws `Failure` for malformed values.
std::wstring ReadPath(ULONG count, const SPropValue* values);

/// The path in a profile section.
std::wstring ReadPath(IProfSect& section, const MapiMemory& memory);
} // namespace Testbed::Pst
