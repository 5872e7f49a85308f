// CNstMessageService: the class from which a host provider module derives, and its entry into the library.
#pragma once

#include "mapi/SPropValueVector.h"
#include "nst/Version.h"
#include "support/ComPtr.h"
#include "support/Export.h"
#include "support/StringW.h"

namespace Quillon::Nst
{

/// The bodies of the two MAPI entry points that a host module exports. The host derives a class, supplies
/// GetProviderDllName and CreateMsProvider, and from its exported functions calls NstServiceEntry and NstProviderInit
/// with the arguments that MAPI gave it, less the instance handle. Both report failure only by throwing a
/// Quillon::CException; the host catches it and returns its GetHResult() to MAPI.
///
/// The class holds no data: a host may make an object per call or keep one. Any thread.
class KIVNST_API CNstMessageService
{
public:
    CNstMessageService() = default;
    CNstMessageService(const CNstMessageService&) = default;
    CNstMessageService(CNstMessageService&&) = default;
    CNstMessageService& operator=(const CNstMessageService&) = default;
    CNstMessageService& operator=(CNstMessageService&&) = default;

    /// The file name of the host's own module, as MAPI knows it ("ArchiveHost.dll"). It gets into the store's wrapped
    /// entry ID, narrowed to the ANSI code page.
    virtual StringW GetProviderDllName() = 0;

    /// The message-service entry. Stores the caller's values in the service's profile section, calls the PST module's
    /// entry with a wrapped support object and, on MSG_SERVICE_CONFIGURE, gives the store its identity. `lppMapiError`
    /// may be null; what is stored there the caller frees with MAPIFreeBuffer.
    virtual void NstServiceEntry(IMalloc* lpMalloc, IMAPISupport* lpMAPISup, ULONG ulUIParam, ULONG ulFlags,
                                 ULONG ulContext, ULONG cValues, SPropValue* lpProps, IProviderAdmin* lpProviderAdmin,
                                 MAPIERROR** lppMapiError);

    /// The provider initialisation. Lets the PST module make its provider and gives MAPI, instead of it, what
    /// CreateMsProvider makes over it. On failure `*lppMSProvider` is null.
    virtual void NstProviderInit(IMalloc* lpMalloc, LPALLOCATEBUFFER lpAllocateBuffer, LPALLOCATEMORE lpAllocateMore,
                                 LPFREEBUFFER lpFreeBuffer, ULONG ulFlags, ULONG ulMAPIVer, ULONG* lpulProviderVer,
                                 IMSProvider** lppMSProvider);

protected:
    /// Makes the support object that the PST module is given: a CNstMapiSupport over MAPI's own and `section`.
    virtual ATL::CComQIPtr<IMAPISupport> CreateMapiSupport(const ATL::CComQIPtr<IMAPISupport>& support,
                                                           const ATL::CComQIPtr<IProfSect>& section);

    /// Gives a store that has none yet its identity: writes `settings` and the store's entry ID, keys and path into the
    /// store provider's section and the service's. An override may throw Mapi::ExtendedMapiError to tell the caller why
    /// the service cannot be configured. `support` is the wrapped one, `section` the service's own.
    virtual void ConfigureService(const ATL::CComQIPtr<IMAPISupport>& support, const ATL::CComQIPtr<IProfSect>& section,
                                  const ATL::CComQIPtr<IProviderAdmin>& admin, const Mapi::SPropValueVector& settings);

    /// Turns the values of a configure call into settings to be stored. The library's own gives none.
    virtual Mapi::SPropValueVector GetProfileSectionConfiguration(SPropValue* lpProps, ULONG cValues);

    /// Makes the provider that MAPI is given over the PST module's, normally a CNstMsProvider.
    virtual ATL::CComQIPtr<IMSProvider> CreateMsProvider(const ATL::CComQIPtr<IMSProvider>& pstProvider) = 0;

private:
    void ConfigureMdbProvider(const ATL::CComQIPtr<IProfSect>& section);
};

} // namespace Quillon::Nst

namespace Quillon::Mapi
{

/// The name of a message-service context: "MSG_SERVICE_CONFIGURE"; "Unknown (9)" for others. Any thread.
KIVNST_API StringW FormatMessageServiceContext(ULONG ulContext);

} // namespace Quillon::Mapi
