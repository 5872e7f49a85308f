// A PST unwrapped and wrapped: what differs is explained, and nothing else does.
#include "tests/e2e/Browser.h"
#include "tests/e2e/Environment.h"

#include <algorithm>
#include <map>

namespace Tests
{
namespace
{
using Json = nlohmann::ordered_json;

void ExpectExplained(const std::filesystem::path& file, const std::vector<std::wstring>& setting)
{
    const std::filesystem::path folder = NewFolder();
    const std::filesystem::path copy = CopyInto(folder, file);
    std::vector<std::wstring> arguments = setting;
    arguments.insert(arguments.end(), {L"diff", copy.wstring()});
    const Json diff = RunBrowserJson(folder, arguments);
    EXPECT_EQ(diff["unexplained"], 0) << diff["differences"].dump(1);
    EXPECT_GT(diff["objects"].get<size_t>(), 5u);
    EXPECT_GT(diff["properties"].get<size_t>(), 50u);
    EXPECT_GT(diff["rows"].get<size_t>(), 2u);
    // The file that was named is left as it is, and nothing is put beside it.
    EXPECT_EQ(ContentsOf(copy), ContentsOf(file));
    std::filesystem::path overlay = copy;
    overlay += ".overlay";
    EXPECT_FALSE(std::filesystem::exists(overlay));
}

TEST(DiffTest, SmallFilesHaveNoUnexplainedDifference)
{
    for (const std::filesystem::path& file : SmallFiles())
        ExpectExplained(file, {});
}

TEST(DiffTest, OtherSettingsHaveNoUnexplainedDifference)
{
    ExpectExplained(SmallFiles()[2], {L"--plain"});
    ExpectExplained(SmallFiles()[2], {L"--modify"});
    ExpectExplained(SmallFiles()[2], {L"--plain", L"--modify"});
}

TEST(DiffTest, EnronHasNoUnexplainedDifference)
{
    const std::filesystem::path file = FetchedFile(L"enron.pst");
    REQUIRE_FETCHED(file);
    ExpectExplained(file, {});
}

// What a store has to differ in, and by which rule.
TEST(DiffTest, TheStoreDiffersInExactlyWhatMakesItAnArchive)
{
    const std::filesystem::path folder = NewFolder();
    const std::filesystem::path copy = CopyInto(folder, SmallFiles()[0]);
    const auto storeDifferences = [&](std::vector<std::wstring> arguments)
    {
        arguments.insert(arguments.end(), {L"diff", copy.wstring()});
        std::map<std::string, std::string> differences;
        const Json diff = RunBrowserJson(folder, arguments);
        for (const Json& difference : diff["differences"])
            differences[difference["property"]] = difference["wrapped"];
        return differences;
    };
    const auto archive = storeDifferences({});
    // Of these a PST provider may lack the last two.
    const std::vector<std::string> expected = {
        "PR_ACCESS",        "PR_ACCESS_LEVEL",       "PR_ENTRYID",      "PR_IPM_SUBTREE_ENTRYID",
        "PR_STORE_ENTRYID", "PR_STORE_SUPPORT_MASK", "PR_MDB_PROVIDER", "PR_STORE_UNICODE_MASK"};
    for (size_t index = 0; index + 2 < expected.size(); ++index)
        EXPECT_TRUE(archive.contains(expected[index])) << expected[index];
    for (const auto& [name, value] : archive)
        EXPECT_NE(std::find(expected.begin(), expected.end(), name), expected.end()) << name;
    EXPECT_EQ(archive.at("PR_ACCESS"), "2 (0x2)");
    EXPECT_EQ(archive.at("PR_ACCESS_LEVEL"), "0 (0x0)");
    const auto modifiable = storeDifferences({L"--modify"});
    EXPECT_FALSE(modifiable.contains("PR_ACCESS"));
    EXPECT_TRUE(modifiable.contains("PR_IPM_SUBTREE_ENTRYID"));
}
} // namespace
} // namespace Tests
