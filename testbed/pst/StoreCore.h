// One store as its sessions see it: a source with the overlay's changes on top.
#pragma once

#include "common/Mutex.h"
#include "testbed/pst/SearchCriteria.h"
#include "testbed/pst/StoredMessage.h"

#include <map>

namespace Testbed::Pst
{
/// The store at one path. All sessions of the process on the same path share one; another process has to wait until it
/// is closed. What the overlay holds is read from there each time, so that a store of any size takes the same memory.
/// Thread-safe. Methods throw `Failure`; what changes something gives MAPI_E_NO_ACCESS when the overlay cannot be
/// written.
class StoreCore
{
public:
    /// Opens the store of the file at `path`, or a new one, kept wholly in the overlay, when there is no such file and
    /// its folder exists. Throws `Failure`: MAPI_E_NOT_FOUND when the folder does not exist or when the file of an
    /// overlay is gone, MAPI_E_NO_ACCESS, MAPI_E_BUSY when another process has it open, MAPI_E_CORRUPT_STORE when it is
    /// no PST file, or the overlay belongs to another.
    static std::shared_ptr<StoreCore> Open(const std::wstring& path);

    StoreCore(std::wstring path, std::shared_ptr<const StoreSource> source, std::shared_ptr<Overlay> overlay);

    const std::wstring& Path() const noexcept { return m_path; }
    const Bytes& RecordKey() const noexcept { return m_recordKey; }
    bool Writable() const noexcept { return m_overlay->Writable(); }
    /// The file in which changes are kept.
    const std::wstring& OverlayPath() const noexcept { return m_overlay->Path(); }

    std::optional<Node> Find(NodeId id);
    std::vector<NodeId> SubFolders(NodeId folder);
    /// The messages of a folder; of a search folder those that it found, wherever they lie.
    std::vector<NodeId> Messages(NodeId folder, bool associated);
    /// All folders below one, each before its own sub-folders, with the depth (1 for sub-folders of `folder`).
    std::vector<std::pair<NodeId, int>> FoldersBelow(NodeId folder);
    bool IsBelow(NodeId folder, NodeId ancestor);
    /// The sub-folder of that name (without regard to case), or nothing.
    std::optional<NodeId> FindSubFolder(NodeId parent, const std::wstring& name);

    /// Changes whenever something in the folder does: its sub-folders, its messages, or any of their properties.
    std::uint64_t Generation(NodeId folder);
    /// Changes whenever anything in the store does.
    std::uint64_t Generation();

    /// Has `changed` called with the folders and messages of each change that is announced, until the result is
    /// dropped, perhaps once more from another thread while it is.
    using Watcher = std::function<void(const std::vector<NodeId>&)>;
    std::shared_ptr<void> Watch(Watcher changed);
    /// Tells the watchers, once a change is made.
    void Announce(const std::vector<NodeId>& nodes);

    struct Counts
    {
        LONG messages = 0;
        LONG unread = 0;
        LONG associated = 0;
    };
    /// A folder's counts, without a look at any message.
    Counts Count(NodeId folder);

    PropertyBag StoreProperties();
    void ChangeStore(const PropertyChanges& changes);

    PropertyBag FolderProperties(NodeId folder);
    void ChangeFolder(NodeId folder, const PropertyChanges& changes);
    NodeId CreateFolder(NodeId parent, NodeKind kind, const PropertyBag& properties);
    void MoveFolder(NodeId folder, NodeId parent, const PropertyChanges& changes);
    /// Removes a folder with all that is in it.
    void DeleteFolder(NodeId folder);

    /// What a search folder searches for; nothing when it was never told, or came with the file.
    std::optional<SearchCriteria> Criteria(NodeId folder);
    /// Has a search folder search. A search that does not run keeps what it found until now.
    void SetCriteria(NodeId folder, const SearchCriteria& criteria);

    std::shared_ptr<const MessageContent> OpenMessage(const Node& message);
    /// The row that a table shows for a message; values are loaded as they are asked for.
    std::shared_ptr<const PropertySource> MessageRow(const Node& message);
    /// A small number of properties of a message, from its row.
    LONG MessageLong(const Node& message, ULONG tag);
    NodeId CreateMessage(NodeId folder, bool associated, const MessageUpdate& update);
    /// Throws MAPI_E_OBJECT_DELETED when the message is gone.
    void ChangeMessage(NodeId message, const MessageUpdate& update);
    /// Applies one property change to each of several messages, as one unit.
    void ChangeMessages(const std::vector<std::pair<NodeId, PropertyChanges>>& changes);
    /// Moves messages into another folder; they keep their numbers.
    void MoveMessages(const std::vector<NodeId>& messages, NodeId folder);
    void DeleteMessages(const std::vector<NodeId>& messages);

    /// The identifiers of names, 0 for a name that the store does not know. With `create` unknown names get one.
    std::vector<ULONG> IdsOfNames(const std::vector<PropertyName>& names, bool create);
    std::optional<PropertyName> NameOfId(ULONG id);
    std::vector<NamedProperty> Names();

private:
    struct Found
    {
        std::uint64_t generation = 0;
        std::vector<NodeId> messages;
        LONG unread = 0;
    };

    void Touch(NodeId folder) { m_generations[folder] = ++m_generation; }
    Node Require(NodeId id);
    Overlay::NodeRecord RequireRecord(NodeId id);
    std::vector<NodeId> Merge(std::vector<NodeId> own, NodeId folder, NodeKind kind, NodeKind otherKind);
    bool IsUnread(const PropertyChanges& changes, bool before) const;
    void ChangeOne(NodeId message, const MessageUpdate& update);
    void RemoveTree(NodeId folder);
    void RemoveNode(NodeId id);
    const Found& Search(NodeId folder);
    ULONG IdOfName(const PropertyName& name) const;

    std::wstring m_path;
    std::shared_ptr<const StoreSource> m_source;
    std::shared_ptr<Overlay> m_overlay;
    Bytes m_recordKey;
    RecursiveMutex m_lock;
    std::vector<NamedProperty> m_names;
    // Of folders alone, as are the next two.
    std::map<NodeId, std::uint64_t> m_generations;
    std::uint64_t m_generation = 1;
    // The source never changes, so neither do these.
    std::map<NodeId, Counts> m_sourceCounts;
    std::map<NodeId, Found> m_found;
    Mutex m_watchLock;
    std::vector<std::weak_ptr<Watcher>> m_watchers;
};
} // namespace Testbed::Pst
