// Ends the program with a message when a test takes longer than it can, for instance because its threads block each
// other.
#pragma once

#include <windows.h>

#include <functional>
#include <string>
#include <thread>

namespace Tests
{

/// Waits in a thread of its own; unless it is destroyed within `seconds`, it prints what `describe` says and ends the
/// process with exit code 3.
class Watchdog
{
public:
    explicit Watchdog(unsigned seconds, std::function<std::string()> describe = {});
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog();

private:
    struct Event
    {
        HANDLE handle = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        Event() noexcept = default;
        Event(const Event&) = delete;
        Event& operator=(const Event&) = delete;
        ~Event() { CloseHandle(handle); }
    };

    Event m_over;
    std::thread m_thread;
};

} // namespace Tests
