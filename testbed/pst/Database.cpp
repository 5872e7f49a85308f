// One SQLite file.
#include "testbed/pst/Database.h"

#include "common/Boundary.h"
#include "common/Text.h"

#include <sqlite3.h>

namespace Testbed::Pst
{
namespace
{
// A store that is opened again may have to wait for its last session to end.
constexpr int busyMilliseconds = 2000;
// SQLite's own limit on a value; checked before it is reached, for a clear text.
constexpr size_t largestValue = 1000000000;
} // namespace

void Database::OpenWith(const std::string& name, int flags)
{
    const int result = sqlite3_open_v2(name.c_str(), &m_database, flags | SQLITE_OPEN_FULLMUTEX, nullptr);
    if (result != SQLITE_OK)
    {
        try
        {
            FailWith(result, L"opened");
        }
        catch (...)
        {
            Close();
            throw;
        }
    }
    sqlite3_busy_timeout(m_database, busyMilliseconds);
}

void Database::Open()
{
    OpenWith(Utf8FromWide(m_path), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    try
    {
        // Large pages, for each that a transaction touches is two writes, and a write costs more than what is written.
        Execute("PRAGMA page_size = 16384;");
        // The log need not reach the disk with each transaction: the end of the process loses nothing, and the end of
        // the machine at most the last ones, each as a whole.
        Execute("PRAGMA locking_mode = EXCLUSIVE; PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;"
                "PRAGMA wal_autocheckpoint = 1000; PRAGMA cache_size = -8192; PRAGMA foreign_keys = OFF;");
    }
    catch (...)
    {
        Close();
        throw;
    }
}

void Database::OpenReadOnly()
{
    // What was not yet taken over from the log of an ended process can only be read by way of that log.
    const bool hasLog = GetFileAttributesW((m_path + L"-wal").c_str()) != INVALID_FILE_ATTRIBUTES;
    if (hasLog)
    {
        OpenWith(Utf8FromWide(m_path), SQLITE_OPEN_READONLY);
        return;
    }
    std::string name = "file:///";
    for (const char c : Utf8FromWide(m_path))
    {
        if (c == '%' || c == '?' || c == '#')
        {
            constexpr char digits[] = "0123456789ABCDEF";
            name += '%';
            name += digits[(c >> 4) & 0xF];
            name += digits[c & 0xF];
        }
        else
        {
            name += c == '\\' ? '/' : c;
        }
    }
    OpenWith(name + "?immutable=1", SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
}

void Database::Close() noexcept
{
    for (const auto& [sql, statement] : m_statements)
        sqlite3_finalize(statement);
    m_statements.clear();
    sqlite3_close(m_database);
    m_database = nullptr;
}

bool Database::Writable() const noexcept
{
    return m_database && sqlite3_db_readonly(m_database, "main") == 0;
}

void Database::FailWith(int code, const wchar_t* action)
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

sqlite3_stmt* Database::Prepare(const char* sql)
{
    // The texts are constants, so their addresses tell them apart.
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

void Database::Execute(const char* sql)
{
    const int result = sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr);
    if (result != SQLITE_OK)
        FailWith(result, L"written");
}

std::int64_t Database::Number(const char* sql)
{
    Statement statement(*this, sql);
    return statement.Step() ? statement.Number(0) : 0;
}

Database::Statement::~Statement()
{
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
}

Database::Statement& Database::Statement::Bind(int at, std::int64_t value)
{
    Verify(sqlite3_bind_int64(m_statement, at, value));
    return *this;
}

Database::Statement& Database::Statement::Bind(int at, const Bytes& value)
{
    if (value.size() > largestValue)
        Fail(MAPI_E_TOO_BIG, L"A value is too large for the overlay file");
    // A null pointer would be bound as NULL, which is not the same as no bytes.
    Verify(sqlite3_bind_blob64(m_statement, at, value.empty() ? static_cast<const void*>("") : value.data(),
                               value.size(), SQLITE_TRANSIENT));
    return *this;
}

Database::Statement& Database::Statement::Bind(int at, const std::wstring& value)
{
    const std::string text = Utf8FromWide(value);
    Verify(sqlite3_bind_text(m_statement, at, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT));
    return *this;
}

bool Database::Statement::Step()
{
    const int result = sqlite3_step(m_statement);
    if (result != SQLITE_ROW && result != SQLITE_DONE)
        m_database.FailWith(result, L"read or written");
    return result == SQLITE_ROW;
}

std::int64_t Database::Statement::Number(int column)
{
    return sqlite3_column_int64(m_statement, column);
}

bool Database::Statement::IsNull(int column)
{
    return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
}

Bytes Database::Statement::Blob(int column)
{
    const auto* data = static_cast<const BYTE*>(sqlite3_column_blob(m_statement, column));
    const int size = sqlite3_column_bytes(m_statement, column);
    return data ? Bytes(data, data + size) : Bytes();
}

std::wstring Database::Statement::Text(int column)
{
    const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
    return data ? WideFromUtf8({data, static_cast<size_t>(sqlite3_column_bytes(m_statement, column))}) : std::wstring();
}

void Database::Statement::Verify(int result)
{
    if (result != SQLITE_OK)
        m_database.FailWith(result, L"used");
}

Database::Transaction::Transaction(Database& database) : m_database(database), m_lock(database.m_lock)
{
    m_database.Execute("BEGIN IMMEDIATE");
}

Database::Transaction::~Transaction()
{
    if (m_open)
        sqlite3_exec(m_database.m_database, "ROLLBACK", nullptr, nullptr, nullptr);
}

void Database::Transaction::Commit()
{
    m_database.Execute("COMMIT");
    m_open = false;
}
} // namespace Testbed::Pst
