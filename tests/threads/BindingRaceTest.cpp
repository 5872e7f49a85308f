// The binding of the MAPI module, raced by the first callers of a process. A race can be had once in a process, so each
// takes a process of its own.
#include "mapi/MapiBinding.h"
#include "support/MapiBuffer.h"
#include "support/MapiProperties.h"
#include "testbed/mapi/Olmapi.h"
#include "tests/common/Alone.h"
#include "tests/common/ImportHook.h"
#include "tests/common/Setting.h"
#include "tests/threads/Gate.h"
#include "tests/threads/Watchdog.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace Quillon;

namespace
{

constexpr int racers = 8;
constexpr ULONGLONG blocksOfEach = 3; // one of its own, one linked, one wrapped entry ID

std::wstring MailClientFile(const wchar_t* name)
{
    std::filesystem::path path(Tests::OutlookProgram());
    return path.replace_filename(name).wstring();
}

/// Counts what the library loads and gives back. While `meetingPoint` is set, every racer waits there for all others
/// before it has a module, so that all of them have searched before the first publishes what it found.
std::atomic<int> loads = 0;
std::atomic<int> frees = 0;
std::optional<Tests::MeetingPoint> meetingPoint;

void Meet()
{
    if (meetingPoint)
        meetingPoint->Arrive();
}

HMODULE WINAPI CountedLoad(LPCWSTR name)
{
    Meet();
    const HMODULE module = LoadLibraryW(name);
    if (module)
        ++loads;
    return module;
}

BOOL WINAPI CountedFind(DWORD flags, LPCWSTR name, HMODULE* module)
{
    // Only the first name that is asked for is in the process, if any.
    const BOOL found = GetModuleHandleExW(flags, name, module);
    if (!found)
        return FALSE;
    Meet();
    ++loads;
    return TRUE;
}

BOOL WINAPI CountedFree(HMODULE module)
{
    ++frees;
    return FreeLibrary(module);
}

/// What one racer saw.
struct Racer
{
    HMODULE module = nullptr;
    bool isGood = false;
};

/// Binds by the function that `number` chooses, then uses all of them.
void Race(int number, Racer& racer)
{
    void* block = nullptr;
    ULONG wrappedSize = 0;
    ENTRYID* wrapped = nullptr;
    char dllName[] = "name.dll";
    BYTE entryId[24] = {};
    const auto allocate = [&] { return block || SUCCEEDED(Mapi::MAPIAllocateBuffer(16, &block)); };
    const auto wrap = [&]
    {
        return wrapped ||
               SUCCEEDED(Mapi::WrapStoreEntryID(0, dllName, sizeof(entryId), reinterpret_cast<ENTRYID*>(entryId),
                                                &wrappedSize, &wrapped));
    };
    bool isGood = true;
    switch (number % 4)
    {
    case 0:
        isGood = Mapi::GetMapiModule() != nullptr;
        break;
    case 1:
        isGood = allocate();
        break;
    case 2:
        isGood = wrap();
        break;
    default:
        isGood = !Mapi::GetMapiPath().IsEmpty();
        break;
    }
    void* linked = nullptr;
    isGood = allocate() && isGood;
    isGood = wrap() && isGood;
    isGood = SUCCEEDED(Mapi::MAPIAllocateMore(32, block, &linked)) && isGood;
    if (linked)
        std::memset(linked, number, 32);
    isGood = wrappedSize > sizeof(entryId) && isGood;
    Mapi::FreeMapiBuffer(block);
    Mapi::FreeMapiBuffer(wrapped);
    racer = {Mapi::GetMapiModule(), isGood};
}

/// Whether racers wait for each other, and whether the module is in the process already or has to be loaded from the
/// mail client's registration.
struct Setting
{
    bool isMeeting;
    bool isResident;
};

Setting ReadSetting()
{
    wchar_t text[8] = {};
    GetEnvironmentVariableW(L"KIVNST_RACE", text, 8);
    return {text[0] == L'1', text[1] == L'1'};
}

/// One race, from cold, in this process.
void RaceOnce()
{
    static bool isOver = false;
    if (std::exchange(isOver, true))
        return;
    const Tests::Watchdog watchdog(20);
    const Setting setting = ReadSetting();
    const std::wstring path = MailClientFile(L"olmapi32.dll");
    Tests::ScratchRegistry registry;
    registry.SetClientText(L"DllPathEx", path);
    HMODULE resident = nullptr;
    if (setting.isResident)
    {
        resident = LoadLibraryW(path.c_str());
        ASSERT_NE(resident, nullptr);
    }
    const Tests::ImportHook<HMODULE(LPCWSTR)> load("LoadLibraryW", CountedLoad);
    const Tests::ImportHook<BOOL(DWORD, LPCWSTR, HMODULE*)> find("GetModuleHandleExW", CountedFind);
    const Tests::ImportHook<BOOL(HMODULE)> free("FreeLibrary", CountedFree);
    if (setting.isMeeting)
        meetingPoint.emplace(racers);

    std::array<Racer, racers> all;
    Tests::MeetingPoint start(racers);
    std::vector<std::thread> threads;
    for (int number = 0; number < racers; ++number)
    {
        threads.emplace_back(
            [&, number]
            {
                start.Arrive();
                Race(number, all[static_cast<std::size_t>(number)]);
            });
    }
    for (std::thread& thread : threads)
        thread.join();

    const HMODULE module = GetModuleHandleW(L"olmapi32.dll");
    ASSERT_NE(module, nullptr);
    for (const Racer& racer : all)
    {
        EXPECT_EQ(racer.module, module);
        EXPECT_TRUE(racer.isGood);
    }
    if (setting.isMeeting)
        EXPECT_EQ(loads, racers) << "all of them obtained the module";
    EXPECT_EQ(frees, loads - 1) << "all but the winner gave it back";

    Testbed::OlmapiStatistics statistics = {};
    statistics.cbSize = sizeof(statistics);
    const auto getStatistics = reinterpret_cast<Testbed::OLMAPI_GET_STATISTICS>(
        reinterpret_cast<void*>(GetProcAddress(module, "OlmapiGetStatistics")));
    ASSERT_TRUE(getStatistics(&statistics));
    EXPECT_EQ(statistics.cLive, 0u);
    EXPECT_EQ(statistics.cAllocated, racers * blocksOfEach);

    // The winner's reference is the only one left: with it the module goes.
    if (resident)
        FreeLibrary(resident);
    EXPECT_NE(GetModuleHandleW(L"olmapi32.dll"), nullptr);
    FreeLibrary(module);
    EXPECT_EQ(GetModuleHandleW(L"olmapi32.dll"), nullptr);
}

/// Starts as many processes, one after the other.
void RaceInProcesses(int count, const Setting& setting)
{
    const wchar_t text[] = {setting.isMeeting ? L'1' : L'0', setting.isResident ? L'1' : L'0', L'\0'};
    // It is set in a process that was started from here.
    if (GetEnvironmentVariableW(L"KIVNST_RACE", nullptr, 0) == 0)
        SetEnvironmentVariableW(L"KIVNST_RACE", text);
    for (int number = 0; number < count && !testing::Test::HasFailure(); ++number)
        Tests::RunAlone(RaceOnce);
    SetEnvironmentVariableW(L"KIVNST_RACE", nullptr);
    std::printf("binding races: %d processes of %d threads\n", count, racers);
}

} // namespace

TEST(MapiBindingRace, OneModuleIsPublishedWhenAllThreadsLoadIt)
{
    RaceInProcesses(12, {true, false});
}

TEST(MapiBindingRace, OneModuleIsPublishedWhenAllThreadsFindItInTheProcess)
{
    RaceInProcesses(8, {true, true});
}

TEST(MapiBindingRace, ThreadsThatRunFreelyAgreeOnTheModuleThatIsLoaded)
{
    RaceInProcesses(12, {false, false});
}

TEST(MapiBindingRace, ThreadsThatRunFreelyAgreeOnTheModuleInTheProcess)
{
    RaceInProcesses(8, {false, true});
}
