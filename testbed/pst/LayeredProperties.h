// Properties of which some are worked out, in front of others that are kept.
#pragma once

#include "testbed/common/PropertyBag.h"

#include <functional>

namespace Testbed::Pst
{
/// Whether the store works this property out for each of its objects, so that no client can set it. Store, folders and
/// messages have others of the kind besides.
bool IsComputedEverywhere(ULONG id);

/// The tags of several lists; of those that name one property the last.
std::vector<ULONG> UnionOfTags(std::initializer_list<std::vector<ULONG>> lists);

/// Properties of which some are computed, in front of others.
class LayeredProperties : public PropertySource
{
public:
    /// `base` are the others; they may be null.
    explicit LayeredProperties(std::shared_ptr<const PropertySource> base) : m_base(std::move(base)) {}

    /// Puts a property in front of the base's.
    void Put(PropValue value) { m_computed.Put(std::move(value)); }
    /// Puts a number in front that is computed only when a client reads it.
    void PutLazy(ULONG tag, std::function<PropValue()> compute) { m_lazy[PROP_ID(tag)] = {tag, std::move(compute)}; }
    /// As `Put`, unless the base has the property.
    void PutDefault(PropValue value);
    PropertyBag& Computed() noexcept { return m_computed; }

    std::optional<Description> Describe(ULONG id) const override;
    std::optional<PropValue> Load(ULONG id) const override;
    std::vector<ULONG> Tags() const override;

private:
    struct Lazy
    {
        ULONG tag = PR_NULL;
        std::function<PropValue()> compute;
    };

    PropertyBag m_computed;
    std::map<ULONG, Lazy> m_lazy;
    std::shared_ptr<const PropertySource> m_base;
};
} // namespace Testbed::Pst
