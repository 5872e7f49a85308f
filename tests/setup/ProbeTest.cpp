// What archive-setup's status finds wrong with a DLL: files made from the sample host's.
#include "tools/setup/Probe.h"
#include "tests/common/Setting.h"
#include "tests/setup/Tool.h"
#include "tools/setup/Text.h"

#include <gmock/gmock.h>

#include <windows.h>

#include <cstring>
#include <utility>

using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Tests::Utf8;

namespace
{

std::wstring BuiltModule(const wchar_t* name)
{
    return (Tests::ProgramFolder() / name).make_preferred().wstring();
}

std::string BytesOf(const wchar_t* name)
{
    return Tests::ReadFileBytes(BuiltModule(name));
}

/// Replaces every occurrence by something as long.
std::string Replaced(std::string bytes, const std::string& what, const std::string& by)
{
    EXPECT_EQ(what.size(), by.size());
    std::size_t at = bytes.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    for (; at != std::string::npos; at = bytes.find(what, at + by.size()))
        bytes.replace(at, by.size(), by);
    return bytes;
}

template <class Value>
Value At(const std::string& bytes, std::size_t offset)
{
    Value value;
    std::memcpy(&value, bytes.data() + offset, sizeof(value));
    return value;
}

/// Where the file's header begins.
std::size_t HeaderOf(const std::string& bytes)
{
    return static_cast<std::size_t>(At<IMAGE_DOS_HEADER>(bytes, 0).e_lfanew) + sizeof(DWORD);
}

/// Has the module's start do something else.
std::string WithStart(std::string bytes, const std::string& code)
{
    const std::size_t header = HeaderOf(bytes);
    const auto file = At<IMAGE_FILE_HEADER>(bytes, header);
    const std::size_t optional = header + sizeof(file);
    const DWORD start = At<IMAGE_OPTIONAL_HEADER64>(bytes, optional).AddressOfEntryPoint;
    for (WORD index = 0; index < file.NumberOfSections; ++index)
    {
        const auto section = At<IMAGE_SECTION_HEADER>(bytes, optional + file.SizeOfOptionalHeader +
                                                                 index * sizeof(IMAGE_SECTION_HEADER));
        if (start >= section.VirtualAddress && start - section.VirtualAddress < section.SizeOfRawData)
            return bytes.replace(start - section.VirtualAddress + section.PointerToRawData, code.size(), code);
    }
    ADD_FAILURE() << "the module has no start";
    return bytes;
}

/// The library with its C++ functions under names that are not this ABI's.
std::string WithNamesOfAnotherAbi(std::string bytes)
{
#if defined(_MSC_VER)
    // Here the library's namespace stands within the name.
    const std::string inNamespace = "Quillon@@";
    const std::string ofNames = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_?@$";
    std::size_t count = 0;
    for (std::size_t at = bytes.find(inNamespace); at != std::string::npos;
         at = bytes.find(inNamespace, at + inNamespace.size()))
    {
        const std::size_t begin = bytes.find_last_not_of(ofNames, at) + 1;
        if (bytes[begin] == '?')
        {
            bytes[begin] = '_';
            ++count;
        }
    }
    EXPECT_NE(count, 0u);
    return bytes;
#else
    return Replaced(std::move(bytes), "_ZN7Quillon", "?ZN7Quillon");
#endif
}

class DllProbe : public testing::Test
{
protected:
    // The modules of the build are not among those that the mail client would find.
    DllProbe() : m_path(32768, L'\0')
    {
        m_path.resize(GetEnvironmentVariableW(L"PATH", m_path.data(), static_cast<DWORD>(m_path.size())));
        SetEnvironmentVariableW(L"PATH", L"");
    }
    ~DllProbe() override { SetEnvironmentVariableW(L"PATH", m_path.c_str()); }

    /// Expects one problem with the host of these bytes.
    void ExpectProblem(const std::string& bytes, const wchar_t* kind, const std::string& detail) const
    {
        Tests::WriteFileBytes(host, bytes);
        const auto problems = Setup::ProbeDll(host);
        ASSERT_THAT(problems, SizeIs(1)) << detail;
        EXPECT_EQ(problems[0].kind, kind) << Utf8(problems[0].detail);
        EXPECT_THAT(Utf8(problems[0].detail), HasSubstr(detail));
        EXPECT_THAT(Utf8(problems[0].detail), HasSubstr("Host \xC3\x84.dll"));
    }
    void PutLibraryBeside(const std::string& bytes) const { Tests::WriteFileBytes(folder / L"KivNst.dll", bytes); }

    const Tests::TempFolder folder;
    const std::wstring host = folder / L"Host \u00C4.dll";
    const std::string sound = BytesOf(L"ArchiveHost32.dll");

private:
    std::wstring m_path;
};

} // namespace

TEST_F(DllProbe, FindsNothingWrongWithTheSampleHost)
{
    EXPECT_THAT(Setup::ProbeDll(BuiltModule(L"ArchiveHost32.dll")), IsEmpty());
    Tests::WriteFileBytes(host, sound);
    PutLibraryBeside(BytesOf(L"KivNst.dll"));
    EXPECT_THAT(Setup::ProbeDll(host), IsEmpty());
}

TEST_F(DllProbe, FindsAFileThatIsNoModule)
{
    PutLibraryBeside(BytesOf(L"KivNst.dll"));
    ExpectProblem("", L"not a module", "is not a module");
    ExpectProblem("not empty", L"not a module", "is not a module");
    ExpectProblem("MZ" + std::string(500, 'x'), L"not a module", "is not a module");
    for (const std::size_t length : {std::size_t{64}, std::size_t{300}, sound.size() / 4, sound.size() / 2})
        ExpectProblem(sound.substr(0, length), L"not a module", "it is cut short");
    ExpectProblem(BytesOf(L"archive-probe.exe"), L"not a module", "is a program and no DLL");
}

TEST_F(DllProbe, FindsAModuleForOtherProcessors)
{
    PutLibraryBeside(BytesOf(L"KivNst.dll"));
    std::string bytes = sound;
    const std::size_t header = HeaderOf(bytes);
    const WORD x86 = IMAGE_FILE_MACHINE_I386;
    std::memcpy(bytes.data() + header, &x86, sizeof(x86));
    ExpectProblem(bytes, L"wrong bitness", "32-bit");
}

TEST_F(DllProbe, FindsEachMissingExport)
{
    PutLibraryBeside(BytesOf(L"KivNst.dll"));
    ExpectProblem(Replaced(sound, {"\0ServiceEntry", 13}, {"\0SurviceEntry", 13}), L"missing export",
                  "does not export ServiceEntry");
    ExpectProblem(Replaced(sound, {"\0MSProviderInit", 15}, {"\0MSProviderExit", 15}), L"missing export",
                  "does not export MSProviderInit");
}

TEST_F(DllProbe, FindsAMissingLibrary)
{
    // Beside the tool there is one, which is not the host's.
    ExpectProblem(sound, L"missing module", "KivNst.dll, which ");
    ExpectProblem(Replaced(sound, "KivNst.dll", "KivNot.dll"), L"missing module", "KivNot.dll, which ");
}

TEST_F(DllProbe, FindsALibraryThatIsNoneOrAnotherOne)
{
    const std::string library = BytesOf(L"KivNst.dll");
    Tests::WriteFileBytes(host, sound);
    PutLibraryBeside("not empty");
    auto problems = Setup::ProbeDll(host);
    ASSERT_THAT(problems, SizeIs(1));
    EXPECT_EQ(problems[0].kind, L"not a module");
    EXPECT_THAT(Utf8(problems[0].detail), HasSubstr("KivNst.dll is not a module"));

    PutLibraryBeside(Replaced(library, "SetModifyStores", "SetModifyStoreX"));
    ExpectProblem(sound, L"wrong ABI", "another version of it");
    PutLibraryBeside(WithNamesOfAnotherAbi(library));
    ExpectProblem(sound, L"wrong ABI", "another C++ ABI");
}

TEST_F(DllProbe, TellsOfADllThatFailsInItsStart)
{
    PutLibraryBeside(BytesOf(L"KivNst.dll"));
    // return FALSE;
    ExpectProblem(WithStart(sound, "\x31\xC0\xC3"), L"cannot be loaded", "cannot be loaded: ");
}
