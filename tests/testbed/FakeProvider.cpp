// FakeProvider.dll.
#include "tests/testbed/FakeProvider.h"

#include "common/Boundary.h"
#include "common/ComObject.h"
#include "common/Text.h"
#include "testbed/common/PropertyBag.h"

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

class FakeLogon final : public ComObject<IMSLogon, &IID_IMSLogon>
{
public:
    STDMETHODIMP GetLastError(HRESULT, ULONG, LPMAPIERROR*) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP Logoff(ULONG*) override
    {
        Record("logoff");
        return S_OK;
    }
    STDMETHODIMP OpenEntry(ULONG, LPENTRYID, LPCIID, ULONG, ULONG*, LPUNKNOWN*) override
    {
        Record("open entry");
        return MAPI_E_NOT_FOUND;
    }
    STDMETHODIMP CompareEntryIDs(ULONG, LPENTRYID, ULONG, LPENTRYID, ULONG, ULONG* lpulResult) override
    {
        Record("compare");
        *lpulResult = TRUE;
        return S_OK;
    }
    STDMETHODIMP Advise(ULONG, LPENTRYID, ULONG, LPMAPIADVISESINK, ULONG*) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP Unadvise(ULONG) override { return MAPI_E_NO_SUPPORT; }
    STDMETHODIMP OpenStatusEntry(LPCIID, ULONG, ULONG*, LPVOID*) override { return MAPI_E_NO_SUPPORT; }
};

class FakeStore final : public ComObject<IMsgStore, &IID_IMsgStore, &IID_IMAPIProp>
{
public:
    MAPI_IMAPIPROP_METHODS(override)
    MAPI_IMSGSTORE_METHODS(override)
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
    STDMETHODIMP Shutdown(ULONG*) override
    {
        Record("shutdown");
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
        g_state.support = ComPtr<IMAPISupport>(lpMAPISup);
        *lppMAPIError = Error(g_memory, ulFlags);
        if (FAILED(g_state.logonResult))
            return g_state.logonResult;
        *lpcbSpoolSecurity = 2;
        *lppbSpoolSecurity = static_cast<BYTE*>(g_memory.Allocate(2));
        (*lppbSpoolSecurity)[0] = 42;
        *lppMSLogon = g_state.giveLogon ? MakeObject<FakeLogon>().Detach() : nullptr;
        *lppMDB = g_state.giveStore ? MakeObject<FakeStore>().Detach() : nullptr;
        return g_state.logonResult;
    }

    STDMETHODIMP SpoolerLogon(LPMAPISUP, ULONG_PTR, LPTSTR, ULONG, LPENTRYID, ULONG, LPCIID, ULONG cbSpoolSecurity,
                              LPBYTE lpbSpoolSecurity, LPMAPIERROR*, LPMSLOGON* lppMSLogon, LPMDB* lppMDB) override
    {
        Record("spooler logon");
        g_state.spoolerSecurity.assign(lpbSpoolSecurity, lpbSpoolSecurity + cbSpoolSecurity);
        *lppMSLogon = MakeObject<FakeLogon>().Detach();
        *lppMDB = MakeObject<FakeStore>().Detach();
        return S_OK;
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

    HRESULT WINAPI ServiceEntry(HINSTANCE, LPMALLOC, LPMAPISUP lpMAPISup, ULONG, ULONG ulFlags, ULONG ulContext,
                                ULONG cValues, LPSPropValue lpProps, LPPROVIDERADMIN lpProviderAdmin,
                                LPMAPIERROR* lppMapiError)
    {
        Record("entry " + std::to_string(ulContext));
        g_state.entryValues = CopyProps(cValues, lpProps);
        g_state.entryHadAdmin = lpProviderAdmin != nullptr;
        g_state.entryHadSupport = lpMAPISup != nullptr;
        LPALLOCATEBUFFER allocateBuffer = nullptr;
        LPALLOCATEMORE allocateMore = nullptr;
        LPFREEBUFFER freeBuffer = nullptr;
        if (lpMAPISup && SUCCEEDED(lpMAPISup->GetMemAllocRoutines(&allocateBuffer, &allocateMore, &freeBuffer)))
            *lppMapiError = Error(MapiMemory(allocateBuffer, allocateMore, freeBuffer), ulFlags);
        return g_state.entryResult;
    }

    HRESULT __cdecl MSProviderInit(HINSTANCE, LPMALLOC, LPALLOCATEBUFFER lpAllocateBuffer,
                                   LPALLOCATEMORE lpAllocateMore, LPFREEBUFFER lpFreeBuffer, ULONG, ULONG ulMAPIVer,
                                   ULONG* lpulProviderVer, LPMSPROVIDER* lppMSProvider)
    {
        Record("init");
        g_memory = MapiMemory(lpAllocateBuffer, lpAllocateMore, lpFreeBuffer);
        *lpulProviderVer = ulMAPIVer;
        if (SUCCEEDED(g_state.initResult))
            *lppMSProvider = MakeObject<FakeProvider>().Detach();
        return g_state.initResult;
    }
}
