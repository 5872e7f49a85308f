// MAPI's support object.
#include "testbed/mapi/SupportObject.h"

#include "common/StoreEntryId.h"
#include "testbed/common/Namespace.h"
#include "testbed/common/NotOffered.h"
#include "testbed/mapi/CopyEngine.h"
#include "testbed/mapi/InvalidObject.h"
#include "testbed/mapi/StreamStorage.h"

namespace Testbed
{
namespace
{
class SupportObject final : public ComObject<IMAPISupport, &IID_IMAPISup>
{
public:
    explicit SupportObject(SupportContext context) : m_context(std::move(context)) {}

    ~SupportObject() override
    {
        if (m_context.released)
            m_context.released();
    }

    // NOLINTNEXTLINE(misc-new-delete-overloads): the memory is that of the usual operator new, and goes back to it.
    static void operator delete(void* object) noexcept { KeepLostObject(object); }

    MAPI_IMAPISUPPORT_METHODS1(override)
    MAPI_IMAPISUPPORT_METHODS2(override)
    MAPI_IMAPISUPPORT_METHODS3(override)

private:
    // Runs a call that only a provider's support object has.
    template <class F>
    HRESULT ForLogon(F&& body) noexcept
    {
        return m_context.kind == SupportKind::Logon ? Guarded(m_lastError, std::forward<F>(body)) : MAPI_E_NO_SUPPORT;
    }

    SupportContext m_context;
    LastError m_lastError{L"MAPI"};
};

STDMETHODIMP SupportObject::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return m_lastError.Get(m_context.memory, hResult, ulFlags, lppMAPIError);
}

STDMETHODIMP SupportObject::GetMemAllocRoutines(LPALLOCATEBUFFER* lpAllocateBuffer, LPALLOCATEMORE* lpAllocateMore,
                                                LPFREEBUFFER* lpFreeBuffer)
{
    if (!lpAllocateBuffer || !lpAllocateMore || !lpFreeBuffer)
        return MAPI_E_INVALID_PARAMETER;
    *lpAllocateBuffer = m_context.memory.AllocateBufferRoutine();
    *lpAllocateMore = m_context.memory.AllocateMoreRoutine();
    *lpFreeBuffer = m_context.memory.FreeBufferRoutine();
    return S_OK;
}

STDMETHODIMP SupportObject::Subscribe(LPNOTIFKEY lpKey, ULONG ulEventMask, ULONG ulFlags, LPMAPIADVISESINK lpAdviseSink,
                                      ULONG* lpulConnection)
{
    return ForLogon(
        [&]
        {
            Require(lpKey);
            Require(lpAdviseSink);
            Require(lpulConnection);
            RequireFlags(ulFlags, NOTIFY_SYNC);
            *lpulConnection =
                m_context.notifications->Subscribe(*lpKey, ulEventMask, (ulFlags & NOTIFY_SYNC) != 0, lpAdviseSink);
        });
}

STDMETHODIMP SupportObject::Unsubscribe(ULONG ulConnection)
{
    return ForLogon(
        [&]
        {
            if (!m_context.notifications->Unsubscribe(ulConnection))
                Fail(MAPI_E_NOT_FOUND, L"There is no such subscription.");
        });
}

STDMETHODIMP SupportObject::Notify(LPNOTIFKEY lpKey, ULONG cNotification, LPNOTIFICATION lpNotifications,
                                   ULONG* lpulFlags)
{
    return ForLogon(
        [&]
        {
            Require(lpKey);
            Require(lpulFlags);
            if (cNotification)
                Require(lpNotifications);
            RequireFlags(*lpulFlags, NOTIFY_SYNC);
            *lpulFlags = m_context.notifications->Notify(*lpKey, cNotification, lpNotifications);
        });
}

STDMETHODIMP SupportObject::ModifyStatusRow(ULONG cValues, LPSPropValue lpColumnVals, ULONG ulFlags)
{
    return ForLogon(
        [&]
        {
            RequireFlags(ulFlags, STATUSROW_UPDATE);
            m_context.status->Modify(m_context.ownSection, CopyProps(cValues, lpColumnVals),
                                     (ulFlags & STATUSROW_UPDATE) != 0);
        });
}

STDMETHODIMP SupportObject::OpenProfileSection(LPMAPIUID lpUid, ULONG ulFlags, LPPROFSECT* lppProfileObj)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       Require(lppProfileObj);
                       RequireFlags(ulFlags, MAPI_MODIFY | MAPI_DEFERRED_ERRORS);
                       const Uid uid = lpUid ? Uid(*lpUid) : m_context.ownSection;
                       *lppProfileObj =
                           OpenSection(
                               m_context.profile, uid, ulFlags,
                               m_context.kind == SupportKind::Logon ? SectionUser::Provider : SectionUser::Entry,
                               m_context.memory, m_context.lockSection ? m_context.lockSection(uid, ulFlags) : nullptr)
                               .Detach();
                   });
}

STDMETHODIMP SupportObject::NewUID(LPMAPIUID lpMuid)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       Require(lpMuid);
                       *lpMuid = Uid::Create();
                   });
}

STDMETHODIMP SupportObject::MakeInvalid(ULONG ulFlags, LPVOID lpObject, ULONG ulRefCount, ULONG cMethods)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       Require(lpObject);
                       RequireFlags(ulFlags, 0);
                       MakeObjectInvalid(m_context.memory, lpObject, ulRefCount, cMethods);
                   });
}

STDMETHODIMP SupportObject::SetProviderUID(LPMAPIUID lpProviderID, ULONG ulFlags)
{
    return ForLogon(
        [&]
        {
            Require(lpProviderID);
            RequireFlags(ulFlags, 0);
            if (m_context.setProviderUid)
                m_context.setProviderUid(*lpProviderID);
        });
}

STDMETHODIMP SupportObject::CompareEntryIDs(ULONG cbEntry1, LPENTRYID lpEntry1, ULONG cbEntry2, LPENTRYID lpEntry2,
                                            ULONG ulCompareFlags, ULONG* lpulResult)
{
    return ForLogon(
        [&]() -> HRESULT
        {
            Require(lpulResult);
            RequireFlags(ulCompareFlags, 0);
            // Two absent entry IDs are equal, one absent differs from any other.
            if (cbEntry1 == 0 || cbEntry2 == 0)
            {
                *lpulResult = cbEntry1 == cbEntry2;
                return S_OK;
            }
            Require(lpEntry1);
            Require(lpEntry2);
            if (cbEntry1 == cbEntry2 && std::memcmp(lpEntry1, lpEntry2, cbEntry1) == 0)
            {
                *lpulResult = TRUE;
                return S_OK;
            }
            *lpulResult = FALSE;
            return m_context.compareEntryIds
                       ? m_context.compareEntryIds(cbEntry1, lpEntry1, cbEntry2, lpEntry2, 0, lpulResult)
                       : S_OK;
        });
}

STDMETHODIMP SupportObject::OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulOpenFlags,
                                      ULONG* lpulObjType, LPUNKNOWN* lppUnk)
{
    return ForLogon(
        [&]() -> HRESULT
        {
            Require(lpulObjType);
            Require(lppUnk);
            if (cbEntryID)
                Require(lpEntryID);
            if (!m_context.openEntry)
                Fail(MAPI_E_UNKNOWN_ENTRYID, L"No provider of the session is logged on.");
            return m_context.openEntry(cbEntryID, lpEntryID, lpInterface, ulOpenFlags, lpulObjType, lppUnk);
        });
}

STDMETHODIMP SupportObject::CopyMessages(LPCIID lpSrcInterface, LPVOID lpSrcFolder, LPENTRYLIST lpMsgList,
                                         LPCIID lpDestInterface, LPVOID lpDestFolder, ULONG_PTR,
                                         LPMAPIPROGRESS lpProgress, ULONG ulFlags)
{
    return ForLogon(
        [&]
        {
            Require(lpMsgList);
            return Testbed::CopyMessages(m_context.memory, lpSrcInterface, lpSrcFolder, *lpMsgList, lpDestInterface,
                                         lpDestFolder, lpProgress, ulFlags);
        });
}

STDMETHODIMP SupportObject::CopyFolder(LPCIID lpSrcInterface, LPVOID lpSrcFolder, ULONG cbEntryID, LPENTRYID lpEntryID,
                                       LPCIID lpDestInterface, LPVOID lpDestFolder, LPTSTR lszNewFolderName, ULONG_PTR,
                                       LPMAPIPROGRESS lpProgress, ULONG ulFlags)
{
    return ForLogon(
        [&]
        {
            return Testbed::CopyFolder(m_context.memory, lpSrcInterface, lpSrcFolder, cbEntryID, lpEntryID,
                                       lpDestInterface, lpDestFolder, lszNewFolderName, lpProgress, ulFlags);
        });
}

STDMETHODIMP SupportObject::DoCopyTo(LPCIID lpSrcInterface, LPVOID lpSrcObj, ULONG ciidExclude, LPCIID rgiidExclude,
                                     LPSPropTagArray lpExcludeProps, ULONG_PTR, LPMAPIPROGRESS, LPCIID lpDestInterface,
                                     LPVOID lpDestObj, ULONG ulFlags, LPSPropProblemArray* lppProblems)
{
    return ForLogon(
        [&]
        {
            CopyObject(m_context.memory,
                       {lpSrcInterface, static_cast<IUnknown*>(lpSrcObj), lpDestInterface,
                        static_cast<IUnknown*>(lpDestObj), ulFlags},
                       {ciidExclude, rgiidExclude, lpExcludeProps}, lppProblems);
        });
}

STDMETHODIMP SupportObject::DoCopyProps(LPCIID lpSrcInterface, LPVOID lpSrcObj, LPSPropTagArray lpIncludeProps,
                                        ULONG_PTR, LPMAPIPROGRESS, LPCIID lpDestInterface, LPVOID lpDestObj,
                                        ULONG ulFlags, LPSPropProblemArray* lppProblems)
{
    return ForLogon(
        [&]
        {
            CopyProperties(m_context.memory, lpIncludeProps,
                           {lpSrcInterface, static_cast<IUnknown*>(lpSrcObj), lpDestInterface,
                            static_cast<IUnknown*>(lpDestObj), ulFlags},
                           lppProblems);
        });
}

STDMETHODIMP SupportObject::StoreLogoffTransports(ULONG* lpulFlags)
{
    return ForLogon(
        [&]
        {
            Require(lpulFlags);
            RequireFlags(*lpulFlags, LOGOFF_NO_WAIT | LOGOFF_ORDERLY | LOGOFF_PURGE | LOGOFF_ABORT | LOGOFF_QUIET);
            // There is no transport that could be in the middle of anything.
            *lpulFlags = LOGOFF_COMPLETE;
        });
}

STDMETHODIMP SupportObject::WrapStoreEntryID(ULONG cbOrigEntry, LPENTRYID lpOrigEntry, ULONG* lpcbWrappedEntry,
                                             LPENTRYID* lppWrappedEntry)
{
    return ForLogon(
        [&]
        {
            GiveWrappedEntryId(m_context.memory, m_context.dllName, cbOrigEntry, lpOrigEntry, lpcbWrappedEntry,
                               lppWrappedEntry);
        });
}

STDMETHODIMP SupportObject::ModifyProfile(ULONG ulFlags)
{
    return ForLogon(
        [&]
        {
            RequireFlags(ulFlags, MDB_TEMPORARY);
            if ((ulFlags & MDB_TEMPORARY) == 0 && m_context.modifyProfile)
                m_context.modifyProfile();
        });
}

STDMETHODIMP SupportObject::IStorageFromStream(LPUNKNOWN lpUnkIn, LPCIID lpInterface, ULONG ulFlags,
                                               LPSTORAGE* lppStorageOut)
{
    return ForLogon(
        [&]
        {
            Require(lpUnkIn);
            Require(lppStorageOut);
            *lppStorageOut = OpenStreamStorage(*lpUnkIn, lpInterface, ulFlags).Detach();
        });
}

STDMETHODIMP SupportObject::GetSvcConfigSupportObj(ULONG ulFlags, LPMAPISUP* lppSvcSupport)
{
    return Guarded(m_lastError,
                   [&]
                   {
                       Require(lppSvcSupport);
                       RequireFlags(ulFlags, 0);
                       SupportContext context;
                       context.kind = SupportKind::Configuration;
                       context.profile = m_context.profile;
                       context.ownSection = m_context.ownSection;
                       context.dllName = m_context.dllName;
                       context.memory = m_context.memory;
                       *lppSvcSupport = CreateSupportObject(std::move(context)).Detach();
                   });
}

// What needs a spooler, an address book, forms or dialogs.
NOT_OFFERED(SupportObject, RegisterPreprocessor, LPMAPIUID, LPTSTR, LPTSTR, LPSTR, LPSTR, ULONG);
NOT_OFFERED(SupportObject, SpoolerYield, ULONG);
NOT_OFFERED(SupportObject, SpoolerNotify, ULONG, LPVOID);
NOT_OFFERED(SupportObject, CreateOneOff, LPTSTR, LPTSTR, LPTSTR, ULONG, ULONG*, LPENTRYID*);
NOT_OFFERED(SupportObject, OpenTemplateID, ULONG, LPENTRYID, ULONG, LPMAPIPROP, LPCIID, LPMAPIPROP*, LPMAPIPROP);
NOT_OFFERED(SupportObject, GetOneOffTable, ULONG, LPMAPITABLE*);
NOT_OFFERED(SupportObject, Address, ULONG_PTR*, LPADRPARM, LPADRLIST*);
NOT_OFFERED(SupportObject, Details, ULONG_PTR*, LPFNDISMISS, LPVOID, ULONG, LPENTRYID, LPFNBUTTON, LPVOID, LPTSTR,
            ULONG);
NOT_OFFERED(SupportObject, NewEntry, ULONG_PTR, ULONG, ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG*, LPENTRYID*);
NOT_OFFERED(SupportObject, DoConfigPropsheet, ULONG_PTR, ULONG, LPTSTR, LPMAPITABLE, LPMAPIPROP, ULONG);
NOT_OFFERED(SupportObject, DoProgressDialog, ULONG_PTR, ULONG, LPMAPIPROGRESS*);
NOT_OFFERED(SupportObject, ReadReceipt, ULONG, LPMESSAGE, LPMESSAGE*);
NOT_OFFERED(SupportObject, PrepareSubmit, LPMESSAGE, ULONG*);
NOT_OFFERED(SupportObject, ExpandRecips, LPMESSAGE, ULONG*);
NOT_OFFERED(SupportObject, UpdatePAB, ULONG, LPMESSAGE);
NOT_OFFERED(SupportObject, DoSentMail, ULONG, LPMESSAGE);
NOT_OFFERED(SupportObject, OpenAddressBook, LPCIID, ULONG, LPADRBOOK*);
NOT_OFFERED(SupportObject, Preprocess, ULONG, ULONG, LPENTRYID);
NOT_OFFERED(SupportObject, CompleteMsg, ULONG, ULONG, LPENTRYID);
NOT_OFFERED(SupportObject, StatusRecips, LPMESSAGE, LPADRLIST);
} // namespace

ComPtr<IMAPISupport> CreateSupportObject(SupportContext context)
{
    return MakeObject<SupportObject>(std::move(context));
}

void GiveWrappedEntryId(const MapiMemory& memory, const std::string& dllName, ULONG size, const ENTRYID* entryId,
                        ULONG* wrappedSize, LPENTRYID* wrapped)
{
    Require(entryId);
    Require(wrappedSize);
    Require(wrapped);
    if (size < sizeof(ENTRYID::abFlags))
        Fail(MAPI_E_INVALID_ENTRYID, L"An entry ID is too short.");
    const Bytes bytes = WrapStoreEntryId(dllName, entryId, size);
    auto* const block = static_cast<ENTRYID*>(memory.Allocate(bytes.size()));
    std::memcpy(block, bytes.data(), bytes.size());
    *wrappedSize = static_cast<ULONG>(bytes.size());
    *wrapped = block;
}
} // namespace Testbed
