// The modules of this process and what they say of themselves.
#pragma once

#include <string>
#include <vector>

namespace Browser
{
struct LoadedModule
{
    /// The file's name, and its folder.
    std::wstring name;
    std::wstring folder;
    /// "1.2.3.0"; empty where the file does not say.
    std::wstring version;
    /// What the file says it is; empty where it does not say.
    std::wstring description;
};

/// All modules of this process, the program first. Throws `Common::Failure`.
std::vector<LoadedModule> ListModules();

/// "Windows 10.0.19043", under Wine with its version.
std::wstring SystemText();
} // namespace Browser
