// StringW and StringA.
#include "support/StringW.h"

#include "support/Exceptions.h"
#include "support/Format.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Setting.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <string>
#include <utility>

using Quillon::FormatString;
using Quillon::StringA;
using Quillon::StringW;
using Tests::Text;

namespace
{

void ExpectOutOfMemory(auto&& action)
{
    try
    {
        action();
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const Quillon::CComError& error)
    {
        EXPECT_EQ(error.GetHResult(), E_OUTOFMEMORY);
    }
}

} // namespace

TEST(StringW, IsEmptyAndNeverNullWhenMadeOfNothing)
{
    const StringW made[] = {StringW(), StringW(nullptr), StringW(L""), StringW(L"text", 0), StringW(StringW())};
    for (const StringW& text : made)
    {
        EXPECT_TRUE(text.IsEmpty());
        EXPECT_EQ(text.GetLength(), 0u);
        const wchar_t* const characters = text;
        ASSERT_NE(characters, nullptr);
        EXPECT_EQ(*characters, L'\0');
        EXPECT_EQ(text.begin(), text.end());
    }
}

TEST(StringW, CopiesAreIndependentAndMovesLeaveNothing)
{
    StringW first(L"first");
    StringW copy(first);
    copy += L'!';
    EXPECT_EQ(Text(first), L"first");
    EXPECT_EQ(Text(copy), L"first!");

    StringW moved(std::move(copy));
    EXPECT_EQ(Text(moved), L"first!");
    EXPECT_TRUE(copy.IsEmpty()); // NOLINT(bugprone-use-after-move): what a move leaves is the point
    EXPECT_EQ(*copy.GetString(), L'\0');

    first = moved;
    EXPECT_EQ(Text(first), L"first!");
    EXPECT_EQ(Text(moved), L"first!");
    first = std::move(moved);
    EXPECT_EQ(Text(first), L"first!");
    EXPECT_TRUE(moved.IsEmpty()); // NOLINT(bugprone-use-after-move)
}

TEST(StringW, AssignedToItselfKeepsItsText)
{
    StringW text(L"the same");
    StringW& same = text;
    text = same;
    EXPECT_EQ(Text(text), L"the same");
    text = std::move(same);
    EXPECT_EQ(Text(text), L"the same");
}

TEST(StringW, AppendsPartsOfItself)
{
    StringW text(L"abc");
    // Long enough that the buffer has to grow on the way, several times.
    for (int round = 0; round < 10; ++round)
        text.Append(text.GetString() + 1, text.GetLength() - 1);
    std::wstring expected = L"abc";
    for (int round = 0; round < 10; ++round)
        expected.append(std::wstring(expected, 1));
    EXPECT_EQ(Text(text), expected);

    StringW whole(L"xy");
    whole += whole;
    whole.AppendFormat(L"%s|%s", whole.GetString(), whole.GetString());
    EXPECT_EQ(Text(whole), L"xyxyxyxy|xyxy");
}

TEST(StringW, AppendsWithinReservedRoomAndBeyond)
{
    StringW text;
    text.Reserve(4);
    const wchar_t* const reserved = text.GetString();
    text.Append(L"abcd", 4);
    EXPECT_EQ(text.GetString(), reserved) << "the room that was reserved was not used";
    text.Reserve(2);
    EXPECT_EQ(Text(text), L"abcd");
    text += L'e';
    text.Append(L"fghi", 2);
    text.Append(nullptr, 0);
    text += static_cast<const wchar_t*>(nullptr);
    EXPECT_EQ(Text(text), L"abcdefg");
    EXPECT_EQ(text.GetLength(), 7u);
    EXPECT_EQ(text.GetString()[7], L'\0');
}

TEST(StringW, HoldsCharactersOfAnyKind)
{
    const wchar_t loneSurrogate[] = {L'a', 0xD800, L'b', 0xDC00, 0xFFFF, L'\0'};
    const StringW text(loneSurrogate);
    EXPECT_EQ(Text(text), loneSurrogate);
    EXPECT_EQ(Text(FormatString(L"%s%c", loneSurrogate, 0xD801)), std::wstring(loneSurrogate) + wchar_t(0xD801));

    StringW withZero(L"a\0b", 3);
    withZero += L'\0';
    EXPECT_EQ(withZero.GetLength(), 4u);
    EXPECT_EQ(Text(withZero), std::wstring(L"a\0b\0", 4));
    EXPECT_EQ(Text(StringW(withZero)), std::wstring(L"a\0b\0", 4));
}

TEST(StringW, GrowsToMillionsOfCharacters)
{
    constexpr std::size_t count = 3'000'000;
    StringW text;
    for (std::size_t index = 0; index < count; ++index)
        text += static_cast<wchar_t>(L'a' + index % 26);
    ASSERT_EQ(text.GetLength(), count);
    std::size_t wrong = 0;
    std::size_t index = 0;
    for (const wchar_t character : text)
        wrong += character != static_cast<wchar_t>(L'a' + index++ % 26);
    EXPECT_EQ(wrong, 0u);
    EXPECT_EQ(FormatString(L"<%s>", text.GetString()).GetLength(), count + 2);
}

TEST(StringW, ConcatenatesOnEitherSide)
{
    const StringW text(L"mid");
    EXPECT_EQ(Text(text + L" right"), L"mid right");
    EXPECT_EQ(Text(L"left " + text), L"left mid");
    EXPECT_EQ(Text(text + text), L"midmid");
    EXPECT_EQ(Text(text + static_cast<const wchar_t*>(nullptr)), L"mid");
    EXPECT_EQ(Text(static_cast<const wchar_t*>(nullptr) + text), L"mid");
    EXPECT_EQ(Text(StringW() + StringW()), L"");
}

TEST(StringW, ComparesByCharactersWithCase)
{
    EXPECT_TRUE(StringW(L"Text") == StringW(L"Text"));
    EXPECT_FALSE(StringW(L"Text") == StringW(L"text"));
    EXPECT_FALSE(StringW(L"Text") == StringW(L"Tex"));
    EXPECT_TRUE(StringW(L"Text") == L"Text");
    EXPECT_TRUE(StringW() == static_cast<const wchar_t*>(nullptr));
    EXPECT_FALSE(StringW(L"a\0b", 3) == StringW(L"a\0c", 3));
}

TEST(StringW, FormatsWideTextNarrowTextAndNumbers)
{
    const struct
    {
        StringW formatted;
        const wchar_t* expected;
    } table[] = {
        {FormatString(L"plain"), L"plain"},
        {FormatString(L"%s", L"wide"), L"wide"},
        {FormatString(L"%hs", "narrow"), L"narrow"},
        {FormatString(L"%d %u %x", -5, 4000000000u, 0xBEEFu), L"-5 4000000000 beef"},
        {FormatString(L"%Iu", static_cast<std::size_t>(SIZE_MAX)), L"18446744073709551615"},
        {FormatString(L"%%%.2hX", static_cast<unsigned short>(0x2F)), L"%2F"},
        {FormatString(L"%.2hX", static_cast<unsigned short>(0x5)), L"05"},
        {FormatString(L"0x%08lX", 0x80040115ul), L"0x80040115"},
        {FormatString(L"%.1f %s", 1.5, L"KB"), L"1.5 KB"},
        {FormatString(L""), L""},
    };
    for (const auto& row : table)
        EXPECT_EQ(Text(row.formatted), row.expected);
}

TEST(StringW, TakesPercentSignsOfArgumentsAsText)
{
    const std::wstring hostile = L"100%s %n %d %%";
    EXPECT_EQ(Text(FormatString(L"%s", hostile.c_str())), hostile);
    StringW text(hostile.c_str());
    text.AppendFormat(L"[%s]", hostile.c_str());
    EXPECT_EQ(Text(text), hostile + L"[" + hostile + L"]");
}

TEST(StringW, AppendFormatGivesTheStringBack)
{
    StringW text(L"a");
    EXPECT_EQ(&text.AppendFormat(L"%d", 1), &text);
    EXPECT_EQ(&text.Append(L"b", 1), &text);
    EXPECT_EQ(&(text += L'c'), &text);
    EXPECT_EQ(Text(text), L"a1bc");
}

TEST(StringW, RefusesWhatTheSystemCannotFormatAndStaysAsItWas)
{
    const Tests::LogCapture log;
    StringW text(L"kept");
    const auto expectRefused = [&]
    {
        try
        {
            text.AppendFormat(L"%s", L"lost");
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const Quillon::CComError& error)
        {
            EXPECT_EQ(error.GetHResult(), E_INVALIDARG);
        }
    };
    // The line that is logged has to be formatted, too.
    static int calls;
    {
        static Tests::CountFormatted* count;
        const Tests::ImportHook<Tests::CountFormatted> hook(Tests::countFormattedName, [](auto... arguments)
                                                            { return calls++ ? count(arguments...) : -1; });
        count = hook.Original();
        calls = 0;
        expectRefused();
    }
    {
        // Another length than was counted: the arguments changed meanwhile.
        static Tests::WriteFormatted* write;
        const Tests::ImportHook<Tests::WriteFormatted> hook(Tests::writeFormattedName, [](auto... arguments)
                                                            { return calls++ ? write(arguments...) : 3; });
        write = hook.Original();
        calls = 0;
        expectRefused();
    }
    EXPECT_EQ(Text(text), L"kept");
    ASSERT_EQ(log.Lines().size(), 2u);
    for (const auto& line : log.Lines())
        EXPECT_NE(line.text.find(L"Quillon::StringW::AppendFormatArguments"), std::wstring::npos);
}

TEST(StringW, SaysThatThereIsNoMemoryAndStaysAsItWas)
{
    const std::size_t sizes[] = {SIZE_MAX, SIZE_MAX - 1, SIZE_MAX / 2, SIZE_MAX / 2 - 1, SIZE_MAX / 4};
    for (const std::size_t size : sizes)
    {
        const Tests::LogCapture log;
        StringW text(L"kept");
        ExpectOutOfMemory([&] { text.Reserve(size); });
        ExpectOutOfMemory([&] { text.Append(L"x", size); });
        EXPECT_EQ(Text(text), L"kept");
        EXPECT_EQ(log.Lines().size(), 2u) << "one \"Throwing exception\" line for each";
    }

    const Tests::LogCapture log;
    StringW text(L"kept");
    {
        const Tests::NoMemory noMemory;
        ExpectOutOfMemory([&] { text.Reserve(100); });
        ExpectOutOfMemory([&] { text.Append(L"more and more and more", 22); });
        ExpectOutOfMemory([&] { text.AppendFormat(L"%d", 1); });
        ExpectOutOfMemory([&] { StringW(text).Reserve(1); });
        ExpectOutOfMemory([&] { text = StringW(L"other"); });
        ExpectOutOfMemory([&] { StringA narrow(text); });
    }
    EXPECT_EQ(Text(text), L"kept");
}

TEST(StringA, IsEmptyAndNeverNullWhenMadeOfNothing)
{
    StringA made[] = {StringA(), StringA(static_cast<const char*>(nullptr)), StringA(""), StringA(StringW())};
    for (StringA& text : made)
    {
        EXPECT_EQ(text.GetLength(), 0u);
        ASSERT_NE(text.GetBuffer(), nullptr);
        EXPECT_STREQ(text.GetBuffer(), "");
        EXPECT_STREQ(text.GetString(), "");
        EXPECT_TRUE(text.GetUnicode(0).IsEmpty());
    }
}

TEST(StringA, CanBeWrittenInPlace)
{
    StringA text("abc");
    const StringA copy(text);
    text.GetBuffer()[1] = 'X';
    EXPECT_STREQ(text.GetString(), "aXc");
    EXPECT_STREQ(copy.GetString(), "abc");
}

TEST(StringA, MovesAndAssignsAsAValue)
{
    StringA first("first");
    StringA moved(std::move(first));
    EXPECT_STREQ(moved.GetString(), "first");
    EXPECT_EQ(first.GetLength(), 0u); // NOLINT(bugprone-use-after-move): what a move leaves is the point
    first = moved;
    EXPECT_STREQ(first.GetString(), "first");
    moved = StringA("second");
    EXPECT_STREQ(moved.GetString(), "second");
    EXPECT_STREQ(first.GetString(), "first");
    StringA& same = first;
    first = same;
    EXPECT_STREQ(first.GetString(), "first");
}

TEST(StringA, CopiesWhatStandsBehindAZeroCharacterToo)
{
    const StringA text("a\0b", 3);
    const StringA copy(text);
    EXPECT_EQ(copy.GetLength(), 3u);
    EXPECT_EQ(std::string(copy.GetString(), copy.GetLength()), std::string("a\0b", 3));
    EXPECT_EQ(copy.GetUnicode(0).GetLength(), 3u);
    EXPECT_EQ(StringA(nullptr, 0).GetLength(), 0u);
}

TEST(StringA, NarrowsAndWidensThroughACodePage)
{
    const StringW wide(L"Gr\u00FC\u00DFe \u20AC");
    EXPECT_STREQ(StringA(wide, CP_UTF8).GetString(), "Gr\xC3\xBC\xC3\x9F"
                                                     "e \xE2\x82\xAC");
    EXPECT_EQ(Text(StringA("Gr\xC3\xBC\xC3\x9F"
                           "e \xE2\x82\xAC")
                       .GetUnicode(CP_UTF8)),
              Text(wide));
    EXPECT_STREQ(StringA(wide, 1252).GetString(), "Gr\xFC\xDF"
                                                  "e \x80");
    EXPECT_EQ(Text(StringA("\x80").GetUnicode(1252)), L"\u20AC");
}

TEST(StringA, NarrowsToTheSystemsCodePageByItself)
{
    const StringW wide(L"plain text");
    EXPECT_STREQ(StringA(wide).GetString(), "plain text");
    EXPECT_EQ(Text(StringA("plain text").GetUnicode(0)), L"plain text");
    // What the code page lacks becomes its default character, never nothing.
    const StringA lacking(StringW(L"<\u4E2D>"), 1252);
    EXPECT_STREQ(lacking.GetString(), "<?>");
}

TEST(StringA, RefusesACodePageThatIsNone)
{
    const Tests::LogCapture log;
    EXPECT_THROW(StringA("text").GetUnicode(12345), Quillon::CWinError);
    EXPECT_THROW(StringA(StringW(L"text"), 12345), Quillon::CWinError);
    EXPECT_EQ(log.Lines().size(), 2u);
}

TEST(StringA, RefusesWhatIsConvertedToAnotherLengthThanWasCounted)
{
    const Tests::LogCapture log;
    // Only the text's own conversion fails: the line that is logged has conversions of its own.
    {
        const Tests::ImportHook<int(UINT, DWORD, LPCWSTR, int, LPSTR, int, LPCSTR, LPBOOL)> hook(
            "WideCharToMultiByte",
            [](UINT codePage, DWORD flags, LPCWSTR wide, int length, LPSTR narrow, int size, LPCSTR lacking,
               LPBOOL lacked) -> int
            {
                return WideCharToMultiByte(codePage, flags, wide, length, narrow, size, lacking, lacked) -
                       (narrow && size == 4 ? 1 : 0);
            });
        EXPECT_THROW(StringA(StringW(L"text"), CP_UTF8), Quillon::CWinError);
    }
    {
        const Tests::ImportHook<int(UINT, DWORD, LPCSTR, int, LPWSTR, int)> hook(
            "MultiByteToWideChar",
            [](UINT codePage, DWORD flags, LPCSTR narrow, int length, LPWSTR wide, int size) -> int
            { return MultiByteToWideChar(codePage, flags, narrow, length, wide, size) - (wide && size == 4 ? 1 : 0); });
        EXPECT_THROW(StringA("text").GetUnicode(CP_UTF8), Quillon::CWinError);
    }
    EXPECT_EQ(log.Lines().size(), 2u);
}
