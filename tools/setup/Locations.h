// Where MAPISVC.INF and a provider's DLL are found.
#pragma once

#include <optional>
#include <string>

namespace Setup
{

/// A file and how it was found, as a part of a sentence: "beside the MAPI module".
struct Location
{
    std::wstring path;
    std::wstring how;
};

/// The full form of a path given by the user. Throws SetupError when it is none.
std::wstring GetFullPath(const std::wstring& path);

/// The folder of this program.
std::wstring GetProgramFolder();

/// MAPISVC.INF where the mail client has it: beside its MAPI module, which is the one that the mail client's
/// registration names (by FGetComponentPath, else by DllPathEx or DllPath), else in the system folder. Throws
/// SetupError with the places when it is in neither.
Location FindMapiSvcInf();

/// The name under which MAPI loads a module that is registered as `dllName`: with "32" before its first period. (Before
/// that of the whole path, where it has one: a folder's name with a period cannot be registered.)
std::wstring GetLoadedName(const std::wstring& dllName);

/// The DLL that MAPI loads for a provider registered with the name `dllName`, in the folders in which the mail client's
/// process looks for it. Nothing when there is none.
std::optional<std::wstring> FindProviderDll(const std::wstring& dllName);

/// The file of the registered name itself, which MAPI does not load.
std::optional<std::wstring> FindDllWithoutSuffix(const std::wstring& dllName);

} // namespace Setup
