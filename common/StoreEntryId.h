// The envelope that MAPI puts around a store's own entry ID, so that it can find the store's provider.
#pragma once

#include "common/PropValue.h"

#include <string_view>

namespace Common
{
/// Wraps a provider's own store entry ID: 4 flag bytes of 0, MAPI's store identifier, version and flag bytes of 0, the
/// provider DLL's narrow file name with its terminator, zeros up to a multiple of 4, the entry ID.
Bytes WrapStoreEntryId(std::string_view dllName, const void* entryId, size_t size);

/// A wrapped entry ID taken apart.
struct StoreEntryId
{
    std::string dllName;
    Bytes entryId;
};

/// Takes a wrapped entry ID apart; nothing when it is none.
std::optional<StoreEntryId> UnwrapStoreEntryId(const void* entryId, size_t size);
} // namespace Common
