// SPropValueVector.
#include "mapi/SPropValueVector.h"

#include "support/CallWrapping.h"
#include "support/MapiProperties.h"
#include "support/Memory.h"

#include <climits>
#include <cstring>
#include <new>
#include <utility>

namespace Quillon::Mapi
{
namespace
{

void RequireType(ULONG tag, ULONG type, const CallSite& site)
{
    if (PROP_TYPE(tag) != type)
        Throw(CRuntimeError(L"Incompatible property tag: " + FormatMapiPropertyTag(tag), false), site);
}

/// Makes room for one element more. The old array is freed only when the new one is there.
template <class Element>
void Grow(Element*& elements, ULONG count, ULONG& capacity)
{
    if (count < capacity)
        return;
    const std::size_t wanted = Detail::GrowCapacity(capacity, static_cast<std::size_t>(count) + 8);
    const std::size_t grown = wanted < ULONG_MAX ? wanted : ULONG_MAX;
    auto* const moved = static_cast<Element*>(Detail::AllocateArray(grown, sizeof(Element)));
    if (count)
        std::memcpy(moved, elements, count * sizeof(Element));
    FreeObject(elements);
    elements = moved;
    capacity = static_cast<ULONG>(grown);
}

} // namespace

SPropValueVector::SPropValueVector() noexcept
    : m_values(nullptr),
      m_count(0),
      m_capacity(0),
      m_payloads(nullptr),
      m_payloadCount(0),
      m_payloadCapacity(0)
{
}

SPropValueVector::SPropValueVector(SPropValueVector&& other) noexcept
    : m_values(std::exchange(other.m_values, nullptr)),
      m_count(std::exchange(other.m_count, 0)),
      m_capacity(std::exchange(other.m_capacity, 0)),
      m_payloads(std::exchange(other.m_payloads, nullptr)),
      m_payloadCount(std::exchange(other.m_payloadCount, 0)),
      m_payloadCapacity(std::exchange(other.m_payloadCapacity, 0))
{
}

SPropValueVector::~SPropValueVector()
{
    for (ULONG index = 0; index < m_payloadCount; ++index)
    {
        m_payloads[index]->~Value();
        FreeObject(m_payloads[index]);
    }
    FreeObject(m_payloads);
    FreeObject(m_values);
}

SPropValueVector& SPropValueVector::operator=(SPropValueVector&& other) noexcept
{
    SPropValueVector taken(std::move(other));
    std::swap(m_values, taken.m_values);
    std::swap(m_count, taken.m_count);
    std::swap(m_capacity, taken.m_capacity);
    std::swap(m_payloads, taken.m_payloads);
    std::swap(m_payloadCount, taken.m_payloadCount);
    std::swap(m_payloadCapacity, taken.m_payloadCapacity);
    return *this;
}

void SPropValueVector::AddStringA(ULONG tag, const char* text)
{
    RequireType(tag, PT_STRING8, L"Quillon::Mapi::SPropValueVector::AddStringA");
    ReserveOneMore();
    // SPropValue's pointers are not const; what they point to is this list's own.
    auto* const payload = const_cast<BYTE*>(Own(Value(text)));
    Append(tag).Value.lpszA = reinterpret_cast<char*>(payload);
}

void SPropValueVector::AddStringW(ULONG tag, const wchar_t* text)
{
    RequireType(tag, PT_UNICODE, L"Quillon::Mapi::SPropValueVector::AddStringW");
    ReserveOneMore();
    auto* const payload = const_cast<BYTE*>(Own(Value(text)));
    Append(tag).Value.lpszW = reinterpret_cast<wchar_t*>(payload);
}

void SPropValueVector::AddBinary(ULONG tag, const BYTE* bytes, ULONG size)
{
    RequireType(tag, PT_BINARY, L"Quillon::Mapi::SPropValueVector::AddBinary");
    ReserveOneMore();
    auto* const payload = const_cast<BYTE*>(Own(Value(Binary(bytes, size))));
    Append(tag).Value.bin = {size, payload};
}

void SPropValueVector::AddLong(ULONG tag, LONG value)
{
    RequireType(tag, PT_LONG, L"Quillon::Mapi::SPropValueVector::AddLong");
    ReserveOneMore();
    Append(tag).Value.l = value;
}

void SPropValueVector::AddBoolean(ULONG tag, bool value)
{
    RequireType(tag, PT_BOOLEAN, L"Quillon::Mapi::SPropValueVector::AddBoolean");
    ReserveOneMore();
    Append(tag).Value.b = value;
}

void SPropValueVector::AddProperty(const SPropValue& value)
{
    switch (PROP_TYPE(value.ulPropTag))
    {
    case PT_LONG:
        return AddLong(value.ulPropTag, value.Value.l);
    case PT_BOOLEAN:
        return AddBoolean(value.ulPropTag, value.Value.b != 0);
    case PT_STRING8:
        return AddStringA(value.ulPropTag, value.Value.lpszA);
    case PT_UNICODE:
        return AddStringW(value.ulPropTag, value.Value.lpszW);
    case PT_BINARY:
        return AddBinary(value.ulPropTag, value.Value.bin.lpb, value.Value.bin.cb);
    default:
        Throw(CRuntimeError(L"Unsupported property type: " + FormatMapiPropertyTag(value.ulPropTag), false),
              L"Quillon::Mapi::SPropValueVector::AddProperty");
    }
}

ULONG SPropValueVector::GetCount() const noexcept
{
    return m_count;
}

bool SPropValueVector::IsEmpty() const noexcept
{
    return m_count == 0;
}

SPropValue* SPropValueVector::GetValues() const noexcept
{
    return m_count ? m_values : nullptr;
}

void SPropValueVector::ReserveOneMore()
{
    Grow(m_values, m_count, m_capacity);
    Grow(m_payloads, m_payloadCount, m_payloadCapacity);
}

/// Adds a value without a payload; the room for it has been made, so nothing can fail from here on.
SPropValue& SPropValueVector::Append(ULONG tag)
{
    SPropValue& added = m_values[m_count++];
    added = SPropValue();
    added.ulPropTag = tag;
    return added;
}

/// Keeps a payload and gives where it lies.
const BYTE* SPropValueVector::Own(Value&& payload)
{
    m_payloads[m_payloadCount] = new (AllocateObject(sizeof(Value))) Value(std::move(payload));
    return m_payloads[m_payloadCount++]->GetBuffer();
}

} // namespace Quillon::Mapi
