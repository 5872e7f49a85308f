// Files of real shape: what registering and unregistering leave of them, and what the platform's own functions do.
#include "tests/setup/MapiSvcInf.h"
#include "nst/StoreProviderRegistration.h"
#include "tests/common/Setting.h"

#include <gmock/gmock.h>

#include <functional>

using Tests::InfEntry;
using Tests::ReadInf;
using namespace Quillon::OutlookAddIn;

namespace
{

std::string WithLineFeeds(std::string text)
{
    std::erase(text, '\r');
    return text;
}

/// Every byte as a wide character of its own; the sample's letters beyond ASCII have the same number in both.
std::string InUtf16(const std::string& text)
{
    std::string wide = "\xFF\xFE";
    for (const char character : text)
        wide.append(1, character).append(1, '\0');
    return wide;
}

std::string InUtf8(const std::string& text)
{
    std::string narrow = "\xEF\xBB\xBF";
    for (const char character : text)
    {
        const auto code = static_cast<unsigned char>(character);
        if (code < 0x80)
            narrow += character;
        else
            narrow.append(1, static_cast<char>(0xC0 | code >> 6)).append(1, static_cast<char>(0x80 | (code & 0x3F)));
    }
    return narrow;
}

std::string Large()
{
    std::string services = "; a computer with very many services\r\n[Services]\r\n";
    std::string sections;
    for (int index = 0; index < 3000; ++index)
    {
        const std::string name = "SVC" + std::to_string(index);
        services += name + "=Service number " + std::to_string(index) + "\r\n";
        sections += "; " + name + "\r\n[" + name + "]\r\nPR_DISPLAY_NAME=Service number " + std::to_string(index) +
                    "\r\nProviders=" + name + "_P\r\nPR_SERVICE_DLL_NAME=svc.dll\r\n[" + name +
                    "_P]\r\nPR_RESOURCE_TYPE=MAPI_STORE_PROVIDER\r\n";
    }
    return services + sections;
}

struct Shape
{
    const char* name;
    std::function<std::string()> make;
};

void PrintTo(const Shape& shape, std::ostream* stream)
{
    *stream << shape.name;
}

class MapiSvcInf : public testing::TestWithParam<Shape>
{
};

void Register(const std::wstring& path)
{
    RegisterStoreProvider(L"ArchiveSvc", L"My Archive", L"ArchiveHost.dll", path.c_str(), L"");
}

/// What the INI functions make of these bytes when an entry is added and removed again.
std::string LeftByThePlatform(const std::string& bytes)
{
    const Tests::TempFolder folder;
    Tests::WriteFileBytes(folder / L"x.inf", bytes);
    return Tests::AsThePlatformLeavesIt(folder / L"x.inf");
}

} // namespace

TEST_P(MapiSvcInf, IsAfterwardsAsThePlatformLeavesItByItself)
{
    const Tests::TempFolder folder;
    const std::wstring path = folder / L"MAPISVC.INF";
    const std::string before = GetParam().make();
    Tests::WriteFileBytes(path, before);
    const std::string leftByThePlatform = Tests::AsThePlatformLeavesIt(path);

    Register(path);
    for (const InfEntry& entry : Tests::ExpectedEntries(L"ArchiveSvc", L"My Archive", L"ArchiveHost.dll", L""))
        EXPECT_EQ(ReadInf(path, entry.section, entry.key), entry.value);
    const std::string registered = Tests::ReadFileBytes(path);

    Register(path);
    EXPECT_TRUE(Tests::ReadFileBytes(path) == registered) << "registering again changed the file";

    UnregisterStoreProvider(L"ArchiveSvc", path.c_str());
    const std::string after = Tests::ReadFileBytes(path);
    EXPECT_TRUE(after == leftByThePlatform);
    EXPECT_EQ(Tests::SpeakingLines(after), Tests::SpeakingLines(before));

    UnregisterStoreProvider(L"ArchiveSvc", path.c_str());
    EXPECT_TRUE(Tests::ReadFileBytes(path) == after) << "unregistering again changed the file";
}

// A file that was once through the INI functions is given back byte for byte.
TEST_P(MapiSvcInf, OnceWrittenByThePlatformIsGivenBackByteForByte)
{
    const Tests::TempFolder folder;
    const std::wstring path = folder / L"MAPISVC.INF";
    const std::string before = LeftByThePlatform(GetParam().make());
    Tests::WriteFileBytes(path, before);
    Register(path);
    EXPECT_FALSE(Tests::ReadFileBytes(path) == before);
    UnregisterStoreProvider(L"ArchiveSvc", path.c_str());
    EXPECT_TRUE(Tests::ReadFileBytes(path) == before);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, MapiSvcInf,
    testing::Values(Shape{"Sample", Tests::SampleInf},
                    Shape{"LineFeeds", [] { return WithLineFeeds(Tests::SampleInf()); }},
                    Shape{"Utf8WithMark", [] { return InUtf8(Tests::SampleInf()); }},
                    Shape{"Utf16WithMark", [] { return InUtf16(Tests::SampleInf()); }}, Shape{"Large", Large},
                    Shape{"NoEndOfLine", [] { return std::string("[Services]\r\nOther=Other service"); }}),
    [](const auto& shape) { return std::string(shape.param.name); });

TEST(MapiSvcInfWithoutServices, KeepsTheEmptySection)
{
    for (const std::string before : {"", "; nothing but a comment\r\n"})
    {
        const Tests::TempFolder folder;
        const std::wstring path = folder / L"MAPISVC.INF";
        Tests::WriteFileBytes(path, before);
        Register(path);
        EXPECT_EQ(ReadInf(path, L"Services", L"ArchiveSvc"), L"My Archive");
        UnregisterStoreProvider(L"ArchiveSvc", path.c_str());
        EXPECT_EQ(Tests::ReadFileBytes(path), before + "[Services]\r\n");
    }
}

TEST(MapiSvcInfValues, AreKeptInUnicodeFiles)
{
    for (const char* const mark : {"\xFF\xFE", "\xEF\xBB\xBF"})
    {
        const Tests::TempFolder folder;
        const std::wstring path = folder / L"MAPISVC.INF";
        Tests::WriteFileBytes(path, mark);
        const std::wstring displayName = L"Arch\u00EDv \u20AC \u6F22\u5B57 \xD83D\xDDC4";
        RegisterStoreProvider(L"Svc", displayName.c_str(), L"h\u00F6st.dll", path.c_str(), L"");
        for (const InfEntry& entry : Tests::ExpectedEntries(L"Svc", displayName, L"h\u00F6st.dll", L""))
            EXPECT_EQ(ReadInf(path, entry.section, entry.key), entry.value);
    }
}

// docs/mapisvc-inf.md describes these.
TEST(IniFunctions, KeepCommentsAndOrder)
{
    EXPECT_EQ(LeftByThePlatform("; head\r\n[A]\r\nx=1\r\n;inside\r\ny=2\r\n[B]\r\n; last\r\n"),
              "; head\r\n[A]\r\nx=1\r\n;inside\r\ny=2\r\n[B]\r\n; last\r\n");
    EXPECT_EQ(LeftByThePlatform("[A]\r\nno equals sign\r\nx=1\r\nx=2\r\n\"q\"=\"v\"\r\nempty=\r\n[a]\r\nx=3\r\n"),
              "[A]\r\nno equals sign\r\nx=1\r\nx=2\r\n\"q\"=\"v\"\r\nempty=\r\n[a]\r\nx=3\r\n");
}

TEST(IniFunctions, DropBlankLinesAndBlanks)
{
    EXPECT_EQ(LeftByThePlatform("\r\n[A]  ; behind\r\n\r\n  x  =  1  \r\n\t; moved in\r\n   \r\ny=a b\r\n"),
              "[A]\r\nx=1\r\n; moved in\r\ny=a b\r\n");
}

TEST(IniFunctions, EndEveryLineWithCarriageReturnAndLineFeed)
{
    EXPECT_EQ(LeftByThePlatform("[A]\nx=1\n; c\ny=2"), "[A]\r\nx=1\r\n; c\r\ny=2\r\n");
}

TEST(IniFunctions, KeepTheByteOrderMark)
{
    EXPECT_EQ(LeftByThePlatform("\xEF\xBB\xBF[A]\r\nx=\xC3\xA4\r\n"), "\xEF\xBB\xBF[A]\r\nx=\xC3\xA4\r\n");
    EXPECT_EQ(LeftByThePlatform(InUtf16("[A]\r\nx=\xE4\r\n")), InUtf16("[A]\r\nx=\xE4\r\n"));
}

TEST(IniFunctions, RuinUtf16WithoutAMark)
{
    const std::string bytes = InUtf16("[A]\r\nx=1\r\n").substr(2);
    EXPECT_EQ(LeftByThePlatform(bytes).find('x'), std::string::npos);
}

TEST(IniFunctions, CountACommentToTheSectionAboveIt)
{
    const Tests::TempFolder folder;
    const std::wstring path = folder / L"x.inf";
    Tests::WriteFileBytes(path, "[A]\r\nx=1\r\n; of B\r\n[B]\r\ny=2\r\n");
    ASSERT_TRUE(WritePrivateProfileStringW(L"A", nullptr, nullptr, path.c_str()));
    EXPECT_EQ(Tests::ReadFileBytes(path), "[B]\r\ny=2\r\n");
    Tests::WriteFileBytes(path, "[A]\r\nx=1\r\n; of B\r\n[B]\r\ny=2\r\n");
    ASSERT_TRUE(WritePrivateProfileStringW(L"A", L"new", L"3", path.c_str()));
    EXPECT_EQ(Tests::ReadFileBytes(path), "[A]\r\nx=1\r\n; of B\r\nnew=3\r\n[B]\r\ny=2\r\n");
}

TEST(IniFunctions, LeaveTheFileAloneWhereNothingChanges)
{
    const Tests::TempFolder folder;
    const std::wstring path = folder / L"x.inf";
    const std::string before = "\r\n[A]\n  x = 1\n\n";
    Tests::WriteFileBytes(path, before);
    ASSERT_TRUE(WritePrivateProfileStringW(L"A", L"x", L"1", path.c_str()));
    ASSERT_TRUE(WritePrivateProfileStringW(L"A", L"none", nullptr, path.c_str()));
    ASSERT_TRUE(WritePrivateProfileStringW(L"None", nullptr, nullptr, path.c_str()));
    EXPECT_EQ(Tests::ReadFileBytes(path), before);
}

TEST(IniFunctions, LoseWhatTheCodePageLacks)
{
    const Tests::TempFolder folder;
    const std::wstring path = folder / L"x.inf";
    Tests::WriteFileBytes(path, "[A]\r\n");
    ASSERT_TRUE(WritePrivateProfileStringW(L"A", L"x", L"\u00E4\u6F22", path.c_str()));
    EXPECT_EQ(Tests::ReadFileBytes(path), "[A]\r\nx=\xE4?\r\n");
}
