// The recorder's virtual table.
#include "tests/wrappers/Recorder.h"

#include "tests/common/OwnMemory.h"
#include "tests/common/TestDouble.h"

#include <cstddef>
#include <type_traits>
#include <utility>

namespace Tests
{

/// The table: one function for each slot, which knows its number. A function may read more arguments than its caller
/// gave: they lie in the caller's frame, and cleaning up is the caller's in this calling convention.
struct RecorderTable
{
    using A = RawArgument;

    template <int Slot>
    static A STDMETHODCALLTYPE Record(Recorder* self, A a1, A a2, A a3, A a4, A a5, A a6, A a7, A a8, A a9, A a10,
                                      A a11, A a12)
    {
        return self->OnCall(Slot, {a1, a2, a3, a4, a5, a6, a7, a8, a9, a10, a11, a12});
    }
    static ULONG STDMETHODCALLTYPE AddRef(Recorder* self) { return self->OnAddRef(); }
    static ULONG STDMETHODCALLTYPE Release(Recorder* self) { return self->OnRelease(); }

    static constexpr std::size_t size = 64;

    template <std::size_t... Slots>
    static const void* const* Make(std::index_sequence<Slots...>)
    {
        static const void* table[] = {reinterpret_cast<const void*>(&Record<static_cast<int>(Slots)>)...};
        table[1] = reinterpret_cast<const void*>(&AddRef);
        table[2] = reinterpret_cast<const void*>(&Release);
        return table;
    }
    static const void* const* Get()
    {
        static const void* const* const table = Make(std::make_index_sequence<size>());
        return table;
    }
};

HRESULT CallSlot(void* object, int slot, const RawArguments& arguments)
{
    using A = RawArgument;
    using Function = HRESULT(STDMETHODCALLTYPE*)(void*, A, A, A, A, A, A, A, A, A, A, A, A);
    const auto function = reinterpret_cast<Function>((*static_cast<void***>(object))[slot]);
    const auto& a = arguments;
    return function(object, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9], a[10], a[11]);
}

Recorder::Recorder(bool hasLastError) : m_table(RecorderTable::Get()), m_hasLastError(hasLastError) {}

MAPIERROR Recorder::ExtendedError() noexcept
{
    static wchar_t text[] = L"100% full";
    static wchar_t component[] = L"recorder";
    return {MAPI_ERROR_VERSION, text, component, 112, 7};
}

void Recorder::Forget()
{
    m_calls.clear();
    m_errorRequests.clear();
    m_addRefs = 0;
    m_releases = 0;
}

RawArgument Recorder::OnCall(int slot, const RawArguments& arguments)
{
    const OwnMemory own;
    const auto hr = static_cast<HRESULT>(arguments[0]);
    if (m_hasLastError && slot == 3 && static_cast<ULONG>(arguments[1]) == MAPI_UNICODE)
    {
        m_errorRequests.push_back(hr);
        auto** const error = reinterpret_cast<MAPIERROR**>(arguments[2]);
        const MAPIERROR source = ExtendedError();
        if (!m_givesError)
            return static_cast<ULONG>(MAPI_E_NOT_ENOUGH_MEMORY);
        *error = AllocateMapiError(source.lpszError, source.lpszComponent, source.ulLowLevelError, source.ulContext);
        return S_OK;
    }
    m_calls.push_back({slot, arguments, m_references});
    const auto behaviour = m_behaviours.find(slot);
    const HRESULT result = behaviour == m_behaviours.end() ? m_result : behaviour->second(arguments);
    // What a 32-bit result leaves in the upper half of the register is nobody's concern.
    return 0xABABABAB00000000 | static_cast<ULONG>(result);
}

ULONG Recorder::OnAddRef()
{
    ++m_addRefs;
    return ++m_references;
}

ULONG Recorder::OnRelease()
{
    ++m_releases;
    --m_references;
    if (m_onRelease)
        m_onRelease(m_references);
    return m_references;
}

} // namespace Tests
