// The command "import".
#include "tools/browser/Import.h"

#include "common/Boundary.h"
#include "tools/browser/Commands.h"
#include "tools/browser/Tree.h"

#include <map>
#include <set>
#include <system_error>

using namespace Common;

namespace Browser
{
namespace
{
class Importer
{
public:
    Importer(StoreSession& archive, StoreSession& source, size_t messages, const Progress& progress)
        : m_memory(archive.Memory()),
          m_archive(archive.Store()),
          m_source(source.Store()),
          m_progress(progress),
          m_pace(messages, progress),
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
        const auto folders = SubFolders(m_memory, source);
        if (folders.empty())
            return;
        Children children = ReadChildren(target);
        for (const FolderRow& row : folders)
        {
            if (row.type == FOLDER_SEARCH)
            {
                ++m_report.searchFolders;
                continue;
            }
            const auto from = OpenFolder(m_source, row.entryId);
            const auto to = TargetFolder(row, *from, target, children);
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

    // What lies under a folder of the archive.
    struct Children
    {
        std::set<std::wstring> names;
        // By their marks, and those without one by their names.
        std::map<Bytes, Bytes> marked;
        std::multimap<std::wstring, Bytes> unmarked;
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
        ForEachRow(m_memory, *Contents(target, associated), {m_markTag},
                   [&](const Row& row)
                   {
                       if (!row[0].IsError())
                           present.insert(row[0].AsBytes());
                       return true;
                   });
        const std::string place = Utf8(name);
        Imported done;
        ForEachRow(m_memory, *Contents(source, associated), {PR_ENTRYID, PR_SUBJECT_W},
                   [&](const Row& row)
                   {
                       const Bytes& entryId = row[0].AsBytes();
                       const bool isNew = !present.contains(m_marks.Of(entryId));
                       if (isNew)
                       {
                           const auto from = OpenMessage(m_source, entryId);
                           ComPtr<IMessage> to;
                           Check(target.CreateMessage(nullptr, associated ? MAPI_ASSOCIATED : 0, to.Put()),
                                 L"The archive takes no message.");
                           m_copier.CopyMessage(*from, *to, place + " > \"" + Utf8(row[1].AsText()) + "\"");
                           SetMark(*to, entryId);
                           Check(to->SaveChanges(0), L"An imported message cannot be saved.");
                           ++done.added;
                       }
                       ++done.all;
                       m_pace.Step(place, isNew);
                       return true;
                   });
        return done;
    }

    Children ReadChildren(IMAPIFolder& parent)
    {
        Children children;
        for (const FolderRow& row : SubFolders(m_memory, parent))
        {
            children.names.insert(row.name);
            const auto mark = ReadProp(m_memory, *OpenFolder(m_archive, row.entryId), m_markTag);
            if (mark)
                children.marked.emplace(mark->AsBytes(), row.entryId);
            else
                children.unmarked.emplace(row.name, row.entryId);
        }
        return children;
    }

    // The folder of the archive that stands for the source's: the one with its mark, else one of its name that a run
    // was stopped before it could mark, else a new one.
    ComPtr<IMAPIFolder> TargetFolder(const FolderRow& row, IMAPIFolder& source, IMAPIFolder& parent, Children& children)
    {
        if (const auto found = children.marked.find(m_marks.Of(row.entryId)); found != children.marked.end())
            return OpenFolder(m_archive, found->second, MAPI_MODIFY);
        ComPtr<IMAPIFolder> folder;
        if (const auto unmarked = children.unmarked.find(row.name); unmarked != children.unmarked.end())
        {
            folder = OpenFolder(m_archive, unmarked->second, MAPI_MODIFY);
            children.unmarked.erase(unmarked);
        }
        else
        {
            // Two folders of one name under one parent are possible in a PST, and not in an archive.
            std::wstring name = row.name.empty() ? L"(no name)" : row.name;
            for (int number = 2; children.names.contains(name); ++number)
                name = row.name + L" (" + std::to_wstring(number) + L")";
            Check(parent.CreateFolder(FOLDER_GENERIC, name.data(), nullptr, nullptr, MAPI_UNICODE, folder.Put()),
                  L"The archive takes no folder.");
            children.names.insert(name);
        }
        m_copier.CopyProperties(ObjectKind::Folder, source, *folder, Utf8(row.name));
        SetMark(*folder, row.entryId);
        ++m_report.added.folders;
        return folder;
    }

    const MapiMemory& m_memory;
    IMsgStore& m_archive;
    IMsgStore& m_source;
    const Progress& m_progress;
    Pace m_pace;
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

ImportReport Import(StoreSession& archive, StoreSession& source, bool all, const Progress& progress)
{
    const ImportTop top = SourceTop(source.Memory(), source.Store(), all);
    const ObjectCounts expected = CountTree(ReadTree(source.Memory(), source.Store(), all || top.isRoot));
    const auto root = OpenFolder(archive.Store(), TopOfStore(archive.Memory(), archive.Store()), MAPI_MODIFY);
    Importer importer(archive, source, expected.messages + expected.hidden, progress);
    importer.ImportFolder(*top.folder, *root, top.name);
    return importer.Report();
}

void RequireArchive(ArchiveSession& archive, const Setting& setting, const Progress& progress)
{
    if (archive.Configured())
        return;
    const std::filesystem::path file = DefaultArchive(archive.Profile());
    progress("The profile has no archive yet; it gets " + Utf8(file.wstring()) + ".");
    archive.Configure(file, setting);
}

int RunImport(const Options& options, const std::filesystem::path& file, bool all)
{
    if (!options.place.store.empty())
        Fail(MAPI_E_INVALID_PARAMETER, L"Mail is imported into an archive and into no other store.");
    RequireFile(file);
    ArchiveSession archive(options.mapi, options.place);
    if (IsSameFile(file, archive.ArchivePath()))
    {
        Fail(MAPI_E_INVALID_PARAMETER,
             L"\"" + file.wstring() + L"\" is the archive itself and cannot be imported into it.");
    }
    // The source first: a wrong path shall leave nothing behind.
    PstSession source(options.mapi, file);
    const Progress progress = [&](const std::string& line)
    {
        if (!options.json)
            PrintLine(line);
    };
    Setting writable = options.setting;
    writable.modify = true;
    RequireArchive(archive, writable, progress);
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
