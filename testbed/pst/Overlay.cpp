// The file beside a PST that holds all that was changed.
#include "testbed/pst/Overlay.h"

#include "common/Boundary.h"
#include "common/Text.h"

#include <algorithm>
#include <cstring>

namespace Testbed::Pst
{
namespace
{
// "KivO", so that no other program's database is taken for an overlay.
constexpr int applicationId = 0x4B69764F;
constexpr int format = 3;
// Values above this are kept apart, so that a folder's table need not read them.
constexpr size_t largeValue = 1024;
constexpr ObjectId firstPart = ObjectId(1) << 33;
constexpr int kindBits = 5;
constexpr int propertyBits = 16;

// The indexes are such that a folder's list of messages is read from them alone. Its counts are kept beside: by how
// much they differ from those of the PST, whose own messages count there once more or once less when they came, left or
// were changed.
constexpr const char* schema = R"(
CREATE TABLE meta (name TEXT PRIMARY KEY, value BLOB) WITHOUT ROWID;
CREATE TABLE node (id INTEGER PRIMARY KEY, kind INTEGER NOT NULL, parent INTEGER NOT NULL, removed INTEGER NOT NULL,
  unread INTEGER NOT NULL, origin INTEGER NOT NULL, was_unread INTEGER NOT NULL);
CREATE INDEX node_parent ON node (parent, kind) WHERE removed = 0;
CREATE INDEX node_origin ON node (origin) WHERE origin <> 0;
CREATE TABLE count (folder INTEGER NOT NULL, kind INTEGER NOT NULL, objects INTEGER NOT NULL, unread INTEGER NOT NULL,
  PRIMARY KEY (folder, kind)) WITHOUT ROWID;
CREATE VIEW counted AS SELECT NULL AS folder, NULL AS kind, NULL AS objects, NULL AS unread;
CREATE TRIGGER counted_more INSTEAD OF INSERT ON counted WHEN NEW.folder <> 0 BEGIN
  INSERT INTO count VALUES (NEW.folder, NEW.kind, NEW.objects, NEW.unread)
    ON CONFLICT DO UPDATE SET objects = objects + NEW.objects, unread = unread + NEW.unread;
END;
CREATE TRIGGER node_made AFTER INSERT ON node BEGIN
  INSERT INTO counted SELECT NEW.parent, NEW.kind, 1, NEW.unread WHERE NEW.removed = 0;
  INSERT INTO counted VALUES (NEW.origin, NEW.kind, -1, -NEW.was_unread);
END;
CREATE TRIGGER node_changed AFTER UPDATE ON node BEGIN
  INSERT INTO counted SELECT OLD.parent, OLD.kind, -1, -OLD.unread WHERE OLD.removed = 0;
  INSERT INTO counted VALUES (OLD.origin, OLD.kind, 1, OLD.was_unread);
  INSERT INTO counted SELECT NEW.parent, NEW.kind, 1, NEW.unread WHERE NEW.removed = 0;
  INSERT INTO counted VALUES (NEW.origin, NEW.kind, -1, -NEW.was_unread);
END;
CREATE TABLE name (id INTEGER PRIMARY KEY, property_set BLOB NOT NULL, text TEXT NOT NULL, number INTEGER NOT NULL);
CREATE TABLE object (id INTEGER PRIMARY KEY, parent INTEGER NOT NULL, number INTEGER NOT NULL, small BLOB NOT NULL,
  removed BLOB NOT NULL, large BLOB NOT NULL, recipients BLOB, own_attachments INTEGER NOT NULL);
CREATE INDEX object_parent ON object (parent, number) WHERE parent <> 0;
CREATE TABLE large (id INTEGER PRIMARY KEY, value BLOB NOT NULL);
)";

Bytes IdsToBytes(const std::set<ULONG>& ids)
{
    Bytes bytes;
    for (const ULONG id : ids)
    {
        bytes.push_back(static_cast<BYTE>(id));
        bytes.push_back(static_cast<BYTE>(id >> 8));
    }
    return bytes;
}

// The number of a large value: the object's, then the property's.
std::int64_t LargeId(ObjectId object, ULONG property)
{
    return (object << propertyBits) | property;
}

using Descriptions = std::vector<PropertySource::Description>;

Bytes ToBytes(const Descriptions& descriptions)
{
    Bytes bytes(descriptions.size() * 2 * sizeof(std::uint32_t));
    BYTE* at = bytes.data();
    for (const auto& [tag, size] : descriptions)
    {
        const std::uint32_t numbers[] = {static_cast<std::uint32_t>(tag), static_cast<std::uint32_t>(size)};
        std::memcpy(at, numbers, sizeof(numbers));
        at += sizeof(numbers);
    }
    return bytes;
}

Descriptions ToDescriptions(const Bytes& bytes)
{
    Descriptions descriptions;
    std::uint32_t numbers[2] = {};
    for (size_t at = 0; at + sizeof(numbers) <= bytes.size(); at += sizeof(numbers))
    {
        std::memcpy(numbers, bytes.data() + at, sizeof(numbers));
        descriptions.push_back({numbers[0], numbers[1]});
    }
    return descriptions;
}

std::vector<NodeId> NodesOf(Database::Statement& statement)
{
    std::vector<NodeId> nodes;
    while (statement.Step())
        nodes.push_back(static_cast<NodeId>(statement.Number(0)));
    return nodes;
}
} // namespace

Overlay::Overlay(std::wstring path) : m_database(std::move(path))
{
    if (!OpenExisting() && m_writable)
    {
        // Whether a file can be made there is only known by making one, and a store has to say it at logon.
        const HANDLE probe = CreateFileW((Path() + L".probe").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                         FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
        m_writable = probe != INVALID_HANDLE_VALUE;
        if (m_writable)
            CloseHandle(probe);
    }
}

// Opens the file that is there; false when there is none, or nothing in it.
bool Overlay::OpenExisting()
{
    const DWORD attributes = GetFileAttributesW(Path().c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return false;
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        Fail(MAPI_E_CORRUPT_STORE, L"\"" + Path() + L"\" is a folder where the overlay file should be");
    const bool readOnly = (attributes & FILE_ATTRIBUTE_READONLY) != 0;
    if (readOnly)
        m_database.OpenReadOnly();
    else
        m_database.Open();
    m_writable = m_database.Writable();
    try
    {
        if (m_database.Number("PRAGMA application_id") == 0 &&
            m_database.Number("SELECT count(*) FROM sqlite_schema") == 0)
        {
            // One that was being made when its process ended. It is made anew when needed.
            m_database.Close();
            return false;
        }
        CheckFormat();
    }
    catch (...)
    {
        m_database.Close();
        throw;
    }
    return true;
}

void Overlay::CheckFormat()
{
    if (m_database.Number("PRAGMA application_id") != applicationId ||
        m_database.Number("PRAGMA user_version") != format)
    {
        Fail(MAPI_E_CORRUPT_STORE, L"The file \"" + Path() + L"\" is not an overlay of this version");
    }
}

void Overlay::Make()
{
    m_database.Open();
    Database::Transaction transaction(m_database);
    m_database.Execute(schema);
    m_database.Execute(("PRAGMA application_id = " + std::to_string(applicationId) +
                        "; PRAGMA user_version = " + std::to_string(format))
                           .c_str());
    const auto put = [this](const wchar_t* name, const Bytes& value)
    {
        Statement statement(m_database, "INSERT INTO meta (name, value) VALUES (?1, ?2)");
        statement.Bind(1, std::wstring(name)).Bind(2, value).Step();
    };
    const Identity identity = m_identity.value_or(Identity());
    put(L"record key", identity.recordKey);
    put(L"new store", Bytes(1, identity.isNewStore ? 1 : 0));
    const std::string name = Utf8FromWide(identity.displayName);
    put(L"display name", Bytes(name.begin(), name.end()));
    transaction.Commit();
}

Database& Overlay::ForWriting()
{
    const std::lock_guard lock(m_database.Lock());
    if (!m_writable)
        Fail(MAPI_E_NO_ACCESS, L"The overlay file \"" + Path() + L"\" cannot be written");
    if (!m_database.IsOpen())
    {
        try
        {
            Make();
        }
        catch (...)
        {
            m_database.Close();
            throw;
        }
    }
    return m_database;
}

std::optional<Overlay::Identity> Overlay::ReadIdentity()
{
    const std::lock_guard lock(m_database.Lock());
    if (!m_database.IsOpen())
        return std::nullopt;
    Identity identity;
    Statement statement(m_database, "SELECT name, value FROM meta");
    while (statement.Step())
    {
        const std::wstring name = statement.Text(0);
        const Bytes value = statement.Blob(1);
        if (name == L"record key")
            identity.recordKey = value;
        else if (name == L"new store")
            identity.isNewStore = !value.empty() && value[0] != 0;
        else if (name == L"display name")
            identity.displayName = WideFromUtf8({reinterpret_cast<const char*>(value.data()), value.size()});
    }
    if (identity.recordKey.size() != sizeof(MAPIUID))
        Fail(MAPI_E_CORRUPT_STORE, L"The overlay file \"" + Path() + L"\" does not say what it belongs to");
    return identity;
}

void Overlay::SetIdentity(Identity identity)
{
    const std::lock_guard lock(m_database.Lock());
    m_identity = std::move(identity);
}

std::optional<Overlay::NodeRecord> Overlay::ReadNode(NodeId id)
{
    const std::lock_guard lock(m_database.Lock());
    if (!m_database.IsOpen())
        return std::nullopt;
    Statement statement(m_database, "SELECT kind, parent, removed, unread, origin, was_unread FROM node WHERE id = ?1");
    statement.Bind(1, id);
    if (!statement.Step())
        return std::nullopt;
    NodeRecord record;
    record.node = {id, static_cast<NodeKind>(statement.Number(0)), static_cast<NodeId>(statement.Number(1))};
    record.removed = statement.Number(2) != 0;
    record.unread = statement.Number(3) != 0;
    record.origin = static_cast<NodeId>(statement.Number(4));
    record.wasUnread = statement.Number(5) != 0;
    return record;
}

std::vector<NodeId> Overlay::ReadChildren(NodeId folder, NodeKind kind, NodeKind otherKind)
{
    const std::lock_guard lock(m_database.Lock());
    if (!m_database.IsOpen())
        return {};
    Statement statement(m_database, "SELECT id FROM node WHERE parent = ?1 AND kind IN (?2, ?3) AND removed = 0 AND "
                                    "origin <> ?1 ORDER BY id");
    statement.Bind(1, folder).Bind(2, std::int64_t(kind)).Bind(3, std::int64_t(otherKind));
    return NodesOf(statement);
}

std::vector<NodeId> Overlay::ReadGone(NodeId folder)
{
    const std::lock_guard lock(m_database.Lock());
    if (!m_database.IsOpen())
        return {};
    Statement statement(m_database, "SELECT id FROM node WHERE origin = ?1 AND (removed <> 0 OR parent <> ?1) AND "
                                    "origin <> 0 ORDER BY id");
    statement.Bind(1, folder);
    return NodesOf(statement);
}

Overlay::Counts Overlay::ReadCounts(NodeId folder)
{
    const std::lock_guard lock(m_database.Lock());
    Counts counts;
    if (!m_database.IsOpen())
        return counts;
    Statement statement(m_database, "SELECT kind, objects, unread FROM count WHERE folder = ?1");
    statement.Bind(1, folder);
    while (statement.Step())
    {
        const auto kind = static_cast<NodeKind>(statement.Number(0));
        if (kind == NodeKind::Message)
        {
            counts.messages = statement.Number(1);
            counts.unread = statement.Number(2);
        }
        else if (kind == NodeKind::Associated)
        {
            counts.associated = statement.Number(1);
        }
    }
    return counts;
}

std::vector<NamedProperty> Overlay::ReadNames()
{
    const std::lock_guard lock(m_database.Lock());
    std::vector<NamedProperty> names;
    if (!m_database.IsOpen())
        return names;
    Statement statement(m_database, "SELECT id, property_set, text, number FROM name ORDER BY id");
    while (statement.Step())
    {
        NamedProperty name;
        name.id = static_cast<ULONG>(statement.Number(0));
        const Bytes set = statement.Blob(1);
        if (set.size() == sizeof(GUID))
            std::memcpy(&name.name.set, set.data(), sizeof(GUID));
        name.name.text = statement.Text(2);
        name.name.number = static_cast<std::int32_t>(statement.Number(3));
        names.push_back(std::move(name));
    }
    return names;
}

std::optional<Overlay::Object> Overlay::ReadObject(ObjectId id)
{
    const std::lock_guard lock(m_database.Lock());
    if (!m_database.IsOpen())
        return std::nullopt;
    Statement statement(m_database,
                        "SELECT small, removed, large, recipients, own_attachments FROM object WHERE id = ?1");
    statement.Bind(1, id);
    if (!statement.Step())
        return std::nullopt;
    Object object;
    const Bytes removed = statement.Blob(1);
    for (size_t at = 0; at + 1 < removed.size(); at += 2)
        object.changes.Remove(static_cast<ULONG>(removed[at] | (removed[at + 1] << 8)));
    object.changes.Put(ReadBag(statement.Blob(0)));
    object.large = ToDescriptions(statement.Blob(2));
    if (!statement.IsNull(3))
        object.recipients = ReadBags(statement.Blob(3));
    object.ownAttachments = statement.Number(4) != 0;
    return object;
}

std::optional<PropValue> Overlay::ReadLarge(ObjectId object, ULONG id)
{
    const std::lock_guard lock(m_database.Lock());
    if (!m_database.IsOpen())
        return std::nullopt;
    Statement statement(m_database, "SELECT value FROM large WHERE id = ?1");
    statement.Bind(1, LargeId(object, id));
    return statement.Step() ? std::optional<PropValue>(ReadValue(statement.Blob(0))) : std::nullopt;
}

PropertyChanges Overlay::ReadProperties(ObjectId id)
{
    const std::lock_guard lock(m_database.Lock());
    std::optional<Object> object = ReadObject(id);
    if (!object)
        return {};
    for (const PropertySource::Description& description : object->large)
        if (auto value = ReadLarge(id, PROP_ID(description.tag)))
            object->changes.Put(std::move(*value));
    return std::move(object->changes);
}

std::vector<Overlay::Part> Overlay::ReadParts(ObjectId object)
{
    const std::lock_guard lock(m_database.Lock());
    std::vector<Part> parts;
    if (!m_database.IsOpen())
        return parts;
    Statement statement(m_database, "SELECT id, number FROM object WHERE parent = ?1 AND parent <> 0 ORDER BY number");
    statement.Bind(1, object);
    while (statement.Step())
        parts.push_back({statement.Number(0), statement.Number(1)});
    return parts;
}

void Overlay::WriteNode(const NodeRecord& record)
{
    Statement statement(m_database,
                        "INSERT INTO node (id, kind, parent, removed, unread, origin, was_unread) "
                        "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7) ON CONFLICT DO UPDATE SET kind = ?2, parent = ?3, "
                        "removed = ?4, unread = ?5, origin = ?6, was_unread = ?7");
    statement.Bind(1, record.node.id).Bind(2, std::int64_t(record.node.kind)).Bind(3, record.node.parent);
    statement.Bind(4, record.removed ? 1 : 0).Bind(5, record.unread ? 1 : 0);
    statement.Bind(6, record.origin).Bind(7, record.wasUnread ? 1 : 0).Step();
}

NodeId Overlay::NewNode(NodeKind kind)
{
    constexpr std::int64_t first = Nodes::firstCreated >> kindBits;
    // What was removed keeps its row, and so its number.
    const std::int64_t last = m_database.Number("SELECT max(id) FROM node") >> kindBits;
    const std::int64_t next = std::max({first, last + 1, m_nextNode});
    if (next > std::int64_t(0xFFFFFFFF >> kindBits))
        Fail(MAPI_E_NOT_ENOUGH_RESOURCES, L"The store has no numbers left for further objects");
    m_nextNode = next + 1;
    return MakeNodeId(static_cast<std::uint32_t>(next), kind);
}

void Overlay::WriteName(const NamedProperty& name)
{
    const auto* set = reinterpret_cast<const BYTE*>(&name.name.set);
    Statement statement(m_database,
                        "INSERT OR REPLACE INTO name (id, property_set, text, number) VALUES (?1, ?2, ?3, ?4)");
    statement.Bind(1, std::int64_t(name.id)).Bind(2, Bytes(set, set + sizeof(GUID)));
    statement.Bind(3, name.name.text).Bind(4, std::int64_t(name.name.number)).Step();
}

void Overlay::WriteLarge(ObjectId object, const PropValue& value, Descriptions& large)
{
    large.push_back({value.Tag(), value.Size()});
    Statement statement(m_database, "INSERT OR REPLACE INTO large (id, value) VALUES (?1, ?2)");
    statement.Bind(1, LargeId(object, value.Id())).Bind(2, WriteValue(value)).Step();
}

void Overlay::AddObject(ObjectId object, const Part& place, const Update& update)
{
    PropertyBag small;
    Descriptions large;
    std::set<ULONG> removed;
    if (update.changes)
    {
        removed = update.changes->Removed();
        for (const auto& [id, value] : update.changes->Values().Values())
            if (value.Size() <= largeValue)
                small.Put(value);
            else
                WriteLarge(object, value, large);
    }
    Statement statement(m_database, "INSERT INTO object (id, parent, number, small, removed, large, recipients, "
                                    "own_attachments) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)");
    statement.Bind(1, object).Bind(2, place.object).Bind(3, place.number).Bind(4, WriteBag(small));
    statement.Bind(5, IdsToBytes(removed)).Bind(6, ToBytes(large));
    if (update.recipients)
        statement.Bind(7, WriteBags(*update.recipients));
    statement.Bind(8, update.ownAttachments ? 1 : 0).Step();
}

void Overlay::ChangeObject(ObjectId object, const Update& update)
{
    std::optional<Object> stored = ReadObject(object);
    if (!stored)
    {
        AddObject(object, {}, update);
        return;
    }
    const auto dropLarge = [&](ULONG id)
    {
        if (std::erase_if(stored->large, [&](const auto& value) { return PROP_ID(value.tag) == id; }) != 0)
        {
            Statement statement(m_database, "DELETE FROM large WHERE id = ?1");
            statement.Bind(1, LargeId(object, id)).Step();
        }
    };
    if (update.changes)
    {
        for (const ULONG id : update.changes->Removed())
        {
            dropLarge(id);
            stored->changes.Remove(id);
        }
        for (const auto& [id, value] : update.changes->Values().Values())
        {
            dropLarge(id);
            stored->changes.Forget(id);
            if (value.Size() <= largeValue)
                stored->changes.Put(value);
            else
                WriteLarge(object, value, stored->large);
        }
    }
    Statement statement(m_database, "UPDATE object SET small = ?2, removed = ?3, large = ?4, "
                                    "own_attachments = max(own_attachments, ?5) WHERE id = ?1");
    statement.Bind(1, object).Bind(2, WriteBag(stored->changes.Values()));
    statement.Bind(3, IdsToBytes(stored->changes.Removed())).Bind(4, ToBytes(stored->large));
    statement.Bind(5, update.ownAttachments ? 1 : 0).Step();
    if (update.recipients)
    {
        Statement recipients(m_database, "UPDATE object SET recipients = ?2 WHERE id = ?1");
        recipients.Bind(1, object).Bind(2, WriteBags(*update.recipients)).Step();
    }
}

ObjectId Overlay::AddPart(ObjectId parent, std::int64_t number, const Update& update)
{
    const ObjectId last = m_database.Number("SELECT max(id) FROM object");
    const ObjectId object = std::max({firstPart, last + 1, m_nextPart});
    m_nextPart = object + 1;
    AddObject(object, {parent, number}, update);
    return object;
}

void Overlay::RemoveObject(ObjectId object)
{
    for (const Part& part : ReadParts(object))
        RemoveObject(part.object);
    {
        Statement statement(m_database, "DELETE FROM large WHERE id BETWEEN ?1 AND ?2");
        statement.Bind(1, LargeId(object, 0)).Bind(2, LargeId(object, 0xFFFF)).Step();
    }
    Statement statement(m_database, "DELETE FROM object WHERE id = ?1");
    statement.Bind(1, object).Step();
}
} // namespace Testbed::Pst
