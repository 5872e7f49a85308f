// OpenMapiObject: opens an object of a store by its entry ID and gives it as the interface that the caller wants.
#pragma once

#include "support/CallWrapping.h"

namespace Quillon::Mapi
{

/// Opens the entry of `store`, which must not be null, with the flags that GetOpenMapiObjectFlags holds. `size` is the
/// entry ID's size in bytes. Ends the process for a code whose die-on switch is on.
/// Throws CMapiError: with the store's code and extended error when it cannot be opened, with E_FAIL when the store
/// gives no object, with E_NOINTERFACE when the object does not answer for I. Never null.
template <class I>
ATL::CComQIPtr<I> OpenMapiObject(IMsgStore* store, const BYTE* entryId, std::size_t size)
{
    constexpr auto function = L"Quillon::Mapi::OpenMapiObject";
    ULONG objectType = 0;
    ATL::CComPtr<IUnknown> unknown;
    // The interface takes no const entry ID, but does not write to it either.
    auto* const id = reinterpret_cast<ENTRYID*>(const_cast<BYTE*>(entryId));
    const HRESULT hr =
        store->OpenEntry(static_cast<ULONG>(size), id, nullptr, GetOpenMapiObjectFlags(), &objectType, &unknown);
    CheckMapiCall(hr, store, function);
    if (!unknown)
        Throw(CMapiError(E_FAIL, MapiErrorPointer(), nullptr), function);
    ATL::CComQIPtr<I> object(unknown.p);
    if (!object)
        Throw(CMapiError(E_NOINTERFACE, MapiErrorPointer(), nullptr), function);
    return object;
}

} // namespace Quillon::Mapi
