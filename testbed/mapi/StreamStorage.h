// A structured storage kept in a stream, as IMAPISupport::IStorageFromStream gives it.
#pragma once

#include "common/ComPtr.h"
#include "common/Mapi.h"
#include "testbed/common/Namespace.h"

namespace Testbed
{
/// Opens (STGSTRM_CURRENT or no flag) or creates (STGSTRM_CREATE) a storage in what `source` is: an IStream or an
/// ILockBytes, by `interfaceId` (null: IStream). STGSTRM_MODIFY makes it writable. Throws `Failure`:
/// MAPI_E_INTERFACE_NOT_SUPPORTED when the source does not answer, the storage's own code when its contents are none.
ComPtr<IStorage> OpenStreamStorage(IUnknown& source, LPCIID interfaceId, ULONG flags);
} // namespace Testbed
