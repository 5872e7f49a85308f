// The library's own wrappers as a host's store gives them, for hosts that want what these let through: the exact
// read-only folders and messages, or the plain ones, which refuse nothing. They go by the library's process-wide
// switch. What the kit adds is the boundary.
#pragma once

#include "hostkit/Archive.h"
#include "hostkit/Guards.h"
#include "nst/NstMsgStore.h"
#include "nst/ReadOnlyFolder.h"
#include "nst/ReadOnlyMessage.h"
#include "support/com_wrap.h"

namespace KivNstHostKit
{

/// One refusing method: where the library's ends with an exception, the folder's name could not be read for the line.
#define KIVNST_REFUSING(Method, Parameters, Arguments)                                                                 \
    STDMETHODIMP Method Parameters override                                                                            \
    {                                                                                                                  \
        return RefuseAfterException(L"KivNstHostKit::CExactReadOnlyFolder::" #Method,                                  \
                                    [&] { return CReadOnlyFolder::Method Arguments; });                                \
    }

/// The library's read-only folder, whose refusals are refusals also where the folder's name cannot be read. Any thread.
class CExactReadOnlyFolder : public Quillon::Nst::CReadOnlyFolder
{
public:
    using CReadOnlyFolder::CReadOnlyFolder;

    KIVNST_REFUSING(CreateMessage, (LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage),
                    (lpInterface, ulFlags, lppMessage))
    KIVNST_REFUSING(CopyMessages,
                    (LPENTRYLIST lpMsgList, LPCIID lpInterface, LPVOID lpDestFolder, ULONG_PTR ulUIParam,
                     LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                    (lpMsgList, lpInterface, lpDestFolder, ulUIParam, lpProgress, ulFlags))
    KIVNST_REFUSING(DeleteMessages,
                    (LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                    (lpMsgList, ulUIParam, lpProgress, ulFlags))
    KIVNST_REFUSING(CreateFolder,
                    (ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment, LPCIID lpInterface,
                     ULONG ulFlags, LPMAPIFOLDER* lppFolder),
                    (ulFolderType, lpszFolderName, lpszFolderComment, lpInterface, ulFlags, lppFolder))
    KIVNST_REFUSING(DeleteFolder,
                    (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                     ULONG ulFlags),
                    (cbEntryID, lpEntryID, ulUIParam, lpProgress, ulFlags))
    KIVNST_REFUSING(SetReadFlags,
                    (LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                    (lpMsgList, ulUIParam, lpProgress, ulFlags))
    KIVNST_REFUSING(SetMessageStatus,
                    (ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulNewStatus, ULONG ulNewStatusMask,
                     ULONG* lpulOldStatus),
                    (cbEntryID, lpEntryID, ulNewStatus, ulNewStatusMask, lpulOldStatus))
    KIVNST_REFUSING(EmptyFolder, (ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags),
                    (ulUIParam, lpProgress, ulFlags))

private:
    template <class Method>
    static HRESULT RefuseAfterException(const CallSite& site, Method&& method) noexcept
    {
        try
        {
            return method();
        }
        catch (...)
        {
            ResultOfException(site);
            return MAPI_E_NO_ACCESS;
        }
    }
};

#undef KIVNST_REFUSING

/// The library's store, whose folders and messages are the exact read-only ones or, `isPlain`, those that refuse
/// nothing. Made by MakeExactStore. Any thread.
class CExactStore : public Quillon::Nst::CNstMsgStore
{
public:
    CExactStore(const ArchivePointer& archive, bool isPlain)
        : CNstMsgStore(archive->GetPstStore(), archive->GetSupport()),
          m_support(archive->GetSupport()),
          m_isPlain(isPlain)
    {
    }

protected:
    ATL::CComQIPtr<IMAPIFolder> CreateFolder(const ATL::CComQIPtr<IMAPIFolder>& folder) override
    {
        // The folder opens its entries through this store, or through the PST store while stores are unwrapped.
        ATL::CComQIPtr<IMsgStore> self;
        Quillon::CheckCall(QueryInterface(__uuidof(IMsgStore), reinterpret_cast<void**>(&self)),
                           L"KivNstHostKit::CExactStore::CreateFolder");
        if (m_isPlain)
        {
            return Quillon::com_wrap<IMAPIFolder>(
                new CFolderGuard<Quillon::Nst::CNstMapiFolder>(folder.p, self.p, m_support.p));
        }
        return Quillon::com_wrap<IMAPIFolder>(new CFolderGuard<CExactReadOnlyFolder>(folder.p, self.p, m_support.p));
    }

    ATL::CComQIPtr<IMessage> CreateMessage(const ATL::CComQIPtr<IMessage>& message) override
    {
        if (m_isPlain)
            return Quillon::com_wrap<IMessage>(new CMessageGuard<Quillon::Nst::CNstMessage>(message.p));
        return Quillon::com_wrap<IMessage>(new CMessageGuard<Quillon::Nst::CReadOnlyMessage>(message.p));
    }

private:
    const ATL::CComQIPtr<IMAPISupport> m_support;
    const bool m_isPlain;
};

/// A store of the library's own wrappers, behind the boundary.
inline ATL::CComQIPtr<IMsgStore> MakeExactStore(const ArchivePointer& archive, bool isPlain)
{
    return Quillon::com_wrap<IMsgStore>(new CStoreGuard<CExactStore>(archive, isPlain));
}

} // namespace KivNstHostKit
