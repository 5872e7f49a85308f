// Stands where the mail client's program is: it has the client's version resource, by which others tell what is
// installed, and says what it is when it is run.
#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

namespace
{
std::string OwnVersion()
{
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (length == 0 || length == MAX_PATH)
        return {};
    DWORD handle = 0;
    std::vector<unsigned char> info(GetFileVersionInfoSizeW(path, &handle));
    VS_FIXEDFILEINFO* fixed = nullptr;
    UINT size = 0;
    if (info.empty() || !GetFileVersionInfoW(path, 0, static_cast<DWORD>(info.size()), info.data()) ||
        !VerQueryValueW(info.data(), L"\\", reinterpret_cast<void**>(&fixed), &size) || size < sizeof(*fixed))
    {
        return {};
    }
    return std::to_string(HIWORD(fixed->dwFileVersionMS)) + "." + std::to_string(LOWORD(fixed->dwFileVersionMS)) + "." +
           std::to_string(HIWORD(fixed->dwFileVersionLS)) + "." + std::to_string(LOWORD(fixed->dwFileVersionLS));
}
} // namespace

int main()
{
    const std::string version = OwnVersion();
    if (version.empty())
    {
        std::fputs("outlook.exe: this program's version resource cannot be read.\n", stderr);
        return 1;
    }
    std::printf("Stand-in for the mail client, version %s. It shows no mail; it marks the folder of olmapi32.dll and "
                "mspst32.dll.\n",
                version.c_str());
    return 0;
}
