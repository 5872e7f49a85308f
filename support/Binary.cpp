// Binary and Value.
#include "support/Binary.h"

#include "support/CallWrapping.h"
#include "support/Format.h"
#include "support/Memory.h"

#include <cstring>
#include <cwchar>
#include <iterator>
#include <utility>

namespace Quillon
{

Binary::Binary() noexcept : m_buffer(nullptr), m_size(0), m_capacity(0) {}

Binary::Binary(const BYTE* bytes, std::size_t size) : Binary()
{
    Append(bytes, size);
}

Binary::Binary(const Binary& other) : Binary()
{
    if (!other.IsNull())
        Append(other.m_buffer, other.m_size);
}

Binary::Binary(Binary&& other) noexcept
    : m_buffer(std::exchange(other.m_buffer, nullptr)),
      m_size(std::exchange(other.m_size, 0)),
      m_capacity(std::exchange(other.m_capacity, 0))
{
}

Binary::Binary(Value&& value) noexcept : Binary()
{
    if (value.m_kind == Value::Kind::Bytes)
        *this = std::move(value.m_data);
    value = Value();
}

Binary::~Binary()
{
    FreeObject(m_buffer);
}

Binary& Binary::operator=(const Binary& other)
{
    return *this = Binary(other);
}

Binary& Binary::operator=(Binary&& other) noexcept
{
    Binary taken(std::move(other));
    std::swap(m_buffer, taken.m_buffer);
    std::swap(m_size, taken.m_size);
    std::swap(m_capacity, taken.m_capacity);
    return *this;
}

bool Binary::IsNull() const noexcept
{
    return m_buffer == nullptr;
}

std::size_t Binary::GetSize() const noexcept
{
    return m_size;
}

void Binary::SetSize(std::size_t size)
{
    Reserve(size);
    if (size > m_size)
        std::memset(m_buffer + m_size, 0, size - m_size);
    m_size = size;
}

void Binary::Reserve(std::size_t capacity)
{
    if (m_buffer && capacity <= m_capacity)
        return;
    auto* const grown = static_cast<BYTE*>(Detail::AllocateArray(capacity, 1));
    if (m_buffer)
        std::memcpy(grown, m_buffer, m_size);
    FreeObject(m_buffer);
    m_buffer = grown;
    m_capacity = capacity;
}

BYTE* Binary::GetBuffer() noexcept
{
    return m_buffer;
}

const BYTE* Binary::GetBuffer() const noexcept
{
    return m_buffer;
}

Binary& Binary::Append(const BYTE* bytes, std::size_t size)
{
    // Sizes and addresses come from outside together, and not always right.
    if (!bytes && size)
        Throw(CComError(E_INVALIDARG), L"Quillon::Binary::Append");
    if (!m_buffer || size > m_capacity - m_size)
    {
        // The bytes may lie within this buffer, so it is freed only after they have been copied.
        const std::size_t required = size > SIZE_MAX - m_size ? SIZE_MAX : m_size + size;
        const std::size_t capacity = Detail::GrowCapacity(m_capacity, required);
        auto* const grown = static_cast<BYTE*>(Detail::AllocateArray(capacity, 1));
        if (m_size)
            std::memcpy(grown, m_buffer, m_size);
        if (size)
            std::memcpy(grown + m_size, bytes, size);
        FreeObject(m_buffer);
        m_buffer = grown;
        m_capacity = capacity;
    }
    else if (size)
    {
        std::memmove(m_buffer + m_size, bytes, size);
    }
    m_size += size;
    return *this;
}

StringW Binary::FormatSize() const
{
    if (m_size < 1024)
        return FormatString(m_size == 1 ? L"%Iu byte" : L"%Iu bytes", m_size);
    static const wchar_t* const units[] = {L"KB", L"MB", L"GB", L"TB"};
    double amount = static_cast<double>(m_size) / 1024;
    std::size_t unit = 0;
    for (; amount >= 1024 && unit + 1 < std::size(units); ++unit)
        amount /= 1024;
    return FormatString(L"%.1f %s (%Iu bytes)", amount, units[unit], m_size);
}

Value::Value() noexcept : m_kind(Kind::Empty) {}

// A string's terminator is held, but not counted as data.
Value::Value(const char* text) : m_kind(Kind::StringA)
{
    const char* const source = text ? text : "";
    m_data.Append(reinterpret_cast<const BYTE*>(source), std::strlen(source) + 1);
}

Value::Value(const wchar_t* text) : m_kind(Kind::StringW)
{
    const wchar_t* const source = text ? text : L"";
    m_data.Append(reinterpret_cast<const BYTE*>(source), (std::wcslen(source) + 1) * sizeof(wchar_t));
}

Value::Value(Binary&& bytes) noexcept : m_data(std::move(bytes)), m_kind(m_data.IsNull() ? Kind::Empty : Kind::Bytes) {}

Value::Value(const Value& other) = default;

Value::Value(Value&& other) noexcept : m_data(std::move(other.m_data)), m_kind(std::exchange(other.m_kind, Kind::Empty))
{
}

Value::~Value() = default;

Value& Value::operator=(const Value& other)
{
    return *this = Value(other);
}

Value& Value::operator=(Value&& other) noexcept
{
    m_data = std::move(other.m_data);
    m_kind = std::exchange(other.m_kind, Kind::Empty);
    return *this;
}

Value::Kind Value::GetKind() const noexcept
{
    return m_kind;
}

bool Value::IsEmpty() const noexcept
{
    return m_kind == Kind::Empty;
}

const BYTE* Value::GetBuffer() const noexcept
{
    return m_data.GetBuffer();
}

std::size_t Value::GetSize() const noexcept
{
    switch (m_kind)
    {
    case Kind::StringA:
        return m_data.GetSize() - 1;
    case Kind::StringW:
        return m_data.GetSize() - sizeof(wchar_t);
    default:
        return m_data.GetSize();
    }
}

} // namespace Quillon
