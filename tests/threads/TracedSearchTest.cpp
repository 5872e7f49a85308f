// Searches for the PST module that fail on many threads at once, each of them once more with trace logging.
#include "nst/KivNstCore.h"
#include "support/Log.h"
#include "tests/common/Alone.h"
#include "tests/common/ImportHook.h"
#include "tests/common/Setting.h"
#include "tests/threads/Gate.h"
#include "tests/threads/Watchdog.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cwchar>
#include <memory>
#include <thread>
#include <vector>

using namespace Quillon;

namespace
{

constexpr int searchers = 8;
constexpr int rounds = 20;

/// Where all searchers meet between their first search and trace logging; null: they run freely.
std::unique_ptr<Tests::MeetingPoint> meetingPoint;
std::atomic<int> retries = 0;

void CALLBACK Receive(void*, const Logging::LogLine& line)
{
    if (std::wcsstr(line.text, L"retrying with trace logging enabled") == nullptr)
        return;
    ++retries;
    if (meetingPoint)
        meetingPoint->Arrive();
}

/// Has all threads search, once or often; gives how many found something.
int Search(int times)
{
    std::atomic<int> found = 0;
    std::vector<std::jthread> threads;
    for (int number = 0; number < searchers; ++number)
    {
        threads.emplace_back(
            [&found, times]
            {
                for (int time = 0; time < times; ++time)
                    if (Nst::GetPstModule())
                        ++found;
            });
    }
    threads.clear();
    return found;
}

} // namespace

TEST_ALONE(TracedSearch, LeavesTraceLoggingAsItWasHoweverManyFailAtOnce)
{
    const Tests::Watchdog watchdog(60);
    const Tests::ScratchRegistry registry;
    // No file is there.
    const Tests::ImportHook<DWORD(LPCWSTR)> noFile("GetFileAttributesW",
                                                   [](LPCWSTR) -> DWORD { return INVALID_FILE_ATTRIBUTES; });
    Logging::SetLogSink(Receive, nullptr);
    for (int round = 0; round < rounds; ++round)
    {
        meetingPoint = std::make_unique<Tests::MeetingPoint>(searchers);
        EXPECT_EQ(Search(1), 0);
        ASSERT_FALSE(Logging::IsLogEnabled(LogId::Trace)) << "after round " << round;
    }
    EXPECT_EQ(retries, rounds * searchers) << "all of them were there at once";
    meetingPoint.reset();
    EXPECT_EQ(Search(rounds), 0);
    EXPECT_FALSE(Logging::IsLogEnabled(LogId::Trace));
    Logging::EnableTraceLogging(true);
    retries = 0;
    EXPECT_EQ(Search(rounds), 0);
    EXPECT_EQ(retries, 0) << "trace logging was on";
    EXPECT_TRUE(Logging::EnableTraceLogging(false));
    Logging::SetLogSink(nullptr, nullptr);
}
