#include "tests/runtime/ProcessEnd.h"

#include "tests/runtime/Probe.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <sstream>
#include <thread>

namespace
{

// Without a destructor, for the lines that come last; written at once, for a process that ends in any way.
constinit SRWLOCK g_lock = SRWLOCK_INIT;
std::vector<std::string>* g_lines = nullptr;
bool g_toOutput = false;

void WriteLine(const char* text)
{
    const std::string line = std::string(text) + "\n";
    DWORD written = 0;
    WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
}

} // namespace

extern "C" __declspec(dllexport) void __cdecl RecordLine(const char* line)
{
    if (g_toOutput)
    {
        WriteLine(line);
        return;
    }
    AcquireSRWLockExclusive(&g_lock);
    if (!g_lines)
        g_lines = new std::vector<std::string>;
    g_lines->emplace_back(line);
    ReleaseSRWLockExclusive(&g_lock);
}

namespace
{

class Marker
{
public:
    explicit Marker(const char* name) : m_name(name) {}
    Marker(const Marker&) = delete;
    Marker& operator=(const Marker&) = delete;
    ~Marker()
    {
        if (g_toOutput)
            WriteLine(m_name);
    }

private:
    const char* m_name;
};

const Marker programMarker("static of the program");
thread_local const Marker threadMarker("variable of the thread");

} // namespace

namespace ProcessEnd
{

std::vector<std::string> TakeLines()
{
    AcquireSRWLockExclusive(&g_lock);
    std::vector<std::string> lines;
    if (g_lines)
        lines.swap(*g_lines);
    ReleaseSRWLockExclusive(&g_lock);
    return lines;
}

int EndProcess(const wchar_t* way)
{
    g_toOutput = true;
    static_cast<void>(&threadMarker);
    std::atexit([] { WriteLine("exit function of the program"); });
    const std::wstring file = []
    {
        wchar_t folder[MAX_PATH] = {};
        GetEnvironmentVariableW(L"KIVNST_BIN", folder, MAX_PATH);
        return std::wstring(folder) + L"\\..\\unit-doubles\\runtime-probe.dll";
    }();
    if (!LoadLibraryW(file.c_str()))
        return 90;
    const std::wstring how = way;
    if (how == L"return")
        return 5;
    if (how == L"exit")
        std::exit(6);
    if (how == L"ExitProcess")
        ExitProcess(7);
    if (how == L"throw")
        throw 1;
    if (how == L"throw in a thread")
        std::thread([] { throw 1; }).join();
    return 91;
}

Outcome RunProcess(const wchar_t* way)
{
    wchar_t program[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring command = L"\"" + std::wstring(program) + L"\" --end \"" + way + L"\"";
    SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
    const HANDLE output = CreateFileW(L"process-end.txt", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, &inherited,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION process = {};
    Outcome outcome = {~0ul, {}};
    if (CreateProcessW(program, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process))
    {
        WaitForSingleObject(process.hProcess, INFINITE);
        GetExitCodeProcess(process.hProcess, &outcome.exitCode);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
    }
    std::string text(4096, '\0');
    DWORD read = 0;
    SetFilePointer(output, 0, nullptr, FILE_BEGIN);
    ReadFile(output, text.data(), static_cast<DWORD>(text.size()), &read, nullptr);
    CloseHandle(output);
    text.resize(read);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        outcome.lines.push_back(line);
    return outcome;
}

} // namespace ProcessEnd
