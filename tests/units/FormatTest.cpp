// Texts of errors and codes.
#include "support/Format.h"

#include "support/MapiHeaders.h"
#include "tests/common/ImportHook.h"
#include "tests/common/Setting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <iterator>
#include <map>
#include <string>
#include <utility>

using namespace Quillon;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using Tests::Text;

namespace
{

/// The system's own text of a code, without its line end.
std::wstring SystemMessage(DWORD code)
{
    wchar_t text[1024] = {};
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0,
                                        text, 1024, nullptr);
    std::wstring message(text, length);
    while (!message.empty() && message.back() <= L' ')
        message.pop_back();
    return message;
}

/// `code` and, where the system has a message for it, the message.
std::wstring WithMessage(const std::wstring& code, DWORD number)
{
    const std::wstring message = SystemMessage(number);
    return message.empty() ? code : code + L": " + message;
}

struct NamedCode
{
    HRESULT code;
    const wchar_t* name;
};

const NamedCode headerCodes[] = {
#define HEADER_TAG(name)
#define HEADER_CODE(name) {name, L"" #name},
#include "MapiNames.inc"
#undef HEADER_CODE
#undef HEADER_TAG
};

} // namespace

TEST(FormatComError, NamesEveryCodeOfTheMapiHeader)
{
    ASSERT_GT(std::size(headerCodes), 60u);
    // Of the names that share a code, one stands.
    std::map<HRESULT, std::wstring> seen;
    for (const NamedCode& row : headerCodes)
        seen[row.code] += std::wstring(L"|") + row.name + L"|";
    for (const auto& [code, names] : seen)
    {
        const wchar_t* const name = GetResultCodeName(code);
        ASSERT_NE(name, nullptr) << std::hex << code;
        EXPECT_THAT(names, HasSubstr(L"|" + std::wstring(name) + L"|"));
        wchar_t number[16] = {};
        std::swprintf(number, std::size(number), L" (0x%08X)", static_cast<unsigned>(code));
        EXPECT_THAT(Text(FormatComError(code)), StartsWith(name + std::wstring(number)));
    }
}

TEST(FormatComError, TellsNumberAndSystemMessage)
{
    ASSERT_FALSE(SystemMessage(0x80070005).empty());
    const struct
    {
        long code;
        std::wstring expected;
    } table[] = {
        {MAPI_E_NO_ACCESS, WithMessage(L"MAPI_E_NO_ACCESS (0x80070005)", 0x80070005)},
        {MAPI_E_INVALID_PARAMETER, WithMessage(L"MAPI_E_INVALID_PARAMETER (0x80070057)", 0x80070057)},
        {E_POINTER, WithMessage(L"E_POINTER (0x80004003)", 0x80004003)},
        {REGDB_E_CLASSNOTREG, WithMessage(L"REGDB_E_CLASSNOTREG (0x80040154)", 0x80040154)},
        {HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), WithMessage(L"0x80070002", 0x80070002)},
        {static_cast<long>(0x80041234), L"0x80041234"},
    };
    for (const auto& row : table)
        EXPECT_EQ(Text(FormatComError(row.code)), row.expected);
}

TEST(FormatComError, GivesMapisOwnCodesNoTextOfOtherInterfaces)
{
    const HRESULT codes[] = {MAPI_E_NO_SUPPORT, MAPI_E_NOT_FOUND, MAPI_E_CORRUPT_STORE, MAPI_W_ERRORS_RETURNED};
    for (const HRESULT code : codes)
        EXPECT_THAT(Text(FormatComError(code)), EndsWith(L")"));
    EXPECT_EQ(Text(FormatComError(MAPI_E_NO_SUPPORT)), L"MAPI_E_NO_SUPPORT (0x80040102)");
    EXPECT_EQ(Text(FormatComError(MAPI_W_ERRORS_RETURNED)), L"MAPI_W_ERRORS_RETURNED (0x00040380)");
}

TEST(FormatSystemError, TellsWin32ErrorsByNumberAndMessage)
{
    ASSERT_FALSE(SystemMessage(ERROR_MOD_NOT_FOUND).empty());
    EXPECT_EQ(Text(FormatSystemError(ERROR_MOD_NOT_FOUND, true)),
              L"Error 126 (0x0000007E): " + SystemMessage(ERROR_MOD_NOT_FOUND));
    EXPECT_EQ(Text(FormatSystemError(ERROR_MOD_NOT_FOUND, false)), SystemMessage(ERROR_MOD_NOT_FOUND));
    EXPECT_EQ(Text(FormatSystemError(65000, true)), L"Error 65000 (0x0000FDE8)");
    EXPECT_EQ(Text(FormatSystemError(65000, false)), L"Error 65000 (0x0000FDE8)");
    // The largest that there can be.
    EXPECT_EQ(Text(FormatSystemError(0xFFFF, true)), L"Error 65535 (0x0000FFFF)");
}

TEST(FormatSystemError, TellsResultCodesByName)
{
    EXPECT_EQ(Text(FormatSystemError(0x80040600, true)), L"MAPI_E_CORRUPT_STORE (0x80040600)");
    EXPECT_EQ(Text(FormatSystemError(0x80040600, false)), L"MAPI_E_CORRUPT_STORE (0x80040600)");
    EXPECT_EQ(Text(FormatSystemError(0x80070005, true)),
              L"MAPI_E_NO_ACCESS (0x80070005): " + SystemMessage(0x80070005));
    EXPECT_EQ(Text(FormatSystemError(0x80070005, false)), SystemMessage(0x80070005));
    EXPECT_EQ(Text(FormatSystemError(S_FALSE, true)).find(L"1 (0x00000001)"), 6u) << "a Win32 error, \"Error 1\"";
}

TEST(FormatSystemError, GivesOneLine)
{
    for (const unsigned code : {2u, 5u, 87u, 126u, 193u, 1224u, 0x80070005u, 0x80004003u, 0xFFFFFFFFu})
    {
        const std::wstring text = Text(FormatSystemError(code, true));
        EXPECT_EQ(text.find_first_of(L"\r\n"), std::wstring::npos) << code;
        EXPECT_FALSE(text.empty());
    }
}

namespace
{

/// What the system gives for the message of any code. (A list of arguments is a plain address here.)
std::wstring givenMessage;

DWORD WINAPI GiveMessage(DWORD, LPCVOID, DWORD, DWORD, LPWSTR buffer, DWORD, char**)
{
    const std::size_t size = (givenMessage.size() + 1) * sizeof(wchar_t);
    void* const text = LocalAlloc(LMEM_FIXED, size);
    std::memcpy(text, givenMessage.c_str(), size);
    *reinterpret_cast<void**>(buffer) = text;
    return static_cast<DWORD>(givenMessage.size());
}

} // namespace

TEST(FormatSystemError, PutsAMessageOfSeveralLinesInOne)
{
    const Tests::ImportHook<DWORD(DWORD, LPCVOID, DWORD, DWORD, LPWSTR, DWORD, char**)> hook("FormatMessageW",
                                                                                             GiveMessage);
    const std::pair<const wchar_t*, const wchar_t*> table[] = {
        {L"One.\r\n", L"One."},
        {L"One. \r\n", L"One."},
        {L"One.  ", L"One."},
        {L"One", L"One"},
        {L"One.\r\nTwo.\r\n", L"One. Two."},
        {L"One. \r\n\r\n\t Two,\nthree  four. \r\n", L"One. Two, three  four."},
    };
    for (const auto& [given, expected] : table)
    {
        givenMessage = given;
        EXPECT_EQ(Text(FormatSystemError(5, false)), expected);
        EXPECT_EQ(Text(FormatSystemError(5, true)), std::wstring(L"Error 5 (0x00000005): ") + expected);
        EXPECT_EQ(Text(FormatComError(E_ABORT)), std::wstring(L"E_ABORT (0x80004004): ") + expected);
    }
    // Nothing is left of it: the number stands alone.
    givenMessage = L" \r\n";
    EXPECT_EQ(Text(FormatSystemError(5, true)), L"Error 5 (0x00000005)");
    EXPECT_EQ(Text(FormatSystemError(5, false)), L"Error 5 (0x00000005)");
}

TEST(FormatErrorWithContext, PutsTheContextInFrontWhenThereIsOne)
{
    EXPECT_EQ(Text(FormatErrorWithContext(L"error", L"context")), L"context: error");
    EXPECT_EQ(Text(FormatErrorWithContext(L"error", StringW())), L"error");
    EXPECT_EQ(Text(FormatErrorWithContext(L"%s", L"%d")), L"%d: %s");
}

TEST(GetResultCodeName, HasNoNameForOtherCodes)
{
    EXPECT_EQ(GetResultCodeName(S_OK), nullptr);
    EXPECT_EQ(GetResultCodeName(static_cast<long>(0x80041234)), nullptr);
    EXPECT_STREQ(GetResultCodeName(S_FALSE), L"S_FALSE");
}
