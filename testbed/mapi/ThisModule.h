// The file that this code was loaded from.
#pragma once

#include <windows.h>

#include <filesystem>
#include <string>

namespace Testbed
{
/// The path of the module that this code is linked into.
inline std::filesystem::path ThisModulePath()
{
    static const int inside = 0;
    HMODULE module = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<const wchar_t*>(&inside), &module);
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size())));
    return path;
}
} // namespace Testbed
