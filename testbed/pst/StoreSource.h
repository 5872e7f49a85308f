// What a store's contents are read from: a PST file, an empty new store, or generated sample mail.
#pragma once

#include "testbed/common/PropertyBag.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Testbed::Pst
{
/// The number that names a folder or message within its store; its low five bits say of which kind it is.
using NodeId = std::uint32_t;

enum class NodeKind
{
    Folder,
    SearchFolder,
    Message,
    /// A message of a folder's hidden contents.
    Associated,
};

/// The nodes that every PST file has under fixed numbers.
namespace Nodes
{
constexpr NodeId store = 0x21;
constexpr NodeId nameMap = 0x61;
constexpr NodeId root = 0x122;
constexpr NodeId subtree = 0x8022;
constexpr NodeId finder = 0x8042;
constexpr NodeId wastebasket = 0x8062;
/// Nodes that are made in the overlay are numbered from here; no PST file comes near.
constexpr NodeId firstCreated = 0x80000000;
} // namespace Nodes

/// The kind that a node's number says, or nothing for nodes that are no folder and no message.
std::optional<NodeKind> KindOf(NodeId id) noexcept;
/// Whether the node was made in the overlay.
constexpr bool IsCreated(NodeId id) noexcept
{
    return id >= Nodes::firstCreated;
}
/// The node number with an index and a kind.
NodeId MakeNodeId(std::uint32_t index, NodeKind kind) noexcept;

constexpr bool IsFolder(NodeKind kind) noexcept
{
    return kind == NodeKind::Folder || kind == NodeKind::SearchFolder;
}

struct Node
{
    NodeId id = 0;
    NodeKind kind = NodeKind::Folder;
    /// The folder that holds it; the root folder is its own parent.
    NodeId parent = 0;
};

/// A named property's identifier in one store and the name that it stands for.
struct PropertyName
{
    GUID set{};
    /// The name, or empty when the property is named by a number.
    std::wstring text;
    std::int32_t number = 0;

    bool operator==(const PropertyName& other) const noexcept
    {
        return IsEqualGUID(set, other.set) && text == other.text && number == other.number;
    }
};

struct NamedProperty
{
    /// 0x8000 or above.
    ULONG id = 0;
    PropertyName name;
};

class MessageContent;

/// The content of one attachment. Immutable and thread-safe.
class AttachmentContent
{
public:
    virtual ~AttachmentContent() = default;

    /// All properties, the data included.
    virtual PropertyBag Properties() const = 0;
    /// All but the data, for a table's row.
    virtual PropertyBag Summary() const
    {
        PropertyBag bag = Properties();
        bag.Erase(PROP_ID(PR_ATTACH_DATA_BIN));
        return bag;
    }
    /// The embedded message, or null when the attachment is of another kind.
    virtual std::shared_ptr<const MessageContent> Embedded() const = 0;
};

/// An attachment that is not read from a file.
class MemoryAttachment final : public AttachmentContent
{
public:
    MemoryAttachment(PropertyBag properties, std::shared_ptr<const MessageContent> embedded)
        : m_properties(std::move(properties)),
          m_embedded(std::move(embedded))
    {
    }

    PropertyBag Properties() const override { return m_properties; }
    std::shared_ptr<const MessageContent> Embedded() const override { return m_embedded; }

private:
    PropertyBag m_properties;
    std::shared_ptr<const MessageContent> m_embedded;
};

/// The content of one message. Immutable and thread-safe.
class MessageContent
{
public:
    virtual ~MessageContent() = default;

    virtual PropertyBag Properties() const = 0;
    virtual std::vector<PropertyBag> Recipients() const = 0;
    virtual std::vector<std::shared_ptr<const AttachmentContent>> Attachments() const = 0;
};

/// The contents of a store before any change. Never changes itself, and is thread-safe. Every method throws `Failure`
/// when the contents cannot be read.
class StoreSource
{
public:
    virtual ~StoreSource() = default;

    /// The store's own properties, PR_RECORD_KEY (16 bytes) among them.
    virtual PropertyBag StoreProperties() const = 0;

    /// The folder or message of that number, or nothing.
    virtual std::optional<Node> Find(NodeId id) const = 0;

    /// The sub-folders (of both kinds) of a folder, in order.
    virtual std::vector<NodeId> SubFolders(NodeId folder) const = 0;
    /// The messages of a folder, or its hidden ones, in order. Those of a search folder lie in other folders.
    virtual std::vector<NodeId> Messages(NodeId folder, bool associated) const = 0;

    virtual PropertyBag FolderProperties(NodeId folder) const = 0;

    /// What a folder's table knows of a message, without opening it.
    virtual PropertyBag MessageSummary(const Node& message) const = 0;
    /// Whether a property that the summary lacks is lacked by the message too.
    virtual bool SummaryCovers(const Node& message, ULONG id) const = 0;
    /// The number of a folder's messages that have not been read, without opening any.
    virtual LONG Unread(NodeId folder) const = 0;
    virtual std::shared_ptr<const MessageContent> OpenMessage(NodeId message) const = 0;

    virtual std::vector<NamedProperty> NamedProperties() const = 0;
};
} // namespace Testbed::Pst
