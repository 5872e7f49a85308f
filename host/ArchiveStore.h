// The store that the sample host gives MAPI, and the read-only folders and messages that come out of it.
#pragma once

#include "nst/NstMsgStore.h"
#include "nst/ReadOnlyFolder.h"
#include "nst/ReadOnlyMessage.h"

namespace ArchiveHost
{

/// The library's store wrapper with factories of its own: read-only folders and messages, or the library's plain ones.
class CArchiveStore : public Quillon::Nst::CNstMsgStore
{
public:
    CArchiveStore(IMsgStore* store, IMAPISupport* support, bool plainWrappers);
    ~CArchiveStore() override;

protected:
    ATL::CComQIPtr<IMAPIFolder> CreateFolder(const ATL::CComQIPtr<IMAPIFolder>& folder) override;
    ATL::CComQIPtr<IMessage> CreateMessage(const ATL::CComQIPtr<IMessage>& message) override;

private:
    ATL::CComQIPtr<IMAPISupport> m_support;
    bool m_plainWrappers;
};

/// A read-only folder whose every method is safe to be called through COM: the library's own lets the exception out
/// when the folder's name, which the refusal's log line ends in, cannot be read. The call is refused all the same then.
class CArchiveFolder : public Quillon::Nst::CReadOnlyFolder
{
public:
    CArchiveFolder(IMAPIFolder* folder, IMsgStore* store, IMAPISupport* support);
    ~CArchiveFolder() override;

    STDMETHODIMP CreateMessage(LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage) override;
    STDMETHODIMP CopyMessages(LPENTRYLIST lpMsgList, LPCIID lpInterface, LPVOID lpDestFolder, ULONG_PTR ulUIParam,
                              LPMAPIPROGRESS lpProgress, ULONG ulFlags) override;
    STDMETHODIMP DeleteMessages(LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                ULONG ulFlags) override;
    STDMETHODIMP CreateFolder(ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment, LPCIID lpInterface,
                              ULONG ulFlags, LPMAPIFOLDER* lppFolder) override;
    STDMETHODIMP DeleteFolder(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                              ULONG ulFlags) override;
    STDMETHODIMP SetReadFlags(LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                              ULONG ulFlags) override;
    STDMETHODIMP SetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulNewStatus, ULONG ulNewStatusMask,
                                  ULONG* lpulOldStatus) override;
    STDMETHODIMP EmptyFolder(ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags) override;
};

/// A read-only message that gives its attachments wrapped in the library's CNstAttach, where the library's own gives
/// them as they come.
class CArchiveMessage : public Quillon::Nst::CReadOnlyMessage
{
public:
    explicit CArchiveMessage(IMessage* message);
    ~CArchiveMessage() override;

    STDMETHODIMP OpenAttach(ULONG ulAttachmentNum, LPCIID lpInterface, ULONG ulFlags, LPATTACH* lppAttach) override;
    STDMETHODIMP CreateAttach(LPCIID lpInterface, ULONG ulFlags, ULONG* lpulAttachmentNum,
                              LPATTACH* lppAttach) override;
};

} // namespace ArchiveHost
