// CNstMapiFolder.
#include "nst/NstMapiFolder.h"

#include "nst/NstMapiTable.h"
#include "nst/NstMessage.h"
#include "nst/ReferenceCount.h"
#include "support/CallWrapping.h"
#include "support/DebugTrace.h"
#include "support/Format.h"
#include "support/MapiProperties.h"
#include "support/com_wrap.h"

namespace Quillon::Nst
{

const IID IID_UnwrappedMapiFolder = {0xF7E23915, 0x55A7, 0x47BE, {0xA5, 0x9D, 0x20, 0xC0, 0xFF, 0x7F, 0xF9, 0x52}};

CNstMapiFolder::CNstMapiFolder(IMAPIFolder* folder, IMsgStore* store, IMAPISupport* support)
    : m_store(store),
      m_folder(folder),
      m_support(support),
      m_references(1)
{
}

CNstMapiFolder::~CNstMapiFolder() = default;

STDMETHODIMP CNstMapiFolder::QueryInterface(REFIID riid, LPVOID* ppvObj)
{
    if (riid == IID_UnwrappedMapiFolder)
        return PASS_THROUGH_COM(m_folder, IMAPIFolder::QueryInterface, E_NOINTERFACE, IID_IMAPIFolder, ppvObj);
    return AnswerWithSelf(this, riid, ppvObj, IID_IMAPIFolder, IID_IMAPIContainer, IID_IMAPIProp, IID_IUnknown);
}

STDMETHODIMP_(ULONG) CNstMapiFolder::AddRef()
{
    return AddReference(m_references);
}

STDMETHODIMP_(ULONG) CNstMapiFolder::Release()
{
    return ReleaseReference(this, m_references);
}

STDMETHODIMP CNstMapiFolder::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::GetLastError, S_OK, hResult, ulFlags, lppMAPIError);
}

STDMETHODIMP CNstMapiFolder::SaveChanges(ULONG ulFlags)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::SaveChanges, S_OK, ulFlags);
}

STDMETHODIMP CNstMapiFolder::GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                                      LPSPropValue* lppPropArray)
{
    constexpr auto function = L"Quillon::Nst::CNstMapiFolder::GetProps";
    try
    {
        const ATL::CComQIPtr<IMAPIFolder> self(this);
        const ATL::CComQIPtr<IMAPIFolder> folder = com_wrap(m_folder);
        const HRESULT hr = folder->GetProps(lpPropTagArray, ulFlags, lpcValues, lppPropArray);
        CheckMapiCall<MAPI_W_ERRORS_RETURNED>(hr, folder.p, function);
        if (lpcValues && lppPropArray)
            OverrideFolderProperties(*lppPropArray, *lpcValues);
        return hr;
    }
    catch (const CException& exception)
    {
        return CaughtException(exception, function);
    }
}

STDMETHODIMP CNstMapiFolder::GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::GetPropList, S_OK, ulFlags, lppPropTagArray);
}

STDMETHODIMP CNstMapiFolder::OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                                          LPUNKNOWN* lppUnk)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::OpenProperty, S_OK, ulPropTag, lpiid, ulInterfaceOptions, ulFlags,
                        lppUnk);
}

STDMETHODIMP CNstMapiFolder::SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::SetProps, S_OK, cValues, lpPropArray, lppProblems);
}

STDMETHODIMP CNstMapiFolder::DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::DeleteProps, S_OK, lpPropTagArray, lppProblems);
}

STDMETHODIMP CNstMapiFolder::CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps,
                                    ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, LPCIID lpInterface,
                                    LPVOID lpDestObj, ULONG ulFlags, LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::CopyTo, S_OK, ciidExclude, rgiidExclude, lpExcludeProps, ulUIParam,
                        lpProgress, lpInterface, lpDestObj, ulFlags, lppProblems);
}

STDMETHODIMP CNstMapiFolder::CopyProps(LPSPropTagArray lpIncludeProps, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                       LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                                       LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::CopyProps, S_OK, lpIncludeProps, ulUIParam, lpProgress, lpInterface,
                        lpDestObj, ulFlags, lppProblems);
}

STDMETHODIMP CNstMapiFolder::GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags,
                                             ULONG* lpcPropNames, LPMAPINAMEID** lpppPropNames)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::GetNamesFromIDs, S_OK, lppPropTags, lpPropSetGuid, ulFlags, lpcPropNames,
                        lpppPropNames);
}

STDMETHODIMP CNstMapiFolder::GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                             LPSPropTagArray* lppPropTags)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::GetIDsFromNames, MAPI_W_ERRORS_RETURNED, cPropNames, lppPropNames,
                        ulFlags, lppPropTags);
}

STDMETHODIMP CNstMapiFolder::GetContentsTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return GetTable(&IMAPIFolder::GetContentsTable, ulFlags, lppTable,
                    L"Quillon::Nst::CNstMapiFolder::GetContentsTable");
}

STDMETHODIMP CNstMapiFolder::GetHierarchyTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return GetTable(&IMAPIFolder::GetHierarchyTable, ulFlags, lppTable,
                    L"Quillon::Nst::CNstMapiFolder::GetHierarchyTable");
}

/// Either of the two tables, wrapped; `function` is the name of the one in event lines.
HRESULT CNstMapiFolder::GetTable(TableMethod method, ULONG ulFlags, LPMAPITABLE* lppTable, const wchar_t* function)
{
    try
    {
        const ATL::CComQIPtr<IMAPIFolder> self(this);
        const ATL::CComQIPtr<IMAPIFolder> folder = com_wrap(m_folder);
        ATL::CComQIPtr<IMAPITable> table;
        CheckMapiCall((folder.p->*method)(ulFlags, lppTable ? &table : nullptr), folder.p, function);
        if (lppTable)
            *lppTable = new CNstMapiTable(table);
        return S_OK;
    }
    catch (const CException& exception)
    {
        return CaughtException(exception, function);
    }
}

STDMETHODIMP CNstMapiFolder::OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                                       ULONG* lpulObjType, LPUNKNOWN* lppUnk)
{
    // Through the store, so that what is opened comes back wrapped by its factories.
    return PASS_THROUGH(m_store, IMsgStore::OpenEntry, S_OK, cbEntryID, lpEntryID, lpInterface, ulFlags, lpulObjType,
                        lppUnk);
}

STDMETHODIMP CNstMapiFolder::SetSearchCriteria(LPSRestriction lpRestriction, LPENTRYLIST lpContainerList,
                                               ULONG ulSearchFlags)
{
    DebugTrace(
        [ulSearchFlags]
        {
            return FormatString(L"CNstMapiFolder::SetSearchCriteria(%s)",
                                Mapi::FormatSetSearchCriteriaFlags(ulSearchFlags).GetString());
        });
    return PASS_THROUGH(m_folder, IMAPIFolder::SetSearchCriteria, S_OK, lpRestriction, lpContainerList, ulSearchFlags);
}

STDMETHODIMP CNstMapiFolder::GetSearchCriteria(ULONG ulFlags, LPSRestriction* lppRestriction,
                                               LPENTRYLIST* lppContainerList, ULONG* lpulSearchState)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::GetSearchCriteria, S_OK, ulFlags, lppRestriction, lppContainerList,
                        lpulSearchState);
}

STDMETHODIMP CNstMapiFolder::CreateMessage(LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage)
{
    constexpr auto function = L"Quillon::Nst::CNstMapiFolder::CreateMessage";
    try
    {
        const ATL::CComQIPtr<IMAPIFolder> self(this);
        const ATL::CComQIPtr<IMAPIFolder> folder = com_wrap(m_folder);
        ATL::CComQIPtr<IMessage> message;
        CheckMapiCall(folder->CreateMessage(lpInterface, ulFlags, lppMessage ? &message : nullptr), folder.p, function);
        if (lppMessage)
            *lppMessage = new CNstMessage(message);
        return S_OK;
    }
    catch (const CException& exception)
    {
        return CaughtException(exception, function);
    }
}

STDMETHODIMP CNstMapiFolder::CopyMessages(LPENTRYLIST lpMsgList, LPCIID lpInterface, LPVOID lpDestFolder,
                                          ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::CopyMessages, MAPI_E_DECLINE_COPY, lpMsgList, lpInterface, lpDestFolder,
                        ulUIParam, lpProgress, ulFlags);
}

STDMETHODIMP CNstMapiFolder::DeleteMessages(LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                            ULONG ulFlags)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::DeleteMessages, S_OK, lpMsgList, ulUIParam, lpProgress, ulFlags);
}

STDMETHODIMP CNstMapiFolder::CreateFolder(ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment,
                                          LPCIID lpInterface, ULONG ulFlags, LPMAPIFOLDER* lppFolder)
{
    constexpr auto function = L"Quillon::Nst::CNstMapiFolder::CreateFolder";
    try
    {
        const ATL::CComQIPtr<IMAPIFolder> self(this);
        const ATL::CComQIPtr<IMAPIFolder> folder = com_wrap(m_folder);
        ATL::CComQIPtr<IMAPIFolder> created;
        CheckMapiCall(folder->CreateFolder(ulFolderType, lpszFolderName, lpszFolderComment, lpInterface, ulFlags,
                                           lppFolder ? &created : nullptr),
                      folder.p, function);
        if (lppFolder)
            *lppFolder = new CNstMapiFolder(created, m_store, m_support);
        return S_OK;
    }
    catch (const CException& exception)
    {
        return CaughtException(exception, function);
    }
}

STDMETHODIMP CNstMapiFolder::CopyFolder(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, LPVOID lpDestFolder,
                                        LPTSTR lpszNewFolderName, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                        ULONG ulFlags)
{
    // What is handed over lives as long as the call.
    const ATL::CComQIPtr<IMAPIFolder> self(this);
    // The support object copies, with this wrapper as the source. That the source is called a message is deliberate: it
    // is what the support object has always been told here.
    return PASS_THROUGH(m_support, IMAPISupport::CopyFolder, S_OK, &IID_IMessage, static_cast<void*>(self.p), cbEntryID,
                        lpEntryID, lpInterface, lpDestFolder, lpszNewFolderName, ulUIParam, lpProgress, ulFlags);
}

STDMETHODIMP CNstMapiFolder::DeleteFolder(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG_PTR ulUIParam,
                                          LPMAPIPROGRESS lpProgress, ULONG ulFlags)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::DeleteFolder, S_OK, cbEntryID, lpEntryID, ulUIParam, lpProgress,
                        ulFlags);
}

STDMETHODIMP CNstMapiFolder::SetReadFlags(LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                          ULONG ulFlags)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::SetReadFlags, S_OK, lpMsgList, ulUIParam, lpProgress, ulFlags);
}

STDMETHODIMP CNstMapiFolder::GetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags,
                                              ULONG* lpulMessageStatus)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::GetMessageStatus, S_OK, cbEntryID, lpEntryID, ulFlags,
                        lpulMessageStatus);
}

STDMETHODIMP CNstMapiFolder::SetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulNewStatus,
                                              ULONG ulNewStatusMask, ULONG* lpulOldStatus)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::SetMessageStatus, S_OK, cbEntryID, lpEntryID, ulNewStatus,
                        ulNewStatusMask, lpulOldStatus);
}

STDMETHODIMP CNstMapiFolder::SaveContentsSort(LPSSortOrderSet lpSortCriteria, ULONG ulFlags)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::SaveContentsSort, S_OK, lpSortCriteria, ulFlags);
}

STDMETHODIMP CNstMapiFolder::EmptyFolder(ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags)
{
    return PASS_THROUGH(m_folder, IMAPIFolder::EmptyFolder, S_OK, ulUIParam, lpProgress, ulFlags);
}

Binary CNstMapiFolder::GetEntryId()
{
    return Mapi::QueryItemEntryId(m_folder);
}

StringW CNstMapiFolder::GetDisplayName()
{
    return Mapi::QueryItemDisplayName(m_folder);
}

void CNstMapiFolder::OverrideFolderProperties(SPropValue*, ULONG) {}

} // namespace Quillon::Nst
