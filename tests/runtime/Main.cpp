// Runs the tests; or, where it was started by one of them, ends as it was told.
#include "tests/runtime/ProcessEnd.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

int wmain(int count, wchar_t** arguments) // NOLINT(misc-use-internal-linkage)
{
    if (count == 3 && std::wstring(arguments[1]) == L"--end")
        return ProcessEnd::EndProcess(arguments[2]);
    testing::InitGoogleMock(&count, arguments);
    return RUN_ALL_TESTS();
}
