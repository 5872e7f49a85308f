// Delivery of notifications to the sinks that asked for them.
#include "testbed/mapi/Notifications.h"

#include "common/Boundary.h"
#include "testbed/common/Namespace.h"
#include "testbed/mapi/Dispatcher.h"

#include <cstring>

namespace Testbed
{
namespace
{
Bytes KeyBytes(const NOTIFKEY& key)
{
    return Bytes(key.ab, key.ab + key.cb);
}
} // namespace

ULONG Notifications::Subscribe(const NOTIFKEY& key, ULONG mask, bool synchronous, IMAPIAdviseSink* sink)
{
    const std::lock_guard guard(m_lock);
    const ULONG connection = m_next++;
    m_subscriptions[connection] = {KeyBytes(key), mask, synchronous, ComPtr<IMAPIAdviseSink>(sink)};
    return connection;
}

bool Notifications::Unsubscribe(ULONG connection)
{
    // Released only after the lock is, for the sink may call back.
    Subscription dropped;
    const std::lock_guard guard(m_lock);
    const auto found = m_subscriptions.find(connection);
    if (found == m_subscriptions.end())
        return false;
    dropped = std::move(found->second);
    m_subscriptions.erase(found);
    return true;
}

ULONG Notifications::Notify(const NOTIFKEY& key, ULONG count, LPNOTIFICATION notifications)
{
    const Bytes bytes = KeyBytes(key);
    std::map<ULONG, Subscription> subscriptions;
    {
        const std::lock_guard guard(m_lock);
        for (const auto& [connection, subscription] : m_subscriptions)
            if (subscription.key == bytes)
                subscriptions[connection] = subscription;
    }

    for (const auto& [connection, subscription] : subscriptions)
    {
        std::vector<NOTIFICATION> wanted;
        for (ULONG i = 0; i < count; ++i)
            if (notifications[i].ulEventType & subscription.mask)
                wanted.push_back(notifications[i]);
        if (wanted.empty())
            continue;
        const auto number = static_cast<ULONG>(wanted.size());
        if (!subscription.synchronous)
        {
            Dispatcher::Post([self = shared_from_this(), to = connection,
                              copies = std::make_shared<NotificationCopies>(number, wanted.data())]
                             { self->Deliver(to, copies->Count(), copies->Get()); });
        }
        else if (subscription.sink->OnNotify(number, wanted.data()) == CALLBACK_DISCONTINUE)
        {
            return NOTIFY_CANCELED;
        }
    }
    return 0;
}

void Notifications::Deliver(ULONG connection, ULONG count, LPNOTIFICATION notifications)
{
    ComPtr<IMAPIAdviseSink> sink;
    {
        const std::lock_guard guard(m_lock);
        if (const auto found = m_subscriptions.find(connection); found != m_subscriptions.end())
            sink = found->second.sink;
    }
    if (sink)
        sink->OnNotify(count, notifications);
}

void Notifications::Clear()
{
    std::map<ULONG, Subscription> dropped;
    const std::lock_guard guard(m_lock);
    dropped.swap(m_subscriptions);
}
} // namespace Testbed
