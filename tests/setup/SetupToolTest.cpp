// archive-setup.exe, run as a process.
#include "nst/StoreProviderRegistration.h"
#include "tests/common/Setting.h"
#include "tests/setup/MapiSvcInf.h"
#include "tests/setup/SearchDouble.h"
#include "tests/setup/Tool.h"
#include "tools/setup/Commands.h"
#include "tools/setup/Text.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <utility>

using nlohmann::json;
using testing::HasSubstr;
using Tests::InfEntry;
using Tests::ProgramFolder;
using Tests::ReadInf;
using Tests::Result;
using Tests::RunTool;
using Tests::Tool;
using Tests::Utf8;

namespace
{

constexpr int success = 0;
constexpr int failure = 1;
constexpr int usage = 2;
constexpr int notRegistered = 3;
constexpr int faulty = 4;

/// One line that begins with the tool's name.
void ExpectOneSentence(const std::string& errors)
{
    EXPECT_THAT(errors, testing::StartsWith("archive-setup: "));
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
}

class SetupTool : public testing::Test
{
protected:
    SetupTool() { Tests::WriteFileBytes(path, Tests::SampleInf()); }

    std::vector<std::wstring> RegisterArguments(std::vector<std::wstring> more = {}) const
    {
        std::vector<std::wstring> arguments = {L"register",  L"--inf",      path,     L"--service", L"ArchiveSvc",
                                               L"--display", L"My Archive", L"--dll", dll};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
    Result Register(std::vector<std::wstring> more = {}) const { return RunTool(RegisterArguments(std::move(more))); }
    Result Unregister(std::vector<std::wstring> more = {}) const
    {
        std::vector<std::wstring> arguments = {L"unregister", L"--inf", path, L"--service", L"ArchiveSvc"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return RunTool(arguments);
    }
    Result Status(std::vector<std::wstring> more = {L"--service", L"ArchiveSvc"}) const
    {
        std::vector<std::wstring> arguments = {L"status", L"--json", L"--inf", path};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return RunTool(arguments);
    }
    /// What is wrong with the service, as status tells it.
    json Problems(int exitCode = faulty) const
    {
        const Result result = Status();
        EXPECT_EQ(result.exitCode, static_cast<DWORD>(exitCode)) << result.output << result.errors;
        EXPECT_EQ(result.errors, "");
        const json status = json::parse(result.output);
        EXPECT_EQ(status["services"].size(), 1u);
        return status["services"][0]["problems"];
    }
    void Write(const wchar_t* section, const wchar_t* key, const wchar_t* value) const
    {
        ASSERT_TRUE(WritePrivateProfileStringW(section, key, value, path.c_str()));
    }
    /// A host that can be loaded; what else it needs is in the mail client's folder.
    void MakeDll(const wchar_t* name = L"ArchiveHost32.dll") const
    {
        for (const auto& [from, to] : {std::pair(L"ArchiveHost32.dll", name), {L"KivNst.dll", L"KivNst.dll"}})
            EXPECT_TRUE(CopyFileW((ProgramFolder() / from).c_str(), (folder / to).c_str(), FALSE));
    }
    void RegisterByTheLibrary() const
    {
        Quillon::OutlookAddIn::RegisterStoreProvider(L"ArchiveSvc", L"My Archive", dll.c_str(), path.c_str(), L"");
    }
    std::vector<InfEntry> Entries() const { return Tests::ExpectedEntries(L"ArchiveSvc", L"My Archive", dll, L""); }

    const Tests::TempFolder folder;
    const std::wstring path = folder / L"MAPISVC \u00C4.INF";
    const std::wstring dll = folder / L"ArchiveHost.dll";
    /// What MAPI loads for it.
    const std::wstring loaded = folder / L"ArchiveHost32.dll";
};

} // namespace

TEST_F(SetupTool, ExplainsItself)
{
    const Result whole = RunTool({L"--help"});
    EXPECT_EQ(whole.exitCode, static_cast<DWORD>(success));
    EXPECT_THAT(whole.output, HasSubstr("Exit codes: 0 done"));
    for (const wchar_t* const command : {L"register", L"unregister", L"status", L"exclude", L"url"})
    {
        EXPECT_THAT(whole.output, HasSubstr("  " + Utf8(command) + " "));
        const Result result = RunTool({command, L"--help"});
        EXPECT_EQ(result.exitCode, static_cast<DWORD>(success));
        EXPECT_THAT(result.output, HasSubstr("Usage: archive-setup " + Utf8(command)));
        EXPECT_THAT(result.output, HasSubstr("--json"));
        EXPECT_EQ(result.errors, "");
    }
}

TEST_F(SetupTool, RefusesAWrongCommandLine)
{
    const std::vector<std::wstring> wrong[] = {
        {},
        {L"frobnicate"},
        {L"register"},
        {L"register", L"--service", L"A", L"--display", L"B"},
        {L"unregister", L"--inf", path},
        {L"status", L"--dll", L"x.dll"},
        {L"status", L"--dry-run"},
        {L"url", L"--store-id", L"00"},
        {L"exclude", L"--store-name", L"x"},
        {L"url", L"--store-id", L"00", L"--store-name", L"x", L"more"},
    };
    for (const std::vector<std::wstring>& arguments : wrong)
    {
        const Result result = RunTool(arguments);
        EXPECT_EQ(result.exitCode, static_cast<DWORD>(usage)) << result.errors;
        ExpectOneSentence(result.errors);
        EXPECT_EQ(result.output, "");
    }
    const Result result = RunTool({L"register", L"--json"});
    EXPECT_EQ(result.exitCode, static_cast<DWORD>(usage));
    EXPECT_NE(json::parse(result.output)["error"], "");
}

// The whole life of a registration in a realistic file.
TEST_F(SetupTool, RegistersChecksAndRemoves)
{
    MakeDll();
    const std::string before = Tests::ReadFileBytes(path);
    const std::string leftByThePlatform = Tests::AsThePlatformLeavesIt(path);

    const Result none = Status();
    EXPECT_EQ(none.exitCode, static_cast<DWORD>(notRegistered));
    EXPECT_EQ(json::parse(none.output)["services"][0]["state"], "not registered");

    const Result done = Register();
    EXPECT_EQ(done.exitCode, static_cast<DWORD>(success)) << done.errors;
    EXPECT_EQ(done.errors, "");
    EXPECT_THAT(done.output, HasSubstr("14 entries: 14 new, 0 replaced, 0 unchanged"));
    for (const InfEntry& entry : Entries())
        EXPECT_EQ(ReadInf(path, entry.section, entry.key), entry.value);

    const Result status = Status();
    EXPECT_EQ(status.exitCode, static_cast<DWORD>(success)) << status.output;
    const json parsed = json::parse(status.output);
    EXPECT_EQ(parsed["file"]["path"], Utf8(path));
    EXPECT_EQ(parsed["services"], json::array({{{"service", "ArchiveSvc"},
                                                {"state", "registered"},
                                                {"provider", "ArchiveSvc_P"},
                                                {"displayName", "My Archive"},
                                                {"dll", Utf8(dll)},
                                                {"dllPath", Utf8(loaded)},
                                                {"extraFlags", ""},
                                                {"problems", json::array()}}}));

    const std::string registered = Tests::ReadFileBytes(path);
    EXPECT_THAT(Register().output, HasSubstr("14 entries: 0 new, 0 replaced, 14 unchanged"));
    EXPECT_TRUE(Tests::ReadFileBytes(path) == registered);

    const Result removed = Unregister();
    EXPECT_EQ(removed.exitCode, static_cast<DWORD>(success)) << removed.errors;
    EXPECT_THAT(removed.output, HasSubstr("14 entries"));
    EXPECT_TRUE(Tests::ReadFileBytes(path) == leftByThePlatform);
    EXPECT_EQ(Tests::SpeakingLines(Tests::ReadFileBytes(path)), Tests::SpeakingLines(before));

    const Result again = Unregister();
    EXPECT_EQ(again.exitCode, static_cast<DWORD>(success)) << "an uninstaller may run twice";
    EXPECT_THAT(again.output, HasSubstr("is not registered"));
}

TEST_F(SetupTool, OnlyTellsInADryRun)
{
    RegisterByTheLibrary();
    Write(L"ArchiveSvc", nullptr, nullptr);
    Write(L"Services", L"ArchiveSvc", nullptr);
    Write(L"ArchiveSvc", L"PR_DISPLAY_NAME", L"Old name");
    const std::string before = Tests::ReadFileBytes(path);

    const Result planned = Register({L"--dry-run", L"--json", L"--flags", L"SERVICE_SINGLE_COPY"});
    EXPECT_EQ(planned.exitCode, static_cast<DWORD>(success)) << planned.errors;
    EXPECT_TRUE(Tests::ReadFileBytes(path) == before);
    const json plan = json::parse(planned.output);
    EXPECT_EQ(plan["dryRun"], true);
    const auto entries = Tests::ExpectedEntries(L"ArchiveSvc", L"My Archive", dll, L"SERVICE_SINGLE_COPY");
    ASSERT_EQ(plan["changes"].size(), entries.size());
    for (std::size_t index = 0; index < entries.size(); ++index)
    {
        const json& change = plan["changes"][index];
        EXPECT_EQ(change["section"], Utf8(entries[index].section));
        EXPECT_EQ(change["key"], Utf8(entries[index].key));
        EXPECT_EQ(change["value"], Utf8(entries[index].value));
        EXPECT_EQ(change["change"], index < 6 ? "keep" : index == 6 ? "replace" : "add");
    }
    EXPECT_EQ(plan["changes"][6]["previous"], "Old name");
    EXPECT_THAT(Register({L"--dry-run"}).output,
                HasSubstr("  replace [ArchiveSvc] PR_DISPLAY_NAME = My Archive (now: Old name)\n"));
    EXPECT_TRUE(Tests::ReadFileBytes(path) == before);

    ASSERT_EQ(Register().exitCode, static_cast<DWORD>(success));
    const std::string registered = Tests::ReadFileBytes(path);
    const json removal = json::parse(Unregister({L"--dry-run", L"--json"}).output);
    EXPECT_EQ(removal["changes"].size(), 14u);
    EXPECT_EQ(removal["changes"][0],
              json({{"section", "Services"}, {"key", "ArchiveSvc"}, {"value", "My Archive"}, {"change", "remove"}}));
    EXPECT_TRUE(Tests::ReadFileBytes(path) == registered);
}

// One registration for each entry, of which that one is missing.
TEST_F(SetupTool, FindsEachMissingEntry)
{
    MakeDll();
    json expected = json::array();
    for (std::size_t missing = 0; missing < Entries().size(); ++missing)
    {
        const std::wstring name = L"Archive" + std::to_wstring(missing);
        const InfEntry entry = Tests::ExpectedEntries(name, L"My Archive", dll, L"")[missing];
        Quillon::OutlookAddIn::RegisterStoreProvider(name.c_str(), L"My Archive", dll.c_str(), path.c_str(), L"");
        Write(entry.section.c_str(), entry.key.c_str(), nullptr);
        expected.push_back(json::array({{{"problem", "missing entry"},
                                         {"section", Utf8(entry.section)},
                                         {"key", Utf8(entry.key)},
                                         {"expected", Utf8(entry.value)}}}));
    }
    const Result result = Status({});
    EXPECT_EQ(result.exitCode, static_cast<DWORD>(faulty)) << result.errors;
    json problems = json::array();
    const json services = json::parse(result.output)["services"];
    for (const json& service : services)
        problems.push_back(service["problems"]);
    EXPECT_EQ(problems, expected);
}

TEST_F(SetupTool, FindsEachWrongValue)
{
    MakeDll();
    const std::vector<std::wstring> expected = {L"--service", L"ArchiveSvc", L"--display", L"My Archive",
                                                L"--dll",     dll,           L"--flags",   L""};
    ASSERT_EQ(Register().exitCode, static_cast<DWORD>(success));
    EXPECT_EQ(Status(expected).exitCode, static_cast<DWORD>(success));
    for (const InfEntry& entry : Entries())
    {
        SCOPED_TRACE(Utf8(entry.section + L" " + entry.key));
        RegisterByTheLibrary();
        Write(entry.section.c_str(), entry.key.c_str(), L"wrong");
        const Result result = Status(expected);
        EXPECT_EQ(result.exitCode, static_cast<DWORD>(faulty)) << result.output << result.errors;
        EXPECT_EQ(json::parse(result.output)["services"][0]["problems"], json::array({{{"problem", "wrong value"},
                                                                                       {"section", Utf8(entry.section)},
                                                                                       {"key", Utf8(entry.key)},
                                                                                       {"expected", Utf8(entry.value)},
                                                                                       {"found", "wrong"}}}));
    }
}

TEST_F(SetupTool, RepairsARegistration)
{
    MakeDll();
    RegisterByTheLibrary();
    Write(L"ArchiveSvc", L"Providers", L"wrong");
    Write(L"ArchiveSvc_P", L"PR_RESOURCE_TYPE", nullptr);
    EXPECT_EQ(Problems().size(), 2u);
    EXPECT_THAT(Register().output, HasSubstr("14 entries: 1 new, 1 replaced, 12 unchanged"));
    EXPECT_EQ(Problems(success).size(), 0u);
}

TEST_F(SetupTool, FindsHalfARegistration)
{
    MakeDll();
    ASSERT_EQ(Register().exitCode, static_cast<DWORD>(success));
    Write(L"ArchiveSvc", nullptr, nullptr);
    EXPECT_EQ(Problems().size(), 7u);
    Write(L"Services", L"ArchiveSvc", nullptr);
    EXPECT_EQ(Problems().size(), 8u);
    EXPECT_EQ(Status({}).exitCode, static_cast<DWORD>(faulty)) << "found without being named";
    Write(L"ArchiveSvc_P", nullptr, nullptr);
    EXPECT_EQ(Status().exitCode, static_cast<DWORD>(notRegistered));
    EXPECT_EQ(Status({}).exitCode, static_cast<DWORD>(notRegistered));
}

TEST_F(SetupTool, FindsAMissingDll)
{
    ASSERT_EQ(Register().exitCode, static_cast<DWORD>(success));
    EXPECT_EQ(Problems(),
              json::array({{{"problem", "missing file"}, {"file", Utf8(dll)}, {"loadedAs", Utf8(loaded)}}}));

    MakeDll(L"ArchiveHost.dll");
    EXPECT_EQ(Problems(), json::array({{{"problem", "missing file"},
                                        {"file", Utf8(dll)},
                                        {"loadedAs", Utf8(loaded)},
                                        {"withoutSuffix", Utf8(dll)}}}));
    EXPECT_THAT(RunTool({L"status", L"--inf", path}).output,
                HasSubstr(", is in none of the folders where it looks for it; " + Utf8(dll) + " lacks the 32\n"));

    MakeDll(L"ArchiveHost32.dll");
    const Result result = Status();
    EXPECT_EQ(result.exitCode, static_cast<DWORD>(success)) << "MAPI puts 32 behind the name";
    EXPECT_EQ(json::parse(result.output)["services"][0]["dllPath"], Utf8(loaded));
}

TEST_F(SetupTool, TellsOfEveryRegistration)
{
    MakeDll();
    EXPECT_EQ(Status({}).exitCode, static_cast<DWORD>(notRegistered));
    ASSERT_EQ(Register().exitCode, static_cast<DWORD>(success));
    ASSERT_EQ(RunTool({L"register", L"--inf", path, L"--service", L"Other archive", L"--display", L"\u00DCbriges",
                       L"--dll", L"nowhere.dll", L"--flags", L"SERVICE_SINGLE_COPY"})
                  .exitCode,
              static_cast<DWORD>(success));
    const Result result = Status({});
    EXPECT_EQ(result.exitCode, static_cast<DWORD>(faulty));
    const json services = json::parse(result.output)["services"];
    ASSERT_EQ(services.size(), 2u) << "the sample's other services are none of ours";
    EXPECT_EQ(services[0]["service"], "ArchiveSvc");
    EXPECT_EQ(services[0]["state"], "registered");
    EXPECT_EQ(services[1]["service"], "Other archive");
    EXPECT_EQ(services[1]["displayName"], Utf8(L"\u00DCbriges"));
    EXPECT_EQ(services[1]["extraFlags"], "SERVICE_SINGLE_COPY");
    EXPECT_EQ(services[1]["state"], "faulty");

    const Result text = RunTool({L"status", L"--inf", path});
    EXPECT_THAT(text.output, HasSubstr("\"ArchiveSvc\", shown as \"My Archive\": registered, nothing is wrong\n"));
    EXPECT_THAT(text.output, HasSubstr(": registered, 1 problem\n"));
    EXPECT_THAT(text.output, HasSubstr("  missing file: the DLL nowhere.dll, which MAPI loads as nowhere32.dll, "));
}

TEST_F(SetupTool, LeavesOtherServicesAlone)
{
    const std::string before = Tests::ReadFileBytes(path);
    for (const wchar_t* const service : {L"MSPST MS", L"mspst ms", L"Services", L"Default Services"})
    {
        for (const Result& result :
             {RunTool({L"register", L"--inf", path, L"--service", service, L"--display", L"x", L"--dll", L"x.dll"}),
              RunTool({L"unregister", L"--inf", path, L"--service", service})})
        {
            EXPECT_EQ(result.exitCode, static_cast<DWORD>(failure));
            ExpectOneSentence(result.errors);
        }
    }
    EXPECT_TRUE(Tests::ReadFileBytes(path) == before);
}

TEST_F(SetupTool, RefusesTextsThatTheFileCannotHold)
{
    const std::string before = Tests::ReadFileBytes(path);
    const std::vector<std::wstring> wrong[] = {
        {L"", L"x", L"x.dll", L""},
        {L"A]B", L"x", L"x.dll", L""},
        {L"A=B", L"x", L"x.dll", L""},
        {L";A", L"x", L"x.dll", L""},
        {L"A\nB", L"x", L"x.dll", L""},
        {L" A", L"x", L"x.dll", L""},
        {L"A", L"", L"x.dll", L""},
        {L"A", L"x\r\n[Services]\r\ny=z", L"x.dll", L""},
        {L"A", L"'x'", L"x.dll", L""},
        {L"A", L"x", L"", L""},
        {L"A", L"x", L"x.dll", L"F\nPR_SERVICE_DLL_NAME=evil.dll"},
        {L"A", L"x", L"x.dll", L"SERVICE_SINGLECOPY"},
        {L"A", L"x", L"x.dll", L"service_single_copy"},
        {L"A", L"x", L"x.dll", L"STATUS_DEFAULT_STORE"},
        {L"A", L"x", L"x.dll", L"SERVICE_SINGLE_COPY|"},
        {L"A", L"x", L"x.dll", L"|SERVICE_SINGLE_COPY"},
        {L"A", L"x", L"x.dll", L"SERVICE_SINGLE_COPY |SERVICE_DEFAULT_STORE"},
        {L"A", L"x", L"x.dll", L"SERVICE_SINGLE_COPY|SERVICE_PRIMARY_IDENTITY"},
        {L"A", L"\u6F22\u5B57", L"x.dll", L""},
        {L"A", L"x", L"\u6F22.dll", L""},
    };
    for (const std::vector<std::wstring>& texts : wrong)
    {
        const Result result = RunTool({L"register", L"--json", L"--inf", path, L"--service", texts[0], L"--display",
                                       texts[1], L"--dll", texts[2], L"--flags", texts[3]});
        EXPECT_EQ(result.exitCode, static_cast<DWORD>(failure)) << Utf8(texts[0] + texts[1]);
        ExpectOneSentence(result.errors);
        EXPECT_EQ("archive-setup: " + json::parse(result.output)["error"].get<std::string>() + "\n", result.errors);
    }
    EXPECT_TRUE(Tests::ReadFileBytes(path) == before);
}

TEST_F(SetupTool, RefusesFilesThatItCannotUse)
{
    const std::wstring missing = folder / L"missing.inf";
    const std::wstring unmarked = folder / L"unmarked.inf";
    const std::string bytes("[\0S\0]\0\r\0\n\0", 10);
    Tests::WriteFileBytes(unmarked, bytes);
    for (const std::wstring& inf : {missing, folder / L"no folder\\x.inf", folder.Path().wstring(), unmarked})
    {
        for (const Result& result :
             {RunTool({L"register", L"--inf", inf, L"--service", L"A", L"--display", L"x", L"--dll", L"x.dll"}),
              RunTool({L"unregister", L"--inf", inf, L"--service", L"A"}), RunTool({L"status", L"--inf", inf})})
        {
            EXPECT_EQ(result.exitCode, static_cast<DWORD>(failure)) << Utf8(inf);
            ExpectOneSentence(result.errors);
            EXPECT_EQ(result.output, "");
        }
    }
    EXPECT_EQ(GetFileAttributesW(missing.c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(Tests::ReadFileBytes(unmarked), bytes);
}

TEST_F(SetupTool, AReadOnlyFileStaysOne)
{
    constexpr DWORD attributes = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN;
    const auto expectKept = [&] { EXPECT_EQ(GetFileAttributesW(path.c_str()) & attributes, attributes); };
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), attributes));
    EXPECT_EQ(Register({L"--dry-run"}).exitCode, static_cast<DWORD>(success));
    expectKept();
    EXPECT_EQ(Register().exitCode, static_cast<DWORD>(success));
    EXPECT_EQ(ReadInf(path, L"Services", L"ArchiveSvc"), L"My Archive");
    expectKept();
    {
        const Tests::UnwritableFile unwritable(path);
        EXPECT_EQ(Register({L"--flags", L"SERVICE_SINGLE_COPY"}).exitCode, static_cast<DWORD>(failure));
        expectKept();
    }
    EXPECT_EQ(Unregister().exitCode, static_cast<DWORD>(success));
    EXPECT_EQ(ReadInf(path, L"Services", L"ArchiveSvc"), std::nullopt);
    expectKept();
}

TEST_F(SetupTool, TellsWhatIsWrongWithTheDll)
{
    ASSERT_EQ(Register().exitCode, static_cast<DWORD>(success));
    Tests::WriteFileBytes(loaded, "not empty");
    const json problems = Problems();
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0]["problem"], "not a module");
    EXPECT_EQ(problems[0]["file"], Utf8(loaded));
    const Result text = RunTool({L"status", L"--inf", path});
    EXPECT_EQ(text.exitCode, static_cast<DWORD>(faulty));
    EXPECT_THAT(text.output, HasSubstr("  not a module: " + problems[0]["detail"].get<std::string>() + "\n"));
}

TEST_F(SetupTool, TakesItsCommonOptionsBeforeAndBehindTheCommand)
{
    for (const std::vector<std::wstring>& arguments :
         {std::vector<std::wstring>{L"--json", L"status", L"--inf", path}, {L"status", L"--inf", path, L"--json"}})
        EXPECT_EQ(json::parse(RunTool(arguments).output)["command"], "status");
    for (const std::vector<std::wstring>& arguments :
         {std::vector<std::wstring>{L"--version"}, {L"register", L"--version"}, {L"--version", L"status"}})
    {
        const Result result = RunTool(arguments);
        EXPECT_EQ(result.exitCode, static_cast<DWORD>(success));
        EXPECT_THAT(result.output, testing::MatchesRegex("archive-setup \\d+\\.\\d+\\.\\d+\n"));
        EXPECT_EQ(result.errors, "");
    }
    const json version = json::parse(RunTool({L"url", L"--version", L"--json"}).output);
    EXPECT_THAT(version["version"].get<std::string>(), testing::MatchesRegex("\\d+\\.\\d+\\.\\d+"));
}

TEST_F(SetupTool, NamesAnUnknownCommand)
{
    for (const std::vector<std::wstring>& arguments :
         {std::vector<std::wstring>{L"frobnicate"}, {L"--json", L"frobnicate", L"--inf", path}})
    {
        const Result result = RunTool(arguments);
        EXPECT_EQ(result.exitCode, static_cast<DWORD>(usage));
        EXPECT_THAT(result.errors, HasSubstr("There is no command \"frobnicate\""));
    }
}

// The one test in which the shipped wait really passes.
TEST_F(SetupTool, WaitsForAFileInUse)
{
    Tests::FileMapping mapping(path);
    const auto begin = std::chrono::steady_clock::now();
    Tool tool(RegisterArguments());
    const std::string announced =
        "error: WritePrivateProfileString failed with ERROR_USER_MAPPED_FILE; retrying 9 more "
        "time(s) after sleeping 10s";
    while (tool.ErrorsSoFar().find(announced) == std::string::npos &&
           std::chrono::steady_clock::now() - begin < std::chrono::seconds(60))
        Sleep(50);
    mapping.Close();
    const Result result = tool.Finish();
    EXPECT_EQ(result.exitCode, static_cast<DWORD>(success)) << result.errors;
    EXPECT_EQ(result.errors, announced + "\n");
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(9900));
    EXPECT_EQ(ReadInf(path, L"Services", L"ArchiveSvc"), L"My Archive");
}

TEST_F(SetupTool, ShowsTheLog)
{
    EXPECT_EQ(Register({L"--verbose"}).errors.find("action: Adding service 'ArchiveSvc' to MAPISVC.INF: "), 0u);
}

TEST_F(SetupTool, RefusesAWrongStoreIdentifier)
{
    for (const wchar_t* const id : {L"0", L"0g", L"0x12", L"12 34", L"\u0661\u0661"})
    {
        for (const wchar_t* const command : {L"url", L"exclude"})
        {
            const Result result = RunTool({command, L"--store-id", id, L"--store-name", L"x"});
            EXPECT_EQ(result.exitCode, static_cast<DWORD>(failure));
            ExpectOneSentence(result.errors);
        }
    }
}

namespace
{

/// A text value in HKEY_LOCAL_MACHINE, for all programs, that is as it was at the end.
class RegistryText
{
public:
    RegistryText(std::wstring key, const wchar_t* name, const std::wstring& text) : m_key(std::move(key)), m_name(name)
    {
        DWORD size = 0;
        if (RegGetValueW(HKEY_LOCAL_MACHINE, m_key.c_str(), m_name, RRF_RT_REG_SZ, nullptr, nullptr, &size) ==
            ERROR_SUCCESS)
        {
            std::wstring previous(size / sizeof(wchar_t), L'\0');
            EXPECT_EQ(
                RegGetValueW(HKEY_LOCAL_MACHINE, m_key.c_str(), m_name, RRF_RT_REG_SZ, nullptr, previous.data(), &size),
                ERROR_SUCCESS);
            previous.resize(previous.find(L'\0'));
            m_previous = previous;
        }
        Set(text);
    }
    RegistryText(const RegistryText&) = delete;
    RegistryText& operator=(const RegistryText&) = delete;
    ~RegistryText()
    {
        if (m_previous)
            Set(*m_previous);
        else
            RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, m_key.c_str(), m_name);
    }

    void Set(const std::wstring& text)
    {
        EXPECT_EQ(RegSetKeyValueW(HKEY_LOCAL_MACHINE, m_key.c_str(), m_name, REG_SZ, text.c_str(),
                                  static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))),
                  ERROR_SUCCESS);
    }

private:
    std::wstring m_key;
    const wchar_t* m_name;
    std::optional<std::wstring> m_previous;
};

/// A mail client of the test's own is the registered one, with its MAPI module and its program in an empty folder.
class MailClientRegistration : public testing::Test
{
protected:
    MailClientRegistration()
    {
        const std::filesystem::path build = ProgramFolder().parent_path();
        EXPECT_TRUE(CopyFileW((build / L"mail-client" / L"olmapi32.dll").c_str(), module.c_str(), TRUE));
        EXPECT_TRUE(CopyFileW((build / L"outlook-versions" / L"outlook-15.exe").c_str(), program.c_str(), TRUE));
    }
    ~MailClientRegistration() override
    {
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"Software\\Clients\\Mail\\KivNst setup test");
    }

    std::wstring SystemInf() const
    {
        wchar_t system[MAX_PATH] = {};
        GetSystemDirectoryW(system, MAX_PATH);
        return std::wstring(system) + L"\\MAPISVC.INF";
    }

    const Tests::TempFolder folder;
    const std::wstring module = folder / L"mapi of the test.dll";
    const std::wstring program = folder / L"outlook.exe";

private:
    const RegistryText m_client{L"Software\\Clients\\Mail", nullptr, L"KivNst setup test"};
    const RegistryText m_module{L"Software\\Clients\\Mail\\KivNst setup test", L"DllPathEx", module};
    const RegistryText m_program{L"Software\\Microsoft\\Windows\\CurrentVersion\\App Paths\\outlook.exe", nullptr,
                                 program};
};

} // namespace

TEST_F(MailClientRegistration, LeadsToTheFileBesideTheMapiModule)
{
    const std::wstring inf = folder / L"MAPISVC.INF";
    Tests::WriteFileBytes(inf, Tests::SampleInf());
    const Result result = RunTool({L"status", L"--json"});
    EXPECT_EQ(result.exitCode, static_cast<DWORD>(notRegistered)) << result.errors;
    const json file = json::parse(result.output)["file"];
    EXPECT_EQ(file["path"], Utf8(inf));
    EXPECT_EQ(file["found"], "beside the MAPI module \"" + Utf8(module) + "\"");

    ASSERT_EQ(RunTool({L"register", L"--service", L"A", L"--display", L"B", L"--dll", L"own.dll"}).exitCode,
              static_cast<DWORD>(success));
    EXPECT_EQ(ReadInf(inf, L"Services", L"A"), L"B");
    // The module is looked for in the mail client's folder, too.
    EXPECT_TRUE(CopyFileW((ProgramFolder() / L"ArchiveHost32.dll").c_str(), (folder / L"own32.dll").c_str(), TRUE));
    const Result status = RunTool({L"status", L"--json"});
    EXPECT_EQ(status.exitCode, static_cast<DWORD>(success)) << status.output;
    EXPECT_EQ(json::parse(status.output)["services"][0]["dllPath"], Utf8(folder / L"own32.dll"));
    EXPECT_EQ(RunTool({L"unregister", L"--service", L"A"}).exitCode, static_cast<DWORD>(success));
}

TEST_F(MailClientRegistration, OtherwiseLeadsToTheSystemFolder)
{
    ASSERT_EQ(GetFileAttributesW(SystemInf().c_str()), INVALID_FILE_ATTRIBUTES) << "the prefix has a file of its own";
    const Result none = RunTool({L"status"});
    EXPECT_EQ(none.exitCode, static_cast<DWORD>(failure));
    ExpectOneSentence(none.errors);
    EXPECT_THAT(none.errors, HasSubstr(Utf8(folder / L"MAPISVC.INF")));
    EXPECT_THAT(none.errors, HasSubstr(Utf8(SystemInf())));

    Tests::WriteFileBytes(SystemInf(), Tests::SampleInf());
    const Result result = RunTool({L"status", L"--json"});
    EXPECT_TRUE(DeleteFileW(SystemInf().c_str()));
    EXPECT_EQ(result.exitCode, static_cast<DWORD>(notRegistered)) << result.errors;
    const json file = json::parse(result.output)["file"];
    EXPECT_EQ(file["path"], Utf8(SystemInf()));
    EXPECT_EQ(file["found"], "in the system folder");
}

TEST_F(MailClientRegistration, GivesTheUrlItsScheme)
{
    const std::vector<std::wstring> arguments = {L"url", L"--store-id", L"01000000FF", L"--store-name",
                                                 L"\u00C4rchiv/100%"};
    const Result result = RunTool(arguments);
    EXPECT_EQ(result.exitCode, static_cast<DWORD>(success)) << result.errors;
    EXPECT_EQ(result.output.find("mapi15://{S-1-5-"), 0u) << result.output;
    // 33 * 1 + 255
    EXPECT_THAT(result.output, testing::EndsWith("}/\xC3\x84rchiv%2F100%25(120)/\n"));

    std::vector<std::wstring> inJson = arguments;
    inJson.emplace_back(L"--json");
    EXPECT_EQ(json::parse(RunTool(inJson).output)["url"].get<std::string>() + "\n", result.output);

    ASSERT_TRUE(DeleteFileW(program.c_str()));
    const Result failed = RunTool(inJson);
    EXPECT_EQ(failed.exitCode, static_cast<DWORD>(failure));
    ExpectOneSentence(failed.errors);
    EXPECT_THAT(json::parse(failed.output)["error"].get<std::string>(),
                HasSubstr("Unable to determine Outlook version"));
}

// In this process, where the system has no search service whatever the machine has.
TEST_F(MailClientRegistration, DoesNotMakeUpForTheSearchService)
{
    const Tests::NoSearchService none;
    try
    {
        Setup::ExcludeCommand({L"00", L"x"});
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const Setup::SetupError& error)
    {
        EXPECT_THAT(error.what(), HasSubstr("cannot be excluded from the search index: "));
        EXPECT_EQ(error.Text().find(L'\n'), std::wstring::npos);
    }
}
