// CNstMsLogon: the wrapper of the PST provider's IMSLogon.
#pragma once

#include "support/ComPtr.h"
#include "support/Export.h"

namespace Quillon::Nst
{

/// Wraps IMSLogon. OpenEntry goes to the store wrapper, so that what is opened comes back wrapped; the rest is passed
/// through. Any thread; the count starts at 1.
class KIVNST_API CNstMsLogon : public IMSLogon
{
public:
    KIVNST_OWN_HEAP

    /// Takes a reference on each; `store` is normally the store wrapper of the same logon and may be null.
    CNstMsLogon(IMSLogon* logon, IMsgStore* store);
    CNstMsLogon(const CNstMsLogon&) = delete;
    CNstMsLogon& operator=(const CNstMsLogon&) = delete;

    MAPI_IUNKNOWN_METHODS(override)
    MAPI_IMSLOGON_METHODS(override)

    virtual ~CNstMsLogon();

private:
    ULONG m_references;
    ATL::CComQIPtr<IMSLogon> m_logon;
    ATL::CComQIPtr<IMsgStore> m_store;
};

} // namespace Quillon::Nst
