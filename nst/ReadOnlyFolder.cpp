// CReadOnlyFolder.
#include "nst/ReadOnlyFolder.h"

#include "nst/KivNstCore.h"
#include "nst/ReadOnly.h"

#include <algorithm>

namespace Quillon::Nst
{
namespace
{

/// What a client may set on a read-only folder.
bool CanChange(const SPropValue& property) noexcept
{
    return property.ulPropTag == PROP_TAG(PT_BINARY, 0x3020) || property.ulPropTag == PROP_TAG(PT_BINARY, 0x3021);
}

/// The rights that PR_RIGHTS keeps, and the one that it always has.
constexpr LONG rightsFolderVisible = 0x400;
constexpr LONG rightsReadAny = 0x1;

} // namespace

CReadOnlyFolder::CReadOnlyFolder(IMAPIFolder* folder, IMsgStore* store, IMAPISupport* support)
    : CNstMapiFolder(folder, store, support)
{
}

CReadOnlyFolder::~CReadOnlyFolder() = default;

/// Refuses a call whose line ends in the folder's name. The name is read before anything is logged, and also where
/// nothing is: a name that cannot be read leaves as the exception that says so.
HRESULT CReadOnlyFolder::RefuseNamingFolder(const wchar_t* text)
{
    const ATL::CComQIPtr<IMAPIFolder> self(this);
    const StringW name = GetDisplayName();
    return Logging::IsLogEnabled(LogId::Warning) ? Refuse(text + name) : MAPI_E_NO_ACCESS;
}

STDMETHODIMP CReadOnlyFolder::OpenProperty(ULONG ulPropTag, LPCIID lpiid, ULONG ulInterfaceOptions, ULONG ulFlags,
                                           LPUNKNOWN* lppUnk)
{
    if (GetModifyStores())
        return CNstMapiFolder::OpenProperty(ulPropTag, lpiid, ulInterfaceOptions, ulFlags, lppUnk);
    return RefuseWithDetail(L"IMAPIFolder::OpenProperty called on read-only folder; returning MAPI_E_NO_ACCESS: ",
                            [ulPropTag] { return Mapi::FormatMapiPropertyTag(ulPropTag); });
}

STDMETHODIMP CReadOnlyFolder::SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems)
{
    if (GetModifyStores())
        return CNstMapiFolder::SetProps(cValues, lpPropArray, lppProblems);
    if (cValues == 0)
        return S_OK;
    constexpr auto line = L"IMAPIFolder::SetProps called on read-only folder; returning MAPI_E_NO_ACCESS:";
    if (!lpPropArray)
        return Refuse(line);
    if (!std::all_of(lpPropArray, lpPropArray + cValues, CanChange))
        return RefuseWithTags(line, lpPropArray, cValues);
    return CNstMapiFolder::SetProps(cValues, lpPropArray, lppProblems);
}

STDMETHODIMP CReadOnlyFolder::DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems)
{
    if (GetModifyStores())
        return CNstMapiFolder::DeleteProps(lpPropTagArray, lppProblems);
    constexpr auto line = L"IMAPIFolder::DeleteProps called on read-only folder; returning MAPI_E_NO_ACCESS:";
    return lpPropTagArray ? RefuseWithTags(line, lpPropTagArray) : Refuse(line);
}

STDMETHODIMP CReadOnlyFolder::CreateMessage(LPCIID lpInterface, ULONG ulFlags, LPMESSAGE* lppMessage)
{
    if (GetModifyStores())
        return CNstMapiFolder::CreateMessage(lpInterface, ulFlags, lppMessage);
    return RefuseNamingFolder(L"IMAPIFolder::CreateMessage called on read-only folder; returning MAPI_E_NO_ACCESS: ");
}

STDMETHODIMP CReadOnlyFolder::CopyMessages(LPENTRYLIST lpMsgList, LPCIID lpInterface, LPVOID lpDestFolder,
                                           ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags)
{
    // A copy changes nothing here; only a move does.
    if (GetModifyStores() || !(ulFlags & MESSAGE_MOVE))
        return CNstMapiFolder::CopyMessages(lpMsgList, lpInterface, lpDestFolder, ulUIParam, lpProgress, ulFlags);
    return RefuseNamingFolder(
        L"IMAPIFolder::CopyMessages called with MESSAGE_MOVE on read-only folder; returning MAPI_E_NO_ACCESS: ");
}

STDMETHODIMP CReadOnlyFolder::DeleteMessages(LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                             ULONG ulFlags)
{
    if (GetModifyStores())
        return CNstMapiFolder::DeleteMessages(lpMsgList, ulUIParam, lpProgress, ulFlags);
    return RefuseNamingFolder(L"IMAPIFolder::DeleteMessages called on read-only folder; returning MAPI_E_NO_ACCESS: ");
}

STDMETHODIMP CReadOnlyFolder::CreateFolder(ULONG ulFolderType, LPTSTR lpszFolderName, LPTSTR lpszFolderComment,
                                           LPCIID lpInterface, ULONG ulFlags, LPMAPIFOLDER* lppFolder)
{
    if (GetModifyStores())
    {
        return CNstMapiFolder::CreateFolder(ulFolderType, lpszFolderName, lpszFolderComment, lpInterface, ulFlags,
                                            lppFolder);
    }
    return RefuseNamingFolder(L"IMAPIFolder::CreateFolder called on read-only folder; returning MAPI_E_NO_ACCESS: ");
}

STDMETHODIMP CReadOnlyFolder::DeleteFolder(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG_PTR ulUIParam,
                                           LPMAPIPROGRESS lpProgress, ULONG ulFlags)
{
    if (GetModifyStores())
        return CNstMapiFolder::DeleteFolder(cbEntryID, lpEntryID, ulUIParam, lpProgress, ulFlags);
    return RefuseNamingFolder(L"IMAPIFolder::DeleteFolder called on read-only folder; returning MAPI_E_NO_ACCESS: ");
}

STDMETHODIMP CReadOnlyFolder::SetReadFlags(LPENTRYLIST lpMsgList, ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress,
                                           ULONG ulFlags)
{
    if (GetModifyStores())
        return CNstMapiFolder::SetReadFlags(lpMsgList, ulUIParam, lpProgress, ulFlags);
    return RefuseNamingFolder(L"IMAPIFolder::SetReadFlags called on read-only folder; returning MAPI_E_NO_ACCESS: ");
}

STDMETHODIMP CReadOnlyFolder::SetMessageStatus(ULONG cbEntryID, LPENTRYID lpEntryID, ULONG ulNewStatus,
                                               ULONG ulNewStatusMask, ULONG* lpulOldStatus)
{
    if (GetModifyStores())
        return CNstMapiFolder::SetMessageStatus(cbEntryID, lpEntryID, ulNewStatus, ulNewStatusMask, lpulOldStatus);
    return RefuseNamingFolder(
        L"IMAPIFolder::SetMessageStatus called on read-only folder; returning MAPI_E_NO_ACCESS: ");
}

STDMETHODIMP CReadOnlyFolder::EmptyFolder(ULONG_PTR ulUIParam, LPMAPIPROGRESS lpProgress, ULONG ulFlags)
{
    if (GetModifyStores())
        return CNstMapiFolder::EmptyFolder(ulUIParam, lpProgress, ulFlags);
    return RefuseNamingFolder(L"IMAPIFolder::EmptyFolder called on read-only folder; returning MAPI_E_NO_ACCESS: ");
}

void CReadOnlyFolder::OverrideFolderProperties(SPropValue* lpPropArray, ULONG cValues)
{
    if (GetModifyStores())
        return;
    for (ULONG index = 0; index < cValues; ++index)
    {
        SPropValue& property = lpPropArray[index];
        OverrideAccess(property);
        OverrideSupportMask(property);
        if (property.ulPropTag == PR_RIGHTS)
            property.Value.l = (property.Value.l & rightsFolderVisible) | rightsReadAny;
    }
}

} // namespace Quillon::Nst
