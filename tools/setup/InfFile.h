// Reading MAPISVC.INF, by the functions with which MAPI reads it; and a file for trying a change out.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace Setup
{

/// One "key=value" line of a section.
struct Entry
{
    std::wstring section;
    std::wstring key;
    std::wstring value;
};

/// An INI file as the platform's INI functions see it.
class InfFile
{
public:
    /// `path` is a full path: the INI functions look for any other in the Windows folder.
    explicit InfFile(std::wstring path) : m_path(std::move(path)) {}

    const std::wstring& Path() const noexcept { return m_path; }

    /// The value of a key, or nothing when the section or the key is not there.
    std::optional<std::wstring> Read(const std::wstring& section, const std::wstring& key) const;
    /// The names of all sections, in the order of the file.
    std::vector<std::wstring> Sections() const;
    bool HasSection(const std::wstring& name) const;
    /// The entries of a section, in the order of the file.
    std::vector<Entry> Entries(const std::wstring& section) const;

    /// Throws SetupError unless the file is there, can be read and is one that the INI functions can change: in UTF-16
    /// without its mark, or in big-endian UTF-16, it would be ruined.
    void RequireUsable() const;

private:
    std::wstring m_path;
};

/// A file in the folder for temporary files that is deleted at the end.
class ScratchFile
{
public:
    /// An empty INI file in UTF-16, in which every value is kept as it is. Throws SetupError.
    ScratchFile();
    /// A copy of the file at `original`. Throws SetupError.
    explicit ScratchFile(const std::wstring& original);
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    ~ScratchFile();

    const std::wstring& Path() const noexcept { return m_path; }

private:
    std::wstring m_path;
};

} // namespace Setup
