// Thread-local variables. The loader gives each thread of the process a copy of the module's section .tls and calls the
// module's callbacks when a thread begins and ends. Variables with a constructor are constructed then, or, in a thread
// that was there before the module, when the thread first touches one of them.
#include "Module.h"

#include <windows.h>

#include <stdlib.h>

#pragma section(".CRT$XDA", long, read)
#pragma section(".CRT$XDZ", long, read)
#pragma section(".CRT$XLA", long, read)
#pragma section(".CRT$XLC", long, read)
#pragma section(".CRT$XLZ", long, read)
#pragma section(".tls", long, read, write)
#pragma section(".tls$ZZZ", long, read, write)

namespace
{

using Function = void(__cdecl*)();

// The destructors that are due in one thread, in blocks, the newest first; the first block is there from the beginning.
struct DestructorBlock
{
    DestructorBlock* next;
    int count;
    Function functions[30];
};

thread_local constinit DestructorBlock t_firstBlock = {};
thread_local constinit DestructorBlock* t_newestBlock = nullptr;

} // namespace

extern "C"
{
    // The compiler puts the address of each unit's function that constructs its thread-local variables in between, the
    // linker sorts the sections by name.
    __declspec(allocate(".CRT$XDA")) extern const Function firstThreadLocal = nullptr;
    __declspec(allocate(".CRT$XDZ")) extern const Function lastThreadLocal = nullptr;

    // Called by the loader. Units with variables that need construction have the linker ask for it by this name.
    void NTAPI __dyn_tls_init(PVOID, DWORD reason, PVOID)
    {
        // The thread that loads the module constructs its own after the statics, which they may need.
        if (reason == DLL_THREAD_ATTACH)
            Runtime::ConstructThreadLocals();
        if (reason == DLL_THREAD_DETACH || reason == DLL_PROCESS_DETACH)
            Runtime::DestroyThreadLocals();
    }

    // The linker makes it the module's directory of thread-local storage by its name.
    unsigned long _tls_index = 0;
    __declspec(allocate(".tls")) char _tls_start = 0;
    __declspec(allocate(".tls$ZZZ")) char _tls_end = 0;
    __declspec(allocate(".CRT$XLA")) extern const PIMAGE_TLS_CALLBACK firstCallback = nullptr;
    __declspec(allocate(".CRT$XLC")) extern const PIMAGE_TLS_CALLBACK ownCallback = __dyn_tls_init;
    __declspec(allocate(".CRT$XLZ")) extern const PIMAGE_TLS_CALLBACK lastCallback = nullptr;
    extern const IMAGE_TLS_DIRECTORY64 _tls_used = {reinterpret_cast<ULONGLONG>(&_tls_start),
                                                    reinterpret_cast<ULONGLONG>(&_tls_end),
                                                    reinterpret_cast<ULONGLONG>(&_tls_index),
                                                    reinterpret_cast<ULONGLONG>(&firstCallback + 1),
                                                    0,
                                                    0};

    // The compiler's code looks at it before each use of a variable that may need construction.
    __declspec(thread) bool __tls_guard = false;

    void __cdecl __dyn_tls_on_demand_init() noexcept
    {
        Runtime::ConstructThreadLocals();
    }

    // The compiler's code registers each destructor here after the construction.
    int __cdecl __tlregdtor(Function destructor)
    {
        if (!t_newestBlock)
            t_newestBlock = &t_firstBlock;
        if (t_newestBlock->count == static_cast<int>(ARRAYSIZE(t_newestBlock->functions)))
        {
            auto* const block = static_cast<DestructorBlock*>(malloc(sizeof(DestructorBlock)));
            // Nobody asks for the result. A destructor that never runs would be a leak that nobody sees.
            if (!block)
                abort();
            block->next = t_newestBlock;
            block->count = 0;
            t_newestBlock = block;
        }
        t_newestBlock->functions[t_newestBlock->count++] = destructor;
        return 0;
    }
}

namespace Runtime
{

void ConstructThreadLocals()
{
    if (__tls_guard)
        return;
    __tls_guard = true;
    for (const auto* each = &firstThreadLocal + 1; each < &lastThreadLocal; ++each)
    {
        // The linker may fill up between two units.
        if (*each)
            (*each)();
    }
}

void DestroyThreadLocals()
{
    while (t_newestBlock)
    {
        DestructorBlock* const block = t_newestBlock;
        // A destructor may touch a variable that registers another.
        if (block->count)
            block->functions[--block->count]();
        else
        {
            t_newestBlock = block->next;
            if (block != &t_firstBlock)
                free(block);
        }
    }
}

} // namespace Runtime
