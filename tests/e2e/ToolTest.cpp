// The browser's commands as a user sees them: output, errors, exit codes.
#include "tests/e2e/Browser.h"
#include "tests/e2e/Environment.h"

#include <algorithm>
#include <fstream>

namespace Tests
{
namespace
{
using Json = nlohmann::ordered_json;

// One line, for people, that starts with the program's name and ends a sentence.
void ExpectOneSentence(const BrowserRun& run, unsigned long exitCode, const std::string& part)
{
    EXPECT_EQ(run.exitCode, exitCode) << run.errors;
    EXPECT_EQ(std::count(run.errors.begin(), run.errors.end(), '\n'), 1) << run.errors;
    EXPECT_EQ(run.errors.find("archive-browser: "), 0u) << run.errors;
    EXPECT_NE(run.errors.find(part), std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.size() >= 2 ? run.errors.substr(run.errors.size() - 2) : "", ".\n") << run.errors;
}

class ToolTest : public testing::Test
{
protected:
    void SetUp() override { m_folder = NewFolder(); }

    // An archive with mail in it.
    void Import()
    {
        m_source = SampleInto(m_folder, 3, 4);
        RunBrowserJson(m_folder, {L"import", m_source.wstring()});
    }

    // The first folder of the archive that has messages, as the tree shows it.
    Json FirstFolder() const
    {
        const Json tree = RunBrowserJson(m_folder, {L"tree"});
        EXPECT_EQ(tree["name"], "Archiver Store Root");
        for (const Json& folder : tree["folders"])
            if (folder["messages"] != 0)
                return folder;
        ADD_FAILURE() << "the archive has no message";
        return {};
    }

    std::filesystem::path m_folder;
    std::filesystem::path m_source;
};

TEST_F(ToolTest, AFileThatIsNotThereIsNamed)
{
    for (const wchar_t* command : {L"import", L"verify", L"diff"})
    {
        ExpectOneSentence(RunBrowser(m_folder, {command, L"C:\\nowhere\\mail.pst"}), 1,
                          R"(There is no file "C:\nowhere\mail.pst")");
    }
    EXPECT_FALSE(Browser::ProfileExists(*TestMapi(), ProfileOf(m_folder)));
}

TEST_F(ToolTest, AFolderInPlaceOfAFileIsNamed)
{
    ExpectOneSentence(RunBrowser(m_folder, {L"import", m_folder.wstring()}), 1, "is not a file");
}

TEST_F(ToolTest, AFileThatIsNoPstIsRefusedAndLeavesNothingBehind)
{
    const std::filesystem::path file = m_folder / "letter.pst";
    std::ofstream(file) << "Dear reader, this is no mail at all, and it is long enough to look like something.";
    for (const wchar_t* command : {L"import", L"verify", L"diff", L"configure"})
        ExpectOneSentence(RunBrowser(m_folder, {command, file.wstring()}), 1, "letter.pst");
    EXPECT_FALSE(std::filesystem::exists(m_folder / "letter.pst.overlay"));
    // A configuration that failed has left no profile.
    ExpectOneSentence(RunBrowser(m_folder, {L"tree"}), 1, "There is no profile");
}

TEST_F(ToolTest, AnArchiveInAFolderThatIsNotThereIsRefused)
{
    ExpectOneSentence(RunBrowser(m_folder, {L"configure", (m_folder / "no" / "archive.pst").wstring()}), 1,
                      "There is no folder");
}

TEST_F(ToolTest, AProfileWithoutAnArchiveSaysWhatToDo)
{
    ExpectOneSentence(RunBrowser(m_folder, {L"tree"}), 1, "archive-browser import");
    Browser::CreateProfile(*TestMapi(), ProfileOf(m_folder));
    for (const std::vector<std::wstring>& arguments :
         {std::vector<std::wstring>{L"tree"}, {L"list", L"Inbox"}, {L"props", L"store"}, {L"try"}})
    {
        ExpectOneSentence(RunBrowser(m_folder, arguments), 1, "archive-browser import");
    }
    ExpectOneSentence(RunBrowser(m_folder, {L"tree"}), 1, "its services lack \"ArchiveTestSvc\"");
}

TEST_F(ToolTest, AProfileThatIsNotThereIsNamed)
{
    for (const wchar_t* command : {L"tree", L"services", L"stores", L"remove"})
        ExpectOneSentence(RunBrowser(m_folder, {L"--profile", L"No such profile", command}), 1, "\"No such profile\"");
}

TEST_F(ToolTest, WrongArgumentsGiveTwoAndHelpGivesNought)
{
    EXPECT_EQ(RunBrowser(m_folder, {}).exitCode, 2u);
    EXPECT_EQ(RunBrowser(m_folder, {L"frobnicate"}).exitCode, 2u);
    EXPECT_EQ(RunBrowser(m_folder, {L"list"}).exitCode, 2u);
    EXPECT_EQ(RunBrowser(m_folder, {L"--plain", L"--read-only", L"tree"}).exitCode, 2u);
    for (const wchar_t* command : {L"profiles", L"services", L"stores", L"configure", L"remove", L"tree", L"import",
                                   L"verify", L"list", L"show", L"props", L"try", L"diff", L"report", L"demo"})
    {
        const BrowserRun help = RunBrowser(m_folder, {command, L"--help"});
        EXPECT_EQ(help.exitCode, 0u);
        EXPECT_NE(help.output.find("Usage"), std::string::npos);
    }
    EXPECT_EQ(RunBrowser(m_folder, {L"--help"}).exitCode, 0u);
}

TEST_F(ToolTest, AnUnknownCommandIsNamed)
{
    ExpectOneSentence(RunBrowser(m_folder, {L"frobnicate"}), 2, "There is no command \"frobnicate\"");
    ExpectOneSentence(RunBrowser(m_folder, {L"--json", L"frobnicate", L"x"}), 2, "There is no command \"frobnicate\"");
    ExpectOneSentence(RunBrowser(m_folder, {L"tree", L"x"}), 2, "x");
}

TEST_F(ToolTest, CommonOptionsStandBeforeTheCommandAndBehindIt)
{
    Import();
    EXPECT_EQ(Json::parse(RunBrowser(m_folder, {L"--json", L"tree"}).output),
              Json::parse(RunBrowser(m_folder, {L"tree", L"--json"}).output));
    for (const std::vector<std::wstring>& arguments :
         {std::vector<std::wstring>{L"--version"}, {L"list", L"--version"}, {L"--version", L"tree"}})
    {
        const BrowserRun run = RunBrowser(m_folder, arguments);
        EXPECT_EQ(run.exitCode, 0u);
        EXPECT_EQ(run.output.find("archive-browser "), 0u) << run.output;
        EXPECT_EQ(run.errors, "");
    }
    EXPECT_NE(RunBrowserJson(m_folder, {L"tree", L"--version"})["version"], "");
}

TEST_F(ToolTest, FoldersAndMessagesThatAreNotThereAreNamed)
{
    Import();
    ExpectOneSentence(RunBrowser(m_folder, {L"list", L"No such folder"}), 1, "There is no folder \"No such folder\"");
    const std::string name = FirstFolder()["name"];
    const std::wstring path(name.begin(), name.end());
    ExpectOneSentence(RunBrowser(m_folder, {L"show", path + L"#99"}), 1, "There is no message 99");
    ExpectOneSentence(RunBrowser(m_folder, {L"show", path + L"#x"}), 1, "a number is expected");
    ExpectOneSentence(RunBrowser(m_folder, {L"show", path}), 1, "is no message");
    ExpectOneSentence(RunBrowser(m_folder, {L"props", path + L"#1@77"}), 1, "no number 77");
}

TEST_F(ToolTest, TreeListShowAndPropsAgree)
{
    Import();
    const Json first = FirstFolder();
    const std::string name = first["name"];
    const std::wstring path(name.begin(), name.end());
    const Json list = RunBrowserJson(m_folder, {L"list", path});
    EXPECT_EQ(list["count"], first["messages"]);
    ASSERT_EQ(list["messages"].size(), first["messages"].get<size_t>());
    const Json shown = RunBrowserJson(m_folder, {L"show", path + L"#1"});
    EXPECT_EQ(shown["subject"], list["messages"][0]["subject"]);
    EXPECT_EQ(shown["access"], 2);
    // The same by entry ID.
    const std::string entryId = list["messages"][0]["entryId"];
    EXPECT_EQ(RunBrowserJson(m_folder, {L"show", std::wstring(entryId.begin(), entryId.end())}), shown);
    EXPECT_EQ(RunBrowserJson(m_folder, {L"list", L"--limit", L"2", path})["messages"].size(), 2u);

    const Json props = RunBrowserJson(m_folder, {L"props", L"store"});
    bool access = false;
    for (const Json& property : props["properties"])
        access = access || (property["name"] == "PR_ACCESS" && property["value"] == 2);
    EXPECT_TRUE(access);
    // As text, aligned, with everything that JSON has.
    const BrowserRun text = RunBrowser(m_folder, {L"tree"});
    EXPECT_EQ(text.exitCode, 0u);
    EXPECT_NE(text.output.find("Archiver Store Root"), std::string::npos);
    EXPECT_NE(text.output.find("  " + name), std::string::npos);
    EXPECT_EQ(RunBrowser(m_folder, {L"list", path}).exitCode, 0u);
    EXPECT_EQ(RunBrowser(m_folder, {L"show", path + L"#1"}).exitCode, 0u);
    EXPECT_EQ(RunBrowser(m_folder, {L"props", path}).exitCode, 0u);
    EXPECT_EQ(RunBrowser(m_folder, {L"tree", L"--all"}).exitCode, 0u);
}

// Whether MAPI counts the opens of providers among those that exclude each other, its documentation does not say.
TEST_F(ToolTest, ProvidersProfileSectionsMayBeLocked)
{
    SetEnvironmentVariableW(L"KIVNST_TESTBED_LOCK_PROVIDER_SECTIONS", L"1");
    Import();
    EXPECT_EQ(RunBrowser(m_folder, {L"verify", m_source.wstring()}).exitCode, 0u);
    FirstFolder();
    EXPECT_EQ(RunBrowser(m_folder, {L"remove"}).exitCode, 0u);
    SetEnvironmentVariableW(L"KIVNST_TESTBED_LOCK_PROVIDER_SECTIONS", nullptr);
}

TEST_F(ToolTest, NoMoreRowsAreReadThanAreShown)
{
    const std::filesystem::path file = SampleInto(m_folder, 1, 20);
    // A table that gives its rows in portions, and one that gives all that is asked for.
    for (const wchar_t* const table : {L"rows=3", L""})
    {
        SetEnvironmentVariableW(L"KIVNST_TESTBED_TABLES", table);
        const Browser::PstSession session(TestMapi(), file);
        const Bytes top = Browser::TopOfStore(session.Memory(), session.Store());
        const auto folders = Browser::Hierarchy(*Browser::OpenFolder(session.Store(), top));
        const auto rows = Browser::ReadTable(session.Memory(), *folders, {PR_ENTRYID, PR_CONTENT_COUNT});
        const auto full = std::find_if(rows.begin(), rows.end(), [](const auto& row) { return row[1].AsLong() != 0; });
        ASSERT_NE(full, rows.end());
        const auto messages = Browser::Contents(*Browser::OpenFolder(session.Store(), full->front().AsBytes()), false);
        EXPECT_EQ(Browser::ReadTable(session.Memory(), *messages, {PR_SUBJECT_W}, 5).size(), 5u);
        ULONG read = 0;
        ULONG numerator = 0;
        ULONG denominator = 0;
        EXPECT_EQ(messages->QueryPosition(&read, &numerator, &denominator), S_OK);
        EXPECT_EQ(read, 5u) << Browser::Utf8(table);
    }
    SetEnvironmentVariableW(L"KIVNST_TESTBED_TABLES", nullptr);
}

TEST_F(ToolTest, TheSettingOptionsReachTheHost)
{
    Import();
    const auto storeAccess = [&](std::vector<std::wstring> arguments)
    {
        arguments.insert(arguments.end(), {L"props", L"store"});
        const Json props = RunBrowserJson(m_folder, arguments);
        for (const Json& property : props["properties"])
            if (property["name"] == "PR_ACCESS_LEVEL")
                return property["value"].get<int>();
        return -1;
    };
    EXPECT_EQ(storeAccess({}), 0);
    EXPECT_EQ(storeAccess({L"--modify"}), 1);
    EXPECT_EQ(storeAccess({L"--plain"}), 0);
    EXPECT_EQ(storeAccess({}), 0);
}

TEST_F(ToolTest, TheLogIsShownOnDemand)
{
    Import();
    const BrowserRun silent = RunBrowser(m_folder, {L"try"});
    EXPECT_EQ(silent.errors, "");
    const BrowserRun loud = RunBrowser(m_folder, {L"--log", L"try"});
    EXPECT_NE(loud.errors.find("[warning] IMsgStore::SetProps called on read-only archive store"), std::string::npos);
}

TEST_F(ToolTest, TheArchiveIsNotImportedIntoItself)
{
    const std::filesystem::path archive = CopyInto(m_folder, SmallFiles()[0]);
    RunBrowserJson(m_folder, {L"configure", archive.wstring()});
    ExpectOneSentence(RunBrowser(m_folder, {L"import", archive.wstring()}), 1, "is the archive itself");
}

TEST_F(ToolTest, TheDemonstrationTellsTheWholeStory)
{
    const std::filesystem::path source = SampleInto(m_folder, 4, 5);
    const BrowserRun run = RunBrowser(m_folder, {L"demo", L"--source", source.wstring()});
    EXPECT_EQ(run.exitCode, 0u) << run.output << run.errors;
    for (const char* part :
         {"20 messages", "Archiver Store Root", "PR_STORE_SUPPORT_MASK", "MAPI_E_NO_ACCESS", "Where to go next"})
    {
        EXPECT_NE(run.output.find(part), std::string::npos) << part << "\n" << run.output;
    }
    EXPECT_EQ(run.output.find("FAILED"), std::string::npos);
    // It does not take somebody's profile for its own.
    ExpectOneSentence(RunBrowser(m_folder, {L"demo"}), 1, "exists already");
}

// The folders below a tree's top, and what all of it shows and hides.
void AddUp(const Json& node, Json& counts)
{
    counts["messages"] = counts["messages"].get<size_t>() + node["messages"].get<size_t>();
    counts["hiddenMessages"] = counts["hiddenMessages"].get<size_t>() + node["hidden"].get<size_t>();
    for (const Json& child : node["folders"])
    {
        counts["folders"] = counts["folders"].get<size_t>() + 1;
        AddUp(child, counts);
    }
}

// What is said of a file at its import, its comparison and in its folder table.
void ExpectOneCount(const std::filesystem::path& folder, const std::filesystem::path& file)
{
    SCOPED_TRACE(file.filename().string());
    const Json demo = RunBrowserJson(folder, {L"demo", L"--source", file.wstring()});
    const Json& imported = demo["imported"];
    for (const char* const kind : {"folders", "messages", "hiddenMessages", "embeddedMessages", "attachments"})
        EXPECT_EQ(imported[kind], demo["verify"][kind]) << kind;
    Json shown{{"folders", 0}, {"messages", 0}, {"hiddenMessages", 0}};
    AddUp(demo["tree"], shown);
    for (const char* const kind : {"folders", "messages", "hiddenMessages"})
        EXPECT_EQ(imported[kind], shown[kind]) << kind;
    EXPECT_GT(imported["messages"].get<size_t>() + imported["hiddenMessages"].get<size_t>(), 0u);
}

TEST_F(ToolTest, TheDemonstrationCountsOneNumberOfEachKind)
{
    ExpectOneCount(m_folder, SampleInto(m_folder, 3, 7));
    for (const std::filesystem::path& file : SmallFiles())
        ExpectOneCount(NewFolder(), file);
}

TEST_F(ToolTest, TheDemonstrationCountsTheFetchedMailTheSame)
{
    for (const wchar_t* const name :
         {L"enron.pst", L"pstextractortest@outlook.com.ost", L"pstextractortestpdf@outlook.com.ost"})
    {
        const std::filesystem::path file = FetchedFile(name);
        REQUIRE_FETCHED(file);
        ExpectOneCount(NewFolder(), file);
    }
}

// What it prints is what it counted; a message in a message is no message of a folder.
TEST_F(ToolTest, TheDemonstrationNamesAnEmbeddedMessageOne)
{
    const std::filesystem::path source = CopyInto(m_folder, SmallFiles()[2]);
    const std::string output = RunBrowser(m_folder, {L"demo", L"--source", source.wstring()}).output;
    const std::string inFolders = "1 message, 0 hidden messages";
    const std::string all = inFolders + ", 1 embedded message, 1 attachment";
    EXPECT_NE(output.find(all + " imported\n"), std::string::npos) << output;
    EXPECT_NE(output.find(all + ", "), std::string::npos) << output;
    EXPECT_NE(output.find(inFolders + "\n"), std::string::npos) << output;
}
} // namespace
} // namespace Tests
