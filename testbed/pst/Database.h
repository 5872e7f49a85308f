// One SQLite file: its statements, each prepared once, its transactions, and its errors as failures that say which
// file.
#pragma once

#include "common/Mutex.h"
#include "common/PropValue.h"
#include "testbed/common/Namespace.h"

#include <mutex>

struct sqlite3;
struct sqlite3_stmt;

namespace Testbed::Pst
{
/// A database that this process has to itself while it is open, so that reading a row costs no lock of the file.
/// Everything throws `Failure`: MAPI_E_NO_ACCESS when the file cannot be written to, MAPI_E_CORRUPT_STORE when it is
/// damaged or no database, MAPI_E_BUSY when another process holds it, MAPI_E_NOT_ENOUGH_DISK, MAPI_E_DISK_ERROR. Calls
/// on an open database are made with `Lock` held.
class Database
{
public:
    explicit Database(std::wstring path) : m_path(std::move(path)) {}
    ~Database() { Close(); }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    const std::wstring& Path() const noexcept { return m_path; }
    RecursiveMutex& Lock() noexcept { return m_lock; }
    bool IsOpen() const noexcept { return m_database != nullptr; }

    /// Opens the file, which is made when it is not there. What a process that was ended left half done is undone.
    void Open();
    /// Opens the file without touching it or anything beside it.
    void OpenReadOnly();
    void Close() noexcept;

    /// Whether it was opened for writing, and can be written.
    bool Writable() const noexcept;
    void Execute(const char* sql);

    /// One use of a prepared statement: bound, stepped, and reset at its end. `sql` is a constant.
    class Statement
    {
    public:
        Statement(Database& database, const char* sql) : m_database(database), m_statement(database.Prepare(sql)) {}
        ~Statement();
        Statement(const Statement&) = delete;
        Statement& operator=(const Statement&) = delete;

        Statement& Bind(int at, std::int64_t value);
        Statement& Bind(int at, const Bytes& value);
        Statement& Bind(int at, const std::wstring& value);
        /// Whether there is a (further) row.
        bool Step();

        std::int64_t Number(int column);
        bool IsNull(int column);
        Bytes Blob(int column);
        std::wstring Text(int column);

    private:
        void Verify(int result);

        Database& m_database;
        sqlite3_stmt* m_statement;
    };

    /// The number in the first column of a statement's first row, 0 without one.
    std::int64_t Number(const char* sql);

    /// All that is written while this lives becomes one unit: `Commit` keeps it, destruction without it undoes it.
    /// Holds the lock. Only one at a time.
    class Transaction
    {
    public:
        explicit Transaction(Database& database);
        ~Transaction();
        Transaction(const Transaction&) = delete;
        Transaction& operator=(const Transaction&) = delete;
        void Commit();

    private:
        Database& m_database;
        std::unique_lock<RecursiveMutex> m_lock;
        bool m_open = true;
    };

private:
    void OpenWith(const std::string& name, int flags);
    sqlite3_stmt* Prepare(const char* sql);
    [[noreturn]] void FailWith(int code, const wchar_t* action);

    std::wstring m_path;
    RecursiveMutex m_lock;
    sqlite3* m_database = nullptr;
    std::vector<std::pair<const char*, sqlite3_stmt*>> m_statements;
};
} // namespace Testbed::Pst
