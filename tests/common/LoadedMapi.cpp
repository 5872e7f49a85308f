// Loading of the MAPI module and of its functions.
#include "tests/common/LoadedMapi.h"

#include "common/Text.h"
#include "testbed/common/RegistryKey.h"

namespace Tests
{
using namespace Testbed;

namespace
{
template <class F>
F Find(HMODULE module, const char* name) noexcept
{
    // The detour over void* is how a FARPROC becomes another function pointer without a cast that compilers warn of.
    return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

BOOL WINAPI AppendBlock(const OlmapiBlock* block, LPVOID context)
{
    try
    {
        auto& text = *static_cast<std::wstring*>(context);
        text += L"allocation " + std::to_wstring(block->ullSerial) + L": " + std::to_wstring(block->cb) + L" bytes" +
                (block->pvRoot ? L", linked\n" : L"\n");
        return TRUE;
    }
    catch (const std::bad_alloc&)
    {
        return FALSE;
    }
}
} // namespace

std::shared_ptr<LoadedMapi> LoadedMapi::Load(const std::filesystem::path& path)
{
    const HMODULE module = LoadLibraryW(path.c_str());
    if (!module)
    {
        const DWORD error = ::GetLastError();
        Fail(MAPI_E_NOT_FOUND,
             L"The MAPI module \"" + path.wstring() + L"\" cannot be loaded (error " + std::to_wstring(error) + L").");
    }
    std::shared_ptr<LoadedMapi> loaded(new LoadedMapi(module, path));
    if (!loaded->m_memory)
        Fail(MAPI_E_VERSION, L"\"" + path.wstring() + L"\" is no MAPI module: it does not export MAPI's functions.");
    return loaded;
}

std::shared_ptr<LoadedMapi> LoadedMapi::LoadRegistered()
{
    const RegistryKey mail = RegistryKey::Open(HKEY_LOCAL_MACHINE, L"Software\\Clients\\Mail");
    const auto name = mail ? mail.ReadText(nullptr) : std::nullopt;
    const RegistryKey client = name && !name->empty() ? RegistryKey::Open(mail.Get(), *name) : RegistryKey();
    const auto path = client ? client.ReadText(L"DllPathEx") : std::nullopt;
    if (!path)
        Fail(MAPI_E_NOT_INITIALIZED, L"No mail client with a MAPI module is registered on this computer.");
    return Load(*path);
}

LoadedMapi::LoadedMapi(HMODULE module, std::filesystem::path path)
    : m_module(module),
      m_path(std::move(path)),
      m_memory(Find<LPALLOCATEBUFFER>(module, "MAPIAllocateBuffer"), Find<LPALLOCATEMORE>(module, "MAPIAllocateMore"),
               Find<LPFREEBUFFER>(module, "MAPIFreeBuffer"))
{
}

LoadedMapi::~LoadedMapi()
{
    FreeLibrary(m_module);
}

OlmapiStatistics LoadedMapi::Statistics() const noexcept
{
    OlmapiStatistics statistics{};
    statistics.cbSize = sizeof(statistics);
    if (const auto get = Find<OLMAPI_GET_STATISTICS>(m_module, "OlmapiGetStatistics"))
        get(&statistics);
    return statistics;
}

void LoadedMapi::FailAllocation(ULONG nth) const noexcept
{
    if (const auto fail = Find<OLMAPI_FAIL_ALLOCATION>(m_module, "OlmapiFailAllocation"))
        fail(nth);
}

std::wstring LoadedMapi::LiveBlocks(ULONGLONG firstSerial) const
{
    std::wstring text;
    if (const auto enumerate = Find<OLMAPI_ENUMERATE_BLOCKS>(m_module, "OlmapiEnumerateBlocks"))
        enumerate(firstSerial, AppendBlock, &text);
    return text;
}

void LoadedMapi::RequireNoBlocks(ULONGLONG firstSerial) const noexcept
{
    if (const auto require = Find<OLMAPI_REQUIRE_NO_BLOCKS>(m_module, "OlmapiRequireNoBlocks"))
        require(firstSerial);
}
} // namespace Tests
