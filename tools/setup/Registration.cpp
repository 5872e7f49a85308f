// What a registration consists of, what would change, and what is wrong.
#include "tools/setup/Registration.h"

#include "nst/StoreProviderRegistration.h"
#include "support/Exceptions.h"
#include "tools/setup/Locations.h"
#include "tools/setup/Text.h"

#include <algorithm>
#include <iterator>

namespace Setup
{
namespace
{

using Quillon::StringW;

constexpr auto servicesSection = L"Services";
constexpr auto ownFlags = L"SERVICE_NO_PRIMARY_IDENTITY";

/// The provider's private property that no provider but an archive store's has.
constexpr auto providerMark = L"0x67020003";

/// What stands before the names of provider sections is the service's; this stands behind.
std::wstring GetProviderSuffix()
{
    return GetProviderSection(L"");
}

StringW ToString(const std::wstring& text)
{
    return StringW(text.c_str(), text.size());
}

std::wstring Quote(const std::wstring& text)
{
    return L"\"" + text + L"\"";
}

void WriteEntries(const std::wstring& path, const Service& service)
{
    Quillon::OutlookAddIn::RegisterStoreProvider(ToString(service.name), ToString(service.displayName),
                                                 ToString(service.dllName), ToString(path),
                                                 ToString(service.extraFlags));
}

/// The entries that the library writes for a service, in its order.
std::vector<Entry> ListEntries(const Service& service)
{
    const ScratchFile scratch;
    WriteEntries(scratch.Path(), service);
    const InfFile file(scratch.Path());
    std::vector<Entry> entries;
    for (const std::wstring& section : file.Sections())
    {
        std::vector<Entry> more = file.Entries(section);
        std::move(more.begin(), more.end(), std::back_inserter(entries));
    }
    return entries;
}

[[noreturn]] void ThrowAsSetupError(const std::wstring& task, const InfFile& file, const Quillon::CException& exception)
{
    throw SetupError(task + L" in " + Quote(file.Path()) + L" failed: " + exception.Format().GetString());
}

/// Throws SetupError unless the INI functions give the text back as it was written.
void RequireSoundText(const std::wstring& text, const std::wstring& what)
{
    const auto isControl = [](wchar_t character) { return character < L' ' || character == L'\x7F'; };
    if (std::any_of(text.begin(), text.end(), isControl))
        throw SetupError(what + L" must not hold control characters.");
    if (text.empty())
        return;
    const auto isOuter = [](wchar_t character) { return character == L' ' || character == L'"' || character == L'\''; };
    if (isOuter(text.front()) || isOuter(text.back()))
        throw SetupError(what + L" must not begin or end with a blank or a quotation mark.");
}

void RequireGiven(const std::wstring& text, const std::wstring& what)
{
    if (text.empty())
        throw SetupError(what + L" must not be empty.");
}

/// The first of several entries that is there.
std::optional<std::wstring> ReadFirst(const InfFile& file,
                                      const std::vector<std::pair<std::wstring, std::wstring>>& places)
{
    for (const auto& [section, key] : places)
        if (auto value = file.Read(section, key))
            return value;
    return std::nullopt;
}

/// Fills in what is not known of a service from what is registered of it.
Service Complete(const InfFile& file, const Expectation& known)
{
    const std::wstring provider = GetProviderSection(known.name);
    Service service{known.name, {}, {}, {}};

    auto displayName = known.displayName;
    if (!displayName)
    {
        displayName = ReadFirst(
            file, {{known.name, L"PR_DISPLAY_NAME"}, {servicesSection, known.name}, {provider, L"PR_DISPLAY_NAME"}});
    }
    service.displayName = displayName.value_or(known.name);

    auto dllName = known.dllName;
    if (!dllName)
    {
        dllName = ReadFirst(file, {{known.name, L"PR_SERVICE_DLL_NAME"},
                                   {provider, L"PR_PROVIDER_DLL_NAME"},
                                   {known.name, L"PR_SERVICE_SUPPORT_FILES"},
                                   {known.name, L"PR_SERVICE_DELETE_FILES"}});
    }
    service.dllName = dllName.value_or(L"");

    if (known.extraFlags)
    {
        service.extraFlags = *known.extraFlags;
    }
    else if (const auto flags = file.Read(known.name, L"PR_RESOURCE_FLAGS"))
    {
        const std::wstring head = std::wstring(ownFlags) + L"|";
        if (flags->compare(0, head.size(), head) == 0)
            service.extraFlags = flags->substr(head.size());
    }
    return service;
}

} // namespace

std::wstring GetProviderSection(const std::wstring& serviceName)
{
    return Quillon::OutlookAddIn::GetStoreProviderNameFromServiceName(ToString(serviceName)).GetString();
}

void RequireSoundName(const std::wstring& serviceName)
{
    const std::wstring what = L"The service's name";
    RequireGiven(serviceName, what);
    RequireSoundText(serviceName, what);
    if (serviceName.find_first_of(L"[]=;") != std::wstring::npos)
        throw SetupError(what + L" must not hold any of the characters [ ] = ;");
}

void RequireSound(const Service& service)
{
    RequireSoundName(service.name);
    RequireGiven(service.displayName, L"The display name");
    RequireSoundText(service.displayName, L"The display name");
    RequireGiven(service.dllName, L"The DLL's name");
    RequireSoundText(service.dllName, L"The DLL's name");
    RequireSoundText(service.extraFlags, L"The service's flags");
}

void RequireOwn(const InfFile& file, const std::wstring& serviceName)
{
    for (const wchar_t* const section :
         {servicesSection, L"Default Services", L"Default Providers", L"Help File Mappings"})
    {
        if (EqualNames(serviceName, section))
            throw SetupError(Quote(serviceName) + L" is a section of MAPISVC.INF itself and no service's name.");
    }
    const std::wstring provider = GetProviderSection(serviceName);
    const auto providers = file.Read(serviceName, L"Providers");
    if (providers && !EqualNames(*providers, provider) && !file.Read(provider, providerMark))
    {
        throw SetupError(L"The service " + Quote(serviceName) + L" in " + Quote(file.Path()) +
                         L" is not an archive store's: its provider is " + Quote(*providers) + L".");
    }
}

std::vector<Change> PlanRegistration(const InfFile& file, const Service& service)
{
    try
    {
        const ScratchFile scratch(file.Path());
        WriteEntries(scratch.Path(), service);
        const InfFile written(scratch.Path());

        std::vector<Change> changes;
        for (Entry& entry : ListEntries(service))
        {
            if (written.Read(entry.section, entry.key) != entry.value)
            {
                throw SetupError(L"The file " + Quote(file.Path()) + L" cannot hold " + Quote(entry.value) +
                                 L": it is not in Unicode, and its character set lacks one of the characters.");
            }
            auto previous = file.Read(entry.section, entry.key);
            if (!previous)
                changes.push_back({Change::Kind::Add, std::move(entry), {}});
            else if (*previous == entry.value)
                changes.push_back({Change::Kind::Keep, std::move(entry), {}});
            else
                changes.push_back({Change::Kind::Replace, std::move(entry), std::move(*previous)});
        }
        return changes;
    }
    catch (const Quillon::CException& exception)
    {
        ThrowAsSetupError(L"Trying the registration out", file, exception);
    }
}

std::vector<Change> PlanRemoval(const InfFile& file, const std::wstring& serviceName)
{
    std::vector<Change> changes;
    if (auto displayName = file.Read(servicesSection, serviceName))
        changes.push_back({Change::Kind::Remove, {servicesSection, serviceName, std::move(*displayName)}, {}});
    for (const std::wstring& section : {serviceName, GetProviderSection(serviceName)})
        for (Entry& entry : file.Entries(section))
            changes.push_back({Change::Kind::Remove, std::move(entry), {}});
    return changes;
}

void Register(const InfFile& file, const Service& service)
{
    try
    {
        WriteEntries(file.Path(), service);
    }
    catch (const Quillon::CException& exception)
    {
        ThrowAsSetupError(L"Registering " + Quote(service.name), file, exception);
    }
}

void Unregister(const InfFile& file, const std::wstring& serviceName)
{
    try
    {
        Quillon::OutlookAddIn::UnregisterStoreProvider(ToString(serviceName), ToString(file.Path()));
    }
    catch (const Quillon::CException& exception)
    {
        ThrowAsSetupError(L"Removing " + Quote(serviceName), file, exception);
    }
}

Status GetStatus(const InfFile& file, const Expectation& expectation)
{
    const std::wstring provider = GetProviderSection(expectation.name);
    Status status;
    status.service = Complete(file, expectation);
    status.isRegistered =
        file.Read(servicesSection, expectation.name) || file.HasSection(expectation.name) || file.HasSection(provider);
    if (!status.isRegistered)
        return status;

    try
    {
        for (Entry& entry : ListEntries(status.service))
        {
            auto actual = file.Read(entry.section, entry.key);
            if (!actual)
                status.problems.push_back({Problem::Kind::MissingEntry, std::move(entry), {}});
            else if (*actual != entry.value)
                status.problems.push_back({Problem::Kind::WrongValue, std::move(entry), std::move(*actual)});
        }
    }
    catch (const Quillon::CException& exception)
    {
        ThrowAsSetupError(L"Checking " + Quote(expectation.name), file, exception);
    }

    status.dllPath = FindProviderDll(status.service.dllName);
    if (!status.dllPath && !status.service.dllName.empty())
    {
        status.problems.push_back(
            {Problem::Kind::MissingDll, {expectation.name, L"PR_SERVICE_DLL_NAME", status.service.dllName}, {}});
    }
    return status;
}

std::vector<std::wstring> FindServices(const InfFile& file)
{
    const std::wstring suffix = GetProviderSuffix();
    std::vector<std::wstring> names;
    const auto add = [&](const std::wstring& name)
    {
        const auto isSame = [&](const std::wstring& known) { return EqualNames(known, name); };
        if (std::none_of(names.begin(), names.end(), isSame))
            names.push_back(name);
    };
    for (const std::wstring& section : file.Sections())
    {
        const auto providers = file.Read(section, L"Providers");
        if (providers && EqualNames(*providers, GetProviderSection(section)))
            add(section);
        if (section.size() > suffix.size() && EqualNames(section.substr(section.size() - suffix.size()), suffix) &&
            file.Read(section, providerMark))
            add(section.substr(0, section.size() - suffix.size()));
    }
    return names;
}

} // namespace Setup
