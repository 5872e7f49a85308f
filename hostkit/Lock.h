// A lock for the length of a block.
#pragma once

#include "support/MapiHeaders.h"

namespace KivNstHostKit
{

/// Holds a slim lock exclusively as long as it lives. Its thread must not hold the lock already.
class CLock
{
public:
    explicit CLock(SRWLOCK& lock) noexcept : m_held(lock) { AcquireSRWLockExclusive(&m_held); }
    CLock(const CLock&) = delete;
    CLock& operator=(const CLock&) = delete;
    ~CLock() { ReleaseSRWLockExclusive(&m_held); }

private:
    SRWLOCK& m_held;
};

} // namespace KivNstHostKit
