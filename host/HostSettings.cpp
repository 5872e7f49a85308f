// Reading and applying the sample host's settings.
#include "host/HostSettings.h"

#include "nst/KivNstCore.h"
#include "support/CallWrapping.h"
#include "support/MapiProperties.h"

#include <mutex>

using namespace Quillon;

namespace ArchiveHost
{
namespace
{

/// Sends the log to `path`, unless it goes there already: every logon comes through here.
void UseLogFile(const StringW& path)
{
    static std::mutex lock;
    static StringW current;
    const std::lock_guard guard(lock);
    if (current == path)
        return;
    Logging::LogToFile(path);
    current = path;
}

} // namespace

HostSettings ReadHostSettings(IProfSect* section)
{
    HostSettings settings;
    if (const auto options = Mapi::TryQueryItemProperty(section, PR_ARCHIVE_HOST_OPTIONS))
    {
        settings.plainWrappers = (options->Value.l & OptionPlainWrappers) != 0;
        settings.modifyStores = (options->Value.l & OptionModifyStores) != 0;
    }
    if (const auto logFile = Mapi::TryQueryItemProperty(section, PR_ARCHIVE_HOST_LOG_FILE))
        settings.logFile = StringW(logFile->Value.lpszW);
    return settings;
}

void ApplyProcessSettings(const HostSettings& settings)
{
    if (!settings.logFile.IsEmpty())
    {
        try
        {
            UseLogFile(settings.logFile);
        }
        catch (const CException& exception)
        {
            CaughtException(exception, L"ArchiveHost::ApplyProcessSettings");
        }
    }
    Nst::SetModifyStores(settings.modifyStores);
}

} // namespace ArchiveHost
