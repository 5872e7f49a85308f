// A mail profile: named sections of properties, kept in one file.
#pragma once

#include "common/ComObject.h"
#include "common/MapiMemory.h"
#include "testbed/common/Namespace.h"
#include "testbed/common/PropertyBag.h"

#include <compare>
#include <cstring>
#include <filesystem>
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

/// A profile. Thread-safe. Every change is on disk when the call returns: the file is written anew beside the old one
/// and then put in its place, so that a crash leaves either.
class Profile
{
public:
    /// Opens the profile kept in `file`; one that is not there is an empty profile whose file comes with the first
    /// change. Throws `Failure`: MAPI_E_CORRUPT_DATA for a file that is no profile (naming it and the place),
    /// MAPI_E_NO_ACCESS when it cannot be read.
    static std::shared_ptr<Profile> Open(const std::filesystem::path& file);

    /// A profile that lives in memory only.
    static std::shared_ptr<Profile> InMemory(std::wstring name);

    const std::filesystem::path& File() const noexcept { return m_file; }
    /// The profile's name: the file's name without its extension.
    const std::wstring& Name() const noexcept { return m_name; }

    std::vector<Uid> Sections() const;
    bool HasSection(const Uid& uid) const;
    /// A copy of a section's properties; empty when there is no such section.
    PropertyBag Section(const Uid& uid) const;

    /// Creates a section, or changes one: sets `values` and removes the identifiers in `removed`. Throws `Failure`
    /// (MAPI_E_NOT_ENOUGH_DISK with the reason) when the file cannot be written; the profile is then unchanged.
    void Change(const Uid& uid, const std::vector<PropValue>& values, const std::vector<ULONG>& removed = {});
    /// Removes a section; one that is not there is no error. Throws as `Change` does.
    void Remove(const Uid& uid);

private:
    Profile(std::filesystem::path file, std::wstring name);

    using SectionMap = std::map<Uid, PropertyBag>;
    void Write(const SectionMap& sections) const;

    mutable std::mutex m_lock;
    std::filesystem::path m_file;
    std::wstring m_name;
    SectionMap m_sections;
};

/// Opens a section as IProfSect. As MAPI's own, sections have no transactions: a change takes effect, for other objects
/// on the section too, and is on disk with the call that makes it; SaveChanges has nothing more to save. Without
/// `modify`, and after a SaveChanges that does not keep the section open for writing, writing calls give
/// MAPI_E_NO_ACCESS. Properties of the secure range (0x67F0 to 0x67FF) are read and written by name only: no list shows
/// them. Named properties and OpenProperty are not supported. Throws `Failure` with MAPI_E_NOT_FOUND when there is no
/// such section.
ComPtr<IProfSect> OpenSection(const std::shared_ptr<Profile>& profile, const Uid& uid, bool modify,
                              const MapiMemory& memory);
} // namespace Testbed
