// The property methods of IMAPIProp, written once for every object that has properties.
#include "testbed/common/PropertyBag.h"

#include "common/Boundary.h"
#include "testbed/common/Namespace.h"

#include <algorithm>

namespace Testbed
{
namespace
{
bool IsText(ULONG type)
{
    const ULONG single = type & ~ULONG(MV_FLAG);
    return single == PT_STRING8 || single == PT_UNICODE;
}

// The type in which a property of `type` is given to a client that did not name one.
ULONG ShownType(ULONG type, ULONG flags)
{
    return IsText(type) ? (type & MV_FLAG) | (flags & MAPI_UNICODE ? PT_UNICODE : PT_STRING8) : type;
}

void CheckFlags(ULONG flags)
{
    if (flags & ~MAPI_UNICODE)
        Fail(MAPI_E_UNKNOWN_FLAGS, L"Only MAPI_UNICODE is allowed here.");
}
} // namespace

PropValue GetProp(const PropertySource& source, ULONG tag, ULONG flags, size_t limit)
{
    if (PROP_TYPE(tag) == PT_NULL)
        return {};
    const auto found = source.Describe(PROP_ID(tag));
    if (!found)
        return PropValue::Error(tag, MAPI_E_NOT_FOUND);
    const ULONG own = PROP_TYPE(found->tag);
    const ULONG wanted = PROP_TYPE(tag) == PT_UNSPECIFIED ? ShownType(own, flags) : PROP_TYPE(tag);
    // A type that does not fit is as good as a missing property, however large that is.
    if (wanted != own && !(IsText(wanted) && IsText(own) && (wanted & MV_FLAG) == (own & MV_FLAG)))
        return PropValue::Error(tag, MAPI_E_NOT_FOUND);
    // Only what OpenProperty can give as a stream is kept back.
    const bool streamed = own == PT_STRING8 || own == PT_UNICODE || own == PT_BINARY;
    if (streamed && found->size > limit)
        return PropValue::Error(tag, MAPI_E_NOT_ENOUGH_MEMORY);
    const auto value = source.Load(PROP_ID(tag));
    if (!value)
        return PropValue::Error(tag, MAPI_E_NOT_FOUND);
    if (streamed && value->Size() > limit)
        return PropValue::Error(tag, MAPI_E_NOT_ENOUGH_MEMORY);
    const auto shown = value->As(wanted);
    return shown ? *shown : PropValue::Error(tag, MAPI_E_NOT_FOUND);
}

HRESULT GetProps(const PropertySource& source, const MapiMemory& memory, LPSPropTagArray tags, ULONG flags,
                 ULONG* count, LPSPropValue* values)
{
    if (!count || !values || (tags && tags->cValues == 0))
        Fail(MAPI_E_INVALID_PARAMETER, L"GetProps needs places for its results and at least one tag.");
    CheckFlags(flags);

    std::vector<ULONG> asked;
    if (tags)
        asked.assign(tags->aulPropTag, tags->aulPropTag + tags->cValues);
    else
        for (const ULONG tag : source.Tags())
            asked.push_back(CHANGE_PROP_TYPE(tag, ShownType(PROP_TYPE(tag), flags)));

    std::vector<PropValue> result;
    result.reserve(asked.size());
    for (const ULONG tag : asked)
        result.push_back(GetProp(source, tag, flags));

    *values = result.empty() ? nullptr : MakePropArray(memory, result);
    *count = static_cast<ULONG>(result.size());
    const bool errors =
        std::any_of(result.begin(), result.end(), [](const PropValue& value) { return value.IsError(); });
    return errors ? MAPI_W_ERRORS_RETURNED : S_OK;
}

HRESULT GetPropList(const PropertySource& source, const MapiMemory& memory, ULONG flags, LPSPropTagArray* tags)
{
    if (!tags)
        Fail(MAPI_E_INVALID_PARAMETER, L"GetPropList needs a place for its result.");
    CheckFlags(flags);
    std::vector<ULONG> list = source.Tags();
    for (ULONG& tag : list)
        tag = CHANGE_PROP_TYPE(tag, ShownType(PROP_TYPE(tag), flags));
    *tags = MakeTagArray(memory, list);
    return S_OK;
}

HRESULT SetProps(PropertySink& sink, const MapiMemory& memory, ULONG count, LPSPropValue values,
                 LPSPropProblemArray* problems)
{
    if (count == 0)
        Fail(MAPI_E_INVALID_PARAMETER, L"SetProps needs at least one value.");
    // All values are taken over before the first is set, so that a malformed array changes nothing.
    const std::vector<PropValue> copies = CopyProps(count, values);
    std::vector<SPropProblem> found;
    for (ULONG i = 0; i < count; ++i)
    {
        const PropValue& value = copies[i];
        if (value.Type() == PT_NULL)
            continue;
        const bool settable = value.Type() != PT_ERROR && value.Type() != PT_OBJECT;
        const SCODE code = settable ? sink.Set(value) : MAPI_E_INVALID_TYPE;
        if (FAILED(code))
            found.push_back({i, value.Tag(), code});
    }
    GiveProblems(memory, found, problems);
    return S_OK;
}

HRESULT DeleteProps(PropertySink& sink, const MapiMemory& memory, LPSPropTagArray tags, LPSPropProblemArray* problems)
{
    if (!tags || tags->cValues == 0)
        Fail(MAPI_E_INVALID_PARAMETER, L"DeleteProps needs at least one tag.");
    std::vector<SPropProblem> found;
    for (ULONG i = 0; i < tags->cValues; ++i)
    {
        const SCODE code = sink.Remove(tags->aulPropTag[i]);
        if (FAILED(code))
            found.push_back({i, tags->aulPropTag[i], code});
    }
    GiveProblems(memory, found, problems);
    return S_OK;
}

PropertyBag::PropertyBag(const std::vector<PropValue>& values)
{
    for (const PropValue& value : values)
        Put(value);
}

std::optional<PropertySource::Description> PropertyBag::Describe(ULONG id) const
{
    const PropValue* value = Find(id);
    return value ? std::optional(Description{value->Tag(), value->Size()}) : std::nullopt;
}

std::optional<PropValue> PropertyBag::Load(ULONG id) const
{
    const PropValue* value = Find(id);
    return value ? std::optional(*value) : std::nullopt;
}

std::vector<ULONG> PropertyBag::Tags() const
{
    std::vector<ULONG> tags;
    tags.reserve(m_values.size());
    for (const auto& [id, value] : m_values)
        tags.push_back(value.Tag());
    return tags;
}

SCODE PropertyBag::Set(const PropValue& value)
{
    if (m_computed.contains(value.Id()))
        return MAPI_E_COMPUTED;
    Put(value);
    return S_OK;
}

SCODE PropertyBag::Remove(ULONG tag)
{
    if (m_computed.contains(PROP_ID(tag)))
        return MAPI_E_COMPUTED;
    return m_values.erase(PROP_ID(tag)) ? S_OK : MAPI_E_NOT_FOUND;
}

const PropValue* PropertyBag::Find(ULONG id) const noexcept
{
    const auto found = m_values.find(id);
    return found == m_values.end() ? nullptr : &found->second;
}

void PropertyBag::Put(PropValue value)
{
    const ULONG id = value.Id();
    m_values.insert_or_assign(id, std::move(value));
}

void PropertyChanges::Put(PropValue value)
{
    m_removed.erase(value.Id());
    m_values.Put(std::move(value));
}

void PropertyChanges::Put(const PropertyBag& values)
{
    for (const auto& [id, value] : values.Values())
        Put(value);
}

void PropertyChanges::Remove(ULONG id)
{
    m_values.Erase(id);
    m_removed.insert(id);
}

void PropertyChanges::Forget(ULONG id)
{
    m_values.Erase(id);
    m_removed.erase(id);
}

void PropertyChanges::Clear()
{
    m_values.Clear();
    m_removed.clear();
}

void PropertyChanges::Apply(PropertyBag& target) const
{
    for (const ULONG id : m_removed)
        target.Erase(id);
    for (const auto& [id, value] : m_values.Values())
        target.Put(value);
}

LONG LongOf(const PropertyBag& bag, ULONG tag, LONG otherwise)
{
    const PropValue* value = bag.Find(PROP_ID(tag));
    return value ? value->AsLong(otherwise) : otherwise;
}

std::wstring TextOf(const PropertyBag& bag, ULONG tag)
{
    const PropValue* value = bag.Find(PROP_ID(tag));
    return value ? value->AsText() : std::wstring();
}

Bytes BytesOf(const PropertyBag& bag, ULONG tag)
{
    const PropValue* value = bag.Find(PROP_ID(tag));
    return value ? value->AsBytes() : Bytes();
}

void Require(const void* argument)
{
    if (!argument)
        Fail(MAPI_E_INVALID_PARAMETER, L"A required argument is null.");
}

void GiveProblems(const MapiMemory& memory, const std::vector<SPropProblem>& problems, LPSPropProblemArray* out)
{
    if (out)
        *out = problems.empty() ? nullptr : MakeProblemArray(memory, problems);
}
} // namespace Testbed
