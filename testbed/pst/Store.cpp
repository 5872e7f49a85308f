// IMsgStore over a session, and the opening of entries. Property changes take effect at once.
#include "testbed/pst/Store.h"

#include "common/Text.h"
#include "testbed/common/AddressNumbers.h"
#include "testbed/common/Namespace.h"
#include "testbed/common/NotOffered.h"
#include "testbed/common/Table.h"

#include <algorithm>
#include <cstring>
#include <cwctype>

namespace Testbed::Pst
{
namespace
{
// The receive folders, in two properties that clients do not see: message classes and, for each, an entry ID.
constexpr ULONG receiveClasses = PROP_TAG(PT_MV_UNICODE, 0x67FC);
constexpr ULONG receiveFolders = PROP_TAG(PT_MV_BINARY, 0x67FD);

constexpr LONG allAccess = MAPI_ACCESS_MODIFY | MAPI_ACCESS_READ | MAPI_ACCESS_DELETE | MAPI_ACCESS_CREATE_HIERARCHY |
                           MAPI_ACCESS_CREATE_CONTENTS | MAPI_ACCESS_CREATE_ASSOCIATED;

bool IsHidden(ULONG id)
{
    return id == PROP_ID(receiveClasses) || id == PROP_ID(receiveFolders);
}

bool IsComputedOfStores(ULONG id)
{
    return IsComputedEverywhere(id) || id == PROP_ID(Tags::storeUnicodeMask) || IsHidden(id);
}

std::wstring Lower(std::wstring text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](wchar_t c) { return static_cast<wchar_t>(std::towlower(c)); });
    return text;
}

// Whether a message class is `parent` or one below it.
bool IsClassOf(const std::wstring& messageClass, const std::wstring& parent)
{
    return parent.empty() || messageClass == parent || messageClass.starts_with(parent + L".");
}

class Store final : public PropertyObject<IMsgStore, &IID_IMsgStore, &IID_IMAPIProp>, private StoreObject
{
public:
    explicit Store(std::shared_ptr<Session> session) : PropertyObject(std::move(session)) { m_session->SetStore(this); }
    ~Store() override
    {
        m_session->SetStore(nullptr);
        m_session->LogoffTransports(LOGOFF_ABORT);
        m_session->Close();
    }

    MAPI_IMSGSTORE_METHODS(override)

protected:
    std::shared_ptr<const PropertySource> Properties() override;
    bool Modifiable() override { return m_session->Writable(); }
    SCODE Set(const PropValue& value) override;
    SCODE Remove(ULONG tag) override;
    void Flush() override;
    HRESULT Save(ULONG) override { return S_OK; }
    std::pair<LPCIID, IUnknown*> Self() override { return {&IID_IMsgStore, static_cast<IMsgStore*>(this)}; }

private:
    struct ReceiveFolder
    {
        std::wstring messageClass;
        Bytes entryId;
    };

    std::shared_ptr<StoreCore> Core() const { return m_session->Core(); }
    ComPtr<IMsgStore> Share() noexcept override { return TryAddRef() ? ComPtr<IMsgStore>::Attach(this) : nullptr; }
    std::vector<ReceiveFolder> ReceiveFolders() const;
    Bytes DefaultReceiveFolder() const;

    PropertyChanges m_changes;
};

std::shared_ptr<const PropertySource> Store::Properties()
{
    PropertyBag stored = Core()->StoreProperties();
    stored.Erase(PROP_ID(receiveClasses));
    stored.Erase(PROP_ID(receiveFolders));
    auto layered = std::make_shared<LayeredProperties>(std::make_shared<PropertyBag>(std::move(stored)));
    PropertyBag& computed = layered->Computed();
    m_session->PutCommon(computed);
    computed.Put(PropValue::Binary(PR_ENTRYID, m_session->WrappedEntryId()));
    computed.Put(PropValue::Binary(PR_RECORD_KEY, Core()->RecordKey()));
    computed.Put(PropValue::Long(PR_OBJECT_TYPE, MAPI_STORE));
    computed.Put(PropValue::Long(PR_ACCESS, m_session->Writable() ? allAccess : MAPI_ACCESS_READ));
    computed.Put(PropValue::Long(PR_ACCESS_LEVEL, m_session->Writable() ? MAPI_MODIFY : 0));
    computed.Put(PropValue::Long(Tags::storeUnicodeMask, m_session->SupportMask()));
    const size_t begin = Core()->Path().rfind(L'\\') + 1;
    layered->PutDefault(PropValue::String(PR_DISPLAY_NAME_W, Core()->Path().substr(begin)));
    layered->PutDefault(PropValue::String(PR_PROVIDER_DISPLAY_W, L"Personal Folders"));
    layered->PutDefault(PropValue::Long(PR_STORE_STATE, 0));
    layered->PutDefault(PropValue::Long(PR_STATUS_CODE, 0));
    return layered;
}

SCODE Store::Set(const PropValue& value)
{
    if (IsComputedOfStores(value.Id()))
        return MAPI_E_COMPUTED;
    m_changes.Put(value);
    return S_OK;
}

SCODE Store::Remove(ULONG tag)
{
    if (IsComputedOfStores(PROP_ID(tag)))
        return MAPI_E_COMPUTED;
    if (!Core()->StoreProperties().Find(PROP_ID(tag)))
        return MAPI_E_NOT_FOUND;
    m_changes.Remove(PROP_ID(tag));
    return S_OK;
}

void Store::Flush()
{
    if (!m_changes.Empty())
    {
        PropertyChanges changes;
        std::swap(changes, m_changes);
        Core()->ChangeStore(changes);
    }
}

Bytes Store::DefaultReceiveFolder() const
{
    const PropertyBag store = Core()->StoreProperties();
    const Bytes subtree = BytesOf(store, PR_IPM_SUBTREE_ENTRYID);
    const auto node =
        m_session->NodeOf(static_cast<ULONG>(subtree.size()), reinterpret_cast<const ENTRYID*>(subtree.data()));
    if (!node || !Core()->Find(*node))
        return m_session->EntryId(Nodes::root);
    const auto inbox = Core()->FindSubFolder(*node, L"Inbox");
    return m_session->EntryId(inbox ? *inbox : *node);
}

std::vector<Store::ReceiveFolder> Store::ReceiveFolders() const
{
    std::vector<ReceiveFolder> folders(1);
    folders.front().entryId = DefaultReceiveFolder();
    const PropertyBag store = Core()->StoreProperties();
    const PropValue* classes = store.Find(PROP_ID(receiveClasses));
    const PropValue* entryIds = store.Find(PROP_ID(receiveFolders));
    const auto* names = classes ? classes->Get<std::vector<std::wstring>>() : nullptr;
    const auto* ids = entryIds ? entryIds->Get<std::vector<Bytes>>() : nullptr;
    for (size_t index = 0; names && ids && index < names->size() && index < ids->size(); ++index)
        if ((*names)[index].empty())
            folders.front().entryId = (*ids)[index];
        else
            folders.push_back({(*names)[index], (*ids)[index]});
    return folders;
}

STDMETHODIMP Store::Advise(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink,
                           ULONG_PTR* lpulConnection)
{
    return Run(
        [&]() -> HRESULT
        {
            if (!lpulConnection)
                return MAPI_E_INVALID_PARAMETER;
            *lpulConnection = AddressNumbers::Of(m_session->Advise(cbEntryID, lpEntryID, ulEventMask, lpAdviseSink));
            return S_OK;
        });
}

STDMETHODIMP Store::Unadvise(ULONG_PTR ulConnection)
{
    return Run(
        [&]
        {
            const auto subscription = AddressNumbers::CountOf(ulConnection);
            if (!subscription)
                Fail(MAPI_E_NOT_FOUND, L"The store has no such connection.");
            return m_session->Unadvise(*subscription);
        });
}

STDMETHODIMP Store::CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                                    ULONG, ULONG* lpulResult)
{
    return Run(
        [&]() -> HRESULT
        {
            if (!lpulResult)
                return MAPI_E_INVALID_PARAMETER;
            *lpulResult = m_session->SameObject(cbEntryID1, lpEntryID1, cbEntryID2, lpEntryID2) ? TRUE : FALSE;
            return S_OK;
        });
}

STDMETHODIMP Store::OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                              ULONG* lpulObjType, LPUNKNOWN* lppUnk)
{
    return Run([&]() -> HRESULT
               { return OpenStoreEntry(m_session, cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType, lppUnk); });
}

STDMETHODIMP Store::SetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID)
{
    return Run(
        [&]() -> HRESULT
        {
            RequireFlags(ulFlags, MAPI_UNICODE);
            if (!m_session->Writable())
                Fail(MAPI_E_NO_ACCESS, L"The store is read-only");
            const std::wstring messageClass = Lower(TextArgument(lpszMessageClass, ulFlags));
            std::vector<std::wstring> classes;
            std::vector<Bytes> entryIds;
            for (const ReceiveFolder& folder : ReceiveFolders())
            {
                if (Lower(folder.messageClass) != messageClass)
                {
                    classes.push_back(folder.messageClass);
                    entryIds.push_back(folder.entryId);
                }
            }
            if (lpEntryID && cbEntryID != 0)
            {
                const Node node = m_session->Require(cbEntryID, lpEntryID);
                if (node.kind != NodeKind::Folder)
                    return MAPI_E_INVALID_ENTRYID;
                classes.push_back(TextArgument(lpszMessageClass, ulFlags));
                entryIds.push_back(m_session->EntryId(node.id));
            }
            PropertyChanges changes;
            changes.Put(PropValue(receiveClasses, std::move(classes)));
            changes.Put(PropValue(receiveFolders, std::move(entryIds)));
            Core()->ChangeStore(changes);
            return S_OK;
        });
}

STDMETHODIMP Store::GetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG* lpcbEntryID, LPENTRYID* lppEntryID,
                                     LPTSTR* lppszExplicitClass)
{
    return Run(
        [&]() -> HRESULT
        {
            if (!lpcbEntryID || !lppEntryID)
                return MAPI_E_INVALID_PARAMETER;
            RequireFlags(ulFlags, MAPI_UNICODE);
            const std::wstring messageClass = Lower(TextArgument(lpszMessageClass, ulFlags));
            ReceiveFolder best;
            for (const ReceiveFolder& folder : ReceiveFolders())
            {
                if (IsClassOf(messageClass, Lower(folder.messageClass)) &&
                    (best.entryId.empty() || folder.messageClass.size() > best.messageClass.size()))
                {
                    best = folder;
                }
            }
            const MapiMemory& memory = m_session->Memory();
            MapiBlock<ENTRYID> entryId(memory, static_cast<LPENTRYID>(memory.Allocate(best.entryId.size())));
            std::memcpy(entryId.Get(), best.entryId.data(), best.entryId.size());
            if (lppszExplicitClass)
            {
                const std::string narrow = AnsiFromWide(best.messageClass);
                const bool wide = (ulFlags & MAPI_UNICODE) != 0;
                const void* text = wide ? static_cast<const void*>(best.messageClass.c_str()) : narrow.c_str();
                const size_t size = wide ? (best.messageClass.size() + 1) * sizeof(wchar_t) : narrow.size() + 1;
                void* block = memory.Allocate(size);
                std::memcpy(block, text, size);
                *lppszExplicitClass = static_cast<LPTSTR>(block);
            }
            *lpcbEntryID = static_cast<ULONG>(best.entryId.size());
            *lppEntryID = entryId.Detach();
            return S_OK;
        });
}

STDMETHODIMP Store::GetReceiveFolderTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return Run(
        [&]() -> HRESULT
        {
            if (!lppTable)
                return MAPI_E_INVALID_PARAMETER;
            RequireFlags(ulFlags, MAPI_UNICODE | MAPI_DEFERRED_ERRORS);
            std::vector<PropertyBag> rows;
            for (const ReceiveFolder& folder : ReceiveFolders())
            {
                PropertyBag row;
                const auto number = static_cast<ULONG>(rows.size());
                row.Put(PropValue::Binary(PR_ENTRYID, folder.entryId));
                row.Put(PropValue::Binary(PR_RECORD_KEY, folder.entryId));
                row.Put(PropValue::Binary(PR_INSTANCE_KEY, &number, sizeof(number)));
                row.Put(PropValue::String(PR_MESSAGE_CLASS_W, folder.messageClass));
                rows.push_back(std::move(row));
            }
            const std::vector<ULONG> columns = {PR_ENTRYID, PR_RECORD_KEY, PR_INSTANCE_KEY, PR_MESSAGE_CLASS_W};
            *lppTable = CreateTable(std::make_shared<MemoryRows>(columns, std::move(rows)), m_session->Memory(),
                                    m_session->Flags(ulFlags), componentName)
                            .Detach();
            return S_OK;
        });
}

STDMETHODIMP Store::StoreLogoff(ULONG* lpulFlags)
{
    return Run(
        [&]() -> HRESULT
        {
            constexpr ULONG known[] = {LOGOFF_NO_WAIT, LOGOFF_ORDERLY, LOGOFF_PURGE, LOGOFF_ABORT, LOGOFF_QUIET};
            if (!lpulFlags)
                return MAPI_E_INVALID_PARAMETER;
            if (std::find(std::begin(known), std::end(known), *lpulFlags) == std::end(known))
                Fail(MAPI_E_UNKNOWN_FLAGS, L"StoreLogoff takes exactly one of its flags");
            // The platform's pages differ on whether this is done here or at the last release; only here can the answer
            // reach the caller.
            *lpulFlags = m_session->LogoffTransports(*lpulFlags);
            return S_OK;
        });
}

// The store has no outgoing mail: there is nothing to abort, lock, finish or queue.
NOT_OFFERED(Store, AbortSubmit, ULONG, LPENTRYID, ULONG);
NOT_OFFERED(Store, GetOutgoingQueue, ULONG, LPMAPITABLE*);
NOT_OFFERED(Store, SetLockState, LPMESSAGE, ULONG);
NOT_OFFERED(Store, FinishedMsg, ULONG, ULONG, LPENTRYID);
NOT_OFFERED(Store, NotifyNewMail, LPNOTIFICATION);
} // namespace

ComPtr<IMsgStore> MakeStore(std::shared_ptr<Session> session)
{
    return MakeObject<Store>(std::move(session));
}

HRESULT OpenStoreEntry(const std::shared_ptr<Session>& session, ULONG size, LPENTRYID entryId, LPCIID iid, ULONG flags,
                       ULONG* type, LPUNKNOWN* object)
{
    if (!object)
        return MAPI_E_INVALID_PARAMETER;
    constexpr ULONG noCache = 0x00000200;
    constexpr ULONG known = MAPI_MODIFY | MAPI_BEST_ACCESS | MAPI_DEFERRED_ERRORS | noCache;
    RequireFlags(flags, known);
    // Throws once the store is closed.
    session->Core();
    const bool best = (flags & MAPI_BEST_ACCESS) == MAPI_BEST_ACCESS;
    const bool modify = (flags & MAPI_MODIFY) != 0;
    if (modify && !best && !session->Writable())
        Fail(MAPI_E_NO_ACCESS, L"The store is read-only");
    const bool modifiable = session->Writable() && (modify || best);
    ComPtr<IUnknown> opened;
    ULONG openedType = MAPI_FOLDER;
    if (session->IsStore(size, entryId))
    {
        RequireInterface(iid, {&IID_IMsgStore, &IID_IMAPIProp, &IID_IUnknown});
        opened = session->Store();
        if (!opened)
            Fail(MAPI_E_INVALID_OBJECT, L"The store is being closed");
        openedType = MAPI_STORE;
    }
    else
    {
        const bool root = size == 0 || !entryId;
        const Node node = root ? Node{Nodes::root, NodeKind::Folder, Nodes::root} : session->Require(size, entryId);
        if (IsFolder(node.kind))
        {
            RequireInterface(iid, {&IID_IMAPIFolder, &IID_IMAPIContainer, &IID_IMAPIProp, &IID_IUnknown});
            opened = MakeFolder(session, node.id, modifiable);
        }
        else
        {
            RequireInterface(iid, {&IID_IMessage, &IID_IMAPIProp, &IID_IUnknown});
            opened = MakeMessage(MessageState::Open(session, node, modifiable));
            openedType = MAPI_MESSAGE;
        }
    }
    *object = opened.Detach();
    if (type)
        *type = openedType;
    return S_OK;
}
} // namespace Testbed::Pst
