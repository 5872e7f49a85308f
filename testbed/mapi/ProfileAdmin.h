// IProfAdmin: the profiles of the user.
#pragma once

#include "common/ComPtr.h"
#include "common/MapiMemory.h"
#include "testbed/common/Namespace.h"

namespace Testbed
{
/// Creates the administration of the user's profiles. There are no "app" profiles: their flag is an unknown one.
///
/// Where MAPI's documentation leaves a choice:
/// - The end of the default profile leaves none.
/// - Service entries of a profile in use are told at once that it is deleted.
/// - A name that breaks the rules is MAPI_E_INVALID_PARAMETER; renaming answers as deleting and creating do.
ComPtr<IProfAdmin> CreateProfileAdmin(const MapiMemory& memory);
} // namespace Testbed
