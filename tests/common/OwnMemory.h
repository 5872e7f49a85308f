// Whose memory it is that an operator new gives, for test programs that have theirs fail.
#pragma once

namespace Tests
{

/// While one lives, what the thread allocates is the tests' own, and not that of the code under test.
class OwnMemory
{
public:
    OwnMemory() noexcept { ++s_depth; }
    OwnMemory(const OwnMemory&) = delete;
    OwnMemory& operator=(const OwnMemory&) = delete;
    ~OwnMemory() { --s_depth; }

    static bool IsAllocated() noexcept { return s_depth != 0; }

private:
    inline static thread_local int s_depth = 0;
};

} // namespace Tests
