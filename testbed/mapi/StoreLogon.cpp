// The end of a logon, which comes from two sides.
#include "testbed/mapi/StoreLogon.h"

#include <algorithm>

namespace Testbed
{
void StoreLogon::Set(ComPtr<IMSLogon> logon)
{
    const std::lock_guard guard(m_lock);
    m_logon = std::move(logon);
}

ComPtr<IMSLogon> StoreLogon::Get() const
{
    const std::lock_guard guard(m_lock);
    return m_logon;
}

void StoreLogon::AddUid(const Uid& uid)
{
    const std::lock_guard guard(m_lock);
    m_uids.push_back(uid);
}

bool StoreLogon::HasUid(const Uid& uid) const
{
    const std::lock_guard guard(m_lock);
    return m_logon && std::find(m_uids.begin(), m_uids.end(), uid) != m_uids.end();
}

bool StoreLogon::End() noexcept
{
    ComPtr<IMSLogon> logon;
    {
        const std::lock_guard guard(m_lock);
        logon.Swap(m_logon);
        m_uids.clear();
    }
    if (!logon)
        return false;
    ULONG reserved = 0;
    logon->Logoff(&reserved);
    return true;
}
} // namespace Testbed
