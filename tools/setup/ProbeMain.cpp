// archive-probe: loads a host's DLL as the mail client would and prints what is wrong with it. archive-setup starts it,
// so that a DLL that does harm when it is loaded does it to this process.
//
//     archive-probe DLL [FOLDER...]
//     archive-probe --version
//
// FOLDERs are looked through for modules, besides the DLL's own, the system's and those of PATH. Each problem is a line
// of three parts, separated by tabs: "problem", its kind, and the whole of it. The last line is "done".
#include "tools/setup/ModuleFile.h"
#include "tools/setup/Text.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <set>

namespace
{

using namespace Setup;

constexpr auto libraryName = L"KivNst.dll";

std::wstring GetFolder(const std::wstring& path)
{
    return path.substr(0, path.find_last_of(L"\\/"));
}

std::string DescribeError(DWORD error)
{
    wchar_t text[512] = {};
    DWORD length =
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK,
                       nullptr, error, 0, text, static_cast<DWORD>(std::size(text)), nullptr);
    while (length != 0 && (text[length - 1] == L' ' || text[length - 1] == L'.'))
        --length;
    return ToUtf8(std::wstring(text, length)) + " (error " + std::to_string(error) + ")";
}

/// How a compiler's names of C++ functions begin.
bool IsMicrosoftName(const std::string& name)
{
    return name.starts_with('?');
}

class Probe
{
public:
    Probe(std::wstring path, std::vector<std::wstring> folders) : m_path(std::move(path)), m_folders(std::move(folders))
    {
        m_folders.insert(m_folders.begin(), GetFolder(m_path));
        wchar_t folder[MAX_PATH] = {};
        if (GetSystemDirectoryW(folder, MAX_PATH) != 0)
            m_systemFolder = folder;
        m_folders.push_back(m_systemFolder);
        if (GetWindowsDirectoryW(folder, MAX_PATH) != 0)
            m_folders.emplace_back(folder);
        std::wstring list(32768, L'\0');
        list.resize(GetEnvironmentVariableW(L"PATH", list.data(), static_cast<DWORD>(list.size())));
        for (std::size_t begin = 0; begin < list.size();)
        {
            const std::size_t end = std::min(list.find(L';', begin), list.size());
            if (end != begin)
                m_folders.push_back(list.substr(begin, end - begin));
            begin = end + 1;
        }
    }

    void Run()
    {
        Check(m_path, nullptr, {});
        if (!m_isSound)
            return;
        // Not the folder of this program, which is not the mail client's.
        for (const std::wstring& folder : m_folders)
            AddDllDirectory(folder.c_str());
        if (!LoadLibraryExW(m_path.c_str(), nullptr,
                            LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_USER_DIRS |
                                LOAD_LIBRARY_SEARCH_SYSTEM32))
            Tell("cannot be loaded", ToUtf8(m_path) + " cannot be loaded: " + DescribeError(GetLastError()));
    }

private:
    void Tell(const char* kind, const std::string& detail)
    {
        m_isSound = false;
        const std::string line = std::string("problem\t") + kind + "\t" + detail + "\n";
        std::fwrite(line.data(), 1, line.size(), stdout);
        std::fflush(stdout);
    }

    /// Checks a module and those that it needs. `needed` is what `user` takes of it; null for the host's own.
    void Check(const std::wstring& path, const ImportedModule* needed, const std::string& user)
    {
        const std::string file = ToUtf8(path);
        try
        {
            const ModuleFile module = ReadModule(path);
            if (module.machine != ownMachine)
            {
                Tell("wrong bitness", file + " is built for other processors (" +
                                          (module.machine == IMAGE_FILE_MACHINE_I386 ? "32-bit" : "of another kind") +
                                          "); the mail client of this tool is a 64-bit one");
                return;
            }
            if (!module.isDll)
            {
                Tell("not a module", file + " is a program and no DLL");
                return;
            }
            if (needed)
                CheckFunctions(file, module, *needed, user);
            else
                CheckEntryPoints(file, module);
            for (const ImportedModule& imported : module.imports)
                CheckImport(file, imported);
        }
        catch (const NoModule& fault)
        {
            Tell("not a module", file + " is not a module: " + fault.what());
        }
    }

    void CheckEntryPoints(const std::string& file, const ModuleFile& module)
    {
        for (const char* const name : {"ServiceEntry", "MSProviderInit"})
            if (std::find(module.exports.begin(), module.exports.end(), name) == module.exports.end())
                Tell("missing export", file + " does not export " + name);
    }

    void CheckImport(const std::string& file, const ImportedModule& imported)
    {
        const std::wstring name = ToWide(imported.name);
        // These stand for parts of the system and are no files.
        if (EqualNames(name.substr(0, 4), L"api-") || EqualNames(name.substr(0, 4), L"ext-"))
            return;
        const std::wstring path = FindModule(name);
        if (path.empty())
        {
            if (m_checked.insert(imported.name).second)
            {
                Tell("missing module", imported.name + ", which " + file +
                                           " needs, is in none of the folders where the mail client looks for it");
            }
        }
        else if (EqualNames(name, libraryName) || m_checked.insert(imported.name).second)
        {
            // What the system has is in order.
            if (!EqualNames(GetFolder(path), m_systemFolder))
                Check(path, &imported, file);
        }
    }

    /// The library's classes have to be those for which the host was compiled.
    void CheckFunctions(const std::string& file, const ModuleFile& module, const ImportedModule& needed,
                        const std::string& user)
    {
        if (!EqualNames(ToWide(needed.name), libraryName))
            return;
        const std::set<std::string> exports(module.exports.begin(), module.exports.end());
        std::vector<std::string> missing;
        for (const std::string& function : needed.functions)
            if (!exports.contains(function))
                missing.push_back(function);
        if (missing.empty())
            return;
        const bool isMicrosoft = std::any_of(exports.begin(), exports.end(), IsMicrosoftName);
        const bool wantsMicrosoft = IsMicrosoftName(missing.front());
        Tell("wrong ABI", user + " needs " + missing.front() +
                              (missing.size() == 1 ? "" : " and " + std::to_string(missing.size() - 1) + " more") +
                              ", which " + file + " does not have: it was built for " +
                              (isMicrosoft != wantsMicrosoft ? "another C++ ABI" : "another version of it"));
    }

    std::wstring FindModule(const std::wstring& name) const
    {
        for (const std::wstring& folder : m_folders)
        {
            std::wstring path = folder + L"\\" + name;
            const DWORD attributes = GetFileAttributesW(path.c_str());
            if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
                return path;
        }
        return {};
    }

    const std::wstring m_path;
    std::vector<std::wstring> m_folders;
    std::wstring m_systemFolder;
    std::set<std::string> m_checked;
    bool m_isSound = true;
};

/// Nobody is there to close a message box.
LONG WINAPI EndAtOnce(EXCEPTION_POINTERS* exception) noexcept
{
    TerminateProcess(GetCurrentProcess(), exception->ExceptionRecord->ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

} // namespace

int main()
{
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    SetUnhandledExceptionFilter(&EndAtOnce);
    try
    {
        std::vector<std::wstring> arguments = GetArguments();
        if (arguments.empty())
        {
            std::fputs("archive-probe: archive-setup starts this program; by itself it is of no use.\n", stderr);
            return 2;
        }
        if (arguments.front() == L"--version")
        {
            std::fputs("archive-probe " KIVNST_VERSION "\n", stdout);
            return 0;
        }
        Probe(arguments.front(), {arguments.begin() + 1, arguments.end()}).Run();
        std::fputs("done\n", stdout);
        return 0;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "archive-probe: %s\n", error.what());
        return 1;
    }
}
