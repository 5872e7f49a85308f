// The leak listener.
#include "tests/common/LeakListener.h"

#include "nst/KivNstCore.h"
#include "support/Log.h"
#include "support/MapiErrors.h"
#include "tests/common/MapiModule.h"
#include "tests/common/TestDouble.h"

#include <gtest/gtest.h>

namespace Tests
{
namespace
{

void ExpectOff(bool& setting, const char* name)
{
    EXPECT_FALSE(setting) << name << " was left on";
    setting = false;
}

class LeakListener : public testing::EmptyTestEventListener
{
public:
    void OnTestStart(const testing::TestInfo&) override { m_allocations = MapiModule::Get().Allocations(); }

    void OnTestEnd(const testing::TestInfo&) override
    {
        const MapiModule& mapi = MapiModule::Get();
        mapi.FailAllocation(0);
        CountedObject::EndAll();
        const std::string blocks = mapi.DescribeBlocks(m_allocations);
        EXPECT_TRUE(blocks.empty()) << "MAPI blocks left:\n" << blocks;
        mapi.CheckBlocks();

        EXPECT_FALSE(Quillon::Nst::GetModifyStores()) << "store modification was left on";
        Quillon::Nst::SetModifyStores(false);
        EXPECT_FALSE(Quillon::Nst::GetUnwrapStores()) << "unwrapping of stores was left on";
        Quillon::Nst::SetUnwrapStores(false);
        ExpectOff(Quillon::Mapi::GetDieOnNetworkErrors(), "the end on network errors");
        ExpectOff(Quillon::Mapi::GetDieOnOutOfMemoryErrors(), "the end on missing memory");
        ExpectOff(Quillon::Mapi::GetDieOnCorruptStore(), "the end on a corrupt store");
        EXPECT_EQ(Quillon::Mapi::GetOpenMapiObjectFlags(), 0u) << "flags of opened objects were left";
        Quillon::Mapi::GetOpenMapiObjectFlags() = 0;
        EXPECT_FALSE(Quillon::Logging::EnableTraceLogging(false)) << "trace logging was left on";
    }

private:
    ULONGLONG m_allocations = 0;
};

} // namespace

void InstallLeakListener()
{
    MapiModule::Get();
    testing::UnitTest::GetInstance()->listeners().Append(new LeakListener);
}

} // namespace Tests
