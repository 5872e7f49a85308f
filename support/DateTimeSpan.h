// A span of time.
#pragma once

#include "support/Export.h"

#include <windows.h>

namespace Quillon
{

/// A span of time, in milliseconds inside.
class KIVNST_API DateTimeSpan
{
public:
    /// A span of no length.
    DateTimeSpan() noexcept;
    /// Sets the span to `n` seconds, negative ones included; what exceeds the range is cut to it.
    DateTimeSpan& seconds(long long n) noexcept;
    /// Milliseconds for a Win32 wait or Sleep: 0 for a negative span, at most INFINITE - 1, so that a span never turns
    /// into an endless wait.
    DWORD ToWaitTimeout() const noexcept;

private:
    long long m_milliseconds;
};

} // namespace Quillon
