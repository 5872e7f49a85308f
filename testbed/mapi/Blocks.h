// The registry of MAPI blocks: guard bytes, poison, quarantine and counts.
#pragma once

#include "common/Mutex.h"
#include "testbed/mapi/Olmapi.h"

#include <deque>
#include <map>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace Testbed
{
/// All blocks of the process. Each block has guard bytes on both sides; freed blocks are poisoned and kept for a while,
/// so that a second free and a late write are noticed. Any misuse ends the process, for the memory can no longer be
/// trusted. Thread-safe.
class Blocks
{
public:
    /// Allocates a block of its own (`parent` null) or one linked to `parent`, a block of its own. Null when there is
    /// no memory, when `size` is more than a sane caller asks for, or when a failure was ordered.
    void* Allocate(size_t size, void* parent);
    /// Frees a block of its own with all that is linked to it.
    void Free(void* block);

    void Statistics(OlmapiStatistics& statistics);
    ULONG Enumerate(ULONGLONG firstSerial, OLMAPI_BLOCK_CALLBACK callback, void* context);
    void FailNth(ULONG nth);
    void CheckAll();
    void RequireNone(ULONGLONG firstSerial);

private:
    struct Block
    {
        BYTE* memory;
        size_t size;
        void* root;
        ULONGLONG serial;
        std::vector<void*> linked;
    };

    struct Freed
    {
        void* payload;
        BYTE* memory;
        size_t size;
        ULONGLONG serial;
    };

    using BlockMap = std::unordered_map<void*, Block>;

    void CheckGuards(const void* payload, const Block& block) const;
    void CheckPoison(const Freed& freed) const;
    void Discard(BlockMap::iterator block);
    [[noreturn]] void Foreign(const void* pointer, const char* call) const;

    Mutex m_lock;
    BlockMap m_live;
    std::deque<Freed> m_quarantine;
    size_t m_quarantineSize = 0;
    ULONGLONG m_bytes = 0;
    ULONGLONG m_allocated = 0;
    ULONGLONG m_freed = 0;
    ULONGLONG m_calls = 0;
    ULONG m_failIn = 0;
};
} // namespace Testbed
