// CNstMessageService::NstProviderInit.
#include "nst/NstMsProvider.h"
#include "support/CallWrapping.h"
#include "support/Format.h"
#include "support/com_wrap.h"
#include "tests/common/Alone.h"
#include "tests/common/LogCapture.h"
#include "tests/units/ServiceSetting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Quillon;
using testing::ElementsAre;
using testing::IsEmpty;
using Tests::Host;
using Tests::LogCapture;
using Tests::ProviderDouble;
using Tests::Text;

namespace
{

constexpr auto file = L"NstMessageService.cpp";
constexpr auto function = L"Quillon::Nst::CNstMessageService::NstProviderInit";
constexpr ULONG version = 0x10010;

// What the PST module's function was given, and what it does.
struct PstInit
{
    HINSTANCE instance;
    IMalloc* malloc;
    void* allocateBuffer;
    void* allocateMore;
    void* freeBuffer;
    ULONG flags;
    ULONG mapiVersion;
    ULONG* providerVersion;
    ULONG versionBefore;
};

std::vector<PstInit> pstInits;
HRESULT pstResult = S_OK;
IMSProvider* pstProvider = nullptr;
ULONG pstVersion = 0;

HRESULT __cdecl RecordInit(HINSTANCE instance, IMalloc* malloc, LPALLOCATEBUFFER allocateBuffer,
                           LPALLOCATEMORE allocateMore, LPFREEBUFFER freeBuffer, ULONG flags, ULONG mapiVersion,
                           ULONG* providerVersion, IMSProvider** provider)
{
    pstInits.push_back({instance, malloc, reinterpret_cast<void*>(allocateBuffer),
                        reinterpret_cast<void*>(allocateMore), reinterpret_cast<void*>(freeBuffer), flags, mapiVersion,
                        providerVersion, *providerVersion});
    if (pstVersion)
        *providerVersion = pstVersion;
    if (SUCCEEDED(pstResult) && pstProvider)
    {
        *provider = pstProvider;
        pstProvider->AddRef();
    }
    return pstResult;
}

class NstProviderInit : public testing::Test
{
protected:
    NstProviderInit()
    {
        Tests::ResidentPstFunctions().providerInit = RecordInit;
        pstInits.clear();
        pstResult = S_OK;
        pstProvider = provider.Get();
        pstVersion = 0;
        host.createProvider = [](const ATL::CComQIPtr<IMSProvider>& given)
        { return com_wrap<IMSProvider>(new Nst::CNstMsProvider(given)); };
    }

    ~NstProviderInit() override { EXPECT_EQ(provider->References(), 1u); }

    void Init(ULONG mapiVersion = version)
    {
        host.NstProviderInit(nullptr, nullptr, nullptr, nullptr, 0, mapiVersion, &givenVersion, &given);
    }

    /// The code and the text that an initialisation throws.
    std::pair<HRESULT, std::wstring> Thrown(ULONG mapiVersion = version)
    {
        try
        {
            Init(mapiVersion);
        }
        catch (const CException& exception)
        {
            return {exception.GetHResult(), Text(exception.Format())};
        }
        return {S_OK, L"nothing"};
    }

    Host host;
    Tests::DoublePointer<testing::NiceMock<ProviderDouble>> provider = Tests::MakeNice<ProviderDouble>();
    IMSProvider* given = reinterpret_cast<IMSProvider*>(&host);
    ULONG givenVersion = 7;
};

} // namespace

TEST_F(NstProviderInit, GivesTheHostsProviderOverThePstModules)
{
    const LogCapture log;
    IMSProvider* made = nullptr;
    host.createProvider = [&](const ATL::CComQIPtr<IMSProvider>& pst)
    {
        EXPECT_EQ(pst.p, provider.Get());
        made = new Nst::CNstMsProvider(pst);
        return com_wrap<IMSProvider>(made);
    };
    Init();
    EXPECT_EQ(given, made);
    EXPECT_EQ(givenVersion, version);
    EXPECT_EQ(provider->References(), 2u) << "the wrapper's, besides the test's own";
    EXPECT_EQ(given->Release(), 0u) << "the one reference is the caller's";
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(NstProviderInit, PassesEveryArgumentThrough)
{
    const LogCapture log;
    auto* const malloc = reinterpret_cast<IMalloc*>(1);
    auto* const allocateBuffer = reinterpret_cast<LPALLOCATEBUFFER>(2);
    auto* const allocateMore = reinterpret_cast<LPALLOCATEMORE>(3);
    auto* const freeBuffer = reinterpret_cast<LPFREEBUFFER>(4);
    host.NstProviderInit(malloc, allocateBuffer, allocateMore, freeBuffer, 0x80000005, 0x20000, &givenVersion, &given);
    given->Release();
    ASSERT_EQ(pstInits.size(), 1u);
    const PstInit& init = pstInits[0];
    EXPECT_EQ(init.instance, Tests::ResidentPstModule());
    EXPECT_EQ(init.malloc, malloc);
    EXPECT_EQ(init.allocateBuffer, reinterpret_cast<void*>(allocateBuffer));
    EXPECT_EQ(init.allocateMore, reinterpret_cast<void*>(allocateMore));
    EXPECT_EQ(init.freeBuffer, reinterpret_cast<void*>(freeBuffer));
    EXPECT_EQ(init.flags, 0x80000005u);
    EXPECT_EQ(init.mapiVersion, 0x20000u);
    EXPECT_EQ(init.providerVersion, &givenVersion);
    EXPECT_EQ(init.versionBefore, version);
}

TEST_F(NstProviderInit, LeavesTheVersionToThePstModule)
{
    const LogCapture log;
    pstVersion = 0x10012;
    Init();
    given->Release();
    EXPECT_EQ(givenVersion, 0x10012u);
}

TEST_F(NstProviderInit, RefusesNullOutputsAndWritesNothing)
{
    const LogCapture log;
    IMSProvider* const before = given;
    EXPECT_THROW(host.NstProviderInit(nullptr, nullptr, nullptr, nullptr, 0, version, nullptr, &given), CComError);
    EXPECT_EQ(given, before);
    try
    {
        host.NstProviderInit(nullptr, nullptr, nullptr, nullptr, 0, version, &givenVersion, nullptr);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const CComError& error)
    {
        EXPECT_EQ(error.GetHResult(), MAPI_E_INVALID_PARAMETER);
    }
    EXPECT_EQ(givenVersion, 7u);
    EXPECT_THAT(pstInits, IsEmpty());
    const auto line = Tests::Throwing(file, function, Text(FormatComError(MAPI_E_INVALID_PARAMETER)));
    EXPECT_THAT(log.Lines(), ElementsAre(line, line));
}

TEST_F(NstProviderInit, AcceptsMapiOfItsOwnVersionAndLater)
{
    const LogCapture log;
    for (const ULONG mapiVersion : {0x10010u, 0x10011u, 0xFFFFFFFFu})
    {
        Init(mapiVersion);
        given->Release();
    }
    EXPECT_EQ(pstInits.size(), 3u);
}

TEST_F(NstProviderInit, RefusesEarlierMapiWithoutSeekingThePstModuleButTellsItsVersion)
{
    for (const ULONG mapiVersion : {0x1000Fu, 0u})
    {
        Logging::EnableTraceLogging(true);
        const LogCapture log;
        givenVersion = 7;
        const auto thrown = Thrown(mapiVersion);
        Logging::EnableTraceLogging(false);
        EXPECT_EQ(thrown.first, MAPI_E_VERSION);
        EXPECT_EQ(given, nullptr);
        EXPECT_EQ(givenVersion, version);
        EXPECT_THAT(log.Lines(),
                    ElementsAre(Tests::Entry(LogId::Error, L"MSProviderInit: The version of the subsystem cannot "
                                                           L"handle this version of the provider"),
                                Tests::Throwing(file, function, L"MAPI_E_VERSION (0x80040110)")));
    }
    EXPECT_THAT(pstInits, IsEmpty());
}

TEST_F(NstProviderInit, ThrowsThePstModulesFailure)
{
    const LogCapture log;
    pstResult = MAPI_E_UNCONFIGURED;
    const auto thrown = Thrown();
    EXPECT_EQ(thrown.first, MAPI_E_UNCONFIGURED);
    EXPECT_EQ(given, nullptr);
    EXPECT_EQ(givenVersion, version);
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, thrown.second)));
}

TEST_F(NstProviderInit, LogsThePstModulesWarningAndStillGivesTheWrapper)
{
    const LogCapture log;
    pstResult = MAPI_W_ERRORS_RETURNED;
    Init();
    ASSERT_NE(given, nullptr);
    given->Release();
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Event(L"Non-success condition during COM call", file, function,
                                                      L"MAPI_W_ERRORS_RETURNED (0x00040380)")));
}

TEST_F(NstProviderInit, ReleasesThePstProviderWhenTheHostThrows)
{
    const LogCapture log;
    host.createProvider = [](const ATL::CComQIPtr<IMSProvider>&) -> ATL::CComQIPtr<IMSProvider>
    { throw CRuntimeError(L"the host's own"); };
    EXPECT_EQ(Thrown().second, L"the host's own");
    EXPECT_EQ(given, nullptr);
    EXPECT_EQ(provider->References(), 1u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(NstProviderInit, ThrowsWhenThereIsNoProviderOrTheHostMakesNone)
{
    const LogCapture log;
    host.createProvider = [](const ATL::CComQIPtr<IMSProvider>&) { return ATL::CComQIPtr<IMSProvider>(); };
    EXPECT_EQ(Thrown().first, E_POINTER);
    EXPECT_EQ(given, nullptr);
    pstProvider = nullptr;
    EXPECT_EQ(Thrown().first, E_POINTER);
    EXPECT_EQ(given, nullptr);
    EXPECT_EQ(log.Lines().size(), 2u);
}

TEST_ALONE(NstProviderInitAlone, ThrowsWhenThereIsNoPstModule)
{
    const Tests::ScratchRegistry registry;
    const Tests::TempFolder folder;
    Tests::CopyDouble(L"MapiDouble.dll", folder / L"olmapi32.dll");
    LoadLibraryW((folder / L"olmapi32.dll").c_str());
    Host host;
    ULONG givenVersion = 0;
    IMSProvider* given = reinterpret_cast<IMSProvider*>(&host);
    const LogCapture log;
    try
    {
        host.NstProviderInit(nullptr, nullptr, nullptr, nullptr, 0, version, &givenVersion, &given);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const CRuntimeError& error)
    {
        EXPECT_EQ(Text(error.Format()), L"Unable to load mspst32.dll");
    }
    EXPECT_EQ(given, nullptr);
    EXPECT_EQ(givenVersion, version);
    EXPECT_THAT(log.Lines().back(), Tests::Throwing(file, function, L"Unable to load mspst32.dll"));
}

TEST_ALONE(NstProviderInitAlone, ThrowsTheSystemsTextWhenThePstModuleLacksTheExport)
{
    const Tests::TempFolder folder;
    Tests::CopyDouble(L"MapiDouble.dll", folder / L"mspst32.dll");
    ASSERT_NE(LoadLibraryW((folder / L"mspst32.dll").c_str()), nullptr);
    Host host;
    ULONG givenVersion = 0;
    IMSProvider* given = nullptr;
    const LogCapture log;
    const std::wstring expected =
        L"Unable to find MSProviderInit in PST module: " + Text(FormatSystemError(ERROR_PROC_NOT_FOUND, true));
    try
    {
        host.NstProviderInit(nullptr, nullptr, nullptr, nullptr, 0, version, &givenVersion, &given);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const CRuntimeError& error)
    {
        EXPECT_EQ(Text(error.Format()), expected);
    }
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, expected)));
}
