// Finding the MAPI module and binding its functions.
#include "mapi/MapiBinding.h"

#include "support/CallWrapping.h"
#include "support/MapiProperties.h"
#include "support/Os.h"

#include <atomic>
#include <cwchar>
#include <iterator>
#include <utility>

namespace Quillon::Mapi
{
namespace
{

/// The module once it is found; whoever finds one first publishes it.
std::atomic<HMODULE> g_module = nullptr;

/// Counts the modules obtained, so that a bound function notices that it has to be looked up again.
std::atomic<LONG> g_generation = 1;

bool g_onlyOutlook = false;

constexpr DWORD pathLength = MAX_PATH;

/// A path as the registry and the loader take it here: at most 260 characters, terminated.
using Path = wchar_t[pathLength + 1];

/// One reference on a loaded module, or null.
class Library
{
public:
    explicit Library(HMODULE module) noexcept : m_module(module) {}
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library()
    {
        if (m_module)
            FreeLibrary(m_module);
    }
    HMODULE Get() const noexcept { return m_module; }
    HMODULE Detach() noexcept { return std::exchange(m_module, nullptr); }

private:
    HMODULE m_module;
};

/// A registry value's raw bytes. Registry strings need not be terminated, hence the room behind them.
struct RegistryText
{
    static constexpr DWORD size = 520;
    wchar_t text[size / sizeof(wchar_t) + 1] = {};
    DWORD type = REG_NONE;
    LSTATUS status = ERROR_SUCCESS;
};

RegistryText ReadText(HKEY key, const wchar_t* name) noexcept
{
    RegistryText value;
    DWORD size = RegistryText::size;
    value.status = RegQueryValueExW(key, name, nullptr, &value.type, reinterpret_cast<BYTE*>(value.text), &size);
    if (value.status != ERROR_SUCCESS)
    {
        value.text[0] = L'\0';
        value.type = REG_NONE;
    }
    return value;
}

/// A narrow text of the registry, and the path that is asked for with it: at most 260 characters, terminated.
using NarrowText = char[pathLength + 1];

HMODULE LoadStub() noexcept
{
    const HMODULE stub = LoadLibraryW(L"mapi32.dll");
    return stub ? stub : LoadLibraryW(L"mapistub.dll");
}

/// Asks MAPI's stub where the installer put a component; false when it does not know. The stub is given back before
/// the component is loaded.
bool FindComponent(NarrowText& component, NarrowText& locale, NarrowText& path) noexcept
{
    const Library stub(LoadStub());
    if (!stub.Get())
        return false;
    using GetComponentPath = BOOL(STDAPICALLTYPE*)(LPSTR, LPSTR, LPSTR, DWORD, BOOL);
    const auto getComponentPath =
        reinterpret_cast<GetComponentPath>(reinterpret_cast<void*>(GetProcAddress(stub.Get(), "FGetComponentPath")));
    return getComponentPath && getComponentPath(component, locale, path, pathLength, FALSE);
}

HMODULE LoadFromMsiRegistration(HKEY client) noexcept
{
    NarrowText component = {};
    NarrowText locale = {};
    const auto read = [client](const char* name, NarrowText& text)
    {
        // Whatever the type: installers write the locale as a list of strings, of which the first counts.
        DWORD used = pathLength;
        return RegQueryValueExA(client, name, nullptr, nullptr, reinterpret_cast<BYTE*>(text), &used) == ERROR_SUCCESS;
    };
    if (!read("MSIComponentID", component) || !read("MSIApplicationLCID", locale))
        return nullptr;
    NarrowText path = {};
    return FindComponent(component, locale, path) ? LoadLibraryA(path) : nullptr;
}

/// The path that the value `name` gives; false when it gives none that fits.
bool ReadDllPath(HKEY client, const wchar_t* name, Path& path) noexcept
{
    const RegistryText value = ReadText(client, name);
    if (value.type == REG_EXPAND_SZ)
    {
        const DWORD length = ExpandEnvironmentStringsW(value.text, path, pathLength);
        return length != 0 && length <= pathLength;
    }
    if (value.type != REG_SZ)
        return false;
    static_assert(sizeof(path) == sizeof(value.text));
    std::wmemcpy(path, value.text, std::size(value.text));
    return true;
}

HMODULE LoadFromDllPath(HKEY client) noexcept
{
    for (const wchar_t* const name : {L"DllPathEx", L"DllPath"})
    {
        Path path = {};
        if (!ReadDllPath(client, name, path))
            continue;
        if (const HMODULE module = LoadLibraryW(path))
            return module;
    }
    return nullptr;
}

/// Loads what the mail client `clientName` registered; null names the default client.
HMODULE LoadFromMailClient(const wchar_t* clientName) noexcept
{
    // The keys stay open on purpose: the modules that are loaded from here read the same keys. They are opened once,
    // unless no module is found; then each search opens them again.
    HKEY clients = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Clients\\Mail", 0, KEY_READ, &clients) != ERROR_SUCCESS)
        return nullptr;
    RegistryText defaultName;
    if (!clientName)
    {
        defaultName = ReadText(clients, nullptr);
        if (defaultName.type != REG_SZ)
            return nullptr;
        clientName = defaultName.text;
    }
    // A client without a key is not an error of its own: the look-ups in the null key find nothing.
    HKEY client = nullptr;
    RegOpenKeyExW(clients, clientName, 0, KEY_READ, &client);
    if (const HMODULE module = LoadFromMsiRegistration(client))
        return module;
    return LoadFromDllPath(client);
}

HMODULE LoadFromSystemDirectory() noexcept
{
    wchar_t directory[pathLength] = {};
    const UINT length = GetSystemDirectoryW(directory, pathLength);
    if (length == 0 || length >= pathLength)
        return nullptr;
    constexpr wchar_t name[] = L"\\mapi32.dll";
    wchar_t path[pathLength + std::size(name)] = {};
    std::wmemcpy(path, directory, length);
    std::wmemcpy(path + length, name, std::size(name));
    return LoadLibraryW(path);
}

HMODULE FindMapiModule() noexcept
{
    HMODULE module = nullptr;
    if (GetModuleHandleExW(0, L"olmapi32.dll", &module) || GetModuleHandleExW(0, L"msmapi32.dll", &module))
        return module;
    const bool onlyOutlook = g_onlyOutlook;
    module = LoadFromMailClient(onlyOutlook ? L"Microsoft Outlook" : nullptr);
    if (!module && !onlyOutlook)
        module = LoadFromSystemDirectory();
    return module;
}

/// One function of the MAPI module, looked up when it is first called and whenever another module was obtained since.
/// Two threads may look it up at once and store the same.
template <class Function>
class BoundFunction
{
public:
    explicit constexpr BoundFunction(const char* name) noexcept : m_name(name) {}

    /// The function, or null when it cannot be bound.
    Function Get() noexcept
    {
        const LONG generation = g_generation.load(std::memory_order_acquire);
        if (m_boundAt.load(std::memory_order_acquire) == generation && g_module.load(std::memory_order_acquire))
            return m_function.load(std::memory_order_relaxed);
        const HMODULE module = GetMapiModule();
        if (!module)
            return nullptr;
        const LONG boundAt = g_generation.load(std::memory_order_acquire);
        const auto function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, m_name)));
        m_function.store(function, std::memory_order_relaxed);
        m_boundAt.store(boundAt, std::memory_order_release);
        return function;
    }

private:
    const char* m_name;
    std::atomic<Function> m_function = nullptr;
    std::atomic<LONG> m_boundAt = 0;
};

BoundFunction<SCODE(STDMETHODCALLTYPE*)(ULONG, LPVOID, LPVOID*)> g_allocateMore("MAPIAllocateMore");
BoundFunction<SCODE(STDMETHODCALLTYPE*)(ULONG, LPVOID*)> g_allocateBuffer("MAPIAllocateBuffer");
BoundFunction<ULONG(STDAPICALLTYPE*)(LPVOID)> g_freeBuffer("MAPIFreeBuffer");
BoundFunction<HRESULT(STDAPICALLTYPE*)(ULONG, LPSTR, ULONG, LPENTRYID, ULONG*, LPENTRYID*)> g_wrapStoreEntryId(
    "WrapStoreEntryID");

} // namespace

HMODULE GetMapiModule() noexcept
{
    if (const HMODULE known = g_module.load(std::memory_order_acquire))
        return known;
    Library found(FindMapiModule());
    if (!found.Get())
        return g_module.load(std::memory_order_acquire);
    HMODULE published = nullptr;
    const bool isFirst = g_module.compare_exchange_strong(published, found.Get());
    g_generation.fetch_add(1);
    // Another thread's module is the one that is kept then, and this one is given back.
    return isFirst ? found.Detach() : published;
}

bool& GetOnlyOutlookMailClient() noexcept
{
    return g_onlyOutlook;
}

SCODE MAPIAllocateMore(ULONG cbSize, LPVOID lpObject, LPVOID* lppBuffer) noexcept
{
    const auto function = g_allocateMore.Get();
    return function ? function(cbSize, lpObject, lppBuffer) : E_FAIL;
}

SCODE MAPIAllocateBuffer(ULONG cbSize, LPVOID* lppBuffer) noexcept
{
    const auto function = g_allocateBuffer.Get();
    return function ? function(cbSize, lppBuffer) : E_FAIL;
}

ULONG MAPIFreeBuffer(LPVOID lpBuffer) noexcept
{
    const auto function = g_freeBuffer.Get();
    return function ? function(lpBuffer) : static_cast<ULONG>(E_FAIL);
}

HRESULT WrapStoreEntryID(ULONG ulFlags, LPSTR lpszDLLName, ULONG cbOrigEntry, LPENTRYID lpOrigEntry,
                         ULONG* lpcbWrappedEntry, LPENTRYID* lppWrappedEntry) noexcept
{
    const auto function = g_wrapStoreEntryId.Get();
    return function ? function(ulFlags, lpszDLLName, cbOrigEntry, lpOrigEntry, lpcbWrappedEntry, lppWrappedEntry)
                    : E_FAIL;
}

// What the support layer below needs of the MAPI module.

void FreeMapiBuffer(void* buffer) noexcept
{
    if (buffer && !GetMapiModule())
        LogEntry(LogId::Error, L"MAPIFreeBuffer: no MAPI module; the block is kept");
    else if (buffer)
        MAPIFreeBuffer(buffer);
}

void* AllocateMapiBuffer(ULONG size)
{
    void* buffer = nullptr;
    CheckCall(MAPIAllocateBuffer(size, &buffer), L"Quillon::Mapi::AllocateMapiBuffer");
    return buffer;
}

StringW GetMapiPath()
{
    const HMODULE module = GetMapiModule();
    return module ? Os::GetModulePath(module) : StringW();
}

} // namespace Quillon::Mapi
