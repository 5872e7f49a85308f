// Files of MAPISVC.INF's shape, and what holds one open.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <vector>

namespace Tests
{

/// One entry of the registration.
struct InfEntry
{
    std::wstring section;
    std::wstring key;
    std::wstring value;

    bool operator==(const InfEntry& other) const = default;
};

void PrintTo(const InfEntry& entry, std::ostream* stream);

/// The fourteen entries of a registration in the order in which they are written.
std::vector<InfEntry> ExpectedEntries(const std::wstring& service, const std::wstring& displayName,
                                      const std::wstring& dllName, const std::wstring& extraFlags);

/// What the platform's INI functions read; nothing when it is not there.
std::optional<std::wstring> ReadInf(const std::wstring& path, const std::wstring& section, const std::wstring& key);

/// The committed sample: a MAPISVC.INF with comments, blank lines, other services and a letter beyond ASCII.
std::string SampleInf();

/// The bytes of the file as the INI functions leave it after an entry that has nothing to do with it was added and
/// removed again: what they do to a file by themselves. The file itself is not touched.
std::string AsThePlatformLeavesIt(const std::wstring& path);

/// The lines that say something, without the blanks around them.
std::vector<std::string> SpeakingLines(std::string bytes);

/// Maps a file into memory by a handle of its own, so that nobody can write it by WritePrivateProfileStringW.
class FileMapping
{
public:
    explicit FileMapping(const std::wstring& path);
    FileMapping(const FileMapping&) = delete;
    FileMapping& operator=(const FileMapping&) = delete;
    ~FileMapping() { Close(); }

    void Close() noexcept;

private:
    HANDLE m_file = INVALID_HANDLE_VALUE;
    HANDLE m_mapping = nullptr;
    void* m_view = nullptr;
};

/// Holds a file open so that everybody can read it and nobody write it.
class UnwritableFile
{
public:
    explicit UnwritableFile(const std::wstring& path);
    UnwritableFile(const UnwritableFile&) = delete;
    UnwritableFile& operator=(const UnwritableFile&) = delete;
    ~UnwritableFile() { CloseHandle(m_file); }

private:
    HANDLE m_file;
};

} // namespace Tests
