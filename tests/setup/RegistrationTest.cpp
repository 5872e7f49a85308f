// Registering and unregistering: the entries and their order, the retries, and what ends them.
#include "nst/StoreProviderRegistration.h"

#include "support/Exceptions.h"
#include "support/Format.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Setting.h"
#include "tests/setup/MapiSvcInf.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>

using namespace Quillon;
using namespace Quillon::OutlookAddIn;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Tests::Entry;
using Tests::InfEntry;
using Tests::ReadInf;
using Tests::Throwing;

namespace
{

constexpr auto file = L"StoreProviderRegistration.cpp";
constexpr auto registerFunction = L"Quillon::OutlookAddIn::RegisterStoreProvider";
constexpr auto unregisterFunction = L"Quillon::OutlookAddIn::UnregisterStoreProvider";

std::wstring Describe(DWORD error)
{
    return Tests::Text(CWinError(error, L"").Format());
}

auto Adding(const std::wstring& path)
{
    return Entry(LogId::Action, L"Adding service 'ArchiveSvc' to MAPISVC.INF: " + path);
}

auto Removing(const std::wstring& path)
{
    return Entry(LogId::Action, L"Removing service 'ArchiveSvc' from MAPISVC.INF: " + path);
}

auto FailedToWrite(const std::wstring& path, const InfEntry& entry, DWORD error)
{
    return Entry(LogId::Error, L"Failed to write private profile value to file '" + path + L"', [" + entry.section +
                                   L"]." + entry.key + L" = '" + entry.value + L"': " + Describe(error));
}

auto Retrying(int more)
{
    return Entry(LogId::Error, L"WritePrivateProfileString failed with ERROR_USER_MAPPED_FILE; retrying " +
                                   std::to_wstring(more) + L" more time(s) after sleeping 10s");
}

/// Watches the library's calls of WritePrivateProfileStringW, and has those fail that the test names.
class WriteWatcher
{
public:
    struct Call
    {
        std::wstring section;
        std::optional<std::wstring> key;
        std::optional<std::wstring> value;
        std::wstring path;

        bool operator==(const Call& other) const = default;
    };

    WriteWatcher() : m_hook("WritePrivateProfileStringW", &Write) { s_current = this; }
    ~WriteWatcher() { s_current = nullptr; }

    /// Has the n-th call (1 is the first) fail with `error`, without reaching the system.
    void FailCall(std::size_t n, DWORD error)
    {
        m_failing = n;
        m_error = error;
    }
    /// Called before each call with its number.
    std::function<void(std::size_t n)> before = [](std::size_t) {};

    std::vector<Call> calls;

private:
    static std::optional<std::wstring> Optional(const wchar_t* text)
    {
        return text ? std::make_optional<std::wstring>(text) : std::nullopt;
    }

    static BOOL WINAPI Write(const wchar_t* section, const wchar_t* key, const wchar_t* value, const wchar_t* path)
    {
        WriteWatcher& self = *s_current;
        self.calls.push_back({section, Optional(key), Optional(value), path});
        self.before(self.calls.size());
        if (self.calls.size() != self.m_failing)
            return self.m_hook.Original()(section, key, value, path);
        SetLastError(self.m_error);
        return FALSE;
    }

    static inline WriteWatcher* s_current = nullptr;
    Tests::ImportHook<decltype(WritePrivateProfileStringW)> m_hook;
    std::size_t m_failing = 0;
    DWORD m_error = 0;
};

void PrintTo(const WriteWatcher::Call& call, std::ostream* stream)
{
    *stream << '[' << Tests::Narrow(call.section) << "] " << Tests::Narrow(call.key.value_or(L"<null>")) << '='
            << Tests::Narrow(call.value.value_or(L"<null>")) << " in " << Tests::Narrow(call.path);
}

/// The waits between two attempts: none takes any time; the test may do something in each.
class Waits
{
public:
    Waits() { s_current = this; }
    Waits(const Waits&) = delete;
    Waits& operator=(const Waits&) = delete;
    ~Waits() { s_current = nullptr; }

    std::function<void()> during = [] {};
    std::vector<unsigned long> times;

private:
    static void WINAPI Wait(DWORD milliseconds)
    {
        s_current->times.push_back(milliseconds);
        s_current->during();
    }

    static inline Waits* s_current = nullptr;
    Tests::ImportHook<decltype(Sleep)> m_hook{"Sleep", &Wait};
};

std::vector<WriteWatcher::Call> AsCalls(const std::vector<InfEntry>& entries, const std::wstring& path)
{
    std::vector<WriteWatcher::Call> calls;
    for (const InfEntry& entry : entries)
        calls.push_back({entry.section, entry.key, entry.value, path});
    return calls;
}

class Registration : public testing::Test
{
protected:
    Registration() { Tests::WriteFileBytes(path, "[Services]\r\nOther=Other service\r\n"); }

    void Register(const wchar_t* extraFlags = L"") const
    {
        RegisterStoreProvider(L"ArchiveSvc", L"My Archive", L"ArchiveHost.dll", path.c_str(), extraFlags);
    }
    void Unregister() const { UnregisterStoreProvider(L"ArchiveSvc", path.c_str()); }

    /// The error of the CWinError with which `body` ends; 0 when it ends with none.
    template <class Body>
    static DWORD ErrorOf(Body body)
    {
        try
        {
            body();
        }
        catch (const CWinError& error)
        {
            return error.GetError();
        }
        return 0;
    }

    void ExpectRegistered(std::size_t count) const
    {
        for (std::size_t index = 0; index < entries.size(); ++index)
        {
            const InfEntry& entry = entries[index];
            EXPECT_EQ(ReadInf(path, entry.section, entry.key),
                      index < count ? std::make_optional(entry.value) : std::nullopt)
                << testing::PrintToString(entry);
        }
        EXPECT_EQ(ReadInf(path, L"Services", L"Other"), L"Other service");
    }

    const Tests::TempFolder folder;
    const std::wstring path = folder / L"MAPISVC.INF";
    const std::vector<InfEntry> entries = Tests::ExpectedEntries(L"ArchiveSvc", L"My Archive", L"ArchiveHost.dll", L"");
};

} // namespace

TEST(StoreProviderName, IsTheServicesWithASuffix)
{
    EXPECT_EQ(Tests::Text(GetStoreProviderNameFromServiceName(L"ArchiveSvc")), L"ArchiveSvc_P");
    EXPECT_EQ(Tests::Text(GetStoreProviderNameFromServiceName(L"")), L"_P");
    EXPECT_EQ(Tests::Text(GetStoreProviderNameFromServiceName(L"%s \u00E4")), L"%s \u00E4_P");
}

TEST_F(Registration, WritesTheEntriesInTheirOrder)
{
    WriteWatcher watcher;
    Tests::LogCapture log;
    Register();
    EXPECT_THAT(watcher.calls, ElementsAreArray(AsCalls(entries, path)));
    EXPECT_EQ(watcher.calls.size(), 14u);
    EXPECT_THAT(log.Lines(), ElementsAre(Adding(path)));
    ExpectRegistered(14);
}

TEST_F(Registration, GivesTheFileTheSectionsWithTheirLines)
{
    Register();
    EXPECT_EQ(Tests::ReadFileBytes(path), "[Services]\r\n"
                                          "Other=Other service\r\n"
                                          "ArchiveSvc=My Archive\r\n"
                                          "[ArchiveSvc_P]\r\n"
                                          "PR_RESOURCE_TYPE=MAPI_STORE_PROVIDER\r\n"
                                          "PR_PROVIDER_DLL_NAME=ArchiveHost.dll\r\n"
                                          "PR_RESOURCE_FLAGS=STATUS_NO_DEFAULT_STORE|STATUS_NO_PRIMARY_IDENTITY\r\n"
                                          "PR_DISPLAY_NAME=My Archive\r\n"
                                          "PR_PROVIDER_DISPLAY=My Archive Provider\r\n"
                                          "0x67020003=00000010\r\n"
                                          "[ArchiveSvc]\r\n"
                                          "PR_DISPLAY_NAME=My Archive\r\n"
                                          "PR_SERVICE_DLL_NAME=ArchiveHost.dll\r\n"
                                          "PR_SERVICE_ENTRY_NAME=ServiceEntry\r\n"
                                          "PR_RESOURCE_FLAGS=SERVICE_NO_PRIMARY_IDENTITY\r\n"
                                          "Providers=ArchiveSvc_P\r\n"
                                          "PR_SERVICE_SUPPORT_FILES=ArchiveHost.dll\r\n"
                                          "PR_SERVICE_DELETE_FILES=ArchiveHost.dll\r\n");
}

TEST_F(Registration, AddsTheExtraFlags)
{
    Register(L"X");
    EXPECT_EQ(ReadInf(path, L"ArchiveSvc", L"PR_RESOURCE_FLAGS"), L"SERVICE_NO_PRIMARY_IDENTITY|X");
    Register(L"SERVICE_SINGLE_COPY|SERVICE_CREATE_WITH_STORE");
    EXPECT_EQ(ReadInf(path, L"ArchiveSvc", L"PR_RESOURCE_FLAGS"),
              L"SERVICE_NO_PRIMARY_IDENTITY|SERVICE_SINGLE_COPY|SERVICE_CREATE_WITH_STORE");
    Register();
    EXPECT_EQ(ReadInf(path, L"ArchiveSvc", L"PR_RESOURCE_FLAGS"), L"SERVICE_NO_PRIMARY_IDENTITY");
}

TEST_F(Registration, ReplacesOtherValues)
{
    RegisterStoreProvider(L"ArchiveSvc", L"Old name", L"old.dll", path.c_str(), L"OLD");
    Register();
    ExpectRegistered(14);
}

TEST_F(Registration, EndsAtTheFirstEntryThatFails)
{
    for (std::size_t failing = 1; failing <= entries.size(); ++failing)
    {
        SCOPED_TRACE(failing);
        Tests::WriteFileBytes(path, "[Services]\r\nOther=Other service\r\n");
        WriteWatcher watcher;
        Waits waits;
        Tests::LogCapture log;
        watcher.FailCall(failing, ERROR_DISK_FULL);
        EXPECT_EQ(ErrorOf([&] { Register(); }), static_cast<DWORD>(ERROR_DISK_FULL));

        EXPECT_EQ(watcher.calls.size(), failing);
        EXPECT_THAT(waits.times, IsEmpty());
        EXPECT_THAT(log.Lines(), ElementsAre(Adding(path), Throwing(file, registerFunction, Describe(ERROR_DISK_FULL)),
                                             FailedToWrite(path, entries[failing - 1], ERROR_DISK_FULL)));
        ExpectRegistered(failing - 1);
    }
}

TEST_F(Registration, IsTriedAgainWhenTheMappingIsGone)
{
    Tests::FileMapping mapping(path);
    Waits waits;
    waits.during = [&] { mapping.Close(); };
    Tests::LogCapture log;
    Register();
    EXPECT_THAT(waits.times, ElementsAre(10000u));
    EXPECT_THAT(log.Lines(),
                ElementsAre(Adding(path), Throwing(file, registerFunction, Describe(ERROR_USER_MAPPED_FILE)),
                            FailedToWrite(path, entries[0], ERROR_USER_MAPPED_FILE), Retrying(9)));
    ExpectRegistered(14);
}

TEST_F(Registration, EndsAfterTenAttemptsOfOneEntry)
{
    const std::string before = Tests::ReadFileBytes(path);
    {
        const Tests::FileMapping mapping(path);
        Waits waits;
        WriteWatcher watcher;
        Tests::LogCapture log;
        EXPECT_EQ(ErrorOf([&] { Register(); }), static_cast<DWORD>(ERROR_USER_MAPPED_FILE));

        std::vector<testing::Matcher<const Tests::LogLine&>> lines = {Adding(path)};
        for (int more = 9; more >= 0; --more)
        {
            lines.push_back(Throwing(file, registerFunction, Describe(ERROR_USER_MAPPED_FILE)));
            lines.push_back(FailedToWrite(path, entries[0], ERROR_USER_MAPPED_FILE));
            if (more > 0)
                lines.push_back(Retrying(more));
        }
        EXPECT_THAT(log.Lines(), ElementsAreArray(lines));
        EXPECT_EQ(waits.times, std::vector<unsigned long>(9, 10000));
        EXPECT_EQ(watcher.calls, std::vector<WriteWatcher::Call>(10, AsCalls(entries, path)[0]));
    }
    EXPECT_EQ(Tests::ReadFileBytes(path), before);
}

TEST_F(Registration, SucceedsAtTheTenthAttempt)
{
    Tests::FileMapping mapping(path);
    Waits waits;
    waits.during = [&]
    {
        if (waits.times.size() == 9)
            mapping.Close();
    };
    Register();
    EXPECT_EQ(waits.times.size(), 9u);
    ExpectRegistered(14);
}

TEST_F(Registration, CountsTheAttemptsOfEachEntryAnew)
{
    // The file is mapped before entries 3, 4 and 14; the call numbers count the repeated attempts too.
    std::unique_ptr<Tests::FileMapping> mapping;
    WriteWatcher watcher;
    watcher.before = [&](std::size_t n)
    {
        if (n == 3 || n == 5 || n == 16)
            mapping = std::make_unique<Tests::FileMapping>(path);
    };
    Waits waits;
    waits.during = [&] { mapping.reset(); };
    Tests::LogCapture log;
    Register();
    const auto throwing = Throwing(file, registerFunction, Describe(ERROR_USER_MAPPED_FILE));
    EXPECT_THAT(log.Lines(),
                ElementsAre(Adding(path), throwing, FailedToWrite(path, entries[2], ERROR_USER_MAPPED_FILE),
                            Retrying(9), throwing, FailedToWrite(path, entries[3], ERROR_USER_MAPPED_FILE), Retrying(9),
                            throwing, FailedToWrite(path, entries[13], ERROR_USER_MAPPED_FILE), Retrying(9)));
    EXPECT_EQ(watcher.calls.size(), 17u);
    ExpectRegistered(14);
}

TEST_F(Registration, EndsWhenARetryFailsOtherwise)
{
    Tests::FileMapping mapping(path);
    WriteWatcher watcher;
    watcher.FailCall(2, ERROR_SHARING_VIOLATION);
    Waits waits;
    EXPECT_EQ(ErrorOf([&] { Register(); }), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(waits.times.size(), 1u);
    mapping.Close();
    ExpectRegistered(0);
}

TEST_F(Registration, TriesAgainThoughThereIsNoMemoryToTellOfTheFailure)
{
    Tests::FileMapping mapping(path);
    WriteWatcher watcher;
    std::optional<Tests::NoMemory> noMemory;
    // From the first call, which fails, until the wait behind it.
    watcher.before = [&](std::size_t n)
    {
        if (n == 1)
            noMemory.emplace();
    };
    Waits waits;
    waits.during = [&]
    {
        noMemory.reset();
        mapping.Close();
    };
    Tests::LogCapture log;
    Register();
    EXPECT_EQ(waits.times.size(), 1u);
    ExpectRegistered(14);
    EXPECT_THAT(log.Lines(), testing::Contains(Entry(LogId::Error, L"Failed to write private profile value")));
}

TEST_F(Registration, ClearsTheReadOnlyFlag)
{
    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
    Register();
    ExpectRegistered(14);
    EXPECT_EQ(GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);

    ASSERT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
    Unregister();
    ExpectRegistered(0);
    EXPECT_EQ(GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_READONLY, 0u);
}

TEST_F(Registration, GoesOnWhenTheFlagCannotBeCleared)
{
    const Tests::ImportHook<decltype(GetFileAttributesW)> readOnly("GetFileAttributesW", [](const wchar_t*) -> DWORD
                                                                   { return FILE_ATTRIBUTE_READONLY; });
    const Tests::ImportHook<decltype(SetFileAttributesW)> stuck("SetFileAttributesW",
                                                                [](const wchar_t*, DWORD)
                                                                {
                                                                    SetLastError(ERROR_WRITE_PROTECT);
                                                                    return FALSE;
                                                                });
    const std::wstring told = Tests::Text(CWinError(ERROR_WRITE_PROTECT, path.c_str()).Format());
    const auto throwing = Throwing(L"Os.cpp", L"Quillon::Os::ResetFileAttributes", told);
    const auto caught = Tests::Caught(file, L"ClearReadOnlyFlag", told);
    Tests::LogCapture log;
    Register();
    EXPECT_THAT(log.Take(), ElementsAre(Adding(path), throwing, caught));
    ExpectRegistered(14);
    Unregister();
    EXPECT_THAT(log.Take(), ElementsAre(Removing(path), throwing, caught));
    ExpectRegistered(0);

    WriteWatcher watcher;
    watcher.FailCall(1, ERROR_ACCESS_DENIED);
    EXPECT_EQ(ErrorOf([&] { Register(); }), static_cast<DWORD>(ERROR_ACCESS_DENIED)) << "the write tells its own";
    EXPECT_THAT(log.Take(), ElementsAre(Adding(path), throwing, caught,
                                        Throwing(file, registerFunction, Describe(ERROR_ACCESS_DENIED)),
                                        FailedToWrite(path, entries[0], ERROR_ACCESS_DENIED)));
}

TEST_F(Registration, MakesAMissingFile)
{
    ASSERT_TRUE(DeleteFileW(path.c_str()));
    Tests::LogCapture log;
    RegisterStoreProvider(L"ArchiveSvc", L"My Archive", L"ArchiveHost.dll", path.c_str(), L"");
    EXPECT_THAT(log.Lines(), ElementsAre(Adding(path))) << "there is no flag to be cleared";
    for (const InfEntry& entry : entries)
        EXPECT_EQ(ReadInf(path, entry.section, entry.key), entry.value);
}

TEST_F(Registration, FailsInAMissingFolder)
{
    const std::wstring lost = folder / L"no folder\\MAPISVC.INF";
    Waits waits;
    EXPECT_EQ(ErrorOf([&] { RegisterStoreProvider(L"A", L"B", L"C", lost.c_str(), L""); }),
              static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_THAT(waits.times, IsEmpty());
}

TEST_F(Registration, TakesPathsWithBlanksAndForeignLetters)
{
    const std::wstring odd = folder / L"\u00C4rchiv \u6F22\u5B57 100% %s\\MAPI SVC \u20AC.INF";
    ASSERT_TRUE(CreateDirectoryW(odd.substr(0, odd.rfind(L'\\')).c_str(), nullptr));
    Tests::WriteFileBytes(odd, "[Services]\r\nOther=Other service\r\n");
    Tests::LogCapture log;
    RegisterStoreProvider(L"ArchiveSvc", L"My Archive", L"ArchiveHost.dll", odd.c_str(), L"");
    EXPECT_THAT(log.Take(), ElementsAre(Adding(odd)));
    for (const InfEntry& entry : entries)
        EXPECT_EQ(ReadInf(odd, entry.section, entry.key), entry.value);
    UnregisterStoreProvider(L"ArchiveSvc", odd.c_str());
    EXPECT_EQ(Tests::ReadFileBytes(odd), "[Services]\r\nOther=Other service\r\n");
}

TEST_F(Registration, TakesTextsAsTheyAre)
{
    // Nothing in a text is a format, and nothing in it moves another one.
    RegisterStoreProvider(L"Svc %s%n", L"100% =;[x]", L"%d.dll", path.c_str(), L"%s");
    for (const InfEntry& entry : Tests::ExpectedEntries(L"Svc %s%n", L"100% =;[x]", L"%d.dll", L"%s"))
        EXPECT_EQ(ReadInf(path, entry.section, entry.key), entry.value);
    UnregisterStoreProvider(L"Svc %s%n", path.c_str());
    EXPECT_EQ(Tests::ReadFileBytes(path), "[Services]\r\nOther=Other service\r\n");
}

TEST_F(Registration, IsRemovedInThreeSteps)
{
    Register();
    WriteWatcher watcher;
    Tests::LogCapture log;
    Unregister();
    EXPECT_THAT(watcher.calls, ElementsAre(WriteWatcher::Call{L"Services", L"ArchiveSvc", std::nullopt, path},
                                           WriteWatcher::Call{L"ArchiveSvc", std::nullopt, std::nullopt, path},
                                           WriteWatcher::Call{L"ArchiveSvc_P", std::nullopt, std::nullopt, path}));
    EXPECT_THAT(log.Lines(), ElementsAre(Removing(path)));
    ExpectRegistered(0);
    EXPECT_EQ(Tests::ReadFileBytes(path), "[Services]\r\nOther=Other service\r\n");
}

TEST_F(Registration, IsNotRemovedAgainAfterAFailure)
{
    // A mapped file is no reason for a retry here.
    for (const DWORD error : {static_cast<DWORD>(ERROR_USER_MAPPED_FILE), static_cast<DWORD>(ERROR_DISK_FULL)})
    {
        for (std::size_t failing = 1; failing <= 3; ++failing)
        {
            SCOPED_TRACE(failing);
            Register();
            WriteWatcher watcher;
            watcher.FailCall(failing, error);
            Waits waits;
            Tests::LogCapture log;
            EXPECT_EQ(ErrorOf([&] { Unregister(); }), error);
            EXPECT_EQ(watcher.calls.size(), failing);
            EXPECT_THAT(waits.times, IsEmpty());
            EXPECT_THAT(log.Lines(), ElementsAre(Removing(path), Throwing(file, unregisterFunction, Describe(error))));
            EXPECT_EQ(ReadInf(path, L"Services", L"ArchiveSvc").has_value(), failing < 2);
            EXPECT_EQ(ReadInf(path, L"ArchiveSvc", L"Providers").has_value(), failing < 3);
            EXPECT_TRUE(ReadInf(path, L"ArchiveSvc_P", L"PR_RESOURCE_TYPE").has_value());
        }
    }
}

TEST_F(Registration, IsNotRemovedFromAMappedFile)
{
    Register();
    const Tests::FileMapping mapping(path);
    Waits waits;
    EXPECT_EQ(ErrorOf([&] { Unregister(); }), static_cast<DWORD>(ERROR_USER_MAPPED_FILE));
    EXPECT_THAT(waits.times, IsEmpty());
}

TEST_F(Registration, IsRemovedFromNothingWithoutAFailure)
{
    Unregister();
    EXPECT_EQ(Tests::ReadFileBytes(path), "[Services]\r\nOther=Other service\r\n");
    ASSERT_TRUE(DeleteFileW(path.c_str()));
    Unregister();
    EXPECT_EQ(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES) << "removing makes no file";
}
