// "archive-setup doctor" where MAPI has to be asked, and the sentence that the browser has for the same. What it finds
// of files and modules is tested on the unpacked package (tests/package/installed).
#include "tests/e2e/Browser.h"
#include "tests/e2e/Environment.h"

#include "common/StoreEntryId.h"
#include "common/Text.h"

#include <algorithm>
#include <fstream>
#include <map>

using namespace Common;

namespace Tests
{
namespace
{
using Json = nlohmann::ordered_json;

constexpr unsigned long faulty = 4;

class DoctorTest : public testing::Test
{
protected:
    void SetUp() override { m_folder = NewFolder(); }
    void TearDown() override
    {
        if (Browser::ProfileExists(*TestMapi(), ProfileOf(m_folder)))
            Browser::DeleteProfile(*TestMapi(), ProfileOf(m_folder));
    }

    // What the doctor says of the profile that belongs to the folder: each check's last state, and the findings.
    std::map<std::string, std::string> Examine(unsigned long exitCode, const wchar_t* service = hostService)
    {
        const BrowserRun run =
            RunTool(m_folder, L"archive-setup.exe",
                    {L"doctor", L"--json", L"--service", service, L"--profile", ProfileOf(m_folder)});
        EXPECT_EQ(run.exitCode, exitCode) << run.output << run.errors;
        m_findings = Json::parse(run.output, nullptr, false);
        EXPECT_FALSE(m_findings.is_discarded()) << run.output;
        std::map<std::string, std::string> states;
        for (const Json& finding : m_findings["findings"])
        {
            states[finding["check"]] = finding["state"];
            // Whatever is wrong comes with a step.
            EXPECT_EQ(finding.contains("next"), finding["state"] == "wrong") << finding;
        }
        return states;
    }

    // What is found of a check, and its next step.
    std::string TextOf(const char* check) const
    {
        for (const Json& finding : m_findings["findings"])
            if (finding["check"] == check)
                return finding["found"].get<std::string>() + " " + finding.value("next", "");
        return {};
    }

    void ExpectSentence(const std::vector<std::wstring>& arguments, const std::string& part) const
    {
        const BrowserRun run = RunBrowser(m_folder, arguments);
        EXPECT_EQ(run.exitCode, 1u);
        EXPECT_EQ(std::count(run.errors.begin(), run.errors.end(), '\n'), 1) << run.errors;
        EXPECT_NE(run.errors.find(part), std::string::npos) << run.errors;
    }

    std::filesystem::path m_folder;
    Json m_findings;
};

TEST_F(DoctorTest, NothingIsWrongWithAnArchiveThatWorks)
{
    RunBrowserJson(m_folder, {L"configure", SampleInto(m_folder, 1, 1).wstring()});
    const std::map<std::string, std::string> expected = {
        {"mapi", "fine"},   {"pst-provider", "fine"}, {"mapisvc", "fine"}, {"registration", "fine"},
        {"module", "fine"}, {"profile", "fine"},      {"store", "fine"},   {"root", "fine"}};
    EXPECT_EQ(Examine(0), expected) << m_findings.dump(1);
    const BrowserRun text = RunTool(m_folder, L"archive-setup.exe",
                                    {L"doctor", L"--service", hostService, L"--profile", ProfileOf(m_folder)});
    EXPECT_EQ(text.exitCode, 0u);
    EXPECT_NE(text.output.find("\nNothing is wrong."), std::string::npos) << text.output;
}

TEST_F(DoctorTest, AProfileThatIsNotThereIsFound)
{
    EXPECT_EQ(Examine(faulty)["profile"], "wrong");
    EXPECT_NE(TextOf("profile").find("There is no profile"), std::string::npos) << m_findings.dump(1);
}

TEST_F(DoctorTest, AProfileWithoutTheServiceIsFound)
{
    Browser::CreateProfile(*TestMapi(), ProfileOf(m_folder));
    EXPECT_EQ(Examine(faulty)["profile"], "wrong");
    EXPECT_NE(TextOf("profile").find("lacks the service \"ArchiveTestSvc\""), std::string::npos) << m_findings.dump(1);
    ExpectSentence({L"tree"}, "its services lack \"ArchiveTestSvc\"");
}

TEST_F(DoctorTest, AStoreThatIsNotConfiguredIsFound)
{
    Browser::CreateProfile(*TestMapi(), ProfileOf(m_folder));
    Browser::Services(*TestMapi(), ProfileOf(m_folder)).Create(hostService);
    EXPECT_EQ(Examine(faulty)["store"], "wrong");
    EXPECT_NE(TextOf("store").find("its store is not configured"), std::string::npos) << m_findings.dump(1);
    ExpectSentence({L"tree"}, "names no file for its archive");
    // The next step that both name is one.
    RunBrowserJson(m_folder, {L"configure", SampleInto(m_folder, 1, 1).wstring()});
    EXPECT_EQ(Examine(0)["store"], "fine") << m_findings.dump(1);
}

TEST_F(DoctorTest, AFileThatIsNoStoreIsFound)
{
    const std::filesystem::path archive = m_folder / "archive.pst";
    RunBrowserJson(m_folder, {L"configure", archive.wstring()});
    for (const wchar_t* const end : {L"", L".overlay"})
        std::filesystem::remove(archive.wstring() + end);
    std::ofstream(archive) << "This is no mail at all, and it is long enough to look like something that might be.";
    auto states = Examine(faulty);
    EXPECT_EQ(states["store"], "wrong");
    EXPECT_EQ(states["root"], "not looked for");
    EXPECT_NE(TextOf("store").find("is not a PST file"), std::string::npos) << m_findings.dump(1);
}

TEST_F(DoctorTest, AMissingArchiveRootIsFound)
{
    const ServiceInFile service(L"RootlessTestSvc", L"Rootless", L"RootlessHost.dll");
    const std::filesystem::path archive = CopyInto(m_folder, SmallFiles()[2]);
    RunBrowserJson(m_folder, {L"--service", L"RootlessTestSvc", L"configure", archive.wstring()});
    auto states = Examine(faulty, L"RootlessTestSvc");
    EXPECT_EQ(states["store"], "fine") << m_findings.dump(1);
    EXPECT_EQ(states["root"], "wrong");
    EXPECT_NE(TextOf("root").find("ConfigureNstSubtreeEntryId"), std::string::npos);
    ExpectSentence({L"--service", L"RootlessTestSvc", L"tree"}, "The store has no archive root");
}

TEST_F(DoctorTest, AServiceThatIsNotRegisteredIsFound)
{
    auto states = Examine(faulty, L"NoSuchSvc");
    EXPECT_EQ(states["registration"], "wrong");
    EXPECT_EQ(states["profile"], "not looked for");
}
} // namespace
} // namespace Tests
