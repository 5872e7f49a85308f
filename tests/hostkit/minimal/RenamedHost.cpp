// A host of its own: a read-only archive under another name, whose folders look like folders of an archive.
#include "hostkit/HostKit.h"

namespace
{

class CRenamedHost : public KivNstHostKit::CArchiveHost
{
public:
    Quillon::StringW GetModuleName() const override { return L"RenamedHost.dll"; }

    KivNstHostKit::ArchiveSettings GetSettings(IProfSect*) const override
    {
        KivNstHostKit::ArchiveSettings settings;
        settings.displayName = L"Mail of 2019";
        settings.folderValues.Set(PR_COMMENT_W, Quillon::StringW(L"Kept unchanged"));
        return settings;
    }
};

} // namespace

KIVNST_HOST_ENTRIES(CRenamedHost);
