// Conversions between UTF-8 and UTF-16.
#include "tools/setup/Text.h"

#include <windows.h>

#include <shellapi.h>

#include <climits>
#include <memory>

namespace Setup
{
namespace
{

int CheckedSize(std::size_t size)
{
    if (size > INT_MAX)
        throw SetupError(L"A text is too long.");
    return static_cast<int>(size);
}

} // namespace

SetupError::SetupError(std::wstring text) : m_text(std::move(text)), m_narrow(ToUtf8(m_text)) {}

std::string ToUtf8(const std::wstring& text)
{
    const int size = CheckedSize(text.size());
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), size, narrow.data(), length, nullptr, nullptr);
    return narrow;
}

std::wstring ToWide(const std::string& text)
{
    const int size = CheckedSize(text.size());
    const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), length);
    return wide;
}

std::vector<std::wstring> GetArguments()
{
    int count = 0;
    const std::unique_ptr<wchar_t*, decltype(&LocalFree)> list(CommandLineToArgvW(GetCommandLineW(), &count),
                                                               &LocalFree);
    if (!list || count == 0)
        return {};
    return {list.get() + 1, list.get() + count};
}

bool EqualNames(const std::wstring& left, const std::wstring& right) noexcept
{
    return CompareStringOrdinal(left.c_str(), -1, right.c_str(), -1, TRUE) == CSTR_EQUAL;
}

} // namespace Setup
