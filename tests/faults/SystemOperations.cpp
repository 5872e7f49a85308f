// Registration, the store's URL and its exclusion from the search index: what is done to the system.
#include "nst/KivNstCore.h"
#include "nst/StoreProviderRegistration.h"
#include "tests/faults/Operation.h"

#include <gtest/gtest.h>

using namespace Quillon;

namespace Tests
{
namespace
{

constexpr auto infPath = L"C:\\Windows\\MAPISVC.INF";
constexpr Site registering = {L"StoreProviderRegistration.cpp", L"Quillon::OutlookAddIn::RegisterStoreProvider"};
constexpr Site unregistering = {L"StoreProviderRegistration.cpp", L"Quillon::OutlookAddIn::UnregisterStoreProvider"};
constexpr Site clearing = {L"StoreProviderRegistration.cpp", L"ClearReadOnlyFlag"};
constexpr Site resetting = {L"Os.cpp", L"Quillon::Os::ResetFileAttributes"};
constexpr Site userSid = {L"Os.cpp", L"Quillon::Os::GetCurrentUserSid"};
constexpr Site formatSid = {L"Os.cpp", L"Quillon::Os::FormatSid"};
constexpr Site scheme = {L"KivNstCore.cpp", L"GetMapiUrlScheme"};
constexpr Site excluding = {L"KivNstCore.cpp", L"Quillon::Nst::ExcludeStoreFromIndexing"};

HRESULT ResultOf(long error)
{
    return HRESULT_FROM_WIN32(static_cast<DWORD>(error));
}

std::wstring ErrorText(long error, const wchar_t* context = L"")
{
    return CWinError(static_cast<DWORD>(error), context).Format().GetString();
}

/// The system's error ends the work.
auto EndsWork(const Site& site)
{
    return [site](Expected& expected, long error) { expected.Throw(site, ResultOf(error), ErrorText(error)); };
}

/// Clearing the file's flag: a failure is told, and the work goes on.
std::vector<Rule> ClearRules()
{
    const auto told = [](Expected& expected, long error)
    {
        const std::wstring text = ErrorText(error, infPath);
        expected.lines.push_back(Throwing(resetting.file, resetting.function, text));
        expected.lines.push_back(Caught(clearing.file, clearing.function, text));
    };
    return {
        {"GetFileAttributesW", Shape::System}, // the file is not there then
        {"GetFileAttributesW", Shape::System, {}, {}, S_OK, false, told},
        {"SetFileAttributesW", Shape::System, {}, {}, S_OK, false, told},
    };
}

struct InfLine
{
    const wchar_t* section;
    const wchar_t* key;
    const wchar_t* value;
};

constexpr InfLine lines[] = {
    {L"ArchiveSvc_P", L"PR_RESOURCE_TYPE", L"MAPI_STORE_PROVIDER"},
    {L"ArchiveSvc_P", L"PR_PROVIDER_DLL_NAME", L"ArchiveHost.dll"},
    {L"ArchiveSvc_P", L"PR_RESOURCE_FLAGS", L"STATUS_NO_DEFAULT_STORE|STATUS_NO_PRIMARY_IDENTITY"},
    {L"ArchiveSvc_P", L"PR_DISPLAY_NAME", L"My Archive"},
    {L"ArchiveSvc_P", L"PR_PROVIDER_DISPLAY", L"My Archive Provider"},
    {L"ArchiveSvc_P", L"0x67020003", L"00000010"},
    {L"ArchiveSvc", L"PR_DISPLAY_NAME", L"My Archive"},
    {L"ArchiveSvc", L"PR_SERVICE_DLL_NAME", L"ArchiveHost.dll"},
    {L"ArchiveSvc", L"PR_SERVICE_ENTRY_NAME", L"ServiceEntry"},
    {L"ArchiveSvc", L"PR_RESOURCE_FLAGS", L"SERVICE_NO_PRIMARY_IDENTITY|SERVICE_SINGLE_COPY"},
    {L"ArchiveSvc", L"Providers", L"ArchiveSvc_P"},
    {L"ArchiveSvc", L"PR_SERVICE_SUPPORT_FILES", L"ArchiveHost.dll"},
    {L"ArchiveSvc", L"PR_SERVICE_DELETE_FILES", L"ArchiveHost.dll"},
    {L"Services", L"ArchiveSvc", L"My Archive"},
};

/// A line that cannot be written is tried again while the file is mapped, and ends the work otherwise.
auto NotWritten(const InfLine& line)
{
    return [line](Expected& expected, long error)
    {
        const std::wstring text = ErrorText(error);
        expected.lines.push_back(Throwing(registering.file, registering.function, text));
        expected.Log(LogId::Error, std::wstring(L"Failed to write private profile value to file '") + infPath +
                                       L"', [" + line.section + L"]." + line.key + L" = '" + line.value + L"': " +
                                       text);
        if (error == ERROR_USER_MAPPED_FILE)
            expected.Log(LogId::Error, L"WritePrivateProfileString failed with ERROR_USER_MAPPED_FILE; retrying 9 "
                                       L"more time(s) after sleeping 10s");
        else
            expected.End(ResultOf(error), text);
    };
}

std::vector<Rule> UrlRules()
{
    const auto unknown = [](Expected& expected, long)
    { expected.Throw(scheme, E_FAIL, L"Unable to determine Outlook version"); };
    std::vector<Rule> rules;
    for (const char* const call :
         {"RegGetValueW", "GetFileAttributesW", "GetFileVersionInfoSizeW", "GetFileVersionInfoW", "VerQueryValueW"})
        rules.push_back({call, Shape::System, {}, {}, S_OK, false, unknown});
    for (const char* const call : {"OpenProcessToken", "GetTokenInformation", "GetTokenInformation"})
        rules.push_back({call, Shape::System, {}, {}, S_OK, false, EndsWork(userSid)});
    rules.push_back({"ConvertSidToStringSidW", Shape::System, {}, {}, S_OK, false, EndsWork(formatSid)});
    return rules;
}

} // namespace

std::vector<Operation> SystemOperations()
{
    std::vector<Operation> operations;

    Operation registration;
    registration.name = "registration";
    registration.tellsActions = true;
    registration.rules = ClearRules();
    for (const InfLine& line : lines)
        registration.rules.push_back(
            {"WritePrivateProfileStringW", Shape::System, {}, {}, S_OK, false, NotWritten(line)});
    registration.run = [](Surroundings& surroundings)
    {
        const ImportHook<void(DWORD)> noWait("Sleep", [](DWORD) {});
        const StringW service(L"ArchiveSvc");
        const StringW display(L"My Archive");
        const StringW dll(L"ArchiveHost.dll");
        const StringW path(infPath);
        const StringW flags(L"SERVICE_SINGLE_COPY");
        const HRESULT hr =
            surroundings.Run([&] { OutlookAddIn::RegisterStoreProvider(service, display, dll, path, flags); });
        return hr;
    };
    operations.push_back(registration);

    Operation removal;
    removal.name = "unregistration";
    removal.tellsActions = true;
    removal.rules = ClearRules();
    for (int line = 0; line < 3; ++line)
        removal.rules.push_back(
            {"WritePrivateProfileStringW", Shape::System, {}, {}, S_OK, false, EndsWork(unregistering)});
    removal.run = [](Surroundings& surroundings)
    {
        const StringW service(L"ArchiveSvc");
        const StringW path(infPath);
        return surroundings.Run([&] { OutlookAddIn::UnregisterStoreProvider(service, path); });
    };
    operations.push_back(removal);

    Operation url;
    url.name = "store URL";
    url.rules = UrlRules();
    url.run = [](Surroundings& surroundings)
    {
        const BYTE id[] = {1, 0, 0, 0, 2};
        const Binary storeId(id, sizeof(id));
        const StringW name(L"Archive/Mail");
        StringW made;
        const HRESULT hr = surroundings.Run([&] { made = Nst::GetStoreMapiUrl(storeId, name); });
        EXPECT_EQ(made.IsEmpty(), FAILED(hr));
        return hr;
    };
    operations.push_back(url);

    Operation exclusion;
    exclusion.name = "search exclusion";
    exclusion.tellsActions = true;
    exclusion.rules = UrlRules();
    const auto noObject = [](Expected& expected) { expected.Throw(excluding, E_POINTER, ComText(E_POINTER)); };
    for (const char* const call :
         {"CoCreateInstance", "ISearchManager::GetCatalog", "ISearchCatalogManager::GetCrawlScopeManager"})
        exclusion.rules.push_back({call, Shape::Com, excluding, {}, S_OK, false, {}, noObject});
    for (const char* const call : {"ISearchCrawlScopeManager::IncludedInCrawlScope",
                                   "ISearchCrawlScopeManager::AddUserScopeRule", "ISearchCrawlScopeManager::SaveAll"})
        exclusion.rules.push_back({call, Shape::Com, excluding});
    exclusion.run = [](Surroundings& surroundings)
    {
        const Binary storeId;
        const StringW name(L"Archive");
        return surroundings.Run([&] { Nst::ExcludeStoreFromIndexing(storeId, name); });
    };
    operations.push_back(exclusion);
    return operations;
}

} // namespace Tests
