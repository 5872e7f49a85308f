// Operating-system helpers.
#include "support/Os.h"

#include "support/CallWrapping.h"
#include "support/LocalText.h"

#include <sddl.h>

namespace Quillon::Os
{
namespace
{

/// A handle that closes itself.
class Handle
{
public:
    Handle() noexcept = default;
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle()
    {
        if (m_handle)
            CloseHandle(m_handle);
    }
    HANDLE* Put() noexcept { return &m_handle; }
    HANDLE Get() const noexcept { return m_handle; }

private:
    HANDLE m_handle = nullptr;
};

/// How many characters of the path stand before its last component.
std::size_t LengthBeforeName(const StringW& path) noexcept
{
    const wchar_t* const text = path;
    std::size_t length = path.GetLength();
    while (length > 0 && text[length - 1] != L'\\' && text[length - 1] != L'/' &&
           !(length == 2 && text[1] == L':')) // "C:file"
        --length;
    return length;
}

bool IsSeparator(wchar_t character) noexcept
{
    return character == L'\\' || character == L'/';
}

} // namespace

StringW GetModulePath(HINSTANCE module)
{
    // The longest path that Windows knows has 32767 characters.
    for (DWORD capacity = MAX_PATH; capacity <= 0x10000; capacity *= 2)
    {
        Binary buffer;
        buffer.SetSize(capacity * sizeof(wchar_t));
        auto* const text = reinterpret_cast<wchar_t*>(buffer.GetBuffer());
        const DWORD length = GetModuleFileNameW(module, text, capacity);
        if (length == 0)
            break;
        if (length < capacity)
            return StringW(text, length);
    }
    Throw(CWinError(GetLastError()), L"Quillon::Os::GetModulePath");
}

StringW GetDirectoryFromPath(const StringW& path)
{
    const wchar_t* const text = path;
    std::size_t length = LengthBeforeName(path);
    const bool isRoot = length <= 1 || text[length - 2] == L':';
    if (!isRoot && IsSeparator(text[length - 1]))
        --length;
    return StringW(text, length);
}

StringW GetNameFromPath(const StringW& path)
{
    const std::size_t before = LengthBeforeName(path);
    return StringW(path.GetString() + before, path.GetLength() - before);
}

StringW AppendPaths(const StringW& left, const StringW& right)
{
    std::size_t leftLength = left.GetLength();
    const wchar_t* rightText = right;
    if (leftLength == 0)
        return right;
    if (right.IsEmpty())
        return left;
    while (leftLength > 0 && IsSeparator(left.GetString()[leftLength - 1]))
        --leftLength;
    while (IsSeparator(*rightText))
        ++rightText;
    return StringW(left, leftLength) + L"\\" + rightText;
}

bool VerifyFileExists(const StringW& path) noexcept
{
    const DWORD attributes = GetFileAttributesW(path);
    return attributes != INVALID_FILE_ATTRIBUTES && !(attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool VerifyDirectoryExists(const StringW& path) noexcept
{
    const DWORD attributes = GetFileAttributesW(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

void ResetFileAttributes(const StringW& path)
{
    const DWORD attributes = GetFileAttributesW(path);
    if (attributes == INVALID_FILE_ATTRIBUTES)
        Throw(CWinError(GetLastError(), path), L"Quillon::Os::ResetFileAttributes");
    constexpr DWORD restricting = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
    if (!(attributes & restricting))
        return;
    const DWORD free = attributes & ~restricting;
    if (!SetFileAttributesW(path, free ? free : FILE_ATTRIBUTE_NORMAL))
        Throw(CWinError(GetLastError(), path), L"Quillon::Os::ResetFileAttributes");
}

Binary GetCurrentUserSid()
{
    constexpr auto function = L"Quillon::Os::GetCurrentUserSid";
    Handle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.Put()))
        Throw(CWinError(GetLastError()), function);
    DWORD size = 0;
    if (!GetTokenInformation(token.Get(), TokenUser, nullptr, 0, &size) && GetLastError() != ERROR_INSUFFICIENT_BUFFER)
        Throw(CWinError(GetLastError()), function);
    Binary buffer;
    buffer.SetSize(size);
    if (size < sizeof(TOKEN_USER) || !GetTokenInformation(token.Get(), TokenUser, buffer.GetBuffer(), size, &size))
        Throw(CWinError(GetLastError()), function);
    void* const sid = reinterpret_cast<const TOKEN_USER*>(buffer.GetBuffer())->User.Sid;
    return Binary(static_cast<const BYTE*>(sid), GetLengthSid(sid));
}

StringW FormatSid(const Binary& sid)
{
    constexpr auto function = L"Quillon::Os::FormatSid";
    // The system's functions read as many bytes as the identifier itself claims, so the claim is checked first.
    constexpr std::size_t smallest = 8;
    const BYTE* const bytes = sid.GetBuffer();
    if (sid.GetSize() < smallest || sid.GetSize() < smallest + bytes[1] * sizeof(DWORD))
        Throw(CWinError(ERROR_INVALID_SID), function);
    Binary aligned(sid);
    Detail::LocalText text;
    if (!ConvertSidToStringSidW(aligned.GetBuffer(), text.Put()))
        Throw(CWinError(GetLastError()), function);
    return StringW(text.Get());
}

} // namespace Quillon::Os
