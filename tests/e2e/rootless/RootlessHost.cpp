// A host with a fault: its stores have no archive root, as if it had not called ConfigureNstSubtreeEntryId.
#include "hostkit/HostKit.h"

#include "nst/KivNstCore.h"

namespace
{

class CRootlessHost : public KivNstHostKit::CArchiveHost
{
public:
    Quillon::StringW GetModuleName() const override { return L"RootlessHost.dll"; }

    ATL::CComQIPtr<IMsgStore> CreateStore(const KivNstHostKit::ArchivePointer& archive) const override
    {
        SizedSPropTagArray(1, tags) = {1, {Quillon::Nst::archiveSubtreeEntryIdTag}};
        archive->GetPstStore()->DeleteProps(reinterpret_cast<LPSPropTagArray>(&tags), nullptr);
        return CArchiveHost::CreateStore(archive);
    }
};

} // namespace

KIVNST_HOST_ENTRIES(CRootlessHost);
