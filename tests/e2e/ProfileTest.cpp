// Profiles, services and stores as the browser shows and changes them, and what it says when one of them is not usable.
#include "tests/e2e/Browser.h"
#include "tests/e2e/Environment.h"

#include "common/Text.h"
#include "host/HostSettings.h"
#include "tools/setup/Locations.h"

#include <algorithm>
#include <fstream>

using namespace Common;

namespace Tests
{
namespace
{
using Json = nlohmann::ordered_json;

class ProfileTest : public testing::Test
{
protected:
    void SetUp() override { m_folder = NewFolder(); }
    void TearDown() override
    {
        if (Browser::ProfileExists(*TestMapi(), ProfileOf(m_folder)))
            Browser::DeleteProfile(*TestMapi(), ProfileOf(m_folder));
    }

    void Configure() const { RunBrowserJson(m_folder, {L"configure", SampleInto(m_folder, 2, 3).wstring()}); }

    // The browser ends with one sentence that holds the parts, and with --log says the cause before, where there is
    // one.
    void ExpectSentence(std::vector<std::wstring> arguments, const std::vector<std::string>& parts,
                        const std::string& cause) const
    {
        const BrowserRun run = RunBrowser(m_folder, arguments);
        EXPECT_EQ(run.exitCode, 1u);
        EXPECT_EQ(std::count(run.errors.begin(), run.errors.end(), '\n'), 1) << run.errors;
        for (const std::string& part : parts)
            EXPECT_NE(run.errors.find(part), std::string::npos) << part << "\n" << run.errors;
        if (cause.empty())
            return;
        arguments.insert(arguments.begin(), L"--log");
        const BrowserRun logged = RunBrowser(m_folder, arguments);
        EXPECT_NE(logged.errors.find("[error] " + cause), std::string::npos) << logged.errors;
    }

    std::filesystem::path m_folder;
};

TEST_F(ProfileTest, ProfilesServicesAndStoresAreListed)
{
    Configure();
    const std::string name = Utf8FromWide(ProfileOf(m_folder));
    size_t found = 0;
    const Json profiles = RunBrowserJson(m_folder, {L"profiles"});
    for (const Json& row : profiles["profiles"])
        found += row["name"] == name ? 1 : 0;
    EXPECT_EQ(found, 1u);
    const Json services = RunBrowserJson(m_folder, {L"services"})["services"];
    ASSERT_EQ(services.size(), 1u);
    EXPECT_EQ(services[0]["service"], "ArchiveTestSvc");
    EXPECT_EQ(services[0]["displayName"], "Test Archive");
    EXPECT_EQ(services[0]["dll"], "ArchiveHost.dll");
    EXPECT_EQ(services[0]["entry"], "ServiceEntry");
    const Json stores = RunBrowserJson(m_folder, {L"stores"})["stores"];
    ASSERT_EQ(stores.size(), 1u);
    EXPECT_EQ(stores[0]["serviceUid"], services[0]["uid"]);
    EXPECT_EQ(stores[0]["default"], false);
    for (const wchar_t* command : {L"profiles", L"services", L"stores"})
        EXPECT_EQ(RunBrowser(m_folder, {command}).exitCode, 0u);
}

TEST_F(ProfileTest, AStoreIsOpenedByItsName)
{
    Configure();
    const std::string name = RunBrowserJson(m_folder, {L"stores"})["stores"][0]["store"];
    const std::wstring store = WideFromUtf8(name);
    EXPECT_EQ(RunBrowserJson(m_folder, {L"--store", store, L"tree"}), RunBrowserJson(m_folder, {L"tree"}));
    ExpectSentence({L"--store", L"No such store", L"tree"}, {"has no store \"No such store\""}, "");
}

TEST_F(ProfileTest, TwoServicesHaveTwoArchivesInOneProfile)
{
    const ServiceInFile second(L"ArchiveTestSvc2", L"Another Archive", L"ArchiveHost.dll");
    Configure();
    const std::filesystem::path source = CopyInto(m_folder, SmallFiles()[2]);
    RunBrowserJson(m_folder, {L"--service", L"ArchiveTestSvc2", L"configure", (m_folder / "second.pst").wstring()});
    RunBrowserJson(m_folder, {L"--service", L"ArchiveTestSvc2", L"import", source.wstring()});
    EXPECT_EQ(RunBrowserJson(m_folder, {L"stores"})["stores"].size(), 2u);
    EXPECT_NE(RunBrowserJson(m_folder, {L"tree"}),
              RunBrowserJson(m_folder, {L"--service", L"ArchiveTestSvc2", L"tree"}));
    RunBrowserJson(m_folder, {L"--service", L"ArchiveTestSvc2", L"remove"});
    EXPECT_EQ(RunBrowserJson(m_folder, {L"stores"})["stores"].size(), 1u);
}

TEST_F(ProfileTest, RemovingTheLastServiceRemovesTheProfileAndNoFile)
{
    Configure();
    EXPECT_EQ(RunBrowserJson(m_folder, {L"remove"})["profileRemoved"], true);
    EXPECT_FALSE(Browser::ProfileExists(*TestMapi(), ProfileOf(m_folder)));
    EXPECT_TRUE(std::filesystem::exists(m_folder / "sample.pst"));
}

TEST_F(ProfileTest, AnArchiveIsNotExchangedForAnother)
{
    Configure();
    ExpectSentence({L"configure", (m_folder / "other.pst").wstring()}, {"already"}, "");
}

TEST_F(ProfileTest, AServiceThatMapiDoesNotKnowIsNamed)
{
    ExpectSentence({L"--service", L"NoSuchSvc", L"configure", (m_folder / "a.pst").wstring()},
                   {"MAPISVC.INF", "does not list the message service \"NoSuchSvc\"", "archive-setup register"},
                   "IMsgServiceAdmin2::CreateMsgServiceEx: MAPI_E_NOT_FOUND");
    EXPECT_FALSE(Browser::ProfileExists(*TestMapi(), ProfileOf(m_folder)));
}

TEST_F(ProfileTest, AnotherHostIsToldNothingButItsArchive)
{
    const ServiceInFile service(L"RenamedTestSvc", L"Renamed", L"RenamedHost.dll");
    const std::wstring archive = CopyInto(m_folder, SmallFiles()[2]).wstring();
    const std::vector<std::string> parts = {"\"RenamedTestSvc\" is not the sample host's"};
    ExpectSentence({L"--service", L"RenamedTestSvc", L"--plain", L"configure", archive}, parts, "");
    ExpectSentence({L"--service", L"RenamedTestSvc", L"import", SmallFiles()[0].wstring()}, parts, "");
    EXPECT_FALSE(Browser::ProfileExists(*TestMapi(), ProfileOf(m_folder)));
    EXPECT_EQ(RunBrowserJson(m_folder, {L"--service", L"RenamedTestSvc", L"configure", archive})["setting"],
              "the host's own objects");
    EXPECT_EQ(RunBrowserJson(m_folder, {L"stores"})["stores"][0]["store"], "Mail of 2019");
    EXPECT_EQ(RunBrowser(m_folder, {L"--service", L"RenamedTestSvc", L"tree", L"--all"}).exitCode, 0u);
    ExpectSentence({L"--service", L"RenamedTestSvc", L"--modify", L"tree"}, parts, "");
    const Browser::Services services(*TestMapi(), ProfileOf(m_folder));
    EXPECT_TRUE(services.Read(*services.Find(L"RenamedTestSvc"), {PR_ARCHIVE_HOST_OPTIONS}).front().IsError());
}

TEST_F(ProfileTest, AMissingSectionIsNamed)
{
    const ServiceInFile service(L"ArchiveTestSvc3", L"Another Archive", L"ArchiveHost.dll");
    WritePrivateProfileStringW(L"ArchiveTestSvc3_P", nullptr, nullptr, InfFile().c_str());
    ExpectSentence({L"--service", L"ArchiveTestSvc3", L"configure", (m_folder / "a.pst").wstring()},
                   {"has no section [ArchiveTestSvc3_P]", "archive-setup register"}, "IMAPISession::GetMsgStoresTable");
    WritePrivateProfileStringW(L"ArchiveTestSvc3", nullptr, nullptr, InfFile().c_str());
    ExpectSentence({L"--service", L"ArchiveTestSvc3", L"configure", (m_folder / "a.pst").wstring()},
                   {"its section [ArchiveTestSvc3] names no provider", "archive-setup register"}, "IMsgServiceAdmin");
}

// PATH as it is without the build's folder, for as long as this lives.
class BarePath
{
public:
    BarePath()
    {
        GetEnvironmentVariableW(L"PATH", m_path.data(), static_cast<DWORD>(m_path.size()));
        wchar_t system[MAX_PATH] = {};
        GetSystemDirectoryW(system, MAX_PATH);
        SetEnvironmentVariableW(L"PATH", system);
    }
    ~BarePath() { SetEnvironmentVariableW(L"PATH", m_path.c_str()); }
    BarePath(const BarePath&) = delete;
    BarePath& operator=(const BarePath&) = delete;

private:
    std::wstring m_path = std::wstring(32768, L'\0');
};

// The browser in a folder of its own, as on a user's machine.
TEST_F(ProfileTest, AHostWithoutThe32InItsNameIsNamed)
{
    const BarePath path;
    const std::filesystem::path programs = Setup::GetProgramFolder();
    for (const wchar_t* name : {L"archive-browser.exe", L"KivNst.dll", L"ArchiveHost32.dll", L"libstdc++-6.dll",
                                L"libgcc_s_seh-1.dll", L"libwinpthread-1.dll", L"clang_rt.asan.dll"})
    {
        if (std::filesystem::exists(programs / name))
            std::filesystem::copy_file(programs / name, m_folder / name);
    }
    Configure();
    EXPECT_EQ(RunBrowser(m_folder, {L"tree"}).exitCode, 0u);
    std::filesystem::rename(m_folder / "ArchiveHost32.dll", m_folder / "ArchiveHost.dll");
    const std::vector<std::string> parts = {"MAPI loads \"ArchiveHost32.dll\"",
                                            "ArchiveHost.dll\" lacks the \"32\" before its first period"};
    // Of a profile that was made before, and of a new one.
    ExpectSentence({L"tree"}, parts, "IMAPISession::OpenMsgStore");
    Browser::DeleteProfile(*TestMapi(), ProfileOf(m_folder));
    ExpectSentence({L"configure", (m_folder / "a.pst").wstring()}, parts, "IMsgServiceAdmin");
    EXPECT_FALSE(Browser::ProfileExists(*TestMapi(), ProfileOf(m_folder)));
}

TEST_F(ProfileTest, ASectionThatAnotherProgramHasOpenIsNamed)
{
    Configure();
    const auto admin = TestMapi()->Profiles();
    std::string profile = AnsiFromWide(ProfileOf(m_folder));
    ComPtr<IMsgServiceAdmin> services;
    ASSERT_EQ(admin->AdminServices(reinterpret_cast<LPTSTR>(profile.data()), nullptr, 0, 0, services.Put()), S_OK);
    auto service = Browser::Services(*TestMapi(), ProfileOf(m_folder)).Find(hostService);
    ASSERT_TRUE(service.has_value());
    ComPtr<IProfSect> section;
    ASSERT_EQ(services->OpenProfileSection(&service->uid, nullptr, MAPI_MODIFY, section.Put()), S_OK);
    ExpectSentence({L"tree"}, {"another program may have its profile section open", "MAPI_E_NO_ACCESS"},
                   "IMsgServiceAdmin::OpenProfileSection: MAPI_E_NO_ACCESS");
    section.Reset();
    EXPECT_EQ(RunBrowser(m_folder, {L"tree"}).exitCode, 0u);
}

// What PST files are opened in.
std::vector<std::string> TemporaryProfiles()
{
    std::vector<std::string> names;
    for (const Browser::ProfileRow& row : Browser::ListProfiles(*TestMapi()))
        if (row.name.starts_with(L"archive_browser_temporary_"))
            names.push_back(Utf8FromWide(row.name));
    return names;
}

TEST_F(ProfileTest, ATemporaryProfileIsSeenByNobodyElseAndGoneAfterwards)
{
    const std::filesystem::path source = CopyInto(m_folder, SmallFiles()[0]);
    {
        const Browser::PstSession session(TestMapi(), source);
        EXPECT_EQ(TemporaryProfiles(), std::vector<std::string>());
        EXPECT_FALSE(Browser::ReadProps(session.Memory(), session.Store(), {PR_ENTRYID}).front().IsError());
    }
    EXPECT_EQ(TemporaryProfiles(), std::vector<std::string>());
}

TEST_F(ProfileTest, ATemporaryProfileIsGoneAfterAProgramThatWasKilled)
{
    const std::filesystem::path source = SampleInto(m_folder, 4, 60);
    const auto one = [](const std::string& output) { return output.find(" new\n") != std::string::npos; };
    ASSERT_TRUE(KillBrowser(m_folder, {L"import", source.wstring()}, one));
    EXPECT_EQ(TemporaryProfiles(), std::vector<std::string>());
    // One that was killed between making its profile and marking it.
    Browser::CreateProfile(*TestMapi(), L"archive_browser_temporary_4294967292_1");
    const Browser::PstSession session(TestMapi(), source);
    EXPECT_EQ(TemporaryProfiles(), std::vector<std::string>());
}

TEST_F(ProfileTest, TheDemonstrationRemovesItsProfileOnRequest)
{
    const std::filesystem::path source = SampleInto(m_folder, 2, 3);
    const BrowserRun run = RunBrowser(m_folder, {L"demo", L"--remove", L"--source", source.wstring()});
    EXPECT_EQ(run.exitCode, 0u) << run.output << run.errors;
    EXPECT_NE(run.output.find("The profile is removed again"), std::string::npos);
    EXPECT_FALSE(Browser::ProfileExists(*TestMapi(), ProfileOf(m_folder)));
}
} // namespace
} // namespace Tests
