// Logging on, and what that needs.
#include "nst/KivNstCore.h"
#include "nst/Olfi.h"
#include "support/com_wrap.h"
#include "tests/faults/Operation.h"

#include <gtest/gtest.h>

using namespace Quillon;

namespace Tests
{
namespace
{

constexpr Site globalSection = {L"KivNstCore.cpp", L"Quillon::Nst::GetGlobalProfileSection"};
constexpr Site logOn = {L"NstMsProvider.cpp", L"Quillon::Nst::CNstMsProvider::Logon"};
constexpr Site spoolerLogOn = {L"NstMsProvider.cpp", L"Quillon::Nst::CNstMsProvider::SpoolerLogon"};
constexpr Site subtreeRoot = {L"NstMsProvider.cpp", L"Quillon::Nst::CNstMsProvider::ConfigureNstSubtreeEntryId"};
constexpr Site openObject = {L"OpenMapiObject.h", L"Quillon::Mapi::OpenMapiObject"};

std::vector<Rule> GlobalSectionRules()
{
    return {
        {"IMAPISupport::OpenProfileSection", Shape::Mapi, globalSection, {}, S_OK, false, {}, GivesNull},
        {"own IProfSect::GetProps", Shape::Try, {}, {}, S_OK, false, {}, Succeed},
        {"IMAPISupport::OpenProfileSection", Shape::Mapi, globalSection, {}, S_OK, false, {}, GivesNull},
    };
}

std::vector<Rule> OlfiRules()
{
    return {
        {"IMsgStore::GetProps", Shape::Try, {}, {}, S_OK, false, {}, Succeed},
        {"CoCreateGuid", Shape::Ignored},
        {"IMsgStore::SetProps", Shape::Set, {}, TagText(PR_OST_OLFI)},
    };
}

} // namespace

std::vector<Operation> ProviderOperations()
{
    std::vector<Operation> operations;

    Operation global;
    global.name = "global profile section";
    global.rules = GlobalSectionRules();
    global.run = [](Surroundings& surroundings)
    {
        ATL::CComQIPtr<IProfSect> section;
        const HRESULT hr =
            surroundings.Run([&] { section = Nst::GetGlobalProfileSection(surroundings.support.As<IMAPISupport>()); });
        EXPECT_EQ(section.p != nullptr, SUCCEEDED(hr));
        return hr;
    };
    operations.push_back(global);

    Operation loggingOn;
    loggingOn.name = "logon";
    loggingOn.handler = logOn;
    loggingOn.rules = GlobalSectionRules();
    const auto noStore = [](Expected& expected)
    { expected.Throw({L"Olfi.cpp", L"SetOLFIInOST"}, E_INVALIDARG, ComText(E_INVALIDARG)); };
    Append(loggingOn.rules, {{"CreateMapiSupport", Shape::Factory},
                             {"IMSProvider::Logon", Shape::Com, logOn, {}, S_OK, false, {}, noStore}});
    Append(loggingOn.rules, OlfiRules());
    Append(loggingOn.rules, {{"CreateMessageStore", Shape::Factory}, {"CreateMsLogon", Shape::Factory}});
    loggingOn.run = [](Surroundings& surroundings)
    {
        const auto provider = com_wrap<IMSProvider>(new FaultyProvider(surroundings.provider.As<IMSProvider>()));
        auto* const untouched = reinterpret_cast<IMSLogon*>(&surroundings);
        IMSLogon* logon = untouched;
        auto* store = reinterpret_cast<IMsgStore*>(&surroundings);
        const HRESULT hr = surroundings.Run(
            [&]
            {
                return provider->Logon(surroundings.support.As<IMAPISupport>(), 0, nullptr, 0, nullptr, 0, nullptr,
                                       nullptr, nullptr, nullptr, &logon, &store);
            });
        if (surroundings.endedForeign)
            return hr;
        EXPECT_EQ(logon == untouched, FAILED(hr));
        EXPECT_EQ(store == nullptr, FAILED(hr));
        ATL::CComQIPtr<IMSLogon> ownLogon;
        ATL::CComQIPtr<IMsgStore> ownStore;
        ownStore.Attach(store);
        if (logon != untouched)
            ownLogon.Attach(logon);
        return hr;
    };
    operations.push_back(loggingOn);

    Operation spooler;
    spooler.name = "spooler logon";
    spooler.handler = spoolerLogOn;
    spooler.rules = GlobalSectionRules();
    Append(spooler.rules, {{"CreateMapiSupport", Shape::Factory},
                           {"IMSProvider::SpoolerLogon", Shape::Com, spoolerLogOn, {}, S_OK, false, {}, Succeed}});
    // The last call is the one that gives the objects.
    spooler.run = [spoolerRules = spooler.rules.size()](Surroundings& surroundings)
    {
        const auto provider = com_wrap<IMSProvider>(new FaultyProvider(surroundings.provider.As<IMSProvider>()));
        ATL::CComQIPtr<IMSLogon> logon;
        ATL::CComQIPtr<IMsgStore> store;
        const HRESULT hr = surroundings.Run(
            [&]
            {
                return provider->SpoolerLogon(surroundings.support.As<IMAPISupport>(), 0, nullptr, 0, nullptr, 0,
                                              nullptr, 0, nullptr, nullptr, &logon, &store);
            });
        const Faults& faults = Faults::Get();
        const bool givesNothing = faults.Planned().effect == Effect::Nothing && faults.Planned().call == spoolerRules;
        const bool given = SUCCEEDED(hr) && !givesNothing;
        EXPECT_EQ(logon.p, given ? surroundings.logon.As<IMSLogon>() : nullptr);
        EXPECT_EQ(store.p, given ? surroundings.store.As<IMsgStore>() : nullptr);
        return hr;
    };
    operations.push_back(spooler);

    Operation root;
    root.name = "archive subtree root";
    const auto noObject = [](Expected& expected)
    { expected.Throw(openObject, E_FAIL, Mapi::FormatMapiError(E_FAIL, L"", nullptr).GetString()); };
    const auto noFolder = [](Expected& expected, long)
    { expected.Throw(openObject, E_NOINTERFACE, Mapi::FormatMapiError(E_NOINTERFACE, L"", nullptr).GetString()); };
    root.rules = {
        {"IMsgStore::GetProps", Shape::Try, {}, {}, S_OK, false, {}, Succeed},
        {"IMsgStore::GetProps",
         Shape::Query,
         {},
         TagText(PR_IPM_SUBTREE_ENTRYID),
         S_OK,
         false,
         {},
         Missing(PR_IPM_SUBTREE_ENTRYID)},
        {"IMsgStore::OpenEntry", Shape::Mapi, openObject, {}, S_OK, false, {}, noObject},
        {"IMAPIFolder::QueryInterface", Shape::Interface, {}, {}, S_OK, false, noFolder},
        {"IMAPIFolder::CreateFolder", Shape::Mapi, subtreeRoot, {}, S_OK, false, {}, GivesNull},
        {"root IMAPIFolder::GetProps", Shape::Query, {}, TagText(PR_ENTRYID), S_OK, false, {}, Missing(PR_ENTRYID)},
        {"IMsgStore::SetProps", Shape::Set, {}, TagText(Nst::archiveSubtreeEntryIdTag)},
        {"IMsgStore::SaveChanges", Shape::Mapi, subtreeRoot},
    };
    root.run = [](Surroundings& surroundings)
    {
        surroundings.store.properties.erase(Nst::archiveSubtreeEntryIdTag);
        auto* const made = new FaultyProvider(surroundings.provider.As<IMSProvider>());
        const auto provider = com_wrap<IMSProvider>(made);
        return surroundings.Run([&] { made->ConfigureNstSubtreeEntryId(surroundings.store.As<IMsgStore>()); });
    };
    operations.push_back(root);

    Operation olfi;
    olfi.name = "offline folder identifier";
    olfi.rules = OlfiRules();
    olfi.run = [](Surroundings& surroundings)
    { return surroundings.Run([&] { Nst::SetOLFIInOST(surroundings.store.As<IMsgStore>()); }); };
    operations.push_back(olfi);
    return operations;
}

} // namespace Tests
