// A folder of an archive.
#pragma once

#include "hostkit/Message.h"
#include "hostkit/Table.h"
#include "nst/NstMapiFolder.h"

namespace KivNstHostKit
{

ATL::CComQIPtr<IMAPIFolder> MakeFolder(const ArchivePointer& archive, const ATL::CComQIPtr<IMAPIFolder>& folder,
                                       const ATL::CComQIPtr<IMsgStore>& store);

/// Refuses to be changed, and what it holds with it. Two things are let through: search folders may be made in the
/// folder that the store's PR_FINDER_ENTRYID names, deleted there, and told what to look for, since they hold nothing
/// of the archive's own; and the folder properties that the host leaves writable. Made by MakeFolder. Any thread.
class CArchiveFolder : public CReadOnlyProp<Quillon::Nst::CNstMapiFolder, IMAPIFolder>
{
public:
    /// Takes references on `folder`, the PST's, and on `store`, the archive's, through which entries are opened.
    CArchiveFolder(ArchivePointer archive, IMAPIFolder* folder, IMsgStore* store)
        : CArchiveFolder(archive, folder, store, archive->GetSupport().p)
    {
    }

    STDMETHODIMP QueryInterface(REFIID riid, LPVOID* ppvObj) override
    {
        if (riid == Quillon::Nst::IID_UnwrappedMapiFolder && !m_archive->GetSettings().givesProviderObjects)
            return Quillon::AnswerWithSelf(this, riid, ppvObj);
        return CReadOnlyProp::QueryInterface(riid, ppvObj);
    }

    STDMETHODIMP GetContentsTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        return GetTable(&IMAPIFolder::GetContentsTable, L"IMAPIFolder::GetContentsTable", MAPI_MESSAGE, ulFlags,
                        lppTable);
    }

    STDMETHODIMP GetHierarchyTable(ULONG ulFlags, LPMAPITABLE* lppTable) override
    {
        return GetTable(&IMAPIFolder::GetHierarchyTable, L"IMAPIFolder::GetHierarchyTable", MAPI_FOLDER, ulFlags,
                        lppTable);
    }

    STDMETHODIMP SetSearchCriteria(LPSRestriction lpRestriction, LPENTRYLIST lpContainerList,
                                   ULONG ulSearchFlags) override
    {
        if (!m_archive->IsWritable() && !IsClientsOwn())
            return RefuseNaming(L"SetSearchCriteria");
        return CNstMapiFolder::SetSearchCriteria(lpRestriction, lpContainerList, ulSearchFlags);
    }

    STDMETHODIMP CreateMessage(LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage) override
    {
        if (!m_archive->IsWritable())
            return RefuseNaming(L"CreateMessage");
        ATL::CComQIPtr<IMessage> message;
        const HRESULT hr =
            Quillon::CheckPassThrough(m_wrapped.p->CreateMessage(lpInterface, ulFlags, lppMessage ? &message : nullptr),
                                      m_wrapped.p, L"IMAPIFolder::CreateMessage", S_OK);
        if (SUCCEEDED(hr) && lppMessage)
            *lppMessage = MakeMessage(m_archive, message).Detach();
        return hr;
    }

    STDMETHODIMP CopyMessages(LPENTRYLIST lpMsgList, LPCIID lpInterface, LPVOID lpDestFolder, ULONG_PTR ulUIParam,
                              LPMAPIPROGRESS lpProgress, ULONG ulFlags) override
    {
        if (m_archive->IsWritable())
            return CNstMapiFolder::CopyMessages(lpMsgList, lpInterface, lpDestFolder, ulUIParam, lpProgress, ulFlags);
        if ((ulFlags & MESSAGE_MOVE) || IsReadOnlyObject(lpDestFolder))
            return RefuseNaming(L"CopyMessages");
        if (ulFlags & MAPI_DECLINE_OK)
            return MAPI_E_DECLINE_COPY;
        return PASS_THROUGH(m_archive->GetSupport(), IMAPISupport::CopyMessages, S_OK, &__uuidof(IMAPIFolder), Self(),
                            lpMsgList, lpInterface, lpDestFolder, ulUIParam, lpProgress, ulFlags);
    }

    STDMETHODIMP DeleteMessages(LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                ULONG ulFlags) override
    {
        // Of a search folder, too: it would delete the archive's own messages.
        return m_archive->IsWritable() ? CNstMapiFolder::DeleteMessages(lpMsgList, ulUIParam, lpProgress, ulFlags)
                                       : RefuseNaming(L"DeleteMessages");
    }

    STDMETHODIMP CreateFolder(ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment, LPCIID lpInterface,
                              ULONG ulFlags, LPMAPIFOLDER* lppFolder) override
    {
        if (!m_archive->IsWritable() && !(ulFolderType == FOLDER_SEARCH && IsFinder()))
            return RefuseNaming(L"CreateFolder");
        ATL::CComQIPtr<IMAPIFolder> folder;
        const HRESULT hr =
            Quillon::CheckPassThrough(m_wrapped.p->CreateFolder(ulFolderType, lpszFolderName, lpszFolderComment,
                                                                lpInterface, ulFlags, lppFolder ? &folder : nullptr),
                                      m_wrapped.p, L"IMAPIFolder::CreateFolder", S_OK);
        if (SUCCEEDED(hr) && lppFolder)
            *lppFolder = MakeFolder(m_archive, folder, m_store).Detach();
        return hr;
    }

    STDMETHODIMP CopyFolder(ULONG cbEntryID, LPENTRYID lpEntryID, LPCIID lpInterface, LPVOID lpDestFolder,
                            LPTSTR lpszNewFolderName, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                            ULONG ulFlags) override
    {
        if (m_archive->IsWritable())
        {
            return PASS_THROUGH(m_wrapped, IMAPIFolder::CopyFolder, MAPI_E_DECLINE_COPY, cbEntryID, lpEntryID,
                                lpInterface, lpDestFolder, lpszNewFolderName, ulUIParam, lpProgress, ulFlags);
        }
        if ((ulFlags & FOLDER_MOVE) || IsReadOnlyObject(lpDestFolder))
            return RefuseNaming(L"CopyFolder");
        if (ulFlags & MAPI_DECLINE_OK)
            return MAPI_E_DECLINE_COPY;
        return PASS_THROUGH(m_archive->GetSupport(), IMAPISupport::CopyFolder, S_OK, &__uuidof(IMAPIFolder), Self(),
                            cbEntryID, lpEntryID, lpInterface, lpDestFolder, lpszNewFolderName, ulUIParam, lpProgress,
                            ulFlags);
    }

    STDMETHODIMP DeleteFolder(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                              ULONG ulFlags) override
    {
        if (!m_archive->IsWritable() && !(IsFinder() && IsSearchFolder(cbEntryID, lpEntryID)))
            return RefuseNaming(L"DeleteFolder");
        return CNstMapiFolder::DeleteFolder(cbEntryID, lpEntryID, ulUIParam, lpProgress, ulFlags);
    }

    STDMETHODIMP SetReadFlags(LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                              ULONG ulFlags) override
    {
        return m_archive->IsWritable() ? CNstMapiFolder::SetReadFlags(lpMsgList, ulUIParam, lpProgress, ulFlags)
                                       : RefuseNaming(L"SetReadFlags");
    }

    STDMETHODIMP SetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulNewStatus, ULONG ulNewStatusMask,
                                  ULONG* lpulOldStatus) override
    {
        return m_archive->IsWritable()
                   ? CNstMapiFolder::SetMessageStatus(cbEntryID, lpEntryID, ulNewStatus, ulNewStatusMask, lpulOldStatus)
                   : RefuseNaming(L"SetMessageStatus");
    }

    STDMETHODIMP SaveContentsSort(LPSSortOrderSet lpSortCriteria, ULONG ulFlags) override
    {
        return m_archive->IsWritable() ? CNstMapiFolder::SaveContentsSort(lpSortCriteria, ulFlags)
                                       : RefuseNaming(L"SaveContentsSort");
    }

    STDMETHODIMP EmptyFolder(ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags) override
    {
        return m_archive->IsWritable() ? CNstMapiFolder::EmptyFolder(ulUIParam, lpProgress, ulFlags)
                                       : RefuseNaming(L"EmptyFolder");
    }

protected:
    const std::vector<ULONG>& GetWritableTags() const noexcept override
    {
        return m_archive->GetSettings().writableFolderTags;
    }

    /// A search folder, where clients make theirs.
    bool IsClientsOwn() const noexcept override
    {
        return ReadFolderType(m_wrapped) == FOLDER_SEARCH && IsFinderNamedBy(PR_PARENT_ENTRYID);
    }

    ATL::CComPtr<IUnknown> WrapProperty(ULONG tag, REFIID iid, const ATL::CComPtr<IUnknown>& object) const override
    {
        const ATL::CComQIPtr<IMAPITable> table(object.p);
        if (iid != __uuidof(IMAPITable) || !table)
            return CReadOnlyProp::WrapProperty(tag, iid, object);
        const bool isHierarchy = PROP_ID(tag) == PROP_ID(PR_CONTAINER_HIERARCHY);
        return ATL::CComPtr<IUnknown>(MakeTable(m_archive, table, isHierarchy ? MAPI_FOLDER : MAPI_MESSAGE).p);
    }

private:
    using TableMethod = decltype(&IMAPIFolder::GetContentsTable);

    CArchiveFolder(const ArchivePointer& archive, IMAPIFolder* folder, IMsgStore* store, IMAPISupport* support)
        : CReadOnlyProp(archive, folder, folder, store, support),
          m_store(store)
    {
    }

    void* Self() noexcept { return static_cast<IMAPIFolder*>(this); }

    HRESULT GetTable(TableMethod method, const wchar_t* callName, ULONG objectType, ULONG flags, LPMAPITABLE* table)
    {
        ATL::CComQIPtr<IMAPITable> given;
        const HRESULT hr = Quillon::CheckPassThrough((m_wrapped.p->*method)(flags, table ? &given : nullptr),
                                                     m_wrapped.p, callName, S_OK);
        if (SUCCEEDED(hr) && table)
            *table = MakeTable(m_archive, given, objectType).Detach();
        return hr;
    }

public:
    /// PR_FOLDER_TYPE; -1 when it cannot be read.
    static LONG ReadFolderType(IMAPIProp* folder) noexcept
    {
        const Quillon::Mapi::PropValuePointer type = Quillon::Mapi::TryQueryItemProperty(folder, PR_FOLDER_TYPE);
        return type && type->ulPropTag == PR_FOLDER_TYPE ? type->Value.l : -1;
    }

private:
    /// Whether this property of the folder is the entry ID of the one in which clients make their search folders. False
    /// where that cannot be told: then nothing is let through.
    bool IsFinderNamedBy(ULONG tag) const noexcept
    {
        bool isFinder = false;
        AtBoundary(L"KivNstHostKit::CArchiveFolder::IsFinderNamedBy",
                   [&]
                   {
                       isFinder =
                           m_archive->IsSameEntry(Binary(Quillon::Mapi::TryQueryItemPropertyValue(m_wrapped, tag)),
                                                  m_archive->GetFinderEntryId());
                   });
        return isFinder;
    }
    bool IsFinder() const noexcept { return IsFinderNamedBy(PR_ENTRYID); }

    bool IsSearchFolder(ULONG size, LPENTRYID entryId) const
    {
        ULONG type = 0;
        ATL::CComPtr<IUnknown> object;
        if (FAILED(m_archive->GetPstStore().p->OpenEntry(size, entryId, nullptr, 0, &type, &object)) ||
            type != MAPI_FOLDER)
            return false;
        const ATL::CComQIPtr<IMAPIFolder> folder(object.p);
        return ReadFolderType(folder) == FOLDER_SEARCH;
    }

    /// Refuses and names the folder, where its name can be read.
    HRESULT RefuseNaming(const wchar_t* method) const noexcept
    {
        const Quillon::Mapi::PropValuePointer name = Quillon::Mapi::TryQueryItemProperty(m_wrapped, PR_DISPLAY_NAME_W);
        const bool isText = name && name->ulPropTag == PR_DISPLAY_NAME_W && name->Value.lpszW;
        return Refuse(method, isText ? name->Value.lpszW : L"");
    }

    const ATL::CComQIPtr<IMsgStore> m_store;
};

/// The folder that a client is given over the PST's, which must not be null; it opens its entries through `store`.
inline ATL::CComQIPtr<IMAPIFolder> MakeFolder(const ArchivePointer& archive, const ATL::CComQIPtr<IMAPIFolder>& folder,
                                              const ATL::CComQIPtr<IMsgStore>& store)
{
    return Quillon::com_wrap<IMAPIFolder>(
        new CFolderGuard<CArchiveFolder>(archive, Quillon::com_wrap(folder).p, store.p));
}

} // namespace KivNstHostKit
