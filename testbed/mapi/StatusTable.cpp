// The status rows of a session.
#include "testbed/mapi/StatusTable.h"

namespace Testbed
{
namespace
{
const std::vector<ULONG>& StatusColumns()
{
    static const std::vector<ULONG> columns = {
        PR_PROVIDER_DISPLAY,    PR_PROVIDER_DLL_NAME, PR_RESOURCE_FLAGS, PR_RESOURCE_TYPE,    PR_RESOURCE_METHODS,
        PR_STATUS_CODE,         PR_STATUS_STRING,     PR_DISPLAY_NAME,   PR_IDENTITY_DISPLAY, PR_IDENTITY_ENTRYID,
        PR_IDENTITY_SEARCH_KEY, PR_ENTRYID,           PR_INSTANCE_KEY};
    return columns;
}
} // namespace

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

PropertyBag StatusRows::Row(const Uid& provider) const
{
    const std::lock_guard guard(m_lock);
    const auto found = m_rows.find(provider);
    return found == m_rows.end() ? PropertyBag() : found->second;
}

ComPtr<IMAPITable> StatusRows::OpenTable(const MapiMemory& memory, ULONG flags) const
{
    std::vector<PropertyBag> rows;
    {
        const std::lock_guard guard(m_lock);
        for (const auto& [provider, row] : m_rows)
            rows.push_back(row);
    }
    return CreateTable(std::make_shared<MemoryRows>(StatusColumns(), std::move(rows)), memory, flags, L"MAPI");
}
} // namespace Testbed
