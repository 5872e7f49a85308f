// The log's sinks.
#include "support/Log.h"

#include "support/CallWrapping.h"
#include "support/Format.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
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
    /// Marks the thread that is writing a line. What it logs meanwhile is dropped: a line that there is no memory for
    /// would otherwise log that there is none, and so on.
    DWORD writing = TlsAlloc();
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

/// The mark, as long as it lives.
class WritingMark
{
public:
    explicit WritingMark(DWORD slot) noexcept : m_slot(slot) { TlsSetValue(m_slot, this); }
    WritingMark(const WritingMark&) = delete;
    WritingMark& operator=(const WritingMark&) = delete;
    ~WritingMark() { TlsSetValue(m_slot, nullptr); }

private:
    DWORD m_slot;
};

std::atomic<bool> g_traceLogging = false;

void WriteToDebugger(const Logging::LogLine& line)
{
    OutputDebugStringW(FormatString(L"KivNst %s: %s%s\r\n", Logging::GetLevelName(line.level),
                                    line.isDetail ? L"    " : L"", line.text));
}

void WriteToFile(const File& file, SRWLOCK& turn, const Logging::LogLine& line)
{
    const SYSTEMTIME& time = line.time;
    const StringW text =
        FormatString(L"%04u-%02u-%02u %02u:%02u:%02u.%03u [%lx] %s: %s%s\r\n", time.wYear, time.wMonth, time.wDay,
                     time.wHour, time.wMinute, time.wSecond, time.wMilliseconds, line.threadId,
                     Logging::GetLevelName(line.level), line.isDetail ? L"    " : L"", line.text);
    const StringA bytes(text, CP_UTF8);
    // One call a line: with append access the lines of several processes do not mix. Those of this one take turns, for
    // not every system finds the file's end and writes there in one step.
    const ExclusiveLock lock(turn);
    DWORD written = 0;
    WriteFile(file.Get(), bytes.GetString(), static_cast<DWORD>(bytes.GetLength()), &written, nullptr);
}

void WriteLine(LogId level, const wchar_t* text, bool isDetail) noexcept
{
    if (!Logging::IsLogEnabled(level))
        return;
    // A line must not disturb the error code of the failure that it tells of.
    const DWORD lastError = GetLastError();
    Logging::LogLine line{level, isDetail, GetCurrentThreadId(), {}, text ? text : L""};
    GetLocalTime(&line.time);
    Sink& sink = GetSink();
    if (!TlsGetValue(sink.writing))
    {
        const WritingMark mark(sink.writing);
        try
        {
            const SharedLock lock(sink.lock);
            if (sink.function)
                sink.function(sink.context, line);
            else if (sink.file.IsOpen())
                WriteToFile(sink.file, sink.fileTurn, line);
            else
                WriteToDebugger(line);
        }
        catch (...) // NOLINT(bugprone-empty-catch): there is nowhere left to report to
        {
        }
    }
    SetLastError(lastError);
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
    va_list arguments;
    va_start(arguments, format);
    try
    {
        StringW text;
        text.AppendFormatArguments(format, arguments);
        WriteLine(level, text, false);
    }
    catch (const CException&)
    {
        WriteLine(level, format, false);
    }
    va_end(arguments);
}

namespace Logging
{

void SetLogSink(LogSink sink, void* context) noexcept
{
    File old;
    Sink& current = GetSink();
    const ExclusiveLock lock(current.lock);
    current.function = sink;
    current.context = context;
    std::swap(old, current.file);
}

void LogToFile(const wchar_t* path)
{
    File file(CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                          OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.IsOpen())
        Throw(CWinError(GetLastError(), path), L"Quillon::Logging::LogToFile");
    Sink& current = GetSink();
    const ExclusiveLock lock(current.lock);
    current.function = nullptr;
    current.context = nullptr;
    std::swap(file, current.file);
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
    return level != LogId::Trace || g_traceLogging.load(std::memory_order_relaxed);
}

bool EnableTraceLogging(bool on) noexcept
{
    return g_traceLogging.exchange(on, std::memory_order_relaxed);
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
