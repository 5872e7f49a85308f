// What a search folder searches for, and where; as the overlay keeps it.
#pragma once

#include "testbed/common/Restriction.h"
#include "testbed/pst/StoreSource.h"

namespace Testbed::Pst
{
struct SearchCriteria
{
    Restriction restriction;
    /// The folders that are searched.
    std::vector<NodeId> folders;
    /// Whether the folders below these are searched, too.
    bool recursive = false;
    bool foreground = false;
    /// Whether the results follow the store's changes; else they stay as they were when the search was stopped.
    bool running = false;
};

Bytes WriteCriteria(const SearchCriteria& criteria);
/// Throws `Failure` (MAPI_E_CORRUPT_STORE) when the bytes are not what `WriteCriteria` gives.
SearchCriteria ReadCriteria(const Bytes& bytes);
} // namespace Testbed::Pst
