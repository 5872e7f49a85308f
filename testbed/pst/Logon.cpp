// IMSLogon: what MAPI itself uses of an open store.
#include "testbed/pst/Store.h"

namespace Testbed::Pst
{
namespace
{
class Logon final : public ComObject<IMSLogon, &IID_IMSLogon>
{
public:
    explicit Logon(std::shared_ptr<Session> session) : m_session(std::move(session)), m_lastError(componentName) {}

    MAPI_IMSLOGON_METHODS(override)

private:
    std::shared_ptr<Session> m_session;
    LastError m_lastError;
};

STDMETHODIMP Logon::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return m_lastError.Get(m_session->Memory(), hResult, m_session->Flags(ulFlags), lppMAPIError);
}

STDMETHODIMP Logon::Logoff(ULONG*)
{
    // Comes by way of the support object's last release, or by the session's end before the store's.
    m_session->Close();
    return S_OK;
}

STDMETHODIMP Logon::OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                              ULONG* lpulObjType, LPUNKNOWN* lppUnk)
{
    return Guarded(
        m_lastError,
        [&] { return OpenStoreEntry(m_session, cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType, lppUnk); });
}

STDMETHODIMP Logon::CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                                    ULONG, ULONG* lpulResult)
{
    return Guarded(m_lastError,
                   [&]() -> HRESULT
                   {
                       if (!lpulResult)
                           return MAPI_E_INVALID_PARAMETER;
                       *lpulResult =
                           m_session->SameObject(cbEntryID1, lpEntryID1, cbEntryID2, lpEntryID2) ? TRUE : FALSE;
                       return S_OK;
                   });
}

STDMETHODIMP Logon::Advise(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink,
                           ULONG* lpulConnection)
{
    return Guarded(m_lastError,
                   [&]() -> HRESULT
                   {
                       if (!lpulConnection)
                           return MAPI_E_INVALID_PARAMETER;
                       *lpulConnection = m_session->Advise(cbEntryID, lpEntryID, ulEventMask, lpAdviseSink);
                       return S_OK;
                   });
}

STDMETHODIMP Logon::Unadvise(ULONG ulConnection)
{
    return Guarded(m_lastError, [&] { return m_session->Unadvise(ulConnection); });
}

STDMETHODIMP Logon::OpenStatusEntry(LPCIID, ULONG, ULONG*, LPVOID*)
{
    // The status row says that there is no status object: PR_RESOURCE_METHODS is 0.
    return MAPI_E_NO_SUPPORT;
}
} // namespace

ComPtr<IMSLogon> MakeLogon(std::shared_ptr<Session> session)
{
    return MakeObject<Logon>(std::move(session));
}
} // namespace Testbed::Pst
