// A copy of a MAPI restriction that can be evaluated against properties.
#pragma once

#include "testbed/common/PropertyBag.h"

#include <memory>

namespace Testbed
{
/// An owned, checked restriction. Immutable, so that it may be shared between threads.
class Restriction
{
public:
    virtual ~Restriction() = default;

    /// Copies a client's restriction. Throws `Failure`: MAPI_E_INVALID_PARAMETER for null pointers and unknown codes,
    /// MAPI_E_TOO_COMPLEX for what is not supported (sub-restrictions, regular expressions, content restrictions on
    /// types other than strings and binaries, nesting deeper than 64).
    static std::shared_ptr<const Restriction> Copy(const SRestriction* restriction);

    /// A restriction in plain parts, as it can be kept in a file.
    struct Plan
    {
        /// RES_AND and its like.
        ULONG kind = 0;
        /// The relation, or the fuzzy level.
        ULONG mode = 0;
        ULONG tag = 0;
        /// The second tag, the mask, or the size.
        ULONG other = 0;
        std::vector<PropValue> values;
        std::vector<Plan> parts;
    };
    virtual Plan Planned() const = 0;
    /// The restriction of a plan that `Planned` gave; throws `Failure` (MAPI_E_INVALID_PARAMETER) for any other.
    static std::shared_ptr<const Restriction> Make(const Plan& plan);

    /// Whether the properties match. A comparison with a missing property is false (RELOP_NE included); strings compare
    /// by property without regard to case and by content as the fuzzy level says. A single value is compared with each
    /// value of a multi-valued property and matches when one does.
    virtual bool Matches(const PropertySource& properties) const = 0;

    /// Writes the restriction back as a MAPI structure whose parts are all linked to `parent`.
    virtual void CopyTo(SRestriction& target, const MapiMemory& memory, void* parent) const = 0;
};

/// The restriction as one MAPI block that the caller frees.
LPSRestriction MakeRestriction(const MapiMemory& memory, const Restriction& restriction);
} // namespace Testbed
