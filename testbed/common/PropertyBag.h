// The property half of IMAPIProp, over any source of properties, and a plain bag of properties.
#pragma once

#include "common/PropValue.h"
#include "testbed/common/Namespace.h"

#include <functional>
#include <map>
#include <set>

namespace Testbed
{
/// Something that has properties: a bag, a row, an object of a file. Properties are looked up by identifier, as MAPI
/// objects have at most one property of an identifier.
class PropertySource
{
public:
    virtual ~PropertySource() = default;

    /// What is known of a property without loading it.
    struct Description
    {
        ULONG tag = PR_NULL;
        /// Bytes of the payload; an estimate is enough, it only decides whether the value goes inline.
        size_t size = 0;
    };

    /// The property of identifier `id`, or nothing when the object does not have it.
    virtual std::optional<Description> Describe(ULONG id) const = 0;

    /// Loads a property that `Describe` gave; nothing when it is gone.
    virtual std::optional<PropValue> Load(ULONG id) const = 0;

    /// The tags of all properties that a client may know of, in their own types.
    virtual std::vector<ULONG> Tags() const = 0;
};

/// Something whose properties can be changed.
class PropertySink
{
public:
    virtual ~PropertySink() = default;

    /// Sets one property, replacing the one of the same identifier. Returns S_OK or the problem's code
    /// (MAPI_E_COMPUTED, MAPI_E_NO_ACCESS...). A value of type PT_ERROR or PT_OBJECT never gets here.
    virtual SCODE Set(const PropValue& value) = 0;

    /// Removes one property. Returns S_OK or the problem's code (MAPI_E_NOT_FOUND, MAPI_E_COMPUTED...).
    virtual SCODE Remove(ULONG tag) = 0;
};

/// One property as a client asks for it: in the tag's type, or for PT_UNSPECIFIED in its own, strings then wide or
/// narrow by MAPI_UNICODE in `flags`. What is missing, or of a type that does not convert, gives an error entry with
/// MAPI_E_NOT_FOUND; a text or binary value larger than `limit` bytes gives one with MAPI_E_NOT_ENOUGH_MEMORY. A
/// PT_OBJECT property gives its marker. PR_NULL gives PR_NULL.
PropValue GetProp(const PropertySource& source, ULONG tag, ULONG flags, size_t limit = maxInlineSize);

/// The body of IMAPIProp::GetProps. Checks its arguments: MAPI_E_INVALID_PARAMETER for a null output or an empty tag
/// array, MAPI_E_UNKNOWN_FLAGS for a flag other than MAPI_UNICODE. Returns S_OK, or MAPI_W_ERRORS_RETURNED when an
/// entry is an error. A null tag array asks for all properties. An object without any gives count 0, a null array and
/// S_OK. Throws `Failure`; the outputs are written only on success.
HRESULT GetProps(const PropertySource& source, const MapiMemory& memory, LPSPropTagArray tags, ULONG flags,
                 ULONG* count, LPSPropValue* values);

/// The body of IMAPIProp::GetPropList: string properties are listed wide or narrow by MAPI_UNICODE.
HRESULT GetPropList(const PropertySource& source, const MapiMemory& memory, ULONG flags, LPSPropTagArray* tags);

/// The body of IMAPIProp::SetProps. The whole call fails with MAPI_E_INVALID_PARAMETER, and changes nothing, for a null
/// or empty array or a malformed value; single properties that cannot be set become entries of the problem array (when
/// the caller wants it; it is null when there was no problem), with PT_ERROR and PT_OBJECT values as
/// MAPI_E_INVALID_TYPE. PR_NULL entries are skipped. Throws `Failure`.
HRESULT SetProps(PropertySink& sink, const MapiMemory& memory, ULONG count, LPSPropValue values,
                 LPSPropProblemArray* problems);

/// The body of IMAPIProp::DeleteProps. Removing what is not there is a problem entry with MAPI_E_NOT_FOUND.
HRESULT DeleteProps(PropertySink& sink, const MapiMemory& memory, LPSPropTagArray tags, LPSPropProblemArray* problems);

/// Properties by identifier, in memory. Not thread-safe.
class PropertyBag : public PropertySource, public PropertySink
{
public:
    PropertyBag() = default;
    explicit PropertyBag(const std::vector<PropValue>& values);

    std::optional<Description> Describe(ULONG id) const override;
    std::optional<PropValue> Load(ULONG id) const override;
    std::vector<ULONG> Tags() const override;

    SCODE Set(const PropValue& value) override;
    SCODE Remove(ULONG tag) override;

    /// The property of an identifier, or null.
    const PropValue* Find(ULONG id) const noexcept;
    /// Sets a property whether or not it is read-only to clients.
    void Put(PropValue value);
    void Erase(ULONG id) { m_values.erase(id); }
    void Clear() { m_values.clear(); }

    /// From now on `Set` and `Remove` refuse this identifier with MAPI_E_COMPUTED.
    void MakeComputed(ULONG id) { m_computed.insert(id); }

    const std::map<ULONG, PropValue>& Values() const noexcept { return m_values; }

private:
    std::map<ULONG, PropValue> m_values;
    std::set<ULONG> m_computed;
};

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

/// A property's value in a bag, or what stands for a missing one.
LONG LongOf(const PropertyBag& bag, ULONG tag, LONG otherwise = 0);
std::wstring TextOf(const PropertyBag& bag, ULONG tag);
Bytes BytesOf(const PropertyBag& bag, ULONG tag);

/// Throws `Failure` (MAPI_E_INVALID_PARAMETER) for an argument that is null and must not be.
void Require(const void* argument);
/// Gives a call's problems to a caller who wants them; null for none.
void GiveProblems(const MapiMemory& memory, const std::vector<SPropProblem>& problems, LPSPropProblemArray* out);
} // namespace Testbed
