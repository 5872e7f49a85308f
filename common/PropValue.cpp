// Property values: their types, copies to and from MAPI's structures, and their order.
#include "common/PropValue.h"

#include "common/Boundary.h"
#include "common/Text.h"

#include <algorithm>
#include <cstring>

namespace Common
{
namespace
{
template <class T>
using List = std::vector<T>;

bool Takes(ULONG type, const PropValue::Payload& payload)
{
    const auto is = [&payload]<class T>(std::type_identity<T>) { return std::holds_alternative<T>(payload); };
    switch (type)
    {
    case PT_NULL:
    case PT_OBJECT:
        return is(std::type_identity<std::monostate>());
    case PT_I2:
        return is(std::type_identity<std::int16_t>());
    case PT_LONG:
    case PT_ERROR:
        return is(std::type_identity<std::int32_t>());
    case PT_R4:
        return is(std::type_identity<float>());
    case PT_DOUBLE:
    case PT_APPTIME:
        return is(std::type_identity<double>());
    case PT_BOOLEAN:
        return is(std::type_identity<bool>());
    case PT_I8:
    case PT_CURRENCY:
    case PT_SYSTIME:
        return is(std::type_identity<std::int64_t>());
    case PT_STRING8:
        return is(std::type_identity<std::string>());
    case PT_UNICODE:
        return is(std::type_identity<std::wstring>());
    case PT_BINARY:
        return is(std::type_identity<Bytes>());
    case PT_CLSID:
        return is(std::type_identity<GUID>());
    case PT_MV_I2:
        return is(std::type_identity<List<std::int16_t>>());
    case PT_MV_LONG:
        return is(std::type_identity<List<std::int32_t>>());
    case PT_MV_R4:
        return is(std::type_identity<List<float>>());
    case PT_MV_DOUBLE:
    case PT_MV_APPTIME:
        return is(std::type_identity<List<double>>());
    case PT_MV_I8:
    case PT_MV_CURRENCY:
    case PT_MV_SYSTIME:
        return is(std::type_identity<List<std::int64_t>>());
    case PT_MV_STRING8:
        return is(std::type_identity<List<std::string>>());
    case PT_MV_UNICODE:
        return is(std::type_identity<List<std::wstring>>());
    case PT_MV_BINARY:
        return is(std::type_identity<List<Bytes>>());
    case PT_MV_CLSID:
        return is(std::type_identity<List<GUID>>());
    default:
        return false;
    }
}

std::int64_t FromFileTime(FILETIME time) noexcept
{
    return static_cast<std::int64_t>((static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime);
}

FILETIME ToFileTime(std::int64_t value) noexcept
{
    return {static_cast<DWORD>(static_cast<std::uint64_t>(value) & 0xFFFFFFFF),
            static_cast<DWORD>(static_cast<std::uint64_t>(value) >> 32)};
}

template <class T>
const T& Required(const T* pointer)
{
    if (!pointer)
        Fail(MAPI_E_INVALID_PARAMETER, L"A property value has a null payload.");
    return *pointer;
}

Bytes CopyBinary(const SBinary& binary)
{
    const BYTE* first = binary.cb ? &Required(binary.lpb) : nullptr;
    return Bytes(first, first + binary.cb);
}

// `count` elements of a MAPI array, each converted.
template <class To, class From, class Convert>
List<To> CopyList(ULONG count, const From* values, Convert convert)
{
    List<To> copy;
    if (count)
    {
        Required(values);
        copy.reserve(count);
        std::transform(values, values + count, std::back_inserter(copy), convert);
    }
    return copy;
}

template <class To, class From>
List<To> CopyList(ULONG count, const From* values)
{
    return CopyList<To>(count, values, [](const From& value) { return static_cast<To>(value); });
}

std::string Copied(const char* text)
{
    return &Required(text);
}

std::wstring Copied(const wchar_t* text)
{
    return &Required(text);
}

size_t SizeOf(const std::string& text)
{
    return text.size() + 1;
}

size_t SizeOf(const std::wstring& text)
{
    return (text.size() + 1) * sizeof(wchar_t);
}

size_t SizeOf(const Bytes& bytes)
{
    return bytes.size();
}

ULONG Counted(size_t count)
{
    if (count > ULONG(-1))
        Fail(MAPI_E_TOO_BIG, L"A property has more than 4 GiB.");
    return static_cast<ULONG>(count);
}

// Copies plain elements into a block linked to `parent`; null for none.
template <class To, class From, class Convert>
To* LinkedArray(const List<From>& values, const MapiMemory& memory, void* parent, Convert convert)
{
    if (values.empty())
        return nullptr;
    To* array = static_cast<To*>(memory.AllocateMore(values.size() * sizeof(To), parent));
    std::transform(values.begin(), values.end(), array, convert);
    return array;
}

template <class Char>
Char* LinkedString(const std::basic_string<Char>& text, const MapiMemory& memory, void* parent)
{
    const size_t size = SizeOf(text);
    Char* copy = static_cast<Char*>(memory.AllocateMore(size, parent));
    std::memcpy(copy, text.c_str(), size);
    return copy;
}

SBinary LinkedBinary(const Bytes& bytes, const MapiMemory& memory, void* parent)
{
    // An empty binary still gets a pointer: clients pass it on to calls that refuse a null one.
    const ULONG size = Counted(bytes.size());
    BYTE* copy = static_cast<BYTE*>(memory.AllocateMore(std::max<ULONG>(size, 1), parent));
    std::copy(bytes.begin(), bytes.end(), copy);
    return {size, copy};
}

template <class T>
int Order(const T& a, const T& b)
{
    return a < b ? -1 : b < a ? 1 : 0;
}

int OrderText(const std::wstring& a, const std::wstring& b)
{
    return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(), static_cast<int>(b.size()), TRUE) -
           CSTR_EQUAL;
}

int OrderBytes(const BYTE* a, size_t sizeA, const BYTE* b, size_t sizeB)
{
    const size_t common = std::min(sizeA, sizeB);
    const int order = common ? std::memcmp(a, b, common) : 0;
    return order != 0 ? order : Order(sizeA, sizeB);
}

int OrderOf(const Bytes& a, const Bytes& b)
{
    return OrderBytes(a.data(), a.size(), b.data(), b.size());
}

int OrderOf(const GUID& a, const GUID& b)
{
    return std::memcmp(&a, &b, sizeof(GUID));
}

int OrderOf(const std::wstring& a, const std::wstring& b)
{
    return OrderText(a, b);
}

int OrderOf(const std::string& a, const std::string& b)
{
    return OrderText(WideFromAnsi(a), WideFromAnsi(b));
}

int OrderOf(std::monostate, std::monostate)
{
    return 0;
}

template <class T>
    requires std::is_arithmetic_v<T>
int OrderOf(T a, T b)
{
    return Order(a, b);
}

template <class T>
    requires(!std::is_same_v<T, BYTE>)
int OrderOf(const List<T>& a, const List<T>& b)
{
    for (size_t i = 0; i < a.size() && i < b.size(); ++i)
        if (const int order = OrderOf(a[i], b[i]); order != 0)
            return order;
    return Order(a.size(), b.size());
}
} // namespace

PropValue::PropValue(ULONG tag, Payload payload) : m_tag(tag), m_payload(std::move(payload))
{
    if (!Takes(Type(), m_payload))
        Fail(MAPI_E_INVALID_TYPE, L"A property value does not fit the type of its tag.");
}

PropValue PropValue::Time(ULONG tag, FILETIME value)
{
    return {tag, FromFileTime(value)};
}

PropValue PropValue::String(ULONG tag, std::wstring_view value)
{
    return PROP_TYPE(tag) == PT_STRING8 ? PropValue(tag, AnsiFromWide(value)) : PropValue(tag, std::wstring(value));
}

PropValue PropValue::String8(ULONG tag, std::string_view value)
{
    return PROP_TYPE(tag) == PT_UNICODE ? PropValue(tag, WideFromAnsi(value)) : PropValue(tag, std::string(value));
}

PropValue PropValue::Binary(ULONG tag, const void* bytes, size_t size)
{
    const BYTE* data = static_cast<const BYTE*>(bytes);
    return {tag, Bytes(data, data + size)};
}

PropValue PropValue::From(const SPropValue& value)
{
    const auto& source = value.Value;
    const auto toInt64 = [](const auto& large)
    {
        std::int64_t number;
        static_assert(sizeof(large) == sizeof(number));
        std::memcpy(&number, &large, sizeof(number));
        return number;
    };

    switch (PROP_TYPE(value.ulPropTag))
    {
    case PT_NULL:
    case PT_OBJECT:
        return {value.ulPropTag, std::monostate()};
    case PT_I2:
        return {value.ulPropTag, std::int16_t(source.i)};
    case PT_LONG:
        return {value.ulPropTag, std::int32_t(source.l)};
    case PT_ERROR:
        return {value.ulPropTag, std::int32_t(source.err)};
    case PT_R4:
        return {value.ulPropTag, source.flt};
    case PT_DOUBLE:
        return {value.ulPropTag, source.dbl};
    case PT_APPTIME:
        return {value.ulPropTag, source.at};
    case PT_BOOLEAN:
        return {value.ulPropTag, source.b != 0};
    case PT_I8:
        return {value.ulPropTag, toInt64(source.li)};
    case PT_CURRENCY:
        return {value.ulPropTag, toInt64(source.cur)};
    case PT_SYSTIME:
        return {value.ulPropTag, FromFileTime(source.ft)};
    case PT_STRING8:
        return {value.ulPropTag, Copied(source.lpszA)};
    case PT_UNICODE:
        return {value.ulPropTag, Copied(source.lpszW)};
    case PT_BINARY:
        return {value.ulPropTag, CopyBinary(source.bin)};
    case PT_CLSID:
        return {value.ulPropTag, Required(source.lpguid)};
    case PT_MV_I2:
        return {value.ulPropTag, CopyList<std::int16_t>(source.MVi.cValues, source.MVi.lpi)};
    case PT_MV_LONG:
        return {value.ulPropTag, CopyList<std::int32_t>(source.MVl.cValues, source.MVl.lpl)};
    case PT_MV_R4:
        return {value.ulPropTag, CopyList<float>(source.MVflt.cValues, source.MVflt.lpflt)};
    case PT_MV_DOUBLE:
        return {value.ulPropTag, CopyList<double>(source.MVdbl.cValues, source.MVdbl.lpdbl)};
    case PT_MV_APPTIME:
        return {value.ulPropTag, CopyList<double>(source.MVat.cValues, source.MVat.lpat)};
    case PT_MV_I8:
        return {value.ulPropTag, CopyList<std::int64_t>(source.MVli.cValues, source.MVli.lpli, toInt64)};
    case PT_MV_CURRENCY:
        return {value.ulPropTag, CopyList<std::int64_t>(source.MVcur.cValues, source.MVcur.lpcur, toInt64)};
    case PT_MV_SYSTIME:
        return {value.ulPropTag, CopyList<std::int64_t>(source.MVft.cValues, source.MVft.lpft, FromFileTime)};
    case PT_MV_STRING8:
        return {value.ulPropTag, CopyList<std::string>(source.MVszA.cValues, source.MVszA.lppszA,
                                                       [](const char* text) { return Copied(text); })};
    case PT_MV_UNICODE:
        return {value.ulPropTag, CopyList<std::wstring>(source.MVszW.cValues, source.MVszW.lppszW,
                                                        [](const wchar_t* text) { return Copied(text); })};
    case PT_MV_BINARY:
        return {value.ulPropTag, CopyList<Bytes>(source.MVbin.cValues, source.MVbin.lpbin, CopyBinary)};
    case PT_MV_CLSID:
        return {value.ulPropTag, CopyList<GUID>(source.MVguid.cValues, source.MVguid.lpguid)};
    default:
        Fail(MAPI_E_INVALID_TYPE, L"A property value has a type that MAPI does not have.");
    }
}

std::int32_t PropValue::AsLong(std::int32_t otherwise) const noexcept
{
    if (const auto* value = Get<std::int32_t>())
        return *value;
    if (const auto* value = Get<std::int16_t>())
        return *value;
    if (const auto* value = Get<bool>())
        return *value ? 1 : 0;
    return otherwise;
}

std::wstring PropValue::AsText() const
{
    if (const auto* wide = Get<std::wstring>())
        return *wide;
    const auto* narrow = Get<std::string>();
    return narrow ? WideFromAnsi(*narrow) : std::wstring();
}

const Bytes& PropValue::AsBytes() const noexcept
{
    static const Bytes none;
    const auto* bytes = Get<Bytes>();
    return bytes ? *bytes : none;
}

size_t PropValue::Size() const
{
    const auto sizeOf = []<class T>(const T& value) -> size_t
    {
        if constexpr (std::is_same_v<T, std::monostate>)
        {
            return 0;
        }
        else if constexpr (std::is_same_v<T, bool>)
        {
            return sizeof(std::uint16_t);
        }
        else if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, GUID>)
        {
            return sizeof(T);
        }
        else if constexpr (std::is_same_v<T, std::string> || std::is_same_v<T, std::wstring> ||
                           std::is_same_v<T, Bytes>)
        {
            return SizeOf(value);
        }
        else
        {
            using Element = typename T::value_type;
            if constexpr (std::is_arithmetic_v<Element> || std::is_same_v<Element, GUID>)
            {
                return value.size() * sizeof(Element);
            }
            else
            {
                size_t sum = 0;
                for (const Element& element : value)
                    sum += SizeOf(element);
                return sum;
            }
        }
    };
    return std::visit(sizeOf, m_payload);
}

std::optional<PropValue> PropValue::As(ULONG type) const
{
    if (type == PT_UNSPECIFIED || type == Type())
        return *this;
    const ULONG tag = CHANGE_PROP_TYPE(m_tag, type);
    if (const auto* narrow = Get<std::string>(); narrow && type == PT_UNICODE)
        return PropValue(tag, WideFromAnsi(*narrow));
    if (const auto* wide = Get<std::wstring>(); wide && type == PT_STRING8)
        return PropValue(tag, AnsiFromWide(*wide));
    if (const auto* narrow = Get<List<std::string>>(); narrow && type == PT_MV_UNICODE)
    {
        List<std::wstring> converted;
        std::transform(narrow->begin(), narrow->end(), std::back_inserter(converted), WideFromAnsi);
        return PropValue(tag, std::move(converted));
    }
    if (const auto* wide = Get<List<std::wstring>>(); wide && type == PT_MV_STRING8)
    {
        List<std::string> converted;
        std::transform(wide->begin(), wide->end(), std::back_inserter(converted), AnsiFromWide);
        return PropValue(tag, std::move(converted));
    }
    return {};
}

void PropValue::CopyTo(SPropValue& target, const MapiMemory& memory, void* parent) const
{
    target = {};
    target.ulPropTag = m_tag;
    auto& out = target.Value;
    const auto fromInt64 = [](std::int64_t value)
    {
        LARGE_INTEGER large;
        large.QuadPart = value;
        return large;
    };
    const auto toCurrency = [](std::int64_t value)
    {
        CURRENCY currency;
        currency.int64 = value;
        return currency;
    };
    const auto same = [](auto value) { return value; };
    const auto toLong = [](std::int32_t value) { return LONG(value); };

    switch (Type())
    {
    case PT_I2:
        out.i = *Get<std::int16_t>();
        break;
    case PT_LONG:
        out.l = *Get<std::int32_t>();
        break;
    case PT_ERROR:
        out.err = *Get<std::int32_t>();
        break;
    case PT_R4:
        out.flt = *Get<float>();
        break;
    case PT_DOUBLE:
        out.dbl = *Get<double>();
        break;
    case PT_APPTIME:
        out.at = *Get<double>();
        break;
    case PT_BOOLEAN:
        out.b = *Get<bool>() ? 1 : 0;
        break;
    case PT_I8:
        out.li = fromInt64(*Get<std::int64_t>());
        break;
    case PT_CURRENCY:
        out.cur = toCurrency(*Get<std::int64_t>());
        break;
    case PT_SYSTIME:
        out.ft = ToFileTime(*Get<std::int64_t>());
        break;
    case PT_STRING8:
        out.lpszA = LinkedString(*Get<std::string>(), memory, parent);
        break;
    case PT_UNICODE:
        out.lpszW = LinkedString(*Get<std::wstring>(), memory, parent);
        break;
    case PT_BINARY:
        out.bin = LinkedBinary(*Get<Bytes>(), memory, parent);
        break;
    case PT_CLSID:
        out.lpguid = static_cast<GUID*>(memory.AllocateMore(sizeof(GUID), parent));
        *out.lpguid = *Get<GUID>();
        break;
    case PT_MV_I2:
    {
        const auto& list = *Get<List<std::int16_t>>();
        out.MVi = {Counted(list.size()), LinkedArray<short>(list, memory, parent, same)};
        break;
    }
    case PT_MV_LONG:
    {
        const auto& list = *Get<List<std::int32_t>>();
        out.MVl = {Counted(list.size()), LinkedArray<LONG>(list, memory, parent, toLong)};
        break;
    }
    case PT_MV_R4:
    {
        const auto& list = *Get<List<float>>();
        out.MVflt = {Counted(list.size()), LinkedArray<float>(list, memory, parent, same)};
        break;
    }
    case PT_MV_DOUBLE:
    {
        const auto& list = *Get<List<double>>();
        out.MVdbl = {Counted(list.size()), LinkedArray<double>(list, memory, parent, same)};
        break;
    }
    case PT_MV_APPTIME:
    {
        const auto& list = *Get<List<double>>();
        out.MVat = {Counted(list.size()), LinkedArray<double>(list, memory, parent, same)};
        break;
    }
    case PT_MV_I8:
    {
        const auto& list = *Get<List<std::int64_t>>();
        out.MVli = {Counted(list.size()), LinkedArray<LARGE_INTEGER>(list, memory, parent, fromInt64)};
        break;
    }
    case PT_MV_CURRENCY:
    {
        const auto& list = *Get<List<std::int64_t>>();
        out.MVcur = {Counted(list.size()), LinkedArray<CURRENCY>(list, memory, parent, toCurrency)};
        break;
    }
    case PT_MV_SYSTIME:
    {
        const auto& list = *Get<List<std::int64_t>>();
        out.MVft = {Counted(list.size()), LinkedArray<FILETIME>(list, memory, parent, ToFileTime)};
        break;
    }
    case PT_MV_STRING8:
    {
        const auto& list = *Get<List<std::string>>();
        out.MVszA = {Counted(list.size()), LinkedArray<LPSTR>(list, memory, parent, [&](const std::string& text)
                                                              { return LinkedString(text, memory, parent); })};
        break;
    }
    case PT_MV_UNICODE:
    {
        const auto& list = *Get<List<std::wstring>>();
        out.MVszW = {Counted(list.size()), LinkedArray<LPWSTR>(list, memory, parent, [&](const std::wstring& text)
                                                               { return LinkedString(text, memory, parent); })};
        break;
    }
    case PT_MV_BINARY:
    {
        const auto& list = *Get<List<Bytes>>();
        out.MVbin = {Counted(list.size()), LinkedArray<SBinary>(list, memory, parent, [&](const Bytes& bytes)
                                                                { return LinkedBinary(bytes, memory, parent); })};
        break;
    }
    case PT_MV_CLSID:
    {
        const auto& list = *Get<List<GUID>>();
        out.MVguid = {Counted(list.size()), LinkedArray<GUID>(list, memory, parent, same)};
        break;
    }
    default:
        // PT_NULL and PT_OBJECT carry nothing.
        break;
    }
}

bool PropValue::operator==(const PropValue& other) const
{
    const auto same = []<class A, class B>(const A& a, const B& b)
    {
        if constexpr (!std::is_same_v<A, B>)
            return false;
        else if constexpr (std::is_same_v<A, GUID> || std::is_same_v<A, List<GUID>>)
            return OrderOf(a, b) == 0;
        else
            return a == b;
    };
    return m_tag == other.m_tag && std::visit(same, m_payload, other.m_payload);
}

std::optional<int> Compare(const PropValue& a, const PropValue& b)
{
    if (a.Type() != b.Type())
    {
        const auto converted = b.As(a.Type());
        return converted ? Compare(a, *converted) : std::nullopt;
    }
    const auto order = []<class A, class B>(const A& x, const B& y) -> std::optional<int>
    {
        if constexpr (std::is_same_v<A, B>)
            return OrderOf(x, y);
        else
            return {};
    };
    return std::visit(order, a.Data(), b.Data());
}

LPSPropValue MakePropArray(const MapiMemory& memory, const std::vector<PropValue>& values)
{
    const size_t size = std::max<size_t>(values.size(), 1) * sizeof(SPropValue);
    MapiBlock<SPropValue> array(memory, static_cast<SPropValue*>(memory.Allocate(size)));
    for (size_t i = 0; i < values.size(); ++i)
        values[i].CopyTo(array[i], memory, array.Get());
    return array.Detach();
}

LPSPropTagArray MakeTagArray(const MapiMemory& memory, const std::vector<ULONG>& tags)
{
    const ULONG count = Counted(tags.size());
    auto* array = static_cast<SPropTagArray*>(memory.Allocate(CbNewSPropTagArray(std::max<size_t>(count, 1))));
    array->cValues = count;
    std::copy(tags.begin(), tags.end(), array->aulPropTag);
    return array;
}

LPSPropProblemArray MakeProblemArray(const MapiMemory& memory, const std::vector<SPropProblem>& problems)
{
    const ULONG count = Counted(problems.size());
    auto* array = static_cast<SPropProblemArray*>(memory.Allocate(CbNewSPropProblemArray(std::max<size_t>(count, 1))));
    array->cProblem = count;
    std::copy(problems.begin(), problems.end(), array->aProblem);
    return array;
}

LPSRowSet MakeRowSet(const MapiMemory& memory, const std::vector<std::vector<PropValue>>& rows)
{
    const ULONG count = Counted(rows.size());
    MapiRows set(memory, static_cast<SRowSet*>(memory.Allocate(CbNewSRowSet(std::max<size_t>(count, 1)))));
    for (ULONG row = 0; row < count; ++row)
    {
        set->aRow[row].cValues = Counted(rows[row].size());
        set->aRow[row].lpProps = MakePropArray(memory, rows[row]);
        // Only finished rows count, so that a failure frees exactly these.
        set->cRows = row + 1;
    }
    return set.Detach();
}

std::vector<PropValue> CopyProps(ULONG count, const SPropValue* values)
{
    if (count && !values)
        Fail(MAPI_E_INVALID_PARAMETER, L"A property array is null.");
    std::vector<PropValue> copy;
    copy.reserve(count);
    std::transform(values, values + count, std::back_inserter(copy), PropValue::From);
    return copy;
}
} // namespace Common
