// A property value that owns its payload, for all MAPI property types.
#pragma once

#include "common/MapiMemory.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace Common
{
using Bytes = std::vector<BYTE>;

/// A property tag with its value. An ordinary value type: copies are deep.
class PropValue
{
public:
    /// The payload, by type: PT_NULL, PT_OBJECT: nothing; PT_I2; PT_LONG and PT_ERROR; PT_R4; PT_DOUBLE and PT_APPTIME;
    /// PT_BOOLEAN; PT_I8, PT_CURRENCY and PT_SYSTIME (100 ns since 1601); PT_STRING8; PT_UNICODE; PT_BINARY; PT_CLSID;
    /// then the multi-valued ones.
    using Payload =
        std::variant<std::monostate, std::int16_t, std::int32_t, float, double, bool, std::int64_t, std::string,
                     std::wstring, Bytes, GUID, std::vector<std::int16_t>, std::vector<std::int32_t>,
                     std::vector<float>, std::vector<double>, std::vector<std::int64_t>, std::vector<std::string>,
                     std::vector<std::wstring>, std::vector<Bytes>, std::vector<GUID>>;

    /// PR_NULL.
    PropValue() noexcept = default;

    /// Throws `Failure` (MAPI_E_INVALID_TYPE) when `payload` is not the kind that the tag's type takes.
    PropValue(ULONG tag, Payload payload);

    static PropValue Short(ULONG tag, std::int16_t value) { return {tag, value}; }
    static PropValue Long(ULONG tag, std::int32_t value) { return {tag, value}; }
    static PropValue Boolean(ULONG tag, bool value) { return {tag, value}; }
    static PropValue Double(ULONG tag, double value) { return {tag, value}; }
    static PropValue I8(ULONG tag, std::int64_t value) { return {tag, value}; }
    static PropValue Time(ULONG tag, FILETIME value);
    /// A string of the tag's own width; converts when that is PT_STRING8.
    static PropValue String(ULONG tag, std::wstring_view value);
    /// A string of the tag's own width; converts when that is PT_UNICODE.
    static PropValue String8(ULONG tag, std::string_view value);
    static PropValue Binary(ULONG tag, Bytes value) { return {tag, std::move(value)}; }
    static PropValue Binary(ULONG tag, const void* bytes, size_t size);
    static PropValue Uid(ULONG tag, const MAPIUID& uid) { return Binary(tag, uid.ab, sizeof(uid.ab)); }
    static PropValue Guid(ULONG tag, const GUID& value) { return {tag, value}; }
    /// The marker of a PT_OBJECT property, whose contents only OpenProperty gives.
    static PropValue Object(ULONG tag) { return {CHANGE_PROP_TYPE(tag, PT_OBJECT), std::monostate()}; }
    /// An error entry for the property of `tag`, whatever type that has.
    static PropValue Error(ULONG tag, SCODE code) { return {CHANGE_PROP_TYPE(tag, PT_ERROR), std::int32_t(code)}; }

    /// Copies a MAPI structure. Throws `Failure`: MAPI_E_INVALID_PARAMETER for a null payload pointer,
    /// MAPI_E_INVALID_TYPE for a type that MAPI does not have.
    static PropValue From(const SPropValue& value);

    ULONG Tag() const noexcept { return m_tag; }
    ULONG Id() const noexcept { return PROP_ID(m_tag); }
    ULONG Type() const noexcept { return PROP_TYPE(m_tag); }
    bool IsError() const noexcept { return Type() == PT_ERROR; }

    /// The same value under another identifier of the same type.
    void SetId(ULONG id) noexcept { m_tag = PROP_TAG(Type(), id); }

    const Payload& Data() const noexcept { return m_payload; }
    /// The payload as `T`, or null when it is something else.
    template <class T>
    const T* Get() const noexcept
    {
        return std::get_if<T>(&m_payload);
    }
    /// A PT_LONG's (or PT_ERROR's, PT_I2's, PT_BOOLEAN's) value, or `otherwise`.
    std::int32_t AsLong(std::int32_t otherwise = 0) const noexcept;
    /// A string of either width as wide text; empty for other types.
    std::wstring AsText() const;
    /// A PT_BINARY's bytes; empty for other types.
    const Bytes& AsBytes() const noexcept;

    /// The bytes that the payload takes: of a string with its terminator, of a multi-value the sum of its values.
    size_t Size() const;

    /// The value as `type`: PT_UNSPECIFIED and the own type give a copy, the two string types (single or multi-valued)
    /// convert into each other; anything else gives nothing.
    std::optional<PropValue> As(ULONG type) const;

    /// Writes the value into `target`, with payloads linked to `parent`, a block of `memory`.
    void CopyTo(SPropValue& target, const MapiMemory& memory, void* parent) const;

    bool operator==(const PropValue& other) const;

private:
    ULONG m_tag = PR_NULL;
    Payload m_payload;
};

/// Orders two values of the same type (strings of both widths count as the same type): negative, 0 or positive.
/// Strings compare without regard to case and by code unit, binaries by byte and then by length, multi-values value by
/// value. Nothing when the types do not compare.
std::optional<int> Compare(const PropValue& a, const PropValue& b);

/// A property array in one MAPI block with payloads linked to it; for an empty list a block all the same.
/// Throws `Failure` when memory fails (and leaves nothing behind).
LPSPropValue MakePropArray(const MapiMemory& memory, const std::vector<PropValue>& values);

/// A tag array in one MAPI block.
LPSPropTagArray MakeTagArray(const MapiMemory& memory, const std::vector<ULONG>& tags);

/// A problem array in one MAPI block.
LPSPropProblemArray MakeProblemArray(const MapiMemory& memory, const std::vector<SPropProblem>& problems);

/// A row set as MAPI prescribes it: one block, and each row's property array a block of its own, so that a caller can
/// keep rows and free the rest. Freed with `FreeRows`.
LPSRowSet MakeRowSet(const MapiMemory& memory, const std::vector<std::vector<PropValue>>& rows);

/// Copies a caller's array; throws `Failure` as `PropValue::From` does, and MAPI_E_INVALID_PARAMETER when `count` is
/// not 0 and `values` is null.
std::vector<PropValue> CopyProps(ULONG count, const SPropValue* values);
} // namespace Common
