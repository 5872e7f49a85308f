// Fails every test at whose end something is left behind.
#pragma once

namespace Tests
{

/// Loads the MAPI module and installs the listener: a test fails when at its end a MAPI block is left that was
/// allocated during it, a test double is still referenced, one of the library's switches is not as at load, or a
/// block's surroundings were written to (which ends the process).
void InstallLeakListener();

} // namespace Tests
