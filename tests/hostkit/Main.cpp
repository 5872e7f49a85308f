// The main of the host kit's tests.
#include "tests/hostkit/Environment.h"

#include <objbase.h>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 1;
    Tests::InstallLeakListener();
    return RUN_ALL_TESTS();
}
