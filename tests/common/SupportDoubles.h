// Test doubles of the objects that MAPI gives a provider: support object, profile section, provider administration.
#pragma once

#include "tests/common/StoreDoubles.h"

namespace Tests
{

/// Answers IID_IMAPISup and IID_IUnknown.
template <class>
class SupportDoubleOf : public TestDouble<IMAPISupport>
{
public:
    SupportDoubleOf();
    ~SupportDoubleOf() override;

    MOCK_METHOD(HRESULT, GetLastError, (HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, GetMemAllocRoutines,
                (LPALLOCATEBUFFER * lpAllocateBuffer, LPALLOCATEMORE* lpAllocateMore, LPFREEBUFFER* lpFreeBuffer),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Subscribe,
                (LPNOTIFKEY lpKey, ULONG ulEventMask, ULONG ulFlags, LPMAPIADVISESINK lpAdviseSink,
                 ULONG* lpulConnection),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Unsubscribe, (ULONG ulConnection), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Notify,
                (LPNOTIFKEY lpKey, ULONG cNotification, LPNOTIFICATION lpNotifications, ULONG* lpulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, ModifyStatusRow, (ULONG cValues, LPSPropValue lpColumnVals, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, OpenProfileSection, (LPMAPIUID lpUid, ULONG ulFlags, LPPROFSECT* lppProfileObj),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, RegisterPreprocessor,
                (LPMAPIUID lpMuid, LPTSTR lpszAdrType, LPTSTR lpszDLLName, LPSTR lpszPreprocess,
                 LPSTR lpszRemovePreprocessInfo, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, NewUID, (LPMAPIUID lpMuid), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, MakeInvalid, (ULONG ulFlags, LPVOID lpObject, ULONG ulRefCount, ULONG cMethods),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SpoolerYield, (ULONG ulFlags), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SpoolerNotify, (ULONG ulFlags, LPVOID lpvData), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CreateOneOff,
                (LPTSTR lpszName, LPTSTR lpszAdrType, LPTSTR lpszAddress, ULONG ulFlags, ULONG* lpcbEntryID,
                 LPENTRYID* lppEntryID),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, SetProviderUID, (LPMAPIUID lpProviderID, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CompareEntryIDs,
                (ULONG cbEntry1, LPENTRYID lpEntry1, ULONG cbEntry2, LPENTRYID lpEntry2, ULONG ulCompareFlags,
                 ULONG* lpulResult),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, OpenTemplateID,
                (ULONG cbTemplateID, LPENTRYID lpTemplateID, ULONG ulTemplateFlags, LPMAPIPROP lpMAPIPropData,
                 LPCIID lpInterface, LPMAPIPROP* lppMAPIPropNew, LPMAPIPROP lpMAPIPropSibling),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, OpenEntry,
                (ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulOpenFlags, ULONG* lpulObjType,
                 LPUNKNOWN* lppUnk),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, GetOneOffTable, (ULONG ulFlags, LPMAPITABLE* lppTable),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Address, (ULONG_PTR * lpulUIParam, LPADRPARM lpAdrParms, LPADRLIST* lppAdrList),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Details,
                (ULONG_PTR * lpulUIParam, LPFNDISMISS lpfnDismiss, LPVOID lpvDismissContext, ULONG cbEntryID,
                 LPENTRYID lpEntryID, LPFNBUTTON lpfButtonCallback, LPVOID lpvButtonContext, LPTSTR lpszButtonText,
                 ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, NewEntry,
                (ULONG_PTR ulUIParam, ULONG ulFlags, ULONG cbEIDContainer, LPENTRYID lpEIDContainer,
                 ULONG cbEIDNewEntryTpl, LPENTRYID lpEIDNewEntryTpl, ULONG* lpcbEIDNewEntry, LPENTRYID* lppEIDNewEntry),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, DoConfigPropsheet,
                (ULONG_PTR ulUIParam, ULONG ulFlags, LPTSTR lpszTitle, LPMAPITABLE lpDisplayTable,
                 LPMAPIPROP lpCOnfigData, ULONG ulTopPage),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CopyMessages,
                (LPCIID lpSrcInterface, LPVOID lpSrcFolder, LPENTRYLIST lpMsgList, LPCIID lpDestInterface,
                 LPVOID lpDestFolder, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CopyFolder,
                (LPCIID lpSrcInterface, LPVOID lpSrcFolder, ULONG cbEntryID, LPENTRYID lpEntryID,
                 LPCIID lpDestInterface, LPVOID lpDestFolder, LPTSTR lszNewFolderName, ULONG_PTR ulUIParam,
                 LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, DoCopyTo,
                (LPCIID lpSrcInterface, LPVOID lpSrcObj, ULONG ciidExclude, LPCIID rgiidExclude,
                 LPSPropTagArray lpExcludeProps, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, LPCIID lpDestInterface,
                 LPVOID lpDestObj, ULONG ulFlags, LPSPropProblemArray* lppProblems),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, DoCopyProps,
                (LPCIID lpSrcInterface, LPVOID lpSrcObj, LPSPropTagArray lpIncludeProps, ULONG_PTR ulUIParam,
                 LPMAPIPROGRESS lpProgress, LPCIID lpDestInterface, LPVOID lpDestObj, ULONG ulFlags,
                 LPSPropProblemArray* lppProblems),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, DoProgressDialog, (ULONG_PTR ulUIParam, ULONG ulFlags, LPMAPIPROGRESS* lppProgress),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, ReadReceipt, (ULONG ulFlags, LPMESSAGE lpReadMessage, LPMESSAGE* lppEmptyMessage),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, PrepareSubmit, (LPMESSAGE lpMessage, ULONG* lpulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, ExpandRecips, (LPMESSAGE lpMessage, ULONG* lpulFlags),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, UpdatePAB, (ULONG ulFlags, LPMESSAGE lpMessage), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, DoSentMail, (ULONG ulFlags, LPMESSAGE lpMessage), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, OpenAddressBook, (LPCIID lpInterface, ULONG ulFlags, LPADRBOOK* lppAdrBook),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, Preprocess, (ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CompleteMsg, (ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, StoreLogoffTransports, (ULONG * lpulFlags), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, StatusRecips, (LPMESSAGE lpMessage, LPADRLIST lpRecipList),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, WrapStoreEntryID,
                (ULONG cbOrigEntry, LPENTRYID lpOrigEntry, ULONG* lpcbWrappedEntry, LPENTRYID* lppWrappedEntry),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, ModifyProfile, (ULONG ulFlags), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, IStorageFromStream,
                (LPUNKNOWN lpUnkIn, LPCIID lpInterface, ULONG ulFlags, LPSTORAGE* lppStorageOut),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, GetSvcConfigSupportObj, (ULONG ulFlags, LPMAPISUP* lppSvcSupport),
                (override, Calltype(STDMETHODCALLTYPE)));
};
using SupportDouble = SupportDoubleOf<void>;

/// Answers IID_IProfSect, IID_IMAPIProp and IID_IUnknown.
template <class>
class ProfileSectionDoubleOf : public TestDouble<IProfSect>
{
public:
    ProfileSectionDoubleOf();
    ~ProfileSectionDoubleOf() override;

    TESTS_MOCK_IMAPIPROP_METHODS
};
using ProfileSectionDouble = ProfileSectionDoubleOf<void>;

/// Answers IID_IProviderAdmin and IID_IUnknown.
template <class>
class ProviderAdminDoubleOf : public TestDouble<IProviderAdmin>
{
public:
    ProviderAdminDoubleOf();
    ~ProviderAdminDoubleOf() override;

    MOCK_METHOD(HRESULT, GetLastError, (HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, GetProviderTable, (ULONG ulFlags, LPMAPITABLE* lppTable),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, CreateProvider,
                (LPTSTR lpszProvider, ULONG cValues, LPSPropValue lpProps, ULONG_PTR ulUIParam, ULONG ulFlags,
                 MAPIUID* lpUID),
                (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, DeleteProvider, (LPMAPIUID lpUID), (override, Calltype(STDMETHODCALLTYPE)));
    MOCK_METHOD(HRESULT, OpenProfileSection,
                (LPMAPIUID lpUID, LPCIID lpInterface, ULONG ulFlags, LPPROFSECT* lppProfSect),
                (override, Calltype(STDMETHODCALLTYPE)));
};
using ProviderAdminDouble = ProviderAdminDoubleOf<void>;

} // namespace Tests

// Made in one unit: the tables of mocked methods are large.
extern template class Tests::ProfileSectionDoubleOf<void>;
extern template class Tests::ProviderAdminDoubleOf<void>;
extern template class Tests::SupportDoubleOf<void>;
extern template class testing::NiceMock<Tests::ProfileSectionDouble>;
extern template class testing::NiceMock<Tests::ProviderAdminDouble>;
extern template class testing::NiceMock<Tests::SupportDouble>;
extern template class testing::StrictMock<Tests::SupportDouble>;
