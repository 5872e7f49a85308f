// The environment of the testbed's tests.
#include "tests/testbed/Environment.h"

#include "common/ComObject.h"
#include "common/Text.h"

#include <cstdlib>

namespace Tests
{
namespace
{
std::filesystem::path Folder(const wchar_t* variable, const wchar_t* besideProgram)
{
    wchar_t path[MAX_PATH] = {};
    const DWORD length = GetEnvironmentVariableW(variable, path, MAX_PATH);
    if (length != 0 && length < MAX_PATH)
        return path;
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    return std::filesystem::path(program).parent_path() / besideProgram;
}

class LeakListener : public testing::EmptyTestEventListener
{
public:
    void OnTestStart(const testing::TestInfo&) override
    {
        m_serial = Mapi()->Statistics().cAllocated + 1;
        m_objects = Common::LiveObjects();
    }

    void OnTestEnd(const testing::TestInfo&) override
    {
        Mapi()->FailAllocation(0);
        EXPECT_EQ(Common::Utf8FromWide(Mapi()->LiveBlocks(m_serial)), "") << "MAPI blocks are left";
        EXPECT_EQ(Common::LiveObjects(), m_objects) << "COM objects are left";
    }

private:
    ULONGLONG m_serial = 0;
    long m_objects = 0;
};
} // namespace

const std::shared_ptr<LoadedMapi>& Mapi()
{
    static const auto module = LoadedMapi::Load(MailClientFolder() / L"olmapi32.dll");
    return module;
}

const Common::MapiMemory& Memory()
{
    return Mapi()->Memory();
}

std::filesystem::path TempPath(const std::wstring& name)
{
    const std::filesystem::path path = Folder(L"KIVNST_TEST_TEMP", L"test-temp") / name;
    std::filesystem::create_directories(path.parent_path());
    std::filesystem::remove_all(path);
    return path;
}

std::filesystem::path MailClientFolder()
{
    return Folder(L"KIVNST_MAIL_CLIENT", L"..\\mail-client");
}

std::filesystem::path BinFolder()
{
    return Folder(L"KIVNST_BIN", L".");
}

void InstallLeakListener()
{
    Mapi();
    testing::UnitTest::GetInstance()->listeners().Append(new LeakListener);
}
} // namespace Tests
