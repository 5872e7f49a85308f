// CArchiveProvider.
#include "host/ArchiveProvider.h"

#include "host/ArchiveStore.h"
#include "host/HostSettings.h"
#include "nst/KivNstCore.h"
#include "support/com_wrap.h"

using namespace Quillon;

namespace ArchiveHost
{

CArchiveProvider::CArchiveProvider(IMSProvider* provider) : CNstMsProvider(provider) {}

CArchiveProvider::~CArchiveProvider() = default;

ATL::CComQIPtr<IMAPISupport> CArchiveProvider::CreateMapiSupport(const ATL::CComQIPtr<IMAPISupport>& support,
                                                                 const ATL::CComQIPtr<IProfSect>& section)
{
    ApplyProcessSettings(ReadHostSettings(section));
    return CNstMsProvider::CreateMapiSupport(support, section);
}

ATL::CComQIPtr<IMsgStore> CArchiveProvider::CreateMessageStore(const ATL::CComQIPtr<IMsgStore>& store,
                                                               const ATL::CComQIPtr<IMAPISupport>& support)
{
    // `store` is still the PST provider's own: only that one can be given an archive root. It does nothing when the
    // store has one, which is every logon but the first.
    ConfigureNstSubtreeEntryId(store);
    const HostSettings settings = ReadHostSettings(Nst::GetGlobalProfileSection(support));
    return com_wrap<IMsgStore>(new CArchiveStore(store, support, settings.plainWrappers));
}

} // namespace ArchiveHost
