// The entries that a host module exports.
#include "nst/KivNstCore.h"
#include "tests/faults/Operation.h"

#include <gtest/gtest.h>

using namespace Quillon;

namespace Tests
{
namespace
{

constexpr Site serviceEntry = {L"NstMessageService.cpp", L"Quillon::Nst::CNstMessageService::NstServiceEntry"};
constexpr Site mdbProvider = {L"NstMessageService.cpp", L"Quillon::Nst::CNstMessageService::ConfigureMdbProvider"};
constexpr Site configure = {L"NstMessageService.cpp", L"Quillon::Nst::CNstMessageService::ConfigureService"};
constexpr Site providerInit = {L"NstMessageService.cpp", L"Quillon::Nst::CNstMessageService::NstProviderInit"};

void FewerProperties(Expected& expected)
{
    expected.Throw(configure, E_FAIL, L"The profile section returned fewer properties than were asked for");
}

auto NoFunction(const Site& site, const wchar_t* name)
{
    return [site, name](Expected& expected, long error)
    {
        const std::wstring reason = FormatSystemError(static_cast<unsigned>(error), true).GetString();
        expected.Throw(site, E_FAIL, L"Unable to find " + std::wstring(name) + L" in PST module: " + reason);
    };
}

/// The call goes through the library's own support object, which tells of it too.
void NoUid(Expected& expected, long code)
{
    const auto hr = static_cast<HRESULT>(code);
    expected.Log(FAILED(hr) ? LogId::Error : LogId::Warning, MapiText(hr, L"IMAPISupport::NewUID"));
    if (SUCCEEDED(hr))
    {
        const StringW text = FormatErrorWithContext(FormatSystemError(static_cast<unsigned>(hr), true), StringW());
        expected.lines.push_back(
            Event(L"Non-success condition during COM call", configure.file, configure.function, text.GetString()));
        return;
    }
    if (!Faults::Get().Planned().givesErrors)
        expected.Log(LogId::Error, MapiText(MAPI_E_NOT_ENOUGH_MEMORY, L"IMAPISupport::GetLastError"));
    expected.Throw(configure, hr, MapiText(hr));
}

std::vector<Rule> EntryRules()
{
    return {
        {"GetProcAddress", Shape::System, {}, {}, S_OK, false, NoFunction(serviceEntry, L"NSTServiceEntry")},
        {"IProviderAdmin::OpenProfileSection", Shape::Profile, serviceEntry, {}, S_OK, false, {}, GivesNull},
        {"service IProfSect::SetProps", Shape::Profile, serviceEntry},
        {"service IProfSect::SetProps", Shape::Profile, mdbProvider},
        {"service IProfSect::SaveChanges", Shape::Profile, mdbProvider},
        {"service IProfSect::GetProps", Shape::Profile, serviceEntry},
        {"CreateMapiSupport", Shape::Factory},
        {"NSTServiceEntry", Shape::Com, serviceEntry},
    };
}

std::vector<Rule> ConfigureRules()
{
    return {
        {"GetProfileSectionConfiguration", Shape::Hook},
        {"ConfigureService", Shape::Hook},
        {"service IProfSect::GetProps", Shape::Profile, configure, {}, S_OK, false, {}, FewerProperties},
        {"IProviderAdmin::OpenProfileSection", Shape::Profile, configure, {}, S_OK, false, {}, GivesNull},
        {"provider IProfSect::GetProps", Shape::Profile, configure, {}, S_OK, false, {}, FewerProperties},
        {"GetProviderDllName", Shape::Hook},
        {"WrapStoreEntryID", Shape::Com, configure},
        {"IMAPISupport::NewUID", Shape::Ignored, {}, {}, S_OK, false, NoUid},
        {"provider IProfSect::SetProps", Shape::Profile, configure},
        {"service IProfSect::SetProps", Shape::Profile, configure},
    };
}

HRESULT Enter(Surroundings& surroundings, ULONG context)
{
    FaultyService service(surroundings);
    wchar_t name[] = L"Archive";
    SPropValue value = {};
    value.ulPropTag = PR_DISPLAY_NAME_W;
    value.Value.lpszW = name;
    MAPIERROR* error = nullptr;
    const HRESULT hr = surroundings.Run(
        [&]
        {
            service.NstServiceEntry(nullptr, surroundings.support.As<IMAPISupport>(), 0, MAPI_UNICODE, context, 1,
                                    &value, surroundings.admin.As<IProviderAdmin>(), &error);
        });
    EXPECT_EQ(error != nullptr, surroundings.hostRefuses && hr == MAPI_E_INVALID_PARAMETER);
    if (error)
    {
        EXPECT_STREQ(error->lpszError, L"The file is in use");
        MapiModule::Get().Free(error);
    }
    return hr;
}

} // namespace

std::vector<Operation> ServiceOperations()
{
    std::vector<Operation> operations;
    const Rule save = {"service IProfSect::SaveChanges", Shape::Profile, serviceEntry};

    Operation create;
    create.name = "service entry to create";
    create.rules = EntryRules();
    create.rules.push_back(save);
    create.run = [](Surroundings& surroundings) { return Enter(surroundings, MSG_SERVICE_CREATE); };
    operations.push_back(create);

    Operation configuring;
    configuring.name = "service entry to configure";
    configuring.rules = EntryRules();
    Append(configuring.rules, ConfigureRules());
    configuring.rules.push_back(save);
    configuring.run = [](Surroundings& surroundings) { return Enter(surroundings, MSG_SERVICE_CONFIGURE); };
    operations.push_back(configuring);

    Operation refused;
    refused.name = "service entry refused by the host";
    refused.rules = EntryRules();
    Append(refused.rules, {{"GetProfileSectionConfiguration", Shape::Hook}, {"ConfigureService", Shape::Hook}});
    refused.run = [](Surroundings& surroundings)
    {
        surroundings.hostRefuses = true;
        return Enter(surroundings, MSG_SERVICE_CONFIGURE);
    };
    refused.base = [](Expected& expected)
    {
        expected.Log(LogId::Error, L"Unable to configure service");
        expected.Throw(serviceEntry, MAPI_E_INVALID_PARAMETER, ComText(MAPI_E_INVALID_PARAMETER));
    };
    operations.push_back(refused);

    Operation init;
    init.name = "provider initialisation";
    init.rules = {
        {"GetProcAddress", Shape::System, {}, {}, S_OK, false, NoFunction(providerInit, L"MSProviderInit")},
        {"MSProviderInit", Shape::Com, providerInit, {}, S_OK, false, {}, GivesNull},
        {"CreateMsProvider", Shape::Factory},
    };
    init.run = [](Surroundings& surroundings)
    {
        FaultyService service(surroundings);
        ULONG version = 0;
        auto* provider = reinterpret_cast<IMSProvider*>(&service);
        const HRESULT hr = surroundings.Run(
            [&]
            {
                service.NstProviderInit(nullptr, nullptr, nullptr, nullptr, 0, CURRENT_SPI_VERSION, &version,
                                        &provider);
            });
        EXPECT_EQ(version, static_cast<ULONG>(CURRENT_SPI_VERSION));
        EXPECT_EQ(provider == nullptr, FAILED(hr));
        ATL::CComQIPtr<IMSProvider> own;
        own.Attach(provider);
        return hr;
    };
    operations.push_back(init);
    return operations;
}

} // namespace Tests
