// A MAPI module whose functions do what a test says.
#pragma once

#include "support/MapiHeaders.h"

/// What the functions of the module do; one that is null gives the result that stands beside it. The module exports one
/// object of this type as "mapiDouble".
struct MapiDouble
{
    SCODE(STDMETHODCALLTYPE* allocateBuffer)(ULONG, LPVOID*);       ///< MAPI_E_CALL_FAILED
    SCODE(STDMETHODCALLTYPE* allocateMore)(ULONG, LPVOID, LPVOID*); ///< MAPI_E_CALL_FAILED
    ULONG(STDAPICALLTYPE* freeBuffer)(LPVOID);                      ///< 0
    HRESULT(STDAPICALLTYPE* wrapStoreEntryId)(ULONG, LPSTR, ULONG, LPENTRYID, ULONG*, LPENTRYID*); ///< likewise
    BOOL(STDAPICALLTYPE* getComponentPath)(LPSTR, LPSTR, LPSTR, DWORD, BOOL);                      ///< FALSE
};
