// Property values as bytes: as PST files hold them, and as the overlay keeps them.
#pragma once

#include "testbed/common/PropertyBag.h"

#include <set>

namespace Testbed::Pst
{
/// The value that a PST file's raw bytes make for `tag`; nothing when the type is not one of MAPI's or when the bytes
/// do not fit it (too short, an offset that points outside).
std::optional<PropValue> ValueFromFile(ULONG tag, const BYTE* data, size_t size);

/// The properties as one block of bytes that `ReadBag` reads back, whatever their types.
Bytes WriteBag(const PropertyBag& bag);
/// Throws `Failure` (MAPI_E_CORRUPT_STORE) when the bytes are not whole.
PropertyBag ReadBag(const Bytes& bytes);

/// One value as `WriteBag` writes it, and back.
Bytes WriteValue(const PropValue& value);
PropValue ReadValue(const Bytes& bytes);

/// What has been set and taken away on top of an object's own properties.
class PropertyChanges
{
public:
    void Put(PropValue value);
    void Put(const PropertyBag& values);
    void Remove(ULONG id);
    /// As if the property had never been changed.
    void Forget(ULONG id);
    void Clear();
    bool Empty() const noexcept { return m_values.Values().empty() && m_removed.empty(); }
    /// Brings the changes into `target`.
    void Apply(PropertyBag& target) const;

    const PropertyBag& Values() const noexcept { return m_values; }
    const std::set<ULONG>& Removed() const noexcept { return m_removed; }

private:
    PropertyBag m_values;
    std::set<ULONG> m_removed;
};

/// A list of bags as bytes, and back (a message's recipients).
Bytes WriteBags(const std::vector<PropertyBag>& bags);
std::vector<PropertyBag> ReadBags(const Bytes& bytes);

/// A property's value in a bag, or what stands for a missing one.
LONG LongOf(const PropertyBag& bag, ULONG tag, LONG otherwise = 0);
bool BoolOf(const PropertyBag& bag, ULONG tag, bool otherwise = false);
std::wstring TextOf(const PropertyBag& bag, ULONG tag);
Bytes BytesOf(const PropertyBag& bag, ULONG tag);
} // namespace Testbed::Pst
