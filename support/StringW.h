// StringW and StringA: the library's strings. Their memory lies in the library's own heap, whoever uses them.
#pragma once

#include "support/Export.h"

#include <cstdarg>
#include <cstddef>

namespace Quillon
{

/// A wide (UTF-16) string that owns its characters. Every operation that needs memory throws
/// CComError(E_OUTOFMEMORY) when there is none and leaves the string as it was. Lengths and counts are in characters
/// (UTF-16 code units). An object may be used by one thread at a time.
class KIVNST_API StringW
{
public:
    StringW() noexcept;
    /// Copies `text`; null gives the empty string.
    StringW(const wchar_t* text);
    StringW(const wchar_t* text, std::size_t count);
    StringW(const StringW& other);
    StringW(StringW&& other) noexcept;
    ~StringW();
    StringW& operator=(const StringW& other);
    StringW& operator=(StringW&& other) noexcept;

    /// The characters with their terminator; never null. Valid until the string changes.
    operator const wchar_t*() const noexcept;
    const wchar_t* GetString() const noexcept;

    std::size_t GetLength() const noexcept;
    bool IsEmpty() const noexcept;
    /// Makes room for `capacity` characters in all, terminator not counted.
    void Reserve(std::size_t capacity);
    /// Appends `count` characters of `text`, which may lie within this string.
    StringW& Append(const wchar_t* text, std::size_t count);
    StringW& operator+=(wchar_t character);
    StringW& operator+=(const wchar_t* text);
    /// Appends the text that `format` gives, printf-style and wide: "%s" takes a `const wchar_t*`, "%hs" a narrow one,
    /// "%Iu" a `size_t`. Text from outside is an argument, never the format. Throws CComError(E_INVALIDARG) when the
    /// platform refuses the format or an argument.
    StringW& AppendFormat(const wchar_t* format, ...);
    StringW& AppendFormatArguments(const wchar_t* format, va_list arguments);

    const wchar_t* begin() const noexcept;
    const wchar_t* end() const noexcept;

private:
    wchar_t* m_buffer;
    std::size_t m_length;
    std::size_t m_capacity;
};

KIVNST_API StringW operator+(const StringW& left, const wchar_t* right);
KIVNST_API StringW operator+(const wchar_t* left, const StringW& right);
KIVNST_API StringW operator+(const StringW& left, const StringW& right);

/// Compare character by character, case counts.
KIVNST_API bool operator==(const StringW& left, const StringW& right) noexcept;
KIVNST_API bool operator==(const StringW& left, const wchar_t* right) noexcept;

/// A narrow string that owns its characters. Memory and threads as for StringW; lengths are in bytes.
class KIVNST_API StringA
{
public:
    StringA() noexcept;
    /// Copies `text`; null gives the empty string.
    StringA(const char* text);
    StringA(const char* text, std::size_t count);
    /// Narrows to the system's ANSI code page; what it lacks becomes that code page's default character. Throws
    /// CWinError when the text cannot be converted.
    explicit StringA(const StringW& text);
    /// The same for the code page `codePage` (CP_UTF8, say).
    StringA(const StringW& text, unsigned codePage);
    StringA(const StringA& other);
    StringA(StringA&& other) noexcept;
    ~StringA();
    StringA& operator=(const StringA& other);
    StringA& operator=(StringA&& other) noexcept;

    /// The characters with their terminator, writable in place; never null. Valid until the string changes.
    char* GetBuffer() noexcept;
    const char* GetString() const noexcept;
    std::size_t GetLength() const noexcept;
    /// The text as UTF-16, converted from `codePage`; 0 is the system's ANSI code page. Throws CWinError when the text
    /// cannot be converted.
    StringW GetUnicode(unsigned codePage) const;

private:
    char* m_buffer;
    std::size_t m_length;
};

} // namespace Quillon
