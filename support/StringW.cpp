// StringW and StringA.
#include "support/StringW.h"

#include "support/ArgumentList.h"
#include "support/CallWrapping.h"
#include "support/Memory.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <utility>

namespace Quillon
{
namespace
{

/// A block of characters that is freed unless it is detached.
template <class Character>
class Characters
{
public:
    /// A length that leaves no room for the terminator is more than there is memory for.
    explicit Characters(std::size_t length)
        : m_block(static_cast<Character*>(
              Detail::AllocateArray(length < SIZE_MAX ? length + 1 : length, sizeof(Character))))
    {
        m_block[length] = 0;
    }
    Characters(const Characters&) = delete;
    Characters& operator=(const Characters&) = delete;
    ~Characters() { FreeObject(m_block); }
    Character* Get() const noexcept { return m_block; }
    Character* Detach() noexcept { return std::exchange(m_block, nullptr); }

private:
    Character* m_block;
};

/// A text's length as the conversion functions count it. Throws CWinError when it exceeds their range.
int CheckedLength(std::size_t length)
{
    if (length > INT_MAX)
        Throw(CWinError(ERROR_ARITHMETIC_OVERFLOW), L"Quillon::StringA::StringA");
    return static_cast<int>(length);
}

} // namespace

StringW::StringW() noexcept : m_buffer(nullptr), m_length(0), m_capacity(0) {}

StringW::StringW(const wchar_t* text) : StringW(text, text ? std::wcslen(text) : 0) {}

StringW::StringW(const wchar_t* text, std::size_t count) : StringW()
{
    Append(text, count);
}

StringW::StringW(const StringW& other) : StringW(other.m_buffer, other.m_length) {}

StringW::StringW(StringW&& other) noexcept
    : m_buffer(std::exchange(other.m_buffer, nullptr)),
      m_length(std::exchange(other.m_length, 0)),
      m_capacity(std::exchange(other.m_capacity, 0))
{
}

StringW::~StringW()
{
    FreeObject(m_buffer);
}

StringW& StringW::operator=(const StringW& other)
{
    return *this = StringW(other);
}

StringW& StringW::operator=(StringW&& other) noexcept
{
    StringW taken(std::move(other));
    std::swap(m_buffer, taken.m_buffer);
    std::swap(m_length, taken.m_length);
    std::swap(m_capacity, taken.m_capacity);
    return *this;
}

StringW::operator const wchar_t*() const noexcept
{
    return GetString();
}

const wchar_t* StringW::GetString() const noexcept
{
    return m_buffer ? m_buffer : L"";
}

std::size_t StringW::GetLength() const noexcept
{
    return m_length;
}

bool StringW::IsEmpty() const noexcept
{
    return m_length == 0;
}

void StringW::Reserve(std::size_t capacity)
{
    if (capacity <= m_capacity)
        return;
    Characters<wchar_t> grown(capacity);
    std::wmemcpy(grown.Get(), GetString(), m_length + 1);
    FreeObject(m_buffer);
    m_buffer = grown.Detach();
    m_capacity = capacity;
}

StringW& StringW::Append(const wchar_t* text, std::size_t count)
{
    if (count == 0)
        return *this;
    if (count > m_capacity - m_length)
    {
        // The text may lie within this string, so the old buffer is freed only after it has been copied.
        const std::size_t required = count > SIZE_MAX - m_length ? SIZE_MAX - 1 : m_length + count;
        const std::size_t capacity = Detail::GrowCapacity(m_capacity, required);
        Characters<wchar_t> grown(capacity);
        std::wmemcpy(grown.Get(), GetString(), m_length);
        std::wmemcpy(grown.Get() + m_length, text, count);
        FreeObject(m_buffer);
        m_buffer = grown.Detach();
        m_capacity = capacity;
    }
    else
    {
        std::wmemmove(m_buffer + m_length, text, count);
    }
    m_length += count;
    m_buffer[m_length] = L'\0';
    return *this;
}

StringW& StringW::operator+=(wchar_t character)
{
    return Append(&character, 1);
}

StringW& StringW::operator+=(const wchar_t* text)
{
    return Append(text, text ? std::wcslen(text) : 0);
}

StringW& StringW::AppendFormat(const wchar_t* format, ...)
{
    Detail::ArgumentList arguments;
    va_start(arguments.list, format);
    return AppendFormatArguments(format, arguments.list);
}

StringW& StringW::AppendFormatArguments(const wchar_t* format, va_list arguments)
{
    Detail::ArgumentList counted;
    va_copy(counted.list, arguments);
    // The platform's own functions, whose "%s" is wide here; the compiler's replacements would take it as narrow.
    const int length = _vscwprintf(format, counted.list);
    if (length < 0)
        Throw(CComError(E_INVALIDARG), L"Quillon::StringW::AppendFormatArguments");
    // The arguments may point into this string, so the text is made in a buffer of its own.
    const auto count = static_cast<std::size_t>(length);
    Characters<wchar_t> text(count);
    if (_vsnwprintf_s(text.Get(), count + 1, count, format, arguments) != length)
        Throw(CComError(E_INVALIDARG), L"Quillon::StringW::AppendFormatArguments");
    return Append(text.Get(), count);
}

const wchar_t* StringW::begin() const noexcept
{
    return GetString();
}

const wchar_t* StringW::end() const noexcept
{
    return GetString() + m_length;
}

StringW operator+(const StringW& left, const wchar_t* right)
{
    const std::size_t count = right ? std::wcslen(right) : 0;
    StringW result;
    result.Reserve(left.GetLength() + count);
    result.Append(left, left.GetLength()).Append(right, count);
    return result;
}

StringW operator+(const wchar_t* left, const StringW& right)
{
    return StringW(left) + right;
}

StringW operator+(const StringW& left, const StringW& right)
{
    StringW result;
    result.Reserve(left.GetLength() + right.GetLength());
    result.Append(left, left.GetLength()).Append(right, right.GetLength());
    return result;
}

bool operator==(const StringW& left, const StringW& right) noexcept
{
    return left.GetLength() == right.GetLength() &&
           std::wmemcmp(left.GetString(), right.GetString(), left.GetLength()) == 0;
}

bool operator==(const StringW& left, const wchar_t* right) noexcept
{
    return std::wcscmp(left.GetString(), right ? right : L"") == 0;
}

StringA::StringA() noexcept : m_buffer(nullptr), m_length(0) {}

StringA::StringA(const char* text) : StringA(text, text ? std::strlen(text) : 0) {}

StringA::StringA(const char* text, std::size_t count) : StringA()
{
    if (count == 0)
        return;
    Characters<char> copy(count);
    std::memcpy(copy.Get(), text, count);
    m_buffer = copy.Detach();
    m_length = count;
}

StringA::StringA(const StringW& text) : StringA(text, CP_ACP) {}

StringA::StringA(const StringW& text, unsigned codePage) : StringA()
{
    if (text.IsEmpty())
        return;
    const int wideLength = CheckedLength(text.GetLength());
    const int length = WideCharToMultiByte(codePage, 0, text, wideLength, nullptr, 0, nullptr, nullptr);
    if (length <= 0)
        Throw(CWinError(GetLastError()), L"Quillon::StringA::StringA");
    Characters<char> narrow(static_cast<std::size_t>(length));
    if (WideCharToMultiByte(codePage, 0, text, wideLength, narrow.Get(), length, nullptr, nullptr) != length)
        Throw(CWinError(GetLastError()), L"Quillon::StringA::StringA");
    m_buffer = narrow.Detach();
    m_length = static_cast<std::size_t>(length);
}

StringA::StringA(const StringA& other) : StringA(other.m_buffer, other.m_length) {}

StringA::StringA(StringA&& other) noexcept
    : m_buffer(std::exchange(other.m_buffer, nullptr)),
      m_length(std::exchange(other.m_length, 0))
{
}

StringA::~StringA()
{
    FreeObject(m_buffer);
}

StringA& StringA::operator=(const StringA& other)
{
    return *this = StringA(other);
}

StringA& StringA::operator=(StringA&& other) noexcept
{
    StringA taken(std::move(other));
    std::swap(m_buffer, taken.m_buffer);
    std::swap(m_length, taken.m_length);
    return *this;
}

char* StringA::GetBuffer() noexcept
{
    // An empty string has no block of its own; nothing may be written over a terminator, so one for all will do.
    static char empty[1] = {};
    return m_buffer ? m_buffer : empty;
}

const char* StringA::GetString() const noexcept
{
    return m_buffer ? m_buffer : "";
}

std::size_t StringA::GetLength() const noexcept
{
    return m_length;
}

StringW StringA::GetUnicode(unsigned codePage) const
{
    if (m_length == 0)
        return StringW();
    const int narrowLength = CheckedLength(m_length);
    const int length = MultiByteToWideChar(codePage, 0, m_buffer, narrowLength, nullptr, 0);
    if (length <= 0)
        Throw(CWinError(GetLastError()), L"Quillon::StringA::GetUnicode");
    Characters<wchar_t> wide(static_cast<std::size_t>(length));
    if (MultiByteToWideChar(codePage, 0, m_buffer, narrowLength, wide.Get(), length) != length)
        Throw(CWinError(GetLastError()), L"Quillon::StringA::GetUnicode");
    return StringW(wide.Get(), static_cast<std::size_t>(length));
}

} // namespace Quillon
