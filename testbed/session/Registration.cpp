// Registers the mail client, and takes it out again.
#include "testbed/session/Registration.h"

#include "testbed/common/Boundary.h"
#include "testbed/common/RegistryKey.h"
#include "testbed/common/Text.h"

namespace Testbed
{
namespace
{
constexpr const wchar_t* ClientName = L"Microsoft Outlook";
constexpr const wchar_t* MailPath = L"Software\\Clients\\Mail";
constexpr const wchar_t* ClientPath = L"Software\\Clients\\Mail\\Microsoft Outlook";
constexpr const wchar_t* AppPath = L"Software\\Microsoft\\Windows\\CurrentVersion\\App Paths\\outlook.exe";

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
    {
        if (!std::filesystem::is_regular_file(full / name, error))
        {
            Fail(MAPI_E_NOT_FOUND, L"\"" + (full / name).wstring() + L"\" is not there.");
        }
    }
    WriteText(MailPath, nullptr, ClientName);
    WriteText(ClientPath, nullptr, ClientName);
    WriteText(ClientPath, L"DllPathEx", (full / L"olmapi32.dll").wstring());
    WriteText(AppPath, nullptr, (full / L"outlook.exe").wstring());
    WriteText(AppPath, L"Path", full.wstring());
}

void UnregisterMailClient()
{
    DeleteKey(AppPath);
    DeleteKey(ClientPath);
    const RegistryKey mail = RegistryKey::Open(HKEY_LOCAL_MACHINE, MailPath);
    const auto defaultClient = mail ? mail.ReadText(nullptr) : std::nullopt;
    if (defaultClient && *defaultClient == ClientName)
    {
        LSTATUS error = ERROR_SUCCESS;
        const RegistryKey writable = RegistryKey::Create(HKEY_LOCAL_MACHINE, MailPath, error);
        CheckRegistry(error, MailPath);
        CheckRegistry(RegDeleteValueW(writable.Get(), nullptr), MailPath);
    }
}
} // namespace Testbed
