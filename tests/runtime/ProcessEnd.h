// Ends of a process, each in a process of its own: this program, started once more.
#pragma once

#include <string>
#include <vector>

namespace ProcessEnd
{

/// How the process ended, and the lines that it recorded.
struct Outcome
{
    unsigned long exitCode;
    std::vector<std::string> lines;
};

/// Runs this program with `way` as its argument.
Outcome RunProcess(const wchar_t* way);

/// What the started program does for `way`; its exit code where it comes back.
int EndProcess(const wchar_t* way);

/// The lines recorded in this process since the last call.
std::vector<std::string> TakeLines();

} // namespace ProcessEnd
