// Administration of a profile's message services.
#include "testbed/mapi/ServiceAdmin.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/common/NotOffered.h"
#include "testbed/common/Table.h"
#include "testbed/mapi/ProfileStore.h"
#include "testbed/mapi/SectionLocks.h"
#include "testbed/mapi/ServiceFile.h"
#include "testbed/mapi/ServiceModule.h"

#include <algorithm>

namespace Testbed
{
namespace
{
constexpr ULONG uiFlags = SERVICE_UI_ALLOWED | SERVICE_UI_ALWAYS;

void RequireService(const Profile& profile, const Uid& service)
{
    const auto services = ServicesOf(profile);
    if (std::find(services.begin(), services.end(), service) == services.end())
        Fail(MAPI_E_NOT_FOUND,
             L"The profile \"" + profile.Name() + L"\" has no message service " + service.Text() + L".");
}

// Enters the service at the end of the profile's list, or takes it out.
void ListService(Profile& profile, const Uid& service, bool add)
{
    std::vector<Uid> services = ServicesOf(profile);
    std::erase(services, service);
    if (add)
        services.push_back(service);
    profile.Change(subsystemSection, {UidList(PR_SERVICES, services)}, {});
}

void RemoveSections(Profile& profile, const Uid& service)
{
    ListService(profile, service, false);
    for (const Uid& provider : ProvidersOf(profile, service))
        profile.Remove(provider);
    for (const Uid& extra : ReadUids(profile.Section(service), PR_SERVICE_EXTRA_UIDS))
        profile.Remove(extra);
    profile.Remove(service);
}

Uid CopySections(Profile& profile, const InstalledService& definition, const std::wstring& displayName)
{
    const Uid service = Uid::Create();
    PropertyBag section(definition.properties);
    if (!section.Find(PROP_ID(PR_DISPLAY_NAME)))
        section.Put(PropValue::String(PR_DISPLAY_NAME_W, displayName.empty() ? definition.name : displayName));
    section.Put(PropValue::Uid(PR_SERVICE_UID, service));
    section.Put(PropValue::String(PR_SERVICE_NAME_W, definition.name));
    std::vector<Uid> extras;
    for (const auto& extra : definition.sections)
        extras.push_back(extra.uid);
    if (!extras.empty())
        section.Put(UidList(PR_SERVICE_EXTRA_UIDS, extras));
    std::vector<PropValue> all;
    for (const auto& [id, value] : section.Values())
        all.push_back(value);
    profile.Change(service, all, {});
    for (const ProviderDefinition& provider : definition.providers)
        CreateProviderSection(profile, service, provider, {});
    for (const auto& extra : definition.sections)
        profile.Change(extra.uid, extra.properties, {});
    ListService(profile, service, true);
    return service;
}

std::wstring Sentence(const wchar_t* what, const EntryResult& called)
{
    return std::wstring(what) + L" failed: " + ResultText(called.result) +
           (called.text.empty() ? L"." : L", \"" + called.text + L"\".");
}

class ServiceAdmin final : public ComObject<IMsgServiceAdmin2, &IID_IMsgServiceAdmin2, &IID_IMsgServiceAdmin>
{
public:
    ServiceAdmin(std::shared_ptr<Profile> profile, const MapiMemory& memory)
        : m_profile(std::move(profile)),
          m_memory(memory)
    {
    }

    MAPI_IMSGSERVICEADMIN_METHODS(override)
    STDMETHODIMP CreateMsgServiceEx(LPTSTR lpszService, LPTSTR lpszDisplayName, ULONG_PTR ulUIParam, ULONG ulFlags,
                                    LPMAPIUID lpuidService) override;

private:
    std::shared_ptr<Profile> m_profile;
    MapiMemory m_memory;
    LastError m_lastError{L"MAPI"};
};

STDMETHODIMP ServiceAdmin::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return m_lastError.Get(m_memory, hResult, ulFlags, lppMAPIError);
}

STDMETHODIMP ServiceAdmin::GetMsgServiceTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return Guarded(
        m_lastError,
        [&]
        {
            Require(lppTable);
            RequireFlags(ulFlags, MAPI_UNICODE);
            std::vector<PropertyBag> rows;
            for (const Uid& service : ServicesOf(*m_profile))
            {
                rows.push_back(m_profile->Section(service));
                rows.back().Put(PropValue::Uid(PR_INSTANCE_KEY, service));
            }
            const std::vector<ULONG> columns = {PR_DISPLAY_NAME,          PR_INSTANCE_KEY,       PR_RESOURCE_FLAGS,
                                                PR_SERVICE_DLL_NAME,      PR_SERVICE_ENTRY_NAME, PR_SERVICE_NAME,
                                                PR_SERVICE_SUPPORT_FILES, PR_SERVICE_UID};
            *lppTable = CreateTable(std::make_shared<MemoryRows>(columns, std::move(rows)), m_memory, ulFlags, L"MAPI")
                            .Detach();
        });
}

STDMETHODIMP ServiceAdmin::CreateMsgService(LPTSTR lpszService, LPTSTR lpszDisplayName, ULONG_PTR ulUIParam,
                                            ULONG ulFlags)
{
    return CreateMsgServiceEx(lpszService, lpszDisplayName, ulUIParam, ulFlags, nullptr);
}

STDMETHODIMP ServiceAdmin::CreateMsgServiceEx(LPTSTR lpszService, LPTSTR lpszDisplayName, ULONG_PTR ulUIParam,
                                              ULONG ulFlags, LPMAPIUID lpuidService)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       Require(lpszService);
                       RequireFlags(ulFlags, MAPI_UNICODE | serviceNoRestartWarning | uiFlags);
                       const Uid service =
                           CreateService(m_profile, TextArgument(lpszService, ulFlags),
                                         TextArgument(lpszDisplayName, ulFlags), ulUIParam, ulFlags, m_memory);
                       if (lpuidService)
                           *lpuidService = service;
                   });
}

STDMETHODIMP ServiceAdmin::DeleteMsgService(LPMAPIUID lpUID)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       Require(lpUID);
                       DeleteService(m_profile, *lpUID, m_memory);
                   });
}

STDMETHODIMP ServiceAdmin::ConfigureMsgService(LPMAPIUID lpUID, ULONG_PTR ulUIParam, ULONG ulFlags, ULONG cValues,
                                               LPSPropValue lpProps)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       Require(lpUID);
                       if (cValues)
                           Require(lpProps);
                       RequireFlags(ulFlags, MAPI_UNICODE | MSG_SERVICE_UI_READ_ONLY | uiFlags);
                       RequireService(*m_profile, *lpUID);
                       const EntryResult called = CallServiceEntry(
                           m_profile, *lpUID, {MSG_SERVICE_CONFIGURE, ulUIParam, ulFlags, cValues, lpProps}, m_memory);
                       if (!called.called)
                           Fail(MAPI_E_NOT_INITIALIZED, L"The message service has no entry.");
                       if (FAILED(called.result))
                           Fail(called.result, Sentence(L"The message service's configuration", called));
                       return called.result;
                   });
}

STDMETHODIMP ServiceAdmin::OpenProfileSection(LPMAPIUID lpUID, LPCIID lpInterface, ULONG ulFlags,
                                              LPPROFSECT* lppProfSect)
{
    return Guarded(
        m_lastError,
        [&]
        {
            Require(lpUID);
            Require(lppProfSect);
            *lppProfSect =
                OpenLockedSection(m_profile, *lpUID, lpInterface, ulFlags, SectionUser::Client, m_memory).Detach();
        });
}

STDMETHODIMP ServiceAdmin::AdminProviders(LPMAPIUID lpUID, ULONG ulFlags, LPPROVIDERADMIN* lppProviderAdmin)
{
    return Guarded(
        m_lastError,
        [&]
        {
            Require(lpUID);
            Require(lppProviderAdmin);
            RequireFlags(ulFlags, 0);
            const Uid service = *lpUID;
            RequireService(*m_profile, service);
            const auto definition = ServiceFile::Find(TextOf(m_profile->Section(service), PR_SERVICE_NAME));
            const auto tell = [profile = m_profile, service, memory = m_memory](ULONG context, const Uid&)
            { return CallServiceEntry(profile, service, {context, 0, MAPI_UNICODE, 0, nullptr}, memory).result; };
            *lppProviderAdmin =
                CreateProviderAdmin(m_profile, service,
                                    definition ? definition->providers : std::vector<ProviderDefinition>(),
                                    SectionUser::Client, m_memory, tell)
                    .Detach();
        });
}

STDMETHODIMP ServiceAdmin::GetProviderTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       Require(lppTable);
                       RequireFlags(ulFlags, MAPI_UNICODE);
                       *lppTable =
                           OpenProviderTable(*m_profile, AllProvidersOf(*m_profile), m_memory, ulFlags).Detach();
                   });
}

NOT_OFFERED(ServiceAdmin, CopyMsgService, LPMAPIUID, LPTSTR, LPCIID, LPCIID, LPVOID, ULONG_PTR, ULONG);
NOT_OFFERED(ServiceAdmin, RenameMsgService, LPMAPIUID, ULONG, LPTSTR);
NOT_OFFERED(ServiceAdmin, MsgServiceTransportOrder, ULONG, LPMAPIUID, ULONG);
NOT_OFFERED(ServiceAdmin, SetPrimaryIdentity, LPMAPIUID, ULONG);
} // namespace

std::vector<Uid> ServicesOf(const Profile& profile)
{
    return ReadUids(profile.Section(subsystemSection), PR_SERVICES);
}

std::vector<Uid> AllProvidersOf(const Profile& profile)
{
    std::vector<Uid> providers;
    for (const Uid& service : ServicesOf(profile))
    {
        const std::vector<Uid> some = ProvidersOf(profile, service);
        providers.insert(providers.end(), some.begin(), some.end());
    }
    const std::vector<Uid> outside = ReadUids(profile.Section(subsystemSection), PR_STORE_PROVIDERS);
    providers.insert(providers.end(), outside.begin(), outside.end());
    return providers;
}

Uid CreateService(const std::shared_ptr<Profile>& profile, const std::wstring& name, const std::wstring& displayName,
                  ULONG_PTR uiParam, ULONG flags, const MapiMemory& memory)
{
    const auto definition = ServiceFile::Find(name);
    if (!definition)
        Fail(MAPI_E_NOT_FOUND, L"[Services] of MAPISVC.INF has no message service \"" + name + L"\".");
    if (LongOf(PropertyBag(definition->properties), PR_RESOURCE_FLAGS) & SERVICE_SINGLE_COPY)
    {
        for (const Uid& service : ServicesOf(*profile))
            if (TextOf(profile->Section(service), PR_SERVICE_NAME) == definition->name)
                Fail(MAPI_E_NO_ACCESS, L"The profile has the message service \"" + name + L"\" already.");
    }
    const Uid service = CopySections(*profile, *definition, displayName);
    try
    {
        const bool ui = (flags & SERVICE_UI_ALLOWED) != 0;
        const EntryResult called = CallServiceEntry(
            profile, service, {MSG_SERVICE_CREATE, ui ? uiParam : 0, ui ? flags : flags & MAPI_UNICODE, 0, nullptr},
            memory);
        const bool waits = called.result == MAPI_E_UNCONFIGURED && (flags & uiFlags) == 0;
        if (FAILED(called.result) && !waits)
            Fail(called.result, Sentence(L"The message service's creation", called));
    }
    catch (...)
    {
        RemoveSections(*profile, service);
        throw;
    }
    return service;
}

void TellDeletion(const std::shared_ptr<Profile>& profile, const Uid& service, const MapiMemory& memory)
{
    EntryResult called;
    try
    {
        called = CallServiceEntry(profile, service, {MSG_SERVICE_DELETE, 0, MAPI_UNICODE, 0, nullptr}, memory);
    }
    catch (const Failure& failure)
    {
        // What cannot be loaded any more has nothing to clean up with; the profile can be rid of it all the same.
        if (failure.Result() != MAPI_E_NOT_FOUND && failure.Result() != MAPI_E_VERSION)
            throw;
    }
    if (FAILED(called.result))
        Fail(called.result, Sentence(L"The message service's deletion", called));
}

void DeleteService(const std::shared_ptr<Profile>& profile, const Uid& service, const MapiMemory& memory)
{
    RequireService(*profile, service);
    TellDeletion(profile, service, memory);
    RemoveSections(*profile, service);
}

ComPtr<IMsgServiceAdmin2> CreateServiceAdmin(std::shared_ptr<Profile> profile, const MapiMemory& memory)
{
    return MakeObject<ServiceAdmin>(std::move(profile), memory);
}
} // namespace Testbed
