// The planned fault.
#include "tests/faults/Faults.h"

#include "tests/common/MapiModule.h"
#include "tests/common/OwnMemory.h"

#include <cstdlib>

namespace Tests
{
namespace
{

Faults* g_faults = nullptr;

} // namespace

Faults& Faults::Get()
{
    static Faults& faults = *new Faults;
    return faults;
}

Faults::Faults() : m_malloc("malloc", &Allocate), m_free("free", &Free)
{
    g_faults = this;
}

void Faults::Plan(const Fault& fault)
{
    m_fault = fault;
    m_calls.clear();
    m_allocations = 0;
    m_mapiAllocations = 0;
    m_happened = false;
}

void Faults::Arm()
{
    s_armed = true;
    ResumeMapi();
}

void Faults::Disarm()
{
    if (!s_armed)
        return;
    PauseMapi();
    s_armed = false;
}

bool Faults::Hits(const char* call)
{
    if (!s_armed)
        return false;
    const OwnMemory own;
    m_calls.emplace_back(call);
    const bool hits = m_calls.size() == m_fault.call;
    m_happened = m_happened || hits;
    return hits;
}

bool Faults::PassSystem(const char* call)
{
    if (!Hits(call))
        return true;
    SetLastError(static_cast<DWORD>(m_fault.code));
    return false;
}

bool Faults::PassHook(const char* hook)
{
    if (!Hits(hook))
        return true;
    switch (m_fault.effect)
    {
    case Effect::ThrowComError:
        throw Quillon::CComError(m_fault.code);
    case Effect::ThrowRuntimeError:
        throw Quillon::CRuntimeError(L"the host refuses");
    case Effect::ThrowWinError:
        throw Quillon::CWinError(ERROR_ACCESS_DENIED);
    case Effect::ThrowForeignError:
        throw ForeignError();
    default:
        return false;
    }
}

void* Faults::Allocate(std::size_t size)
{
    const OwnMemory own;
    Faults& self = *g_faults;
    if (s_armed)
    {
        const std::size_t number = ++self.m_allocations;
        const std::size_t failing = self.m_fault.allocation;
        if (failing != 0 && (number == failing || (self.m_fault.staysEmpty && number > failing)))
        {
            self.m_happened = true;
            return nullptr;
        }
    }
    void* const block = std::malloc(size);
    if (block)
        self.m_blocks.insert(block);
    return block;
}

void Faults::Free(void* block)
{
    const OwnMemory own;
    g_faults->m_blocks.erase(block);
    std::free(block);
}

void Faults::ResumeMapi()
{
    const MapiModule& mapi = MapiModule::Get();
    m_mapiCallsAtResume = mapi.AllocationCalls();
    if (m_fault.mapiAllocation > m_mapiAllocations)
        mapi.FailAllocation(static_cast<ULONG>(m_fault.mapiAllocation - m_mapiAllocations));
}

void Faults::PauseMapi()
{
    const MapiModule& mapi = MapiModule::Get();
    mapi.FailAllocation(0);
    m_mapiAllocations += static_cast<std::size_t>(mapi.AllocationCalls() - m_mapiCallsAtResume);
    if (m_fault.mapiAllocation != 0 && m_mapiAllocations >= m_fault.mapiAllocation)
        m_happened = true;
}

Faults::OwnAllocations::OwnAllocations()
{
    if (s_armed)
        Get().PauseMapi();
}

Faults::OwnAllocations::~OwnAllocations()
{
    if (s_armed)
        Get().ResumeMapi();
}

} // namespace Tests
