// What runtime-probe.dll exports: a module of which each part of its life leaves a line behind.
#pragma once

#include <windows.h>

#include <cstddef>

namespace Probe
{

/// Set in the environment, they have the module refused: by a constructor that throws, by its DllMain.
constexpr auto throwVariable = L"KIVNST_PROBE_THROWS";
constexpr auto refuseVariable = L"KIVNST_PROBE_REFUSES";

/// The test program exports it under this name; the module finds it there.
using Record = void(__cdecl*)(const char* line);
constexpr auto recordName = "RecordLine";

/// How often the static of a function was constructed, and what it was when the caller saw it.
struct Counted
{
    LONG constructions;
    LONG value;
};

struct Functions
{
    /// Touches a static whose constructor takes its time.
    Counted (*touchStatic)();
    /// Touches a static whose constructor throws an int the first `failures` times; the value, or -1 when it threw.
    int (*touchFailing)(int failures);
    /// Registers a function with atexit, which itself registers another and touches a static for the first time.
    void (*registerExit)();
    /// Adds to a variable of the thread that a constructor had set to 40, and gives it.
    int (*touchThread)();
    /// Has `count` further variables of the thread, numbered, destroyed at its end.
    void (*registerThreadEnds)(int count);
    /// Allocates `size` by new char[], and gives it back.
    void (*allocate)(std::size_t size);
};

/// Under this name the module exports a function that gives them.
using GetFunctions = Functions(__cdecl*)();
constexpr auto getFunctionsName = "GetProbeFunctions";

} // namespace Probe
