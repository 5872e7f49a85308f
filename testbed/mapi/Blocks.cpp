// Allocation with guard bytes, and what it finds when a caller misuses it.
#include "testbed/mapi/Blocks.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#ifdef KIVNST_ASAN
extern "C" void __asan_poison_memory_region(const volatile void*, size_t);
extern "C" void __asan_unpoison_memory_region(const volatile void*, size_t);
#endif

namespace Testbed
{
namespace
{
// A multiple of the strictest alignment, so that payloads are aligned as malloc's are.
constexpr size_t guardSize = 16;
constexpr BYTE guardByte = 0xFD;
constexpr BYTE freshByte = 0xCD;
constexpr BYTE poisonByte = 0xDD;

// More than this at once is a size that went wrong, not one that is meant.
constexpr size_t maxBlockSize = size_t(1) << 30;

constexpr size_t quarantineCount = 4096;
constexpr size_t quarantineBytes = size_t(16) << 20;

[[noreturn]] void EndProcess(OlmapiExit exit, const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::fputs("olmapi32: ", stderr);
    std::vfprintf(stderr, format, arguments);
    std::fputc('\n', stderr);
    std::fflush(stderr);
    va_end(arguments);
    // Without the handlers of other modules: their memory may be what was damaged.
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(exit));
    std::abort();
}

// A heap of the blocks' own: what the quarantine keeps and gives back in the order in which it came leaves holes that
// every other allocation of the process would have to search.
HANDLE Heap()
{
    static const HANDLE heap = HeapCreate(0, 0, 0);
    return heap;
}

BYTE* AllocateMemory(size_t size)
{
    return static_cast<BYTE*>(Heap() ? HeapAlloc(Heap(), 0, size) : nullptr);
}

/// `size` is the payload's.
void FreeMemory(BYTE* memory, [[maybe_unused]] size_t size)
{
#ifdef KIVNST_ASAN
    // Whoever has the memory next may touch it.
    __asan_unpoison_memory_region(memory, size + 2 * guardSize);
#endif
    HeapFree(Heap(), 0, memory);
}

/// From here on nobody but this file may touch the bytes; AddressSanitizer, where it watches, says who did.
void Forbid([[maybe_unused]] const void* bytes, [[maybe_unused]] size_t size)
{
#ifdef KIVNST_ASAN
    __asan_poison_memory_region(bytes, size);
#endif
}

/// Whether bytes that nobody may touch are what they were.
bool AllAre(const BYTE* bytes, size_t size, BYTE value)
{
#ifdef KIVNST_ASAN
    __asan_unpoison_memory_region(bytes, size);
#endif
    const bool untouched = std::all_of(bytes, bytes + size, [value](BYTE byte) { return byte == value; });
    Forbid(bytes, size);
    return untouched;
}
} // namespace

void* Blocks::Allocate(size_t size, void* parent)
{
    const std::lock_guard guard(m_lock);
    ++m_calls;
    auto root = m_live.end();
    if (parent)
    {
        root = m_live.find(parent);
        if (root == m_live.end() || root->second.root)
            Foreign(parent, "MAPIAllocateMore");
    }
    if (m_failIn != 0)
    {
        --m_failIn;
        if (m_failIn == 0)
            return nullptr;
    }
    if (size > maxBlockSize)
        return nullptr;

    BYTE* const memory = AllocateMemory(size + 2 * guardSize);
    if (!memory)
        return nullptr;
    std::memset(memory, guardByte, guardSize);
    std::memset(memory + guardSize, freshByte, size);
    std::memset(memory + guardSize + size, guardByte, guardSize);
    Forbid(memory, guardSize);
    Forbid(memory + guardSize + size, guardSize);
    void* const payload = memory + guardSize;
    try
    {
        if (parent)
            root->second.linked.push_back(payload);
        m_live.emplace(payload, Block{memory, size, parent, m_allocated + 1, {}});
    }
    catch (const std::bad_alloc&)
    {
        if (parent && !root->second.linked.empty() && root->second.linked.back() == payload)
            root->second.linked.pop_back();
        FreeMemory(memory, size);
        return nullptr;
    }
    ++m_allocated;
    m_bytes += size;
    return payload;
}

void Blocks::Free(void* block)
{
    const std::lock_guard guard(m_lock);
    const auto found = m_live.find(block);
    if (found == m_live.end() || found->second.root)
        Foreign(block, "MAPIFreeBuffer");
    for (void* linked : found->second.linked)
        Discard(m_live.find(linked));
    Discard(found);
}

void Blocks::Discard(BlockMap::iterator block)
{
    CheckGuards(block->first, block->second);
    std::memset(block->first, poisonByte, block->second.size);
    Forbid(block->first, block->second.size);
    m_bytes -= block->second.size;
    ++m_freed;
    const Freed freed{block->first, block->second.memory, block->second.size, block->second.serial};
    m_live.erase(block);

    try
    {
        m_quarantine.push_back(freed);
        m_quarantineSize += freed.size;
    }
    catch (const std::bad_alloc&)
    {
        FreeMemory(freed.memory, freed.size);
    }
    while (m_quarantine.size() > quarantineCount || m_quarantineSize > quarantineBytes)
    {
        const Freed& oldest = m_quarantine.front();
        CheckPoison(oldest);
        FreeMemory(oldest.memory, oldest.size);
        m_quarantineSize -= oldest.size;
        m_quarantine.pop_front();
    }
}

void Blocks::CheckGuards(const void* payload, const Block& block) const
{
    const BYTE* const behind = block.memory + guardSize + block.size;
    const bool before = !AllAre(block.memory, guardSize, guardByte);
    if (before || !AllAre(behind, guardSize, guardByte))
    {
        EndProcess(OlmapiExit::Overrun, "bytes %s block %p (%llu bytes, allocation %llu) were overwritten.",
                   before ? "before" : "behind", payload, static_cast<unsigned long long>(block.size), block.serial);
    }
}

void Blocks::CheckPoison(const Freed& freed) const
{
    if (!AllAre(freed.memory + guardSize, freed.size, poisonByte))
    {
        EndProcess(OlmapiExit::WriteAfterFree, "block %p (%llu bytes, allocation %llu) was written to after its free.",
                   freed.payload, static_cast<unsigned long long>(freed.size), freed.serial);
    }
}

void Blocks::Foreign(const void* pointer, const char* call) const
{
    if (const auto live = m_live.find(const_cast<void*>(pointer)); live != m_live.end())
    {
        EndProcess(OlmapiExit::ForeignPointer, "%s was given %p, a block that is linked to block %p (allocation %llu).",
                   call, pointer, live->second.root, live->second.serial);
    }
    const auto freed = std::find_if(m_quarantine.rbegin(), m_quarantine.rend(),
                                    [pointer](const Freed& candidate) { return candidate.payload == pointer; });
    if (freed != m_quarantine.rend())
    {
        EndProcess(OlmapiExit::DoubleFree, "%s was given %p, a block that was freed before (allocation %llu).", call,
                   pointer, freed->serial);
    }
    EndProcess(OlmapiExit::ForeignPointer, "%s was given %p, which is no MAPI block.", call, pointer);
}

void Blocks::Statistics(OlmapiStatistics& statistics)
{
    const std::lock_guard guard(m_lock);
    statistics.cLive = static_cast<ULONG>(m_live.size());
    statistics.cbLive = m_bytes;
    statistics.cAllocated = m_allocated;
    statistics.cFreed = m_freed;
    statistics.cCalls = m_calls;
}

ULONG Blocks::Enumerate(ULONGLONG firstSerial, OLMAPI_BLOCK_CALLBACK callback, void* context)
{
    const std::lock_guard guard(m_lock);
    std::vector<OlmapiBlock> blocks;
    for (const auto& [payload, block] : m_live)
        if (block.serial >= firstSerial)
            blocks.push_back({payload, block.root, static_cast<ULONG>(block.size), block.serial});
    std::sort(blocks.begin(), blocks.end(),
              [](const OlmapiBlock& a, const OlmapiBlock& b) { return a.ullSerial < b.ullSerial; });
    ULONG told = 0;
    for (const OlmapiBlock& block : blocks)
    {
        ++told;
        if (!callback(&block, context))
            break;
    }
    return told;
}

void Blocks::FailNth(ULONG nth)
{
    const std::lock_guard guard(m_lock);
    m_failIn = nth;
}

void Blocks::CheckAll()
{
    const std::lock_guard guard(m_lock);
    for (const auto& [payload, block] : m_live)
        CheckGuards(payload, block);
    std::for_each(m_quarantine.begin(), m_quarantine.end(), [this](const Freed& freed) { CheckPoison(freed); });
}

void Blocks::RequireNone(ULONGLONG firstSerial)
{
    CheckAll();
    const auto print = [](const OlmapiBlock* block, void*) -> BOOL
    {
        std::fprintf(stderr, "olmapi32: block %p, %lu bytes, allocation %llu%s, was never freed.\n", block->pvBlock,
                     block->cb, block->ullSerial, block->pvRoot ? " (linked)" : "");
        return TRUE;
    };
    if (const ULONG left = Enumerate(firstSerial, print, nullptr))
        EndProcess(OlmapiExit::Leak, "%lu blocks were never freed.", left);
}
} // namespace Testbed
