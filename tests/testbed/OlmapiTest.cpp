// The MAPI module: allocation, and how it ends a process that misuses it.
#include "tests/testbed/Environment.h"

#include "common/StoreEntryId.h"

#include <cstring>
#include <thread>

using namespace Testbed;
using Tests::Mapi;

namespace
{
template <class F>
F Export(const char* name)
{
    const HMODULE module = GetModuleHandleW(L"olmapi32.dll");
    return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

BYTE* Allocate(ULONG size)
{
    void* block = nullptr;
    EXPECT_EQ(Mapi()->Memory().AllocateBufferRoutine()(size, &block), S_OK);
    return static_cast<BYTE*>(block);
}

BYTE* AllocateMore(ULONG size, void* parent)
{
    void* block = nullptr;
    EXPECT_EQ(Mapi()->Memory().AllocateMoreRoutine()(size, parent, &block), S_OK);
    return static_cast<BYTE*>(block);
}

void Free(void* block)
{
    Mapi()->Memory().FreeBufferRoutine()(block);
}

/// Writes where nobody may. AddressSanitizer would end the process here; what is held is what the module itself finds.
#ifdef KIVNST_ASAN
__attribute__((no_sanitize("address")))
#endif
void Scribble(BYTE* byte)
{
    *byte = 0;
}

auto ExitsWith(OlmapiExit exit)
{
    return testing::ExitedWithCode(static_cast<int>(exit));
}
} // namespace

TEST(Olmapi, CountsBlocksAndBytes)
{
    const OlmapiStatistics before = Mapi()->Statistics();
    BYTE* const root = Allocate(100);
    AllocateMore(28, root);
    const OlmapiStatistics during = Mapi()->Statistics();
    EXPECT_EQ(during.cLive, before.cLive + 2);
    EXPECT_EQ(during.cbLive, before.cbLive + 128);
    EXPECT_EQ(during.cAllocated, before.cAllocated + 2);
    Free(root);
    const OlmapiStatistics after = Mapi()->Statistics();
    EXPECT_EQ(after.cLive, before.cLive);
    EXPECT_EQ(after.cbLive, before.cbLive);
    EXPECT_EQ(after.cFreed, before.cFreed + 2);
}

TEST(Olmapi, StatisticsWantTheirSize)
{
    const auto get = Export<OLMAPI_GET_STATISTICS>("OlmapiGetStatistics");
    OlmapiStatistics statistics{};
    EXPECT_FALSE(get(&statistics));
    EXPECT_FALSE(get(nullptr));
}

TEST(Olmapi, BlocksAreAlignedAndNotZero)
{
    for (const ULONG size : {1u, 3u, 17u, 4096u})
    {
        BYTE* const block = Allocate(size);
        EXPECT_EQ(reinterpret_cast<ULONG_PTR>(block) % 16, 0u);
        // Nobody may rely on zeros: MAPI does not promise them.
        EXPECT_NE(block[0], 0);
        Free(block);
    }
}

TEST(Olmapi, EnumeratesLiveBlocksInOrder)
{
    BYTE* const root = Allocate(10);
    AllocateMore(20, root);
    std::vector<OlmapiBlock> seen;
    const auto collect = [](const OlmapiBlock* block, LPVOID context) -> BOOL
    {
        static_cast<std::vector<OlmapiBlock>*>(context)->push_back(*block);
        return TRUE;
    };
    const auto enumerate = Export<OLMAPI_ENUMERATE_BLOCKS>("OlmapiEnumerateBlocks");
    EXPECT_EQ(enumerate(Mapi()->Statistics().cAllocated - 1, collect, &seen), 2u);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].cb, 10u);
    EXPECT_EQ(seen[0].pvRoot, nullptr);
    EXPECT_EQ(seen[1].cb, 20u);
    EXPECT_EQ(seen[1].pvRoot, root);
    Free(root);
}

TEST(Olmapi, FailsTheOrderedAllocation)
{
    Mapi()->FailAllocation(2);
    BYTE* const first = Allocate(8);
    void* block = &block;
    EXPECT_EQ(Mapi()->Memory().AllocateBufferRoutine()(8, &block), MAPI_E_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(block, nullptr);
    BYTE* const third = Allocate(8);
    Free(first);
    Free(third);
}

TEST(Olmapi, RefusesAbsurdSizesAndNullPlaces)
{
    void* block = nullptr;
    EXPECT_EQ(Mapi()->Memory().AllocateBufferRoutine()(0xFFFFFFFF, &block), MAPI_E_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(Mapi()->Memory().AllocateBufferRoutine()(8, nullptr), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(Mapi()->Memory().AllocateMoreRoutine()(8, nullptr, &block), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(Mapi()->Memory().FreeBufferRoutine()(nullptr), ULONG(S_OK));
}

TEST(Olmapi, ServesManyThreads)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
    {
        threads.emplace_back(
            []
            {
                for (ULONG round = 0; round < 500; ++round)
                {
                    BYTE* const root = Allocate(round + 1);
                    AllocateMore(round, root);
                    Free(root);
                }
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    Export<OLMAPI_CHECK_BLOCKS>("OlmapiCheckBlocks")();
}

TEST(OlmapiDeathTest, OverrunBehindABlock)
{
    EXPECT_EXIT(
        {
            BYTE* const block = Allocate(5);
            Scribble(block + 5);
            Free(block);
        },
        ExitsWith(OlmapiExit::Overrun), "behind block");
}

TEST(OlmapiDeathTest, OverrunBeforeALinkedBlock)
{
    EXPECT_EXIT(
        {
            BYTE* const root = Allocate(5);
            Scribble(AllocateMore(5, root) - 1);
            Free(root);
        },
        ExitsWith(OlmapiExit::Overrun), "before block");
}

TEST(OlmapiDeathTest, OverrunOfALiveBlockIsFoundByACheck)
{
    EXPECT_EXIT(
        {
            Scribble(Allocate(5) + 6);
            Export<OLMAPI_CHECK_BLOCKS>("OlmapiCheckBlocks")();
        },
        ExitsWith(OlmapiExit::Overrun), "behind block");
}

TEST(OlmapiDeathTest, DoubleFree)
{
    EXPECT_EXIT(
        {
            BYTE* const block = Allocate(5);
            Free(block);
            Free(block);
        },
        ExitsWith(OlmapiExit::DoubleFree), "freed before");
}

TEST(OlmapiDeathTest, ForeignPointer)
{
    int local = 0;
    EXPECT_EXIT(Free(&local), ExitsWith(OlmapiExit::ForeignPointer), "no MAPI block");
}

TEST(OlmapiDeathTest, FreeOfALinkedBlock)
{
    EXPECT_EXIT(
        {
            BYTE* const root = Allocate(5);
            Free(AllocateMore(5, root));
        },
        ExitsWith(OlmapiExit::ForeignPointer), "linked to block");
}

TEST(OlmapiDeathTest, LinkToALinkedBlock)
{
    EXPECT_EXIT(
        {
            BYTE* const root = Allocate(5);
            AllocateMore(5, AllocateMore(5, root));
        },
        ExitsWith(OlmapiExit::ForeignPointer), "MAPIAllocateMore was given");
}

TEST(OlmapiDeathTest, WriteAfterFree)
{
    EXPECT_EXIT(
        {
            BYTE* const block = Allocate(5);
            Free(block);
            Scribble(block + 2);
            Export<OLMAPI_CHECK_BLOCKS>("OlmapiCheckBlocks")();
        },
        ExitsWith(OlmapiExit::WriteAfterFree), "after its free");
}

TEST(OlmapiDeathTest, Leak)
{
    EXPECT_EXIT(
        {
            const ULONGLONG next = Mapi()->Statistics().cAllocated + 1;
            Allocate(5);
            Mapi()->RequireNoBlocks(next);
        },
        ExitsWith(OlmapiExit::Leak), "1 blocks were never freed");
}

TEST(Olmapi, WrapsStoreEntryIds)
{
    const auto wrap = Export<WRAPSTOREENTRYID>("WrapStoreEntryID");
    BYTE original[] = {0, 0, 0, 0, 1, 2, 3};
    char name[] = "ArchiveHost.dll";
    ULONG size = 0;
    LPENTRYID wrapped = nullptr;
    ASSERT_EQ(wrap(0, name, sizeof(original), reinterpret_cast<ENTRYID*>(original), &size, &wrapped), S_OK);
    // 22 bytes of head, 15 of the name and its terminator, rounded up to 40, then the entry ID.
    ASSERT_EQ(size, 47u);
    static const BYTE head[] = {0,    0,    0,    0,    0x38, 0xA1, 0xBB, 0x10, 0x05, 0xE5, 0x10,
                                0x1A, 0xA1, 0xBB, 0x08, 0x00, 0x2B, 0x2A, 0x56, 0xC2, 0,    0};
    const BYTE* const bytes = reinterpret_cast<const BYTE*>(wrapped);
    EXPECT_EQ(std::memcmp(bytes, head, sizeof(head)), 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(bytes + 22), "ArchiveHost.dll");
    EXPECT_EQ(bytes[38], 0);
    EXPECT_EQ(bytes[39], 0);
    EXPECT_EQ(std::memcmp(bytes + 40, original, sizeof(original)), 0);

    const auto unwrapped = UnwrapStoreEntryId(wrapped, size);
    ASSERT_TRUE(unwrapped);
    EXPECT_EQ(unwrapped->dllName, "ArchiveHost.dll");
    EXPECT_EQ(unwrapped->entryId, Bytes(std::begin(original), std::end(original)));
    Free(wrapped);

    EXPECT_EQ(wrap(0, name, 3, reinterpret_cast<ENTRYID*>(original), &size, &wrapped), MAPI_E_INVALID_ENTRYID);
    EXPECT_EQ(wrap(0, nullptr, 7, reinterpret_cast<ENTRYID*>(original), &size, &wrapped), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(wrap(2, name, 7, reinterpret_cast<ENTRYID*>(original), &size, &wrapped), MAPI_E_UNKNOWN_FLAGS);
}

TEST(Olmapi, UnwrapsOnlyWhatIsWrapped)
{
    const BYTE entryId[] = {0, 0, 0, 0, 1, 2, 3};
    const Bytes wrapped = WrapStoreEntryId("a.dll", entryId, sizeof(entryId));
    EXPECT_FALSE(UnwrapStoreEntryId(nullptr, 0));
    EXPECT_FALSE(UnwrapStoreEntryId(entryId, sizeof(entryId)));
    // The name without its terminator.
    EXPECT_FALSE(UnwrapStoreEntryId(wrapped.data(), 25));
    // The name padded less than it has to be.
    const Bytes oddName = WrapStoreEntryId("ab.dll", entryId, 0);
    EXPECT_FALSE(UnwrapStoreEntryId(oddName.data(), oddName.size() - 3));
    EXPECT_TRUE(UnwrapStoreEntryId(wrapped.data(), wrapped.size()));
}
