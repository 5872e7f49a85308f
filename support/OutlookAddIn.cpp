// What the library asks of the installed mail client.
#include "support/OutlookAddIn.h"

#include "support/Binary.h"
#include "support/CallWrapping.h"
#include "support/Os.h"

#include <algorithm>

namespace Quillon::OutlookAddIn
{
namespace
{

constexpr auto applicationPaths = L"Software\\Microsoft\\Windows\\CurrentVersion\\App Paths\\outlook.exe";

/// The text with the values of the environment variables that it names; empty where that cannot be told.
StringW ExpandVariables(const StringW& text)
{
    const DWORD size = ExpandEnvironmentStringsW(text, nullptr, 0);
    Binary buffer;
    buffer.SetSize(size * sizeof(wchar_t));
    auto* const expanded = reinterpret_cast<wchar_t*>(buffer.GetBuffer());
    const DWORD used = ExpandEnvironmentStringsW(text, expanded, size);
    // Both count the terminator. A variable may have been given a longer value in between.
    return used == 0 || used > size ? StringW() : StringW(expanded, used - 1);
}

} // namespace

StringW GetOutlookPath()
{
    // RegGetValueW refuses other types. It could expand, too, but Wine's then takes the buffer's bytes for characters.
    constexpr DWORD texts = RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND;
    Binary buffer;
    for (DWORD size = 2 * MAX_PATH; size <= 0x20000; size *= 2)
    {
        buffer.SetSize(size);
        DWORD used = size;
        DWORD type = REG_SZ;
        const LSTATUS status =
            RegGetValueW(HKEY_LOCAL_MACHINE, applicationPaths, nullptr, texts, &type, buffer.GetBuffer(), &used);
        if (status == ERROR_MORE_DATA)
            continue;
        if (status != ERROR_SUCCESS)
            break;
        const auto* const text = reinterpret_cast<const wchar_t*>(buffer.GetBuffer());
        StringW path(text, std::find(text, text + used / sizeof(wchar_t), L'\0') - text);
        if (type == REG_EXPAND_SZ)
            path = ExpandVariables(path);
        // Some installers write the path in quotation marks.
        const std::size_t length = path.GetLength();
        const wchar_t* const name = path.GetString();
        if (length >= 2 && name[0] == L'"' && name[length - 1] == L'"')
            path = StringW(name + 1, length - 2);
        return Os::VerifyFileExists(path) ? path : StringW();
    }
    return StringW();
}

OutlookVersion GetOutlookVersionFromPath(const StringW& path)
{
    DWORD ignored = 0;
    const DWORD size = GetFileVersionInfoSizeW(path, &ignored);
    if (size == 0)
        return OutlookVersion::Unknown;
    Binary resource;
    resource.SetSize(size);
    void* block = nullptr;
    UINT length = 0;
    if (!GetFileVersionInfoW(path, 0, size, resource.GetBuffer()) ||
        !VerQueryValueW(resource.GetBuffer(), L"\\", &block, &length) || length < sizeof(VS_FIXEDFILEINFO))
        return OutlookVersion::Unknown;
    return static_cast<OutlookVersion>(HIWORD(static_cast<const VS_FIXEDFILEINFO*>(block)->dwFileVersionMS));
}

} // namespace Quillon::OutlookAddIn
