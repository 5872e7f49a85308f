// The fixed parts of a report's page, which the build takes from the files beside this one.
#pragma once

#include <string_view>

namespace Browser::ReportParts
{
/// body.html, page.css and page.js, as they are. They live as long as the program.
std::string_view Body() noexcept;
std::string_view Style() noexcept;
std::string_view Script() noexcept;
} // namespace Browser::ReportParts
