// The SHA-256 of a file.
#pragma once

#include <filesystem>
#include <string>

namespace Browser
{
/// 64 hexadecimal digits; empty when there is no such file. Throws `Common::Failure` when it cannot be read.
std::string Sha256Of(const std::filesystem::path& file);
} // namespace Browser
