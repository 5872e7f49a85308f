// An open attachment as its objects share it.
#include "testbed/pst/AttachmentState.h"

#include "testbed/pst/LayeredProperties.h"

#include <algorithm>

namespace Testbed::Pst
{
namespace
{
LONG AttachmentSize(const PropertyBag& properties)
{
    if (const PropValue* size = properties.Find(PROP_ID(PR_ATTACH_SIZE)))
        return size->AsLong();
    return static_cast<LONG>(std::min<size_t>(SizeOf(properties), MAXLONG));
}
} // namespace

AttachmentState::AttachmentState(std::shared_ptr<MessageState> message, ULONG number,
                                 const std::shared_ptr<const AttachmentContent>& content, bool modifiable)
    : m_message(std::move(message)),
      m_number(number),
      m_modifiable(modifiable),
      m_changed(content == nullptr)
{
    if (content)
    {
        m_properties = content->Properties();
        m_embedded = content->Embedded();
    }
}

bool AttachmentState::Modifiable()
{
    const std::lock_guard lock(m_lock);
    return m_modifiable;
}

std::shared_ptr<const PropertySource> AttachmentState::Properties()
{
    auto layered =
        std::make_shared<LayeredProperties>(std::shared_ptr<const PropertySource>(shared_from_this(), &m_properties));
    PropertyBag& computed = layered->Computed();
    m_message->SessionOf()->PutCommon(computed);
    computed.Put(PropValue::Long(PR_ATTACH_NUM, static_cast<LONG>(m_number)));
    computed.Put(PropValue::Binary(PR_RECORD_KEY, &m_number, sizeof(m_number)));
    computed.Put(PropValue::Long(PR_OBJECT_TYPE, MAPI_ATTACH));
    computed.Put(PropValue::Long(PR_ACCESS_LEVEL, m_modifiable ? MAPI_MODIFY : 0));
    if (m_embedded)
        computed.Put(PropValue::Object(PR_ATTACH_DATA_OBJ));
    layered->PutDefault(PropValue::Long(PR_ATTACH_SIZE, AttachmentSize(m_properties)));
    layered->PutDefault(PropValue::Long(PR_RENDERING_POSITION, -1));
    return layered;
}

SCODE AttachmentState::Set(const PropValue& value)
{
    if (IsComputedOfMessages(value.Id()))
        return MAPI_E_COMPUTED;
    m_properties.Put(value);
    if (value.Id() == PROP_ID(PR_ATTACH_DATA_BIN))
    {
        m_embedded = nullptr;
        m_properties.Put(PropValue::Long(PR_ATTACH_SIZE, static_cast<LONG>(std::min<size_t>(value.Size(), MAXLONG))));
    }
    m_changed = true;
    return S_OK;
}

SCODE AttachmentState::Remove(ULONG tag)
{
    if (IsComputedOfMessages(PROP_ID(tag)))
        return MAPI_E_COMPUTED;
    if (!m_properties.Find(PROP_ID(tag)))
        return MAPI_E_NOT_FOUND;
    m_properties.Erase(PROP_ID(tag));
    m_changed = true;
    return S_OK;
}

std::shared_ptr<const MessageContent> AttachmentState::Embedded()
{
    const std::lock_guard lock(m_lock);
    return m_embedded;
}

void AttachmentState::SetEmbedded(std::shared_ptr<const MessageContent> content)
{
    const std::lock_guard lock(m_lock);
    const PropertyBag properties = content->Properties();
    m_embedded = std::move(content);
    m_properties.Put(PropValue::Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG));
    m_properties.Put(PropValue::Object(PR_ATTACH_DATA_OBJ));
    m_properties.Put(PropValue::Long(PR_ATTACH_SIZE, LongOf(properties, PR_MESSAGE_SIZE)));
    if (!m_properties.Find(PROP_ID(PR_DISPLAY_NAME)))
        m_properties.Put(PropValue::String(PR_DISPLAY_NAME_W, TextOf(properties, PR_SUBJECT)));
    m_changed = true;
}

void AttachmentState::Save(ULONG flags)
{
    const std::lock_guard lock(m_lock);
    if (m_changed)
    {
        if (!m_modifiable)
            Fail(MAPI_E_NO_ACCESS, L"The attachment is not open for writing");
        const auto put = [this](const PropValue& value)
        {
            if (!m_properties.Find(value.Id()))
                m_properties.Put(value);
        };
        put(PropValue::Long(PR_ATTACH_METHOD,
                            m_properties.Find(PROP_ID(PR_ATTACH_DATA_BIN)) ? ATTACH_BY_VALUE : NO_ATTACHMENT));
        put(Now(PR_CREATION_TIME));
        put(Now(PR_LAST_MODIFICATION_TIME));
        m_message->PutAttachment(m_number, std::make_shared<MemoryAttachment>(m_properties, m_embedded));
        m_changed = false;
    }
    if ((flags & KEEP_OPEN_READONLY) != 0)
        m_modifiable = false;
}

PropertyBag AttachmentRow(const Session& session, const AttachmentSlot& slot)
{
    PropertyBag row = slot.content->Summary();
    if (!row.Find(PROP_ID(PR_ATTACH_SIZE)))
        row.Put(PropValue::Long(PR_ATTACH_SIZE, AttachmentSize(slot.content->Properties())));
    session.PutCommon(row);
    row.Put(PropValue::Long(PR_ATTACH_NUM, static_cast<LONG>(slot.number)));
    row.Put(PropValue::Binary(PR_RECORD_KEY, &slot.number, sizeof(slot.number)));
    row.Put(PropValue::Binary(PR_INSTANCE_KEY, &slot.number, sizeof(slot.number)));
    row.Put(PropValue::Long(PR_OBJECT_TYPE, MAPI_ATTACH));
    if (!row.Find(PROP_ID(PR_RENDERING_POSITION)))
        row.Put(PropValue::Long(PR_RENDERING_POSITION, -1));
    return row;
}
} // namespace Testbed::Pst
