// Reading what a module's file says of itself, without loading it.
#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace Setup
{

/// A file is no module, or a damaged one; `what` is the end of a sentence about it.
class NoModule : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// What a module needs of another one.
struct ImportedModule
{
    std::string name;
    /// The functions that it takes by name.
    std::vector<std::string> functions;
};

/// The headers and the tables of names of a module's file.
struct ModuleFile
{
    WORD machine = 0;
    bool isDll = false;
    /// Read only of a file for this program's own processor.
    std::vector<std::string> exports;
    std::vector<ImportedModule> imports;
};

/// The processor for which this program is built.
#if defined(_M_ARM64)
constexpr WORD ownMachine = IMAGE_FILE_MACHINE_ARM64;
#else
constexpr WORD ownMachine = IMAGE_FILE_MACHINE_AMD64;
#endif

/// Throws NoModule.
ModuleFile ReadModule(const std::wstring& path);

} // namespace Setup
