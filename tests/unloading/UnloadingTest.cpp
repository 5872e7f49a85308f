// What is left in a process when KivNst.dll and the sample host have been loaded and unloaded many times.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace
{

/// How often a module is loaded: until the time is over, but within these bounds. KIVNST_UNLOADS gives a number
/// instead.
constexpr int fewestTimes = 100;
constexpr int mostTimes = 10'000;
constexpr ULONGLONG longestMilliseconds = 60'000;

bool IsEnough(int times, ULONGLONG begin)
{
    wchar_t text[16] = {};
    if (GetEnvironmentVariableW(L"KIVNST_UNLOADS", text, 16) != 0)
        return times >= std::wcstol(text, nullptr, 10);
    return times >= mostTimes || (times >= fewestTimes && GetTickCount64() - begin > longestMilliseconds);
}

/// What a process has of all that a module could leave behind.
struct Holdings
{
    int freeTlsSlots = 0;
    int handles = 0;
    long long heapBlocks = 0;
};

void PrintTo(const Holdings& holdings, std::ostream* stream)
{
    *stream << holdings.freeTlsSlots << " free TLS slots, " << holdings.handles << " handles, " << holdings.heapBlocks
            << " heap blocks";
}

Holdings CountHoldings()
{
    Holdings holdings;
    static DWORD slots[2000];
    while (holdings.freeTlsSlots < 2000 && (slots[holdings.freeTlsSlots] = TlsAlloc()) != TLS_OUT_OF_INDEXES)
        ++holdings.freeTlsSlots;
    for (int slot = 0; slot < holdings.freeTlsSlots; ++slot)
        TlsFree(slots[slot]);
    // One by one: not every system has GetProcessHandleCount.
    for (ULONG_PTR handle = 4; handle < 0x4000; handle += 4)
    {
        DWORD flags = 0;
        if (GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags))
            ++holdings.handles;
    }
    HANDLE heaps[64] = {};
    const DWORD count = GetProcessHeaps(64, heaps);
    for (DWORD heap = 0; heap < count; ++heap)
    {
        PROCESS_HEAP_ENTRY entry = {};
        while (HeapWalk(heaps[heap], &entry))
            if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY)
                ++holdings.heapBlocks;
    }
    return holdings;
}

template <class Function>
Function* Find(HMODULE module, const char* name)
{
    auto* const function = reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    if (!function)
    {
        std::fprintf(stderr, "the module does not export %s\n", name);
        std::exit(2);
    }
    return function;
}

// Quillon::Logging::LogToFile and Quillon::LogEntry, as the two C++ ABIs call them.
#if defined(_MSC_VER)
constexpr auto logToFile = "?LogToFile@Logging@Quillon@@YAXPEB_W@Z";
constexpr auto logEntry = "?LogEntry@Quillon@@YAXW4LogId@1@PEB_W@Z";
#else
constexpr auto logToFile = "_ZN7Quillon7Logging9LogToFileEPKw";
constexpr auto logEntry = "_ZN7Quillon8LogEntryENS_5LogIdEPKw";
#endif

std::filesystem::path LogPath()
{
    return std::filesystem::current_path() / L"unloading.log";
}

/// Sends the library's log to a file and writes to it, as the host does.
void UseLog()
{
    const HMODULE library = GetModuleHandleW(L"KivNst.dll");
    Find<void(const wchar_t*)>(library, logToFile)(LogPath().c_str());
    Find<void(int, const wchar_t*)>(library, logEntry)(0, L"a line");
}

/// Loads the module, has it work, throw, catch and log, and unloads it.
void LoadAndUnload(const wchar_t* name)
{
    const HMODULE module = LoadLibraryW(name);
    ASSERT_NE(module, nullptr) << GetLastError();
    UseLog();
    if (const FARPROC entry = GetProcAddress(module, "ServiceEntry"))
    {
        // Without a support object the service entry throws; the host's boundary catches.
        using Entry = HRESULT WINAPI(void*, void*, void*, ULONG_PTR, ULONG, ULONG, ULONG, void*, void*, void*);
        const auto call = reinterpret_cast<Entry*>(reinterpret_cast<void*>(entry));
        constexpr auto invalidParameter = static_cast<HRESULT>(0x80070057);
        ASSERT_EQ(call(nullptr, nullptr, nullptr, 0, 0, 0, 0, nullptr, nullptr, nullptr), invalidParameter);
    }
    ASSERT_TRUE(FreeLibrary(module));
    ASSERT_EQ(GetModuleHandleW(L"KivNst.dll"), nullptr);
}

/// Nobody has the file open.
void ExpectClosed(const std::filesystem::path& path)
{
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_READ | DELETE, 0, nullptr, OPEN_EXISTING, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    EXPECT_NE(file, INVALID_HANDLE_VALUE) << GetLastError();
    CloseHandle(file);
    EXPECT_FALSE(std::filesystem::exists(path));
}

void ExpectNothingLeft(const wchar_t* name)
{
    // The system's own modules stay, as they do in a mail client.
    for (const wchar_t* const system : {L"advapi32.dll", L"ole32.dll", L"version.dll", L"msvcrt.dll"})
        ASSERT_NE(LoadLibraryW(system), nullptr);
    for (int time = 0; time < 10; ++time)
        ASSERT_NO_FATAL_FAILURE(LoadAndUnload(name));
    ExpectClosed(LogPath());
    const Holdings before = CountHoldings();
    int times = 0;
    for (const ULONGLONG begin = GetTickCount64(); !IsEnough(times, begin); ++times)
        ASSERT_NO_FATAL_FAILURE(LoadAndUnload(name)) << "time " << times;
    ExpectClosed(LogPath());
    const Holdings after = CountHoldings();
    SCOPED_TRACE(testing::Message() << testing::PrintToString(before) << " before, " << testing::PrintToString(after)
                                    << " after");
    EXPECT_EQ(after.freeTlsSlots, before.freeTlsSlots);
    EXPECT_EQ(after.handles, before.handles);
    // The system's loader keeps a few blocks of its own; what the modules left would be one for each time at least.
    EXPECT_LT(after.heapBlocks - before.heapBlocks, times / 10);
    std::printf("loaded and unloaded %d times\n", times);
}

} // namespace

TEST(Unloading, TheLibraryLeavesNothingBehind)
{
    ExpectNothingLeft(L"KivNst.dll");
}

TEST(Unloading, TheSampleHostLeavesNothingBehind)
{
    ExpectNothingLeft(L"ArchiveHost32.dll");
}

TEST(Unloading, AtTheEndOfTheProcessNothingIsTidiedUp)
{
    const HMODULE library = LoadLibraryW(L"KivNst.dll");
    ASSERT_NE(library, nullptr);
    UseLog();
    // What the loader calls then; what is not null says that the process ends.
    const auto* const base = reinterpret_cast<const BYTE*>(library);
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    using EntryPoint = BOOL WINAPI(HINSTANCE, DWORD, void*);
    const void* const address = base + headers->OptionalHeader.AddressOfEntryPoint;
    const auto entry = reinterpret_cast<EntryPoint*>(const_cast<void*>(address));
    int notNull = 0;
    entry(library, DLL_PROCESS_DETACH, &notNull);
    EXPECT_EQ(CreateFileW(LogPath().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE)
        << "the log is still open";
}

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
