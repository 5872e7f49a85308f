// What archive-browser.exe needs to be started: what any program on a user's machine finds there.
#include "tests/e2e/Environment.h"

#include "tools/setup/Locations.h"

#include <set>

namespace Tests
{
namespace
{
// The names of the modules that a program's file imports from.
std::set<std::string> ImportsOf(const std::filesystem::path& file)
{
    // Mapped as an image, so that addresses are offsets, and nothing of it is run.
    const HMODULE module = LoadLibraryExW(file.c_str(), nullptr, LOAD_LIBRARY_AS_IMAGE_RESOURCE);
    EXPECT_NE(module, nullptr) << file;
    std::set<std::string> names;
    if (!module)
        return names;
    // The lower bits of such a handle are marks.
    const auto* base = reinterpret_cast<const BYTE*>(reinterpret_cast<ULONG_PTR>(module) & ~ULONG_PTR{3});
    const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& table = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (const auto* entry = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + table.VirtualAddress);
         entry->Name != 0; ++entry)
    {
        std::string name = reinterpret_cast<const char*>(base + entry->Name);
        for (char& character : name)
            character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
        names.insert(name);
    }
    FreeLibrary(module);
    return names;
}

bool IsInSystemFolder(const std::string& name)
{
    wchar_t folder[MAX_PATH] = {};
    GetSystemDirectoryW(folder, MAX_PATH);
    return std::filesystem::exists(std::filesystem::path(folder) / name);
}

TEST(ImportTableTest, TheBrowserNeedsWindowsAndTheLibraryAlone)
{
    // The compilers', and that of AddressSanitizer, which a build under it needs as well.
    const std::set<std::string> runtime = {"libgcc_s_seh-1.dll", "libstdc++-6.dll", "libwinpthread-1.dll",
                                           "clang_rt.asan.dll"};
    const std::set<std::string> imports =
        ImportsOf(std::filesystem::path(Setup::GetProgramFolder()) / "archive-browser.exe");
    EXPECT_TRUE(imports.contains("kivnst.dll"));
    EXPECT_TRUE(imports.contains("kernel32.dll"));
    for (const std::string& name : imports)
        if (name != "kivnst.dll" && !runtime.contains(name))
            EXPECT_TRUE(IsInSystemFolder(name)) << name;
    // These are not of Windows, wherever they lie.
    for (const char* const name : {"olmapi32.dll", "mspst32.dll", "archivehost32.dll"})
        EXPECT_FALSE(imports.contains(name)) << name;
}
} // namespace
} // namespace Tests
