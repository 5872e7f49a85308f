// The main of the end-to-end tests.
#include "tests/e2e/Environment.h"

#include <objbase.h>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 1;
    const Tests::ServiceInFile sampleHost(Tests::hostService, L"Test Archive", L"ArchiveHost.dll");
    Tests::InstallLeakListener();
    return RUN_ALL_TESTS();
}
