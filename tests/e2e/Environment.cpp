// The environment of the end-to-end tests.
#include "tests/e2e/Environment.h"

#include "common/ComObject.h"
#include "common/Text.h"
#include "nst/KivNstCore.h"
#include "nst/StoreProviderRegistration.h"
#include "tools/setup/Locations.h"

#include <cstdlib>
#include <cwctype>
#include <fstream>
#include <sstream>

using namespace Testbed;

namespace Tests
{
namespace
{
std::wstring Variable(const wchar_t* name)
{
    std::wstring value(32767, L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return value;
}

std::filesystem::path FolderOf(const wchar_t* variable)
{
    const std::wstring path = Variable(variable);
    if (path.empty())
        Fail(MAPI_E_NOT_FOUND, std::wstring(variable) + L" is not set; the tests are started by ctest.");
    return path;
}

const std::shared_ptr<LoadedMapi>& Mapi()
{
    static const auto module = LoadedMapi::LoadRegistered();
    return module;
}

// The PST provider counts its own objects; as long as it was not loaded there are none.
long ProviderObjects()
{
    const HMODULE module = GetModuleHandleW(L"mspst32.dll");
    const auto count =
        module ? reinterpret_cast<long (*)()>(reinterpret_cast<void*>(GetProcAddress(module, "TestbedLiveObjects")))
               : nullptr;
    return count ? count() : 0;
}

class LeakListener : public testing::EmptyTestEventListener
{
public:
    void OnTestStart(const testing::TestInfo&) override
    {
        m_serial = Mapi()->Statistics().cAllocated + 1;
        m_objects = LiveObjects();
        m_providerObjects = ProviderObjects();
    }

    void OnTestEnd(const testing::TestInfo&) override
    {
        EXPECT_EQ(Utf8FromWide(Mapi()->LiveBlocks(m_serial)), "") << "MAPI blocks are left";
        EXPECT_EQ(LiveObjects(), m_objects) << "COM objects of the session are left";
        EXPECT_EQ(ProviderObjects(), m_providerObjects) << "COM objects of the PST provider are left";
        EXPECT_FALSE(Quillon::Nst::GetUnwrapStores());
        // The host sets this one at every logon, so it only must not stay for the next test.
        Quillon::Nst::SetModifyStores(false);
    }

private:
    ULONGLONG m_serial = 0;
    long m_objects = 0;
    long m_providerObjects = 0;
};
} // namespace

std::vector<std::filesystem::path> SmallFiles()
{
    const std::filesystem::path folder = FolderOf(L"KIVNST_TEST_DATA") / L"pst";
    return {folder / L"outlook.pst", folder / L"sample1.pst", folder / L"submessage.pst"};
}

std::filesystem::path FetchedFile(const wchar_t* name)
{
    const std::wstring folder = Variable(L"KIVNST_PST_DATA");
    std::error_code error;
    const std::filesystem::path file = folder.empty() ? std::filesystem::path() : std::filesystem::path(folder) / name;
    return std::filesystem::exists(file, error) ? file : std::filesystem::path();
}

std::filesystem::path NewFolder()
{
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(test.test_suite_name()) + "." + test.name();
    for (char& character : name)
        character = character == '/' ? '_' : character;
    const std::filesystem::path folder = FolderOf(L"KIVNST_TEST_TEMP") / name;
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    if (Browser::ProfileExists(*TestMapi(), ProfileOf(folder)))
        Browser::DeleteProfile(*TestMapi(), ProfileOf(folder));
    return folder;
}

std::wstring ProfileOf(const std::filesystem::path& folder)
{
    // A profile's name has 64 characters at most, and of these few.
    constexpr size_t longest = 40;
    const std::wstring whole = folder.filename().wstring();
    std::wstring name = L"e2e ";
    for (const wchar_t character : whole.substr(0, longest))
        name += std::iswalnum(character) ? character : L'_';
    return name + L"_" + std::to_wstring(std::hash<std::wstring>()(whole) % 1000000);
}

Browser::Place PlaceOf(const std::filesystem::path& folder)
{
    return {ProfileOf(folder), hostService, {}};
}

const std::shared_ptr<const Browser::Mapi>& TestMapi()
{
    // Until the end of the process, when MAPI may be gone already.
    static const auto& mapi = *new std::shared_ptr<const Browser::Mapi>(Browser::Mapi::Start());
    return mapi;
}

ServiceInFile::ServiceInFile(const wchar_t* name, const wchar_t* display, const wchar_t* dll) : m_name(name)
{
    Quillon::OutlookAddIn::RegisterStoreProvider(m_name, display, dll, InfFile().c_str(), L"");
}

ServiceInFile::~ServiceInFile()
{
    Quillon::OutlookAddIn::UnregisterStoreProvider(m_name, InfFile().c_str());
}

std::wstring InfFile()
{
    return Setup::FindMapiSvcInf().path;
}

std::filesystem::path CopyInto(const std::filesystem::path& folder, const std::filesystem::path& file)
{
    const std::filesystem::path copy = folder / file.filename();
    std::filesystem::copy_file(file, copy);
    return copy;
}

std::filesystem::path SampleInto(const std::filesystem::path& folder, unsigned folders, unsigned messages)
{
    const std::filesystem::path file = folder / "sample.pst";
    std::ofstream stream(file, std::ios::binary);
    stream << "KivNst sample store\nfolders=" << folders << " messages=" << messages << " seed=7\n";
    return file;
}

std::string ContentsOf(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream contents;
    if (stream)
        contents << stream.rdbuf();
    return contents.str();
}

void InstallLeakListener()
{
    Mapi();
    TestMapi();
    testing::UnitTest::GetInstance()->listeners().Append(new LeakListener);
}
} // namespace Tests
