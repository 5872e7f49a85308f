// The setting in which a test lets the library look for the mail client: files and a registry of its own.
#pragma once

#include "support/StringW.h"

#include <windows.h>

#include <filesystem>
#include <string>

namespace Tests
{

/// The text of a string, for comparisons that print what differs.
inline std::wstring Text(const Quillon::StringW& text)
{
    return std::wstring(text.begin(), text.end());
}

/// An empty folder that is removed at its end.
class TempFolder
{
public:
    TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    ~TempFolder();

    const std::filesystem::path& Path() const noexcept { return m_path; }
    /// The path of something in it, with backslashes.
    std::wstring operator/(const std::wstring& name) const { return (m_path / name).wstring(); }

private:
    std::filesystem::path m_path;
};

/// Copies one of the modules that were built as test doubles ("PstDouble.dll", "MapiDouble.dll") to `target`.
void CopyDouble(const std::wstring& name, const std::wstring& target);

/// The path of the mail client's program in the build.
std::wstring OutlookProgram();

/// Writes a file with these bytes.
void WriteFileBytes(const std::wstring& path, const std::string& bytes);
std::string ReadFileBytes(const std::wstring& path);

/// While it lives, HKEY_LOCAL_MACHINE is an empty key in this process. For tests in a process of their own.
class ScratchRegistry
{
public:
    ScratchRegistry();
    ScratchRegistry(const ScratchRegistry&) = delete;
    ScratchRegistry& operator=(const ScratchRegistry&) = delete;
    ~ScratchRegistry();

    /// Writes a value of any type; null name: the key's default value.
    void SetBytes(const std::wstring& key, const wchar_t* name, DWORD type, const void* bytes, std::size_t size);
    /// Writes a text with its terminator.
    void SetText(const std::wstring& key, const wchar_t* name, const std::wstring& text, DWORD type = REG_SZ);
    /// Makes `client` the default mail client.
    void SetDefaultClient(const std::wstring& client);
    /// Writes a text value of the mail client "Client", which is the default one then.
    void SetClientText(const wchar_t* name, const std::wstring& text, DWORD type = REG_SZ);
    /// Registers the mail client's program.
    void SetOutlookPath(const std::wstring& path, DWORD type = REG_SZ);

private:
    std::wstring m_path;
    HKEY m_key = nullptr;
};

} // namespace Tests
