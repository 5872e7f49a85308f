// Reading and applying the sample host's settings.
#include "host/HostSettings.h"

#include "nst/KivNstCore.h"
#include "support/CallWrapping.h"
#include "support/MapiProperties.h"

using namespace Quillon;

namespace ArchiveHost
{

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
            // At every logon: nothing static is left to be destroyed at the end of the process.
            Logging::LogToFile(settings.logFile);
        }
        catch (const CException& exception)
        {
            CaughtException(exception, L"ArchiveHost::ApplyProcessSettings");
        }
    }
    Nst::SetModifyStores(settings.modifyStores);
}

} // namespace ArchiveHost
