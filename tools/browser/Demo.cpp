// The command "demo": the whole path from a PST to an archive that a mail client reads, told step by step.
#include "common/Boundary.h"
#include "tools/browser/Commands.h"
#include "tools/browser/Diff.h"
#include "tools/browser/Import.h"
#include "tools/browser/Show.h"
#include "tools/browser/Tree.h"
#include "tools/browser/Try.h"
#include "tools/browser/Verify.h"

#include <fstream>
#include <system_error>

using namespace Common;

namespace Browser
{
namespace
{
// Begins with the text by which the PST provider knows a sample store; the provider makes the mail from the numbers.
constexpr char sampleText[] = "KivNst sample store\nfolders=6 messages=12 seed=1\n";
constexpr size_t messagesShown = 5;
// The demonstration's own profile.
constexpr auto demoProfile = L"Archive Demo";

class Demonstration
{
public:
    Demonstration(const Options& options, const std::filesystem::path& source, bool remove)
        : m_options(options),
          m_source(source),
          m_remove(remove)
    {
    }

    int Run()
    {
        Begin();
        ChooseSource();
        const std::filesystem::path archive = Fill();
        const bool unchanged = ShowAsClient(archive);
        if (m_remove)
        {
            Step("The profile is removed again (DeleteProfile); the archive's file stays");
            DeleteProfile(*m_options.mapi, m_options.place.profile);
            Say("  profile  " + Utf8(m_options.place.profile) + ", removed");
            Require(!ProfileExists(*m_options.mapi, m_options.place.profile), "the profile is still there");
        }
        else
        {
            Say("");
            Say("Where to go next:");
            Say("  ./run browse tree                     the folders again");
            Say("  ./run browse list \"" + m_folderPath + "\"");
            Say("  ./run browse show \"" + m_folderPath + "#1\"");
            Say("  ./run browse props store              what a client sees of the store; --plain --modify changes it");
            Say("  ./run browse try                      every modifying call, in all five settings");
            Say("  ./run browse diff FILE.pst            a PST unwrapped and wrapped, difference by difference");
            Say("  ./run demo --remove                   the same once more, and everything removed at its end");
            Say("  host/ArchiveHost.cpp                  how a host uses the library; docs/architecture.md, README.md");
        }
        m_json["ok"] = m_ok && unchanged;
        if (m_options.json)
            PrintLine(m_json.dump(2));
        return m_ok && unchanged ? exitOk : exitFailed;
    }

private:
    void Say(const std::string& line) const
    {
        if (!m_options.json)
            PrintLine(line);
    }

    void Step(const std::string& title)
    {
        Say("");
        Say(std::to_string(++m_step) + ". " + title);
        Say("");
    }

    // What went wrong is said where it did, and decides on the exit code.
    void Require(bool condition, const std::string& complaint)
    {
        if (!condition)
        {
            Say("  FAILED: " + complaint);
            m_ok = false;
        }
    }

    // The demonstration has a profile and an archive of its own, which every run makes anew.
    void Begin()
    {
        const Mapi& mapi = *m_options.mapi;
        const std::wstring& profile = m_options.place.profile;
        if (ProfileExists(mapi, profile))
        {
            if (profile != demoProfile)
            {
                Fail(MAPI_E_COLLISION,
                     L"The profile \"" + profile + L"\" exists already; the demonstration wants a new one.");
            }
            DeleteProfile(mapi, profile);
        }
        std::error_code error;
        const std::filesystem::path archive = DefaultArchive(profile);
        std::filesystem::remove(archive, error);
        if (error)
            Fail(MAPI_E_NO_ACCESS, L"\"" + archive.wstring() + L"\" of an earlier run cannot be removed.");
    }

    void ChooseSource()
    {
        std::error_code error;
        if (m_source.empty())
        {
            wchar_t folder[MAX_PATH] = {};
            const DWORD length = GetEnvironmentVariableW(L"KIVNST_PST_DATA", folder, MAX_PATH);
            if (length != 0 && length < MAX_PATH)
            {
                const std::filesystem::path file = std::filesystem::path(folder) / "enron.pst";
                m_source = std::filesystem::exists(file, error) ? file : std::filesystem::path();
            }
        }
        if (!m_source.empty())
        {
            RequireFile(m_source);
            return;
        }
        m_source = std::filesystem::current_path() / "sample.pst";
        Say("There is no real mail here (it needs the network once), so generated sample mail is used.");
        std::ofstream file(m_source, std::ios::binary | std::ios::trunc);
        file << sampleText;
        if (!file.flush())
            Fail(MAPI_E_NOT_ENOUGH_DISK, L"\"" + m_source.wstring() + L"\" cannot be written.");
    }

    // Steps 1 to 3: what an archiving product does.
    std::filesystem::path Fill()
    {
        PstSession source(m_options.mapi, m_source);
        ArchiveSession archive(m_options.mapi, m_options.place);
        Step("A new profile (MAPIAdminProfiles) gets the message service of the host (CreateMsgServiceEx)");
        const Progress progress = [this](const std::string& line) { Say("  " + line); };
        Setting writable = m_options.setting;
        writable.modify = true;
        RequireArchive(archive, writable, [](const std::string&) {});
        const std::filesystem::path path = archive.ArchivePath();
        Say("  profile  " + Utf8(archive.Profile()));
        Say("  service  " + Utf8(m_options.place.service) + " of MAPISVC.INF");
        Say("  archive  " + Utf8(path.wstring()) + ", new, opened by mspst32.dll behind KivNst.dll");

        Step("The mail of " + Utf8(m_source.filename().wstring()) + " is imported, with store modification on");
        archive.Logon(writable);
        const ImportReport imported = Import(archive, source, false, progress);
        Say("    " + CountsText(imported.added) + " imported");
        Require(imported.problems.empty(), Count(imported.problems.size(), "property", "properties") +
                                               " could not be copied (\"archive-browser import\" lists them)");

        Step("Every imported object is compared with its source, with modification off again");
        archive.Logon(m_options.setting);
        const VerifyReport verified = Verify(archive, source, false, progress);
        Say("  " + verified.Summary());
        Require(verified.counts == imported.added, "what was compared is not what was imported");
        Require(verified.Same(), "the archive is not what was imported (\"archive-browser verify\" says where)");
        m_json["source"] = Utf8(m_source.wstring());
        m_json["profile"] = Utf8(archive.Profile());
        m_json["archive"] = Utf8(path.wstring());
        m_imported = imported.added;
        m_json["imported"] = CountsJson(m_imported);
        m_json["imported"]["problems"] = imported.problems.size();
        m_json["verify"] = verified.ToJson();
        return path;
    }

    // Steps 4 to 7: what a mail client sees.
    bool ShowAsClient(const std::filesystem::path& path)
    {
        {
            ArchiveSession client(m_options.mapi, m_options.place);
            client.Logon(m_options.setting);
            Step("A mail client logs on (MAPILogonEx, OpenMsgStore): the folders below its top of information store");
            const FolderNode tree = ReadTree(client.Memory(), client.Store(), false);
            if (!m_options.json)
                PrintTree(tree, 2);
            ObjectCounts shown = CountTree(tree);
            // A folder's table does not show what is attached to its messages.
            shown.embedded = m_imported.embedded;
            shown.attachments = m_imported.attachments;
            Require(shown == m_imported, "the folders do not show what was imported");
            m_json["tree"] = TreeJson(tree);

            const FolderNode* folder = FullestFolder(tree, {});
            Require(folder != nullptr, "the archive has no message");
            if (folder)
            {
                Step("The first messages of \"" + m_folderPath + "\"");
                const auto opened = OpenFolder(client.Store(), folder->entryId);
                if (!m_options.json)
                    PrintMessages(client.Memory(), *opened, messagesShown, 2);
            }
        }
        ShowDifferences(path);
        Step("The writes that the archive refuses, each with MAPI_E_NO_ACCESS and a line in its log");
        const TryReport attempts = TryAll(m_options, {Setting{}}, nullptr);
        if (!m_options.json)
            PrintTryRows(attempts, Setting{}, true, 2);
        size_t refused = 0;
        for (const TryRow& row : attempts.rows)
            refused += row.outcome == "refused" ? 1 : 0;
        Say("");
        Say("  " + std::to_string(refused) + " of " + Count(attempts.rows.size(), "modifying call", "modifying calls") +
            " refused; the others change nothing here or are let through on purpose (\"archive-browser try\" shows");
        Say("  all). The archive is " + std::string(attempts.ArchiveUnchanged() ? "what it was before." : "CHANGED."));
        Require(refused != 0, "no call was refused");
        m_json["attempts"] = attempts.ToJson();
        return attempts.ArchiveUnchanged();
    }

    // One store after the other: a provider need not open one file twice.
    void ShowDifferences(const std::filesystem::path& path)
    {
        Step("What the wrapper changed in the store's properties");
        const Progress silence = [](const std::string&) {};
        std::shared_ptr<const StoreRecord> unwrapped;
        {
            PstSession session(m_options.mapi, path, false, true);
            unwrapped = Record(session, false, silence);
        }
        ArchiveSession client(m_options.mapi, m_options.place);
        client.Logon(m_options.setting);
        TextTable table(
            {{"property"}, {"the PST provider's", false, 40}, {"the archive's", false, 40}, {"because", false, 90}});
        Json differences = Json::array();
        for (const Difference& difference : Compare(*unwrapped, client, path, m_options.setting, silence).differences)
        {
            table.Add({difference.property, difference.unwrapped, difference.wrapped, difference.rule});
            differences.push_back({{"property", difference.property},
                                   {"unwrapped", difference.unwrapped},
                                   {"wrapped", difference.wrapped},
                                   {"rule", difference.rule}});
            Require(!difference.rule.empty(), difference.property + " differs for no reason");
        }
        Require(!table.Empty(), "nothing was changed");
        if (!m_options.json)
            table.Print(2);
        m_json["store"] = std::move(differences);
    }

    // The folder with the most messages is the one worth looking into; its path goes to m_folderPath.
    const FolderNode* FullestFolder(const FolderNode& node, const std::string& path)
    {
        const FolderNode* fullest = node.messages != 0 ? &node : nullptr;
        std::string fullestPath = path.empty() ? "/" : path;
        for (const FolderNode& child : node.children)
        {
            const FolderNode* const found = FullestFolder(child, (path.empty() ? "" : path + "/") + Utf8(child.name));
            if (found && (!fullest || found->messages > fullest->messages))
            {
                fullest = found;
                fullestPath = m_folderPath;
            }
        }
        m_folderPath = fullestPath;
        return fullest;
    }

    const Options& m_options;
    std::filesystem::path m_source;
    bool m_remove;
    std::string m_folderPath = "/";
    ObjectCounts m_imported;
    Json m_json;
    int m_step = 0;
    bool m_ok = true;
};
} // namespace

int RunDemo(const Options& options, const std::filesystem::path& source, bool remove)
{
    Options demonstrated = options;
    // What a mail client gets by default; the other settings are for `try`.
    demonstrated.setting = {};
    if (demonstrated.place.profile.empty())
        demonstrated.place.profile = demoProfile;
    return Demonstration(demonstrated, source, remove).Run();
}
} // namespace Browser
