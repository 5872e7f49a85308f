// The listener that tells the tests' names.
#include "tests/common/TestName.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <string>

namespace Tests
{
namespace
{

class TestNameListener : public testing::EmptyTestEventListener
{
public:
    void OnTestStart(const testing::TestInfo& test) override
    {
        Tell(std::string(test.test_suite_name()) + "." + test.name());
    }
    void OnTestEnd(const testing::TestInfo&) override { Tell(""); }

private:
    static void Tell(const std::string& name)
    {
        SetEnvironmentVariableA("KIVNST_TEST", name.c_str());
        // Only the library of `./run mutate` has it.
        const FARPROC found = GetProcAddress(GetModuleHandleW(L"KivNst.dll"), "RecordReachOf");
        if (found)
            reinterpret_cast<void (*)(const char*)>(reinterpret_cast<void*>(found))(name.c_str());
    }
};

} // namespace

void InstallTestName()
{
    testing::UnitTest::GetInstance()->listeners().Append(new TestNameListener);
}

} // namespace Tests
