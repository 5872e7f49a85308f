// Reading and writing single properties.
#include "support/MapiProperties.h"

#include "support/CallWrapping.h"
#include "support/Format.h"

#include <utility>

namespace Quillon::Mapi
{
namespace
{

/// What a read of one property gave.
struct ReadResult
{
    HRESULT hr; ///< S_OK: `value` holds the property
    PropValuePointer value;
};

ReadResult ReadProperty(IMAPIProp* object, ULONG tag) noexcept
{
    if (!object)
        return {E_POINTER, PropValuePointer()};
    SPropTagArray tags = {1, {tag}};
    ULONG count = 0;
    SPropValue* values = nullptr;
    const HRESULT hr = object->GetProps(&tags, 0, &count, &values);
    if (FAILED(hr))
        return {hr, PropValuePointer()};
    PropValuePointer value(values);
    if (!value || count != 1)
        return {MAPI_E_NOT_FOUND, PropValuePointer()};
    if (PROP_TYPE(value->ulPropTag) == PT_ERROR)
    {
        const HRESULT error = value->Value.err;
        return {FAILED(error) ? error : MAPI_E_NOT_FOUND, PropValuePointer()};
    }
    return {S_OK, std::move(value)};
}

/// Refuses a property of a type that was not asked for: its value must not be looked at.
[[noreturn]] void RefuseType(const SPropValue& property, const CallSite& site)
{
    Throw(CRuntimeError(L"Unsupported property type: " + FormatMapiPropertyTag(property.ulPropTag), false), site);
}

} // namespace

PropValuePointer QueryItemProperty(IMAPIProp* object, ULONG tag)
{
    ReadResult result = ReadProperty(object, tag);
    if (result.hr != S_OK)
    {
        Throw(CMapiError(result.hr, Detail::ErrorSource(object).GetError(result.hr), FormatMapiPropertyTag(tag)),
              L"Quillon::Mapi::QueryItemProperty");
    }
    return std::move(result.value);
}

PropValuePointer TryQueryItemProperty(IMAPIProp* object, ULONG tag) noexcept
{
    ReadResult result = ReadProperty(object, tag);
    CheckPassThrough(result.hr, object, L"IMAPIProp::GetProps", MAPI_E_NOT_FOUND);
    return std::move(result.value);
}

Value TryQueryItemPropertyValue(IMAPIProp* object, ULONG tag) noexcept
{
    const PropValuePointer property = TryQueryItemProperty(object, tag);
    if (!property)
        return Value();
    try
    {
        return GetValueFromMapiProperty(property.Get());
    }
    catch (const CException& exception)
    {
        CaughtException(exception, L"Quillon::Mapi::TryQueryItemPropertyValue");
        return Value();
    }
}

Value GetValueFromMapiProperty(const SPropValue* property)
{
    switch (PROP_TYPE(property->ulPropTag))
    {
    case PT_STRING8:
        return Value(property->Value.lpszA);
    case PT_UNICODE:
        return Value(property->Value.lpszW);
    case PT_BINARY:
        return Value(Binary(property->Value.bin.lpb, property->Value.bin.cb));
    default:
        RefuseType(*property, L"Quillon::Mapi::GetValueFromMapiProperty");
    }
}

Binary QueryItemEntryId(IMAPIProp* object)
{
    const PropValuePointer property = QueryItemProperty(object, PR_ENTRYID);
    if (PROP_TYPE(property->ulPropTag) != PT_BINARY)
        RefuseType(*property, L"Quillon::Mapi::QueryItemEntryId");
    return Binary(GetValueFromMapiProperty(property.Get()));
}

StringW QueryItemDisplayName(IMAPIProp* object)
{
    const PropValuePointer property = QueryItemProperty(object, PR_DISPLAY_NAME_W);
    switch (PROP_TYPE(property->ulPropTag))
    {
    case PT_STRING8:
        return StringA(property->Value.lpszA).GetUnicode(CP_ACP);
    case PT_UNICODE:
        return StringW(property->Value.lpszW);
    default:
        RefuseType(*property, L"Quillon::Mapi::QueryItemDisplayName");
    }
}

void HrSetOneProp(IMAPIProp* object, SPropValue* property)
{
    SPropProblemArray* problemArray = nullptr;
    const HRESULT hr = object ? object->SetProps(1, property, &problemArray) : E_POINTER;
    const SmartPointer<SPropProblemArray*, MapiBufferDestructor> problems(FAILED(hr) ? nullptr : problemArray);
    const HRESULT result = SUCCEEDED(hr) && problems && problems->cProblem ? problems->aProblem[0].scode : hr;
    if (FAILED(result))
    {
        Throw(CMapiError(result, Detail::ErrorSource(object).GetError(result),
                         FormatMapiPropertyTag(property->ulPropTag)),
              L"Quillon::Mapi::HrSetOneProp");
    }
}

StringW FormatMapiPropertyTags(const SPropTagArray* tags)
{
    StringW text;
    for (ULONG index = 0; tags && index < tags->cValues; ++index)
    {
        if (index)
            text += L", ";
        text += FormatMapiPropertyTag(tags->aulPropTag[index]);
    }
    return text;
}

StringW FormatMapiPropertyTags(const SPropValue* values, ULONG count)
{
    StringW text;
    for (ULONG index = 0; values && index < count; ++index)
    {
        if (index)
            text += L", ";
        text += FormatMapiPropertyTag(values[index].ulPropTag);
    }
    return text;
}

StringW FormatSetSearchCriteriaFlags(ULONG flags)
{
    struct Flag
    {
        ULONG bit;
        const wchar_t* name;
    };
    static constexpr Flag known[] = {
        {STOP_SEARCH, L"STOP_SEARCH"},
        {RESTART_SEARCH, L"RESTART_SEARCH"},
        {RECURSIVE_SEARCH, L"RECURSIVE_SEARCH"},
        {SHALLOW_SEARCH, L"SHALLOW_SEARCH"},
        {FOREGROUND_SEARCH, L"FOREGROUND_SEARCH"},
        {BACKGROUND_SEARCH, L"BACKGROUND_SEARCH"},
    };
    StringW text;
    ULONG rest = flags;
    for (const Flag& flag : known)
    {
        if (!(rest & flag.bit))
            continue;
        if (!text.IsEmpty())
            text += L" | ";
        text += flag.name;
        rest &= ~flag.bit;
    }
    if (rest || text.IsEmpty())
        text.AppendFormat(text.IsEmpty() ? (rest ? L"0x%lX" : L"%lu") : L" | 0x%lX", rest);
    return text;
}

} // namespace Quillon::Mapi
