// archive-setup.exe, run as a process.
#include "tests/setup/Tool.h"

#include "tests/common/LogCapture.h"
#include "tests/common/StartProcess.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <utility>

namespace Tests
{
namespace
{

/// A handle that closes itself.
class Handle
{
public:
    Handle() noexcept = default;
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { Close(); }
    HANDLE* Put() noexcept { return &m_handle; }
    HANDLE Get() const noexcept { return m_handle; }
    void Close() noexcept
    {
        if (m_handle)
            CloseHandle(std::exchange(m_handle, nullptr));
    }

private:
    HANDLE m_handle = nullptr;
};

/// What comes out of one end of a pipe, read by a thread of its own.
class PipeReader
{
public:
    PipeReader()
    {
        SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
        EXPECT_TRUE(CreatePipe(m_output.Put(), m_input.Put(), &inherited, 0));
        SetHandleInformation(m_output.Get(), HANDLE_FLAG_INHERIT, 0);
    }
    HANDLE Input() const noexcept { return m_input.Get(); }

    void Start()
    {
        m_input.Close();
        m_thread = std::thread(
            [this]
            {
                char buffer[4096];
                DWORD count = 0;
                while (ReadFile(m_output.Get(), buffer, sizeof(buffer), &count, nullptr) && count != 0)
                {
                    const std::lock_guard lock(m_lock);
                    m_text.append(buffer, count);
                }
            });
    }
    std::string Text() const
    {
        const std::lock_guard lock(m_lock);
        return m_text;
    }
    std::string Finish()
    {
        m_thread.join();
        return m_text;
    }

private:
    Handle m_output;
    Handle m_input;
    std::thread m_thread;
    mutable std::mutex m_lock;
    std::string m_text;
};

std::wstring Quoted(const std::wstring& argument)
{
    // No argument here has a quotation mark, or a backslash at its end.
    return L" \"" + argument + L"\"";
}

} // namespace

struct Tool::Process
{
    PipeReader output;
    PipeReader errors;
    Handle process;
    Handle thread;
    DWORD id = 0;
};

std::filesystem::path ProgramFolder()
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return std::filesystem::path(path).parent_path();
}

std::string Utf8(const std::wstring& text)
{
    return Narrow(text);
}

Tool::Tool(const std::vector<std::wstring>& arguments, DWORD flags) : m_process(std::make_unique<Process>())
{
    std::wstring commandLine = L"\"" + (ProgramFolder() / L"archive-setup.exe").make_preferred().wstring() + L"\"";
    for (const std::wstring& argument : arguments)
        commandLine += Quoted(argument);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = m_process->output.Input();
    startup.hStdError = m_process->errors.Input();
    PROCESS_INFORMATION started = {};
    EXPECT_TRUE(StartProcess(nullptr, commandLine.data(), true, nullptr, startup, started, flags))
        << "archive-setup.exe cannot be started, error " << GetLastError();
    *m_process->process.Put() = started.hProcess;
    *m_process->thread.Put() = started.hThread;
    m_process->id = started.dwProcessId;
    m_process->output.Start();
    m_process->errors.Start();
}

Tool::~Tool() = default;

DWORD Tool::ProcessId() const noexcept
{
    return m_process->id;
}

std::string Tool::ErrorsSoFar() const
{
    return m_process->errors.Text();
}

Result Tool::Finish()
{
    Result result;
    WaitForSingleObject(m_process->process.Get(), INFINITE);
    GetExitCodeProcess(m_process->process.Get(), &result.exitCode);
    result.output = m_process->output.Finish();
    result.errors = m_process->errors.Finish();
    std::erase(result.output, '\r');
    std::erase(result.errors, '\r');
    return result;
}

Result RunTool(const std::vector<std::wstring>& arguments)
{
    return Tool(arguments).Finish();
}

} // namespace Tests
