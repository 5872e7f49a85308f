// The exported functions of the MAPI module.
#include "testbed/mapi/Olmapi.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"
#include "testbed/common/RegistryKey.h"
#include "testbed/mapi/Blocks.h"
#include "testbed/mapi/Dispatcher.h"
#include "testbed/mapi/Subsystem.h"
#include "testbed/mapi/SupportObject.h"
#include "testbed/mapi/TableQuery.h"

#include <cstring>
#include <string>

namespace
{
using namespace Testbed;

Blocks& AllBlocks()
{
    // Never destroyed: other modules free their last blocks while the process ends.
    static auto* const blocks = new Blocks;
    return *blocks;
}

SCODE Allocate(ULONG size, void* parent, void** block) noexcept
{
    if (!block)
        return MAPI_E_INVALID_PARAMETER;
    *block = AllBlocks().Allocate(size, parent);
    return *block ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

MapiMemory OwnMemory() noexcept;

// The file of an installed component: the registered mail client names its own component and its file.
std::optional<std::string> FindComponent(const std::wstring& component)
{
    const RegistryKey mail = RegistryKey::Open(HKEY_LOCAL_MACHINE, L"Software\\Clients\\Mail");
    const auto name = mail ? mail.ReadText(nullptr) : std::nullopt;
    const RegistryKey client = name ? RegistryKey::Open(mail.Get(), *name) : RegistryKey();
    const auto id = client ? client.ReadText(L"MSIComponentID") : std::nullopt;
    const auto path =
        id && _wcsicmp(id->c_str(), component.c_str()) == 0 ? client.ReadText(L"DllPathEx") : std::nullopt;
    return path ? std::optional(AnsiFromWide(*path)) : std::nullopt;
}
} // namespace

extern "C"
{
    SCODE WINAPI MAPIAllocateBuffer(ULONG cbSize, LPVOID* lppBuffer)
    {
        return Allocate(cbSize, nullptr, lppBuffer);
    }

    SCODE WINAPI MAPIAllocateMore(ULONG cbSize, LPVOID lpObject, LPVOID* lppBuffer)
    {
        if (!lpObject)
            return MAPI_E_INVALID_PARAMETER;
        return Allocate(cbSize, lpObject, lppBuffer);
    }

    ULONG WINAPI MAPIFreeBuffer(LPVOID lpBuffer)
    {
        if (lpBuffer)
            AllBlocks().Free(lpBuffer);
        return S_OK;
    }

    HRESULT WINAPI MAPIInitialize(LPVOID lpMapiInit)
    {
        return Subsystem::Initialize(static_cast<const MAPIINIT_0*>(lpMapiInit));
    }

    void WINAPI MAPIUninitialize()
    {
        Subsystem::Uninitialize();
    }

    HRESULT WINAPI MAPILogonEx(ULONG_PTR, LPTSTR lpszProfileName, LPTSTR lpszPassword, ULONG ulFlags,
                               LPMAPISESSION* lppSession)
    {
        return Subsystem::LogonEx(lpszProfileName, lpszPassword, ulFlags, OwnMemory(), lppSession);
    }

    HRESULT WINAPI MAPIAdminProfiles(ULONG ulFlags, LPPROFADMIN* lppProfAdmin)
    {
        return Subsystem::AdminProfiles(ulFlags, OwnMemory(), lppProfAdmin);
    }

    LPMALLOC WINAPI MAPIGetDefaultMalloc()
    {
        IMalloc* allocator = nullptr;
        return SUCCEEDED(CoGetMalloc(1, &allocator)) ? allocator : nullptr;
    }

    SCODE WINAPI ScInitMapiUtil(ULONG ulFlags)
    {
        // The helpers that it prepares need nothing to be prepared.
        return ulFlags ? MAPI_E_UNKNOWN_FLAGS : S_OK;
    }

    void WINAPI DeinitMapiUtil() {}

    HRESULT WINAPI HrQueryAllRows(LPMAPITABLE lpTable, LPSPropTagArray lpPropTags, LPSRestriction lpRestriction,
                                  LPSSortOrderSet lpSortOrderSet, LONG crowsMax, LPSRowSet* lppRows)
    {
        return QueryAllRows(OwnMemory(), lpTable, lpPropTags, lpRestriction, lpSortOrderSet, crowsMax, lppRows);
    }

    HRESULT WINAPI HrThisThreadAdviseSink(LPMAPIADVISESINK lpAdviseSink, LPMAPIADVISESINK* lppAdviseSink)
    {
        if (!lpAdviseSink || !lppAdviseSink)
            return MAPI_E_INVALID_PARAMETER;
        LastError lastError(L"MAPI");
        return Guarded(lastError, [&] { *lppAdviseSink = MakeThreadSink(lpAdviseSink).Detach(); });
    }

    HRESULT WINAPI WrapStoreEntryID(ULONG ulFlags, LPSTR lpszDLLName, ULONG cbOrigEntry, LPENTRYID lpOrigEntry,
                                    ULONG* lpcbWrappedEntry, LPENTRYID* lppWrappedEntry)
    {
        if (!lpszDLLName)
            return MAPI_E_INVALID_PARAMETER;
        if (ulFlags & ~MAPI_UNICODE)
            return MAPI_E_UNKNOWN_FLAGS;
        if (ulFlags & MAPI_UNICODE)
            return MAPI_E_BAD_CHARWIDTH;
        LastError lastError(L"MAPI");
        return Guarded(lastError,
                       [&]
                       {
                           GiveWrappedEntryId(OwnMemory(), lpszDLLName, cbOrigEntry, lpOrigEntry, lpcbWrappedEntry,
                                              lppWrappedEntry);
                       });
    }

    BOOL WINAPI FGetComponentPath(LPSTR szComponent, LPSTR, LPSTR szDllPath, DWORD cchBufferSize, BOOL)
    {
        if (!szComponent || !szDllPath || cchBufferSize == 0)
            return FALSE;
        szDllPath[0] = '\0';
        try
        {
            const auto path = FindComponent(WideFromAnsi(szComponent));
            if (!path || path->size() >= cchBufferSize)
                return FALSE;
            std::memcpy(szDllPath, path->c_str(), path->size() + 1);
            return TRUE;
        }
        catch (const std::exception&)
        {
            return FALSE;
        }
    }

    BOOL WINAPI OlmapiGetStatistics(OlmapiStatistics* lpStatistics)
    {
        if (!lpStatistics || lpStatistics->cbSize != sizeof(OlmapiStatistics))
            return FALSE;
        AllBlocks().Statistics(*lpStatistics);
        return TRUE;
    }

    ULONG WINAPI OlmapiEnumerateBlocks(ULONGLONG ullFirstSerial, OLMAPI_BLOCK_CALLBACK lpfnCallback, LPVOID lpvContext)
    {
        return lpfnCallback ? AllBlocks().Enumerate(ullFirstSerial, lpfnCallback, lpvContext) : 0;
    }

    void WINAPI OlmapiFailAllocation(ULONG ulNth)
    {
        AllBlocks().FailNth(ulNth);
    }

    void WINAPI OlmapiCheckBlocks()
    {
        AllBlocks().CheckAll();
    }

    void WINAPI OlmapiRequireNoBlocks(ULONGLONG ullFirstSerial)
    {
        AllBlocks().RequireNone(ullFirstSerial);
    }
}

namespace
{
MapiMemory OwnMemory() noexcept
{
    return {MAPIAllocateBuffer, MAPIAllocateMore, MAPIFreeBuffer};
}
} // namespace
