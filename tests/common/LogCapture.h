// The library's log, captured line by line, and matchers for its lines.
#pragma once

#include "support/Log.h"

#include <gmock/gmock.h>

#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

namespace Tests
{

/// One captured line.
struct LogLine
{
    Quillon::LogId level;
    bool isDetail;
    std::wstring text;
};

void PrintTo(const LogLine& line, std::ostream* stream);

/// The text in UTF-8, for messages and death tests.
std::string Narrow(const std::wstring& text);

/// Collects all lines that the library writes while it lives; afterwards they go to the debugger's output again. One at
/// a time. Lines may come from any thread.
class LogCapture
{
public:
    LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture();

    /// The lines so far.
    std::vector<LogLine> Lines() const;
    /// The lines since the last call, which are forgotten then.
    std::vector<LogLine> Take();

private:
    mutable std::mutex m_lock;
    std::vector<LogLine> m_lines;
};

/// Sends the library's lines to standard error, as "level: text", for the child processes of death tests.
void LogToStandardError();

/// Matches an entry of this level and exactly this text.
testing::Matcher<const LogLine&> Entry(Quillon::LogId level, const std::wstring& text);

/// Matches the detail line of an entry.
testing::Matcher<const LogLine&> Detail(Quillon::LogId level, const std::wstring& text);

/// Matches the event line "WORD at FILE, FUNCTION, line N: DESCRIPTION", whose N is a number above 0, at the level that
/// the word belongs to: "Throwing exception" and "Caught exception" 2, "Non-success condition during COM call" 1,
/// "Exiting process" 0.
testing::Matcher<const LogLine&> Event(const std::wstring& word, const std::wstring& file, const std::wstring& function,
                                       const std::wstring& description);
/// The same with one line number that has to stand there.
testing::Matcher<const LogLine&> EventAtLine(const std::wstring& word, const std::wstring& file,
                                             const std::wstring& function, int line, const std::wstring& description);

/// Event lines of the two exception words.
testing::Matcher<const LogLine&> Throwing(const std::wstring& file, const std::wstring& function,
                                          const std::wstring& description);
testing::Matcher<const LogLine&> Caught(const std::wstring& file, const std::wstring& function,
                                        const std::wstring& description);

} // namespace Tests
