// CNstMessage.
#include "nst/NstMessage.h"

#include "nst/ReferenceCount.h"
#include "support/CallWrapping.h"
#include "support/com_wrap.h"

namespace Quillon::Nst
{

CNstMessage::CNstMessage(IMessage* message) : m_message(message), m_references(1) {}

CNstMessage::~CNstMessage() = default;

STDMETHODIMP CNstMessage::QueryInterface(REFIID riid, LPVOID* ppvObj)
{
    return AnswerWithSelf(this, riid, ppvObj, IID_IMessage, IID_IMAPIProp, IID_IUnknown);
}

STDMETHODIMP_(ULONG) CNstMessage::AddRef()
{
    return AddReference(m_references);
}

STDMETHODIMP_(ULONG) CNstMessage::Release()
{
    return ReleaseReference(this, m_references);
}

STDMETHODIMP CNstMessage::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return PASS_THROUGH(m_message, IMessage::GetLastError, S_OK, hResult, ulFlags, lppMAPIError);
}

STDMETHODIMP CNstMessage::SaveChanges(ULONG ulFlags)
{
    return PASS_THROUGH(m_message, IMessage::SaveChanges, S_OK, ulFlags);
}

STDMETHODIMP CNstMessage::GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                                   LPSPropValue* lppPropArray)
{
    constexpr auto function = L"Quillon::Nst::CNstMessage::GetProps";
    try
    {
        const ATL::CComQIPtr<IMessage> self(this);
        const ATL::CComQIPtr<IMessage> message = com_wrap(m_message);
        const HRESULT hr = message->GetProps(lpPropTagArray, ulFlags, lpcValues, lppPropArray);
        CheckMapiCall<MAPI_W_ERRORS_RETURNED>(hr, message.p, function);
        if (lpcValues && lppPropArray)
            OverrideMessageProperties(*lppPropArray, *lpcValues);
        return hr;
    }
    catch (const CException& exception)
    {
        return CaughtException(exception, function);
    }
}

STDMETHODIMP CNstMessage::GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray)
{
    return PASS_THROUGH(m_message, IMessage::GetPropList, S_OK, ulFlags, lppPropTagArray);
}

STDMETHODIMP CNstMessage::OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                                       LPUNKNOWN* lppUnk)
{
    return PASS_THROUGH(m_message, IMessage::OpenProperty, S_OK, ulPropTag, lpiid, ulInterfaceOptions, ulFlags, lppUnk);
}

STDMETHODIMP CNstMessage::SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_message, IMessage::SetProps, S_OK, cValues, lpPropArray, lppProblems);
}

STDMETHODIMP CNstMessage::DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_message, IMessage::DeleteProps, S_OK, lpPropTagArray, lppProblems);
}

STDMETHODIMP CNstMessage::CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps,
                                 ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, LPCIID lpInterface, LPVOID lpDestObj,
                                 ULONG ulFlags, LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_message, IMessage::CopyTo, MAPI_E_DECLINE_COPY, ciidExclude, rgiidExclude, lpExcludeProps,
                        ulUIParam, lpProgress, lpInterface, lpDestObj, ulFlags, lppProblems);
}

STDMETHODIMP CNstMessage::CopyProps(LPSPropTagArray lpIncludeProps, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                    LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                                    LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_message, IMessage::CopyProps, MAPI_E_DECLINE_COPY, lpIncludeProps, ulUIParam, lpProgress,
                        lpInterface, lpDestObj, ulFlags, lppProblems);
}

STDMETHODIMP CNstMessage::GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags,
                                          ULONG* lpcPropNames, LPMAPINAMEID** lpppPropNames)
{
    return PASS_THROUGH(m_message, IMessage::GetNamesFromIDs, S_OK, lppPropTags, lpPropSetGuid, ulFlags, lpcPropNames,
                        lpppPropNames);
}

STDMETHODIMP CNstMessage::GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                          LPSPropTagArray* lppPropTags)
{
    return PASS_THROUGH(m_message, IMessage::GetIDsFromNames, MAPI_W_ERRORS_RETURNED, cPropNames, lppPropNames, ulFlags,
                        lppPropTags);
}

STDMETHODIMP CNstMessage::GetAttachmentTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return PASS_THROUGH(m_message, IMessage::GetAttachmentTable, S_OK, ulFlags, lppTable);
}

STDMETHODIMP CNstMessage::OpenAttach(ULONG ulAttachmentNum, LPCIID lpInterface, ULONG ulFlags, LPATTACH* lppAttach)
{
    return PASS_THROUGH(m_message, IMessage::OpenAttach, S_OK, ulAttachmentNum, lpInterface, ulFlags, lppAttach);
}

STDMETHODIMP CNstMessage::CreateAttach(LPCIID lpInterface, ULONG ulFlags, ULONG* lpulAttachmentNum, LPATTACH* lppAttach)
{
    return PASS_THROUGH(m_message, IMessage::CreateAttach, S_OK, lpInterface, ulFlags, lpulAttachmentNum, lppAttach);
}

STDMETHODIMP CNstMessage::DeleteAttach(ULONG ulAttachmentNum, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                       ULONG ulFlags)
{
    return PASS_THROUGH(m_message, IMessage::DeleteAttach, S_OK, ulAttachmentNum, ulUIParam, lpProgress, ulFlags);
}

STDMETHODIMP CNstMessage::GetRecipientTable(ULONG ulFlags, LPMAPITABLE* lppTable)
{
    return PASS_THROUGH(m_message, IMessage::GetRecipientTable, S_OK, ulFlags, lppTable);
}

STDMETHODIMP CNstMessage::ModifyRecipients(ULONG ulFlags, LPADRLIST lpMods)
{
    return PASS_THROUGH(m_message, IMessage::ModifyRecipients, S_OK, ulFlags, lpMods);
}

STDMETHODIMP CNstMessage::SubmitMessage(ULONG ulFlags)
{
    return PASS_THROUGH(m_message, IMessage::SubmitMessage, S_OK, ulFlags);
}

STDMETHODIMP CNstMessage::SetReadFlag(ULONG ulFlags)
{
    return PASS_THROUGH(m_message, IMessage::SetReadFlag, S_OK, ulFlags);
}

void CNstMessage::OverrideMessageProperties(SPropValue*, ULONG) {}

} // namespace Quillon::Nst
