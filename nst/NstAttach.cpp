// CNstAttach.
#include "nst/NstAttach.h"

#include "nst/ReferenceCount.h"
#include "support/CallWrapping.h"
#include "support/com_wrap.h"

namespace Quillon::Nst
{

CNstAttach::CNstAttach(IAttach* attachment) : m_attachment(attachment), m_references(1) {}

CNstAttach::~CNstAttach() = default;

STDMETHODIMP CNstAttach::QueryInterface(REFIID riid, LPVOID* ppvObj)
{
    return AnswerWithSelf(this, riid, ppvObj, IID_IAttachment, IID_IMAPIProp, IID_IUnknown);
}

STDMETHODIMP_(ULONG) CNstAttach::AddRef()
{
    return AddReference(m_references);
}

STDMETHODIMP_(ULONG) CNstAttach::Release()
{
    return ReleaseReference(this, m_references);
}

STDMETHODIMP CNstAttach::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return PASS_THROUGH(m_attachment, IAttach::GetLastError, S_OK, hResult, ulFlags, lppMAPIError);
}

STDMETHODIMP CNstAttach::SaveChanges(ULONG ulFlags)
{
    return PASS_THROUGH(m_attachment, IAttach::SaveChanges, S_OK, ulFlags);
}

STDMETHODIMP CNstAttach::GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                                  LPSPropValue* lppPropArray)
{
    constexpr auto function = L"Quillon::Nst::CNstAttach::GetProps";
    try
    {
        const ATL::CComQIPtr<IAttach> self(this);
        const ATL::CComQIPtr<IAttach> attachment = com_wrap(m_attachment);
        const HRESULT hr = attachment->GetProps(lpPropTagArray, ulFlags, lpcValues, lppPropArray);
        CheckMapiCall<MAPI_W_ERRORS_RETURNED>(hr, attachment.p, function);
        return hr;
    }
    catch (const CException& exception)
    {
        return CaughtException(exception, function);
    }
}

STDMETHODIMP CNstAttach::GetPropList(ULONG ulFlags, LPSPropTagArray* lppPropTagArray)
{
    return PASS_THROUGH(m_attachment, IAttach::GetPropList, S_OK, ulFlags, lppPropTagArray);
}

STDMETHODIMP CNstAttach::OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                                      LPUNKNOWN* lppUnk)
{
    return PASS_THROUGH(m_attachment, IAttach::OpenProperty, S_OK, ulPropTag, lpiid, ulInterfaceOptions, ulFlags,
                        lppUnk);
}

STDMETHODIMP CNstAttach::SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_attachment, IAttach::SetProps, S_OK, cValues, lpPropArray, lppProblems);
}

STDMETHODIMP CNstAttach::DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_attachment, IAttach::DeleteProps, S_OK, lpPropTagArray, lppProblems);
}

STDMETHODIMP CNstAttach::CopyTo(ULONG ciidExclude, LPCIID rgiidExclude, LPSPropTagArray lpExcludeProps,
                                ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, LPCIID lpInterface, LPVOID lpDestObj,
                                ULONG ulFlags, LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_attachment, IAttach::CopyTo, MAPI_E_DECLINE_COPY, ciidExclude, rgiidExclude, lpExcludeProps,
                        ulUIParam, lpProgress, lpInterface, lpDestObj, ulFlags, lppProblems);
}

STDMETHODIMP CNstAttach::CopyProps(LPSPropTagArray lpIncludeProps, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                   LPCIID lpInterface, LPVOID lpDestObj, ULONG ulFlags,
                                   LPSPropProblemArray* lppProblems)
{
    return PASS_THROUGH(m_attachment, IAttach::CopyProps, MAPI_E_DECLINE_COPY, lpIncludeProps, ulUIParam, lpProgress,
                        lpInterface, lpDestObj, ulFlags, lppProblems);
}

STDMETHODIMP CNstAttach::GetNamesFromIDs(LPSPropTagArray* lppPropTags, LPGUID lpPropSetGuid, ULONG ulFlags,
                                         ULONG* lpcPropNames, LPMAPINAMEID** lpppPropNames)
{
    return PASS_THROUGH(m_attachment, IAttach::GetNamesFromIDs, S_OK, lppPropTags, lpPropSetGuid, ulFlags, lpcPropNames,
                        lpppPropNames);
}

STDMETHODIMP CNstAttach::GetIDsFromNames(ULONG cPropNames, LPMAPINAMEID* lppPropNames, ULONG ulFlags,
                                         LPSPropTagArray* lppPropTags)
{
    return PASS_THROUGH(m_attachment, IAttach::GetIDsFromNames, MAPI_W_ERRORS_RETURNED, cPropNames, lppPropNames,
                        ulFlags, lppPropTags);
}

} // namespace Quillon::Nst
