// The library's version, as a host asks for it.
#include "nst/Version.h"

#include "support/Exceptions.h"
#include "tests/common/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using namespace Quillon;
using testing::HasSubstr;

namespace
{

TEST(LibraryVersion, IsThatOfItsVersionResource)
{
    wchar_t path[MAX_PATH] = {};
    ASSERT_NE(GetModuleFileNameW(GetModuleHandleW(L"KivNst.dll"), path, MAX_PATH), 0u);
    const DWORD size = GetFileVersionInfoSizeW(path, nullptr);
    ASSERT_NE(size, 0u);
    std::vector<BYTE> resource(size);
    ASSERT_TRUE(GetFileVersionInfoW(path, 0, size, resource.data()));
    VS_FIXEDFILEINFO* info = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueW(resource.data(), L"\\", reinterpret_cast<void**>(&info), &length));
    EXPECT_EQ(Nst::GetLibraryVersion(),
              KIVNST_MAKE_VERSION(HIWORD(info->dwFileVersionMS), LOWORD(info->dwFileVersionMS),
                                  HIWORD(info->dwFileVersionLS)));
    const wchar_t* text = nullptr;
    ASSERT_TRUE(VerQueryValueW(resource.data(), L"\\StringFileInfo\\040904B0\\ProductVersion",
                               reinterpret_cast<void**>(const_cast<wchar_t**>(&text)), &length));
    EXPECT_STREQ(Nst::GetLibraryVersionText(), text);
}

TEST(LibraryVersion, IsThatOfTheHeaders)
{
    EXPECT_EQ(Nst::GetLibraryVersion(), Nst::headerVersion);
    EXPECT_EQ(KivNstAbi1(), 1u);
}

TEST(LibraryVersion, ServesHostsOfAnOlderMinorVersionAndOfAnyPatch)
{
    const Tests::LogCapture log;
    EXPECT_NO_THROW(Nst::RequireLibraryVersion());
    EXPECT_NO_THROW(Nst::RequireLibraryVersion(KIVNST_MAKE_VERSION(KIVNST_VERSION_MAJOR, 0, 0)));
    EXPECT_NO_THROW(
        Nst::RequireLibraryVersion(KIVNST_MAKE_VERSION(KIVNST_VERSION_MAJOR, KIVNST_VERSION_MINOR, 0xFFFF)));
}

TEST(LibraryVersion, RefusesHostsOfANewerMinorOrAnotherMajorVersion)
{
    const Tests::LogCapture log;
    for (const unsigned version :
         {KIVNST_MAKE_VERSION(KIVNST_VERSION_MAJOR, KIVNST_VERSION_MINOR + 1, 0),
          KIVNST_MAKE_VERSION(KIVNST_VERSION_MAJOR + 1, 0, 0), KIVNST_MAKE_VERSION(KIVNST_VERSION_MAJOR - 1, 255, 0)})
    {
        try
        {
            Nst::RequireLibraryVersion(version);
            ADD_FAILURE() << std::hex << version;
        }
        catch (const CRuntimeError& error)
        {
            EXPECT_EQ(error.GetHResult(), E_FAIL);
        }
    }
}

TEST(LibraryVersion, IsNamedBesideTheHosts)
{
    const Tests::LogCapture log;
    try
    {
        Nst::RequireLibraryVersion(KIVNST_MAKE_VERSION(200, 34, 567));
        FAIL();
    }
    catch (const CRuntimeError& error)
    {
        const std::wstring text = error.Format().GetString();
        EXPECT_THAT(text, HasSubstr(Nst::GetLibraryVersionText()));
        EXPECT_THAT(text, HasSubstr(L"200.34.567"));
    }
}

} // namespace
