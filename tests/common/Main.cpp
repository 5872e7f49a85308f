// The main of the test programs.
#include "tests/common/LeakListener.h"

#include <gmock/gmock.h>

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    // A death test's child starts anew: it must not inherit what other tests did to the process.
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    Tests::InstallLeakListener();
    return RUN_ALL_TESTS();
}
