// Where the loader enters a program, for either kind of main function.
#pragma once

namespace Runtime
{

/// Makes the module ready; `main` follows, and its result goes to exit().
void StartProgram();

} // namespace Runtime
