// Who has which profile section open: many readers, or one writer.
#pragma once

#include "testbed/mapi/Profile.h"

namespace Testbed
{
/// Takes a section for reading, or with MAPI_MODIFY in `flags` for writing, until the last copy of what it gives is
/// gone; null for a profile that nobody else can open. It counts for all programs of the machine: a program that is
/// ended gives up what it holds. Throws `Failure` with MAPI_E_NO_ACCESS while the section is open for writing, or for
/// writing while it is open.
std::shared_ptr<void> LockSection(const Profile& profile, const Uid& uid, ULONG flags);

/// Whether sections that providers open through their support objects are taken, too. MAPI's documentation does not
/// say; this one does so when the environment has KIVNST_TESTBED_LOCK_PROVIDER_SECTIONS=1. The opens of one session do
/// not stand in each other's way then.
bool LocksProviderSections();

/// The body of a client's or a service entry's OpenProfileSection: opens a section, and takes it for as long as the
/// object lives. Throws `Failure` as `OpenSection` and `LockSection` do, MAPI_E_UNKNOWN_FLAGS, and
/// MAPI_E_INTERFACE_NOT_SUPPORTED for an interface that a section does not have; null is allowed.
ComPtr<IProfSect> OpenLockedSection(const std::shared_ptr<Profile>& profile, const Uid& uid, LPCIID iid, ULONG flags,
                                    SectionUser user, const MapiMemory& memory);
} // namespace Testbed
