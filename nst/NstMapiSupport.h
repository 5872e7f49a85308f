// CNstMapiSupport: the wrapper of the support object that MAPI gives a provider.
#pragma once

#include "support/ComPtr.h"
#include "support/Export.h"

namespace Quillon::Nst
{

/// The UID under which the PST provider asks its support object for the profile section of the message service.
KIVNST_API extern const MAPIUID globalProfileSectionUid;

/// Wraps IMAPISupport. ModifyStatusRow drops the identity properties, so that the store is never presented as the
/// profile's primary identity; OpenProfileSection gives the held section for GlobalProfileSectionUid; the rest is
/// passed through. Any thread; the count starts at 1.
class KIVNST_API CNstMapiSupport : public IMAPISupport
{
public:
    KIVNST_OWN_HEAP

    /// Takes a reference on each; `profileSection` may be null when GlobalProfileSectionUid is not going to be asked
    /// for.
    CNstMapiSupport(const ATL::CComQIPtr<IMAPISupport>& support, const ATL::CComQIPtr<IProfSect>& profileSection);
    CNstMapiSupport(const CNstMapiSupport&) = delete;
    CNstMapiSupport& operator=(const CNstMapiSupport&) = delete;

    MAPI_IUNKNOWN_METHODS(override)
    MAPI_IMAPISUPPORT_METHODS1(override)
    MAPI_IMAPISUPPORT_METHODS2(override)
    MAPI_IMAPISUPPORT_METHODS3(override)

    virtual ~CNstMapiSupport();

private:
    ULONG m_references;
    ATL::CComQIPtr<IMAPISupport> m_support;
    ATL::CComQIPtr<IProfSect> m_profileSection;
};

} // namespace Quillon::Nst
