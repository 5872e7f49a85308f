// DateTimeSpan.
#include "support/DateTimeSpan.h"

#include <gtest/gtest.h>

#include <climits>

using Quillon::DateTimeSpan;

TEST(DateTimeSpan, GivesMillisecondsForAWait)
{
    const struct
    {
        long long seconds;
        DWORD expected;
    } table[] = {
        {0, 0},
        {1, 1000},
        {90, 90'000},
        {-1, 0},
        {LLONG_MIN, 0},
        {4'294'967, 4'294'967'000},
        // A span never becomes an endless wait.
        {4'294'968, INFINITE - 1},
        {LLONG_MAX, INFINITE - 1},
        // What has more milliseconds than can be counted.
        {LLONG_MAX / 1000 + 1, INFINITE - 1},
        {LLONG_MIN / 1000 - 1, 0},
    };
    for (const auto& row : table)
        EXPECT_EQ(DateTimeSpan().seconds(row.seconds).ToWaitTimeout(), row.expected) << row.seconds << " s";
}

TEST(DateTimeSpan, HasNoLengthByItself)
{
    EXPECT_EQ(DateTimeSpan().ToWaitTimeout(), 0u);
}

TEST(DateTimeSpan, GivesItselfBackForChaining)
{
    DateTimeSpan span;
    EXPECT_EQ(&span.seconds(5), &span);
    EXPECT_EQ(&span.seconds(7), &span);
    EXPECT_EQ(span.ToWaitTimeout(), 7000u) << "seconds() sets the span, it does not add to it";
}
