// The main of the testbed's tests.
#include "tests/testbed/Environment.h"

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    // A death test's child starts anew, with a heap that no other test has touched.
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    Tests::InstallLeakListener();
    return RUN_ALL_TESTS();
}
