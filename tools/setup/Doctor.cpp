// Examining a machine.
#include "tools/setup/Doctor.h"

#include "nst/KivNstCore.h"
#include "support/MapiProperties.h"
#include "support/Os.h"
#include "tools/setup/Locations.h"
#include "tools/setup/ModuleFile.h"
#include "tools/setup/Text.h"

#include <algorithm>

namespace Setup
{
namespace
{

using State = Finding::State;
using nlohmann::ordered_json;

std::wstring Quoted(const std::wstring& text)
{
    return L"\"" + text + L"\"";
}

Finding Fine(std::wstring check, std::wstring found)
{
    return {std::move(check), State::Fine, std::move(found), {}};
}

Finding Wrong(std::wstring check, std::wstring found, std::wstring next)
{
    return {std::move(check), State::Wrong, std::move(found), std::move(next)};
}

/// The check under which a problem of a module is told.
const wchar_t* GetCheck(const std::wstring& kind)
{
    if (kind == L"wrong bitness")
        return L"bitness";
    if (kind == L"wrong ABI")
        return L"abi";
    return kind == L"missing module" ? L"runtime" : L"module";
}

/// The next step for a problem of a module.
std::wstring GetStep(const std::wstring& check)
{
    if (check == L"bitness")
        return L"Install the host's 64-bit build, and a 64-bit mail client.";
    if (check == L"abi")
        return L"Install the host together with the KivNst.dll that it was built with.";
    if (check == L"runtime")
        return L"Put the missing DLL into the host's folder, and that folder into the machine's PATH.";
    return L"Install the host's module anew.";
}

Finding ExamineMapi(std::wstring& path)
{
    path = Quillon::Mapi::GetMapiPath().GetString();
    const std::wstring step = L"Install a 64-bit mail client, and make it the default one.";
    wchar_t system[MAX_PATH] = {};
    GetSystemDirectoryW(system, MAX_PATH);
    // Windows' own module hands everything on to a mail client's.
    if (path.empty() || EqualNames(Quillon::Os::GetDirectoryFromPath(path.c_str()).GetString(), system))
        return Wrong(L"mapi", L"No mail client is registered whose MAPI is there and for 64-bit programs.", step);
    if (!Quillon::Os::VerifyFileExists(path.c_str()))
    {
        return Wrong(L"mapi", L"The registered mail client's MAPI " + Quoted(path) + L" is not there.",
                     L"Repair the mail client.");
    }
    try
    {
        if (ReadModule(path).machine != ownMachine)
            return Wrong(L"bitness", L"The mail client's MAPI " + Quoted(path) + L" is not for 64-bit programs.", step);
    }
    catch (const NoModule& fault)
    {
        return Wrong(L"mapi",
                     L"The mail client's MAPI " + Quoted(path) + L" is not a module: " + ToWide(fault.what()) + L".",
                     L"Repair the mail client.");
    }
    return Fine(L"mapi", L"The mail client's MAPI is " + Quoted(path) + L", for 64-bit programs.");
}

Finding ExaminePstProvider()
{
    const HMODULE module = Quillon::Nst::GetPstModule();
    if (!module)
    {
        return Wrong(L"pst-provider", L"The mail client's PST provider, mspst32.dll, is not found or cannot be loaded.",
                     L"Repair the mail client; \"archive-setup --verbose doctor\" shows where it was looked for.");
    }
    std::wstring path(32768, L'\0');
    path.resize(GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size())));
    return Fine(L"pst-provider", L"The mail client's PST provider is " + Quoted(path) + L".");
}

/// What is wrong with a registration, each thing once.
void AddProblems(const Status& status, std::vector<Finding>& findings)
{
    const std::wstring service = Quoted(status.service.name);
    const std::wstring again = L"Register it again: \"archive-setup register\", or the product's installation.";
    bool isTold = false;
    for (const Problem& problem : status.problems)
    {
        switch (problem.kind)
        {
        case Problem::Kind::MissingEntry:
        case Problem::Kind::WrongValue:
            // One step mends all of them.
            if (!isTold)
            {
                findings.push_back(Wrong(L"registration",
                                         L"The entries of the service " + service +
                                             L" are not what registering writes; \"archive-setup status\" lists them.",
                                         again));
            }
            isTold = true;
            break;
        case Problem::Kind::MissingDll:
        {
            const std::wstring loaded = GetLoadedName(problem.entry.value);
            if (!problem.actual.empty())
            {
                findings.push_back(Wrong(L"name",
                                         L"For the service " + service + L" MAPI loads " + Quoted(loaded) +
                                             L", and there is " + Quoted(problem.actual) + L" alone, without the 32.",
                                         L"Give the file the name " + Quoted(loaded) + L"; it stays registered as " +
                                             Quoted(problem.entry.value) + L"."));
                break;
            }
            findings.push_back(Wrong(L"module",
                                     L"For the service " + service + L" MAPI loads " + Quoted(loaded) +
                                         L", which is in none of the folders where it looks for it.",
                                     L"Put it into a folder of its own, with the DLLs that it needs, and that folder "
                                     L"into the machine's PATH."));
            break;
        }
        case Problem::Kind::UnusableDll:
        {
            const std::wstring check = GetCheck(problem.dll.kind);
            findings.push_back(
                Wrong(check, L"The module of the service " + service + L" cannot be used: " + problem.dll.detail + L".",
                      GetStep(check)));
            break;
        }
        }
    }
}

void ExamineServices(const std::optional<std::wstring>& inf, const std::wstring& named, MachineFindings& machine)
{
    std::vector<Finding>& findings = machine.findings;
    const Location location = inf ? Location{GetFullPath(*inf), L"given by --inf"} : FindMapiSvcInf();
    const InfFile file(location.path);
    file.RequireUsable();
    findings.push_back(Fine(L"mapisvc", L"MAPI's services are listed in " + Quoted(location.path) + L"."));
    const std::vector<std::wstring> names = named.empty() ? FindServices(file) : std::vector<std::wstring>{named};
    if (names.empty())
    {
        findings.push_back(
            Wrong(L"registration", L"No archive store is registered.",
                  L"Run the product's installation, or \"archive-setup register\" for a host of your own."));
    }
    for (const std::wstring& name : names)
    {
        Expectation expectation;
        expectation.name = name;
        const Status status = GetStatus(file, expectation);
        if (status.state != Status::State::Registered)
        {
            findings.push_back(Wrong(
                L"registration",
                L"The service " + Quoted(name) +
                    (status.state == Status::State::Foreign ? L" is no archive store's." : L" is not registered."),
                L"Register it: \"archive-setup register\", or the product's installation; "
                L"\"archive-setup status\" lists the archive stores that are."));
            continue;
        }
        machine.services.push_back(name);
        if (status.problems.empty())
        {
            findings.push_back(Fine(L"registration", L"The service " + Quoted(name) + L" is registered."));
            findings.push_back(Fine(L"module", L"Its module " +
                                                   Quoted(status.dllPath.value_or(status.service.dllName)) +
                                                   L" can be loaded, with all that it needs."));
        }
        AddProblems(status, findings);
    }
}

const char* GetName(State state)
{
    switch (state)
    {
    case State::Fine:
        return "fine";
    case State::Wrong:
        return "wrong";
    case State::NotLookedFor:
        break;
    }
    return "not looked for";
}

} // namespace

MachineFindings ExamineMachine(const std::optional<std::wstring>& inf, const std::wstring& service)
{
    MachineFindings machine;
    std::wstring mapi;
    machine.findings.push_back(ExamineMapi(mapi));
    machine.hasMapi = machine.findings.back().state == State::Fine;
    machine.findings.push_back(ExaminePstProvider());
    try
    {
        ExamineServices(inf, service, machine);
    }
    catch (const SetupError& error)
    {
        machine.findings.push_back(
            Wrong(L"mapisvc", error.Text(), L"Repair the mail client, whose MAPI reads that file."));
    }
    return machine;
}

Outcome DescribeFindings(const std::vector<Finding>& findings)
{
    Outcome outcome;
    ordered_json list = ordered_json::array();
    std::size_t wrong = 0;
    for (const Finding& finding : findings)
    {
        std::wstring line = finding.state == State::Wrong  ? L"WRONG  "
                            : finding.state == State::Fine ? L"ok     "
                                                           : L"-      ";
        line += finding.check;
        line.resize(std::max<std::size_t>(line.size(), 20), L' ');
        outcome.text += line + L"  " + finding.found + L"\n";
        if (!finding.next.empty())
            outcome.text += std::wstring(22, L' ') + L"Next: " + finding.next + L"\n";
        wrong += finding.state == State::Wrong ? 1 : 0;
        ordered_json item = {
            {"check", ToUtf8(finding.check)}, {"state", GetName(finding.state)}, {"found", ToUtf8(finding.found)}};
        if (!finding.next.empty())
            item["next"] = ToUtf8(finding.next);
        list.push_back(std::move(item));
    }
    outcome.text += L"\n" +
                    (wrong == 0   ? std::wstring(L"Nothing is wrong.")
                     : wrong == 1 ? std::wstring(L"1 thing is wrong.")
                                  : std::to_wstring(wrong) + L" things are wrong.") +
                    L"\n";
    outcome.json = {{"command", "doctor"}, {"wrong", wrong}, {"findings", std::move(list)}};
    outcome.code = wrong == 0 ? ExitCode::Success : ExitCode::Faulty;
    return outcome;
}

} // namespace Setup
