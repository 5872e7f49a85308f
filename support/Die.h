// The last call before the library ends the process on purpose.
#pragma once

#include "support/Export.h"

namespace Quillon
{

/// Called with the exit code before the process ends. It must return and must not throw.
using DieHandler = void(__stdcall*)(void* context, unsigned code);

/// Has `handler` called by OnDie; null for none, as at load. A host sets it once, before it logs on.
KIVNST_API void SetDieHandler(DieHandler handler, void* context) noexcept;

/// Called immediately before the library ends the process with ExitProcess(code): flushes the log and calls the host's
/// handler. Returns normally. Any thread.
KIVNST_API void OnDie(unsigned code) noexcept;

} // namespace Quillon
