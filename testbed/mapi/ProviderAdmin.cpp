// The providers of a message service and their sections in the profile.
#include "testbed/mapi/ProviderAdmin.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"
#include "testbed/common/Table.h"

#include <algorithm>

namespace Testbed
{
namespace
{
void WriteProviderList(Profile& profile, const Uid& service, const std::vector<Uid>& providers)
{
    Bytes list;
    for (const Uid& provider : providers)
        list.insert(list.end(), std::begin(provider.ab), std::end(provider.ab));
    profile.Change(service, {PropValue::Binary(PR_STORE_PROVIDERS, std::move(list))});
}

class ProviderAdmin final : public ComObject<IProviderAdmin, &IID_IProviderAdmin>
{
public:
    ProviderAdmin(std::shared_ptr<Profile> profile, const Uid& service, std::vector<ProviderDefinition> definitions,
                  const MapiMemory& memory, ProviderEvent event)
        : m_profile(std::move(profile)),
          m_service(service),
          m_definitions(std::move(definitions)),
          m_memory(memory),
          m_event(std::move(event))
    {
    }

    STDMETHODIMP GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError) override
    {
        return m_lastError.Get(m_memory, hResult, ulFlags, lppMAPIError);
    }

    STDMETHODIMP GetProviderTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        return Guarded(m_lastError,
                       [&]
                       {
                           Require(lppTable);
                           RequireFlags(ulFlags, MAPI_UNICODE);
                           *lppTable = ProviderTable(ulFlags).Detach();
                       });
    }

    STDMETHODIMP CreateProvider(LPTSTR lpszProvider, ULONG cValues, LPSPropValue lpProps, ULONG_PTR, ULONG ulFlags,
                                MAPIUID* lpUID) override
    {
        return Guarded(m_lastError,
                       [&]
                       {
                           Require(lpszProvider);
                           Require(lpUID);
                           RequireFlags(ulFlags, MAPI_UNICODE | MAPI_DIALOG);
                           *lpUID = Create(TextArgument(lpszProvider, ulFlags), CopyProps(cValues, lpProps));
                       });
    }

    STDMETHODIMP DeleteProvider(LPMAPIUID lpUID) override
    {
        return Guarded(m_lastError,
                       [&]
                       {
                           Require(lpUID);
                           const std::vector<Uid> providers = ProvidersOf(*m_profile, m_service);
                           if (std::find(providers.begin(), providers.end(), Uid(*lpUID)) == providers.end())
                               Fail(MAPI_E_NOT_FOUND, L"The message service has no such provider.");
                           Tell(MSG_SERVICE_PROVIDER_DELETE, *lpUID);
                           DeleteProviderSection(*m_profile, m_service, *lpUID);
                       });
    }

    STDMETHODIMP OpenProfileSection(LPMAPIUID lpUID, LPCIID lpInterface, ULONG ulFlags,
                                    LPPROFSECT* lppProfSect) override
    {
        return Guarded(m_lastError,
                       [&]
                       {
                           Require(lppProfSect);
                           RequireFlags(ulFlags, MAPI_MODIFY | MAPI_DEFERRED_ERRORS);
                           if (lpInterface && !IsEqualIID(*lpInterface, IID_IProfSect) &&
                               !IsEqualIID(*lpInterface, IID_IMAPIProp))
                               Fail(MAPI_E_INTERFACE_NOT_SUPPORTED, L"A profile section is an IProfSect.");
                           const bool modify = (ulFlags & MAPI_MODIFY) != 0;
                           const Uid uid = lpUID ? Uid(*lpUID) : m_service;
                           *lppProfSect = OpenSection(m_profile, uid, modify, m_memory).Detach();
                       });
    }

private:
    static void Require(const void* pointer)
    {
        if (!pointer)
            Fail(MAPI_E_INVALID_PARAMETER, L"A required argument is null.");
    }

    ComPtr<IMAPITable> ProviderTable(ULONG flags) const
    {
        std::vector<PropertyBag> rows;
        for (const Uid& provider : ProvidersOf(*m_profile, m_service))
        {
            PropertyBag row = m_profile->Section(provider);
            row.Put(PropValue::Uid(PR_INSTANCE_KEY, provider));
            row.Put(PropValue::Long(PR_PROVIDER_ORDINAL, static_cast<LONG>(rows.size())));
            rows.push_back(std::move(row));
        }
        const std::vector<ULONG> columns = {
            PR_DISPLAY_NAME, PR_INSTANCE_KEY,   PR_PROVIDER_DISPLAY, PR_PROVIDER_DLL_NAME, PR_PROVIDER_ORDINAL,
            PR_PROVIDER_UID, PR_RESOURCE_FLAGS, PR_RESOURCE_TYPE,    PR_SERVICE_NAME,      PR_SERVICE_UID};
        return CreateTable(std::make_shared<MemoryRows>(columns, std::move(rows)), m_memory, flags, L"MAPI");
    }

    Uid Create(const std::wstring& name, const std::vector<PropValue>& values)
    {
        const auto definition = std::find_if(m_definitions.begin(), m_definitions.end(),
                                             [&name](const ProviderDefinition& known) { return known.name == name; });
        if (definition == m_definitions.end())
            Fail(MAPI_E_NOT_FOUND, L"The message service has no provider of the name \"" + name + L"\".");
        const Uid provider = CreateProviderSection(*m_profile, m_service, *definition, values);
        try
        {
            Tell(MSG_SERVICE_PROVIDER_CREATE, provider);
        }
        catch (...)
        {
            DeleteProviderSection(*m_profile, m_service, provider);
            throw;
        }
        return provider;
    }

    void Tell(ULONG context, const Uid& provider) const
    {
        if (m_event)
            Check(m_event(context, provider), L"The message service refused.");
    }

    std::shared_ptr<Profile> m_profile;
    Uid m_service;
    std::vector<ProviderDefinition> m_definitions;
    MapiMemory m_memory;
    ProviderEvent m_event;
    LastError m_lastError{L"MAPI profile administration"};
};
} // namespace

Uid CreateProviderSection(Profile& profile, const Uid& service, const ProviderDefinition& definition,
                          const std::vector<PropValue>& values)
{
    const PropertyBag serviceSection = profile.Section(service);
    const PropValue* const serviceName = serviceSection.Find(PROP_ID(PR_SERVICE_NAME));
    const Uid provider = Uid::Create();
    std::vector<PropValue> section = {
        PropValue::Uid(PR_PROVIDER_UID, provider),
        PropValue::Uid(PR_SERVICE_UID, service),
        PropValue::String(PR_SERVICE_NAME_W, serviceName ? serviceName->AsText() : std::wstring()),
        PropValue::String(PR_DISPLAY_NAME_W, definition.displayName),
        PropValue::String(PR_PROVIDER_DISPLAY_W, definition.displayName),
        PropValue::String(PR_PROVIDER_DLL_NAME_W, definition.dllName),
        PropValue::Long(PR_RESOURCE_TYPE, static_cast<LONG>(definition.resourceType)),
        PropValue::Long(PR_RESOURCE_FLAGS, static_cast<LONG>(definition.resourceFlags)),
    };
    section.insert(section.end(), values.begin(), values.end());
    profile.Change(provider, section);

    std::vector<Uid> providers = ProvidersOf(profile, service);
    providers.push_back(provider);
    WriteProviderList(profile, service, providers);
    return provider;
}

void DeleteProviderSection(Profile& profile, const Uid& service, const Uid& provider)
{
    std::vector<Uid> providers = ProvidersOf(profile, service);
    if (std::erase(providers, provider) == 0)
        Fail(MAPI_E_NOT_FOUND, L"The message service has no such provider.");
    WriteProviderList(profile, service, providers);
    profile.Remove(provider);
}

std::vector<Uid> ProvidersOf(const Profile& profile, const Uid& service)
{
    const PropertyBag section = profile.Section(service);
    const PropValue* const list = section.Find(PROP_ID(PR_STORE_PROVIDERS));
    std::vector<Uid> providers;
    if (list)
    {
        const Bytes& bytes = list->AsBytes();
        for (size_t at = 0; at + sizeof(MAPIUID) <= bytes.size(); at += sizeof(MAPIUID))
        {
            Uid uid;
            std::memcpy(uid.ab, bytes.data() + at, sizeof(uid.ab));
            providers.push_back(uid);
        }
    }
    return providers;
}

ComPtr<IProviderAdmin> CreateProviderAdmin(std::shared_ptr<Profile> profile, const Uid& service,
                                           std::vector<ProviderDefinition> definitions, const MapiMemory& memory,
                                           ProviderEvent event)
{
    return MakeObject<ProviderAdmin>(std::move(profile), service, std::move(definitions), memory, std::move(event));
}
} // namespace Testbed
