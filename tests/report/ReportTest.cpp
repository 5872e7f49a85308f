// The command "report": what it writes, where, and what it leaves alone. The pages that it makes here are shown by a
// browser afterwards (page/look).
#include "tests/e2e/Browser.h"
#include "tests/e2e/Environment.h"
#include "tools/browser/ArchiveSession.h"
#include "tools/browser/MapiTools.h"

#include <algorithm>
#include <fstream>
#include <set>

using namespace Common;

namespace Tests
{
namespace
{
using Json = nlohmann::ordered_json;

// What is put wherever mail has a text; a browser that takes any of it for markup marks its document as owned.
const std::vector<std::wstring> hostileTexts = {
    L"<script>document.documentElement.dataset.owned='script'</script>",
    L"</script><script>document.documentElement.dataset.owned='end'</script>",
    L"<!--<script>document.documentElement.dataset.owned='comment'</script>",
    L"\"><img src=x onerror=\"document.documentElement.dataset.owned='image'\">",
    L"<a href=\"javascript:document.documentElement.dataset.owned='link'\">Read this</a>",
    L"<iframe src=\"http://example.invalid/frame\"></iframe>&lt;b&gt;&#60;b&#62;",
    L"invoice\u202Efdp.exe \u2066isolated \u200Ehidden\u200B",
    L"\u05E9\u05DC\u05D5\u05DD and \u0645\u0631\u062D\u0628\u0627, both ways",
    L"one\u2028two\u2029three\u0085four\u0007five\tsix",
    L"${document.documentElement.dataset.owned='template'}`{{7*7}}",
    std::wstring(1200, L'W'),
};

PropValue Text(ULONG tag, const std::wstring& text)
{
    return PropValue::String(tag, text);
}

void Set(const MapiMemory& memory, IMAPIProp& object, const std::vector<PropValue>& values)
{
    const MapiBlock<SPropValue> array(memory, MakePropArray(memory, values));
    ASSERT_EQ(object.SetProps(static_cast<ULONG>(values.size()), array.Get(), nullptr), S_OK);
}

void AddRecipient(const MapiMemory& memory, IMessage& message, const std::wstring& text)
{
    const MapiBlock<SPropValue> values(
        memory, MakePropArray(memory, {PropValue::Long(PR_RECIPIENT_TYPE, MAPI_TO), Text(PR_DISPLAY_NAME_W, text),
                                       Text(PR_EMAIL_ADDRESS_W, text), Text(PR_ADDRTYPE_W, L"SMTP")}));
    ADRLIST list{};
    list.cEntries = 1;
    list.aEntries[0].cValues = 4;
    list.aEntries[0].rgPropVals = values.Get();
    ASSERT_EQ(message.ModifyRecipients(MODRECIP_ADD, &list), S_OK);
}

void AddAttachment(const MapiMemory& memory, IMessage& message, const std::wstring& name)
{
    ULONG number = 0;
    ComPtr<IAttach> attachment;
    ASSERT_EQ(message.CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
    Set(memory, *attachment,
        {Text(PR_ATTACH_LONG_FILENAME_W, name), Text(PR_DISPLAY_NAME_W, name),
         PropValue::Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE), PropValue::Binary(PR_ATTACH_DATA_BIN, "data", 4)});
    ASSERT_EQ(attachment->SaveChanges(0), S_OK);
}

// An archive, with hostile texts in everything that has one.
void FillHostile(const std::filesystem::path& folder)
{
    constexpr Browser::Setting writable{false, true};
    Browser::ArchiveSession archive(TestMapi(), PlaceOf(folder));
    archive.Configure(folder / "archive.pst", writable);
    archive.Logon(writable);
    const MapiMemory memory = archive.Memory();
    const auto top = Browser::OpenFolder(archive.Store(), Browser::TopOfStore(memory, archive.Store()), MAPI_MODIFY);
    std::wstring name = L"</script><b>Folder\u202Eredlof</b>";
    ComPtr<IMAPIFolder> made;
    ASSERT_EQ(top->CreateFolder(FOLDER_GENERIC, name.data(), nullptr, nullptr, MAPI_UNICODE, made.Put()), S_OK);
    for (const std::wstring& text : hostileTexts)
    {
        ComPtr<IMessage> message;
        ASSERT_EQ(made->CreateMessage(nullptr, 0, message.Put()), S_OK);
        Set(memory, *message,
            {Text(PR_SUBJECT_W, text), Text(PR_SENDER_NAME_W, text), Text(PR_SENDER_EMAIL_ADDRESS_W, text),
             Text(PR_MESSAGE_CLASS_W, L"IPM.Note"), Text(PR_BODY_W, text + L"\r\nSecond line\r\n" + text)});
        AddRecipient(memory, *message, text);
        AddAttachment(memory, *message, text);
        ASSERT_EQ(message->SaveChanges(0), S_OK);
    }
}

// The data of a page.
Json DataOf(const std::string& page)
{
    const std::string begin = "<script type=\"application/json\" id=\"data\">";
    const size_t at = page.find(begin);
    EXPECT_NE(at, std::string::npos);
    const size_t end = page.find("</script>", at);
    auto data = Json::parse(page.substr(at + begin.size(), end - at - begin.size()), nullptr, false);
    EXPECT_FALSE(data.is_discarded());
    return data;
}

size_t Occurrences(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++count;
    return count;
}

class ReportTest : public testing::Test
{
protected:
    void SetUp() override { m_folder = NewFolder(); }

    // Runs "report" with these arguments, which ends well, and gives the page.
    std::string Report(std::vector<std::wstring> arguments)
    {
        const std::filesystem::path file = m_folder / "page.html";
        arguments.insert(arguments.begin(), {L"report", file.wstring()});
        const BrowserRun run = RunBrowser(m_folder, arguments);
        EXPECT_EQ(run.exitCode, 0u) << run.errors << run.output;
        EXPECT_EQ(run.errors, "");
        return ContentsOf(file);
    }

    void Import(const std::filesystem::path& source) { RunBrowserJson(m_folder, {L"import", source.wstring()}); }

    // What lies in the folder besides what the tests put there themselves.
    std::set<std::wstring> Files() const
    {
        std::set<std::wstring> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder))
            names.insert(entry.path().filename().wstring());
        names.erase(L"output.txt");
        names.erase(L"errors.txt");
        return names;
    }

    std::filesystem::path m_folder;
};

TEST_F(ReportTest, HostileMail)
{
    FillHostile(m_folder);
    const std::string page = Report({});
    // The page's own elements and nothing that looks like one.
    EXPECT_EQ(Occurrences(page, "<script"), 2u);
    EXPECT_EQ(Occurrences(page, "</script"), 2u);
    EXPECT_EQ(Occurrences(page, "<img"), 0u);
    EXPECT_EQ(Occurrences(page, "<iframe"), 0u);
    EXPECT_EQ(Occurrences(page, "\xE2\x80\xA8"), 0u) << "a raw line separator";
    EXPECT_EQ(Occurrences(page, "\xE2\x80\xA9"), 0u) << "a raw paragraph separator";
    const size_t begin = page.find("id=\"data\">");
    const std::string frame = page.substr(0, begin) + page.substr(page.find("</script>", begin));
    for (const char* const loading : {" src=", "http:", "https:", "url(", "@import", "innerHTML", "eval("})
        EXPECT_EQ(Occurrences(frame, loading), 0u) << loading;
    EXPECT_NE(page.find("content=\"default-src 'none'; script-src 'sha256-"), std::string::npos);
    EXPECT_EQ(page.find("unsafe"), std::string::npos);
    // Nothing is lost on the way.
    const Json data = DataOf(page);
    ASSERT_EQ(data["details"].size(), hostileTexts.size());
    for (size_t index = 0; index < hostileTexts.size(); ++index)
    {
        const std::string text = Browser::Utf8(hostileTexts[index]);
        EXPECT_EQ(data["details"][index]["subject"], text);
        EXPECT_EQ(data["details"][index]["from"], text);
        EXPECT_EQ(data["details"][index]["recipients"][0]["name"], text);
        EXPECT_EQ(data["details"][index]["attachments"][0]["name"], text);
        EXPECT_EQ(data["details"][index]["body"], text + "\r\nSecond line\r\n" + text);
    }
}

// Enough of all kinds for a browser to show.
TEST_F(ReportTest, OrdinaryMail)
{
    Import(SmallFiles()[2]);
    const Json data = DataOf(Report({}));
    EXPECT_EQ(data["problems"].size(), 0u) << data["problems"].dump();
    EXPECT_EQ(data["service"], Browser::Utf8(hostService));
    EXPECT_EQ(data["module"], "ArchiveHost.dll");
    ASSERT_EQ(data["compared"], true) << data["notCompared"];
    EXPECT_EQ(data["counts"]["unexplained"], 0);
    const Json tree = RunBrowserJson(m_folder, {L"tree"});
    EXPECT_EQ(data["folders"][0]["name"], tree["name"]);
    const Json& detail = data["details"][0];
    EXPECT_EQ(detail["attachments"][0]["kind"], "message");
    EXPECT_GT(detail["recipients"].size(), 0u);
    // The calls, and what the log has of each.
    EXPECT_EQ(data["unchanged"], true);
    EXPECT_EQ(data["attempts"].size(), data["counts"]["attempted"].get<size_t>());
    bool refused = false;
    for (const Json& row : data["attempts"])
    {
        refused =
            refused ||
            row == Json{"message", "SaveChanges", "MAPI_E_NO_ACCESS", "refused",
                        Json::array({"IMessage::SaveChanges called on read-only message; returning MAPI_E_NO_ACCESS"})};
    }
    EXPECT_TRUE(refused) << data["attempts"].dump(1);
    EXPECT_GT(data["counts"]["refused"], 20);
    // The modules: each that takes part, with its version.
    std::map<std::string, std::string> versions;
    for (const Json& module : data["modules"])
        versions[module[4]] = module[1];
    for (const char* const role : {"the host", "the library", "this tool"})
        EXPECT_EQ(versions[role], KIVNST_VERSION ".0") << role;
    EXPECT_TRUE(versions.contains("MAPI"));
    EXPECT_TRUE(versions.contains("the PST provider"));
    // The log, with the level of each line.
    std::set<std::string> levels;
    for (const Json& line : data["log"])
        levels.insert(line[0]);
    EXPECT_TRUE(levels.contains("action")) << data["log"].dump(1);
    EXPECT_TRUE(levels.contains("trace")) << data["log"].dump(1);
}

// What the wrapper changed is what "diff" finds, property by property and with its reasons.
TEST_F(ReportTest, TheChangesAreThoseOfDiff)
{
    const std::filesystem::path source = CopyInto(m_folder, SmallFiles()[0]);
    RunBrowserJson(m_folder, {L"configure", source.wstring()});
    const auto changes = [](const Json& differences)
    {
        std::map<std::string, std::string> reasons;
        for (const Json& difference : differences)
            if (difference["object"] == "store")
                reasons[difference["property"]] = difference["rule"];
        return reasons;
    };
    for (const std::vector<std::wstring>& setting :
         {std::vector<std::wstring>{}, {L"--plain"}, {L"--modify"}, {L"--plain", L"--modify"}})
    {
        std::vector<std::wstring> arguments = setting;
        arguments.push_back(L"--no-try");
        const Json data = DataOf(Report(arguments));
        std::map<std::string, std::string> reasons;
        for (const Json& property : data["objects"][0]["properties"])
            if (property.size() > 2)
                reasons[data["tags"][property[0].get<size_t>()][1]] = data["rules"].at(property[3].get<size_t>());
        arguments = setting;
        arguments.insert(arguments.end(), {L"diff", source.wstring()});
        const auto expected = changes(RunBrowserJson(m_folder, arguments)["differences"]);
        EXPECT_GE(expected.size(), 3u);
        EXPECT_EQ(reasons, expected);
    }
}

TEST_F(ReportTest, TheArchiveIsLeftAsItIs)
{
    const std::filesystem::path source = SampleInto(m_folder, 3, 4);
    Import(source);
    const Json before = RunBrowserJson(m_folder, {L"tree", L"--all"});
    const std::set<std::wstring> files = Files();
    Report({});
    EXPECT_EQ(RunBrowserJson(m_folder, {L"verify", source.wstring()})["problems"].size(), 0u);
    EXPECT_EQ(RunBrowserJson(m_folder, {L"tree", L"--all"}), before);
    std::set<std::wstring> after = Files();
    EXPECT_EQ(after.erase(L"page.html"), 1u);
    EXPECT_EQ(after, files);
}

// Many messages, for a browser to show; only some of them whole.
TEST_F(ReportTest, TenThousandMessages)
{
    RunBrowserJson(m_folder, {L"configure", SampleInto(m_folder, 1, 10000).wstring()});
    const std::string page = Report({L"--all", L"--no-try", L"--details", L"5"});
    const Json data = DataOf(page);
    size_t most = 0;
    for (const Json& folder : data["folders"])
        most = std::max(most, folder["rows"].size());
    EXPECT_EQ(most, 10000u);
    EXPECT_EQ(data["counts"]["detailed"], 5);
    EXPECT_LT(page.size(), 4u << 20);
    EXPECT_EQ(data["notTried"], "left out on request (--no-try)");
}

// A host of a few lines over the kit, which knows none of the sample host's settings.
TEST_F(ReportTest, AnotherHostIsShownAsItIs)
{
    const ServiceInFile service(L"RenamedTestSvc", L"Renamed", L"RenamedHost.dll");
    const std::filesystem::path archive = CopyInto(m_folder, SmallFiles()[2]);
    RunBrowserJson(m_folder, {L"--service", L"RenamedTestSvc", L"configure", archive.wstring()});
    const Json data = DataOf(Report({L"--service", L"RenamedTestSvc", L"--all"}));
    EXPECT_EQ(data["problems"].size(), 0u) << data["problems"].dump();
    EXPECT_EQ(data["module"], "RenamedHost.dll");
    EXPECT_EQ(data["hostDecides"], true);
    EXPECT_EQ(data["store"], "Mail of 2019");
    // The kit refuses every change; what is let through changes nothing.
    EXPECT_GT(data["counts"]["refused"], 30) << data["attempts"].dump(1);
    EXPECT_EQ(data["unchanged"], true);
    bool own = false;
    for (const Json& row : data["attempts"])
        own = own || (row[1] == "SetProps(the host's own)" && row[3] == "refused");
    EXPECT_TRUE(own);
}

TEST_F(ReportTest, AnEmptyArchiveIsNoFailure)
{
    RunBrowserJson(m_folder, {L"configure", (m_folder / "empty.pst").wstring()});
    const Json data = DataOf(Report({}));
    EXPECT_EQ(data["problems"].size(), 0u) << data["problems"].dump();
    EXPECT_EQ(data["counts"]["listed"], 0);
    EXPECT_NE(data["notTried"].get<std::string>().find("has no message"), std::string::npos) << data["notTried"];
}

TEST_F(ReportTest, ListsNoMoreThanItIsToldTo)
{
    Import(SampleInto(m_folder, 2, 7));
    const Json data = DataOf(Report({L"--limit", L"3", L"--details", L"1", L"--no-try"}));
    EXPECT_EQ(data["counts"]["listed"], 6);
    EXPECT_EQ(data["counts"]["detailed"], 2);
    for (const Json& folder : data["folders"])
        if (folder["messages"] == 7)
            EXPECT_EQ(folder["rows"].size(), 3u);
}

TEST_F(ReportTest, AFileThatIsNoReportStays)
{
    Import(SampleInto(m_folder, 1, 1));
    const std::filesystem::path file = m_folder / "page.html";
    std::ofstream(file, std::ios::binary) << "<!doctype html>\n<p>Mine.";
    const BrowserRun refused = RunBrowser(m_folder, {L"report", L"--no-try", file.wstring()});
    EXPECT_EQ(refused.exitCode, 1u);
    EXPECT_NE(refused.errors.find("is there already and is no report"), std::string::npos) << refused.errors;
    EXPECT_EQ(ContentsOf(file), "<!doctype html>\n<p>Mine.");
    EXPECT_NE(Report({L"--force", L"--no-try"}).find("id=\"data\""), std::string::npos);
    // A report that is there gives way to a new one.
    const std::string second = Report({L"--no-try", L"--limit", L"0"});
    EXPECT_EQ(DataOf(second)["counts"]["listed"], 0);
    EXPECT_FALSE(std::any_of(std::filesystem::directory_iterator(m_folder), std::filesystem::directory_iterator(),
                             [](const auto& entry) { return entry.path().extension() == ".tmp"; }));
}

TEST_F(ReportTest, APlaceWhereNoFileCanBeIsNamed)
{
    const auto expectSentence = [&](const std::filesystem::path& place, const std::string& part)
    {
        const BrowserRun run = RunBrowser(m_folder, {L"report", place.wstring()});
        EXPECT_EQ(run.exitCode, 1u);
        EXPECT_EQ(Occurrences(run.errors, "\n"), 1u) << run.errors;
        EXPECT_NE(run.errors.find(part), std::string::npos) << run.errors;
    };
    expectSentence(m_folder / "no" / "page.html", "There is no folder");
    expectSentence(m_folder, "is not a file");
}

// Where the archive cannot be opened, the log and the modules are what a ticket needs.
TEST_F(ReportTest, AnArchiveThatCannotBeOpenedLeavesTheLog)
{
    const std::filesystem::path archive = m_folder / "archive.pst";
    RunBrowserJson(m_folder, {L"configure", archive.wstring()});
    for (const wchar_t* const end : {L"", L".overlay"})
        std::filesystem::remove(archive.wstring() + end);
    std::ofstream(archive) << "This is no mail at all, and it is long enough to look like something that might be.";
    const std::filesystem::path file = m_folder / "page.html";
    const BrowserRun run = RunBrowser(m_folder, {L"report", file.wstring()});
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(Occurrences(run.errors, "\n"), 1u) << run.errors;
    const Json data = DataOf(ContentsOf(file));
    ASSERT_EQ(data["problems"].size(), 1u);
    EXPECT_NE(run.errors.find(data["problems"][0].get<std::string>()), std::string::npos) << run.errors;
    EXPECT_TRUE(
        std::any_of(data["log"].begin(), data["log"].end(), [](const Json& line) { return line[0] == "error"; }))
        << data["log"].dump(1);
    EXPECT_GT(data["modules"].size(), 3u);
}
} // namespace
} // namespace Tests
