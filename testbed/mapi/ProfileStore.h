// The user's profiles, in the registry.
#pragma once

#include "testbed/mapi/Profile.h"

namespace Testbed
{
/// The profiles of the current user, under HKEY_CURRENT_USER\Software\KivNst Testbed\Mail profiles: a key for each,
/// named by its identifier, in it its name and a key for each section. What one program changes the others see at once.
/// A profile in use is renamed or removed when the last session ends that uses it, or by whoever looks next when that
/// one's program was ended; until then one that is to be removed is in no list. All functions throw `Failure`.
namespace ProfileStore
{
/// Of a profile's name, in characters.
inline constexpr size_t longestName = 64;

/// The names, in the order of their creation's identifiers; and the default profile's, empty when there is none.
std::vector<std::wstring> Names();
std::wstring Default();
/// Makes a profile the default one; an empty name: none. MAPI_E_NOT_FOUND.
void SetDefault(const std::wstring& name);

/// The profile of that name, without regard to case; null when there is none.
std::shared_ptr<Profile> Find(const std::wstring& name);
/// Makes a profile with the sections that MAPI keeps for itself. MAPI_E_INVALID_PARAMETER for a name that is none,
/// MAPI_E_NO_ACCESS for one that is taken.
std::shared_ptr<Profile> Create(const std::wstring& name);
/// Removes a profile, or marks it. MAPI_E_NOT_FOUND. The default profile's end leaves none.
void Delete(const std::wstring& name);
/// MAPI_E_NOT_FOUND; MAPI_E_NO_ACCESS for a name that is taken.
void Rename(const std::wstring& name, const std::wstring& newName);

/// Holds a profile in use until the last copy of what it gives is gone, which carries out what waited for that.
std::shared_ptr<void> Use(const Profile& profile);

/// Grows with every change that this process makes to any profile.
std::uint64_t Generation() noexcept;
} // namespace ProfileStore

/// MAPI's own section of every profile: the services in order (PR_SERVICES), and the store providers that belong to
/// none (PR_STORE_PROVIDERS).
extern const MAPIUID subsystemSection;
} // namespace Testbed
