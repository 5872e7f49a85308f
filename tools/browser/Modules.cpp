// Listing the modules of this process.
#include "tools/browser/Modules.h"

#include "common/Boundary.h"
#include "common/Text.h"

#include <windows.h>

#include <tlhelp32.h>

#include <memory>

using namespace Common;

namespace Browser
{
namespace
{
template <class Function>
Function FindInNtdll(const char* name)
{
    const HMODULE module = GetModuleHandleW(L"ntdll.dll");
    return module ? reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name))) : nullptr;
}

// What a file's version resource says.
void ReadVersion(const std::wstring& path, LoadedModule& module)
{
    const DWORD size = GetFileVersionInfoSizeW(path.c_str(), nullptr);
    std::vector<char> block(size);
    if (size == 0 || !GetFileVersionInfoW(path.c_str(), 0, size, block.data()))
        return;
    void* found = nullptr;
    UINT length = 0;
    if (VerQueryValueW(block.data(), L"\\", &found, &length) && length >= sizeof(VS_FIXEDFILEINFO))
    {
        const auto& fixed = *static_cast<const VS_FIXEDFILEINFO*>(found);
        module.version = std::to_wstring(HIWORD(fixed.dwFileVersionMS)) + L"." +
                         std::to_wstring(LOWORD(fixed.dwFileVersionMS)) + L"." +
                         std::to_wstring(HIWORD(fixed.dwFileVersionLS)) + L"." +
                         std::to_wstring(LOWORD(fixed.dwFileVersionLS));
    }
    if (!VerQueryValueW(block.data(), L"\\VarFileInfo\\Translation", &found, &length) || length < 2 * sizeof(WORD))
        return;
    const auto* const language = static_cast<const WORD*>(found);
    wchar_t key[64] = {};
    wsprintfW(key, L"\\StringFileInfo\\%04x%04x\\FileDescription", language[0], language[1]);
    if (VerQueryValueW(block.data(), key, &found, &length) && length > 1)
        module.description = static_cast<const wchar_t*>(found);
}
} // namespace

std::vector<LoadedModule> ListModules()
{
    HANDLE handle = INVALID_HANDLE_VALUE;
    // A module that is loaded meanwhile makes the first attempt fail.
    for (int tries = 0; tries < 10 && handle == INVALID_HANDLE_VALUE; ++tries)
        handle = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, GetCurrentProcessId());
    if (handle == INVALID_HANDLE_VALUE)
        Fail(MAPI_E_CALL_FAILED, L"The modules of the process cannot be listed.");
    const std::unique_ptr<void, decltype(&CloseHandle)> snapshot(handle, &CloseHandle);
    std::vector<LoadedModule> modules;
    MODULEENTRY32W entry{};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Module32FirstW(handle, &entry); more; more = Module32NextW(handle, &entry))
    {
        const std::wstring path = entry.szExePath;
        LoadedModule& module = modules.emplace_back();
        module.name = entry.szModule;
        module.folder = path.substr(0, path.find_last_of(L"\\/"));
        ReadVersion(path, module);
    }
    return modules;
}

std::wstring SystemText()
{
    std::wstring text = L"Windows";
    RTL_OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof(version);
    using GetVersionFunction = LONG(WINAPI*)(RTL_OSVERSIONINFOW*);
    if (const auto get = FindInNtdll<GetVersionFunction>("RtlGetVersion"); get && get(&version) == 0)
    {
        text += L" " + std::to_wstring(version.dwMajorVersion) + L"." + std::to_wstring(version.dwMinorVersion) + L"." +
                std::to_wstring(version.dwBuildNumber);
    }
    using WineFunction = const char*(CDECL*)();
    if (const auto wine = FindInNtdll<WineFunction>("wine_get_version"))
        text += L" (Wine " + WideFromAnsi(wine()) + L")";
    return text;
}
} // namespace Browser
