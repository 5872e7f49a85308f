// Registering the message service and its store provider in MAPISVC.INF.
#pragma once

#include "support/Export.h"
#include "support/StringW.h"

namespace Quillon::OutlookAddIn
{

/// The name of the provider section that belongs to a service: the service's name followed by "_P".
KIVNST_API StringW GetStoreProviderNameFromServiceName(const StringW& serviceName);

/// Writes the service's and its provider's sections into the MAPISVC.INF at `mapiSvcInfPath` (a full path).
/// `extraServiceFlags` is appended to the service's flags where it is not empty. While another process has the file
/// mapped, a value is tried again, nine times at most, 10 seconds apart, so that this can block for 90 seconds a value.
/// Throws CWinError when a value cannot be written; the values before it stay. Any thread.
KIVNST_API void RegisterStoreProvider(const StringW& serviceName, const StringW& displayName, const StringW& dllName,
                                      const StringW& mapiSvcInfPath, const StringW& extraServiceFlags);

/// Removes what RegisterStoreProvider wrote. Throws CWinError at the first removal that fails; there is no retry. Any
/// thread.
KIVNST_API void UnregisterStoreProvider(const StringW& serviceName, const StringW& mapiSvcInfPath);

} // namespace Quillon::OutlookAddIn
