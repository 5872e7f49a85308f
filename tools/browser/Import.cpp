// The command "import".
#include "tools/browser/Import.h"

#include "common/Boundary.h"
#include "tools/browser/Commands.h"

#include <set>
#include <system_error>

using namespace Common;

namespace Browser
{
namespace
{
constexpr size_t messagesPerReport = 250;

class Importer
{
public:
    Importer(ArchiveSession& archive, PstSession& source, const Progress& progress)
        : m_memory(archive.Memory()),
          m_archive(archive.Store()),
          m_source(source.Store()),
          m_progress(progress),
          m_sourceNames(source.Memory(), source.Store()),
          m_targetNames(archive.Memory(), archive.Store()),
          m_copier(archive.Memory(), m_sourceNames, m_targetNames),
          m_marks(source.Memory(), source.Store()),
          m_markTag(MarkTag(m_targetNames, true))
    {
    }

    void ImportFolder(IMAPIFolder& source, IMAPIFolder& target, const std::wstring& name)
    {
        const Imported messages = ImportMessages(source, target, false, name);
        const Imported hidden = ImportMessages(source, target, true, name);
        m_report.source.messages += messages.all;
        m_report.source.hidden += hidden.all;
        m_report.added.messages += messages.added;
        m_report.added.hidden += hidden.added;
        m_progress("  " + Utf8(name) + ": " + Count(messages.all, "message", "messages") +
                   (hidden.all != 0 ? ", " + Count(hidden.all, "hidden message", "hidden messages") : "") + ", " +
                   std::to_string(messages.added + hidden.added) + " new");
        std::set<Bytes> taken;
        for (const FolderRow& row : SubFolders(m_memory, source))
        {
            if (row.type == FOLDER_SEARCH)
            {
                ++m_report.searchFolders;
                continue;
            }
            const auto from = OpenFolder(m_source, row.entryId);
            const auto to = TargetFolder(row, *from, target, taken);
            ++m_report.source.folders;
            ImportFolder(*from, *to, name + L"/" + row.name);
        }
    }

    ImportReport Report()
    {
        m_report.added.embedded = m_report.source.embedded = m_copier.EmbeddedMessages();
        m_report.added.attachments = m_report.source.attachments = m_copier.Attachments();
        m_report.problems = m_copier.Problems();
        return m_report;
    }

private:
    struct Imported
    {
        size_t all = 0;
        size_t added = 0;
    };

    PropValue Mark(const Bytes& entryId) const { return PropValue::Binary(m_markTag, m_marks.Of(entryId)); }

    void SetMark(IMAPIProp& object, const Bytes& entryId)
    {
        const MapiBlock<SPropValue> array(m_memory, MakePropArray(m_memory, {Mark(entryId)}));
        Check(object.SetProps(1, array.Get(), nullptr), L"An imported object cannot be marked.");
    }

    Imported ImportMessages(IMAPIFolder& source, IMAPIFolder& target, bool associated, const std::wstring& name)
    {
        // A message is saved as a whole and with its mark, so what is there is complete.
        std::set<Bytes> present;
        for (const Row& row : ReadTable(m_memory, *Contents(target, associated), {m_markTag}))
            if (!row[0].IsError())
                present.insert(row[0].AsBytes());
        const auto rows = ReadTable(m_memory, *Contents(source, associated), {PR_ENTRYID, PR_SUBJECT_W});
        Imported done;
        for (const Row& row : rows)
        {
            const Bytes& entryId = row[0].AsBytes();
            if (!present.contains(m_marks.Of(entryId)))
            {
                const auto from = OpenMessage(m_source, entryId);
                ComPtr<IMessage> to;
                Check(target.CreateMessage(nullptr, associated ? MAPI_ASSOCIATED : 0, to.Put()),
                      L"The archive takes no message.");
                m_copier.CopyMessage(*from, *to, Utf8(name) + " > \"" + Utf8(row[1].AsText()) + "\"");
                SetMark(*to, entryId);
                Check(to->SaveChanges(0), L"An imported message cannot be saved.");
                ++done.added;
            }
            ++done.all;
            if (done.all % messagesPerReport == 0 && done.all != rows.size())
                m_progress("  " + Utf8(name) + ": " + std::to_string(done.all) + " of " + std::to_string(rows.size()));
        }
        return done;
    }

    // The folder of the archive that stands for the source's: the one with its mark, else one of its name that a run
    // was stopped before it could mark, else a new one.
    ComPtr<IMAPIFolder> TargetFolder(const FolderRow& row, IMAPIFolder& source, IMAPIFolder& parent,
                                     std::set<Bytes>& taken)
    {
        const Bytes mark = m_marks.Of(row.entryId);
        ComPtr<IMAPIFolder> folder;
        ComPtr<IMAPIFolder> unmarked;
        std::set<std::wstring> names;
        for (const FolderRow& candidate : SubFolders(m_memory, parent))
        {
            names.insert(candidate.name);
            auto opened = OpenFolder(m_archive, candidate.entryId, MAPI_MODIFY);
            const auto found = ReadProp(m_memory, *opened, m_markTag);
            if (found && found->AsBytes() == mark)
                folder = opened;
            else if (!found && candidate.name == row.name && !taken.contains(candidate.entryId))
                unmarked = opened;
        }
        const bool isNew = !folder;
        if (isNew && unmarked)
            folder = unmarked;
        if (!folder)
        {
            // Two folders of one name under one parent are possible in a PST, and not in an archive.
            std::wstring name = row.name.empty() ? L"(no name)" : row.name;
            for (int number = 2; names.contains(name); ++number)
                name = row.name + L" (" + std::to_wstring(number) + L")";
            Check(parent.CreateFolder(FOLDER_GENERIC, name.data(), nullptr, nullptr, MAPI_UNICODE, folder.Put()),
                  L"The archive takes no folder.");
        }
        if (isNew)
        {
            m_copier.CopyProperties(ObjectKind::Folder, source, *folder, Utf8(row.name));
            SetMark(*folder, row.entryId);
            ++m_report.added.folders;
        }
        if (const auto entryId = ReadProp(m_memory, *folder, PR_ENTRYID))
            taken.insert(entryId->AsBytes());
        return folder;
    }

    const MapiMemory& m_memory;
    IMsgStore& m_archive;
    IMsgStore& m_source;
    const Progress& m_progress;
    PropertyNames m_sourceNames;
    PropertyNames m_targetNames;
    ObjectCopier m_copier;
    SourceMarks m_marks;
    ULONG m_markTag;
    ImportReport m_report;
};

bool IsSameFile(const std::filesystem::path& a, const std::filesystem::path& b)
{
    std::error_code error;
    return std::filesystem::equivalent(a, b, error) && !error;
}
} // namespace

ImportReport Import(ArchiveSession& archive, PstSession& source, bool all, const Progress& progress)
{
    const ImportTop top = SourceTop(source.Memory(), source.Store(), all);
    const auto root = OpenFolder(archive.Store(), TopOfStore(archive.Memory(), archive.Store()), MAPI_MODIFY);
    Importer importer(archive, source, progress);
    importer.ImportFolder(*top.folder, *root, top.name);
    return importer.Report();
}

void RequireArchive(ArchiveSession& archive, const std::filesystem::path& profile, const Setting& setting,
                    const Progress& progress)
{
    if (archive.Configured())
        return;
    std::filesystem::path file = std::filesystem::absolute(profile);
    std::filesystem::create_directories(file.parent_path());
    file.replace_extension(".pst");
    progress("The profile has no archive yet; it gets " + Utf8(file.wstring()) + ".");
    archive.Configure(file, setting);
}

int RunImport(const Options& options, const std::filesystem::path& file, bool all)
{
    // The source first: a wrong path shall leave nothing behind.
    PstSession source(file);
    ArchiveSession archive(options.OpenProfile());
    if (IsSameFile(file, archive.ArchivePath()))
    {
        Fail(MAPI_E_INVALID_PARAMETER,
             L"\"" + file.wstring() + L"\" is the archive itself and cannot be imported into it.");
    }
    const Progress progress = [&](const std::string& line)
    {
        if (!options.json)
            PrintLine(line);
    };
    RequireArchive(archive, options.profile, options.setting, progress);
    Setting writable = options.setting;
    writable.modify = true;
    archive.Logon(writable);
    progress("Importing " + Utf8(file.wstring()) + " into " + Utf8(archive.ArchivePath().wstring()));
    const ImportReport report = Import(archive, source, all, progress);
    archive.Logon(options.setting);

    Json problems = Json::array();
    for (const CopyProblem& problem : report.problems)
    {
        problems.push_back(
            {{"object", problem.object}, {"property", TagName(problem.tag)}, {"code", ResultName(problem.code)}});
    }
    if (options.json)
    {
        PrintLine(Json{{"source", Utf8(file.wstring())},
                       {"archive", Utf8(archive.ArchivePath().wstring())},
                       {"folders", report.source.folders},
                       {"newFolders", report.added.folders},
                       {"messages", report.source.messages},
                       {"newMessages", report.added.messages},
                       {"hiddenMessages", report.source.hidden},
                       {"newHiddenMessages", report.added.hidden},
                       {"newEmbeddedMessages", report.added.embedded},
                       {"newAttachments", report.added.attachments},
                       {"searchFoldersLeftOut", report.searchFolders},
                       {"problems", std::move(problems)}}
                      .dump(2));
    }
    else
    {
        PrintLine(FolderCountsText(report.source) + "; new: " + CountsText(report.added) +
                  (report.searchFolders != 0
                       ? "; " + Count(report.searchFolders, "search folder", "search folders") + " left out"
                       : ""));
        for (const Json& problem : problems)
        {
            PrintLine("not copied: " + problem["property"].get<std::string>() + " of " +
                      problem["object"].get<std::string>() + " (" + problem["code"].get<std::string>() + ")");
        }
    }
    return report.problems.empty() ? exitOk : exitFailed;
}
} // namespace Browser
