// What the library asks of the installed mail client.
#pragma once

#include "support/Export.h"
#include "support/StringW.h"

namespace Quillon::OutlookAddIn
{

/// The major version of the mail client, ordered.
enum class OutlookVersion : unsigned
{
    Outlook2003 = 11,
    Outlook2007 = 12,
    Outlook2010 = 14,
    Outlook2013 = 15,
    Outlook2016 = 16, ///< and every later one so far
    Unknown = 0xFFFFFFFF
};

/// Full path of the installed Outlook executable, from the registry's application paths; empty when none is registered
/// or the file is gone. Throws CComError(E_OUTOFMEMORY) only. Any thread.
KIVNST_API StringW GetOutlookPath();

/// The major version in the version resource of the executable at `path`; Unknown when it cannot be read. Any thread.
KIVNST_API OutlookVersion GetOutlookVersionFromPath(const StringW& path);

} // namespace Quillon::OutlookAddIn
