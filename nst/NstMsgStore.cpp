// CNstMsgStore.
#include "nst/NstMsgStore.h"

#include "mapi/MapiBinding.h"
#include "nst/KivNstCore.h"
#include "nst/NstMapiFolder.h"
#include "nst/NstMessage.h"
#include "nst/ReadOnly.h"
#include "nst/ReferenceCount.h"
#include "support/CallWrapping.h"
#include "support/MapiProperties.h"
#include "support/com_wrap.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace Quillon::Nst
{

const IID IID_UnwrappedMsgStore = {0x61B3ECD5, 0xADAD, 0x4647, {0xBE, 0xFF, 0x27, 0xCD, 0x5A, 0x3A, 0xAC, 0x70}};

namespace
{

/// What the archive lets a client write or open at any time: the store's search object, and what the host keeps there.
constexpr ULONG alwaysWritable[] = {
    PROP_TAG(PT_SYSTIME, 0x7FE9), PROP_TAG(PT_BINARY, 0x7FE8), PROP_TAG(PT_BINARY, 0x7FE7), PR_SEARCH,
    PROP_TAG(PT_UNICODE, 0x7FEB),
};

constexpr auto noFolder = L"OpenEntry returned a MAPI_FOLDER, but the object does not respond to the folder interface";
constexpr auto noMessage =
    L"OpenEntry returned a MAPI_MESSAGE, but the object does not respond to the message interface";

/// An opened object as the interface that its type promises; `line` is logged when it does not answer for it.
template <class I>
ATL::CComQIPtr<I> AsPromised(const ATL::CComPtr<IUnknown>& object, const wchar_t* line, const CallSite& site)
{
    ATL::CComQIPtr<I> answer(object.p);
    if (!answer)
    {
        LogEntry(LogId::Error, line);
        Throw(CComError(E_NOINTERFACE), site);
    }
    return answer;
}

/// Puts the archive subtree root's entry ID in place of the top that `store` reports, in memory that goes with `props`.
void ReplaceSubtreeEntryId(IMsgStore* store, SPropValue* props, SPropValue& property, const CallSite& site)
{
    const Binary entryId = GetNstSubtreeEntryId(store);
    if (entryId.IsNull())
        Throw(CRuntimeError(L"KIV TIS not configured"), site);
    void* buffer = nullptr;
    const auto size = static_cast<ULONG>(entryId.GetSize());
    CheckCall(Mapi::MAPIAllocateMore(size, props, &buffer), site);
    std::memcpy(buffer, entryId.GetBuffer(), size);
    property.Value.bin = {size, static_cast<BYTE*>(buffer)};
}

} // namespace

CNstMsgStore::CNstMsgStore(IMsgStore* store, IMAPISupport* support)
    : m_store(store),
      m_support(support),
      m_references(1)
{
}

CNstMsgStore::~CNstMsgStore() = default;

STDMETHODIMP CNstMsgStore::QueryInterface(REFIID riid, LPVOID* ppvObj)
{
    if (GetUnwrapStores())
        return PASS_THROUGH_COM(m_store, IMsgStore::QueryInterface, E_NOINTERFACE, riid, ppvObj);
    if (riid == IID_UnwrappedMsgStore)
        return PASS_THROUGH_COM(m_store, IMsgStore::QueryInterface, E_NOINTERFACE, IID_IMsgStore, ppvObj);
    return AnswerWithSelf(this, riid, ppvObj, IID_IMsgStore, IID_IMAPIProp, IID_IUnknown);
}

STDMETHODIMP_(ULONG) CNstMsgStore::AddRef()
{
    return AddReference(m_references);
}

STDMETHODIMP_(ULONG) CNstMsgStore::Release()
{
    return ReleaseReference(this, m_references);
}

STDMETHODIMP CNstMsgStore::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return PASS_THROUGH(m_store, IMsgStore::GetLastError, S_OK, hResult, ulFlags, lppMAPIError);
}

STDMETHODIMP CNstMsgStore::SaveChanges(ULONG ulFlags)
{
    return PASS_THROUGH(m_store, IMsgStore::SaveChanges, S_OK, ulFlags);
}

STDMETHODIMP CNstMsgStore::GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                                    LPSPropValue* lppPropArray)
{
    constexpr auto function = L"Quillon::Nst::CNstMsgStore::GetProps";
    try
    {
        const ATL::CComQIPtr<IMsgStore> self(this);
        const ATL::CComQIPtr<IMsgStore> store = com_wrap(m_store);
        const HRESULT hr = store->GetProps(lpPropTagArray, ulFlags, lpcValues, lppPropArray);
        CheckMapiCall<MAPI_W_ERRORS_RETURNED>(hr, store.p, function);
        if (!lpcValues || !lppPropArray)
            return hr;
        if (GetModifyStores())
            OverrideModifiableStoreProperties(*lppPropArray, *lpcValues);
        else
            OverrideStoreProperties(*lppPropArray, *lpcValues);
        return hr;
    }
    catch (const CException& exception)
    {
        return CaughtException(exception, function);
    }
}

STDMETHODIMP CNstMsgStore::GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray)
{
    return PASS_THROUGH(m_store, IMsgStore::GetPropList, S_OK, ulFlags, lppPropTagArray);
}

STDMETHODIMP CNstMsgStore::OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                                        LPUNKNOWN* lppUnk)
{
    if (!CanChangeStoreProperty(ulPropTag))
    {
        return RefuseWithDetail(
            L"IMsgStore::OpenProperty called on read-only archive store; returning MAPI_E_NO_ACCESS: ",
            [ulPropTag] { return Mapi::FormatMapiPropertyTag(ulPropTag); });
    }
    return PASS_THROUGH(m_store, IMsgStore::OpenProperty, MAPI_E_NOT_FOUND, ulPropTag, lpiid, ulInterfaceOptions,
                        ulFlags, lppUnk);
}

STDMETHODIMP CNstMsgStore::SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems)
{
    for (ULONG index = 0; lpPropArray && index < cValues; ++index)
    {
        const ULONG tag = lpPropArray[index].ulPropTag;
        if (CanChangeStoreProperty(tag))
            continue;
        // Mail clients try this on every store that they open; a line each time would only hide the others.
        if (tag == PR_IPM_SUBTREE_ENTRYID)
            return MAPI_E_NO_ACCESS;
        return RefuseWithTags(L"IMsgStore::SetProps called on read-only archive store; returning MAPI_E_NO_ACCESS:",
                              lpPropArray, cValues);
    }
    return PASS_THROUGH(m_store, IMsgStore::SetProps, S_OK, cValues, lpPropArray, lppProblems);
}

STDMETHODIMP CNstMsgStore::DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems)
{
    for (ULONG index = 0; lpPropTagArray && index < lpPropTagArray->cValues; ++index)
    {
        if (!CanChangeStoreProperty(lpPropTagArray->aulPropTag[index]))
        {
            return RefuseWithTags(
                L"IMsgStore::DeleteProps called on read-only archive store; returning MAPI_E_NO_ACCESS:",
                lpPropTagArray);
        }
    }
    return PASS_THROUGH(m_store, IMsgStore::DeleteProps, S_OK, lpPropTagArray, lppProblems);
}

STDMETHODIMP CNstMsgStore::CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps,
                                  ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, LPCIID lpInterface, LPVOID lpDestObj,
                                  ULONG ulFlags, LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_store, IMsgStore::CopyTo, S_OK, ciidExclude, rgiidExclude, lpExcludeProps, ulUIParam,
                        lpProgress, lpInterface, lpDestObj, ulFlags, lppProblems);
}

STDMETHODIMP CNstMsgStore::CopyProps(LPSPropTagArray lpIncludeProps, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                     LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                                     LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_store, IMsgStore::CopyProps, S_OK, lpIncludeProps, ulUIParam, lpProgress, lpInterface,
                        lpDestObj, ulFlags, lppProblems);
}

STDMETHODIMP CNstMsgStore::GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags,
                                           ULONG* lpcPropNames, LPMAPINAMEID** lpppPropNames)
{
    return PASS_THROUGH(m_store, IMsgStore::GetNamesFromIDs, S_OK, lppPropTags, lpPropSetGuid, ulFlags, lpcPropNames,
                        lpppPropNames);
}

STDMETHODIMP CNstMsgStore::GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                           LPSPropTagArray* lppPropTags)
{
    return PASS_THROUGH(m_store, IMsgStore::GetIDsFromNames, MAPI_W_ERRORS_RETURNED, cPropNames, lppPropNames, ulFlags,
                        lppPropTags);
}

STDMETHODIMP CNstMsgStore::Advise(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulEventMask,
                                  LPMAPIADVISESINK lpAdviseSink, ULONG_PTR* lpulConnection)
{
    return PASS_THROUGH(m_store, IMsgStore::Advise, S_OK, cbEntryID, lpEntryID, ulEventMask, lpAdviseSink,
                        lpulConnection);
}

STDMETHODIMP CNstMsgStore::Unadvise(ULONG_PTR ulConnection)
{
    return PASS_THROUGH(m_store, IMsgStore::Unadvise, S_OK, ulConnection);
}

STDMETHODIMP CNstMsgStore::CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2,
                                           LPENTRYID lpEntryID2, ULONG ulFlags, ULONG* lpulResult)
{
    return PASS_THROUGH(m_store, IMsgStore::CompareEntryIDs, S_OK, cbEntryID1, lpEntryID1, cbEntryID2, lpEntryID2,
                        ulFlags, lpulResult);
}

STDMETHODIMP CNstMsgStore::OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags,
                                     ULONG* lpulObjType, LPUNKNOWN* lppUnk)
{
    // Without a place for the object there is nothing to wrap.
    if (!lppUnk)
        return PASS_THROUGH(m_store, IMsgStore::OpenEntry, S_OK, cbEntryID, lpEntryID, lpInterface, ulFlags,
                            lpulObjType, lppUnk);
    constexpr auto function = L"Quillon::Nst::CNstMsgStore::OpenEntry";
    try
    {
        const ATL::CComQIPtr<IMsgStore> self(this);
        const ATL::CComQIPtr<IMsgStore> store = com_wrap(m_store);
        ULONG objectType = 0;
        ATL::CComPtr<IUnknown> object;
        const HRESULT hr =
            CheckPassThrough(store->OpenEntry(cbEntryID, lpEntryID, lpInterface, ulFlags, &objectType, &object),
                             store.p, L"IMsgStore::OpenEntry", S_OK);
        if (FAILED(hr))
            return hr;
        if (objectType == MAPI_FOLDER)
            *lppUnk = com_wrap(CreateFolder(AsPromised<IMAPIFolder>(object, noFolder, function))).Detach();
        else if (objectType == MAPI_MESSAGE)
            *lppUnk = com_wrap(CreateMessage(AsPromised<IMessage>(object, noMessage, function))).Detach();
        else
            *lppUnk = object.Detach();
        if (lpulObjType)
            *lpulObjType = objectType;
        return hr;
    }
    catch (const CException& exception)
    {
        return CaughtException(exception, function);
    }
}

STDMETHODIMP CNstMsgStore::SetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG cbEntryID,
                                            LPENTRYID lpEntryID)
{
    if (!GetModifyStores())
        return Refuse(L"IMsgStore::SetReceiveFolder called on read-only archive store; returning MAPI_E_NO_ACCESS");
    return PASS_THROUGH(m_store, IMsgStore::SetReceiveFolder, S_OK, lpszMessageClass, ulFlags, cbEntryID, lpEntryID);
}

STDMETHODIMP CNstMsgStore::GetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG* lpcbEntryID,
                                            LPENTRYID* lppEntryID, LPTSTR* lppszExplicitClass)
{
    return PASS_THROUGH(m_store, IMsgStore::GetReceiveFolder, S_OK, lpszMessageClass, ulFlags, lpcbEntryID, lppEntryID,
                        lppszExplicitClass);
}

STDMETHODIMP CNstMsgStore::GetReceiveFolderTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return PASS_THROUGH(m_store, IMsgStore::GetReceiveFolderTable, S_OK, ulFlags, lppTable);
}

STDMETHODIMP CNstMsgStore::StoreLogoff(ULONG* lpulFlags)
{
    return PASS_THROUGH(m_store, IMsgStore::StoreLogoff, S_OK, lpulFlags);
}

STDMETHODIMP CNstMsgStore::AbortSubmit(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags)
{
    return PASS_THROUGH(m_store, IMsgStore::AbortSubmit, S_OK, cbEntryID, lpEntryID, ulFlags);
}

STDMETHODIMP CNstMsgStore::GetOutgoingQueue(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return PASS_THROUGH(m_store, IMsgStore::GetOutgoingQueue, S_OK, ulFlags, lppTable);
}

STDMETHODIMP CNstMsgStore::SetLockState(LPMESSAGE lpMessage, ULONG ulLockState)
{
    return PASS_THROUGH(m_store, IMsgStore::SetLockState, S_OK, lpMessage, ulLockState);
}

STDMETHODIMP CNstMsgStore::FinishedMsg(ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID)
{
    return PASS_THROUGH(m_store, IMsgStore::FinishedMsg, S_OK, ulFlags, cbEntryID, lpEntryID);
}

STDMETHODIMP CNstMsgStore::NotifyNewMail(LPNOTIFICATION lpNotification)
{
    return PASS_THROUGH(m_store, IMsgStore::NotifyNewMail, S_OK, lpNotification);
}

Binary CNstMsgStore::GetEntryId()
{
    return Mapi::QueryItemEntryId(m_store);
}

StringW CNstMsgStore::GetDisplayName()
{
    return Mapi::QueryItemDisplayName(m_store);
}

bool CNstMsgStore::CanChangeStoreProperty(ULONG propTag) noexcept
{
    return std::find(std::begin(alwaysWritable), std::end(alwaysWritable), propTag) != std::end(alwaysWritable) ||
           GetModifyStores();
}

bool CNstMsgStore::CompareEntryIds(const Binary& a, const Binary& b)
{
    if (!m_store || a.IsNull() != b.IsNull())
        return false;
    // The interface takes no const entry IDs, but does not write to them either.
    const auto entryId = [](const Binary& id) { return reinterpret_cast<ENTRYID*>(const_cast<BYTE*>(id.GetBuffer())); };
    ULONG result = 0;
    const HRESULT hr = m_store->CompareEntryIDs(static_cast<ULONG>(a.GetSize()), entryId(a),
                                                static_cast<ULONG>(b.GetSize()), entryId(b), 0, &result);
    return SUCCEEDED(hr) && result != 0;
}

ATL::CComQIPtr<IMAPIFolder> CNstMsgStore::CreateFolder(const ATL::CComQIPtr<IMAPIFolder>& folder)
{
    // Asked of itself, so that the folder holds this wrapper, or the PST store while stores are unwrapped.
    ATL::CComQIPtr<IMsgStore> store;
    CheckCall(QueryInterface(IID_IMsgStore, reinterpret_cast<void**>(&store)),
              L"Quillon::Nst::CNstMsgStore::CreateFolder");
    return com_wrap<IMAPIFolder>(new CNstMapiFolder(folder, store, m_support));
}

ATL::CComQIPtr<IMessage> CNstMsgStore::CreateMessage(const ATL::CComQIPtr<IMessage>& message)
{
    return com_wrap<IMessage>(new CNstMessage(message));
}

void CNstMsgStore::OverrideStoreProperties(SPropValue* props, ULONG count)
{
    for (ULONG index = 0; index < count; ++index)
    {
        switch (props[index].ulPropTag)
        {
        case PR_ACCESS:
        case PR_ACCESS_LEVEL:
            OverrideAccess(props[index]);
            break;
        case PR_STORE_SUPPORT_MASK:
        case PR_STORE_UNICODE_MASK:
            OverrideSupportMask(props[index]);
            break;
        case PR_IPM_SUBTREE_ENTRYID:
            ReplaceSubtreeEntryId(m_store, props, props[index], L"Quillon::Nst::CNstMsgStore::OverrideStoreProperties");
            break;
        default:
            break;
        }
    }
}

void CNstMsgStore::OverrideModifiableStoreProperties(SPropValue* props, ULONG count)
{
    for (ULONG index = 0; index < count; ++index)
    {
        switch (props[index].ulPropTag)
        {
        case PR_STORE_SUPPORT_MASK:
        case PR_STORE_UNICODE_MASK:
            props[index].Value.l &= ~static_cast<LONG>(STORE_ITEMPROC);
            break;
        case PR_IPM_SUBTREE_ENTRYID:
            ReplaceSubtreeEntryId(m_store, props, props[index],
                                  L"Quillon::Nst::CNstMsgStore::OverrideModifiableStoreProperties");
            break;
        default:
            break;
        }
    }
}

} // namespace Quillon::Nst
