// The texts that the library makes of tags, codes and errors, whatever stands in them.
#include "support/Exceptions.h"
#include "support/Format.h"
#include "support/Log.h"
#include "support/MapiErrors.h"
#include "support/MapiProperties.h"
#include "tests/common/Setting.h"
#include "tests/generated/Generator.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cwchar>
#include <map>
#include <string>
#include <vector>

using namespace Quillon;
using Tests::Random;
using Tests::Text;

namespace
{

std::wstring Hexadecimal(ULONG number)
{
    std::wstring text = L"0x";
    for (int shift = 28; shift >= 0; shift -= 4)
        text += L"0123456789ABCDEF"[(number >> shift) & 0xF];
    return text;
}

/// A code: a known one, one beside it, or anything.
ULONG MakeCode(Random& random)
{
    constexpr ULONG known[] = {0,          1,          2,          5,          126,        1224,       0x80004005,
                               0x8007000E, 0x80070005, 0x80040102, 0x8004010F, 0x00040380, 0x80040600, 0x80040115,
                               0xFFFFFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFF,     0x10000};
    if (random.Chance(1, 3))
        return random.Of(known);
    if (random.Chance(1, 3))
        return 0x80040100 + static_cast<ULONG>(random.Below(0x700));
    return random.Chance(1, 2) ? static_cast<ULONG>(random.Below(0x4000)) : static_cast<ULONG>(random.Next());
}

bool Contains(const std::wstring& text, const std::wstring& part)
{
    return text.find(part) != std::wstring::npos;
}

std::string AnsiOf(const std::wstring& text)
{
    std::string narrow(4 * text.size() + 1, '\0');
    const int size = WideCharToMultiByte(CP_ACP, 0, text.c_str(), -1, narrow.data(), static_cast<int>(narrow.size()),
                                         nullptr, nullptr);
    narrow.resize(static_cast<std::size_t>(size) - 1);
    return narrow;
}

} // namespace

TEST(GeneratedTexts, OfTagsAreNamesOrNumbers)
{
    // No two tags share a name, and a tag has the same one every time.
    std::map<std::wstring, ULONG> tagsOfNames;
    Tests::RunCases("property tags", 150'000,
                    [&](Random& random)
                    {
                        std::vector<ULONG> tags(1);
                        std::vector<SPropValue> values;
                        std::wstring expected;
                        for (std::size_t left = random.Below(5) + 1; left > 0; --left)
                        {
                            const ULONG tag = Tests::MakeTag(random);
                            const std::wstring name = Text(Mapi::FormatMapiPropertyTag(tag));
                            if (name.starts_with(L"PR_"))
                                ASSERT_EQ(tagsOfNames.try_emplace(name, tag).first->second, tag);
                            else
                                ASSERT_EQ(name, Hexadecimal(tag));
                            expected += (expected.empty() ? L"" : L", ") + name;
                            tags.push_back(tag);
                            values.emplace_back().ulPropTag = tag;
                        }
                        tags[0] = static_cast<ULONG>(values.size());
                        ASSERT_EQ(Text(Mapi::FormatMapiPropertyTags(reinterpret_cast<SPropTagArray*>(tags.data()))),
                                  expected);
                        ASSERT_EQ(Text(Mapi::FormatMapiPropertyTags(values.data(), tags[0])), expected);
                    });
    if (Tests::GetRunSettings().onlyCase < 0)
        EXPECT_GT(tagsOfNames.size(), 10u);
}

TEST(GeneratedTexts, OfSearchFlagsNameEveryBitOnce)
{
    const std::map<std::wstring, ULONG> bits = {
        {L"STOP_SEARCH", 1},    {L"RESTART_SEARCH", 2},     {L"RECURSIVE_SEARCH", 4},
        {L"SHALLOW_SEARCH", 8}, {L"FOREGROUND_SEARCH", 16}, {L"BACKGROUND_SEARCH", 32},
    };
    Tests::RunCases("search flags", 150'000,
                    [&](Random& random)
                    {
                        const auto flags = static_cast<ULONG>(random.Chance(1, 2) ? random.Below(0x80) : random.Next());
                        const std::wstring text = Text(Mapi::FormatSetSearchCriteriaFlags(flags)) + L" | ";
                        ULONG sum = 0;
                        std::size_t at = 0;
                        for (std::size_t end = 0; (end = text.find(L" | ", at)) != std::wstring::npos; at = end + 3)
                        {
                            const std::wstring part = text.substr(at, end - at);
                            const auto known = bits.find(part);
                            wchar_t* rest = nullptr;
                            const ULONG bit =
                                known != bits.end() ? known->second : std::wcstoul(part.c_str(), &rest, 0);
                            ASSERT_TRUE(known != bits.end() || (rest && *rest == L'\0')) << text.size();
                            ASSERT_EQ(sum & bit, 0u);
                            sum |= bit;
                        }
                        ASSERT_EQ(at, text.size());
                        ASSERT_EQ(sum, flags);
                    });
}

TEST(GeneratedTexts, OfCodesHoldTheCodeAndNoLineEnd)
{
    Tests::RunCases("codes", 40'000,
                    [](Random& random)
                    {
                        const ULONG code = MakeCode(random);
                        const auto hr = static_cast<long>(code);
                        for (const StringW& made : {FormatComError(hr), FormatSystemError(code, true)})
                        {
                            const std::wstring text = Text(made);
                            ASSERT_TRUE(Contains(text, Hexadecimal(code)));
                            ASSERT_GT(text.back(), L' ');
                        }
                        const wchar_t* const name = GetResultCodeName(hr);
                        if (name)
                            ASSERT_TRUE(Text(FormatComError(hr)).starts_with(std::wstring(name) + L" ("));
                        ASSERT_FALSE(FormatSystemError(code, false).IsEmpty());
                        const std::wstring context = Tests::MakeText(random);
                        const std::wstring joined = Text(FormatErrorWithContext(FormatComError(hr), context.c_str()));
                        ASSERT_EQ(joined, (context.empty() ? L"" : context + L": ") + Text(FormatComError(hr)));
                    });
}

TEST(GeneratedTexts, OfExtendedErrorsHoldWhatTheObjectSaid)
{
    Tests::RunCases("extended errors", 80'000,
                    [](Random& random)
                    {
                        const auto hr = static_cast<long>(MakeCode(random));
                        std::wstring text = Tests::MakeText(random);
                        std::wstring component = Tests::MakeText(random);
                        const std::wstring context = Tests::MakeText(random);
                        MAPIERROR error = {MAPI_ERROR_VERSION, text.data(), component.data(),
                                           static_cast<ULONG>(random.Next()), static_cast<ULONG>(random.Next())};
                        if (random.Chance(1, 10))
                            error.lpszError = nullptr;
                        if (random.Chance(1, 10))
                            error.lpszComponent = nullptr;
                        const std::wstring shown = Text(Mapi::FormatMapiError(hr, context.c_str(), &error));
                        ASSERT_TRUE(shown.starts_with(context.empty() ? Text(FormatComError(hr)) : context + L": "));
                        if (error.lpszError)
                            ASSERT_TRUE(Contains(shown, text));
                        if (error.lpszComponent)
                            ASSERT_TRUE(Contains(shown, component));
                        if (error.ulLowLevelError)
                            ASSERT_TRUE(Contains(shown, Hexadecimal(error.ulLowLevelError)));
                        ASSERT_EQ(Text(Mapi::FormatMapiError(hr, context.c_str(), nullptr)),
                                  Text(FormatErrorWithContext(FormatComError(hr), context.c_str())));

                        // An exception that carries it says the same, also as a copy.
                        const Mapi::MapiErrorPointer wide = Mapi::CreateMapiError(MAPI_UNICODE, error);
                        const Mapi::CMapiError exception(hr, wide, context.c_str());
                        const Mapi::CMapiError copy(exception);
                        ASSERT_EQ(Text(copy.Format()), shown);
                        ASSERT_EQ(Text(copy.GetErrorText()), error.lpszError ? text : L"");
                        ASSERT_EQ(Text(copy.GetComponent()), error.lpszComponent ? component : L"");
                        ASSERT_EQ(copy.GetLowLevelError(), error.ulLowLevelError);
                        ASSERT_EQ(copy.GetErrorContext(), error.ulContext);
                        ASSERT_TRUE(FAILED(copy.GetHResult()));

                        const Mapi::MapiErrorPointer narrow = Mapi::CreateMapiError(0, error);
                        ASSERT_EQ(narrow->ulLowLevelError, error.ulLowLevelError);
                        if (error.lpszError)
                            ASSERT_EQ(std::string(reinterpret_cast<const char*>(narrow->lpszError)), AnsiOf(text));
                        if (error.lpszComponent)
                            ASSERT_EQ(std::string(reinterpret_cast<const char*>(narrow->lpszComponent)),
                                      AnsiOf(component));
                    });
}

TEST(GeneratedTexts, AreLoggedAsTheyAre)
{
    static std::wstring last;
    static const std::wstring noText = L"(no text)";
    Logging::SetLogSink([](void*, const Logging::LogLine& line) { last = line.text; }, nullptr);
    Tests::RunCases("log lines", 300'000,
                    [](Random& random)
                    {
                        const std::wstring text = Tests::MakeText(random);
                        // No line is empty.
                        const std::wstring& line = text.empty() ? noText : text;
                        const auto level = static_cast<LogId>(random.Below(4));
                        LogEntry(level, text.c_str());
                        ASSERT_EQ(last, line);
                        last.clear();
                        LogDetails(level, text.c_str());
                        ASSERT_EQ(last, line);
                        const auto number = static_cast<std::size_t>(random.Next());
                        LogFormattedEntry(level, L"[%s] %Iu", text.c_str(), number);
                        ASSERT_EQ(last, L"[" + text + L"] " + std::to_wstring(number));
                        last = L"unchanged";
                        LogFormattedEntry(LogId::Trace, L"%s", text.c_str());
                        ASSERT_EQ(last, L"unchanged");
                    });
    Logging::SetLogSink([](void*, const Logging::LogLine&) {}, nullptr);
}

TEST(GeneratedTexts, OfExceptionsAreTheirMessages)
{
    Tests::RunCases("exceptions", 40'000,
                    [](Random& random)
                    {
                        const std::wstring text = Tests::MakeText(random);
                        const CRuntimeError runtime(text.c_str());
                        ASSERT_EQ(Text(runtime.Format()), text);
                        const CRuntimeError copy(runtime);
                        ASSERT_EQ(Text(copy.Format()), text);
                        const auto code = static_cast<DWORD>(MakeCode(random));
                        const CWinError win(code, text.c_str());
                        ASSERT_EQ(Text(win.Format()),
                                  Text(FormatErrorWithContext(FormatSystemError(code, true), text.c_str())));
                        ASSERT_TRUE(FAILED(win.GetHResult()));
                        // Not every text has a UTF-8 form, but every exception has one for its message.
                        ASSERT_EQ(*runtime.what() == '\0', text.empty());
                    });
}
