// com_wrap: attaches an interface pointer that a call has just produced, and refuses null.
#pragma once

#include "support/ComPtr.h"
#include "support/Export.h"

namespace Quillon
{
namespace Detail
{
[[noreturn]] KIVNST_API void ThrowNullPointer();
}

/// Takes over the reference that `pointer` carries and returns it in a counted pointer.
/// Throws CComError(E_POINTER), after its "Throwing exception" line, when `pointer` is null.
/// Example: `return com_wrap<IMsgStore>(new CNstMsgStore(store, support));`
template <class I>
ATL::CComQIPtr<I> com_wrap(I* pointer)
{
    if (!pointer)
        Detail::ThrowNullPointer();
    ATL::CComQIPtr<I> result;
    result.Attach(pointer);
    return result;
}

/// The same for a pointer that is counted already, such as what a factory of a host gave.
template <class I, const IID* piid>
ATL::CComQIPtr<I, piid> com_wrap(ATL::CComQIPtr<I, piid> pointer)
{
    if (!pointer)
        Detail::ThrowNullPointer();
    return pointer;
}

} // namespace Quillon
