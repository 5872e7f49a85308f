// The file beside a PST that holds all that was changed.
#include "testbed/pst/Overlay.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstring>

namespace Testbed::Pst
{
namespace
{
// "KivO", so that no other program's database is taken for an overlay.
constexpr int applicationId = 0x4B69764F;
constexpr int format = 1;
// Values above this are kept apart, so that a folder's table need not read them.
constexpr size_t largeValue = 1024;
constexpr ObjectId firstPart = ObjectId(1) << 33;
constexpr std::int64_t embeddedNumber = -1;
constexpr int busyMilliseconds = 5000;
// SQLite's own limit on a value; checked before it is reached, for a clear text.
constexpr size_t largestValue = 1000000000;

constexpr const char* schema = R"(
CREATE TABLE meta (name TEXT PRIMARY KEY, value BLOB) WITHOUT ROWID;
CREATE TABLE node (id INTEGER PRIMARY KEY, kind INTEGER NOT NULL, parent INTEGER NOT NULL, created INTEGER NOT NULL,
  removed INTEGER NOT NULL);
CREATE TABLE name (id INTEGER PRIMARY KEY, property_set BLOB NOT NULL, text TEXT NOT NULL, number INTEGER NOT NULL);
CREATE TABLE object (id INTEGER PRIMARY KEY, parent INTEGER NOT NULL, number INTEGER NOT NULL, small BLOB,
  removed BLOB, recipients BLOB, own_attachments INTEGER NOT NULL DEFAULT 0);
CREATE INDEX object_parent ON object (parent) WHERE parent <> 0;
CREATE TABLE large (object INTEGER NOT NULL, property INTEGER NOT NULL, tag INTEGER NOT NULL, value BLOB NOT NULL,
  PRIMARY KEY (object, property));
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
} // namespace

// One use of a prepared statement: bound, stepped and reset at its end.
class Overlay::Statement
{
public:
    Statement(Overlay& overlay, const char* sql) : m_overlay(overlay), m_statement(overlay.Prepare(sql)) {}
    ~Statement()
    {
        sqlite3_reset(m_statement);
        sqlite3_clear_bindings(m_statement);
    }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& Bind(int at, std::int64_t value)
    {
        Verify(sqlite3_bind_int64(m_statement, at, value));
        return *this;
    }

    Statement& Bind(int at, const Bytes& value)
    {
        if (value.size() > largestValue)
            Fail(MAPI_E_TOO_BIG, L"A value is too large for the overlay file");
        // A null pointer would be bound as NULL, which is not the same as no bytes.
        Verify(sqlite3_bind_blob64(m_statement, at, value.empty() ? static_cast<const void*>("") : value.data(),
                                   value.size(), SQLITE_TRANSIENT));
        return *this;
    }

    Statement& Bind(int at, const std::wstring& value)
    {
        const std::string text = Utf8FromWide(value);
        Verify(sqlite3_bind_text(m_statement, at, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT));
        return *this;
    }

    // Whether there is a (further) row.
    bool Step()
    {
        const int result = sqlite3_step(m_statement);
        if (result != SQLITE_ROW && result != SQLITE_DONE)
            m_overlay.FailWith(result, L"read or written");
        return result == SQLITE_ROW;
    }

    std::int64_t Number(int column) { return sqlite3_column_int64(m_statement, column); }
    bool IsNull(int column) { return sqlite3_column_type(m_statement, column) == SQLITE_NULL; }

    Bytes Blob(int column)
    {
        const auto* data = static_cast<const BYTE*>(sqlite3_column_blob(m_statement, column));
        const int size = sqlite3_column_bytes(m_statement, column);
        return data ? Bytes(data, data + size) : Bytes();
    }

    std::wstring Text(int column)
    {
        const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
        return data ? WideFromUtf8({data, static_cast<size_t>(sqlite3_column_bytes(m_statement, column))})
                    : std::wstring();
    }

private:
    void Verify(int result)
    {
        if (result != SQLITE_OK)
            m_overlay.FailWith(result, L"used");
    }

    Overlay& m_overlay;
    sqlite3_stmt* m_statement;
};

// An attachment that the overlay holds.
class OverlayAttachment : public AttachmentContent
{
public:
    OverlayAttachment(std::shared_ptr<Overlay> overlay, ObjectId object)
        : m_overlay(std::move(overlay)),
          m_object(object)
    {
    }

    PropertyBag Properties() const override
    {
        PropertyBag bag;
        m_overlay->ReadObject(m_object).Apply(bag);
        return bag;
    }

    std::shared_ptr<const MessageContent> Embedded() const override
    {
        const ObjectId embedded = m_overlay->ReadEmbedded(m_object);
        return embedded == 0 ? nullptr : m_overlay->OpenMessage(embedded, nullptr);
    }

    // The stored object when `content` is one of this overlay, else 0.
    static ObjectId ObjectOf(const AttachmentContent& content, const Overlay& overlay)
    {
        const auto* own = dynamic_cast<const OverlayAttachment*>(&content);
        return own && own->m_overlay.get() == &overlay ? own->m_object : 0;
    }

private:
    std::shared_ptr<Overlay> m_overlay;
    ObjectId m_object;
};

// A message with what the overlay holds of it.
class OverlayMessage : public MessageContent
{
public:
    OverlayMessage(std::shared_ptr<Overlay> overlay, ObjectId object, std::shared_ptr<const MessageContent> base)
        : m_overlay(std::move(overlay)),
          m_object(object),
          m_base(std::move(base))
    {
    }

    PropertyBag Properties() const override
    {
        PropertyBag bag = m_base ? m_base->Properties() : PropertyBag();
        m_overlay->ReadObject(m_object).Apply(bag);
        return bag;
    }

    std::vector<PropertyBag> Recipients() const override
    {
        if (auto own = m_overlay->ReadRecipients(m_object))
            return std::move(*own);
        return m_base ? m_base->Recipients() : std::vector<PropertyBag>();
    }

    std::vector<std::shared_ptr<const AttachmentContent>> Attachments() const override
    {
        std::vector<std::shared_ptr<const AttachmentContent>> contents;
        for (AttachmentSlot& slot : Slots())
            contents.push_back(std::move(slot.content));
        return contents;
    }

    std::vector<AttachmentSlot> Slots() const
    {
        if (m_base && !m_overlay->OwnsAttachments(m_object))
            return SlotsOf(*m_base);
        std::vector<AttachmentSlot> slots;
        for (const Overlay::AttachmentRecord& record : m_overlay->ReadAttachments(m_object))
            slots.push_back({record.number, std::make_shared<OverlayAttachment>(m_overlay, record.object)});
        return slots;
    }

private:
    std::shared_ptr<Overlay> m_overlay;
    ObjectId m_object;
    std::shared_ptr<const MessageContent> m_base;
};

std::vector<AttachmentSlot> SlotsOf(const MessageContent& content)
{
    if (const auto* own = dynamic_cast<const OverlayMessage*>(&content))
        return own->Slots();
    std::vector<AttachmentSlot> slots;
    for (auto& attachment : content.Attachments())
        slots.push_back({static_cast<ULONG>(slots.size()), std::move(attachment)});
    return slots;
}

Overlay::Overlay(std::wstring path) : m_path(std::move(path))
{
    Open(false);
    if (!m_database && m_writable)
    {
        // Whether a file can be made there is only known by making one, and a store has to say it at logon.
        const HANDLE probe = CreateFileW((m_path + L".probe").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                         FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
        m_writable = probe != INVALID_HANDLE_VALUE;
        if (m_writable)
            CloseHandle(probe);
    }
}

Overlay::~Overlay()
{
    Close();
}

void Overlay::Close() noexcept
{
    for (const auto& [sql, statement] : m_statements)
        sqlite3_finalize(statement);
    m_statements.clear();
    sqlite3_close(m_database);
    m_database = nullptr;
}

void Overlay::FailWith(int code, const wchar_t* action)
{
    const std::wstring text = L"The overlay file \"" + m_path + L"\" cannot be " + action + L": " +
                              WideFromUtf8(m_database ? sqlite3_errmsg(m_database) : sqlite3_errstr(code));
    switch (code & 0xFF)
    {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        Fail(MAPI_E_BUSY, text);
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
    case SQLITE_CANTOPEN:
        Fail(MAPI_E_NO_ACCESS, text);
    case SQLITE_FULL:
        Fail(MAPI_E_NOT_ENOUGH_DISK, text);
    case SQLITE_NOMEM:
        Fail(MAPI_E_NOT_ENOUGH_MEMORY, text);
    case SQLITE_TOOBIG:
        Fail(MAPI_E_TOO_BIG, text);
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        Fail(MAPI_E_CORRUPT_STORE, text);
    default:
        Fail(MAPI_E_DISK_ERROR, text);
    }
}

sqlite3_stmt* Overlay::Prepare(const char* sql)
{
    // The texts are constants of this file, so their addresses tell them apart.
    for (const auto& [known, statement] : m_statements)
        if (known == sql && !sqlite3_stmt_busy(statement))
            return statement;
    sqlite3_stmt* statement = nullptr;
    const int result = sqlite3_prepare_v3(m_database, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (result != SQLITE_OK)
        FailWith(result, L"read");
    m_statements.emplace_back(sql, statement);
    return statement;
}

void Overlay::Execute(const char* sql)
{
    const int result = sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK)
        FailWith(result, L"written");
}

void Overlay::Open(bool create)
{
    if (m_database)
        return;
    const DWORD attributes = GetFileAttributesW(m_path.c_str());
    const bool exists = attributes != INVALID_FILE_ATTRIBUTES;
    if (!exists && !create)
        return;
    if (exists && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        Fail(MAPI_E_CORRUPT_STORE, L"\"" + m_path + L"\" is a folder where the overlay file should be");
    m_writable = !exists || (attributes & FILE_ATTRIBUTE_READONLY) == 0;
    const std::string path = Utf8FromWide(m_path);
    const int flags = m_writable ? SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE : SQLITE_OPEN_READONLY;
    const int result = sqlite3_open_v2(path.c_str(), &m_database, flags | SQLITE_OPEN_FULLMUTEX, nullptr);
    try
    {
        if (result != SQLITE_OK)
            FailWith(result, L"opened");
        m_writable = m_writable && sqlite3_db_readonly(m_database, "main") == 0;
        sqlite3_busy_timeout(m_database, busyMilliseconds);
        Execute("PRAGMA journal_mode = TRUNCATE; PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = OFF;");
        const auto pragma = [this](const char* sql)
        {
            Statement statement(*this, sql);
            return statement.Step() ? statement.Number(0) : 0;
        };
        std::int64_t application = pragma("PRAGMA application_id");
        if (application == 0 && pragma("SELECT count(*) FROM sqlite_schema") == 0 && m_writable && create && m_identity)
        {
            Execute("BEGIN IMMEDIATE");
            Execute(schema);
            Execute(("PRAGMA application_id = " + std::to_string(applicationId) +
                     "; PRAGMA user_version = " + std::to_string(format))
                        .c_str());
            const auto put = [this](const wchar_t* name, const Bytes& value)
            {
                Statement statement(*this, "INSERT INTO meta (name, value) VALUES (?1, ?2)");
                statement.Bind(1, std::wstring(name)).Bind(2, value).Step();
            };
            put(L"record key", m_identity->recordKey);
            put(L"new store", Bytes(1, m_identity->isNewStore ? 1 : 0));
            const std::string name = Utf8FromWide(m_identity->displayName);
            put(L"display name", Bytes(name.begin(), name.end()));
            Execute("COMMIT");
            application = applicationId;
        }
        if (application == 0 && pragma("SELECT count(*) FROM sqlite_schema") == 0)
        {
            // A file without any contents: one that was being made when its process ended. It is made anew when needed.
            Close();
            return;
        }
        if (application != applicationId || pragma("PRAGMA user_version") != format)
            Fail(MAPI_E_CORRUPT_STORE, L"The file \"" + m_path + L"\" is not an overlay of this version");
    }
    catch (...)
    {
        Close();
        throw;
    }
}

std::optional<Overlay::Identity> Overlay::ReadIdentity()
{
    const std::lock_guard lock(m_lock);
    if (!m_database)
        return std::nullopt;
    Identity identity;
    Statement statement(*this, "SELECT name, value FROM meta");
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
        Fail(MAPI_E_CORRUPT_STORE, L"The overlay file \"" + m_path + L"\" does not say what it belongs to");
    return identity;
}

void Overlay::SetIdentity(Identity identity)
{
    const std::lock_guard lock(m_lock);
    m_identity = std::move(identity);
}

std::int64_t Overlay::DataVersion()
{
    const std::lock_guard lock(m_lock);
    if (!m_database)
    {
        Open(false);
        if (!m_database)
            return 0;
    }
    Statement statement(*this, "PRAGMA data_version");
    return statement.Step() ? statement.Number(0) : 0;
}

Overlay::Transaction::Transaction(Overlay& overlay) : m_overlay(overlay), m_lock(overlay.m_lock)
{
    m_overlay.Open(true);
    if (!m_overlay.m_writable)
        Fail(MAPI_E_NO_ACCESS, L"The overlay file \"" + m_overlay.m_path + L"\" is read-only");
    m_overlay.Execute("BEGIN IMMEDIATE");
}

Overlay::Transaction::~Transaction()
{
    if (m_open)
        sqlite3_exec(m_overlay.m_database, "ROLLBACK", nullptr, nullptr, nullptr);
}

void Overlay::Transaction::Commit()
{
    m_overlay.Execute("COMMIT");
    m_open = false;
}

std::vector<Overlay::NodeRecord> Overlay::ReadNodes()
{
    const std::lock_guard lock(m_lock);
    std::vector<NodeRecord> records;
    if (!m_database)
        return records;
    Statement statement(*this, "SELECT id, kind, parent, created, removed FROM node ORDER BY id");
    while (statement.Step())
    {
        NodeRecord record;
        record.node.id = static_cast<NodeId>(statement.Number(0));
        record.node.kind = static_cast<NodeKind>(statement.Number(1));
        record.node.parent = static_cast<NodeId>(statement.Number(2));
        record.created = statement.Number(3) != 0;
        record.removed = statement.Number(4) != 0;
        records.push_back(record);
    }
    return records;
}

std::vector<NamedProperty> Overlay::ReadNames()
{
    const std::lock_guard lock(m_lock);
    std::vector<NamedProperty> names;
    if (!m_database)
        return names;
    Statement statement(*this, "SELECT id, property_set, text, number FROM name ORDER BY id");
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

std::vector<NodeId> Overlay::ReadStoredNodes()
{
    const std::lock_guard lock(m_lock);
    std::vector<NodeId> nodes;
    if (!m_database)
        return nodes;
    Statement statement(*this, "SELECT id FROM object WHERE parent = 0");
    while (statement.Step())
        nodes.push_back(static_cast<NodeId>(statement.Number(0)));
    return nodes;
}

void Overlay::WriteNode(const NodeRecord& record)
{
    Statement statement(*this, "INSERT OR REPLACE INTO node (id, kind, parent, created, removed) "
                               "VALUES (?1, ?2, ?3, ?4, ?5)");
    statement.Bind(1, record.node.id).Bind(2, static_cast<std::int64_t>(record.node.kind));
    statement.Bind(3, record.node.parent).Bind(4, record.created ? 1 : 0).Bind(5, record.removed ? 1 : 0).Step();
}

NodeId Overlay::NewNode(NodeKind kind)
{
    std::int64_t next = Nodes::firstCreated >> 5;
    {
        Statement read(*this, "SELECT value FROM meta WHERE name = 'next node'");
        if (read.Step())
            next = read.Number(0);
    }
    if (next > std::int64_t(0xFFFFFFFF >> 5))
        Fail(MAPI_E_NOT_ENOUGH_RESOURCES, L"The store has no numbers left for further objects");
    Statement write(*this, "INSERT OR REPLACE INTO meta (name, value) VALUES ('next node', ?1)");
    write.Bind(1, next + 1).Step();
    return MakeNodeId(static_cast<std::uint32_t>(next), kind);
}

void Overlay::WriteName(const NamedProperty& name)
{
    const auto* set = reinterpret_cast<const BYTE*>(&name.name.set);
    Statement statement(*this, "INSERT OR REPLACE INTO name (id, property_set, text, number) VALUES (?1, ?2, ?3, ?4)");
    statement.Bind(1, std::int64_t(name.id)).Bind(2, Bytes(set, set + sizeof(GUID)));
    statement.Bind(3, name.name.text).Bind(4, std::int64_t(name.name.number)).Step();
}

void Overlay::EnsureObject(ObjectId object)
{
    Statement statement(*this, "INSERT OR IGNORE INTO object (id, parent, number) VALUES (?1, 0, 0)");
    statement.Bind(1, object).Step();
}

ObjectId Overlay::NewObject(ObjectId parent, std::int64_t number)
{
    ObjectId object = firstPart;
    {
        Statement read(*this, "SELECT value FROM meta WHERE name = 'next part'");
        if (read.Step())
            object = read.Number(0);
    }
    {
        Statement write(*this, "INSERT OR REPLACE INTO meta (name, value) VALUES ('next part', ?1)");
        write.Bind(1, object + 1).Step();
    }
    Statement insert(*this, "INSERT INTO object (id, parent, number) VALUES (?1, ?2, ?3)");
    insert.Bind(1, object).Bind(2, parent).Bind(3, number).Step();
    return object;
}

void Overlay::WriteProperties(ObjectId object, const PropertyChanges& changes)
{
    Summary stored = ReadSummary(object);
    const auto dropLarge = [&](ULONG id)
    {
        const auto found = std::find_if(stored.large.begin(), stored.large.end(),
                                        [&](const auto& description) { return PROP_ID(description.tag) == id; });
        if (found != stored.large.end())
        {
            Statement statement(*this, "DELETE FROM large WHERE object = ?1 AND property = ?2");
            statement.Bind(1, object).Bind(2, std::int64_t(id)).Step();
            stored.large.erase(found);
        }
    };
    for (const ULONG id : changes.Removed())
    {
        dropLarge(id);
        stored.changes.Remove(id);
    }
    for (const auto& [id, value] : changes.Values().Values())
    {
        dropLarge(id);
        if (value.Size() <= largeValue)
        {
            stored.changes.Put(value);
            continue;
        }
        stored.changes.Forget(id);
        Statement statement(*this, "INSERT INTO large (object, property, tag, value) VALUES (?1, ?2, ?3, ?4)");
        statement.Bind(1, object).Bind(2, std::int64_t(id)).Bind(3, std::int64_t(value.Tag()));
        statement.Bind(4, WriteValue(value)).Step();
    }
    Statement statement(*this, "UPDATE object SET small = ?2, removed = ?3 WHERE id = ?1");
    statement.Bind(1, object).Bind(2, WriteBag(stored.changes.Values()));
    statement.Bind(3, IdsToBytes(stored.changes.Removed())).Step();
}

void Overlay::ChangeObject(ObjectId object, const PropertyChanges& changes)
{
    EnsureObject(object);
    WriteProperties(object, changes);
}

void Overlay::ChangeMessage(ObjectId message, const MessageUpdate& update)
{
    EnsureObject(message);
    WriteProperties(message, update.changes);
    if (update.recipients)
    {
        Statement statement(*this, "UPDATE object SET recipients = ?2 WHERE id = ?1");
        statement.Bind(1, message).Bind(2, WriteBags(*update.recipients)).Step();
    }
    if (update.attachments)
        WriteAttachments(message, *update.attachments);
}

void Overlay::WriteAttachments(ObjectId message, const std::vector<AttachmentSlot>& slots)
{
    for (const AttachmentRecord& record : ReadAttachments(message))
    {
        const bool kept = std::any_of(slots.begin(), slots.end(),
                                      [&](const AttachmentSlot& slot)
                                      {
                                          return slot.number == record.number &&
                                                 OverlayAttachment::ObjectOf(*slot.content, *this) == record.object;
                                      });
        if (!kept)
            RemoveObject(record.object);
    }
    const std::vector<AttachmentRecord> present = ReadAttachments(message);
    for (const AttachmentSlot& slot : slots)
    {
        if (std::any_of(present.begin(), present.end(),
                        [&](const AttachmentRecord& record) { return record.number == slot.number; }))
        {
            continue;
        }
        PropertyChanges changes;
        const PropertyBag properties = slot.content->Properties();
        for (const auto& [id, value] : properties.Values())
            changes.Put(value);
        const ObjectId object = NewObject(message, slot.number);
        WriteProperties(object, changes);
        if (const auto embedded = slot.content->Embedded())
            CopyMessage(NewObject(object, embeddedNumber), *embedded);
    }
    Statement statement(*this, "UPDATE object SET own_attachments = 1 WHERE id = ?1");
    statement.Bind(1, message).Step();
}

void Overlay::CopyMessage(ObjectId message, const MessageContent& content)
{
    MessageUpdate update;
    const PropertyBag properties = content.Properties();
    for (const auto& [id, value] : properties.Values())
        update.changes.Put(value);
    update.recipients = content.Recipients();
    update.attachments = SlotsOf(content);
    ChangeMessage(message, update);
}

void Overlay::RemoveObject(ObjectId object)
{
    std::vector<ObjectId> parts;
    {
        Statement statement(*this, "SELECT id FROM object WHERE parent = ?1 AND parent <> 0");
        statement.Bind(1, object);
        while (statement.Step())
            parts.push_back(statement.Number(0));
    }
    for (const ObjectId part : parts)
        RemoveObject(part);
    {
        Statement statement(*this, "DELETE FROM large WHERE object = ?1");
        statement.Bind(1, object).Step();
    }
    Statement statement(*this, "DELETE FROM object WHERE id = ?1");
    statement.Bind(1, object).Step();
}

Overlay::Summary Overlay::ReadSummary(ObjectId object)
{
    const std::lock_guard lock(m_lock);
    Summary summary;
    if (!m_database)
        return summary;
    {
        Statement statement(*this, "SELECT small, removed FROM object WHERE id = ?1");
        statement.Bind(1, object);
        if (!statement.Step())
            return summary;
        const Bytes removed = statement.Blob(1);
        for (size_t at = 0; at + 1 < removed.size(); at += 2)
            summary.changes.Remove(static_cast<ULONG>(removed[at] | (removed[at + 1] << 8)));
        if (!statement.IsNull(0))
        {
            const PropertyBag small = ReadBag(statement.Blob(0));
            for (const auto& [id, value] : small.Values())
                summary.changes.Put(value);
        }
    }
    Statement statement(*this, "SELECT tag, length(value) FROM large WHERE object = ?1");
    statement.Bind(1, object);
    while (statement.Step())
        summary.large.push_back({static_cast<ULONG>(statement.Number(0)), static_cast<size_t>(statement.Number(1))});
    return summary;
}

PropertyChanges Overlay::ReadObject(ObjectId object)
{
    const std::lock_guard lock(m_lock);
    Summary summary = ReadSummary(object);
    for (const PropertySource::Description& description : summary.large)
        if (const auto value = ReadLarge(object, PROP_ID(description.tag)))
            summary.changes.Put(*value);
    return std::move(summary.changes);
}

std::optional<PropValue> Overlay::ReadLarge(ObjectId object, ULONG id)
{
    const std::lock_guard lock(m_lock);
    if (!m_database)
        return std::nullopt;
    Statement statement(*this, "SELECT value FROM large WHERE object = ?1 AND property = ?2");
    statement.Bind(1, object).Bind(2, std::int64_t(id));
    return statement.Step() ? std::optional<PropValue>(ReadValue(statement.Blob(0))) : std::nullopt;
}

std::optional<std::vector<PropertyBag>> Overlay::ReadRecipients(ObjectId message)
{
    const std::lock_guard lock(m_lock);
    if (!m_database)
        return std::nullopt;
    Statement statement(*this, "SELECT recipients FROM object WHERE id = ?1");
    statement.Bind(1, message);
    if (!statement.Step() || statement.IsNull(0))
        return std::nullopt;
    return ReadBags(statement.Blob(0));
}

bool Overlay::OwnsAttachments(ObjectId message)
{
    const std::lock_guard lock(m_lock);
    if (!m_database)
        return false;
    Statement statement(*this, "SELECT own_attachments FROM object WHERE id = ?1");
    statement.Bind(1, message);
    return statement.Step() && statement.Number(0) != 0;
}

std::vector<Overlay::AttachmentRecord> Overlay::ReadAttachments(ObjectId message)
{
    const std::lock_guard lock(m_lock);
    std::vector<AttachmentRecord> records;
    if (!m_database)
        return records;
    Statement statement(*this, "SELECT id, number FROM object WHERE parent = ?1 AND parent <> 0 ORDER BY number");
    statement.Bind(1, message);
    while (statement.Step())
        records.push_back({statement.Number(0), static_cast<ULONG>(statement.Number(1))});
    return records;
}

ObjectId Overlay::ReadEmbedded(ObjectId attachment)
{
    const std::lock_guard lock(m_lock);
    if (!m_database)
        return 0;
    Statement statement(*this, "SELECT id FROM object WHERE parent = ?1 AND parent <> 0 AND number = ?2");
    statement.Bind(1, attachment).Bind(2, embeddedNumber);
    return statement.Step() ? statement.Number(0) : 0;
}

std::shared_ptr<const MessageContent> Overlay::OpenMessage(ObjectId message, std::shared_ptr<const MessageContent> base)
{
    return std::make_shared<OverlayMessage>(shared_from_this(), message, std::move(base));
}
} // namespace Testbed::Pst
