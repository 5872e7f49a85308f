// IMAPISupport as MAPI hands it to a store provider and to a message service's entry.
#pragma once

#include "testbed/mapi/Notifications.h"
#include "testbed/mapi/Profile.h"
#include "testbed/mapi/StatusTable.h"

namespace Testbed
{
/// The two kinds of support object.
enum class SupportKind
{
    /// A provider's, for one logon.
    Logon,
    /// A message service's, for one call of its entry: seven methods work, the others give MAPI_E_NO_SUPPORT.
    Configuration
};

/// What a support object works with. The session owns what the pointers share; a support object that a provider keeps
/// longer than the session still works on it.
struct SupportContext
{
    SupportKind kind = SupportKind::Logon;
    std::shared_ptr<Profile> profile;
    /// The section that OpenProfileSection opens for a null UID: the provider's, or in a service entry the service's.
    Uid ownSection;
    /// The provider DLL's narrow file name, for WrapStoreEntryID.
    std::string dllName;
    MapiMemory memory;
    std::shared_ptr<StatusRows> status;
    std::shared_ptr<Notifications> notifications;
    /// The session's own OpenEntry and CompareEntryIDs, which go to the provider whose entry ID it is; may be empty.
    std::function<HRESULT(ULONG, LPENTRYID, LPCIID, ULONG, ULONG*, LPUNKNOWN*)> openEntry;
    std::function<HRESULT(ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG, ULONG*)> compareEntryIds;
    /// Told the UIDs that the provider registers with SetProviderUID; may be empty.
    std::function<void(const Uid&)> setProviderUid;
    /// Takes a section that the provider opens, and gives what holds it; may be empty.
    std::function<std::shared_ptr<void>(const Uid&, ULONG flags)> lockSection;
    /// Makes the logon's section permanent, for ModifyProfile; may be empty.
    std::function<void()> modifyProfile;
    /// Told by the last Release; may be empty.
    std::function<void()> released;
};

/// Creates a support object. Whoever calls it after its last Release ends the process (OlmapiExit::LostObject).
/// GetLastError, GetMemAllocRoutines, Subscribe, Unsubscribe, Notify, ModifyStatusRow,
/// OpenProfileSection, NewUID, MakeInvalid, SetProviderUID, CompareEntryIDs, OpenEntry, CopyMessages, CopyFolder,
/// DoCopyTo, DoCopyProps, WrapStoreEntryID and IStorageFromStream do what MAPI's do; what needs the spooler, an address
/// book or a dialog gives MAPI_E_NO_SUPPORT. See `CopyEngine.h` for the copying.
ComPtr<IMAPISupport> CreateSupportObject(SupportContext context);

/// The body of WrapStoreEntryID, MAPI's own and a support object's. Throws `Failure` (MAPI_E_INVALID_PARAMETER,
/// MAPI_E_INVALID_ENTRYID).
void GiveWrappedEntryId(const MapiMemory& memory, const std::string& dllName, ULONG size, const ENTRYID* entryId,
                        ULONG* wrappedSize, LPENTRYID* wrapped);
} // namespace Testbed
