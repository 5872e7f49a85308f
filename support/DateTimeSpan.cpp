// DateTimeSpan.
#include "support/DateTimeSpan.h"

#include <climits>

namespace Quillon
{

DateTimeSpan::DateTimeSpan() noexcept : m_milliseconds(0) {}

DateTimeSpan& DateTimeSpan::seconds(long long n) noexcept
{
    constexpr long long most = LLONG_MAX / 1000;
    m_milliseconds = (n > most ? most : n < -most ? -most : n) * 1000;
    return *this;
}

DWORD DateTimeSpan::ToWaitTimeout() const noexcept
{
    constexpr long long most = INFINITE - 1;
    const long long bounded = m_milliseconds < 0 ? 0 : m_milliseconds > most ? most : m_milliseconds;
    return static_cast<DWORD>(bounded);
}

} // namespace Quillon
