// A MAPI client through mapi32.dll.
#include "tests/common/MapiClient.h"

#include "common/Text.h"

#include <atomic>
#include <cstring>

using namespace Common;

namespace Tests
{
template <class F>
F MapiClient::Find(const char* name) const
{
    const auto function = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(m_module, name)));
    if (!function)
        Fail(MAPI_E_NOT_FOUND, L"mapi32.dll does not export " + WideFromAnsi(name) + L".");
    return function;
}

MapiClient::MapiClient(ULONG flags) : m_module(LoadLibraryW(L"mapi32.dll"))
{
    if (!m_module)
        Fail(MAPI_E_NOT_FOUND, L"mapi32.dll cannot be loaded.");
    m_memory = MapiMemory(Find<LPALLOCATEBUFFER>("MAPIAllocateBuffer"), Find<LPALLOCATEMORE>("MAPIAllocateMore"),
                          Find<LPFREEBUFFER>("MAPIFreeBuffer"));
    MAPIINIT_0 init = {MAPI_INIT_VERSION, flags};
    Check(Find<LPMAPIINITIALIZE>("MAPIInitialize")(&init), L"MAPIInitialize failed.");
}

MapiClient::~MapiClient()
{
    Find<LPMAPIUNINITIALIZE>("MAPIUninitialize")();
    FreeLibrary(m_module);
}

ComPtr<IProfAdmin> MapiClient::Admin() const
{
    ComPtr<IProfAdmin> admin;
    Check(Find<LPMAPIADMINPROFILES>("MAPIAdminProfiles")(0, admin.Put()), L"MAPIAdminProfiles failed.");
    return admin;
}

HRESULT MapiClient::TryLogon(const wchar_t* profile, ULONG flags, ComPtr<IMAPISession>& session) const
{
    return Find<LPMAPILOGONEX>("MAPILogonEx")(0, reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(profile)), nullptr,
                                              flags | MAPI_UNICODE, session.Put());
}

ComPtr<IMAPISession> MapiClient::Logon(const std::wstring& profile) const
{
    ComPtr<IMAPISession> session;
    Check(TryLogon(profile.c_str(), MAPI_EXTENDED | MAPI_NEW_SESSION | MAPI_NO_MAIL, session), L"MAPILogonEx failed.");
    return session;
}

std::vector<MapiClient::Row> MapiClient::Rows(IMAPITable& table, const std::vector<ULONG>& columns) const
{
    using QUERYALLROWS =
        HRESULT(WINAPI*)(LPMAPITABLE, LPSPropTagArray, LPSRestriction, LPSSortOrderSet, LONG, LPSRowSet*);
    const MapiBlock<SPropTagArray> tags(m_memory, MakeTagArray(m_memory, columns));
    MapiRows set(m_memory);
    CheckOn(m_memory, table,
            Find<QUERYALLROWS>("HrQueryAllRows@24")(&table, columns.empty() ? nullptr : tags.Get(), nullptr, nullptr, 0,
                                                    set.Put()),
            L"HrQueryAllRows");
    std::vector<Row> rows;
    for (ULONG i = 0; i < set.Count(); ++i)
    {
        Row& row = rows.emplace_back();
        for (const PropValue& value : CopyProps(set[i].cValues, set[i].lpProps))
            if (value.Tag() != PR_NULL)
                row.emplace(value.Id(), value);
    }
    return rows;
}

TestProfile::TestProfile(const MapiClient& client, std::wstring name) : m_client(client), m_name(std::move(name))
{
    static std::atomic<int> number = 0;
    if (m_name.empty())
        m_name = L"Test " + std::to_wstring(GetCurrentProcessId()) + L" " + std::to_wstring(GetTickCount64()) + L" " +
                 std::to_wstring(++number);
    const auto admin = client.Admin();
    const std::string narrow = AnsiFromWide(m_name);
    CheckOn(client.Memory(), *admin,
            admin->CreateProfile(reinterpret_cast<LPTSTR>(const_cast<char*>(narrow.c_str())), nullptr, 0, 0),
            L"CreateProfile");
}

TestProfile::~TestProfile()
{
    const std::string narrow = AnsiFromWide(m_name);
    m_client.Admin()->DeleteProfile(reinterpret_cast<LPTSTR>(const_cast<char*>(narrow.c_str())), 0);
}

ComPtr<IMsgServiceAdmin2> TestProfile::Services() const
{
    const auto admin = m_client.Admin();
    ComPtr<IMsgServiceAdmin> services;
    CheckOn(m_client.Memory(), *admin,
            admin->AdminServices(reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(m_name.c_str())), nullptr, 0,
                                 MAPI_UNICODE, services.Put()),
            L"AdminServices");
    return services.As<IMsgServiceAdmin2>(IID_IMsgServiceAdmin2);
}

MAPIUID TestProfile::CreateService(const std::wstring& service) const
{
    const auto services = Services();
    MAPIUID uid = {};
    CheckOn(m_client.Memory(), *services,
            services->CreateMsgServiceEx(reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(service.c_str())), nullptr, 0,
                                         MAPI_UNICODE, &uid),
            L"CreateMsgServiceEx");
    return uid;
}

void TestProfile::Configure(const MAPIUID& service, const std::vector<PropValue>& values) const
{
    const auto services = Services();
    MAPIUID uid = service;
    const MapiBlock<SPropValue> array(m_client.Memory(), MakePropArray(m_client.Memory(), values));
    CheckOn(m_client.Memory(), *services,
            services->ConfigureMsgService(&uid, 0, MAPI_UNICODE, static_cast<ULONG>(values.size()),
                                          values.empty() ? nullptr : array.Get()),
            L"ConfigureMsgService");
}

MAPIUID TestProfile::AddPst(const std::filesystem::path& file) const
{
    const MAPIUID service = CreateService(L"MSUPST MS");
    Configure(service, {PropValue::String(Tags::offlineStorePathW, file.wstring())});
    return service;
}

MAPIUID TestProfile::ProviderOf(const MAPIUID& service) const
{
    const auto services = Services();
    MAPIUID uid = service;
    ComPtr<IProviderAdmin> admin;
    CheckOn(m_client.Memory(), *services, services->AdminProviders(&uid, 0, admin.Put()), L"AdminProviders");
    ComPtr<IMAPITable> table;
    CheckOn(m_client.Memory(), *admin, admin->GetProviderTable(0, table.Put()), L"GetProviderTable");
    const auto rows = m_client.Rows(*table, {PR_PROVIDER_UID});
    if (rows.empty())
        Fail(MAPI_E_NOT_FOUND, L"The service has no provider.");
    std::memcpy(uid.ab, rows.front().at(PROP_ID(PR_PROVIDER_UID)).AsBytes().data(), sizeof(uid.ab));
    return uid;
}

TestSession::TestSession(const MapiClient& client, const std::wstring& profile)
    : m_client(client),
      m_session(client.Logon(profile))
{
}

Bytes TestSession::StoreEntryId(const MAPIUID* service) const
{
    ComPtr<IMAPITable> table;
    CheckOn(m_client.Memory(), *m_session, m_session->GetMsgStoresTable(0, table.Put()), L"GetMsgStoresTable");
    for (const auto& row : m_client.Rows(*table, {PR_ENTRYID, PR_SERVICE_UID}))
    {
        const auto uid = row.find(PROP_ID(PR_SERVICE_UID));
        if (!service || (uid != row.end() && uid->second == PropValue::Uid(PR_SERVICE_UID, *service)))
            return row.at(PROP_ID(PR_ENTRYID)).AsBytes();
    }
    Fail(MAPI_E_NOT_FOUND, L"The stores table has no such store.");
}

HRESULT TestSession::TryOpenStore(const Bytes& entryId, ULONG flags, ComPtr<IMsgStore>& store) const
{
    Bytes copy = entryId;
    return m_session->OpenMsgStore(0, static_cast<ULONG>(copy.size()), reinterpret_cast<LPENTRYID>(copy.data()),
                                   nullptr, flags, store.Put());
}

ComPtr<IMsgStore> TestSession::OpenStore(const MAPIUID* service, ULONG flags) const
{
    ComPtr<IMsgStore> store;
    CheckOn(m_client.Memory(), *m_session, TryOpenStore(StoreEntryId(service), flags, store), L"OpenMsgStore");
    return store;
}

void TestSession::Logoff() noexcept
{
    if (!m_session)
        return;
    m_session->Logoff(0, 0, 0);
    m_session.Reset();
}

std::filesystem::path InstalledTestService::File()
{
    wchar_t folder[MAX_PATH] = {};
    GetEnvironmentVariableW(L"KIVNST_MAIL_CLIENT", folder, MAX_PATH);
    return std::filesystem::path(folder) / L"MAPISVC.INF";
}

void InstalledTestService::Write(const std::wstring& section, const wchar_t* key, const wchar_t* value)
{
    if (!WritePrivateProfileStringW(section.c_str(), key, value, File().c_str()))
        Fail(MAPI_E_NO_ACCESS, L"MAPISVC.INF cannot be written.");
}

InstalledTestService::InstalledTestService(std::wstring name, const std::wstring& dllName,
                                           const std::wstring& entryName, const std::wstring& serviceFlags,
                                           const std::wstring& providerFlags)
    : m_name(std::move(name))
{
    const std::wstring provider = m_name + L"_P";
    Write(provider, L"PR_PROVIDER_DLL_NAME", dllName.c_str());
    Write(provider, L"PR_RESOURCE_TYPE", L"MAPI_STORE_PROVIDER");
    Write(provider, L"PR_RESOURCE_FLAGS", providerFlags.c_str());
    Write(provider, L"PR_DISPLAY_NAME", (m_name + L" store").c_str());
    Write(provider, L"PR_PROVIDER_DISPLAY", (m_name + L" provider").c_str());
    Write(m_name, L"Providers", provider.c_str());
    Write(m_name, L"PR_DISPLAY_NAME", (m_name + L" service").c_str());
    if (!entryName.empty())
    {
        Write(m_name, L"PR_SERVICE_DLL_NAME", dllName.c_str());
        Write(m_name, L"PR_SERVICE_ENTRY_NAME", entryName.c_str());
    }
    Write(m_name, L"PR_RESOURCE_FLAGS", serviceFlags.c_str());
    Write(L"Services", m_name.c_str(), (m_name + L" service").c_str());
}

InstalledTestService::~InstalledTestService()
{
    for (const std::wstring& section : {m_name, m_name + L"_P"})
        WritePrivateProfileStringW(section.c_str(), nullptr, nullptr, File().c_str());
    WritePrivateProfileStringW(L"Services", m_name.c_str(), nullptr, File().c_str());
}
} // namespace Tests
