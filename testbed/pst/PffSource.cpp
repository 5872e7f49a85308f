// The contents of a PST or OST file, read with libpff.
#include "testbed/pst/PffSource.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"
#include "testbed/common/PropCodec.h"
#include "testbed/pst/NewSource.h"

#include <libpff.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <set>
#include <unordered_map>

namespace Testbed::Pst
{
namespace
{
// The tables that belong to a folder have its index and a kind of their own.
constexpr NodeId hierarchyTable = 0x0D;
constexpr NodeId contentsTable = 0x0E;
constexpr NodeId associatedTable = 0x0F;
constexpr NodeId searchContentsTable = 0x10;
constexpr NodeId kindMask = 0x1F;

// Bookkeeping of the file's own tables, which no MAPI client sees.
constexpr ULONG rowId = 0x67F2;
constexpr ULONG rowVersion = 0x67F3;

// Folders below each other deeper than this are a loop in a damaged file.
constexpr int deepestFolder = 256;

// libpff has no locks of its own, and its items share the state of their file.
Mutex& LibraryLock()
{
    static Mutex lock;
    return lock;
}

template <class T, int (*Free)(T**, libpff_error_t**)>
class Handle
{
public:
    Handle() noexcept = default;
    Handle(Handle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    Handle& operator=(Handle&& other) noexcept
    {
        std::swap(m_handle, other.m_handle);
        return *this;
    }
    ~Handle()
    {
        if (m_handle)
            Free(&m_handle, nullptr);
    }

    T* Get() const noexcept { return m_handle; }
    T** Put() noexcept { return &m_handle; }
    explicit operator bool() const noexcept { return m_handle != nullptr; }

private:
    T* m_handle = nullptr;
};

using FileHandle = Handle<libpff_file_t, libpff_file_free>;
using ItemHandle = Handle<libpff_item_t, libpff_item_free>;

void FreeError(libpff_error_t** error)
{
    libpff_error_free(error);
}

// The error that a libpff call may leave; freed at the end of the statement that needs it.
class Error
{
public:
    Error() noexcept = default;
    Error(const Error&) = delete;
    Error& operator=(const Error&) = delete;
    ~Error() { FreeError(&m_error); }

    libpff_error_t** Put() noexcept
    {
        FreeError(&m_error);
        return &m_error;
    }

    // The first sentence of what the library says, which names the innermost failure.
    std::wstring Text()
    {
        char buffer[512] = "";
        if (!m_error || libpff_error_sprint(m_error, buffer, sizeof(buffer)) < 1)
            return L"unknown error";
        std::string text(buffer);
        text.erase(std::min(text.find_first_of("\r\n"), text.size()));
        return WideFromUtf8(text);
    }

private:
    libpff_error_t* m_error = nullptr;
};

// An item with the items that its own state points into: an attachment's message, an embedded message's attachment.
struct ItemChain
{
    ItemChain() = default;
    ItemChain(ItemChain&&) noexcept = default;
    ItemChain& operator=(ItemChain&&) noexcept = default;
    ~ItemChain()
    {
        while (!items.empty())
            items.pop_back();
    }

    libpff_item_t* Last() const noexcept { return items.back().Get(); }

    std::vector<ItemHandle> items;
};

enum class RecordKind
{
    // Every entry is a property of the object, though its value may be empty.
    Object,
    // A cell without a value cannot be told from a cell that is not there.
    TableRow,
};

bool IsMissingCell(const PropValue& value, size_t size)
{
    switch (value.Type())
    {
    case PT_SYSTIME:
        return *value.Get<std::int64_t>() == 0;
    default:
        return size == 0;
    }
}

// An entry's property, or nothing for one that is no MAPI property or that cannot be read.
std::optional<PropValue> ReadEntry(libpff_record_entry_t* entry, RecordKind kind)
{
    std::uint32_t id = 0;
    std::uint32_t type = 0;
    size_t size = 0;
    if (libpff_record_entry_get_entry_type(entry, &id, nullptr) != 1 ||
        libpff_record_entry_get_value_type(entry, &type, nullptr) != 1 ||
        libpff_record_entry_get_data_size(entry, &size, nullptr) != 1 || id == 0 || id > 0xFFFE || type > 0xFFFF)
    {
        return std::nullopt;
    }
    Bytes data(size);
    if (size != 0 && libpff_record_entry_get_data(entry, data.data(), data.size(), nullptr) != 1)
        return std::nullopt;
    auto value = ValueFromFile(PROP_TAG(type, id), data.data(), data.size());
    if (value && kind == RecordKind::TableRow && IsMissingCell(*value, size))
        return std::nullopt;
    return value;
}

// Outlook puts the length of a subject's prefix ("RE: ") before the subject, as character 1 and a character that
// counts the prefix and itself.
void SplitSubject(PropertyBag& bag)
{
    const PropValue* value = bag.Find(PROP_ID(PR_SUBJECT));
    if (!value)
        return;
    std::wstring subject = value->AsText();
    if (subject.size() < 2 || subject[0] != L'\1')
        return;
    const size_t prefix = subject[1] > 0 ? static_cast<size_t>(subject[1]) - 1 : 0;
    const ULONG type = value->Type();
    subject.erase(0, 2);
    const auto put = [&](ULONG tag, const std::wstring& text)
    { bag.Put(PropValue::String(CHANGE_PROP_TYPE(tag, type), text)); };
    put(PR_SUBJECT_W, subject);
    if (prefix <= subject.size())
    {
        put(PR_SUBJECT_PREFIX_W, subject.substr(0, prefix));
        put(PR_NORMALIZED_SUBJECT_W, subject.substr(prefix));
    }
}

PropertyBag ReadRecordSet(libpff_item_t* item, int index, RecordKind kind)
{
    PropertyBag bag;
    libpff_record_set_t* set = nullptr;
    Error error;
    if (libpff_item_get_record_set_by_index(item, index, &set, error.Put()) != 1)
        Fail(MAPI_E_CORRUPT_DATA, L"The PST file holds properties that cannot be read: " + error.Text());
    int count = 0;
    if (libpff_record_set_get_number_of_entries(set, &count, nullptr) == 1)
    {
        for (int entryIndex = 0; entryIndex < count; ++entryIndex)
        {
            libpff_record_entry_t* entry = nullptr;
            if (libpff_record_set_get_entry_by_index(set, entryIndex, &entry, nullptr) != 1)
                continue;
            if (auto value = ReadEntry(entry, kind))
                bag.Put(std::move(*value));
            libpff_record_entry_free(&entry, nullptr);
        }
    }
    libpff_record_set_free(&set, nullptr);
    return bag;
}

int RecordSets(libpff_item_t* item)
{
    int count = 0;
    return libpff_item_get_number_of_record_sets(item, &count, nullptr) == 1 ? count : 0;
}

class PffFile : public StoreSource, public std::enable_shared_from_this<PffFile>
{
public:
    explicit PffFile(const std::wstring& path);

    PropertyBag StoreProperties() const override { return m_store; }
    std::optional<Node> Find(NodeId id) const override;
    std::vector<NodeId> SubFolders(NodeId folder) const override;
    std::vector<NodeId> Messages(NodeId folder, bool associated) const override;
    PropertyBag FolderProperties(NodeId folder) const override;
    PropertyBag MessageSummary(const Node& message) const override;
    bool SummaryCovers(const Node& message, ULONG id) const override;
    LONG Unread(NodeId folder) const override;
    std::shared_ptr<const MessageContent> OpenMessage(NodeId message) const override;
    std::vector<NamedProperty> NamedProperties() const override { return m_names; }

    // The rest is for the messages and attachments of the file, under the library's lock.

    // Opens a message: of the file itself for an empty path, else of the attachments (by position) of attachments.
    ItemChain OpenChain(NodeId message, const std::vector<int>& path) const;
    ItemChain OpenAttachment(NodeId message, const std::vector<int>& path, int index) const;

private:
    struct Folder
    {
        Node node;
        std::vector<NodeId> subFolders;
    };

    struct Listing
    {
        std::vector<NodeId> messages;
        // Kept as bytes: a bag for each of a large folder's messages would take many times the memory.
        std::unordered_map<NodeId, Bytes> summaries;
        // The properties that the table has columns for.
        std::set<ULONG> columns;
    };

    ItemHandle TryItem(NodeId id) const;
    PropertyBag ItemProperties(NodeId id) const;
    std::vector<PropertyBag> TableRows(NodeId table) const;
    void ReadFolders(const Node& node, int depth);
    void ReadNames();
    std::optional<NodeId> FindNamed(NodeId parent, const wchar_t* name) const;
    NodeId FindSubtree() const;
    const Listing& List(NodeId folder, bool associated) const;
    const Folder* TryFolder(NodeId id) const;

    FileHandle m_file;
    PropertyBag m_store;
    std::unordered_map<NodeId, Folder> m_folders;
    std::vector<NamedProperty> m_names;
    mutable std::unordered_map<NodeId, Listing> m_listings;
    mutable std::unordered_map<NodeId, NodeId> m_parents;
};

class PffMessage : public MessageContent
{
public:
    PffMessage(std::shared_ptr<const PffFile> file, NodeId id, std::vector<int> path)
        : m_file(std::move(file)),
          m_id(id),
          m_path(std::move(path))
    {
    }

    PropertyBag Properties() const override;
    std::vector<PropertyBag> Recipients() const override;
    std::vector<std::shared_ptr<const AttachmentContent>> Attachments() const override;

private:
    std::shared_ptr<const PffFile> m_file;
    NodeId m_id;
    std::vector<int> m_path;
};

class PffAttachment : public AttachmentContent
{
public:
    PffAttachment(std::shared_ptr<const PffFile> file, NodeId id, std::vector<int> path, int index)
        : m_file(std::move(file)),
          m_id(id),
          m_path(std::move(path)),
          m_index(index)
    {
    }

    PropertyBag Properties() const override;
    std::shared_ptr<const MessageContent> Embedded() const override;

private:
    std::shared_ptr<const PffFile> m_file;
    NodeId m_id;
    std::vector<int> m_path;
    int m_index;
};

PffFile::PffFile(const std::wstring& path)
{
    const std::lock_guard lock(LibraryLock());
    Error error;
    if (libpff_file_initialize(m_file.Put(), error.Put()) != 1)
        Fail(MAPI_E_NOT_ENOUGH_MEMORY, L"The PST reader cannot start: " + error.Text());
    if (libpff_file_open_wide(m_file.Get(), path.c_str(), libpff_get_access_flags_read(), error.Put()) != 1)
        Fail(MAPI_E_CORRUPT_STORE, L"The PST file \"" + path + L"\" is damaged: " + error.Text());
    if (!TryItem(Nodes::store) || !TryItem(Nodes::root))
        Fail(MAPI_E_CORRUPT_STORE, L"The file \"" + path + L"\" holds no message store");
    m_store = ItemProperties(Nodes::store);
    if (BytesOf(m_store, PR_RECORD_KEY).size() != sizeof(MAPIUID))
        Fail(MAPI_E_CORRUPT_STORE, L"The PST file \"" + path + L"\" has no record key");
    ReadFolders({Nodes::root, NodeKind::Folder, Nodes::root}, 0);
    ReadNames();
    if (!m_store.Find(PROP_ID(PR_IPM_SUBTREE_ENTRYID)))
    {
        m_store.Put(
            PropValue::Binary(PR_IPM_SUBTREE_ENTRYID, MakeEntryId(BytesOf(m_store, PR_RECORD_KEY), FindSubtree())));
    }
}

ItemHandle PffFile::TryItem(NodeId id) const
{
    ItemHandle item;
    Error error;
    if (libpff_file_get_item_by_identifier(m_file.Get(), id, item.Put(), error.Put()) != 1)
        return {};
    return item;
}

PropertyBag PffFile::ItemProperties(NodeId id) const
{
    const ItemHandle item = TryItem(id);
    if (!item)
        Fail(MAPI_E_NOT_FOUND, L"The PST file does not hold the object");
    return ReadRecordSet(item.Get(), 0, RecordKind::Object);
}

std::vector<PropertyBag> PffFile::TableRows(NodeId table) const
{
    std::vector<PropertyBag> rows;
    const ItemHandle item = TryItem(table);
    if (!item)
        return rows;
    const int count = RecordSets(item.Get());
    rows.reserve(static_cast<size_t>(count));
    for (int index = 0; index < count; ++index)
        rows.push_back(ReadRecordSet(item.Get(), index, RecordKind::TableRow));
    return rows;
}

void PffFile::ReadFolders(const Node& node, int depth)
{
    const NodeId id = node.id;
    Folder folder;
    folder.node = node;
    m_folders.emplace(id, folder);
    if (depth == deepestFolder || folder.node.kind != NodeKind::Folder)
        return;
    std::vector<NodeId> subFolders;
    for (const PropertyBag& row : TableRows((id & ~kindMask) | hierarchyTable))
    {
        const auto child = static_cast<NodeId>(LongOf(row, PROP_TAG(PT_LONG, rowId)));
        const auto kind = KindOf(child);
        if (kind && IsFolder(*kind) && !m_folders.contains(child) && TryItem(child))
        {
            ReadFolders({child, *kind, id}, depth + 1);
            subFolders.push_back(child);
        }
    }
    m_folders[id].subFolders = std::move(subFolders);
}

std::optional<NodeId> PffFile::FindNamed(NodeId parent, const wchar_t* name) const
{
    for (const NodeId child : m_folders.at(parent).subFolders)
        if (TextOf(ItemProperties(child), PR_DISPLAY_NAME) == name)
            return child;
    return std::nullopt;
}

// The file of an offline mailbox does not name the top of its mail: there it is a folder of a fixed name.
NodeId PffFile::FindSubtree() const
{
    if (const auto mailbox = FindNamed(Nodes::root, L"Root - Mailbox"))
    {
        if (const auto subtree = FindNamed(*mailbox, L"IPM_SUBTREE"))
            return *subtree;
    }
    const auto subtree = FindNamed(Nodes::root, L"IPM_SUBTREE");
    return subtree ? *subtree : Nodes::root;
}

// The map of named properties is one object whose binary properties are arrays: property sets, entries, texts.
void PffFile::ReadNames()
{
    struct Entry
    {
        std::uint32_t numberOrOffset;
        std::uint16_t set;
        std::uint16_t index;
    };
    constexpr size_t wellKnownSets = 3;
    const ItemHandle item = TryItem(Nodes::nameMap);
    if (!item)
        return;
    const PropertyBag map = ReadRecordSet(item.Get(), 0, RecordKind::Object);
    const Bytes sets = BytesOf(map, PROP_TAG(PT_BINARY, 0x0002));
    const Bytes entries = BytesOf(map, PROP_TAG(PT_BINARY, 0x0003));
    const Bytes texts = BytesOf(map, PROP_TAG(PT_BINARY, 0x0004));
    for (size_t at = 0; at + sizeof(Entry) <= entries.size(); at += sizeof(Entry))
    {
        Entry entry{};
        std::memcpy(&entry, entries.data() + at, sizeof(entry));
        NamedProperty property;
        property.id = 0x8000u + entry.index;
        const size_t set = entry.set >> 1;
        if (set == 1)
            property.name.set = PS_MAPI;
        else if (set == 2)
            property.name.set = PS_PUBLIC_STRINGS;
        else if (set >= wellKnownSets && (set - wellKnownSets + 1) * sizeof(GUID) <= sets.size())
            std::memcpy(&property.name.set, sets.data() + (set - wellKnownSets) * sizeof(GUID), sizeof(GUID));
        if ((entry.set & 1) == 0)
        {
            property.name.number = static_cast<std::int32_t>(entry.numberOrOffset);
            m_names.push_back(std::move(property));
            continue;
        }
        std::uint32_t size = 0;
        if (entry.numberOrOffset > texts.size() || texts.size() - entry.numberOrOffset < sizeof(size))
            continue;
        std::memcpy(&size, texts.data() + entry.numberOrOffset, sizeof(size));
        if (size > texts.size() - entry.numberOrOffset - sizeof(size))
            continue;
        property.name.text.resize(size / sizeof(wchar_t));
        std::memcpy(property.name.text.data(), texts.data() + entry.numberOrOffset + sizeof(size),
                    property.name.text.size() * sizeof(wchar_t));
        m_names.push_back(std::move(property));
    }
}

const PffFile::Folder* PffFile::TryFolder(NodeId id) const
{
    const auto found = m_folders.find(id);
    return found == m_folders.end() ? nullptr : &found->second;
}

const PffFile::Listing& PffFile::List(NodeId folder, bool associated) const
{
    const bool search = KindOf(folder) == NodeKind::SearchFolder;
    const NodeId contents = search ? searchContentsTable : contentsTable;
    const NodeId table = (folder & ~kindMask) | (associated ? associatedTable : contents);
    const auto [found, added] = m_listings.try_emplace(table);
    Listing& listing = found->second;
    if (!added)
        return listing;
    for (PropertyBag& row : TableRows(table))
    {
        const auto id = static_cast<NodeId>(LongOf(row, PROP_TAG(PT_LONG, rowId)));
        const auto kind = KindOf(id);
        if (!kind || IsFolder(*kind) || listing.summaries.contains(id))
            continue;
        row.Erase(rowId);
        row.Erase(rowVersion);
        SplitSubject(row);
        listing.messages.push_back(id);
        listing.summaries.emplace(id, WriteBag(row));
        for (const auto& [column, value] : row.Values())
            listing.columns.insert(column);
        if (!search)
            m_parents.emplace(id, folder);
    }
    return listing;
}

std::optional<Node> PffFile::Find(NodeId id) const
{
    const std::lock_guard lock(LibraryLock());
    if (const Folder* folder = TryFolder(id))
        return folder->node;
    const auto kind = KindOf(id);
    if (!kind || IsFolder(*kind))
        return std::nullopt;
    auto parent = m_parents.find(id);
    // The file has no way from a message to its folder, so the folders that were not listed yet are.
    for (auto folder = m_folders.begin(); parent == m_parents.end() && folder != m_folders.end(); ++folder)
    {
        if (folder->second.node.kind == NodeKind::Folder)
        {
            List(folder->first, *kind == NodeKind::Associated);
            parent = m_parents.find(id);
        }
    }
    if (parent == m_parents.end())
        return std::nullopt;
    return Node{id, *kind, parent->second};
}

std::vector<NodeId> PffFile::SubFolders(NodeId folder) const
{
    const Folder* found = TryFolder(folder);
    return found ? found->subFolders : std::vector<NodeId>();
}

std::vector<NodeId> PffFile::Messages(NodeId folder, bool associated) const
{
    const std::lock_guard lock(LibraryLock());
    return TryFolder(folder) ? List(folder, associated).messages : std::vector<NodeId>();
}

PropertyBag PffFile::FolderProperties(NodeId folder) const
{
    const std::lock_guard lock(LibraryLock());
    return ItemProperties(folder);
}

PropertyBag PffFile::MessageSummary(const Node& message) const
{
    const std::lock_guard lock(LibraryLock());
    const Listing& listing = List(message.parent, message.kind == NodeKind::Associated);
    const auto found = listing.summaries.find(message.id);
    return found == listing.summaries.end() ? PropertyBag() : ReadBag(found->second);
}

bool PffFile::SummaryCovers(const Node& message, ULONG id) const
{
    const std::lock_guard lock(LibraryLock());
    return List(message.parent, message.kind == NodeKind::Associated).columns.contains(id);
}

LONG PffFile::Unread(NodeId folder) const
{
    const std::lock_guard lock(LibraryLock());
    if (!TryFolder(folder))
        return 0;
    const Listing& listing = List(folder, false);
    LONG unread = 0;
    for (const auto& [message, summary] : listing.summaries)
        unread += (LongOf(ReadBag(summary), PR_MESSAGE_FLAGS) & MSGFLAG_READ) == 0 ? 1 : 0;
    return unread;
}

std::shared_ptr<const MessageContent> PffFile::OpenMessage(NodeId message) const
{
    return std::make_shared<PffMessage>(shared_from_this(), message, std::vector<int>());
}

ItemChain PffFile::OpenChain(NodeId message, const std::vector<int>& path) const
{
    ItemChain chain;
    chain.items.push_back(TryItem(message));
    if (!chain.Last())
        Fail(MAPI_E_NOT_FOUND, L"The PST file does not hold the message");
    for (const int index : path)
    {
        Error error;
        ItemHandle attachment;
        if (libpff_message_get_attachment(chain.Last(), index, attachment.Put(), error.Put()) != 1)
            Fail(MAPI_E_CORRUPT_DATA, L"An attachment of the PST file cannot be read: " + error.Text());
        chain.items.push_back(std::move(attachment));
        ItemHandle embedded;
        if (libpff_attachment_get_item(chain.Last(), embedded.Put(), error.Put()) != 1)
            Fail(MAPI_E_CORRUPT_DATA, L"An embedded message of the PST file cannot be read: " + error.Text());
        chain.items.push_back(std::move(embedded));
    }
    return chain;
}

ItemChain PffFile::OpenAttachment(NodeId message, const std::vector<int>& path, int index) const
{
    ItemChain chain = OpenChain(message, path);
    Error error;
    ItemHandle attachment;
    if (libpff_message_get_attachment(chain.Last(), index, attachment.Put(), error.Put()) != 1)
        Fail(MAPI_E_CORRUPT_DATA, L"An attachment of the PST file cannot be read: " + error.Text());
    chain.items.push_back(std::move(attachment));
    return chain;
}

PropertyBag PffMessage::Properties() const
{
    const std::lock_guard lock(LibraryLock());
    PropertyBag bag = ReadRecordSet(m_file->OpenChain(m_id, m_path).Last(), 0, RecordKind::Object);
    SplitSubject(bag);
    return bag;
}

std::vector<PropertyBag> PffMessage::Recipients() const
{
    const std::lock_guard lock(LibraryLock());
    const ItemChain chain = m_file->OpenChain(m_id, m_path);
    ItemHandle table;
    Error error;
    const int found = libpff_message_get_recipients(chain.Last(), table.Put(), error.Put());
    if (found < 0)
        Fail(MAPI_E_CORRUPT_DATA, L"The recipients of a message in the PST file cannot be read: " + error.Text());
    std::vector<PropertyBag> recipients;
    const int count = found == 1 ? RecordSets(table.Get()) : 0;
    for (int index = 0; index < count; ++index)
    {
        PropertyBag row = ReadRecordSet(table.Get(), index, RecordKind::TableRow);
        row.Erase(rowVersion);
        row.Erase(rowId);
        recipients.push_back(std::move(row));
    }
    return recipients;
}

std::vector<std::shared_ptr<const AttachmentContent>> PffMessage::Attachments() const
{
    const std::lock_guard lock(LibraryLock());
    const ItemChain chain = m_file->OpenChain(m_id, m_path);
    int count = 0;
    Error error;
    if (libpff_message_get_number_of_attachments(chain.Last(), &count, error.Put()) != 1)
        Fail(MAPI_E_CORRUPT_DATA, L"The attachments of a message in the PST file cannot be read: " + error.Text());
    std::vector<std::shared_ptr<const AttachmentContent>> attachments;
    attachments.reserve(static_cast<size_t>(count));
    for (int index = 0; index < count; ++index)
        attachments.push_back(std::make_shared<PffAttachment>(m_file, m_id, m_path, index));
    return attachments;
}

PropertyBag PffAttachment::Properties() const
{
    const std::lock_guard lock(LibraryLock());
    const ItemChain chain = m_file->OpenAttachment(m_id, m_path, m_index);
    PropertyBag bag = ReadRecordSet(chain.Last(), 0, RecordKind::Object);
    // The bytes of an OLE object lie in a node of their own.
    if (LongOf(bag, PR_ATTACH_METHOD) == ATTACH_OLE)
    {
        const PropValue* data = bag.Find(PROP_ID(PR_ATTACH_DATA_OBJ));
        size64_t size = 0;
        if (data && data->Type() == PT_OBJECT && libpff_attachment_get_data_size(chain.Last(), &size, nullptr) == 1 &&
            size <= INT_MAX)
        {
            Bytes bytes(static_cast<size_t>(size));
            if (bytes.empty() || libpff_attachment_data_read_buffer(chain.Last(), bytes.data(), bytes.size(),
                                                                    nullptr) == static_cast<ssize_t>(bytes.size()))
            {
                bag.Put(PropValue::Binary(PR_ATTACH_DATA_BIN, std::move(bytes)));
            }
        }
    }
    return bag;
}

std::shared_ptr<const MessageContent> PffAttachment::Embedded() const
{
    {
        const std::lock_guard lock(LibraryLock());
        const ItemChain chain = m_file->OpenAttachment(m_id, m_path, m_index);
        const PropertyBag bag = ReadRecordSet(chain.Last(), 0, RecordKind::Object);
        const PropValue* data = bag.Find(PROP_ID(PR_ATTACH_DATA_OBJ));
        if (LongOf(bag, PR_ATTACH_METHOD) != ATTACH_EMBEDDED_MSG || !data || data->Type() != PT_OBJECT)
            return nullptr;
    }
    std::vector<int> path = m_path;
    path.push_back(m_index);
    return std::make_shared<PffMessage>(m_file, m_id, std::move(path));
}
} // namespace

std::optional<NodeKind> KindOf(NodeId id) noexcept
{
    switch (id & kindMask)
    {
    case 0x02:
        return NodeKind::Folder;
    case 0x03:
        return NodeKind::SearchFolder;
    case 0x04:
        return NodeKind::Message;
    case 0x08:
        return NodeKind::Associated;
    default:
        return std::nullopt;
    }
}

NodeId MakeNodeId(std::uint32_t index, NodeKind kind) noexcept
{
    constexpr NodeId kinds[] = {0x02, 0x03, 0x04, 0x08};
    return (index << 5) | kinds[static_cast<size_t>(kind)];
}

std::shared_ptr<const StoreSource> OpenPffFile(const std::wstring& path)
{
    return std::make_shared<PffFile>(path);
}
} // namespace Testbed::Pst
