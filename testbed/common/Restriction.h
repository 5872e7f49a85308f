// A copy of a MAPI restriction that can be evaluated against properties.
#pragma once

#include "testbed/common/PropertyBag.h"

namespace Testbed
{
/// An owned, checked restriction, in plain parts.
struct Restriction
{
    /// RES_AND and its like.
    ULONG kind = 0;
    /// The relation, or the fuzzy level.
    ULONG mode = 0;
    ULONG tag = 0;
    /// The second tag, the mask, or the size.
    ULONG other = 0;
    std::vector<PropValue> values;
    std::vector<Restriction> parts;

    /// Copies a client's restriction. Throws `Failure`: MAPI_E_INVALID_PARAMETER for null pointers and unknown codes,
    /// MAPI_E_TOO_COMPLEX for what is not supported (sub-restrictions, regular expressions, content restrictions on
    /// types other than strings and binaries, nesting deeper than 64).
    static Restriction Copy(const SRestriction* restriction);

    /// Whether it has the parts and values that its kind needs, as all have that `Copy` gives.
    bool IsWhole() const noexcept;

    /// Whether the properties match. A comparison with a missing property is false (RELOP_NE included); strings compare
    /// by property without regard to case and by content as the fuzzy level says. A single value is compared with each
    /// value of a multi-valued property and matches when one does.
    bool Matches(const PropertySource& properties) const;

    /// Writes the restriction back as a MAPI structure whose parts are all linked to `parent`.
    void CopyTo(SRestriction& target, const MapiMemory& memory, void* parent) const;
};

/// The restriction as one MAPI block that the caller frees.
LPSRestriction MakeRestriction(const MapiMemory& memory, const Restriction& restriction);
} // namespace Testbed
