// FakeProvider32.dll.
#include "tests/testbed/FakeProvider.h"

#include "common/Boundary.h"
#include "common/ComObject.h"
#include "common/Text.h"
#include "testbed/common/PropertyBag.h"

#include <memory>

using namespace Testbed;

namespace
{
Tests::FakeProviderState g_state;
MapiMemory g_memory;

void Record(std::string call)
{
    g_state.calls.push_back(std::move(call));
}

LPMAPIERROR Error(const MapiMemory& memory, ULONG flags)
{
    return g_state.errorText.empty() ? nullptr : MakeMapiError(memory, g_state.errorText, L"Fake", 0, flags);
}

// What a logon and its store share: the support object that the provider keeps.
using Support = std::shared_ptr<ComPtr<IMAPISupport>>;

class FakeLogon final : public ComObject<IMSLogon, &IID_IMSLogon>
{
public:
    explicit FakeLogon(Support support) : m_support(std::move(support)) {}

    STDMETHODIMP GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP Logoff(ULONG* lpulFlags) override
    {
        Record(*lpulFlags == 0 ? "logoff" : "logoff with flags");
        m_support->Reset();
        return S_OK;
    }
    STDMETHODIMP OpenEntry(ULONG, LPENTRYID, LPCIID, ULONG ulFlags, ULONG*, LPUNKNOWN*) override
    {
        Record("open entry");
        g_state.openFlags = ulFlags;
        return MAPI_E_NOT_FOUND;
    }
    STDMETHODIMP CompareEntryIDs(ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG, ULONG* lpulResult) override
    {
        Record("compare");
        *lpulResult = TRUE;
        return S_OK;
    }
    STDMETHODIMP Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG* lpulConnection) override
    {
        Record("advise");
        *lpulConnection = 77;
        return S_OK;
    }
    STDMETHODIMP Unadvise(ULONG ulConnection) override
    {
        Record("unadvise " + std::to_string(ulConnection));
        return S_OK;
    }
    STDMETHODIMP OpenStatusEntry(LPCIID, ULONG, ULONG*, LPVOID*) override
    {
        Record("open status");
        return MAPI_E_NO_SUPPORT;
    }

private:
    Support m_support;
};

class FakeStore final : public ComObject<IMsgStore, &IID_IMsgStore, &IID_IMAPIProp>
{
public:
    explicit FakeStore(Support support) : m_support(std::move(support)) {}
    ~FakeStore() override
    {
        Record("store gone");
        m_support->Reset();
    }

    MAPI_IMAPIPROP_METHODS(override)
    MAPI_IMSGSTORE_METHODS(override)

private:
    Support m_support;
};

STDMETHODIMP FakeStore::GetLastError(HRESULT, ULONG, LPMAPIERROR*)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::SaveChanges(ULONG)
{
    return S_OK;
}
STDMETHODIMP FakeStore::GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                                 LPSPropValue* lppPropArray)
{
    LastError last(L"Fake");
    return Guarded(last,
                   [&]
                   {
                       const PropertyBag bag({PropValue::String(PR_DISPLAY_NAME_W, L"Fake store")});
                       return Testbed::GetProps(bag, g_memory, lpPropTagArray, ulFlags, lpcValues, lppPropArray);
                   });
}
STDMETHODIMP FakeStore::GetPropList(ULONG, LPSPropTagArray*)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::OpenProperty(ULONG, LPCIID, ULONG, ULONG, LPUNKNOWN*)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::SetProps(ULONG, LPSPropValue, LPSPropProblemArray*)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::DeleteProps(LPSPropTagArray, LPSPropProblemArray*)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::CopyTo(ULONG, LPCIID, LPSPropTagArray, ULONG_PTR, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                               LPSPropProblemArray*)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::CopyProps(LPSPropTagArray, ULONG_PTR, LPMAPIPROGRESS, LPCIID, LPVOID, ULONG,
                                  LPSPropProblemArray*)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::GetNamesFromIDs(LPSPropTagArray*, LPGUID, ULONG, ULONG*, LPMAPINAMEID**)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::GetIDsFromNames(ULONG, LPMAPINAMEID*, ULONG, LPSPropTagArray*)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG_PTR*)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::Unadvise(ULONG_PTR)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::CompareEntryIDs(ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG, ULONG*)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::OpenEntry(ULONG, LPENTRYID, LPCIID, ULONG, ULONG*, LPUNKNOWN*)
{
    Record("store open entry");
    return MAPI_E_NOT_FOUND;
}
STDMETHODIMP FakeStore::SetReceiveFolder(LPTSTR, ULONG, ULONG, LPENTRYID)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::GetReceiveFolder(LPTSTR, ULONG, ULONG*, LPENTRYID*, LPTSTR*)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::GetReceiveFolderTable(ULONG, LPMAPITABLE*)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::StoreLogoff(ULONG*)
{
    Record("store logoff");
    return S_OK;
}
STDMETHODIMP FakeStore::AbortSubmit(ULONG, LPENTRYID, ULONG)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::GetOutgoingQueue(ULONG, LPMAPITABLE*)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::SetLockState(LPMESSAGE, ULONG)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::FinishedMsg(ULONG, ULONG, LPENTRYID)
{
    return MAPI_E_NO_SUPPORT;
}
STDMETHODIMP FakeStore::NotifyNewMail(LPNOTIFICATION)
{
    return MAPI_E_NO_SUPPORT;
}

class FakeProvider final : public ComObject<IMSProvider, &IID_IMSProvider>
{
public:
    STDMETHODIMP Shutdown(ULONG* lpulFlags) override
    {
        Record(*lpulFlags == 0 ? "shutdown" : "shutdown with flags");
        return S_OK;
    }

    STDMETHODIMP Logon(LPMAPISUP lpMAPISup, ULONG_PTR, LPTSTR lpszProfileName, ULONG cbEntryID, LPENTRYID lpEntryID,
                       ULONG ulFlags, LPCIID, ULONG* lpcbSpoolSecurity, LPBYTE* lppbSpoolSecurity,
                       LPMAPIERROR* lppMAPIError, LPMSLOGON* lppMSLogon, LPMDB* lppMDB) override
    {
        Record("logon");
        const BYTE* const bytes = reinterpret_cast<const BYTE*>(lpEntryID);
        g_state.logonEntryId.assign(bytes, bytes + cbEntryID);
        g_state.logonProfile = TextArgument(lpszProfileName, ulFlags);
        g_state.logonFlags = ulFlags;
        *lppMAPIError = Error(g_memory, ulFlags);
        HRESULT result = g_state.logonResult;
        if (!g_state.firstLogonResults.empty())
        {
            result = g_state.firstLogonResults.front();
            g_state.firstLogonResults.erase(g_state.firstLogonResults.begin());
        }
        if (g_state.inLogon)
            g_state.inLogon(*lpMAPISup);
        if (FAILED(result))
            return result;
        if (g_state.shareStore && g_state.store)
        {
            g_state.store->AddRef();
            *lppMDB = g_state.store;
            return S_OK;
        }
        g_state.support = lpMAPISup;
        for (MAPIUID& uid : g_state.uids)
            lpMAPISup->SetProviderUID(&uid, 0);
        if (lpcbSpoolSecurity && lppbSpoolSecurity)
        {
            *lpcbSpoolSecurity = 2;
            *lppbSpoolSecurity = static_cast<BYTE*>(g_memory.Allocate(2));
            (*lppbSpoolSecurity)[0] = 42;
        }
        const auto support = std::make_shared<ComPtr<IMAPISupport>>(g_state.addRefSupport ? lpMAPISup : nullptr);
        *lppMSLogon = g_state.giveLogon ? MakeObject<FakeLogon>(support).Detach() : nullptr;
        *lppMDB = g_state.giveStore ? MakeObject<FakeStore>(support).Detach() : nullptr;
        g_state.store = *lppMDB;
        return result;
    }

    STDMETHODIMP SpoolerLogon(LPMAPISUP, ULONG_PTR, LPTSTR, ULONG, LPENTRYID, ULONG, LPCIID, ULONG, LPBYTE,
                              LPMAPIERROR*, LPMSLOGON*, LPMDB*) override
    {
        Record("spooler logon");
        return MAPI_E_NO_SUPPORT;
    }

    STDMETHODIMP CompareStoreIDs(ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG, ULONG*) override
    {
        return MAPI_E_NO_SUPPORT;
    }
};
} // namespace

extern "C"
{
    Tests::FakeProviderState* GetFakeProviderState()
    {
        return &g_state;
    }

    HRESULT WINAPI ServiceEntry(HINSTANCE, LPMALLOC, LPMAPISUP lpMAPISup, ULONG_PTR, ULONG ulFlags, ULONG ulContext,
                                ULONG cValues, LPSPropValue lpProps, LPPROVIDERADMIN lpProviderAdmin,
                                LPMAPIERROR* lppMapiError)
    {
        Record("entry " + std::to_string(ulContext));
        g_state.entryValues = CopyProps(cValues, lpProps);
        g_state.entryFlags = ulFlags;
        g_state.entryHadAdmin = lpProviderAdmin != nullptr;
        g_state.entryHadSupport = lpMAPISup != nullptr;
        LPALLOCATEBUFFER allocateBuffer = nullptr;
        LPALLOCATEMORE allocateMore = nullptr;
        LPFREEBUFFER freeBuffer = nullptr;
        if (lpMAPISup && SUCCEEDED(lpMAPISup->GetMemAllocRoutines(&allocateBuffer, &allocateMore, &freeBuffer)))
            *lppMapiError = Error(MapiMemory(allocateBuffer, allocateMore, freeBuffer), ulFlags);
        if (g_state.inEntry)
            g_state.inEntry(lpMAPISup, lpProviderAdmin);
        return g_state.entryResult;
    }

    HRESULT __cdecl MSProviderInit(HINSTANCE, LPMALLOC, LPALLOCATEBUFFER lpAllocateBuffer,
                                   LPALLOCATEMORE lpAllocateMore, LPFREEBUFFER lpFreeBuffer, ULONG, ULONG,
                                   ULONG* lpulProviderVer, LPMSPROVIDER* lppMSProvider)
    {
        Record("init");
        g_memory = MapiMemory(lpAllocateBuffer, lpAllocateMore, lpFreeBuffer);
        *lpulProviderVer = g_state.version;
        if (SUCCEEDED(g_state.initResult))
            *lppMSProvider = MakeObject<FakeProvider>().Detach();
        return g_state.initResult;
    }
}
