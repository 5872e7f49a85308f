// The trap handler.
#include "benchmarks/Count.h"

#include <array>
#include <cstdint>

namespace Benchmarks::Detail
{
namespace
{

/// Where a module's code lies.
struct Range
{
    DWORD64 begin = 0;
    DWORD64 end = 0;
    bool Holds(DWORD64 address) const noexcept { return address >= begin && address < end; }
};

Range GetRange(HMODULE module)
{
    const auto base = reinterpret_cast<std::uintptr_t>(module);
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + static_cast<ULONG>(dos->e_lfanew));
    return {base, base + headers->OptionalHeader.SizeOfImage};
}

DWORD64 Find(const wchar_t* module, const char* name)
{
    return reinterpret_cast<DWORD64>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(module), name)));
}

struct Places
{
    Range program = GetRange(GetModuleHandleW(nullptr));
    Range library = GetRange(GetModuleHandleW(L"KivNst.dll"));
    std::array<DWORD64, 2> heap = {Find(L"ntdll.dll", "RtlAllocateHeap"), Find(L"ntdll.dll", "RtlReAllocateHeap")};
    std::array<DWORD64, 2> blocks = {Find(L"olmapi32.dll", "MAPIAllocateBuffer"),
                                     Find(L"olmapi32.dll", "MAPIAllocateMore")};
    std::array<DWORD64, 3> locks = {Find(L"ntdll.dll", "RtlAcquireSRWLockShared"),
                                    Find(L"ntdll.dll", "RtlAcquireSRWLockExclusive"),
                                    Find(L"ntdll.dll", "RtlEnterCriticalSection")};
};

const Places* g_places = nullptr;
Tally g_tally = {};
volatile bool g_isCounting = false;
DWORD g_thread = 0;

template <class Array>
bool Contains(const Array& addresses, DWORD64 address) noexcept
{
    for (const DWORD64 one : addresses)
        if (one == address)
            return true;
    return false;
}

/// Whether the instruction has a lock prefix, among the others that may stand before it.
bool IsInterlocked(const BYTE* instruction) noexcept
{
    for (;; ++instruction)
    {
        switch (*instruction)
        {
        case 0xF0:
            return true;
        case 0x26:
        case 0x2E:
        case 0x36:
        case 0x3E:
        case 0x64:
        case 0x65:
        case 0x66:
        case 0x67:
        case 0xF2:
        case 0xF3:
            continue;
        default:
            return false;
        }
    }
}

/// Called with the instruction pointer at the instruction that comes next.
LONG CALLBACK OnTrap(EXCEPTION_POINTERS* exception)
{
    if (exception->ExceptionRecord->ExceptionCode != static_cast<DWORD>(EXCEPTION_SINGLE_STEP) ||
        GetCurrentThreadId() != g_thread)
        return EXCEPTION_CONTINUE_SEARCH;
    CONTEXT& context = *exception->ContextRecord;
    constexpr DWORD trapFlag = 0x100;
    if (!g_isCounting)
    {
        context.EFlags &= ~trapFlag;
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    context.EFlags |= trapFlag;
    const Places& places = *g_places;
    ++g_tally.instructions;
    if (places.program.Holds(context.Rip) || places.library.Holds(context.Rip))
        g_tally.interlocked += IsInterlocked(reinterpret_cast<const BYTE*>(context.Rip));
    g_tally.heap += Contains(places.heap, context.Rip);
    g_tally.blocks += Contains(places.blocks, context.Rip);
    if (Contains(places.locks, context.Rip))
    {
        const DWORD64 caller = *reinterpret_cast<const DWORD64*>(context.Rsp);
        g_tally.locks += places.library.Holds(caller) || places.program.Holds(caller);
    }
    return EXCEPTION_CONTINUE_EXECUTION;
}

} // namespace

void BeginCounting()
{
    static const Places places;
    static void* const handler = AddVectoredExceptionHandler(1, OnTrap);
    static_cast<void>(handler);
    g_places = &places;
    g_thread = GetCurrentThreadId();
    g_tally = {};
    g_isCounting = true;
}

Tally EndCounting()
{
    g_isCounting = false;
    // The instructions of this function until here; each block is an allocation, too.
    Tally tally = g_tally;
    tally.heap -= tally.blocks;
    return tally;
}

} // namespace Benchmarks::Detail
