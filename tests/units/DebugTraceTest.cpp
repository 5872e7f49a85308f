// The debug trace, as a debug build compiles it.
#undef NDEBUG
#include "support/DebugTrace.h"

#include "support/Format.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Quillon;

namespace
{

std::vector<std::wstring> traces;

/// A text for the debugger is raised as an exception, which a debugger is asked first.
LONG CALLBACK Collect(EXCEPTION_POINTERS* pointers)
{
    constexpr DWORD wideText = 0x4001000A;
    constexpr DWORD narrowText = 0x40010006; // all that some systems know
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    if (record.ExceptionCode == wideText)
    {
        traces.emplace_back(reinterpret_cast<const wchar_t*>(record.ExceptionInformation[1]));
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    if (record.ExceptionCode != narrowText)
        return EXCEPTION_CONTINUE_SEARCH;
    const std::string text(reinterpret_cast<const char*>(record.ExceptionInformation[1]));
    traces.emplace_back(text.begin(), text.end());
    return EXCEPTION_CONTINUE_EXECUTION;
}

struct Collector
{
    void* handler = AddVectoredExceptionHandler(1, Collect);
    Collector() { traces.clear(); }
    Collector(const Collector&) = delete;
    Collector& operator=(const Collector&) = delete;
    ~Collector() { RemoveVectoredExceptionHandler(handler); }
};

} // namespace

TEST(DebugTrace, HandsItsTextToTheDebugger)
{
    const Collector collector;
    DebugTrace([] { return FormatString(L"entered %s", L"100%s"); });
    EXPECT_THAT(traces, testing::ElementsAre(L"entered 100%s\r\n"));
}

TEST(DebugTrace, IsSilentWhenItsTextCannotBeMade)
{
    const Collector collector;
    DebugTrace([]() -> StringW { throw CComError(E_OUTOFMEMORY); });
    EXPECT_THAT(traces, testing::IsEmpty());
}
