// CReadOnlyFolder: a folder wrapper that refuses changes, offered to hosts.
#pragma once

#include "nst/NstMapiFolder.h"

namespace Quillon::Nst
{

/// A CNstMapiFolder that, while store modification is off, refuses every call that would change the folder or its
/// contents with MAPI_E_NO_ACCESS, leaving output arguments untouched, and reports itself read-only. SaveChanges,
/// CopyTo, CopyProps, CopyFolder, SetSearchCriteria and SaveContentsSort are let through on purpose.
///
/// Most refusals name the folder in their log line. Where its name cannot be read, the exception of GetDisplayName
/// leaves the method: a host that wants a safe boundary overrides these methods, catches Quillon::CException and
/// returns MAPI_E_NO_ACCESS. Any thread; the switch is read on every call.
class KIVNST_API CReadOnlyFolder : public CNstMapiFolder
{
public:
    /// As CNstMapiFolder's.
    CReadOnlyFolder(IMAPIFolder* folder, IMsgStore* store, IMAPISupport* support);
    ~CReadOnlyFolder() override;

    STDMETHODIMP OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                              LPUNKNOWN* lppUnk) override;
    STDMETHODIMP SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) override;
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

protected:
    void OverrideFolderProperties(SPropValue* lpPropArray, ULONG cValues) override;

private:
    HRESULT RefuseNamingFolder(const wchar_t* text);
};

} // namespace Quillon::Nst
