// What one call does, counted exactly: the processor's trap flag stops the thread before each of its instructions.
#pragma once

#include <windows.h>

#if defined(_MSC_VER)
#include <intrin.h>
#else
#include <x86intrin.h>
#endif

namespace Benchmarks
{

/// What a thread did between two points.
struct Tally
{
    ULONG instructions; ///< all, those of the system's DLLs included
    ULONG interlocked;  ///< with a lock prefix, in the program (provider and forwarder) and in KivNst.dll
    ULONG heap;         ///< allocations of the process's heap that are no MAPI block
    ULONG blocks;       ///< MAPI blocks allocated
    ULONG locks;        ///< slim locks and critical sections taken by KivNst.dll, and by the program (the host kit)
};

namespace Detail
{
/// Prepares counting on this thread.
void BeginCounting();
/// Tells the trap handler to let the thread go, and gives what was counted.
Tally EndCounting();
} // namespace Detail

/// Counts what `call` does on this thread, once it has been called before. Takes microseconds an instruction.
template <class Call>
Tally Count(Call&& call)
{
    constexpr auto trapFlag = 0x100;
    Detail::BeginCounting();
    __writeeflags(__readeflags() | trapFlag);
    call();
    return Detail::EndCounting();
}

} // namespace Benchmarks
