// The objects, and the functions of the system and of other modules, whose calls may fail.
#include "tests/faults/Surroundings.h"

#include "nst/KivNstCore.h"
#include "support/MapiErrors.h"
#include "support/com_wrap.h"
#include "tests/common/MapiModule.h"

#include <gtest/gtest.h>

#include <sddl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace Quillon;

namespace Tests
{
namespace
{

// Slots, IUnknown's three included.
enum
{
    QueryInterfaceSlot = 0,
    SaveChangesSlot = 4,
    GetPropsSlot = 5,
    SetPropsSlot = 8,
    StoreOpenEntrySlot = 17,
    GetContentsTableSlot = 14,
    GetHierarchyTableSlot = 15,
    CreateMessageSlot = 19,
    CreateFolderSlot = 22,
    QueryRowsSlot = 19,
    SupportOpenProfileSectionSlot = 9,
    NewUidSlot = 11,
    AdminOpenProfileSectionSlot = 7,
    LogonSlot = 4,
    SpoolerLogonSlot = 5,
    GetCatalogSlot = 10,
    GetCrawlScopeManagerSlot = 28,
    AddUserScopeRuleSlot = 8,
    IncludedInCrawlScopeSlot = 13,
    SaveAllSlot = 16
};

constexpr auto outlookPath = L"C:\\Mail\\OUTLOOK.EXE";

Surroundings* g_surroundings = nullptr;

template <class T>
T* Pointer(RawArgument argument)
{
    return reinterpret_cast<T*>(argument);
}

Bytes Uid(BYTE first)
{
    return Bytes(sizeof(MAPIUID), first);
}

// Functions of the PST module and of the MAPI module.

HRESULT WINAPI PstServiceEntry(HINSTANCE, LPMALLOC, LPMAPISUP, ULONG_PTR, ULONG, ULONG, ULONG, LPSPropValue,
                               LPPROVIDERADMIN, LPMAPIERROR*)
{
    return Faults::Get().Pass("NSTServiceEntry", [] {});
}

HRESULT __cdecl PstProviderInit(HINSTANCE, LPMALLOC, LPALLOCATEBUFFER, LPALLOCATEMORE, LPFREEBUFFER, ULONG, ULONG,
                                ULONG*, LPMSPROVIDER* provider)
{
    return Faults::Get().Pass("MSProviderInit",
                              [provider]
                              {
                                  *provider = g_surroundings->provider.As<IMSProvider>();
                                  (*provider)->AddRef();
                              });
}

using WrapFunction = HRESULT(STDAPICALLTYPE*)(ULONG, LPSTR, ULONG, LPENTRYID, ULONG*, LPENTRYID*);

HRESULT STDAPICALLTYPE Wrap(ULONG flags, LPSTR dllName, ULONG size, LPENTRYID entryId, ULONG* wrappedSize,
                            LPENTRYID* wrapped)
{
    static const auto original = reinterpret_cast<WrapFunction>(
        reinterpret_cast<void*>(GetProcAddress(MapiModule::Get().Handle(), "WrapStoreEntryID")));
    HRESULT hr = S_OK;
    const HRESULT result = Faults::Get().Pass("WrapStoreEntryID", [&]
                                              { hr = original(flags, dllName, size, entryId, wrappedSize, wrapped); });
    return FAILED(hr) ? hr : result;
}

// Functions of the system.

FARPROC WINAPI FindFunction(HMODULE module, const char* name)
{
    const auto as = [](auto* function) { return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(function)); };
    const std::string_view text(name);
    if (text == "NSTServiceEntry")
        return Faults::Get().PassSystem("GetProcAddress") ? as(&PstServiceEntry) : nullptr;
    if (text == "MSProviderInit")
        return Faults::Get().PassSystem("GetProcAddress") ? as(&PstProviderInit) : nullptr;
    // Found once and kept by the library, so that a search that fails is another test's concern.
    return text == "WrapStoreEntryID" ? as(&Wrap) : GetProcAddress(module, name);
}

HRESULT WINAPI MakeGuid(GUID* guid)
{
    return Faults::Get().Pass("CoCreateGuid", [guid] { std::memset(guid, 0x5A, sizeof(*guid)); });
}

HRESULT WINAPI MakeInstance(REFCLSID, IUnknown*, DWORD, REFIID, void** object)
{
    return Faults::Get().Pass("CoCreateInstance",
                              [object]
                              {
                                  *object = &g_surroundings->searchManager;
                                  g_surroundings->searchManager.As<IUnknown>()->AddRef();
                              });
}

BOOL WINAPI WriteProfileString(const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*)
{
    return Faults::Get().PassSystem("WritePrivateProfileStringW");
}

DWORD WINAPI ReadAttributes(const wchar_t*)
{
    return Faults::Get().PassSystem("GetFileAttributesW") ? FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_READONLY
                                                          : INVALID_FILE_ATTRIBUTES;
}

BOOL WINAPI WriteAttributes(const wchar_t*, DWORD)
{
    return Faults::Get().PassSystem("SetFileAttributesW");
}

LSTATUS WINAPI ReadRegistry(HKEY, const wchar_t*, const wchar_t*, DWORD, DWORD* type, void* data, DWORD* size)
{
    if (!Faults::Get().PassSystem("RegGetValueW"))
        return static_cast<LSTATUS>(GetLastError());
    *type = REG_SZ;
    *size = static_cast<DWORD>((std::wcslen(outlookPath) + 1) * sizeof(wchar_t));
    std::memcpy(data, outlookPath, *size);
    return ERROR_SUCCESS;
}

DWORD WINAPI VersionSize(const wchar_t* path, DWORD*)
{
    return Faults::Get().PassSystem("GetFileVersionInfoSizeW") && std::wstring_view(path) == outlookPath ? 64 : 0;
}

BOOL WINAPI ReadVersion(const wchar_t*, DWORD, DWORD size, void* data)
{
    if (!Faults::Get().PassSystem("GetFileVersionInfoW"))
        return FALSE;
    std::memset(data, 0, size);
    return TRUE;
}

BOOL WINAPI QueryVersion(const void*, const wchar_t*, void** value, UINT* size)
{
    static VS_FIXEDFILEINFO info = {};
    if (!Faults::Get().PassSystem("VerQueryValueW"))
        return FALSE;
    info.dwFileVersionMS = MAKELONG(0, 16);
    *value = &info;
    *size = sizeof(info);
    return TRUE;
}

BOOL WINAPI OpenToken(HANDLE process, DWORD access, HANDLE* token)
{
    return Faults::Get().PassSystem("OpenProcessToken") && OpenProcessToken(process, access, token);
}

BOOL WINAPI ReadToken(HANDLE token, TOKEN_INFORMATION_CLASS type, void* data, DWORD size, DWORD* used)
{
    return Faults::Get().PassSystem("GetTokenInformation") && GetTokenInformation(token, type, data, size, used);
}

BOOL WINAPI FormatSid(void* sid, wchar_t** text)
{
    return Faults::Get().PassSystem("ConvertSidToStringSidW") && ConvertSidToStringSidW(sid, text);
}

/// Puts the functions in place for as long as the program runs, and the PST module into the process.
void InstallFunctions()
{
    wchar_t folder[MAX_PATH] = {};
    GetModuleFileNameW(MapiModule::Get().Handle(), folder, MAX_PATH);
    std::wstring path(folder);
    path.resize(path.find_last_of(L'\\') + 1);
    path += L"mspst32.dll";
    if (!LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH))
    {
        std::fprintf(stderr, "faults: the PST module cannot be loaded (error %lu)\n", GetLastError());
        std::exit(2);
    }
    static const ImportHook<decltype(FindFunction)> findFunction("GetProcAddress", &FindFunction);
    static const ImportHook<decltype(MakeGuid)> makeGuid("CoCreateGuid", &MakeGuid);
    static const ImportHook<decltype(MakeInstance)> makeInstance("CoCreateInstance", &MakeInstance);
    static const ImportHook<decltype(WriteProfileString)> writeString("WritePrivateProfileStringW",
                                                                      &WriteProfileString);
    static const ImportHook<decltype(ReadAttributes)> readAttributes("GetFileAttributesW", &ReadAttributes);
    static const ImportHook<decltype(WriteAttributes)> writeAttributes("SetFileAttributesW", &WriteAttributes);
    static const ImportHook<decltype(ReadRegistry)> readRegistry("RegGetValueW", &ReadRegistry);
    static const ImportHook<decltype(VersionSize)> versionSize("GetFileVersionInfoSizeW", &VersionSize);
    static const ImportHook<decltype(ReadVersion)> readVersion("GetFileVersionInfoW", &ReadVersion);
    static const ImportHook<decltype(QueryVersion)> queryVersion("VerQueryValueW", &QueryVersion);
    static const ImportHook<decltype(OpenToken)> openToken("OpenProcessToken", &OpenToken);
    static const ImportHook<decltype(ReadToken)> readToken("GetTokenInformation", &ReadToken);
    static const ImportHook<decltype(FormatSid)> formatSid("ConvertSidToStringSidW", &FormatSid);
}

} // namespace

FaultyObject::FaultyObject(const char* name, bool hasLastError) : Recorder(hasLastError), m_name(name)
{
    SetGivesError(Faults::Get().Planned().givesErrors);
}

void FaultyObject::BeProp()
{
    On(QueryInterfaceSlot, "QueryInterface", [this](const RawArguments& arguments) { GiveTo(arguments, 1); });
    On(SaveChangesSlot, "SaveChanges", [](const RawArguments&) {});
    On(SetPropsSlot, "SetProps", [](const RawArguments&) {});
    On(GetPropsSlot, "GetProps",
       [this](const RawArguments& arguments)
       {
           const auto* const tags = Pointer<SPropTagArray>(arguments[0]);
           std::vector<Property> values;
           for (ULONG index = 0; index < tags->cValues; ++index)
           {
               const auto known = properties.find(tags->aulPropTag[index]);
               values.push_back(known == properties.end() ? ErrorValue(tags->aulPropTag[index], MAPI_E_NOT_FOUND)
                                                          : known->second);
           }
           const Faults::OwnAllocations own;
           *Pointer<ULONG>(arguments[2]) = tags->cValues;
           *Pointer<SPropValue*>(arguments[3]) = AllocateProps(values);
       });
}

void FaultyObject::GiveTo(const RawArguments& arguments, std::size_t index)
{
    *Pointer<void*>(arguments[index]) = this;
    As<IUnknown>()->AddRef();
}

Surroundings::Surroundings()
{
    static const bool installed = (InstallFunctions(), true);
    static_cast<void>(installed);
    g_surroundings = this;

    for (FaultyObject* const object :
         {&ownSection, &serviceSection, &providerSection, &store, &folder, &root, &message, &attachment})
        object->BeProp();
    ownSection.properties[PR_SERVICE_UID] = BinaryValue(PR_SERVICE_UID, Uid(1));
    serviceSection.properties[PR_PROFILE_OFFLINE_STORE_PATH_W] =
        TextValue(PR_PROFILE_OFFLINE_STORE_PATH_W, L"C:\\archive.pst");
    serviceSection.properties[PR_STORE_PROVIDERS] = BinaryValue(PR_STORE_PROVIDERS, Uid(2));
    providerSection.properties[PR_SERVICE_UID] = BinaryValue(PR_SERVICE_UID, Uid(3));
    store.properties[PR_IPM_SUBTREE_ENTRYID] = BinaryValue(PR_IPM_SUBTREE_ENTRYID, {1, 2, 3});
    store.properties[PR_ACCESS] = NumberValue(PR_ACCESS, 0x3F);
    store.properties[Nst::archiveSubtreeEntryIdTag] = BinaryValue(Nst::archiveSubtreeEntryIdTag, {7, 8, 9});
    root.properties[PR_ENTRYID] = BinaryValue(PR_ENTRYID, {7, 8, 9});

    support.On(SupportOpenProfileSectionSlot, "OpenProfileSection", [this](const RawArguments& arguments)
               { (arguments[0] ? serviceSection : ownSection).GiveTo(arguments, 2); });
    support.On(NewUidSlot, "NewUID",
               [](const RawArguments& arguments) { std::memset(Pointer<void>(arguments[0]), 9, sizeof(MAPIUID)); });
    admin.On(AdminOpenProfileSectionSlot, "OpenProfileSection", [this](const RawArguments& arguments)
             { (arguments[0] ? providerSection : serviceSection).GiveTo(arguments, 3); });
    provider.On(LogonSlot, "Logon",
                [this](const RawArguments& arguments)
                {
                    logon.GiveTo(arguments, 10);
                    store.GiveTo(arguments, 11);
                });
    provider.On(SpoolerLogonSlot, "SpoolerLogon",
                [this](const RawArguments& arguments)
                {
                    logon.GiveTo(arguments, 10);
                    store.GiveTo(arguments, 11);
                });
    store.On(StoreOpenEntrySlot, "OpenEntry",
             [this](const RawArguments& arguments)
             {
                 *Pointer<ULONG>(arguments[4]) = openedType;
                 opened->GiveTo(arguments, 5);
             });
    folder.On(GetContentsTableSlot, "GetContentsTable",
              [this](const RawArguments& arguments) { table.GiveTo(arguments, 1); });
    folder.On(GetHierarchyTableSlot, "GetHierarchyTable",
              [this](const RawArguments& arguments) { table.GiveTo(arguments, 1); });
    folder.On(CreateMessageSlot, "CreateMessage",
              [this](const RawArguments& arguments) { message.GiveTo(arguments, 2); });
    folder.On(CreateFolderSlot, "CreateFolder", [this](const RawArguments& arguments) { root.GiveTo(arguments, 5); });
    table.On(QueryRowsSlot, "QueryRows",
             [](const RawArguments& arguments)
             {
                 const Faults::OwnAllocations own;
                 auto* const rows = static_cast<SRowSet*>(MapiModule::Get().Allocate(sizeof(SRowSet)));
                 rows->cRows = 0;
                 *Pointer<SRowSet*>(arguments[2]) = rows;
             });
    searchManager.On(GetCatalogSlot, "GetCatalog",
                     [this](const RawArguments& arguments) { searchCatalog.GiveTo(arguments, 1); });
    searchCatalog.On(GetCrawlScopeManagerSlot, "GetCrawlScopeManager",
                     [this](const RawArguments& arguments) { searchScope.GiveTo(arguments, 0); });
    searchScope.On(IncludedInCrawlScopeSlot, "IncludedInCrawlScope",
                   [](const RawArguments& arguments) { *Pointer<BOOL>(arguments[1]) = TRUE; });
    searchScope.On(AddUserScopeRuleSlot, "AddUserScopeRule", [](const RawArguments&) {});
    searchScope.On(SaveAllSlot, "SaveAll", [](const RawArguments&) {});
}

Surroundings::~Surroundings()
{
    g_surroundings = nullptr;
}

std::vector<const FaultyObject*> Surroundings::All() const
{
    return {&support,  &ownSection, &serviceSection, &providerSection, &admin,
            &provider, &logon,      &store,          &folder,          &root,
            &message,  &table,      &searchManager,  &searchCatalog,   &searchScope};
}

void Surroundings::ExpectNoReferences() const
{
    std::size_t index = 0;
    for (const FaultyObject* const object : All())
        EXPECT_EQ(object->References(), 1u) << "references on object " << index++;
}

StringW FaultyService::GetProviderDllName()
{
    Faults::Get().PassHook("GetProviderDllName");
    return L"ArchiveHost.dll";
}

ATL::CComQIPtr<IMAPISupport> FaultyService::CreateMapiSupport(const ATL::CComQIPtr<IMAPISupport>& support,
                                                              const ATL::CComQIPtr<IProfSect>& section)
{
    return MakeByHost<IMAPISupport>("CreateMapiSupport",
                                    [&] { return CNstMessageService::CreateMapiSupport(support, section); });
}

void FaultyService::ConfigureService(const ATL::CComQIPtr<IMAPISupport>& support,
                                     const ATL::CComQIPtr<IProfSect>& section,
                                     const ATL::CComQIPtr<IProviderAdmin>& admin,
                                     const Mapi::SPropValueVector& settings)
{
    Faults::Get().PassHook("ConfigureService");
    if (m_surroundings.hostRefuses)
        throw Mapi::ExtendedMapiError(L"The file is in use", L"host", 32, 5);
    CNstMessageService::ConfigureService(support, section, admin, settings);
}

Mapi::SPropValueVector FaultyService::GetProfileSectionConfiguration(SPropValue*, ULONG)
{
    Faults::Get().PassHook("GetProfileSectionConfiguration");
    Mapi::SPropValueVector settings;
    settings.AddStringW(PR_DISPLAY_NAME_W, L"My archive");
    return settings;
}

ATL::CComQIPtr<IMSProvider> FaultyService::CreateMsProvider(const ATL::CComQIPtr<IMSProvider>& pstProvider)
{
    return MakeByHost<IMSProvider>("CreateMsProvider",
                                   [&] { return com_wrap<IMSProvider>(new FaultyProvider(pstProvider)); });
}

} // namespace Tests
