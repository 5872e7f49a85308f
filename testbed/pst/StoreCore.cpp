// One store as its sessions see it: a source with the overlay's changes on top.
#include "testbed/pst/StoreCore.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/pst/MessageSummary.h"
#include "testbed/pst/NewSource.h"
#include "testbed/pst/PffSource.h"
#include "testbed/pst/SampleSource.h"
#include "testbed/pst/StoreIdentity.h"

#include <objbase.h>

#include <algorithm>
#include <cstring>
#include <cwctype>
#include <filesystem>

namespace Testbed::Pst
{
namespace
{
using FilePath = std::filesystem::path;

constexpr wchar_t overlaySuffix[] = L".overlay";
constexpr BYTE pstMagic[] = {'!', 'B', 'D', 'N'};
constexpr ULONG firstName = 0x8000;
constexpr ULONG lastName = 0xFFFE;
// What a search folder searches for, and what it found before it was stopped, in properties that clients do not see.
constexpr ULONG criteriaTag = PROP_TAG(PT_BINARY, 0x67FE);
constexpr ULONG foundTag = PROP_TAG(PT_BINARY, 0x67FB);
// More than a sample store's two lines need.
constexpr DWORD headSize = 4096;

struct FileCloser
{
    void operator()(void* file) const noexcept { CloseHandle(file); }
};

std::wstring Upper(std::wstring text)
{
    if (!text.empty())
        CharUpperBuffW(text.data(), static_cast<DWORD>(text.size()));
    return text;
}

// The first bytes of a file; nothing when there is no file.
std::optional<std::string> ReadHead(const std::wstring& path)
{
    const HANDLE opened =
        CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (opened == INVALID_HANDLE_VALUE)
    {
        const DWORD error = GetLastError();
        const std::wstring number = L" (Windows error " + std::to_wstring(error) + L")";
        switch (error)
        {
        case ERROR_FILE_NOT_FOUND:
            return std::nullopt;
        case ERROR_PATH_NOT_FOUND:
        case ERROR_INVALID_NAME:
        case ERROR_BAD_PATHNAME:
            Fail(MAPI_E_NOT_FOUND, L"The folder of \"" + path + L"\" does not exist" + number);
        case ERROR_ACCESS_DENIED:
        case ERROR_SHARING_VIOLATION:
            Fail(MAPI_E_NO_ACCESS, L"The file \"" + path + L"\" may not be read" + number);
        default:
            Fail(MAPI_E_DISK_ERROR, L"The file \"" + path + L"\" cannot be opened" + number);
        }
    }
    const std::unique_ptr<void, FileCloser> file(opened);
    std::string head(headSize, '\0');
    DWORD read = 0;
    if (!ReadFile(file.get(), head.data(), headSize, &read, nullptr))
        Fail(MAPI_E_DISK_ERROR, L"The file \"" + path + L"\" cannot be read");
    head.resize(read);
    return head;
}

MAPIUID NewRecordKey()
{
    GUID guid{};
    Check(CoCreateGuid(&guid), L"No new identifier could be made");
    MAPIUID uid{};
    std::memcpy(uid.ab, &guid, sizeof(uid.ab));
    return uid;
}

Mutex g_openLock;
std::map<std::wstring, std::weak_ptr<StoreCore>>& OpenStores()
{
    static std::map<std::wstring, std::weak_ptr<StoreCore>> stores;
    return stores;
}
} // namespace

std::shared_ptr<StoreCore> StoreCore::Open(const std::wstring& givenPath)
{
    const std::wstring path = FullPath(givenPath);
    const std::lock_guard lock(g_openLock);
    std::weak_ptr<StoreCore>& known = OpenStores()[Upper(path)];
    if (auto open = known.lock())
        return open;

    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        Fail(MAPI_E_CORRUPT_STORE, L"\"" + path + L"\" is a folder, not a PST file");
    const auto head = ReadHead(path);
    if (!head && GetFileAttributesW(FilePath(path).parent_path().c_str()) == INVALID_FILE_ATTRIBUTES)
        Fail(MAPI_E_NOT_FOUND, L"The folder of \"" + path + L"\" does not exist");

    auto overlay = std::make_shared<Overlay>(path + overlaySuffix);
    const auto identity = overlay->ReadIdentity();
    std::shared_ptr<const StoreSource> source;
    if (!head)
    {
        if (identity && !identity->isNewStore)
            Fail(MAPI_E_NOT_FOUND, L"The PST file \"" + path + L"\" is gone, though changes to it are kept beside it");
        MAPIUID recordKey{};
        if (identity)
            std::memcpy(recordKey.ab, identity->recordKey.data(), sizeof(recordKey.ab));
        else
            recordKey = NewRecordKey();
        source = MakeNewStore(recordKey, identity ? identity->displayName : FilePath(path).stem().wstring());
    }
    else if (head->size() >= sizeof(pstMagic) && std::memcmp(head->data(), pstMagic, sizeof(pstMagic)) == 0)
    {
        source = OpenPffFile(path);
    }
    else if (const auto sample = ParseSample(*head))
    {
        source = MakeSampleStore(*sample, FilePath(path).stem());
    }
    else
    {
        Fail(MAPI_E_CORRUPT_STORE, L"The file \"" + path + L"\" is not a PST file");
    }

    const Bytes recordKey = BytesOf(source->StoreProperties(), PR_RECORD_KEY);
    if (identity && (identity->recordKey != recordKey || identity->isNewStore == head.has_value()))
        Fail(MAPI_E_CORRUPT_STORE, L"The overlay file \"" + overlay->Path() + L"\" belongs to another store");
    overlay->SetIdentity({recordKey, !head, FilePath(path).stem()});
    if (!head && !identity)
    {
        // A new store exists from its first logon on, so that the next one finds the same store.
        Overlay::Transaction transaction(*overlay);
        transaction.Commit();
    }
    auto core = std::make_shared<StoreCore>(path, std::move(source), std::move(overlay));
    known = core;
    return core;
}

StoreCore::StoreCore(std::wstring path, std::shared_ptr<const StoreSource> source, std::shared_ptr<Overlay> overlay)
    : m_path(std::move(path)),
      m_source(std::move(source)),
      m_overlay(std::move(overlay)),
      m_recordKey(BytesOf(m_source->StoreProperties(), PR_RECORD_KEY)),
      m_names(m_source->NamedProperties())
{
    for (NamedProperty& name : m_overlay->ReadNames())
        m_names.push_back(std::move(name));
}

std::uint64_t StoreCore::Generation(NodeId folder)
{
    const std::lock_guard lock(m_lock);
    // What a search finds may change with any message.
    if (IsCreated(folder) && KindOf(folder) == NodeKind::SearchFolder)
        return m_generation;
    const auto found = m_generations.find(folder);
    return found == m_generations.end() ? 0 : found->second;
}

std::uint64_t StoreCore::Generation()
{
    const std::lock_guard lock(m_lock);
    return m_generation;
}

std::shared_ptr<void> StoreCore::Watch(Watcher changed)
{
    auto watcher = std::make_shared<Watcher>(std::move(changed));
    const std::lock_guard lock(m_watchLock);
    std::erase_if(m_watchers, [](const auto& known) { return known.expired(); });
    m_watchers.push_back(watcher);
    return watcher;
}

void StoreCore::Announce(const std::vector<NodeId>& nodes)
{
    std::vector<std::shared_ptr<Watcher>> told;
    {
        const std::lock_guard lock(m_watchLock);
        for (const auto& known : m_watchers)
            if (auto watcher = known.lock())
                told.push_back(std::move(watcher));
    }
    for (const auto& watcher : told)
        (*watcher)(nodes);
}

std::optional<Node> StoreCore::Find(NodeId id)
{
    const std::lock_guard lock(m_lock);
    if (const auto record = m_overlay->ReadNode(id))
        return record->removed ? std::nullopt : std::optional(record->node);
    return m_source->Find(id);
}

Node StoreCore::Require(NodeId id)
{
    const auto node = Find(id);
    if (!node)
        Fail(MAPI_E_OBJECT_DELETED, L"The object has been deleted");
    return *node;
}

// What the overlay is to say of a node, as it is before a change.
Overlay::NodeRecord StoreCore::RequireRecord(NodeId id)
{
    auto record = m_overlay->ReadNode(id);
    if (!record)
    {
        if (const auto node = m_source->Find(id))
        {
            record.emplace();
            record->node = *node;
            record->origin = node->parent;
            if (node->kind == NodeKind::Message)
                record->wasUnread = (LongOf(m_source->MessageSummary(*node), PR_MESSAGE_FLAGS) & MSGFLAG_READ) == 0;
            record->unread = record->wasUnread;
        }
    }
    if (!record || record->removed)
        Fail(MAPI_E_OBJECT_DELETED, L"The object has been deleted");
    return *record;
}

std::vector<NodeId> StoreCore::Merge(std::vector<NodeId> own, NodeId folder, NodeKind kind, NodeKind otherKind)
{
    if (KindOf(folder) == NodeKind::SearchFolder)
    {
        std::erase_if(own, [this](NodeId id) { return !Find(id); });
        return own;
    }
    if (!own.empty())
    {
        const std::vector<NodeId> gone = m_overlay->ReadGone(folder);
        std::erase_if(own, [&](NodeId id) { return std::binary_search(gone.begin(), gone.end(), id); });
    }
    const std::vector<NodeId> added = m_overlay->ReadChildren(folder, kind, otherKind);
    own.insert(own.end(), added.begin(), added.end());
    return own;
}

std::vector<NodeId> StoreCore::SubFolders(NodeId folder)
{
    const std::lock_guard lock(m_lock);
    std::vector<NodeId> own = IsCreated(folder) ? std::vector<NodeId>() : m_source->SubFolders(folder);
    return Merge(std::move(own), folder, NodeKind::Folder, NodeKind::SearchFolder);
}

std::vector<NodeId> StoreCore::Messages(NodeId folder, bool associated)
{
    const std::lock_guard lock(m_lock);
    const NodeKind kind = associated ? NodeKind::Associated : NodeKind::Message;
    if (!IsCreated(folder))
        return Merge(m_source->Messages(folder, associated), folder, kind, kind);
    if (KindOf(folder) == NodeKind::SearchFolder)
        return associated ? std::vector<NodeId>() : Search(folder).messages;
    return Merge({}, folder, kind, kind);
}

std::vector<std::pair<NodeId, int>> StoreCore::FoldersBelow(NodeId folder)
{
    const std::lock_guard lock(m_lock);
    std::vector<std::pair<NodeId, int>> found;
    const auto add = [&](const auto& self, NodeId parent, int depth) -> void
    {
        for (const NodeId child : SubFolders(parent))
        {
            found.emplace_back(child, depth);
            self(self, child, depth + 1);
        }
    };
    add(add, folder, 1);
    return found;
}

bool StoreCore::IsBelow(NodeId folder, NodeId ancestor)
{
    const std::lock_guard lock(m_lock);
    for (auto node = Find(folder); node; node = Find(node->parent))
    {
        if (node->id == ancestor)
            return true;
        if (node->parent == node->id)
            break;
    }
    return false;
}

std::optional<NodeId> StoreCore::FindSubFolder(NodeId parent, const std::wstring& name)
{
    const std::lock_guard lock(m_lock);
    const std::wstring wanted = Upper(name);
    for (const NodeId id : SubFolders(parent))
        if (Upper(TextOf(FolderProperties(id), PR_DISPLAY_NAME)) == wanted)
            return id;
    return std::nullopt;
}

StoreCore::Counts StoreCore::Count(NodeId folder)
{
    const std::lock_guard lock(m_lock);
    if (IsCreated(folder) && KindOf(folder) == NodeKind::SearchFolder)
    {
        const Found& found = Search(folder);
        return {static_cast<LONG>(found.messages.size()), found.unread, 0};
    }
    Counts counts;
    if (!IsCreated(folder))
    {
        const auto [known, added] = m_sourceCounts.try_emplace(folder);
        if (added)
        {
            known->second.messages = static_cast<LONG>(m_source->Messages(folder, false).size());
            known->second.associated = static_cast<LONG>(m_source->Messages(folder, true).size());
            known->second.unread = m_source->Unread(folder);
        }
        counts = known->second;
    }
    const Overlay::Counts more = m_overlay->ReadCounts(folder);
    counts.messages += static_cast<LONG>(more.messages);
    counts.associated += static_cast<LONG>(more.associated);
    counts.unread += static_cast<LONG>(more.unread);
    return counts;
}

PropertyBag StoreCore::StoreProperties()
{
    const std::lock_guard lock(m_lock);
    PropertyBag bag = m_source->StoreProperties();
    m_overlay->ReadProperties(Nodes::store).Apply(bag);
    return bag;
}

void StoreCore::ChangeStore(const PropertyChanges& changes)
{
    const std::lock_guard lock(m_lock);
    Overlay::Transaction transaction(*m_overlay);
    m_overlay->ChangeObject(Nodes::store, {&changes, nullptr, false});
    transaction.Commit();
    ++m_generation;
}

PropertyBag StoreCore::FolderProperties(NodeId folder)
{
    const std::lock_guard lock(m_lock);
    Require(folder);
    PropertyBag bag = IsCreated(folder) ? PropertyBag() : m_source->FolderProperties(folder);
    m_overlay->ReadProperties(folder).Apply(bag);
    bag.Erase(PROP_ID(criteriaTag));
    bag.Erase(PROP_ID(foundTag));
    return bag;
}

void StoreCore::ChangeFolder(NodeId folder, const PropertyChanges& changes)
{
    const std::lock_guard lock(m_lock);
    const Node node = Require(folder);
    Overlay::Transaction transaction(*m_overlay);
    m_overlay->ChangeObject(folder, {&changes, nullptr, false});
    transaction.Commit();
    Touch(node.parent);
}

NodeId StoreCore::CreateFolder(NodeId parent, NodeKind kind, const PropertyBag& properties)
{
    const std::lock_guard lock(m_lock);
    Require(parent);
    Overlay::Transaction transaction(*m_overlay);
    Overlay::NodeRecord record;
    record.node = {m_overlay->NewNode(kind), kind, parent};
    PropertyChanges changes;
    changes.Put(properties);
    m_overlay->AddObject(record.node.id, {}, {&changes, nullptr, false});
    m_overlay->WriteNode(record);
    transaction.Commit();
    Touch(parent);
    return record.node.id;
}

void StoreCore::MoveFolder(NodeId folder, NodeId parent, const PropertyChanges& changes)
{
    const std::lock_guard lock(m_lock);
    Overlay::NodeRecord record = RequireRecord(folder);
    Require(parent);
    if (IsBelow(parent, folder))
        Fail(MAPI_E_FOLDER_CYCLE, L"A folder cannot be moved into itself");
    const NodeId before = std::exchange(record.node.parent, parent);
    Overlay::Transaction transaction(*m_overlay);
    m_overlay->WriteNode(record);
    if (!changes.Empty())
        m_overlay->ChangeObject(folder, {&changes, nullptr, false});
    transaction.Commit();
    Touch(before);
    Touch(parent);
}

void StoreCore::RemoveNode(NodeId id)
{
    Overlay::NodeRecord record = RequireRecord(id);
    m_overlay->RemoveObject(id);
    record.removed = true;
    m_overlay->WriteNode(record);
    Touch(record.node.parent);
}

void StoreCore::RemoveTree(NodeId folder)
{
    if (Require(folder).kind == NodeKind::Folder)
    {
        for (const NodeId child : SubFolders(folder))
            RemoveTree(child);
        for (const bool associated : {false, true})
            for (const NodeId message : Messages(folder, associated))
                RemoveNode(message);
    }
    RemoveNode(folder);
}

void StoreCore::DeleteFolder(NodeId folder)
{
    const std::lock_guard lock(m_lock);
    Overlay::Transaction transaction(*m_overlay);
    RemoveTree(folder);
    transaction.Commit();
}

std::optional<SearchCriteria> StoreCore::Criteria(NodeId folder)
{
    const std::lock_guard lock(m_lock);
    const PropertyChanges stored = m_overlay->ReadProperties(folder);
    const PropValue* criteria = stored.Values().Find(PROP_ID(criteriaTag));
    return criteria ? std::optional(ReadCriteria(criteria->AsBytes())) : std::nullopt;
}

void StoreCore::SetCriteria(NodeId folder, const SearchCriteria& criteria)
{
    const std::lock_guard lock(m_lock);
    const Node node = Require(folder);
    PropertyChanges changes;
    changes.Put(PropValue::Binary(criteriaTag, WriteCriteria(criteria)));
    if (criteria.running)
    {
        changes.Remove(PROP_ID(foundTag));
    }
    else
    {
        const std::vector<NodeId>& messages = Search(folder).messages;
        changes.Put(PropValue::Binary(foundTag, messages.data(), messages.size() * sizeof(NodeId)));
    }
    Overlay::Transaction transaction(*m_overlay);
    m_overlay->ChangeObject(folder, {&changes, nullptr, false});
    transaction.Commit();
    m_found.erase(folder);
    Touch(node.parent);
}

const StoreCore::Found& StoreCore::Search(NodeId folder)
{
    Found& found = m_found[folder];
    if (found.generation == m_generation)
        return found;
    const PropertyChanges stored = m_overlay->ReadProperties(folder);
    const PropValue* kept = stored.Values().Find(PROP_ID(criteriaTag));
    found = {m_generation, {}, 0};
    if (!kept)
        return found;
    const SearchCriteria criteria = ReadCriteria(kept->AsBytes());
    std::vector<NodeId> candidates;
    if (criteria.running)
    {
        std::set<NodeId> places;
        for (const NodeId place : criteria.folders)
        {
            places.insert(place);
            if (criteria.recursive)
                for (const auto& [below, depth] : FoldersBelow(place))
                    places.insert(below);
        }
        for (const NodeId place : places)
        {
            const auto node = Find(place);
            if (!node || node->kind != NodeKind::Folder)
                continue;
            const std::vector<NodeId> messages = Messages(place, false);
            candidates.insert(candidates.end(), messages.begin(), messages.end());
        }
    }
    else if (const PropValue* ids = stored.Values().Find(PROP_ID(foundTag)))
    {
        candidates.resize(ids->AsBytes().size() / sizeof(NodeId));
        std::memcpy(candidates.data(), ids->AsBytes().data(), candidates.size() * sizeof(NodeId));
    }
    for (const NodeId id : candidates)
    {
        const auto node = Find(id);
        if (!node)
            continue;
        const auto row = MessageRow(*node);
        if (criteria.running && !criteria.restriction.Matches(*row))
            continue;
        found.messages.push_back(id);
        const auto flags = row->Load(PROP_ID(PR_MESSAGE_FLAGS));
        found.unread += flags && (flags->AsLong() & MSGFLAG_READ) != 0 ? 0 : 1;
    }
    return found;
}

std::shared_ptr<const MessageContent> StoreCore::OpenMessage(const Node& message)
{
    if (IsCreated(message.id))
        return OpenStoredMessage(m_overlay, message.id, nullptr);
    auto own = m_source->OpenMessage(message.id);
    return m_overlay->ReadObject(message.id) ? OpenStoredMessage(m_overlay, message.id, std::move(own)) : own;
}

std::shared_ptr<const PropertySource> StoreCore::MessageRow(const Node& message)
{
    return MakeMessageSummary(m_overlay, m_source, m_recordKey, message);
}

LONG StoreCore::MessageLong(const Node& message, ULONG tag)
{
    const auto value = MessageRow(message)->Load(PROP_ID(tag));
    return value ? value->AsLong() : 0;
}

bool StoreCore::IsUnread(const PropertyChanges& changes, bool before) const
{
    const PropValue* flags = changes.Values().Find(PROP_ID(PR_MESSAGE_FLAGS));
    return flags ? (flags->AsLong() & MSGFLAG_READ) == 0 : before;
}

NodeId StoreCore::CreateMessage(NodeId folder, bool associated, const MessageUpdate& update)
{
    const std::lock_guard lock(m_lock);
    Require(folder);
    const NodeKind kind = associated ? NodeKind::Associated : NodeKind::Message;
    Overlay::Transaction transaction(*m_overlay);
    Overlay::NodeRecord record;
    record.node = {m_overlay->NewNode(kind), kind, folder};
    record.unread = IsUnread(update.changes, true);
    m_overlay->WriteNode(record);
    AddMessage(*m_overlay, record.node.id, update);
    transaction.Commit();
    Touch(folder);
    return record.node.id;
}

void StoreCore::ChangeOne(NodeId message, const MessageUpdate& update)
{
    Overlay::NodeRecord record = RequireRecord(message);
    const bool unread = IsUnread(update.changes, record.unread);
    if (unread != record.unread)
    {
        record.unread = unread;
        m_overlay->WriteNode(record);
    }
    Pst::ChangeMessage(*m_overlay, message, update);
    Touch(record.node.parent);
}

void StoreCore::ChangeMessage(NodeId message, const MessageUpdate& update)
{
    const std::lock_guard lock(m_lock);
    Overlay::Transaction transaction(*m_overlay);
    ChangeOne(message, update);
    transaction.Commit();
}

void StoreCore::ChangeMessages(const std::vector<std::pair<NodeId, PropertyChanges>>& changes)
{
    const std::lock_guard lock(m_lock);
    Overlay::Transaction transaction(*m_overlay);
    for (const auto& [message, change] : changes)
        ChangeOne(message, {change, std::nullopt, std::nullopt});
    transaction.Commit();
}

void StoreCore::MoveMessages(const std::vector<NodeId>& messages, NodeId folder)
{
    const std::lock_guard lock(m_lock);
    Require(folder);
    Overlay::Transaction transaction(*m_overlay);
    for (const NodeId message : messages)
    {
        Overlay::NodeRecord record = RequireRecord(message);
        Touch(std::exchange(record.node.parent, folder));
        m_overlay->WriteNode(record);
    }
    transaction.Commit();
    Touch(folder);
}

void StoreCore::DeleteMessages(const std::vector<NodeId>& messages)
{
    const std::lock_guard lock(m_lock);
    Overlay::Transaction transaction(*m_overlay);
    for (const NodeId message : messages)
        RemoveNode(message);
    transaction.Commit();
}

ULONG StoreCore::IdOfName(const PropertyName& name) const
{
    const auto known = std::find_if(m_names.begin(), m_names.end(),
                                    [&](const NamedProperty& property) { return property.name == name; });
    return known == m_names.end() ? 0 : known->id;
}

std::vector<ULONG> StoreCore::IdsOfNames(const std::vector<PropertyName>& names, bool create)
{
    const std::lock_guard lock(m_lock);
    std::vector<ULONG> ids;
    ids.reserve(names.size());
    for (const PropertyName& name : names)
        ids.push_back(IdOfName(name));
    if (!create || std::find(ids.begin(), ids.end(), 0u) == ids.end())
        return ids;
    Overlay::Transaction transaction(*m_overlay);
    ids.clear();
    std::vector<NamedProperty> added;
    ULONG next = firstName;
    for (const NamedProperty& known : m_names)
        next = std::max(next, known.id + 1);
    for (const PropertyName& name : names)
    {
        ULONG id = IdOfName(name);
        if (id == 0)
        {
            if (next > lastName)
                Fail(MAPI_E_NOT_ENOUGH_RESOURCES, L"The store has no identifiers left for further named properties");
            const auto twice = std::find_if(added.begin(), added.end(),
                                            [&](const NamedProperty& property) { return property.name == name; });
            id = twice == added.end() ? next++ : twice->id;
            if (twice == added.end())
            {
                m_overlay->WriteName({id, name});
                added.push_back({id, name});
            }
        }
        ids.push_back(id);
    }
    transaction.Commit();
    m_names.insert(m_names.end(), added.begin(), added.end());
    return ids;
}

std::optional<PropertyName> StoreCore::NameOfId(ULONG id)
{
    const std::lock_guard lock(m_lock);
    const auto known =
        std::find_if(m_names.begin(), m_names.end(), [&](const NamedProperty& property) { return property.id == id; });
    return known == m_names.end() ? std::nullopt : std::optional<PropertyName>(known->name);
}

std::vector<NamedProperty> StoreCore::Names()
{
    const std::lock_guard lock(m_lock);
    return m_names;
}
} // namespace Testbed::Pst
