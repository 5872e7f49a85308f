// CReadOnlyMessage.
#include "nst/ReadOnlyMessage.h"

#include "nst/KivNstCore.h"
#include "nst/ReadOnly.h"

namespace Quillon::Nst
{
namespace
{

/// The flags with which a client asks for write access to what it opens.
constexpr ULONG writeAccess = MAPI_MODIFY | MAPI_BEST_ACCESS;

} // namespace

CReadOnlyMessage::CReadOnlyMessage(IMessage* message) : CNstMessage(message) {}

CReadOnlyMessage::~CReadOnlyMessage() = default;

STDMETHODIMP CReadOnlyMessage::SaveChanges(ULONG ulFlags)
{
    if (GetModifyStores())
        return CNstMessage::SaveChanges(ulFlags);
    return Refuse(L"IMessage::SaveChanges called on read-only message; returning MAPI_E_NO_ACCESS");
}

STDMETHODIMP CReadOnlyMessage::OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                                            LPUNKNOWN* lppUnk)
{
    if (!GetModifyStores())
        ulFlags &= ~writeAccess;
    return CNstMessage::OpenProperty(ulPropTag, lpiid, ulInterfaceOptions, ulFlags, lppUnk);
}

STDMETHODIMP CReadOnlyMessage::SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems)
{
    if (GetModifyStores())
        return CNstMessage::SetProps(cValues, lpPropArray, lppProblems);
    constexpr auto line = L"IMessage::SetProps called on read-only message; returning MAPI_E_NO_ACCESS:";
    return cValues && lpPropArray ? RefuseWithTags(line, lpPropArray, cValues) : Refuse(line);
}

STDMETHODIMP CReadOnlyMessage::DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems)
{
    if (GetModifyStores())
        return CNstMessage::DeleteProps(lpPropTagArray, lppProblems);
    constexpr auto line = L"IMessage::DeleteProps called on read-only message; returning MAPI_E_NO_ACCESS:";
    return lpPropTagArray ? RefuseWithTags(line, lpPropTagArray) : Refuse(line);
}

STDMETHODIMP CReadOnlyMessage::OpenAttach(ULONG ulAttachmentNum, LPCIID lpInterface, ULONG ulFlags, LPATTACH* lppAttach)
{
    if (!GetModifyStores())
        ulFlags &= ~writeAccess;
    return CNstMessage::OpenAttach(ulAttachmentNum, lpInterface, ulFlags, lppAttach);
}

STDMETHODIMP CReadOnlyMessage::CreateAttach(LPCIID lpInterface, ULONG ulFlags, ULONG* lpulAttachmentNum,
                                            LPATTACH* lppAttach)
{
    if (GetModifyStores())
        return CNstMessage::CreateAttach(lpInterface, ulFlags, lpulAttachmentNum, lppAttach);
    return Refuse(L"IMessage::CreateAttach called on read-only archive store message; returning MAPI_E_NO_ACCESS");
}

STDMETHODIMP CReadOnlyMessage::DeleteAttach(ULONG ulAttachmentNum, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                            ULONG ulFlags)
{
    if (GetModifyStores())
        return CNstMessage::DeleteAttach(ulAttachmentNum, ulUIParam, lpProgress, ulFlags);
    return Refuse(L"IMessage::DeleteAttach called on read-only archive store message; returning MAPI_E_NO_ACCESS");
}

STDMETHODIMP CReadOnlyMessage::ModifyRecipients(ULONG ulFlags, LPADRLIST lpMods)
{
    if (GetModifyStores())
        return CNstMessage::ModifyRecipients(ulFlags, lpMods);
    return Refuse(L"IMessage::ModifyRecipients called on read-only message; returning MAPI_E_NO_ACCESS");
}

STDMETHODIMP CReadOnlyMessage::SubmitMessage(ULONG ulFlags)
{
    if (GetModifyStores())
        return CNstMessage::SubmitMessage(ulFlags);
    return Refuse(L"IMessage::SubmitMessage called on read-only message; returning MAPI_E_NO_ACCESS");
}

STDMETHODIMP CReadOnlyMessage::SetReadFlag(ULONG ulFlags)
{
    // Opening a message in the archive must not fail because the client marks it read.
    return GetModifyStores() ? CNstMessage::SetReadFlag(ulFlags) : S_OK;
}

void CReadOnlyMessage::OverrideMessageProperties(SPropValue* lpPropArray, ULONG cValues)
{
    if (GetModifyStores())
        return;
    for (ULONG index = 0; index < cValues; ++index)
        OverrideAccess(lpPropArray[index]);
}

} // namespace Quillon::Nst
