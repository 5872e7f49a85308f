// The library's log, kept and, on demand, shown.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace Quillon::Logging
{
struct LogLine;
}

namespace Browser
{
/// While it lives, receives all lines that the library logs. One at a time. Thread-safe.
class LogRecorder
{
public:
    /// With `show` each line goes to the error stream as it comes: "[warning] text".
    explicit LogRecorder(bool show);
    ~LogRecorder();
    LogRecorder(const LogRecorder&) = delete;
    LogRecorder& operator=(const LogRecorder&) = delete;

    struct Line
    {
        int level = 0;
        bool isDetail = false;
        std::string text;
        /// The local time of day: "09:05:07.125".
        std::string time;
    };

    /// Gives the lines since the last call.
    std::vector<Line> Take();

private:
    static void __stdcall Receive(void* context, const Quillon::Logging::LogLine& line) noexcept;

    std::mutex m_lock;
    std::vector<Line> m_lines;
    bool m_show;
};
} // namespace Browser
