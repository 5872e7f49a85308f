// Trace output for a developer at a debugger; a release build writes nothing and formats nothing.
#pragma once

#include "support/Exceptions.h"

namespace Quillon
{

/// Hands the text that `makeText` gives to the debugger, in debug builds only. A text that cannot be made is left out.
template <class MakeText>
void DebugTrace([[maybe_unused]] MakeText&& makeText) noexcept
{
#if !defined(NDEBUG)
    try
    {
        OutputDebugStringW(makeText() + L"\r\n");
    }
    catch (const CException&) // NOLINT(bugprone-empty-catch): a trace is not worth a failure
    {
    }
#endif
}

} // namespace Quillon
