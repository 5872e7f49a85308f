// Operating-system helpers: paths, files, security identifiers.
#pragma once

#include "support/Binary.h"
#include "support/StringW.h"

#include <windows.h>

namespace Quillon::Os
{

/// Full path of a loaded module (null: the program). Throws CWinError. Any thread.
KIVNST_API StringW GetModulePath(HINSTANCE module);

/// The directory part of a path, without the separator behind it (but with that of a drive's root); empty when the path
/// has none. Both "\" and "/" separate.
KIVNST_API StringW GetDirectoryFromPath(const StringW& path);

/// The last component of a path: the file name with its extension. Both "\" and "/" separate.
KIVNST_API StringW GetNameFromPath(const StringW& path);

/// Joins two path parts with exactly one backslash between them. An empty part gives the other alone.
KIVNST_API StringW AppendPaths(const StringW& left, const StringW& right);

/// Whether there is a file (directory) at the path. Any thread.
KIVNST_API bool VerifyFileExists(const StringW& path) noexcept;
KIVNST_API bool VerifyDirectoryExists(const StringW& path) noexcept;

/// Clears the read-only, hidden and system attributes of a file so that it can be written. Throws CWinError.
KIVNST_API void ResetFileAttributes(const StringW& path);

/// The binary security identifier of the user of the current process token. Throws CWinError.
KIVNST_API Binary GetCurrentUserSid();

/// The textual form of a security identifier, "S-1-5-…". Throws CWinError when it is not a valid one.
KIVNST_API StringW FormatSid(const Binary& sid);

} // namespace Quillon::Os
