// Property values as bytes: as PST files hold them, and as the overlay keeps them.
#include "testbed/pst/PropCodec.h"

#include "common/Boundary.h"
#include "testbed/common/Namespace.h"

#include <cstring>
#include <limits>

namespace Testbed::Pst
{
namespace
{
template <class T>
std::optional<T> Fixed(const BYTE* data, size_t size)
{
    if (size < sizeof(T))
        return std::nullopt;
    T value{};
    std::memcpy(&value, data, sizeof(T));
    return value;
}

template <class T>
std::optional<PropValue> FixedValue(ULONG tag, const BYTE* data, size_t size)
{
    const auto value = Fixed<T>(data, size);
    return value ? std::optional<PropValue>(PropValue(tag, *value)) : std::nullopt;
}

template <class T>
std::optional<PropValue> FixedValues(ULONG tag, const BYTE* data, size_t size)
{
    std::vector<T> values(size / sizeof(T));
    if (!values.empty())
        std::memcpy(values.data(), data, values.size() * sizeof(T));
    return PropValue(tag, std::move(values));
}

std::string NarrowFrom(const BYTE* data, size_t size)
{
    std::string text(reinterpret_cast<const char*>(data), size);
    while (!text.empty() && text.back() == '\0')
        text.pop_back();
    return text;
}

std::wstring WideFrom(const BYTE* data, size_t size)
{
    std::wstring text(size / sizeof(wchar_t), L'\0');
    if (!text.empty())
        std::memcpy(text.data(), data, text.size() * sizeof(wchar_t));
    while (!text.empty() && text.back() == L'\0')
        text.pop_back();
    return text;
}

// A file keeps the values of a variable size as a count, the offset of each, and then their bytes without gaps.
template <class T, class Make>
std::optional<PropValue> VariableValues(ULONG tag, const BYTE* data, size_t size, Make make)
{
    const auto count = Fixed<std::uint32_t>(data, size);
    if (!count || *count > size / sizeof(std::uint32_t) - 1)
        return std::nullopt;
    std::vector<T> values;
    values.reserve(*count);
    for (std::uint32_t index = 0; index < *count; ++index)
    {
        const auto offset = [&](std::uint32_t at) -> size_t
        { return at == *count ? size : *Fixed<std::uint32_t>(data + (at + 1) * sizeof(std::uint32_t), sizeof(LONG)); };
        const size_t begin = offset(index);
        const size_t end = offset(index + 1);
        if (begin > end || end > size)
            return std::nullopt;
        values.push_back(make(data + begin, end - begin));
    }
    return PropValue(tag, std::move(values));
}

// Appends values to a block of bytes.
class Writer
{
public:
    template <class T>
    void Number(T value)
    {
        const auto* from = reinterpret_cast<const BYTE*>(&value);
        m_bytes.insert(m_bytes.end(), from, from + sizeof(T));
    }

    void Block(const void* data, size_t size)
    {
        if (size > std::numeric_limits<std::uint32_t>::max())
            Fail(MAPI_E_NOT_ENOUGH_MEMORY, L"A property value is larger than 4 GiB");
        Number(static_cast<std::uint32_t>(size));
        const auto* from = static_cast<const BYTE*>(data);
        if (size != 0)
            m_bytes.insert(m_bytes.end(), from, from + size);
    }

    void Value(const PropValue& value)
    {
        Number(static_cast<std::uint32_t>(value.Tag()));
        std::visit([this](const auto& payload) { Payload(payload); }, value.Data());
    }

    Bytes Take() { return std::move(m_bytes); }

private:
    void Payload(std::monostate) {}
    void Payload(bool value) { Number(static_cast<BYTE>(value ? 1 : 0)); }
    void Payload(const std::string& value) { Block(value.data(), value.size()); }
    void Payload(const std::wstring& value) { Block(value.data(), value.size() * sizeof(wchar_t)); }
    void Payload(const Bytes& value) { Block(value.data(), value.size()); }
    template <class T>
    void Payload(const std::vector<T>& values)
    {
        Number(static_cast<std::uint32_t>(values.size()));
        for (const T& value : values)
            Payload(value);
    }
    template <class T>
    void Payload(const T& value)
    {
        Number(value);
    }

    Bytes m_bytes;
};

// Reads what `Writer` wrote; anything that is not whole is a damaged overlay.
class Reader
{
public:
    Reader(const BYTE* data, size_t size) noexcept : m_at(data), m_left(size) {}

    template <class T>
    T Number()
    {
        T value{};
        std::memcpy(&value, Take(sizeof(T)), sizeof(T));
        return value;
    }

    std::uint32_t Count(size_t smallest)
    {
        const auto count = Number<std::uint32_t>();
        if (count > m_left / smallest)
            Damaged();
        return count;
    }

    Bytes Block()
    {
        const auto size = Number<std::uint32_t>();
        const BYTE* at = Take(size);
        return Bytes(at, at + size);
    }

    PropValue Value()
    {
        const ULONG tag = Number<std::uint32_t>();
        switch (PROP_TYPE(tag))
        {
        case PT_NULL:
        case PT_OBJECT:
            return PropValue(tag, std::monostate());
        case PT_I2:
            return PropValue(tag, Number<std::int16_t>());
        case PT_LONG:
        case PT_ERROR:
            return PropValue(tag, Number<std::int32_t>());
        case PT_R4:
            return PropValue(tag, Number<float>());
        case PT_DOUBLE:
        case PT_APPTIME:
            return PropValue(tag, Number<double>());
        case PT_BOOLEAN:
            return PropValue(tag, Number<BYTE>() != 0);
        case PT_I8:
        case PT_CURRENCY:
        case PT_SYSTIME:
            return PropValue(tag, Number<std::int64_t>());
        case PT_CLSID:
            return PropValue(tag, Number<GUID>());
        case PT_STRING8:
            return PropValue(tag, Narrow());
        case PT_UNICODE:
            return PropValue(tag, Wide());
        case PT_BINARY:
            return PropValue(tag, Block());
        case PT_MV_I2:
            return Values<std::int16_t>(tag, sizeof(std::int16_t), [this] { return Number<std::int16_t>(); });
        case PT_MV_LONG:
            return Values<std::int32_t>(tag, sizeof(std::int32_t), [this] { return Number<std::int32_t>(); });
        case PT_MV_R4:
            return Values<float>(tag, sizeof(float), [this] { return Number<float>(); });
        case PT_MV_DOUBLE:
        case PT_MV_APPTIME:
            return Values<double>(tag, sizeof(double), [this] { return Number<double>(); });
        case PT_MV_I8:
        case PT_MV_CURRENCY:
        case PT_MV_SYSTIME:
            return Values<std::int64_t>(tag, sizeof(std::int64_t), [this] { return Number<std::int64_t>(); });
        case PT_MV_CLSID:
            return Values<GUID>(tag, sizeof(GUID), [this] { return Number<GUID>(); });
        case PT_MV_STRING8:
            return Values<std::string>(tag, sizeof(std::uint32_t), [this] { return Narrow(); });
        case PT_MV_UNICODE:
            return Values<std::wstring>(tag, sizeof(std::uint32_t), [this] { return Wide(); });
        case PT_MV_BINARY:
            return Values<Bytes>(tag, sizeof(std::uint32_t), [this] { return Block(); });
        default:
            Damaged();
        }
    }

private:
    [[noreturn]] static void Damaged() { Fail(MAPI_E_CORRUPT_STORE, L"The overlay file holds a damaged record"); }

    const BYTE* Take(size_t size)
    {
        if (size > m_left)
            Damaged();
        const BYTE* at = m_at;
        m_at += size;
        m_left -= size;
        return at;
    }

    std::string Narrow()
    {
        const Bytes block = Block();
        return std::string(block.begin(), block.end());
    }

    std::wstring Wide()
    {
        const Bytes block = Block();
        std::wstring text(block.size() / sizeof(wchar_t), L'\0');
        if (!text.empty())
            std::memcpy(text.data(), block.data(), text.size() * sizeof(wchar_t));
        return text;
    }

    template <class T, class Next>
    PropValue Values(ULONG tag, size_t smallest, Next next)
    {
        const std::uint32_t count = Count(smallest);
        std::vector<T> values;
        values.reserve(count);
        for (std::uint32_t index = 0; index < count; ++index)
            values.push_back(next());
        return PropValue(tag, std::move(values));
    }

    const BYTE* m_at;
    size_t m_left;
};

void WriteBagTo(Writer& writer, const PropertyBag& bag)
{
    writer.Number(static_cast<std::uint32_t>(bag.Values().size()));
    for (const auto& [id, value] : bag.Values())
        writer.Value(value);
}

PropertyBag ReadBagFrom(Reader& reader)
{
    PropertyBag bag;
    const std::uint32_t count = reader.Count(sizeof(std::uint32_t));
    for (std::uint32_t index = 0; index < count; ++index)
        bag.Put(reader.Value());
    return bag;
}
} // namespace

std::optional<PropValue> ValueFromFile(ULONG tag, const BYTE* data, size_t size)
{
    switch (PROP_TYPE(tag))
    {
    case PT_NULL:
    case PT_OBJECT:
        return PropValue(tag, std::monostate());
    case PT_I2:
        return FixedValue<std::int16_t>(tag, data, size);
    case PT_LONG:
    case PT_ERROR:
        return FixedValue<std::int32_t>(tag, data, size);
    case PT_R4:
        return FixedValue<float>(tag, data, size);
    case PT_DOUBLE:
    case PT_APPTIME:
        return FixedValue<double>(tag, data, size);
    case PT_BOOLEAN:
        return size == 0 ? std::nullopt : std::optional<PropValue>(PropValue(tag, data[0] != 0));
    case PT_I8:
    case PT_CURRENCY:
    case PT_SYSTIME:
        return FixedValue<std::int64_t>(tag, data, size);
    case PT_CLSID:
        return FixedValue<GUID>(tag, data, size);
    case PT_STRING8:
        return PropValue(tag, NarrowFrom(data, size));
    case PT_UNICODE:
        return PropValue(tag, WideFrom(data, size));
    case PT_BINARY:
        return PropValue(tag, Bytes(data, data + size));
    case PT_MV_I2:
        return FixedValues<std::int16_t>(tag, data, size);
    case PT_MV_LONG:
        return FixedValues<std::int32_t>(tag, data, size);
    case PT_MV_R4:
        return FixedValues<float>(tag, data, size);
    case PT_MV_DOUBLE:
    case PT_MV_APPTIME:
        return FixedValues<double>(tag, data, size);
    case PT_MV_I8:
    case PT_MV_CURRENCY:
    case PT_MV_SYSTIME:
        return FixedValues<std::int64_t>(tag, data, size);
    case PT_MV_CLSID:
        return FixedValues<GUID>(tag, data, size);
    case PT_MV_STRING8:
        return VariableValues<std::string>(tag, data, size, NarrowFrom);
    case PT_MV_UNICODE:
        return VariableValues<std::wstring>(tag, data, size, WideFrom);
    case PT_MV_BINARY:
        return VariableValues<Bytes>(tag, data, size,
                                     [](const BYTE* at, size_t length) { return Bytes(at, at + length); });
    default:
        return std::nullopt;
    }
}

Bytes WriteBag(const PropertyBag& bag)
{
    Writer writer;
    WriteBagTo(writer, bag);
    return writer.Take();
}

PropertyBag ReadBag(const Bytes& bytes)
{
    Reader reader(bytes.data(), bytes.size());
    return ReadBagFrom(reader);
}

Bytes WriteValue(const PropValue& value)
{
    Writer writer;
    writer.Value(value);
    return writer.Take();
}

PropValue ReadValue(const Bytes& bytes)
{
    Reader reader(bytes.data(), bytes.size());
    return reader.Value();
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

Bytes WriteBags(const std::vector<PropertyBag>& bags)
{
    Writer writer;
    writer.Number(static_cast<std::uint32_t>(bags.size()));
    for (const PropertyBag& bag : bags)
        WriteBagTo(writer, bag);
    return writer.Take();
}

std::vector<PropertyBag> ReadBags(const Bytes& bytes)
{
    Reader reader(bytes.data(), bytes.size());
    std::vector<PropertyBag> bags(reader.Count(sizeof(std::uint32_t)));
    for (PropertyBag& bag : bags)
        bag = ReadBagFrom(reader);
    return bags;
}

LONG LongOf(const PropertyBag& bag, ULONG tag, LONG otherwise)
{
    const PropValue* value = bag.Find(PROP_ID(tag));
    return value ? value->AsLong(otherwise) : otherwise;
}

bool BoolOf(const PropertyBag& bag, ULONG tag, bool otherwise)
{
    const PropValue* value = bag.Find(PROP_ID(tag));
    const bool* flag = value ? value->Get<bool>() : nullptr;
    return flag ? *flag : otherwise;
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
} // namespace Testbed::Pst
