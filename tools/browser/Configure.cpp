// The command "configure", and the profile that all commands use.
#include "common/Boundary.h"
#include "tools/browser/Commands.h"
#include "tools/browser/MapiTools.h"

#include <system_error>

namespace Browser
{
std::shared_ptr<Testbed::Profile> Options::OpenProfile() const
{
    return Testbed::Profile::Open(profile);
}

int RunConfigure(const Options& options, const std::filesystem::path& archive)
{
    std::error_code error;
    const auto folder = std::filesystem::absolute(archive).parent_path();
    if (!std::filesystem::is_directory(folder, error))
        Common::Fail(MAPI_E_NOT_FOUND, L"There is no folder \"" + folder.wstring() + L"\" for an archive to lie in.");
    std::filesystem::create_directories(std::filesystem::absolute(options.profile).parent_path());
    ArchiveSession session(options.OpenProfile());
    session.Configure(archive, options.setting);
    const std::string path = Utf8(session.ArchivePath().wstring());
    PrintLine(options.json ? Json{{"archive", path}, {"setting", options.setting.Name()}}.dump(2)
                           : "The profile's archive is " + path + " (" + options.setting.Name() + ").");
    return exitOk;
}
} // namespace Browser
