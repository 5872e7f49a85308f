// Records which of the library's code each test reaches. `./run mutate` links it into a library whose every basic block
// calls __sanitizer_cov_trace_pc (GCC's -fsanitize-coverage=trace-pc); the test programs tell it their tests' names.
//
// The folder KIVNST_REACH_DIR gets one file for each process, with a record for each test: the length of the test's
// name and the name, the number of addresses and the addresses, relative to the module; all numbers 32 bits wide. What
// was reached outside of any test has an empty name.
#include <windows.h>

#include <cstdio>
#include <cstring>

// The linker's name for the module's beginning.
extern "C" IMAGE_DOS_HEADER __ImageBase; // NOLINT(bugprone-reserved-identifier)

namespace
{

constexpr DWORD mostCode = 16u << 20;

unsigned char g_reached[mostCode];
char g_test[512];

void Write(HANDLE file, const void* bytes, DWORD size)
{
    DWORD written = 0;
    if (!WriteFile(file, bytes, size, &written, nullptr) || written != size)
        std::fprintf(stderr, "Recorder: what was reached could not be written\n");
}

void Flush()
{
    static DWORD addresses[mostCode / 4];
    DWORD count = 0;
    const unsigned char* const end = g_reached + mostCode;
    for (unsigned char* at = g_reached;
         (at = static_cast<unsigned char*>(std::memchr(at, 1, static_cast<std::size_t>(end - at)))) != nullptr; ++at)
    {
        *at = 0;
        addresses[count++] = static_cast<DWORD>(at - g_reached);
    }
    if (count == 0)
        return;
    char folder[MAX_PATH] = {};
    char path[MAX_PATH + 32] = {};
    GetEnvironmentVariableA("KIVNST_REACH_DIR", folder, MAX_PATH);
    std::snprintf(path, sizeof(path), "%s\\%lu.reach", folder, GetCurrentProcessId());
    const HANDLE file = CreateFileA(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE)
    {
        std::fprintf(stderr, "Recorder: %s cannot be opened\n", path);
        return;
    }
    const DWORD length = static_cast<DWORD>(std::strlen(g_test));
    Write(file, &length, sizeof(length));
    Write(file, g_test, length);
    Write(file, &count, sizeof(count));
    Write(file, addresses, count * static_cast<DWORD>(sizeof(*addresses)));
    CloseHandle(file);
}

/// From the module's loading to its unloading.
struct Recording
{
    // A process that a test started belongs to that test.
    Recording() { GetEnvironmentVariableA("KIVNST_TEST", g_test, sizeof(g_test)); }
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;
    ~Recording() { Flush(); }
} g_recording;

} // namespace

// The compiler's name for it.
extern "C" void __sanitizer_cov_trace_pc() // NOLINT(bugprone-reserved-identifier)
{
    const ULONG_PTR offset =
        reinterpret_cast<ULONG_PTR>(__builtin_return_address(0)) - reinterpret_cast<ULONG_PTR>(&__ImageBase);
    if (offset < mostCode)
        g_reached[offset] = 1;
}

/// What follows is done for the test of this name.
extern "C" __declspec(dllexport) void RecordReachOf(const char* test)
{
    Flush();
    std::snprintf(g_test, sizeof(g_test), "%s", test);
}
