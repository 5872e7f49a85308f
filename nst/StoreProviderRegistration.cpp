// Registering the message service and its store provider in MAPISVC.INF.
#include "nst/StoreProviderRegistration.h"

#include "support/CallWrapping.h"
#include "support/DateTimeSpan.h"
#include "support/Format.h"
#include "support/LogText.h"
#include "support/Os.h"

namespace Quillon::OutlookAddIn
{
namespace
{

constexpr auto servicesSection = L"Services";

/// How often a value is tried while another process has the file mapped.
constexpr std::size_t mostAttempts = 10;

/// Lets the file be written. A failure is told and otherwise ignored: the writes report theirs.
void ClearReadOnlyFlag(const StringW& path)
{
    try
    {
        if (Os::VerifyFileExists(path))
            Os::ResetFileAttributes(path);
    }
    catch (const CException& exception)
    {
        CaughtException(exception, L"ClearReadOnlyFlag");
    }
}

void WriteValue(const StringW& section, const wchar_t* key, const StringW& value, const StringW& path)
{
    for (std::size_t failures = 0;;)
    {
        try
        {
            if (WritePrivateProfileStringW(section, key, value, path))
                return;
            Throw(CWinError(GetLastError(), L""), L"Quillon::OutlookAddIn::RegisterStoreProvider");
        }
        catch (const CWinError& error)
        {
            Detail::LogText(LogId::Error, L"Failed to write private profile value",
                            [&]
                            {
                                return FormatString(
                                    L"Failed to write private profile value to file '%s', [%s].%s = '%s': %s",
                                    path.GetString(), section.GetString(), key, value.GetString(),
                                    error.Format().GetString());
                            });
            if (error.GetError() != ERROR_USER_MAPPED_FILE || ++failures == mostAttempts)
                throw;
        }
        LogFormattedEntry(LogId::Error,
                          L"WritePrivateProfileString failed with ERROR_USER_MAPPED_FILE; retrying %Iu more time(s) "
                          L"after sleeping 10s",
                          mostAttempts - failures);
        Sleep(DateTimeSpan().seconds(10).ToWaitTimeout());
    }
}

/// Removes a key, or the whole section where `key` is null.
void Remove(const StringW& section, const wchar_t* key, const StringW& path, const CallSite& site)
{
    if (!WritePrivateProfileStringW(section, key, nullptr, path))
        Throw(CWinError(GetLastError(), L""), site);
}

} // namespace

StringW GetStoreProviderNameFromServiceName(const StringW& serviceName)
{
    return serviceName + L"_P";
}

void RegisterStoreProvider(const StringW& serviceName, const StringW& displayName, const StringW& dllName,
                           const StringW& mapiSvcInfPath, const StringW& extraServiceFlags)
{
    LogFormattedEntry(LogId::Action, L"Adding service '%s' to MAPISVC.INF: %s", serviceName.GetString(),
                      mapiSvcInfPath.GetString());
    ClearReadOnlyFlag(mapiSvcInfPath);

    const StringW providerName = GetStoreProviderNameFromServiceName(serviceName);
    StringW serviceFlags(L"SERVICE_NO_PRIMARY_IDENTITY");
    if (!extraServiceFlags.IsEmpty())
        serviceFlags = serviceFlags + L"|" + extraServiceFlags;

    const auto writeProvider = [&](const wchar_t* key, const StringW& value)
    { WriteValue(providerName, key, value, mapiSvcInfPath); };
    writeProvider(L"PR_RESOURCE_TYPE", L"MAPI_STORE_PROVIDER");
    writeProvider(L"PR_PROVIDER_DLL_NAME", dllName);
    writeProvider(L"PR_RESOURCE_FLAGS", L"STATUS_NO_DEFAULT_STORE|STATUS_NO_PRIMARY_IDENTITY");
    writeProvider(L"PR_DISPLAY_NAME", displayName);
    writeProvider(L"PR_PROVIDER_DISPLAY", displayName + L" Provider");
    writeProvider(L"0x67020003", L"00000010");

    const auto writeService = [&](const wchar_t* key, const StringW& value)
    { WriteValue(serviceName, key, value, mapiSvcInfPath); };
    writeService(L"PR_DISPLAY_NAME", displayName);
    writeService(L"PR_SERVICE_DLL_NAME", dllName);
    writeService(L"PR_SERVICE_ENTRY_NAME", L"ServiceEntry");
    writeService(L"PR_RESOURCE_FLAGS", serviceFlags);
    writeService(L"Providers", providerName);
    writeService(L"PR_SERVICE_SUPPORT_FILES", dllName);
    writeService(L"PR_SERVICE_DELETE_FILES", dllName);

    WriteValue(servicesSection, serviceName, displayName, mapiSvcInfPath);
}

void UnregisterStoreProvider(const StringW& serviceName, const StringW& mapiSvcInfPath)
{
    constexpr auto function = L"Quillon::OutlookAddIn::UnregisterStoreProvider";
    LogFormattedEntry(LogId::Action, L"Removing service '%s' from MAPISVC.INF: %s", serviceName.GetString(),
                      mapiSvcInfPath.GetString());
    ClearReadOnlyFlag(mapiSvcInfPath);
    Remove(servicesSection, serviceName, mapiSvcInfPath, function);
    Remove(serviceName, nullptr, mapiSvcInfPath, function);
    Remove(GetStoreProviderNameFromServiceName(serviceName), nullptr, mapiSvcInfPath, function);
}

} // namespace Quillon::OutlookAddIn
