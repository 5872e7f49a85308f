// Files of MAPISVC.INF's shape.
#include "tests/setup/MapiSvcInf.h"

#include "tests/common/LogCapture.h"
#include "tests/common/Setting.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <utility>

namespace Tests
{

void PrintTo(const InfEntry& entry, std::ostream* stream)
{
    *stream << '[' << Narrow(entry.section) << "] " << Narrow(entry.key) << '=' << Narrow(entry.value);
}

std::vector<InfEntry> ExpectedEntries(const std::wstring& service, const std::wstring& displayName,
                                      const std::wstring& dllName, const std::wstring& extraFlags)
{
    const std::wstring provider = service + L"_P";
    return {
        {provider, L"PR_RESOURCE_TYPE", L"MAPI_STORE_PROVIDER"},
        {provider, L"PR_PROVIDER_DLL_NAME", dllName},
        {provider, L"PR_RESOURCE_FLAGS", L"STATUS_NO_DEFAULT_STORE|STATUS_NO_PRIMARY_IDENTITY"},
        {provider, L"PR_DISPLAY_NAME", displayName},
        {provider, L"PR_PROVIDER_DISPLAY", displayName + L" Provider"},
        {provider, L"0x67020003", L"00000010"},
        {service, L"PR_DISPLAY_NAME", displayName},
        {service, L"PR_SERVICE_DLL_NAME", dllName},
        {service, L"PR_SERVICE_ENTRY_NAME", L"ServiceEntry"},
        {service, L"PR_RESOURCE_FLAGS",
         L"SERVICE_NO_PRIMARY_IDENTITY" + (extraFlags.empty() ? L"" : L"|" + extraFlags)},
        {service, L"Providers", provider},
        {service, L"PR_SERVICE_SUPPORT_FILES", dllName},
        {service, L"PR_SERVICE_DELETE_FILES", dllName},
        {L"Services", service, displayName},
    };
}

std::optional<std::wstring> ReadInf(const std::wstring& path, const std::wstring& section, const std::wstring& key)
{
    constexpr auto absent = L"<absent>";
    wchar_t value[1024] = {};
    GetPrivateProfileStringW(section.c_str(), key.c_str(), absent, value, 1024, path.c_str());
    return std::wstring(value) == absent ? std::nullopt : std::make_optional<std::wstring>(value);
}

std::string SampleInf()
{
    wchar_t data[MAX_PATH] = {};
    GetEnvironmentVariableW(L"KIVNST_TEST_DATA", data, MAX_PATH);
    std::string bytes = ReadFileBytes(std::wstring(data) + L"\\..\\setup\\data\\mapisvc.inf");
    if (bytes.empty())
    {
        std::fprintf(stderr, "tests: the sample of MAPISVC.INF is not found by KIVNST_TEST_DATA\n");
        std::exit(2);
    }
    return bytes;
}

std::string AsThePlatformLeavesIt(const std::wstring& path)
{
    const TempFolder folder;
    const std::wstring copy = folder / L"left by the platform.inf";
    WriteFileBytes(copy, ReadFileBytes(path));
    EXPECT_TRUE(WritePrivateProfileStringW(L"Nobody's section", L"key", L"value", copy.c_str()));
    EXPECT_TRUE(WritePrivateProfileStringW(L"Nobody's section", nullptr, nullptr, copy.c_str()));
    return ReadFileBytes(copy);
}

std::vector<std::string> SpeakingLines(std::string bytes)
{
    constexpr auto blanks = " \t\r";
    // So that UTF-16 can be compared too.
    std::erase(bytes, '\0');
    std::vector<std::string> lines;
    std::istringstream stream(bytes);
    for (std::string line; std::getline(stream, line);)
    {
        const std::size_t begin = line.find_first_not_of(blanks);
        if (begin != std::string::npos)
            lines.push_back(line.substr(begin, line.find_last_not_of(blanks) + 1 - begin));
    }
    return lines;
}

FileMapping::FileMapping(const std::wstring& path)
    : m_file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                         OPEN_EXISTING, 0, nullptr)),
      m_mapping(CreateFileMappingW(m_file, nullptr, PAGE_READONLY, 0, 0, nullptr)),
      m_view(m_mapping ? MapViewOfFile(m_mapping, FILE_MAP_READ, 0, 0, 0) : nullptr)
{
    EXPECT_TRUE(m_view) << "the file cannot be mapped, error " << GetLastError();
}

void FileMapping::Close() noexcept
{
    if (m_view)
        UnmapViewOfFile(std::exchange(m_view, nullptr));
    if (m_mapping)
        CloseHandle(std::exchange(m_mapping, nullptr));
    if (m_file != INVALID_HANDLE_VALUE)
        CloseHandle(std::exchange(m_file, INVALID_HANDLE_VALUE));
}

UnwritableFile::UnwritableFile(const std::wstring& path)
    : m_file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr))
{
    EXPECT_NE(m_file, INVALID_HANDLE_VALUE) << "the file cannot be opened, error " << GetLastError();
}

} // namespace Tests
