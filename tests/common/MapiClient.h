// A MAPI client as one that has nothing but MAPI's documentation would be: everything goes through mapi32.dll.
#pragma once

#include "common/Boundary.h"
#include "common/ComPtr.h"
#include "common/MsgServiceAdmin2.h"
#include "common/PropValue.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace Tests
{
/// mapi32.dll, loaded and initialised for this thread until the object's end. Several may exist. Methods throw
/// `Common::Failure`, with the extended error's text where there is one.
class MapiClient
{
public:
    explicit MapiClient(ULONG flags = MAPI_MULTITHREAD_NOTIFICATIONS);
    ~MapiClient();
    MapiClient(const MapiClient&) = delete;
    MapiClient& operator=(const MapiClient&) = delete;

    const Common::MapiMemory& Memory() const noexcept { return m_memory; }

    Common::ComPtr<IProfAdmin> Admin() const;
    /// MAPILogonEx as it is; `profile` is wide, null for none.
    HRESULT TryLogon(const wchar_t* profile, ULONG flags, Common::ComPtr<IMAPISession>& session) const;
    /// Logs on to the profile with a session of its own, without mail.
    Common::ComPtr<IMAPISession> Logon(const std::wstring& profile) const;

    /// All rows of a table by HrQueryAllRows, each value by its property's identifier.
    using Row = std::map<ULONG, Common::PropValue>;
    std::vector<Row> Rows(IMAPITable& table, const std::vector<ULONG>& columns) const;

private:
    template <class F>
    F Find(const char* name) const;

    HMODULE m_module;
    Common::MapiMemory m_memory;
};

/// A new profile, removed at the object's end. Methods throw `Common::Failure`.
class TestProfile
{
public:
    /// `name` empty: one that no other profile has.
    explicit TestProfile(const MapiClient& client, std::wstring name = {});
    ~TestProfile();
    TestProfile(const TestProfile&) = delete;
    TestProfile& operator=(const TestProfile&) = delete;

    const MapiClient& Client() const noexcept { return m_client; }
    const std::wstring& Name() const noexcept { return m_name; }
    Common::ComPtr<IMsgServiceAdmin2> Services() const;

    /// Creates a service of MAPISVC.INF and gives its UID.
    MAPIUID CreateService(const std::wstring& service) const;
    void Configure(const MAPIUID& service, const std::vector<Common::PropValue>& values) const;
    /// The same for the PST provider, with the file's path.
    MAPIUID AddPst(const std::filesystem::path& file) const;

    /// The UID of a service's first provider.
    MAPIUID ProviderOf(const MAPIUID& service) const;

private:
    const MapiClient& m_client;
    std::wstring m_name;
};

/// A session of a client's own, logged off at the object's end. Methods throw `Common::Failure`.
class TestSession
{
public:
    TestSession(const MapiClient& client, const std::wstring& profile);
    ~TestSession() { Logoff(); }
    TestSession(const TestSession&) = delete;
    TestSession& operator=(const TestSession&) = delete;

    IMAPISession& Object() const noexcept { return *m_session; }
    /// The entry ID of the stores table's row for that service, or of its only row.
    Common::Bytes StoreEntryId(const MAPIUID* service = nullptr) const;
    HRESULT TryOpenStore(const Common::Bytes& entryId, ULONG flags, Common::ComPtr<IMsgStore>& store) const;
    Common::ComPtr<IMsgStore> OpenStore(const MAPIUID* service = nullptr,
                                        ULONG flags = MDB_WRITE | MDB_NO_DIALOG | MDB_NO_MAIL) const;
    void Logoff() noexcept;

private:
    const MapiClient& m_client;
    Common::ComPtr<IMAPISession> m_session;
};

/// A message service in MAPISVC.INF with one store provider, taken out again at the object's end.
class InstalledTestService
{
public:
    /// `dllName` as the file has it: without "32".
    InstalledTestService(std::wstring name, const std::wstring& dllName, const std::wstring& entryName,
                         const std::wstring& serviceFlags = L"", const std::wstring& providerFlags = L"");
    ~InstalledTestService();
    InstalledTestService(const InstalledTestService&) = delete;
    InstalledTestService& operator=(const InstalledTestService&) = delete;

    /// The file of the build's mail client.
    static std::filesystem::path File();
    /// Writes one entry; a null value removes it.
    static void Write(const std::wstring& section, const wchar_t* key, const wchar_t* value);

private:
    std::wstring m_name;
};

/// The text of an object's extended error for `result`; empty when it has none.
template <class Object>
std::wstring ErrorText(const Common::MapiMemory& memory, Object& object, HRESULT result)
{
    Common::MapiBlock<MAPIERROR> error(memory);
    if (FAILED(object.GetLastError(result, MAPI_UNICODE, error.Put())) || !error || !error->lpszError)
        return {};
    return reinterpret_cast<const wchar_t*>(error->lpszError);
}

/// Throws `Common::Failure` with the object's extended error when `result` is a failure.
template <class Object>
void CheckOn(const Common::MapiMemory& memory, Object& object, HRESULT result, const wchar_t* call)
{
    if (FAILED(result))
        Common::Fail(result, std::wstring(call) + L" failed: " + ErrorText(memory, object, result));
}
} // namespace Tests
