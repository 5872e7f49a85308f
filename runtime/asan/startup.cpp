// The start and end of AddressSanitizer's runtime DLL, in the place of what the compiler's own runtime would link into
// it: initialisers, thread-local storage, a list of what runs at its end. None of it allocates, for the functions that
// allocate are what this DLL replaces.
#include <windows.h>

#pragma section(".CRT$XIA", long, read)
#pragma section(".CRT$XIZ", long, read)
#pragma section(".CRT$XCA", long, read)
#pragma section(".CRT$XCZ", long, read)
#pragma section(".CRT$XLA", long, read)
#pragma section(".CRT$XLZ", long, read)
#pragma section(".tls", long, read, write)
#pragma section(".tls$ZZZ", long, read, write)

extern "C"
{
    // The compiler refers to it wherever floating-point numbers are used.
    int _fltused = 0x9875;

    // The linker sorts sections by name, so the initialisers of every unit come to lie between these.
    using Function = void(__cdecl*)();
    __declspec(allocate(".CRT$XIA")) extern const Function firstC[] = {nullptr};
    __declspec(allocate(".CRT$XIZ")) extern const Function lastC[] = {nullptr};
    __declspec(allocate(".CRT$XCA")) extern const Function firstCpp[] = {nullptr};
    __declspec(allocate(".CRT$XCZ")) extern const Function lastCpp[] = {nullptr};

    // The loader finds the thread-local storage by this directory.
    ULONG _tls_index = 0;
    __declspec(allocate(".tls")) char _tls_start = 0;
    __declspec(allocate(".tls$ZZZ")) char _tls_end = 0;
    __declspec(allocate(".CRT$XLA")) extern const PIMAGE_TLS_CALLBACK firstTls[] = {nullptr};
    __declspec(allocate(".CRT$XLZ")) extern const PIMAGE_TLS_CALLBACK lastTls[] = {nullptr};
    extern const IMAGE_TLS_DIRECTORY64 _tls_used = {reinterpret_cast<ULONGLONG>(&_tls_start),
                                                    reinterpret_cast<ULONGLONG>(&_tls_end),
                                                    reinterpret_cast<ULONGLONG>(&_tls_index),
                                                    reinterpret_cast<ULONGLONG>(firstTls + 1),
                                                    0,
                                                    0};

    // Room for more than the runtime ever registers; what has none is refused.
    static constexpr LONG exitRoom = 64;
    static Function exitList[exitRoom];
    static LONG exitCount = 0;

    int __cdecl atexit(Function function)
    {
        const LONG index = InterlockedIncrement(&exitCount) - 1;
        if (index >= exitRoom)
        {
            InterlockedDecrement(&exitCount);
            return -1;
        }
        exitList[index] = function;
        return 0;
    }

    static void RunAll(const Function* marker, const Function* end)
    {
        for (const Function* each = marker + 1; each < end; ++each)
            if (*each)
                (*each)();
    }

    BOOL WINAPI _DllMainCRTStartup(HINSTANCE, DWORD reason, LPVOID)
    {
        if (reason == DLL_PROCESS_ATTACH)
        {
            RunAll(firstC, lastC);
            RunAll(firstCpp, lastCpp);
        }
        else if (reason == DLL_PROCESS_DETACH)
        {
            while (exitCount > 0)
                exitList[--exitCount]();
        }
        return TRUE;
    }
}
