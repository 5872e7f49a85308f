// CNstMessageService::NstServiceEntry.
#include "nst/NstMapiSupport.h"
#include "support/CallWrapping.h"
#include "support/Format.h"
#include "support/com_wrap.h"
#include "tests/common/Alone.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"
#include "tests/common/MapiModule.h"
#include "tests/units/ServiceSetting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

using namespace Quillon;
using testing::_;
using testing::ElementsAre;
using testing::InSequence;
using testing::IsEmpty;
using testing::IsNull;
using testing::Return;
using Tests::Bytes;
using Tests::Host;
using Tests::LogCapture;
using Tests::OpenSection;
using Tests::ProfileSectionDouble;
using Tests::ProviderAdminDouble;
using Tests::SupportDouble;
using Tests::Text;

namespace
{

constexpr auto file = L"NstMessageService.cpp";
constexpr auto function = L"Quillon::Nst::CNstMessageService::NstServiceEntry";
constexpr auto nonSuccess = L"Non-success condition during COM call";
constexpr ULONG keepOpen = 2;
const std::vector<ULONG> readBackTags = {0x6610001F, 0x6610001E, 0x34140102};

/// The arguments of a call of the PST module's entry.
struct PstCall
{
    HINSTANCE instance;
    IMalloc* malloc;
    IMAPISupport* support;
    ULONG_PTR uiParam;
    ULONG flags;
    ULONG context;
    std::vector<ULONG> tags;
    std::wstring path;
    IProviderAdmin* admin;
    MAPIERROR** error;
};

std::vector<PstCall> pstCalls;
HRESULT pstResult = S_OK;

HRESULT WINAPI RecordEntry(HINSTANCE instance, IMalloc* malloc, IMAPISupport* support, ULONG_PTR uiParam, ULONG flags,
                           ULONG context, ULONG count, SPropValue* values, IProviderAdmin* admin, MAPIERROR** error)
{
    PstCall call = {instance, malloc, support, uiParam, flags, context, {}, {}, admin, error};
    for (ULONG index = 0; index < count; ++index)
    {
        call.tags.push_back(values[index].ulPropTag);
        if (values[index].ulPropTag == 0x6610001F)
            call.path = values[index].Value.lpszW;
    }
    pstCalls.push_back(call);
    return pstResult;
}

MATCHER(IsProviderUid, "")
{
    return arg->ulPropTag == 0x34140102 && Tests::BytesOf(*arg) == Tests::ProviderUidBytes();
}

class NstServiceEntry : public testing::Test
{
protected:
    NstServiceEntry()
    {
        Tests::ResidentPstFunctions().serviceEntry = RecordEntry;
        pstCalls.clear();
        pstResult = S_OK;
        ON_CALL(*admin, OpenProfileSection).WillByDefault(OpenSection(section.Get()));
        ON_CALL(*section, GetProps(Tests::Tags(readBackTags), _, _, _))
            .WillByDefault(Tests::GiveProps(S_OK, {Tests::TextValue(0x6610001F, L"C:\\archive.pst"),
                                                   Tests::ErrorValue(0x6610001E, MAPI_E_NOT_FOUND),
                                                   Tests::BinaryValue(0x34140102, Tests::ProviderUidBytes())}));
        host.configure = [](const auto&, const auto&, const auto&, const auto&) {};
    }

    ~NstServiceEntry() override
    {
        EXPECT_EQ(section->References(), 1u);
        EXPECT_EQ(admin->References(), 1u);
        EXPECT_EQ(support->References(), 1u);
    }

    void Enter(ULONG context, ULONG count = 0, SPropValue* props = nullptr, MAPIERROR** error = nullptr)
    {
        host.NstServiceEntry(nullptr, support.Get(), 0, 0, context, count, props, admin.Get(), error);
    }

    /// The code and the text that an entry throws.
    std::pair<HRESULT, std::wstring> Thrown(ULONG context, ULONG count = 0, SPropValue* props = nullptr)
    {
        try
        {
            Enter(context, count, props);
        }
        catch (const CException& exception)
        {
            return {exception.GetHResult(), Text(exception.Format())};
        }
        return {S_OK, L"nothing"};
    }

    Host host;
    Tests::DoublePointer<testing::NiceMock<SupportDouble>> support = Tests::MakeNice<SupportDouble>();
    Tests::DoublePointer<testing::NiceMock<ProviderAdminDouble>> admin = Tests::MakeNice<ProviderAdminDouble>();
    Tests::DoublePointer<testing::NiceMock<ProfileSectionDouble>> section = Tests::MakeNice<ProfileSectionDouble>();
};

} // namespace

TEST_F(NstServiceEntry, RefusesANullSupportObjectOrProviderAdminBeforeThePstModuleIsSought)
{
    for (const bool withSupport : {false, true})
    {
        Logging::EnableTraceLogging(true);
        const LogCapture log;
        EXPECT_CALL(*admin, OpenProfileSection).Times(0);
        HRESULT result = S_OK;
        try
        {
            host.NstServiceEntry(nullptr, withSupport ? support.Get() : nullptr, 0, 0, MSG_SERVICE_CREATE, 0, nullptr,
                                 withSupport ? nullptr : admin.Get(), nullptr);
        }
        catch (const CComError& error)
        {
            result = error.GetHResult();
        }
        Logging::EnableTraceLogging(false);
        EXPECT_EQ(result, MAPI_E_INVALID_PARAMETER);
        EXPECT_THAT(log.Lines(),
                    ElementsAre(Tests::Throwing(file, function, Text(FormatComError(MAPI_E_INVALID_PARAMETER)))));
    }
}

TEST_F(NstServiceEntry, HasNoSupportForTheProviderContextsAndSeeksNoPstModule)
{
    for (const ULONG context : {6u, 7u})
    {
        Logging::EnableTraceLogging(true);
        const LogCapture log;
        EXPECT_CALL(*admin, OpenProfileSection).Times(0);
        const auto thrown = Thrown(context);
        Logging::EnableTraceLogging(false);
        EXPECT_EQ(thrown.first, MAPI_E_NO_SUPPORT);
        EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, L"MAPI_E_NO_SUPPORT (0x80040102)")));
    }
    EXPECT_THAT(pstCalls, IsEmpty());
}

TEST_F(NstServiceEntry, StoresTheValuesMarksTheSectionReadsItBackCallsThePstModuleAndSaves)
{
    SPropValue props[2] = {};
    const LogCapture log;
    {
        const InSequence order;
        EXPECT_CALL(*admin, OpenProfileSection(IsNull(), IsNull(), static_cast<ULONG>(MAPI_MODIFY), _));
        EXPECT_CALL(*section, SetProps(2, props, IsNull()));
        EXPECT_CALL(*section, SetProps(1, IsProviderUid(), IsNull()));
        EXPECT_CALL(*section, SaveChanges(keepOpen));
        EXPECT_CALL(*section, GetProps(Tests::Tags(readBackTags), static_cast<ULONG>(MAPI_UNICODE), _, _));
        EXPECT_CALL(*section, SaveChanges(keepOpen))
            .WillOnce(
                [](ULONG) -> HRESULT
                {
                    EXPECT_EQ(pstCalls.size(), 1u) << "it is saved after the PST module's call";
                    return S_OK;
                });
    }
    Enter(MSG_SERVICE_CREATE, 2, props);
    EXPECT_EQ(pstCalls.size(), 1u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(NstServiceEntry, HandsThePstModuleWhatTheSectionHoldsAndAWrappedSupportObject)
{
    SPropValue props[1] = {};
    props[0].ulPropTag = 0x66100003;
    auto* const malloc = reinterpret_cast<IMalloc*>(&props);
    MAPIERROR* error = nullptr;
    const LogCapture log;
    host.NstServiceEntry(malloc, support.Get(), 0xABCD, 0x80000008, MSG_SERVICE_INSTALL, 1, props, admin.Get(), &error);
    ASSERT_EQ(pstCalls.size(), 1u);
    const PstCall& call = pstCalls[0];
    EXPECT_EQ(call.instance, Tests::ResidentPstModule());
    EXPECT_EQ(call.malloc, malloc);
    EXPECT_NE(call.support, nullptr);
    EXPECT_NE(call.support, support.Get()) << "the support object is wrapped";
    EXPECT_EQ(call.uiParam, 0xABCDu);
    EXPECT_EQ(call.flags, 0x80000008u);
    EXPECT_EQ(call.context, static_cast<ULONG>(MSG_SERVICE_INSTALL));
    EXPECT_EQ(call.tags, (std::vector<ULONG>{0x6610001F, 0x6610000A, 0x34140102})) << "not the caller's list";
    EXPECT_EQ(call.path, L"C:\\archive.pst");
    EXPECT_EQ(call.admin, nullptr);
    EXPECT_EQ(call.error, &error);
}

TEST_F(NstServiceEntry, HandsThePstModuleTheSupportObjectThatTheHostMakes)
{
    const auto other = Tests::MakeNice<SupportDouble>();
    const LogCapture log;
    host.createSupport = [&](const auto& given, const auto& givenSection) -> ATL::CComQIPtr<IMAPISupport>
    {
        EXPECT_EQ(given.p, support.Get());
        EXPECT_EQ(givenSection.p, section.Get());
        return other.Get();
    };
    Enter(MSG_SERVICE_CREATE);
    ASSERT_EQ(pstCalls.size(), 1u);
    EXPECT_EQ(pstCalls[0].support, other.Get());
    EXPECT_EQ(other->References(), 1u);
}

TEST_F(NstServiceEntry, StoresNoValuesWhenThereAreNone)
{
    SPropValue props[1] = {};
    const LogCapture log;
    EXPECT_CALL(*section, SetProps(1, IsProviderUid(), _)).Times(2);
    EXPECT_CALL(*section, SaveChanges(keepOpen)).Times(4);
    Enter(MSG_SERVICE_CREATE, 0, props);
    Enter(MSG_SERVICE_CREATE, 3, nullptr);
    EXPECT_EQ(pstCalls.size(), 2u);
}

TEST_F(NstServiceEntry, ConfiguresTheServiceInTheConfigureContextAlone)
{
    for (const ULONG context : {0u, 1u, 2u, 3u, 4u, 5u, 8u})
    {
        const LogCapture log;
        int configured = 0;
        host.configure = [&](const auto&, const auto&, const auto&, const auto&) { ++configured; };
        EXPECT_CALL(*section, SaveChanges(keepOpen)).Times(2);
        Enter(context);
        EXPECT_EQ(configured, context == 3 ? 1 : 0) << "context " << context;
        testing::Mock::VerifyAndClearExpectations(section.Get());
        EXPECT_EQ(pstCalls.back().context, context);
    }
}

TEST_F(NstServiceEntry, ConfiguresWithTheCallersValuesAndTheWrappedSupportObject)
{
    SPropValue props[2] = {};
    const LogCapture log;
    bool configured = false;
    host.getConfiguration = [&](SPropValue* values, ULONG count)
    {
        EXPECT_EQ(values, props) << "the caller's own, not those read back";
        EXPECT_EQ(count, 2u);
        Mapi::SPropValueVector settings;
        settings.AddLong(PR_PRIORITY, 42);
        return settings;
    };
    host.configure = [&](const auto& givenSupport, const auto& givenSection, const auto& givenAdmin,
                         const Mapi::SPropValueVector& settings)
    {
        configured = true;
        EXPECT_EQ(givenSupport.p, pstCalls.at(0).support);
        EXPECT_EQ(givenSection.p, section.Get());
        EXPECT_EQ(givenAdmin.p, admin.Get());
        ASSERT_EQ(settings.GetCount(), 1u);
        EXPECT_EQ(settings.GetValues()[0].Value.l, 42);
    };
    Enter(MSG_SERVICE_CONFIGURE, 2, props);
    EXPECT_TRUE(configured);
}

TEST_F(NstServiceEntry, HasNoSettingsUnlessTheHostMakesSome)
{
    const LogCapture log;
    SPropValue props[2] = {};
    host.configure = [](const auto&, const auto&, const auto&, const Mapi::SPropValueVector& settings)
    { EXPECT_TRUE(settings.IsEmpty()); };
    Enter(MSG_SERVICE_CONFIGURE, 2, props);
}

TEST_F(NstServiceEntry, ThrowsThePstModulesFailureAndSavesNothingMore)
{
    const LogCapture log;
    pstResult = MAPI_E_CORRUPT_STORE;
    bool configured = false;
    host.configure = [&](const auto&, const auto&, const auto&, const auto&) { configured = true; };
    EXPECT_CALL(*section, SaveChanges(keepOpen)).Times(1); // the mark's own
    const auto thrown = Thrown(MSG_SERVICE_CONFIGURE);
    EXPECT_EQ(thrown.first, MAPI_E_CORRUPT_STORE);
    EXPECT_FALSE(configured);
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, thrown.second)));
}

TEST_F(NstServiceEntry, LogsThePstModulesWarningAndGoesOn)
{
    const LogCapture log;
    pstResult = MAPI_W_ERRORS_RETURNED;
    bool configured = false;
    host.configure = [&](const auto&, const auto&, const auto&, const auto&) { configured = true; };
    EXPECT_CALL(*section, SaveChanges(keepOpen)).Times(2);
    Enter(MSG_SERVICE_CONFIGURE);
    EXPECT_TRUE(configured);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Tests::Event(nonSuccess, file, function, L"MAPI_W_ERRORS_RETURNED (0x00040380)")));
}

TEST_F(NstServiceEntry, GivesTheWrappedSupportObjectBackWhileTheValuesAndTheSectionAreStillThere)
{
    struct Ending : Nst::CNstMapiSupport
    {
        using CNstMapiSupport::CNstMapiSupport;
        ~Ending() override { atEnd(); }
        std::function<void()> atEnd;
    };
    const Tests::MapiModule& mapi = Tests::MapiModule::Get();
    const ULONG before = mapi.LiveBlocks();
    ULONG blocks = 0;
    ULONG references = 0;
    host.createSupport = [&](const auto& given, const auto& givenSection)
    {
        auto* const made = new Ending(given, givenSection);
        made->atEnd = [&]
        {
            blocks = mapi.LiveBlocks();
            references = section->References();
        };
        return com_wrap<IMAPISupport>(made);
    };
    const LogCapture log;
    Enter(MSG_SERVICE_CREATE);
    EXPECT_GT(blocks, before);
    EXPECT_EQ(references, 3u) << "the test's, the entry's, the support object's";
    EXPECT_EQ(mapi.LiveBlocks(), before);
}

TEST_F(NstServiceEntry, ReportsTheHostsExtendedErrorToTheCaller)
{
    for (const bool wide : {true, false})
    {
        const LogCapture log;
        host.configure = [](const auto&, const auto&, const auto&, const auto&)
        { throw Mapi::ExtendedMapiError(L"no such file", L"ArchiveHost", 2, 3); };
        EXPECT_CALL(*section, SaveChanges(keepOpen)).Times(1); // the mark's own
        MAPIERROR* given = nullptr;
        HRESULT result = S_OK;
        try
        {
            host.NstServiceEntry(nullptr, support.Get(), 0, wide ? MAPI_UNICODE : 0, MSG_SERVICE_CONFIGURE, 0, nullptr,
                                 admin.Get(), &given);
        }
        catch (const CComError& error)
        {
            result = error.GetHResult();
        }
        EXPECT_EQ(result, MAPI_E_INVALID_PARAMETER);
        const Mapi::MapiErrorPointer error(given);
        ASSERT_TRUE(static_cast<bool>(error));
        if (wide)
            EXPECT_STREQ(error->lpszError, L"no such file");
        else
            EXPECT_STREQ(reinterpret_cast<const char*>(error->lpszError), "no such file");
        EXPECT_EQ(error->ulLowLevelError, 2u);
        EXPECT_EQ(error->ulContext, 3u);
        EXPECT_THAT(log.Lines(),
                    ElementsAre(Tests::Entry(LogId::Error, L"Unable to configure service"),
                                Tests::Throwing(file, function, Text(FormatComError(MAPI_E_INVALID_PARAMETER)))));
        testing::Mock::VerifyAndClearExpectations(section.Get());
    }
}

TEST_F(NstServiceEntry, ReportsNoExtendedErrorToACallerThatWantsNone)
{
    const LogCapture log;
    host.getConfiguration = [](SPropValue*, ULONG) -> Mapi::SPropValueVector
    { throw Mapi::ExtendedMapiError(L"text", nullptr, 0, 0); };
    EXPECT_EQ(Thrown(MSG_SERVICE_CONFIGURE).first, MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(log.Lines().size(), 2u);
}

TEST_F(NstServiceEntry, LetsOtherExceptionsOfTheHostPass)
{
    const LogCapture log;
    host.configure = [](const auto&, const auto&, const auto&, const auto&) { throw CRuntimeError(L"the host's own"); };
    MAPIERROR* error = nullptr;
    try
    {
        Enter(MSG_SERVICE_CONFIGURE, 0, nullptr, &error);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const CRuntimeError& exception)
    {
        EXPECT_EQ(Text(exception.Format()), L"the host's own");
    }
    EXPECT_EQ(error, nullptr);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(NstServiceEntry, ThrowsWhenItIsGivenNoSectionOrTheHostMakesNoSupportObject)
{
    const LogCapture log;
    host.createSupport = [](const auto&, const auto&) { return ATL::CComQIPtr<IMAPISupport>(); };
    EXPECT_EQ(Thrown(MSG_SERVICE_CREATE).first, E_POINTER);
    ON_CALL(*admin, OpenProfileSection).WillByDefault(OpenSection(nullptr));
    EXPECT_EQ(Thrown(MSG_SERVICE_CREATE).first, E_POINTER);
    EXPECT_THAT(pstCalls, IsEmpty());
    EXPECT_EQ(log.Lines().size(), 2u);
}

// The calls on the profile, each with a failure and with a warning.

namespace
{

/// Which call of an entry gives which result.
struct ProfileCall
{
    const char* name;
    const wchar_t* function;
    bool pstIsCalled;
    void (*give)(ProviderAdminDouble& admin, ProfileSectionDouble& section, HRESULT hr);
};

constexpr auto markFunction = L"Quillon::Nst::CNstMessageService::ConfigureMdbProvider";

const ProfileCall profileCalls[] = {
    {"OpenProfileSection", function, false, [](ProviderAdminDouble& admin, ProfileSectionDouble& section, HRESULT hr)
     { ON_CALL(admin, OpenProfileSection).WillByDefault(OpenSection(&section, hr)); }},
    {"SetPropsOfTheCaller", function, false, [](ProviderAdminDouble&, ProfileSectionDouble& section, HRESULT hr)
     { ON_CALL(section, SetProps(2, _, _)).WillByDefault(Return(hr)); }},
    {"SetPropsOfTheMark", markFunction, false, [](ProviderAdminDouble&, ProfileSectionDouble& section, HRESULT hr)
     { ON_CALL(section, SetProps(1, _, _)).WillByDefault(Return(hr)); }},
    {"SaveChangesOfTheMark", markFunction, false, [](ProviderAdminDouble&, ProfileSectionDouble& section, HRESULT hr)
     { ON_CALL(section, SaveChanges).WillByDefault([hr](ULONG) -> HRESULT { return pstCalls.empty() ? hr : S_OK; }); }},
    {"GetProps", function, false,
     [](ProviderAdminDouble&, ProfileSectionDouble& section, HRESULT hr)
     {
         ON_CALL(section, GetProps)
             .WillByDefault(Tests::GiveProps(hr, {Tests::ErrorValue(0x6610001F, MAPI_E_NOT_FOUND),
                                                  Tests::ErrorValue(0x6610001E, MAPI_E_NOT_FOUND),
                                                  Tests::ErrorValue(0x34140102, MAPI_E_NOT_FOUND)}));
     }},
    {"SaveChanges", function, true, [](ProviderAdminDouble&, ProfileSectionDouble& section, HRESULT hr)
     { ON_CALL(section, SaveChanges).WillByDefault([hr](ULONG) -> HRESULT { return pstCalls.empty() ? S_OK : hr; }); }},
};

void PrintTo(const ProfileCall& row, std::ostream* stream)
{
    *stream << row.name;
}

class NstServiceEntryProfile : public NstServiceEntry, public testing::WithParamInterface<ProfileCall>
{
protected:
    void Give(HRESULT hr) { GetParam().give(*admin, *section, hr); }

    SPropValue m_props[2] = {};
};

} // namespace

TEST_P(NstServiceEntryProfile, FailureIsThrownWithTheObjectsExtendedError)
{
    const LogCapture log;
    Give(MAPI_E_NO_ACCESS);
    Tests::GiveExtendedError(*admin, MAPI_E_NO_ACCESS, L"locked", L"profile", 1, 2);
    Tests::GiveExtendedError(*section, MAPI_E_NO_ACCESS, L"locked", L"profile", 1, 2);
    const auto thrown = Thrown(MSG_SERVICE_CREATE, 2, m_props);
    EXPECT_EQ(thrown.first, MAPI_E_NO_ACCESS);
    EXPECT_THAT(thrown.second, testing::HasSubstr(L"[locked; component: profile;"));
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, GetParam().function, thrown.second)));
    EXPECT_EQ(!pstCalls.empty(), GetParam().pstIsCalled);
}

TEST_P(NstServiceEntryProfile, WarningIsLoggedAsAnEventLine)
{
    const LogCapture log;
    Give(MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(Thrown(MSG_SERVICE_CREATE, 2, m_props).first, S_OK);
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Event(nonSuccess, file, GetParam().function,
                                                      L"MAPI_W_ERRORS_RETURNED (0x00040380)")));
    EXPECT_EQ(pstCalls.size(), 1u);
}

TEST_P(NstServiceEntryProfile, FatalFailureEndsTheProcess)
{
    const auto enter = [this]
    {
        Mapi::GetDieOnCorruptStore() = true;
        Give(MAPI_E_CORRUPT_STORE);
        Enter(MSG_SERVICE_CREATE, 2, m_props);
    };
    EXPECT_EXIT(enter(), testing::ExitedWithCode(static_cast<int>(MAPI_E_CORRUPT_STORE)), _);
}

INSTANTIATE_TEST_SUITE_P(Calls, NstServiceEntryProfile, testing::ValuesIn(profileCalls),
                         [](const auto& row) { return std::string(row.param.name); });

// Without a PST module, or with one that lacks the entry: each in a process that has none yet.

TEST_ALONE(NstServiceEntryAlone, ThrowsWhenThereIsNoPstModule)
{
    const Tests::ScratchRegistry registry;
    const Tests::TempFolder folder;
    Tests::CopyDouble(L"MapiDouble.dll", folder / L"olmapi32.dll");
    LoadLibraryW((folder / L"olmapi32.dll").c_str());
    const auto support = Tests::MakeNice<SupportDouble>();
    const auto admin = Tests::MakeNice<ProviderAdminDouble>();
    EXPECT_CALL(*admin, OpenProfileSection).Times(0);
    Host host;
    const LogCapture log;
    std::wstring text;
    try
    {
        host.NstServiceEntry(nullptr, support.Get(), 0, 0, MSG_SERVICE_CREATE, 0, nullptr, admin.Get(), nullptr);
    }
    catch (const CRuntimeError& error)
    {
        text = Text(error.Format());
    }
    // Whatever the last error was after the search, its text is the system's.
    EXPECT_EQ(text, L"Unable to load PST module: " + Text(FormatSystemError(ERROR_FILE_NOT_FOUND, true)));
    EXPECT_THAT(log.Lines().back(), Tests::Throwing(file, function, text));
}

TEST_ALONE(NstServiceEntryAlone, NamesTheErrorOfTheLastPstModuleThatCannotBeLoaded)
{
    const Tests::ScratchRegistry registry;
    const Tests::TempFolder folder;
    Tests::CopyDouble(L"MapiDouble.dll", folder / L"olmapi32.dll");
    Tests::CopyDouble(L"PstDouble.dll", folder / L"mspst32.dll");
    LoadLibraryW((folder / L"olmapi32.dll").c_str());
    // A code that the system has no text for.
    const Tests::ImportHook<HMODULE(LPCWSTR)> hook("LoadLibraryW",
                                                   [](LPCWSTR) -> HMODULE
                                                   {
                                                       SetLastError(0xBEEF);
                                                       return nullptr;
                                                   });
    const auto support = Tests::MakeNice<SupportDouble>();
    const auto admin = Tests::MakeNice<ProviderAdminDouble>();
    Host host;
    const LogCapture log;
    try
    {
        host.NstServiceEntry(nullptr, support.Get(), 0, 0, MSG_SERVICE_CREATE, 0, nullptr, admin.Get(), nullptr);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const CRuntimeError& error)
    {
        EXPECT_EQ(Text(error.Format()), L"Unable to load PST module: Error 48879 (0x0000BEEF)");
    }
}

TEST_ALONE(NstServiceEntryAlone, ThrowsWhenThePstModuleLacksTheEntry)
{
    const Tests::TempFolder folder;
    Tests::CopyDouble(L"MapiDouble.dll", folder / L"mspst32.dll");
    ASSERT_NE(LoadLibraryW((folder / L"mspst32.dll").c_str()), nullptr);
    const auto support = Tests::MakeNice<SupportDouble>();
    const auto admin = Tests::MakeNice<ProviderAdminDouble>();
    EXPECT_CALL(*admin, OpenProfileSection).Times(0);
    Host host;
    const LogCapture log;
    const std::wstring expected =
        L"Unable to find NSTServiceEntry in PST module: " + Text(FormatSystemError(ERROR_PROC_NOT_FOUND, true));
    try
    {
        host.NstServiceEntry(nullptr, support.Get(), 0, 0, MSG_SERVICE_CREATE, 0, nullptr, admin.Get(), nullptr);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const CRuntimeError& error)
    {
        EXPECT_EQ(Text(error.Format()), expected);
    }
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, expected)));
}
