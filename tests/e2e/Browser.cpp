// The browser as a process.
#include "tests/e2e/Browser.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "tests/common/StartProcess.h"
#include "tests/e2e/Environment.h"
#include "tools/setup/Locations.h"

#include <algorithm>
#include <cstdlib>

using namespace Testbed;

namespace Tests
{
namespace
{
constexpr DWORD longestRun = 15 * 60 * 1000;
constexpr auto browserName = L"archive-browser.exe";

class Handle
{
public:
    explicit Handle(HANDLE handle) : m_handle(handle) {}
    ~Handle()
    {
        if (m_handle && m_handle != INVALID_HANDLE_VALUE)
            CloseHandle(m_handle);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    HANDLE Get() const noexcept { return m_handle; }

private:
    HANDLE m_handle;
};

HANDLE CreateInheritable(const std::filesystem::path& file)
{
    SECURITY_ATTRIBUTES inheritable{sizeof(inheritable), nullptr, TRUE};
    const HANDLE handle = CreateFileW(file.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE)
        Fail(MAPI_E_NO_ACCESS, L"\"" + file.wstring() + L"\" cannot be written.");
    return handle;
}

// An argument as the C runtime of the program takes it apart again.
std::wstring Quoted(const std::wstring& argument)
{
    std::wstring quoted = L"\"";
    size_t backslashes = 0;
    for (const wchar_t character : argument)
    {
        if (character == L'\\')
        {
            ++backslashes;
            continue;
        }
        quoted.append(character == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
        backslashes = 0;
        quoted += character;
    }
    return quoted.append(backslashes * 2, L'\\') + L"\"";
}

// A browser that runs, its output going to files.
class Process
{
public:
    Process(const std::filesystem::path& folder, const std::vector<std::wstring>& arguments,
            const wchar_t* name = browserName)
        : m_outputFile(folder / "output.txt"),
          m_errorFile(folder / "errors.txt"),
          m_output(CreateInheritable(m_outputFile)),
          m_errors(CreateInheritable(m_errorFile))
    {
        std::filesystem::path program = folder / name;
        if (!std::filesystem::exists(program))
            program = std::filesystem::path(Setup::GetProgramFolder()) / program.filename();
        std::wstring line = Quoted(program.wstring());
        // What the test names itself goes before.
        const bool isBrowser = name == std::wstring_view(browserName);
        if (isBrowser && std::find(arguments.begin(), arguments.end(), L"--profile") == arguments.end())
            line += L" --profile " + Quoted(ProfileOf(folder));
        if (isBrowser && std::find(arguments.begin(), arguments.end(), L"--service") == arguments.end())
            line += std::wstring(L" --service ") + hostService;
        for (const std::wstring& argument : arguments)
            line += L" " + Quoted(argument);
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = INVALID_HANDLE_VALUE;
        startup.hStdOutput = m_output.Get();
        startup.hStdError = m_errors.Get();
        PROCESS_INFORMATION information{};
        if (!Tests::StartProcess(program.c_str(), line.data(), true, folder.c_str(), startup, information))
            Fail(MAPI_E_NOT_FOUND, L"\"" + program.wstring() + L"\" cannot be started.");
        m_process = std::make_unique<Handle>(information.hProcess);
        const Handle thread(information.hThread);
    }

    bool Wait(DWORD milliseconds) const { return WaitForSingleObject(m_process->Get(), milliseconds) == WAIT_OBJECT_0; }
    void Kill() const
    {
        TerminateProcess(m_process->Get(), 99);
        Wait(longestRun);
    }
    DWORD ExitCode() const
    {
        DWORD code = 0;
        GetExitCodeProcess(m_process->Get(), &code);
        return code;
    }
    std::string Output() const { return ContentsOf(m_outputFile); }
    std::string Errors() const { return ContentsOf(m_errorFile); }

private:
    std::filesystem::path m_outputFile;
    std::filesystem::path m_errorFile;
    Handle m_output;
    Handle m_errors;
    std::unique_ptr<Handle> m_process;
};
} // namespace

BrowserRun RunTool(const std::filesystem::path& folder, const wchar_t* name, const std::vector<std::wstring>& arguments)
{
    const Process process(folder, arguments, name);
    if (!process.Wait(longestRun))
    {
        process.Kill();
        ADD_FAILURE() << Utf8FromWide(name) << " did not come to an end: " << process.Output();
    }
    return {process.ExitCode(), process.Output(), process.Errors()};
}

BrowserRun RunBrowser(const std::filesystem::path& folder, const std::vector<std::wstring>& arguments)
{
    return RunTool(folder, browserName, arguments);
}

nlohmann::ordered_json RunBrowserJson(const std::filesystem::path& folder, std::vector<std::wstring> arguments,
                                      unsigned long exitCode)
{
    arguments.insert(arguments.begin(), L"--json");
    const BrowserRun run = RunBrowser(folder, arguments);
    EXPECT_EQ(run.exitCode, exitCode) << run.errors << run.output.substr(0, 4000);
    auto json = nlohmann::ordered_json::parse(run.output, nullptr, false);
    EXPECT_FALSE(json.is_discarded()) << run.output.substr(0, 4000);
    return json.is_discarded() ? nlohmann::ordered_json() : json;
}

bool KillBrowser(const std::filesystem::path& folder, const std::vector<std::wstring>& arguments,
                 const std::function<bool(const std::string& output)>& enough)
{
    const Process process(folder, arguments);
    constexpr DWORD pause = 20;
    for (DWORD waited = 0; waited < longestRun; waited += pause)
    {
        if (process.Wait(pause))
            return false;
        if (enough(process.Output()))
        {
            process.Kill();
            return true;
        }
    }
    process.Kill();
    return false;
}
} // namespace Tests
