// The contents of a PST or OST file, read with libpff.
#pragma once

#include "testbed/pst/StoreSource.h"

namespace Testbed::Pst
{
/// Opens the file at `path` (with backslashes) for reading only. Throws `Failure`: MAPI_E_NOT_FOUND when there is no
/// such file, MAPI_E_NO_ACCESS when it may not be read, MAPI_E_CORRUPT_STORE when it is no PST file or is damaged.
std::shared_ptr<const StoreSource> OpenPffFile(const std::wstring& path);
} // namespace Testbed::Pst
