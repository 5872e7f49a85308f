// The search for the PST module. Each test has a process of its own: what is loaded stays.
#include "nst/KivNstCore.h"
#include "support/Exceptions.h"
#include "tests/common/Alone.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Setting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using namespace Quillon;
using Nst::GetPstModule;
using testing::ElementsAreArray;
using Tests::CopyDouble;
using Tests::Entry;
using Tests::ImportHook;
using Tests::LogCapture;
using Tests::TempFolder;
using Tests::Text;

namespace
{

using Lines = std::vector<testing::Matcher<const Tests::LogLine&>>;

constexpr auto file = L"KivNstCore.cpp";

std::wstring PathOf(HMODULE module)
{
    wchar_t path[MAX_PATH] = {};
    return module ? std::wstring(path, GetModuleFileNameW(module, path, MAX_PATH)) : std::wstring();
}

std::wstring TextOfError(DWORD error)
{
    return Text(CWinError(error).Format());
}

/// A mail client that is installed in one folder and whose MAPI module lies in another; neither has a PST module.
struct MailClient
{
    Tests::ScratchRegistry registry;
    TempFolder outlook;
    TempFolder mapi;

    MailClient()
    {
        CopyFileW(Tests::OutlookProgram().c_str(), (outlook / L"outlook.exe").c_str(), TRUE);
        registry.SetOutlookPath(outlook / L"outlook.exe");
        CopyDouble(L"MapiDouble.dll", mapi / L"olmapi32.dll");
        LoadLibraryW((mapi / L"olmapi32.dll").c_str());
    }

    std::wstring OutlookModule() const { return outlook / L"mspst32.dll"; }
    std::wstring MapiModule() const { return mapi / L"mspst32.dll"; }
};

/// A module of the processor that this one is not.
void WriteForeignModule(const std::wstring& path)
{
    CopyDouble(L"PstDouble.dll", path);
    std::string bytes = Tests::ReadFileBytes(path);
    LONG headerAt = 0;
    std::memcpy(&headerAt, bytes.data() + 0x3C, sizeof(headerAt));
    const WORD machine = IMAGE_FILE_MACHINE_ARM64;
    std::memcpy(bytes.data() + headerAt + 4, &machine, sizeof(machine));
    Tests::WriteFileBytes(path, bytes);
}

Lines operator+(Lines left, const Lines& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

auto Trace(const std::wstring& text)
{
    return Entry(LogId::Trace, text);
}

// The steps of a search as its trace shows them.

Lines NotResident()
{
    return {Trace(L"Entered GetPstModule"), Trace(L"Trying the resident mspst32.dll module"),
            Trace(L"mspst32.dll not resident")};
}

Lines TryingOutlook()
{
    return {Trace(L"Trying the Outlook application directory")};
}

Lines TryingMapi()
{
    return {Trace(L"Trying the MAPI directory")};
}

Lines NotFoundIn(const TempFolder& folder)
{
    return {Trace(L"Trying to load mspst32.dll from directory: " + folder.Path().wstring()),
            Entry(LogId::Action, L"mspst32.dll not found in: " + folder.Path().wstring())};
}

Lines LoadingFrom(const TempFolder& folder)
{
    return {Trace(L"Trying to load mspst32.dll from directory: " + folder.Path().wstring()),
            Trace(L"Loading mspst32.dll: " + folder / L"mspst32.dll")};
}

Lines LoadedFrom(const TempFolder& folder)
{
    return LoadingFrom(folder) + Lines{Entry(LogId::Action, L"Loaded mspst32.dll: " + folder / L"mspst32.dll")};
}

Lines Unloadable(const std::wstring& text)
{
    return {Tests::Throwing(file, L"LoadPstModule", text), Tests::Caught(file, L"GetPstModuleImpl", text)};
}

struct TraceLogging
{
    TraceLogging() { Logging::EnableTraceLogging(true); }
    TraceLogging(const TraceLogging&) = delete;
    TraceLogging& operator=(const TraceLogging&) = delete;
    ~TraceLogging() { Logging::EnableTraceLogging(false); }
};

// What the hooks below are told.
std::wstring hiddenPath;
std::wstring emptyFolder;

} // namespace

TEST_ALONE(PstModule, ResidentInTheProcessIsTakenWithOneMoreReference)
{
    const MailClient client;
    const TempFolder folder;
    CopyDouble(L"PstDouble.dll", client.OutlookModule());
    CopyDouble(L"PstDouble.dll", folder / L"mspst32.dll");
    const HMODULE resident = LoadLibraryW((folder / L"mspst32.dll").c_str());
    ASSERT_NE(resident, nullptr);
    const TraceLogging trace;
    const LogCapture log;
    EXPECT_EQ(GetPstModule(), resident);
    EXPECT_THAT(log.Lines(),
                ElementsAreArray(Lines{Trace(L"Entered GetPstModule"), Trace(L"Trying the resident mspst32.dll module"),
                                       Trace(L"Using resident mspst32.dll module")}));
    EXPECT_EQ(GetPstModule(), resident);
    // Two calls took two references, besides this test's own.
    FreeLibrary(resident);
    FreeLibrary(resident);
    EXPECT_EQ(GetModuleHandleW(L"mspst32.dll"), resident);
    FreeLibrary(resident);
    EXPECT_EQ(GetModuleHandleW(L"mspst32.dll"), nullptr);
}

TEST_ALONE(PstModule, IsLoadedFromOutlooksDirectory)
{
    const MailClient client;
    CopyDouble(L"PstDouble.dll", client.OutlookModule());
    CopyDouble(L"PstDouble.dll", client.MapiModule());
    const TraceLogging trace;
    const LogCapture log;
    EXPECT_EQ(PathOf(GetPstModule()), client.OutlookModule());
    EXPECT_THAT(log.Lines(), ElementsAreArray(NotResident() + TryingOutlook() + LoadedFrom(client.outlook)));
}

TEST_ALONE(PstModule, ThatIsFoundLogsOneLineWithoutTrace)
{
    const MailClient client;
    CopyDouble(L"PstDouble.dll", client.OutlookModule());
    const LogCapture log;
    EXPECT_NE(GetPstModule(), nullptr);
    EXPECT_THAT(log.Lines(),
                testing::ElementsAre(Entry(LogId::Action, L"Loaded mspst32.dll: " + client.OutlookModule())));
}

TEST_ALONE(PstModule, IsLoadedFromTheMapiDirectoryWhenOutlooksLacksIt)
{
    const MailClient client;
    CopyDouble(L"PstDouble.dll", client.MapiModule());
    const TraceLogging trace;
    const LogCapture log;
    EXPECT_EQ(PathOf(GetPstModule()), client.MapiModule());
    EXPECT_THAT(log.Lines(), ElementsAreArray(NotResident() + TryingOutlook() + NotFoundIn(client.outlook) +
                                              TryingMapi() + LoadedFrom(client.mapi)));
}

TEST_ALONE(PstModule, IsLoadedFromTheMapiDirectoryWhenOutlooksIsUnknown)
{
    MailClient client;
    client.registry.SetOutlookPath(L"");
    CopyDouble(L"PstDouble.dll", client.MapiModule());
    const TraceLogging trace;
    const LogCapture log;
    EXPECT_EQ(PathOf(GetPstModule()), client.MapiModule());
    EXPECT_THAT(log.Lines(), ElementsAreArray(NotResident() + TryingOutlook() +
                                              Lines{Trace(L"Unable to identify Outlook application directory")} +
                                              TryingMapi() + LoadedFrom(client.mapi)));
}

TEST_ALONE(PstModule, ThatCannotBeLoadedIsCaughtAndTheNextDirectoryTried)
{
    const MailClient client;
    WriteForeignModule(client.OutlookModule());
    ASSERT_EQ(LoadLibraryW(client.OutlookModule().c_str()), nullptr);
    const std::wstring text = TextOfError(GetLastError());
    CopyDouble(L"PstDouble.dll", client.MapiModule());
    const TraceLogging trace;
    const LogCapture log;
    EXPECT_EQ(PathOf(GetPstModule()), client.MapiModule());
    EXPECT_THAT(log.Lines(), ElementsAreArray(NotResident() + TryingOutlook() + LoadingFrom(client.outlook) +
                                              Unloadable(text) + TryingMapi() + LoadedFrom(client.mapi)));
}

TEST_ALONE(PstModule, ThatCannotBeLoadedFromTheMapiDirectoryGivesNull)
{
    const MailClient client;
    Tests::WriteFileBytes(client.MapiModule(), "no module");
    ASSERT_EQ(LoadLibraryW(client.MapiModule().c_str()), nullptr);
    const std::wstring text = TextOfError(GetLastError());
    const TraceLogging trace;
    const LogCapture log;
    EXPECT_EQ(GetPstModule(), nullptr);
    EXPECT_THAT(log.Lines(), ElementsAreArray(NotResident() + TryingOutlook() + NotFoundIn(client.outlook) +
                                              TryingMapi() + LoadingFrom(client.mapi) + Unloadable(text) +
                                              Lines{Entry(LogId::Error, L"Unable to load MSPST32.DLL")}));
}

TEST_ALONE(PstModule, ThatIsNowhereIsSoughtTwiceTheSecondTimeWithTrace)
{
    const MailClient client;
    const LogCapture log;
    EXPECT_EQ(GetPstModule(), nullptr);
    EXPECT_FALSE(Logging::IsLogEnabled(LogId::Trace)) << "trace logging is as before";
    const Lines untraced = {Entry(LogId::Action, L"mspst32.dll not found in: " + client.outlook.Path().wstring()),
                            Entry(LogId::Action, L"mspst32.dll not found in: " + client.mapi.Path().wstring())};
    EXPECT_THAT(
        log.Lines(),
        ElementsAreArray(
            untraced + Lines{Entry(LogId::Error, L"Unable to load MSPST32.DLL; retrying with trace logging enabled")} +
            NotResident() + TryingOutlook() + NotFoundIn(client.outlook) + TryingMapi() + NotFoundIn(client.mapi)));
}

TEST_ALONE(PstModule, ThatIsNowhereIsSoughtOnceWhenTraceIsOnAlready)
{
    const MailClient client;
    const TraceLogging trace;
    const LogCapture log;
    EXPECT_EQ(GetPstModule(), nullptr);
    EXPECT_TRUE(Logging::IsLogEnabled(LogId::Trace)) << "trace logging is as before";
    EXPECT_THAT(log.Lines(),
                ElementsAreArray(NotResident() + TryingOutlook() + NotFoundIn(client.outlook) + TryingMapi() +
                                 NotFoundIn(client.mapi) + Lines{Entry(LogId::Error, L"Unable to load MSPST32.DLL")}));
}

TEST_ALONE(PstModule, ThatTheSecondSearchFindsIsGivenWithoutAFurtherLine)
{
    static const MailClient client;
    static std::vector<std::wstring> lines;
    // It is put in place between the searches.
    Logging::SetLogSink(
        [](void*, const Logging::LogLine& line)
        {
            lines.emplace_back(line.text);
            if (line.level == LogId::Error)
                CopyDouble(L"PstDouble.dll", client.MapiModule());
        },
        nullptr);
    EXPECT_EQ(PathOf(GetPstModule()), client.MapiModule());
    Logging::SetLogSink(nullptr, nullptr);
    EXPECT_FALSE(Logging::IsLogEnabled(LogId::Trace));
    EXPECT_EQ(lines.back(), L"Loaded mspst32.dll: " + client.MapiModule());
}

TEST_ALONE(PstModule, IsNotSoughtInADirectoryThatDoesNotExist)
{
    const MailClient client;
    CopyDouble(L"PstDouble.dll", client.MapiModule());
    hiddenPath = client.outlook.Path().wstring();
    const ImportHook<DWORD(LPCWSTR)> hook(
        "GetFileAttributesW",
        [](LPCWSTR path) -> DWORD { return path == hiddenPath ? INVALID_FILE_ATTRIBUTES : GetFileAttributesW(path); });
    const TraceLogging trace;
    const LogCapture log;
    EXPECT_EQ(PathOf(GetPstModule()), client.MapiModule());
    EXPECT_THAT(log.Lines(), ElementsAreArray(NotResident() + TryingOutlook() +
                                              Lines{Trace(L"Trying to load mspst32.dll from directory: " + hiddenPath),
                                                    Entry(LogId::Error, L"Directory does not exist: " + hiddenPath)} +
                                              TryingMapi() + LoadedFrom(client.mapi)));
}

TEST_ALONE(PstModule, IsSoughtOnDiskWhenTheResidentOneCannotBeLoadedAgain)
{
    const MailClient client;
    const TempFolder folder;
    CopyDouble(L"PstDouble.dll", client.OutlookModule());
    hiddenPath = folder / L"mspst32.dll";
    CopyDouble(L"PstDouble.dll", hiddenPath);
    ASSERT_NE(LoadLibraryW(hiddenPath.c_str()), nullptr);
    const ImportHook<HMODULE(LPCWSTR)> hook("LoadLibraryW",
                                            [](LPCWSTR path) -> HMODULE
                                            {
                                                if (path != hiddenPath)
                                                    return LoadLibraryW(path);
                                                SetLastError(ERROR_FILE_INVALID);
                                                return nullptr;
                                            });
    const TraceLogging trace;
    const LogCapture log;
    EXPECT_EQ(PathOf(GetPstModule()), client.OutlookModule());
    const std::wstring text = TextOfError(ERROR_FILE_INVALID);
    EXPECT_THAT(log.Lines(),
                ElementsAreArray(Lines{Trace(L"Entered GetPstModule"), Trace(L"Trying the resident mspst32.dll module"),
                                       Tests::Throwing(file, L"GetPstModuleImpl", text),
                                       Tests::Caught(file, L"GetPstModuleImpl", text)} +
                                 TryingOutlook() + LoadedFrom(client.outlook)));
}

TEST_ALONE(PstModule, ThatCannotBeLoadedLeavesTheErrorOfTheLastCandidate)
{
    const MailClient client;
    CopyDouble(L"PstDouble.dll", client.OutlookModule());
    CopyDouble(L"PstDouble.dll", client.MapiModule());
    // The system has no text for it; to ask for one, and to free memory, disturbs the error.
    static constexpr DWORD noText = 0xBEEF;
    ASSERT_EQ(TextOfError(noText), L"Error 48879 (0x0000BEEF)");
    hiddenPath = client.MapiModule();
    const ImportHook<HMODULE(LPCWSTR)> load("LoadLibraryW",
                                            [](LPCWSTR path) -> HMODULE
                                            {
                                                SetLastError(path == hiddenPath ? noText : DWORD(ERROR_FILE_INVALID));
                                                return nullptr;
                                            });
    const ImportHook<void(void*)> release("free",
                                          [](void* block)
                                          {
                                              std::free(block);
                                              SetLastError(ERROR_INVALID_ADDRESS);
                                          });
    const LogCapture log;
    EXPECT_EQ(GetPstModule(), nullptr);
    EXPECT_EQ(GetLastError(), noText);
    const std::wstring text = L"Error 48879 (0x0000BEEF)";
    EXPECT_THAT(log.Lines().back(), Tests::Caught(file, L"GetPstModuleImpl", text));
}

TEST_ALONE(PstModule, ThatIsLoadedIsGivenThoughThereIsNoMemoryToTellOfIt)
{
    const MailClient client;
    CopyDouble(L"PstDouble.dll", client.OutlookModule());
    static bool isLoaded = false;
    static int loads = 0;
    const ImportHook<HMODULE(LPCWSTR)> load("LoadLibraryW",
                                            [](LPCWSTR path) -> HMODULE
                                            {
                                                isLoaded = true;
                                                ++loads;
                                                return LoadLibraryW(path);
                                            });
    const ImportHook<void*(std::size_t)> allocate("malloc", [](std::size_t size) -> void*
                                                  { return isLoaded ? nullptr : std::malloc(size); });
    const LogCapture log;
    const HMODULE module = GetPstModule();
    isLoaded = false;
    EXPECT_EQ(PathOf(module), client.OutlookModule());
    EXPECT_EQ(loads, 1) << "one reference on the module";
    EXPECT_THAT(log.Lines().back(), Entry(LogId::Action, L"Loaded mspst32.dll: %s"));
}

TEST_ALONE(PstModule, IsNowhereWithoutAMailClient)
{
    const Tests::ScratchRegistry registry;
    const TempFolder folder;
    emptyFolder = folder.Path().wstring();
    const ImportHook<UINT(LPWSTR, UINT)> hook("GetSystemDirectoryW",
                                              [](LPWSTR buffer, UINT size) -> UINT
                                              {
                                                  buffer[emptyFolder.copy(buffer, size)] = L'\0';
                                                  return static_cast<UINT>(emptyFolder.size());
                                              });
    const TraceLogging trace;
    const LogCapture log;
    EXPECT_EQ(GetPstModule(), nullptr);
    EXPECT_THAT(log.Lines(),
                ElementsAreArray(NotResident() + TryingOutlook() +
                                 Lines{Trace(L"Unable to identify Outlook application directory")} + TryingMapi() +
                                 Lines{Trace(L"Unable to identify MAPI directory"),
                                       Entry(LogId::Error, L"Unable to load MSPST32.DLL")}));
}
