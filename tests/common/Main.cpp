// The main of the test programs.
#include "tests/common/Alone.h"
#include "tests/common/LeakListener.h"
#include "tests/common/TestName.h"

#include <gmock/gmock.h>

#include <string_view>

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    // A death test's child starts anew: it must not inherit what other tests did to the process.
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    if (argc == 2 && std::string_view(argv[1]) == "--alone")
        Tests::SetAlone();
    else
    {
        Tests::InstallLeakListener();
        Tests::InstallTestName();
    }
    return RUN_ALL_TESTS();
}
