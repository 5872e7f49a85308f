// Statics of functions, which the first thread that comes by constructs while the others wait.
//
// The compiler's code reads a static's guard without a lock and compares it with the thread's own epoch: a guard that
// is not above it was set before the thread last looked, so the static is constructed. The guard is 0 before, -1
// during, and an epoch after the construction; epochs begin far below zero, so 0 and -1 are above them all.
#include <windows.h>

#include <limits.h>

extern "C"
{
    int _Init_global_epoch = INT_MIN;
    __declspec(thread) int _Init_thread_epoch = INT_MIN;
}

namespace
{

constexpr int notConstructed = 0;
constexpr int underConstruction = -1;

SRWLOCK g_lock = SRWLOCK_INIT;
CONDITION_VARIABLE g_changed = CONDITION_VARIABLE_INIT;

} // namespace

extern "C"
{
    // The compiler's code constructs the static where the guard is `underConstruction` after this.
    void __cdecl _Init_thread_header(int* guard)
    {
        AcquireSRWLockExclusive(&g_lock);
        while (*guard == underConstruction)
            SleepConditionVariableSRW(&g_changed, &g_lock, INFINITE, 0);
        if (*guard == notConstructed)
            *guard = underConstruction;
        else
            _Init_thread_epoch = _Init_global_epoch;
        ReleaseSRWLockExclusive(&g_lock);
    }

    void __cdecl _Init_thread_footer(int* guard)
    {
        AcquireSRWLockExclusive(&g_lock);
        *guard = ++_Init_global_epoch;
        _Init_thread_epoch = _Init_global_epoch;
        ReleaseSRWLockExclusive(&g_lock);
        WakeAllConditionVariable(&g_changed);
    }

    // The constructor threw: the next thread tries again.
    void __cdecl _Init_thread_abort(int* guard)
    {
        AcquireSRWLockExclusive(&g_lock);
        *guard = notConstructed;
        ReleaseSRWLockExclusive(&g_lock);
        WakeAllConditionVariable(&g_changed);
    }
}
