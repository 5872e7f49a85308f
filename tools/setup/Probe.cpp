// Loading a host's DLL by archive-probe.exe.
#include "tools/setup/Probe.h"

#include "support/Format.h"
#include "support/MapiProperties.h"
#include "support/Os.h"
#include "support/OutlookAddIn.h"
#include "tools/setup/Locations.h"
#include "tools/setup/Text.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace Setup
{
namespace
{

namespace Os = Quillon::Os;

constexpr DWORD longestLoading = 60 * 1000;
/// More than the probe ever says, so that it never waits for somebody to read it.
constexpr DWORD pipeSize = 1 << 18;

class Handle
{
public:
    Handle() noexcept = default;
    explicit Handle(HANDLE handle) noexcept : m_handle(handle) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle()
    {
        if (m_handle)
            CloseHandle(m_handle);
    }
    HANDLE Get() const noexcept { return m_handle; }
    HANDLE* Put() noexcept { return &m_handle; }

private:
    HANDLE m_handle = nullptr;
};

/// The argument as the program's runtime takes it apart again; there are no quotation marks in paths.
std::wstring QuoteArgument(const std::wstring& path)
{
    const std::size_t end = path.find_last_not_of(L'\\') + 1;
    return L" \"" + path + std::wstring(path.size() - end, L'\\') + L"\"";
}

[[noreturn]] void Fail(const std::wstring& program)
{
    throw SetupError(L"\"" + program + L"\", which tries the DLL out, cannot be used: " +
                     Quillon::FormatSystemError(GetLastError(), false).GetString());
}

std::string ReadAll(HANDLE pipe)
{
    DWORD size = 0;
    if (!PeekNamedPipe(pipe, nullptr, 0, nullptr, &size, nullptr) || size == 0)
        return {};
    std::string text(size, '\0');
    if (!ReadFile(pipe, text.data(), size, &size, nullptr))
        return {};
    text.resize(size);
    return text;
}

std::wstring FormatCode(DWORD code)
{
    wchar_t text[16] = {};
    std::swprintf(text, std::size(text), L"0x%08lX", code);
    return text;
}

} // namespace

std::vector<DllProblem> ProbeDll(const std::wstring& path)
{
    const std::wstring program = GetProgramFolder() + L"\\archive-probe.exe";
    std::wstring commandLine = L"\"" + program + L"\"" + QuoteArgument(path);
    // The mail client's folders, where its process looks for modules.
    for (const Quillon::StringW& module : {Quillon::OutlookAddIn::GetOutlookPath(), Quillon::Mapi::GetMapiPath()})
        if (!module.IsEmpty())
            commandLine += QuoteArgument(Os::GetDirectoryFromPath(module).GetString());

    SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
    Handle output;
    Handle input;
    if (!CreatePipe(output.Put(), input.Put(), &inherited, pipeSize) ||
        !SetHandleInformation(output.Get(), HANDLE_FLAG_INHERIT, 0))
        Fail(program);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = input.Get();
    startup.hStdError = input.Get();
    PROCESS_INFORMATION started = {};
    if (!CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr,
                        &startup, &started))
        Fail(program);
    const Handle process(started.hProcess);
    const Handle thread(started.hThread);

    std::vector<DllProblem> problems;
    if (WaitForSingleObject(process.Get(), longestLoading) != WAIT_OBJECT_0)
    {
        TerminateProcess(process.Get(), ERROR_TIMEOUT);
        problems.push_back({L"cannot be loaded", L"loading " + path + L" takes more than a minute"});
        return problems;
    }
    // Each problem is a line; the DLL may have printed others, and may have ended the process.
    bool isDone = false;
    const std::string mark = "problem\t";
    const std::string text = ReadAll(output.Get());
    for (std::size_t begin = 0; begin < text.size();)
    {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        std::string line = text.substr(begin, end - begin);
        std::erase(line, '\r');
        isDone = isDone || line == "done";
        begin = end + 1;
        const std::size_t tab = line.find('\t', mark.size());
        if (line.starts_with(mark) && tab != std::string::npos)
            problems.push_back({ToWide(line.substr(mark.size(), tab - mark.size())), ToWide(line.substr(tab + 1))});
    }
    DWORD exitCode = 0;
    GetExitCodeProcess(process.Get(), &exitCode);
    if (exitCode != 0 || !isDone)
    {
        problems.push_back({L"cannot be loaded",
                            L"the process that loaded " + path + L" ended with the code " + FormatCode(exitCode)});
    }
    return problems;
}

} // namespace Setup
