// CNstMapiSupport.
#include "nst/NstMapiSupport.h"

#include "nst/ReferenceCount.h"
#include "support/CallWrapping.h"
#include "support/DebugTrace.h"
#include "support/MapiProperties.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace Quillon::Nst
{

const MAPIUID globalProfileSectionUid = {
    {0x85, 0xED, 0x14, 0x23, 0x9D, 0xF7, 0x42, 0x66, 0x8B, 0xF2, 0xFB, 0xD4, 0xA5, 0x21, 0x29, 0x41}};

namespace
{

constexpr ULONG identityProperties[] = {
    PROP_TAG(PT_STRING8, 0x3E00), // PR_IDENTITY_DISPLAY
    PROP_TAG(PT_UNICODE, 0x3E00),
    PR_IDENTITY_ENTRYID,
    PR_IDENTITY_SEARCH_KEY,
};

bool IsIdentityProperty(ULONG tag) noexcept
{
    return std::find(std::begin(identityProperties), std::end(identityProperties), tag) != std::end(identityProperties);
}

} // namespace

CNstMapiSupport::CNstMapiSupport(const ATL::CComQIPtr<IMAPISupport>& support,
                                 const ATL::CComQIPtr<IProfSect>& profileSection)
    : m_references(1),
      m_support(support),
      m_profileSection(profileSection)
{
}

CNstMapiSupport::~CNstMapiSupport() = default;

STDMETHODIMP CNstMapiSupport::QueryInterface(REFIID riid, LPVOID* ppvObj)
{
    return AnswerElsePassOn(this, m_support.p, L"IMAPISupport::QueryInterface", riid, ppvObj, IID_IMAPISup,
                            IID_IUnknown);
}

STDMETHODIMP_(ULONG) CNstMapiSupport::AddRef()
{
    return AddReference(m_references);
}

STDMETHODIMP_(ULONG) CNstMapiSupport::Release()
{
    return ReleaseReference(this, m_references);
}

STDMETHODIMP CNstMapiSupport::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return PASS_THROUGH(m_support, IMAPISupport::GetLastError, S_OK, hResult, ulFlags, lppMAPIError);
}

STDMETHODIMP CNstMapiSupport::GetMemAllocRoutines(LPALLOCATEBUFFER* lpAllocateBuffer, LPALLOCATEMORE* lpAllocateMore,
                                                  LPFREEBUFFER* lpFreeBuffer)
{
    return PASS_THROUGH(m_support, IMAPISupport::GetMemAllocRoutines, S_OK, lpAllocateBuffer, lpAllocateMore,
                        lpFreeBuffer);
}

STDMETHODIMP CNstMapiSupport::Subscribe(LPNOTIFKEY lpKey, ULONG ulEventMask, ULONG ulFlags,
                                        LPMAPIADVISESINK lpAdviseSink, ULONG* lpulConnection)
{
    return PASS_THROUGH(m_support, IMAPISupport::Subscribe, S_OK, lpKey, ulEventMask, ulFlags, lpAdviseSink,
                        lpulConnection);
}

STDMETHODIMP CNstMapiSupport::Unsubscribe(ULONG ulConnection)
{
    return PASS_THROUGH(m_support, IMAPISupport::Unsubscribe, MAPI_E_NOT_INITIALIZED, ulConnection);
}

STDMETHODIMP CNstMapiSupport::Notify(LPNOTIFKEY lpKey, ULONG cNotification, LPNOTIFICATION lpNotifications,
                                     ULONG* lpulFlags)
{
    return PASS_THROUGH(m_support, IMAPISupport::Notify, S_OK, lpKey, cNotification, lpNotifications, lpulFlags);
}

STDMETHODIMP CNstMapiSupport::ModifyStatusRow(ULONG cValues, LPSPropValue lpColumnVals, ULONG ulFlags)
{
    if (lpColumnVals)
    {
        for (ULONG index = 0; index < cValues; ++index)
        {
            ULONG& tag = lpColumnVals[index].ulPropTag;
            if (!IsIdentityProperty(tag))
                continue;
            DebugTrace([tag] { return L"Ignoring property set by PST provider: " + Mapi::FormatMapiPropertyTag(tag); });
            tag = PR_NULL; // MAPI ignores the value then
        }
    }
    return PASS_THROUGH(m_support, IMAPISupport::ModifyStatusRow, S_OK, cValues, lpColumnVals, ulFlags);
}

STDMETHODIMP CNstMapiSupport::OpenProfileSection(LPMAPIUID lpUid, ULONG ulFlags, LPPROFSECT* lppProfileObj)
{
    if (lpUid && std::memcmp(lpUid, &globalProfileSectionUid, sizeof(MAPIUID)) == 0)
    {
        // A section is held whenever this UID is asked for; a broken promise is no reason to crash.
        const ATL::CComQIPtr<IProfSect> section = m_profileSection;
        if (!section)
            return ReportNullObject(L"IMAPISupport::OpenProfileSection");
        return section->QueryInterface(IID_IProfSect, reinterpret_cast<void**>(lppProfileObj));
    }
    return PASS_THROUGH(m_support, IMAPISupport::OpenProfileSection, MAPI_E_NOT_FOUND, lpUid, ulFlags, lppProfileObj);
}

STDMETHODIMP CNstMapiSupport::RegisterPreprocessor(LPMAPIUID lpMuid, LPTSTR lpszAdrType, LPTSTR lpszDLLName,
                                                   LPSTR lpszPreprocess, LPSTR lpszRemovePreprocessInfo, ULONG ulFlags)
{
    return PASS_THROUGH(m_support, IMAPISupport::RegisterPreprocessor, S_OK, lpMuid, lpszAdrType, lpszDLLName,
                        lpszPreprocess, lpszRemovePreprocessInfo, ulFlags);
}

STDMETHODIMP CNstMapiSupport::NewUID(LPMAPIUID lpMuid)
{
    return PASS_THROUGH(m_support, IMAPISupport::NewUID, S_OK, lpMuid);
}

STDMETHODIMP CNstMapiSupport::MakeInvalid(ULONG ulFlags, LPVOID lpObject, ULONG ulRefCount, ULONG cMethods)
{
    return PASS_THROUGH(m_support, IMAPISupport::MakeInvalid, S_OK, ulFlags, lpObject, ulRefCount, cMethods);
}

STDMETHODIMP CNstMapiSupport::SpoolerYield(ULONG ulFlags)
{
    return PASS_THROUGH(m_support, IMAPISupport::SpoolerYield, S_OK, ulFlags);
}

STDMETHODIMP CNstMapiSupport::SpoolerNotify(ULONG ulFlags, LPVOID lpvData)
{
    return PASS_THROUGH(m_support, IMAPISupport::SpoolerNotify, S_OK, ulFlags, lpvData);
}

STDMETHODIMP CNstMapiSupport::CreateOneOff(LPTSTR lpszName, LPTSTR lpszAdrType, LPTSTR lpszAddress, ULONG ulFlags,
                                           ULONG* lpcbEntryID, LPENTRYID* lppEntryID)
{
    return PASS_THROUGH(m_support, IMAPISupport::CreateOneOff, S_OK, lpszName, lpszAdrType, lpszAddress, ulFlags,
                        lpcbEntryID, lppEntryID);
}

STDMETHODIMP CNstMapiSupport::SetProviderUID(LPMAPIUID lpProviderID, ULONG ulFlags)
{
    return PASS_THROUGH(m_support, IMAPISupport::SetProviderUID, S_OK, lpProviderID, ulFlags);
}

STDMETHODIMP CNstMapiSupport::CompareEntryIDs(ULONG cbEntry1, LPENTRYID lpEntry1, ULONG cbEntry2, LPENTRYID lpEntry2,
                                              ULONG ulCompareFlags, ULONG* lpulResult)
{
    return PASS_THROUGH(m_support, IMAPISupport::CompareEntryIDs, S_OK, cbEntry1, lpEntry1, cbEntry2, lpEntry2,
                        ulCompareFlags, lpulResult);
}

STDMETHODIMP CNstMapiSupport::OpenTemplateID(ULONG cbTemplateID, LPENTRYID lpTemplateID, ULONG ulTemplateFlags,
                                             LPMAPIPROP lpMAPIPropData, LPCIID lpInterface, LPMAPIPROP* lppMAPIPropNew,
                                             LPMAPIPROP lpMAPIPropSibling)
{
    return PASS_THROUGH(m_support, IMAPISupport::OpenTemplateID, S_OK, cbTemplateID, lpTemplateID, ulTemplateFlags,
                        lpMAPIPropData, lpInterface, lppMAPIPropNew, lpMAPIPropSibling);
}

STDMETHODIMP CNstMapiSupport::OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulOpenFlags,
                                        ULONG* lpulObjType, LPUNKNOWN* lppUnk)
{
    return PASS_THROUGH(m_support, IMAPISupport::OpenEntry, S_OK, cbEntryID, lpEntryID, lpInterface, ulOpenFlags,
                        lpulObjType, lppUnk);
}

STDMETHODIMP CNstMapiSupport::GetOneOffTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return PASS_THROUGH(m_support, IMAPISupport::GetOneOffTable, S_OK, ulFlags, lppTable);
}

STDMETHODIMP CNstMapiSupport::Address(ULONG_PTR* lpulUIParam, LPADRPARM lpAdrParms, LPADRLIST* lppAdrList)
{
    return PASS_THROUGH(m_support, IMAPISupport::Address, S_OK, lpulUIParam, lpAdrParms, lppAdrList);
}

STDMETHODIMP CNstMapiSupport::Details(ULONG_PTR* lpulUIParam, LPFNDISMISS lpfnDismiss, LPVOID lpvDismissContext,
                                      ULONG cbEntryID, LPENTRYID lpEntryID, LPFNBUTTON lpfButtonCallback,
                                      LPVOID lpvButtonContext, LPTSTR lpszButtonText, ULONG ulFlags)
{
    return PASS_THROUGH(m_support, IMAPISupport::Details, S_OK, lpulUIParam, lpfnDismiss, lpvDismissContext, cbEntryID,
                        lpEntryID, lpfButtonCallback, lpvButtonContext, lpszButtonText, ulFlags);
}

STDMETHODIMP CNstMapiSupport::NewEntry(ULONG_PTR ulUIParam, ULONG ulFlags, ULONG cbEIDContainer,
                                       LPENTRYID lpEIDContainer, ULONG cbEIDNewEntryTpl, LPENTRYID lpEIDNewEntryTpl,
                                       ULONG* lpcbEIDNewEntry, LPENTRYID* lppEIDNewEntry)
{
    return PASS_THROUGH(m_support, IMAPISupport::NewEntry, S_OK, ulUIParam, ulFlags, cbEIDContainer, lpEIDContainer,
                        cbEIDNewEntryTpl, lpEIDNewEntryTpl, lpcbEIDNewEntry, lppEIDNewEntry);
}

STDMETHODIMP CNstMapiSupport::DoConfigPropsheet(ULONG_PTR ulUIParam, ULONG ulFlags, LPTSTR lpszTitle,
                                                LPMAPITABLE lpDisplayTable, LPMAPIPROP lpCOnfigData, ULONG ulTopPage)
{
    return PASS_THROUGH(m_support, IMAPISupport::DoConfigPropsheet, S_OK, ulUIParam, ulFlags, lpszTitle, lpDisplayTable,
                        lpCOnfigData, ulTopPage);
}

STDMETHODIMP CNstMapiSupport::CopyMessages(LPCIID lpSrcInterface, LPVOID lpSrcFolder, LPENTRYLIST lpMsgList,
                                           LPCIID lpDestInterface, LPVOID lpDestFolder, ULONG_PTR ulUIParam,
                                           LPMAPIPROGRESS lpProgress, ULONG ulFlags)
{
    return PASS_THROUGH(m_support, IMAPISupport::CopyMessages, S_OK, lpSrcInterface, lpSrcFolder, lpMsgList,
                        lpDestInterface, lpDestFolder, ulUIParam, lpProgress, ulFlags);
}

STDMETHODIMP CNstMapiSupport::CopyFolder(LPCIID lpSrcInterface, LPVOID lpSrcFolder, ULONG cbEntryID,
                                         LPENTRYID lpEntryID, LPCIID lpDestInterface, LPVOID lpDestFolder,
                                         LPTSTR lszNewFolderName, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                         ULONG ulFlags)
{
    return PASS_THROUGH(m_support, IMAPISupport::CopyFolder, S_OK, lpSrcInterface, lpSrcFolder, cbEntryID, lpEntryID,
                        lpDestInterface, lpDestFolder, lszNewFolderName, ulUIParam, lpProgress, ulFlags);
}

STDMETHODIMP CNstMapiSupport::DoCopyTo(LPCIID lpSrcInterface, LPVOID lpSrcObj, ULONG ciidExclude, LPCIID rgiidExclude,
                                       LPSPropTagArray lpExcludeProps, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                       LPCIID lpDestInterface, LPVOID lpDestObj, ULONG ulFlags,
                                       LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_support, IMAPISupport::DoCopyTo, S_OK, lpSrcInterface, lpSrcObj, ciidExclude, rgiidExclude,
                        lpExcludeProps, ulUIParam, lpProgress, lpDestInterface, lpDestObj, ulFlags, lppProblems);
}

STDMETHODIMP CNstMapiSupport::DoCopyProps(LPCIID lpSrcInterface, LPVOID lpSrcObj, LPSPropTagArray lpIncludeProps,
                                          ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, LPCIID lpDestInterface,
                                          LPVOID lpDestObj, ULONG ulFlags, LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_support, IMAPISupport::DoCopyProps, S_OK, lpSrcInterface, lpSrcObj, lpIncludeProps, ulUIParam,
                        lpProgress, lpDestInterface, lpDestObj, ulFlags, lppProblems);
}

STDMETHODIMP CNstMapiSupport::DoProgressDialog(ULONG_PTR ulUIParam, ULONG ulFlags, LPMAPIPROGRESS* lppProgress)
{
    return PASS_THROUGH(m_support, IMAPISupport::DoProgressDialog, S_OK, ulUIParam, ulFlags, lppProgress);
}

STDMETHODIMP CNstMapiSupport::ReadReceipt(ULONG ulFlags, LPMESSAGE lpReadMessage, LPMESSAGE* lppEmptyMessage)
{
    return PASS_THROUGH(m_support, IMAPISupport::ReadReceipt, S_OK, ulFlags, lpReadMessage, lppEmptyMessage);
}

STDMETHODIMP CNstMapiSupport::PrepareSubmit(LPMESSAGE lpMessage, ULONG* lpulFlags)
{
    return PASS_THROUGH(m_support, IMAPISupport::PrepareSubmit, S_OK, lpMessage, lpulFlags);
}

STDMETHODIMP CNstMapiSupport::ExpandRecips(LPMESSAGE lpMessage, ULONG* lpulFlags)
{
    return PASS_THROUGH(m_support, IMAPISupport::ExpandRecips, S_OK, lpMessage, lpulFlags);
}

STDMETHODIMP CNstMapiSupport::UpdatePAB(ULONG ulFlags, LPMESSAGE lpMessage)
{
    return PASS_THROUGH(m_support, IMAPISupport::UpdatePAB, S_OK, ulFlags, lpMessage);
}

STDMETHODIMP CNstMapiSupport::DoSentMail(ULONG ulFlags, LPMESSAGE lpMessage)
{
    return PASS_THROUGH(m_support, IMAPISupport::DoSentMail, S_OK, ulFlags, lpMessage);
}

STDMETHODIMP CNstMapiSupport::OpenAddressBook(LPCIID lpInterface, ULONG ulFlags, LPADRBOOK* lppAdrBook)
{
    return PASS_THROUGH(m_support, IMAPISupport::OpenAddressBook, MAPI_W_ERRORS_RETURNED, lpInterface, ulFlags,
                        lppAdrBook);
}

STDMETHODIMP CNstMapiSupport::Preprocess(ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID)
{
    return PASS_THROUGH(m_support, IMAPISupport::Preprocess, S_OK, ulFlags, cbEntryID, lpEntryID);
}

STDMETHODIMP CNstMapiSupport::CompleteMsg(ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID)
{
    return PASS_THROUGH(m_support, IMAPISupport::CompleteMsg, S_OK, ulFlags, cbEntryID, lpEntryID);
}

STDMETHODIMP CNstMapiSupport::StoreLogoffTransports(ULONG* lpulFlags)
{
    return PASS_THROUGH(m_support, IMAPISupport::StoreLogoffTransports, S_OK, lpulFlags);
}

STDMETHODIMP CNstMapiSupport::StatusRecips(LPMESSAGE lpMessage, LPADRLIST lpRecipList)
{
    return PASS_THROUGH(m_support, IMAPISupport::StatusRecips, S_OK, lpMessage, lpRecipList);
}

STDMETHODIMP CNstMapiSupport::WrapStoreEntryID(ULONG cbOrigEntry, LPENTRYID lpOrigEntry, ULONG* lpcbWrappedEntry,
                                               LPENTRYID* lppWrappedEntry)
{
    return PASS_THROUGH(m_support, IMAPISupport::WrapStoreEntryID, S_OK, cbOrigEntry, lpOrigEntry, lpcbWrappedEntry,
                        lppWrappedEntry);
}

STDMETHODIMP CNstMapiSupport::ModifyProfile(ULONG ulFlags)
{
    return PASS_THROUGH(m_support, IMAPISupport::ModifyProfile, MAPI_E_NO_SUPPORT, ulFlags);
}

STDMETHODIMP CNstMapiSupport::IStorageFromStream(LPUNKNOWN lpUnkIn, LPCIID lpInterface, ULONG ulFlags,
                                                 LPSTORAGE* lppStorageOut)
{
    return PASS_THROUGH(m_support, IMAPISupport::IStorageFromStream, S_OK, lpUnkIn, lpInterface, ulFlags,
                        lppStorageOut);
}

STDMETHODIMP CNstMapiSupport::GetSvcConfigSupportObj(ULONG ulFlags, LPMAPISUP* lppSvcSupport)
{
    return PASS_THROUGH(m_support, IMAPISupport::GetSvcConfigSupportObj, S_OK, ulFlags, lppSvcSupport);
}

} // namespace Quillon::Nst
