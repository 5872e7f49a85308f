// CNstMsProvider: the wrapper of the PST provider's IMSProvider, where the tree of wrappers comes into being.
#pragma once

#include "support/ComPtr.h"
#include "support/Export.h"

namespace Quillon::Nst
{

/// Wraps IMSProvider. Logon gives the PST provider a wrapped support object, forces the store open in Unicode format,
/// writes the store's offline-folder identifier and gives MAPI a wrapped logon and store; SpoolerLogon wraps only the
/// support object; the rest is passed through. A host derives from it to return its own wrappers from the factories.
/// Any thread; the count starts at 1.
class KIVNST_API CNstMsProvider : public IMSProvider
{
public:
    KIVNST_OWN_HEAP

    /// Takes a reference on `provider`.
    explicit CNstMsProvider(IMSProvider* provider);
    CNstMsProvider(const CNstMsProvider&) = delete;
    CNstMsProvider& operator=(const CNstMsProvider&) = delete;

    MAPI_IUNKNOWN_METHODS(override)
    MAPI_IMSPROVIDER_METHODS(override)

    virtual ~CNstMsProvider();

protected:
    /// Makes the support object that the PST provider is given: a CNstMapiSupport.
    virtual ATL::CComQIPtr<IMAPISupport> CreateMapiSupport(const ATL::CComQIPtr<IMAPISupport>& support,
                                                           const ATL::CComQIPtr<IProfSect>& section);
    /// Makes the store that MAPI is given: a CNstMsgStore.
    virtual ATL::CComQIPtr<IMsgStore> CreateMessageStore(const ATL::CComQIPtr<IMsgStore>& store,
                                                         const ATL::CComQIPtr<IMAPISupport>& support);
    /// Creates the folder "Archiver Store Root" under the IPM subtree of `store`, which must be the PST store itself,
    /// and records it there; does nothing when the store has one. Not called by the library: a host calls it, from an
    /// overridden CreateMessageStore say. Throws what the store's failures give.
    virtual void ConfigureNstSubtreeEntryId(const ATL::CComQIPtr<IMsgStore>& store);
    /// Makes the logon that MAPI is given: a CNstMsLogon.
    virtual ATL::CComQIPtr<IMSLogon> CreateMsLogon(const ATL::CComQIPtr<IMSLogon>& logon,
                                                   const ATL::CComQIPtr<IMsgStore>& store);

private:
    ATL::CComQIPtr<IMAPISupport> WrapSupport(const ATL::CComQIPtr<IMAPISupport>& support);

    ULONG m_references;
    ATL::CComQIPtr<IMSProvider> m_provider;
};

} // namespace Quillon::Nst
