// The status rows of a session.
#include "testbed/mapi/StatusTable.h"

namespace Testbed
{
void StatusRows::Modify(const Uid& provider, const std::vector<PropValue>& values, bool update)
{
    const std::lock_guard guard(m_lock);
    PropertyBag row = update ? m_rows[provider] : PropertyBag();
    for (const PropValue& value : values)
        if (value.Type() != PT_NULL && !value.IsError())
            row.Put(value);
    row.Put(PropValue::Uid(PR_INSTANCE_KEY, provider));
    m_rows[provider] = std::move(row);
}

void StatusRows::Remove(const Uid& provider)
{
    const std::lock_guard guard(m_lock);
    m_rows.erase(provider);
}

std::map<Uid, PropertyBag> StatusRows::Rows() const
{
    const std::lock_guard guard(m_lock);
    return m_rows;
}
} // namespace Testbed
