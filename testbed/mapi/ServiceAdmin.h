// IMsgServiceAdmin2: the message services of one profile.
#pragma once

#include "common/MsgServiceAdmin2.h"
#include "testbed/mapi/Profile.h"

namespace Testbed
{
/// Creates the administration of a profile's services. Copying and ordering services and the primary identity are not
/// offered (MAPI_E_NO_SUPPORT).
///
/// Where MAPI's documentation leaves a choice:
/// - The service table has the services in the order of their creation.
/// - A service whose entry answers its creation without a dialog by MAPI_E_UNCONFIGURED is there, to be configured;
///   any other failure of the entry, or a DLL that is not there, takes back what was made and is the result.
/// - A second copy of a service that allows one only is MAPI_E_NO_ACCESS.
/// - DeleteMsgService stops when the entry fails, but not when the DLL is not there.
ComPtr<IMsgServiceAdmin2> CreateServiceAdmin(std::shared_ptr<Profile> profile, const MapiMemory& memory);

/// The services of a profile, in order.
std::vector<Uid> ServicesOf(const Profile& profile);
/// The providers of all services of a profile, in order, then those of no service.
std::vector<Uid> AllProvidersOf(const Profile& profile);

/// What CreateMsgService and DeleteMsgService do. Throw `Failure`.
Uid CreateService(const std::shared_ptr<Profile>& profile, const std::wstring& name, const std::wstring& displayName,
                  ULONG_PTR uiParam, ULONG flags, const MapiMemory& memory);
void DeleteService(const std::shared_ptr<Profile>& profile, const Uid& service, const MapiMemory& memory);
/// Calls a service's entry with MSG_SERVICE_DELETE, if it can be had. Throws `Failure` when that fails.
void TellDeletion(const std::shared_ptr<Profile>& profile, const Uid& service, const MapiMemory& memory);
} // namespace Testbed
