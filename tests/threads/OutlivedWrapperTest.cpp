// Wrappers whose last reference is given up while a call on them is under way.
#include "nst/NstMapiFolder.h"
#include "nst/NstMapiTable.h"
#include "nst/NstMessage.h"
#include "nst/NstMsgStore.h"
#include "tests/threads/Doubles.h"
#include "tests/threads/Gate.h"
#include "tests/threads/Watchdog.h"

#include <gtest/gtest.h>

#include <thread>

using namespace Quillon;

namespace
{

constexpr int rounds = 500;

/// Has one thread call a wrapper over a new double, and this one release the wrapper for good meanwhile. `call` gives
/// the call's result; `hook` sets what the double does within it.
template <class Wrapper, class Double, class Make, class Hook, class Call>
void ReleaseDuringCalls(Make make, Hook hook, Call call)
{
    const Tests::Watchdog watchdog(30);
    for (int round = 0; round < rounds; ++round)
    {
        Tests::Gate entered;
        Tests::Gate released;
        auto* const object = new Double;
        hook(*object,
             [&]
             {
                 entered.Open();
                 released.Wait();
             });
        Wrapper* const wrapper = make(object);
        EXPECT_EQ(object->References(), 2u);
        HRESULT result = E_FAIL;
        std::thread caller([&] { result = call(*wrapper); });
        entered.Wait();
        EXPECT_EQ(wrapper->Release(), 0u);
        EXPECT_EQ(object->References(), 2u) << "the wrapper's reference is gone, the call's own is not";
        released.Open();
        caller.join();
        EXPECT_EQ(result, S_OK);
        EXPECT_EQ(object->Release(), 0u);
    }
    Tests::CheapObject::DeleteEnded();
    EXPECT_EQ(Tests::GetTally().misused, 0);
    EXPECT_EQ(Tests::GetTally().made, Tests::GetTally().ended);
}

template <class Wrapper, class Double, class Make>
void ReleaseDuringSaveChanges(Make make)
{
    ReleaseDuringCalls<Wrapper, Double>(
        make, [](Double& object, auto stay) { object.onSaveChanges = stay; },
        [](Wrapper& wrapper) { return wrapper.SaveChanges(0); });
}

} // namespace

TEST(OutlivedWrapper, StoreSurvivesItsLastReleaseDuringACall)
{
    ReleaseDuringSaveChanges<Nst::CNstMsgStore, Tests::CheapStore>([](IMsgStore* store)
                                                                   { return new Nst::CNstMsgStore(store, nullptr); });
}

TEST(OutlivedWrapper, FolderSurvivesItsLastReleaseDuringACall)
{
    ReleaseDuringSaveChanges<Nst::CNstMapiFolder, Tests::CheapFolder>(
        [](IMAPIFolder* folder) { return new Nst::CNstMapiFolder(folder, nullptr, nullptr); });
}

TEST(OutlivedWrapper, MessageSurvivesItsLastReleaseDuringACall)
{
    ReleaseDuringSaveChanges<Nst::CNstMessage, Tests::CheapMessage>([](IMessage* message)
                                                                    { return new Nst::CNstMessage(message); });
}

TEST(OutlivedWrapper, TableSurvivesItsLastReleaseDuringACall)
{
    ReleaseDuringCalls<Nst::CNstMapiTable, Tests::CheapTable>(
        [](IMAPITable* table) { return new Nst::CNstMapiTable(table); }, [](Tests::CheapTable& table, auto stay)
        { table.onAbort = stay; }, [](Nst::CNstMapiTable& wrapper) { return wrapper.Abort(); });
}
