// Property values in MAPI memory.
#include "tests/common/Properties.h"

#include <cstring>
#include <utility>

namespace Tests
{
namespace
{

void* CopyInto(void* parent, const void* data, std::size_t size)
{
    void* const block = MapiModule::Get().AllocateMore(size, parent);
    if (size != 0)
        std::memcpy(block, data, size);
    return block;
}

} // namespace

Property NumberValue(ULONG tag, ULONG value)
{
    return {tag, static_cast<LONG>(value)};
}

Property BinaryValue(ULONG tag, Bytes value)
{
    return {tag, 0, std::move(value)};
}

Property TextValue(ULONG tag, std::wstring value)
{
    return {tag, 0, {}, std::move(value)};
}

Property NarrowTextValue(ULONG tag, std::string value)
{
    return {tag, 0, {}, {}, std::move(value)};
}

Property ErrorValue(ULONG tag, SCODE code)
{
    return {CHANGE_PROP_TYPE(tag, PT_ERROR), code};
}

SPropValue* AllocateProps(const std::vector<Property>& properties)
{
    const std::size_t size = properties.size() * sizeof(SPropValue);
    auto* const values = static_cast<SPropValue*>(MapiModule::Get().Allocate(size));
    std::memset(values, 0, size);
    for (std::size_t index = 0; index < properties.size(); ++index)
    {
        const Property& property = properties[index];
        SPropValue& value = values[index];
        value.ulPropTag = property.tag;
        switch (PROP_TYPE(property.tag))
        {
        case PT_BINARY:
            value.Value.bin.cb = static_cast<ULONG>(property.bytes.size());
            value.Value.bin.lpb = static_cast<BYTE*>(CopyInto(values, property.bytes.data(), property.bytes.size()));
            break;
        case PT_UNICODE:
            value.Value.lpszW = static_cast<wchar_t*>(
                CopyInto(values, property.text.c_str(), (property.text.size() + 1) * sizeof(wchar_t)));
            break;
        case PT_STRING8:
            value.Value.lpszA =
                static_cast<char*>(CopyInto(values, property.narrow.c_str(), property.narrow.size() + 1));
            break;
        default:
            value.Value.l = property.number;
            break;
        }
    }
    return values;
}

Bytes BytesOf(const SPropValue& value)
{
    return {value.Value.bin.lpb, value.Value.bin.lpb + value.Value.bin.cb};
}

} // namespace Tests
