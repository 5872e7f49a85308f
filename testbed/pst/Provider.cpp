// The module's exports: the message-service entry, the provider's initialisation, and the provider itself.
#include "testbed/pst/Store.h"
#include "testbed/pst/StoreIdentity.h"

#include "common/StoreEntryId.h"
#include "testbed/common/Namespace.h"

#include <cstring>

namespace Testbed::Pst
{
namespace
{
constexpr wchar_t providerDisplay[] = L"Personal Folders";

// The result of a call that hands extended errors out itself.
HRESULT Report(const MapiMemory& memory, ULONG flags, LPMAPIERROR* error, const std::function<HRESULT()>& body) noexcept
{
    if (error)
        *error = nullptr;
    LastError lastError(componentName);
    const HRESULT result = Guarded(lastError, body);
    if (FAILED(result) && error && memory)
        lastError.Get(memory, result, flags & MAPI_UNICODE, error);
    return result;
}

// Empty where the support object does not wrap: one for configuring a service has no such method.
Bytes Wrap(IMAPISupport& support, const MapiMemory& memory, Bytes entryId)
{
    ULONG size = 0;
    MapiBlock<ENTRYID> wrapped(memory);
    const HRESULT result = support.WrapStoreEntryID(static_cast<ULONG>(entryId.size()),
                                                    reinterpret_cast<LPENTRYID>(entryId.data()), &size, wrapped.Put());
    if (result == MAPI_E_NO_SUPPORT)
        return {};
    Check(result, L"MAPI cannot wrap the store's entry ID");
    const auto* bytes = reinterpret_cast<const BYTE*>(wrapped.Get());
    return Bytes(bytes, bytes + size);
}

// Whether the profile says that the store is one of the Unicode format: PST_CONFIG_UNICODE in PR_PST_CONFIG_FLAGS.
bool ProfileSaysUnicode(IMAPISupport& support, const MapiMemory& memory)
{
    constexpr ULONG configFlags = PROP_TAG(PT_LONG, 0x6770);
    constexpr ULONG configUnicode = 0x80000000;
    ComPtr<IProfSect> section;
    Check(support.OpenProfileSection(nullptr, 0, section.Put()), L"The store's profile section cannot be opened");
    SizedSPropTagArray(1, tags) = {1, {configFlags}};
    ULONG count = 0;
    MapiBlock<SPropValue> flags(memory);
    Check(section->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, flags.Put()),
          L"The store's profile section cannot be read");
    return count == 1 && flags->ulPropTag == configFlags && (static_cast<ULONG>(flags->Value.l) & configUnicode) != 0;
}

class Provider final : public ComObject<IMSProvider, &IID_IMSProvider>
{
public:
    explicit Provider(const MapiMemory& memory) : m_memory(memory) {}
    ~Provider() override { CloseAll(); }

    MAPI_IMSPROVIDER_METHODS(override)

private:
    struct Request
    {
        LPMAPISUP support = nullptr;
        ULONG entryIdSize = 0;
        LPENTRYID entryId = nullptr;
        ULONG flags = 0;
        LPCIID iid = nullptr;
        // The spooler's logon reports no state, and does not share the client's store.
        bool spooler = false;
        LPMAPIERROR* error = nullptr;
        LPMSLOGON* logon = nullptr;
        LPMDB* store = nullptr;
    };

    HRESULT LogOn(const Request& request) noexcept;
    std::wstring PathOf(const Request& request) const;
    std::shared_ptr<Session> FindOpen(const Request& request, const std::wstring& path);
    bool GiveOpen(const Request& request, const std::wstring& path);
    std::shared_ptr<Session> OpenSession(const Request& request, const std::wstring& path) const;
    void ReportStatus(const Session& session, IMAPISupport& support) const;
    void CloseAll() noexcept;

    MapiMemory m_memory;
    Mutex m_lock;
    // The client's logons, of which MAPI has one provider object for each of its sessions.
    std::vector<std::weak_ptr<Session>> m_sessions;
};

// Whether a logon's flags ask for a store that can be written to.
bool AsksToWrite(ULONG flags)
{
    return (flags & MDB_WRITE) != 0 || (flags & MAPI_BEST_ACCESS) == MAPI_BEST_ACCESS;
}

std::wstring Provider::PathOf(const Request& request) const
{
    ComPtr<IProfSect> section;
    Check(request.support->OpenProfileSection(nullptr, 0, section.Put()),
          L"The store's profile section cannot be opened");
    std::wstring path = ReadPath(*section, m_memory);
    if (path.empty() && request.entryId)
        path = PathOfStoreEntryId(request.entryId, request.entryIdSize);
    if (path.empty())
        Fail(MAPI_E_UNCONFIGURED, L"The profile names no PST file");
    return FullPath(path);
}

// The open store that an entry ID names (or, without one, that lies at `path`).
std::shared_ptr<Session> Provider::FindOpen(const Request& request, const std::wstring& path)
{
    std::erase_if(m_sessions,
                  [](const std::weak_ptr<Session>& known)
                  {
                      const auto session = known.lock();
                      return !session || !session->IsOpen();
                  });
    for (const auto& known : m_sessions)
    {
        const auto session = known.lock();
        if (!session)
            continue;
        if (path.empty() ? session->IsStore(request.entryIdSize, request.entryId)
                         : CompareStringOrdinal(session->Path().c_str(), -1, path.c_str(), -1, TRUE) == CSTR_EQUAL)
        {
            return session;
        }
    }
    return nullptr;
}

std::shared_ptr<Session> Provider::OpenSession(const Request& request, const std::wstring& path) const
{
    auto core = StoreCore::Open(path);
    if ((request.flags & MDB_WRITE) != 0 && (request.flags & MAPI_BEST_ACCESS) != MAPI_BEST_ACCESS && !core->Writable())
        Fail(MAPI_E_NO_ACCESS, L"Changes to the store cannot be kept in \"" + core->OverlayPath() + L"\"");
    Session::Options options;
    if (request.entryId && request.entryIdSize != 0)
    {
        const auto* bytes = reinterpret_cast<const BYTE*>(request.entryId);
        options.storeEntryId.assign(bytes, bytes + request.entryIdSize);
        if (auto unwrapped = UnwrapStoreEntryId(options.storeEntryId.data(), options.storeEntryId.size()))
            options.storeEntryId = std::move(unwrapped->entryId);
    }
    else
    {
        options.storeEntryId = MakeStoreEntryId(core->Path());
    }
    options.wrappedEntryId = Wrap(*request.support, m_memory, options.storeEntryId);
    options.unicode = (request.flags & logonAnsi) == 0 &&
                      ((request.flags & logonUnicode) != 0 || ProfileSaysUnicode(*request.support, m_memory));
    options.writable = AsksToWrite(request.flags);
    return std::make_shared<Session>(std::move(core), m_memory, ComPtr<IMAPISupport>(request.support),
                                     std::move(options));
}

void Provider::ReportStatus(const Session& session, IMAPISupport& support) const
{
    const PropertyBag store = session.Core()->StoreProperties();
    const std::wstring name = TextOf(store, PR_DISPLAY_NAME);
    const Bytes& recordKey = session.Core()->RecordKey();
    const std::vector<PropValue> row = {
        PropValue::String(PR_PROVIDER_DISPLAY_W, providerDisplay),
        PropValue::String(PR_DISPLAY_NAME_W, name.empty() ? session.Core()->Path() : name),
        PropValue::Long(PR_STATUS_CODE, STATUS_AVAILABLE),
        PropValue::Long(PR_RESOURCE_METHODS, 0),
        PropValue::String(PR_IDENTITY_DISPLAY_W, name.empty() ? session.Core()->Path() : name),
        PropValue::Binary(PR_IDENTITY_ENTRYID, session.EntryId(Nodes::store)),
        PropValue::Binary(PR_IDENTITY_SEARCH_KEY, recordKey),
    };
    const MapiBlock<SPropValue> values(m_memory, MakePropArray(m_memory, row));
    Check(support.ModifyStatusRow(static_cast<ULONG>(row.size()), values.Get(), 0), L"The status row cannot be set");
}

// Gives the same store once more, with no logon object, when it is open; MAPI has its support object already.
bool Provider::GiveOpen(const Request& request, const std::wstring& path)
{
    const auto open = request.spooler ? nullptr : FindOpen(request, path);
    ComPtr<IMsgStore> store = open ? open->Store() : nullptr;
    if (!store)
        return false;
    if (AsksToWrite(request.flags))
        open->MakeWritable();
    *request.store = store.Detach();
    return true;
}

HRESULT Provider::LogOn(const Request& request) noexcept
{
    if (!request.support || !request.store)
        return MAPI_E_INVALID_PARAMETER;
    *request.store = nullptr;
    if (request.logon)
        *request.logon = nullptr;
    return Report(m_memory, request.flags, request.error,
                  [&]() -> HRESULT
                  {
                      RequireInterface(request.iid, {&IID_IMsgStore, &IID_IMAPIProp, &IID_IUnknown});
                      const std::lock_guard lock(m_lock);
                      // A store that is open already is given without a look at the profile, where its entry ID
                      // tells which it is.
                      if (GiveOpen(request, {}))
                          return S_OK;
                      const std::wstring path = PathOf(request);
                      if (GiveOpen(request, path))
                          return S_OK;
                      const auto session = OpenSession(request, path);
                      MAPIUID uid{};
                      std::memcpy(uid.ab, session->Core()->RecordKey().data(), sizeof(uid.ab));
                      Check(request.support->SetProviderUID(&uid, 0), L"MAPI refuses the store's identifier");
                      ComPtr<IMSLogon> logon = MakeLogon(session);
                      if (!request.spooler)
                          ReportStatus(*session, *request.support);
                      *request.store = MakeStore(session).Detach();
                      if (!request.spooler)
                          m_sessions.push_back(session);
                      if (request.logon)
                          *request.logon = logon.Detach();
                      return S_OK;
                  });
}

void Provider::CloseAll() noexcept
{
    std::vector<std::weak_ptr<Session>> sessions;
    {
        const std::lock_guard lock(m_lock);
        sessions.swap(m_sessions);
    }
    for (const auto& known : sessions)
        if (const auto session = known.lock())
            session->Close();
}

STDMETHODIMP Provider::Shutdown(ULONG*)
{
    CloseAll();
    return S_OK;
}

STDMETHODIMP Provider::Logon(LPMAPISUP lpMAPISup, ULONG_PTR, LPTSTR, ULONG cbEntryID, LPENTRYID lpEntryID,
                             ULONG ulFlags, LPCIID lpInterface, ULONG* lpcbSpoolSecurity, LPBYTE* lppbSpoolSecurity,
                             LPMAPIERROR* lppMAPIError, LPMSLOGON* lppMSLogon, LPMDB* lppMDB)
{
    if (lpcbSpoolSecurity && lppbSpoolSecurity)
    {
        // The file has no password that the spooler would have to know.
        *lpcbSpoolSecurity = 0;
        *lppbSpoolSecurity = nullptr;
    }
    return LogOn({lpMAPISup, cbEntryID, lpEntryID, ulFlags, lpInterface, false, lppMAPIError, lppMSLogon, lppMDB});
}

STDMETHODIMP Provider::SpoolerLogon(LPMAPISUP lpMAPISup, ULONG_PTR, LPTSTR, ULONG cbEntryID, LPENTRYID lpEntryID,
                                    ULONG ulFlags, LPCIID lpInterface, ULONG, LPBYTE, LPMAPIERROR* lppMAPIError,
                                    LPMSLOGON* lppMSLogon, LPMDB* lppMDB)
{
    return LogOn({lpMAPISup, cbEntryID, lpEntryID, ulFlags, lpInterface, true, lppMAPIError, lppMSLogon, lppMDB});
}

STDMETHODIMP Provider::CompareStoreIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                                       ULONG, ULONG* lpulResult)
{
    if (!lpulResult)
        return MAPI_E_INVALID_PARAMETER;
    LastError lastError(componentName);
    return Guarded(lastError,
                   [&] { *lpulResult = SameStore(lpEntryID1, cbEntryID1, lpEntryID2, cbEntryID2) ? TRUE : FALSE; });
}

// Writes what identifies the store into a profile section.
void StoreSettingsIn(IProfSect& section, const MapiMemory& memory, const std::vector<PropValue>& values)
{
    const MapiBlock<SPropValue> array(memory, MakePropArray(memory, values));
    Check(section.SetProps(static_cast<ULONG>(values.size()), array.Get(), nullptr),
          L"The profile section cannot be written");
    Check(section.SaveChanges(KEEP_OPEN_READWRITE), L"The profile section cannot be saved");
}

// Keeps the settings of a service in the profile: in its own section, and in that of its store provider.
void ConfigureService(IMAPISupport* support, IProviderAdmin& admin, const MapiMemory& memory, const std::wstring& path)
{
    ComPtr<IProfSect> service;
    Check(admin.OpenProfileSection(nullptr, nullptr, MAPI_MODIFY, service.Put()),
          L"The service's profile section cannot be opened");
    const size_t begin = path.find_last_of(L"\\/") + 1;
    std::vector<PropValue> values = {
        PropValue::String(Testbed::Tags::pstPathW, path),
        PropValue::Uid(PR_MDB_PROVIDER, providerUid),
        PropValue::String(PR_PROVIDER_DISPLAY_W, providerDisplay),
        PropValue::String(PR_DISPLAY_NAME_W, path.substr(begin)),
    };
    if (support)
    {
        const Bytes wrapped = Wrap(*support, memory, MakeStoreEntryId(FullPath(path)));
        if (!wrapped.empty())
        {
            values.push_back(PropValue::Binary(PR_ENTRYID, wrapped));
            values.push_back(PropValue::Binary(PR_STORE_ENTRYID, wrapped));
        }
    }
    StoreSettingsIn(*service, memory, values);

    SizedSPropTagArray(1, tags) = {1, {PR_STORE_PROVIDERS}};
    ULONG count = 0;
    MapiBlock<SPropValue> providers(memory);
    Check(service->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, providers.Put()),
          L"The service's profile section cannot be read");
    if (count == 1 && providers->ulPropTag == PR_STORE_PROVIDERS && providers->Value.bin.cb >= sizeof(MAPIUID))
    {
        MAPIUID uid{};
        std::memcpy(uid.ab, providers->Value.bin.lpb, sizeof(uid.ab));
        ComPtr<IProfSect> provider;
        Check(admin.OpenProfileSection(&uid, nullptr, MAPI_MODIFY, provider.Put()),
              L"The store provider's profile section cannot be opened");
        StoreSettingsIn(*provider, memory, values);
    }
}

HRESULT RunService(LPMAPISUP support, ULONG flags, ULONG context, ULONG count, LPSPropValue values,
                   LPPROVIDERADMIN admin, LPMAPIERROR* error)
{
    MapiMemory memory;
    if (support)
    {
        LPALLOCATEBUFFER allocate = nullptr;
        LPALLOCATEMORE allocateMore = nullptr;
        LPFREEBUFFER release = nullptr;
        if (SUCCEEDED(support->GetMemAllocRoutines(&allocate, &allocateMore, &release)))
            memory = MapiMemory(allocate, allocateMore, release);
    }
    return Report(memory, flags, error,
                  [&]() -> HRESULT
                  {
                      switch (context)
                      {
                      case MSG_SERVICE_INSTALL:
                      case MSG_SERVICE_DELETE:
                      case MSG_SERVICE_UNINSTALL:
                          // Nothing lies outside the profile, and the store's file stays its owner's.
                          return S_OK;
                      case MSG_SERVICE_CREATE:
                      case MSG_SERVICE_CONFIGURE:
                      {
                          if (count != 0 && !values)
                              return MAPI_E_INVALID_PARAMETER;
                          std::wstring path = ReadPath(count, values);
                          if (path.empty() && admin && memory)
                          {
                              ComPtr<IProfSect> section;
                              if (SUCCEEDED(admin->OpenProfileSection(nullptr, nullptr, 0, section.Put())))
                                  path = ReadPath(*section, memory);
                          }
                          if (path.empty())
                          {
                              // A new service is given its path by a later call; there is no dialog to ask for it.
                              return context == MSG_SERVICE_CREATE ? S_OK : MAPI_E_UNCONFIGURED;
                          }
                          // Without an administration object the caller keeps the settings itself.
                          if (admin && memory)
                              ConfigureService(support, *admin, memory, path);
                          return S_OK;
                      }
                      case MSG_SERVICE_PROVIDER_CREATE:
                      case MSG_SERVICE_PROVIDER_DELETE:
                          return MAPI_E_NO_SUPPORT;
                      default:
                          return MAPI_E_INVALID_PARAMETER;
                      }
                  });
}
} // namespace
} // namespace Testbed::Pst

/// The message-service entry. Copes without an administration object (its caller then keeps the settings) and without a
/// support object. MSG_SERVICE_CONFIGURE without a path, in the values or in the profile, gives MAPI_E_UNCONFIGURED.
extern "C" HRESULT WINAPI NSTServiceEntry(HINSTANCE, LPMALLOC, LPMAPISUP lpMAPISup, ULONG_PTR, ULONG ulFlags,
                                          ULONG ulContext, ULONG cValues, LPSPropValue lpProps,
                                          LPPROVIDERADMIN lpProviderAdmin, LPMAPIERROR* lppMapiError)
{
    return Testbed::Pst::RunService(lpMAPISup, ulFlags, ulContext, cValues, lpProps, lpProviderAdmin, lppMapiError);
}

/// The provider's initialisation.
extern "C" HRESULT __cdecl MSProviderInit(HINSTANCE, LPMALLOC, LPALLOCATEBUFFER lpAllocateBuffer,
                                          LPALLOCATEMORE lpAllocateMore, LPFREEBUFFER lpFreeBuffer, ULONG,
                                          ULONG ulMAPIVer, ULONG* lpulProviderVer, LPMSPROVIDER* lppMSProvider)
{
    if (!lpulProviderVer || !lppMSProvider)
        return MAPI_E_INVALID_PARAMETER;
    *lppMSProvider = nullptr;
    *lpulProviderVer = CURRENT_SPI_VERSION;
    if (ulMAPIVer < CURRENT_SPI_VERSION)
        return MAPI_E_VERSION;
    const Testbed::MapiMemory memory(lpAllocateBuffer, lpAllocateMore, lpFreeBuffer);
    if (!memory)
        return MAPI_E_INVALID_PARAMETER;
    Testbed::LastError lastError(Testbed::Pst::componentName);
    return Testbed::Guarded(lastError,
                            [&] { *lppMSProvider = Testbed::MakeObject<Testbed::Pst::Provider>(memory).Detach(); });
}

/// The number of this module's COM objects that live.
extern "C" long TestbedLiveObjects()
{
    return Testbed::LiveObjects();
}
