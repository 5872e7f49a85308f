// The provider that a host's module gives MAPI, the logon that it makes, and the support object that the PST provider
// is given.
#pragma once

#include "hostkit/Host.h"
#include "hostkit/Log.h"
#include "nst/NstMapiSupport.h"
#include "nst/NstMsLogon.h"
#include "nst/NstMsProvider.h"
#include "nst/Olfi.h"
#include "support/MapiErrors.h"

#include <mutex>

namespace KivNstHostKit
{

/// MAPI's support object for the PST provider. The service's section is opened when it is asked for, and not held; the
/// status row bears the archive's name. Any thread.
class CArchiveSupport : public Quillon::Nst::CNstMapiSupport
{
public:
    /// `serviceUid` is the service's section, null for the provider's own.
    CArchiveSupport(const ATL::CComQIPtr<IMAPISupport>& support, StringW displayName, bool isWritable,
                    Binary serviceUid)
        : CNstMapiSupport(support, nullptr),
          m_displayName(std::move(displayName)),
          m_isWritable(isWritable),
          m_serviceUid(std::move(serviceUid))
    {
    }

    STDMETHODIMP OpenProfileSection(LPMAPIUID lpUid, ULONG ulFlags, LPPROFSECT* lppProfileObj) override
    {
        if (lpUid && std::memcmp(lpUid, &Quillon::Nst::globalProfileSectionUid, sizeof(MAPIUID)) == 0)
            lpUid = m_serviceUid.IsNull() ? nullptr : reinterpret_cast<MAPIUID*>(m_serviceUid.GetBuffer());
        return CNstMapiSupport::OpenProfileSection(lpUid, ulFlags, lppProfileObj);
    }

    STDMETHODIMP ModifyStatusRow(ULONG cValues, LPSPropValue lpColumnVals, ULONG ulFlags) override
    {
        return AtBoundary(L"KivNstHostKit::ModifyStatusRow",
                          [&]() -> HRESULT
                          {
                              if (!lpColumnVals)
                                  return CNstMapiSupport::ModifyStatusRow(cValues, lpColumnVals, ulFlags);
                              // The row's values are the PST provider's: a copy is changed.
                              std::vector<SPropValue> row(lpColumnVals, lpColumnVals + cValues);
                              StringW wide = m_displayName;
                              Quillon::StringA narrow(m_displayName);
                              for (SPropValue& value : row)
                                  if (value.ulPropTag == PR_DISPLAY_NAME_W && !m_displayName.IsEmpty())
                                      value.Value.lpszW = const_cast<wchar_t*>(wide.GetString());
                                  else if (value.ulPropTag == PR_DISPLAY_NAME_A && !m_displayName.IsEmpty())
                                      value.Value.lpszA = narrow.GetBuffer();
                                  else if (value.ulPropTag == PR_RESOURCE_METHODS && !m_isWritable)
                                      value.Value.l = 0; // there is no status object
                              return CNstMapiSupport::ModifyStatusRow(cValues, row.data(), ulFlags);
                          });
    }

private:
    StringW m_displayName;
    bool m_isWritable;
    Binary m_serviceUid;
};

/// Has the library open folders with the best access that there is, for as long as it lives: in one of them it makes
/// the archive's root. The flags are the process's, so one logon at a time holds them.
class WritableFolders
{
public:
    WritableFolders() : m_guard(Lock()), m_before(Quillon::Mapi::GetOpenMapiObjectFlags())
    {
        Quillon::Mapi::GetOpenMapiObjectFlags() |= ULONG{MAPI_BEST_ACCESS};
    }
    ~WritableFolders() { Quillon::Mapi::GetOpenMapiObjectFlags() = m_before; }
    WritableFolders(const WritableFolders&) = delete;
    WritableFolders& operator=(const WritableFolders&) = delete;

private:
    static std::mutex& Lock()
    {
        static std::mutex lock;
        return lock;
    }

    std::lock_guard<std::mutex> m_guard;
    ULONG m_before;
};

/// Opens entries through the archive's store, so that they come back read-only. The status object, by which the PST's
/// password and settings can be changed, is refused. Any thread.
class CArchiveLogon : public Quillon::Nst::CNstMsLogon
{
public:
    CArchiveLogon(const ArchivePointer& archive, IMSLogon* logon, IMsgStore* store)
        : CNstMsLogon(logon, store),
          m_archive(archive)
    {
    }

    STDMETHODIMP OpenStatusEntry(LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType, LPVOID* lppEntry) override
    {
        return m_archive->IsWritable() ? CNstMsLogon::OpenStatusEntry(lpInterface, ulFlags, lpulObjType, lppEntry)
                                       : RefuseCall(L"IMSLogon", L"OpenStatusEntry", L"archive store");
    }

private:
    const ArchivePointer m_archive;
};

/// Logs on as the library's provider does, and besides: reads the host's settings for this store, opens the log, has
/// the archive's root made at the first logon whatever access MAPI asked for, gives the spooler the archive's objects,
/// too, and writes the archive's name where MAPI's table of stores has it. Several logons, on several threads, are no
/// concern of each other. Made by MakeProvider.
class CArchiveProvider : public Quillon::Nst::CNstMsProvider
{
public:
    /// Takes a reference on `provider`, the PST's.
    CArchiveProvider(HostPointer host, IMSProvider* provider)
        : CNstMsProvider(provider),
          m_host(std::move(host)),
          m_pst(provider)
    {
    }

    STDMETHODIMP Logon(LPMAPISUP lpMAPISup, ULONG_PTR ulUIParam, LPTSTR lpszProfileName, ULONG cbEntryID,
                       LPENTRYID lpEntryID, ULONG ulFlags, LPCIID lpInterface, ULONG* lpcbSpoolSecurity,
                       LPBYTE* lppbSpoolSecurity, LPMAPIERROR* lppMAPIError, LPMSLOGON* lppMSLogon,
                       LPMDB* lppMDB) override
    {
        constexpr auto function = L"KivNstHostKit::CArchiveProvider::Logon";
        if (!lppMDB)
            return MAPI_E_INVALID_PARAMETER;
        const ATL::CComQIPtr<IMAPISupport> mapi(lpMAPISup);
        ArchiveSettings settings;
        const ATL::CComQIPtr<IMAPISupport> support = WrapSupport(mapi, settings);
        // In this order, so that the logon is given back before its store.
        ATL::CComQIPtr<IMsgStore> pstStore;
        ATL::CComQIPtr<IMSLogon> pstLogon;
        const auto logOn = [&](ULONG flags)
        {
            return Quillon::CheckComResult(m_pst.p->Logon(support, ulUIParam, lpszProfileName, cbEntryID, lpEntryID,
                                                          (flags & ~MDB_OST_LOGON_ANSI) | MDB_OST_LOGON_UNICODE,
                                                          lpInterface, lpcbSpoolSecurity, lppbSpoolSecurity,
                                                          lppMAPIError, lppMSLogon ? &pstLogon : nullptr, &pstStore),
                                           L"IMSProvider::Logon", S_OK);
        };
        // The archive is prepared in the first logon, so that the PST has to be open for writing even if the client's
        // access is not. Where it cannot be (a medium that cannot be written), it is opened as it can.
        bool isPrepared = false;
        HRESULT hr = logOn(ulFlags | MDB_WRITE);
        if (hr == MAPI_E_NO_ACCESS)
        {
            if (lppMAPIError)
                Quillon::Mapi::FreeMapiBuffer(std::exchange(*lppMAPIError, nullptr));
            isPrepared = true;
            hr = logOn(ulFlags & ~ULONG{MDB_WRITE});
        }
        if (FAILED(hr))
            return hr;
        if (!pstStore)
            Quillon::Throw(Quillon::CComError(E_INVALIDARG), function);
        if (!isPrepared || Quillon::Nst::GetNstSubtreeEntryId(pstStore).IsNull())
        {
            Quillon::Nst::SetOLFIInOST(pstStore);
            const WritableFolders writable;
            ConfigureNstSubtreeEntryId(pstStore);
        }
        const StringW displayName = settings.displayName;
        const auto archive = std::make_shared<const CArchive>(std::move(settings), pstStore, support);
        ATL::CComQIPtr<IMsgStore> store = Quillon::com_wrap(m_host->CreateStore(archive));
        ATL::CComQIPtr<IMSLogon> logon;
        if (pstLogon)
        {
            logon = MakeLogon(archive, pstLogon, store);
            // Not in a further logon to an open store: that one leaves the profile alone.
            WriteDisplayName(mapi, displayName);
        }
        *lppMDB = store.Detach();
        if (lppMSLogon)
            *lppMSLogon = logon.Detach();
        return hr;
    }

    STDMETHODIMP SpoolerLogon(LPMAPISUP lpMAPISup, ULONG_PTR ulUIParam, LPTSTR lpszProfileName, ULONG cbEntryID,
                              LPENTRYID lpEntryID, ULONG ulFlags, LPCIID lpInterface, ULONG cbSpoolSecurity,
                              LPBYTE lpbSpoolSecurity, LPMAPIERROR* lppMAPIError, LPMSLOGON* lppMSLogon,
                              LPMDB* lppMDB) override
    {
        if (!lppMDB)
            return MAPI_E_INVALID_PARAMETER;
        ArchiveSettings settings;
        const ATL::CComQIPtr<IMAPISupport> support = WrapSupport(ATL::CComQIPtr<IMAPISupport>(lpMAPISup), settings);
        ATL::CComQIPtr<IMsgStore> pstStore;
        ATL::CComQIPtr<IMSLogon> pstLogon;
        const HRESULT hr =
            Quillon::CheckComResult(m_pst.p->SpoolerLogon(support, ulUIParam, lpszProfileName, cbEntryID, lpEntryID,
                                                          ulFlags, lpInterface, cbSpoolSecurity, lpbSpoolSecurity,
                                                          lppMAPIError, lppMSLogon ? &pstLogon : nullptr, &pstStore),
                                    L"IMSProvider::SpoolerLogon", S_OK);
        if (FAILED(hr))
            return hr;
        ATL::CComQIPtr<IMsgStore> store;
        ATL::CComQIPtr<IMSLogon> logon;
        if (pstStore)
        {
            const auto archive = std::make_shared<const CArchive>(std::move(settings), pstStore, support);
            store = Quillon::com_wrap(m_host->CreateStore(archive));
            if (pstLogon)
                logon = MakeLogon(archive, pstLogon, store);
        }
        *lppMDB = store.Detach();
        if (lppMSLogon)
            *lppMSLogon = logon.Detach();
        return hr;
    }

private:
    static ATL::CComQIPtr<IMSLogon> MakeLogon(const ArchivePointer& archive, const ATL::CComQIPtr<IMSLogon>& logon,
                                              const ATL::CComQIPtr<IMsgStore>& store)
    {
        return Quillon::com_wrap<IMSLogon>(new CLogonGuard<CArchiveLogon>(archive, logon.p, store.p));
    }

    /// Makes the PST's support object and gives the settings of the store that is logged on to. The profile's sections
    /// are closed again when it returns.
    ATL::CComQIPtr<IMAPISupport> WrapSupport(const ATL::CComQIPtr<IMAPISupport>& support,
                                             ArchiveSettings& settings) const
    {
        Binary serviceUid;
        {
            const ATL::CComQIPtr<IProfSect> section = Quillon::Nst::GetGlobalProfileSection(support);
            settings = m_host->GetSettings(section);
            serviceUid = Binary(Quillon::Mapi::TryQueryItemPropertyValue(section, PR_SERVICE_UID));
            if (serviceUid.GetSize() != sizeof(MAPIUID))
                serviceUid = Binary();
        }
        CHostLog::Get().Open(settings.log);
        return Quillon::com_wrap<IMAPISupport>(
            new CArchiveSupport(support, settings.displayName, settings.isWritable, std::move(serviceUid)));
    }

    /// MAPI's table of stores shows what the provider's section holds, where the PST provider may have put its own
    /// name. Names are worth less than the logon: a failure is logged.
    static void WriteDisplayName(const ATL::CComQIPtr<IMAPISupport>& support, const StringW& name) noexcept
    {
        if (name.IsEmpty())
            return;
        constexpr auto function = L"KivNstHostKit::CArchiveProvider::WriteDisplayName";
        AtBoundary(function,
                   [&]
                   {
                       ATL::CComQIPtr<IProfSect> section;
                       Quillon::CheckMapiCall(support.p->OpenProfileSection(nullptr, MAPI_MODIFY, &section), support.p,
                                              function);
                       section = Quillon::com_wrap(section);
                       const Quillon::Mapi::PropValuePointer known =
                           Quillon::Mapi::TryQueryItemProperty(section, PR_DISPLAY_NAME_W);
                       if (known && known->ulPropTag == PR_DISPLAY_NAME_W && name == known->Value.lpszW)
                           return;
                       Quillon::Mapi::SPropValueVector values;
                       values.AddStringW(PR_DISPLAY_NAME_W, name);
                       values.AddBinary(PR_MDB_PROVIDER, Quillon::Nst::providerUid.ab,
                                        sizeof(Quillon::Nst::providerUid));
                       Quillon::CheckProfileCall(section.p->SetProps(values.GetCount(), values.GetValues(), nullptr),
                                                 section.p, function);
                   });
    }

    const HostPointer m_host;
    const ATL::CComQIPtr<IMSProvider> m_pst;
};

/// The provider that MAPI is given over the PST's, which must not be null.
inline ATL::CComQIPtr<IMSProvider> MakeProvider(const HostPointer& host, const ATL::CComQIPtr<IMSProvider>& provider)
{
    return Quillon::com_wrap<IMSProvider>(new CProviderGuard<CArchiveProvider>(host, Quillon::com_wrap(provider).p));
}

} // namespace KivNstHostKit
