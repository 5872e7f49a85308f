// Whether MAPI could load a host's DLL.
#pragma once

#include <string>
#include <vector>

namespace Setup
{

/// What is wrong with a DLL: the kind of it in a few words ("missing export"), and all of it.
struct DllProblem
{
    std::wstring kind;
    std::wstring detail;
};

/// Loads the DLL in a process of its own and tells why MAPI could not use it: a file that is no module, or one for
/// other processors; a missing entry point; modules that it needs and that are not there; functions that its KivNst.dll
/// does not have. Empty where nothing is wrong. Throws SetupError when it cannot be tried.
std::vector<DllProblem> ProbeDll(const std::wstring& path);

} // namespace Setup
