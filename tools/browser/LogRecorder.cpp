// The sink that records the library's log.
#include "tools/browser/LogRecorder.h"

#include "common/Text.h"
#include "support/Log.h"
#include "tools/browser/Console.h"

#include <cstdio>
#include <utility>

namespace Browser
{
LogRecorder::LogRecorder(bool show) : m_show(show)
{
    Quillon::Logging::SetLogSink(&LogRecorder::Receive, this);
}

LogRecorder::~LogRecorder()
{
    Quillon::Logging::SetLogSink(nullptr, nullptr);
}

std::vector<LogRecorder::Line> LogRecorder::Take()
{
    const std::lock_guard lock(m_lock);
    return std::exchange(m_lines, {});
}

void __stdcall LogRecorder::Receive(void* context, const Quillon::Logging::LogLine& line) noexcept
{
    auto& recorder = *static_cast<LogRecorder*>(context);
    try
    {
        const std::lock_guard lock(recorder.m_lock);
        const std::string text = Common::Utf8FromWide(line.text);
        if (recorder.m_show)
        {
            const std::string level = Common::Utf8FromWide(Quillon::Logging::GetLevelName(line.level));
            PrintError((line.isDetail ? std::string(level.size() + 3, ' ') + "  " : "[" + level + "] ") + text);
        }
        char time[40] = {};
        std::snprintf(time, sizeof(time), "%02u:%02u:%02u.%03u", line.time.wHour, line.time.wMinute, line.time.wSecond,
                      line.time.wMilliseconds);
        recorder.m_lines.push_back({static_cast<int>(line.level), line.isDetail, text, time});
    }
    catch (...)
    {
        // A line that there is no memory for is not worth the call that logged it.
    }
}
} // namespace Browser
