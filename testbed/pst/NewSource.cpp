// The contents of a new, empty store: the root folder and the special folders that a store cannot do without.
#include "testbed/pst/NewSource.h"

#include "common/Boundary.h"
#include "common/MapiMemory.h"
#include "testbed/common/Namespace.h"

#include <algorithm>
#include <cstring>

namespace Testbed::Pst
{
namespace
{
struct FixedFolder
{
    NodeId id;
    NodeId parent;
    const wchar_t* name;
    const wchar_t* containerClass;
};

constexpr FixedFolder fixedFolders[] = {
    {Nodes::root, Nodes::root, L"", L""},
    {Nodes::subtree, Nodes::root, L"Top of Personal Folders", L""},
    {Nodes::finder, Nodes::root, L"Search Root", L""},
    {Nodes::wastebasket, Nodes::subtree, L"Deleted Items", L"IPF.Note"},
};

const FixedFolder* TryFolder(NodeId id)
{
    for (const FixedFolder& folder : fixedFolders)
        if (folder.id == id)
            return &folder;
    return nullptr;
}

class NewSource : public StoreSource
{
public:
    NewSource(const MAPIUID& recordKey, const std::wstring& displayName)
        : m_store(SpecialFolderProperties(recordKey, displayName))
    {
    }

    PropertyBag StoreProperties() const override { return m_store; }

    std::optional<Node> Find(NodeId id) const override
    {
        const FixedFolder* folder = TryFolder(id);
        return folder ? std::optional<Node>(Node{id, NodeKind::Folder, folder->parent}) : std::nullopt;
    }

    std::vector<NodeId> SubFolders(NodeId parent) const override
    {
        std::vector<NodeId> found;
        for (const FixedFolder& folder : fixedFolders)
            if (folder.parent == parent && folder.id != parent)
                found.push_back(folder.id);
        return found;
    }

    std::vector<NodeId> Messages(NodeId, bool) const override { return {}; }

    PropertyBag FolderProperties(NodeId id) const override
    {
        PropertyBag bag;
        if (const FixedFolder* folder = TryFolder(id))
        {
            bag.Put(PropValue::String(PR_DISPLAY_NAME_W, folder->name));
            if (*folder->containerClass)
                bag.Put(PropValue::String(PR_CONTAINER_CLASS_W, folder->containerClass));
        }
        return bag;
    }

    PropertyBag MessageSummary(const Node&) const override { return {}; }
    bool SummaryCovers(const Node&, ULONG) const override { return true; }
    LONG Unread(NodeId) const override { return 0; }

    std::shared_ptr<const MessageContent> OpenMessage(NodeId) const override
    {
        Fail(MAPI_E_NOT_FOUND, L"A new store holds no messages of its own");
    }

    std::vector<NamedProperty> NamedProperties() const override { return {}; }

private:
    PropertyBag m_store;
};
} // namespace

Bytes MakeEntryId(const Bytes& recordKey, NodeId node)
{
    constexpr size_t flagsSize = 4;
    Bytes entryId(flagsSize + recordKey.size() + sizeof(node), 0);
    std::copy(recordKey.begin(), recordKey.end(), entryId.begin() + flagsSize);
    std::memcpy(entryId.data() + flagsSize + recordKey.size(), &node, sizeof(node));
    return entryId;
}

PropertyBag SpecialFolderProperties(const MAPIUID& recordKey, const std::wstring& displayName)
{
    const Bytes key(recordKey.ab, recordKey.ab + sizeof(recordKey.ab));
    PropertyBag bag;
    bag.Put(PropValue::Binary(PR_RECORD_KEY, key));
    bag.Put(PropValue::String(PR_DISPLAY_NAME_W, displayName));
    bag.Put(PropValue::Binary(PR_IPM_SUBTREE_ENTRYID, MakeEntryId(key, Nodes::subtree)));
    bag.Put(PropValue::Binary(PR_IPM_WASTEBASKET_ENTRYID, MakeEntryId(key, Nodes::wastebasket)));
    bag.Put(PropValue::Binary(PR_FINDER_ENTRYID, MakeEntryId(key, Nodes::finder)));
    bag.Put(PropValue::Long(PR_VALID_FOLDER_MASK,
                            FOLDER_IPM_SUBTREE_VALID | FOLDER_IPM_WASTEBASKET_VALID | FOLDER_FINDER_VALID));
    return bag;
}

std::shared_ptr<const StoreSource> MakeNewStore(const MAPIUID& recordKey, const std::wstring& displayName)
{
    return std::make_shared<NewSource>(recordKey, displayName);
}
} // namespace Testbed::Pst
