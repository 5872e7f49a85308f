// CNstMsLogon.
#include "nst/NstMsLogon.h"

#include "nst/ReferenceCount.h"
#include "support/CallWrapping.h"

namespace Quillon::Nst
{

CNstMsLogon::CNstMsLogon(IMSLogon* logon, IMsgStore* store) : m_references(1), m_logon(logon), m_store(store) {}

CNstMsLogon::~CNstMsLogon() = default;

STDMETHODIMP CNstMsLogon::QueryInterface(REFIID riid, LPVOID* ppvObj)
{
    return AnswerWithSelf(this, riid, ppvObj, IID_IMSLogon, IID_IUnknown);
}

STDMETHODIMP_(ULONG) CNstMsLogon::AddRef()
{
    return AddReference(m_references);
}

STDMETHODIMP_(ULONG) CNstMsLogon::Release()
{
    return ReleaseReference(this, m_references);
}

STDMETHODIMP CNstMsLogon::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return PASS_THROUGH(m_logon, IMSLogon::GetLastError, S_OK, hResult, ulFlags, lppMAPIError);
}

STDMETHODIMP CNstMsLogon::Logoff(ULONG* lpulFlags)
{
    return PASS_THROUGH(m_logon, IMSLogon::Logoff, S_OK, lpulFlags);
}

STDMETHODIMP CNstMsLogon::OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                                    ULONG* lpulObjType, LPUNKNOWN* lppUnk)
{
    // Through the store, so that what is opened comes back wrapped; the extended error is still the logon's.
    const ATL::CComQIPtr<IMSLogon> self(this);
    const ATL::CComQIPtr<IMSLogon> logon = m_logon;
    if (!m_store || !logon)
        return ReportNullObject(L"IMSLogon::OpenEntry");
    const HRESULT hr = m_store->OpenEntry(cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType, lppUnk);
    return CheckPassThrough(hr, logon.p, L"IMSLogon::OpenEntry", S_OK);
}

STDMETHODIMP CNstMsLogon::CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2,
                                          LPENTRYID lpEntryID2, ULONG ulFlags, ULONG* lpulResult)
{
    return PASS_THROUGH(m_logon, IMSLogon::CompareEntryIDs, S_OK, cbEntryID1, lpEntryID1, cbEntryID2, lpEntryID2,
                        ulFlags, lpulResult);
}

STDMETHODIMP CNstMsLogon::Advise(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink,
                                 ULONG* lpulConnection)
{
    return PASS_THROUGH(m_logon, IMSLogon::Advise, S_OK, cbEntryID, lpEntryID, ulEventMask, lpAdviseSink,
                        lpulConnection);
}

STDMETHODIMP CNstMsLogon::Unadvise(ULONG ulConnection)
{
    return PASS_THROUGH(m_logon, IMSLogon::Unadvise, S_OK, ulConnection);
}

STDMETHODIMP CNstMsLogon::OpenStatusEntry(LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType, LPVOID* lppEntry)
{
    return PASS_THROUGH(m_logon, IMSLogon::OpenStatusEntry, S_OK, lpInterface, ulFlags, lpulObjType, lppEntry);
}

} // namespace Quillon::Nst
