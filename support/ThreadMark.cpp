// The marks' slot.
#include "support/ThreadMark.h"

#include <windows.h>

#include <atomic>

namespace Quillon::Detail
{
namespace
{

std::atomic<DWORD> g_slot = TLS_OUT_OF_INDEXES;

/// The slot; who takes one first publishes it.
DWORD GetSlot() noexcept
{
    DWORD slot = g_slot;
    if (slot != TLS_OUT_OF_INDEXES)
        return slot;
    const DWORD taken = TlsAlloc();
    if (g_slot.compare_exchange_strong(slot, taken))
        return taken;
    TlsFree(taken);
    return slot;
}

std::uintptr_t GetMarks() noexcept
{
    return reinterpret_cast<std::uintptr_t>(TlsGetValue(GetSlot()));
}

void SetMarks(std::uintptr_t marks) noexcept
{
    TlsSetValue(GetSlot(), reinterpret_cast<void*>(marks));
}

} // namespace

ThreadMark::ThreadMark(Doing what) noexcept : m_before(GetMarks()), m_bit(static_cast<std::uintptr_t>(what))
{
    SetMarks(m_before | m_bit);
}

ThreadMark::~ThreadMark()
{
    SetMarks(m_before);
}

bool ThreadMark::IsNested() const noexcept
{
    return (m_before & m_bit) != 0;
}

void ReleaseThreadMarks() noexcept
{
    TlsFree(g_slot.exchange(TLS_OUT_OF_INDEXES));
}

} // namespace Quillon::Detail
