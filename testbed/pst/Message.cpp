// IMessage and IAttach over an open message.
#include "testbed/pst/Message.h"

#include "testbed/common/NotOffered.h"
#include "testbed/common/Table.h"

#include <algorithm>

namespace Testbed::Pst
{
namespace
{
const std::vector<ULONG> recipientColumns = {
    PR_ROWID,      PR_RECIPIENT_TYPE, PR_DISPLAY_NAME_W, PR_ADDRTYPE_W,     PR_EMAIL_ADDRESS_W, PR_ENTRYID,
    PR_SEARCH_KEY, PR_OBJECT_TYPE,    PR_DISPLAY_TYPE,   PR_RESPONSIBILITY, PR_INSTANCE_KEY,
};

const std::vector<ULONG> attachmentColumns = {
    PR_ATTACH_NUM,
    PR_ATTACH_SIZE,
    PR_ATTACH_METHOD,
    PR_ATTACH_FILENAME_W,
    PR_ATTACH_LONG_FILENAME_W,
    PR_DISPLAY_NAME_W,
    PR_ATTACH_EXTENSION_W,
    PR_RENDERING_POSITION,
    PR_RECORD_KEY,
    PR_INSTANCE_KEY,
    PR_OBJECT_TYPE,
    PR_ATTACH_MIME_TAG_W,
    PR_LAST_MODIFICATION_TIME,
    PR_CREATION_TIME,
};

// The well-known columns, and whatever else one of the rows has.
std::vector<ULONG> ColumnsOf(const std::vector<ULONG>& wellKnown, const std::vector<PropertyBag>& rows)
{
    std::vector<ULONG> columns = wellKnown;
    std::set<ULONG> known;
    for (const ULONG tag : wellKnown)
        known.insert(PROP_ID(tag));
    for (const PropertyBag& row : rows)
    {
        for (const auto& [id, value] : row.Values())
            if (known.insert(id).second && value.Type() != PT_OBJECT)
                columns.push_back(value.Tag());
    }
    return columns;
}

// What a message and an attachment have in common: the properties of a shared state.
template <class State, class Interface, const IID* Iid>
class StateObject : public PropertyObject<Interface, Iid, &IID_IMAPIProp>
{
public:
    StateObject(std::shared_ptr<Session> session, std::shared_ptr<State> state)
        : PropertyObject<Interface, Iid, &IID_IMAPIProp>(std::move(session)),
          m_state(std::move(state))
    {
    }

protected:
    std::shared_ptr<const PropertySource> Properties() override { return m_state->Properties(); }
    bool Modifiable() override { return m_state->Modifiable(); }
    RecursiveMutex& Lock() override { return m_state->Lock(); }
    SCODE Set(const PropValue& value) override { return m_state->Set(value); }
    SCODE Remove(ULONG tag) override { return m_state->Remove(tag); }
    HRESULT Save(ULONG flags) override
    {
        m_state->Save(flags);
        return S_OK;
    }
    std::pair<LPCIID, IUnknown*> Self() override { return {Iid, static_cast<Interface*>(this)}; }

    std::shared_ptr<State> m_state;
};

class Message final : public StateObject<MessageState, IMessage, &IID_IMessage>
{
public:
    explicit Message(const std::shared_ptr<MessageState>& state) : StateObject(state->SessionOf(), state) {}

    MAPI_IMESSAGE_METHODS(override)

protected:
    void RequireAlive() override { m_state->RequireAlive(); }
    ComPtr<IUnknown> OpenObject(ULONG tag, REFIID iid, ULONG options, ULONG flags) override;

private:
    ComPtr<IMAPITable> Table(const std::vector<ULONG>& wellKnown, std::vector<PropertyBag> rows, ULONG flags);
    ComPtr<IMAPITable> Recipients(ULONG flags);
    ComPtr<IMAPITable> Attachments(ULONG flags);
    HRESULT GiveTable(ULONG flags, LPMAPITABLE* table, ComPtr<IMAPITable> (Message::*make)(ULONG));
};

class Attachment final : public StateObject<AttachmentState, IAttach, &IID_IAttachment>
{
public:
    explicit Attachment(const std::shared_ptr<AttachmentState>& state)
        : StateObject(state->Message()->SessionOf(), state)
    {
    }

protected:
    ComPtr<IUnknown> OpenObject(ULONG tag, REFIID iid, ULONG options, ULONG flags) override;
};

// ADRLIST and SRowSet are the same structure under two names.
std::vector<PropertyBag> CopyList(const ADRLIST& list)
{
    std::vector<PropertyBag> entries;
    for (ULONG index = 0; index < list.cEntries; ++index)
    {
        const ADRENTRY& entry = list.aEntries[index];
        PropertyBag bag;
        for (PropValue& value : CopyProps(entry.cValues, entry.rgPropVals))
            if (!value.IsError() && value.Type() != PT_OBJECT && value.Tag() != PR_NULL)
                bag.Put(std::move(value));
        entries.push_back(std::move(bag));
    }
    return entries;
}

auto FindRecipient(std::vector<PropertyBag>& recipients, const PropertyBag& given)
{
    const PropValue* row = given.Find(PROP_ID(PR_ROWID));
    if (!row)
        Fail(MAPI_E_INVALID_PARAMETER, L"A recipient to change or remove is named by its PR_ROWID");
    const LONG wanted = row->AsLong(-1);
    const auto found = std::find_if(recipients.begin(), recipients.end(),
                                    [&](const PropertyBag& bag) { return LongOf(bag, PR_ROWID, -1) == wanted; });
    if (found == recipients.end())
        Fail(MAPI_E_NOT_FOUND, L"The message has no recipient of that PR_ROWID");
    return found;
}

ComPtr<IMAPITable> Message::Table(const std::vector<ULONG>& wellKnown, std::vector<PropertyBag> rows, ULONG flags)
{
    std::vector<ULONG> columns = ColumnsOf(wellKnown, rows);
    return CreateTable(std::make_shared<MemoryRows>(std::move(columns), std::move(rows)), m_session->Memory(),
                       m_session->Flags(flags), componentName);
}

ComPtr<IMAPITable> Message::Recipients(ULONG flags)
{
    std::vector<PropertyBag> rows = m_state->Recipients();
    for (PropertyBag& row : rows)
    {
        const LONG id = LongOf(row, PR_ROWID);
        row.Put(PropValue::Binary(PR_INSTANCE_KEY, &id, sizeof(id)));
    }
    return Table(recipientColumns, std::move(rows), flags);
}

ComPtr<IMAPITable> Message::Attachments(ULONG flags)
{
    std::vector<PropertyBag> rows;
    for (const AttachmentSlot& slot : m_state->Attachments())
        rows.push_back(AttachmentRow(*m_session, slot));
    return Table(attachmentColumns, std::move(rows), flags);
}

ComPtr<IUnknown> Message::OpenObject(ULONG tag, REFIID iid, ULONG options, ULONG)
{
    if (PROP_ID(tag) != PROP_ID(PR_MESSAGE_RECIPIENTS) && PROP_ID(tag) != PROP_ID(PR_MESSAGE_ATTACHMENTS))
        return {};
    RequireInterface(&iid, {&IID_IMAPITable});
    return PROP_ID(tag) == PROP_ID(PR_MESSAGE_RECIPIENTS) ? Recipients(options) : Attachments(options);
}

HRESULT Message::GiveTable(ULONG flags, LPMAPITABLE* table, ComPtr<IMAPITable> (Message::*make)(ULONG))
{
    return Run(
        [&]
        {
            Require(table);
            RequireFlags(flags, MAPI_UNICODE | MAPI_DEFERRED_ERRORS);
            *table = (this->*make)(flags).Detach();
            return S_OK;
        });
}

STDMETHODIMP Message::GetAttachmentTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return GiveTable(ulFlags, lppTable, &Message::Attachments);
}

STDMETHODIMP Message::GetRecipientTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return GiveTable(ulFlags, lppTable, &Message::Recipients);
}

STDMETHODIMP Message::OpenAttach(ULONG ulAttachmentNum, LPCIID lpInterface, ULONG ulFlags, LPATTACH* lppAttach)
{
    return Run(
        [&]() -> HRESULT
        {
            if (!lppAttach)
                return MAPI_E_INVALID_PARAMETER;
            RequireFlags(ulFlags, MAPI_MODIFY | MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS);
            RequireInterface(lpInterface, {&IID_IAttachment, &IID_IMAPIProp, &IID_IUnknown});
            const bool best = (ulFlags & MAPI_BEST_ACCESS) == MAPI_BEST_ACCESS;
            if ((ulFlags & MAPI_MODIFY) != 0 && !best)
                RequireModifiable();
            const bool modifiable = Modifiable() && (best || (ulFlags & MAPI_MODIFY) != 0);
            for (const AttachmentSlot& slot : m_state->Attachments())
            {
                if (slot.number == ulAttachmentNum)
                {
                    *lppAttach = MakeAttachment(
                                     std::make_shared<AttachmentState>(m_state, slot.number, slot.content, modifiable))
                                     .Detach();
                    return S_OK;
                }
            }
            Fail(MAPI_E_NOT_FOUND, L"The message has no attachment of that number");
        });
}

STDMETHODIMP Message::CreateAttach(LPCIID lpInterface, ULONG ulFlags, ULONG* lpulAttachmentNum, LPATTACH* lppAttach)
{
    return Run(
        [&]() -> HRESULT
        {
            if (!lppAttach || !lpulAttachmentNum)
                return MAPI_E_INVALID_PARAMETER;
            RequireFlags(ulFlags, MAPI_DEFERRED_ERRORS);
            RequireInterface(lpInterface, {&IID_IAttachment, &IID_IMAPIProp, &IID_IUnknown});
            RequireModifiable();
            const ULONG number = m_state->NewAttachmentNumber();
            *lppAttach = MakeAttachment(std::make_shared<AttachmentState>(m_state, number, nullptr, true)).Detach();
            *lpulAttachmentNum = number;
            return S_OK;
        });
}

STDMETHODIMP Message::DeleteAttach(ULONG ulAttachmentNum, ULONG_PTR, LPMAPIPROGRESS, ULONG ulFlags)
{
    return Run(
        [&]() -> HRESULT
        {
            RequireFlags(ulFlags, ATTACH_DIALOG);
            RequireModifiable();
            return m_state->RemoveAttachment(ulAttachmentNum) ? S_OK : MAPI_E_NOT_FOUND;
        });
}

STDMETHODIMP Message::ModifyRecipients(ULONG ulFlags, LPADRLIST lpMods)
{
    return Run(
        [&]() -> HRESULT
        {
            if ((ulFlags != 0 && ulFlags != MODRECIP_ADD && ulFlags != MODRECIP_MODIFY && ulFlags != MODRECIP_REMOVE) ||
                (ulFlags != 0 && !lpMods))
            {
                return MAPI_E_INVALID_PARAMETER;
            }
            RequireModifiable();
            const std::vector<PropertyBag> given = lpMods ? CopyList(*lpMods) : std::vector<PropertyBag>();
            std::vector<PropertyBag> recipients;
            if (ulFlags != 0)
                recipients = m_state->Recipients();
            LONG next = 0;
            for (const PropertyBag& recipient : recipients)
                next = std::max(next, LongOf(recipient, PR_ROWID) + 1);
            for (const PropertyBag& entry : given)
            {
                if (ulFlags == MODRECIP_REMOVE)
                {
                    recipients.erase(FindRecipient(recipients, entry));
                    continue;
                }
                if (ulFlags == MODRECIP_MODIFY)
                {
                    *FindRecipient(recipients, entry) = entry;
                    continue;
                }
                PropertyBag added = entry;
                added.Put(PropValue::Long(PR_ROWID, next++));
                recipients.push_back(std::move(added));
            }
            m_state->SetRecipients(std::move(recipients));
            return S_OK;
        });
}

// The store has no transport behind it (STORE_SUBMIT_OK is not set).
NOT_OFFERED(Message, SubmitMessage, ULONG);

STDMETHODIMP Message::SetReadFlag(ULONG ulFlags)
{
    return Run(
        [&]() -> HRESULT
        {
            constexpr ULONG generateReceiptOnly = 0x10;
            constexpr ULONG known = SUPPRESS_RECEIPT | CLEAR_READ_FLAG | MAPI_DEFERRED_ERRORS | generateReceiptOnly |
                                    CLEAR_RN_PENDING | CLEAR_NRN_PENDING;
            RequireFlags(ulFlags, known);
            if (!m_session->Writable())
                Fail(MAPI_E_NO_ACCESS, L"The store is read-only");
            // Receipts are asked for with these, and there is nobody to send them.
            if ((ulFlags & (generateReceiptOnly | CLEAR_RN_PENDING | CLEAR_NRN_PENDING)) == 0)
            {
                RequireAlive();
                m_state->SetRead((ulFlags & CLEAR_READ_FLAG) == 0);
            }
            return S_OK;
        });
}

ComPtr<IUnknown> Attachment::OpenObject(ULONG tag, REFIID iid, ULONG, ULONG flags)
{
    // PR_ATTACH_DATA_OBJ and PR_ATTACH_DATA_BIN are one property of two types.
    if (PROP_ID(tag) != PROP_ID(PR_ATTACH_DATA_OBJ) || !IsEqualIID(iid, IID_IMessage))
        return {};
    const bool modify = (flags & (MAPI_MODIFY | MAPI_CREATE)) != 0;
    std::shared_ptr<const MessageContent> content;
    if ((flags & MAPI_CREATE) == 0)
    {
        content = m_state->Embedded();
        if (!content)
            Fail(MAPI_E_NOT_FOUND, L"The attachment holds no embedded message");
    }
    return MakeMessage(MessageState::Embed(m_session, std::move(content), modify,
                                           [state = m_state](std::shared_ptr<const MessageContent> saved)
                                           { state->SetEmbedded(std::move(saved)); }));
}
} // namespace

ComPtr<IMessage> MakeMessage(const std::shared_ptr<MessageState>& state)
{
    return MakeObject<Message>(state);
}

ComPtr<IAttach> MakeAttachment(const std::shared_ptr<AttachmentState>& state)
{
    return MakeObject<Attachment>(state);
}

void RequireInterface(LPCIID iid, std::initializer_list<const IID*> iids)
{
    if (iid && std::none_of(iids.begin(), iids.end(), [&](const IID* known) { return IsEqualIID(*iid, *known); }))
        Fail(MAPI_E_INTERFACE_NOT_SUPPORTED, L"The object does not have the interface");
}
} // namespace Testbed::Pst
