// Loading and initialising MAPI.
#include "tools/browser/Mapi.h"

#include "support/Log.h"

using namespace Common;

namespace Browser
{
namespace
{
template <class Function>
Function Find(HMODULE module, const char* name)
{
    const FARPROC found = GetProcAddress(module, name);
    if (!found)
        Fail(MAPI_E_NO_SUPPORT, L"The system's mapi32.dll has no " + WideFromAnsi(name) + L".");
    return reinterpret_cast<Function>(reinterpret_cast<void*>(found));
}

// In the system's folder and nowhere else: it hands everything on to the mail client that is registered.
HMODULE LoadMapi()
{
    const HMODULE module = LoadLibraryExW(L"mapi32.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (!module)
        Fail(MAPI_E_NOT_INITIALIZED, L"The system's mapi32.dll cannot be loaded, so there is no MAPI here.");
    return module;
}
} // namespace

std::shared_ptr<const Mapi> Mapi::Start()
{
    return std::shared_ptr<const Mapi>(new Mapi);
}

Mapi::Mapi()
{
    // It stays loaded: what came from it may be released at any time, also by other modules.
    const HMODULE module = LoadMapi();
    const auto initialize = Find<LPMAPIINITIALIZE>(module, "MAPIInitialize");
    const auto uninitialize = Find<LPMAPIUNINITIALIZE>(module, "MAPIUninitialize");
    m_adminProfiles = Find<LPMAPIADMINPROFILES>(module, "MAPIAdminProfiles");
    m_logonEx = Find<LPMAPILOGONEX>(module, "MAPILogonEx");
    m_memory =
        MapiMemory(Find<LPALLOCATEBUFFER>(module, "MAPIAllocateBuffer"),
                   Find<LPALLOCATEMORE>(module, "MAPIAllocateMore"), Find<LPFREEBUFFER>(module, "MAPIFreeBuffer"));
    // This program has no window and waits for nothing: notifications come on a thread of MAPI's own.
    MAPIINIT_0 options = {MAPI_INIT_VERSION, MAPI_MULTITHREAD_NOTIFICATIONS};
    const HRESULT result = initialize(&options);
    if (FAILED(result))
    {
        LogCause(L"MAPIInitialize", result, {});
        Fail(result, FailureText(L"MAPI cannot be initialised; is a mail client of this program's bitness installed?",
                                 result, {}));
    }
    m_uninitialize = uninitialize;
}

Mapi::~Mapi()
{
    m_uninitialize();
}

ComPtr<IProfAdmin> Mapi::Profiles() const
{
    ComPtr<IProfAdmin> admin;
    const HRESULT result = m_adminProfiles(0, admin.Put());
    if (FAILED(result) || !admin)
    {
        LogCause(L"MAPIAdminProfiles", result, {});
        Fail(result, FailureText(L"MAPI's profiles cannot be administered", result, {}));
    }
    return admin;
}

ComPtr<IMAPISession> Mapi::Logon(const std::wstring& profile) const
{
    NarrowName name(profile);
    ComPtr<IMAPISession> session;
    const HRESULT result = m_logonEx(
        0, profile.empty() ? nullptr : name.Get(), nullptr,
        MAPI_EXTENDED | MAPI_NEW_SESSION | MAPI_NO_MAIL | (profile.empty() ? MAPI_USE_DEFAULT : 0), session.Put());
    if (FAILED(result) || !session)
    {
        LogCause(L"MAPILogonEx", result, {});
        Fail(result, FailureText(profile.empty() ? std::wstring(L"MAPI does not log on to the default profile")
                                                 : L"MAPI does not log on to the profile \"" + profile + L"\"",
                                 result, {}));
    }
    return session;
}

std::wstring FailureText(const std::wstring& sentence, HRESULT result, const std::wstring& said)
{
    std::wstring text = sentence + L": ";
    if (!said.empty())
    {
        std::wstring given = said;
        while (!given.empty() && (given.back() == L'.' || given.back() <= L' '))
            given.pop_back();
        text += given + L" (" + ResultText(result) + L").";
    }
    else
    {
        text += ResultText(result) + L".";
    }
    return text;
}

void LogCause(const wchar_t* call, HRESULT result, const std::wstring& said)
{
    Quillon::LogFormattedEntry(Quillon::LogId::Error, L"%s: %s%s%s", call, ResultText(result).c_str(),
                               said.empty() ? L"" : L": ", said.c_str());
}

NarrowName::NarrowName(const std::wstring& name) : m_name(AnsiFromWide(name)) {}
} // namespace Browser
