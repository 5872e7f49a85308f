// The settings of the sample host: properties of the message service's profile section. A setup program gives them as
// values of a MSG_SERVICE_CONFIGURE call, which the library stores there; the host reads them at every logon.
#pragma once

#include "support/MapiHeaders.h"

/// Options of the archive, bits below; a profile without it has none set. (0x67C0 lies in the range that MAPI leaves to
/// providers' profile sections; 0x67F0 to 0x67FF would be hidden from GetProps of all properties.)
#define PR_ARCHIVE_HOST_OPTIONS PROP_TAG(PT_LONG, 0x67C0)

/// Full path of the log file; without it the log goes where it went before, which is the debugger's output in a process
/// that set no sink.
#define PR_ARCHIVE_HOST_LOG_FILE PROP_TAG(PT_UNICODE, 0x67C1)

namespace ArchiveHost
{

/// Bits of PR_ARCHIVE_HOST_OPTIONS. Without any the archive is the host kit's: read-only, and nothing else.
enum Options : LONG
{
    /// Folders, messages and attachments come as the library's plain wrappers, which refuse nothing: only the store
    /// itself is read-only then.
    OptionPlainWrappers = 0x1,
    /// Modification is on: the archive can be filled. With either of the library's wrappers it holds for the whole
    /// process from the logon on.
    OptionModifyStores = 0x2,
    /// Folders and messages come as the library's own read-only wrappers, which let through what these do.
    OptionLibraryWrappers = 0x4,

    OptionsKnown = OptionPlainWrappers | OptionModifyStores | OptionLibraryWrappers
};

} // namespace ArchiveHost
