// What a registration consists of, what would change, and what is wrong.
#include "tools/setup/Registration.h"

#include "nst/StoreProviderRegistration.h"
#include "support/Exceptions.h"
#include "tools/setup/Locations.h"
#include "tools/setup/Probe.h"
#include "tools/setup/Text.h"

#include <windows.h>

#include <algorithm>
#include <iterator>

namespace Setup
{
namespace
{

using Quillon::StringW;

constexpr auto servicesSection = L"Services";
constexpr auto ownFlags = L"SERVICE_NO_PRIMARY_IDENTITY";

/// The provider's private property by which registration marks an archive store's provider.
constexpr auto providerMark = L"0x67020003";
constexpr auto providerMarkValue = L"00000010";

/// What stands before the names of provider sections is the service's; this stands behind.
std::wstring GetProviderSuffix()
{
    return GetProviderSection(L"");
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

/// Throws SetupError unless the text is empty or consists of names of service flags, joined by |.
void RequireKnownFlags(const std::wstring& flags)
{
    for (std::size_t begin = 0; !flags.empty() && begin <= flags.size();)
    {
        const std::size_t end = std::min(flags.find(L'|', begin), flags.size());
        const std::wstring flag = flags.substr(begin, end - begin);
        if (flag == L"SERVICE_PRIMARY_IDENTITY")
            throw SetupError(Quote(flag) + L" contradicts " + ownFlags + L", which every archive store's service has.");
        if (flag != L"SERVICE_SINGLE_COPY" && flag != L"SERVICE_DEFAULT_STORE" &&
            flag != L"SERVICE_CREATE_WITH_STORE" && flag != ownFlags)
            throw SetupError(Quote(flag) + L" is no flag of a message service.");
        begin = end + 1;
    }
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

/// What stands in a path behind its folders.
std::wstring GetFileName(const std::wstring& path)
{
    return path.substr(path.find_last_of(L"\\/") + 1);
}

/// Whether the DLLs that the service and its provider name, and the expected one, are one: a host is known by its
/// module's name, wherever it lies.
bool NamesOneDll(const InfFile& file, const std::wstring& serviceName, const std::optional<std::wstring>& dllName)
{
    auto known = dllName;
    for (const auto& actual : {file.Read(GetProviderSection(serviceName), L"PR_PROVIDER_DLL_NAME"),
                               file.Read(serviceName, L"PR_SERVICE_DLL_NAME")})
    {
        if (known && actual && !EqualNames(GetFileName(*known), GetFileName(*actual)))
            return false;
        if (!known)
            known = actual;
    }
    return true;
}

bool Exists(const InfFile& file, const std::wstring& serviceName)
{
    return file.Read(servicesSection, serviceName) || file.HasSection(serviceName) ||
           file.HasSection(GetProviderSection(serviceName));
}

/// Whether `file` has of a service nothing but the first of the entries, as a registration leaves it that failed before
/// it came to the provider's mark.
bool IsBeginning(const InfFile& file, const std::wstring& serviceName, const std::vector<Entry>& entries)
{
    const std::vector<Entry> written = file.Entries(GetProviderSection(serviceName));
    if (written.empty() || written.size() > entries.size() || file.HasSection(serviceName) ||
        file.Read(servicesSection, serviceName))
        return false;
    return std::equal(written.begin(), written.end(), entries.begin(), [](const Entry& actual, const Entry& entry)
                      { return EqualNames(actual.key, entry.key) && actual.value == entry.value; });
}

/// Whether what the file has under a service's name was written by registering it: all of it but one entry is what
/// registration writes; or the provider has registration's mark, and the DLLs agree. Where the host's DLL is known, the
/// beginning of a registration is its own, too.
bool IsOwn(const InfFile& file, const std::wstring& serviceName, const std::optional<std::wstring>& dllName)
{
    if (file.Read(GetProviderSection(serviceName), providerMark) == providerMarkValue &&
        NamesOneDll(file, serviceName, dllName))
        return true;
    // Otherwise there are both sections, or the beginning of one.
    if (!file.HasSection(GetProviderSection(serviceName)) || (!file.HasSection(serviceName) && !dllName))
        return false;
    std::vector<std::optional<std::wstring>> dlls = {dllName};
    // Of two that differ, either may be the one that is wrong.
    if (!dllName)
        dlls = {file.Read(serviceName, L"PR_SERVICE_DLL_NAME"),
                file.Read(GetProviderSection(serviceName), L"PR_PROVIDER_DLL_NAME")};
    const auto differs = [&](const Entry& entry) { return file.Read(entry.section, entry.key) != entry.value; };
    return std::any_of(dlls.begin(), dlls.end(),
                       [&](const std::optional<std::wstring>& dll)
                       {
                           const auto entries = ListEntries(Complete(file, {serviceName, {}, dll, {}}));
                           return std::count_if(entries.begin(), entries.end(), differs) <= 1 ||
                                  (dllName && IsBeginning(file, serviceName, entries));
                       });
}

/// While it lives, a file's attributes may be cleared: afterwards they are there again.
class KeptAttributes
{
public:
    explicit KeptAttributes(const std::wstring& path) : m_path(path), m_attributes(GetFileAttributesW(path.c_str())) {}
    KeptAttributes(const KeptAttributes&) = delete;
    KeptAttributes& operator=(const KeptAttributes&) = delete;
    ~KeptAttributes() { Restore(); }

    bool Restore() const noexcept
    {
        constexpr DWORD kept = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
        const DWORD now = GetFileAttributesW(m_path.c_str());
        if (m_attributes == INVALID_FILE_ATTRIBUTES || now == INVALID_FILE_ATTRIBUTES ||
            (m_attributes & kept & ~now) == 0)
            return true;
        return SetFileAttributesW(m_path.c_str(), (now & ~DWORD{FILE_ATTRIBUTE_NORMAL}) | (m_attributes & kept)) != 0;
    }

private:
    const std::wstring m_path;
    const DWORD m_attributes;
};

/// Changes the file by the library, which clears its attributes, and sets them again.
template <class Work>
void ChangeFile(const InfFile& file, const std::wstring& task, Work work)
{
    const KeptAttributes attributes(file.Path());
    try
    {
        work();
    }
    catch (const Quillon::CException& exception)
    {
        ThrowAsSetupError(task, file, exception);
    }
    if (!attributes.Restore())
        throw SetupError(task + L" is done, but " + Quote(file.Path()) + L" cannot get its attributes back.");
}

} // namespace

StringW ToString(const std::wstring& text)
{
    return StringW(text.c_str(), text.size());
}

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
    RequireKnownFlags(service.extraFlags);
}

void RequireOwn(const InfFile& file, const std::wstring& serviceName, const std::optional<std::wstring>& dllName)
{
    for (const wchar_t* const section :
         {servicesSection, L"Default Services", L"Default Providers", L"Help File Mappings"})
    {
        if (EqualNames(serviceName, section))
            throw SetupError(Quote(serviceName) + L" is a section of MAPISVC.INF itself and no service's name.");
    }
    if (!Exists(file, serviceName) || IsOwn(file, serviceName, dllName))
        return;
    if (dllName && IsOwn(file, serviceName, std::nullopt))
    {
        throw SetupError(Quote(serviceName) + L" in " + Quote(file.Path()) + L" is another host's: its DLL is " +
                         Quote(Complete(file, {serviceName, {}, {}, {}}).dllName) + L" and not " + Quote(*dllName) +
                         L".");
    }
    throw SetupError(L"What " + Quote(file.Path()) + L" has under the name " + Quote(serviceName) +
                     L" is no registration of an archive store; it is left as it is.");
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
    ChangeFile(file, L"Registering " + Quote(service.name), [&] { WriteEntries(file.Path(), service); });
}

void Unregister(const InfFile& file, const std::wstring& serviceName)
{
    ChangeFile(file, L"Removing " + Quote(serviceName),
               [&] { Quillon::OutlookAddIn::UnregisterStoreProvider(ToString(serviceName), ToString(file.Path())); });
}

Status GetStatus(const InfFile& file, const Expectation& expectation)
{
    Status status;
    status.service = Complete(file, expectation);
    if (!Exists(file, expectation.name))
        return status;
    if (!IsOwn(file, expectation.name, std::nullopt))
    {
        status.state = Status::State::Foreign;
        return status;
    }

    status.state = Status::State::Registered;
    try
    {
        for (Entry& entry : ListEntries(status.service))
        {
            auto actual = file.Read(entry.section, entry.key);
            if (!actual)
                status.problems.push_back({Problem::Kind::MissingEntry, std::move(entry), {}, {}});
            else if (*actual != entry.value)
                status.problems.push_back({Problem::Kind::WrongValue, std::move(entry), std::move(*actual), {}});
        }
    }
    catch (const Quillon::CException& exception)
    {
        ThrowAsSetupError(L"Checking " + Quote(expectation.name), file, exception);
    }

    const std::wstring& dllName = status.service.dllName;
    status.dllPath = FindProviderDll(dllName);
    const Entry named = {expectation.name, L"PR_SERVICE_DLL_NAME", dllName};
    if (!status.dllPath && !dllName.empty())
        status.problems.push_back({Problem::Kind::MissingDll, named, FindDllWithoutSuffix(dllName).value_or(L""), {}});
    if (status.dllPath)
        for (DllProblem& problem : ProbeDll(*status.dllPath))
            status.problems.push_back({Problem::Kind::UnusableDll, named, *status.dllPath, std::move(problem)});
    return status;
}

std::vector<std::wstring> FindServices(const InfFile& file)
{
    const std::wstring suffix = GetProviderSuffix();
    std::vector<std::wstring> names;
    const auto add = [&](const std::wstring& name)
    {
        const auto isSame = [&](const std::wstring& known) { return EqualNames(known, name); };
        if (std::none_of(names.begin(), names.end(), isSame) && IsOwn(file, name, std::nullopt))
            names.push_back(name);
    };
    for (const std::wstring& section : file.Sections())
    {
        const auto providers = file.Read(section, L"Providers");
        if (providers && EqualNames(*providers, GetProviderSection(section)))
            add(section);
        if (section.size() > suffix.size() && EqualNames(section.substr(section.size() - suffix.size()), suffix))
            add(section.substr(0, section.size() - suffix.size()));
    }
    return names;
}

} // namespace Setup
