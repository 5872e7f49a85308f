// The library's heap, as a host sees it.
#include "support/Export.h"

#include "support/Exceptions.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

using namespace Quillon;

namespace
{

/// An object whose class lives on the library's heap.
struct OnLibraryHeap
{
    KIVNST_OWN_HEAP
    char bytes[40] = {};
};

int freed = 0;

} // namespace

TEST(Memory, GivesBlocksOfAnySize)
{
    void* const nothing = AllocateObject(0);
    void* const something = AllocateObject(1000);
    EXPECT_NE(nothing, nullptr);
    EXPECT_NE(something, nothing);
    std::memset(something, 1, 1000);
    FreeObject(something);
    FreeObject(nothing);
    FreeObject(nullptr);
}

TEST(Memory, SaysThatThereIsNone)
{
    const Tests::LogCapture log;
    try
    {
        FreeObject(AllocateObject(SIZE_MAX));
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const CComError& error)
    {
        EXPECT_EQ(error.GetHResult(), E_OUTOFMEMORY);
    }
    EXPECT_THAT(log.Lines(), testing::ElementsAre(Tests::Throwing(L"Memory.cpp", L"Quillon::AllocateObject",
                                                                  L"MAPI_E_NOT_ENOUGH_MEMORY (0x8007000E)")));
}

TEST(Memory, OfAnExportedClassIsTheLibrarysOwn)
{
    {
        const Tests::NoMemory noMemory;
        const Tests::LogCapture log;
        EXPECT_THROW(delete new OnLibraryHeap, CComError);
    }
    freed = 0;
    const Tests::ImportHook<void(void*)> hook("free",
                                              [](void* block)
                                              {
                                                  ++freed;
                                                  std::free(block);
                                              });
    delete new OnLibraryHeap;
    EXPECT_EQ(freed, 1);
}
