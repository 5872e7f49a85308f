// The file beside a PST that holds all that was changed: what is where, and the properties of what was changed or made.
#pragma once

#include "testbed/common/PropCodec.h"
#include "testbed/pst/Database.h"
#include "testbed/pst/StoreSource.h"

namespace Testbed::Pst
{
/// The number of a stored object: for a folder, a message and the store its node number, above these for attachments
/// and embedded messages.
using ObjectId = std::int64_t;

/// The overlay of one store: an SQLite database, so that what one transaction wrote is there as a whole or not at all,
/// whatever happens to the process. It holds nothing of its contents in memory. Thread-safe. All methods throw
/// `Failure` as `Database` does, and MAPI_E_CORRUPT_STORE for the overlay of another version.
class Overlay
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

    /// A folder or message that was made here, or one of the source that was moved, removed, or marked (un)read.
    struct NodeRecord
    {
        Node node;
        bool removed = false;
        bool unread = false;
        /// The source's folder in which it was, 0 for one that was made here, and whether it was unread there.
        NodeId origin = 0;
        bool wasUnread = false;

        bool Created() const noexcept { return origin == 0; }
    };

    /// An overlay at `path`. The file is opened when it is there, and else made at the first transaction.
    explicit Overlay(std::wstring path);

    const std::wstring& Path() const noexcept { return m_database.Path(); }
    /// Whether changes can be made.
    bool Writable() const noexcept { return m_writable; }
    /// What the file says it belongs to, or nothing when there is no file yet.
    std::optional<Identity> ReadIdentity();
    /// The identity that a file gets when it is made.
    void SetIdentity(Identity identity);

    /// A unit of changes. Throws MAPI_E_NO_ACCESS when there can be none.
    class Transaction
    {
    public:
        explicit Transaction(Overlay& overlay) : m_transaction(overlay.ForWriting()) {}
        void Commit() { m_transaction.Commit(); }

    private:
        Database::Transaction m_transaction;
    };

    std::optional<NodeRecord> ReadNode(NodeId id);
    /// The nodes of one kind (or another) that lie in a folder and did not come there with the source, in the order in
    /// which they were made.
    std::vector<NodeId> ReadChildren(NodeId folder, NodeKind kind, NodeKind otherKind);
    /// The source's nodes that lay in a folder and do so no more.
    std::vector<NodeId> ReadGone(NodeId folder);

    /// Numbers of messages.
    struct Counts
    {
        std::int64_t messages = 0;
        std::int64_t unread = 0;
        std::int64_t associated = 0;
    };
    /// What a folder has more (or less) than in the source.
    Counts ReadCounts(NodeId folder);

    std::vector<NamedProperty> ReadNames();

    /// What is stored of an object.
    struct Object
    {
        /// The small values, and what was taken away.
        PropertyChanges changes;
        /// Of the large values, what they are.
        std::vector<PropertySource::Description> large;
        /// A message's recipients, once they have been changed.
        std::optional<std::vector<PropertyBag>> recipients;
        /// Whether a message's attachments are those stored here, and not the source's.
        bool ownAttachments = false;
    };
    /// Nothing when nothing is stored.
    std::optional<Object> ReadObject(ObjectId object);
    std::optional<PropValue> ReadLarge(ObjectId object, ULONG id);
    /// All that is stored of an object's properties, the large ones too.
    PropertyChanges ReadProperties(ObjectId object);

    /// A part of another object (an attachment, an embedded message), and its number there.
    struct Part
    {
        ObjectId object = 0;
        std::int64_t number = 0;
    };
    /// The parts of an object by their numbers.
    std::vector<Part> ReadParts(ObjectId object);

    // The rest writes within a transaction.

    void WriteNode(const NodeRecord& record);
    /// A node number that was never used.
    NodeId NewNode(NodeKind kind);
    void WriteName(const NamedProperty& name);

    /// What is to be stored of an object, on top of what is.
    struct Update
    {
        const PropertyChanges* changes = nullptr;
        const std::vector<PropertyBag>* recipients = nullptr;
        bool ownAttachments = false;
    };
    /// Stores a new object, of which nothing is stored yet.
    void AddObject(ObjectId object, const Part& place, const Update& update);
    /// Adds to what is stored of an object, whether or not there is something.
    void ChangeObject(ObjectId object, const Update& update);
    /// Stores a new part of an object and gives its number.
    ObjectId AddPart(ObjectId parent, std::int64_t number, const Update& update);
    /// Forgets an object with all that belongs to it.
    void RemoveObject(ObjectId object);

private:
    using Statement = Database::Statement;

    Database& ForWriting();
    bool OpenExisting();
    void CheckFormat();
    void Make();
    void WriteLarge(ObjectId object, const PropValue& value, std::vector<PropertySource::Description>& large);

    Database m_database;
    bool m_writable = true;
    std::optional<Identity> m_identity;
    // The next numbers, so that none is used twice while something may still go by it.
    std::int64_t m_nextNode = 0;
    ObjectId m_nextPart = 0;
};
} // namespace Testbed::Pst
