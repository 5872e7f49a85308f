// The smallest host: a read-only archive under a name of its own.
#include "hostkit/HostKit.h"

namespace
{

class CMinimalHost : public KivNstHostKit::CArchiveHost
{
public:
    // As it is registered, without the 32.
    Quillon::StringW GetModuleName() const override { return L"MinimalHost.dll"; }

    KivNstHostKit::ArchiveSettings GetSettings(IProfSect*) const override
    {
        KivNstHostKit::ArchiveSettings settings;
        settings.displayName = L"My archive";
        return settings;
    }
};

} // namespace

KIVNST_HOST_ENTRIES(CMinimalHost);
