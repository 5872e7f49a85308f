// The tool's commands.
#include "tools/setup/Commands.h"

#include "nst/KivNstCore.h"
#include "support/Exceptions.h"
#include "support/Log.h"
#include "tools/common/Program.h"
#include "tools/setup/Locations.h"
#include "tools/setup/Text.h"

#include <algorithm>
#include <cstdio>
#include <cwchar>

namespace Setup
{
namespace
{

using nlohmann::ordered_json;

bool g_showAll = false;
bool g_wasExcluded = false;

void CALLBACK ShowLine(void*, const Quillon::Logging::LogLine& line) noexcept
{
    if (std::wcscmp(line.text, L"Store was already excluded from indexing") == 0)
        g_wasExcluded = true;
    if (!g_showAll && !std::wcsstr(line.text, L"ERROR_USER_MAPPED_FILE; retrying"))
        return;
    try
    {
        const std::string text = ToUtf8(Quillon::Logging::GetLevelName(line.level)) + ": " + ToUtf8(line.text) + "\n";
        std::fwrite(text.data(), 1, text.size(), stderr);
    }
    catch (...)
    {
        std::fputs("(there is no memory for this line of the log)\n", stderr);
    }
    std::fflush(stderr);
}

Location Locate(const std::optional<std::wstring>& inf)
{
    Location location = inf ? Location{GetFullPath(*inf), L"given by --inf"} : FindMapiSvcInf();
    InfFile(location.path).RequireUsable();
    return location;
}

std::wstring FormatEntry(const Entry& entry)
{
    return L"[" + entry.section + L"] " + entry.key + L" = " + entry.value;
}

ordered_json ToJson(const Entry& entry)
{
    return {{"section", ToUtf8(entry.section)}, {"key", ToUtf8(entry.key)}, {"value", ToUtf8(entry.value)}};
}

const char* GetName(Change::Kind kind)
{
    switch (kind)
    {
    case Change::Kind::Add:
        return "add";
    case Change::Kind::Replace:
        return "replace";
    case Change::Kind::Keep:
        return "keep";
    case Change::Kind::Remove:
        break;
    }
    return "remove";
}

std::wstring FormatChange(const Change& change)
{
    std::wstring name = ToWide(GetName(change.kind));
    name.resize(8, L' ');
    std::wstring text = L"  " + name + FormatEntry(change.entry);
    if (change.kind == Change::Kind::Replace)
        text += L" (now: " + change.previous + L")";
    return text + L"\n";
}

std::wstring FormatChanges(const std::vector<Change>& changes)
{
    std::wstring text;
    for (const Change& change : changes)
        text += FormatChange(change);
    return text;
}

ordered_json ToJson(const std::vector<Change>& changes)
{
    ordered_json list = ordered_json::array();
    for (const Change& change : changes)
    {
        ordered_json item = ToJson(change.entry);
        item["change"] = GetName(change.kind);
        if (change.kind == Change::Kind::Replace)
            item["previous"] = ToUtf8(change.previous);
        list.push_back(std::move(item));
    }
    return list;
}

ordered_json ToJson(const Location& location)
{
    return {{"path", ToUtf8(location.path)}, {"found", ToUtf8(location.how)}};
}

std::wstring Count(std::size_t count, const std::wstring& what)
{
    return std::to_wstring(count) + L" " + what + (count == 1 ? L"" : L"s");
}

std::size_t CountKind(const std::vector<Change>& changes, Change::Kind kind)
{
    std::size_t count = 0;
    for (const Change& change : changes)
        count += change.kind == kind ? 1 : 0;
    return count;
}

std::wstring FormatProblem(const Problem& problem)
{
    switch (problem.kind)
    {
    case Problem::Kind::MissingEntry:
        return L"  missing entry: " + FormatEntry(problem.entry) + L"\n";
    case Problem::Kind::WrongValue:
        return L"  wrong value: " + FormatEntry(problem.entry) + L" expected, found: " + problem.actual + L"\n";
    case Problem::Kind::UnusableDll:
        return L"  " + problem.dll.kind + L": " + problem.dll.detail + L"\n";
    case Problem::Kind::MissingDll:
        break;
    }
    return L"  missing file: the DLL " + problem.entry.value + L", which MAPI loads as " +
           GetLoadedName(problem.entry.value) + L", is in none of the folders where it looks for it" +
           (problem.actual.empty() ? L"" : L"; " + problem.actual + L" lacks the 32") + L"\n";
}

ordered_json ToJson(const Problem& problem)
{
    if (problem.kind == Problem::Kind::MissingDll)
    {
        ordered_json item = {{"problem", "missing file"},
                             {"file", ToUtf8(problem.entry.value)},
                             {"loadedAs", ToUtf8(GetLoadedName(problem.entry.value))}};
        if (!problem.actual.empty())
            item["withoutSuffix"] = ToUtf8(problem.actual);
        return item;
    }
    if (problem.kind == Problem::Kind::UnusableDll)
    {
        return {{"problem", ToUtf8(problem.dll.kind)},
                {"file", ToUtf8(problem.actual)},
                {"detail", ToUtf8(problem.dll.detail)}};
    }
    ordered_json item = {{"problem", problem.kind == Problem::Kind::MissingEntry ? "missing entry" : "wrong value"},
                         {"section", ToUtf8(problem.entry.section)},
                         {"key", ToUtf8(problem.entry.key)},
                         {"expected", ToUtf8(problem.entry.value)}};
    if (problem.kind == Problem::Kind::WrongValue)
        item["found"] = ToUtf8(problem.actual);
    return item;
}

ExitCode GetCode(const Status& status)
{
    if (status.state != Status::State::Registered)
        return ExitCode::NotRegistered;
    return status.problems.empty() ? ExitCode::Success : ExitCode::Faulty;
}

const char* GetStateName(const Status& status)
{
    if (status.state == Status::State::Foreign)
        return "not an archive store";
    if (status.state == Status::State::NotRegistered)
        return "not registered";
    return status.problems.empty() ? "registered" : "faulty";
}

std::wstring FormatStatus(const Status& status)
{
    const Service& service = status.service;
    if (status.state == Status::State::Foreign)
        return L"\"" + service.name + L"\" is in the file, but is no registration of an archive store.\n";
    if (status.state == Status::State::NotRegistered)
        return L"\"" + service.name + L"\" is not registered.\n";
    std::wstring text = L"\"" + service.name + L"\", shown as \"" + service.displayName + L"\": " +
                        (status.problems.empty() ? L"registered, nothing is wrong"
                                                 : L"registered, " + Count(status.problems.size(), L"problem")) +
                        L"\n";
    if (status.dllPath)
        text += L"  DLL: " + service.dllName + L", found as " + *status.dllPath + L"\n";
    for (const Problem& problem : status.problems)
        text += FormatProblem(problem);
    return text;
}

ordered_json ToJson(const Status& status)
{
    ordered_json item = {{"service", ToUtf8(status.service.name)}, {"state", GetStateName(status)}};
    if (status.state != Status::State::Registered)
        return item;
    item["provider"] = ToUtf8(GetProviderSection(status.service.name));
    item["displayName"] = ToUtf8(status.service.displayName);
    item["dll"] = ToUtf8(status.service.dllName);
    item["dllPath"] = status.dllPath ? ordered_json(ToUtf8(*status.dllPath)) : ordered_json(nullptr);
    item["extraFlags"] = ToUtf8(status.service.extraFlags);
    item["problems"] = ordered_json::array();
    for (const Problem& problem : status.problems)
        item["problems"].push_back(ToJson(problem));
    return item;
}

int GetDigit(wchar_t character)
{
    if (character >= L'0' && character <= L'9')
        return character - L'0';
    if (character >= L'a' && character <= L'f')
        return character - L'a' + 10;
    if (character >= L'A' && character <= L'F')
        return character - L'A' + 10;
    throw SetupError(L"The store's identifier must consist of hexadecimal digits.");
}

Quillon::Binary ParseId(const std::wstring& id)
{
    if (id.size() % 2 != 0)
        throw SetupError(L"The store's identifier must have two hexadecimal digits for each byte.");
    Quillon::Binary bytes;
    bytes.SetSize(id.size() / 2);
    for (std::size_t at = 0; at < id.size(); at += 2)
        bytes.GetBuffer()[at / 2] = static_cast<BYTE>(GetDigit(id[at]) * 16 + GetDigit(id[at + 1]));
    return bytes;
}

std::wstring GetUrl(const Store& store)
{
    try
    {
        return Quillon::Nst::GetStoreMapiUrl(ParseId(store.id), ToString(store.name)).GetString();
    }
    catch (const Quillon::CException& exception)
    {
        throw SetupError(std::wstring(L"The store's URL cannot be built: ") + exception.Format().GetString());
    }
}

} // namespace

void ShowLog(bool all) noexcept
{
    g_showAll = all;
    Quillon::Logging::SetLogSink(ShowLine, nullptr);
}

Outcome RegisterCommand(const std::optional<std::wstring>& inf, const Service& service, bool dryRun)
{
    RequireSound(service);
    const Location location = Locate(inf);
    const InfFile file(location.path);
    RequireOwn(file, service.name, service.dllName);
    const std::vector<Change> changes = PlanRegistration(file, service);
    if (!dryRun)
        Register(file, service);

    Outcome outcome;
    outcome.text = (dryRun ? L"Would register \"" : L"Registered \"") + service.name + L"\" in \"" + location.path +
                   L"\" (" + std::to_wstring(changes.size()) + L" entries: " +
                   std::to_wstring(CountKind(changes, Change::Kind::Add)) + L" new, " +
                   std::to_wstring(CountKind(changes, Change::Kind::Replace)) + L" replaced, " +
                   std::to_wstring(CountKind(changes, Change::Kind::Keep)) + L" unchanged).\n";
    if (dryRun)
        outcome.text += FormatChanges(changes);
    outcome.json = {{"command", "register"},
                    {"dryRun", dryRun},
                    {"file", ToJson(location)},
                    {"service", ToUtf8(service.name)},
                    {"provider", ToUtf8(GetProviderSection(service.name))},
                    {"changes", ToJson(changes)}};
    return outcome;
}

Outcome UnregisterCommand(const std::optional<std::wstring>& inf, const std::wstring& serviceName,
                          const std::optional<std::wstring>& dllName, bool dryRun)
{
    RequireSoundName(serviceName);
    const Location location = Locate(inf);
    const InfFile file(location.path);
    RequireOwn(file, serviceName, dllName);
    const std::vector<Change> changes = PlanRemoval(file, serviceName);
    if (!dryRun && !changes.empty())
        Unregister(file, serviceName);

    Outcome outcome;
    if (changes.empty())
    {
        outcome.text = L"\"" + serviceName + L"\" is not registered in \"" + location.path + L"\".\n";
    }
    else
    {
        outcome.text = (dryRun ? L"Would remove \"" : L"Removed \"") + serviceName + L"\" from \"" + location.path +
                       L"\" (" + std::to_wstring(changes.size()) + L" entries).\n";
    }
    if (dryRun)
        outcome.text += FormatChanges(changes);
    outcome.json = {{"command", "unregister"},
                    {"dryRun", dryRun},
                    {"file", ToJson(location)},
                    {"service", ToUtf8(serviceName)},
                    {"changes", ToJson(changes)}};
    return outcome;
}

Outcome StatusCommand(const std::optional<std::wstring>& inf, const Expectation& expectation)
{
    const Location location = Locate(inf);
    const InfFile file(location.path);
    std::vector<std::wstring> names;
    if (expectation.name.empty())
    {
        names = FindServices(file);
    }
    else
    {
        RequireSoundName(expectation.name);
        names.push_back(expectation.name);
    }

    Outcome outcome;
    outcome.text = L"\"" + location.path + L"\", " + location.how + L"\n";
    outcome.json = {{"command", "status"}, {"file", ToJson(location)}, {"services", ordered_json::array()}};
    for (const std::wstring& name : names)
    {
        Expectation single = expectation;
        single.name = name;
        const Status status = GetStatus(file, single);
        outcome.text += FormatStatus(status);
        outcome.json["services"].push_back(ToJson(status));
        // Of several, the code is that of the worst.
        outcome.code = std::max(outcome.code, GetCode(status));
    }
    if (names.empty())
    {
        outcome.text += L"No archive store is registered.\n";
        outcome.code = ExitCode::NotRegistered;
    }
    return outcome;
}

Outcome UrlCommand(const Store& store)
{
    const std::wstring url = GetUrl(store);
    return {ExitCode::Success, url + L"\n", {{"command", "url"}, {"url", ToUtf8(url)}}};
}

Outcome ExcludeCommand(const Store& store)
{
    const std::wstring url = GetUrl(store);
    const Tools::ComApartment apartment;
    if (FAILED(apartment.Result()))
    {
        throw SetupError(std::wstring(L"COM cannot be used: ") +
                         Quillon::CComError(apartment.Result()).Format().GetString());
    }
    try
    {
        Quillon::Nst::ExcludeStoreFromIndexing(ParseId(store.id), ToString(store.name));
    }
    catch (const Quillon::CException& exception)
    {
        throw SetupError(L"\"" + url + L"\" cannot be excluded from the search index: " +
                         exception.Format().GetString());
    }
    return {ExitCode::Success,
            L"\"" + url + (g_wasExcluded ? L"\" was excluded already.\n" : L"\" is excluded from the search index.\n"),
            {{"command", "exclude"}, {"url", ToUtf8(url)}, {"wasExcluded", g_wasExcluded}}};
}

} // namespace Setup
