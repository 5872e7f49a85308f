// The library's version, and what keeps a host from running with a library that does not fit it.
#pragma once

#include "support/Export.h"

/// The version of these headers. CMake and the modules' version resources take it from here.
#define KIVNST_VERSION_MAJOR 1
#define KIVNST_VERSION_MINOR 0
#define KIVNST_VERSION_PATCH 0

/// Major, minor and patch as one number that orders as versions do: 0x01020003 is 1.2.3.
#define KIVNST_MAKE_VERSION(major, minor, patch)                                                                       \
    ((static_cast<unsigned>(major) << 24) | (static_cast<unsigned>(minor) << 16) | static_cast<unsigned>(patch))

/// Names the binary interface. Its number is raised by each change after which a host has to be compiled anew, which is
/// what a new major version is for.
extern "C" KIVNST_API unsigned KivNstAbi1() noexcept;

namespace Quillon::Nst
{

/// The version that a host is compiled with.
constexpr unsigned headerVersion =
    KIVNST_MAKE_VERSION(KIVNST_VERSION_MAJOR, KIVNST_VERSION_MINOR, KIVNST_VERSION_PATCH);

/// The version of the KivNst.dll in the process, as KIVNST_MAKE_VERSION gives it. Any thread.
KIVNST_API unsigned GetLibraryVersion() noexcept;

/// The same for people: "1.2.3". Never freed. Any thread.
KIVNST_API const wchar_t* GetLibraryVersionText() noexcept;

/// Throws CRuntimeError, which names both versions, unless the library in the process serves a host that was compiled
/// with `version`: the major version is the same and the minor one is not less. A host calls it in its entry points:
/// where two products of one process bring a library each, Windows gives both the one that was loaded first. Any
/// thread.
KIVNST_API void RequireLibraryVersion(unsigned version = headerVersion);

#if !defined(KIVNST_BUILDING)
namespace Detail
{
/// Has each module of a host take the function from the library, so that Windows loads none whose library has another
/// binary interface, instead of having both run into each other.
inline const unsigned binaryInterface = KivNstAbi1();
} // namespace Detail
#endif

} // namespace Quillon::Nst
