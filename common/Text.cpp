// Conversions of text, and names of result codes.
#include "common/Text.h"

#include "common/Boundary.h"

#include <cwchar>
#include <limits>

namespace Common
{
namespace
{
struct ResultName
{
    HRESULT result;
    const wchar_t* name;
};

#define NAMED(code) {static_cast<HRESULT>(code), L## #code}
constexpr ResultName resultNames[] = {
    NAMED(S_OK),
    NAMED(MAPI_E_CALL_FAILED),
    NAMED(MAPI_E_NOT_ENOUGH_MEMORY),
    NAMED(MAPI_E_INVALID_PARAMETER),
    NAMED(MAPI_E_INTERFACE_NOT_SUPPORTED),
    NAMED(MAPI_E_NO_ACCESS),
    NAMED(MAPI_E_NO_SUPPORT),
    NAMED(MAPI_E_BAD_CHARWIDTH),
    NAMED(MAPI_E_STRING_TOO_LONG),
    NAMED(MAPI_E_UNKNOWN_FLAGS),
    NAMED(MAPI_E_INVALID_ENTRYID),
    NAMED(MAPI_E_INVALID_OBJECT),
    NAMED(MAPI_E_OBJECT_CHANGED),
    NAMED(MAPI_E_OBJECT_DELETED),
    NAMED(MAPI_E_BUSY),
    NAMED(MAPI_E_NOT_ENOUGH_DISK),
    NAMED(MAPI_E_NOT_ENOUGH_RESOURCES),
    NAMED(MAPI_E_NOT_FOUND),
    NAMED(MAPI_E_VERSION),
    NAMED(MAPI_E_LOGON_FAILED),
    NAMED(MAPI_E_USER_CANCEL),
    NAMED(MAPI_E_NETWORK_ERROR),
    NAMED(MAPI_E_DISK_ERROR),
    NAMED(MAPI_E_TOO_COMPLEX),
    NAMED(MAPI_E_BAD_COLUMN),
    NAMED(MAPI_E_EXTENDED_ERROR),
    NAMED(MAPI_E_COMPUTED),
    NAMED(MAPI_E_CORRUPT_DATA),
    NAMED(MAPI_E_UNCONFIGURED),
    NAMED(MAPI_E_FAILONEPROVIDER),
    NAMED(MAPI_E_UNKNOWN_ENTRYID),
    NAMED(MAPI_E_MISSING_REQUIRED_COLUMN),
    NAMED(MAPI_E_BAD_VALUE),
    NAMED(MAPI_E_INVALID_TYPE),
    NAMED(MAPI_E_TYPE_NO_SUPPORT),
    NAMED(MAPI_E_UNEXPECTED_TYPE),
    NAMED(MAPI_E_TOO_BIG),
    NAMED(MAPI_E_DECLINE_COPY),
    NAMED(MAPI_E_UNEXPECTED_ID),
    NAMED(MAPI_W_ERRORS_RETURNED),
    NAMED(MAPI_E_UNABLE_TO_COMPLETE),
    NAMED(MAPI_E_TIMEOUT),
    NAMED(MAPI_E_TABLE_EMPTY),
    NAMED(MAPI_E_TABLE_TOO_BIG),
    NAMED(MAPI_E_INVALID_BOOKMARK),
    NAMED(MAPI_W_POSITION_CHANGED),
    NAMED(MAPI_W_APPROX_COUNT),
    NAMED(MAPI_E_CANCEL),
    NAMED(MAPI_E_CORRUPT_STORE),
    NAMED(MAPI_E_COLLISION),
    NAMED(MAPI_E_NOT_INITIALIZED),
    NAMED(MAPI_E_NO_RECIPIENTS),
    NAMED(MAPI_E_SUBMITTED),
    NAMED(MAPI_E_HAS_FOLDERS),
    NAMED(MAPI_E_HAS_MESSAGES),
    NAMED(MAPI_E_FOLDER_CYCLE),
    NAMED(MAPI_W_PARTIAL_COMPLETION),
};
#undef NAMED

int CheckedLength(size_t length)
{
    if (length > static_cast<size_t>(std::numeric_limits<int>::max()))
        Fail(MAPI_E_STRING_TOO_LONG, L"A text is too long to convert.");
    return static_cast<int>(length);
}

// Both functions are told the length of what they convert.
// NOLINTBEGIN(bugprone-suspicious-stringview-data-usage)

std::wstring Widen(UINT codePage, std::string_view text)
{
    if (text.empty())
        return {};
    const int length = CheckedLength(text.size());
    const int needed = MultiByteToWideChar(codePage, 0, text.data(), length, nullptr, 0);
    std::wstring wide(static_cast<size_t>(needed), L'\0');
    MultiByteToWideChar(codePage, 0, text.data(), length, wide.data(), needed);
    return wide;
}

std::string Narrow(UINT codePage, std::wstring_view text)
{
    if (text.empty())
        return {};
    const int length = CheckedLength(text.size());
    const int needed = WideCharToMultiByte(codePage, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<size_t>(needed), '\0');
    WideCharToMultiByte(codePage, 0, text.data(), length, narrow.data(), needed, nullptr, nullptr);
    return narrow;
}

// NOLINTEND(bugprone-suspicious-stringview-data-usage)

BYTE HexDigit(wchar_t digit)
{
    if (digit >= L'0' && digit <= L'9')
        return static_cast<BYTE>(digit - L'0');
    if (digit >= L'A' && digit <= L'F')
        return static_cast<BYTE>(digit - L'A' + 10);
    if (digit >= L'a' && digit <= L'f')
        return static_cast<BYTE>(digit - L'a' + 10);
    Fail(MAPI_E_CORRUPT_DATA, L"A hexadecimal text has a character that is no digit.");
}
} // namespace

std::wstring WideFromAnsi(std::string_view text)
{
    return Widen(CP_ACP, text);
}

std::string AnsiFromWide(std::wstring_view text)
{
    return Narrow(CP_ACP, text);
}

std::wstring WideFromUtf8(std::string_view text)
{
    return Widen(CP_UTF8, text);
}

std::string Utf8FromWide(std::wstring_view text)
{
    return Narrow(CP_UTF8, text);
}

std::wstring ResultText(HRESULT result)
{
    wchar_t number[16];
    std::swprintf(number, std::size(number), L"0x%08lX", static_cast<unsigned long>(result));
    for (const ResultName& entry : resultNames)
        if (entry.result == result)
            return std::wstring(entry.name) + L" (" + number + L")";
    return number;
}

std::wstring HexText(const void* bytes, size_t size)
{
    static constexpr wchar_t digits[] = L"0123456789ABCDEF";
    const BYTE* data = static_cast<const BYTE*>(bytes);
    std::wstring text;
    text.reserve(size * 2);
    for (size_t i = 0; i < size; ++i)
    {
        text += digits[data[i] >> 4];
        text += digits[data[i] & 15];
    }
    return text;
}

std::vector<BYTE> BytesFromHex(std::wstring_view text)
{
    if (text.size() % 2 != 0)
        Fail(MAPI_E_CORRUPT_DATA, L"A hexadecimal text has half a byte too much.");
    std::vector<BYTE> bytes;
    bytes.reserve(text.size() / 2);
    for (size_t i = 0; i < text.size(); i += 2)
        bytes.push_back(static_cast<BYTE>(HexDigit(text[i]) * 16 + HexDigit(text[i + 1])));
    return bytes;
}

std::wstring TextArgument(const void* text, ULONG flags)
{
    if (!text)
        return {};
    return flags & MAPI_UNICODE ? std::wstring(static_cast<const wchar_t*>(text))
                                : WideFromAnsi(static_cast<const char*>(text));
}
} // namespace Common
