// Test doubles of the objects that a store provider gives: provider, logon, store, folder, table, message, attachment.
#pragma once

#include "tests/common/TestDouble.h"

/// The methods of IMAPIProp.
#define TESTS_MOCK_IMAPIPROP_METHODS                                                                                   \
    MOCK_METHOD(HRESULT, GetLastError, (HRESULT hResult, ULONG ulFlags, LPMAPIERROR * lppMAPIError),                   \
                (override, Calltype(STDMETHODCALLTYPE)));                                                              \
    MOCK_METHOD(HRESULT, SaveChanges, (ULONG ulFlags), (override, Calltype(STDMETHODCALLTYPE)));                       \
    MOCK_METHOD(HRESULT, GetProps,                                                                                     \
                (LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG * lpcValues, LPSPropValue * lppPropArray),       \
                (override, Calltype(STDMETHODCALLTYPE)));                                                              \
    MOCK_METHOD(HRESULT, GetPropList, (ULONG ulFlags, LPSPropTagArray * lppPropTagArray),                              \
                (override, Calltype(STDMETHODCALLTYPE)));                                                              \
    MOCK_METHOD(HRESULT, OpenProperty,                                                                                 \
                (ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags, LPUNKNOWN * lppUnk),          \
                (override, Calltype(STDMETHODCALLTYPE)));                                                              \
    MOCK_METHOD(HRESULT, SetProps, (ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray * lppProblems),       \
                (override, Calltype(STDMETHODCALLTYPE)));                                                              \
    MOCK_METHOD(HRESULT, DeleteProps, (LPSPropTagArray lpPropTagArray, LPSPropProblemArray * lppProblems),             \
                (override, Calltype(STDMETHODCALLTYPE)));                                                              \
    MOCK_METHOD(HRESULT, CopyTo,                                                                                       \
                (ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps, ULONG_PTR ulUIParam,          \
                 LPMAPIPROGRESS lpProgress, LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,                       \
                 LPSPropProblemArray * lppProblems),                                                                   \
                (override, Calltype(STDMETHODCALLTYPE)));                                                              \
    MOCK_METHOD(HRESULT, CopyProps,                                                                                    \
                (LPSPropTagArray lpIncludeProps, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, LPCIID lpInterface,   \
                 LPVOID lpDestObj, ULONG ulFlags, LPSPropProblemArray * lppProblems),                                  \
                (override, Calltype(STDMETHODCALLTYPE)));                                                              \
    MOCK_METHOD(HRESULT, GetNamesFromIDs,                                                                              \
                (LPSPropTagArray * lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags, ULONG * lpcPropNames,             \
                 LPMAPINAMEID * *lpppPropNames),                                                                       \
                (override, Calltype(STDMETHODCALLTYPE)));                                                              \
    MOCK_METHOD(HRESULT, GetIDsFromNames,                                                                              \
                (ULONG cPropNames, LPMAPINAMEID * lppPropNames, ULONG ulFlags, LPSPropTagArray * lppPropTags),         \
                (override, Calltype(STDMETHODCALLTYPE)));

namespace Tests
{

/// Answers IID_IUnknown.
template <class>
class UnknownDoubleOf : public TestDouble<IUnknown>
{
public:
    UnknownDoubleOf();
    ~UnknownDoubleOf() override;
};
using UnknownDouble = UnknownDoubleOf<void>;

/// Answers IID_IMSProvider and IID_IUnknown.
template <class>
class ProviderDoubleOf : public TestDouble<IMSProvider>
{
public:
    ProviderDoubleOf();
    ~ProviderDoubleOf() override;

    MOCK_METHOD(HRESULT, Shutdown, (ULONG * lpulFlags), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Logon,
                (LPMAPISUP lpMAPISup, ULONG_PTR ulUIParam, LPTSTR lpszProfileName, ULONG cbEntryID, LPENTRYID lpEntryID,
                 ULONG ulFlags, LPCIID lpInterface, ULONG* lpcbSpoolSecurity, LPBYTE* lppbSpoolSecurity,
                 LPMAPIERROR* lppMAPIError, LPMSLOGON* lppMSLogon, LPMDB* lppMDB),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SpoolerLogon,
                (LPMAPISUP lpMAPISup, ULONG_PTR ulUIParam, LPTSTR lpszProfileName, ULONG cbEntryID, LPENTRYID lpEntryID,
                 ULONG ulFlags, LPCIID lpInterface, ULONG cbSpoolSecurity, LPBYTE lpbSpoolSecurity,
                 LPMAPIERROR* lppMAPIError, LPMSLOGON* lppMSLogon, LPMDB* lppMDB),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CompareStoreIDs,
                (ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2, ULONG ulFlags,
                 ULONG* lpulResult),
                (override, Calltype(STDMETHODCALLTYPE)));
};
using ProviderDouble = ProviderDoubleOf<void>;

/// Answers IID_IMSLogon and IID_IUnknown. GetLastError gives MAPI_E_NO_SUPPORT unless told otherwise, as in all
/// doubles.
template <class>
class LogonDoubleOf : public TestDouble<IMSLogon>
{
public:
    LogonDoubleOf();
    ~LogonDoubleOf() override;

    MOCK_METHOD(HRESULT, GetLastError, (HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Logoff, (ULONG * lpulFlags), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, OpenEntry,
                (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                 LPUNKNOWN* lppUnk),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CompareEntryIDs,
                (ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2, ULONG ulFlags,
                 ULONG* lpulResult),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Advise,
                (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink,
                 ULONG* lpulConnection),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Unadvise, (ULONG ulConnection), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, OpenStatusEntry, (LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType, LPVOID* lppEntry),
                (override, Calltype(STDMETHODCALLTYPE)));
};
using LogonDouble = LogonDoubleOf<void>;

/// Answers IID_IMsgStore, IID_IMAPIProp and IID_IUnknown.
template <class>
class StoreDoubleOf : public TestDouble<IMsgStore>
{
public:
    StoreDoubleOf();
    ~StoreDoubleOf() override;

    TESTS_MOCK_IMAPIPROP_METHODS
    MOCK_METHOD(HRESULT, Advise,
                (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink,
                 ULONG_PTR* lpulConnection),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Unadvise, (ULONG_PTR ulConnection), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CompareEntryIDs,
                (ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2, ULONG ulFlags,
                 ULONG* lpulResult),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, OpenEntry,
                (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                 LPUNKNOWN* lppUnk),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SetReceiveFolder,
                (LPTSTR lpszMessageClass, ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, GetReceiveFolder,
                (LPTSTR lpszMessageClass, ULONG ulFlags, ULONG* lpcbEntryID, LPENTRYID* lppEntryID,
                 LPTSTR* lppszExplicitClass),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, GetReceiveFolderTable, (ULONG ulFlags, LPMAPITABLE* lppTable),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, StoreLogoff, (ULONG * lpulFlags), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, AbortSubmit, (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, GetOutgoingQueue, (ULONG ulFlags, LPMAPITABLE* lppTable),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SetLockState, (LPMESSAGE lpMessage, ULONG ulLockState),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, FinishedMsg, (ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, NotifyNewMail, (LPNOTIFICATION lpNotification), (override, Calltype(STDMETHODCALLTYPE)));
};
using StoreDouble = StoreDoubleOf<void>;

/// Answers IID_IMAPIFolder, IID_IMAPIContainer, IID_IMAPIProp and IID_IUnknown.
template <class>
class FolderDoubleOf : public TestDouble<IMAPIFolder>
{
public:
    FolderDoubleOf();
    ~FolderDoubleOf() override;

    TESTS_MOCK_IMAPIPROP_METHODS
    MOCK_METHOD(HRESULT, GetContentsTable, (ULONG ulFlags, LPMAPITABLE* lppTable),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, GetHierarchyTable, (ULONG ulFlags, LPMAPITABLE* lppTable),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, OpenEntry,
                (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                 LPUNKNOWN* lppUnk),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SetSearchCriteria,
                (LPSRestriction lpRestriction, LPENTRYLIST lpContainerList, ULONG ulSearchFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, GetSearchCriteria,
                (ULONG ulFlags, LPSRestriction* lppRestriction, LPENTRYLIST* lppContainerList, ULONG* lpulSearchState),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CreateMessage, (LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CopyMessages,
                (LPENTRYLIST lpMsgList, LPCIID lpInterface, LPVOID lpDestFolder, ULONG_PTR ulUIParam,
                 LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, DeleteMessages,
                (LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CreateFolder,
                (ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment, LPCIID lpInterface, ULONG ulFlags,
                 LPMAPIFOLDER* lppFolder),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CopyFolder,
                (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, LPVOID lpDestFolder,
                 LPTSTR lpszNewFolderName, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, DeleteFolder,
                (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SetReadFlags,
                (LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, GetMessageStatus,
                (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags, ULONG* lpulMessageStatus),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SetMessageStatus,
                (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulNewStatus, ULONG ulNewStatusMask, ULONG* lpulOldStatus),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SaveContentsSort, (LPSSortOrderSet lpSortCriteria, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, EmptyFolder, (ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
};
using FolderDouble = FolderDoubleOf<void>;

/// Answers IID_IMAPITable and IID_IUnknown.
template <class>
class TableDoubleOf : public TestDouble<IMAPITable>
{
public:
    TableDoubleOf();
    ~TableDoubleOf() override;

    MOCK_METHOD(HRESULT, GetLastError, (HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Advise, (ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink, ULONG_PTR* lpulConnection),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Unadvise, (ULONG_PTR ulConnection), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, GetStatus, (ULONG * lpulTableStatus, ULONG* lpulTableType),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SetColumns, (LPSPropTagArray lpPropTagArray, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, QueryColumns, (ULONG ulFlags, LPSPropTagArray* lpPropTagArray),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, GetRowCount, (ULONG ulFlags, ULONG* lpulCount), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SeekRow, (BOOKMARK bkOrigin, LONG lRowCount, LONG* lplRowsSought),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SeekRowApprox, (ULONG ulNumerator, ULONG ulDenominator),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, QueryPosition, (ULONG * lpulRow, ULONG* lpulNumerator, ULONG* lpulDenominator),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, FindRow, (LPSRestriction lpRestriction, BOOKMARK bkOrigin, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Restrict, (LPSRestriction lpRestriction, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CreateBookmark, (BOOKMARK * lpbkPosition), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, FreeBookmark, (BOOKMARK bkPosition), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SortTable, (LPSSortOrderSet lpSortCriteria, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, QuerySortOrder, (LPSSortOrderSet * lppSortCriteria), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, QueryRows, (LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Abort, (), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, ExpandRow,
                (ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulRowCount, ULONG ulFlags, LPSRowSet* lppRows,
                 ULONG* lpulMoreRows),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CollapseRow, (ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulFlags, ULONG* lpulRowCount),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, WaitForCompletion, (ULONG ulFlags, ULONG ulTimeout, ULONG* lpulTableStatus),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, GetCollapseState,
                (ULONG ulFlags, ULONG cbInstanceKey, LPBYTE lpbInstanceKey, ULONG* lpcbCollapseState,
                 LPBYTE* lppbCollapseState),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SetCollapseState,
                (ULONG ulFlags, ULONG cbCollapseState, LPBYTE pbCollapseState, BOOKMARK* lpbkLocation),
                (override, Calltype(STDMETHODCALLTYPE)));
};
using TableDouble = TableDoubleOf<void>;

/// Answers IID_IMessage, IID_IMAPIProp and IID_IUnknown.
template <class>
class MessageDoubleOf : public TestDouble<IMessage>
{
public:
    MessageDoubleOf();
    ~MessageDoubleOf() override;

    TESTS_MOCK_IMAPIPROP_METHODS
    MOCK_METHOD(HRESULT, GetAttachmentTable, (ULONG ulFlags, LPMAPITABLE* lppTable),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, OpenAttach, (ULONG ulAttachmentNum, LPCIID lpInterface, ULONG ulFlags, LPATTACH* lppAttach),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CreateAttach,
                (LPCIID lpInterface, ULONG ulFlags, ULONG* lpulAttachmentNum, LPATTACH* lppAttach),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, DeleteAttach,
                (ULONG ulAttachmentNum, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, GetRecipientTable, (ULONG ulFlags, LPMAPITABLE* lppTable),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, ModifyRecipients, (ULONG ulFlags, LPADRLIST lpMods), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SubmitMessage, (ULONG ulFlags), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SetReadFlag, (ULONG ulFlags), (override, Calltype(STDMETHODCALLTYPE)));
};
using MessageDouble = MessageDoubleOf<void>;

/// Answers IID_IAttachment, IID_IMAPIProp and IID_IUnknown.
template <class>
class AttachDoubleOf : public TestDouble<IAttach>
{
public:
    AttachDoubleOf();
    ~AttachDoubleOf() override;

    TESTS_MOCK_IMAPIPROP_METHODS
};
using AttachDouble = AttachDoubleOf<void>;

} // namespace Tests

// Made in one unit: the tables of mocked methods are large.
extern template class Tests::AttachDoubleOf<void>;
extern template class Tests::FolderDoubleOf<void>;
extern template class Tests::LogonDoubleOf<void>;
extern template class Tests::MessageDoubleOf<void>;
extern template class Tests::ProviderDoubleOf<void>;
extern template class Tests::StoreDoubleOf<void>;
extern template class Tests::TableDoubleOf<void>;
extern template class Tests::UnknownDoubleOf<void>;
extern template class testing::NiceMock<Tests::AttachDouble>;
extern template class testing::NiceMock<Tests::FolderDouble>;
extern template class testing::NiceMock<Tests::LogonDouble>;
extern template class testing::NiceMock<Tests::MessageDouble>;
extern template class testing::NiceMock<Tests::ProviderDouble>;
extern template class testing::NiceMock<Tests::StoreDouble>;
extern template class testing::NiceMock<Tests::TableDouble>;
extern template class testing::NiceMock<Tests::UnknownDouble>;
extern template class testing::StrictMock<Tests::MessageDouble>;
extern template class testing::StrictMock<Tests::StoreDouble>;
