// The registry entries by which Windows programs find the mail client, its MAPI module and the store provider.
#pragma once

#include <filesystem>

namespace Testbed
{
/// Registers the mail client whose files (outlook.exe, olmapi32.dll, mspst32.dll) lie in `folder`:
/// HKEY_LOCAL_MACHINE\Software\Clients\Mail (default value "Microsoft Outlook"), its subkey "Microsoft Outlook" with
/// DllPathEx, and App Paths\outlook.exe. The service of the PST provider ("MSUPST MS") is written into the MAPISVC.INF
/// of that folder, and stays there. Throws `Failure`: MAPI_E_NOT_FOUND when one of the files is not there,
/// MAPI_E_NO_ACCESS when the registry or the file refuses.
void RegisterMailClient(const std::filesystem::path& folder);

/// Takes these entries out again, as far as they are there; the default mail client only when it is this one.
void UnregisterMailClient();
} // namespace Testbed
