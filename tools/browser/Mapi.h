// MAPI as any of its clients reaches it: mapi32.dll, found by that name alone.
#pragma once

#include "common/Boundary.h"
#include "common/ComPtr.h"
#include "common/Text.h"

#include <memory>
#include <string>

namespace Browser
{
/// MAPI, initialised for the thread that made this and for as long as it lives. Everything that came from MAPI has to
/// be released before.
class Mapi
{
public:
    /// Throws `Common::Failure` with a sentence for people where there is no MAPI, or none that can be used.
    static std::shared_ptr<const Mapi> Start();
    ~Mapi();
    Mapi(const Mapi&) = delete;
    Mapi& operator=(const Mapi&) = delete;

    /// MAPI's own allocation routines.
    const Common::MapiMemory& Memory() const noexcept { return m_memory; }
    /// The administration of profiles. Throws `Common::Failure`.
    Common::ComPtr<IProfAdmin> Profiles() const;
    /// A session of its own with a profile, or with the default profile where the name is empty; mail is neither sent
    /// nor fetched, and nobody is asked anything. Throws `Common::Failure`.
    Common::ComPtr<IMAPISession> Logon(const std::wstring& profile) const;

private:
    Mapi();

    Common::MapiMemory m_memory;
    LPMAPIUNINITIALIZE m_uninitialize = nullptr;
    LPMAPIADMINPROFILES m_adminProfiles = nullptr;
    LPMAPILOGONEX m_logonEx = nullptr;
};

/// What an object says of a result that a method of it gave; empty when it says nothing.
template <class Interface>
std::wstring ExtendedError(const Common::MapiMemory& memory, Interface& object, HRESULT result)
{
    Common::MapiBlock<MAPIERROR> error(memory);
    ULONG flags = MAPI_UNICODE;
    HRESULT given = object.GetLastError(result, flags, error.Put());
    if (given == MAPI_E_BAD_CHARWIDTH)
        given = object.GetLastError(result, flags = 0, error.Put());
    return SUCCEEDED(given) && error ? Common::TextArgument(error->lpszError, flags) : std::wstring();
}

/// "sentence: what MAPI said (MAPI_E_...)."
std::wstring FailureText(const std::wstring& sentence, HRESULT result, const std::wstring& said);

/// Writes what a call gave into the library's log, which `--log` shows: "IProfAdmin::CreateProfile: MAPI_E_...: text".
void LogCause(const wchar_t* call, HRESULT result, const std::wstring& said);

/// Throws `Common::Failure` for a failing result of `object`, with the sentence (without its full stop) and what the
/// object says; `call` names the method for the log.
template <class Interface>
void CheckCall(const Common::MapiMemory& memory, Interface& object, HRESULT result, const wchar_t* call,
               const std::wstring& sentence)
{
    if (SUCCEEDED(result))
        return;
    const std::wstring said = ExtendedError(memory, object, result);
    LogCause(call, result, said);
    Common::Fail(result, FailureText(sentence, result, said));
}

/// A name as MAPI's narrow arguments take it.
class NarrowName
{
public:
    explicit NarrowName(const std::wstring& name);
    LPTSTR Get() noexcept { return reinterpret_cast<LPTSTR>(m_name.data()); }

private:
    std::string m_name;
};
} // namespace Browser
