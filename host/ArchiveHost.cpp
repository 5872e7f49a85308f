// The sample host: a store provider module over the library, the pattern for a host of one's own. MAPI calls the two
// functions at the end; everything else here is what they need.
//
// A module becomes a store provider by
//   - deriving from CNstMessageService and supplying GetProviderDllName and CreateMsProvider (CArchiveService below),
//   - exporting ServiceEntry and MSProviderInit, undecorated, which call NstServiceEntry and NstProviderInit and turn
//     what these throw into result codes: MAPI knows no exceptions,
//   - being registered in MAPISVC.INF, which Quillon::OutlookAddIn::RegisterStoreProvider does.
// What MAPI is then given is CArchiveProvider (ArchiveProvider.h), which gives CArchiveStore (ArchiveStore.h).
#include "host/ArchiveProvider.h"
#include "host/HostSettings.h"
#include "nst/NstMessageService.h"
#include "support/CallWrapping.h"
#include "support/Format.h"
#include "support/com_wrap.h"

#include <new>

using namespace Quillon;

namespace
{

/// The file name under which MAPI knows this module; it gets into the entry IDs of its stores.
constexpr auto moduleName = L"ArchiveHost.dll";

class CArchiveService : public Nst::CNstMessageService
{
public:
    StringW GetProviderDllName() override { return moduleName; }

    /// Refuses settings that this host does not know before anything of the call is stored in the profile.
    void NstServiceEntry(IMalloc* lpMalloc, IMAPISupport* lpMAPISup, ULONG ulUIParam, ULONG ulFlags, ULONG ulContext,
                         ULONG cValues, SPropValue* lpProps, IProviderAdmin* lpProviderAdmin,
                         MAPIERROR** lppMapiError) override
    {
        for (ULONG index = 0; lpProps && index < cValues; ++index)
        {
            if (lpProps[index].ulPropTag != PR_ARCHIVE_HOST_OPTIONS)
                continue;
            const LONG options = lpProps[index].Value.l;
            if (options & ~ArchiveHost::OptionsKnown)
            {
                throw Mapi::ExtendedMapiError(
                    FormatString(L"The archive's options 0x%08X hold bits that this version does not know.", options),
                    moduleName, 0, 0);
            }
        }
        CNstMessageService::NstServiceEntry(lpMalloc, lpMAPISup, ulUIParam, ulFlags, ulContext, cValues, lpProps,
                                            lpProviderAdmin, lppMapiError);
    }

protected:
    /// The settings with which a new archive starts, in its provider's section as well as in the service's, where the
    /// caller's own values are already: read-only unless the caller wants it otherwise.
    Mapi::SPropValueVector GetProfileSectionConfiguration(SPropValue* lpProps, ULONG cValues) override
    {
        LONG options = 0;
        for (ULONG index = 0; lpProps && index < cValues; ++index)
            if (lpProps[index].ulPropTag == PR_ARCHIVE_HOST_OPTIONS)
                options = lpProps[index].Value.l;
        Mapi::SPropValueVector settings;
        settings.AddLong(PR_ARCHIVE_HOST_OPTIONS, options);
        return settings;
    }

    ATL::CComQIPtr<IMSProvider> CreateMsProvider(const ATL::CComQIPtr<IMSProvider>& pstProvider) override
    {
        return com_wrap<IMSProvider>(new ArchiveHost::CArchiveProvider(pstProvider));
    }
};

/// Gives the caller the text of a failure, unless the PST module gave one of its own.
void ReportText(const MAPIERROR& error, ULONG flags, MAPIERROR** lppMapiError) noexcept
{
    if (!lppMapiError || *lppMapiError)
        return;
    try
    {
        *lppMapiError = Mapi::CreateMapiError(flags, error).Detach();
    }
    catch (const CException& exception)
    {
        // The caller still gets the code.
        CaughtException(exception, L"ArchiveHost::ReportText");
    }
}

/// Runs what an entry point does and turns what it throws into the result code that MAPI is given. No exception may
/// leave: MAPI would take the whole mail client down with it.
template <class Body>
HRESULT AtBoundary(const wchar_t* function, ULONG flags, MAPIERROR** lppMapiError, Body&& body) noexcept
{
    try
    {
        body();
        return S_OK;
    }
    catch (const CException& exception)
    {
        const HRESULT hr = CaughtException(exception, function);
        try
        {
            ReportText(Mapi::ExtendedMapiError(exception.Format(), moduleName, 0, 0).GetError(), flags, lppMapiError);
        }
        catch (const std::exception&)
        {
            // No memory for the text.
        }
        return hr;
    }
    catch (const Mapi::ExtendedMapiError& error)
    {
        LogFormattedEntry(LogId::Error, L"%s: %hs", function, error.what());
        ReportText(error.GetError(), flags, lppMapiError);
        return MAPI_E_INVALID_PARAMETER;
    }
    catch (const std::bad_alloc&)
    {
        LogFormattedEntry(LogId::Error, L"%s: out of memory", function);
        return E_OUTOFMEMORY;
    }
    catch (const std::exception& exception)
    {
        LogFormattedEntry(LogId::Error, L"%s: %hs", function, exception.what());
        return E_FAIL;
    }
    catch (...)
    {
        LogFormattedEntry(LogId::Error, L"%s: an exception of unknown type", function);
        return E_FAIL;
    }
}

} // namespace

/// The message-service entry: MAPI and setup programs call it to create, configure and delete the service in a profile.
extern "C" HRESULT WINAPI ServiceEntry(HINSTANCE /*hInstance*/, LPMALLOC lpMalloc, LPMAPISUP lpMAPISup,
                                       ULONG_PTR ulUIParam, ULONG ulFlags, ULONG ulContext, ULONG cValues,
                                       LPSPropValue lpProps, LPPROVIDERADMIN lpProviderAdmin, LPMAPIERROR* lppMapiError)
{
    if (lppMapiError)
        *lppMapiError = nullptr;
    return AtBoundary(L"ServiceEntry", ulFlags, lppMapiError,
                      [&]
                      {
                          // Of a window handle Windows uses the lower 32 bits alone.
                          CArchiveService().NstServiceEntry(lpMalloc, lpMAPISup, static_cast<ULONG>(ulUIParam), ulFlags,
                                                            ulContext, cValues, lpProps, lpProviderAdmin, lppMapiError);
                      });
}

/// The provider initialisation: MAPI calls it once in every session that uses the archive.
extern "C" HRESULT __cdecl MSProviderInit(HINSTANCE /*hInstance*/, LPMALLOC lpMalloc, LPALLOCATEBUFFER lpAllocateBuffer,
                                          LPALLOCATEMORE lpAllocateMore, LPFREEBUFFER lpFreeBuffer, ULONG ulFlags,
                                          ULONG ulMAPIVer, ULONG* lpulProviderVer, LPMSPROVIDER* lppMSProvider)
{
    return AtBoundary(L"MSProviderInit", ulFlags, nullptr,
                      [&]
                      {
                          CArchiveService().NstProviderInit(lpMalloc, lpAllocateBuffer, lpAllocateMore, lpFreeBuffer,
                                                            ulFlags, ulMAPIVer, lpulProviderVer, lppMSProvider);
                      });
}
