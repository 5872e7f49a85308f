// What the start-up of a program and that of a DLL share. Each module has a copy of its own of all of this.
#pragma once

namespace Runtime
{

/// Runs what has to run before the module's own code: the list of exit functions is made ready, the statics of all
/// units are constructed, and the thread-local variables of the calling thread. What a constructor throws comes out.
void ConstructStatics();

/// Runs the functions that the module registered with atexit, which are the destructors of its statics too, last in
/// first out, those included that are registered meanwhile; then frees what type_info had made. Nothing when called
/// again.
void RunExitFunctions();

/// Constructs the thread-local variables of the calling thread, where that has not been done.
void ConstructThreadLocals();

/// Destroys those that were constructed, last in first out.
void DestroyThreadLocals();

} // namespace Runtime
