// Subscriptions by notification key, behind IMAPISupport's Subscribe, Unsubscribe and Notify.
#pragma once

#include "common/ComPtr.h"
#include "common/Mutex.h"
#include "common/PropValue.h"
#include "testbed/common/Namespace.h"

#include <map>
#include <memory>
#include <mutex>

namespace Testbed
{
/// Advise sinks by key. Thread-safe; sinks are called with no lock held. Those that were subscribed with NOTIFY_SYNC
/// are called on the thread of `Notify`, before it returns; the others later, with copies, and never after
/// `Unsubscribe` has returned but for a call that is under way.
class Notifications : public std::enable_shared_from_this<Notifications>
{
public:
    /// Keeps `sink` for events of `mask` under `key` and gives the connection's number, which is never 0.
    ULONG Subscribe(const NOTIFKEY& key, ULONG mask, bool synchronous, IMAPIAdviseSink* sink);
    /// Drops a connection; false when there is none of that number.
    bool Unsubscribe(ULONG connection);
    /// Tells the sinks of `key` those of the notifications that they asked for. A synchronous sink that answers
    /// CALLBACK_DISCONTINUE has the others not called. Gives the flags for Notify's caller: NOTIFY_CANCELED when a sink
    /// did so.
    ULONG Notify(const NOTIFKEY& key, ULONG count, LPNOTIFICATION notifications);
    /// Drops all connections.
    void Clear();

private:
    struct Subscription
    {
        Bytes key;
        ULONG mask = 0;
        bool synchronous = false;
        ComPtr<IMAPIAdviseSink> sink;
    };

    void Deliver(ULONG connection, ULONG count, LPNOTIFICATION notifications);

    Mutex m_lock;
    std::map<ULONG, Subscription> m_subscriptions;
    ULONG m_next = 1;
};
} // namespace Testbed
