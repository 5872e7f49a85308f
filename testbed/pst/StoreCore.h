// One store as its sessions see it: a source with the overlay's changes on top.
#pragma once

#include "testbed/pst/Overlay.h"

#include <map>
#include <unordered_map>
#include <unordered_set>

namespace Testbed::Pst
{
/// The store at one path. All sessions of the process on the same path share one. Thread-safe. Methods throw `Failure`;
/// what changes something gives MAPI_E_NO_ACCESS when the overlay cannot be written.
class StoreCore : public std::enable_shared_from_this<StoreCore>
{
public:
    /// Opens the store of the file at `path`, or a new one, kept wholly in the overlay, when there is no such file and
    /// its folder exists. Throws `Failure`: MAPI_E_NOT_FOUND when the folder does not exist or when the file of an
    /// overlay is gone, MAPI_E_NO_ACCESS, MAPI_E_CORRUPT_STORE when it is no PST file, or the overlay belongs to
    /// another.
    static std::shared_ptr<StoreCore> Open(const std::wstring& path);

    /// `path` as all parts of the provider compare it: full, with backslashes.
    static std::wstring FullPath(const std::wstring& path);

    StoreCore(std::wstring path, std::shared_ptr<const StoreSource> source, std::shared_ptr<Overlay> overlay);

    const std::wstring& Path() const noexcept { return m_path; }
    const Bytes& RecordKey() const noexcept { return m_recordKey; }
    bool Writable() const noexcept { return m_overlay->Writable(); }
    /// The file in which changes are kept.
    const std::wstring& OverlayPath() const noexcept { return m_overlay->Path(); }

    /// Takes up what other processes have changed.
    void Refresh();

    std::optional<Node> Find(NodeId id);
    std::vector<NodeId> SubFolders(NodeId folder);
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

    struct Counts
    {
        LONG messages = 0;
        LONG unread = 0;
        LONG associated = 0;
        LONG subFolders = 0;
    };
    Counts Count(NodeId folder);

    PropertyBag StoreProperties();
    void ChangeStore(const PropertyChanges& changes);

    PropertyBag FolderProperties(NodeId folder);
    void ChangeFolder(NodeId folder, const PropertyChanges& changes);
    NodeId CreateFolder(NodeId parent, const PropertyBag& properties);
    void MoveFolder(NodeId folder, NodeId parent, const PropertyChanges& changes);
    /// Removes a folder with all that is in it.
    void DeleteFolder(NodeId folder);

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
    /// Moves a message into another folder; it keeps its number.
    void MoveMessages(const std::vector<NodeId>& messages, NodeId folder);
    void DeleteMessages(const std::vector<NodeId>& messages);

    /// The identifiers of names, 0 for a name that the store does not know. With `create` unknown names get one.
    std::vector<ULONG> IdsOfNames(const std::vector<PropertyName>& names, bool create);
    std::optional<PropertyName> NameOfId(ULONG id);
    std::vector<NamedProperty> Names();

private:
    struct Change
    {
        NodeId parent = 0;
        NodeKind kind = NodeKind::Folder;
        bool created = false;
        bool removed = false;
    };

    // A transaction over an index that is up to date.
    class Write
    {
    public:
        explicit Write(StoreCore& core) : m_core(core), m_transaction(*core.m_overlay) { m_core.Reload(false); }
        ~Write();
        void Commit();

    private:
        StoreCore& m_core;
        Overlay::Transaction m_transaction;
        bool m_committed = false;
    };

    ULONG IdOfName(const PropertyName& name) const;
    void Reload(bool force);
    void LoadIndex();
    void Touch(NodeId folder);
    Node Require(NodeId id);
    void PutNode(const Node& node, bool created, bool removed);
    bool IsCreated(NodeId id) const;
    void StoreObject(NodeId id, const PropertyChanges& changes);
    void RemoveTree(NodeId folder);
    void RemoveMessage(const Node& message);
    std::vector<NodeId> Merge(const std::vector<NodeId>& own, NodeId folder, NodeKind kind, NodeKind otherKind);

    std::wstring m_path;
    std::shared_ptr<const StoreSource> m_source;
    std::shared_ptr<Overlay> m_overlay;
    Bytes m_recordKey;
    std::recursive_mutex m_lock;
    std::int64_t m_dataVersion = 0;
    // What the overlay says of nodes, by number and by the folder that they are in.
    std::unordered_map<NodeId, Change> m_changes;
    std::unordered_map<NodeId, std::set<NodeId>> m_children;
    // The nodes of which the overlay keeps properties.
    std::unordered_set<NodeId> m_stored;
    std::vector<NamedProperty> m_names;
    std::map<NodeId, std::uint64_t> m_generations;
    std::uint64_t m_generation = 1;
    std::map<NodeId, std::pair<std::uint64_t, Counts>> m_counts;
};
} // namespace Testbed::Pst
