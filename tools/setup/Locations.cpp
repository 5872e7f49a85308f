// Where MAPISVC.INF and a provider's DLL are found.
#include "tools/setup/Locations.h"

#include "support/Format.h"
#include "support/MapiProperties.h"
#include "support/Os.h"
#include "support/OutlookAddIn.h"
#include "tools/setup/Text.h"

#include <windows.h>

#include <algorithm>
#include <vector>

namespace Setup
{
namespace
{

namespace Os = Quillon::Os;

constexpr auto infName = L"MAPISVC.INF";

/// Calls a function that wants a buffer and gives the length that it wrote, or that it would need.
template <class Ask>
std::wstring ReadPath(Ask ask)
{
    std::wstring path(MAX_PATH, L'\0');
    DWORD length = ask(path.data(), static_cast<DWORD>(path.size()));
    if (length >= path.size())
    {
        path.resize(length + 1);
        length = ask(path.data(), static_cast<DWORD>(path.size()));
    }
    path.resize(length < path.size() ? length : 0);
    return path;
}

std::wstring GetSystemFolder()
{
    return ReadPath([](wchar_t* buffer, DWORD size) { return GetSystemDirectoryW(buffer, size); });
}

std::wstring GetFolder(const Quillon::StringW& path)
{
    return Os::GetDirectoryFromPath(path).GetString();
}

/// A file in the folders in which the mail client's process looks for modules.
std::optional<std::wstring> FindModule(const std::wstring& name)
{
    std::wstring folders;
    for (const std::wstring& folder :
         {GetFolder(Quillon::OutlookAddIn::GetOutlookPath()), GetFolder(Quillon::Mapi::GetMapiPath()),
          GetSystemFolder(), ReadPath([](wchar_t* buffer, DWORD size) { return GetWindowsDirectoryW(buffer, size); }),
          ReadPath([](wchar_t* buffer, DWORD size) { return GetEnvironmentVariableW(L"PATH", buffer, size); })})
    {
        if (!folder.empty())
            folders += folder + L";";
    }
    std::wstring path =
        ReadPath([&](wchar_t* buffer, DWORD size)
                 { return SearchPathW(folders.c_str(), name.c_str(), nullptr, size, buffer, nullptr); });
    return !path.empty() && Os::VerifyFileExists(path.c_str()) ? std::optional(std::move(path)) : std::nullopt;
}

} // namespace

std::wstring GetFullPath(const std::wstring& path)
{
    const std::wstring full = path.empty()
                                  ? path
                                  : ReadPath([&](wchar_t* buffer, DWORD size)
                                             { return GetFullPathNameW(path.c_str(), size, buffer, nullptr); });
    if (full.empty())
        throw SetupError(L"\"" + path + L"\" is no path.");
    return full;
}

std::wstring GetProgramFolder()
{
    // Of a path that is cut short the function gives the buffer's length.
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
    return GetFolder(path.c_str());
}

Location FindMapiSvcInf()
{
    const Quillon::StringW mapiPath = Quillon::Mapi::GetMapiPath();
    const Quillon::StringW inSystemFolder = Os::AppendPaths(GetSystemFolder().c_str(), infName);
    std::wstring tried;
    if (!mapiPath.IsEmpty())
    {
        const Quillon::StringW beside = Os::AppendPaths(Os::GetDirectoryFromPath(mapiPath), infName);
        if (Os::VerifyFileExists(beside))
            return {beside.GetString(), std::wstring(L"beside the MAPI module \"") + mapiPath.GetString() + L"\""};
        if (!EqualNames(beside.GetString(), inSystemFolder.GetString()))
            tried = std::wstring(L"\"") + beside.GetString() + L"\" and ";
    }
    if (Os::VerifyFileExists(inSystemFolder))
        return {inSystemFolder.GetString(), L"in the system folder"};
    throw SetupError(L"MAPISVC.INF is not found (looked for as " + tried + L"\"" + inSystemFolder.GetString() +
                     L"\"); --inf names it.");
}

std::wstring GetLoadedName(const std::wstring& dllName)
{
    const std::size_t nameBegin = dllName.find_last_of(L"\\/") + 1;
    std::wstring loaded = dllName;
    loaded.insert(std::min(dllName.find(L'.', nameBegin), dllName.size()), L"32");
    return loaded;
}

std::optional<std::wstring> FindProviderDll(const std::wstring& dllName)
{
    return dllName.empty() ? std::nullopt : FindModule(GetLoadedName(dllName));
}

std::optional<std::wstring> FindDllWithoutSuffix(const std::wstring& dllName)
{
    return dllName.empty() ? std::nullopt : FindModule(dllName);
}

} // namespace Setup
