// Conversions between the kinds of text that MAPI and the files around it use.
#pragma once

#include "common/Mapi.h"

#include <string>
#include <string_view>
#include <vector>

namespace Common
{
/// Converts from the system's ANSI code page, which is what MAPI's 8-bit strings are in. Invalid bytes become the code
/// page's default character.
std::wstring WideFromAnsi(std::string_view text);
/// Converts to the system's ANSI code page; what it cannot show becomes its default character.
std::string AnsiFromWide(std::wstring_view text);
/// Converts from UTF-8; invalid bytes become U+FFFD.
std::wstring WideFromUtf8(std::string_view text);
std::string Utf8FromWide(std::wstring_view text);

/// A result code for people: "MAPI_E_NOT_FOUND (0x8004010F)" or only the number when it has no MAPI name.
std::wstring ResultText(HRESULT result);

/// Uppercase hexadecimal digits, two for each byte.
std::wstring HexText(const void* bytes, size_t size);
/// The reverse of `HexText`; throws `Failure` (MAPI_E_CORRUPT_DATA) for anything but pairs of hexadecimal digits.
std::vector<BYTE> BytesFromHex(std::wstring_view text);

/// The text of a LPTSTR argument whose width depends on a MAPI_UNICODE flag; empty when null.
std::wstring TextArgument(const void* text, ULONG flags);
} // namespace Common
