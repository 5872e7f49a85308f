// Subscriptions by notification key, behind IMAPISupport's Subscribe, Unsubscribe and Notify.
#pragma once

#include "common/ComPtr.h"
#include "common/PropValue.h"
#include "testbed/common/Namespace.h"

#include <map>
#include <mutex>

namespace Testbed
{
/// Advise sinks by key. Thread-safe; sinks are called on the thread of `Notify`, before it returns and with no lock
/// held, whether or not the subscriber asked for NOTIFY_SYNC.
class Notifications
{
public:
    /// Keeps `sink` for events of `mask` under `key` and gives the connection's number, which is never 0.
    ULONG Subscribe(const NOTIFKEY& key, ULONG mask, IMAPIAdviseSink* sink);
    /// Drops a connection; false when there is none of that number.
    bool Unsubscribe(ULONG connection);
    /// Tells the sinks of `key` those of the notifications that they asked for. A sink that answers
    /// CALLBACK_DISCONTINUE gets no further ones of this call. Gives the flags for Notify's caller: NOTIFY_CANCELED
    /// when a sink did so.
    ULONG Notify(const NOTIFKEY& key, ULONG count, LPNOTIFICATION notifications);
    /// Drops all connections.
    void Clear();

private:
    struct Subscription
    {
        Bytes key;
        ULONG mask = 0;
        ComPtr<IMAPIAdviseSink> sink;
    };

    std::mutex m_lock;
    std::map<ULONG, Subscription> m_subscriptions;
    ULONG m_next = 1;
};
} // namespace Testbed
