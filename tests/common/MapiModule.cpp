// Loading the testbed's MAPI module.
#include "tests/common/MapiModule.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace Tests
{
namespace
{

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "tests: %s (error %lu)\n", what, GetLastError());
    std::exit(2);
}

std::wstring MailClientFolder()
{
    wchar_t folder[MAX_PATH] = {};
    const DWORD length = GetEnvironmentVariableW(L"KIVNST_MAIL_CLIENT", folder, MAX_PATH);
    if (length != 0 && length < MAX_PATH)
        return folder;
    const DWORD pathLength = GetModuleFileNameW(nullptr, folder, MAX_PATH);
    std::wstring program(folder, pathLength);
    program.resize(program.find_last_of(L'\\'));
    return program + L"\\..\\mail-client";
}

} // namespace

template <class Function>
Function MapiModule::Find(const char* name) const
{
    void* const function = reinterpret_cast<void*>(GetProcAddress(m_module, name));
    if (!function)
        Fail(name);
    return reinterpret_cast<Function>(function);
}

MapiModule::MapiModule()
    : m_module(LoadLibraryExW((MailClientFolder() + L"\\olmapi32.dll").c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH))
{
    if (!m_module)
        Fail("the MAPI module cannot be loaded from the mail client's folder");
    m_allocateBuffer = Find<LPALLOCATEBUFFER>("MAPIAllocateBuffer");
    m_allocateMore = Find<LPALLOCATEMORE>("MAPIAllocateMore");
    m_freeBuffer = Find<LPFREEBUFFER>("MAPIFreeBuffer");
    m_getStatistics = Find<Testbed::OLMAPI_GET_STATISTICS>("OlmapiGetStatistics");
    m_enumerateBlocks = Find<Testbed::OLMAPI_ENUMERATE_BLOCKS>("OlmapiEnumerateBlocks");
    m_failAllocation = Find<Testbed::OLMAPI_FAIL_ALLOCATION>("OlmapiFailAllocation");
    m_checkBlocks = Find<Testbed::OLMAPI_CHECK_BLOCKS>("OlmapiCheckBlocks");
}

MapiModule& MapiModule::Get()
{
    static MapiModule module;
    return module;
}

std::wstring MapiModule::Path() const
{
    wchar_t path[MAX_PATH] = {};
    return std::wstring(path, GetModuleFileNameW(m_module, path, MAX_PATH));
}

void* MapiModule::Allocate(std::size_t size) const
{
    void* block = nullptr;
    if (FAILED(m_allocateBuffer(static_cast<ULONG>(size), &block)))
        Fail("no MAPI memory");
    return block;
}

void* MapiModule::AllocateMore(std::size_t size, void* parent) const
{
    void* block = nullptr;
    if (FAILED(m_allocateMore(static_cast<ULONG>(size), parent, &block)))
        Fail("no linked MAPI memory");
    return block;
}

void MapiModule::Free(void* block) const
{
    m_freeBuffer(block);
}

Testbed::OlmapiStatistics MapiModule::Statistics() const
{
    Testbed::OlmapiStatistics statistics = {};
    statistics.cbSize = sizeof(statistics);
    if (!m_getStatistics(&statistics))
        Fail("the MAPI module gives no statistics");
    return statistics;
}

ULONG MapiModule::LiveBlocks() const
{
    return Statistics().cLive;
}

ULONGLONG MapiModule::Allocations() const
{
    return Statistics().cAllocated;
}

ULONGLONG MapiModule::AllocationCalls() const
{
    return Statistics().cCalls;
}

void MapiModule::FailAllocation(ULONG nth) const
{
    m_failAllocation(nth);
}

void MapiModule::CheckBlocks() const
{
    m_checkBlocks();
}

std::string MapiModule::DescribeBlocks(ULONGLONG allocations) const
{
    std::ostringstream text;
    m_enumerateBlocks(
        allocations + 1,
        [](const Testbed::OlmapiBlock* block, void* context) -> BOOL
        {
            *static_cast<std::ostringstream*>(context)
                << "  block " << block->ullSerial << " at " << block->pvBlock << ", " << block->cb << " bytes\n";
            return TRUE;
        },
        &text);
    return text.str();
}

} // namespace Tests
