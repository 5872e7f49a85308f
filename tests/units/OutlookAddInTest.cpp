// The mail client's program.
#include "support/OutlookAddIn.h"

#include "tests/common/Alone.h"
#include "tests/common/ImportHook.h"
#include "tests/common/Setting.h"

#include <gtest/gtest.h>

using namespace Quillon;
using namespace Quillon::OutlookAddIn;
using Tests::Text;

TEST(OutlookVersion, IsOrdered)
{
    EXPECT_LT(OutlookVersion::Outlook2003, OutlookVersion::Outlook2007);
    EXPECT_LT(OutlookVersion::Outlook2007, OutlookVersion::Outlook2010);
    EXPECT_LT(OutlookVersion::Outlook2010, OutlookVersion::Outlook2013);
    EXPECT_LT(OutlookVersion::Outlook2013, OutlookVersion::Outlook2016);
}

TEST(OutlookVersion, ComesFromTheFilesVersionResource)
{
    EXPECT_EQ(GetOutlookVersionFromPath(Tests::OutlookProgram().c_str()), OutlookVersion::Outlook2016);
}

TEST(OutlookVersion, IsUnknownWhereNoneCanBeRead)
{
    const Tests::TempFolder folder;
    Tests::WriteFileBytes(folder / L"text.exe", "no program");
    Tests::CopyDouble(L"PstDouble.dll", folder / L"no version.dll");
    for (const std::wstring& path : {std::wstring(), folder / L"missing.exe", folder / L"text.exe",
                                     folder / L"no version.dll", folder.Path().wstring()})
        EXPECT_EQ(GetOutlookVersionFromPath(path.c_str()), OutlookVersion::Unknown);
}

TEST(OutlookVersion, IsUnknownWhereTheResourceLacksIt)
{
    const StringW program(Tests::OutlookProgram().c_str());
    {
        const Tests::ImportHook<BOOL(LPCWSTR, DWORD, DWORD, LPVOID)> hook(
            "GetFileVersionInfoW", [](LPCWSTR, DWORD, DWORD, LPVOID) -> BOOL { return FALSE; });
        EXPECT_EQ(GetOutlookVersionFromPath(program), OutlookVersion::Unknown);
    }
    {
        // A root block that is cut short.
        const Tests::ImportHook<BOOL(LPCVOID, LPCWSTR, LPVOID*, PUINT)> hook(
            "VerQueryValueW",
            [](LPCVOID resource, LPCWSTR, LPVOID* block, PUINT length) -> BOOL
            {
                *block = const_cast<void*>(resource);
                *length = sizeof(VS_FIXEDFILEINFO) - 1;
                return TRUE;
            });
        EXPECT_EQ(GetOutlookVersionFromPath(program), OutlookVersion::Unknown);
    }
}

TEST_ALONE(OutlookPath, IsEmptyWhenNoneIsRegistered)
{
    const Tests::ScratchRegistry registry;
    EXPECT_EQ(Text(GetOutlookPath()), L"");
}

TEST_ALONE(OutlookPath, ComesFromTheRegistry)
{
    Tests::ScratchRegistry registry;
    const Tests::TempFolder folder;
    const std::wstring program = folder / L"outlook \u00FC.exe";
    ASSERT_TRUE(CopyFileW(Tests::OutlookProgram().c_str(), program.c_str(), TRUE));
    registry.SetOutlookPath(program);
    EXPECT_EQ(Text(GetOutlookPath()), program);
    EXPECT_EQ(GetOutlookVersionFromPath(GetOutlookPath()), OutlookVersion::Outlook2016);

    registry.SetOutlookPath(L"\"" + program + L"\"");
    EXPECT_EQ(Text(GetOutlookPath()), program) << "in quotation marks, as some installers write it";

    SetEnvironmentVariableW(L"KIVNST_PROGRAM", folder.Path().c_str());
    registry.SetOutlookPath(L"%KIVNST_PROGRAM%\\outlook \u00FC.exe", REG_EXPAND_SZ);
    EXPECT_EQ(Text(GetOutlookPath()), program) << "with a variable in it";
}

TEST_ALONE(OutlookPath, IsReadAlsoWithoutATerminator)
{
    Tests::ScratchRegistry registry;
    const std::wstring program = Tests::OutlookProgram();
    registry.SetBytes(L"Software\\Microsoft\\Windows\\CurrentVersion\\App Paths\\outlook.exe", nullptr, REG_SZ,
                      program.c_str(), program.size() * sizeof(wchar_t));
    EXPECT_EQ(Text(GetOutlookPath()), program);
}

TEST_ALONE(OutlookPath, IsEmptyWhenTheRegistryNamesNoFile)
{
    Tests::ScratchRegistry registry;
    const Tests::TempFolder folder;
    for (const std::wstring& path : {std::wstring(), std::wstring(L"\""), std::wstring(L"\"\""), folder / L"gone.exe",
                                     folder.Path().wstring(), std::wstring(1000, L'x'), std::wstring(40000, L'x')})
    {
        registry.SetOutlookPath(path);
        EXPECT_EQ(Text(GetOutlookPath()), L"");
    }
    registry.SetOutlookPath(Tests::OutlookProgram(), REG_BINARY);
    EXPECT_EQ(Text(GetOutlookPath()), L"") << "a value that is no text";
}
