// The binding of the MAPI module. Each test has a process of its own: what is found once is kept.
#include "mapi/MapiBinding.h"

#include "support/Exceptions.h"
#include "support/MapiBuffer.h"
#include "support/MapiErrors.h"
#include "support/MapiProperties.h"
#include "tests/common/Alone.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Setting.h"
#include "tests/units/doubles/MapiDouble.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace Quillon;
using Mapi::GetMapiModule;
using Tests::CopyDouble;
using Tests::ImportHook;
using Tests::ScratchRegistry;
using Tests::TempFolder;
using Tests::Text;

namespace
{

std::wstring PathOf(HMODULE module)
{
    wchar_t path[0x8000] = {};
    return module ? std::wstring(path, GetModuleFileNameW(module, path, 0x8000)) : std::wstring();
}

std::wstring SystemMapiPath()
{
    wchar_t folder[MAX_PATH] = {};
    GetSystemDirectoryW(folder, MAX_PATH);
    return std::wstring(folder) + L"\\mapi32.dll";
}

/// Paths are the same whatever their case.
MATCHER_P(IsPath, path, "")
{
    return _wcsicmp(arg.c_str(), path.c_str()) == 0;
}

/// Puts a MAPI module that a test stands in for into the process.
HMODULE LoadMapiDouble(const std::wstring& path)
{
    CopyDouble(L"MapiDouble.dll", path);
    const HMODULE module = LoadLibraryW(path.c_str());
    EXPECT_NE(module, nullptr);
    return module;
}

MapiDouble& FunctionsOf(HMODULE module)
{
    return *reinterpret_cast<MapiDouble*>(reinterpret_cast<void*>(GetProcAddress(module, "mapiDouble")));
}

// What the hooks below count and say.
std::atomic<int> registryReads = 0;
std::atomic<int> functionsLookedUp = 0;
std::atomic<int> loads = 0;
std::atomic<int> frees = 0;
std::wstring refusedModules;
std::wstring stubPath;
std::wstring emptyFolder;
std::atomic<int> systemSearches = 0;

/// Refuses to load the modules that `refusedModules` names, by bare name; gives the one at `stubPath` for "mapi32.dll",
/// which the system has one of.
HMODULE WINAPI LoadUnlessRefused(LPCWSTR name)
{
    if (!stubPath.empty() && std::wstring(name) == L"mapi32.dll")
        return LoadLibraryW(stubPath.c_str());
    if (refusedModules.find(L"<" + std::wstring(name) + L">") != std::wstring::npos)
    {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    return LoadLibraryW(name);
}

/// A system directory in which there is no MAPI.
UINT WINAPI GetEmptyDirectory(LPWSTR buffer, UINT size)
{
    ++systemSearches;
    emptyFolder.copy(buffer, size);
    buffer[emptyFolder.size()] = L'\0';
    return static_cast<UINT>(emptyFolder.size());
}

/// No MAPI anywhere, as long as it lives.
struct NoMapi
{
    TempFolder folder;
    ScratchRegistry registry;
    ImportHook<UINT(LPWSTR, UINT)> hook{"GetSystemDirectoryW", GetEmptyDirectory};

    NoMapi() { emptyFolder = folder.Path().wstring(); }
};

/// The arguments that FGetComponentPath was called with, and what it gives.
struct ComponentCall
{
    std::string component;
    std::string qualifier;
    DWORD size = 0;
    BOOL install = TRUE;
    int count = 0;
    std::string path;
} componentCall;

BOOL STDAPICALLTYPE GiveComponentPath(LPSTR component, LPSTR qualifier, LPSTR path, DWORD size, BOOL install)
{
    componentCall.component = component;
    componentCall.qualifier = qualifier;
    componentCall.size = size;
    componentCall.install = install;
    ++componentCall.count;
    if (componentCall.path.empty())
        return FALSE;
    std::memcpy(path, componentCall.path.c_str(), componentCall.path.size() + 1);
    return TRUE;
}

std::string NarrowPath(const std::wstring& path)
{
    return StringA(StringW(path.c_str())).GetString();
}

/// Lets the library find the module at `path` under the name of MAPI's stub, as long as it lives.
struct Stub
{
    ImportHook<HMODULE(LPCWSTR)> hook{"LoadLibraryW", LoadUnlessRefused};
    HMODULE module;

    Stub(const wchar_t* name, const std::wstring& path)
    {
        CopyDouble(name, path);
        module = LoadLibraryW(path.c_str());
        EXPECT_NE(module, nullptr);
        stubPath = path;
        if (GetProcAddress(module, "mapiDouble"))
            FunctionsOf(module).getComponentPath = GiveComponentPath;
    }
};

/// Writes what an installer registers of the default mail client.
void SetMsiRegistration(ScratchRegistry& registry, const wchar_t* component, const wchar_t* locale)
{
    registry.SetDefaultClient(L"Client");
    if (component)
        registry.SetClientText(L"MSIComponentID", component);
    if (locale)
        registry.SetClientText(L"MSIApplicationLCID", locale);
}

} // namespace

TEST_ALONE(MapiBinding, TakesOlmapi32OfTheProcessWithoutTouchingTheRegistry)
{
    const TempFolder folder;
    const ImportHook<LSTATUS(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY)> hook(
        "RegOpenKeyExW",
        [](HKEY key, LPCWSTR path, DWORD options, REGSAM access, PHKEY opened) -> LSTATUS
        {
            ++registryReads;
            return RegOpenKeyExW(key, path, options, access, opened);
        });
    const HMODULE module = LoadMapiDouble(folder / L"olmapi32.dll");
    EXPECT_EQ(GetMapiModule(), module);
    EXPECT_EQ(Text(Mapi::GetMapiPath()), folder / L"olmapi32.dll");
    EXPECT_EQ(registryReads, 0);

    // A reference of its own keeps it for the life of the process.
    FreeLibrary(module);
    EXPECT_EQ(GetModuleHandleW(L"olmapi32.dll"), module);
    EXPECT_EQ(GetMapiModule(), module);
}

TEST_ALONE(MapiBinding, TakesMsmapi32OfTheProcessWhenThereIsNoOlmapi32)
{
    const TempFolder folder;
    const HMODULE module = LoadMapiDouble(folder / L"msmapi32.dll");
    EXPECT_EQ(GetMapiModule(), module);
}

TEST_ALONE(MapiBinding, PrefersOlmapi32OfTheProcess)
{
    const TempFolder folder;
    LoadMapiDouble(folder / L"msmapi32.dll");
    const HMODULE module = LoadMapiDouble(folder / L"olmapi32.dll");
    EXPECT_EQ(GetMapiModule(), module);
}

TEST_ALONE(MapiBinding, KeepsWhatItFoundFirst)
{
    const TempFolder folder;
    const HMODULE first = LoadMapiDouble(folder / L"msmapi32.dll");
    EXPECT_EQ(GetMapiModule(), first);
    LoadMapiDouble(folder / L"olmapi32.dll");
    EXPECT_EQ(GetMapiModule(), first);
}

TEST_ALONE(MapiBinding, LoadsTheDefaultMailClientsDllPathEx)
{
    const TempFolder folder;
    ScratchRegistry registry;
    CopyDouble(L"MapiDouble.dll", folder / L"client \u00FC.dll");
    CopyDouble(L"MapiDouble.dll", folder / L"other.dll");
    registry.SetClientText(L"DllPathEx", folder / L"client \u00FC.dll");
    registry.SetClientText(L"DllPath", folder / L"other.dll");
    EXPECT_EQ(PathOf(GetMapiModule()), folder / L"client \u00FC.dll");
}

TEST_ALONE(MapiBinding, ExpandsTheVariablesOfAnExpandableDllPathEx)
{
    const TempFolder folder;
    ScratchRegistry registry;
    CopyDouble(L"MapiDouble.dll", folder / L"client.dll");
    SetEnvironmentVariableW(L"KIVNST_CLIENT", folder.Path().c_str());
    registry.SetClientText(L"DllPathEx", L"%KIVNST_CLIENT%\\client.dll", REG_EXPAND_SZ);
    EXPECT_EQ(PathOf(GetMapiModule()), folder / L"client.dll");
}

TEST_ALONE(MapiBinding, ExpandsNoVariablesOfAPlainDllPathEx)
{
    const TempFolder folder;
    ScratchRegistry registry;
    CopyDouble(L"MapiDouble.dll", folder / L"client.dll");
    CopyDouble(L"MapiDouble.dll", folder / L"other.dll");
    SetEnvironmentVariableW(L"KIVNST_CLIENT", folder.Path().c_str());
    registry.SetClientText(L"DllPathEx", L"%KIVNST_CLIENT%\\client.dll");
    registry.SetClientText(L"DllPath", folder / L"other.dll");
    EXPECT_EQ(PathOf(GetMapiModule()), folder / L"other.dll");
}

TEST_ALONE(MapiBinding, TakesAnExpandedPathOfUpTo260CharactersWithItsTerminator)
{
    const TempFolder folder;
    ScratchRegistry registry;
    const std::wstring name = L"\\client.dll";
    const std::wstring base = folder.Path().wstring();
    const std::wstring deep = base + L"\\" + std::wstring(259 - base.size() - 1 - name.size(), L'd');
    ASSERT_EQ((deep + name).size(), 259u);
    std::filesystem::create_directory(deep);
    CopyDouble(L"MapiDouble.dll", deep + name);
    SetEnvironmentVariableW(L"KIVNST_CLIENT", deep.c_str());
    registry.SetClientText(L"DllPathEx", L"%KIVNST_CLIENT%\\client.dll", REG_EXPAND_SZ);
    EXPECT_EQ(PathOf(GetMapiModule()), deep + name);
}

TEST_ALONE(MapiBinding, IgnoresADllPathExThatExpandsToMoreThan260Characters)
{
    const TempFolder folder;
    ScratchRegistry registry;
    // Dots and backslashes make a path of any length that names an existing file.
    std::wstring detour;
    while (folder.Path().wstring().size() + detour.size() + 11 <= 260)
        detour += L"\\.";
    CopyDouble(L"MapiDouble.dll", folder / L"client.dll");
    CopyDouble(L"MapiDouble.dll", folder / L"other.dll");
    SetEnvironmentVariableW(L"KIVNST_CLIENT", (folder.Path().wstring() + detour).c_str());
    registry.SetClientText(L"DllPathEx", L"%KIVNST_CLIENT%\\client.dll", REG_EXPAND_SZ);
    registry.SetClientText(L"DllPath", folder / L"other.dll");
    EXPECT_EQ(PathOf(GetMapiModule()), folder / L"other.dll");
}

TEST_ALONE(MapiBinding, IgnoresADllPathExOfMoreThan520Bytes)
{
    const TempFolder folder;
    ScratchRegistry registry;
    CopyDouble(L"MapiDouble.dll", folder / L"other.dll");
    registry.SetClientText(L"DllPathEx", std::wstring(300, L'x'));
    registry.SetClientText(L"DllPath", folder / L"other.dll");
    EXPECT_EQ(PathOf(GetMapiModule()), folder / L"other.dll");
}

TEST_ALONE(MapiBinding, TriesDllPathWhenDllPathExNamesNoModule)
{
    const TempFolder folder;
    ScratchRegistry registry;
    CopyDouble(L"MapiDouble.dll", folder / L"other.dll");
    Tests::WriteFileBytes(folder / L"text.dll", "no module");
    registry.SetClientText(L"DllPathEx", folder / L"text.dll");
    registry.SetClientText(L"DllPath", folder / L"other.dll");
    EXPECT_EQ(PathOf(GetMapiModule()), folder / L"other.dll");
}

TEST_ALONE(MapiBinding, TriesDllPathWhenThereIsNoDllPathExOrItIsNoText)
{
    const TempFolder folder;
    ScratchRegistry registry;
    CopyDouble(L"MapiDouble.dll", folder / L"client.dll");
    CopyDouble(L"MapiDouble.dll", folder / L"other.dll");
    registry.SetClientText(L"DllPathEx", folder / L"client.dll", REG_BINARY);
    registry.SetClientText(L"DllPath", folder / L"other.dll");
    EXPECT_EQ(PathOf(GetMapiModule()), folder / L"other.dll");
}

TEST_ALONE(MapiBinding, ReadsADllPathWithoutATerminator)
{
    const TempFolder folder;
    ScratchRegistry registry;
    const std::wstring path = folder / L"client.dll";
    CopyDouble(L"MapiDouble.dll", path);
    registry.SetDefaultClient(L"Client");
    registry.SetBytes(L"Software\\Clients\\Mail\\Client", L"DllPathEx", REG_SZ, path.c_str(),
                      path.size() * sizeof(wchar_t));
    EXPECT_EQ(PathOf(GetMapiModule()), path);
}

TEST_ALONE(MapiBinding, LoadsTheSystemsMapiWhenTheDefaultClientIsNoPlainText)
{
    const TempFolder folder;
    ScratchRegistry registry;
    CopyDouble(L"MapiDouble.dll", folder / L"client.dll");
    registry.SetClientText(L"DllPathEx", folder / L"client.dll");
    registry.SetText(L"Software\\Clients\\Mail", nullptr, L"Client", REG_EXPAND_SZ);
    EXPECT_THAT(PathOf(GetMapiModule()), IsPath(SystemMapiPath()));
}

TEST_ALONE(MapiBinding, LoadsTheSystemsMapiWhenNoClientIsRegistered)
{
    const ScratchRegistry registry;
    EXPECT_THAT(PathOf(GetMapiModule()), IsPath(SystemMapiPath()));
}

TEST_ALONE(MapiBinding, LoadsTheSystemsMapiWhenTheDefaultClientHasNoKey)
{
    ScratchRegistry registry;
    registry.SetDefaultClient(L"Nobody");
    EXPECT_THAT(PathOf(GetMapiModule()), IsPath(SystemMapiPath()));
}

TEST_ALONE(MapiBinding, LoadsTheSystemsMapiWhenTheClientNamesNothingThatLoads)
{
    ScratchRegistry registry;
    registry.SetClientText(L"DllPathEx", L"Z:\\no such.dll");
    registry.SetClientText(L"DllPath", L"Z:\\no such either.dll");
    EXPECT_THAT(PathOf(GetMapiModule()), IsPath(SystemMapiPath()));
}

TEST_ALONE(MapiBinding, AsksTheStubForAComponentThatTheInstallerRegistered)
{
    const TempFolder folder;
    ScratchRegistry registry;
    // The stub gives the path in the ANSI code page.
    CopyDouble(L"MapiDouble.dll", folder / L"component \u00FC\u00DF.dll");
    CopyDouble(L"MapiDouble.dll", folder / L"client.dll");
    const Stub stub(L"MapiDouble.dll", folder / L"stub.dll");
    componentCall.path = NarrowPath(folder / L"component \u00FC\u00DF.dll");
    SetMsiRegistration(registry, L"{FF1D0740-D227-11D1-A4B0-006008AF820E}", L"1033");
    registry.SetClientText(L"DllPathEx", folder / L"client.dll");

    EXPECT_EQ(PathOf(GetMapiModule()), folder / L"component \u00FC\u00DF.dll") << "the component goes before the path";
    EXPECT_EQ(componentCall.count, 1);
    EXPECT_EQ(componentCall.component, "{FF1D0740-D227-11D1-A4B0-006008AF820E}");
    EXPECT_EQ(componentCall.qualifier, "1033");
    EXPECT_EQ(componentCall.size, 260u);
    EXPECT_EQ(componentCall.install, FALSE);
    // The stub was given back: this test holds the last reference.
    FreeLibrary(stub.module);
    EXPECT_EQ(GetModuleHandleW(L"stub.dll"), nullptr);
}

TEST_ALONE(MapiBinding, AsksForNoComponentUnlessBothValuesAreThere)
{
    const TempFolder folder;
    CopyDouble(L"MapiDouble.dll", folder / L"client.dll");
    CopyDouble(L"MapiDouble.dll", folder / L"component.dll");
    const Stub stub(L"MapiDouble.dll", folder / L"stub.dll");
    componentCall.path = NarrowPath(folder / L"component.dll");
    ScratchRegistry registry;
    SetMsiRegistration(registry, L"{FF1D0740-D227-11D1-A4B0-006008AF820E}", nullptr);
    registry.SetClientText(L"DllPathEx", folder / L"client.dll");
    EXPECT_EQ(PathOf(GetMapiModule()), folder / L"client.dll");
    EXPECT_EQ(componentCall.count, 0);
}

TEST_ALONE(MapiBinding, GoesOnToThePathWhenTheStubKnowsNoComponent)
{
    const TempFolder folder;
    CopyDouble(L"MapiDouble.dll", folder / L"client.dll");
    const Stub stub(L"MapiDouble.dll", folder / L"stub.dll");
    ScratchRegistry registry;
    SetMsiRegistration(registry, L"component", L"1033");
    registry.SetClientText(L"DllPathEx", folder / L"client.dll");
    EXPECT_EQ(PathOf(GetMapiModule()), folder / L"client.dll");
    EXPECT_EQ(componentCall.count, 1);
    FreeLibrary(stub.module);
    EXPECT_EQ(GetModuleHandleW(L"stub.dll"), nullptr);
}

TEST_ALONE(MapiBinding, GoesOnToThePathWhenTheStubCannotBeAsked)
{
    const TempFolder folder;
    CopyDouble(L"MapiDouble.dll", folder / L"client.dll");
    // A module without the function.
    const Stub stub(L"PstDouble.dll", folder / L"stub.dll");
    ScratchRegistry registry;
    SetMsiRegistration(registry, L"component", L"1033");
    registry.SetClientText(L"DllPathEx", folder / L"client.dll");
    EXPECT_EQ(PathOf(GetMapiModule()), folder / L"client.dll");
    FreeLibrary(stub.module);
    EXPECT_EQ(GetModuleHandleW(L"stub.dll"), nullptr);
}

TEST_ALONE(MapiBinding, AsksTheOtherStubWhenTheFirstCannotBeLoaded)
{
    const TempFolder folder;
    CopyDouble(L"MapiDouble.dll", folder / L"component.dll");
    const HMODULE stub = LoadMapiDouble(folder / L"mapistub.dll");
    FunctionsOf(stub).getComponentPath = GiveComponentPath;
    componentCall.path = NarrowPath(folder / L"component.dll");
    ScratchRegistry registry;
    SetMsiRegistration(registry, L"component", L"1033");
    refusedModules = L"<mapi32.dll>";
    const ImportHook<HMODULE(LPCWSTR)> hook("LoadLibraryW", LoadUnlessRefused);
    EXPECT_EQ(PathOf(GetMapiModule()), folder / L"component.dll");
}

TEST_ALONE(MapiBinding, GoesOnToThePathWhenNoStubCanBeLoaded)
{
    const TempFolder folder;
    CopyDouble(L"MapiDouble.dll", folder / L"client.dll");
    ScratchRegistry registry;
    SetMsiRegistration(registry, L"component", L"1033");
    registry.SetClientText(L"DllPathEx", folder / L"client.dll");
    refusedModules = L"<mapi32.dll><mapistub.dll>";
    const ImportHook<HMODULE(LPCWSTR)> hook("LoadLibraryW", LoadUnlessRefused);
    EXPECT_EQ(PathOf(GetMapiModule()), folder / L"client.dll");
}

TEST_ALONE(MapiBinding, LooksForOutlookAloneWhenItIsToldTo)
{
    const TempFolder folder;
    ScratchRegistry registry;
    CopyDouble(L"MapiDouble.dll", folder / L"client.dll");
    CopyDouble(L"MapiDouble.dll", folder / L"outlook.dll");
    registry.SetClientText(L"DllPathEx", folder / L"client.dll");
    EXPECT_FALSE(Mapi::GetOnlyOutlookMailClient()) << "off by itself";
    Mapi::GetOnlyOutlookMailClient() = true;
    EXPECT_EQ(GetMapiModule(), nullptr) << "neither the default client nor the system's MAPI";
    registry.SetText(L"Software\\Clients\\Mail\\Microsoft Outlook", L"DllPathEx", folder / L"outlook.dll");
    EXPECT_EQ(PathOf(GetMapiModule()), folder / L"outlook.dll");
}

TEST_ALONE(MapiBinding, FailsWithoutAnyMapiAndSearchesAgainLater)
{
    const NoMapi none;
    const TempFolder folder;
    const Tests::LogCapture log;
    void* block = nullptr;
    ULONG size = 0;
    ENTRYID* wrapped = nullptr;
    char name[] = "name.dll";
    ENTRYID entryId = {};
    for (int round = 1; round <= 2; ++round)
    {
        EXPECT_EQ(GetMapiModule(), nullptr);
        EXPECT_EQ(Mapi::MAPIAllocateMore(8, name, &block), E_FAIL);
        EXPECT_EQ(Mapi::MAPIAllocateBuffer(8, &block), E_FAIL);
        EXPECT_EQ(Mapi::MAPIFreeBuffer(name), static_cast<ULONG>(E_FAIL));
        EXPECT_EQ(Mapi::WrapStoreEntryID(0, name, 8, &entryId, &size, &wrapped), E_FAIL);
        EXPECT_EQ(systemSearches, 5 * round) << "every call searches";
    }
    EXPECT_THAT(log.Lines(), testing::IsEmpty());
    EXPECT_TRUE(Mapi::GetMapiPath().IsEmpty());
    EXPECT_THROW(Mapi::AllocateMapiBuffer(8), CComError);
    EXPECT_THROW(Mapi::CreateMapiError(MAPI_UNICODE, MAPIERROR()), CComError);
    Mapi::FreeMapiBuffer(name);
    ASSERT_FALSE(log.Lines().empty());
    EXPECT_EQ(log.Lines().back().level, LogId::Error);
    EXPECT_EQ(log.Lines().back().text, L"MAPIFreeBuffer: no MAPI module; the block is kept");

    // The mail client starts MAPI.
    const HMODULE module = LoadMapiDouble(folder / L"olmapi32.dll");
    FunctionsOf(module).allocateMore = [](ULONG, LPVOID, LPVOID*) -> SCODE { return MAPI_W_ERRORS_RETURNED; };
    FunctionsOf(module).wrapStoreEntryId = [](ULONG, LPSTR, ULONG, LPENTRYID, ULONG*, LPENTRYID*) -> HRESULT
    { return MAPI_E_NO_ACCESS; };
    EXPECT_EQ(Mapi::MAPIAllocateMore(8, name, &block), MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(Mapi::WrapStoreEntryID(0, name, 8, &entryId, &size, &wrapped), MAPI_E_NO_ACCESS);
    EXPECT_EQ(GetMapiModule(), module);
}

TEST_ALONE(MapiBinding, LooksAFunctionUpOnce)
{
    const TempFolder folder;
    LoadMapiDouble(folder / L"olmapi32.dll");
    const ImportHook<FARPROC(HMODULE, LPCSTR)> hook("GetProcAddress",
                                                    [](HMODULE module, LPCSTR name) -> FARPROC
                                                    {
                                                        ++functionsLookedUp;
                                                        return GetProcAddress(module, name);
                                                    });
    for (int round = 0; round < 3; ++round)
        Mapi::MAPIFreeBuffer(nullptr);
    EXPECT_EQ(functionsLookedUp, 1);
}

TEST_ALONE(MapiBinding, GoesOnToTheSystemsWhenTheClientsCannotBeRead)
{
    const ImportHook<LSTATUS(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY)> hook(
        "RegOpenKeyExW",
        [](HKEY, LPCWSTR, DWORD, REGSAM, PHKEY) -> LSTATUS
        {
            ++registryReads;
            return ERROR_ACCESS_DENIED;
        });
    const HMODULE module = GetMapiModule();
    EXPECT_EQ(registryReads, 1);
    EXPECT_NE(module, nullptr);
    EXPECT_EQ(module, GetModuleHandleW(L"mapi32.dll"));
}

TEST_ALONE(MapiBinding, HasNoneWhereTheSystemDirectoryCannotBeTold)
{
    const ScratchRegistry registry;
    static UINT length;
    const ImportHook<UINT(LPWSTR, UINT)> hook("GetSystemDirectoryW", [](LPWSTR, UINT) -> UINT { return length; });
    // A failure, and a name that is longer than there is room for.
    for (const UINT told : {0u, 260u, 32767u})
    {
        length = told;
        EXPECT_EQ(GetMapiModule(), nullptr) << told;
    }
}

TEST_ALONE(MapiBinding, KeepsABlockThatCannotBeFreedAndSaysSo)
{
    const NoMapi none;
    Tests::LogCapture log;
    char block[8] = {};
    Mapi::FreeMapiBuffer(block);
    EXPECT_EQ(log.Take().size(), 1u);
    Mapi::FreeMapiBuffer(nullptr);
    EXPECT_EQ(log.Take().size(), 0u);
}

TEST_ALONE(MapiBinding, PassesAllArgumentsAndResultsThrough)
{
    static char object;
    static void* givenBlock;
    static ENTRYID entryId;
    static ULONG wrappedSize;
    static ENTRYID* wrapped;
    static char name[] = "name.dll";
    const TempFolder folder;
    MapiDouble& functions = FunctionsOf(LoadMapiDouble(folder / L"olmapi32.dll"));
    functions.allocateMore = [](ULONG size, LPVOID parent, LPVOID* block) -> SCODE
    {
        EXPECT_EQ(size, 0xFFFFFFFF);
        EXPECT_EQ(parent, &object);
        EXPECT_EQ(block, &givenBlock);
        *block = &object;
        return MAPI_W_PARTIAL_COMPLETION;
    };
    functions.allocateBuffer = [](ULONG size, LPVOID* block) -> SCODE
    {
        EXPECT_EQ(size, 12u);
        EXPECT_EQ(block, &givenBlock);
        return MAPI_E_BUSY;
    };
    functions.freeBuffer = [](LPVOID block) -> ULONG
    {
        EXPECT_EQ(block, &object);
        return 77;
    };
    functions.wrapStoreEntryId = [](ULONG flags, LPSTR dll, ULONG size, LPENTRYID id, ULONG* outSize,
                                    LPENTRYID* out) -> HRESULT
    {
        EXPECT_EQ(flags, 0x80000001);
        EXPECT_EQ(dll, name);
        EXPECT_EQ(size, 99u);
        EXPECT_EQ(id, &entryId);
        EXPECT_EQ(outSize, &wrappedSize);
        EXPECT_EQ(out, &wrapped);
        return MAPI_W_ERRORS_RETURNED;
    };
    for (int round = 0; round < 2; ++round)
    {
        EXPECT_EQ(Mapi::MAPIAllocateMore(0xFFFFFFFF, &object, &givenBlock), MAPI_W_PARTIAL_COMPLETION);
        EXPECT_EQ(givenBlock, &object);
        EXPECT_EQ(Mapi::MAPIAllocateBuffer(12, &givenBlock), MAPI_E_BUSY);
        EXPECT_EQ(Mapi::MAPIFreeBuffer(&object), 77u);
        EXPECT_EQ(Mapi::WrapStoreEntryID(0x80000001, name, 99, &entryId, &wrappedSize, &wrapped),
                  MAPI_W_ERRORS_RETURNED);
    }
}

TEST_ALONE(MapiBinding, FailsForAFunctionThatTheModuleLacks)
{
    const TempFolder folder;
    // A module with none of the functions.
    CopyDouble(L"PstDouble.dll", folder / L"olmapi32.dll");
    const HMODULE module = LoadLibraryW((folder / L"olmapi32.dll").c_str());
    ASSERT_NE(module, nullptr);
    void* block = nullptr;
    for (int round = 0; round < 2; ++round)
    {
        EXPECT_EQ(Mapi::MAPIAllocateMore(8, &block, &block), E_FAIL);
        EXPECT_EQ(Mapi::WrapStoreEntryID(0, nullptr, 0, nullptr, nullptr, nullptr), E_FAIL);
    }
    EXPECT_EQ(GetMapiModule(), module) << "it is the MAPI module all the same";
}

TEST_ALONE(MapiBinding, GivesAllThreadsOfAColdStartOneModuleAndFreesTheOthers)
{
    constexpr int threadCount = 8;
    const TempFolder folder;
    ScratchRegistry registry;
    const std::wstring path = folder / L"client.dll";
    CopyDouble(L"MapiDouble.dll", path);
    registry.SetClientText(L"DllPathEx", path);
    // All of them are made to load the module before any of them can publish it.
    const ImportHook<HMODULE(LPCWSTR)> loadHook("LoadLibraryW",
                                                [](LPCWSTR name) -> HMODULE
                                                {
                                                    const HMODULE module = LoadLibraryW(name);
                                                    ++loads;
                                                    while (loads < threadCount)
                                                        Sleep(1);
                                                    return module;
                                                });
    const ImportHook<BOOL(HMODULE)> freeHook("FreeLibrary",
                                             [](HMODULE module) -> BOOL
                                             {
                                                 ++frees;
                                                 return FreeLibrary(module);
                                             });
    std::vector<HMODULE> modules(threadCount);
    {
        std::vector<std::jthread> threads;
        for (HMODULE& module : modules)
            threads.emplace_back([&module] { module = GetMapiModule(); });
    }
    EXPECT_EQ(PathOf(modules[0]), path);
    EXPECT_EQ(std::count(modules.begin(), modules.end(), modules[0]), threadCount);
    EXPECT_EQ(loads, threadCount);
    EXPECT_EQ(frees, threadCount - 1);
    // One reference is left.
    EXPECT_EQ(GetModuleHandleW(L"client.dll"), modules[0]);
    FreeLibrary(modules[0]);
    EXPECT_EQ(GetModuleHandleW(L"client.dll"), nullptr);
}
