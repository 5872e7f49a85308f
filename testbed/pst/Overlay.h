// The file beside a PST that holds all that was changed: an SQLite database, so that what one transaction wrote is
// there as a whole or not at all, whatever happens to the process.
#pragma once

#include "testbed/pst/PropCodec.h"
#include "testbed/pst/StoreSource.h"

#include <mutex>

struct sqlite3;
struct sqlite3_stmt;

namespace Testbed::Pst
{
/// The number of a stored object: for a folder, a message and the store its node number, above these for attachments
/// and embedded messages.
using ObjectId = std::int64_t;

/// An attachment of a message with the number by which clients open it.
struct AttachmentSlot
{
    ULONG number = 0;
    std::shared_ptr<const AttachmentContent> content;
};

/// What one SaveChanges of a message changes.
struct MessageUpdate
{
    PropertyChanges changes;
    /// The new recipients, when they changed.
    std::optional<std::vector<PropertyBag>> recipients;
    /// The new attachments, when they changed.
    std::optional<std::vector<AttachmentSlot>> attachments;

    bool Empty() const noexcept { return changes.Empty() && !recipients && !attachments; }
};

/// The overlay of one store. Thread-safe. All methods throw `Failure`: MAPI_E_NO_ACCESS when the place cannot be
/// written to, MAPI_E_CORRUPT_STORE for a damaged file or one of another store, MAPI_E_BUSY when another process holds
/// it, MAPI_E_NOT_ENOUGH_DISK, MAPI_E_DISK_ERROR.
class Overlay : public std::enable_shared_from_this<Overlay>
{
public:
    /// What the overlay belongs to.
    struct Identity
    {
        Bytes recordKey;
        /// Whether the store is kept wholly in the overlay, with no file beneath.
        bool isNewStore = false;
        std::wstring displayName;
    };

    struct NodeRecord
    {
        Node node;
        /// Made here, and not only moved or removed.
        bool created = false;
        bool removed = false;
    };

    /// An overlay at `path`. The file is opened when it is there, and else made at the first transaction.
    explicit Overlay(std::wstring path);
    ~Overlay();
    Overlay(const Overlay&) = delete;
    Overlay& operator=(const Overlay&) = delete;

    const std::wstring& Path() const noexcept { return m_path; }
    /// Whether changes can be made.
    bool Writable() const noexcept { return m_writable; }
    /// What the file says it belongs to, or nothing when there is no file yet.
    std::optional<Identity> ReadIdentity();
    /// The identity that a file gets when it is made.
    void SetIdentity(Identity identity);

    /// Changes when another process (or connection) has written to the file.
    std::int64_t DataVersion();

    /// All that is written while this lives becomes one unit: `Commit` keeps it, destruction without it undoes it.
    class Transaction
    {
    public:
        explicit Transaction(Overlay& overlay);
        ~Transaction();
        Transaction(const Transaction&) = delete;
        Transaction& operator=(const Transaction&) = delete;
        void Commit();

    private:
        Overlay& m_overlay;
        std::unique_lock<std::recursive_mutex> m_lock;
        bool m_open = true;
    };

    std::vector<NodeRecord> ReadNodes();
    std::vector<NamedProperty> ReadNames();
    /// The nodes of which properties are stored.
    std::vector<NodeId> ReadStoredNodes();

    // The rest writes within a transaction.

    void WriteNode(const NodeRecord& record);
    /// A node number that was never used for this kind.
    NodeId NewNode(NodeKind kind);
    void WriteName(const NamedProperty& name);
    /// Adds `changes` to the object's stored ones.
    void ChangeObject(ObjectId object, const PropertyChanges& changes);
    /// Adds an update to a message's stored ones.
    void ChangeMessage(ObjectId message, const MessageUpdate& update);
    /// Forgets an object with all that belongs to it.
    void RemoveObject(ObjectId object);

    // Reading, in and out of transactions.

    /// All that is stored of an object's properties; nothing when nothing is.
    PropertyChanges ReadObject(ObjectId object);

    /// What a table shows of an object: the small values, and of the large ones what they are.
    struct Summary
    {
        PropertyChanges changes;
        std::vector<PropertySource::Description> large;
    };
    Summary ReadSummary(ObjectId object);
    std::optional<PropValue> ReadLarge(ObjectId object, ULONG id);

    /// The content of a message: what is stored of it over `base`, which is null for a message that was made here.
    std::shared_ptr<const MessageContent> OpenMessage(ObjectId message, std::shared_ptr<const MessageContent> base);

private:
    friend class OverlayMessage;
    friend class OverlayAttachment;
    class Statement;

    struct AttachmentRecord
    {
        ObjectId object = 0;
        ULONG number = 0;
    };

    void Open(bool create);
    void Close() noexcept;
    void Execute(const char* sql);
    [[noreturn]] void FailWith(int code, const wchar_t* action);
    std::optional<std::vector<PropertyBag>> ReadRecipients(ObjectId message);
    bool OwnsAttachments(ObjectId message);
    std::vector<AttachmentRecord> ReadAttachments(ObjectId message);
    ObjectId ReadEmbedded(ObjectId attachment);
    void EnsureObject(ObjectId object);
    ObjectId NewObject(ObjectId parent, std::int64_t number);
    void WriteProperties(ObjectId object, const PropertyChanges& changes);
    void WriteAttachments(ObjectId message, const std::vector<AttachmentSlot>& slots);
    void CopyMessage(ObjectId message, const MessageContent& content);
    sqlite3_stmt* Prepare(const char* sql);

    std::wstring m_path;
    std::recursive_mutex m_lock;
    sqlite3* m_database = nullptr;
    bool m_writable = true;
    std::optional<Identity> m_identity;
    std::vector<std::pair<const char*, sqlite3_stmt*>> m_statements;
};

/// A message's attachments as slots, numbered from 0 for content that does not number them itself.
std::vector<AttachmentSlot> SlotsOf(const MessageContent& content);
} // namespace Testbed::Pst
