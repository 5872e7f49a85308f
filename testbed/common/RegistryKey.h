// An open registry key and its text values.
#pragma once

#include <windows.h>

#include <optional>
#include <string>
#include <utility>

namespace Testbed
{
/// Owns an open key, or none.
class RegistryKey
{
public:
    RegistryKey() noexcept = default;
    RegistryKey(RegistryKey&& other) noexcept : m_key(std::exchange(other.m_key, nullptr)) {}
    RegistryKey& operator=(RegistryKey&& other) noexcept
    {
        std::swap(m_key, other.m_key);
        return *this;
    }
    ~RegistryKey()
    {
        if (m_key)
            RegCloseKey(m_key);
    }

    /// Opens a key for reading; none when it is not there.
    static RegistryKey Open(HKEY parent, const std::wstring& path) noexcept
    {
        RegistryKey key;
        if (RegOpenKeyExW(parent, path.c_str(), 0, KEY_READ, &key.m_key) != ERROR_SUCCESS)
            key.m_key = nullptr;
        return key;
    }

    /// Opens or creates a key for writing; `error` gets the system's code when there is none.
    static RegistryKey Create(HKEY parent, const std::wstring& path, LSTATUS& error) noexcept
    {
        RegistryKey key;
        error =
            RegCreateKeyExW(parent, path.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &key.m_key, nullptr);
        if (error != ERROR_SUCCESS)
            key.m_key = nullptr;
        return key;
    }

    HKEY Get() const noexcept { return m_key; }
    explicit operator bool() const noexcept { return m_key != nullptr; }

    /// A text value (null name: the default value), with the variables of a REG_EXPAND_SZ expanded; nothing when it is
    /// not there or no text.
    std::optional<std::wstring> ReadText(const wchar_t* name) const
    {
        DWORD size = 0;
        // RegGetValueW expands a REG_EXPAND_SZ, which then counts as REG_SZ, and terminates.
        if (RegGetValueW(m_key, nullptr, name, RRF_RT_REG_SZ, nullptr, nullptr, &size) != ERROR_SUCCESS)
            return {};
        std::wstring text(size / sizeof(wchar_t) + 1, L'\0');
        size = static_cast<DWORD>(text.size() * sizeof(wchar_t));
        if (RegGetValueW(m_key, nullptr, name, RRF_RT_REG_SZ, nullptr, text.data(), &size) != ERROR_SUCCESS)
            return {};
        text.resize(text.find(L'\0'));
        return text;
    }

    /// Writes a text value; gives the system's code.
    LSTATUS WriteText(const wchar_t* name, const std::wstring& text) noexcept
    {
        return RegSetValueExW(m_key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                              static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    }

private:
    HKEY m_key = nullptr;
};
} // namespace Testbed
