// The contents of a new, empty store: the root folder and the special folders that a store cannot do without.
#pragma once

#include "testbed/pst/StoreSource.h"

namespace Testbed::Pst
{
/// An empty store. `recordKey` identifies it; `displayName` is what a client shows for it.
std::shared_ptr<const StoreSource> MakeNewStore(const MAPIUID& recordKey, const std::wstring& displayName);

/// The store and folder properties that name the special folders of a store with `recordKey`: the IPM subtree, the
/// wastebasket, the search root.
PropertyBag SpecialFolderProperties(const MAPIUID& recordKey, const std::wstring& displayName);

/// The entry ID of an object in the store with `recordKey` (16 bytes): 24 bytes.
Bytes MakeEntryId(const Bytes& recordKey, NodeId node);
} // namespace Testbed::Pst
