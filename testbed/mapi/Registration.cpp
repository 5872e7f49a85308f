// Registers the mail client, and takes it out again.
#include "testbed/mapi/Registration.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"
#include "testbed/common/RegistryKey.h"

namespace Testbed
{
namespace
{
constexpr const wchar_t* clientName = L"Microsoft Outlook";
constexpr const wchar_t* mailPath = L"Software\\Clients\\Mail";
constexpr const wchar_t* clientPath = L"Software\\Clients\\Mail\\Microsoft Outlook";
constexpr const wchar_t* appPath = L"Software\\Microsoft\\Windows\\CurrentVersion\\App Paths\\outlook.exe";

void CheckRegistry(LSTATUS error, const std::wstring& path)
{
    if (error != ERROR_SUCCESS)
    {
        Fail(MAPI_E_NO_ACCESS, L"The registry key HKEY_LOCAL_MACHINE\\" + path + L" cannot be changed (error " +
                                   std::to_wstring(error) + L").");
    }
}

void WriteText(const std::wstring& path, const wchar_t* name, const std::wstring& text)
{
    LSTATUS error = ERROR_SUCCESS;
    RegistryKey key = RegistryKey::Create(HKEY_LOCAL_MACHINE, path, error);
    CheckRegistry(error, path);
    CheckRegistry(key.WriteText(name, text), path);
}

void DeleteKey(const std::wstring& path)
{
    const LSTATUS error = RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str());
    CheckRegistry(error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error, path);
}
} // namespace

void RegisterMailClient(const std::filesystem::path& folder)
{
    std::error_code error;
    const std::filesystem::path full = std::filesystem::absolute(folder, error);
    for (const wchar_t* name : {L"outlook.exe", L"olmapi32.dll", L"mspst32.dll"})
        if (!std::filesystem::is_regular_file(full / name, error))
            Fail(MAPI_E_NOT_FOUND, L"\"" + (full / name).wstring() + L"\" is not there.");
    WriteText(mailPath, nullptr, clientName);
    WriteText(clientPath, nullptr, clientName);
    WriteText(clientPath, L"DllPathEx", (full / L"olmapi32.dll").wstring());
    WriteText(appPath, nullptr, (full / L"outlook.exe").wstring());
    WriteText(appPath, L"Path", full.wstring());
}

void UnregisterMailClient()
{
    DeleteKey(appPath);
    DeleteKey(clientPath);
    const RegistryKey mail = RegistryKey::Open(HKEY_LOCAL_MACHINE, mailPath);
    const auto defaultClient = mail ? mail.ReadText(nullptr) : std::nullopt;
    if (defaultClient && *defaultClient == clientName)
    {
        LSTATUS error = ERROR_SUCCESS;
        const RegistryKey writable = RegistryKey::Create(HKEY_LOCAL_MACHINE, mailPath, error);
        CheckRegistry(error, mailPath);
        CheckRegistry(RegDeleteValueW(writable.Get(), nullptr), mailPath);
    }
}
} // namespace Testbed
