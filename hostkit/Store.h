// The store of an archive.
#pragma once

#include "hostkit/Folder.h"
#include "nst/NstMsgStore.h"

namespace KivNstHostKit
{

/// The library's store without its process-wide switches: whether it can be changed is the archive's, and it does not
/// unwrap itself.
class COwnSwitchStore : public Quillon::Nst::CNstMsgStore
{
public:
    STDMETHODIMP QueryInterface(REFIID riid, LPVOID* ppvObj) override
    {
        if (riid == Quillon::Nst::IID_UnwrappedMsgStore && m_ownArchive->GetSettings().givesProviderObjects)
            return m_ownArchive->GetPstStore().p->QueryInterface(__uuidof(IMsgStore), ppvObj);
        return Quillon::AnswerWithSelf(static_cast<IMsgStore*>(this), riid, ppvObj, __uuidof(IMsgStore),
                                       __uuidof(IMAPIProp), iidUnknown);
    }
    STDMETHODIMP OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                              LPUNKNOWN* lppUnk) override
    {
        return PASS_THROUGH(m_ownArchive->GetPstStore(), IMsgStore::OpenProperty, MAPI_E_NOT_FOUND, ulPropTag, lpiid,
                            ulInterfaceOptions, ulFlags, lppUnk);
    }
    STDMETHODIMP SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override
    {
        return PASS_THROUGH(m_ownArchive->GetPstStore(), IMsgStore::SetProps, S_OK, cValues, lpPropArray, lppProblems);
    }
    STDMETHODIMP DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) override
    {
        return PASS_THROUGH(m_ownArchive->GetPstStore(), IMsgStore::DeleteProps, S_OK, lpPropTagArray, lppProblems);
    }
    STDMETHODIMP SetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID) override
    {
        return PASS_THROUGH(m_ownArchive->GetPstStore(), IMsgStore::SetReceiveFolder, S_OK, lpszMessageClass, ulFlags,
                            cbEntryID, lpEntryID);
    }

protected:
    explicit COwnSwitchStore(ArchivePointer archive)
        : CNstMsgStore(archive->GetPstStore(), archive->GetSupport()),
          m_ownArchive(std::move(archive))
    {
    }

    void OverrideStoreProperties(SPropValue* props, ULONG count) override { Override(props, count); }
    void OverrideModifiableStoreProperties(SPropValue* props, ULONG count) override { Override(props, count); }

private:
    void Override(SPropValue* props, ULONG count)
    {
        if (m_ownArchive->IsWritable())
            CNstMsgStore::OverrideModifiableStoreProperties(props, count);
        else
            CNstMsgStore::OverrideStoreProperties(props, count);
    }

    const ArchivePointer m_ownArchive;
};

/// Refuses to be changed but for the properties that the host leaves writable, and opens everything read-only. Made by
/// MakeStore. Any thread.
class CArchiveStore : public CReadOnlyProp<COwnSwitchStore, IMsgStore>
{
public:
    explicit CArchiveStore(const ArchivePointer& archive) : CReadOnlyProp(archive, archive->GetPstStore().p, archive) {}

    STDMETHODIMP SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override
    {
        // Mail clients try this on every store that they open; a line each time would only hide the others.
        if (!m_archive->IsWritable() && cValues == 1 && lpPropArray && lpPropArray->ulPropTag == PR_IPM_SUBTREE_ENTRYID)
            return MAPI_E_NO_ACCESS;
        return CReadOnlyProp::SetProps(cValues, lpPropArray, lppProblems);
    }

    STDMETHODIMP OpenEntry(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, ULONG ulFlags, ULONG* lpulObjType,
                           LPUNKNOWN* lppUnk) override
    {
        if (!lppUnk)
            return COwnSwitchStore::OpenEntry(cbEntryID, lpEntryID, lpInterface, m_archive->OpenFlags(ulFlags),
                                              lpulObjType, lppUnk);
        ULONG type = 0;
        ATL::CComPtr<IUnknown> object;
        const HRESULT hr = OpenPstEntry(cbEntryID, lpEntryID, lpInterface, m_archive->OpenFlags(ulFlags), type, object);
        if (FAILED(hr))
            return hr;
        ATL::CComPtr<IUnknown> wrapped;
        switch (type)
        {
        case MAPI_FOLDER:
            if (ulFlags != m_archive->OpenFlags(ulFlags))
                OpenForWriting(cbEntryID, lpEntryID, lpInterface, ulFlags, object);
            wrapped = CreateFolder(ATL::CComQIPtr<IMAPIFolder>(object.p)).p;
            break;
        case MAPI_MESSAGE:
            wrapped = CreateMessage(ATL::CComQIPtr<IMessage>(object.p)).p;
            break;
        case MAPI_STORE:
        {
            // By its own entry ID: the archive, and not the PST behind it.
            const HRESULT found =
                QueryInterface(lpInterface ? *lpInterface : __uuidof(IMsgStore), reinterpret_cast<void**>(&wrapped));
            if (FAILED(found))
                return MAPI_E_INTERFACE_NOT_SUPPORTED;
            break;
        }
        default:
            Quillon::LogFormattedEntry(Quillon::LogId::Error, L"IMsgStore::OpenEntry gave an object of type %lu", type);
            return MAPI_E_INTERFACE_NOT_SUPPORTED;
        }
        *lppUnk = wrapped.Detach();
        if (lpulObjType)
            *lpulObjType = type;
        return hr;
    }

    STDMETHODIMP SetReceiveFolder(LPTSTR lpszMessageClass, ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID) override
    {
        return m_archive->IsWritable()
                   ? COwnSwitchStore::SetReceiveFolder(lpszMessageClass, ulFlags, cbEntryID, lpEntryID)
                   : Refuse(L"SetReceiveFolder");
    }

    STDMETHODIMP AbortSubmit(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulFlags) override
    {
        return m_archive->IsWritable() ? COwnSwitchStore::AbortSubmit(cbEntryID, lpEntryID, ulFlags)
                                       : Refuse(L"AbortSubmit");
    }

    STDMETHODIMP SetLockState(LPMESSAGE lpMessage, ULONG ulLockState) override
    {
        return m_archive->IsWritable() ? COwnSwitchStore::SetLockState(lpMessage, ulLockState)
                                       : Refuse(L"SetLockState");
    }

    STDMETHODIMP FinishedMsg(ULONG ulFlags, ULONG cbEntryID, LPENTRYID lpEntryID) override
    {
        return m_archive->IsWritable() ? COwnSwitchStore::FinishedMsg(ulFlags, cbEntryID, lpEntryID)
                                       : Refuse(L"FinishedMsg");
    }

    STDMETHODIMP NotifyNewMail(LPNOTIFICATION lpNotification) override
    {
        return m_archive->IsWritable() ? COwnSwitchStore::NotifyNewMail(lpNotification) : Refuse(L"NotifyNewMail");
    }

protected:
    const std::vector<ULONG>& GetWritableTags() const noexcept override
    {
        return m_archive->GetSettings().writableStoreTags;
    }

    ATL::CComQIPtr<IMAPIFolder> CreateFolder(const ATL::CComQIPtr<IMAPIFolder>& folder) override
    {
        return MakeFolder(m_archive, folder, ATL::CComQIPtr<IMsgStore>(static_cast<IMsgStore*>(this)));
    }
    ATL::CComQIPtr<IMessage> CreateMessage(const ATL::CComQIPtr<IMessage>& message) override
    {
        return MakeMessage(m_archive, message);
    }

private:
    HRESULT OpenPstEntry(ULONG size, LPENTRYID entryId, LPCIID iid, ULONG flags, ULONG& type,
                         ATL::CComPtr<IUnknown>& object) const noexcept
    {
        return Quillon::CheckPassThrough(m_wrapped.p->OpenEntry(size, entryId, iid, flags, &type, &object), m_wrapped.p,
                                         L"IMsgStore::OpenEntry", S_OK);
    }

    /// Opens a folder once more as the client wanted it, where the archive lets it write something there: properties
    /// that the host leaves writable, or search folders. A store that does not give it leaves the one that can be read.
    void OpenForWriting(ULONG size, LPENTRYID entryId, LPCIID iid, ULONG flags, ATL::CComPtr<IUnknown>& object) const
    {
        if (m_archive->GetSettings().writableFolderTags.empty() && !IsForSearching(size, entryId, object))
            return;
        ULONG type = 0;
        ATL::CComPtr<IUnknown> writable;
        if (SUCCEEDED(m_wrapped.p->OpenEntry(size, entryId, iid, flags, &type, &writable)) && type == MAPI_FOLDER &&
            writable)
            object = writable;
    }

    bool IsForSearching(ULONG size, LPENTRYID entryId, const ATL::CComPtr<IUnknown>& object) const
    {
        const ATL::CComQIPtr<IMAPIFolder> folder(object.p);
        return CArchiveFolder::ReadFolderType(folder) == FOLDER_SEARCH ||
               m_archive->IsSameEntry(entryId ? Binary(reinterpret_cast<const BYTE*>(entryId), size) : Binary(),
                                      m_archive->GetFinderEntryId());
    }
};

/// The store that MAPI is given.
inline ATL::CComQIPtr<IMsgStore> MakeStore(const ArchivePointer& archive)
{
    return Quillon::com_wrap<IMsgStore>(new CStoreGuard<CArchiveStore>(archive));
}

} // namespace KivNstHostKit
