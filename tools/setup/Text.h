// Conversions between the UTF-8 of command lines and JSON and the UTF-16 of the platform, and the tool's one exception.
#pragma once

#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace Setup
{

/// What went wrong, in one sentence for the person at the console.
class SetupError : public std::exception
{
public:
    explicit SetupError(std::wstring text);
    const std::wstring& Text() const noexcept { return m_text; }
    const char* what() const noexcept override { return m_narrow.c_str(); }

private:
    std::wstring m_text;
    std::string m_narrow;
};

/// The text in UTF-8; half a surrogate pair becomes U+FFFD.
std::string ToUtf8(const std::wstring& text);

/// The text in UTF-16; what is no UTF-8 becomes U+FFFD.
std::wstring ToWide(const std::string& text);

/// The program's arguments, its own name not among them.
std::vector<std::wstring> GetArguments();

/// Compares as the INI functions compare names: without regard to case.
bool EqualNames(const std::wstring& left, const std::wstring& right) noexcept;

} // namespace Setup
