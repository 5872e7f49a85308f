// The setting of a message service: a PST module, a profile section, a support object, a host.
#pragma once

#include "nst/NstMessageService.h"
#include "tests/common/Properties.h"
#include "tests/common/Setting.h"
#include "tests/common/StoreDoubles.h"
#include "tests/common/SupportDoubles.h"
#include "tests/units/doubles/PstDouble.h"

#include <gmock/gmock.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

namespace Tests
{

/// The PST module that is resident in this process from the first call on; its functions are reset by each.
HMODULE ResidentPstModule();
PstDouble& ResidentPstFunctions();

/// What a host derives. Its overrides do what the members say; those that are empty leave it to the library.
class Host : public Quillon::Nst::CNstMessageService
{
public:
    Quillon::StringW GetProviderDllName() override { return L"ArchiveHost.dll"; }

    std::function<ATL::CComQIPtr<IMAPISupport>(const ATL::CComQIPtr<IMAPISupport>&, const ATL::CComQIPtr<IProfSect>&)>
        createSupport;
    std::function<void(const ATL::CComQIPtr<IMAPISupport>&, const ATL::CComQIPtr<IProfSect>&,
                       const ATL::CComQIPtr<IProviderAdmin>&, const Quillon::Mapi::SPropValueVector&)>
        configure;
    std::function<Quillon::Mapi::SPropValueVector(SPropValue*, ULONG)> getConfiguration;
    std::function<ATL::CComQIPtr<IMSProvider>(const ATL::CComQIPtr<IMSProvider>&)> createProvider;

    ATL::CComQIPtr<IMAPISupport> CreateMapiSupport(const ATL::CComQIPtr<IMAPISupport>& support,
                                                   const ATL::CComQIPtr<IProfSect>& section) override
    {
        return createSupport ? createSupport(support, section)
                             : CNstMessageService::CreateMapiSupport(support, section);
    }
    void ConfigureService(const ATL::CComQIPtr<IMAPISupport>& support, const ATL::CComQIPtr<IProfSect>& section,
                          const ATL::CComQIPtr<IProviderAdmin>& admin,
                          const Quillon::Mapi::SPropValueVector& settings) override
    {
        if (configure)
            configure(support, section, admin, settings);
        else
            CNstMessageService::ConfigureService(support, section, admin, settings);
    }
    Quillon::Mapi::SPropValueVector GetProfileSectionConfiguration(SPropValue* lpProps, ULONG cValues) override
    {
        return getConfiguration ? getConfiguration(lpProps, cValues)
                                : CNstMessageService::GetProfileSectionConfiguration(lpProps, cValues);
    }
    ATL::CComQIPtr<IMSProvider> CreateMsProvider(const ATL::CComQIPtr<IMSProvider>& pstProvider) override
    {
        return createProvider ? createProvider(pstProvider) : pstProvider;
    }
};

/// An OpenProfileSection that gives `section` with `hr`.
inline auto OpenSection(IProfSect* section, HRESULT hr = S_OK)
{
    return [section, hr](auto... arguments) -> HRESULT
    {
        IProfSect** const opened = std::get<sizeof...(arguments) - 1>(std::tuple(arguments...));
        if (FAILED(hr))
            return hr;
        *opened = section;
        if (section)
            section->AddRef();
        return hr;
    };
}

/// The bytes of the provider's UID.
inline Bytes ProviderUidBytes()
{
    return {0xE9, 0x2F, 0xEB, 0x75, 0x96, 0x50, 0x44, 0x86, 0x83, 0xB8, 0x7D, 0xE5, 0x22, 0xAA, 0x49, 0x48};
}

} // namespace Tests
