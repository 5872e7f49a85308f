// Every method of an object behind the boundary: CFolderGuard<CMyFolder> is a CMyFolder of which no exception leaves.
// The guard is the outermost class of an object, so that it covers what a host overrides, too. What a method gives a
// caller it gives in success alone: after a failure the caller's outputs are what they were, and nothing is left in
// them that would have to be freed. A guard has no state: threads as the class that is guarded.
#pragma once

#include "hostkit/Boundary.h"
#include "support/MapiBuffer.h"

/// One method: its parameters, and its arguments, each in parentheses.
#define KIVNST_GUARDED(Method, Parameters, Arguments)                                                                  \
    STDMETHODIMP Method Parameters override                                                                            \
    {                                                                                                                  \
        return AtBoundary(L"KivNstHostKit::" #Method, [&]() -> HRESULT { return Base::Method Arguments; });            \
    }

namespace KivNstHostKit
{

/// The methods that all objects with properties have.
template <class Base>
class CPropGuard : public Base
{
public:
    using Base::Base;

    KIVNST_GUARDED(QueryInterface, (REFIID riid, LPVOID* ppvObj), (riid, ppvObj))
    KIVNST_GUARDED(GetLastError, (HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError),
                   (hResult, ulFlags, lppMAPIError))
    KIVNST_GUARDED(SaveChanges, (ULONG ulFlags), (ulFlags))
    STDMETHODIMP GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                          LPSPropValue* lppPropArray) override
    {
        constexpr auto function = L"KivNstHostKit::GetProps";
        if (!lpcValues || !lppPropArray)
        {
            return AtBoundary(function, [&]() -> HRESULT
                              { return Base::GetProps(lpPropTagArray, ulFlags, lpcValues, lppPropArray); });
        }
        // The array of a call that fails in the end is freed here and not the caller's.
        ULONG count = 0;
        Quillon::Mapi::PropValuePointer values;
        const HRESULT hr = AtBoundary(function, [&]() -> HRESULT
                                      { return Base::GetProps(lpPropTagArray, ulFlags, &count, values.Put()); });
        if (SUCCEEDED(hr))
        {
            *lpcValues = count;
            *lppPropArray = values.Detach();
        }
        return hr;
    }
    KIVNST_GUARDED(GetPropList, (ULONG ulFlags, LPSPropTagArray* lppPropTagArray), (ulFlags, lppPropTagArray))
    KIVNST_GUARDED(OpenProperty,
                   (ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags, LPUNKNOWN* lppUnk),
                   (ulPropTag, lpiid, ulInterfaceOptions, ulFlags, lppUnk))
    KIVNST_GUARDED(SetProps, (ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems),
                   (cValues, lpPropArray, lppProblems))
    KIVNST_GUARDED(DeleteProps, (LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems),
                   (lpPropTagArray, lppProblems))
    KIVNST_GUARDED(CopyTo,
                   (ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps, ULONG_PTR ulUIParam,
                    LPMAPIPROGRESS lpProgress, LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                    LPSPropProblemArray* lppProblems),
                   (ciidExclude, rgiidExclude, lpExcludeProps, ulUIParam, lpProgress, lpInterface, lpDestObj, ulFlags,
                    lppProblems))
    KIVNST_GUARDED(CopyProps,
                   (LPSPropTagArray lpIncludeProps, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, LPCIID lpInterface,
                    LPVOID lpDestObj, ULONG ulFlags, LPSPropProblemArray* lppProblems),
                   (lpIncludeProps, ulUIParam, lpProgress, lpInterface, lpDestObj, ulFlags, lppProblems))
    KIVNST_GUARDED(GetNamesFromIDs,
                   (LPSPropTagArray * lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags, ULONG* lpcPropNames,
                    LPMAPINAMEID** lpppPropNames),
                   (lppPropTags, lpPropSetGuid, ulFlags, lpcPropNames, lpppPropNames))
    KIVNST_GUARDED(GetIDsFromNames,
                   (ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags, LPSPropTagArray* lppPropTags),
                   (cPropNames, lppPropNames, ulFlags, lppPropTags))
};

/// A store.
template <class Base>
class CStoreGuard : public CPropGuard<Base>
{
public:
    using CPropGuard<Base>::CPropGuard;

    KIVNST_GUARDED(Advise,
                   (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink,
                    ULONG_PTR* lpulConnection),
                   (cbEntryID, lpEntryID, ulEventMask, lpAdviseSink, lpulConnection))
    KIVNST_GUARDED(Unadvise, (ULONG_PTR ulConnection), (ulConnection))
    KIVNST_GUARDED(CompareEntryIDs,
                   (ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2, ULONG ulFlags,
                    ULONG* lpulResult),
                   (cbEntryID1, lpEntryID1, cbEntryID2, lpEntryID2, ulFlags, lpulResult))
    KIVNST_GUARDED(OpenEntry,
                   (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                    LPUNKNOWN* lppUnk),
                   (cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType, lppUnk))
    KIVNST_GUARDED(SetReceiveFolder, (LPTSTR lpszMessageClass, ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID),
                   (lpszMessageClass, ulFlags, cbEntryID, lpEntryID))
    KIVNST_GUARDED(GetReceiveFolder,
                   (LPTSTR lpszMessageClass, ULONG ulFlags, ULONG* lpcbEntryID, LPENTRYID* lppEntryID,
                    LPTSTR* lppszExplicitClass),
                   (lpszMessageClass, ulFlags, lpcbEntryID, lppEntryID, lppszExplicitClass))
    KIVNST_GUARDED(GetReceiveFolderTable, (ULONG ulFlags, LPMAPITABLE* lppTable), (ulFlags, lppTable))
    KIVNST_GUARDED(StoreLogoff, (ULONG * lpulFlags), (lpulFlags))
    KIVNST_GUARDED(AbortSubmit, (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags), (cbEntryID, lpEntryID, ulFlags))
    KIVNST_GUARDED(GetOutgoingQueue, (ULONG ulFlags, LPMAPITABLE* lppTable), (ulFlags, lppTable))
    KIVNST_GUARDED(SetLockState, (LPMESSAGE lpMessage, ULONG ulLockState), (lpMessage, ulLockState))
    KIVNST_GUARDED(FinishedMsg, (ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID), (ulFlags, cbEntryID, lpEntryID))
    KIVNST_GUARDED(NotifyNewMail, (LPNOTIFICATION lpNotification), (lpNotification))
};

/// A folder.
template <class Base>
class CFolderGuard : public CPropGuard<Base>
{
public:
    using CPropGuard<Base>::CPropGuard;

    KIVNST_GUARDED(GetContentsTable, (ULONG ulFlags, LPMAPITABLE* lppTable), (ulFlags, lppTable))
    KIVNST_GUARDED(GetHierarchyTable, (ULONG ulFlags, LPMAPITABLE* lppTable), (ulFlags, lppTable))
    KIVNST_GUARDED(OpenEntry,
                   (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                    LPUNKNOWN* lppUnk),
                   (cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType, lppUnk))
    KIVNST_GUARDED(SetSearchCriteria, (LPSRestriction lpRestriction, LPENTRYLIST lpContainerList, ULONG ulSearchFlags),
                   (lpRestriction, lpContainerList, ulSearchFlags))
    KIVNST_GUARDED(GetSearchCriteria,
                   (ULONG ulFlags, LPSRestriction* lppRestriction, LPENTRYLIST* lppContainerList,
                    ULONG* lpulSearchState),
                   (ulFlags, lppRestriction, lppContainerList, lpulSearchState))
    KIVNST_GUARDED(CreateMessage, (LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage),
                   (lpInterface, ulFlags, lppMessage))
    KIVNST_GUARDED(CopyMessages,
                   (LPENTRYLIST lpMsgList, LPCIID lpInterface, LPVOID lpDestFolder, ULONG_PTR ulUIParam,
                    LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                   (lpMsgList, lpInterface, lpDestFolder, ulUIParam, lpProgress, ulFlags))
    KIVNST_GUARDED(DeleteMessages,
                   (LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                   (lpMsgList, ulUIParam, lpProgress, ulFlags))
    KIVNST_GUARDED(CreateFolder,
                   (ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment, LPCIID lpInterface,
                    ULONG ulFlags, LPMAPIFOLDER* lppFolder),
                   (ulFolderType, lpszFolderName, lpszFolderComment, lpInterface, ulFlags, lppFolder))
    KIVNST_GUARDED(CopyFolder,
                   (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, LPVOID lpDestFolder,
                    LPTSTR lpszNewFolderName, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                   (cbEntryID, lpEntryID, lpInterface, lpDestFolder, lpszNewFolderName, ulUIParam, lpProgress, ulFlags))
    KIVNST_GUARDED(DeleteFolder,
                   (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                    ULONG ulFlags),
                   (cbEntryID, lpEntryID, ulUIParam, lpProgress, ulFlags))
    KIVNST_GUARDED(SetReadFlags, (LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                   (lpMsgList, ulUIParam, lpProgress, ulFlags))
    KIVNST_GUARDED(GetMessageStatus, (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags, ULONG* lpulMessageStatus),
                   (cbEntryID, lpEntryID, ulFlags, lpulMessageStatus))
    KIVNST_GUARDED(SetMessageStatus,
                   (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulNewStatus, ULONG ulNewStatusMask,
                    ULONG* lpulOldStatus),
                   (cbEntryID, lpEntryID, ulNewStatus, ulNewStatusMask, lpulOldStatus))
    KIVNST_GUARDED(SaveContentsSort, (LPSSortOrderSet lpSortCriteria, ULONG ulFlags), (lpSortCriteria, ulFlags))
    KIVNST_GUARDED(EmptyFolder, (ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                   (ulUIParam, lpProgress, ulFlags))
};

/// A message.
template <class Base>
class CMessageGuard : public CPropGuard<Base>
{
public:
    using CPropGuard<Base>::CPropGuard;

    KIVNST_GUARDED(GetAttachmentTable, (ULONG ulFlags, LPMAPITABLE* lppTable), (ulFlags, lppTable))
    KIVNST_GUARDED(OpenAttach, (ULONG ulAttachmentNum, LPCIID lpInterface, ULONG ulFlags, LPATTACH* lppAttach),
                   (ulAttachmentNum, lpInterface, ulFlags, lppAttach))
    KIVNST_GUARDED(CreateAttach, (LPCIID lpInterface, ULONG ulFlags, ULONG* lpulAttachmentNum, LPATTACH* lppAttach),
                   (lpInterface, ulFlags, lpulAttachmentNum, lppAttach))
    KIVNST_GUARDED(DeleteAttach, (ULONG ulAttachmentNum, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                   (ulAttachmentNum, ulUIParam, lpProgress, ulFlags))
    KIVNST_GUARDED(GetRecipientTable, (ULONG ulFlags, LPMAPITABLE* lppTable), (ulFlags, lppTable))
    KIVNST_GUARDED(ModifyRecipients, (ULONG ulFlags, LPADRLIST lpMods), (ulFlags, lpMods))
    KIVNST_GUARDED(SubmitMessage, (ULONG ulFlags), (ulFlags))
    KIVNST_GUARDED(SetReadFlag, (ULONG ulFlags), (ulFlags))
};

/// An attachment, which has no methods but those of its properties.
template <class Base>
using CAttachGuard = CPropGuard<Base>;

/// A table.
template <class Base>
class CTableGuard : public Base
{
public:
    using Base::Base;

    KIVNST_GUARDED(QueryInterface, (REFIID riid, LPVOID* ppvObj), (riid, ppvObj))
    KIVNST_GUARDED(GetLastError, (HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError),
                   (hResult, ulFlags, lppMAPIError))
    KIVNST_GUARDED(Advise, (ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink, ULONG_PTR* lpulConnection),
                   (ulEventMask, lpAdviseSink, lpulConnection))
    KIVNST_GUARDED(Unadvise, (ULONG_PTR ulConnection), (ulConnection))
    KIVNST_GUARDED(GetStatus, (ULONG * lpulTableStatus, ULONG* lpulTableType), (lpulTableStatus, lpulTableType))
    KIVNST_GUARDED(SetColumns, (LPSPropTagArray lpPropTagArray, ULONG ulFlags), (lpPropTagArray, ulFlags))
    KIVNST_GUARDED(QueryColumns, (ULONG ulFlags, LPSPropTagArray* lpPropTagArray), (ulFlags, lpPropTagArray))
    KIVNST_GUARDED(GetRowCount, (ULONG ulFlags, ULONG* lpulCount), (ulFlags, lpulCount))
    KIVNST_GUARDED(SeekRow, (BOOKMARK bkOrigin, LONG lRowCount, LONG* lplRowsSought),
                   (bkOrigin, lRowCount, lplRowsSought))
    KIVNST_GUARDED(SeekRowApprox, (ULONG ulNumerator, ULONG ulDenominator), (ulNumerator, ulDenominator))
    KIVNST_GUARDED(QueryPosition, (ULONG * lpulRow, ULONG* lpulNumerator, ULONG* lpulDenominator),
                   (lpulRow, lpulNumerator, lpulDenominator))
    KIVNST_GUARDED(FindRow, (LPSRestriction lpRestriction, BOOKMARK bkOrigin, ULONG ulFlags),
                   (lpRestriction, bkOrigin, ulFlags))
    KIVNST_GUARDED(Restrict, (LPSRestriction lpRestriction, ULONG ulFlags), (lpRestriction, ulFlags))
    KIVNST_GUARDED(CreateBookmark, (BOOKMARK * lpbkPosition), (lpbkPosition))
    KIVNST_GUARDED(FreeBookmark, (BOOKMARK bkPosition), (bkPosition))
    KIVNST_GUARDED(SortTable, (LPSSortOrderSet lpSortCriteria, ULONG ulFlags), (lpSortCriteria, ulFlags))
    KIVNST_GUARDED(QuerySortOrder, (LPSSortOrderSet * lppSortCriteria), (lppSortCriteria))
    KIVNST_GUARDED(QueryRows, (LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows), (lRowCount, ulFlags, lppRows))
    KIVNST_GUARDED(Abort, (), ())
    KIVNST_GUARDED(ExpandRow,
                   (ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulRowCount, ULONG ulFlags, LPSRowSet* lppRows,
                    ULONG* lpulMoreRows),
                   (cbInstanceKey, pbInstanceKey, ulRowCount, ulFlags, lppRows, lpulMoreRows))
    KIVNST_GUARDED(CollapseRow, (ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulFlags, ULONG* lpulRowCount),
                   (cbInstanceKey, pbInstanceKey, ulFlags, lpulRowCount))
    KIVNST_GUARDED(WaitForCompletion, (ULONG ulFlags, ULONG ulTimeout, ULONG* lpulTableStatus),
                   (ulFlags, ulTimeout, lpulTableStatus))
    KIVNST_GUARDED(GetCollapseState,
                   (ULONG ulFlags, ULONG cbInstanceKey, LPBYTE lpbInstanceKey, ULONG* lpcbCollapseState,
                    LPBYTE* lppbCollapseState),
                   (ulFlags, cbInstanceKey, lpbInstanceKey, lpcbCollapseState, lppbCollapseState))
    KIVNST_GUARDED(SetCollapseState,
                   (ULONG ulFlags, ULONG cbCollapseState, LPBYTE pbCollapseState, BOOKMARK* lpbkLocation),
                   (ulFlags, cbCollapseState, pbCollapseState, lpbkLocation))
};

/// A logon.
template <class Base>
class CLogonGuard : public Base
{
public:
    using Base::Base;

    KIVNST_GUARDED(QueryInterface, (REFIID riid, LPVOID* ppvObj), (riid, ppvObj))
    KIVNST_GUARDED(GetLastError, (HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError),
                   (hResult, ulFlags, lppMAPIError))
    KIVNST_GUARDED(Logoff, (ULONG * lpulFlags), (lpulFlags))
    KIVNST_GUARDED(OpenEntry,
                   (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                    LPUNKNOWN* lppUnk),
                   (cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType, lppUnk))
    KIVNST_GUARDED(CompareEntryIDs,
                   (ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2, ULONG ulFlags,
                    ULONG* lpulResult),
                   (cbEntryID1, lpEntryID1, cbEntryID2, lpEntryID2, ulFlags, lpulResult))
    KIVNST_GUARDED(Advise,
                   (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink,
                    ULONG* lpulConnection),
                   (cbEntryID, lpEntryID, ulEventMask, lpAdviseSink, lpulConnection))
    KIVNST_GUARDED(Unadvise, (ULONG ulConnection), (ulConnection))
    KIVNST_GUARDED(OpenStatusEntry, (LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType, LPVOID* lppEntry),
                   (lpInterface, ulFlags, lpulObjType, lppEntry))
};

/// A provider. After a logon that fails, the places for the logon object and the store hold null.
template <class Base>
class CProviderGuard : public Base
{
public:
    using Base::Base;

    KIVNST_GUARDED(QueryInterface, (REFIID riid, LPVOID* ppvObj), (riid, ppvObj))
    KIVNST_GUARDED(Shutdown, (ULONG * lpulFlags), (lpulFlags))
    STDMETHODIMP Logon(LPMAPISUP lpMAPISup, ULONG_PTR ulUIParam, LPTSTR lpszProfileName, ULONG cbEntryID,
                       LPENTRYID lpEntryID, ULONG ulFlags, LPCIID lpInterface, ULONG* lpcbSpoolSecurity,
                       LPBYTE* lppbSpoolSecurity, LPMAPIERROR* lppMAPIError, LPMSLOGON* lppMSLogon,
                       LPMDB* lppMDB) override
    {
        return NullAfterFailure(AtBoundary(L"KivNstHostKit::Logon",
                                           [&]() -> HRESULT
                                           {
                                               return Base::Logon(lpMAPISup, ulUIParam, lpszProfileName, cbEntryID,
                                                                  lpEntryID, ulFlags, lpInterface, lpcbSpoolSecurity,
                                                                  lppbSpoolSecurity, lppMAPIError, lppMSLogon, lppMDB);
                                           }),
                                lppMSLogon, lppMDB);
    }
    STDMETHODIMP SpoolerLogon(LPMAPISUP lpMAPISup, ULONG_PTR ulUIParam, LPTSTR lpszProfileName, ULONG cbEntryID,
                              LPENTRYID lpEntryID, ULONG ulFlags, LPCIID lpInterface, ULONG cbSpoolSecurity,
                              LPBYTE lpbSpoolSecurity, LPMAPIERROR* lppMAPIError, LPMSLOGON* lppMSLogon,
                              LPMDB* lppMDB) override
    {
        return NullAfterFailure(AtBoundary(L"KivNstHostKit::SpoolerLogon",
                                           [&]() -> HRESULT
                                           {
                                               return Base::SpoolerLogon(lpMAPISup, ulUIParam, lpszProfileName,
                                                                         cbEntryID, lpEntryID, ulFlags, lpInterface,
                                                                         cbSpoolSecurity, lpbSpoolSecurity,
                                                                         lppMAPIError, lppMSLogon, lppMDB);
                                           }),
                                lppMSLogon, lppMDB);
    }
    KIVNST_GUARDED(CompareStoreIDs,
                   (ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2, ULONG ulFlags,
                    ULONG* lpulResult),
                   (cbEntryID1, lpEntryID1, cbEntryID2, lpEntryID2, ulFlags, lpulResult))

private:
    static HRESULT NullAfterFailure(HRESULT hr, LPMSLOGON* lppMSLogon, LPMDB* lppMDB) noexcept
    {
        if (FAILED(hr) && lppMSLogon)
            *lppMSLogon = nullptr;
        if (FAILED(hr) && lppMDB)
            *lppMDB = nullptr;
        return hr;
    }
};

} // namespace KivNstHostKit

#undef KIVNST_GUARDED
