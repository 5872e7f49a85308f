// The counted interface pointer.
#include "support/ComPtr.h"

#include "tests/common/StoreDoubles.h"
#include "tests/common/SupportDoubles.h"

#include <gtest/gtest.h>

#include <utility>

using ATL::CComQIPtr;
using Tests::StoreDouble;

namespace
{

using StorePointer = CComQIPtr<IMsgStore>;

static_assert(sizeof(StorePointer) == sizeof(void*));

} // namespace

TEST(CComQIPtr, IsNullByItself)
{
    const StorePointer pointers[] = {StorePointer(), StorePointer(nullptr),
                                     StorePointer(static_cast<IMsgStore*>(nullptr)),
                                     StorePointer(static_cast<IUnknown*>(nullptr))};
    for (const StorePointer& pointer : pointers)
    {
        EXPECT_EQ(pointer.p, nullptr);
        EXPECT_TRUE(!pointer);
    }
}

TEST(CComQIPtr, CountsEachCopy)
{
    const auto store = Tests::MakeNice<StoreDouble>();
    {
        StorePointer first(store.Get());
        EXPECT_EQ(store->References(), 2u);
        const StorePointer second(first);
        EXPECT_EQ(store->References(), 3u);
        StorePointer left(store.Get());
        const StorePointer moved(std::move(left));
#if defined(_MSC_VER)
        // ATL's has no move of its own and copies.
        EXPECT_EQ(left.p, store.Get()); // NOLINT(bugprone-use-after-move)
        left.Release();
#else
        EXPECT_EQ(left.p, nullptr); // NOLINT(bugprone-use-after-move): what a move leaves is the point
#endif
        EXPECT_EQ(store->References(), 4u);
        first = second;
        EXPECT_EQ(store->References(), 4u);
        StorePointer& same = first;
        first = same;
        EXPECT_EQ(store->References(), 4u);
        first = nullptr;
        EXPECT_EQ(store->References(), 3u);
        EXPECT_EQ(static_cast<IMsgStore*>(moved), store.Get());
        EXPECT_EQ(&*moved, store.Get());
    }
    EXPECT_EQ(store->References(), 1u);
}

TEST(CComQIPtr, AsksForItsInterface)
{
    const auto store = Tests::MakeNice<StoreDouble>();
    const auto message = Tests::MakeNice<Tests::MessageDouble>();
    {
        IUnknown* const unknown = store.Get();
        const StorePointer answered(unknown);
        EXPECT_EQ(answered.p, store.Get());
        EXPECT_EQ(store->References(), 2u);
        IUnknown* const other = message.Get();
        const StorePointer refused(other);
        EXPECT_EQ(refused.p, nullptr);
        EXPECT_EQ(message->References(), 1u);

        CComQIPtr<IMAPIProp> property;
        EXPECT_EQ(answered.QueryInterface(&property), S_OK);
        EXPECT_EQ(property.p, store.Get());
    }
    EXPECT_EQ(store->References(), 1u);
}

TEST(CComQIPtr, HandsReferencesOverUncounted)
{
    const auto store = Tests::MakeNice<StoreDouble>();
    store->AddRef();
    StorePointer pointer;
    pointer.Attach(store.Get());
    EXPECT_EQ(store->References(), 2u);
    store->AddRef();
    pointer.Attach(store.Get());
    EXPECT_EQ(store->References(), 2u) << "what it held is released";
    IMsgStore* const detached = pointer.Detach();
    EXPECT_EQ(detached, store.Get());
    EXPECT_EQ(store->References(), 2u);
    EXPECT_EQ(pointer.p, nullptr);
    *(&pointer) = detached;
    pointer.Release();
    EXPECT_EQ(store->References(), 1u);
    pointer.Release();
    EXPECT_EQ(store->References(), 1u);
}
