// The session's status table: one row for each provider that has reported its state.
#pragma once

#include "testbed/common/PropertyBag.h"
#include "testbed/common/Table.h"
#include "testbed/mapi/Profile.h"

namespace Testbed
{
/// The rows that providers write with ModifyStatusRow. Thread-safe.
class StatusRows
{
public:
    /// Replaces the provider's row, or with `update` changes the values given and keeps the rest. Entries of PR_NULL
    /// are left out.
    void Modify(const Uid& provider, const std::vector<PropValue>& values, bool update);
    /// Takes the provider's row out.
    void Remove(const Uid& provider);
    /// A copy of all rows.
    std::map<Uid, PropertyBag> Rows() const;
    /// A copy of the provider's row; empty when it has none.
    PropertyBag Row(const Uid& provider) const;

    /// A snapshot of all rows as a table (MAPI_UNICODE in `flags` for wide default columns).
    ComPtr<IMAPITable> OpenTable(const MapiMemory& memory, ULONG flags) const;

private:
    mutable std::mutex m_lock;
    std::map<Uid, PropertyBag> m_rows;
};
} // namespace Testbed
