// The log.
#include "support/Log.h"

#include "support/Exceptions.h"
#include "tests/common/Alone.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Setting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace Quillon;
using Logging::LogLine;
using testing::ElementsAre;
using Tests::LogCapture;

namespace
{

/// Restores what a test does to the log.
struct DefaultLog
{
    DefaultLog() = default;
    DefaultLog(const DefaultLog&) = delete;
    DefaultLog& operator=(const DefaultLog&) = delete;
    ~DefaultLog()
    {
        Logging::SetLogSink(nullptr, nullptr);
        Logging::EnableTraceLogging(false);
    }
};

std::vector<std::string> LinesOf(const std::wstring& path)
{
    std::istringstream text(Tests::ReadFileBytes(path));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

/// What of a file's line follows its time.
std::string AfterTime(const std::string& line)
{
    return line.size() > 24 ? line.substr(24) : line;
}

std::string ThreadMark()
{
    std::ostringstream mark;
    mark << '[' << std::hex << GetCurrentThreadId() << ']';
    return mark.str();
}

std::vector<std::wstring> debuggerLines;

} // namespace

TEST(Log, WritesAllLevelsButTraceByItself)
{
    const LogCapture log;
    const struct
    {
        LogId level;
        int number;
        bool written;
        const wchar_t* name;
    } table[] = {
        {LogId::Error, 0, true, L"error"},         {LogId::Warning, 1, true, L"warning"},
        {LogId::Exception, 2, true, L"exception"}, {LogId::Action, 3, true, L"action"},
        {LogId::Trace, 4, false, L"trace"},
    };
    for (const auto& row : table)
    {
        EXPECT_EQ(static_cast<int>(row.level), row.number);
        EXPECT_EQ(Logging::IsLogEnabled(row.level), row.written);
        EXPECT_STREQ(Logging::GetLevelName(row.level), row.name);
        LogEntry(row.level, row.name);
    }
    EXPECT_THAT(log.Lines(),
                ElementsAre(Tests::Entry(LogId::Error, L"error"), Tests::Entry(LogId::Warning, L"warning"),
                            Tests::Entry(LogId::Exception, L"exception"), Tests::Entry(LogId::Action, L"action")));
}

TEST(Log, NamesTheLevelsAndSaysSoOfOneThatIsNone)
{
    const std::pair<LogId, const wchar_t*> table[] = {
        {LogId::Error, L"error"},   {LogId::Warning, L"warning"}, {LogId::Exception, L"exception"},
        {LogId::Action, L"action"}, {LogId::Trace, L"trace"},     {static_cast<LogId>(99), L"unknown level"},
    };
    for (const auto& [level, name] : table)
        EXPECT_STREQ(Logging::GetLevelName(level), name);
}

TEST(Log, WritesTraceLinesOnlyWhileTraceLoggingIsOn)
{
    LogCapture log;
    EXPECT_FALSE(Logging::EnableTraceLogging(true)) << "the previous setting";
    EXPECT_TRUE(Logging::IsLogEnabled(LogId::Trace));
    LogEntry(LogId::Trace, L"one");
    LogDetails(LogId::Trace, L"two");
    LogFormattedEntry(LogId::Trace, L"%d", 3);
    EXPECT_TRUE(Logging::EnableTraceLogging(true));
    EXPECT_TRUE(Logging::EnableTraceLogging(false));
    LogEntry(LogId::Trace, L"unseen");
    LogDetails(LogId::Trace, L"unseen");
    LogFormattedEntry(LogId::Trace, L"unseen");
    EXPECT_FALSE(Logging::EnableTraceLogging(false));
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Entry(LogId::Trace, L"one"), Tests::Detail(LogId::Trace, L"two"),
                                         Tests::Entry(LogId::Trace, L"3")));
}

TEST(Log, WritesTextAsItStandsAndFormatsOnlyFormats)
{
    LogCapture log;
    LogEntry(LogId::Warning, L"100%s %n");
    LogDetails(LogId::Warning, L"%d detail");
    LogFormattedEntry(LogId::Action, L"%s, %Iu of %d%%", L"50%s", static_cast<std::size_t>(7), 9);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Tests::Entry(LogId::Warning, L"100%s %n"), Tests::Detail(LogId::Warning, L"%d detail"),
                            Tests::Entry(LogId::Action, L"50%s, 7 of 9%")));
}

TEST(Log, WritesNoEmptyLine)
{
    LogCapture log;
    LogEntry(LogId::Error, nullptr);
    LogEntry(LogId::Error, L"");
    LogDetails(LogId::Warning, L"");
    LogFormattedEntry(LogId::Action, L"%s", L"");
    EXPECT_THAT(log.Lines(),
                ElementsAre(Tests::Entry(LogId::Error, L"(no text)"), Tests::Entry(LogId::Error, L"(no text)"),
                            Tests::Detail(LogId::Warning, L"(no text)"), Tests::Entry(LogId::Action, L"(no text)")));
}

TEST(Log, GivesTheSinkItsContextTheThreadAndTheTime)
{
    const DefaultLog restore;
    LogLine seen = {};
    std::wstring text;
    struct Context
    {
        LogLine* line;
        std::wstring* text;
    } context{&seen, &text};
    Logging::SetLogSink(
        [](void* given, const LogLine& line)
        {
            *static_cast<Context*>(given)->line = line;
            *static_cast<Context*>(given)->text = line.text;
        },
        &context);
    SYSTEMTIME before = {};
    GetLocalTime(&before);
    LogDetails(LogId::Action, L"text");
    SYSTEMTIME after = {};
    GetLocalTime(&after);
    EXPECT_EQ(seen.level, LogId::Action);
    EXPECT_TRUE(seen.isDetail);
    EXPECT_EQ(seen.threadId, GetCurrentThreadId());
    EXPECT_EQ(text, L"text");
    const auto number = [](const SYSTEMTIME& time)
    {
        FILETIME file = {};
        SystemTimeToFileTime(&time, &file);
        return (static_cast<ULONGLONG>(file.dwHighDateTime) << 32) + file.dwLowDateTime;
    };
    EXPECT_LE(number(before), number(seen.time));
    EXPECT_GE(number(after), number(seen.time));
}

TEST(Log, LeavesTheLastErrorAsItWas)
{
    const DefaultLog restore;
    Logging::SetLogSink([](void*, const LogLine&) { SetLastError(ERROR_DISK_FULL); }, nullptr);
    Logging::EnableTraceLogging(true);
    SetLastError(4711);
    LogEntry(LogId::Error, L"text");
    EXPECT_EQ(GetLastError(), 4711u);
    LogDetails(LogId::Trace, L"text");
    EXPECT_EQ(GetLastError(), 4711u);
    LogFormattedEntry(LogId::Error, L"%s", L"text");
    EXPECT_EQ(GetLastError(), 4711u);

    const Tests::TempFolder folder;
    Logging::LogToFile((folder / L"log.txt").c_str());
    SetLastError(4711);
    LogEntry(LogId::Error, L"text");
    EXPECT_EQ(GetLastError(), 4711u);
    Logging::SetLogSink(nullptr, nullptr);
    SetLastError(4711);
    LogEntry(LogId::Error, L"text");
    EXPECT_EQ(GetLastError(), 4711u);
}

TEST(Log, SurvivesASinkThatThrows)
{
    const DefaultLog restore;
    Logging::SetLogSink([](void*, const LogLine&) { throw std::exception(); }, nullptr);
    LogEntry(LogId::Error, L"text");
    LogFormattedEntry(LogId::Error, L"%d", 1);
    // The lock was given back: a new sink can be set and is served.
    LogCapture log;
    LogEntry(LogId::Error, L"after");
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Entry(LogId::Error, L"after")));
}

TEST(Log, WritesTheBareFormatWhenThereIsNoMemory)
{
    LogCapture log;
    {
        const Tests::NoMemory noMemory;
        LogFormattedEntry(LogId::Error, L"%s failed", L"something");
        LogEntry(LogId::Error, L"plain");
    }
    EXPECT_THAT(log.Lines(), testing::Contains(Tests::Entry(LogId::Error, L"%s failed")));
    EXPECT_THAT(log.Lines(), testing::Contains(Tests::Entry(LogId::Error, L"plain")));
}

TEST(LogFile, SaysWhereALineIsMissingForWantOfMemory)
{
    const DefaultLog restore;
    const Tests::TempFolder folder;
    Logging::LogToFile((folder / L"log.txt").c_str());
    {
        const Tests::NoMemory noMemory;
        LogEntry(LogId::Error, L"lost");
    }
    LogEntry(LogId::Error, L"kept");
    Logging::SetLogSink(nullptr, nullptr);
    EXPECT_THAT(LinesOf(folder / L"log.txt"),
                ElementsAre("a line of the log is missing here: out of memory\r",
                            testing::AllOf(testing::StartsWith("20"), testing::EndsWith("error: kept\r"))));
}

TEST(Log, WritesNothingWhileItIsOff)
{
    const DefaultLog restore;
    const LogCapture log;
    Logging::EnableTraceLogging(true);
    Logging::TurnLogOff();
    for (const int level : {0, 1, 2, 3, 4})
    {
        EXPECT_FALSE(Logging::IsLogEnabled(static_cast<LogId>(level)));
        LogEntry(static_cast<LogId>(level), L"text");
        LogDetails(static_cast<LogId>(level), L"text");
        LogFormattedEntry(static_cast<LogId>(level), L"%d", level);
    }
    EXPECT_THAT(log.Lines(), testing::IsEmpty());
}

TEST(Log, TellsTheDebuggerNothingWhileItIsOff)
{
    const DefaultLog restore;
    debuggerLines.clear();
    const Tests::ImportHook<void(LPCWSTR)> hook("OutputDebugStringW",
                                                [](LPCWSTR text) { debuggerLines.emplace_back(text); });
    Logging::TurnLogOff();
    LogEntry(LogId::Error, L"dropped");
    Logging::SetLogSink(nullptr, nullptr);
    LogEntry(LogId::Error, L"written");
    EXPECT_THAT(debuggerLines, ElementsAre(L"KivNst error: written\r\n"));
}

TEST(LogFile, IsClosedWhenTheLogIsTurnedOffAndOpenedAnew)
{
    const DefaultLog restore;
    const Tests::TempFolder folder;
    const std::wstring path = folder / L"log.txt";
    Logging::LogToFile(path.c_str());
    LogEntry(LogId::Error, L"first");
    Logging::TurnLogOff();
    LogEntry(LogId::Error, L"dropped");
    // Nobody has it open any more.
    const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(file, INVALID_HANDLE_VALUE);
    CloseHandle(file);
    Logging::LogToFile(path.c_str());
    LogEntry(LogId::Error, L"second");
    Logging::TurnLogOff();
    EXPECT_EQ(LinesOf(path).size(), 2u);
}

TEST(Log, GoesToTheDebuggerByItself)
{
    debuggerLines.clear();
    const Tests::ImportHook<void(LPCWSTR)> hook("OutputDebugStringW",
                                                [](LPCWSTR text) { debuggerLines.emplace_back(text); });
    Logging::SetLogSink(nullptr, nullptr);
    LogEntry(LogId::Warning, L"100%s");
    LogDetails(LogId::Warning, L"detail");
    EXPECT_THAT(debuggerLines, ElementsAre(L"KivNst warning: 100%s\r\n", L"KivNst warning:     detail\r\n"));
}

TEST(Log, TellsTheDebuggerOfALineThatThereIsNoMemoryFor)
{
    static std::vector<std::string> lines;
    lines.clear();
    const Tests::ImportHook<void(LPCSTR)> hook("OutputDebugStringA", [](LPCSTR text) { lines.emplace_back(text); });
    Logging::SetLogSink(nullptr, nullptr);
    {
        const Tests::NoMemory noMemory;
        LogEntry(LogId::Error, L"lost");
    }
    EXPECT_THAT(lines, ElementsAre("a line of the log is missing here: out of memory\r\n"));
}

TEST(LogFile, HoldsTimeThreadLevelAndTextInUtf8)
{
    const DefaultLog restore;
    const Tests::TempFolder folder;
    const std::wstring path = folder / L"log \u00FC.txt";
    Logging::LogToFile(path.c_str());
    LogEntry(LogId::Error, L"Gr\u00FC\u00DFe %s");
    LogDetails(LogId::Warning, L"detail");
    LogEntry(LogId::Action, L"last");
    Logging::FlushLog();
    const std::vector<std::string> lines = LinesOf(path);
    ASSERT_EQ(lines.size(), 3u);
    for (const std::string& line : lines)
    {
        // "2026-01-31 09:05:07.125 "
        const std::string shape = "0000-00-00 00:00:00.000 ";
        std::string time = line.substr(0, shape.size());
        for (char& character : time)
            character = character >= '0' && character <= '9' ? '0' : character;
        EXPECT_EQ(time, shape) << line;
    }
    EXPECT_EQ(AfterTime(lines[0]), ThreadMark() + " error: Gr\xC3\xBC\xC3\x9F" + "e %s\r");
    EXPECT_EQ(AfterTime(lines[1]), ThreadMark() + " warning:     detail\r");
    EXPECT_EQ(AfterTime(lines[2]), ThreadMark() + " action: last\r");
}

TEST(LogFile, IsAppendedToAndCanBeReadAndRenamedMeanwhile)
{
    const DefaultLog restore;
    const Tests::TempFolder folder;
    const std::wstring path = folder / L"log.txt";
    Tests::WriteFileBytes(path, "before\n");
    Logging::LogToFile(path.c_str());
    LogEntry(LogId::Error, L"one");
    EXPECT_EQ(LinesOf(path).size(), 2u);
    EXPECT_TRUE(MoveFileW(path.c_str(), (folder / L"renamed.txt").c_str()));
    LogEntry(LogId::Error, L"two");
    const std::vector<std::string> lines = LinesOf(folder / L"renamed.txt");
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "before");
}

TEST(LogFile, ThatCannotBeOpenedLeavesTheSinkInPlace)
{
    LogCapture log;
    try
    {
        Logging::LogToFile(L"Z:\\there\\is\\no\\such folder\\log.txt");
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const CWinError& error)
    {
        EXPECT_EQ(error.GetError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
        EXPECT_THAT(log.Take(), ElementsAre(Tests::Throwing(L"Log.cpp", L"Quillon::Logging::LogToFile",
                                                            Tests::Text(error.Format()))));
    }
    LogEntry(LogId::Error, L"still here");
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Entry(LogId::Error, L"still here")));
}

TEST(LogFile, IsClosedWhenAnotherSinkIsSet)
{
    const DefaultLog restore;
    const Tests::TempFolder folder;
    const std::wstring path = folder / L"log.txt";
    Logging::LogToFile(path.c_str());
    LogEntry(LogId::Error, L"one");
    {
        LogCapture log;
        LogEntry(LogId::Error, L"two");
        EXPECT_THAT(log.Lines(), ElementsAre(Tests::Entry(LogId::Error, L"two")));
        // Nobody has it open any more.
        const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        EXPECT_NE(file, INVALID_HANDLE_VALUE);
        CloseHandle(file);
    }
    EXPECT_EQ(LinesOf(path).size(), 1u);
}

TEST(LogFile, KeepsTheLinesOfManyThreadsWhole)
{
    constexpr int threadCount = 6;
    constexpr int lineCount = 200;
    const DefaultLog restore;
    const Tests::TempFolder folder;
    const std::wstring path = folder / L"log.txt";
    Logging::LogToFile(path.c_str());
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < threadCount; ++thread)
    {
        threads.emplace_back(
            [thread]
            {
                for (int line = 0; line < lineCount; ++line)
                    LogFormattedEntry(LogId::Action, L"<%d:%d>", thread, line);
            });
    }
    threads.clear();
    Logging::SetLogSink(nullptr, nullptr);

    std::set<std::string> texts;
    for (const std::string& line : LinesOf(path))
    {
        const std::size_t at = line.find(" action: ");
        ASSERT_NE(at, std::string::npos) << line;
        texts.insert(line.substr(at + 9));
    }
    EXPECT_EQ(texts.size(), static_cast<std::size_t>(threadCount * lineCount));
    for (int thread = 0; thread < threadCount; ++thread)
        for (int line = 0; line < lineCount; ++line)
            EXPECT_EQ(texts.count("<" + std::to_string(thread) + ":" + std::to_string(line) + ">\r"), 1u);
}

TEST(Log, LosesNoLineAndCallsNoOldSinkWhileSinksAreReplacedUnderLoad)
{
    const DefaultLog restore;
    /// A sink of its own lifetime: a line that reaches it after it was replaced is counted as late.
    struct Sink
    {
        std::atomic<bool> inPlace = true;
        std::atomic<int>* lines;
        std::atomic<int>* late;
    };
    constexpr int threadCount = 4;
    constexpr int sinkCount = 100;
    std::atomic<int> written = 0;
    std::atomic<int> lines = 0;
    std::atomic<int> late = 0;
    const auto receive = [](void* context, const LogLine&)
    {
        auto& sink = *static_cast<Sink*>(context);
        if (!sink.inPlace)
            ++*sink.late;
        ++*sink.lines;
    };
    const auto makeSink = [&]
    {
        auto sink = std::make_unique<Sink>();
        sink->lines = &lines;
        sink->late = &late;
        return sink;
    };

    std::vector<std::unique_ptr<Sink>> sinks;
    sinks.push_back(makeSink());
    Logging::SetLogSink(receive, sinks.back().get());
    std::atomic<bool> stop = false;
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < threadCount; ++thread)
    {
        threads.emplace_back(
            [&]
            {
                while (!stop)
                    LogFormattedEntry(LogId::Action, L"line %d", ++written);
            });
    }
    for (int sink = 1; sink < sinkCount; ++sink)
    {
        // Each sink receives some lines before it is replaced.
        for (const int before = lines; lines < before + threadCount;)
            std::this_thread::yield();
        sinks.push_back(makeSink());
        Logging::SetLogSink(receive, sinks.back().get());
        sinks[sinks.size() - 2]->inPlace = false;
    }
    stop = true;
    threads.clear();
    Logging::SetLogSink(nullptr, nullptr);
    EXPECT_EQ(lines, written);
    EXPECT_EQ(late, 0);
}
