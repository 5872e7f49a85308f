// archive-setup: registers a host in MAPISVC.INF, checks the registration and removes it. It is what a host's installer
// calls; all changes are made by the library's own functions.
#include "support/Exceptions.h"
#include "tools/common/Program.h"
#include "tools/setup/Commands.h"
#include "tools/setup/Doctor.h"
#include "tools/setup/ProfileDoctor.h"
#include "tools/setup/Text.h"

#include <CLI/CLI.hpp>

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <new>

namespace
{

using namespace Setup;

constexpr auto about = "Registers an archive store provider in MAPISVC.INF, checks its registration and removes it.";
constexpr auto exitCodes = "Exit codes: 0 done, or nothing is wrong; 1 it failed; 2 the command line is wrong;\n"
                           "3 status: not registered; 4 status: registered, but something is wrong with it;\n"
                           "  doctor: something is wrong.";

/// What the command line says.
struct Arguments
{
    bool json = false;
    bool verbose = false;
    bool dryRun = false;
    std::string inf;
    std::string service;
    std::string display;
    std::string dll;
    std::string flags;
    std::string storeId;
    std::string storeName;
    std::string profile;
};

/// The command line and the options of its commands.
class CommandLine
{
public:
    CommandLine()
    {
        m_app.require_subcommand(1);
        AddCommon(&m_app);

        m_register = Add("register", "Write the service's entries and its provider's into MAPISVC.INF");
        AddInf(m_register);
        AddService(m_register)->required();
        m_register->add_option("--display", m_arguments.display, "The name that the user sees")->required();
        m_register->add_option("--dll", m_arguments.dll, "The host's module, as MAPI is to load it")->required();
        m_register->add_option("--flags", m_arguments.flags,
                               "Flags of the service besides SERVICE_NO_PRIMARY_IDENTITY, joined by |");
        AddDryRun(m_register);

        m_unregister = Add("unregister", "Remove the service and its provider from MAPISVC.INF");
        AddInf(m_unregister);
        AddService(m_unregister)->required();
        m_dllToRemove = m_unregister->add_option(
            "--dll", m_arguments.dll, "The host's module: the service is removed only where it is this host's");
        AddDryRun(m_unregister);

        m_status = Add("status", "Tell what is registered, where, and what is wrong with it");
        AddInf(m_status);
        m_service = AddService(m_status);
        m_service->description("The service's name; without it all archive stores' services are told of");
        m_display = m_status->add_option("--display", m_arguments.display, "The display name that there should be");
        m_dll = m_status->add_option("--dll", m_arguments.dll, "The module that there should be");
        m_flags = m_status->add_option("--flags", m_arguments.flags, "The further flags that there should be");
        for (CLI::Option* const option : {m_display, m_dll, m_flags})
            option->needs(m_service);

        m_doctor = Add("doctor", "Look for what hosts meet first, and tell the next step");
        AddInf(m_doctor);
        AddService(m_doctor)->description("The service's name; without it all archive stores' services are looked at");
        m_doctor->add_option(
            "--profile", m_arguments.profile,
            "The profile whose archives are opened, as a mail client does; without it the default one");

        m_exclude = Add("exclude", "Keep a store out of the Windows Search index");
        AddStore(m_exclude);
        m_url = Add("url", "Print the URL by which Windows Search knows a store");
        AddStore(m_url);
    }

    /// Throws CLI::ParseError, also when help is asked for.
    void Parse(std::vector<std::string> arguments)
    {
        std::reverse(arguments.begin(), arguments.end());
        m_app.parse(std::move(arguments));
    }

    Outcome Run() const
    {
        const std::optional<std::wstring> inf =
            m_arguments.inf.empty() ? std::nullopt : std::make_optional(ToWide(m_arguments.inf));
        const std::wstring service = ToWide(m_arguments.service);
        const Store store{ToWide(m_arguments.storeId), ToWide(m_arguments.storeName)};
        if (m_register->parsed())
        {
            return RegisterCommand(
                inf, {service, ToWide(m_arguments.display), ToWide(m_arguments.dll), ToWide(m_arguments.flags)},
                m_arguments.dryRun);
        }
        if (m_unregister->parsed())
            return UnregisterCommand(inf, service, Given(m_dllToRemove, m_arguments.dll), m_arguments.dryRun);
        if (m_status->parsed())
        {
            return StatusCommand(inf, {service, Given(m_display, m_arguments.display), Given(m_dll, m_arguments.dll),
                                       Given(m_flags, m_arguments.flags)});
        }
        if (m_doctor->parsed())
            return Examine(inf, service);
        return m_exclude->parsed() ? ExcludeCommand(store) : UrlCommand(store);
    }

    const CLI::App& App() const noexcept { return m_app; }
    const Arguments& Values() const noexcept { return m_arguments; }

private:
    Outcome Examine(const std::optional<std::wstring>& inf, const std::wstring& service) const
    {
        MachineFindings machine = ExamineMachine(inf, service);
        if (!machine.hasMapi || machine.services.empty())
        {
            machine.findings.push_back(
                {L"profile",
                 Finding::State::NotLookedFor,
                 machine.hasMapi ? L"There is no service to look for in a profile." : L"There is no MAPI to ask.",
                 {}});
            return DescribeFindings(machine.findings);
        }
        for (Finding& finding : ExamineProfile(ToWide(m_arguments.profile), machine.services, !service.empty()))
            machine.findings.push_back(std::move(finding));
        return DescribeFindings(machine.findings);
    }

    static std::optional<std::wstring> Given(const CLI::Option* option, const std::string& value)
    {
        return option->count() == 0 ? std::nullopt : std::make_optional(ToWide(value));
    }

    CLI::App* Add(const char* name, const char* description)
    {
        CLI::App* const command = m_app.add_subcommand(name, description);
        AddCommon(command);
        return command;
    }

    /// What may stand before the command and behind it.
    void AddCommon(CLI::App* app)
    {
        app->add_flag("--json", m_arguments.json, "Answer in JSON, errors too");
        app->add_flag("--verbose", m_arguments.verbose, "Show the library's log on standard error");
        app->set_version_flag("--version", KIVNST_VERSION, "Print the version and exit");
        app->footer(exitCodes);
    }

    void AddInf(CLI::App* command)
    {
        command->add_option("--inf", m_arguments.inf,
                            "The path of MAPISVC.INF; without it the file is looked for beside the MAPI module of the "
                            "registered mail client, then in the system folder");
    }

    CLI::Option* AddService(CLI::App* command)
    {
        return command->add_option("--service", m_arguments.service, "The service's name");
    }

    void AddDryRun(CLI::App* command)
    {
        command->add_flag("--dry-run", m_arguments.dryRun, "Tell what would be changed, and change nothing");
    }

    void AddStore(CLI::App* command)
    {
        command->add_option("--store-id", m_arguments.storeId, "The store's identifier, in hexadecimal digits")
            ->required();
        command->add_option("--store-name", m_arguments.storeName, "The store's display name")->required();
    }

    Arguments m_arguments;
    CLI::App m_app{about, "archive-setup"};
    CLI::App* m_register = nullptr;
    CLI::App* m_unregister = nullptr;
    CLI::App* m_status = nullptr;
    CLI::App* m_doctor = nullptr;
    CLI::App* m_exclude = nullptr;
    CLI::App* m_url = nullptr;
    CLI::Option* m_dllToRemove = nullptr;
    CLI::Option* m_service = nullptr;
    CLI::Option* m_display = nullptr;
    CLI::Option* m_dll = nullptr;
    CLI::Option* m_flags = nullptr;
};

void Print(std::FILE* stream, const std::string& text)
{
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

ExitCode Fail(const std::wstring& sentence, bool json, ExitCode code)
{
    const std::string text = ToUtf8(sentence);
    if (json)
        Print(stdout, nlohmann::ordered_json{{"error", text}}.dump(2) + "\n");
    Print(stderr, "archive-setup: " + text + "\n");
    return code;
}

ExitCode Run()
{
    CommandLine commandLine;
    std::vector<std::string> arguments;
    for (const std::wstring& argument : GetArguments())
        arguments.push_back(ToUtf8(argument));
    const bool wantsJson = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
    try
    {
        commandLine.Parse(std::move(arguments));
    }
    catch (const CLI::CallForHelp&)
    {
        // Of the command that was named, or of the whole.
        Print(stdout, commandLine.App().help());
        return ExitCode::Success;
    }
    catch (const CLI::CallForVersion&)
    {
        Print(stdout, wantsJson ? nlohmann::ordered_json{{"version", KIVNST_VERSION}}.dump(2) + "\n"
                                : "archive-setup " KIVNST_VERSION "\n");
        return ExitCode::Success;
    }
    catch (const CLI::ParseError& error)
    {
        return Fail(ToWide(Tools::ExplainUsage(commandLine.App(), error)) +
                        L" (archive-setup --help tells what there is)",
                    wantsJson, ExitCode::Usage);
    }

    const Arguments& values = commandLine.Values();
    ShowLog(values.verbose);
    try
    {
        const Outcome outcome = commandLine.Run();
        Print(stdout, values.json ? outcome.json.dump(2) + "\n" : ToUtf8(outcome.text));
        return outcome.code;
    }
    catch (const SetupError& error)
    {
        return Fail(error.Text(), values.json, ExitCode::Failure);
    }
    catch (const Quillon::CException& exception)
    {
        return Fail(exception.Format().GetString(), values.json, ExitCode::Failure);
    }
    catch (const std::bad_alloc&)
    {
        return Fail(L"There is not enough memory.", values.json, ExitCode::Failure);
    }
}

} // namespace

int main()
{
    const Tools::Utf8Console console;
    try
    {
        return static_cast<int>(Run());
    }
    catch (...)
    {
        // Not even the answer could be made.
        std::fputs("archive-setup: There is not enough memory.\n", stderr);
        return static_cast<int>(ExitCode::Failure);
    }
}
