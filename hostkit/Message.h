// A message of an archive, and what can be opened of messages and attachments.
#pragma once

#include "hostkit/Attachment.h"
#include "hostkit/Stream.h"
#include "nst/NstMessage.h"

namespace KivNstHostKit
{

/// Refuses to be changed, saved or sent; ignores read flags, since opening a message must not fail because the client
/// marks it read; gives its attachments read-only. Made by MakeMessage. Any thread.
class CArchiveMessage : public CReadOnlyProp<Quillon::Nst::CNstMessage, IMessage>
{
public:
    /// Takes a reference on `message`, the PST's.
    CArchiveMessage(ArchivePointer archive, IMessage* message) : CReadOnlyProp(std::move(archive), message, message) {}

    STDMETHODIMP SaveChanges(ULONG ulFlags) override
    {
        return m_archive->IsWritable() ? CNstMessage::SaveChanges(ulFlags) : Refuse(L"SaveChanges");
    }

    STDMETHODIMP OpenAttach(ULONG ulAttachmentNum, LPCIID lpInterface, ULONG ulFlags, LPATTACH* lppAttach) override
    {
        ulFlags = m_archive->OpenFlags(ulFlags);
        if (!lppAttach)
            return CNstMessage::OpenAttach(ulAttachmentNum, lpInterface, ulFlags, lppAttach);
        ATL::CComQIPtr<IAttach> attachment;
        const HRESULT hr = CNstMessage::OpenAttach(ulAttachmentNum, lpInterface, ulFlags, &attachment);
        if (SUCCEEDED(hr))
            *lppAttach = MakeAttachment(m_archive, attachment).Detach();
        return hr;
    }

    STDMETHODIMP CreateAttach(LPCIID lpInterface, ULONG ulFlags, ULONG* lpulAttachmentNum, LPATTACH* lppAttach) override
    {
        if (!m_archive->IsWritable())
            return Refuse(L"CreateAttach");
        if (!lppAttach)
            return CNstMessage::CreateAttach(lpInterface, ulFlags, lpulAttachmentNum, lppAttach);
        ATL::CComQIPtr<IAttach> attachment;
        const HRESULT hr = CNstMessage::CreateAttach(lpInterface, ulFlags, lpulAttachmentNum, &attachment);
        if (SUCCEEDED(hr))
            *lppAttach = MakeAttachment(m_archive, attachment).Detach();
        return hr;
    }

    STDMETHODIMP DeleteAttach(ULONG ulAttachmentNum, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                              ULONG ulFlags) override
    {
        return m_archive->IsWritable() ? CNstMessage::DeleteAttach(ulAttachmentNum, ulUIParam, lpProgress, ulFlags)
                                       : Refuse(L"DeleteAttach");
    }

    STDMETHODIMP ModifyRecipients(ULONG ulFlags, LPADRLIST lpMods) override
    {
        return m_archive->IsWritable() ? CNstMessage::ModifyRecipients(ulFlags, lpMods) : Refuse(L"ModifyRecipients");
    }

    STDMETHODIMP SubmitMessage(ULONG ulFlags) override
    {
        return m_archive->IsWritable() ? CNstMessage::SubmitMessage(ulFlags) : Refuse(L"SubmitMessage");
    }

    STDMETHODIMP SetReadFlag(ULONG ulFlags) override
    {
        return m_archive->IsWritable() ? CNstMessage::SetReadFlag(ulFlags) : S_OK;
    }
};

/// The message that a client is given over the PST's, which must not be null.
inline ATL::CComQIPtr<IMessage> MakeMessage(const ArchivePointer& archive, const ATL::CComQIPtr<IMessage>& message)
{
    return Quillon::com_wrap<IMessage>(new CMessageGuard<CArchiveMessage>(archive, Quillon::com_wrap(message).p));
}

inline ATL::CComPtr<IUnknown> WrapOpened(const ArchivePointer& archive, REFIID iid,
                                         const ATL::CComPtr<IUnknown>& object)
{
    if (!object)
        Quillon::Throw(Quillon::CComError(E_POINTER), L"KivNstHostKit::WrapOpened");
    // A client that asks for a common ancestor may be given either.
    const bool isAnything = iid == iidUnknown || iid == __uuidof(IMAPIProp);
    if (iid == __uuidof(IMessage) || isAnything)
        if (const ATL::CComQIPtr<IMessage> message(object.p); message)
            return ATL::CComPtr<IUnknown>(MakeMessage(archive, message).p);
    if (!archive->IsWritable() && (iid == iidStream || iid == iidSequentialStream || iid == iidUnknown))
    {
        ATL::CComPtr<IStream> stream;
        if (SUCCEEDED(object.p->QueryInterface(iidStream, reinterpret_cast<void**>(&stream))) && stream)
        {
            ATL::CComPtr<IUnknown> readOnly;
            readOnly.Attach(new CReadOnlyStream(stream));
            return readOnly;
        }
    }
    return object;
}

} // namespace KivNstHostKit
