// What a test has another process of this program do.
#pragma once

#include "common/Mapi.h"

namespace Tests
{
/// Holds a profile's section open: the argument before the profile's name, the section, and the event that is set when
/// it is held.
constexpr const char* holdArgument = "--hold-section";
constexpr MAPIUID heldSection = {{7, 7, 7, 7, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}};
constexpr const wchar_t* heldEvent = L"KivNst tests: section held";

/// Opens the profile's store and ends without closing anything or ending MAPI: the argument before the profile's name
/// and the flags with which MAPI is initialised.
constexpr const char* leaveArgument = "--leave-mapi";
} // namespace Tests
