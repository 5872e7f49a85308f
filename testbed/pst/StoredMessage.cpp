// Messages as the overlay holds them.
#include "testbed/pst/StoredMessage.h"

#include <algorithm>

namespace Testbed::Pst
{
namespace
{
// The number of the embedded message among an attachment's parts.
constexpr std::int64_t embeddedNumber = -1;

class StoredAttachment : public AttachmentContent
{
public:
    StoredAttachment(std::shared_ptr<Overlay> overlay, ObjectId object)
        : m_overlay(std::move(overlay)),
          m_object(object)
    {
    }

    PropertyBag Properties() const override
    {
        PropertyBag bag;
        m_overlay->ReadProperties(m_object).Apply(bag);
        return bag;
    }

    PropertyBag Summary() const override
    {
        PropertyBag bag;
        if (const auto object = m_overlay->ReadObject(m_object))
        {
            object->changes.Apply(bag);
            for (const auto& [tag, size] : object->large)
                if (PROP_ID(tag) != PROP_ID(PR_ATTACH_DATA_BIN))
                    if (auto value = m_overlay->ReadLarge(m_object, PROP_ID(tag)))
                        bag.Put(std::move(*value));
        }
        bag.Erase(PROP_ID(PR_ATTACH_DATA_BIN));
        return bag;
    }

    std::shared_ptr<const MessageContent> Embedded() const override
    {
        for (const Overlay::Part& part : m_overlay->ReadParts(m_object))
            if (part.number == embeddedNumber)
                return OpenStoredMessage(m_overlay, part.object, nullptr);
        return nullptr;
    }

    // The stored object when `content` is one of the overlay, else 0.
    static ObjectId ObjectOf(const AttachmentContent& content, const Overlay& overlay)
    {
        const auto* own = dynamic_cast<const StoredAttachment*>(&content);
        return own && own->m_overlay.get() == &overlay ? own->m_object : 0;
    }

private:
    std::shared_ptr<Overlay> m_overlay;
    ObjectId m_object;
};

class StoredMessage : public MessageContent
{
public:
    StoredMessage(std::shared_ptr<Overlay> overlay, ObjectId object, std::shared_ptr<const MessageContent> base)
        : m_overlay(std::move(overlay)),
          m_object(object),
          m_base(std::move(base))
    {
    }

    PropertyBag Properties() const override
    {
        PropertyBag bag = m_base ? m_base->Properties() : PropertyBag();
        const Overlay::Object& stored = Stored();
        stored.changes.Apply(bag);
        for (const auto& [tag, size] : stored.large)
            if (auto value = m_overlay->ReadLarge(m_object, PROP_ID(tag)))
                bag.Put(std::move(*value));
        return bag;
    }

    std::vector<PropertyBag> Recipients() const override
    {
        if (const Overlay::Object& stored = Stored(); stored.recipients)
            return *stored.recipients;
        return m_base ? m_base->Recipients() : std::vector<PropertyBag>();
    }

    std::vector<std::shared_ptr<const AttachmentContent>> Attachments() const override
    {
        std::vector<std::shared_ptr<const AttachmentContent>> contents;
        for (AttachmentSlot& slot : Slots())
            contents.push_back(std::move(slot.content));
        return contents;
    }

    std::vector<AttachmentSlot> Slots() const
    {
        if (m_base && !Stored().ownAttachments)
            return SlotsOf(*m_base);
        std::vector<AttachmentSlot> slots;
        for (const Overlay::Part& part : m_overlay->ReadParts(m_object))
            slots.push_back(
                {static_cast<ULONG>(part.number), std::make_shared<StoredAttachment>(m_overlay, part.object)});
        return slots;
    }

private:
    // Read once: what is stored later belongs to those who open the message later.
    const Overlay::Object& Stored() const
    {
        const std::lock_guard lock(m_lock);
        if (!m_stored)
            m_stored = m_overlay->ReadObject(m_object).value_or(Overlay::Object());
        return *m_stored;
    }

    mutable Mutex m_lock;
    mutable std::optional<Overlay::Object> m_stored;
    std::shared_ptr<Overlay> m_overlay;
    ObjectId m_object;
    std::shared_ptr<const MessageContent> m_base;
};

PropertyChanges AllOf(const PropertyBag& properties)
{
    PropertyChanges changes;
    changes.Put(properties);
    return changes;
}

void AddAttachment(Overlay& overlay, ObjectId message, const AttachmentSlot& slot)
{
    const PropertyChanges properties = AllOf(slot.content->Properties());
    const ObjectId object = overlay.AddPart(message, slot.number, {&properties, nullptr, false});
    const auto embedded = slot.content->Embedded();
    if (!embedded)
        return;
    const PropertyChanges inner = AllOf(embedded->Properties());
    const std::vector<PropertyBag> recipients = embedded->Recipients();
    const ObjectId copy = overlay.AddPart(object, embeddedNumber, {&inner, &recipients, true});
    for (const AttachmentSlot& part : SlotsOf(*embedded))
        AddAttachment(overlay, copy, part);
}

Overlay::Update PartOf(const MessageUpdate& update)
{
    return {&update.changes, update.recipients ? &*update.recipients : nullptr, update.attachments.has_value()};
}
} // namespace

std::shared_ptr<const MessageContent> OpenStoredMessage(std::shared_ptr<Overlay> overlay, ObjectId message,
                                                        std::shared_ptr<const MessageContent> base)
{
    return std::make_shared<StoredMessage>(std::move(overlay), message, std::move(base));
}

std::vector<AttachmentSlot> SlotsOf(const MessageContent& content)
{
    if (const auto* own = dynamic_cast<const StoredMessage*>(&content))
        return own->Slots();
    std::vector<AttachmentSlot> slots;
    for (auto& attachment : content.Attachments())
        slots.push_back({static_cast<ULONG>(slots.size()), std::move(attachment)});
    return slots;
}

void AddMessage(Overlay& overlay, ObjectId message, const MessageUpdate& update)
{
    overlay.AddObject(message, {}, PartOf(update));
    if (update.attachments)
        for (const AttachmentSlot& slot : *update.attachments)
            AddAttachment(overlay, message, slot);
}

void ChangeMessage(Overlay& overlay, ObjectId message, const MessageUpdate& update)
{
    if (update.attachments)
    {
        std::set<ObjectId> kept;
        for (const Overlay::Part& part : overlay.ReadParts(message))
        {
            const auto isPart = [&](const AttachmentSlot& slot)
            {
                return slot.number == static_cast<ULONG>(part.number) &&
                       StoredAttachment::ObjectOf(*slot.content, overlay) == part.object;
            };
            if (std::any_of(update.attachments->begin(), update.attachments->end(), isPart))
                kept.insert(part.object);
            else
                overlay.RemoveObject(part.object);
        }
        for (const AttachmentSlot& slot : *update.attachments)
            if (!kept.contains(StoredAttachment::ObjectOf(*slot.content, overlay)))
                AddAttachment(overlay, message, slot);
    }
    overlay.ChangeObject(message, PartOf(update));
}
} // namespace Testbed::Pst
