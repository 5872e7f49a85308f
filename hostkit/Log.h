// The host's log: files of a size and a number that do not grow, in the library's own form of lines.
#pragma once

#include "hostkit/Archive.h"
#include "hostkit/Lock.h"
#include "support/Die.h"
#include "support/Format.h"
#include "support/Log.h"

namespace KivNstHostKit
{

/// The library's log in a file of the host's: one for the module, shared by its archives. A file that a line would make
/// too large is renamed with ".1", the one before it with ".2" and so on, and a new one is begun; several processes may
/// write into the same file. Before the process is ended by a fatal code the file is flushed. Any thread.
///
/// The library has one log in a process: where several hosts share a KivNst.dll, the last one that opened its log gets
/// the lines of all.
class CHostLog
{
public:
    /// The module's log. It is never destroyed: lines may come until the module is unloaded.
    static CHostLog& Get() noexcept
    {
        alignas(CHostLog) static unsigned char storage[sizeof(CHostLog)];
        static CHostLog* const log = new (storage) CHostLog;
        return *log;
    }

    CHostLog(const CHostLog&) = delete;
    CHostLog& operator=(const CHostLog&) = delete;

    /// Sends the library's lines to the file; nothing for an empty path. A file that cannot be opened is logged where
    /// the lines went before, and otherwise left alone: an archive is worth more than its log.
    void Open(const LogSettings& settings) noexcept
    {
        if (settings.path.IsEmpty())
            return;
        const HRESULT hr = AtBoundary(L"KivNstHostKit::CHostLog::Open",
                                      [&]
                                      {
                                          LogSettings copy = settings;
                                          const CLock lock(m_lock);
                                          if (m_file != INVALID_HANDLE_VALUE && copy.path == m_settings.path)
                                          {
                                              std::swap(m_settings, copy);
                                              return;
                                          }
                                          const HANDLE file = OpenFile(copy.path);
                                          if (file == INVALID_HANDLE_VALUE)
                                              throw Quillon::CWinError(GetLastError(), copy.path);
                                          CloseFile();
                                          m_file = file;
                                          std::swap(m_settings, copy);
                                      });
        if (FAILED(hr))
            return;
        // Each time: another sink may have been set since.
        Quillon::Logging::SetLogSink(&Write, this);
        Quillon::SetDieHandler(&FlushBeforeEnd, this);
        m_isSink = true;
    }

    /// Ends the log, as the module's unloading does; lines go to the debugger's output again. Not at the end of the
    /// process, where the threads that might hold its lock are gone.
    void Close() noexcept
    {
        if (m_isSink)
        {
            Quillon::Logging::SetLogSink(nullptr, nullptr);
            Quillon::SetDieHandler(nullptr, nullptr);
            m_isSink = false;
        }
        const CLock lock(m_lock);
        CloseFile();
        m_settings = LogSettings();
    }

private:
    CHostLog() noexcept = default;
    ~CHostLog() = default;

    static HANDLE OpenFile(const wchar_t* path) noexcept
    {
        return CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                           OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    }

    void CloseFile() noexcept
    {
        if (m_file != INVALID_HANDLE_VALUE)
            CloseHandle(m_file);
        m_file = INVALID_HANDLE_VALUE;
    }

    /// Whether the file has room for `size` bytes more. One that is empty always has.
    bool HasRoom(std::size_t size) const noexcept
    {
        LARGE_INTEGER used = {};
        return m_file != INVALID_HANDLE_VALUE &&
               (!GetFileSizeEx(m_file, &used) || used.QuadPart == 0 ||
                used.QuadPart + static_cast<LONGLONG>(size) <= m_settings.bytesPerFile);
    }

    StringW Older(unsigned number) const
    {
        return number == 0 ? m_settings.path : Quillon::FormatString(L"%s.%u", m_settings.path.GetString(), number);
    }

    /// Begins a new file. Where another process has just done so, that one is taken.
    void Turn(std::size_t size)
    {
        CloseFile();
        m_file = OpenFile(m_settings.path);
        if (HasRoom(size))
            return;
        CloseFile();
        for (unsigned number = m_settings.files; number > 1; --number)
            MoveFileExW(Older(number - 2), Older(number - 1), MOVEFILE_REPLACE_EXISTING);
        if (m_settings.files <= 1)
            DeleteFileW(m_settings.path);
        m_file = OpenFile(m_settings.path);
    }

    void WriteBytes(const char* bytes, std::size_t size)
    {
        const CLock lock(m_lock);
        if (m_settings.path.IsEmpty())
            return;
        if (!HasRoom(size))
            Turn(size);
        DWORD written = 0;
        if (m_file != INVALID_HANDLE_VALUE)
            WriteFile(m_file, bytes, static_cast<DWORD>(size), &written, nullptr);
    }

    static void CALLBACK Write(void* context, const Quillon::Logging::LogLine& line)
    {
        auto& self = *static_cast<CHostLog*>(context);
        try
        {
            const SYSTEMTIME& time = line.time;
            const StringW text = Quillon::FormatString(
                L"%04u-%02u-%02u %02u:%02u:%02u.%03u [%lx] %s: %s%s\r\n", time.wYear, time.wMonth, time.wDay,
                time.wHour, time.wMinute, time.wSecond, time.wMilliseconds, line.threadId,
                Quillon::Logging::GetLevelName(line.level), line.isDetail ? L"    " : L"", line.text);
            const Quillon::StringA bytes(text, CP_UTF8);
            self.WriteBytes(bytes.GetString(), bytes.GetLength());
        }
        catch (...)
        {
            constexpr char missing[] = "a line of the log is missing here: out of memory\r\n";
            const CLock lock(self.m_lock);
            DWORD written = 0;
            if (self.m_file != INVALID_HANDLE_VALUE)
                WriteFile(self.m_file, missing, sizeof(missing) - 1, &written, nullptr);
        }
    }

    static void __stdcall FlushBeforeEnd(void* context, unsigned /*code*/)
    {
        auto& self = *static_cast<CHostLog*>(context);
        const CLock lock(self.m_lock);
        if (self.m_file != INVALID_HANDLE_VALUE)
            FlushFileBuffers(self.m_file);
    }

    SRWLOCK m_lock = SRWLOCK_INIT;
    HANDLE m_file = INVALID_HANDLE_VALUE;
    LogSettings m_settings;
    bool m_isSink = false;
};

} // namespace KivNstHostKit
