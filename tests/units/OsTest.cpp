// Paths, files and security identifiers.
#include "support/Os.h"

#include "support/Exceptions.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Setting.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Quillon;
using Tests::Text;

namespace
{

DWORD ErrorOf(auto&& action)
{
    try
    {
        action();
    }
    catch (const CWinError& error)
    {
        return error.GetError();
    }
    return ERROR_SUCCESS;
}

} // namespace

TEST(Os, SplitsPathsIntoDirectoryAndName)
{
    const struct
    {
        const wchar_t* path;
        const wchar_t* directory;
        const wchar_t* name;
    } table[] = {
        {L"", L"", L""},
        {L"file", L"", L"file"},
        {L"file.ext", L"", L"file.ext"},
        {L"dir\\file", L"dir", L"file"},
        {L"dir/file", L"dir", L"file"},
        {L"a\\b/c\\file.ext", L"a\\b/c", L"file.ext"},
        {L"a/b\\c/file.ext", L"a/b\\c", L"file.ext"},
        {L"dir\\", L"dir", L""},
        {L"C:\\dir\\file", L"C:\\dir", L"file"},
        {L"C:\\dir with space\\fi le.e xt", L"C:\\dir with space", L"fi le.e xt"},
        // The root of a drive is not its current directory: it keeps its separator.
        {L"C:\\file", L"C:\\", L"file"},
        {L"C:/file", L"C:/", L"file"},
        {L"C:\\", L"C:\\", L""},
        {L"C:file", L"C:", L"file"},
        {L"C:", L"C:", L""},
        {L"\\file", L"\\", L"file"},
        {L"\\", L"\\", L""},
        {L"\\\\server\\share\\file", L"\\\\server\\share", L"file"},
        {L"\\\\server\\share\\dir\\file", L"\\\\server\\share\\dir", L"file"},
        {L"\\\\?\\C:\\file", L"\\\\?\\C:\\", L"file"},
        {L"\\\\?\\C:\\dir\\file", L"\\\\?\\C:\\dir", L"file"},
        // A colon that is no drive's belongs to the name: a stream.
        {L"C:\\dir\\file:stream", L"C:\\dir", L"file:stream"},
    };
    for (const auto& row : table)
    {
        EXPECT_EQ(Text(Os::GetDirectoryFromPath(row.path)), row.directory) << Tests::Narrow(row.path);
        EXPECT_EQ(Text(Os::GetNameFromPath(row.path)), row.name);
    }
}

TEST(Os, JoinsPathsWithOneBackslash)
{
    const struct
    {
        const wchar_t* left;
        const wchar_t* right;
        const wchar_t* joined;
    } table[] = {
        {L"dir", L"file", L"dir\\file"},
        {L"dir\\", L"file", L"dir\\file"},
        {L"dir", L"\\file", L"dir\\file"},
        {L"dir\\", L"\\file", L"dir\\file"},
        {L"dir\\\\", L"\\\\file", L"dir\\file"},
        {L"dir/", L"/file", L"dir\\file"},
        {L"C:\\", L"file", L"C:\\file"},
        {L"\\\\server\\share", L"dir\\file", L"\\\\server\\share\\dir\\file"},
        {L"", L"file", L"file"},
        {L"dir", L"", L"dir"},
        {L"", L"", L""},
        {L"dir 100%s", L"%d", L"dir 100%s\\%d"},
    };
    for (const auto& row : table)
        EXPECT_EQ(Text(Os::AppendPaths(row.left, row.right)), row.joined);
}

TEST(Os, PutsASplitPathTogetherAgain)
{
    for (const wchar_t* const path : {L"C:\\file", L"C:\\dir\\file", L"\\\\server\\share\\file", L"dir\\file", L"file"})
        EXPECT_EQ(Text(Os::AppendPaths(Os::GetDirectoryFromPath(path), Os::GetNameFromPath(path))), path);
}

TEST(Os, GivesTheFullPathOfAModule)
{
    wchar_t program[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    EXPECT_EQ(Text(Os::GetModulePath(nullptr)), program);
    const HMODULE library = GetModuleHandleW(L"KivNst.dll");
    const std::wstring path = Text(Os::GetModulePath(library));
    EXPECT_EQ(path.substr(path.find_last_of(L'\\') + 1), L"KivNst.dll");
}

TEST(Os, ThrowsForAModuleThatIsNone)
{
    const Tests::LogCapture log;
    EXPECT_NE(ErrorOf([] { Os::GetModulePath(reinterpret_cast<HINSTANCE>(0x1234560000)); }), DWORD(ERROR_SUCCESS));
    EXPECT_EQ(log.Lines().size(), 1u);
}

TEST(Os, TellsFilesFromDirectories)
{
    const Tests::TempFolder folder;
    const std::wstring file = folder / L"file \u00FC.txt";
    Tests::WriteFileBytes(file, "x");
    const StringW folderPath(folder.Path().c_str());
    EXPECT_TRUE(Os::VerifyFileExists(file.c_str()));
    EXPECT_FALSE(Os::VerifyDirectoryExists(file.c_str()));
    EXPECT_TRUE(Os::VerifyDirectoryExists(folderPath));
    EXPECT_FALSE(Os::VerifyFileExists(folderPath));
    EXPECT_TRUE(Os::VerifyDirectoryExists(L"C:\\"));
    for (const wchar_t* const missing : {L"", L"Z:\\no\\such\\thing", L"?*<>", L"C:\\no such file"})
    {
        EXPECT_FALSE(Os::VerifyFileExists(missing));
        EXPECT_FALSE(Os::VerifyDirectoryExists(missing));
    }
}

TEST(Os, ResetsTheAttributesThatKeepAFileFromBeingWritten)
{
    const Tests::TempFolder folder;
    const std::wstring file = folder / L"file.txt";
    Tests::WriteFileBytes(file, "x");
    for (const DWORD attributes : {FILE_ATTRIBUTE_READONLY, FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN,
                                   FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_READONLY, FILE_ATTRIBUTE_NORMAL})
    {
        ASSERT_TRUE(SetFileAttributesW(file.c_str(), attributes));
        Os::ResetFileAttributes(file.c_str());
        EXPECT_EQ(GetFileAttributesW(file.c_str()) &
                      (FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM),
                  0u)
            << attributes;
        const HANDLE opened = CreateFileW(file.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        EXPECT_NE(opened, INVALID_HANDLE_VALUE);
        CloseHandle(opened);
    }
}

TEST(Os, ThrowsWhenThereIsNoFileToResetTheAttributesOf)
{
    const Tests::LogCapture log;
    const Tests::TempFolder folder;
    const std::wstring missing = folder / L"missing.txt";
    try
    {
        Os::ResetFileAttributes(missing.c_str());
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const CWinError& error)
    {
        EXPECT_EQ(error.GetError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
        EXPECT_NE(Text(error.Format()).find(missing), std::wstring::npos) << "says which file";
        EXPECT_THAT(log.Lines(), testing::ElementsAre(Tests::Throwing(L"Os.cpp", L"Quillon::Os::ResetFileAttributes",
                                                                      Text(error.Format()))));
    }
}

TEST(Os, GivesTheCurrentUsersSid)
{
    const Binary sid = Os::GetCurrentUserSid();
    ASSERT_FALSE(sid.IsNull());
    Binary copy(sid);
    EXPECT_TRUE(IsValidSid(copy.GetBuffer()));
    EXPECT_EQ(sid.GetSize(), GetLengthSid(copy.GetBuffer()));
    const std::wstring text = Text(Os::FormatSid(sid));
    EXPECT_EQ(text.rfind(L"S-1-5-", 0), 0u);

    // The system knows who that is.
    wchar_t name[256] = {};
    wchar_t domain[256] = {};
    DWORD nameSize = 256;
    DWORD domainSize = 256;
    SID_NAME_USE use = SidTypeUnknown;
    EXPECT_TRUE(LookupAccountSidW(nullptr, copy.GetBuffer(), name, &nameSize, domain, &domainSize, &use));
    EXPECT_EQ(use, SidTypeUser);
}

TEST(Os, ClosesTheTokenThatItAskedForTheUser)
{
    static HANDLE opened = nullptr;
    static std::vector<HANDLE> closed;
    opened = nullptr;
    closed.clear();
    const Tests::ImportHook<BOOL(HANDLE, DWORD, PHANDLE)> open("OpenProcessToken",
                                                               [](HANDLE process, DWORD access, PHANDLE token) -> BOOL
                                                               {
                                                                   const BOOL done =
                                                                       OpenProcessToken(process, access, token);
                                                                   opened = *token;
                                                                   return done;
                                                               });
    const Tests::ImportHook<BOOL(HANDLE)> close("CloseHandle",
                                                [](HANDLE handle) -> BOOL
                                                {
                                                    closed.push_back(handle);
                                                    return CloseHandle(handle);
                                                });
    EXPECT_FALSE(Os::GetCurrentUserSid().IsNull());
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(closed, std::vector<HANDLE>{opened});
}

TEST(Os, ThrowsWhatKeepsTheCurrentUsersSidFromIt)
{
    const Tests::LogCapture log;
    {
        const Tests::ImportHook<BOOL(HANDLE, DWORD, PHANDLE)> hook("OpenProcessToken",
                                                                   [](HANDLE, DWORD, PHANDLE) -> BOOL
                                                                   {
                                                                       SetLastError(ERROR_ACCESS_DENIED);
                                                                       return FALSE;
                                                                   });
        EXPECT_EQ(ErrorOf([] { Os::GetCurrentUserSid(); }), DWORD(ERROR_ACCESS_DENIED));
    }
    using Function = BOOL(HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD, PDWORD);
    {
        // Not even the size is to be had.
        const Tests::ImportHook<Function> hook("GetTokenInformation",
                                               [](HANDLE, TOKEN_INFORMATION_CLASS, LPVOID, DWORD, PDWORD) -> BOOL
                                               {
                                                   SetLastError(ERROR_INVALID_HANDLE);
                                                   return FALSE;
                                               });
        EXPECT_EQ(ErrorOf([] { Os::GetCurrentUserSid(); }), DWORD(ERROR_INVALID_HANDLE));
    }
    {
        // The size, but nothing of it.
        const Tests::ImportHook<Function> hook(
            "GetTokenInformation",
            [](HANDLE, TOKEN_INFORMATION_CLASS, LPVOID buffer, DWORD, PDWORD size) -> BOOL
            {
                *size = 64;
                SetLastError(buffer ? ERROR_NO_SYSTEM_RESOURCES : ERROR_INSUFFICIENT_BUFFER);
                return FALSE;
            });
        EXPECT_EQ(ErrorOf([] { Os::GetCurrentUserSid(); }), DWORD(ERROR_NO_SYSTEM_RESOURCES));
    }
    EXPECT_EQ(log.Lines().size(), 3u);
}

TEST(Os, FormatsSecurityIdentifiers)
{
    const struct
    {
        std::vector<BYTE> sid;
        const wchar_t* text;
    } table[] = {
        {{1, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0}, L"S-1-1-0"},
        {{1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0}, L"S-1-5-18"},
        {{1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0, 0x20, 2, 0, 0}, L"S-1-5-32-544"},
        {{1, 5, 0, 0, 0, 0, 0, 5, 21, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 0xE9, 3, 0, 0},
         L"S-1-5-21-1-2-3-1001"},
        {{1, 1, 0, 0, 0, 0, 0, 5, 0xFF, 0xFF, 0xFF, 0xFF}, L"S-1-5-4294967295"},
        // Bytes behind the identifier are not its own.
        {{1, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 7, 7}, L"S-1-1-0"},
    };
    for (const auto& row : table)
        EXPECT_EQ(Text(Os::FormatSid(Binary(row.sid.data(), row.sid.size()))), row.text);
}

TEST(Os, RefusesSecurityIdentifiersThatAreNone)
{
    const Tests::LogCapture log;
    const std::vector<BYTE> table[] = {
        {},
        {1},
        {1, 0, 0, 0, 0, 0, 0},
        {1, 1, 0, 0, 0, 0, 0, 5},                // claims one part, has none
        {1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0},   // claims two, has one
        {1, 255, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0}, // claims more than there can be
        {9, 1, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0},   // an unknown revision
    };
    for (const std::vector<BYTE>& row : table)
        EXPECT_EQ(ErrorOf([&] { Os::FormatSid(Binary(row.data(), row.size())); }), DWORD(ERROR_INVALID_SID))
            << row.size() << " bytes";
    EXPECT_EQ(ErrorOf([] { Os::FormatSid(Binary()); }), DWORD(ERROR_INVALID_SID));
    EXPECT_EQ(log.Lines().size(), std::size(table) + 1);
}
