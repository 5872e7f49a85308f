// The providers of a message service and their sections in the profile.
#include "testbed/mapi/ProviderAdmin.h"

#include "common/Boundary.h"
#include "common/MsgServiceAdmin2.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"
#include "testbed/common/Table.h"
#include "testbed/mapi/SectionLocks.h"

#include <algorithm>

namespace Testbed
{
namespace
{
constexpr ULONG providerLists[] = {PR_STORE_PROVIDERS, PR_AB_PROVIDERS, PR_TRANSPORT_PROVIDERS};

ULONG ListOf(ULONG type)
{
    switch (type)
    {
    case MAPI_AB_PROVIDER:
        return PR_AB_PROVIDERS;
    case MAPI_TRANSPORT_PROVIDER:
        return PR_TRANSPORT_PROVIDERS;
    default:
        return PR_STORE_PROVIDERS;
    }
}

class ProviderAdmin final : public ComObject<IProviderAdmin, &IID_IProviderAdmin>
{
public:
    ProviderAdmin(std::shared_ptr<Profile> profile, const Uid& service, std::vector<ProviderDefinition> definitions,
                  SectionUser user, const MapiMemory& memory, ProviderEvent event)
        : m_profile(std::move(profile)),
          m_service(service),
          m_definitions(std::move(definitions)),
          m_user(user),
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
        return Guarded(
            m_lastError,
            [&]
            {
                Require(lppTable);
                RequireFlags(ulFlags, MAPI_UNICODE);
                *lppTable =
                    OpenProviderTable(*m_profile, ProvidersOf(*m_profile, m_service), m_memory, ulFlags).Detach();
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
                           if (m_user == SectionUser::Client)
                               Require(lpUID);
                           const Uid uid = lpUID ? Uid(*lpUID) : m_service;
                           *lppProfSect =
                               OpenLockedSection(m_profile, uid, lpInterface, ulFlags, m_user, m_memory).Detach();
                       });
    }

private:
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
    SectionUser m_user;
    MapiMemory m_memory;
    ProviderEvent m_event;
    LastError m_lastError{L"MAPI profile administration"};
};
} // namespace

ULONG ProviderDefinition::Type() const
{
    return static_cast<ULONG>(LongOf(PropertyBag(properties), PR_RESOURCE_TYPE));
}

std::vector<Uid> ReadUids(const PropertyBag& section, ULONG tag)
{
    std::vector<Uid> uids;
    if (const PropValue* const list = section.Find(PROP_ID(tag)))
    {
        const Bytes& bytes = list->AsBytes();
        for (size_t at = 0; at + sizeof(MAPIUID) <= bytes.size(); at += sizeof(MAPIUID))
            std::memcpy(uids.emplace_back().ab, bytes.data() + at, sizeof(MAPIUID));
    }
    return uids;
}

PropValue UidList(ULONG tag, const std::vector<Uid>& uids)
{
    Bytes list;
    for (const Uid& uid : uids)
        list.insert(list.end(), std::begin(uid.ab), std::end(uid.ab));
    return PropValue::Binary(tag, std::move(list));
}

Uid CreateProviderSection(Profile& profile, const Uid& service, const ProviderDefinition& definition,
                          const std::vector<PropValue>& values)
{
    const PropertyBag serviceSection = profile.Section(service);
    const Uid provider = Uid::Create();
    PropertyBag section(definition.properties);
    for (const PropValue& value : values)
        section.Put(value);
    section.Put(PropValue::Uid(PR_PROVIDER_UID, provider));
    section.Put(PropValue::Uid(PR_SERVICE_UID, service));
    section.Put(PropValue::String(PR_SERVICE_NAME_W, TextOf(serviceSection, PR_SERVICE_NAME)));
    std::vector<PropValue> all;
    for (const auto& [id, value] : section.Values())
        all.push_back(value);
    profile.Change(provider, all);

    const ULONG list = ListOf(definition.Type());
    std::vector<Uid> providers = ReadUids(serviceSection, list);
    providers.push_back(provider);
    profile.Change(service, {UidList(list, providers)});
    return provider;
}

void DeleteProviderSection(Profile& profile, const Uid& service, const Uid& provider)
{
    const PropertyBag section = profile.Section(service);
    for (const ULONG list : providerLists)
    {
        std::vector<Uid> providers = ReadUids(section, list);
        if (std::erase(providers, provider) == 0)
            continue;
        profile.Change(service, {UidList(list, providers)});
        profile.Remove(provider);
        return;
    }
    Fail(MAPI_E_NOT_FOUND, L"The message service has no such provider.");
}

std::vector<Uid> ProvidersOf(const Profile& profile, const Uid& service)
{
    const PropertyBag section = profile.Section(service);
    std::vector<Uid> providers;
    for (const ULONG list : providerLists)
    {
        const std::vector<Uid> some = ReadUids(section, list);
        providers.insert(providers.end(), some.begin(), some.end());
    }
    return providers;
}

ComPtr<IMAPITable> OpenProviderTable(const Profile& profile, const std::vector<Uid>& providers,
                                     const MapiMemory& memory, ULONG flags)
{
    std::vector<PropertyBag> rows;
    for (const Uid& provider : providers)
    {
        PropertyBag row = profile.Section(provider);
        row.Put(PropValue::Uid(PR_INSTANCE_KEY, provider));
        row.Put(PropValue::Long(PR_PROVIDER_ORDINAL, static_cast<LONG>(rows.size())));
        rows.push_back(std::move(row));
    }
    const std::vector<ULONG> columns = {PR_INSTANCE_KEY,     PR_DISPLAY_NAME, PR_PROVIDER_DISPLAY, PR_PROVIDER_DLL_NAME,
                                        PR_PROVIDER_ORDINAL, PR_PROVIDER_UID, PR_RESOURCE_FLAGS,   PR_RESOURCE_TYPE,
                                        PR_SERVICE_NAME,     PR_SERVICE_UID};
    return CreateTable(std::make_shared<MemoryRows>(columns, std::move(rows)), memory, flags, L"MAPI");
}

ComPtr<IProviderAdmin> CreateProviderAdmin(std::shared_ptr<Profile> profile, const Uid& service,
                                           std::vector<ProviderDefinition> definitions, SectionUser user,
                                           const MapiMemory& memory, ProviderEvent event)
{
    return MakeObject<ProviderAdmin>(std::move(profile), service, std::move(definitions), user, memory,
                                     std::move(event));
}
} // namespace Testbed
