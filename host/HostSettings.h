// The settings of the sample host: properties of the message service's profile section. A setup program gives them as
// values of a MSG_SERVICE_CONFIGURE call, which the library stores there; the host reads them at every logon.
#pragma once

#include "support/ComPtr.h"
#include "support/StringW.h"

/// Options of the archive, bits below; a profile without it has none set. (0x67C0 lies in the range that MAPI leaves to
/// providers' profile sections; 0x67F0 to 0x67FF would be hidden from GetProps of all properties.)
#define PR_ARCHIVE_HOST_OPTIONS PROP_TAG(PT_LONG, 0x67C0)

/// Full path of a file to which the library's log is appended; without it the log goes where it went before, which is
/// the debugger's output in a process that set no sink.
#define PR_ARCHIVE_HOST_LOG_FILE PROP_TAG(PT_UNICODE, 0x67C1)

namespace ArchiveHost
{

/// Bits of PR_ARCHIVE_HOST_OPTIONS.
enum Options : LONG
{
    /// Folders, messages and attachments come as the library's plain wrappers, which refuse nothing: only the store
    /// itself is read-only then. Without it they refuse changes, too.
    OptionPlainWrappers = 0x1,
    /// Store modification is on: the archive can be filled. It holds for the whole process from the logon on.
    OptionModifyStores = 0x2,

    OptionsKnown = OptionPlainWrappers | OptionModifyStores
};

/// The settings as the host uses them.
struct HostSettings
{
    bool plainWrappers = false;
    bool modifyStores = false;
    /// Empty for none.
    Quillon::StringW logFile;
};

/// Reads the settings from the service's section; what is missing there has its default. Throws
/// Quillon::CComError(E_OUTOFMEMORY) only. Any thread.
HostSettings ReadHostSettings(IProfSect* section);

/// Puts into effect what concerns the whole process: the log file and the store modification switch. A log file that
/// cannot be opened is logged and otherwise left alone, since the archive is worth more than its log. Any thread.
void ApplyProcessSettings(const HostSettings& settings);

} // namespace ArchiveHost
