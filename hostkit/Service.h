// The module's two entry points, and the message service behind them.
#pragma once

#include "hostkit/Provider.h"
#include "nst/NstMessageService.h"
#include "nst/Version.h"

namespace KivNstHostKit
{

/// The library's message service with what a host says of it. It reports failure by throwing, as the library's own.
class CArchiveService : public Quillon::Nst::CNstMessageService
{
public:
    explicit CArchiveService(HostPointer host) : m_host(std::move(host)) {}

    StringW GetProviderDllName() override { return m_host->GetModuleName(); }

    void NstServiceEntry(IMalloc* lpMalloc, IMAPISupport* lpMAPISup, ULONG ulUIParam, ULONG ulFlags, ULONG ulContext,
                         ULONG cValues, SPropValue* lpProps, IProviderAdmin* lpProviderAdmin,
                         MAPIERROR** lppMapiError) override
    {
        if (lpProps && cValues != 0)
            m_host->CheckConfiguration(lpProps, cValues);
        CNstMessageService::NstServiceEntry(lpMalloc, lpMAPISup, ulUIParam, ulFlags, ulContext, cValues, lpProps,
                                            lpProviderAdmin, lppMapiError);
    }

protected:
    void ConfigureService(const ATL::CComQIPtr<IMAPISupport>& support, const ATL::CComQIPtr<IProfSect>& section,
                          const ATL::CComQIPtr<IProviderAdmin>& admin,
                          const Quillon::Mapi::SPropValueVector& settings) override
    {
        if (!HasText(section, PR_PROFILE_OFFLINE_STORE_PATH_W) && !HasText(section, PR_PROFILE_OFFLINE_STORE_PATH))
        {
            // What MAPI is told where the profile does not name a store: it may then have the user asked.
            Quillon::Throw(Quillon::CComError(MAPI_E_UNCONFIGURED),
                           L"KivNstHostKit::CArchiveService::ConfigureService");
        }
        Quillon::Mapi::SPropValueVector all;
        for (ULONG index = 0; index < settings.GetCount(); ++index)
            all.AddProperty(settings.GetValues()[index]);
        if (const StringW name = m_host->GetSettings(section).displayName; !name.IsEmpty())
            all.AddStringW(PR_DISPLAY_NAME_W, name);
        CNstMessageService::ConfigureService(support, section, admin, all);
    }

    Quillon::Mapi::SPropValueVector GetProfileSectionConfiguration(SPropValue* lpProps, ULONG cValues) override
    {
        return m_host->GetFirstSettings(lpProps, lpProps ? cValues : 0);
    }

    ATL::CComQIPtr<IMSProvider> CreateMsProvider(const ATL::CComQIPtr<IMSProvider>& pstProvider) override
    {
        return MakeProvider(m_host, pstProvider);
    }

private:
    static bool HasText(IProfSect* section, ULONG tag) noexcept
    {
        return !Quillon::Mapi::TryQueryItemPropertyValue(section, tag).IsEmpty();
    }

    HostPointer m_host;
};

namespace Detail
{

/// Gives the caller the text of a failure, unless the PST module gave one of its own. The caller still gets the code
/// where there is no memory for the text.
inline void ReportText(const Quillon::Mapi::ExtendedMapiError& error, ULONG flags, MAPIERROR** lppMapiError)
{
    if (lppMapiError && !*lppMapiError)
        *lppMapiError = Quillon::Mapi::CreateMapiError(flags, error.GetError()).Detach();
}

} // namespace Detail

/// The body of the message-service entry of host class `Host`. `site` is where it stands.
template <class Host>
HRESULT EnterService(const CallSite& site, LPMALLOC lpMalloc, LPMAPISUP lpMAPISup, ULONG_PTR ulUIParam, ULONG ulFlags,
                     ULONG ulContext, ULONG cValues, LPSPropValue lpProps, LPPROVIDERADMIN lpProviderAdmin,
                     LPMAPIERROR* lppMapiError) noexcept
{
    if (lppMapiError)
        *lppMapiError = nullptr;
    return AtBoundary(
        site,
        [&]
        {
            HostPointer host;
            try
            {
                Quillon::Nst::RequireLibraryVersion();
                host = std::make_shared<const Host>();
                // Of a window handle Windows uses the lower 32 bits alone.
                CArchiveService(host).NstServiceEntry(lpMalloc, lpMAPISup, static_cast<ULONG>(ulUIParam), ulFlags,
                                                      ulContext, cValues, lpProps, lpProviderAdmin, lppMapiError);
            }
            catch (const Quillon::Mapi::ExtendedMapiError& error)
            {
                AtBoundary(site, [&] { Detail::ReportText(error, ulFlags, lppMapiError); });
                throw;
            }
            catch (const Quillon::CException& exception)
            {
                AtBoundary(site,
                           [&]
                           {
                               const StringW module = host ? host->GetModuleName() : StringW();
                               Detail::ReportText(Quillon::Mapi::ExtendedMapiError(exception.Format(), module, 0, 0),
                                                  ulFlags, lppMapiError);
                           });
                throw;
            }
        });
}

/// The body of the provider initialisation.
template <class Host>
HRESULT InitialiseProvider(const CallSite& site, LPMALLOC lpMalloc, LPALLOCATEBUFFER lpAllocateBuffer,
                           LPALLOCATEMORE lpAllocateMore, LPFREEBUFFER lpFreeBuffer, ULONG ulFlags, ULONG ulMAPIVer,
                           ULONG* lpulProviderVer, LPMSPROVIDER* lppMSProvider) noexcept
{
    if (lppMSProvider)
        *lppMSProvider = nullptr;
    return AtBoundary(site,
                      [&]
                      {
                          Quillon::Nst::RequireLibraryVersion();
                          CArchiveService(std::make_shared<const Host>())
                              .NstProviderInit(lpMalloc, lpAllocateBuffer, lpAllocateMore, lpFreeBuffer, ulFlags,
                                               ulMAPIVer, lpulProviderVer, lppMSProvider);
                      });
}

/// What the kit does when the host's module is unloaded; for hosts with a DllMain of their own (KIVNST_HOST_FUNCTIONS).
inline void OnUnload(DWORD reason, const void* processEnds) noexcept
{
    // At the end of the process the other threads have been ended wherever they were, perhaps within a lock.
    if (reason == DLL_PROCESS_DETACH && !processEnds)
        CHostLog::Get().Close();
}

} // namespace KivNstHostKit

#if defined(_MSC_VER)
#define KIVNST_EXPORTED(Function) __pragma(comment(linker, "/EXPORT:" #Function))
#define KIVNST_EXPORT
#elif defined(__clang__)
// The header has declared one of the two before, without the attribute.
#define KIVNST_EXPORTED(Function) _Pragma("clang diagnostic ignored \"-Wdll-attribute-on-redeclaration\"")
#define KIVNST_EXPORT __declspec(dllexport)
#else
#define KIVNST_EXPORTED(Function)
#define KIVNST_EXPORT __declspec(dllexport)
#endif

/// Defines and exports the two functions that MAPI looks for in a module, for the host class `Host`.
#define KIVNST_HOST_FUNCTIONS(Host)                                                                                    \
    KIVNST_EXPORTED(ServiceEntry)                                                                                      \
    KIVNST_EXPORTED(MSProviderInit)                                                                                    \
    extern "C" KIVNST_EXPORT HRESULT WINAPI ServiceEntry(                                                              \
        HINSTANCE, LPMALLOC lpMalloc, LPMAPISUP lpMAPISup, ULONG_PTR ulUIParam, ULONG ulFlags, ULONG ulContext,        \
        ULONG cValues, LPSPropValue lpProps, LPPROVIDERADMIN lpProviderAdmin, LPMAPIERROR* lppMapiError)               \
    {                                                                                                                  \
        return ::KivNstHostKit::EnterService<Host>(L"ServiceEntry", lpMalloc, lpMAPISup, ulUIParam, ulFlags,           \
                                                   ulContext, cValues, lpProps, lpProviderAdmin, lppMapiError);        \
    }                                                                                                                  \
    extern "C" KIVNST_EXPORT HRESULT __cdecl MSProviderInit(                                                           \
        HINSTANCE, LPMALLOC lpMalloc, LPALLOCATEBUFFER lpAllocateBuffer, LPALLOCATEMORE lpAllocateMore,                \
        LPFREEBUFFER lpFreeBuffer, ULONG ulFlags, ULONG ulMAPIVer, ULONG* lpulProviderVer,                             \
        LPMSPROVIDER* lppMSProvider)                                                                                   \
    {                                                                                                                  \
        return ::KivNstHostKit::InitialiseProvider<Host>(L"MSProviderInit", lpMalloc, lpAllocateBuffer,                \
                                                         lpAllocateMore, lpFreeBuffer, ulFlags, ulMAPIVer,             \
                                                         lpulProviderVer, lppMSProvider);                              \
    }                                                                                                                  \
    static_assert(::std::is_same_v<decltype(&ServiceEntry), LPMSGSERVICEENTRY> &&                                      \
                  ::std::is_same_v<decltype(&MSProviderInit), MSPROVIDERINIT*>)

/// All that a module needs besides its host class: the two functions, and a DllMain that closes the log.
#define KIVNST_HOST_ENTRIES(Host)                                                                                      \
    extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, void* processEnds)                                         \
    {                                                                                                                  \
        ::KivNstHostKit::OnUnload(reason, processEnds);                                                                \
        return TRUE;                                                                                                   \
    }                                                                                                                  \
    KIVNST_HOST_FUNCTIONS(Host)
