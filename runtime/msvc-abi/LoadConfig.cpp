// What a module tells the loader of its control-flow guard: where the functions are listed that may be called by a
// pointer, which the linker fills in, and which pointers each such call goes through. Windows, where it guards, puts
// its own functions into these pointers; elsewhere they lead to what does nothing but the call.
#include <windows.h>

#include <cstddef>

namespace
{

void CheckNothing(const void*) {}

// The function to be called is in rax, the arguments are where that function expects them.
__attribute__((naked)) void CallAtOnce()
{
    __asm__("jmp *%rax");
}

/// IMAGE_LOAD_CONFIG_DIRECTORY64 with the fields that the guard needs; mingw-w64's ends before them. All addresses are
/// pointers here, as are the linker's numbers, which are the addresses of symbols.
struct LoadConfig
{
    DWORD size;
    DWORD unused[27];
    const void* checkPointer;
    const void* dispatchPointer;
    const void* functions;
    const void* functionCount;
    const void* flags; // in the lower half
    DWORD codeIntegrity[2];
    const void* importedFunctions;
    const void* importedFunctionCount;
    const void* longJumpTargets;
    const void* longJumpTargetCount;
};
static_assert(offsetof(LoadConfig, checkPointer) == 112 && offsetof(LoadConfig, importedFunctions) == 160);

} // namespace

#pragma section(".00cfg", long, read)

extern "C"
{
    // The linker's.
    extern const char __guard_fids_table, __guard_fids_count, __guard_flags;
    extern const char __guard_iat_table, __guard_iat_count;
    extern const char __guard_longjmp_table, __guard_longjmp_count;

    // The compiler's code calls by these.
    __declspec(allocate(".00cfg")) extern void (*const __guard_check_icall_fptr)(const void*) = CheckNothing;
    __declspec(allocate(".00cfg")) extern void (*const __guard_dispatch_icall_fptr)() = CallAtOnce;

    // The linker finds it by its name.
    extern const LoadConfig _load_config_used = {sizeof(LoadConfig),
                                                 {},
                                                 &__guard_check_icall_fptr,
                                                 &__guard_dispatch_icall_fptr,
                                                 &__guard_fids_table,
                                                 &__guard_fids_count,
                                                 &__guard_flags,
                                                 {},
                                                 &__guard_iat_table,
                                                 &__guard_iat_count,
                                                 &__guard_longjmp_table,
                                                 &__guard_longjmp_count};
}
