// IMAPIFolder over a folder of the store. Property changes take effect at once.
#include "testbed/pst/Store.h"

#include "common/Text.h"
#include "testbed/common/Namespace.h"
#include "testbed/common/NotOffered.h"
#include "testbed/common/Table.h"

#include <algorithm>

namespace Testbed::Pst
{
namespace
{
// frightsReadAny to frightsVisible, all that an owner has.
constexpr LONG allRights = 0x000007FB;
constexpr ULONG softDeletes = 0x00000002;

bool IsComputedOfFolders(ULONG id)
{
    static const std::set<ULONG> ids = {
        PROP_ID(PR_PARENT_ENTRYID),
        PROP_ID(PR_INSTANCE_KEY),
        PROP_ID(PR_CONTENT_COUNT),
        PROP_ID(PR_CONTENT_UNREAD),
        PROP_ID(PR_ASSOC_CONTENT_COUNT),
        PROP_ID(PR_SUBFOLDERS),
        PROP_ID(PR_FOLDER_TYPE),
        PROP_ID(Tags::rights),
        PROP_ID(PR_DISPLAY_TYPE),
        PROP_ID(PR_CONTAINER_CONTENTS),
        PROP_ID(PR_CONTAINER_HIERARCHY),
        PROP_ID(PR_FOLDER_ASSOCIATED_CONTENTS),
        PROP_ID(PR_DEPTH),
    };
    return IsComputedEverywhere(id) || ids.contains(id);
}

std::vector<NodeId> IdsOf(const std::vector<Node>& nodes)
{
    std::vector<NodeId> ids(nodes.size());
    std::transform(nodes.begin(), nodes.end(), ids.begin(), [](const Node& node) { return node.id; });
    return ids;
}

class Folder final : public PropertyObject<IMAPIFolder, &IID_IMAPIFolder, &IID_IMAPIContainer, &IID_IMAPIProp>
{
public:
    Folder(std::shared_ptr<Session> session, NodeId node, bool modifiable)
        : PropertyObject(std::move(session)),
          m_id(node),
          m_modifiable(modifiable)
    {
    }

    MAPI_IMAPICONTAINER_METHODS(override)
    MAPI_IMAPIFOLDER_METHODS(override)

protected:
    std::shared_ptr<const PropertySource> Properties() override;
    bool Modifiable() override { return m_modifiable; }
    SCODE Set(const PropValue& value) override;
    SCODE Remove(ULONG tag) override;
    void Flush() override;
    HRESULT Save(ULONG) override
    {
        RequireAlive();
        return S_OK;
    }
    std::pair<LPCIID, IUnknown*> Self() override { return {&IID_IMAPIFolder, static_cast<IMAPIFolder*>(this)}; }
    void RequireAlive() override { Current(); }
    ComPtr<IUnknown> OpenObject(ULONG tag, REFIID iid, ULONG options, ULONG flags) override;

private:
    std::shared_ptr<StoreCore> Core() const { return m_session->Core(); }
    Node Current() const;
    HRESULT GiveTable(ULONG flags, ULONG known, LPMAPITABLE* table, const std::function<ComPtr<IMAPITable>()>& make);
    // The folders and messages of a list.
    std::vector<Node> Named(const ENTRYLIST& list) const;
    // The messages of a list, or all of this folder for a null one.
    std::vector<Node> Listed(LPENTRYLIST list) const;
    // The folder of this store that a destination object is, or nothing.
    std::optional<NodeId> OwnFolder(LPCIID iid, LPVOID object) const;
    Node RequireSubFolder(ULONG size, LPENTRYID entryId) const;
    // The folders of a list that is to be searched.
    std::vector<NodeId> Searched(const ENTRYLIST& list) const;
    // Throws unless the folder is a search folder of the kind that can be told what to search for.
    void RequireCreatedSearch() const;

    NodeId m_id;
    bool m_modifiable;
    PropertyChanges m_changes;
};

Node Folder::Current() const
{
    const auto node = Core()->Find(m_id);
    if (!node)
        Fail(MAPI_E_OBJECT_DELETED, L"The folder has been deleted");
    return *node;
}

std::shared_ptr<const PropertySource> Folder::Properties()
{
    auto properties = FolderProperties(m_session, Current());
    properties->Put(PropValue::Long(PR_ACCESS_LEVEL, m_modifiable ? MAPI_MODIFY : 0));
    return properties;
}

SCODE Folder::Set(const PropValue& value)
{
    if (IsComputedOfFolders(value.Id()))
        return MAPI_E_COMPUTED;
    if (value.Id() == PROP_ID(PR_DISPLAY_NAME))
    {
        const auto other = Core()->FindSubFolder(Current().parent, value.AsText());
        if (value.AsText().empty() || (other && *other != m_id))
            return value.AsText().empty() ? MAPI_E_INVALID_PARAMETER : MAPI_E_COLLISION;
    }
    m_changes.Put(value);
    return S_OK;
}

SCODE Folder::Remove(ULONG tag)
{
    if (IsComputedOfFolders(PROP_ID(tag)) || PROP_ID(tag) == PROP_ID(PR_DISPLAY_NAME))
        return MAPI_E_COMPUTED;
    if (!Core()->FolderProperties(m_id).Find(PROP_ID(tag)))
        return MAPI_E_NOT_FOUND;
    m_changes.Remove(PROP_ID(tag));
    return S_OK;
}

void Folder::Flush()
{
    if (m_changes.Empty())
        return;
    PropertyChanges changes;
    std::swap(changes, m_changes);
    Core()->ChangeFolder(m_id, changes);
    m_session->Notify(fnevObjectModified, Current());
}

ComPtr<IUnknown> Folder::OpenObject(ULONG tag, REFIID iid, ULONG options, ULONG)
{
    const ULONG id = PROP_ID(tag);
    if (id != PROP_ID(PR_CONTAINER_CONTENTS) && id != PROP_ID(PR_CONTAINER_HIERARCHY) &&
        id != PROP_ID(PR_FOLDER_ASSOCIATED_CONTENTS))
    {
        return {};
    }
    RequireInterface(&iid, {&IID_IMAPITable});
    if (id == PROP_ID(PR_CONTAINER_HIERARCHY))
        return MakeHierarchyTable(m_session, m_id, options);
    return MakeContentsTable(m_session, m_id, id == PROP_ID(PR_FOLDER_ASSOCIATED_CONTENTS), options);
}

std::vector<Node> Folder::Named(const ENTRYLIST& list) const
{
    if (list.cValues != 0)
        Testbed::Require(list.lpbin);
    std::vector<Node> nodes;
    nodes.reserve(list.cValues);
    for (ULONG index = 0; index < list.cValues; ++index)
        nodes.push_back(m_session->Require(list.lpbin[index].cb, reinterpret_cast<LPENTRYID>(list.lpbin[index].lpb)));
    return nodes;
}

std::vector<Node> Folder::Listed(LPENTRYLIST list) const
{
    std::vector<Node> nodes;
    if (!list)
    {
        for (const NodeId id : Core()->Messages(m_id, false))
            if (const auto node = Core()->Find(id))
                nodes.push_back(*node);
        return nodes;
    }
    for (const Node& node : Named(*list))
    {
        if (IsFolder(node.kind))
            Fail(MAPI_E_INVALID_ENTRYID, L"The list of messages names a folder");
        nodes.push_back(node);
    }
    return nodes;
}

std::optional<NodeId> Folder::OwnFolder(LPCIID iid, LPVOID object) const
{
    // Every interface that a destination can be passed as has IUnknown's methods first.
    const ComPtr<IUnknown> unknown(static_cast<IUnknown*>(object));
    if (iid && !IsEqualIID(*iid, IID_IMAPIFolder) && !IsEqualIID(*iid, IID_IMAPIContainer) &&
        !IsEqualIID(*iid, IID_IMAPIProp) && !IsEqualIID(*iid, IID_IUnknown))
    {
        return std::nullopt;
    }
    const ComPtr<IMAPIFolder> folder = unknown.As<IMAPIFolder>(IID_IMAPIFolder);
    if (!folder)
        return std::nullopt;
    SizedSPropTagArray(2, tags) = {2, {PR_ENTRYID, PR_ACCESS_LEVEL}};
    ULONG count = 0;
    MapiBlock<SPropValue> values(m_session->Memory());
    if (FAILED(folder->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, values.Put())) || count != 2 ||
        values->ulPropTag != PR_ENTRYID)
    {
        return std::nullopt;
    }
    if (values[1].ulPropTag == PR_ACCESS_LEVEL && (values[1].Value.l & MAPI_MODIFY) == 0)
        Fail(MAPI_E_NO_ACCESS, L"The destination is not open for writing");
    const auto id = m_session->NodeOf(values->Value.bin.cb, reinterpret_cast<LPENTRYID>(values->Value.bin.lpb));
    const auto node = id ? Core()->Find(*id) : std::nullopt;
    return node && node->kind == NodeKind::Folder ? id : std::nullopt;
}

Node Folder::RequireSubFolder(ULONG size, LPENTRYID entryId) const
{
    const Node node = m_session->Require(size, entryId);
    if (!IsFolder(node.kind) || node.parent != m_id || node.id == m_id)
        Fail(MAPI_E_NOT_FOUND, L"The folder has no such sub-folder");
    return node;
}

std::vector<NodeId> Folder::Searched(const ENTRYLIST& list) const
{
    std::vector<NodeId> folders;
    for (const Node& node : Named(list))
    {
        if (node.kind != NodeKind::Folder)
            Fail(MAPI_E_INVALID_ENTRYID, L"Only folders that hold messages of their own can be searched");
        folders.push_back(node.id);
    }
    return folders;
}

void Folder::RequireCreatedSearch() const
{
    if (Current().kind != NodeKind::SearchFolder)
        Fail(MAPI_E_NO_SUPPORT, L"The folder is not a search folder");
    // What those of a PST file search for is not read.
    if (!IsCreated(m_id))
        Fail(MAPI_E_NOT_INITIALIZED, L"The search folder came with the file");
}

HRESULT Folder::GiveTable(ULONG flags, ULONG known, LPMAPITABLE* table, const std::function<ComPtr<IMAPITable>()>& make)
{
    return Run(
        [&]() -> HRESULT
        {
            Testbed::Require(table);
            if ((flags & softDeletes) != 0)
                return MAPI_E_NO_SUPPORT;
            RequireFlags(flags, MAPI_UNICODE | MAPI_DEFERRED_ERRORS | known);
            RequireAlive();
            *table = make().Detach();
            return S_OK;
        });
}

STDMETHODIMP Folder::GetContentsTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return GiveTable(ulFlags, MAPI_ASSOCIATED, lppTable,
                     [&] { return MakeContentsTable(m_session, m_id, (ulFlags & MAPI_ASSOCIATED) != 0, ulFlags); });
}

STDMETHODIMP Folder::GetHierarchyTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return GiveTable(ulFlags, CONVENIENT_DEPTH, lppTable, [&] { return MakeHierarchyTable(m_session, m_id, ulFlags); });
}

STDMETHODIMP Folder::OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                               ULONG* lpulObjType, LPUNKNOWN* lppUnk)
{
    return Run([&]
               { return OpenStoreEntry(m_session, cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType, lppUnk); });
}

STDMETHODIMP Folder::SetSearchCriteria(LPSRestriction lpRestriction, LPENTRYLIST lpContainerList, ULONG ulSearchFlags)
{
    return Run(
        [&]() -> HRESULT
        {
            constexpr ULONG nonContentIndexed = 0x00020000;
            RequireFlags(ulSearchFlags, STOP_SEARCH | RESTART_SEARCH | RECURSIVE_SEARCH | SHALLOW_SEARCH |
                                            FOREGROUND_SEARCH | BACKGROUND_SEARCH | nonContentIndexed);
            const auto both = [&](ULONG one, ULONG other)
            { return (ulSearchFlags & one) != 0 && (ulSearchFlags & other) != 0; };
            if (both(STOP_SEARCH, RESTART_SEARCH) || both(RECURSIVE_SEARCH, SHALLOW_SEARCH) ||
                both(FOREGROUND_SEARCH, BACKGROUND_SEARCH))
            {
                return MAPI_E_INVALID_PARAMETER;
            }
            RequireModifiable();
            RequireCreatedSearch();
            const auto known = Core()->Criteria(m_id);
            if (!known && (!lpRestriction || !lpContainerList))
                Fail(MAPI_E_NOT_INITIALIZED, L"The folder has never been told what to search for, and where");
            SearchCriteria criteria = known.value_or(SearchCriteria());
            if (lpRestriction)
                criteria.restriction = Restriction::Copy(lpRestriction);
            if (lpContainerList)
                criteria.folders = Searched(*lpContainerList);
            if ((ulSearchFlags & (RECURSIVE_SEARCH | SHALLOW_SEARCH)) != 0)
                criteria.recursive = (ulSearchFlags & RECURSIVE_SEARCH) != 0;
            if ((ulSearchFlags & (FOREGROUND_SEARCH | BACKGROUND_SEARCH)) != 0)
                criteria.foreground = (ulSearchFlags & FOREGROUND_SEARCH) != 0;
            if (!known || (ulSearchFlags & (STOP_SEARCH | RESTART_SEARCH)) != 0)
                criteria.running = (ulSearchFlags & STOP_SEARCH) == 0;
            Core()->SetCriteria(m_id, criteria);
            m_session->Notify(fnevSearchComplete, Current());
            return S_OK;
        });
}

STDMETHODIMP Folder::GetSearchCriteria(ULONG ulFlags, LPSRestriction* lppRestriction, LPENTRYLIST* lppContainerList,
                                       ULONG* lpulSearchState)
{
    return Run(
        [&]() -> HRESULT
        {
            RequireFlags(ulFlags, MAPI_UNICODE);
            RequireCreatedSearch();
            const auto criteria = Core()->Criteria(m_id);
            if (!criteria)
                Fail(MAPI_E_NOT_INITIALIZED, L"The folder has never been told what to search for");
            const MapiMemory& memory = m_session->Memory();
            MapiBlock<SRestriction> restriction(memory);
            if (lppRestriction)
                restriction = MapiBlock<SRestriction>(memory, MakeRestriction(memory, criteria->restriction));
            MapiBlock<ENTRYLIST> list(memory);
            if (lppContainerList)
            {
                const size_t count = criteria->folders.size();
                list = MapiBlock<ENTRYLIST>(memory, static_cast<ENTRYLIST*>(memory.Allocate(sizeof(ENTRYLIST))));
                list->cValues = static_cast<ULONG>(count);
                list->lpbin = static_cast<SBinary*>(
                    memory.AllocateMore(std::max<size_t>(count, 1) * sizeof(SBinary), list.Get()));
                for (size_t index = 0; index < count; ++index)
                {
                    const Bytes entryId = m_session->EntryId(criteria->folders[index]);
                    auto* copy = static_cast<BYTE*>(memory.AllocateMore(entryId.size(), list.Get()));
                    std::copy(entryId.begin(), entryId.end(), copy);
                    list->lpbin[index] = {static_cast<ULONG>(entryId.size()), copy};
                }
            }
            if (lpulSearchState)
            {
                constexpr ULONG complete = 0x1000;
                *lpulSearchState = complete | (criteria->running ? SEARCH_RUNNING : 0) |
                                   (criteria->recursive ? SEARCH_RECURSIVE : 0) |
                                   (criteria->foreground ? SEARCH_FOREGROUND : 0);
            }
            if (lppRestriction)
                *lppRestriction = restriction.Detach();
            if (lppContainerList)
                *lppContainerList = list.Detach();
            return S_OK;
        });
}

STDMETHODIMP Folder::CreateMessage(LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage)
{
    return Run(
        [&]() -> HRESULT
        {
            if (!lppMessage)
                return MAPI_E_INVALID_PARAMETER;
            RequireFlags(ulFlags, MAPI_ASSOCIATED | MAPI_DEFERRED_ERRORS);
            RequireInterface(lpInterface, {&IID_IMessage, &IID_IMAPIProp, &IID_IUnknown});
            RequireModifiable();
            if (Current().kind == NodeKind::SearchFolder)
                Fail(MAPI_E_NO_ACCESS, L"A search folder holds no messages of its own");
            *lppMessage = MakeMessage(MessageState::Create(m_session, m_id, (ulFlags & MAPI_ASSOCIATED) != 0)).Detach();
            return S_OK;
        });
}

STDMETHODIMP Folder::CopyMessages(LPENTRYLIST lpMsgList, LPCIID lpInterface, LPVOID lpDestFolder, ULONG_PTR ulUIParam,
                                  LPMAPIPROGRESS lpProgress, ULONG ulFlags)
{
    return Guarded(m_lastError,
                   [&]() -> HRESULT
                   {
                       if (!lpMsgList || !lpDestFolder)
                           return MAPI_E_INVALID_PARAMETER;
                       RequireFlags(ulFlags, MESSAGE_MOVE | MESSAGE_DIALOG | MAPI_DECLINE_OK);
                       const auto destination = OwnFolder(lpInterface, lpDestFolder);
                       if ((ulFlags & MESSAGE_MOVE) == 0 || !destination)
                       {
                           return m_session->Support()->CopyMessages(&IID_IMAPIFolder, static_cast<IMAPIFolder*>(this),
                                                                     lpMsgList, lpInterface, lpDestFolder, ulUIParam,
                                                                     lpProgress, ulFlags & ~MAPI_DECLINE_OK);
                       }
                       RequireModifiable();
                       const std::vector<Node> nodes = Listed(lpMsgList);
                       Core()->MoveMessages(IdsOf(nodes), *destination);
                       for (const Node& node : nodes)
                           m_session->Notify(fnevObjectMoved, {node.id, node.kind, *destination}, &node);
                       return S_OK;
                   });
}

STDMETHODIMP Folder::DeleteMessages(LPENTRYLIST lpMsgList, ULONG_PTR, LPMAPIPROGRESS, ULONG ulFlags)
{
    return Run(
        [&]() -> HRESULT
        {
            if (!lpMsgList)
                return MAPI_E_INVALID_PARAMETER;
            constexpr ULONG hardDelete = 0x10;
            RequireFlags(ulFlags, MESSAGE_DIALOG | hardDelete);
            RequireModifiable();
            const std::vector<Node> nodes = Listed(lpMsgList);
            Core()->DeleteMessages(IdsOf(nodes));
            for (const Node& node : nodes)
                m_session->Notify(fnevObjectDeleted, node);
            return S_OK;
        });
}

STDMETHODIMP Folder::CreateFolder(ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment,
                                  LPCIID lpInterface, ULONG ulFlags, LPMAPIFOLDER* lppFolder)
{
    return Run(
        [&]() -> HRESULT
        {
            if (!lppFolder || !lpszFolderName)
                return MAPI_E_INVALID_PARAMETER;
            RequireFlags(ulFlags, MAPI_UNICODE | OPEN_IF_EXISTS | MAPI_DEFERRED_ERRORS);
            RequireInterface(lpInterface, {&IID_IMAPIFolder, &IID_IMAPIContainer, &IID_IMAPIProp, &IID_IUnknown});
            const std::wstring name = TextArgument(lpszFolderName, ulFlags);
            if ((ulFolderType != FOLDER_GENERIC && ulFolderType != FOLDER_SEARCH) || name.empty())
                return MAPI_E_INVALID_PARAMETER;
            RequireModifiable();
            if (const auto existing = Core()->FindSubFolder(m_id, name))
            {
                if ((ulFlags & OPEN_IF_EXISTS) == 0)
                    Fail(MAPI_E_COLLISION, L"The folder has a sub-folder of that name already");
                *lppFolder = MakeFolder(m_session, *existing, true).Detach();
                return S_OK;
            }
            if (Current().kind == NodeKind::SearchFolder)
                Fail(MAPI_E_NO_ACCESS, L"A search folder has no sub-folders");
            PropertyBag properties;
            properties.Put(PropValue::String(PR_DISPLAY_NAME_W, name));
            properties.Put(PropValue::String(PR_CONTAINER_CLASS_W, L"IPF.Note"));
            properties.Put(Now(PR_CREATION_TIME));
            properties.Put(Now(PR_LAST_MODIFICATION_TIME));
            if (const std::wstring comment = TextArgument(lpszFolderComment, ulFlags); !comment.empty())
                properties.Put(PropValue::String(PR_COMMENT_W, comment));
            const NodeKind kind = ulFolderType == FOLDER_SEARCH ? NodeKind::SearchFolder : NodeKind::Folder;
            const NodeId created = Core()->CreateFolder(m_id, kind, properties);
            *lppFolder = MakeFolder(m_session, created, true).Detach();
            m_session->Notify(fnevObjectCreated, {created, kind, m_id});
            return S_OK;
        });
}

STDMETHODIMP Folder::CopyFolder(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, LPVOID lpDestFolder,
                                LPTSTR lpszNewFolderName, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags)
{
    return Guarded(
        m_lastError,
        [&]() -> HRESULT
        {
            if (!lpDestFolder || !lpEntryID)
                return MAPI_E_INVALID_PARAMETER;
            RequireFlags(ulFlags, FOLDER_MOVE | COPY_SUBFOLDERS | FOLDER_DIALOG | MAPI_UNICODE | MAPI_DECLINE_OK);
            const auto destination = OwnFolder(lpInterface, lpDestFolder);
            if ((ulFlags & FOLDER_MOVE) == 0 || !destination)
            {
                return m_session->Support()->CopyFolder(&IID_IMAPIFolder, static_cast<IMAPIFolder*>(this), cbEntryID,
                                                        lpEntryID, lpInterface, lpDestFolder, lpszNewFolderName,
                                                        ulUIParam, lpProgress, ulFlags & ~MAPI_DECLINE_OK);
            }
            RequireModifiable();
            const Node node = RequireSubFolder(cbEntryID, lpEntryID);
            std::wstring name = TextArgument(lpszNewFolderName, ulFlags);
            PropertyChanges changes;
            if (!name.empty())
                changes.Put(PropValue::String(PR_DISPLAY_NAME_W, name));
            else
                name = TextOf(Core()->FolderProperties(node.id), PR_DISPLAY_NAME);
            const auto other = Core()->FindSubFolder(*destination, name);
            if (other && *other != node.id)
                Fail(MAPI_E_COLLISION, L"The destination has a sub-folder of that name already");
            Core()->MoveFolder(node.id, *destination, changes);
            m_session->Notify(fnevObjectMoved, {node.id, node.kind, *destination}, &node);
            return S_OK;
        });
}

STDMETHODIMP Folder::DeleteFolder(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG_PTR, LPMAPIPROGRESS, ULONG ulFlags)
{
    return Run(
        [&]() -> HRESULT
        {
            constexpr ULONG hardDelete = 0x10;
            RequireFlags(ulFlags, DEL_MESSAGES | DEL_FOLDERS | FOLDER_DIALOG | hardDelete);
            RequireModifiable();
            const Node node = RequireSubFolder(cbEntryID, lpEntryID);
            const PropertyBag store = Core()->StoreProperties();
            for (const ULONG tag : {PR_IPM_SUBTREE_ENTRYID, PR_IPM_WASTEBASKET_ENTRYID, PR_FINDER_ENTRYID})
                if (BytesOf(store, tag) == m_session->EntryId(node.id))
                    Fail(MAPI_E_NO_ACCESS, L"A store's special folders cannot be deleted");
            if ((ulFlags & DEL_MESSAGES) == 0 && node.kind == NodeKind::Folder &&
                (!Core()->Messages(node.id, false).empty() || !Core()->Messages(node.id, true).empty()))
            {
                return MAPI_E_HAS_MESSAGES;
            }
            if ((ulFlags & DEL_FOLDERS) == 0 && !Core()->SubFolders(node.id).empty())
                return MAPI_E_HAS_FOLDERS;
            Core()->DeleteFolder(node.id);
            m_session->Notify(fnevObjectDeleted, node);
            return S_OK;
        });
}

STDMETHODIMP Folder::SetReadFlags(LPENTRYLIST lpMsgList, ULONG_PTR, LPMAPIPROGRESS, ULONG ulFlags)
{
    return Run(
        [&]() -> HRESULT
        {
            constexpr ULONG generateReceiptOnly = 0x10;
            RequireFlags(ulFlags, SUPPRESS_RECEIPT | CLEAR_READ_FLAG | MAPI_DEFERRED_ERRORS | MESSAGE_DIALOG |
                                      generateReceiptOnly | CLEAR_RN_PENDING | CLEAR_NRN_PENDING);
            RequireModifiable();
            if ((ulFlags & (generateReceiptOnly | CLEAR_RN_PENDING | CLEAR_NRN_PENDING)) != 0)
                return S_OK;
            std::vector<std::pair<NodeId, PropertyChanges>> changes;
            std::vector<Node> changed;
            for (const Node& node : Listed(lpMsgList))
            {
                const LONG before = Core()->MessageLong(node, PR_MESSAGE_FLAGS);
                const LONG after =
                    (ulFlags & CLEAR_READ_FLAG) != 0 ? before & ~LONG(MSGFLAG_READ) : before | MSGFLAG_READ;
                if (before != after)
                {
                    PropertyChanges change;
                    change.Put(PropValue::Long(PR_MESSAGE_FLAGS, after));
                    changes.emplace_back(node.id, std::move(change));
                    changed.push_back(node);
                }
            }
            if (!changes.empty())
                Core()->ChangeMessages(changes);
            for (const Node& node : changed)
                m_session->Notify(fnevObjectModified, node);
            return S_OK;
        });
}

STDMETHODIMP Folder::GetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags, ULONG* lpulMessageStatus)
{
    return Run(
        [&]() -> HRESULT
        {
            if (!lpulMessageStatus)
                return MAPI_E_INVALID_PARAMETER;
            RequireFlags(ulFlags, 0);
            *lpulMessageStatus =
                static_cast<ULONG>(Core()->MessageLong(m_session->Require(cbEntryID, lpEntryID), PR_MSG_STATUS));
            return S_OK;
        });
}

STDMETHODIMP Folder::SetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulNewStatus, ULONG ulNewStatusMask,
                                      ULONG* lpulOldStatus)
{
    return Run(
        [&]() -> HRESULT
        {
            RequireModifiable();
            const Node node = m_session->Require(cbEntryID, lpEntryID);
            const auto before = static_cast<ULONG>(Core()->MessageLong(node, PR_MSG_STATUS));
            const ULONG after = (before & ~ulNewStatusMask) | (ulNewStatus & ulNewStatusMask);
            PropertyChanges change;
            change.Put(PropValue::Long(PR_MSG_STATUS, static_cast<LONG>(after)));
            Core()->ChangeMessages({{node.id, change}});
            if (lpulOldStatus)
                *lpulOldStatus = before;
            m_session->Notify(fnevObjectModified, node);
            return S_OK;
        });
}

STDMETHODIMP Folder::EmptyFolder(ULONG_PTR, LPMAPIPROGRESS, ULONG ulFlags)
{
    return Run(
        [&]() -> HRESULT
        {
            constexpr ULONG hardDelete = 0x10;
            RequireFlags(ulFlags, DEL_ASSOCIATED | FOLDER_DIALOG | hardDelete);
            RequireModifiable();
            if (Current().kind == NodeKind::SearchFolder)
                Fail(MAPI_E_NO_ACCESS, L"The messages of a search folder lie in other folders");
            std::vector<NodeId> messages = Core()->Messages(m_id, false);
            if ((ulFlags & DEL_ASSOCIATED) != 0)
            {
                const std::vector<NodeId> hidden = Core()->Messages(m_id, true);
                messages.insert(messages.end(), hidden.begin(), hidden.end());
            }
            Core()->DeleteMessages(messages);
            for (const NodeId folder : Core()->SubFolders(m_id))
                Core()->DeleteFolder(folder);
            m_session->Notify(fnevObjectModified, Current());
            return S_OK;
        });
}

NOT_OFFERED(Folder, SaveContentsSort, LPSSortOrderSet, ULONG);
} // namespace

std::shared_ptr<LayeredProperties> FolderProperties(const std::shared_ptr<Session>& session, const Node& folder)
{
    auto layered = std::make_shared<LayeredProperties>(
        std::make_shared<PropertyBag>(session->Core()->FolderProperties(folder.id)));
    PropertyBag& computed = layered->Computed();
    session->PutCommon(computed);
    const Bytes entryId = session->EntryId(folder.id);
    const bool writable = session->Writable();
    const bool generic = folder.kind == NodeKind::Folder;
    computed.Put(PropValue::Binary(PR_ENTRYID, entryId));
    computed.Put(PropValue::Binary(PR_RECORD_KEY, entryId));
    computed.Put(PropValue::Binary(PR_PARENT_ENTRYID, session->EntryId(folder.parent)));
    computed.Put(PropValue::Long(PR_OBJECT_TYPE, MAPI_FOLDER));
    const LONG inside = MAPI_ACCESS_CREATE_HIERARCHY | MAPI_ACCESS_CREATE_CONTENTS | MAPI_ACCESS_CREATE_ASSOCIATED;
    computed.Put(PropValue::Long(PR_ACCESS, MAPI_ACCESS_READ |
                                                (writable ? MAPI_ACCESS_MODIFY | MAPI_ACCESS_DELETE : 0) |
                                                (writable && generic ? inside : 0)));
    computed.Put(PropValue::Long(PR_ACCESS_LEVEL, writable ? MAPI_MODIFY : 0));
    computed.Put(PropValue::Long(Tags::rights, allRights));
    const LONG type = folder.parent == folder.id ? FOLDER_ROOT : generic ? FOLDER_GENERIC : FOLDER_SEARCH;
    computed.Put(PropValue::Long(PR_FOLDER_TYPE, type));
    computed.Put(PropValue::Long(PR_DISPLAY_TYPE, DT_FOLDER));
    layered->PutDefault(PropValue::Long(PR_STATUS, 0));
    layered->PutDefault(PropValue::String(PR_DISPLAY_NAME_W, L""));
    computed.Put(PropValue::Object(PR_CONTAINER_CONTENTS));
    computed.Put(PropValue::Object(PR_CONTAINER_HIERARCHY));
    computed.Put(PropValue::Object(PR_FOLDER_ASSOCIATED_CONTENTS));
    const auto count = [&](ULONG tag, LONG StoreCore::Counts::* member)
    {
        layered->PutLazy(tag, [session, id = folder.id, tag, member]
                         { return PropValue::Long(tag, session->Core()->Count(id).*member); });
    };
    count(PR_CONTENT_COUNT, &StoreCore::Counts::messages);
    count(PR_CONTENT_UNREAD, &StoreCore::Counts::unread);
    count(PR_ASSOC_CONTENT_COUNT, &StoreCore::Counts::associated);
    layered->PutLazy(PR_SUBFOLDERS, [session, id = folder.id]
                     { return PropValue::Boolean(PR_SUBFOLDERS, !session->Core()->SubFolders(id).empty()); });
    return layered;
}

ComPtr<IMAPIFolder> MakeFolder(std::shared_ptr<Session> session, NodeId node, bool modifiable)
{
    return MakeObject<Folder>(std::move(session), node, modifiable);
}
} // namespace Testbed::Pst
