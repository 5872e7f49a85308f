// Properties of which some are worked out, in front of others that are kept.
#include "testbed/pst/LayeredProperties.h"

#include <set>

namespace Testbed::Pst
{
bool IsComputedEverywhere(ULONG id)
{
    static const std::set<ULONG> ids = {
        PROP_ID(PR_ENTRYID),          PROP_ID(PR_RECORD_KEY),        PROP_ID(PR_STORE_ENTRYID),
        PROP_ID(PR_STORE_RECORD_KEY), PROP_ID(PR_MAPPING_SIGNATURE), PROP_ID(PR_OBJECT_TYPE),
        PROP_ID(PR_ACCESS),           PROP_ID(PR_ACCESS_LEVEL),      PROP_ID(PR_STORE_SUPPORT_MASK),
        PROP_ID(PR_MDB_PROVIDER),
    };
    return ids.contains(id);
}

std::vector<ULONG> UnionOfTags(std::initializer_list<std::vector<ULONG>> lists)
{
    std::map<ULONG, ULONG> tags;
    for (const std::vector<ULONG>& list : lists)
        for (const ULONG tag : list)
            tags[PROP_ID(tag)] = tag;
    std::vector<ULONG> all;
    all.reserve(tags.size());
    for (const auto& [id, tag] : tags)
        all.push_back(tag);
    return all;
}

void LayeredProperties::PutDefault(PropValue value)
{
    if (!m_base || !m_base->Describe(value.Id()))
        m_computed.Put(std::move(value));
}

std::optional<PropertySource::Description> LayeredProperties::Describe(ULONG id) const
{
    if (const auto lazy = m_lazy.find(id); lazy != m_lazy.end())
        return Description{lazy->second.tag, sizeof(LONG)};
    if (auto computed = m_computed.Describe(id))
        return computed;
    return m_base ? m_base->Describe(id) : std::nullopt;
}

std::optional<PropValue> LayeredProperties::Load(ULONG id) const
{
    if (const auto lazy = m_lazy.find(id); lazy != m_lazy.end())
        return lazy->second.compute();
    if (auto computed = m_computed.Load(id))
        return computed;
    return m_base ? m_base->Load(id) : std::nullopt;
}

std::vector<ULONG> LayeredProperties::Tags() const
{
    std::vector<ULONG> lazy;
    for (const auto& [id, value] : m_lazy)
        lazy.push_back(value.tag);
    return UnionOfTags({m_base ? m_base->Tags() : std::vector<ULONG>(), m_computed.Tags(), lazy});
}
} // namespace Testbed::Pst
