// CNstMsgStore: the wrapper of the PST provider's IMsgStore, which makes the PST file appear as an archive.
#pragma once

#include "support/Binary.h"
#include "support/ComPtr.h"
#include "support/Export.h"

namespace Quillon::Nst
{

/// {61B3ECD5-ADAD-4647-BEFF-27CD5A3AAC70}: asked of the store wrapper, it gives the PST store behind it.
KIVNST_API extern const IID IID_UnwrappedMsgStore;

/// Wraps IMsgStore. While store modification is off it reports the store as read-only and refuses writes to store
/// properties and to the receive folder; it always reports the archive subtree root as the top of the information store
/// and wraps the folders and messages that are opened through it. The rest is passed through. A host derives from it to
/// return its own folders and messages from the factories. Any thread; the count starts at 1.
class KIVNST_API CNstMsgStore : public IMsgStore
{
public:
    KIVNST_OWN_HEAP

    /// Takes a reference on each; `support` may be null, but then folders cannot copy folders.
    CNstMsgStore(IMsgStore* store, IMAPISupport* support);
    CNstMsgStore(const CNstMsgStore&) = delete;
    CNstMsgStore& operator=(const CNstMsgStore&) = delete;

    MAPI_IUNKNOWN_METHODS(override)
    MAPI_IMAPIPROP_METHODS(override)
    MAPI_IMSGSTORE_METHODS(override)

    virtual ~CNstMsgStore();

    /// The wrapped store's entry ID. Throws Mapi::CMapiError.
    Binary GetEntryId();
    /// The wrapped store's display name. Throws Mapi::CMapiError.
    StringW GetDisplayName();

protected:
    /// Whether a client may write or open the store property: five tags that the archive keeps writable for the host,
    /// and all of them while store modification is on.
    static bool CanChangeStoreProperty(ULONG propTag) noexcept;
    /// Whether the wrapped store takes the two for the same object. False when exactly one is null, and when the store
    /// cannot tell. Never throws.
    bool CompareEntryIds(const Binary& a, const Binary& b);

    /// Makes the folder that a client is given: a CNstMapiFolder.
    virtual ATL::CComQIPtr<IMAPIFolder> CreateFolder(const ATL::CComQIPtr<IMAPIFolder>& folder);
    /// Makes the message that a client is given: a CNstMessage.
    virtual ATL::CComQIPtr<IMessage> CreateMessage(const ATL::CComQIPtr<IMessage>& message);
    /// Rewrite, in place, the values that GetProps gives a client: the first while store modification is off, the
    /// second while it is on. `props` is the block that GetProps allocated; memory is added to it with
    /// MAPIAllocateMore.
    virtual void OverrideStoreProperties(SPropValue* props, ULONG count);
    virtual void OverrideModifiableStoreProperties(SPropValue* props, ULONG count);

private:
    ATL::CComQIPtr<IMsgStore> m_store;
    ATL::CComQIPtr<IMAPISupport> m_support;
    ULONG m_references;
};

} // namespace Quillon::Nst
