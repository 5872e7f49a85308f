// CNstAttach: a wrapper of attachments, offered to hosts.
#pragma once

#include "support/ComPtr.h"
#include "support/Export.h"

namespace Quillon::Nst
{

/// Wraps IAttach and alters nothing. The library makes none itself: a host may, from a class derived from CNstMessage.
/// Any thread; the count starts at 1.
class KIVNST_API CNstAttach : public IAttach
{
public:
    KIVNST_OWN_HEAP

    /// Takes a reference on `attachment`.
    explicit CNstAttach(IAttach* attachment);
    CNstAttach(const CNstAttach&) = delete;
    CNstAttach& operator=(const CNstAttach&) = delete;

    MAPI_IUNKNOWN_METHODS(override)
    MAPI_IMAPIPROP_METHODS(override)
    MAPI_IATTACH_METHODS(override)

    virtual ~CNstAttach();

private:
    ATL::CComQIPtr<IAttach> m_attachment;
    ULONG m_references;
};

} // namespace Quillon::Nst
