// The PST module, the store's identifiers, the switches, the store's URL and its exclusion from the search index.
#include "nst/KivNstCore.h"

#include "nst/SearchInterfaces.h"
#include "support/CallWrapping.h"
#include "support/Format.h"
#include "support/MapiProperties.h"
#include "support/Os.h"
#include "support/OutlookAddIn.h"
#include "support/com_wrap.h"

#include <cstdint>
#include <cstring>
#include <cwchar>

namespace Quillon::Nst
{

const MAPIUID providerUid = {
    {0xE9, 0x2F, 0xEB, 0x75, 0x96, 0x50, 0x44, 0x86, 0x83, 0xB8, 0x7D, 0xE5, 0x22, 0xAA, 0x49, 0x48}};

namespace
{

constexpr auto pstModuleName = L"mspst32.dll";

// Plain bytes, read on every call without a lock.
bool g_unwrapStores = false;
bool g_modifyStores = false;

/// Loads the PST module from one directory. Null when the directory or the file is not there; throws CWinError when the
/// file is there but cannot be loaded.
HMODULE LoadPstModule(const StringW& directory)
{
    LogFormattedEntry(LogId::Trace, L"Trying to load mspst32.dll from directory: %s", directory.GetString());
    if (!Os::VerifyDirectoryExists(directory))
    {
        LogFormattedEntry(LogId::Error, L"Directory does not exist: %s", directory.GetString());
        return nullptr;
    }
    const StringW path = Os::AppendPaths(directory, pstModuleName);
    if (!Os::VerifyFileExists(path))
    {
        LogFormattedEntry(LogId::Action, L"mspst32.dll not found in: %s", directory.GetString());
        return nullptr;
    }
    LogFormattedEntry(LogId::Trace, L"Loading mspst32.dll: %s", path.GetString());
    const HMODULE module = LoadLibraryW(path);
    if (!module)
        Throw(CWinError(GetLastError()), L"LoadPstModule");
    LogFormattedEntry(LogId::Action, L"Loaded mspst32.dll: %s", path.GetString());
    return module;
}

/// The module that is in the process already, with a reference of this library's own.
HMODULE LoadResidentPstModule()
{
    const HMODULE resident = GetModuleHandleW(pstModuleName);
    if (!resident)
    {
        LogEntry(LogId::Trace, L"mspst32.dll not resident");
        return nullptr;
    }
    const HMODULE module = LoadLibraryW(Os::GetModulePath(resident));
    if (!module)
        Throw(CWinError(GetLastError()), L"GetPstModuleImpl");
    LogEntry(LogId::Trace, L"Using resident mspst32.dll module");
    return module;
}

/// Loads the PST module from the directory of `path`; an empty path is told by `unknown`.
HMODULE LoadPstModuleBeside(const StringW& path, const wchar_t* unknown)
{
    if (path.IsEmpty())
    {
        LogEntry(LogId::Trace, unknown);
        return nullptr;
    }
    return LoadPstModule(Os::GetDirectoryFromPath(path));
}

/// One search through all places.
HMODULE GetPstModuleImpl() noexcept
{
    constexpr auto function = L"GetPstModuleImpl";
    LogEntry(LogId::Trace, L"Entered GetPstModule");

    LogEntry(LogId::Trace, L"Trying the resident mspst32.dll module");
    try
    {
        if (const HMODULE module = LoadResidentPstModule())
            return module;
    }
    catch (const CException& exception)
    {
        CaughtException(exception, function);
    }

    LogEntry(LogId::Trace, L"Trying the Outlook application directory");
    try
    {
        if (const HMODULE module = LoadPstModuleBeside(OutlookAddIn::GetOutlookPath(),
                                                       L"Unable to identify Outlook application directory"))
            return module;
    }
    catch (const CException& exception)
    {
        CaughtException(exception, function);
    }

    LogEntry(LogId::Trace, L"Trying the MAPI directory");
    try
    {
        return LoadPstModuleBeside(Mapi::GetMapiPath(), L"Unable to identify MAPI directory");
    }
    catch (const CException& exception)
    {
        CaughtException(exception, function);
        return nullptr;
    }
}

/// The hash of a store's identifier, as Windows Search computes it: 33 times the hash plus the next little-endian word,
/// then the same with each byte that is left; modulo 2^32.
std::uint32_t HashStoreId(const Binary& storeId) noexcept
{
    const BYTE* const bytes = storeId.GetBuffer();
    const std::size_t size = storeId.GetSize();
    std::uint32_t hash = 0;
    std::size_t at = 0;
    for (; size - at >= sizeof(std::uint32_t); at += sizeof(std::uint32_t))
    {
        std::uint32_t word = 0;
        std::memcpy(&word, bytes + at, sizeof(word));
        hash = hash * 33 + word;
    }
    for (; at < size; ++at)
        hash = hash * 33 + bytes[at];
    return hash;
}

StringW EscapeStoreName(const StringW& storeName)
{
    StringW escaped;
    escaped.Reserve(storeName.GetLength());
    for (const wchar_t character : storeName)
        if (character != L'\0' && std::wcschr(L"%*/?\\", character))
            escaped.AppendFormat(L"%%%.2hX", static_cast<unsigned short>(character & 0xFF));
        else
            escaped += character;
    return escaped;
}

} // namespace

HMODULE GetPstModule() noexcept
{
    if (const HMODULE module = GetPstModuleImpl())
        return module;
    if (Logging::IsLogEnabled(LogId::Trace))
    {
        LogEntry(LogId::Error, L"Unable to load MSPST32.DLL");
        return nullptr;
    }
    // The second search is there for its trace lines, which tell why nothing was found.
    LogEntry(LogId::Error, L"Unable to load MSPST32.DLL; retrying with trace logging enabled");
    const Logging::TracedSearch traced;
    return GetPstModuleImpl();
}

Binary CreateStoreEntryID(const wchar_t* path)
{
    constexpr std::size_t uidOffset = 4;
    constexpr std::size_t pathOffset = 22;
    constexpr std::size_t headSize = 24; // with an empty path's terminator
    if (!path)
        path = L"";
    const std::size_t pathSize = std::wcslen(path) * sizeof(wchar_t);

    Binary entryId;
    entryId.SetSize(pathSize + headSize);
    BYTE* const bytes = entryId.GetBuffer();
    std::memcpy(bytes + uidOffset, &providerUid, sizeof(providerUid));
    std::memcpy(bytes + pathOffset, path, pathSize + sizeof(wchar_t));
    return entryId;
}

Binary CreateNotifyKeyFromEntryId(const unsigned char* entryId, std::size_t size)
{
    const auto count = static_cast<std::uint32_t>(size);
    Binary key;
    key.Reserve(size + sizeof(count));
    key.Append(reinterpret_cast<const BYTE*>(&count), sizeof(count));
    key.Append(entryId, size);
    return key;
}

Binary GetNstSubtreeEntryId(IMsgStore* store)
{
    return Binary(Mapi::TryQueryItemPropertyValue(store, archiveSubtreeEntryIdTag));
}

bool GetUnwrapStores() noexcept
{
    return g_unwrapStores;
}

void SetUnwrapStores(bool on) noexcept
{
    g_unwrapStores = on;
}

bool GetModifyStores() noexcept
{
    return g_modifyStores;
}

void SetModifyStores(bool on) noexcept
{
    g_modifyStores = on;
}

ATL::CComQIPtr<IProfSect> GetGlobalProfileSection(const ATL::CComQIPtr<IMAPISupport>& support)
{
    constexpr auto function = L"Quillon::Nst::GetGlobalProfileSection";
    if (!support)
        Throw(CComError(E_INVALIDARG), function);

    ATL::CComQIPtr<IProfSect> own;
    CheckMapiCall(support->OpenProfileSection(nullptr, MAPI_MODIFY, &own), support.p, function);
    own = com_wrap(own);
    const Mapi::PropValuePointer serviceUid = Mapi::TryQueryItemProperty(own, PR_SERVICE_UID);
    if (!serviceUid)
        return own;
    const SBinary& uid = serviceUid->Value.bin;
    if (serviceUid->ulPropTag != PR_SERVICE_UID || uid.cb < sizeof(MAPIUID) || !uid.lpb)
        Throw(CRuntimeError(L"PR_SERVICE_UID was of an unexpected length or type"), function);

    ATL::CComQIPtr<IProfSect> service;
    CheckMapiCall(support->OpenProfileSection(reinterpret_cast<MAPIUID*>(uid.lpb), MAPI_MODIFY, &service), support.p,
                  function);
    return com_wrap(service);
}

StringW GetMapiUrlScheme()
{
    using OutlookAddIn::OutlookVersion;
    switch (OutlookAddIn::GetOutlookVersionFromPath(OutlookAddIn::GetOutlookPath()))
    {
    case OutlookVersion::Unknown:
        Throw(CRuntimeError(L"Unable to determine Outlook version"), L"GetMapiUrlScheme");
    case OutlookVersion::Outlook2013:
        return L"mapi15";
    case OutlookVersion::Outlook2016:
        return L"mapi16";
    default:
        return L"mapi";
    }
}

StringW GetStoreMapiUrl(const Binary& storeId, const StringW& storeName)
{
    StringW url;
    url.AppendFormat(L"%s://", GetMapiUrlScheme().GetString());
    url.AppendFormat(L"{%s}/", Os::FormatSid(Os::GetCurrentUserSid()).GetString());
    const StringW hash = FormatString(L"%x", HashStoreId(storeId));
    url.AppendFormat(L"%s(%s)/", EscapeStoreName(storeName).GetString(), hash.GetString());
    return url;
}

void ExcludeStoreFromIndexing(const Binary& storeId, const StringW& storeName)
{
    constexpr auto function = L"Quillon::Nst::ExcludeStoreFromIndexing";
    const StringW url = GetStoreMapiUrl(storeId, storeName);
    LogFormattedEntry(LogId::Action, L"Excluding store from indexing: %s", url.GetString());

    using ManagerPointer = ATL::CComQIPtr<Search::ISearchManager, &Search::iidSearchManager>;
    using CatalogPointer = ATL::CComQIPtr<Search::ISearchCatalogManager, &Search::iidSearchCatalogManager>;
    using ScopePointer = ATL::CComQIPtr<Search::ISearchCrawlScopeManager, &Search::iidSearchCrawlScopeManager>;

    ManagerPointer manager;
    CheckCall(CoCreateInstance(Search::clsidSearchManager, nullptr, CLSCTX_SERVER, Search::iidSearchManager,
                               reinterpret_cast<void**>(&manager)),
              function);
    if (!manager)
        Throw(CComError(E_POINTER), function);
    CatalogPointer catalog;
    CheckCall(manager->GetCatalog(L"SystemIndex", &catalog), function);
    if (!catalog)
        Throw(CComError(E_POINTER), function);
    ScopePointer scope;
    CheckCall(catalog->GetCrawlScopeManager(&scope), function);
    if (!scope)
        Throw(CComError(E_POINTER), function);
    BOOL included = FALSE;
    CheckCall(scope->IncludedInCrawlScope(url, &included), function);
    if (!included)
    {
        LogEntry(LogId::Action, L"Store was already excluded from indexing");
        return;
    }
    CheckCall(scope->AddUserScopeRule(url, FALSE, TRUE, 0), function);
    CheckCall(scope->SaveAll(), function);
    LogEntry(LogId::Action, L"Store successfully excluded from indexing");
}

} // namespace Quillon::Nst
