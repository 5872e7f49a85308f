// Every operation, with every call failing in every way, and every allocation.
#include "support/MapiProperties.h"
#include "tests/common/MapiModule.h"
#include "tests/faults/Operation.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <ostream>

using namespace Quillon;
using Tests::Effect;
using Tests::Expected;
using Tests::Fault;
using Tests::Faults;
using Tests::LogLine;
using Tests::Operation;
using Tests::Rule;
using Tests::Shape;

namespace Tests
{

void PrintTo(const Operation& operation, std::ostream* stream)
{
    *stream << operation.name;
}

const std::vector<Operation>& Operations()
{
    static const std::vector<Operation> operations = []
    {
        std::vector<Operation> all;
        for (auto& list : {StoreOperations(), ProviderOperations(), ServiceOperations(), SystemOperations()})
            all.insert(all.end(), list.begin(), list.end());
        return all;
    }();
    return operations;
}

std::wstring MapiText(HRESULT hr, const std::wstring& context)
{
    const MAPIERROR error = Recorder::ExtendedError();
    const bool gives = Faults::Get().Planned().givesErrors;
    return Mapi::FormatMapiError(hr, context.c_str(), gives ? &error : nullptr).GetString();
}

std::wstring ComText(HRESULT hr)
{
    return FormatComError(hr).GetString();
}

std::wstring TagText(ULONG tag)
{
    return Mapi::FormatMapiPropertyTag(tag).GetString();
}

void GivesNull(Expected& expected)
{
    expected.Throw({L"com_wrap.cpp", L"Quillon::com_wrap"}, E_POINTER, ComText(E_POINTER));
}

void Succeed(Expected&) {}

void Append(std::vector<Rule>& rules, const std::vector<Rule>& more)
{
    rules.insert(rules.end(), more.begin(), more.end());
}

std::function<void(Expected&)> Missing(ULONG tag)
{
    return [tag](Expected& expected)
    {
        expected.Throw({L"MapiProperties.cpp", L"Quillon::Mapi::QueryItemProperty"}, MAPI_E_NOT_FOUND,
                       MapiText(MAPI_E_NOT_FOUND, TagText(tag)));
    };
}

} // namespace Tests

namespace
{

constexpr HRESULT failures[] = {
    MAPI_E_NETWORK_ERROR, MAPI_E_TOO_BIG,   MAPI_E_NOT_ENOUGH_MEMORY, MAPI_E_CORRUPT_STORE,
    MAPI_E_CALL_FAILED,   MAPI_E_NOT_FOUND, MAPI_E_CORRUPT_DATA,      static_cast<HRESULT>(0x8004FFFF),
};
constexpr HRESULT warnings[] = {0x0004FFFF, MAPI_W_ERRORS_RETURNED};
constexpr long systemErrors[] = {
    ERROR_FILE_NOT_FOUND,
    ERROR_ACCESS_DENIED,
    ERROR_NOT_ENOUGH_MEMORY,
    ERROR_INVALID_DATA,
    ERROR_DISK_FULL,
    ERROR_USER_MAPPED_FILE,
    0xDEAD,
};
constexpr Effect exceptions[] = {Effect::ThrowComError, Effect::ThrowRuntimeError, Effect::ThrowWinError,
                                 Effect::ThrowForeignError};

constexpr auto outOfMemoryLine = L"Throwing exception at Memory.cpp, Quillon::AllocateObject, line ";

/// Faults that came to pass, by operation.
std::map<std::string, std::size_t> g_injected;

class Report : public testing::Environment
{
public:
    void TearDown() override
    {
        std::size_t total = 0;
        // A few of the tests alone may be just those in which an operation has nothing to fail.
        const bool isWhole = testing::GTEST_FLAG(filter) == "*";
        for (const auto& [name, count] : g_injected)
        {
            std::printf("faults injected into %s: %zu\n", name.c_str(), count);
            EXPECT_TRUE(count > 0 || !isWhole) << name;
            total += count;
        }
        std::printf("faults injected: %zu\n", total);
    }
};

const auto* const report = testing::AddGlobalTestEnvironment(new Report);

/// What one run came to.
struct Outcome
{
    HRESULT result = S_OK;
    bool endedForeign = false;
    bool happened = false;
    std::vector<LogLine> lines;
    std::vector<std::string> calls;
    std::size_t allocations = 0;
    std::size_t mapiAllocations = 0;
};

Outcome Execute(const Operation& operation, const Fault& fault)
{
    Faults& faults = Faults::Get();
    const Tests::MapiModule& mapi = Tests::MapiModule::Get();
    faults.Plan(fault);
    const std::size_t heapBlocks = faults.LiveHeapBlocks();
    const ULONG mapiBlocks = mapi.LiveBlocks();
    Outcome outcome;
    {
        Tests::Surroundings surroundings;
        Tests::LogCapture log;
        outcome.result = operation.run(surroundings);
        outcome.endedForeign = surroundings.endedForeign;
        outcome.lines = log.Take();
        surroundings.ExpectNoReferences();
    }
    outcome.happened = faults.Happened();
    outcome.calls = faults.Calls();
    outcome.allocations = faults.Allocations();
    outcome.mapiAllocations = faults.MapiAllocations();
    if (operation.tellsActions)
        std::erase_if(outcome.lines, [](const LogLine& line) { return line.level == LogId::Action; });
    EXPECT_EQ(faults.LiveHeapBlocks(), heapBlocks) << "blocks of the library's heap";
    EXPECT_EQ(mapi.LiveBlocks(), mapiBlocks) << "MAPI blocks";
    g_injected[operation.name] += outcome.happened ? 1 : 0;
    return outcome;
}

/// What the fault in a call of this rule has to come to. The fault is the planned one.
Expected Predict(const Operation& operation, const Rule& rule, const Fault& fault)
{
    Expected expected;
    const long code = fault.code;
    const auto hr = static_cast<HRESULT>(code);
    switch (fault.effect)
    {
    case Effect::ThrowComError:
        expected.End(hr, Tests::ComText(hr));
        break;
    case Effect::ThrowRuntimeError:
        expected.End(E_FAIL, L"the host refuses");
        break;
    case Effect::ThrowWinError:
        expected.End(HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED), CWinError(ERROR_ACCESS_DENIED).Format().GetString());
        break;
    case Effect::Nothing:
        if (rule.shape == Shape::Factory)
            Tests::GivesNull(expected);
        else
            rule.nothing(expected);
        break;
    default:
    {
        const auto warnByEvent = [&]
        {
            const StringW text = FormatErrorWithContext(FormatSystemError(static_cast<unsigned>(hr), true), StringW());
            expected.lines.push_back(Tests::Event(L"Non-success condition during COM call", rule.site.file,
                                                  rule.site.function, text.GetString()));
        };
        switch (rule.shape)
        {
        case Shape::Mapi:
            if (FAILED(hr))
                expected.Throw(rule.site, hr, Tests::MapiText(hr));
            else if (hr != rule.quiet)
                expected.Log(LogId::Warning, Tests::MapiText(hr));
            break;
        case Shape::Profile:
            if (FAILED(hr))
                expected.Throw(rule.site, hr, Tests::MapiText(hr));
            else
                warnByEvent();
            break;
        case Shape::Com:
            if (FAILED(hr))
                expected.Throw(rule.site, hr, Tests::ComText(hr));
            else
                warnByEvent();
            break;
        case Shape::Pass:
            if (hr != rule.quiet)
                expected.Log(FAILED(hr) ? LogId::Error : LogId::Warning, Tests::MapiText(hr, rule.context));
            expected.result = hr;
            break;
        case Shape::Try:
            if (FAILED(hr) && hr != MAPI_E_NOT_FOUND)
                expected.Log(LogId::Error, Tests::MapiText(hr, L"IMAPIProp::GetProps"));
            break;
        case Shape::Query:
        case Shape::Set:
            if (FAILED(hr))
                expected.Throw({L"MapiProperties.cpp", rule.shape == Shape::Set ? L"Quillon::Mapi::HrSetOneProp"
                                                                                : L"Quillon::Mapi::QueryItemProperty"},
                               hr, Tests::MapiText(hr, rule.context));
            break;
        default:
            break;
        }
        if (rule.then)
            rule.then(expected, code);
        if (rule.givesResult && SUCCEEDED(hr))
            expected.result = hr;
        break;
    }
    }
    if (expected.ends && operation.handler.file)
        expected.lines.push_back(Tests::Caught(operation.handler.file, operation.handler.function, expected.text));
    if (!expected.ends && operation.base)
        operation.base(expected);
    if (operation.finally)
        operation.finally(expected);
    return expected;
}

/// The ways in which a call of this rule fails.
std::vector<Fault> WaysToFail(const Rule& rule, std::size_t call)
{
    std::vector<Fault> ways;
    if (rule.shape == Shape::Hook || rule.shape == Shape::Factory)
    {
        for (const Effect effect : exceptions)
            if (effect != Effect::ThrowComError)
                ways.push_back({call, effect});
        for (const HRESULT code : failures)
            ways.push_back({call, Effect::ThrowComError, code});
        if (rule.shape == Shape::Factory)
            ways.push_back({call, Effect::Nothing});
        return ways;
    }
    if (rule.shape == Shape::System)
    {
        for (const long error : systemErrors)
            ways.push_back({call, Effect::Code, error});
        return ways;
    }
    for (const bool givesErrors : {true, false})
    {
        for (const HRESULT code : failures)
            ways.push_back({call, Effect::Code, code, givesErrors});
        if (rule.shape == Shape::Interface)
            continue;
        for (const HRESULT code : warnings)
            ways.push_back({call, Effect::Code, code, givesErrors});
        if (rule.nothing)
            ways.push_back({call, Effect::Nothing, 0, givesErrors});
    }
    return ways;
}

std::string Describe(const Fault& fault, const char* call)
{
    char text[200] = {};
    std::snprintf(text, sizeof(text),
                  "call %zu (%s), effect %d, code 0x%08lX, %s extended errors, allocation %zu%s, "
                  "MAPI allocation %lu",
                  fault.call, call, static_cast<int>(fault.effect), fault.code, fault.givesErrors ? "with" : "without",
                  fault.allocation, fault.staysEmpty ? " and all after it" : "", fault.mapiAllocation);
    return text;
}

class FaultTest : public testing::TestWithParam<const Operation*>
{
protected:
    const Operation& operation = *GetParam();

    /// Whether one of the lines says this.
    static bool Tells(const Outcome& outcome, const std::wstring& text)
    {
        return std::any_of(outcome.lines.begin(), outcome.lines.end(),
                           [&](const LogLine& line) { return line.text.starts_with(text); });
    }

    /// The result after a lack of memory is `expected`'s or one that lack of memory may come to, and it was told.
    void ExpectMemoryTold(const Outcome& outcome, HRESULT expected) const
    {
        const bool allowed = outcome.result == expected || outcome.result == E_OUTOFMEMORY ||
                             std::find(operation.withoutMemory.begin(), operation.withoutMemory.end(),
                                       outcome.result) != operation.withoutMemory.end();
        EXPECT_TRUE(allowed) << "result 0x" << std::hex << outcome.result << ", "
                             << testing::PrintToString(outcome.lines);
        EXPECT_TRUE(Tells(outcome, outOfMemoryLine));
        ExpectFailureTold(outcome);
    }

    /// A failure of a method is told last; one that leaves a function was told when it was thrown.
    void ExpectFailureTold(const Outcome& outcome) const
    {
        if (SUCCEEDED(outcome.result) || operation.isPassThrough)
            return;
        ASSERT_FALSE(outcome.lines.empty());
        // A result that is given on is told by the call's name, and more where there is memory for it.
        for (const Rule& rule : operation.rules)
            if (rule.shape == Shape::Pass && Tells(outcome, rule.context))
                return;
        const bool thrown = Tells(outcome, L"Throwing exception");
        const bool caught = Tells(outcome, L"Caught exception");
        EXPECT_TRUE(operation.handler.file ? caught || !thrown : thrown) << testing::PrintToString(outcome.lines);
    }
};

} // namespace

TEST_P(FaultTest, NoFault)
{
    Expected expected;
    if (operation.base)
        operation.base(expected);
    const Outcome outcome = Execute(operation, {});
    EXPECT_EQ(outcome.result, expected.result);
    EXPECT_THAT(outcome.lines, testing::ElementsAreArray(expected.lines));
    std::vector<std::string> calls;
    for (const Rule& rule : operation.rules)
        calls.emplace_back(rule.call);
    EXPECT_EQ(outcome.calls, calls);
    EXPECT_TRUE(!operation.isPassThrough || outcome.allocations == 0) << "a forwarded call needs no memory";
}

TEST_P(FaultTest, EachCallFails)
{
    for (std::size_t call = 1; call <= operation.rules.size(); ++call)
    {
        const Rule& rule = operation.rules[call - 1];
        for (const Fault& fault : WaysToFail(rule, call))
        {
            SCOPED_TRACE(Describe(fault, rule.call));
            const Outcome outcome = Execute(operation, fault);
            ASSERT_TRUE(outcome.happened);
            if (fault.effect == Effect::ThrowForeignError)
            {
                EXPECT_TRUE(outcome.endedForeign);
                EXPECT_THAT(outcome.lines, testing::IsEmpty());
                continue;
            }
            const Expected expected = Predict(operation, rule, fault);
            EXPECT_FALSE(outcome.endedForeign);
            EXPECT_EQ(outcome.result, expected.result);
            EXPECT_THAT(outcome.lines, testing::ElementsAreArray(expected.lines));
        }
    }
}

TEST_P(FaultTest, EachHeapAllocationFails)
{
    const Outcome base = Execute(operation, {});
    for (const bool staysEmpty : {false, true})
    {
        for (std::size_t allocation = 1; allocation <= base.allocations; ++allocation)
        {
            Fault fault;
            fault.allocation = allocation;
            fault.staysEmpty = staysEmpty;
            SCOPED_TRACE(Describe(fault, "none"));
            const Outcome outcome = Execute(operation, fault);
            ASSERT_TRUE(outcome.happened);
            ExpectMemoryTold(outcome, base.result);
        }
    }
}

TEST_P(FaultTest, EachHeapAllocationFailsWhileAFailureIsReported)
{
    for (std::size_t call = 1; call <= operation.rules.size(); ++call)
    {
        const Rule& rule = operation.rules[call - 1];
        for (Fault fault : WaysToFail(rule, call))
        {
            const bool representative =
                fault.givesErrors &&
                (fault.code == MAPI_E_CALL_FAILED || fault.code == ERROR_ACCESS_DENIED || fault.code == warnings[0]);
            if (!representative)
                continue;
            const Outcome failed = Execute(operation, fault);
            const Outcome base = Execute(operation, {});
            for (const bool staysEmpty : {false, true})
            {
                for (std::size_t allocation = 1; allocation <= failed.allocations; ++allocation)
                {
                    fault.allocation = allocation;
                    fault.staysEmpty = staysEmpty;
                    SCOPED_TRACE(Describe(fault, rule.call));
                    const Outcome outcome = Execute(operation, fault);
                    ASSERT_TRUE(outcome.happened);
                    const std::size_t known = (std::min)(call, outcome.calls.size());
                    if (!std::equal(outcome.calls.begin(), outcome.calls.begin() + known, base.calls.begin()))
                    {
                        // For want of memory the library went another way, on which the call's number is another's.
                        EXPECT_TRUE(Tells(outcome, outOfMemoryLine));
                        ExpectFailureTold(outcome);
                        continue;
                    }
                    ExpectMemoryTold(outcome, outcome.result == base.result ? base.result : failed.result);
                }
            }
        }
    }
}

TEST_P(FaultTest, EachMapiAllocationFails)
{
    const Outcome base = Execute(operation, {});
    for (ULONG allocation = 1; allocation <= base.mapiAllocations; ++allocation)
    {
        Fault fault;
        fault.mapiAllocation = allocation;
        SCOPED_TRACE(Describe(fault, "none"));
        const Outcome outcome = Execute(operation, fault);
        ASSERT_TRUE(outcome.happened);
        EXPECT_EQ(outcome.result, MAPI_E_NOT_ENOUGH_MEMORY);
        ExpectFailureTold(outcome);
    }
}

INSTANTIATE_TEST_SUITE_P(All, FaultTest,
                         testing::ValuesIn(
                             []
                             {
                                 std::vector<const Operation*> all;
                                 for (const Operation& operation : Tests::Operations())
                                     all.push_back(&operation);
                                 return all;
                             }()),
                         [](const testing::TestParamInfo<const Operation*>& parameter)
                         {
                             std::string name;
                             for (const char* at = parameter.param->name; *at; ++at)
                                 if (*at != ' ' && *at != '-')
                                     name += *at;
                             return name;
                         });
