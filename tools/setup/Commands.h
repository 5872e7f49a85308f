// The tool's commands: each does its work and describes it, as text and as JSON.
#pragma once

#include "tools/setup/Registration.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace Setup
{

/// The exit codes; tools that call this one rely on them.
enum class ExitCode : int
{
    Success = 0,       ///< done, or nothing wrong
    Failure = 1,       ///< it could not be done; nothing was changed unless the sentence says so
    Usage = 2,         ///< the command line is wrong
    NotRegistered = 3, ///< status: there is no such registration
    Faulty = 4         ///< status: there is one, and something is wrong with it
};

/// What a command did.
struct Outcome
{
    ExitCode code = ExitCode::Success;
    std::wstring text;
    nlohmann::ordered_json json;
};

/// The commands take `inf` as the user gave it; without it MAPISVC.INF is looked for. They throw SetupError.
Outcome RegisterCommand(const std::optional<std::wstring>& inf, const Service& service, bool dryRun);
/// With `dllName` only the registration of the host whose DLL it is.
Outcome UnregisterCommand(const std::optional<std::wstring>& inf, const std::wstring& serviceName,
                          const std::optional<std::wstring>& dllName, bool dryRun);
/// Without a name in `expectation`: every registration of the file.
Outcome StatusCommand(const std::optional<std::wstring>& inf, const Expectation& expectation);

/// A store as the search service knows it: its identifier in hexadecimal digits, and its name.
struct Store
{
    std::wstring id;
    std::wstring name;
};

Outcome UrlCommand(const Store& store);
Outcome ExcludeCommand(const Store& store);

/// Sends the library's log to the console: with `all` every line, otherwise only that a file is in use and when it is
/// tried again.
void ShowLog(bool all) noexcept;

} // namespace Setup
