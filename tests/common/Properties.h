// Property values for test doubles: given as plain descriptions, returned in MAPI memory.
#pragma once

#include "tests/common/MapiModule.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace Tests
{

using Bytes = std::vector<BYTE>;

/// One property value that owns its data.
struct Property
{
    ULONG tag;
    LONG number = 0;         ///< of PT_LONG, PT_BOOLEAN and PT_ERROR
    Bytes bytes = {};        ///< of PT_BINARY
    std::wstring text = {};  ///< of PT_UNICODE
    std::string narrow = {}; ///< of PT_STRING8
};

Property NumberValue(ULONG tag, ULONG value);
Property BinaryValue(ULONG tag, Bytes value);
Property TextValue(ULONG tag, std::wstring value);
Property NarrowTextValue(ULONG tag, std::string value);
/// What GetProps gives for a property that cannot be had: `tag` with the type PT_ERROR.
Property ErrorValue(ULONG tag, SCODE code);

/// The values as a block that the receiver frees with one MAPIFreeBuffer.
SPropValue* AllocateProps(const std::vector<Property>& properties);

/// A GetProps that returns `hr` and, unless that is a failure, the values in new MAPI memory.
inline auto GiveProps(HRESULT hr, std::vector<Property> properties)
{
    return [hr, properties = std::move(properties)](SPropTagArray*, ULONG, ULONG* count, SPropValue** values) -> HRESULT
    {
        if (FAILED(hr))
            return hr;
        *count = static_cast<ULONG>(properties.size());
        *values = AllocateProps(properties);
        return hr;
    };
}

/// The bytes of a PT_BINARY value.
Bytes BytesOf(const SPropValue& value);

/// Matches a tag array of exactly these tags.
MATCHER_P(Tags, tags, "")
{
    return arg && std::vector<ULONG>(arg->aulPropTag, arg->aulPropTag + arg->cValues) == std::vector<ULONG>(tags);
}

/// Has the double answer GetProps for this one property; any other answer has to be told after this one.
template <class Double>
void GiveProperty(Double& object, const Property& property)
{
    ON_CALL(object, GetProps(Tags(std::vector<ULONG>{property.tag}), testing::_, testing::_, testing::_))
        .WillByDefault(GiveProps(S_OK, {property}));
}

/// Has the double answer GetProps for this one property with MAPI_W_ERRORS_RETURNED and MAPI_E_NOT_FOUND.
template <class Double>
void GiveNoProperty(Double& object, ULONG tag)
{
    ON_CALL(object, GetProps(Tags(std::vector<ULONG>{tag}), testing::_, testing::_, testing::_))
        .WillByDefault(GiveProps(MAPI_W_ERRORS_RETURNED, {ErrorValue(tag, MAPI_E_NOT_FOUND)}));
}

} // namespace Tests
