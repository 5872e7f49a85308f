// CNstMapiFolder: the wrapper of the PST store's folders.
#pragma once

#include "support/Binary.h"
#include "support/ComPtr.h"
#include "support/Export.h"

namespace Quillon::Nst
{

/// {F7E23915-55A7-47BE-A59D-20C0FF7FF952}: asked of a folder wrapper, it gives the PST folder behind it.
KIVNST_API extern const IID IID_UnwrappedMapiFolder;

/// Wraps IMAPIFolder. Tables, and the messages and folders that it creates, come back wrapped; entries are opened
/// through the store, folders copied through the support object; the rest is passed through. Any thread; the count
/// starts at 1.
class KIVNST_API CNstMapiFolder : public IMAPIFolder
{
public:
    KIVNST_OWN_HEAP

    /// Takes a reference on each. `store` is where OpenEntry goes, normally the store wrapper; `support` is where
    /// CopyFolder goes. Either may be null; the calls that need it then give E_POINTER.
    CNstMapiFolder(IMAPIFolder* folder, IMsgStore* store, IMAPISupport* support);
    CNstMapiFolder(const CNstMapiFolder&) = delete;
    CNstMapiFolder& operator=(const CNstMapiFolder&) = delete;

    MAPI_IUNKNOWN_METHODS(override)
    MAPI_IMAPIPROP_METHODS(override)
    MAPI_IMAPICONTAINER_METHODS(override)
    MAPI_IMAPIFOLDER_METHODS(override)

    virtual ~CNstMapiFolder();

    /// The wrapped folder's entry ID. Throws Mapi::CMapiError.
    Binary GetEntryId();
    /// The wrapped folder's display name. Throws Mapi::CMapiError.
    StringW GetDisplayName();

protected:
    /// Rewrites, in place, the values that GetProps gives a client. The library's own does nothing.
    virtual void OverrideFolderProperties(SPropValue* values, ULONG count);

private:
    using TableMethod = decltype(&IMAPIFolder::GetContentsTable);
    HRESULT GetTable(TableMethod method, ULONG ulFlags, LPMAPITABLE* lppTable, const wchar_t* function);

    ATL::CComQIPtr<IMsgStore> m_store;

protected:
    /// The PST folder, for derived classes that pass calls through.
    ATL::CComQIPtr<IMAPIFolder> m_folder;

private:
    ATL::CComQIPtr<IMAPISupport> m_support;
    ULONG m_references;
};

} // namespace Quillon::Nst
