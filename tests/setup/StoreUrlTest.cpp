// The store's URL: scheme, user, hash and escaping.
#include "nst/KivNstCore.h"

#include "support/Exceptions.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Setting.h"

#include <gmock/gmock.h>

#include <sstream>

using namespace Quillon;
using namespace Quillon::Nst;
using testing::ElementsAre;
using testing::IsEmpty;
using Tests::Text;

namespace
{

/// A program whose version resource says this ("16"), or that has none ("none").
std::wstring OutlookOfVersion(const std::wstring& version)
{
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    const auto folder = std::filesystem::path(path).parent_path().parent_path();
    return (folder / L"outlook-versions" / (L"outlook-" + version + L".exe")).make_preferred().wstring();
}

/// The mail client's program is a copy, by the name that it always has, of one of the programs above.
class InstalledOutlook
{
public:
    explicit InstalledOutlook(const std::wstring& version)
    {
        const std::wstring path = m_folder / L"OUTLOOK.EXE";
        EXPECT_TRUE(CopyFileW(OutlookOfVersion(version).c_str(), path.c_str(), TRUE));
        m_registry.SetOutlookPath(path);
    }

private:
    Tests::TempFolder m_folder;
    Tests::ScratchRegistry m_registry;
};

/// The current user's security identifier, written out from its bytes.
std::wstring UserSid()
{
    HANDLE token = nullptr;
    EXPECT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
    alignas(TOKEN_USER) BYTE buffer[256] = {};
    DWORD size = 0;
    EXPECT_TRUE(GetTokenInformation(token, TokenUser, buffer, sizeof(buffer), &size));
    CloseHandle(token);
    const auto* const sid = static_cast<const BYTE*>(reinterpret_cast<const TOKEN_USER*>(buffer)->User.Sid);
    // Revision, count, six bytes of authority with the highest first, then numbers of four bytes, lowest first.
    unsigned long long authority = 0;
    for (int index = 2; index < 8; ++index)
        authority = authority << 8 | sid[index];
    std::wstring text = L"S-" + std::to_wstring(sid[0]) + L"-" + std::to_wstring(authority);
    for (int index = 0; index < sid[1]; ++index)
    {
        const BYTE* const number = sid + 8 + std::ptrdiff_t{4} * index;
        text += L"-" +
                std::to_wstring(number[0] | number[1] << 8 | number[2] << 16 | static_cast<unsigned>(number[3]) << 24);
    }
    return text;
}

Binary Bytes(const std::string& hex)
{
    Binary bytes;
    for (std::size_t at = 0; at + 1 < hex.size(); at += 2)
    {
        const auto byte = static_cast<BYTE>(std::stoul(hex.substr(at, 2), nullptr, 16));
        bytes.Append(&byte, 1);
    }
    return bytes;
}

std::wstring Units(const std::string& hex)
{
    std::wstring text;
    std::istringstream stream(hex == "-" ? "" : hex);
    for (std::string unit; stream >> unit;)
        text += static_cast<wchar_t>(std::stoul(unit, nullptr, 16));
    return text;
}

StringW ToString(const std::wstring& text)
{
    return StringW(text.c_str(), text.size());
}

} // namespace

TEST(MapiUrlScheme, DependsOnTheMailClientsVersion)
{
    const std::pair<const wchar_t*, const wchar_t*> schemes[] = {
        {L"11", L"mapi"}, {L"12", L"mapi"}, {L"14", L"mapi"}, {L"15", L"mapi15"}, {L"16", L"mapi16"}, {L"17", L"mapi"}};
    for (const auto& [version, scheme] : schemes)
    {
        const InstalledOutlook outlook(version);
        EXPECT_EQ(Text(GetMapiUrlScheme()), scheme) << Tests::Narrow(version);
    }
}

TEST(MapiUrlScheme, ThrowsWhenTheVersionIsUnknown)
{
    const auto expectFailure = []
    {
        const auto throwing =
            Tests::Throwing(L"KivNstCore.cpp", L"GetMapiUrlScheme", L"Unable to determine Outlook version");
        Tests::LogCapture log;
        EXPECT_THROW(GetMapiUrlScheme(), CRuntimeError);
        EXPECT_THAT(log.Take(), ElementsAre(throwing));
        EXPECT_THROW(GetStoreMapiUrl(Binary(), L"x"), CRuntimeError);
        EXPECT_THAT(log.Take(), ElementsAre(throwing));
    };
    {
        SCOPED_TRACE("a program without a version");
        const InstalledOutlook outlook(L"none");
        expectFailure();
    }
    {
        SCOPED_TRACE("no mail client");
        const Tests::ScratchRegistry registry;
        expectFailure();
    }
}

TEST(StoreUrl, NamesSchemeUserStoreAndHash)
{
    const std::wstring user = UserSid();
    EXPECT_EQ(user.substr(0, 6), L"S-1-5-");
    const BYTE id[] = {1, 0, 0, 0, 2};
    for (const wchar_t* const version : {L"14", L"15", L"16"})
    {
        const InstalledOutlook outlook(version);
        const std::wstring scheme = Text(GetMapiUrlScheme());
        EXPECT_EQ(Text(GetStoreMapiUrl(Binary(id, sizeof(id)), L"Archive/Mail")),
                  scheme + L"://{" + user + L"}/Archive%2FMail(23)/");
    }
}

TEST(StoreUrl, HasTheHashOfAnEmptyOrNullIdentifier)
{
    const InstalledOutlook outlook(L"16");
    const std::wstring head = L"mapi16://{" + UserSid() + L"}/";
    EXPECT_EQ(Text(GetStoreMapiUrl(Binary(), L"")), head + L"(0)/");
    const BYTE none = 0;
    EXPECT_EQ(Text(GetStoreMapiUrl(Binary(&none, 0), L"x")), head + L"x(0)/");
}

TEST(StoreUrl, WritesNothing)
{
    const InstalledOutlook outlook(L"16");
    Tests::LogCapture log;
    GetStoreMapiUrl(Binary(), L"%s%n");
    EXPECT_THAT(log.Lines(), IsEmpty());
}

// The table is made by store-urls.py, which knows nothing of the library.
TEST(StoreUrl, AgreesWithTheIndependentTable)
{
    wchar_t data[MAX_PATH] = {};
    ASSERT_NE(GetEnvironmentVariableW(L"KIVNST_TEST_DATA", data, MAX_PATH), 0u);
    std::istringstream table(Tests::ReadFileBytes(std::wstring(data) + L"\\..\\setup\\data\\store-urls.tsv"));
    const InstalledOutlook outlook(L"16");
    const std::wstring head = L"mapi16://{" + UserSid() + L"}/";
    int rows = 0;
    for (std::string line; std::getline(table, line); ++rows)
    {
        SCOPED_TRACE(line.substr(0, 200));
        std::vector<std::string> columns;
        std::istringstream stream(line);
        for (std::string column; std::getline(stream, column, '\t');)
            columns.push_back(column);
        ASSERT_EQ(columns.size(), 5u);
        const Binary id = columns[0] == "-" ? Binary() : Bytes(columns[0]);
        EXPECT_EQ(Text(GetStoreMapiUrl(id, ToString(Units(columns[1])))), head + Units(columns[3]));
        EXPECT_TRUE(columns[3].size() > columns[2].size());
    }
    EXPECT_EQ(rows, 66);
}
