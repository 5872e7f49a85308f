// One fault at a time: which call, which allocation fails, and how; and what was called and allocated meanwhile.
#pragma once

#include "support/ComPtr.h"
#include "support/Exceptions.h"
#include "tests/common/ImportHook.h"

#include <cstddef>
#include <exception>
#include <string>
#include <unordered_set>
#include <vector>

namespace Tests
{

/// What a call does when it is the one that fails.
enum class Effect
{
    None,
    Code,          ///< gives the code; a failure does nothing else, a warning does what the call does
    Nothing,       ///< succeeds, but gives no object or no values
    ThrowComError, ///< of a hook: throws CComError with the code
    ThrowRuntimeError,
    ThrowWinError,    ///< with ERROR_ACCESS_DENIED
    ThrowForeignError ///< an exception that is none of the library's
};

/// The one thing that goes wrong in a run, or the few.
struct Fault
{
    std::size_t call = 0; ///< the number of the call that fails; 0: none
    Effect effect = Effect::None;
    long code = 0;              ///< an HRESULT; of a system call the error
    bool givesErrors = true;    ///< whether the objects' GetLastError succeeds
    std::size_t allocation = 0; ///< the number of the allocation from the library's heap that fails; 0: none
    bool staysEmpty = false;    ///< so do all after it
    ULONG mapiAllocation = 0;   ///< the number of the MAPI allocation by the library that fails; 0: none
};

/// What ThrowForeignError throws.
struct ForeignError : std::exception
{
};

/// Counts what the library does while it is armed, and has the planned fault happen. It watches the library's heap as
/// long as the program runs. One thread.
class Faults
{
public:
    static Faults& Get();

    /// Plans a run; nothing is counted before Arm.
    void Plan(const Fault& fault);
    void Arm();
    void Disarm();

    /// Counts a call of the surroundings. Whether it is the one to fail.
    bool Hits(const char* call);

    /// A call that gives a result: `action` is what it does in success.
    template <class Action>
    HRESULT Pass(const char* call, Action&& action)
    {
        if (!Hits(call))
        {
            action();
            return S_OK;
        }
        if (m_fault.effect == Effect::Nothing)
            return S_OK;
        const auto code = static_cast<HRESULT>(m_fault.code);
        if (SUCCEEDED(code))
            action();
        return code;
    }

    /// A call of the system: false, with the thread's error set, when it fails.
    bool PassSystem(const char* call);

    /// The host's hook is called; throws what is planned. False: it is a factory that gives nothing.
    bool PassHook(const char* hook);

    /// Lets the surroundings allocate MAPI memory of their own, which is not counted and never fails.
    class OwnAllocations
    {
    public:
        OwnAllocations();
        OwnAllocations(const OwnAllocations&) = delete;
        OwnAllocations& operator=(const OwnAllocations&) = delete;
        ~OwnAllocations();
    };

    /// Between Arm and Disarm.
    static bool IsArmed() noexcept { return s_armed; }
    const Fault& Planned() const noexcept { return m_fault; }
    const std::vector<std::string>& Calls() const noexcept { return m_calls; }
    std::size_t Allocations() const noexcept { return m_allocations; }
    std::size_t MapiAllocations() const noexcept { return m_mapiAllocations; }
    /// Whether the planned fault came to pass.
    bool Happened() const noexcept { return m_happened; }
    /// Blocks of the library's heap that live now.
    std::size_t LiveHeapBlocks() const noexcept { return m_blocks.size(); }

private:
    Faults();
    static void* Allocate(std::size_t size);
    static void Free(void* block);
    void PauseMapi();
    void ResumeMapi();

    ImportHook<void*(std::size_t)> m_malloc;
    ImportHook<void(void*)> m_free;
    std::unordered_set<void*> m_blocks;
    Fault m_fault;
    std::vector<std::string> m_calls;
    std::size_t m_allocations = 0;
    std::size_t m_mapiAllocations = 0;
    unsigned long long m_mapiCallsAtResume = 0;
    inline static bool s_armed = false;
    bool m_happened = false;
};

} // namespace Tests
