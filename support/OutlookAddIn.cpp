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

} // namespace

StringW GetOutlookPath()
{
    // RegGetValueW expands a REG_EXPAND_SZ, which then counts as REG_SZ (to ask for both is an error), refuses other
    // types and terminates what is not.
    Binary buffer;
    for (DWORD size = 2 * MAX_PATH; size <= 0x20000; size *= 2)
    {
        buffer.SetSize(size);
        DWORD used = size;
        const LSTATUS status = RegGetValueW(HKEY_LOCAL_MACHINE, applicationPaths, nullptr, RRF_RT_REG_SZ, nullptr,
                                            buffer.GetBuffer(), &used);
        if (status == ERROR_MORE_DATA)
            continue;
        if (status != ERROR_SUCCESS)
            break;
        const auto* text = reinterpret_cast<const wchar_t*>(buffer.GetBuffer());
        std::size_t length = std::find(text, text + used / sizeof(wchar_t), L'\0') - text;
        // Some installers write the path in quotation marks.
        if (length >= 2 && text[0] == L'"' && text[length - 1] == L'"')
        {
            ++text;
            length -= 2;
        }
        StringW path(text, length);
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
