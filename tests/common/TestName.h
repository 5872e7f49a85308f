// Telling what test is run.
#pragma once

namespace Tests
{

/// Puts the name of each test that starts into the environment, as KIVNST_TEST, for the processes that the test starts,
/// and tells it to a library that records what each test reaches.
void InstallTestName();

} // namespace Tests
