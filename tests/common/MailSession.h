// One provider module driven by hand, past MAPI: for tests that call a service's entry, a provider object or a logon
// with arguments of their own choice. Whoever wants what MAPI makes of them uses MapiClient.h.
#pragma once

#include "testbed/mapi/Profile.h"
#include "testbed/mapi/ProviderAdmin.h"
#include "testbed/mapi/StatusTable.h"
#include "tests/common/LoadedMapi.h"

#include <memory>

namespace Tests
{
using namespace Testbed;

/// A profile in memory, which nobody else can open.
std::shared_ptr<Profile> MemoryProfile(std::wstring name);

/// A message service as MAPI's configuration file describes it.
struct ServiceDefinition
{
    /// "PST", "ARCHIVE"...: the name under which the profile knows the service.
    std::wstring serviceName;
    std::wstring displayName;
    /// Full path of the module that has the service entry and MSProviderInit.
    std::filesystem::path modulePath;
    /// The service entry's export: "ServiceEntry" for most, "NSTServiceEntry" for mspst32.dll.
    std::string entryName = "ServiceEntry";
    /// PR_RESOURCE_FLAGS of the provider's section.
    ULONG resourceFlags = 0;
};

/// How a session is set up.
struct SessionOptions
{
    ServiceDefinition service;
    /// The profile; several sessions may share one.
    std::shared_ptr<Profile> profile;
    /// The MAPI module; null loads the registered one.
    std::shared_ptr<LoadedMapi> mapi;
};

/// What IMSProvider::Logon is called with, and what a test may want to change in it.
struct LogonOptions
{
    ULONG flags = MDB_WRITE | MDB_NO_DIALOG | MAPI_UNICODE;
    LPCIID interfaceId = nullptr;
};

/// A session. All failing operations throw `Failure` with the module's own code and a sentence that holds the extended
/// error when there was one. The destructor logs off. One thread at a time; the objects it gives are as free-threaded
/// as their provider makes them.
class MailSession
{
public:
    /// Finds the service of that name in the profile, if it is there; touches nothing else. Throws `Failure` for a null
    /// profile or when no MAPI module is found.
    explicit MailSession(SessionOptions options);
    ~MailSession();
    MailSession(const MailSession&) = delete;
    MailSession& operator=(const MailSession&) = delete;

    const MapiMemory& Memory() const noexcept;
    LoadedMapi& Mapi() const noexcept;
    Profile& ProfileOf() const noexcept;
    /// Whether the profile has the service.
    bool HasService() const;
    /// The service's and its store provider's sections. Throws `Failure` (MAPI_E_UNCONFIGURED) when there are none.
    Uid ServiceSection() const;
    Uid ProviderSection() const;

    /// Creates the service: its section (PR_SERVICE_UID, PR_SERVICE_NAME, PR_DISPLAY_NAME, PR_SERVICE_DLL_NAME,
    /// PR_SERVICE_ENTRY_NAME), its provider's section, then calls the entry with MSG_SERVICE_CREATE. A failing entry
    /// leaves no sections behind. Creating it a second time throws `Failure` (MAPI_E_COLLISION).
    void CreateService();
    /// Calls the entry with MSG_SERVICE_CONFIGURE and these values.
    void Configure(const std::vector<PropValue>& values);
    /// `Configure` with the path of the PST file (0x6610001F).
    void ConfigurePath(const std::wstring& pstPath);
    /// Calls the entry with MSG_SERVICE_DELETE and removes the service's sections. Logs off first.
    void DeleteService();
    /// Calls the entry with any context. Gives the entry's own result and does not throw for a failing one; the
    /// extended error's text goes to `error` when given. `withAdmin` and `withSupport` false pass null for these
    /// arguments.
    HRESULT CallEntry(ULONG context, const std::vector<PropValue>& values, std::wstring* error = nullptr,
                      bool withAdmin = true, bool withSupport = true);

    /// Loads the provider, initialises it (once) and logs on with the store entry ID from the provider's section, taken
    /// out of its envelope; null when it has none yet. A session that is logged on logs off first.
    void Logon(const LogonOptions& options = {});
    /// As `Logon`, but gives the provider's result and its extended error's text instead of throwing.
    HRESULT TryLogon(const LogonOptions& options, std::wstring* error = nullptr);
    /// IMSProvider::SpoolerLogon with the security that `Logon` got. Either output may come back null.
    HRESULT SpoolerLogon(ULONG flags, ComPtr<IMSLogon>& logon, ComPtr<IMsgStore>& store, std::wstring* error = nullptr);
    /// Releases the store, logs off, shuts the provider down and unloads its module. Nothing to do is no error.
    void Logoff() noexcept;

    /// Initialises the provider without logging on.
    void LoadProvider();

    /// Null when there is none yet.
    IMSProvider* Provider() const noexcept;
    IMSLogon* LogonObject() const noexcept;
    IMsgStore* Store() const noexcept;
    /// The store, for callers that keep it. Throws `Failure` (MAPI_E_NOT_INITIALIZED) when not logged on.
    ComPtr<IMsgStore> OpenStore() const;
    /// The provider's version as MSProviderInit reported it.
    ULONG ProviderVersion() const noexcept;

    /// A new support object as the provider's Logon gets it.
    ComPtr<IMAPISupport> MakeSupport() const;
    /// A new admin object of the service.
    ComPtr<IProviderAdmin> MakeAdmin();
    /// Opens an object as IMAPISession::OpenEntry does: a wrapped store entry ID gives the store, anything else goes to
    /// the provider's logon.
    HRESULT OpenEntry(ULONG size, LPENTRYID entryId, LPCIID iid, ULONG flags, ULONG* type, LPUNKNOWN* object);

    /// The provider's status row; empty when it has none.
    PropertyBag StatusRow() const;

private:
    struct State;
    std::shared_ptr<State> m_state;
};
} // namespace Tests
