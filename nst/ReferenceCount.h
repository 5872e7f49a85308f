// The reference count that all wrappers share in shape: interlocked, 1 at birth, the object deleted at 0.
#pragma once

#include "support/MapiHeaders.h"

namespace Quillon::Nst
{

/// AddRef's body.
inline ULONG AddReference(ULONG& references) noexcept
{
    return InterlockedIncrement(&references);
}

/// Release's body: deletes `object`, through its virtual destructor, with the last reference.
template <class Wrapper>
ULONG ReleaseReference(Wrapper* object, ULONG& references) noexcept
{
    const ULONG left = InterlockedDecrement(&references);
    if (left == 0)
        delete object;
    return left;
}

} // namespace Quillon::Nst
