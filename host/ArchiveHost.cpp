// The sample host: a store provider module over the library's host kit, the pattern for a host of one's own.
//
// A module becomes a store provider by deriving one class from CArchiveHost, naming it in the line at the end, and
// being registered in MAPISVC.INF, which archive-setup does. What is more than that here is what this host lets its
// users set.
#include "host/HostSettings.h"
#include "hostkit/ExactWrappers.h"
#include "hostkit/HostKit.h"
#include "support/Format.h"

using namespace Quillon;
using namespace ArchiveHost;

namespace
{

/// The file name under which MAPI knows this module; it gets into the entry IDs of its stores.
constexpr auto moduleName = L"ArchiveHost.dll";

constexpr LONG libraryWrappers = OptionPlainWrappers | OptionLibraryWrappers;

/// The options among the values of a configure call.
LONG FindOptions(const SPropValue* values, ULONG count)
{
    LONG options = 0;
    for (ULONG index = 0; index < count; ++index)
        if (values[index].ulPropTag == PR_ARCHIVE_HOST_OPTIONS)
            options = values[index].Value.l;
    return options;
}

class CSampleHost : public KivNstHostKit::CArchiveHost
{
public:
    StringW GetModuleName() const override { return moduleName; }

    KivNstHostKit::ArchiveSettings GetSettings(IProfSect* section) const override
    {
        KivNstHostKit::ArchiveSettings settings;
        if (const auto options = Mapi::TryQueryItemProperty(section, PR_ARCHIVE_HOST_OPTIONS))
            settings.hostOptions = options->Value.l;
        if (const auto logFile = Mapi::TryQueryItemProperty(section, PR_ARCHIVE_HOST_LOG_FILE))
            settings.log.path = logFile->Value.lpszW;
        settings.isWritable = (settings.hostOptions & (OptionModifyStores | libraryWrappers)) != 0;
        if (settings.hostOptions & libraryWrappers)
            Nst::SetModifyStores((settings.hostOptions & OptionModifyStores) != 0);
        return settings;
    }

    void CheckConfiguration(const SPropValue* values, ULONG count) const override
    {
        const LONG options = FindOptions(values, count);
        if (options & ~OptionsKnown)
        {
            throw Mapi::ExtendedMapiError(
                FormatString(L"The archive's options 0x%08X hold bits that this version does not know.", options),
                moduleName, 0, 0);
        }
    }

    Mapi::SPropValueVector GetFirstSettings(SPropValue* values, ULONG count) const override
    {
        Mapi::SPropValueVector settings;
        settings.AddLong(PR_ARCHIVE_HOST_OPTIONS, FindOptions(values, count));
        return settings;
    }

    ATL::CComQIPtr<IMsgStore> CreateStore(const KivNstHostKit::ArchivePointer& archive) const override
    {
        const LONG options = archive->GetSettings().hostOptions;
        return options & libraryWrappers ? KivNstHostKit::MakeExactStore(archive, options & OptionPlainWrappers)
                                         : CArchiveHost::CreateStore(archive);
    }
};

} // namespace

KIVNST_HOST_ENTRIES(CSampleHost);
