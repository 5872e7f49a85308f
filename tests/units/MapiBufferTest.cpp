// SmartPointer and the MAPI memory behind it.
#include "support/MapiBuffer.h"

#include "mapi/MapiBinding.h"
#include "support/Exceptions.h"
#include "tests/common/LogCapture.h"
#include "tests/common/MapiModule.h"

#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>
#include <utility>
#include <vector>

namespace
{

using Pointer = Quillon::Mapi::SmartPointer<SPropValue*, Quillon::Mapi::MapiBufferDestructor>;
using Tests::MapiModule;

std::vector<void*> freed;

struct RecordingDestructor
{
    void operator()(void* block) const
    {
        if (block)
            freed.push_back(block);
    }
};

using Recorded = Quillon::Mapi::SmartPointer<int*, RecordingDestructor>;

SPropValue* NewBlock()
{
    return static_cast<SPropValue*>(MapiModule::Get().Allocate(sizeof(SPropValue)));
}

static_assert(sizeof(Pointer) == sizeof(void*));
static_assert(!std::is_copy_constructible_v<Pointer> && !std::is_copy_assignable_v<Pointer>);
static_assert(std::is_nothrow_move_constructible_v<Pointer> && std::is_nothrow_move_assignable_v<Pointer>);
static_assert(std::is_empty_v<Quillon::Mapi::MapiBufferDestructor>);

} // namespace

TEST(SmartPointer, FreesItsBlockAtItsEnd)
{
    const ULONG before = MapiModule::Get().LiveBlocks();
    {
        const Pointer pointer(NewBlock());
        EXPECT_TRUE(static_cast<bool>(pointer));
        EXPECT_EQ(MapiModule::Get().LiveBlocks(), before + 1);
    }
    EXPECT_EQ(MapiModule::Get().LiveBlocks(), before);
}

TEST(SmartPointer, IsNullByItself)
{
    const Pointer pointer;
    EXPECT_FALSE(static_cast<bool>(pointer));
    EXPECT_EQ(pointer.Get(), nullptr);
}

TEST(SmartPointer, HandsEachBlockToItsDestructorOnce)
{
    int blocks[4] = {};
    freed.clear();
    {
        Recorded first(&blocks[0]);
        Recorded second(std::move(first));
        EXPECT_EQ(first.Get(), nullptr); // NOLINT(bugprone-use-after-move): what a move leaves is the point
        EXPECT_EQ(second.Get(), &blocks[0]);
        EXPECT_TRUE(freed.empty());

        second.Reset(&blocks[1]);
        EXPECT_EQ(freed, (std::vector<void*>{&blocks[0]}));
        first = std::move(second);
        EXPECT_EQ(freed.size(), 1u);
        EXPECT_EQ(first.Get(), &blocks[1]);

        EXPECT_EQ(first.Detach(), &blocks[1]);
        EXPECT_EQ(first.Get(), nullptr);
        EXPECT_EQ(freed.size(), 1u) << "what was detached is the caller's";

        *first.Put() = &blocks[2];
        EXPECT_EQ(first.Get(), &blocks[2]);
        *first.Put() = &blocks[3];
        EXPECT_EQ(freed, (std::vector<void*>{&blocks[0], &blocks[2]}));
    }
    EXPECT_EQ(freed, (std::vector<void*>{&blocks[0], &blocks[2], &blocks[3]}));
}

TEST(SmartPointer, AssignedToItselfKeepsItsBlock)
{
    Pointer pointer(NewBlock());
    SPropValue* const block = pointer.Get();
    Pointer& same = pointer;
    pointer = std::move(same);
    EXPECT_EQ(pointer.Get(), block);
}

TEST(SmartPointer, GivesAccessToItsBlock)
{
    int numbers[] = {3, 4};
    const Recorded pointer(numbers);
    EXPECT_EQ(*pointer, 3);
    EXPECT_EQ(pointer[1], 4);
    const Pointer value(NewBlock());
    value->ulPropTag = PR_ENTRYID;
    EXPECT_EQ(value.Get()->ulPropTag, PR_ENTRYID);
}

TEST(MapiBufferDestructor, IgnoresNull)
{
    Quillon::Mapi::MapiBufferDestructor()(nullptr);
    Quillon::Mapi::FreeMapiBuffer(nullptr);
}

TEST(MapiBuffer, IsAllocatedAndFreedThroughTheModuleThatIsBound)
{
    const ULONG before = MapiModule::Get().LiveBlocks();
    void* const block = Quillon::Mapi::AllocateMapiBuffer(100);
    std::memset(block, 1, 100);
    EXPECT_EQ(MapiModule::Get().LiveBlocks(), before + 1);
    Quillon::Mapi::FreeMapiBuffer(block);
    EXPECT_EQ(MapiModule::Get().LiveBlocks(), before);
}

TEST(MapiBuffer, ThrowsTheModulesCodeWhenThereIsNoMemory)
{
    const Tests::LogCapture log;
    MapiModule::Get().FailAllocation(1);
    try
    {
        Quillon::Mapi::FreeMapiBuffer(Quillon::Mapi::AllocateMapiBuffer(10));
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const Quillon::CComError& error)
    {
        EXPECT_EQ(error.GetHResult(), MAPI_E_NOT_ENOUGH_MEMORY);
    }
    EXPECT_THAT(log.Lines(),
                testing::ElementsAre(Tests::Throwing(L"MapiBinding.cpp", L"Quillon::Mapi::AllocateMapiBuffer",
                                                     Quillon::CComError(E_OUTOFMEMORY).Format().GetString())));
}
