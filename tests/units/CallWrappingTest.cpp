// How calls are checked, failures logged and exceptions turned into result codes.
#include "support/CallWrapping.h"

#include "support/Die.h"
#include "support/Format.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"
#include "tests/common/MapiModule.h"
#include "tests/common/Setting.h"
#include "tests/common/StoreDoubles.h"
#include "tests/common/SupportDoubles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using namespace Quillon;
using testing::_;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Return;
using Tests::Entry;
using Tests::LogCapture;
using Tests::StoreDouble;
using Tests::Text;

namespace
{

constexpr auto function = L"Tests::Function";
constexpr auto thisFile = L"CallWrappingTest.cpp";
constexpr auto throwing = L"Throwing exception";
constexpr auto nonSuccess = L"Non-success condition during COM call";

constexpr HRESULT failures[] = {
    MAPI_E_CALL_FAILED,   MAPI_E_NOT_FOUND, MAPI_E_NO_ACCESS,         MAPI_E_CORRUPT_STORE,
    MAPI_E_NETWORK_ERROR, MAPI_E_TOO_BIG,   MAPI_E_NOT_ENOUGH_MEMORY, static_cast<HRESULT>(0xFFFFFFFF)};
constexpr HRESULT warnings[] = {S_FALSE, MAPI_W_ERRORS_RETURNED, MAPI_W_PARTIAL_COMPLETION, 0x7FFFFFFF};

/// What a failing MAPI call throws.
std::wstring ThrownText(auto&& action)
{
    try
    {
        action();
        return L"nothing";
    }
    catch (const Mapi::CMapiError& error)
    {
        return L"CMapiError " + Text(error.Format());
    }
    catch (const CComError& error)
    {
        return L"CComError " + Text(error.Format());
    }
}

std::wstring MapiText(HRESULT hr, const wchar_t* context = L"")
{
    return Text(Mapi::FormatMapiError(hr, context, nullptr));
}

constexpr auto extended = L" [disk full; component: PST; low-level error: 0x00000070; context: 5]";

auto StoreWithExtendedErrors()
{
    auto store = Tests::MakeNice<StoreDouble>();
    ON_CALL(*store, GetLastError(_, static_cast<ULONG>(MAPI_UNICODE), _))
        .WillByDefault(
            [](HRESULT, ULONG, MAPIERROR** error) -> HRESULT
            {
                *error = Tests::AllocateMapiError(L"disk full", L"PST", 0x70, 5);
                return S_OK;
            });
    return store;
}

} // namespace

TEST(CheckCall, SaysNothingOfSuccess)
{
    const LogCapture log;
    CheckCall(S_OK, function);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(CheckCall, ThrowsFailuresAfterOneEventLineThatNamesTheStatement)
{
    for (const HRESULT hr : failures)
    {
        const LogCapture log;
        const std::wstring text = Text(FormatComError(hr));
        const int line = __LINE__ + 1;
        EXPECT_EQ(ThrownText([&] { CheckCall(hr, function); }), L"CComError " + text);
        EXPECT_THAT(log.Lines(), ElementsAre(Tests::EventAtLine(throwing, thisFile, function, line, text)));
    }
}

TEST(CheckCall, LogsWarningsAtLevelOneAndGoesOn)
{
    for (const HRESULT hr : warnings)
    {
        const LogCapture log;
        CheckCall(hr, function);
        const int line = __LINE__ - 1;
        const std::wstring text = Text(FormatSystemError(static_cast<unsigned>(hr), true));
        EXPECT_THAT(log.Lines(), ElementsAre(Tests::EventAtLine(nonSuccess, thisFile, function, line, text)));
    }
}

TEST(EventLine, HasItsFixedForm)
{
    LogCapture log;
    const int line = __LINE__ + 1;
    EXPECT_THROW(Throw(CRuntimeError(L"100%s"), L"Name::With %d"), CRuntimeError);
    const std::wstring expected =
        L"Throwing exception at CallWrappingTest.cpp, Name::With %d, line " + std::to_wstring(line) + L": 100%s";
    EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Exception, expected)));
}

TEST(CheckMapiCall, SaysNothingOfSuccessAndAsksForNoExtendedError)
{
    const LogCapture log;
    const auto store = Tests::MakeStrict<StoreDouble>();
    EXPECT_CALL(*store, GetLastError).Times(0);
    CheckMapiCall(S_OK, store.Get(), function);
    CheckMapiCall<MAPI_W_ERRORS_RETURNED>(MAPI_W_ERRORS_RETURNED, store.Get(), function);
    CheckProfileCall(S_OK, store.Get(), function);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(CheckMapiCall, ThrowsFailuresWithTheExtendedErrorOfTheObject)
{
    for (const HRESULT hr : failures)
    {
        const LogCapture log;
        const auto store = StoreWithExtendedErrors();
        EXPECT_CALL(*store, GetLastError(hr, static_cast<ULONG>(MAPI_UNICODE), _)).Times(1);
        const std::wstring text = MapiText(hr) + extended;
        const int line = __LINE__ + 1;
        EXPECT_EQ(ThrownText([&] { CheckMapiCall(hr, store.Get(), function); }), L"CMapiError " + text);
        EXPECT_THAT(log.Lines(), ElementsAre(Tests::EventAtLine(throwing, thisFile, function, line, text)));
    }
}

TEST(CheckMapiCall, ThrowsFailuresWithoutAnExtendedErrorWhenThereIsNone)
{
    const LogCapture log;
    const auto store = Tests::MakeNice<StoreDouble>();
    // An object may say yes and give nothing.
    ON_CALL(*store, GetLastError).WillByDefault(Return(S_OK));
    EXPECT_EQ(ThrownText([&] { CheckMapiCall(MAPI_E_NOT_FOUND, store.Get(), function); }),
              L"CMapiError MAPI_E_NOT_FOUND (0x8004010F)");
}

TEST(CheckMapiCall, TakesNothingFromAGetLastErrorThatFails)
{
    const LogCapture log;
    static MAPIERROR leftOver = {};
    const auto store = Tests::MakeNice<StoreDouble>();
    ON_CALL(*store, GetLastError)
        .WillByDefault(
            [](HRESULT, ULONG, MAPIERROR** error) -> HRESULT
            {
                // To free this would end the process, for it is no MAPI memory.
                *error = &leftOver;
                return MAPI_E_CALL_FAILED;
            });
    EXPECT_EQ(ThrownText([&] { CheckMapiCall(MAPI_E_NOT_FOUND, store.Get(), function); }),
              L"CMapiError MAPI_E_NOT_FOUND (0x8004010F)");
    CheckMapiCall(MAPI_W_ERRORS_RETURNED, store.Get(), function);
    EXPECT_EQ(CheckPassThrough(MAPI_E_NOT_FOUND, store.Get(), L"I::M", S_OK), MAPI_E_NOT_FOUND);
}

TEST(CheckMapiCall, LogsWarningsWithTheExtendedErrorAtLevelOneAndGoesOn)
{
    for (const HRESULT hr : warnings)
    {
        const LogCapture log;
        const auto store = StoreWithExtendedErrors();
        EXPECT_CALL(*store, GetLastError(hr, static_cast<ULONG>(MAPI_UNICODE), _)).Times(1);
        CheckMapiCall(hr, store.Get(), function);
        EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Warning, MapiText(hr) + extended)));
    }
}

TEST(CheckProfileCall, ThrowsAsAMapiCallAndLogsWarningsAsEventLines)
{
    LogCapture log;
    const auto store = StoreWithExtendedErrors();
    const int line = __LINE__ + 1;
    const auto fail = [&] { CheckProfileCall(MAPI_E_NO_ACCESS, store.Get(), function); };
    EXPECT_EQ(ThrownText(fail), L"CMapiError " + MapiText(MAPI_E_NO_ACCESS) + extended);
    EXPECT_THAT(log.Take(), ElementsAre(Tests::EventAtLine(throwing, thisFile, function, line,
                                                           MapiText(MAPI_E_NO_ACCESS) + extended)));
    for (const HRESULT hr : warnings)
    {
        CheckProfileCall(hr, store.Get(), function);
        const int warningLine = __LINE__ - 1;
        EXPECT_THAT(log.Take(),
                    ElementsAre(Tests::EventAtLine(nonSuccess, thisFile, function, warningLine,
                                                   Text(FormatSystemError(static_cast<unsigned>(hr), true)))));
    }
}

TEST(CheckPassThrough, LogsNothingForSuccessAndForTheToleratedCode)
{
    const LogCapture log;
    const auto store = Tests::MakeStrict<StoreDouble>();
    EXPECT_CALL(*store, GetLastError).Times(0);
    EXPECT_EQ(CheckPassThrough(S_OK, store.Get(), L"I::M", S_OK), S_OK);
    EXPECT_EQ(CheckPassThrough(S_OK, store.Get(), L"I::M", MAPI_E_NOT_FOUND), S_OK);
    EXPECT_EQ(CheckPassThrough(MAPI_E_NOT_INITIALIZED, store.Get(), L"I::M", MAPI_E_NOT_INITIALIZED),
              MAPI_E_NOT_INITIALIZED);
    EXPECT_EQ(CheckPassThrough(MAPI_W_ERRORS_RETURNED, store.Get(), L"I::M", MAPI_W_ERRORS_RETURNED),
              MAPI_W_ERRORS_RETURNED);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(CheckPassThrough, LogsFailuresAtLevelZeroAndReturnsThem)
{
    for (const HRESULT hr : failures)
    {
        const LogCapture log;
        const auto store = StoreWithExtendedErrors();
        EXPECT_CALL(*store, GetLastError(hr, static_cast<ULONG>(MAPI_UNICODE), _)).Times(1);
        EXPECT_EQ(CheckPassThrough(hr, store.Get(), L"IMsgStore::Advise", MAPI_E_NO_SUPPORT), hr);
        EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Error, MapiText(hr, L"IMsgStore::Advise") + extended)));
    }
}

TEST(CheckPassThrough, LogsTheWarningErrorsReturnedAtLevelOneAndReturnsItUnchanged)
{
    LogCapture log;
    const auto store = Tests::MakeNice<StoreDouble>();
    EXPECT_EQ(CheckPassThrough(0x00040380, store.Get(), L"IMsgStore::GetProps", S_OK), 0x00040380);
    EXPECT_THAT(log.Take(),
                ElementsAre(Entry(LogId::Warning, L"IMsgStore::GetProps: MAPI_W_ERRORS_RETURNED (0x00040380)")));
    for (const HRESULT hr : warnings)
    {
        EXPECT_EQ(CheckPassThrough(hr, store.Get(), L"I::M", MAPI_E_NO_SUPPORT), hr);
        EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Warning, MapiText(hr, L"I::M"))));
    }
}

TEST(CheckComResult, LogsByTheSignOfTheResultAndReturnsIt)
{
    LogCapture log;
    EXPECT_EQ(CheckComResult(S_OK, L"I::M", S_OK), S_OK);
    EXPECT_EQ(CheckComResult(E_NOINTERFACE, L"I::QueryInterface", E_NOINTERFACE), E_NOINTERFACE);
    EXPECT_THAT(log.Take(), IsEmpty());
    for (const HRESULT hr : failures)
    {
        EXPECT_EQ(CheckComResult(hr, L"I::QueryInterface", E_NOINTERFACE), hr);
        EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Error, L"I::QueryInterface: " + Text(FormatComError(hr)))));
    }
    for (const HRESULT hr : warnings)
    {
        EXPECT_EQ(CheckComResult(hr, L"I::QueryInterface", E_NOINTERFACE), hr);
        EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Warning, L"I::QueryInterface: " + Text(FormatComError(hr)))));
    }
}

TEST(PassThrough, ForwardsTheCallHoldingAReferenceAndNamesTheMethod)
{
    LogCapture log;
    const auto store = Tests::MakeNice<StoreDouble>();
    const ATL::CComQIPtr<IMsgStore> pointer(store.Get());
    const ULONG before = store->References();
    EXPECT_CALL(*store, Unadvise(42))
        .WillOnce(
            [&](ULONG) -> HRESULT
            {
                EXPECT_EQ(store->References(), before + 1);
                return MAPI_E_NOT_FOUND;
            })
        .WillOnce(Return(MAPI_E_NOT_FOUND))
        .WillOnce(Return(S_OK));
    EXPECT_EQ(PASS_THROUGH(pointer, IMsgStore::Unadvise, S_OK, 42), MAPI_E_NOT_FOUND);
    EXPECT_EQ(store->References(), before);
    EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Error, L"IMsgStore::Unadvise: MAPI_E_NOT_FOUND (0x8004010F)")));
    EXPECT_EQ(PASS_THROUGH(pointer, IMsgStore::Unadvise, MAPI_E_NOT_FOUND, 42), MAPI_E_NOT_FOUND);
    EXPECT_EQ(PASS_THROUGH(pointer, IMsgStore::Unadvise, S_OK, 42), S_OK);
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST(PassThrough, AsksForTheExtendedErrorBeforeItGivesItsReferenceBack)
{
    const LogCapture log;
    auto store = Tests::MakeNice<StoreDouble>();
    ATL::CComQIPtr<IMsgStore> pointer(store.Get());
    StoreDouble& object = *store;
    store.Release();
    // The caller's last reference goes during the call, as when the wrapper is released meanwhile.
    EXPECT_CALL(object, SaveChanges(0))
        .WillOnce(
            [&](ULONG) -> HRESULT
            {
                pointer.Release();
                return MAPI_E_NO_ACCESS;
            });
    EXPECT_CALL(object, GetLastError(MAPI_E_NO_ACCESS, _, _))
        .WillOnce(
            [&](HRESULT, ULONG, MAPIERROR**) -> HRESULT
            {
                EXPECT_EQ(object.References(), 1u);
                return MAPI_E_NO_SUPPORT;
            });
    EXPECT_EQ(PASS_THROUGH(pointer, IMAPIProp::SaveChanges, S_OK, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(object.References(), 0u);
}

TEST(PassThrough, RefusesANullObjectWithOneLine)
{
    LogCapture log;
    const ATL::CComQIPtr<IMsgStore> null;
    EXPECT_EQ(PASS_THROUGH(null, IMsgStore::Unadvise, S_OK, 1), E_POINTER);
    EXPECT_EQ(PASS_THROUGH_COM(null, IMsgStore::StoreLogoff, S_OK, nullptr), E_POINTER);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Entry(LogId::Error, L"IMsgStore::Unadvise: " + Text(FormatComError(E_POINTER))),
                            Entry(LogId::Error, L"IMsgStore::StoreLogoff: " + Text(FormatComError(E_POINTER)))));
}

TEST(PassThroughCom, AsksForNoExtendedError)
{
    LogCapture log;
    const auto store = Tests::MakeStrict<StoreDouble>();
    const ATL::CComQIPtr<IMsgStore> pointer(store.Get());
    EXPECT_CALL(*store, GetLastError).Times(0);
    EXPECT_CALL(*store, QueryInterface(_, _)).WillOnce(Return(E_NOINTERFACE)).WillOnce(Return(E_FAIL));
    void* object = nullptr;
    EXPECT_EQ(PASS_THROUGH_COM(pointer, IMsgStore::QueryInterface, E_NOINTERFACE, IID_IMAPIProp, &object),
              E_NOINTERFACE);
    EXPECT_THAT(log.Take(), IsEmpty());
    EXPECT_EQ(PASS_THROUGH_COM(pointer, IMsgStore::QueryInterface, E_NOINTERFACE, IID_IMAPIProp, &object), E_FAIL);
    EXPECT_THAT(log.Take(),
                ElementsAre(Entry(LogId::Error, L"IMsgStore::QueryInterface: " + Text(FormatComError(E_FAIL)))));
}

TEST(CaughtException, LogsTheEventLineAndGivesTheExceptionsResult)
{
    LogCapture log;
    const CComError comError(MAPI_E_NO_SUPPORT);
    const CWinError winError(ERROR_FILE_NOT_FOUND, L"file");
    const CRuntimeError runtimeError(L"100%s");
    for (const CException* const exception :
         {static_cast<const CException*>(&comError), static_cast<const CException*>(&winError),
          static_cast<const CException*>(&runtimeError)})
    {
        EXPECT_EQ(CaughtException(*exception, function), exception->GetHResult());
        const int line = __LINE__ - 1;
        EXPECT_THAT(log.Take(), ElementsAre(Tests::EventAtLine(L"Caught exception", thisFile, function, line,
                                                               Text(exception->Format()))));
    }
}

TEST(CaughtException, LeavesTheLastErrorAsItWas)
{
    const LogCapture log;
    // The system has no text for it, which it tells by the last error.
    const CWinError noText(0xBEEF);
    SetLastError(4711);
    CaughtException(noText, function);
    EXPECT_EQ(GetLastError(), 4711u);
    {
        const CWinError freed(5, L"a context in the library's memory");
        SetLastError(4711);
    }
    EXPECT_EQ(GetLastError(), 4711u);
}

TEST(CallWrapping, ReportsWithoutMemoryToo)
{
    const LogCapture log;
    const auto store = Tests::MakeNice<StoreDouble>();
    const CRuntimeError caught(L"text");
    {
        const Tests::NoMemory noMemory;
        EXPECT_THROW(CheckCall(MAPI_E_NOT_FOUND, function), CComError);
        EXPECT_EQ(CheckPassThrough(MAPI_E_NOT_FOUND, store.Get(), L"IMsgStore::Advise", S_OK), MAPI_E_NOT_FOUND);
        EXPECT_EQ(CaughtException(caught, function), E_FAIL);
        CheckCall(S_FALSE, function);
        CheckMapiCall(MAPI_W_ERRORS_RETURNED, store.Get(), L"Tests::WithoutAName");
    }
    // Each leaves at least what can be said without memory.
    EXPECT_THAT(log.Lines(),
                testing::IsSupersetOf({Entry(LogId::Exception, throwing), Entry(LogId::Error, L"IMsgStore::Advise"),
                                       Entry(LogId::Exception, L"Caught exception"), Entry(LogId::Warning, nonSuccess),
                                       Entry(LogId::Warning, nonSuccess)}));
}

TEST(CallWrapping, ReportsWithoutItsTextWhatCannotBeFormatted)
{
    LogCapture log;
    const auto store = Tests::MakeNice<StoreDouble>();
    const CRuntimeError caught(L"text");
    {
        const Tests::ImportHook<Tests::CountFormatted> hook(Tests::countFormattedName, [](auto...) { return -1; });
        SetLastError(ERROR_FILE_NOT_FOUND);
        EXPECT_THROW(CheckCall(MAPI_E_NOT_FOUND, function), CComError);
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
        EXPECT_EQ(CheckPassThrough(MAPI_E_NOT_FOUND, store.Get(), L"IMsgStore::Advise", S_OK), MAPI_E_NOT_FOUND);
        EXPECT_EQ(CaughtException(caught, function), E_FAIL);
    }
    // The two that catch tell of the exception, too, that was thrown while they made their text.
    EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Exception, throwing), Entry(LogId::Exception, throwing),
                                        Entry(LogId::Error, L"IMsgStore::Advise"), Entry(LogId::Exception, throwing),
                                        Entry(LogId::Exception, L"Caught exception")));
    // What is thrown afterwards is told in full again.
    EXPECT_THROW(CheckCall(MAPI_E_NOT_FOUND, function), CComError);
    EXPECT_THAT(log.Take(), ElementsAre(Tests::Throwing(thisFile, function, L"MAPI_E_NOT_FOUND (0x8004010F)")));
}

TEST(AnswerWithSelf, AnswersForItsOwnInterfacesOnly)
{
    const auto store = Tests::MakeNice<StoreDouble>();
    StoreDouble* const self = store.Get();
    void* object = nullptr;
    EXPECT_EQ(AnswerWithSelf(self, IID_IMAPIProp, &object, IID_IUnknown, IID_IMAPIProp), S_OK);
    EXPECT_EQ(object, self);
    EXPECT_EQ(store->References(), 2u);
    store->Release();
    EXPECT_EQ(AnswerWithSelf(self, IID_IMessage, &object, IID_IUnknown, IID_IMAPIProp), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(AnswerWithSelf(self, IID_IMAPIProp, nullptr, IID_IMAPIProp), E_POINTER);
    EXPECT_EQ(store->References(), 1u);
}

TEST(AnswerElsePassOn, AsksTheWrappedObjectForAnyOtherInterface)
{
    LogCapture log;
    const auto wrapper = Tests::MakeNice<StoreDouble>();
    const auto wrapped = Tests::MakeStrict<StoreDouble>();
    constexpr auto callName = L"IMsgStore::QueryInterface";
    const auto ask = [&](REFIID iid, void** object)
    {
        return AnswerElsePassOn(wrapper.Get(), static_cast<IMsgStore*>(wrapped.Get()), callName, iid, object,
                                IID_IMsgStore, IID_IUnknown);
    };
    void* object = nullptr;
    for (const IID& own : {IID_IMsgStore, IID_IUnknown})
    {
        EXPECT_EQ(ask(own, &object), S_OK);
        EXPECT_EQ(object, wrapper.Get());
        wrapper->Release();
        EXPECT_EQ(ask(own, nullptr), E_POINTER);
    }
    EXPECT_CALL(*wrapped, QueryInterface(IID_IMAPIProp, &object))
        .WillOnce(Return(S_OK))
        .WillOnce(Return(E_NOINTERFACE))
        .WillOnce(Return(E_FAIL));
    EXPECT_EQ(ask(IID_IMAPIProp, &object), S_OK);
    EXPECT_EQ(ask(IID_IMAPIProp, &object), E_NOINTERFACE);
    EXPECT_THAT(log.Take(), IsEmpty());
    EXPECT_EQ(ask(IID_IMAPIProp, &object), E_FAIL);
    EXPECT_THAT(log.Take(),
                ElementsAre(Entry(LogId::Error, std::wstring(callName) + L": " + Text(FormatComError(E_FAIL)))));
    IMsgStore* const nothing = nullptr;
    EXPECT_EQ(AnswerElsePassOn(wrapper.Get(), nothing, callName, IID_IMAPIProp, &object, IID_IUnknown), E_POINTER);
    EXPECT_THAT(log.Take(),
                ElementsAre(Entry(LogId::Error, std::wstring(callName) + L": " + Text(FormatComError(E_POINTER)))));
}

// The codes that may end the process, and the switches that make them do it.

namespace
{

struct DieCase
{
    const char* name;
    HRESULT hr;
    bool& (*setting)() noexcept;
};

void PrintTo(const DieCase& row, std::ostream* stream)
{
    *stream << row.name;
}

class DieOn : public testing::TestWithParam<DieCase>
{
};

/// Calls the shape with all that a death test's child shows on its standard error.
void CallWithSwitchOn(const DieCase& row)
{
    Tests::LogToStandardError();
    SetDieHandler([](void*, unsigned code) { std::fprintf(stderr, "handler: %08X\n", code); }, nullptr);
    row.setting() = true;
    const auto store = StoreWithExtendedErrors();
    CheckMapiCall(row.hr, store.Get(), L"Tests::Dying");
}

const DieCase dieCases[] = {
    {"NetworkError", static_cast<HRESULT>(0x80040115), Mapi::GetDieOnNetworkErrors},
    {"TooBig", static_cast<HRESULT>(0x80040305), Mapi::GetDieOnOutOfMemoryErrors},
    {"NotEnoughMemory", static_cast<HRESULT>(0x8007000E), Mapi::GetDieOnOutOfMemoryErrors},
    {"CorruptStore", static_cast<HRESULT>(0x80040600), Mapi::GetDieOnCorruptStore},
};

} // namespace

TEST_P(DieOn, EndsTheProcessWithTheCodeAfterTwoLinesAndTheHandler)
{
    const DieCase& row = GetParam();
    char handler[64] = {};
    std::snprintf(handler, sizeof(handler), "handler: %08X", static_cast<unsigned>(row.hr));
    const std::string text = Tests::Narrow(MapiText(row.hr) + extended);
    const std::string reason = Tests::Narrow(Text(FormatSystemError(static_cast<unsigned>(row.hr), true)));
    EXPECT_EXIT(CallWithSwitchOn(row), testing::ExitedWithCode(row.hr),
                testing::AllOf(HasSubstr("error: " + text),
                               HasSubstr("error: Exiting process at CallWrappingTest.cpp, Tests::Dying, line "),
                               HasSubstr(": " + reason), HasSubstr(handler),
                               testing::Not(HasSubstr("Throwing exception"))));
}

TEST_P(DieOn, DiesInAProfileCallAsWell)
{
    const DieCase& row = GetParam();
    const auto call = [&]
    {
        row.setting() = true;
        const auto store = Tests::MakeNice<StoreDouble>();
        CheckProfileCall(row.hr, store.Get(), L"Tests::Dying");
    };
    EXPECT_EXIT(call(), testing::ExitedWithCode(row.hr), testing::_);
}

TEST_P(DieOn, OnlyThrowsWhileTheSwitchIsOff)
{
    const DieCase& row = GetParam();
    const LogCapture log;
    // All the others are on.
    for (const DieCase& other : dieCases)
        other.setting() = other.setting != row.setting;
    const auto store = Tests::MakeNice<StoreDouble>();
    HRESULT result = S_OK;
    try
    {
        CheckMapiCall(row.hr, store.Get(), function);
    }
    catch (const CException& exception)
    {
        result = CaughtException(exception, function);
    }
    for (const DieCase& other : dieCases)
        other.setting() = false;
    EXPECT_EQ(result, row.hr);
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(thisFile, function, MapiText(row.hr)),
                                         Tests::Caught(thisFile, function, MapiText(row.hr))));
}

TEST_P(DieOn, IsNotConsultedByAPassThroughOrAComCall)
{
    const DieCase& row = GetParam();
    const LogCapture log;
    row.setting() = true;
    const auto store = Tests::MakeNice<StoreDouble>();
    EXPECT_EQ(CheckPassThrough(row.hr, store.Get(), L"I::M", S_OK), row.hr);
    EXPECT_EQ(CheckComResult(row.hr, L"I::M", S_OK), row.hr);
    EXPECT_THROW(CheckCall(row.hr, function), CComError);
    row.setting() = false;
}

INSTANTIATE_TEST_SUITE_P(Codes, DieOn, testing::ValuesIn(dieCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(DieOnSwitches, AreOffAndBelongToTheirCodesAlone)
{
    EXPECT_FALSE(Mapi::GetDieOnNetworkErrors());
    EXPECT_FALSE(Mapi::GetDieOnOutOfMemoryErrors());
    EXPECT_FALSE(Mapi::GetDieOnCorruptStore());
    EXPECT_NE(&Mapi::GetDieOnNetworkErrors(), &Mapi::GetDieOnCorruptStore());

    const LogCapture log;
    for (const DieCase& row : dieCases)
        row.setting() = true;
    const auto store = Tests::MakeNice<StoreDouble>();
    for (const HRESULT hr : {MAPI_E_CALL_FAILED, MAPI_E_NOT_FOUND, MAPI_E_DISK_ERROR, MAPI_E_CORRUPT_DATA,
                             MAPI_E_NOT_ENOUGH_RESOURCES, MAPI_E_NOT_ENOUGH_DISK})
        EXPECT_THROW(CheckMapiCall(hr, store.Get(), function), Mapi::CMapiError);
    for (const DieCase& row : dieCases)
        row.setting() = false;
}
