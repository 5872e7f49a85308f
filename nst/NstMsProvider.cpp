// CNstMsProvider, and the archive subtree root.
#include "nst/NstMsProvider.h"

#include "mapi/OpenMapiObject.h"
#include "nst/KivNstCore.h"
#include "nst/NstMapiSupport.h"
#include "nst/NstMsLogon.h"
#include "nst/NstMsgStore.h"
#include "nst/Olfi.h"
#include "nst/ReferenceCount.h"
#include "support/CallWrapping.h"
#include "support/MapiProperties.h"
#include "support/com_wrap.h"

namespace Quillon::Nst
{

CNstMsProvider::CNstMsProvider(IMSProvider* provider) : m_references(1), m_provider(provider) {}

CNstMsProvider::~CNstMsProvider() = default;

STDMETHODIMP CNstMsProvider::QueryInterface(REFIID riid, LPVOID* ppvObj)
{
    return AnswerElsePassOn(this, m_provider.p, L"IMSProvider::QueryInterface", riid, ppvObj, IID_IMSProvider,
                            IID_IUnknown);
}

STDMETHODIMP_(ULONG) CNstMsProvider::AddRef()
{
    return AddReference(m_references);
}

STDMETHODIMP_(ULONG) CNstMsProvider::Release()
{
    return ReleaseReference(this, m_references);
}

STDMETHODIMP CNstMsProvider::Shutdown(ULONG* lpulFlags)
{
    return PASS_THROUGH_COM(m_provider, IMSProvider::Shutdown, S_OK, lpulFlags);
}

STDMETHODIMP CNstMsProvider::Logon(LPMAPISUP lpMAPISup, ULONG_PTR ulUIParam, LPTSTR lpszProfileName, ULONG cbEntryID,
                                   LPENTRYID lpEntryID, ULONG ulFlags, LPCIID lpInterface, ULONG* lpcbSpoolSecurity,
                                   LPBYTE* lppbSpoolSecurity, LPMAPIERROR* lppMAPIError, LPMSLOGON* lppMSLogon,
                                   LPMDB* lppMDB)
{
    constexpr auto function = L"Quillon::Nst::CNstMsProvider::Logon";
    try
    {
        const ATL::CComQIPtr<IMSProvider> self(this);
        const ATL::CComQIPtr<IMSProvider> provider = com_wrap(m_provider);
        const ATL::CComQIPtr<IMAPISupport> support = WrapSupport(lpMAPISup);

        // In this order, so that the logon is given back before its store.
        ATL::CComQIPtr<IMsgStore> pstStore;
        ATL::CComQIPtr<IMSLogon> pstLogon;
        // Whatever the caller asked for, the file is opened in Unicode format.
        CheckCall(provider->Logon(support, ulUIParam, lpszProfileName, cbEntryID, lpEntryID,
                                  (ulFlags & ~MDB_OST_LOGON_ANSI) | MDB_OST_LOGON_UNICODE, lpInterface,
                                  lpcbSpoolSecurity, lppbSpoolSecurity, lppMAPIError, lppMSLogon ? &pstLogon : nullptr,
                                  lppMDB ? &pstStore : nullptr),
                  function);
        SetOLFIInOST(pstStore); // throws when no store was given, so that there is a place for it from here on

        ATL::CComQIPtr<IMsgStore> store = com_wrap(CreateMessageStore(pstStore, support));
        ATL::CComQIPtr<IMSLogon> logon;
        if (pstLogon)
            logon = com_wrap(CreateMsLogon(pstLogon, store));
        *lppMDB = store.Detach();
        if (lppMSLogon)
            *lppMSLogon = logon.Detach();
        return S_OK;
    }
    catch (const CException& exception)
    {
        const HRESULT hr = CaughtException(exception, function);
        if (lppMDB)
            *lppMDB = nullptr;
        return hr;
    }
}

STDMETHODIMP CNstMsProvider::SpoolerLogon(LPMAPISUP lpMAPISup, ULONG_PTR ulUIParam, LPTSTR lpszProfileName,
                                          ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags, LPCIID lpInterface,
                                          ULONG cbSpoolSecurity, LPBYTE lpbSpoolSecurity, LPMAPIERROR* lppMAPIError,
                                          LPMSLOGON* lppMSLogon, LPMDB* lppMDB)
{
    constexpr auto function = L"Quillon::Nst::CNstMsProvider::SpoolerLogon";
    try
    {
        const ATL::CComQIPtr<IMSProvider> self(this);
        const ATL::CComQIPtr<IMSProvider> provider = com_wrap(m_provider);
        const ATL::CComQIPtr<IMAPISupport> support = WrapSupport(lpMAPISup);
        CheckCall(provider->SpoolerLogon(support, ulUIParam, lpszProfileName, cbEntryID, lpEntryID, ulFlags,
                                         lpInterface, cbSpoolSecurity, lpbSpoolSecurity, lppMAPIError, lppMSLogon,
                                         lppMDB),
                  function);
        return S_OK;
    }
    catch (const CException& exception)
    {
        return CaughtException(exception, function);
    }
}

STDMETHODIMP CNstMsProvider::CompareStoreIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2,
                                             LPENTRYID lpEntryID2, ULONG ulFlags, ULONG* lpulResult)
{
    return PASS_THROUGH_COM(m_provider, IMSProvider::CompareStoreIDs, S_OK, cbEntryID1, lpEntryID1, cbEntryID2,
                            lpEntryID2, ulFlags, lpulResult);
}

/// The support object that the PST provider is given in place of MAPI's.
ATL::CComQIPtr<IMAPISupport> CNstMsProvider::WrapSupport(const ATL::CComQIPtr<IMAPISupport>& support)
{
    return com_wrap(CreateMapiSupport(support, GetGlobalProfileSection(support)));
}

ATL::CComQIPtr<IMAPISupport> CNstMsProvider::CreateMapiSupport(const ATL::CComQIPtr<IMAPISupport>& support,
                                                               const ATL::CComQIPtr<IProfSect>& section)
{
    return com_wrap<IMAPISupport>(new CNstMapiSupport(support, section));
}

ATL::CComQIPtr<IMsgStore> CNstMsProvider::CreateMessageStore(const ATL::CComQIPtr<IMsgStore>& store,
                                                             const ATL::CComQIPtr<IMAPISupport>& support)
{
    return com_wrap<IMsgStore>(new CNstMsgStore(store, support));
}

void CNstMsProvider::ConfigureNstSubtreeEntryId(const ATL::CComQIPtr<IMsgStore>& store)
{
    constexpr auto function = L"Quillon::Nst::CNstMsProvider::ConfigureNstSubtreeEntryId";
    if (!GetNstSubtreeEntryId(store).IsNull())
        return;

    const Mapi::PropValuePointer subtree = Mapi::QueryItemProperty(store, PR_IPM_SUBTREE_ENTRYID);
    // An entry ID of no bytes is the store's root folder, where the archive's would then lie for good.
    if (subtree->ulPropTag != PR_IPM_SUBTREE_ENTRYID || subtree->Value.bin.cb == 0)
    {
        Throw(Mapi::CMapiError(MAPI_E_NOT_FOUND, Mapi::MapiErrorPointer(),
                               Mapi::FormatMapiPropertyTag(PR_IPM_SUBTREE_ENTRYID)),
              function);
    }
    const Binary subtreeId(Mapi::GetValueFromMapiProperty(subtree.Get()));
    const auto parent = Mapi::OpenMapiObject<IMAPIFolder>(store, subtreeId.GetBuffer(), subtreeId.GetSize());

    // A folder of that name that an earlier, interrupted run left is taken over.
    wchar_t name[] = L"Archiver Store Root";
    ATL::CComQIPtr<IMAPIFolder> root;
    CheckMapiCall(parent->CreateFolder(FOLDER_GENERIC, name, nullptr, nullptr, MAPI_UNICODE | OPEN_IF_EXISTS, &root),
                  parent.p, function);

    Binary rootId = Mapi::QueryItemEntryId(com_wrap(root));
    SPropValue property = {};
    property.ulPropTag = archiveSubtreeEntryIdTag;
    property.Value.bin = {static_cast<ULONG>(rootId.GetSize()), rootId.GetBuffer()};
    Mapi::HrSetOneProp(store, &property);
    CheckMapiCall(store->SaveChanges(0), store.p, function);
}

ATL::CComQIPtr<IMSLogon> CNstMsProvider::CreateMsLogon(const ATL::CComQIPtr<IMSLogon>& logon,
                                                       const ATL::CComQIPtr<IMsgStore>& store)
{
    return com_wrap<IMSLogon>(new CNstMsLogon(logon, store));
}

} // namespace Quillon::Nst
