// CReadOnlyMessage: a message wrapper that refuses changes, offered to hosts.
#pragma once

#include "nst/NstMessage.h"

namespace Quillon::Nst
{

/// A CNstMessage that, while store modification is off, refuses the calls that would change or send the message with
/// MAPI_E_NO_ACCESS, leaving output arguments untouched; opens properties and attachments without write access; reports
/// itself read-only; and ignores read-flag changes. CopyTo and CopyProps are let through on purpose. Any thread; the
/// switch is read on every call.
class KIVNST_API CReadOnlyMessage : public CNstMessage
{
public:
    /// As CNstMessage's.
    explicit CReadOnlyMessage(IMessage* message);
    ~CReadOnlyMessage() override;

    STDMETHODIMP SaveChanges(ULONG ulFlags) override;
    STDMETHODIMP OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                              LPUNKNOWN* lppUnk) override;
    STDMETHODIMP SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP OpenAttach(ULONG ulAttachmentNum, LPCIID lpInterface, ULONG ulFlags, LPATTACH* lppAttach) override;
    STDMETHODIMP CreateAttach(LPCIID lpInterface, ULONG ulFlags, ULONG* lpulAttachmentNum,
                              LPATTACH* lppAttach) override;
    STDMETHODIMP DeleteAttach(ULONG ulAttachmentNum, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                              ULONG ulFlags) override;
    STDMETHODIMP ModifyRecipients(ULONG ulFlags, LPADRLIST lpMods) override;
    STDMETHODIMP SubmitMessage(ULONG ulFlags) override;
    STDMETHODIMP SetReadFlag(ULONG ulFlags) override;

protected:
    void OverrideMessageProperties(SPropValue* lpPropArray, ULONG cValues) override;
};

} // namespace Quillon::Nst
