// What archive-setup leaves of the console in which it runs, and of the log's lines.
#include "nst/StoreProviderRegistration.h"
#include "support/Log.h"
#include "tests/common/Alone.h"
#include "tests/common/ImportHook.h"
#include "tests/common/Setting.h"
#include "tests/setup/MapiSvcInf.h"
#include "tests/setup/Tool.h"
#include "tools/setup/Commands.h"

#include <gmock/gmock.h>

#include <chrono>

using Tests::RunTool;

namespace
{

constexpr UINT codePage = 1252;

// The module whose operator new this program calls.
#if defined(_MSC_VER)
constexpr auto allocating = L"kivnst-setup-tests.exe";
#else
constexpr auto allocating = L"libstdc++-6.dll";
#endif

/// The test's own process survives the event that ends the tool.
BOOL WINAPI Survive(DWORD)
{
    return TRUE;
}

} // namespace

TEST_ALONE(Console, HasItsCodePageAfterACommand)
{
    ASSERT_TRUE(SetConsoleOutputCP(codePage)) << "there is no console";
    const Tests::TempFolder folder;
    for (const std::vector<std::wstring>& arguments :
         {std::vector<std::wstring>{L"--help"}, {L"frobnicate"}, {L"status", L"--inf", folder / L"missing.inf"}})
    {
        RunTool(arguments);
        EXPECT_EQ(GetConsoleOutputCP(), codePage) << Tests::Utf8(arguments.front());
    }
}

TEST_ALONE(Console, HasItsCodePageAfterCtrlC)
{
    ASSERT_TRUE(SetConsoleOutputCP(codePage)) << "there is no console";
    SetConsoleCtrlHandler(&Survive, TRUE);
    const Tests::TempFolder folder;
    const std::wstring path = folder / L"MAPISVC.INF";
    Tests::WriteFileBytes(path, Tests::SampleInf());
    // The tool waits ten seconds for the file.
    const Tests::FileMapping mapping(path);
    Tests::Tool tool({L"register", L"--inf", path, L"--service", L"A", L"--display", L"B", L"--dll", L"x.dll"});
    const auto begin = std::chrono::steady_clock::now();
    while (tool.ErrorsSoFar().find("retrying") == std::string::npos &&
           std::chrono::steady_clock::now() - begin < std::chrono::seconds(60))
        Sleep(50);
    EXPECT_EQ(GetConsoleOutputCP(), static_cast<UINT>(CP_UTF8));
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0));
    const std::string errors = tool.Finish().errors;
    EXPECT_EQ(errors.find("retrying 8 more"), std::string::npos) << "it was not ended";
    EXPECT_EQ(GetConsoleOutputCP(), codePage);
}

// The runtime's operator new, which takes its memory from here, belongs to this program alone.
TEST_ALONE(LogSink, LetsNoExceptionOutWithoutMemory)
{
    Setup::ShowLog(true);
    {
        const Tests::ImportHook<void*(std::size_t)> noMemory(
            "malloc", [](std::size_t) -> void* { return nullptr; }, allocating);
        Quillon::LogEntry(Quillon::LogId::Error, L"a line that is too long for a string without memory of its own");
    }
    Quillon::Logging::SetLogSink(nullptr, nullptr);
}
