// How a test has another process of this program hold a profile's section open.
#pragma once

#include "common/Mapi.h"

namespace Tests
{
/// The argument before the profile's name, the section, and the event that is set when it is held.
constexpr const char* holdArgument = "--hold-section";
constexpr MAPIUID heldSection = {{7, 7, 7, 7, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}};
constexpr const wchar_t* heldEvent = L"KivNst tests: section held";
} // namespace Tests
