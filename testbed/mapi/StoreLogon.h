// One logon to a store, from IMSProvider::Logon to IMSLogon::Logoff.
#pragma once

#include "common/Mutex.h"
#include "testbed/mapi/Profile.h"

namespace Testbed
{
/// What the session knows of a logon. Its end comes by the last Release of its support object or by the session's, and
/// each may be the second. Thread-safe.
class StoreLogon
{
public:
    explicit StoreLogon(const Uid& section) : m_section(section) {}

    const Uid& Section() const noexcept { return m_section; }

    /// The logon object that the provider gave.
    void Set(ComPtr<IMSLogon> logon);
    ComPtr<IMSLogon> Get() const;

    /// Adds an identifier by which the provider's entry IDs are known.
    void AddUid(const Uid& uid);
    bool HasUid(const Uid& uid) const;

    /// Logs off and lets go of the logon object, once. True for the call that did it.
    bool End() noexcept;

private:
    const Uid m_section;
    mutable Mutex m_lock;
    ComPtr<IMSLogon> m_logon;
    std::vector<Uid> m_uids;
};
} // namespace Testbed
