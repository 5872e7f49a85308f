// How a store is named in profiles: its path, its provider, and the store entry ID that is made of the two.
#pragma once

#include "common/PropValue.h"
#include "testbed/common/Namespace.h"

#include <string>

namespace Testbed::Pst
{
/// The UID of this provider, for services that do not give one of their own as PR_MDB_PROVIDER.
extern const MAPIUID providerUid;

/// The store's own entry ID: 4 flag bytes of 0, the provider's UID, 2 bytes of 0, the path with its terminator.
Bytes MakeStoreEntryId(const MAPIUID& provider, const std::wstring& path);

/// The path in a store entry ID, wrapped or not; empty when it holds none.
std::wstring PathOfStoreEntryId(const void* entryId, size_t size);

/// Whether two store entry IDs, wrapped or not, name the same store.
bool SameStore(const void* entryId1, size_t size1, const void* entryId2, size_t size2);

/// What a profile (or the caller of a service entry) says of a store.
struct StoreSettings
{
    /// Empty when there is none.
    std::wstring path;
    MAPIUID provider = providerUid;
};

/// The settings among property values: the path under PR_PST_PATH, else under the path of a configuration, wide before
/// narrow; PR_MDB_PROVIDER. Error entries are passed over. Throws `Failure` for malformed values.
StoreSettings ReadSettings(ULONG count, const SPropValue* values);

/// The tags that `ReadSettings` looks at.
LPSPropTagArray SettingsTags();

/// The path of the settings in a profile section.
StoreSettings ReadSettings(IProfSect& section, const MapiMemory& memory);
} // namespace Testbed::Pst
