// Calls that are made later, on a thread of MAPI's own or on one that pumps messages: how notifications arrive.
#pragma once

#include "common/ComPtr.h"
#include "common/Mapi.h"
#include "testbed/common/Namespace.h"

#include <functional>
#include <memory>

namespace Testbed
{
/// A hidden window of the thread that made it: what is posted to it is called when that thread takes its messages.
class ThreadWindow
{
public:
    /// Throws `Failure` (MAPI_E_INVALID_OBJECT) when there is no window to be had.
    ThreadWindow();
    /// On any thread.
    ~ThreadWindow();
    ThreadWindow(const ThreadWindow&) = delete;
    ThreadWindow& operator=(const ThreadWindow&) = delete;

    void Post(std::function<void()> call) const;
    bool IsOwnThread() const noexcept { return GetCurrentThreadId() == m_thread; }

private:
    DWORD m_thread;
    HWND m_window;
};

namespace Dispatcher
{
/// Begins: with a thread of its own, or with a window of the calling one. Throws `Failure`.
void Start(bool ownThread);
/// Makes the calls that are left, and ends.
void Stop() noexcept;
/// Has `call` made later, after all that was posted before; at once where nothing was started.
void Post(std::function<void()> call);
} // namespace Dispatcher

/// A sink that calls `sink` on the thread that made it alone, when that takes its messages. Throws `Failure`.
ComPtr<IMAPIAdviseSink> MakeThreadSink(IMAPIAdviseSink* sink);

/// Copies of notifications with all that they point to.
class NotificationCopies
{
public:
    NotificationCopies(ULONG count, const NOTIFICATION* notifications);
    ~NotificationCopies();
    NotificationCopies(const NotificationCopies&) = delete;
    NotificationCopies& operator=(const NotificationCopies&) = delete;

    ULONG Count() const noexcept;
    LPNOTIFICATION Get() noexcept;

private:
    struct State;
    std::unique_ptr<State> m_state;
};
} // namespace Testbed
