// A session: one profile's providers at work, and IMAPISession over it.
#pragma once

#include "common/Mutex.h"
#include "testbed/mapi/Notifications.h"
#include "testbed/mapi/Profile.h"
#include "testbed/mapi/ServiceModule.h"
#include "testbed/mapi/StatusTable.h"
#include "testbed/mapi/StoreLogon.h"

#include <atomic>

namespace Testbed
{
/// What MAPILogonEx starts. Providers are loaded when a store of theirs is opened first. Thread-safe; no lock is held
/// while a provider is called but the one that has stores opened one after the other.
///
/// Where MAPI's documentation leaves a choice:
/// - A store's row without an entry ID of the provider's shows one of this subsystem's, by which the section is found
///   again; Logon then gets none.
/// - MAPI_BEST_ACCESS: Logon with MDB_WRITE, and without when that is MAPI_E_NO_ACCESS. MDB_ONLINE does not reach it.
/// - MAPI_E_FAILONEPROVIDER, MAPI_E_NO_ACCESS and MAPI_E_USER_CANCEL leave the service enabled, every other failure of
///   Logon or of the provider's initialisation disables it: MAPI_E_LOGON_FAILED from then on. A provider's DLL that
///   cannot be loaded is MAPI_E_FAILONEPROVIDER.
/// - A second MAPI_E_UNCONFIGURED is given to the client, as MAPI_E_LOGON_FAILED where it asked for no dialogs.
class Session : public std::enable_shared_from_this<Session>
{
public:
    /// `flags` are MAPILogonEx's. Throws `Failure`.
    Session(std::shared_ptr<Profile> profile, ULONG flags, const MapiMemory& memory);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Logs all stores off, shuts the providers down and gives the profile up. What providers still hold of the session
    /// gives MAPI_E_END_OF_SESSION. A second call does nothing.
    void End() noexcept;

    const std::shared_ptr<Profile>& ProfileOf() const noexcept { return m_profile; }
    const MapiMemory& Memory() const noexcept { return m_memory; }
    bool Ended() const noexcept { return m_ended; }

    /// IMAPISession's methods of these names. They throw `Failure`.
    HRESULT OpenMsgStore(ULONG_PTR uiParam, ULONG size, const ENTRYID* entryId, LPCIID iid, ULONG flags,
                         IMsgStore** store);
    HRESULT OpenEntry(ULONG size, LPENTRYID entryId, LPCIID iid, ULONG flags, ULONG* type, LPUNKNOWN* object);
    HRESULT CompareEntryIds(ULONG size1, LPENTRYID entryId1, ULONG size2, LPENTRYID entryId2, ULONG* result);
    HRESULT Advise(ULONG size, LPENTRYID entryId, ULONG mask, IMAPIAdviseSink* sink, ULONG_PTR* connection);
    HRESULT Unadvise(ULONG_PTR connection);
    void SetDefaultStore(ULONG size, const ENTRYID* entryId);
    ComPtr<IMAPITable> StoresTable(ULONG flags);
    ComPtr<IMAPITable> StatusTable(ULONG flags);

private:
    // A provider object; the session has one of each DLL.
    struct Provider
    {
        std::shared_ptr<ServiceModule> module;
        ComPtr<IMSProvider> object;
    };

    // The section and the provider that a store entry ID leads to.
    struct Target
    {
        Uid section;
        std::optional<Uid> service;
        std::wstring dllName;
        // As the provider gets it; empty for none.
        Bytes entryId;
        bool temporary = false;
    };

    struct Connection
    {
        std::weak_ptr<StoreLogon> logon;
        ULONG number = 0;
        // For the session's own events.
        ComPtr<IMAPIAdviseSink> sink;
    };

    std::vector<Uid> StoreSections() const;
    Bytes RowEntryId(const Uid& section, const PropertyBag& properties) const;
    Target FindTarget(ULONG size, const ENTRYID* entryId);
    std::optional<Target> MatchSection(const std::vector<Uid>& sections, const Bytes& entryId,
                                       const std::wstring* dllName);
    Target TargetOf(const Uid& section, const Bytes& entryId) const;
    Provider ProviderOf(const std::wstring& dllName);
    HRESULT Logon(const Target& target, ULONG_PTR uiParam, LPCIID iid, ULONG flags, IMsgStore** store,
                  std::wstring& text);
    ComPtr<IMAPISupport> MakeSupport(const Target& target, const std::shared_ptr<StoreLogon>& logon);
    std::shared_ptr<void> LockForProvider(const Uid& section, ULONG flags);
    void MakePermanent(const Uid& section);
    void StoreEnded(const StoreLogon& logon);
    std::shared_ptr<StoreLogon> LogonOf(ULONG size, const ENTRYID* entryId) const;

    std::shared_ptr<Profile> m_profile;
    const ULONG m_flags;
    MapiMemory m_memory;
    std::shared_ptr<void> m_use;
    std::shared_ptr<StatusRows> m_status = std::make_shared<StatusRows>();
    std::shared_ptr<Notifications> m_notifications = std::make_shared<Notifications>();
    std::atomic<bool> m_ended = false;

    // Held while a store is opened; a provider may come back with another store meanwhile.
    RecursiveMutex m_opening;
    mutable Mutex m_lock;
    std::map<std::wstring, Provider> m_providers;
    std::vector<std::shared_ptr<StoreLogon>> m_logons;
    std::vector<Uid> m_disabled;
    std::vector<Uid> m_temporary;
    std::map<ULONG, Connection> m_connections;
    ULONG m_nextConnection = 1;
    std::map<Uid, std::weak_ptr<void>> m_providerLocks;
};

/// Creates a client's own IMAPISession. `leave` is called once, by its Logoff or its last Release; after it every other
/// method gives MAPI_E_END_OF_SESSION.
ComPtr<IMAPISession> CreateSessionObject(std::shared_ptr<Session> session, std::function<void()> leave);
} // namespace Testbed
