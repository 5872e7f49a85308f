// archive-setup.exe, run as a process.
#pragma once

#include <windows.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Tests
{

/// The folder of this program, and of the tool.
std::filesystem::path ProgramFolder();

std::string Utf8(const std::wstring& text);

struct Result
{
    DWORD exitCode = 0;
    std::string output;
    std::string errors;
};

/// The tool, running.
class Tool
{
public:
    /// `flags` are those of CreateProcessW.
    explicit Tool(const std::vector<std::wstring>& arguments, DWORD flags = 0);
    Tool(const Tool&) = delete;
    Tool& operator=(const Tool&) = delete;
    ~Tool();

    DWORD ProcessId() const noexcept;
    std::string ErrorsSoFar() const;
    Result Finish();

private:
    struct Process;
    std::unique_ptr<Process> m_process;
};

Result RunTool(const std::vector<std::wstring>& arguments);

} // namespace Tests
