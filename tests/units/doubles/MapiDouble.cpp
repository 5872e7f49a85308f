// The exports of the MAPI module that tests stand in for.
#include "tests/units/doubles/MapiDouble.h"

extern "C"
{
    MapiDouble mapiDouble = {};

    SCODE STDMETHODCALLTYPE MAPIAllocateBuffer(ULONG cbSize, LPVOID* lppBuffer)
    {
        return mapiDouble.allocateBuffer ? mapiDouble.allocateBuffer(cbSize, lppBuffer) : MAPI_E_CALL_FAILED;
    }

    SCODE STDMETHODCALLTYPE MAPIAllocateMore(ULONG cbSize, LPVOID lpObject, LPVOID* lppBuffer)
    {
        return mapiDouble.allocateMore ? mapiDouble.allocateMore(cbSize, lpObject, lppBuffer) : MAPI_E_CALL_FAILED;
    }

    ULONG STDAPICALLTYPE MAPIFreeBuffer(LPVOID lpBuffer)
    {
        return mapiDouble.freeBuffer ? mapiDouble.freeBuffer(lpBuffer) : 0;
    }

    HRESULT STDAPICALLTYPE WrapStoreEntryID(ULONG ulFlags, LPSTR lpszDLLName, ULONG cbOrigEntry, LPENTRYID lpOrigEntry,
                                            ULONG* lpcbWrappedEntry, LPENTRYID* lppWrappedEntry)
    {
        return mapiDouble.wrapStoreEntryId ? mapiDouble.wrapStoreEntryId(ulFlags, lpszDLLName, cbOrigEntry, lpOrigEntry,
                                                                         lpcbWrappedEntry, lppWrappedEntry)
                                           : MAPI_E_CALL_FAILED;
    }

    BOOL STDAPICALLTYPE FGetComponentPath(LPSTR szComponent, LPSTR szQualifier, LPSTR szDllPath, DWORD cchBufferSize,
                                          BOOL fInstall)
    {
        return mapiDouble.getComponentPath
                   ? mapiDouble.getComponentPath(szComponent, szQualifier, szDllPath, cchBufferSize, fInstall)
                   : FALSE;
    }
}
