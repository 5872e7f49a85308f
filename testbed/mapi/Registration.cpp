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

struct InfEntry
{
    const wchar_t* section;
    const wchar_t* key;
    const wchar_t* value;
};

// The PST provider as a service of its own. MAPI's pages do not name the mail client's; this is the name by which the
// tools look for it.
constexpr InfEntry infEntries[] = {
    {L"MSUPST MSP", L"PR_PROVIDER_DLL_NAME", L"mspst.dll"},
    {L"MSUPST MSP", L"PR_RESOURCE_TYPE", L"MAPI_STORE_PROVIDER"},
    {L"MSUPST MSP", L"PR_RESOURCE_FLAGS", L"STATUS_DEFAULT_STORE"},
    {L"MSUPST MSP", L"PR_DISPLAY_NAME", L"Personal Folders"},
    {L"MSUPST MSP", L"PR_PROVIDER_DISPLAY", L"Personal Folders"},
    // PR_PST_CONFIG_FLAGS with PST_CONFIG_UNICODE.
    {L"MSUPST MSP", L"67700003", L"00000080"},
    {L"MSUPST MS", L"PR_DISPLAY_NAME", L"Personal Folders"},
    {L"MSUPST MS", L"Providers", L"MSUPST MSP"},
    {L"MSUPST MS", L"PR_SERVICE_DLL_NAME", L"mspst.dll"},
    {L"MSUPST MS", L"PR_SERVICE_SUPPORT_FILES", L"mspst.dll"},
    {L"MSUPST MS", L"PR_SERVICE_ENTRY_NAME", L"NSTServiceEntry"},
    {L"MSUPST MS", L"PR_RESOURCE_FLAGS", L"SERVICE_NO_PRIMARY_IDENTITY"},
    {L"Services", L"MSUPST MS", L"Personal Folders"},
};

void WriteServices(const std::filesystem::path& file)
{
    for (const InfEntry& entry : infEntries)
    {
        if (!WritePrivateProfileStringW(entry.section, entry.key, entry.value, file.c_str()))
        {
            Fail(MAPI_E_NO_ACCESS,
                 L"\"" + file.wstring() + L"\" cannot be written (error " + std::to_wstring(GetLastError()) + L").");
        }
    }
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
    WriteServices(full / L"MAPISVC.INF");
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
