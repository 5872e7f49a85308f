// The log: where its lines go, which levels are written, and the calls that write them.
#pragma once

#include "support/Export.h"
#include "support/StringW.h"

#include <windows.h>

namespace Quillon
{

/// The level of a log line.
enum class LogId : int
{
    Error = 0,     ///< failing results, forced exits, failed writes of MAPISVC.INF
    Warning = 1,   ///< warnings, refusals, lists of property tags
    Exception = 2, ///< "Throwing exception" and "Caught exception"
    Action = 3,    ///< notable actions: the PST module found or not, registration, index exclusion
    Trace = 4      ///< step by step progress; written only while trace logging is on
};

/// Writes one line; "(no text)" for a text that is null or empty. Leaves the last error as it was. Any thread.
KIVNST_API void LogEntry(LogId level, const wchar_t* text) noexcept;

/// The same for a detail line, which belongs to the entry just written by the same thread.
KIVNST_API void LogDetails(LogId level, const wchar_t* text) noexcept;

/// Formats (see StringW::AppendFormat) and writes one line. A line that there is no memory for is written as its bare
/// format. Nothing is formatted when the level is not written. Any thread.
KIVNST_API void LogFormattedEntry(LogId level, const wchar_t* format, ...) noexcept;

namespace Logging
{

/// One line on its way to the sink. It and its text live only for the length of the sink's call.
struct LogLine
{
    LogId level;
    bool isDetail;   ///< from LogDetails: belongs to the line before
    DWORD threadId;  ///< the thread that logged
    SYSTEMTIME time; ///< local time
    const wchar_t* text;
};

/// Receives the lines. Called on the thread that logs, on several threads at once. It must not throw, log, or call the
/// functions below.
using LogSink = void(CALLBACK*)(void* context, const LogLine& line);

/// Sends all lines to `sink`, which is given `context` with each; null sends them to the debugger's output, as at load.
/// Returns after the last line has left the old sink. Any thread.
KIVNST_API void SetLogSink(LogSink sink, void* context) noexcept;

/// Appends all lines to the file at `path`, in UTF-8, each with time, thread and level:
/// "2026-01-31 09:05:07.125 [1a2c] error: text". The file may be read, renamed and appended to by others meanwhile. It
/// is closed when another sink is set or the library is unloaded.
/// Throws CWinError when it cannot be opened, and leaves the old sink in place. Any thread.
KIVNST_API void LogToFile(const wchar_t* path);

/// Drops all lines, of every level, until one of the two above is called: nothing is formatted and nobody is asked for
/// an extended error meanwhile. Returns after the last line has left the old sink. Any thread.
KIVNST_API void TurnLogOff() noexcept;

/// The name of a level as the file shows it: "error", "warning", "exception", "action", "trace".
KIVNST_API const wchar_t* GetLevelName(LogId level) noexcept;

/// Whether lines of this level are written now: all but trace lines are, unless the log is off. Any thread.
KIVNST_API bool IsLogEnabled(LogId level) noexcept;

/// Switches trace lines on or off and returns the previous setting. Any thread.
KIVNST_API bool EnableTraceLogging(bool on) noexcept;

/// Has trace lines written while the PST module is sought once more, on any number of threads: when the last of them is
/// through, trace logging is as it was before the first.
class TracedSearch
{
public:
    TracedSearch() noexcept;
    TracedSearch(const TracedSearch&) = delete;
    TracedSearch& operator=(const TracedSearch&) = delete;
    ~TracedSearch();
};

/// Writes what the file sink may hold back to the disk. Any thread.
KIVNST_API void FlushLog() noexcept;

} // namespace Logging
} // namespace Quillon
