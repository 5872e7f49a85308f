// Importing a PST and comparing the archive with it, also when the import is stopped half way.
#include "tests/e2e/Browser.h"
#include "tests/e2e/Environment.h"

#include <cstdlib>
#include <functional>
#include <map>
#include <random>

namespace Tests
{
namespace
{
using Json = nlohmann::ordered_json;

void ExpectVerified(const std::filesystem::path& folder, const std::filesystem::path& source)
{
    const Json verified = RunBrowserJson(folder, {L"verify", source.wstring()});
    EXPECT_EQ(verified["missing"], Json::array());
    EXPECT_EQ(verified["different"], Json::array());
    EXPECT_GT(verified["properties"].get<size_t>(), 0u);
}

// The message count of every folder by its path.
std::map<std::string, size_t> Folders(const Json& tree)
{
    std::map<std::string, size_t> folders;
    const std::function<void(const Json&, const std::string&)> walk = [&](const Json& node, const std::string& path)
    {
        folders[path] = node["messages"];
        for (const Json& child : node["folders"])
            walk(child, path + "/" + child["name"].get<std::string>());
    };
    walk(tree, "");
    return folders;
}

TEST(ImportTest, SmallFilesAreImportedWholeAndVerified)
{
    for (const std::filesystem::path& file : SmallFiles())
    {
        const std::filesystem::path folder = NewFolder();
        const std::filesystem::path source = CopyInto(folder, file);
        const Json imported = RunBrowserJson(folder, {L"import", L"--all", source.wstring()});
        EXPECT_GT(imported["messages"].get<size_t>(), 0u) << file;
        EXPECT_EQ(imported["messages"], imported["newMessages"]) << file;
        EXPECT_EQ(imported["problems"], Json::array()) << file;
        const Json verified = RunBrowserJson(folder, {L"verify", L"--all", source.wstring()});
        EXPECT_EQ(verified["missing"], Json::array()) << file;
        EXPECT_EQ(verified["different"], Json::array()) << file;
        EXPECT_EQ(ContentsOf(source), ContentsOf(file));
        // A source is only read.
        std::filesystem::path overlay = source;
        overlay += ".overlay";
        EXPECT_FALSE(std::filesystem::exists(overlay));
    }
}

TEST(ImportTest, EnronHasTheFoldersAndCountsThatReadpstFinds)
{
    const std::filesystem::path file = FetchedFile(L"enron.pst");
    REQUIRE_FETCHED(file);
    const std::filesystem::path folder = NewFolder();
    const Json imported = RunBrowserJson(folder, {L"import", file.wstring()});
    EXPECT_EQ(imported["newMessages"], 71);
    const auto folders = Folders(RunBrowserJson(folder, {L"tree"}));
    const std::map<std::string, size_t> readpst = {
        {"", 0},
        {"/Deleted Items", 0},
        {"/lokay-m", 0},
        {"/lokay-m/MLOKAY (Non-Privileged)", 1},
        {"/lokay-m/MLOKAY (Non-Privileged)/TW-Commercial Group", 14},
        {"/lokay-m/MLOKAY (Non-Privileged)/Systems", 7},
        {"/lokay-m/MLOKAY (Non-Privileged)/Sent Items", 2},
        {"/lokay-m/MLOKAY (Non-Privileged)/Personal", 47},
    };
    EXPECT_EQ(folders, readpst);
    ExpectVerified(folder, file);
}

TEST(ImportTest, ASecondRunImportsNothingAgain)
{
    const std::filesystem::path folder = NewFolder();
    const std::filesystem::path source = SampleInto(folder, 3, 10);
    EXPECT_EQ(RunBrowserJson(folder, {L"import", source.wstring()})["newMessages"], 30);
    const Json again = RunBrowserJson(folder, {L"import", source.wstring()});
    EXPECT_EQ(again["messages"], 30);
    EXPECT_EQ(again["newMessages"], 0);
    EXPECT_EQ(again["newFolders"], 0);
    ExpectVerified(folder, source);
}

TEST(ImportTest, AnImportThatWasKilledIsFinishedByTheNextWithoutDuplicates)
{
    const std::filesystem::path folder = NewFolder();
    const std::filesystem::path source = SampleInto(folder, 4, 60);
    // Each run is killed as soon as one more folder than before has come through, in the midst of the next.
    size_t lines = 0;
    const auto oneMoreFolder = [&lines](const std::string& output)
    {
        size_t count = 0;
        for (size_t at = output.find(" new\n"); at != std::string::npos; at = output.find(" new\n", at + 1))
            ++count;
        return count > lines;
    };
    ASSERT_TRUE(KillBrowser(folder, {L"import", source.wstring()}, oneMoreFolder));
    lines = 2;
    ASSERT_TRUE(KillBrowser(folder, {L"import", source.wstring()}, oneMoreFolder));
    // Half way: something is there, and something is missing.
    const Json half = RunBrowserJson(folder, {L"verify", source.wstring()}, 1);
    EXPECT_GT(half["missing"].size(), 0u);
    EXPECT_LT(half["missing"].size(), half["messages"].get<size_t>() + half["folders"].get<size_t>());

    const Json finished = RunBrowserJson(folder, {L"import", source.wstring()});
    EXPECT_EQ(finished["messages"], 240);
    EXPECT_LT(finished["newMessages"].get<size_t>(), 240u);
    ExpectVerified(folder, source);
    size_t total = 0;
    for (const auto& [path, count] : Folders(RunBrowserJson(folder, {L"tree"})))
        total += count;
    EXPECT_EQ(total, 240u);
}

// What the profile's archive takes on the disk, what its database has not yet taken over included.
std::uintmax_t ArchiveSize(const std::filesystem::path& folder)
{
    std::uintmax_t size = 0;
    for (const wchar_t* const part : {L".pst.overlay", L".pst.overlay-wal"})
    {
        std::error_code none;
        const auto bytes = std::filesystem::file_size(folder / (ProfileOf(folder) + part), none);
        size += none ? 0 : bytes;
    }
    return size;
}

TEST(ImportTest, AnImportThatIsKilledAnywhereGoesOnWhereItWas)
{
    constexpr size_t all = 240;
    char given[16] = {};
    const DWORD length = GetEnvironmentVariableA("KIVNST_SEED", given, sizeof(given));
    const auto seed =
        static_cast<std::uint32_t>(length != 0 && length < sizeof(given) ? std::strtoul(given, nullptr, 10) : 1);
    SCOPED_TRACE("KIVNST_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    const std::filesystem::path folder = NewFolder();
    const std::filesystem::path source = SampleInto(folder, 4, all / 4);
    size_t before = 0;
    // Each run gets somewhat further, to a random byte of what it writes; the first may not even get as far as that
    // there is a profile.
    for (int kills = 0; kills < 6; ++kills)
    {
        constexpr std::uint32_t furthest = 5000000;
        const std::uintmax_t end = ArchiveSize(folder) + random() % furthest;
        const bool killed = KillBrowser(folder, {L"import", source.wstring()},
                                        [&](const std::string&) { return ArchiveSize(folder) >= end; });
        // A machine that is slow to look may have let the first run come to its end.
        if (!killed)
        {
            before = all;
            break;
        }
        if (!Browser::ProfileExists(*TestMapi(), ProfileOf(folder)) || ArchiveSize(folder) == 0)
            continue;
        const Json half = RunBrowserJson(folder, {L"verify", source.wstring()}, 1);
        EXPECT_GT(half["missing"].size(), 0u);
        // What is there is whole; only a folder of which something is still to come counts other messages than it will,
        // and may lack sub-folders.
        for (const std::string difference : half["different"])
        {
            EXPECT_TRUE(difference.starts_with("folder ") &&
                        (difference.find(": PR_CONTENT_") != std::string::npos ||
                         difference.find(": PR_SUBFOLDERS is false instead of true") != std::string::npos))
                << difference;
        }
        size_t there = 0;
        for (const auto& [path, count] : Folders(RunBrowserJson(folder, {L"tree"})))
            there += count;
        EXPECT_GE(there, before) << "what had been imported is gone";
        before = there;
    }
    const Json finished = RunBrowserJson(folder, {L"import", source.wstring()});
    EXPECT_EQ(finished["messages"], all);
    EXPECT_EQ(finished["newMessages"], all - before);
    ExpectVerified(folder, source);
    size_t total = 0;
    for (const auto& [path, count] : Folders(RunBrowserJson(folder, {L"tree"})))
        total += count;
    EXPECT_EQ(total, all);
}

TEST(ImportTest, VerifyNamesWhatIsMissing)
{
    const std::filesystem::path folder = NewFolder();
    const std::filesystem::path source = SampleInto(folder, 2, 3);
    RunBrowserJson(folder, {L"configure", (folder / "archive.pst").wstring()});
    const Json verified = RunBrowserJson(folder, {L"verify", source.wstring()}, 1);
    EXPECT_EQ(verified["messages"], 6);
    EXPECT_EQ(verified["missing"].size(), verified["folders"].get<size_t>() + 6u);
}
} // namespace
} // namespace Tests
