// archive-browser: a console client that drives the sample host as MAPI would.
#include "common/Boundary.h"
#include "common/Text.h"
#include "tools/browser/Commands.h"
#include "tools/browser/Console.h"
#include "tools/browser/MapiTools.h"
#include "tools/common/Program.h"

#include <CLI/CLI.hpp>

#include <optional>

using namespace Browser;

namespace
{
// What is common to all commands, before it is turned into `Options`.
struct GlobalArguments
{
    std::string profile;
    std::string service = "ArchiveSvc";
    std::string store;
    bool json = false;
    bool log = false;
    bool plain = false;
    bool modify = false;
};

std::filesystem::path PathOf(const std::string& text)
{
    return std::filesystem::path(Wide(text));
}

Options MakeOptions(const GlobalArguments& arguments, LogRecorder& log)
{
    Options options;
    options.mapi = Mapi::Start();
    options.place = {Wide(arguments.profile), Wide(arguments.service), Wide(arguments.store)};
    options.json = arguments.json;
    options.setting = {arguments.plain, arguments.modify};
    options.log = &log;
    return options;
}

// Ends with one sentence, whatever it was.
int Report(const std::exception& error)
{
    std::string text = error.what();
    if (!text.empty() && text.back() != '.')
        text += '.';
    PrintError("archive-browser: " + text);
    return exitFailed;
}

int Run(int argc, wchar_t** argv)
{
    CLI::App app("Browses an archive store: a PST file behind a host's message service, opened through MAPI as a mail "
                 "client opens it.",
                 "archive-browser");
    app.footer("Exit codes: 0 done, 1 failed or a check found differences, 2 wrong arguments.\n"
               "A message is named FOLDER#NUMBER, with the number that \"list FOLDER\" shows, its attachment "
               "FOLDER#NUMBER@K.");
    app.require_subcommand(1);
    app.fallthrough();
    app.set_help_all_flag("--help-all", "Print the help of all commands and exit");

    GlobalArguments global;
    app.add_option("--profile", global.profile, "The MAPI profile; default: the default profile")->type_name("NAME");
    app.add_option("--service", global.service, "The message service of MAPISVC.INF whose store is the archive")
        ->type_name("NAME")
        ->capture_default_str();
    app.add_option("--store", global.store, "Look at another store of the profile, by its display name")
        ->type_name("NAME");
    app.add_flag("--json", global.json, "Print one JSON document instead of text");
    app.add_flag("--log", global.log, "Show the library's log lines on the error stream");
    auto* const plain = app.add_flag("--plain", global.plain, "Have the host give the library's plain wrappers");
    bool readOnly = false;
    app.add_flag("--read-only", readOnly, "Have the host give its read-only wrappers (the default)")->excludes(plain);
    app.add_flag("--modify", global.modify, "Switch store modification on");

    app.set_version_flag("--version", KIVNST_VERSION, "Print the version and exit");

    std::function<int(const Options&)> command;

    app.add_subcommand("profiles", "Print MAPI's profiles")
        ->callback([&] { command = [](const Options& o) { return RunProfiles(o); }; });
    app.add_subcommand("services", "Print the message services of the profile")
        ->callback([&] { command = [](const Options& o) { return RunServices(o); }; });
    app.add_subcommand("stores", "Print the stores of the profile")
        ->callback([&] { command = [](const Options& o) { return RunStores(o); }; });

    std::string archive;
    auto* const configure = app.add_subcommand(
        "configure", "Give the profile, which is made where it is not there, the service with this archive");
    configure->add_option("ARCHIVE", archive, "The archive's file")->required()->type_name("");
    configure->callback([&] { command = [&](const Options& o) { return RunConfigure(o, PathOf(archive)); }; });

    app.add_subcommand("remove", "Take the service out of the profile, and remove a profile that is empty then")
        ->callback([&] { command = [](const Options& o) { return RunRemove(o); }; });

    bool all = false;
    auto* const tree = app.add_subcommand("tree", "Print the folders with their counts");
    tree->add_flag("--all", all, "From the store's root folder instead of the top of the information store");
    tree->callback([&] { command = [&](const Options& o) { return RunTree(o, all); }; });

    std::string source;
    const auto addSource = [&](CLI::App* subcommand)
    {
        subcommand->add_option("SOURCE", source, "A PST or OST file")->required()->type_name("");
        subcommand->add_flag("--all", all, "With what lies outside the source's top of information store");
    };
    auto* const import = app.add_subcommand("import", "Copy the mail of another PST under the archive root");
    addSource(import);
    import->callback([&] { command = [&](const Options& o) { return RunImport(o, PathOf(source), all); }; });
    auto* const verify = app.add_subcommand("verify", "Compare every imported object with its source");
    addSource(verify);
    verify->callback([&] { command = [&](const Options& o) { return RunVerify(o, PathOf(source), all); }; });

    std::string object;
    auto limit = static_cast<size_t>(-1);
    auto* const list = app.add_subcommand("list", "Print the messages of a folder");
    list->add_option("FOLDER", object, "The folder's path from the top of the information store or from the root")
        ->required()
        ->type_name("");
    list->add_option("--limit", limit, "Print so many messages at most")->type_name("N");
    list->callback([&] { command = [&](const Options& o) { return RunList(o, Wide(object), limit); }; });
    auto* const show = app.add_subcommand("show", "Print a message");
    show->add_option("MESSAGE", object, "FOLDER#NUMBER, or an entry ID in hexadecimal digits")
        ->required()
        ->type_name("");
    show->callback([&] { command = [&](const Options& o) { return RunShow(o, Wide(object)); }; });
    auto* const props = app.add_subcommand("props", "Print the properties of an object");
    props
        ->add_option("OBJECT", object,
                     R"("store", "root", a folder's path, FOLDER#NUMBER, FOLDER#NUMBER@K or an entry ID)")
        ->required()
        ->type_name("");
    props->callback([&] { command = [&](const Options& o) { return RunProps(o, Wide(object)); }; });

    auto* const attempt = app.add_subcommand(
        "try", "Attempt every modifying call: in each setting of the sample host, or on another host's store as it is");
    attempt->add_flag("--all", all,
                      "On another host's store also what it may let through by design: its own properties and names");
    attempt->callback([&] { command = [&](const Options& o) { return RunTry(o, all); }; });

    std::string file;
    auto* const diff = app.add_subcommand("diff", "Compare a PST opened unwrapped with the same one wrapped");
    diff->add_option("FILE", file, "A PST or OST file; a copy of it is opened")->required()->type_name("");
    diff->callback([&] { command = [&](const Options& o) { return RunDiff(o, PathOf(file)); }; });

    std::string page;
    ReportChoice choice;
    bool noTry = false;
    auto* const report = app.add_subcommand(
        "report", "Write a page with the mail, the properties, the refused calls, the log and the modules");
    report->add_option("OUT.html", page, "The page's file; an earlier report there is replaced")
        ->required()
        ->type_name("");
    report->add_flag("--force", choice.force, "Write over a file that is no report");
    report->add_flag("--all", choice.all, "From the store's root folder instead of the top of the information store");
    report->add_flag("--no-try", noTry, "Leave the modifying calls out");
    report->add_option("--limit", choice.listed, "List so many messages of a folder at most")
        ->type_name("N")
        ->capture_default_str();
    report
        ->add_option("--details", choice.detailed, "So many of these with recipients, attachments, body and properties")
        ->type_name("N")
        ->capture_default_str();
    report->footer("The page holds the mail and the paths that it shows: look at it before you give it away. The calls "
                   "are made on an archive of their own, never on yours.");
    report->callback(
        [&]
        {
            choice.attempts = !noTry;
            command = [&](const Options& o) { return RunReport(o, PathOf(page), choice); };
        });

    std::string demoSource;
    auto* const demo = app.add_subcommand("demo", "Fill a new archive with real mail and show what comes of it");
    demo->add_option("--source", demoSource, "The PST to import; default: enron.pst where KIVNST_PST_DATA says")
        ->type_name("FILE");
    bool keep = false;
    bool remove = false;
    auto* const keepFlag = demo->add_flag("--keep", keep, "Leave the profile, to look around in it (the default)");
    demo->add_flag("--remove", remove, "Remove the profile at the end")->excludes(keepFlag);
    demo->callback([&] { command = [&](const Options& o) { return RunDemo(o, PathOf(demoSource), remove); }; });

    std::vector<std::string> arguments;
    for (int index = argc - 1; index > 0; --index)
        arguments.push_back(Utf8(argv[index]));
    try
    {
        app.parse(std::move(arguments));
    }
    catch (const CLI::CallForVersion&)
    {
        PrintLine(global.json ? Json{{"version", KIVNST_VERSION}}.dump(2) : "archive-browser " KIVNST_VERSION);
        return exitOk;
    }
    catch (const CLI::Success& help)
    {
        return app.exit(help);
    }
    catch (const CLI::ParseError& error)
    {
        PrintError("archive-browser: " + Tools::ExplainUsage(app, error) +
                   " (archive-browser --help tells what there "
                   "is).");
        return exitUsage;
    }

    const Tools::ComApartment com;
    Common::Check(com.Result(), L"COM cannot be used.");
    LogRecorder log(global.log);
    return command(MakeOptions(global, log));
}
} // namespace

// The C runtime calls it by its name.
int wmain(int argc, wchar_t** argv) // NOLINT(misc-use-internal-linkage)
{
    const Tools::Utf8Console console;
    PrepareConsole();
    try
    {
        return Run(argc, argv);
    }
    catch (const std::exception& error)
    {
        return Report(error);
    }
    catch (...)
    {
        PrintError("archive-browser: Something unknown went wrong.");
        return exitFailed;
    }
}
