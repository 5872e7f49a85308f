// An attachment of an archive.
#pragma once

#include "hostkit/Guards.h"
#include "hostkit/ReadOnlyProp.h"
#include "nst/NstAttach.h"
#include "support/com_wrap.h"

namespace KivNstHostKit
{

/// Refuses to be changed or saved; what is opened of it comes read-only. Made by MakeAttachment. Any thread.
class CArchiveAttachment : public CReadOnlyProp<Quillon::Nst::CNstAttach, IAttach>
{
public:
    /// Takes a reference on `attachment`, the PST's.
    CArchiveAttachment(ArchivePointer archive, IAttach* attachment)
        : CReadOnlyProp(std::move(archive), attachment, attachment)
    {
    }

    STDMETHODIMP SaveChanges(ULONG ulFlags) override
    {
        return m_archive->IsWritable() ? CNstAttach::SaveChanges(ulFlags) : Refuse(L"SaveChanges");
    }
};

/// The attachment that a client is given over the PST's, which must not be null.
inline ATL::CComQIPtr<IAttach> MakeAttachment(const ArchivePointer& archive, const ATL::CComQIPtr<IAttach>& attachment)
{
    return Quillon::com_wrap<IAttach>(new CAttachGuard<CArchiveAttachment>(archive, Quillon::com_wrap(attachment).p));
}

} // namespace KivNstHostKit
