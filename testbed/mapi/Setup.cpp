// testbed-setup: registers the stand-in for the mail client on this computer.
#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"
#include "testbed/mapi/Registration.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace
{
constexpr int exitFailed = 1;
constexpr int exitUsage = 2;
} // namespace

// The C runtime calls it by its name.
int wmain(int argc, wchar_t** argv) // NOLINT(misc-use-internal-linkage)
{
    CLI::App app(
        "Writes the registry entries by which programs find the mail client's folder: its program outlook.exe, "
        "its MAPI module olmapi32.dll and its store provider mspst32.dll. Exit codes: 0 done, 1 failed, "
        "2 wrong arguments.",
        "testbed-setup");
    std::string folder;
    bool remove = false;
    auto* const folderOption = app.add_option("FOLDER", folder, "The folder that holds the three files");
    auto* const removeOption = app.add_flag("--remove", remove, "Take the entries out again");
    removeOption->excludes(folderOption);

    try
    {
        std::vector<std::string> arguments;
        for (int i = argc - 1; i > 0; --i)
            arguments.push_back(Testbed::Utf8FromWide(argv[i]));
        app.parse(arguments);
        if (!remove && folder.empty())
            throw CLI::RequiredError("FOLDER or --remove");
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? 0 : exitUsage;
    }

    try
    {
        if (remove)
        {
            Testbed::UnregisterMailClient();
            std::puts("The mail client is no longer registered.");
        }
        else
        {
            Testbed::RegisterMailClient(Testbed::WideFromUtf8(folder));
            std::printf("The mail client in %s is registered.\n", folder.c_str());
        }
        return 0;
    }
    catch (const std::exception& exception)
    {
        std::fprintf(stderr, "testbed-setup: %s\n", exception.what());
        return exitFailed;
    }
}
