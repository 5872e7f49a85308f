// The log's sinks.
#include "support/Log.h"

#include "support/ArgumentList.h"
#include "support/CallWrapping.h"
#include "support/Format.h"
#include "support/LastError.h"
#include "support/ThreadMark.h"

#include <atomic>
#include <cstdint>
#include <new>
#include <utility>

namespace Quillon
{
namespace
{

/// A file handle that closes itself.
class File
{
public:
    File() noexcept = default;
    explicit File(HANDLE handle) noexcept : m_handle(handle) {}
    File(File&& other) noexcept : m_handle(std::exchange(other.m_handle, INVALID_HANDLE_VALUE)) {}
    File& operator=(File&& other) noexcept
    {
        std::swap(m_handle, other.m_handle);
        return *this;
    }
    ~File()
    {
        if (IsOpen())
            CloseHandle(m_handle);
    }
    bool IsOpen() const noexcept { return m_handle != INVALID_HANDLE_VALUE; }
    HANDLE Get() const noexcept { return m_handle; }

private:
    HANDLE m_handle = INVALID_HANDLE_VALUE;
};

/// Where the lines go. Logging reads it under the shared lock, so that a line never meets a sink that is being
/// replaced. It is never destroyed: a line may be logged as late as the module's own unloading.
struct Sink
{
    SRWLOCK lock = SRWLOCK_INIT;
    Logging::LogSink function = nullptr;
    void* context = nullptr;
    File file;
    SRWLOCK fileTurn = SRWLOCK_INIT;
};

Sink& GetSink() noexcept
{
    alignas(Sink) static unsigned char storage[sizeof(Sink)];
    static Sink* const sink = new (storage) Sink;
    return *sink;
}

class SharedLock
{
public:
    explicit SharedLock(SRWLOCK& lock) noexcept : m_lock(lock) { AcquireSRWLockShared(&m_lock); }
    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;
    ~SharedLock() { ReleaseSRWLockShared(&m_lock); }

private:
    SRWLOCK& m_lock;
};

class ExclusiveLock
{
public:
    explicit ExclusiveLock(SRWLOCK& lock) noexcept : m_lock(lock) { AcquireSRWLockExclusive(&m_lock); }
    ExclusiveLock(const ExclusiveLock&) = delete;
    ExclusiveLock& operator=(const ExclusiveLock&) = delete;
    ~ExclusiveLock() { ReleaseSRWLockExclusive(&m_lock); }

private:
    SRWLOCK& m_lock;
};

/// Whether trace lines are written, and for how many searches they are; in one word, so that it changes at once.
struct Tracing
{
    bool isOn = false;
    bool wasOn = false; ///< before the first of the searches
    std::uint16_t searches = 0;
};

std::atomic<Tracing> g_tracing = Tracing();
static_assert(std::atomic<Tracing>::is_always_lock_free);

/// Replaces the word by what `change` makes of it; gives what it was.
template <class Change>
Tracing ChangeTracing(Change&& change) noexcept
{
    Tracing old = g_tracing;
    Tracing changed = change(old);
    while (!g_tracing.compare_exchange_weak(old, changed))
        changed = change(old);
    return old;
}

/// Whether all lines are dropped; changed under the sink's lock.
std::atomic<bool> g_isOff = false;

/// Replaces the sink; waits for the lines on their way to the old one. What was open is closed by the caller.
void ReplaceSink(Logging::LogSink function, void* context, File& file, bool isOff) noexcept
{
    Sink& sink = GetSink();
    const ExclusiveLock lock(sink.lock);
    sink.function = function;
    sink.context = context;
    std::swap(file, sink.file);
    g_isOff = isOff;
}

/// The line for one that there is no memory for.
constexpr char withoutMemory[] = "a line of the log is missing here: out of memory\r\n";

void WriteToDebugger(const Logging::LogLine& line)
{
    OutputDebugStringW(FormatString(L"KivNst %s: %s%s\r\n", Logging::GetLevelName(line.level),
                                    line.isDetail ? L"    " : L"", line.text));
}

void WriteBytes(Sink& sink, const char* bytes, std::size_t size) noexcept
{
    // One call a line: with append access the lines of several processes do not mix. Those of this one take turns, for
    // not every system finds the file's end and writes there in one step.
    const ExclusiveLock lock(sink.fileTurn);
    DWORD written = 0;
    WriteFile(sink.file.Get(), bytes, static_cast<DWORD>(size), &written, nullptr);
}

void WriteToFile(Sink& sink, const Logging::LogLine& line)
{
    const SYSTEMTIME& time = line.time;
    const StringW text =
        FormatString(L"%04u-%02u-%02u %02u:%02u:%02u.%03u [%lx] %s: %s%s\r\n", time.wYear, time.wMonth, time.wDay,
                     time.wHour, time.wMinute, time.wSecond, time.wMilliseconds, line.threadId,
                     Logging::GetLevelName(line.level), line.isDetail ? L"    " : L"", line.text);
    const StringA bytes(text, CP_UTF8);
    WriteBytes(sink, bytes.GetString(), bytes.GetLength());
}

void WriteLine(LogId level, const wchar_t* text, bool isDetail) noexcept
{
    if (!Logging::IsLogEnabled(level))
        return;
    // A line must not disturb the error code of the failure that it tells of.
    const Detail::KeepLastError lastError;
    // What a thread logs while it writes a line is dropped: a line that there is no memory for would otherwise log that
    // there is none, and so on.
    const Detail::ThreadMark mark(Detail::Doing::WritingLine);
    if (mark.IsNested())
        return;
    Logging::LogLine line{level, isDetail, GetCurrentThreadId(), {}, text && *text ? text : L"(no text)"};
    GetLocalTime(&line.time);
    Sink& sink = GetSink();
    const SharedLock lock(sink.lock);
    if (g_isOff)
        return; // since the line was begun
    try
    {
        if (sink.function)
            sink.function(sink.context, line);
        else if (sink.file.IsOpen())
            WriteToFile(sink, line);
        else
            WriteToDebugger(line);
    }
    catch (...)
    {
        if (sink.function)
            return; // a host's sink that throws: there is nowhere to report to
        if (sink.file.IsOpen())
            WriteBytes(sink, withoutMemory, sizeof(withoutMemory) - 1);
        else
            OutputDebugStringA(withoutMemory);
    }
}

} // namespace

void LogEntry(LogId level, const wchar_t* text) noexcept
{
    WriteLine(level, text, false);
}

void LogDetails(LogId level, const wchar_t* text) noexcept
{
    WriteLine(level, text, true);
}

void LogFormattedEntry(LogId level, const wchar_t* format, ...) noexcept
{
    if (!Logging::IsLogEnabled(level))
        return;
    Detail::ArgumentList arguments;
    va_start(arguments.list, format);
    try
    {
        StringW text;
        text.AppendFormatArguments(format, arguments.list);
        WriteLine(level, text, false);
    }
    catch (const CException&)
    {
        WriteLine(level, format, false);
    }
}

namespace Logging
{

void SetLogSink(LogSink sink, void* context) noexcept
{
    File none;
    ReplaceSink(sink, context, none, false);
}

void LogToFile(const wchar_t* path)
{
    File file(CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                          OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.IsOpen())
        Throw(CWinError(GetLastError(), path), L"Quillon::Logging::LogToFile");
    ReplaceSink(nullptr, nullptr, file, false);
}

void TurnLogOff() noexcept
{
    File none;
    ReplaceSink(nullptr, nullptr, none, true);
}

const wchar_t* GetLevelName(LogId level) noexcept
{
    switch (level)
    {
    case LogId::Error:
        return L"error";
    case LogId::Warning:
        return L"warning";
    case LogId::Exception:
        return L"exception";
    case LogId::Action:
        return L"action";
    case LogId::Trace:
        return L"trace";
    }
    return L"unknown level";
}

bool IsLogEnabled(LogId level) noexcept
{
    return !g_isOff.load(std::memory_order_relaxed) &&
           (level != LogId::Trace || g_tracing.load(std::memory_order_relaxed).isOn);
}

bool EnableTraceLogging(bool on) noexcept
{
    const Tracing old = ChangeTracing([on](Tracing tracing) { return Tracing{on, tracing.wasOn, tracing.searches}; });
    return old.isOn;
}

TracedSearch::TracedSearch() noexcept
{
    ChangeTracing(
        [](Tracing tracing)
        {
            const bool wasOn = tracing.searches == 0 ? tracing.isOn : tracing.wasOn;
            return Tracing{true, wasOn, static_cast<std::uint16_t>(tracing.searches + 1)};
        });
}

TracedSearch::~TracedSearch()
{
    ChangeTracing(
        [](Tracing tracing)
        {
            const bool isOn = tracing.searches == 1 ? tracing.wasOn : tracing.isOn;
            return Tracing{isOn, tracing.wasOn, static_cast<std::uint16_t>(tracing.searches - 1)};
        });
}

void FlushLog() noexcept
{
    Sink& sink = GetSink();
    const SharedLock lock(sink.lock);
    if (sink.file.IsOpen())
        FlushFileBuffers(sink.file.Get());
}

} // namespace Logging
} // namespace Quillon
