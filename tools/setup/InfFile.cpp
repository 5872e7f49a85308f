// Reading MAPISVC.INF.
#include "tools/setup/InfFile.h"

#include "support/Format.h"
#include "tools/setup/Text.h"

#include <windows.h>

#include <algorithm>
#include <string_view>

namespace Setup
{
namespace
{

std::wstring Describe(DWORD error)
{
    return Quillon::FormatSystemError(error, false).GetString();
}

/// An open file that closes itself.
class FileHandle
{
public:
    FileHandle(const std::wstring& path, DWORD access, DWORD disposition) noexcept
        : m_handle(CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                               disposition, FILE_ATTRIBUTE_NORMAL, nullptr))
    {
    }
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    ~FileHandle()
    {
        if (m_handle != INVALID_HANDLE_VALUE)
            CloseHandle(m_handle);
    }
    HANDLE Get() const noexcept { return m_handle; }
    explicit operator bool() const noexcept { return m_handle != INVALID_HANDLE_VALUE; }

private:
    HANDLE m_handle;
};

/// Asks one of the INI functions, in a growing buffer. `ask` gives how many characters it wrote, which is `slack` less
/// than the buffer's size when the buffer was too small.
template <class Ask>
std::wstring ReadGrowing(Ask ask, DWORD slack)
{
    // No line and no section of an INI file that the platform can read is longer.
    constexpr DWORD longest = 1 << 22;
    std::wstring text;
    for (DWORD size = 1024; size <= longest; size *= 2)
    {
        text.resize(size);
        const DWORD length = ask(text.data(), size);
        if (length < size - slack)
        {
            text.resize(length);
            return text;
        }
    }
    throw SetupError(L"A section of the file is too long.");
}

/// The texts of a list whose members end with a null character each.
std::vector<std::wstring> SplitList(const std::wstring& list)
{
    std::vector<std::wstring> members;
    for (std::size_t begin = 0; begin < list.size();)
    {
        const std::size_t end = std::min(list.find(L'\0', begin), list.size());
        members.emplace_back(list, begin, end - begin);
        begin = end + 1;
    }
    return members;
}

std::wstring CreateScratchName()
{
    wchar_t folder[MAX_PATH + 1] = {};
    wchar_t path[MAX_PATH] = {};
    const DWORD length = GetTempPathW(MAX_PATH + 1, folder);
    if (length == 0 || length > MAX_PATH || GetTempFileNameW(folder, L"inf", 0, path) == 0)
        throw SetupError(L"A temporary file cannot be created: " + Describe(GetLastError()));
    return path;
}

} // namespace

std::optional<std::wstring> InfFile::Read(const std::wstring& section, const std::wstring& key) const
{
    // No value begins with this character, so this text says that there is none.
    constexpr auto absent = L"\u0001absent";
    std::wstring value = ReadGrowing(
        [&](wchar_t* buffer, DWORD size)
        { return GetPrivateProfileStringW(section.c_str(), key.c_str(), absent, buffer, size, m_path.c_str()); }, 1);
    if (value == absent)
        return std::nullopt;
    return value;
}

std::vector<std::wstring> InfFile::Sections() const
{
    return SplitList(ReadGrowing([&](wchar_t* buffer, DWORD size)
                                 { return GetPrivateProfileSectionNamesW(buffer, size, m_path.c_str()); }, 2));
}

bool InfFile::HasSection(const std::wstring& name) const
{
    const auto sections = Sections();
    return std::any_of(sections.begin(), sections.end(),
                       [&](const std::wstring& section) { return EqualNames(section, name); });
}

std::vector<Entry> InfFile::Entries(const std::wstring& section) const
{
    const std::wstring keys = ReadGrowing(
        [&](wchar_t* buffer, DWORD size)
        { return GetPrivateProfileStringW(section.c_str(), nullptr, L"", buffer, size, m_path.c_str()); }, 2);
    std::vector<Entry> entries;
    for (std::wstring& key : SplitList(keys))
    {
        std::optional<std::wstring> value = Read(section, key);
        if (value)
            entries.push_back({section, std::move(key), std::move(*value)});
    }
    return entries;
}

void InfFile::RequireUsable() const
{
    const FileHandle file(m_path, GENERIC_READ, OPEN_EXISTING);
    if (!file)
    {
        const DWORD error = GetLastError();
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
            throw SetupError(L"There is no file \"" + m_path + L"\".");
        throw SetupError(L"The file \"" + m_path + L"\" cannot be read: " + Describe(error));
    }
    std::vector<char> bytes(1 << 16);
    bool isFirst = true;
    for (DWORD length = 0;; isFirst = false)
    {
        if (!ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &length, nullptr))
            throw SetupError(L"The file \"" + m_path + L"\" cannot be read: " + Describe(GetLastError()));
        if (length == 0)
            return;
        const std::string_view text(bytes.data(), length);
        if (isFirst && text.substr(0, 2) == "\xFF\xFE")
            return;
        if (text.find('\0') != std::string_view::npos)
        {
            throw SetupError(L"The file \"" + m_path +
                             L"\" holds null characters and is no UTF-16 with its little-endian byte-order mark: the "
                             L"platform's functions would ruin it.");
        }
    }
}

ScratchFile::ScratchFile() : m_path(CreateScratchName())
{
    const FileHandle file(m_path, GENERIC_WRITE, OPEN_EXISTING);
    constexpr char mark[] = {'\xFF', '\xFE'};
    DWORD written = 0;
    if (!file || !WriteFile(file.Get(), mark, sizeof(mark), &written, nullptr))
    {
        const DWORD error = GetLastError();
        DeleteFileW(m_path.c_str());
        throw SetupError(L"The temporary file \"" + m_path + L"\" cannot be written: " + Describe(error));
    }
}

ScratchFile::ScratchFile(const std::wstring& original) : m_path(CreateScratchName())
{
    if (!CopyFileW(original.c_str(), m_path.c_str(), FALSE))
    {
        const DWORD error = GetLastError();
        DeleteFileW(m_path.c_str());
        throw SetupError(L"The file \"" + original + L"\" cannot be copied: " + Describe(error));
    }
    // The copy has the original's attributes, and has to be deleted again.
    SetFileAttributesW(m_path.c_str(), FILE_ATTRIBUTE_NORMAL);
}

ScratchFile::~ScratchFile()
{
    DeleteFileW(m_path.c_str());
}

} // namespace Setup
