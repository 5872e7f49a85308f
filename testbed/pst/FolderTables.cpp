// The contents and hierarchy tables of folders.
#include "testbed/pst/Store.h"

#include "testbed/common/Table.h"

namespace Testbed::Pst
{
namespace
{
constexpr ULONG kInternetMessageId = PROP_TAG(PT_UNICODE, 0x1035);

const std::vector<ULONG> kContentsColumns = {
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

const std::vector<ULONG> kMoreContentsColumns = {
    PR_SUBJECT_PREFIX_W,  PR_SEARCH_KEY,     PR_CREATION_TIME,          PR_CONVERSATION_TOPIC_W, PR_DISPLAY_BCC_W,
    PR_ACCESS_LEVEL,      kInternetMessageId, PR_SENDER_EMAIL_ADDRESS_W, PR_STORE_RECORD_KEY,    PR_MAPPING_SIGNATURE,
};

const std::vector<ULONG> kHierarchyColumns = {
    PR_ENTRYID,       PR_INSTANCE_KEY,      PR_RECORD_KEY,   PR_PARENT_ENTRYID, PR_STORE_ENTRYID,
    PR_OBJECT_TYPE,   PR_DISPLAY_NAME_W,    PR_COMMENT_W,    PR_DEPTH,          PR_FOLDER_TYPE,
    PR_SUBFOLDERS,    PR_CONTENT_COUNT,     PR_CONTENT_UNREAD, PR_CONTAINER_CLASS_W, PR_STATUS,
    PR_DISPLAY_TYPE,  PR_ACCESS,
};

// Rows of the nodes in a list that is made anew when the store has changed.
class NodeRows : public RowSource
{
public:
    NodeRows(std::shared_ptr<const Session> session, NodeId folder) : m_session(std::move(session)), m_folder(folder) {}

    size_t RowCount() const override
    {
        const std::lock_guard lock(m_lock);
        return List().size();
    }

protected:
    // Called with the lock held.
    virtual const std::vector<std::pair<NodeId, int>>& List() const = 0;

    std::pair<NodeId, int> At(size_t index) const
    {
        const std::lock_guard lock(m_lock);
        return List().at(index);
    }

    std::shared_ptr<const Session> m_session;
    NodeId m_folder;
    mutable std::recursive_mutex m_lock;
};

class ContentsRows final : public NodeRows
{
public:
    ContentsRows(std::shared_ptr<const Session> session, NodeId folder, bool associated)
        : NodeRows(std::move(session), folder), m_associated(associated)
    {
    }

    std::shared_ptr<const PropertySource> Row(size_t index) const override;
    std::uint64_t RowKey(size_t index) const override { return At(index).first; }

    std::uint64_t Generation() const override
    {
        const std::lock_guard lock(m_lock);
        const std::uint64_t generation = m_session->Core().Generation(m_folder);
        if (generation != m_generation)
        {
            m_generation = generation;
            m_loaded = false;
        }
        return generation;
    }

    std::vector<ULONG> DefaultColumns() const override { return kContentsColumns; }

    std::vector<ULONG> AllColumns() const override
    {
        std::vector<ULONG> columns = kContentsColumns;
        columns.insert(columns.end(), kMoreContentsColumns.begin(), kMoreContentsColumns.end());
        return columns;
    }

protected:
    const std::vector<std::pair<NodeId, int>>& List() const override
    {
        if (!m_loaded)
        {
            m_list.clear();
            for (const NodeId id : m_session->Core().Messages(m_folder, m_associated))
            {
                m_list.emplace_back(id, 0);
            }
            m_loaded = true;
        }
        return m_list;
    }

private:
    bool m_associated;
    mutable std::uint64_t m_generation = 0;
    mutable bool m_loaded = false;
    mutable std::vector<std::pair<NodeId, int>> m_list;
};

std::shared_ptr<const PropertySource> ContentsRows::Row(size_t index) const
{
    const NodeId id = At(index).first;
    const auto node = m_session->Core().Find(id);
    if (!node)
    {
        // Deleted since the table last looked; it notices with its next call.
        return std::make_shared<PropertyBag>();
    }
    auto row = std::make_shared<LayeredProperties>(m_session->Core().MessageRow(*node));
    PropertyBag& computed = row->Computed();
    m_session->PutCommon(computed);
    const Bytes entryId = m_session->EntryId(id);
    const NodeId key[2] = {m_folder, id};
    computed.Put(PropValue::Binary(PR_ENTRYID, entryId));
    computed.Put(PropValue::Binary(PR_RECORD_KEY, entryId));
    computed.Put(PropValue::Binary(PR_INSTANCE_KEY, key, sizeof(key)));
    computed.Put(PropValue::Binary(PR_PARENT_ENTRYID, m_session->EntryId(node->parent)));
    computed.Put(PropValue::Long(PR_OBJECT_TYPE, MAPI_MESSAGE));
    computed.Put(PropValue::Long(
        PR_ACCESS, MAPI_ACCESS_READ | (m_session->Writable() ? MAPI_ACCESS_MODIFY | MAPI_ACCESS_DELETE : 0)));
    computed.Put(PropValue::Long(PR_ACCESS_LEVEL, 0));
    row->PutDefault(PropValue::Long(PR_MSG_STATUS, 0));
    const auto flags = row->Load(PROP_ID(PR_MESSAGE_FLAGS));
    computed.Put(PropValue::Boolean(PR_HASATTACH, flags && (flags->AsLong() & MSGFLAG_HASATTACH) != 0));
    return row;
}

class HierarchyRows final : public NodeRows
{
public:
    HierarchyRows(std::shared_ptr<const Session> session, NodeId folder, bool deep)
        : NodeRows(std::move(session), folder), m_deep(deep)
    {
    }

    std::shared_ptr<const PropertySource> Row(size_t index) const override
    {
        const auto [id, depth] = At(index);
        const auto node = m_session->Core().Find(id);
        if (!node)
        {
            return std::make_shared<PropertyBag>();
        }
        auto row = FolderProperties(m_session, *node);
        row->Put(PropValue::Long(PR_DEPTH, depth));
        row->Put(PropValue::Binary(PR_INSTANCE_KEY, &id, sizeof(id)));
        return row;
    }

    std::uint64_t RowKey(size_t index) const override { return At(index).first; }

    std::uint64_t Generation() const override
    {
        const std::lock_guard lock(m_lock);
        // A folder's row tells of the folder's contents too, so every change may be one of these rows.
        const std::uint64_t generation = m_session->Core().Generation();
        if (generation != m_generation)
        {
            m_generation = generation;
            m_loaded = false;
        }
        return generation;
    }

    std::vector<ULONG> DefaultColumns() const override { return kHierarchyColumns; }

protected:
    const std::vector<std::pair<NodeId, int>>& List() const override
    {
        if (!m_loaded)
        {
            m_list.clear();
            if (m_deep)
            {
                m_list = m_session->Core().FoldersBelow(m_folder);
            }
            else
            {
                for (const NodeId id : m_session->Core().SubFolders(m_folder))
                {
                    m_list.emplace_back(id, 1);
                }
            }
            m_loaded = true;
        }
        return m_list;
    }

private:
    bool m_deep;
    mutable std::uint64_t m_generation = 0;
    mutable bool m_loaded = false;
    mutable std::vector<std::pair<NodeId, int>> m_list;
};
} // namespace

ComPtr<IMAPITable> MakeContentsTable(std::shared_ptr<const Session> session, NodeId folder, bool associated, ULONG flags)
{
    const MapiMemory memory = session->Memory();
    flags = session->Flags(flags);
    session->Core().Refresh();
    return CreateTable(std::make_shared<ContentsRows>(std::move(session), folder, associated), memory, flags,
                       ComponentName);
}

ComPtr<IMAPITable> MakeHierarchyTable(std::shared_ptr<const Session> session, NodeId folder, ULONG flags)
{
    const MapiMemory memory = session->Memory();
    const bool deep = (flags & CONVENIENT_DEPTH) != 0;
    flags = session->Flags(flags);
    session->Core().Refresh();
    return CreateTable(std::make_shared<HierarchyRows>(std::move(session), folder, deep), memory, flags, ComponentName);
}
} // namespace Testbed::Pst
