// The library's strings and buffers against the standard library's.
#include "nst/StoreProviderRegistration.h"
#include "support/Binary.h"
#include "support/Exceptions.h"
#include "support/Format.h"
#include "support/Os.h"
#include "support/StringW.h"
#include "tests/common/Setting.h"
#include "tests/generated/Generator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

using namespace Quillon;
using Tests::Bytes;
using Tests::Random;
using Tests::Text;

namespace
{

/// UTF-8 by hand; what is no character becomes U+FFFD.
std::string Utf8(const std::wstring& text)
{
    std::string bytes;
    const auto put = [&](unsigned lead, unsigned character, int shift)
    {
        bytes += static_cast<char>(lead | character >> shift);
        while ((shift -= 6) >= 0)
            bytes += static_cast<char>(0x80 | (character >> shift & 0x3F));
    };
    for (std::size_t at = 0; at < text.size(); ++at)
    {
        unsigned character = text[at];
        const bool isHigh = character >= 0xD800 && character < 0xDC00;
        if (isHigh && at + 1 < text.size() && text[at + 1] >= 0xDC00 && text[at + 1] < 0xE000)
            character = 0x10000 + (character - 0xD800) * 0x400 + (text[++at] - 0xDC00u);
        else if (character >= 0xD800 && character < 0xE000)
            character = 0xFFFD;
        if (character < 0x80)
            bytes += static_cast<char>(character);
        else if (character < 0x800)
            put(0xC0, character, 6);
        else if (character < 0x10000)
            put(0xE0, character, 12);
        else
            put(0xF0, character, 18);
    }
    return bytes;
}

bool IsSurrogate(wchar_t character, unsigned first)
{
    return character >= first && character < first + 0x400;
}

bool HasLoneSurrogate(const std::wstring& text)
{
    for (std::size_t at = 0; at < text.size(); ++at)
        if (IsSurrogate(text[at], 0xD800) && at + 1 < text.size() && IsSurrogate(text[at + 1], 0xDC00))
            ++at;
        else if (IsSurrogate(text[at], 0xD800) || IsSurrogate(text[at], 0xDC00))
            return true;
    return false;
}

StringW MakeString(const std::wstring& text)
{
    return StringW(text.data(), text.size());
}

} // namespace

TEST(GeneratedStrings, DoWhatAStandardStringDoes)
{
    Tests::RunCases("strings", 150'000,
                    [](Random& random)
                    {
                        StringW string;
                        std::wstring model;
                        for (std::size_t left = random.Below(12); left > 0; --left)
                        {
                            const std::wstring text = Tests::MakeText(random);
                            const auto number = static_cast<int>(random.Next());
                            switch (random.Below(11))
                            {
                            case 0:
                                string.Append(text.data(), text.size());
                                model += text;
                                break;
                            case 1:
                                string += text.c_str();
                                model += text;
                                break;
                            case 2:
                                string += L'%';
                                model += L'%';
                                break;
                            case 3:
                                string.AppendFormat(L"<%s|%d>", text.c_str(), number);
                                model += L"<" + text + L"|" + std::to_wstring(number) + L">";
                                break;
                            case 4: // of its own characters
                            {
                                if (model.size() > 4000)
                                    break;
                                const std::size_t at = random.Below(model.size() + 1);
                                string.Append(string.GetString() + at, string.GetLength() - at);
                                model += model.substr(at);
                                break;
                            }
                            case 5:
                                if (model.size() > 4000)
                                    break;
                                string.AppendFormat(L"%s%s", string.GetString(), string.GetString());
                                model += model + model;
                                break;
                            case 6:
                                string.Reserve(random.Below(500));
                                break;
                            case 7:
                                string = MakeString(text) + string;
                                model.insert(0, text);
                                break;
                            case 8:
                                string = text.c_str() + string + text.c_str();
                                model = text + model + text;
                                break;
                            case 9:
                            {
                                StringW moved(std::move(string));
                                string = StringW(L"left behind");
                                string = std::move(moved);
                                break;
                            }
                            default:
                            {
                                const StringW copy(string);
                                string = copy;
                                break;
                            }
                            }
                            ASSERT_EQ(string.GetLength(), model.size());
                        }
                        ASSERT_EQ(Text(string), model);
                        ASSERT_EQ(string.GetString()[string.GetLength()], L'\0');
                        ASSERT_EQ(string.IsEmpty(), model.empty());
                        ASSERT_TRUE(string == MakeString(model));
                        ASSERT_TRUE(string == model.c_str());
                        ASSERT_FALSE(string == MakeString(model + L"x"));
                    });
}

TEST(GeneratedStrings, FormatTextsAsData)
{
    Tests::RunCases("formatted texts", 200'000,
                    [](Random& random)
                    {
                        const std::wstring first = Tests::MakeText(random);
                        const std::wstring second = Tests::MakeText(random);
                        const auto size = static_cast<std::size_t>(random.Next());
                        const auto number = static_cast<unsigned>(random.Next());
                        wchar_t hexadecimal[16] = {};
                        std::swprintf(hexadecimal, 16, L"%08X", number);
                        ASSERT_EQ(
                            Text(FormatString(L"%s %Iu %s 0x%08X %%", first.c_str(), size, second.c_str(), number)),
                            first + L" " + std::to_wstring(size) + L" " + second + L" 0x" + hexadecimal + L" %");
                    });
}

TEST(GeneratedStrings, AreNarrowedAndWidened)
{
    Tests::RunCases("narrow strings", 300'000,
                    [](Random& random)
                    {
                        const std::wstring text = Tests::MakeText(random);
                        const StringA utf8(MakeString(text), CP_UTF8);
                        const std::string expected = Utf8(text);
                        ASSERT_EQ(utf8.GetString(), expected);
                        ASSERT_EQ(utf8.GetLength(), expected.size());
                        const StringA copy(utf8);
                        ASSERT_EQ(copy.GetString(), expected);
                        if (!HasLoneSurrogate(text))
                            ASSERT_EQ(Text(copy.GetUnicode(CP_UTF8)), text);

                        // Of bytes that are no text something is made all the same.
                        const std::string narrow = Tests::MakeNarrowText(random);
                        const StringA string(narrow.c_str());
                        ASSERT_EQ(string.GetString(), narrow);
                        for (const unsigned codePage : {unsigned(CP_ACP), unsigned(CP_UTF8), 1252u})
                            ASSERT_EQ(string.GetUnicode(codePage).IsEmpty(), narrow.empty());
                        const StringA ansi(MakeString(text));
                        ASSERT_EQ(ansi.GetLength() == 0, text.empty());
                        ASSERT_EQ(std::strlen(ansi.GetString()), ansi.GetLength());
                    });
}

TEST(GeneratedStrings, KeepZerosInTheirMiddle)
{
    Tests::RunCases("texts with zeros", 100'000,
                    [](Random& random)
                    {
                        std::wstring text = Tests::MakeText(random);
                        text.insert(random.Below(text.size() + 1), 1, L'\0');
                        const StringW string = MakeString(text);
                        StringW copy(string);
                        ASSERT_EQ(Text(copy), text);
                        copy = copy + MakeString(text);
                        ASSERT_EQ(Text(copy), text + text);
                        const StringA narrow(string, CP_UTF8);
                        ASSERT_EQ(std::string(narrow.GetString(), narrow.GetLength()), Utf8(text));
                        const StringA narrowCopy(narrow);
                        ASSERT_EQ(std::string(narrowCopy.GetString(), narrowCopy.GetLength()), Utf8(text));
                        if (!HasLoneSurrogate(text))
                            ASSERT_EQ(Text(narrowCopy.GetUnicode(CP_UTF8)), text);
                    });
}

TEST(GeneratedBinaries, DoWhatAVectorDoes)
{
    Tests::RunCases(
        "binaries", 100'000,
        [](Random& random)
        {
            Binary binary;
            Bytes model;
            bool isNull = true;
            for (std::size_t left = random.Below(12); left > 0; --left)
            {
                const Bytes bytes = Tests::MakeBytes(random, 3000);
                switch (random.Below(9))
                {
                case 0:
                case 1:
                    binary.Append(bytes.data(), bytes.size());
                    model.insert(model.end(), bytes.begin(), bytes.end());
                    isNull = false;
                    break;
                case 2:
                {
                    const std::size_t size = random.Below(2 * model.size() + 8);
                    binary.SetSize(size);
                    model.resize(size);
                    isNull = false;
                    break;
                }
                case 3:
                    binary.Reserve(random.Below(300));
                    isNull = false;
                    break;
                case 4: // of its own bytes
                    if (isNull || model.size() > 4000)
                        break;
                    {
                        const std::size_t at = random.Below(model.size() + 1);
                        const Bytes tail(model.begin() + static_cast<std::ptrdiff_t>(at), model.end());
                        binary.Append(binary.GetBuffer() + at, binary.GetSize() - at);
                        model.insert(model.end(), tail.begin(), tail.end());
                    }
                    break;
                case 5:
                    binary = Binary(Value(std::move(binary)));
                    break;
                case 6: // no bytes, but a size
                    EXPECT_THROW(binary.Append(nullptr, random.Below(100) + 1), CComError);
                    break;
                case 7:
                {
                    Value value(std::move(binary));
                    const Value copy(value);
                    ASSERT_EQ(copy.IsEmpty(), isNull);
                    ASSERT_EQ(copy.GetSize(), model.size());
                    binary = Binary(std::move(value));
                    break;
                }
                default:
                {
                    const Binary copy(binary);
                    binary = copy;
                    break;
                }
                }
                ASSERT_EQ(binary.GetSize(), model.size());
                ASSERT_EQ(binary.IsNull(), isNull);
            }
            if (!isNull)
                ASSERT_EQ(Bytes(binary.GetBuffer(), binary.GetBuffer() + binary.GetSize()), model);
            if (model.size() < 1024)
            {
                ASSERT_EQ(Text(binary.FormatSize()),
                          std::to_wstring(model.size()) + (model.size() == 1 ? L" byte" : L" bytes"));
            }
            else
            {
                ASSERT_TRUE(Text(binary.FormatSize()).ends_with(L" KB (" + std::to_wstring(model.size()) + L" bytes)"));
            }
        });
}

TEST(GeneratedPaths, AreTakenApartAndJoined)
{
    Tests::RunCases("paths", 200'000,
                    [](Random& random)
                    {
                        const std::wstring path =
                            random.Chance(1, 3) ? Tests::MakeTextOf(random, L"\\/:abC. ", 12) : Tests::MakeText(random);
                        // The name is what follows the last separator, or the colon of a drive.
                        std::size_t before = path.find_last_of(L"\\/");
                        before = before == std::wstring::npos ? 0 : before + 1;
                        if (before < 2 && path.size() >= 2 && path[1] == L':')
                            before = 2;
                        ASSERT_EQ(Text(Os::GetNameFromPath(MakeString(path))), path.substr(before));
                        const std::wstring directory = Text(Os::GetDirectoryFromPath(MakeString(path)));
                        // All that stands in front of it but, where that is no root, the separator.
                        ASSERT_TRUE(path.starts_with(directory));
                        ASSERT_LE(before - directory.size(), 1u);
                        if (directory.size() != before)
                            ASSERT_TRUE(path[directory.size()] == L'\\' || path[directory.size()] == L'/');

                        const std::wstring right =
                            random.Chance(1, 2) ? Tests::MakeTextOf(random, L"\\/ab", 6) : Tests::MakeText(random);
                        const std::wstring joined = Text(Os::AppendPaths(MakeString(path), MakeString(right)));
                        if (path.empty() || right.empty())
                        {
                            ASSERT_EQ(joined, path + right);
                        }
                        else
                        {
                            const std::size_t end = path.find_last_not_of(L"\\/");
                            const std::size_t begin = std::min(right.find_first_not_of(L"\\/"), right.size());
                            ASSERT_EQ(joined, path.substr(0, end == std::wstring::npos ? 0 : end + 1) + L"\\" +
                                                  right.substr(begin));
                        }
                        ASSERT_EQ(Text(OutlookAddIn::GetStoreProviderNameFromServiceName(MakeString(path))),
                                  path + L"_P");
                    });
}
