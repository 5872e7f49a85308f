// The command "verify".
#include "tools/browser/Verify.h"

#include "common/Boundary.h"
#include "tools/browser/Commands.h"
#include "tools/browser/Copy.h"
#include "tools/browser/SourceMark.h"
#include "tools/browser/Tree.h"

#include <map>

using namespace Common;

namespace Browser
{
namespace
{
class Verifier
{
public:
    Verifier(StoreSession& archive, StoreSession& source, size_t messages, const Progress& progress)
        : m_memory(archive.Memory()),
          m_archive(archive.Store()),
          m_source(source.Store()),
          m_pace(messages, progress),
          m_sourceNames(source.Memory(), source.Store()),
          m_targetNames(archive.Memory(), archive.Store()),
          m_tags(archive.Memory(), m_sourceNames, m_targetNames),
          m_marks(source.Memory(), source.Store()),
          m_markTag(MarkTag(m_targetNames, false))
    {
    }

    // `target` is null where the archive has no such folder: then all that is in it is missing.
    void CompareFolder(IMAPIFolder& source, IMAPIFolder* target, const std::string& label)
    {
        for (const bool associated : {false, true})
            CompareMessages(source, target, associated, label);
        std::map<Bytes, Bytes> folders;
        if (target)
        {
            for (const FolderRow& row : SubFolders(m_memory, *target))
            {
                const auto folder = OpenFolder(m_archive, row.entryId);
                if (const auto mark = m_markTag ? ReadProp(m_memory, *folder, m_markTag) : std::nullopt)
                    folders.emplace(mark->AsBytes(), row.entryId);
            }
        }
        for (const FolderRow& row : SubFolders(m_memory, source))
        {
            if (row.type == FOLDER_SEARCH)
                continue;
            ++m_report.counts.folders;
            const std::string name = label + "/" + Utf8(row.name);
            const auto from = OpenFolder(m_source, row.entryId);
            const auto found = folders.find(m_marks.Of(row.entryId));
            if (found == folders.end())
            {
                m_report.missing.push_back("folder " + name);
                CompareFolder(*from, nullptr, name);
                continue;
            }
            const auto to = OpenFolder(m_archive, found->second);
            CompareProperties(ObjectKind::Folder, *from, *to, "folder " + name);
            CompareFolder(*from, to.Get(), name);
        }
    }

    VerifyReport& Report() noexcept { return m_report; }

private:
    void CompareMessages(IMAPIFolder& source, IMAPIFolder* target, bool associated, const std::string& label)
    {
        std::map<Bytes, Bytes> present;
        if (target && m_markTag)
        {
            ForEachRow(m_memory, *Contents(*target, associated), {m_markTag, PR_ENTRYID},
                       [&](const Row& row)
                       {
                           if (!row[0].IsError() && !present.emplace(row[0].AsBytes(), row[1].AsBytes()).second)
                               m_report.different.push_back("folder " + label + ": a message was imported twice");
                           return true;
                       });
        }
        ForEachRow(m_memory, *Contents(source, associated), {PR_ENTRYID, PR_SUBJECT_W},
                   [&](const Row& row)
                   {
                       ++(associated ? m_report.counts.hidden : m_report.counts.messages);
                       const std::string name = label + " > \"" + Utf8(row[1].AsText()) + "\"";
                       const auto found = present.find(m_marks.Of(row[0].AsBytes()));
                       if (found == present.end())
                           m_report.missing.push_back("message " + name);
                       else
                           CompareMessage(*OpenMessage(m_source, row[0].AsBytes()),
                                          *OpenMessage(m_archive, found->second), name);
                       m_pace.Step(label, found != present.end());
                       return true;
                   });
    }

    void CompareMessage(IMessage& source, IMessage& target, const std::string& label)
    {
        CompareProperties(ObjectKind::Message, source, target, label);
        CompareRecipients(source, target, label);
        const auto from = AttachmentNumbers(m_memory, source);
        const auto to = AttachmentNumbers(m_memory, target);
        if (from.size() != to.size())
        {
            m_report.different.push_back(label + ": " + Count(from.size(), "attachment", "attachments") +
                                         " in the source, " + std::to_string(to.size()) + " in the archive");
        }
        for (size_t index = 0; index < std::min(from.size(), to.size()); ++index)
        {
            CompareAttachment(*OpenAttachment(source, from[index]), *OpenAttachment(target, to[index]),
                              label + " > attachment " + std::to_string(from[index]));
        }
    }

    void CompareAttachment(IAttach& source, IAttach& target, const std::string& label)
    {
        ++m_report.counts.attachments;
        CompareProperties(ObjectKind::Attachment, source, target, label);
        const auto method = ReadProp(m_memory, source, PR_ATTACH_METHOD);
        if (method && method->AsLong() == ATTACH_EMBEDDED_MSG)
        {
            ++m_report.counts.embedded;
            CompareMessage(*OpenEmbedded(source), *OpenEmbedded(target), label + " > message");
        }
    }

    void CompareRecipients(IMessage& source, IMessage& target, const std::string& label)
    {
        const auto from = Recipients(m_memory, source);
        const auto to = Recipients(m_memory, target);
        if (from.size() != to.size())
        {
            m_report.different.push_back(label + ": " + Count(from.size(), "recipient", "recipients") +
                                         " in the source, " + std::to_string(to.size()) + " in the archive");
        }
        for (size_t index = 0; index < std::min(from.size(), to.size()); ++index)
        {
            ++m_report.recipients;
            CompareValues(from[index], to[index], label + " > recipient " + std::to_string(index + 1));
        }
    }

    void CompareProperties(ObjectKind kind, IMAPIProp& source, IMAPIProp& target, const std::string& label)
    {
        std::vector<PropValue> wanted;
        ObjectProperties properties = ReadProperties(m_memory, source, true);
        for (size_t index = 0; index < properties.values.size(); ++index)
            if (!BelongsToPlace(kind, properties.tags[index]))
                wanted.push_back(std::move(properties.values[index]));
        CompareValues(wanted, ReadProperties(m_memory, target, true).values, label);
    }

    void Differ(const std::string& label, const PropValue& value, const std::string& how)
    {
        m_report.different.push_back(label + ": " + TagName(value.Tag(), &m_sourceNames) + " " + how);
    }

    static std::string IsInstead(const PropValue& found, const PropValue& wanted)
    {
        return "is " + Shorten(ValueText(found), 80) + " instead of " + Shorten(ValueText(wanted), 80);
    }

    void CompareValues(const std::vector<PropValue>& source, const std::vector<PropValue>& target,
                       const std::string& label)
    {
        std::map<ULONG, const PropValue*> byId;
        for (const PropValue& value : target)
            byId.emplace(value.Id(), &value);
        for (const PropValue& value : source)
        {
            const ULONG tag = m_tags.TargetTag(value.Tag(), false);
            if (const auto* name = PROP_ID(value.Tag()) >= 0x8000 ? m_sourceNames.NameOf(value.Id()) : nullptr;
                name && IsMark(*name))
            {
                continue;
            }
            ++m_report.properties;
            const auto found = tag != 0 ? byId.find(PROP_ID(tag)) : byId.end();
            if (found == byId.end())
                Differ(label, value, "is not in the archive");
            else if (found->second->Type() != value.Type() || found->second->Data() != value.Data())
                Differ(label, value, IsInstead(*found->second, value));
        }
    }

    const MapiMemory& m_memory;
    IMsgStore& m_archive;
    IMsgStore& m_source;
    Pace m_pace;
    PropertyNames m_sourceNames;
    PropertyNames m_targetNames;
    ObjectCopier m_tags;
    SourceMarks m_marks;
    ULONG m_markTag;
    VerifyReport m_report;
};
} // namespace

Json VerifyReport::ToJson() const
{
    Json json = CountsJson(counts);
    json.update(
        {{"recipients", recipients}, {"properties", properties}, {"missing", missing}, {"different", different}});
    return json;
}

std::string VerifyReport::Summary() const
{
    const auto count = [](size_t number) { return number == 0 ? std::string("nothing") : std::to_string(number); };
    return CountsText(counts) + ", " + Count(recipients, "recipient", "recipients") + ", " +
           Count(properties, "property", "properties") + " compared: " + count(missing.size()) + " missing, " +
           count(different.size()) + " different";
}

VerifyReport Verify(StoreSession& archive, StoreSession& source, bool all, const Progress& progress)
{
    const ImportTop top = SourceTop(source.Memory(), source.Store(), all);
    const ObjectCounts expected = CountTree(ReadTree(source.Memory(), source.Store(), all || top.isRoot));
    const auto root = OpenFolder(archive.Store(), TopOfStore(archive.Memory(), archive.Store()));
    Verifier verifier(archive, source, expected.messages + expected.hidden, progress);
    verifier.CompareFolder(*top.folder, root.Get(), Utf8(top.name));
    return std::move(verifier.Report());
}

int RunVerify(const Options& options, const std::filesystem::path& file, bool all)
{
    RequireFile(file);
    PstSession source(options.mapi, file);
    ArchiveSession archive(options.mapi, options.place);
    archive.Logon(options.setting);
    const VerifyReport report = Verify(archive, source, all,
                                       [&](const std::string& line)
                                       {
                                           if (!options.json)
                                               PrintLine(line);
                                       });
    if (options.json)
    {
        PrintLine(report.ToJson().dump(2));
    }
    else
    {
        for (const std::string& line : report.missing)
            PrintLine("missing: " + Shorten(line, 240));
        for (const std::string& line : report.different)
            PrintLine("different: " + Shorten(line, 400));
        PrintLine(report.Summary());
    }
    return report.Same() ? exitOk : exitFailed;
}
} // namespace Browser
