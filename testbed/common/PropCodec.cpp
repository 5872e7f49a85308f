// Property values as bytes.
#include "testbed/common/PropCodec.h"

#include "common/Boundary.h"

#include <cstring>
#include <limits>

namespace Testbed
{
namespace
{
// The payload that a type takes, empty or 0; nothing for what is no type of MAPI's.
std::optional<PropValue::Payload> EmptyPayload(ULONG type)
{
    switch (type)
    {
    case PT_NULL:
    case PT_OBJECT:
        return std::monostate();
    case PT_I2:
        return std::int16_t();
    case PT_LONG:
    case PT_ERROR:
        return std::int32_t();
    case PT_R4:
        return float();
    case PT_DOUBLE:
    case PT_APPTIME:
        return double();
    case PT_BOOLEAN:
        return bool();
    case PT_I8:
    case PT_CURRENCY:
    case PT_SYSTIME:
        return std::int64_t();
    case PT_CLSID:
        return GUID();
    case PT_STRING8:
        return std::string();
    case PT_UNICODE:
        return std::wstring();
    case PT_BINARY:
        return Bytes();
    case PT_MV_I2:
        return std::vector<std::int16_t>();
    case PT_MV_LONG:
        return std::vector<std::int32_t>();
    case PT_MV_R4:
        return std::vector<float>();
    case PT_MV_DOUBLE:
    case PT_MV_APPTIME:
        return std::vector<double>();
    case PT_MV_I8:
    case PT_MV_CURRENCY:
    case PT_MV_SYSTIME:
        return std::vector<std::int64_t>();
    case PT_MV_CLSID:
        return std::vector<GUID>();
    case PT_MV_STRING8:
        return std::vector<std::string>();
    case PT_MV_UNICODE:
        return std::vector<std::wstring>();
    case PT_MV_BINARY:
        return std::vector<Bytes>();
    default:
        return std::nullopt;
    }
}

void Assign(std::string& value, const BYTE* data, size_t size)
{
    value.assign(reinterpret_cast<const char*>(data), size);
}

void Assign(std::wstring& value, const BYTE* data, size_t size)
{
    value.resize(size / sizeof(wchar_t));
    if (!value.empty())
        std::memcpy(value.data(), data, value.size() * sizeof(wchar_t));
}

void Assign(Bytes& value, const BYTE* data, size_t size)
{
    value.assign(data, data + size);
}

// What a PST file holds: each overload gives whether the bytes fit.
bool FromFile(std::monostate&, const BYTE*, size_t)
{
    return true;
}

bool FromFile(bool& value, const BYTE* data, size_t size)
{
    value = size != 0 && data[0] != 0;
    return size != 0;
}

template <class T>
bool FromFile(T& value, const BYTE* data, size_t size)
{
    if constexpr (std::is_trivially_copyable_v<T>)
    {
        if (size < sizeof(T))
            return false;
        std::memcpy(&value, data, sizeof(T));
    }
    else
    {
        Assign(value, data, size);
        // Texts come with terminators, or without.
        if constexpr (!std::is_same_v<T, Bytes>)
            value.resize(value.find_last_not_of(typename T::value_type()) + 1);
    }
    return true;
}

template <class T>
    requires(!std::is_same_v<T, BYTE>)
bool FromFile(std::vector<T>& values, const BYTE* data, size_t size)
{
    if constexpr (std::is_trivially_copyable_v<T>)
    {
        values.resize(size / sizeof(T));
        if (!values.empty())
            std::memcpy(values.data(), data, values.size() * sizeof(T));
        return true;
    }
    else
    {
        // Values of a variable size are a count, the offset of each, and then their bytes without gaps.
        std::uint32_t count = 0;
        if (!FromFile(count, data, size) || count > size / sizeof(count) - 1)
            return false;
        for (std::uint32_t index = 0; index < count; ++index)
        {
            std::uint32_t begin = 0;
            auto end = static_cast<std::uint32_t>(size);
            FromFile(begin, data + (index + 1) * sizeof(begin), sizeof(begin));
            if (index + 1 < count)
                FromFile(end, data + (index + 2) * sizeof(end), sizeof(end));
            if (begin > end || end > size)
                return false;
            FromFile(values.emplace_back(), data + begin, end - begin);
        }
        return true;
    }
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

// Reads what `Writer` wrote; anything that is not whole is damaged.
class Reader
{
public:
    explicit Reader(const Bytes& bytes) noexcept : m_at(bytes.data()), m_left(bytes.size()) {}

    std::uint32_t Count(size_t smallest)
    {
        std::uint32_t count = 0;
        Read(count);
        if (count > m_left / smallest)
            Damaged();
        return count;
    }

    PropValue Value()
    {
        std::uint32_t tag = 0;
        Read(tag);
        auto payload = EmptyPayload(PROP_TYPE(tag));
        if (!payload)
            Damaged();
        std::visit([this](auto& value) { Read(value); }, *payload);
        return PropValue(tag, std::move(*payload));
    }

private:
    [[noreturn]] static void Damaged() { Fail(MAPI_E_CORRUPT_STORE, L"A record of stored properties is damaged"); }

    const BYTE* Take(size_t size)
    {
        if (size > m_left)
            Damaged();
        const BYTE* at = m_at;
        m_at += size;
        m_left -= size;
        return at;
    }

    void Read(std::monostate&) {}
    void Read(bool& value) { value = *Take(1) != 0; }
    template <class T>
    void Read(T& value)
    {
        if constexpr (std::is_trivially_copyable_v<T>)
        {
            std::memcpy(&value, Take(sizeof(T)), sizeof(T));
        }
        else
        {
            const std::uint32_t size = Count(1);
            Assign(value, Take(size), size);
        }
    }
    template <class T>
        requires(!std::is_same_v<T, BYTE>)
    void Read(std::vector<T>& values)
    {
        values.resize(Count(std::is_trivially_copyable_v<T> ? sizeof(T) : sizeof(std::uint32_t)));
        for (T& value : values)
            Read(value);
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
    auto payload = EmptyPayload(PROP_TYPE(tag));
    if (!payload || !std::visit([&](auto& value) { return FromFile(value, data, size); }, *payload))
        return std::nullopt;
    return PropValue(tag, std::move(*payload));
}

Bytes WriteBag(const PropertyBag& bag)
{
    Writer writer;
    WriteBagTo(writer, bag);
    return writer.Take();
}

PropertyBag ReadBag(const Bytes& bytes)
{
    Reader reader(bytes);
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
    Reader reader(bytes);
    return reader.Value();
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
    Reader reader(bytes);
    std::vector<PropertyBag> bags(reader.Count(sizeof(std::uint32_t)));
    for (PropertyBag& bag : bags)
        bag = ReadBagFrom(reader);
    return bags;
}
} // namespace Testbed
