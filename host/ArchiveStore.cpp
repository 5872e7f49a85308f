// CArchiveStore, CArchiveFolder, CArchiveMessage.
#include "host/ArchiveStore.h"

#include "nst/NstAttach.h"
#include "nst/NstMapiFolder.h"
#include "nst/NstMessage.h"
#include "support/CallWrapping.h"
#include "support/com_wrap.h"

using namespace Quillon;

namespace ArchiveHost
{
namespace
{

/// Runs a method of the library's read-only folder and refuses when it throws.
template <class Method>
HRESULT RefuseOnException(Method&& method, const CallSite& site) noexcept
{
    try
    {
        return method();
    }
    catch (const CException& exception)
    {
        CaughtException(exception, site);
        return MAPI_E_NO_ACCESS;
    }
}

/// Hands an attachment out, wrapped.
HRESULT GiveWrapped(HRESULT hr, const ATL::CComQIPtr<IAttach>& attachment, LPATTACH* lppAttach, const CallSite& site)
{
    if (FAILED(hr) || !attachment)
        return hr;
    try
    {
        *lppAttach = new Nst::CNstAttach(attachment);
        return hr;
    }
    catch (const CException& exception)
    {
        return CaughtException(exception, site);
    }
}

} // namespace

CArchiveStore::CArchiveStore(IMsgStore* store, IMAPISupport* support, bool plainWrappers)
    : CNstMsgStore(store, support),
      m_support(support),
      m_plainWrappers(plainWrappers)
{
}

CArchiveStore::~CArchiveStore() = default;

ATL::CComQIPtr<IMAPIFolder> CArchiveStore::CreateFolder(const ATL::CComQIPtr<IMAPIFolder>& folder)
{
    if (m_plainWrappers)
        return CNstMsgStore::CreateFolder(folder);
    // The folder opens its entries through this store, or through the PST store while stores are unwrapped.
    ATL::CComQIPtr<IMsgStore> self;
    CheckCall(QueryInterface(__uuidof(IMsgStore), reinterpret_cast<void**>(&self)),
              L"ArchiveHost::CArchiveStore::CreateFolder");
    return com_wrap<IMAPIFolder>(new CArchiveFolder(folder, self, m_support));
}

ATL::CComQIPtr<IMessage> CArchiveStore::CreateMessage(const ATL::CComQIPtr<IMessage>& message)
{
    if (m_plainWrappers)
        return CNstMsgStore::CreateMessage(message);
    return com_wrap<IMessage>(new CArchiveMessage(message));
}

CArchiveFolder::CArchiveFolder(IMAPIFolder* folder, IMsgStore* store, IMAPISupport* support)
    : CReadOnlyFolder(folder, store, support)
{
}

CArchiveFolder::~CArchiveFolder() = default;

STDMETHODIMP CArchiveFolder::CreateMessage(LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage)
{
    return RefuseOnException([&] { return CReadOnlyFolder::CreateMessage(lpInterface, ulFlags, lppMessage); },
                             L"ArchiveHost::CArchiveFolder::CreateMessage");
}

STDMETHODIMP CArchiveFolder::CopyMessages(LPENTRYLIST lpMsgList, LPCIID lpInterface, LPVOID lpDestFolder,
                                          ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags)
{
    return RefuseOnException(
        [&]
        { return CReadOnlyFolder::CopyMessages(lpMsgList, lpInterface, lpDestFolder, ulUIParam, lpProgress, ulFlags); },
        L"ArchiveHost::CArchiveFolder::CopyMessages");
}

STDMETHODIMP CArchiveFolder::DeleteMessages(LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                            ULONG ulFlags)
{
    return RefuseOnException([&] { return CReadOnlyFolder::DeleteMessages(lpMsgList, ulUIParam, lpProgress, ulFlags); },
                             L"ArchiveHost::CArchiveFolder::DeleteMessages");
}

STDMETHODIMP CArchiveFolder::CreateFolder(ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment,
                                          LPCIID lpInterface, ULONG ulFlags, LPMAPIFOLDER* lppFolder)
{
    return RefuseOnException(
        [&]
        {
            return CReadOnlyFolder::CreateFolder(ulFolderType, lpszFolderName, lpszFolderComment, lpInterface, ulFlags,
                                                 lppFolder);
        },
        L"ArchiveHost::CArchiveFolder::CreateFolder");
}

STDMETHODIMP CArchiveFolder::DeleteFolder(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG_PTR ulUIParam,
                                          LPMAPIPROGRESS lpProgress, ULONG ulFlags)
{
    return RefuseOnException(
        [&] { return CReadOnlyFolder::DeleteFolder(cbEntryID, lpEntryID, ulUIParam, lpProgress, ulFlags); },
        L"ArchiveHost::CArchiveFolder::DeleteFolder");
}

STDMETHODIMP CArchiveFolder::SetReadFlags(LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                          ULONG ulFlags)
{
    return RefuseOnException([&] { return CReadOnlyFolder::SetReadFlags(lpMsgList, ulUIParam, lpProgress, ulFlags); },
                             L"ArchiveHost::CArchiveFolder::SetReadFlags");
}

STDMETHODIMP CArchiveFolder::SetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulNewStatus,
                                              ULONG ulNewStatusMask, ULONG* lpulOldStatus)
{
    return RefuseOnException(
        [&]
        {
            return CReadOnlyFolder::SetMessageStatus(cbEntryID, lpEntryID, ulNewStatus, ulNewStatusMask, lpulOldStatus);
        },
        L"ArchiveHost::CArchiveFolder::SetMessageStatus");
}

STDMETHODIMP CArchiveFolder::EmptyFolder(ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags)
{
    return RefuseOnException([&] { return CReadOnlyFolder::EmptyFolder(ulUIParam, lpProgress, ulFlags); },
                             L"ArchiveHost::CArchiveFolder::EmptyFolder");
}

CArchiveMessage::CArchiveMessage(IMessage* message) : CReadOnlyMessage(message) {}

CArchiveMessage::~CArchiveMessage() = default;

STDMETHODIMP CArchiveMessage::OpenAttach(ULONG ulAttachmentNum, LPCIID lpInterface, ULONG ulFlags, LPATTACH* lppAttach)
{
    if (!lppAttach)
        return CReadOnlyMessage::OpenAttach(ulAttachmentNum, lpInterface, ulFlags, lppAttach);
    ATL::CComQIPtr<IAttach> attachment;
    const HRESULT hr = CReadOnlyMessage::OpenAttach(ulAttachmentNum, lpInterface, ulFlags, &attachment);
    return GiveWrapped(hr, attachment, lppAttach, L"ArchiveHost::CArchiveMessage::OpenAttach");
}

STDMETHODIMP CArchiveMessage::CreateAttach(LPCIID lpInterface, ULONG ulFlags, ULONG* lpulAttachmentNum,
                                           LPATTACH* lppAttach)
{
    if (!lppAttach)
        return CReadOnlyMessage::CreateAttach(lpInterface, ulFlags, lpulAttachmentNum, lppAttach);
    ATL::CComQIPtr<IAttach> attachment;
    const HRESULT hr = CReadOnlyMessage::CreateAttach(lpInterface, ulFlags, lpulAttachmentNum, &attachment);
    return GiveWrapped(hr, attachment, lppAttach, L"ArchiveHost::CArchiveMessage::CreateAttach");
}

} // namespace ArchiveHost
