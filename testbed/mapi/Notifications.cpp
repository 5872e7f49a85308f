// Delivery of notifications to the sinks that asked for them.
#include "testbed/mapi/Notifications.h"

#include "common/Boundary.h"
#include "testbed/common/Namespace.h"

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

ULONG Notifications::Subscribe(const NOTIFKEY& key, ULONG mask, IMAPIAdviseSink* sink)
{
    const std::lock_guard guard(m_lock);
    const ULONG connection = m_next++;
    m_subscriptions[connection] = {KeyBytes(key), mask, ComPtr<IMAPIAdviseSink>(sink)};
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
    std::vector<Subscription> subscriptions;
    {
        const std::lock_guard guard(m_lock);
        for (const auto& [connection, subscription] : m_subscriptions)
            if (subscription.key == bytes)
                subscriptions.push_back(subscription);
    }

    ULONG flags = 0;
    for (const Subscription& subscription : subscriptions)
    {
        std::vector<NOTIFICATION> wanted;
        for (ULONG i = 0; i < count; ++i)
            if (notifications[i].ulEventType & subscription.mask)
                wanted.push_back(notifications[i]);
        if (!wanted.empty() &&
            subscription.sink->OnNotify(static_cast<ULONG>(wanted.size()), wanted.data()) == CALLBACK_DISCONTINUE)
        {
            flags = NOTIFY_CANCELED;
            break;
        }
    }
    return flags;
}

void Notifications::Clear()
{
    std::map<ULONG, Subscription> dropped;
    const std::lock_guard guard(m_lock);
    dropped.swap(m_subscriptions);
}
} // namespace Testbed
