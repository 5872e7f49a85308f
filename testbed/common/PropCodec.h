// Property values as bytes: as PST files hold them, and as the testbed keeps them in files and in the registry.
#pragma once

#include "testbed/common/PropertyBag.h"

namespace Testbed
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

/// A list of bags as bytes, and back (a message's recipients).
Bytes WriteBags(const std::vector<PropertyBag>& bags);
std::vector<PropertyBag> ReadBags(const Bytes& bytes);
} // namespace Testbed
