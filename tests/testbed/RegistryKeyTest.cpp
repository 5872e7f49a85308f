// Text values of registry keys.
#include "tests/testbed/Environment.h"

#include "testbed/common/RegistryKey.h"

using namespace Testbed;

namespace
{
const std::wstring path = L"Software\\TestbedRegistryKeyTest";

class Key : public testing::Test
{
protected:
    void SetUp() override
    {
        LSTATUS error = ERROR_SUCCESS;
        key = RegistryKey::Create(HKEY_CURRENT_USER, path, error);
        ASSERT_EQ(error, ERROR_SUCCESS);
    }

    void TearDown() override
    {
        key = {};
        RegDeleteTreeW(HKEY_CURRENT_USER, path.c_str());
    }

    void Write(const wchar_t* name, DWORD type, const std::wstring& text)
    {
        RegSetValueExW(key.Get(), name, 0, type, reinterpret_cast<const BYTE*>(text.c_str()),
                       static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }

    RegistryKey key;
};
} // namespace

TEST_F(Key, WritesAndReadsTexts)
{
    EXPECT_EQ(key.WriteText(nullptr, L"default"), ERROR_SUCCESS);
    EXPECT_EQ(key.WriteText(L"name", L"caf\x00E9"), ERROR_SUCCESS);
    EXPECT_EQ(key.WriteText(L"empty", {}), ERROR_SUCCESS);
    const RegistryKey again = RegistryKey::Open(HKEY_CURRENT_USER, path);
    ASSERT_TRUE(again);
    EXPECT_EQ(again.ReadText(nullptr), L"default");
    EXPECT_EQ(again.ReadText(L"name"), L"caf\x00E9");
    EXPECT_EQ(again.ReadText(L"empty"), L"");
    EXPECT_FALSE(again.ReadText(L"missing"));
    EXPECT_FALSE(RegistryKey::Open(HKEY_CURRENT_USER, path + L"\\missing"));
}

TEST_F(Key, ExpandsVariables)
{
    SetEnvironmentVariableW(L"TESTBED_FOLDER", L"C:\\mail client");
    Write(L"path", REG_EXPAND_SZ, L"%TESTBED_FOLDER%\\olmapi32.dll");
    EXPECT_EQ(key.ReadText(L"path"), L"C:\\mail client\\olmapi32.dll");
    Write(L"plain", REG_SZ, L"%TESTBED_FOLDER%");
    EXPECT_EQ(key.ReadText(L"plain"), L"%TESTBED_FOLDER%");
}

TEST_F(Key, ReadsNothingButTexts)
{
    const DWORD number = 7;
    RegSetValueExW(key.Get(), L"number", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof(number));
    EXPECT_FALSE(key.ReadText(L"number"));
}
