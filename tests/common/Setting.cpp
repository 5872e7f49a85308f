// Files and registry of a test.
#include "tests/common/Setting.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace Tests
{
namespace
{

[[noreturn]] void Fail(const char* what, LSTATUS error)
{
    std::fprintf(stderr, "tests: %s (error %ld)\n", what, error);
    std::exit(2);
}

std::filesystem::path ProgramFolder()
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return std::filesystem::path(path).parent_path();
}

std::filesystem::path FolderOfTests()
{
    wchar_t path[MAX_PATH] = {};
    const DWORD length = GetEnvironmentVariableW(L"KIVNST_TEST_TEMP", path, MAX_PATH);
    if (length == 0 || length >= MAX_PATH)
        GetTempPathW(MAX_PATH, path);
    return path;
}

} // namespace

TempFolder::TempFolder()
{
    static unsigned count = 0;
    m_path = FolderOfTests() / (L"unit-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++count));
    m_path.make_preferred();
    // A process that had this one's number may have left a folder in which a module was loaded.
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
    std::filesystem::create_directories(m_path);
}

TempFolder::~TempFolder()
{
    // A module that was loaded from here stays loaded, and its file may have to stay too.
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

void CopyDouble(const std::wstring& name, const std::wstring& target)
{
    const std::filesystem::path source = ProgramFolder().parent_path() / L"unit-doubles" / name;
    if (!CopyFileW(source.c_str(), target.c_str(), TRUE))
        Fail("a test double cannot be copied", static_cast<LSTATUS>(GetLastError()));
}

std::wstring OutlookProgram()
{
    std::filesystem::path path = ProgramFolder().parent_path() / L"mail-client" / L"outlook.exe";
    return path.make_preferred().wstring();
}

void WriteFileBytes(const std::wstring& path, const std::string& bytes)
{
    std::ofstream(std::filesystem::path(path), std::ios::binary) << bytes;
}

std::string ReadFileBytes(const std::wstring& path)
{
    std::ifstream file(std::filesystem::path(path), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

ScratchRegistry::ScratchRegistry() : m_path(L"Software\\KivNst unit tests\\" + std::to_wstring(GetCurrentProcessId()))
{
    LSTATUS error =
        RegCreateKeyExW(HKEY_CURRENT_USER, m_path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &m_key, nullptr);
    if (error == ERROR_SUCCESS)
        error = RegOverridePredefKey(HKEY_LOCAL_MACHINE, m_key);
    if (error != ERROR_SUCCESS)
        Fail("the registry cannot be replaced", error);
}

ScratchRegistry::~ScratchRegistry()
{
    RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    RegCloseKey(m_key);
    RegDeleteTreeW(HKEY_CURRENT_USER, m_path.c_str());
}

void ScratchRegistry::SetBytes(const std::wstring& key, const wchar_t* name, DWORD type, const void* bytes,
                               std::size_t size)
{
    HKEY opened = nullptr;
    LSTATUS error = RegCreateKeyExW(m_key, key.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &opened, nullptr);
    if (error != ERROR_SUCCESS)
        Fail("a registry key cannot be made", error);
    error = RegSetValueExW(opened, name, 0, type, static_cast<const BYTE*>(bytes), static_cast<DWORD>(size));
    RegCloseKey(opened);
    if (error != ERROR_SUCCESS)
        Fail("a registry value cannot be written", error);
}

void ScratchRegistry::SetText(const std::wstring& key, const wchar_t* name, const std::wstring& text, DWORD type)
{
    SetBytes(key, name, type, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

void ScratchRegistry::SetDefaultClient(const std::wstring& client)
{
    SetText(L"Software\\Clients\\Mail", nullptr, client);
}

void ScratchRegistry::SetClientText(const wchar_t* name, const std::wstring& text, DWORD type)
{
    SetDefaultClient(L"Client");
    SetText(L"Software\\Clients\\Mail\\Client", name, text, type);
}

void ScratchRegistry::SetOutlookPath(const std::wstring& path, DWORD type)
{
    SetText(L"Software\\Microsoft\\Windows\\CurrentVersion\\App Paths\\outlook.exe", nullptr, path, type);
}

} // namespace Tests
