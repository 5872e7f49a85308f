// An open message as its objects share it.
#include "testbed/pst/MessageState.h"

#include "common/Text.h"
#include "testbed/common/Namespace.h"
#include "testbed/pst/LayeredProperties.h"

#include <objbase.h>

#include <algorithm>
#include <cwctype>

namespace Testbed::Pst
{
namespace
{
class MemoryMessage : public MessageContent
{
public:
    MemoryMessage(PropertyBag properties, std::vector<PropertyBag> recipients, std::vector<AttachmentSlot> attachments)
        : m_properties(std::move(properties)),
          m_recipients(std::move(recipients)),
          m_attachments(std::move(attachments))
    {
    }

    PropertyBag Properties() const override { return m_properties; }
    std::vector<PropertyBag> Recipients() const override { return m_recipients; }
    std::vector<std::shared_ptr<const AttachmentContent>> Attachments() const override
    {
        std::vector<std::shared_ptr<const AttachmentContent>> contents;
        contents.reserve(m_attachments.size());
        for (const AttachmentSlot& slot : m_attachments)
            contents.push_back(slot.content);
        return contents;
    }

private:
    PropertyBag m_properties;
    std::vector<PropertyBag> m_recipients;
    std::vector<AttachmentSlot> m_attachments;
};

// A reply's or forward's subject starts with up to three letters and a colon.
size_t PrefixLength(const std::wstring& subject)
{
    constexpr size_t longest = 3;
    size_t letters = 0;
    while (letters < subject.size() && letters <= longest && std::iswalpha(subject[letters]))
        ++letters;
    if (letters == 0 || letters > longest || subject.size() < letters + 2 || subject[letters] != L':' ||
        subject[letters + 1] != L' ')
    {
        return 0;
    }
    return letters + 2;
}

// What an attachment counts in its message's size.
LONG AttachmentSize(const AttachmentContent& attachment)
{
    const PropertyBag summary = attachment.Summary();
    if (const PropValue* size = summary.Find(PROP_ID(PR_ATTACH_SIZE)))
        return size->AsLong();
    return static_cast<LONG>(std::min<size_t>(SizeOf(attachment.Properties()), MAXLONG));
}
} // namespace

bool IsComputedOfMessages(ULONG id)
{
    static const std::set<ULONG> ids = {
        PROP_ID(PR_PARENT_ENTRYID),      PROP_ID(PR_INSTANCE_KEY), PROP_ID(PR_HASATTACH),
        PROP_ID(PR_MESSAGE_SIZE),        PROP_ID(PR_ATTACH_NUM),   PROP_ID(PR_MESSAGE_RECIPIENTS),
        PROP_ID(PR_MESSAGE_ATTACHMENTS),
    };
    return IsComputedEverywhere(id) || ids.contains(id);
}

size_t SizeOf(const PropertyBag& bag)
{
    size_t size = 0;
    for (const auto& [id, value] : bag.Values())
        size += value.Size();
    return size;
}

std::shared_ptr<const MessageContent> MakeMessageContent(PropertyBag properties, std::vector<PropertyBag> recipients,
                                                         std::vector<AttachmentSlot> attachments)
{
    return std::make_shared<MemoryMessage>(std::move(properties), std::move(recipients), std::move(attachments));
}

std::shared_ptr<MessageState> MessageState::Open(std::shared_ptr<Session> session, const Node& node, bool modifiable)
{
    std::shared_ptr<MessageState> state(new MessageState(std::move(session)));
    state->m_modifiable = modifiable;
    state->m_node = node;
    state->m_folder = node.parent;
    state->m_associated = node.kind == NodeKind::Associated;
    state->m_content = state->m_session->Core()->OpenMessage(node);
    state->m_properties = state->m_content->Properties();
    return state;
}

std::shared_ptr<MessageState> MessageState::Create(std::shared_ptr<Session> session, NodeId folder, bool associated)
{
    std::shared_ptr<MessageState> state(new MessageState(std::move(session)));
    state->m_modifiable = true;
    state->m_new = true;
    state->m_folder = folder;
    state->m_associated = associated;
    return state;
}

std::shared_ptr<MessageState> MessageState::Embed(std::shared_ptr<Session> session,
                                                  std::shared_ptr<const MessageContent> content, bool modifiable,
                                                  Keeper keep)
{
    std::shared_ptr<MessageState> state(new MessageState(std::move(session)));
    state->m_modifiable = modifiable;
    state->m_new = content == nullptr;
    state->m_keep = std::move(keep);
    state->m_content = std::move(content);
    if (state->m_content)
        state->m_properties = state->m_content->Properties();
    return state;
}

bool MessageState::Modifiable()
{
    const std::lock_guard lock(m_lock);
    return m_modifiable;
}

void MessageState::RequireAlive()
{
    const std::lock_guard lock(m_lock);
    if (m_node && !m_session->Core()->Find(m_node->id))
        Fail(MAPI_E_OBJECT_DELETED, L"The message has been deleted");
}

std::shared_ptr<const PropertySource> MessageState::Properties()
{
    auto layered =
        std::make_shared<LayeredProperties>(std::shared_ptr<const PropertySource>(shared_from_this(), &m_properties));
    PropertyBag& computed = layered->Computed();
    m_session->PutCommon(computed);
    computed.Put(PropValue::Long(PR_OBJECT_TYPE, MAPI_MESSAGE));
    const LONG access = MAPI_ACCESS_READ | (m_session->Writable() ? MAPI_ACCESS_MODIFY | MAPI_ACCESS_DELETE : 0);
    computed.Put(PropValue::Long(PR_ACCESS, access));
    computed.Put(PropValue::Long(PR_ACCESS_LEVEL, m_modifiable ? MAPI_MODIFY : 0));
    computed.Put(PropValue::Object(PR_MESSAGE_RECIPIENTS));
    computed.Put(PropValue::Object(PR_MESSAGE_ATTACHMENTS));
    if (m_node)
    {
        // A move changes the folder of a message that is open.
        const auto now = m_session->Core()->Find(m_node->id);
        const Bytes entryId = m_session->EntryId(m_node->id);
        computed.Put(PropValue::Binary(PR_ENTRYID, entryId));
        computed.Put(PropValue::Binary(PR_RECORD_KEY, entryId));
        computed.Put(PropValue::Binary(PR_PARENT_ENTRYID, m_session->EntryId(now ? now->parent : m_node->parent)));
        layered->PutDefault(PropValue::Long(PR_MSG_STATUS, 0));
    }
    layered->PutDefault(
        PropValue::Long(PR_MESSAGE_FLAGS, MSGFLAG_UNSENT | MSGFLAG_READ | (m_associated ? MSGFLAG_ASSOCIATED : 0)));
    const bool hasAttachments =
        m_attachments ? !m_attachments->empty() : (LongOf(m_properties, PR_MESSAGE_FLAGS) & MSGFLAG_HASATTACH) != 0;
    computed.Put(PropValue::Boolean(PR_HASATTACH, hasAttachments));
    return layered;
}

SCODE MessageState::Set(const PropValue& value)
{
    const ULONG id = value.Id();
    // The flags are the client's until the message is saved for the first time, and then the store's.
    if (IsComputedOfMessages(id) || (id == PROP_ID(PR_MESSAGE_FLAGS) && !m_new))
        return MAPI_E_COMPUTED;
    m_properties.Put(value);
    m_changes.Put(value);
    return S_OK;
}

SCODE MessageState::Remove(ULONG tag)
{
    const ULONG id = PROP_ID(tag);
    if (IsComputedOfMessages(id) || id == PROP_ID(PR_MESSAGE_FLAGS))
        return MAPI_E_COMPUTED;
    if (!m_properties.Find(id))
        return MAPI_E_NOT_FOUND;
    m_properties.Erase(id);
    m_changes.Remove(id);
    return S_OK;
}

const std::vector<PropertyBag>& MessageState::Recipients()
{
    if (!m_recipients)
    {
        m_recipients = m_content ? m_content->Recipients() : std::vector<PropertyBag>();
        LONG row = 0;
        for (PropertyBag& recipient : *m_recipients)
            recipient.Put(PropValue::Long(PR_ROWID, row++));
    }
    return *m_recipients;
}

void MessageState::SetRecipients(std::vector<PropertyBag> recipients)
{
    m_recipients = std::move(recipients);
    m_recipientsChanged = true;
}

std::vector<AttachmentSlot> MessageState::Attachments()
{
    const std::lock_guard lock(m_lock);
    return LoadedAttachments();
}

std::vector<AttachmentSlot>& MessageState::LoadedAttachments()
{
    if (!m_attachments)
    {
        m_attachments = m_content ? SlotsOf(*m_content) : std::vector<AttachmentSlot>();
        for (const AttachmentSlot& slot : *m_attachments)
            m_nextAttachment = std::max(m_nextAttachment, slot.number + 1);
    }
    return *m_attachments;
}

ULONG MessageState::NewAttachmentNumber()
{
    const std::lock_guard lock(m_lock);
    LoadedAttachments();
    return m_nextAttachment++;
}

void MessageState::PutAttachment(ULONG number, std::shared_ptr<const AttachmentContent> content)
{
    const std::lock_guard lock(m_lock);
    std::vector<AttachmentSlot>& attachments = LoadedAttachments();
    const auto found = std::find_if(attachments.begin(), attachments.end(),
                                    [&](const AttachmentSlot& slot) { return slot.number == number; });
    if (found == attachments.end())
        attachments.push_back({number, std::move(content)});
    else
        found->content = std::move(content);
    m_attachmentsChanged = true;
}

bool MessageState::RemoveAttachment(ULONG number)
{
    const std::lock_guard lock(m_lock);
    const size_t removed =
        std::erase_if(LoadedAttachments(), [&](const AttachmentSlot& slot) { return slot.number == number; });
    m_attachmentsChanged = m_attachmentsChanged || removed != 0;
    return removed != 0;
}

void MessageState::SetRead(bool read)
{
    const auto apply = [&](LONG flags) { return read ? flags | MSGFLAG_READ : flags & ~LONG(MSGFLAG_READ); };
    const auto before = Properties()->Load(PROP_ID(PR_MESSAGE_FLAGS));
    const PropValue after = PropValue::Long(PR_MESSAGE_FLAGS, apply(before ? before->AsLong() : 0));
    m_properties.Put(after);
    if (!m_node)
    {
        m_changes.Put(after);
        return;
    }
    PropertyChanges changes;
    changes.Put(after);
    m_session->Core()->ChangeMessages({{m_node->id, changes}});
    m_session->Notify(fnevObjectModified, *m_node);
}

// Brings what the store works out in line with what is about to be saved.
void MessageState::Complete()
{
    const auto put = [this](const PropValue& value)
    {
        m_properties.Put(value);
        m_changes.Put(value);
    };
    const auto isSet = [this](ULONG tag) { return m_changes.Values().Find(PROP_ID(tag)) != nullptr; };

    if (m_new)
    {
        if (!m_properties.Find(PROP_ID(PR_MESSAGE_CLASS)))
            put(PropValue::String(PR_MESSAGE_CLASS_W, L"IPM.Note"));
        if (!m_properties.Find(PROP_ID(PR_SEARCH_KEY)))
        {
            GUID key{};
            Check(CoCreateGuid(&key), L"No search key could be made");
            put(PropValue::Binary(PR_SEARCH_KEY, &key, sizeof(key)));
        }
        if (!m_properties.Find(PROP_ID(PR_CREATION_TIME)))
            put(Now(PR_CREATION_TIME));
    }
    if (isSet(PR_SUBJECT) && !isSet(PR_NORMALIZED_SUBJECT))
    {
        const std::wstring subject = TextOf(m_properties, PR_SUBJECT);
        std::wstring prefix = isSet(PR_SUBJECT_PREFIX) ? TextOf(m_properties, PR_SUBJECT_PREFIX)
                                                       : subject.substr(0, PrefixLength(subject));
        if (!subject.starts_with(prefix))
            prefix.clear();
        put(PropValue::String(PR_SUBJECT_PREFIX_W, prefix));
        put(PropValue::String(PR_NORMALIZED_SUBJECT_W, subject.substr(prefix.size())));
    }
    if (m_recipientsChanged || m_new)
    {
        std::map<LONG, std::wstring> names;
        for (const PropertyBag& recipient : Recipients())
        {
            std::wstring& list = names[LongOf(recipient, PR_RECIPIENT_TYPE, MAPI_TO)];
            list += list.empty() ? L"" : L"; ";
            list += TextOf(recipient, PR_DISPLAY_NAME);
        }
        const std::pair<LONG, ULONG> kinds[] = {
            {MAPI_TO, PR_DISPLAY_TO_W}, {MAPI_CC, PR_DISPLAY_CC_W}, {MAPI_BCC, PR_DISPLAY_BCC_W}};
        for (const auto& [type, tag] : kinds)
            if (!isSet(tag))
                put(PropValue::String(tag, names[type]));
    }
    const std::vector<AttachmentSlot> attachments = Attachments();
    LONG flags = LongOf(m_properties, PR_MESSAGE_FLAGS, m_new ? MSGFLAG_UNSENT | MSGFLAG_READ : 0);
    flags = attachments.empty() ? flags & ~LONG(MSGFLAG_HASATTACH) : flags | MSGFLAG_HASATTACH;
    flags |= m_associated ? MSGFLAG_ASSOCIATED : 0;
    if (m_new || flags != LongOf(m_properties, PR_MESSAGE_FLAGS))
        put(PropValue::Long(PR_MESSAGE_FLAGS, flags));
    if (!isSet(PR_LAST_MODIFICATION_TIME))
        put(Now(PR_LAST_MODIFICATION_TIME));
    if (m_new || m_attachmentsChanged || m_recipientsChanged)
    {
        size_t size = SizeOf(m_properties);
        for (const PropertyBag& recipient : Recipients())
            size += SizeOf(recipient);
        for (const AttachmentSlot& slot : attachments)
            size += static_cast<size_t>(std::max(AttachmentSize(*slot.content), LONG(0)));
        put(PropValue::Long(PR_MESSAGE_SIZE, static_cast<LONG>(std::min<size_t>(size, MAXLONG))));
    }
}

std::shared_ptr<const MessageContent> MessageState::Snapshot()
{
    return MakeMessageContent(m_properties, Recipients(), Attachments());
}

void MessageState::Save(ULONG flags)
{
    const std::lock_guard lock(m_lock);
    const bool changed = m_new || !m_changes.Empty() || m_recipientsChanged || m_attachmentsChanged;
    if (changed && !m_modifiable)
        Fail(MAPI_E_NO_ACCESS, L"The message is not open for writing");
    if (changed)
    {
        RequireAlive();
        Complete();
        if (m_keep)
        {
            m_content = Snapshot();
            m_keep(m_content);
        }
        else
        {
            MessageUpdate update;
            update.changes = m_changes;
            if (m_recipientsChanged || m_new)
                update.recipients = Recipients();
            if (m_attachmentsChanged || m_new)
                update.attachments = Attachments();
            const std::shared_ptr<StoreCore> core = m_session->Core();
            const bool create = !m_node;
            if (create)
            {
                const NodeId id = core->CreateMessage(m_folder, m_associated, update);
                m_node = Node{id, m_associated ? NodeKind::Associated : NodeKind::Message, m_folder};
            }
            else
            {
                core->ChangeMessage(m_node->id, update);
            }
            m_content = core->OpenMessage(*m_node);
            // What was saved is read from the store when it is needed again.
            m_attachments.reset();
            m_session->Notify(create ? fnevObjectCreated : fnevObjectModified, *m_node);
        }
        m_new = false;
        m_changes.Clear();
        m_recipientsChanged = false;
        m_attachmentsChanged = false;
    }
    if ((flags & KEEP_OPEN_READONLY) != 0)
        m_modifiable = false;
}
} // namespace Testbed::Pst
