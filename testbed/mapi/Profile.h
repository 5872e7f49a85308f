// A mail profile: named sections of properties, kept in one file.
#pragma once

#include "common/ComObject.h"
#include "common/MapiMemory.h"
#include "testbed/common/Namespace.h"
#include "testbed/common/PropertyBag.h"

#include <compare>
#include <cstring>
#include <memory>
#include <mutex>

namespace Testbed
{
/// A MAPIUID that orders and compares.
struct Uid : MAPIUID
{
    Uid() noexcept : MAPIUID{} {}
    Uid(const MAPIUID& uid) noexcept : MAPIUID(uid) {}

    /// A new unique identifier. Throws `Failure` when the system has none.
    static Uid Create();
    /// From a PT_BINARY property of 16 bytes; nothing for any other.
    static std::optional<Uid> From(const PropValue* value);

    bool operator==(const Uid& other) const noexcept { return std::memcmp(ab, other.ab, sizeof(ab)) == 0; }
    bool operator<(const Uid& other) const noexcept { return std::memcmp(ab, other.ab, sizeof(ab)) < 0; }
    /// 32 hexadecimal digits.
    std::wstring Text() const;
};

/// Whether two names of profiles, services or files are the same, without regard to case.
bool SameName(const std::wstring& a, const std::wstring& b) noexcept;

/// A profile: named sections of properties. Thread-safe. Every change is kept when the call returns.
class Profile
{
public:
    virtual ~Profile() = default;
    Profile(const Profile&) = delete;
    Profile& operator=(const Profile&) = delete;

    const std::wstring& Name() const noexcept { return m_name; }
    /// What no other profile has, whatever its name; empty for one that nobody else can open.
    const std::wstring& Id() const noexcept { return m_id; }

    virtual std::vector<Uid> Sections() const = 0;
    virtual bool HasSection(const Uid& uid) const = 0;
    /// A copy of a section's properties; empty when there is no such section.
    virtual PropertyBag Section(const Uid& uid) const = 0;

    /// Creates a section, or changes one: sets `values` and removes the identifiers in `removed`. Throws `Failure`
    /// (MAPI_E_NOT_ENOUGH_DISK, MAPI_E_NO_ACCESS) when it cannot be kept.
    virtual void Change(const Uid& uid, const std::vector<PropValue>& values,
                        const std::vector<ULONG>& removed = {}) = 0;
    /// Removes a section; one that is not there is no error. Throws as `Change` does.
    virtual void Remove(const Uid& uid) = 0;

protected:
    Profile(std::wstring name, std::wstring id) : m_name(std::move(name)), m_id(std::move(id)) {}

private:
    std::wstring m_name;
    std::wstring m_id;
};

/// For whom a section is opened.
enum class SectionUser
{
    /// A client: a provider's section needs `mapiForceAccess`.
    Client,
    /// A message service's entry: any section.
    Entry,
    /// A provider: any section; what MAPI keeps there for itself is read-only.
    Provider
};

/// Opens a section as IProfSect. As MAPI's own, sections have no transactions: a change takes effect, for other objects
/// on the section too, with the call that makes it; SaveChanges has nothing more to save. PR_OBJECT_TYPE and
/// PR_PROFILE_NAME are always there and read-only. Properties of the secure range (0x67F0 to 0x67FF) are read and
/// written by name only: no list shows them. Named properties and OpenProperty are not supported.
///
/// With MAPI_MODIFY in `flags` a section that is not there is made; without, writing calls give MAPI_E_NO_ACCESS.
/// `lock` is held for as long as the object lives.
///
/// Throws `Failure`: MAPI_E_NOT_FOUND when there is no such section to read, MAPI_E_NO_ACCESS for a provider's section
/// that a client opens without `mapiForceAccess`.
ComPtr<IProfSect> OpenSection(const std::shared_ptr<Profile>& profile, const Uid& uid, ULONG flags, SectionUser user,
                              const MapiMemory& memory, std::shared_ptr<void> lock = nullptr);
} // namespace Testbed
