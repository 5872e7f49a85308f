// The exports of the PST module that tests stand in for.
#include "tests/units/doubles/PstDouble.h"

extern "C"
{
    PstDouble pstDouble = {};

    HRESULT WINAPI NSTServiceEntry(HINSTANCE hInstance, LPMALLOC lpMalloc, LPMAPISUP lpMAPISup, ULONG_PTR ulUIParam,
                                   ULONG ulFlags, ULONG ulContext, ULONG cValues, LPSPropValue lpProps,
                                   LPPROVIDERADMIN lpProviderAdmin, LPMAPIERROR* lppMapiError)
    {
        return pstDouble.serviceEntry
                   ? pstDouble.serviceEntry(hInstance, lpMalloc, lpMAPISup, ulUIParam, ulFlags, ulContext, cValues,
                                            lpProps, lpProviderAdmin, lppMapiError)
                   : MAPI_E_CALL_FAILED;
    }

    HRESULT __cdecl MSProviderInit(HINSTANCE hInstance, LPMALLOC lpMalloc, LPALLOCATEBUFFER lpAllocateBuffer,
                                   LPALLOCATEMORE lpAllocateMore, LPFREEBUFFER lpFreeBuffer, ULONG ulFlags,
                                   ULONG ulMAPIVer, ULONG* lpulProviderVer, LPMSPROVIDER* lppMSProvider)
    {
        return pstDouble.providerInit
                   ? pstDouble.providerInit(hInstance, lpMalloc, lpAllocateBuffer, lpAllocateMore, lpFreeBuffer,
                                            ulFlags, ulMAPIVer, lpulProviderVer, lppMSProvider)
                   : MAPI_E_CALL_FAILED;
    }
}
