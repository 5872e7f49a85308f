// An object behind a hand-made virtual table: every slot only records its number and its raw arguments.
#pragma once

#include "support/MapiHeaders.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

namespace Tests
{

/// An argument as it stands in a register or on the stack; of a 32-bit one only the lower half counts.
using RawArgument = std::uint64_t;

/// Arguments behind the object pointer. Those that a method does not have hold anything.
using RawArguments = std::array<RawArgument, 12>;

/// Calls a slot of any object through its virtual table, as a client in any language would.
HRESULT CallSlot(void* object, int slot, const RawArguments& arguments);

/// What stands in for a wrapped object. A plain structure whose first member is the pointer to the table, so that it is
/// an object of every MAPI interface. Not thread-safe.
class Recorder
{
public:
    struct Call
    {
        int slot;
        RawArguments arguments;
        /// References on the recorder while the call was under way.
        ULONG references;
    };

    /// Given the arguments, does what a slot does beyond recording and gives its result.
    using Behaviour = std::function<HRESULT(const RawArguments& arguments)>;

    /// `hasLastError`: slot 3 is GetLastError, which answers a request for `error` in Unicode with an extended error.
    explicit Recorder(bool hasLastError = true);
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// The recorder as an object of interface I.
    template <class I>
    I* As() noexcept
    {
        return reinterpret_cast<I*>(this);
    }

    /// References held now; 1 at birth, the test's own, which is never given up.
    ULONG References() const noexcept { return m_references; }
    /// All calls but AddRef, Release and requests for the extended error.
    const std::vector<Call>& Calls() const noexcept { return m_calls; }
    /// How often AddRef and Release were called.
    int AddRefs() const noexcept { return m_addRefs; }
    int Releases() const noexcept { return m_releases; }
    /// The codes for which the extended error was asked, rightly (in Unicode).
    const std::vector<HRESULT>& ErrorRequests() const noexcept { return m_errorRequests; }
    /// Forgets what was recorded.
    void Forget();

    /// What every slot returns that has no behaviour of its own, and for which the extended error is there.
    void SetResult(HRESULT hr) noexcept { m_result = hr; }
    /// Whether the extended error is had at all.
    void SetGivesError(bool gives) noexcept { m_givesError = gives; }
    void SetBehaviour(int slot, Behaviour behaviour) { m_behaviours[slot] = std::move(behaviour); }
    /// Called on each Release, with the references that are left.
    void SetReleaseCallback(std::function<void(ULONG)> callback) { m_onRelease = std::move(callback); }

    /// The extended error that it gives, for comparison.
    static MAPIERROR ExtendedError() noexcept;

private:
    friend struct RecorderTable;

    RawArgument OnCall(int slot, const RawArguments& arguments);
    ULONG OnAddRef();
    ULONG OnRelease();

    const void* const* m_table; // first: this is the object's virtual table
    ULONG m_references = 1;
    bool m_hasLastError;
    bool m_givesError = true;
    HRESULT m_result = S_OK;
    int m_addRefs = 0;
    int m_releases = 0;
    std::vector<Call> m_calls;
    std::vector<HRESULT> m_errorRequests;
    std::map<int, Behaviour> m_behaviours;
    std::function<void(ULONG)> m_onRelease;
};

} // namespace Tests
