// Starting archive-browser.exe as a user does.
#pragma once

#include <nlohmann/json.hpp>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace Tests
{
/// How a run ended and what it printed.
struct BrowserRun
{
    unsigned long exitCode = 0;
    std::string output;
    std::string errors;
};

/// Runs the browser in `folder` with these arguments, with the profile that belongs to it and the service of the tests
/// where the arguments name no others, to its end. A browser that lies in the folder itself is taken.
BrowserRun RunBrowser(const std::filesystem::path& folder, const std::vector<std::wstring>& arguments);

/// Runs another of the tools, with these arguments alone.
BrowserRun RunTool(const std::filesystem::path& folder, const wchar_t* name,
                   const std::vector<std::wstring>& arguments);

/// The same of the browser with --json; the document that it printed. A run that fails where `exitCode` is 0, or prints
/// no JSON, fails the test and gives null.
nlohmann::ordered_json RunBrowserJson(const std::filesystem::path& folder, std::vector<std::wstring> arguments,
                                      unsigned long exitCode = 0);

/// Starts the browser and ends its process, without a chance to clean up, as soon as `enough` says so of what it has
/// printed so far. Gives false when it came to its end before.
bool KillBrowser(const std::filesystem::path& folder, const std::vector<std::wstring>& arguments,
                 const std::function<bool(const std::string& output)>& enough);
} // namespace Tests
