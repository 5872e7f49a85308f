// What the process has of MAPI: how often it was initialised, and the session that clients share.
#pragma once

#include "common/ComPtr.h"
#include "common/MapiMemory.h"
#include "testbed/common/Namespace.h"

/// The bodies of MAPI's functions of these names. Thread-safe.
///
/// Where MAPI's documentation leaves a choice:
/// - Every MAPIInitialize that succeeds gives S_OK.
/// - A logon that finds no profile to use is MAPI_E_LOGON_FAILED. There are no dialogs: what would have to ask gives
///   MAPI_E_NO_SUPPORT where a dialog is allowed.
/// - A shared session is shared within the process, and ends with the logoff of the last client that has it.
namespace Testbed::Subsystem
{
HRESULT Initialize(const MAPIINIT_0* init) noexcept;
void Uninitialize() noexcept;
bool Initialized() noexcept;

HRESULT LogonEx(const void* profileName, const void* password, ULONG flags, const MapiMemory& memory,
                IMAPISession** session) noexcept;
HRESULT AdminProfiles(ULONG flags, const MapiMemory& memory, IProfAdmin** admin) noexcept;
} // namespace Testbed::Subsystem
