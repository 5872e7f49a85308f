// SPropValueVector: a list of MAPI property values that owns its payloads.
#pragma once

#include "support/Binary.h"
#include "support/MapiHeaders.h"

namespace Quillon::Mapi
{

/// A growable list of property values, contiguous as IMAPIProp::SetProps wants it, that owns the strings and bytes that
/// its values point to. Values never lose their payload while the list grows. An object may be used by one thread at a
/// time. Every operation that adds throws CRuntimeError for a tag of a wrong type, CComError(E_INVALIDARG) for a null
/// address of bytes with a size, and CComError(E_OUTOFMEMORY), and leaves the list unchanged then.
class KIVNST_API SPropValueVector
{
public:
    SPropValueVector() noexcept;
    SPropValueVector(SPropValueVector&& other) noexcept;
    SPropValueVector(const SPropValueVector&) = delete;
    ~SPropValueVector();
    SPropValueVector& operator=(SPropValueVector&& other) noexcept;
    SPropValueVector& operator=(const SPropValueVector&) = delete;

    /// Adds a copy of `text` under a PT_STRING8 tag; null text is the empty string.
    void AddStringA(ULONG tag, const char* text);
    /// The same under a PT_UNICODE tag.
    void AddStringW(ULONG tag, const wchar_t* text);
    /// Adds a copy of `size` bytes under a PT_BINARY tag.
    void AddBinary(ULONG tag, const BYTE* bytes, ULONG size);
    /// Adds a value under a PT_LONG tag.
    void AddLong(ULONG tag, LONG value);
    /// Adds a value under a PT_BOOLEAN tag.
    void AddBoolean(ULONG tag, bool value);
    /// Adds a copy of a value of one of the five types above, payload included.
    void AddProperty(const SPropValue& value);

    /// How many values there are.
    ULONG GetCount() const noexcept;
    bool IsEmpty() const noexcept;
    /// The first value, null when the list is empty. Valid until the list changes. Not const, as SetProps takes it.
    SPropValue* GetValues() const noexcept;

private:
    SPropValue& Append(ULONG tag);
    const BYTE* Own(Value&& payload);
    void ReserveOneMore();

    SPropValue* m_values;
    ULONG m_count;
    ULONG m_capacity;
    /// Each payload lies in an object of its own, so that it stays where it is when the list grows.
    Value** m_payloads;
    ULONG m_payloadCount;
    ULONG m_payloadCapacity;
};

} // namespace Quillon::Mapi
