// The contents and hierarchy tables of folders.
#include "testbed/pst/Store.h"

#include "testbed/common/Table.h"

namespace Testbed::Pst
{
namespace
{
constexpr ULONG internetMessageId = PROP_TAG(PT_UNICODE, 0x1035);

const std::vector<ULONG> contentsColumns = {
    PR_ENTRYID,
    PR_INSTANCE_KEY,
    PR_RECORD_KEY,
    PR_PARENT_ENTRYID,
    PR_STORE_ENTRYID,
    PR_OBJECT_TYPE,
    PR_MESSAGE_CLASS_W,
    PR_SUBJECT_W,
    PR_NORMALIZED_SUBJECT_W,
    PR_SENDER_NAME_W,
    PR_SENT_REPRESENTING_NAME_W,
    PR_DISPLAY_TO_W,
    PR_DISPLAY_CC_W,
    PR_CLIENT_SUBMIT_TIME,
    PR_MESSAGE_DELIVERY_TIME,
    PR_LAST_MODIFICATION_TIME,
    PR_MESSAGE_FLAGS,
    PR_MESSAGE_SIZE,
    PR_HASATTACH,
    PR_MSG_STATUS,
    PR_IMPORTANCE,
    PR_PRIORITY,
    PR_SENSITIVITY,
    PR_ACCESS,
};

const std::vector<ULONG> moreContentsColumns = {
    PR_SUBJECT_PREFIX_W, PR_SEARCH_KEY,     PR_CREATION_TIME,          PR_CONVERSATION_TOPIC_W, PR_DISPLAY_BCC_W,
    PR_ACCESS_LEVEL,     internetMessageId, PR_SENDER_EMAIL_ADDRESS_W, PR_STORE_RECORD_KEY,     PR_MAPPING_SIGNATURE,
};

const std::vector<ULONG> hierarchyColumns = {
    PR_ENTRYID,        PR_INSTANCE_KEY,      PR_RECORD_KEY, PR_PARENT_ENTRYID, PR_STORE_ENTRYID, PR_OBJECT_TYPE,
    PR_DISPLAY_NAME_W, PR_COMMENT_W,         PR_DEPTH,      PR_FOLDER_TYPE,    PR_SUBFOLDERS,    PR_CONTENT_COUNT,
    PR_CONTENT_UNREAD, PR_CONTAINER_CLASS_W, PR_STATUS,     PR_DISPLAY_TYPE,   PR_ACCESS,
};

// A message is one row in each folder that shows it.
PropValue MessageInstance(NodeId folder, NodeId message)
{
    const NodeId key[2] = {folder, message};
    return PropValue::Binary(PR_INSTANCE_KEY, key, sizeof(key));
}

PropValue FolderInstance(NodeId folder)
{
    return PropValue::Binary(PR_INSTANCE_KEY, &folder, sizeof(folder));
}

// Rows of the nodes in a list that is made anew when the store has changed.
class NodeRows : public RowSource
{
public:
    NodeRows(std::shared_ptr<Session> session, NodeId folder) : m_session(std::move(session)), m_folder(folder) {}

    size_t RowCount() const override
    {
        const std::lock_guard lock(m_lock);
        return List().size();
    }

    std::uint64_t RowKey(size_t index) const override { return At(index).first; }

    std::uint64_t Generation() const override
    {
        const std::lock_guard lock(m_lock);
        const std::uint64_t generation = Now();
        if (std::exchange(m_generation, generation) != generation)
            m_list.reset();
        return generation;
    }

    std::shared_ptr<void> Watch(std::function<void(const std::vector<std::uint64_t>&)> changed) const override
    {
        return m_session->Core()->Watch([changed = std::move(changed)](const std::vector<NodeId>& nodes)
                                        { changed(std::vector<std::uint64_t>(nodes.begin(), nodes.end())); });
    }

    bool CutsLongValues() const override { return true; }

protected:
    // Nodes with their depths.
    using Nodes = std::vector<std::pair<NodeId, int>>;

    // Changes with what `Read` gives.
    virtual std::uint64_t Now() const = 0;
    virtual Nodes Read() const = 0;

    std::pair<NodeId, int> At(size_t index) const
    {
        const std::lock_guard lock(m_lock);
        return List().at(index);
    }

    std::shared_ptr<Session> m_session;
    NodeId m_folder;

private:
    const Nodes& List() const
    {
        if (!m_list)
            m_list = Read();
        return *m_list;
    }

    mutable Mutex m_lock;
    mutable std::uint64_t m_generation = 0;
    mutable std::optional<Nodes> m_list;
};

class ContentsRows final : public NodeRows
{
public:
    ContentsRows(std::shared_ptr<Session> session, NodeId folder, bool associated)
        : NodeRows(std::move(session), folder),
          m_associated(associated)
    {
    }

    std::shared_ptr<const PropertySource> Row(size_t index) const override;
    PropValue InstanceKey(std::uint64_t key) const override
    {
        return MessageInstance(m_folder, static_cast<NodeId>(key));
    }

    std::vector<ULONG> DefaultColumns() const override { return contentsColumns; }

    std::vector<ULONG> AllColumns() const override
    {
        std::vector<ULONG> columns = contentsColumns;
        columns.insert(columns.end(), moreContentsColumns.begin(), moreContentsColumns.end());
        return columns;
    }

private:
    std::uint64_t Now() const override { return m_session->Core()->Generation(m_folder); }
    Nodes Read() const override
    {
        Nodes nodes;
        for (const NodeId id : m_session->Core()->Messages(m_folder, m_associated))
            nodes.emplace_back(id, 0);
        return nodes;
    }

    bool m_associated;
};

// A message's row. A large folder is sorted by one column and shown by a few, so each value is only worked out, and the
// message's summary only fetched, when it is asked for.
class MessageRow final : public PropertySource
{
public:
    MessageRow(std::shared_ptr<Session> session, NodeId folder, const Node& node)
        : m_session(std::move(session)),
          m_folder(folder),
          m_node(node)
    {
    }

    std::optional<Description> Describe(ULONG id) const override
    {
        if (const auto computed = Compute(id))
            return Description{computed->Tag(), computed->Size()};
        return Stored().Describe(id);
    }

    std::optional<PropValue> Load(ULONG id) const override
    {
        if (auto computed = Compute(id))
            return computed;
        return Stored().Load(id);
    }

    std::vector<ULONG> Tags() const override
    {
        return UnionOfTags({Stored().Tags(),
                            {PR_INSTANCE_KEY, PR_STORE_ENTRYID, PR_STORE_RECORD_KEY, PR_ACCESS, PR_ACCESS_LEVEL,
                             PR_MAPPING_SIGNATURE, PR_MDB_PROVIDER, PR_STORE_SUPPORT_MASK}});
    }

private:
    std::optional<PropValue> Compute(ULONG id) const
    {
        switch (id)
        {
        case PROP_ID(PR_INSTANCE_KEY):
            return MessageInstance(m_folder, m_node.id);
        case PROP_ID(PR_ACCESS):
            return PropValue::Long(
                PR_ACCESS, MAPI_ACCESS_READ | (m_session->Writable() ? MAPI_ACCESS_MODIFY | MAPI_ACCESS_DELETE : 0));
        case PROP_ID(PR_ACCESS_LEVEL):
            return PropValue::Long(PR_ACCESS_LEVEL, 0);
        case PROP_ID(PR_STORE_ENTRYID):
        case PROP_ID(PR_STORE_RECORD_KEY):
        case PROP_ID(PR_MAPPING_SIGNATURE):
        case PROP_ID(PR_MDB_PROVIDER):
        case PROP_ID(PR_STORE_SUPPORT_MASK):
        {
            PropertyBag common;
            m_session->PutCommon(common);
            return common.Load(id);
        }
        default:
            return std::nullopt;
        }
    }

    const PropertySource& Stored() const
    {
        const std::lock_guard lock(m_lock);
        if (!m_stored)
            m_stored = m_session->Core()->MessageRow(m_node);
        return *m_stored;
    }

    std::shared_ptr<Session> m_session;
    NodeId m_folder;
    Node m_node;
    mutable Mutex m_lock;
    mutable std::shared_ptr<const PropertySource> m_stored;
};

std::shared_ptr<const PropertySource> ContentsRows::Row(size_t index) const
{
    const auto node = m_session->Core()->Find(At(index).first);
    if (!node)
    {
        // Deleted since the table last looked; it notices with its next call.
        return std::make_shared<PropertyBag>();
    }
    return std::make_shared<MessageRow>(m_session, m_folder, *node);
}

class HierarchyRows final : public NodeRows
{
public:
    HierarchyRows(std::shared_ptr<Session> session, NodeId folder, bool deep)
        : NodeRows(std::move(session), folder),
          m_deep(deep)
    {
    }

    std::shared_ptr<const PropertySource> Row(size_t index) const override
    {
        const auto [id, depth] = At(index);
        const auto node = m_session->Core()->Find(id);
        if (!node)
            return std::make_shared<PropertyBag>();
        auto row = FolderProperties(m_session, *node);
        row->Put(PropValue::Long(PR_DEPTH, depth));
        row->Put(FolderInstance(id));
        return row;
    }

    PropValue InstanceKey(std::uint64_t key) const override { return FolderInstance(static_cast<NodeId>(key)); }
    std::vector<ULONG> DefaultColumns() const override { return hierarchyColumns; }

private:
    // A folder's row tells of the folder's contents too, so every change may be one of these rows.
    std::uint64_t Now() const override { return m_session->Core()->Generation(); }
    Nodes Read() const override
    {
        if (m_deep)
            return m_session->Core()->FoldersBelow(m_folder);
        Nodes nodes;
        for (const NodeId id : m_session->Core()->SubFolders(m_folder))
            nodes.emplace_back(id, 1);
        return nodes;
    }

    bool m_deep;
};
} // namespace

ComPtr<IMAPITable> MakeContentsTable(std::shared_ptr<Session> session, NodeId folder, bool associated, ULONG flags)
{
    const MapiMemory memory = session->Memory();
    flags = session->Flags(flags);
    return CreateTable(std::make_shared<ContentsRows>(std::move(session), folder, associated), memory, flags,
                       componentName);
}

ComPtr<IMAPITable> MakeHierarchyTable(std::shared_ptr<Session> session, NodeId folder, ULONG flags)
{
    const MapiMemory memory = session->Memory();
    const bool deep = (flags & CONVENIENT_DEPTH) != 0;
    flags = session->Flags(flags);
    return CreateTable(std::make_shared<HierarchyRows>(std::move(session), folder, deep), memory, flags, componentName);
}
} // namespace Testbed::Pst
