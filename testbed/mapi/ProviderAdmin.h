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
    /// The name of its section there, by which CreateProvider is asked for it.
    std::wstring name;
    /// The entries of that section.
    std::vector<PropValue> properties;

    /// PR_RESOURCE_TYPE; 0 when it has none.
    ULONG Type() const;
};

/// Creates a provider section in the profile for `definition` under the service's section: the definition's
/// properties, PR_PROVIDER_UID, PR_SERVICE_UID, PR_SERVICE_NAME and `values`; enters it in the service's list of
/// providers of its type. Gives its UID. Throws `Failure`.
Uid CreateProviderSection(Profile& profile, const Uid& service, const ProviderDefinition& definition,
                          const std::vector<PropValue>& values);

/// Takes a provider out of its service's list and removes its section. Throws `Failure` (MAPI_E_NOT_FOUND).
void DeleteProviderSection(Profile& profile, const Uid& service, const Uid& provider);

/// The providers of the service, of all types, in the order of its lists.
std::vector<Uid> ProvidersOf(const Profile& profile, const Uid& service);

/// The UIDs in a property that holds such, end to end (PR_STORE_PROVIDERS, PR_SERVICES...).
std::vector<Uid> ReadUids(const PropertyBag& section, ULONG tag);
/// The reverse of `ReadUids`.
PropValue UidList(ULONG tag, const std::vector<Uid>& uids);

/// The table of these providers' sections: IMsgServiceAdmin's and IProviderAdmin's GetProviderTable.
ComPtr<IMAPITable> OpenProviderTable(const Profile& profile, const std::vector<Uid>& providers,
                                     const MapiMemory& memory, ULONG flags);

/// Told by CreateProvider and DeleteProvider with MSG_SERVICE_PROVIDER_CREATE or MSG_SERVICE_PROVIDER_DELETE; a failure
/// undoes the creation, or prevents the deletion, and is the call's result.
using ProviderEvent = std::function<HRESULT(ULONG context, const Uid& provider)>;

/// Creates the admin object of `service`, for a client or for the service's entry. OpenProfileSection with a null UID
/// opens the service's own section for an entry, and is refused to a client.
ComPtr<IProviderAdmin> CreateProviderAdmin(std::shared_ptr<Profile> profile, const Uid& service,
                                           std::vector<ProviderDefinition> definitions, SectionUser user,
                                           const MapiMemory& memory, ProviderEvent event = nullptr);
} // namespace Testbed
