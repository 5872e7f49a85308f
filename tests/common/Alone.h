// Tests that need a process of their own: what they do to it (modules that stay loaded, a bound MAPI module, a registry
// that is not the real one) cannot be undone.
#pragma once

#include <gtest/gtest.h>

namespace Tests
{

/// Says that this process was started for one test alone.
void SetAlone() noexcept;

/// In the process of all tests, starts the current test again in a process of its own and fails with its output unless
/// it passes there. In that process, runs `body`. There nothing of the mail client is loaded until the body does it.
void RunAlone(void (*body)());

} // namespace Tests

/// Defines a test that runs in a process of its own.
#define TEST_ALONE(suite, name)                                                                                        \
    namespace                                                                                                          \
    {                                                                                                                  \
    struct suite##name##Alone                                                                                          \
    {                                                                                                                  \
        static void Body();                                                                                            \
    };                                                                                                                 \
    }                                                                                                                  \
    TEST(suite, name)                                                                                                  \
    {                                                                                                                  \
        ::Tests::RunAlone(&suite##name##Alone::Body);                                                                  \
    }                                                                                                                  \
    void suite##name##Alone::Body()
