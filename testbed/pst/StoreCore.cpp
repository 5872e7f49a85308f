// One store as its sessions see it: a source with the overlay's changes on top.
#include "testbed/pst/StoreCore.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"
#include "testbed/pst/NewSource.h"
#include "testbed/pst/PffSource.h"
#include "testbed/pst/SampleSource.h"

#include <objbase.h>

#include <algorithm>
#include <cstring>
#include <cwctype>

namespace Testbed::Pst
{
namespace
{
constexpr wchar_t overlaySuffix[] = L".overlay";
constexpr BYTE pstMagic[] = {'!', 'B', 'D', 'N'};
constexpr ULONG firstName = 0x8000;
constexpr ULONG lastName = 0xFFFE;
// More than a sample store's two lines need.
constexpr DWORD headSize = 4096;

class FileHandle
{
public:
    explicit FileHandle(HANDLE handle) noexcept : m_handle(handle) {}
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    ~FileHandle()
    {
        if (m_handle != INVALID_HANDLE_VALUE)
            CloseHandle(m_handle);
    }
    HANDLE Get() const noexcept { return m_handle; }

private:
    HANDLE m_handle;
};

std::wstring FolderOf(const std::wstring& path)
{
    const size_t end = path.rfind(L'\\');
    return end == std::wstring::npos ? L"." : path.substr(0, end + 1);
}

std::wstring StemOf(const std::wstring& path)
{
    const size_t begin = path.rfind(L'\\') + 1;
    const size_t end = path.rfind(L'.');
    return path.substr(begin, end == std::wstring::npos || end <= begin ? std::wstring::npos : end - begin);
}

std::wstring Upper(std::wstring text)
{
    if (!text.empty())
        CharUpperBuffW(text.data(), static_cast<DWORD>(text.size()));
    return text;
}

// The first bytes of a file; nothing when there is no file.
std::optional<std::string> ReadHead(const std::wstring& path)
{
    const FileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                      FILE_ATTRIBUTE_NORMAL, nullptr));
    if (file.Get() == INVALID_HANDLE_VALUE)
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
    std::string head(headSize, '\0');
    DWORD read = 0;
    if (!ReadFile(file.Get(), head.data(), headSize, &read, nullptr))
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

// The row of a message: what its folder's table knows, with the changes of the overlay (null when it has none), and
// only for what neither knows the message itself.
class MessageRowSource : public PropertySource
{
public:
    MessageRowSource(std::shared_ptr<Overlay> overlay, std::shared_ptr<const StoreSource> source, const Node& node,
                     bool created)
        : m_overlay(std::move(overlay)),
          m_source(std::move(source)),
          m_node(node),
          m_created(created)
    {
        if (!created)
            m_bag = m_source->MessageSummary(node);
        if (!m_overlay)
            return;
        Overlay::Summary summary = m_overlay->ReadSummary(node.id);
        summary.changes.Apply(m_bag);
        m_removed = summary.changes.Removed();
        m_large = std::move(summary.large);
    }

    std::optional<Description> Describe(ULONG id) const override
    {
        if (const Description* large = FindLarge(id))
            return *large;
        if (auto known = m_bag.Describe(id))
            return known;
        return MayHaveMore(id) ? Whole().Describe(id) : std::nullopt;
    }

    std::optional<PropValue> Load(ULONG id) const override
    {
        if (FindLarge(id))
            return m_overlay->ReadLarge(m_node.id, id);
        if (auto known = m_bag.Load(id))
            return known;
        return MayHaveMore(id) ? Whole().Load(id) : std::nullopt;
    }

    std::vector<ULONG> Tags() const override
    {
        std::vector<ULONG> tags = m_bag.Tags();
        for (const Description& large : m_large)
            tags.push_back(large.tag);
        return tags;
    }

private:
    const Description* FindLarge(ULONG id) const
    {
        const auto found = std::find_if(m_large.begin(), m_large.end(),
                                        [&](const Description& large) { return PROP_ID(large.tag) == id; });
        return found == m_large.end() ? nullptr : &*found;
    }

    bool MayHaveMore(ULONG id) const
    {
        return !m_created && !m_removed.contains(id) && !m_source->SummaryCovers(m_node, id);
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
    Node m_node;
    bool m_created;
    PropertyBag m_bag;
    std::set<ULONG> m_removed;
    std::vector<Description> m_large;
    mutable std::mutex m_lock;
    mutable std::optional<PropertyBag> m_whole;
};

std::mutex g_openLock;
std::map<std::wstring, std::weak_ptr<StoreCore>>& OpenStores()
{
    static std::map<std::wstring, std::weak_ptr<StoreCore>> stores;
    return stores;
}
} // namespace

std::wstring StoreCore::FullPath(const std::wstring& path)
{
    std::wstring cleaned = path;
    std::replace(cleaned.begin(), cleaned.end(), L'/', L'\\');
    const DWORD size = GetFullPathNameW(cleaned.c_str(), 0, nullptr, nullptr);
    if (size == 0)
        return cleaned;
    std::wstring full(size, L'\0');
    full.resize(GetFullPathNameW(cleaned.c_str(), size, full.data(), nullptr));
    return full;
}

std::shared_ptr<StoreCore> StoreCore::Open(const std::wstring& givenPath)
{
    const std::wstring path = FullPath(givenPath);
    const std::lock_guard lock(g_openLock);
    std::weak_ptr<StoreCore>& known = OpenStores()[Upper(path)];
    if (auto open = known.lock())
    {
        open->Refresh();
        return open;
    }

    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        Fail(MAPI_E_CORRUPT_STORE, L"\"" + path + L"\" is a folder, not a PST file");
    const auto head = ReadHead(path);
    if (!head && GetFileAttributesW(FolderOf(path).c_str()) == INVALID_FILE_ATTRIBUTES)
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
        source = MakeNewStore(recordKey, identity ? identity->displayName : StemOf(path));
    }
    else if (head->size() >= sizeof(pstMagic) && std::memcmp(head->data(), pstMagic, sizeof(pstMagic)) == 0)
    {
        source = OpenPffFile(path);
    }
    else if (const auto sample = ParseSample(*head))
    {
        source = MakeSampleStore(*sample, StemOf(path));
    }
    else
    {
        Fail(MAPI_E_CORRUPT_STORE, L"The file \"" + path + L"\" is not a PST file");
    }

    const Bytes recordKey = BytesOf(source->StoreProperties(), PR_RECORD_KEY);
    if (identity && (identity->recordKey != recordKey || identity->isNewStore == head.has_value()))
        Fail(MAPI_E_CORRUPT_STORE, L"The overlay file \"" + overlay->Path() + L"\" belongs to another store");
    overlay->SetIdentity({recordKey, !head, StemOf(path)});
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
      m_recordKey(BytesOf(m_source->StoreProperties(), PR_RECORD_KEY))
{
    Reload(true);
}

StoreCore::Write::~Write()
{
    if (!m_committed)
    {
        // What was noted of the changes is not so; the next reader loads the index afresh.
        m_core.m_dataVersion = -1;
    }
}

void StoreCore::Write::Commit()
{
    m_transaction.Commit();
    m_committed = true;
}

void StoreCore::Reload(bool force)
{
    const std::int64_t version = m_overlay->DataVersion();
    if (force || version != m_dataVersion)
    {
        LoadIndex();
        m_dataVersion = version;
    }
}

void StoreCore::Refresh()
{
    const std::lock_guard lock(m_lock);
    Reload(false);
}

void StoreCore::LoadIndex()
{
    m_changes.clear();
    m_children.clear();
    m_stored.clear();
    for (const NodeId id : m_overlay->ReadStoredNodes())
        m_stored.insert(id);
    for (const Overlay::NodeRecord& record : m_overlay->ReadNodes())
    {
        m_changes[record.node.id] = {record.node.parent, record.node.kind, record.created, record.removed};
        if (!record.removed)
            m_children[record.node.parent].insert(record.node.id);
    }
    m_names = m_source->NamedProperties();
    for (NamedProperty& name : m_overlay->ReadNames())
        m_names.push_back(std::move(name));
    m_generations.clear();
    m_counts.clear();
    ++m_generation;
}

void StoreCore::Touch(NodeId folder)
{
    m_generations[folder] = ++m_generation;
}

std::uint64_t StoreCore::Generation(NodeId folder)
{
    const std::lock_guard lock(m_lock);
    // A folder that was not touched since the index was loaded has the number 0 of that time, whatever it was before.
    const auto found = m_generations.find(folder);
    return found == m_generations.end() ? static_cast<std::uint64_t>(m_dataVersion) << 32 : found->second;
}

std::uint64_t StoreCore::Generation()
{
    const std::lock_guard lock(m_lock);
    return m_generation;
}

std::optional<Node> StoreCore::Find(NodeId id)
{
    const std::lock_guard lock(m_lock);
    const auto change = m_changes.find(id);
    std::optional<Node> node;
    if (change == m_changes.end())
        node = m_source->Find(id);
    else if (!change->second.removed)
        node = Node{id, change->second.kind, change->second.parent};
    return node;
}

Node StoreCore::Require(NodeId id)
{
    const auto node = Find(id);
    if (!node)
        Fail(MAPI_E_OBJECT_DELETED, L"The object has been deleted");
    return *node;
}

std::vector<NodeId> StoreCore::Merge(const std::vector<NodeId>& own, NodeId folder, NodeKind kind, NodeKind otherKind)
{
    std::vector<NodeId> merged;
    merged.reserve(own.size());
    for (const NodeId id : own)
    {
        const auto change = m_changes.find(id);
        const bool search = KindOf(folder) == NodeKind::SearchFolder;
        if (change == m_changes.end() || (!change->second.removed && (search || change->second.parent == folder)))
            merged.push_back(id);
    }
    const auto children = m_children.find(folder);
    if (children == m_children.end())
        return merged;
    const std::set<NodeId> present(merged.begin(), merged.end());
    for (const NodeId id : children->second)
    {
        const Change& change = m_changes.at(id);
        if ((change.kind == kind || change.kind == otherKind) && !present.contains(id))
            merged.push_back(id);
    }
    return merged;
}

std::vector<NodeId> StoreCore::SubFolders(NodeId folder)
{
    const std::lock_guard lock(m_lock);
    return Merge(m_source->SubFolders(folder), folder, NodeKind::Folder, NodeKind::SearchFolder);
}

std::vector<NodeId> StoreCore::Messages(NodeId folder, bool associated)
{
    const std::lock_guard lock(m_lock);
    const NodeKind kind = associated ? NodeKind::Associated : NodeKind::Message;
    return Merge(m_source->Messages(folder, associated), folder, kind, kind);
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
    const std::uint64_t generation = Generation(folder);
    const auto known = m_counts.find(folder);
    if (known != m_counts.end() && known->second.first == generation)
        return known->second.second;
    Counts counts;
    const std::vector<NodeId> messages = Messages(folder, false);
    counts.messages = static_cast<LONG>(messages.size());
    counts.associated = static_cast<LONG>(Messages(folder, true).size());
    counts.subFolders = static_cast<LONG>(SubFolders(folder).size());
    for (const NodeId id : messages)
    {
        const auto node = Find(id);
        if (!node)
            continue;
        const bool own = !m_stored.contains(id) && !m_changes.contains(id);
        const bool read = own ? m_source->IsRead(*node) : (MessageLong(*node, PR_MESSAGE_FLAGS) & MSGFLAG_READ) != 0;
        counts.unread += read ? 0 : 1;
    }
    m_counts[folder] = {generation, counts};
    return counts;
}

PropertyBag StoreCore::StoreProperties()
{
    const std::lock_guard lock(m_lock);
    PropertyBag bag = m_source->StoreProperties();
    m_overlay->ReadObject(Nodes::store).Apply(bag);
    return bag;
}

void StoreCore::ChangeStore(const PropertyChanges& changes)
{
    const std::lock_guard lock(m_lock);
    Write write(*this);
    StoreObject(Nodes::store, changes);
    write.Commit();
    ++m_generation;
}

PropertyBag StoreCore::FolderProperties(NodeId folder)
{
    const std::lock_guard lock(m_lock);
    Require(folder);
    PropertyBag bag = IsCreated(folder) ? PropertyBag() : m_source->FolderProperties(folder);
    if (m_stored.contains(folder))
        m_overlay->ReadObject(folder).Apply(bag);
    return bag;
}

void StoreCore::ChangeFolder(NodeId folder, const PropertyChanges& changes)
{
    const std::lock_guard lock(m_lock);
    Write write(*this);
    const Node node = Require(folder);
    StoreObject(folder, changes);
    write.Commit();
    Touch(node.parent);
}

bool StoreCore::IsCreated(NodeId id) const
{
    const auto change = m_changes.find(id);
    return change != m_changes.end() && change->second.created;
}

void StoreCore::StoreObject(NodeId id, const PropertyChanges& changes)
{
    m_overlay->ChangeObject(id, changes);
    m_stored.insert(id);
}

void StoreCore::PutNode(const Node& node, bool created, bool removed)
{
    m_overlay->WriteNode({node, created, removed});
    const auto known = m_changes.find(node.id);
    if (known != m_changes.end())
        m_children[known->second.parent].erase(node.id);
    m_changes[node.id] = {node.parent, node.kind, created, removed};
    if (!removed)
        m_children[node.parent].insert(node.id);
}

NodeId StoreCore::CreateFolder(NodeId parent, const PropertyBag& properties)
{
    const std::lock_guard lock(m_lock);
    Write write(*this);
    Require(parent);
    const Node node{m_overlay->NewNode(NodeKind::Folder), NodeKind::Folder, parent};
    PropertyChanges changes;
    for (const auto& [id, value] : properties.Values())
        changes.Put(value);
    StoreObject(node.id, changes);
    PutNode(node, true, false);
    write.Commit();
    Touch(parent);
    return node.id;
}

void StoreCore::MoveFolder(NodeId folder, NodeId parent, const PropertyChanges& changes)
{
    const std::lock_guard lock(m_lock);
    Write write(*this);
    Node node = Require(folder);
    Require(parent);
    if (IsBelow(parent, folder))
        Fail(MAPI_E_FOLDER_CYCLE, L"A folder cannot be moved into itself");
    const NodeId before = node.parent;
    node.parent = parent;
    PutNode(node, IsCreated(folder), false);
    if (!changes.Empty())
        StoreObject(folder, changes);
    write.Commit();
    Touch(before);
    Touch(parent);
}

void StoreCore::RemoveMessage(const Node& message)
{
    const bool created = IsCreated(message.id);
    if (m_stored.erase(message.id) != 0)
        m_overlay->RemoveObject(message.id);
    PutNode(message, created, true);
    Touch(message.parent);
}

void StoreCore::RemoveTree(NodeId folder)
{
    const Node node = Require(folder);
    if (node.kind == NodeKind::Folder)
    {
        for (const NodeId child : SubFolders(folder))
            RemoveTree(child);
        for (const bool associated : {false, true})
            for (const NodeId message : Messages(folder, associated))
                RemoveMessage(Require(message));
    }
    RemoveMessage(node);
}

void StoreCore::DeleteFolder(NodeId folder)
{
    const std::lock_guard lock(m_lock);
    Write write(*this);
    RemoveTree(folder);
    write.Commit();
}

std::shared_ptr<const MessageContent> StoreCore::OpenMessage(const Node& message)
{
    const std::lock_guard lock(m_lock);
    if (IsCreated(message.id))
        return m_overlay->OpenMessage(message.id, nullptr);
    auto own = m_source->OpenMessage(message.id);
    return m_stored.contains(message.id) ? m_overlay->OpenMessage(message.id, std::move(own)) : own;
}

std::shared_ptr<const PropertySource> StoreCore::MessageRow(const Node& message)
{
    const std::lock_guard lock(m_lock);
    const bool created = IsCreated(message.id);
    // The source knows a message that was moved in the folder that it came from.
    Node own = message;
    if (!created && m_changes.contains(message.id))
    {
        if (const auto original = m_source->Find(message.id))
            own = *original;
    }
    return std::make_shared<MessageRowSource>(m_stored.contains(message.id) ? m_overlay : nullptr, m_source, own,
                                              created);
}

LONG StoreCore::MessageLong(const Node& message, ULONG tag)
{
    const auto value = MessageRow(message)->Load(PROP_ID(tag));
    return value ? value->AsLong() : 0;
}

NodeId StoreCore::CreateMessage(NodeId folder, bool associated, const MessageUpdate& update)
{
    const std::lock_guard lock(m_lock);
    Write write(*this);
    Require(folder);
    const NodeKind kind = associated ? NodeKind::Associated : NodeKind::Message;
    const Node node{m_overlay->NewNode(kind), kind, folder};
    m_overlay->ChangeMessage(node.id, update);
    m_stored.insert(node.id);
    PutNode(node, true, false);
    write.Commit();
    Touch(folder);
    return node.id;
}

void StoreCore::ChangeMessage(NodeId message, const MessageUpdate& update)
{
    const std::lock_guard lock(m_lock);
    Write write(*this);
    const Node node = Require(message);
    m_overlay->ChangeMessage(message, update);
    m_stored.insert(message);
    write.Commit();
    Touch(node.parent);
}

void StoreCore::ChangeMessages(const std::vector<std::pair<NodeId, PropertyChanges>>& changes)
{
    const std::lock_guard lock(m_lock);
    Write write(*this);
    std::set<NodeId> folders;
    for (const auto& [message, change] : changes)
    {
        folders.insert(Require(message).parent);
        StoreObject(message, change);
    }
    write.Commit();
    for (const NodeId folder : folders)
        Touch(folder);
}

void StoreCore::MoveMessages(const std::vector<NodeId>& messages, NodeId folder)
{
    const std::lock_guard lock(m_lock);
    Write write(*this);
    Require(folder);
    for (const NodeId message : messages)
    {
        Node node = Require(message);
        Touch(node.parent);
        node.parent = folder;
        PutNode(node, IsCreated(message), false);
    }
    write.Commit();
    Touch(folder);
}

void StoreCore::DeleteMessages(const std::vector<NodeId>& messages)
{
    const std::lock_guard lock(m_lock);
    Write write(*this);
    for (const NodeId message : messages)
        RemoveMessage(Require(message));
    write.Commit();
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
    Write write(*this);
    ids.clear();
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
            id = next++;
            m_overlay->WriteName({id, name});
            m_names.push_back({id, name});
        }
        ids.push_back(id);
    }
    write.Commit();
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
