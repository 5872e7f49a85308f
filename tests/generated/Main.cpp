// The main of the generated tests: its arguments, and the count at its end.
#include "support/Log.h"
#include "tests/common/Alone.h"
#include "tests/common/LeakListener.h"
#include "tests/common/TestName.h"
#include "tests/generated/Cases.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

namespace
{

/// Puts an argument into the environment, where the processes that are started find it too. False when it is none of
/// these.
bool TakeArgument(std::string_view argument)
{
    constexpr std::pair<std::string_view, const char*> known[] = {
        {"--seed=", "KIVNST_SEED"},
        {"--cases=", "KIVNST_CASES"},
        {"--seconds=", "KIVNST_SECONDS"},
        {"--case=", "KIVNST_CASE"},
    };
    for (const auto& [prefix, variable] : known)
    {
        if (!argument.starts_with(prefix))
            continue;
        SetEnvironmentVariableA(variable, std::string(argument.substr(prefix.size())).c_str());
        return true;
    }
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    bool isAlone = false;
    for (int index = 1; index < argc; ++index)
    {
        if (std::string_view(argv[index]) == "--alone")
            isAlone = true;
        else if (!TakeArgument(argv[index]))
        {
            std::fprintf(stderr, "usage: %s [--seed=N] [--cases=N] [--seconds=N] [--case=N]\n", argv[0]);
            return 2;
        }
    }
    try
    {
        Tests::GetRunSettings();
        Tests::ShareCaseCount();
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "kivnst-generated-tests: %s\n", error.what());
        return 2;
    }
    // The debugger's output, where lines go by themselves, takes longer than all else here.
    Quillon::Logging::SetLogSink([](void*, const Quillon::Logging::LogLine&) {}, nullptr);
    if (isAlone)
        Tests::SetAlone();
    else
    {
        Tests::InstallLeakListener();
        Tests::InstallTestName();
    }
    const int result = RUN_ALL_TESTS();
    if (!isAlone)
    {
        std::printf("cases generated: %llu (seed %llu)\n", static_cast<unsigned long long>(Tests::CountCases()),
                    static_cast<unsigned long long>(Tests::GetRunSettings().seed));
    }
    return result;
}
