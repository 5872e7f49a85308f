// Starting a test in a process of its own.
#include "tests/common/Alone.h"

#include "tests/common/StartProcess.h"
#include "tests/common/TestDouble.h"

#include <windows.h>

#include <string>
#include <utility>

namespace Tests
{
namespace
{

bool g_alone = false;

/// A handle that closes itself.
class Handle
{
public:
    Handle() noexcept = default;
    explicit Handle(HANDLE handle) noexcept : m_handle(handle) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { Close(); }
    HANDLE Get() const noexcept { return m_handle; }
    HANDLE* Put() noexcept { return &m_handle; }
    void Close() noexcept
    {
        if (m_handle)
            CloseHandle(std::exchange(m_handle, nullptr));
    }

private:
    HANDLE m_handle = nullptr;
};

std::wstring ProgramPath()
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return path;
}

/// What the process printed, and its exit code.
std::pair<std::string, DWORD> Run(std::wstring commandLine)
{
    SECURITY_ATTRIBUTES inherited = {sizeof(inherited), nullptr, TRUE};
    Handle output;
    Handle input;
    if (!CreatePipe(output.Put(), input.Put(), &inherited, 0))
        return {"no pipe", GetLastError()};
    SetHandleInformation(output.Get(), HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = input.Get();
    startup.hStdError = input.Get();
    PROCESS_INFORMATION started = {};
    // With a console of its own, too.
    if (!StartProcess(nullptr, commandLine.data(), true, nullptr, startup, started, CREATE_NO_WINDOW))
        return {"the process cannot be started", GetLastError()};
    const Handle process(started.hProcess);
    const Handle thread(started.hThread);
    input.Close();
    std::string text;
    char buffer[4096];
    DWORD count = 0;
    while (ReadFile(output.Get(), buffer, sizeof(buffer), &count, nullptr) && count != 0)
        text.append(buffer, count);
    WaitForSingleObject(process.Get(), INFINITE);
    DWORD exitCode = 0;
    GetExitCodeProcess(process.Get(), &exitCode);
    return {text, exitCode};
}

} // namespace

void SetAlone() noexcept
{
    g_alone = true;
}

void RunAlone(void (*body)())
{
    if (g_alone)
    {
        body();
        CountedObject::EndAll();
        return;
    }
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    const std::string name = std::string(test.test_suite_name()) + "." + test.name();
    const auto [output, exitCode] =
        Run(L"\"" + ProgramPath() + L"\" --alone --gtest_filter=" + std::wstring(name.begin(), name.end()));
    EXPECT_EQ(exitCode, 0u);
    // The line says that the test was run at all.
    EXPECT_TRUE(output.find("[  PASSED  ] 1 test.") != std::string::npos);
    if (testing::Test::HasFailure())
        ADD_FAILURE() << "the test in its own process:\n" << output;
}

} // namespace Tests
