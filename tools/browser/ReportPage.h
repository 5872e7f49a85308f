// The page that "report" writes: its file and what is in it besides the data.
#pragma once

#include "tools/browser/Console.h"

#include <filesystem>
#include <string>

namespace Browser
{
/// The whole page: one file that loads nothing, with the data where no browser takes it for anything but text.
std::string MakeReportPage(const Json& data);

/// Throws `Common::Failure`, with a sentence that names the file, unless a report can be put there: there is a folder
/// for it, and no file, or an earlier report, or any file where `force`.
void RequireReportPlace(const std::filesystem::path& file, bool force);

/// Writes the page under a temporary name beside `file` and gives it its name when it is whole. Throws
/// `Common::Failure`; then there is what was there before.
void WriteReportPage(const std::filesystem::path& file, const std::string& page);
} // namespace Browser
