// What a folder's table, or a search, looks at of a message.
#include "testbed/pst/MessageSummary.h"

#include "testbed/pst/LayeredProperties.h"
#include "testbed/pst/NewSource.h"

namespace Testbed::Pst
{
namespace
{
class MessageSummary final : public PropertySource
{
public:
    MessageSummary(std::shared_ptr<Overlay> overlay, std::shared_ptr<const StoreSource> source, const Bytes& recordKey,
                   const Node& node)
        : m_overlay(std::move(overlay)),
          m_source(std::move(source)),
          m_recordKey(recordKey),
          m_node(node)
    {
    }

    std::optional<Description> Describe(ULONG id) const override
    {
        if (const auto placed = Placed(id))
            return Description{placed->Tag(), placed->Size()};
        const Known& known = Load();
        for (const Description& large : known.large)
            if (PROP_ID(large.tag) == id)
                return large;
        if (auto found = known.bag.Describe(id))
            return found;
        if (MayHaveMore(known, id))
            if (auto found = Whole().Describe(id))
                return found;
        return id == PROP_ID(PR_MSG_STATUS) ? std::optional(Description{PR_MSG_STATUS, sizeof(LONG)}) : std::nullopt;
    }

    std::optional<PropValue> Load(ULONG id) const override
    {
        if (auto placed = Placed(id))
            return placed;
        const Known& known = Load();
        for (const Description& large : known.large)
            if (PROP_ID(large.tag) == id)
                return m_overlay->ReadLarge(m_node.id, id);
        if (auto found = known.bag.Load(id))
            return found;
        if (MayHaveMore(known, id))
            if (auto found = Whole().Load(id))
                return found;
        return id == PROP_ID(PR_MSG_STATUS) ? std::optional(PropValue::Long(PR_MSG_STATUS, 0)) : std::nullopt;
    }

    std::vector<ULONG> Tags() const override
    {
        const Known& known = Load();
        std::vector<ULONG> large;
        for (const Description& value : known.large)
            large.push_back(value.tag);
        return UnionOfTags(
            {known.bag.Tags(),
             large,
             {PR_ENTRYID, PR_RECORD_KEY, PR_PARENT_ENTRYID, PR_OBJECT_TYPE, PR_HASATTACH, PR_MSG_STATUS}});
    }

private:
    struct Known
    {
        PropertyBag bag;
        std::vector<Description> large;
        std::set<ULONG> removed;
    };

    // What follows from where the message lies.
    std::optional<PropValue> Placed(ULONG id) const
    {
        switch (id)
        {
        case PROP_ID(PR_ENTRYID):
        case PROP_ID(PR_RECORD_KEY):
            return PropValue::Binary(PROP_TAG(PT_BINARY, id), MakeEntryId(m_recordKey, m_node.id));
        case PROP_ID(PR_PARENT_ENTRYID):
            return PropValue::Binary(PR_PARENT_ENTRYID, MakeEntryId(m_recordKey, m_node.parent));
        case PROP_ID(PR_OBJECT_TYPE):
            return PropValue::Long(PR_OBJECT_TYPE, MAPI_MESSAGE);
        case PROP_ID(PR_HASATTACH):
        {
            const auto flags = Load(PROP_ID(PR_MESSAGE_FLAGS));
            return PropValue::Boolean(PR_HASATTACH, flags && (flags->AsLong() & MSGFLAG_HASATTACH) != 0);
        }
        default:
            return std::nullopt;
        }
    }

    const Known& Load() const
    {
        const std::lock_guard lock(m_lock);
        if (!m_known)
        {
            Known known;
            if (!IsCreated(m_node.id))
            {
                // The source knows a message that was moved in the folder that it came from.
                const auto own = m_source->Find(m_node.id);
                known.bag = m_source->MessageSummary(own.value_or(m_node));
            }
            if (auto object = m_overlay->ReadObject(m_node.id))
            {
                object->changes.Apply(known.bag);
                known.removed = object->changes.Removed();
                known.large = std::move(object->large);
            }
            m_known = std::move(known);
        }
        return *m_known;
    }

    bool MayHaveMore(const Known& known, ULONG id) const
    {
        if (IsCreated(m_node.id) || known.removed.contains(id))
            return false;
        const auto own = m_source->Find(m_node.id);
        return !m_source->SummaryCovers(own.value_or(m_node), id);
    }

    const PropertyBag& Whole() const
    {
        const std::lock_guard lock(m_lock);
        if (!m_whole)
            m_whole = m_source->OpenMessage(m_node.id)->Properties();
        return *m_whole;
    }

    std::shared_ptr<Overlay> m_overlay;
    std::shared_ptr<const StoreSource> m_source;
    Bytes m_recordKey;
    Node m_node;
    mutable Mutex m_lock;
    mutable std::optional<Known> m_known;
    mutable std::optional<PropertyBag> m_whole;
};
} // namespace

std::shared_ptr<const PropertySource> MakeMessageSummary(std::shared_ptr<Overlay> overlay,
                                                         std::shared_ptr<const StoreSource> source,
                                                         const Bytes& recordKey, const Node& node)
{
    return std::make_shared<MessageSummary>(std::move(overlay), std::move(source), recordKey, node);
}
} // namespace Testbed::Pst
