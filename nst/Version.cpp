// The library's version.
#include "nst/Version.h"

#include "support/CallWrapping.h"
#include "support/Format.h"

namespace Quillon::Nst
{
namespace
{

constexpr unsigned MajorOf(unsigned version) noexcept
{
    return version >> 24;
}

constexpr unsigned MinorOf(unsigned version) noexcept
{
    return (version >> 16) & 0xFF;
}

constexpr unsigned PatchOf(unsigned version) noexcept
{
    return version & 0xFFFF;
}

} // namespace

unsigned GetLibraryVersion() noexcept
{
    return headerVersion;
}

#define KIVNST_WIDE(number) L## #number
#define KIVNST_WIDE_NUMBER(number) KIVNST_WIDE(number)

const wchar_t* GetLibraryVersionText() noexcept
{
    return KIVNST_WIDE_NUMBER(KIVNST_VERSION_MAJOR) L"." KIVNST_WIDE_NUMBER(
        KIVNST_VERSION_MINOR) L"." KIVNST_WIDE_NUMBER(KIVNST_VERSION_PATCH);
}

void RequireLibraryVersion(unsigned version)
{
    const unsigned own = GetLibraryVersion();
    if (MajorOf(own) == MajorOf(version) && MinorOf(own) >= MinorOf(version))
        return;
    Throw(CRuntimeError(FormatString(L"KivNst.dll in this process is version %s, but this module was built for version "
                                     L"%u.%u.%u",
                                     GetLibraryVersionText(), MajorOf(version), MinorOf(version), PatchOf(version)),
                        false),
          L"Quillon::Nst::RequireLibraryVersion");
}

} // namespace Quillon::Nst

extern "C" unsigned KivNstAbi1() noexcept
{
    return 1;
}
