// The offline-folder identifier of a store.
#pragma once

#include "support/Export.h"
#include "support/MapiHeaders.h"

namespace Quillon::Nst
{

/// Makes sure that the store's PR_OST_OLFI holds an allocated identifier range, which the PST provider needs of a store
/// of the offline kind; writes nothing when there is one. Throws CComError(E_INVALIDARG) for a null store,
/// CRuntimeError when the property has not 80 bytes, Mapi::CMapiError when it cannot be written. Any thread.
KIVNST_API void SetOLFIInOST(IMsgStore* store);

} // namespace Quillon::Nst
