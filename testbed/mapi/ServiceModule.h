// The DLLs of message services and providers, and the call of a service's entry.
#pragma once

#include "testbed/mapi/Profile.h"

namespace Testbed
{
/// A loaded DLL of a service or provider.
class ServiceModule
{
public:
    /// The name under which a DLL that stands in the profile as `name` is looked for: with "32" before the first period
    /// of the whole string, at the end of one without a period.
    static std::wstring FileName(const std::wstring& name);

    /// Loads a DLL that stands in the profile as `name`: a bare name along Windows' search path, or else from the
    /// folder of this module, where the mail client's own providers are. It stays loaded until `UnloadAll`. Throws
    /// `Failure` (MAPI_E_NOT_FOUND, with the file's name and the system's reason).
    static std::shared_ptr<ServiceModule> Load(const std::wstring& name);
    /// Lets go of all DLLs; those that somebody still works with go later.
    static void UnloadAll() noexcept;

    ~ServiceModule();
    ServiceModule(const ServiceModule&) = delete;
    ServiceModule& operator=(const ServiceModule&) = delete;

    HMODULE Handle() const noexcept { return m_module; }

    /// An exported function. Throws `Failure` (MAPI_E_VERSION, with the names) when there is none.
    template <class F>
    F Find(const std::string& name) const
    {
        return reinterpret_cast<F>(reinterpret_cast<void*>(FindExport(name)));
    }

private:
    ServiceModule(HMODULE module, std::wstring name) : m_module(module), m_name(std::move(name)) {}
    FARPROC FindExport(const std::string& name) const;

    HMODULE m_module;
    std::wstring m_name;
};

/// What a service's entry is called with.
struct EntryCall
{
    ULONG context = 0;
    ULONG_PTR uiParam = 0;
    /// As the entry gets them; with MAPI_UNICODE its error has wide strings.
    ULONG flags = 0;
    ULONG valueCount = 0;
    LPSPropValue values = nullptr;
};

/// What came of it.
struct EntryResult
{
    /// Whether the service has an entry at all.
    bool called = false;
    HRESULT result = S_OK;
    /// The extended error's text.
    std::wstring text;
};

/// Calls the entry of the profile's service, if it has one, with a support object for configuration and an admin object
/// of its own, both good until it returns. Throws `Failure` when its DLL or its entry is not there.
EntryResult CallServiceEntry(const std::shared_ptr<Profile>& profile, const Uid& service, const EntryCall& call,
                             const MapiMemory& memory);
} // namespace Testbed
