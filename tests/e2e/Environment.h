// What the end-to-end tests share: the mail that they read, a folder to write in, and a watch for what is left behind.
#pragma once

#include "common/Boundary.h"
#include "tests/common/LoadedMapi.h"
#include "tools/browser/Commands.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace Tests
{
/// The committed small PST files.
std::vector<std::filesystem::path> SmallFiles();
/// The file of that name in the fetched mail; empty where it is not there.
std::filesystem::path FetchedFile(const wchar_t* name);

/// The message service of the sample host, as the tests have it in MAPISVC.INF.
constexpr auto hostService = L"ArchiveTestSvc";

/// MAPI, for the whole program.
const std::shared_ptr<const Browser::Mapi>& TestMapi();

/// A new, empty folder of the running test. A profile that belongs to it is removed.
std::filesystem::path NewFolder();
/// The name of the profile that belongs to a folder.
std::wstring ProfileOf(const std::filesystem::path& folder);
/// The archive of that profile.
Browser::Place PlaceOf(const std::filesystem::path& folder);
/// A copy of the file in `folder`.
std::filesystem::path CopyInto(const std::filesystem::path& folder, const std::filesystem::path& file);
/// A generated store's file in `folder`.
std::filesystem::path SampleInto(const std::filesystem::path& folder, unsigned folders, unsigned messages);
/// A file's bytes; empty when there is none.
std::string ContentsOf(const std::filesystem::path& file);

/// A message service that is in MAPISVC.INF for as long as this lives.
class ServiceInFile
{
public:
    ServiceInFile(const wchar_t* name, const wchar_t* display, const wchar_t* dll);
    ~ServiceInFile();
    ServiceInFile(const ServiceInFile&) = delete;
    ServiceInFile& operator=(const ServiceInFile&) = delete;

private:
    const wchar_t* m_name;
};

/// The path of MAPISVC.INF.
std::wstring InfFile();

/// Fails every test at whose end a MAPI block, a COM object of this program or one of the PST provider is left, or one
/// of the library's switches is on.
void InstallLeakListener();
} // namespace Tests

/// Skips a test that needs the fetched mail, and says why.
#define REQUIRE_FETCHED(path)                                                                                          \
    if ((path).empty())                                                                                                \
    GTEST_SKIP_("the fetched mail is not here: it comes over the network (scripts/fetch-demo-mail)")
