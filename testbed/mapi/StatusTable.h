// The rows of a session's status table, one for each provider that has reported its state.
#pragma once

#include "common/Mutex.h"
#include "testbed/common/PropertyBag.h"
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

private:
    mutable Mutex m_lock;
    std::map<Uid, PropertyBag> m_rows;
};
} // namespace Testbed
