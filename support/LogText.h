// Logging a text that has to be made first.
#pragma once

#include "support/Exceptions.h"
#include "support/LastError.h"
#include "support/Log.h"

namespace Quillon::Detail
{

/// Writes the line that `makeText` gives or, where it throws a CException (there is no memory, say), the line
/// `instead`: what is told of some work is never what the work fails of. Makes no text that is not written. Leaves the
/// thread's last error as it was.
template <class MakeText>
void LogText(LogId level, const wchar_t* instead, MakeText&& makeText) noexcept
{
    if (!Logging::IsLogEnabled(level))
        return;
    const KeepLastError lastError;
    try
    {
        LogEntry(level, makeText());
    }
    catch (const CException&)
    {
        LogEntry(level, instead);
    }
}

} // namespace Quillon::Detail
