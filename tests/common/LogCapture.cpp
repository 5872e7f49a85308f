// The captured log.
#include "tests/common/LogCapture.h"

#include "tests/common/OwnMemory.h"

#include <windows.h>

#include <cstdio>
#include <ostream>
#include <utility>

namespace Tests
{
namespace
{

void CALLBACK WriteToStandardError(void*, const Quillon::Logging::LogLine& line)
{
    const std::string text = Narrow(line.text);
    std::fprintf(stderr, "%s: %s\n", Narrow(Quillon::Logging::GetLevelName(line.level)).c_str(), text.c_str());
    std::fflush(stderr);
}

Quillon::LogId LevelOfEvent(const std::wstring& word)
{
    if (word == L"Exiting process")
        return Quillon::LogId::Error;
    return word == L"Non-success condition during COM call" ? Quillon::LogId::Warning : Quillon::LogId::Exception;
}

MATCHER_P3(IsLine, level, isDetail, text, "")
{
    return arg.level == level && arg.isDetail == isDetail && arg.text == text;
}

/// `line` 0 stands for any number above 0.
MATCHER_P4(IsEvent, level, head, line, tail, "")
{
    if (arg.level != level || arg.isDetail || arg.text.size() < head.size() + tail.size() ||
        arg.text.compare(0, head.size(), head) != 0 ||
        arg.text.compare(arg.text.size() - tail.size(), tail.size(), tail) != 0)
        return false;
    const std::wstring number = arg.text.substr(head.size(), arg.text.size() - head.size() - tail.size());
    if (number.empty() || number.find_first_not_of(L"0123456789") != std::wstring::npos || number[0] == L'0')
        return false;
    return line == 0 || number == std::to_wstring(line);
}

} // namespace

std::string Narrow(const std::wstring& text)
{
    const int size = static_cast<int>(text.size());
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), size, narrow.data(), length, nullptr, nullptr);
    return narrow;
}

void PrintTo(const LogLine& line, std::ostream* stream)
{
    *stream << Narrow(Quillon::Logging::GetLevelName(line.level)) << (line.isDetail ? " (detail): \"" : ": \"")
            << Narrow(line.text) << '"';
}

LogCapture::LogCapture()
{
    Quillon::Logging::SetLogSink(
        [](void* context, const Quillon::Logging::LogLine& line)
        {
            const OwnMemory own;
            auto& capture = *static_cast<LogCapture*>(context);
            const std::lock_guard lock(capture.m_lock);
            capture.m_lines.push_back({line.level, line.isDetail, line.text});
        },
        this);
}

LogCapture::~LogCapture()
{
    Quillon::Logging::SetLogSink(nullptr, nullptr);
}

std::vector<LogLine> LogCapture::Lines() const
{
    const std::lock_guard lock(m_lock);
    return m_lines;
}

std::vector<LogLine> LogCapture::Take()
{
    const std::lock_guard lock(m_lock);
    return std::exchange(m_lines, {});
}

void LogToStandardError()
{
    Quillon::Logging::SetLogSink(WriteToStandardError, nullptr);
}

testing::Matcher<const LogLine&> Entry(Quillon::LogId level, const std::wstring& text)
{
    return IsLine(level, false, text);
}

testing::Matcher<const LogLine&> Detail(Quillon::LogId level, const std::wstring& text)
{
    return IsLine(level, true, text);
}

testing::Matcher<const LogLine&> EventAtLine(const std::wstring& word, const std::wstring& file,
                                             const std::wstring& function, int line, const std::wstring& description)
{
    return IsEvent(LevelOfEvent(word), word + L" at " + file + L", " + function + L", line ", line,
                   L": " + description);
}

testing::Matcher<const LogLine&> Event(const std::wstring& word, const std::wstring& file, const std::wstring& function,
                                       const std::wstring& description)
{
    return EventAtLine(word, file, function, 0, description);
}

testing::Matcher<const LogLine&> Throwing(const std::wstring& file, const std::wstring& function,
                                          const std::wstring& description)
{
    return Event(L"Throwing exception", file, function, description);
}

testing::Matcher<const LogLine&> Caught(const std::wstring& file, const std::wstring& function,
                                        const std::wstring& description)
{
    return Event(L"Caught exception", file, function, description);
}

} // namespace Tests
