// The provider that the sample host gives MAPI.
#pragma once

#include "nst/NstMsProvider.h"

namespace ArchiveHost
{

/// The library's provider wrapper with the host's own store. It keeps nothing between logons, so that several logons,
/// on several threads, are no concern of each other.
class CArchiveProvider : public Quillon::Nst::CNstMsProvider
{
public:
    explicit CArchiveProvider(IMSProvider* provider);
    ~CArchiveProvider() override;

protected:
    /// The first thing of every logon: the process-wide settings are put into effect here, before the PST provider
    /// opens its file.
    ATL::CComQIPtr<IMAPISupport> CreateMapiSupport(const ATL::CComQIPtr<IMAPISupport>& support,
                                                   const ATL::CComQIPtr<IProfSect>& section) override;

    /// Prepares the archive subtree root on the first logon to a store and gives the host's store.
    ATL::CComQIPtr<IMsgStore> CreateMessageStore(const ATL::CComQIPtr<IMsgStore>& store,
                                                 const ATL::CComQIPtr<IMAPISupport>& support) override;
};

} // namespace ArchiveHost
