// IProviderAdmin over the providers of one message service, as MAPI hands it to the service's entry.
#pragma once

#include "testbed/mapi/Profile.h"

#include <functional>
#include <string>

namespace Testbed
{
/// What MAPI's configuration file says of a provider of a service.
struct ProviderDefinition
{
    /// The name by which CreateProvider is asked for it.
    std::wstring name;
    std::wstring displayName;
    /// The provider DLL's file name as it stands in the profile.
    std::wstring dllName;
    ULONG resourceType = MAPI_STORE_PROVIDER;
    ULONG resourceFlags = 0;
};

/// Creates a provider section in the profile for `definition` under the service's section: PR_PROVIDER_UID,
/// PR_SERVICE_UID, PR_SERVICE_NAME, PR_PROVIDER_DLL_NAME, PR_DISPLAY_NAME, PR_PROVIDER_DISPLAY, PR_RESOURCE_TYPE,
/// PR_RESOURCE_FLAGS and `values`; enters it in the service's PR_STORE_PROVIDERS. Gives its UID. Throws `Failure`.
Uid CreateProviderSection(Profile& profile, const Uid& service, const ProviderDefinition& definition,
                          const std::vector<PropValue>& values);

/// Takes a provider out of its service's list and removes its section. Throws `Failure` (MAPI_E_NOT_FOUND).
void DeleteProviderSection(Profile& profile, const Uid& service, const Uid& provider);

/// The UIDs in the service's PR_STORE_PROVIDERS.
std::vector<Uid> ProvidersOf(const Profile& profile, const Uid& service);

/// Told by CreateProvider and DeleteProvider with MSG_SERVICE_PROVIDER_CREATE or MSG_SERVICE_PROVIDER_DELETE; a failure
/// undoes the creation, or prevents the deletion, and is the call's result.
using ProviderEvent = std::function<HRESULT(ULONG context, const Uid& provider)>;

/// Creates the admin object of `service`. OpenProfileSection with a null UID opens the service's own section, with a
/// UID any section of the profile (MAPI_E_NOT_FOUND when there is none).
ComPtr<IProviderAdmin> CreateProviderAdmin(std::shared_ptr<Profile> profile, const Uid& service,
                                           std::vector<ProviderDefinition> definitions, const MapiMemory& memory,
                                           ProviderEvent event = nullptr);
} // namespace Testbed
