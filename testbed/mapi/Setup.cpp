// testbed-setup: registers the stand-in for the mail client on this computer.
#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"
#include "testbed/mapi/Registration.h"

#include <cstdio>
#include <string_view>

namespace
{
constexpr int exitFailed = 1;
constexpr int exitUsage = 2;

constexpr auto usage = "usage: testbed-setup FOLDER | --remove\n"
                       "Writes the registry entries by which programs find the mail client's folder: its program "
                       "outlook.exe, its MAPI module olmapi32.dll and its store provider mspst32.dll; --remove takes "
                       "them out again. Exit codes: 0 done, 1 failed, 2 wrong arguments.\n";
} // namespace

// The C runtime calls it by its name.
int wmain(int argc, wchar_t** argv) // NOLINT(misc-use-internal-linkage)
{
    const std::wstring_view argument = argc == 2 ? argv[1] : L"";
    if (argument == L"--help")
    {
        std::fputs(usage, stdout);
        return 0;
    }
    if (argument.empty() || (argument.starts_with(L"-") && argument != L"--remove"))
    {
        std::fputs(usage, stderr);
        return exitUsage;
    }
    try
    {
        if (argument == L"--remove")
        {
            Testbed::UnregisterMailClient();
            std::puts("The mail client is no longer registered.");
        }
        else
        {
            Testbed::RegisterMailClient(std::wstring(argument));
            std::printf("The mail client in %s is registered.\n", Testbed::Utf8FromWide(argument).c_str());
        }
        return 0;
    }
    catch (const std::exception& exception)
    {
        std::fprintf(stderr, "testbed-setup: %s\n", exception.what());
        return exitFailed;
    }
}
