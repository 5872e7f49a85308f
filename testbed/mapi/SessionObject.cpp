// IMAPISession, each client's own over the session that it may share.
#include "common/MsgServiceAdmin2.h"
#include "testbed/common/NotOffered.h"
#include "testbed/mapi/SectionLocks.h"
#include "testbed/mapi/ServiceAdmin.h"
#include "testbed/mapi/Session.h"

namespace Testbed
{
namespace
{
class SessionObject final : public ComObject<IMAPISession, &IID_IMAPISession>
{
public:
    SessionObject(std::shared_ptr<Session> session, std::function<void()> leave)
        : m_memory(session->Memory()),
          m_session(std::move(session)),
          m_leave(std::move(leave))
    {
    }
    ~SessionObject() override { Leave(); }

    MAPI_IMAPISESSION_METHODS(override)

private:
    // Runs a method on the session, which stays for as long as that takes.
    template <class F>
    HRESULT Call(F&& body) noexcept
    {
        return Guarded(m_lastError,
                       [&]
                       {
                           std::shared_ptr<Session> session;
                           {
                               const std::lock_guard guard(m_lock);
                               session = m_session;
                           }
                           if (!session || session->Ended())
                               Fail(MAPI_E_END_OF_SESSION, L"The session has ended.");
                           return body(*session);
                       });
    }

    void Leave() noexcept
    {
        std::shared_ptr<Session> session;
        std::function<void()> leave;
        {
            const std::lock_guard guard(m_lock);
            session.swap(m_session);
            leave.swap(m_leave);
        }
        if (leave)
            leave();
    }

    MapiMemory m_memory;
    Mutex m_lock;
    std::shared_ptr<Session> m_session;
    std::function<void()> m_leave;
    LastError m_lastError{L"MAPI"};
};

STDMETHODIMP SessionObject::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return m_lastError.Get(m_memory, hResult, ulFlags, lppMAPIError);
}

STDMETHODIMP SessionObject::GetMsgStoresTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return Call(
        [&](Session& session)
        {
            Require(lppTable);
            RequireFlags(ulFlags, MAPI_UNICODE);
            *lppTable = session.StoresTable(ulFlags).Detach();
            return S_OK;
        });
}

STDMETHODIMP SessionObject::OpenMsgStore(ULONG_PTR ulUIParam, ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface,
                                         ULONG ulFlags, LPMDB* lppMDB)
{
    return Call([&](Session& session)
                { return session.OpenMsgStore(ulUIParam, cbEntryID, lpEntryID, lpInterface, ulFlags, lppMDB); });
}

STDMETHODIMP SessionObject::OpenProfileSection(LPMAPIUID lpUID, LPCIID lpInterface, ULONG ulFlags,
                                               LPPROFSECT* lppProfSect)
{
    return Call(
        [&](Session& session)
        {
            Require(lpUID);
            Require(lppProfSect);
            *lppProfSect =
                OpenLockedSection(session.ProfileOf(), *lpUID, lpInterface, ulFlags, SectionUser::Client, m_memory)
                    .Detach();
            return S_OK;
        });
}

STDMETHODIMP SessionObject::GetStatusTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return Call(
        [&](Session& session)
        {
            Require(lppTable);
            RequireFlags(ulFlags, MAPI_UNICODE);
            *lppTable = session.StatusTable(ulFlags).Detach();
            return S_OK;
        });
}

STDMETHODIMP SessionObject::OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                                      ULONG* lpulObjType, LPUNKNOWN* lppUnk)
{
    return Call([&](Session& session)
                { return session.OpenEntry(cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType, lppUnk); });
}

STDMETHODIMP SessionObject::CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2,
                                            LPENTRYID lpEntryID2, ULONG ulFlags, ULONG* lpulResult)
{
    return Call(
        [&](Session& session)
        {
            RequireFlags(ulFlags, 0);
            return session.CompareEntryIds(cbEntryID1, lpEntryID1, cbEntryID2, lpEntryID2, lpulResult);
        });
}

STDMETHODIMP SessionObject::Advise(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask,
                                   LPMAPIADVISESINK lpAdviseSink, ULONG_PTR* lpulConnection)
{
    return Call([&](Session& session)
                { return session.Advise(cbEntryID, lpEntryID, ulEventMask, lpAdviseSink, lpulConnection); });
}

STDMETHODIMP SessionObject::Unadvise(ULONG_PTR ulConnection)
{
    return Call([&](Session& session) { return session.Unadvise(ulConnection); });
}

STDMETHODIMP SessionObject::Logoff(ULONG_PTR, ULONG ulFlags, ULONG)
{
    return Call(
        [&](Session&)
        {
            RequireFlags(ulFlags, MAPI_LOGOFF_SHARED | MAPI_LOGOFF_UI);
            Leave();
            return S_OK;
        });
}

STDMETHODIMP SessionObject::SetDefaultStore(ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID)
{
    return Call(
        [&](Session& session)
        {
            if (ulFlags == MAPI_PRIMARY_STORE || ulFlags == MAPI_SECONDARY_STORE ||
                ulFlags == MAPI_SIMPLE_STORE_PERMANENT || ulFlags == MAPI_SIMPLE_STORE_TEMPORARY)
                return MAPI_E_NO_SUPPORT;
            if (ulFlags != MAPI_DEFAULT_STORE)
                Fail(MAPI_E_INVALID_PARAMETER, L"SetDefaultStore takes exactly one of its flags.");
            session.SetDefaultStore(cbEntryID, lpEntryID);
            return S_OK;
        });
}

STDMETHODIMP SessionObject::AdminServices(ULONG ulFlags, LPSERVICEADMIN* lppServiceAdmin)
{
    return Call(
        [&](Session& session)
        {
            Require(lppServiceAdmin);
            RequireFlags(ulFlags, 0);
            *lppServiceAdmin = CreateServiceAdmin(session.ProfileOf(), m_memory).Detach();
            return S_OK;
        });
}

NOT_OFFERED(SessionObject, OpenAddressBook, ULONG_PTR, LPCIID, ULONG, LPADRBOOK*);
NOT_OFFERED(SessionObject, MessageOptions, ULONG_PTR, ULONG, LPTSTR, LPMESSAGE);
NOT_OFFERED(SessionObject, QueryDefaultMessageOpt, LPTSTR, ULONG, ULONG*, LPSPropValue*);
NOT_OFFERED(SessionObject, EnumAdrTypes, ULONG, ULONG*, LPTSTR**);
NOT_OFFERED(SessionObject, QueryIdentity, ULONG*, LPENTRYID*);
NOT_OFFERED(SessionObject, ShowForm, ULONG_PTR, LPMDB, LPMAPIFOLDER, LPCIID, ULONG, LPMESSAGE, ULONG, ULONG, ULONG,
            ULONG, LPSTR);
NOT_OFFERED(SessionObject, PrepareForm, LPCIID, LPMESSAGE, ULONG*);
} // namespace

ComPtr<IMAPISession> CreateSessionObject(std::shared_ptr<Session> session, std::function<void()> leave)
{
    return MakeObject<SessionObject>(std::move(session), std::move(leave));
}
} // namespace Testbed
