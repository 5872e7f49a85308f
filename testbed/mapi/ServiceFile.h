// MAPISVC.INF: the message services that are installed on this computer, as MAPI's administration reads them.
#pragma once

#include "testbed/mapi/ProviderAdmin.h"

#include <filesystem>

namespace Testbed
{
/// A service as the file describes it.
struct InstalledService
{
    /// The left side of its line in [Services], the name of its section and its PR_SERVICE_NAME.
    std::wstring name;
    /// The entries of its section; PR_DISPLAY_NAME only when the section has it.
    std::vector<PropValue> properties;
    std::vector<ProviderDefinition> providers;

    struct ExtraSection
    {
        Uid uid;
        std::vector<PropValue> properties;
    };
    /// What stands under "Sections".
    std::vector<ExtraSection> sections;
};

/// The file. It is read anew each time, by Windows' INI functions: comments, quotation marks, letter case and the code
/// page are as they have it. An entry's key is the name of a property or its tag in 8 hexadecimal digits (with 0x
/// before it or not); what is neither is no property and passed over. Of a long under a tag the 4 bytes stand low
/// first. Flags and types are names or numbers, flags joined by "|".
namespace ServiceFile
{
/// Beside this module, or else in the system folder. Throws `Failure` (MAPI_E_NOT_FOUND).
std::filesystem::path Path();

/// The service of that name; nothing when [Services] has none. Throws `Failure`: as `Path` does, and
/// MAPI_E_CORRUPT_DATA for an entry that cannot be read.
std::optional<InstalledService> Find(const std::wstring& name);
/// The names in [Default Services].
std::vector<std::wstring> DefaultServices();
} // namespace ServiceFile
} // namespace Testbed
