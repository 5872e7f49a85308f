// The command "diff".
#include "tools/browser/Diff.h"

#include "common/Boundary.h"
#include "common/StoreEntryId.h"
#include "nst/KivNstCore.h"
#include "support/MapiHeaders.h"
#include "tools/browser/Commands.h"
#include "tools/browser/Copy.h"

#include <cstring>
#include <functional>

using namespace Common;
using namespace Testbed;

namespace Browser
{
namespace
{
constexpr ULONG archiveRoot = Quillon::Nst::archiveSubtreeEntryIdTag;

Bytes BytesOf(const Quillon::Binary& binary)
{
    return binary.GetSize() != 0 ? Bytes(binary.GetBuffer(), binary.GetBuffer() + binary.GetSize()) : Bytes();
}

// Compares two stores that are one.
class Comparer
{
public:
    Comparer(PstSession& unwrapped, ArchiveSession& wrapped, const Setting& setting)
        : m_memory(unwrapped.Memory()),
          m_unwrapped(unwrapped.Store()),
          m_wrapped(wrapped.Store()),
          m_setting(setting),
          m_names(unwrapped.Memory(), unwrapped.Store())
    {
        if (const auto root = ReadProp(m_memory, m_unwrapped, archiveRoot))
            m_archiveRoot = root->AsBytes();
        m_storeEntryId = BytesOf(Quillon::Nst::CreateStoreEntryID(wrapped.ArchivePath().wstring().c_str()));
    }

    void CompareStores()
    {
        ++m_report.objects;
        CompareProperties(Kind::Store, "store", m_unwrapped, m_wrapped);
        CompareReceiveFolders();
    }

    void CompareFolders(const Bytes& entryId, const std::string& label)
    {
        ++m_report.objects;
        const auto unwrapped = OpenFolder(m_unwrapped, entryId);
        const auto wrapped = OpenFolder(m_wrapped, entryId);
        CompareProperties(Kind::Folder, "folder " + label, *unwrapped, *wrapped);
        CompareTables(label + " (sub-folders)", *Hierarchy(*unwrapped), *Hierarchy(*wrapped));
        for (const bool associated : {false, true})
        {
            const std::string name = label + (associated ? " (hidden messages)" : " (messages)");
            const auto table = Contents(*unwrapped, associated);
            CompareTables(name, *table, *Contents(*wrapped, associated));
            for (const Row& row : ReadTable(m_memory, *table, {PR_ENTRYID, PR_SUBJECT_W}))
            {
                CompareMessages(*OpenMessage(m_unwrapped, row[0].AsBytes()), *OpenMessage(m_wrapped, row[0].AsBytes()),
                                label + " > \"" + Shorten(Utf8(row[1].AsText()), 60) + "\"");
            }
        }
        for (const FolderRow& row : SubFolders(m_memory, *unwrapped))
            CompareFolders(row.entryId, (label == "/" ? "" : label) + "/" + Utf8(row.name));
    }

    DiffReport& Report() noexcept { return m_report; }

private:
    enum class Kind
    {
        Store,
        Folder,
        Message,
        Attachment,
        Row
    };

    static const char* KindName(Kind kind)
    {
        switch (kind)
        {
        case Kind::Store:
            return "store";
        case Kind::Folder:
            return "folder";
        case Kind::Message:
            return "message";
        case Kind::Attachment:
            return "attachment";
        default:
            return "table row";
        }
    }

    void CompareMessages(IMessage& unwrapped, IMessage& wrapped, const std::string& label)
    {
        ++m_report.objects;
        CompareProperties(Kind::Message, "message " + label, unwrapped, wrapped);
        ComPtr<IMAPITable> tables[2];
        Check(unwrapped.GetRecipientTable(MAPI_UNICODE, tables[0].Put()), L"A message does not list its recipients.");
        Check(wrapped.GetRecipientTable(MAPI_UNICODE, tables[1].Put()), L"A message does not list its recipients.");
        CompareTables(label + " (recipients)", *tables[0], *tables[1]);
        Check(unwrapped.GetAttachmentTable(MAPI_UNICODE, tables[0].Put()), L"A message does not list its attachments.");
        Check(wrapped.GetAttachmentTable(MAPI_UNICODE, tables[1].Put()), L"A message does not list its attachments.");
        CompareTables(label + " (attachments)", *tables[0], *tables[1]);
        for (const ULONG number : AttachmentNumbers(m_memory, unwrapped))
        {
            CompareAttachments(*OpenAttachment(unwrapped, number), *OpenAttachment(wrapped, number),
                               label + " > attachment " + std::to_string(number));
        }
    }

    void CompareAttachments(IAttach& unwrapped, IAttach& wrapped, const std::string& label)
    {
        ++m_report.objects;
        CompareProperties(Kind::Attachment, "attachment " + label, unwrapped, wrapped);
        const auto method = ReadProp(m_memory, unwrapped, PR_ATTACH_METHOD);
        if (method && method->AsLong() == ATTACH_EMBEDDED_MSG)
        {
            // What an attachment holds is handed out unwrapped, so nothing is different there.
            CompareMessages(*OpenEmbedded(unwrapped), *OpenEmbedded(wrapped), label + " > message");
        }
    }

    void CompareProperties(Kind kind, const std::string& label, IMAPIProp& unwrapped, IMAPIProp& wrapped)
    {
        // A store and a read-only folder open no property, so there only what comes inline can be compared.
        const bool streams = kind == Kind::Message || kind == Kind::Attachment;
        const ObjectProperties before = ReadProperties(m_memory, unwrapped, streams);
        const ObjectProperties after = ReadProperties(m_memory, wrapped, streams);
        std::map<ULONG, const PropValue*> byTag;
        for (size_t index = 0; index < after.values.size(); ++index)
            byTag.emplace(PROP_ID(after.tags[index]), &after.values[index]);
        for (size_t index = 0; index < before.values.size(); ++index)
        {
            ++m_report.properties;
            const ULONG tag = before.tags[index];
            const auto found = byTag.find(PROP_ID(tag));
            if (found == byTag.end())
            {
                Report(kind, label, tag, &before.values[index], nullptr);
                continue;
            }
            if (!(before.values[index] == *found->second))
                Report(kind, label, tag, &before.values[index], found->second);
            byTag.erase(found);
        }
        for (size_t index = 0; index < after.values.size(); ++index)
            if (byTag.contains(PROP_ID(after.tags[index])))
                Report(kind, label, after.tags[index], nullptr, &after.values[index]);
    }

    void CompareTables(const std::string& label, IMAPITable& unwrapped, IMAPITable& wrapped)
    {
        const auto columns = AllColumns(m_memory, unwrapped);
        if (columns != AllColumns(m_memory, wrapped))
            ReportTable(label, "the columns are not the same");
        const auto before = ReadTable(m_memory, unwrapped, columns);
        const auto after = ReadTable(m_memory, wrapped, columns);
        if (before.size() != after.size())
        {
            ReportTable(label, std::to_string(before.size()) + " rows unwrapped, " + std::to_string(after.size()) +
                                   " wrapped");
        }
        for (size_t index = 0; index < std::min(before.size(), after.size()); ++index)
        {
            ++m_report.rows;
            for (size_t cell = 0; cell < columns.size(); ++cell)
            {
                if (!(before[index].at(cell) == after[index].at(cell)))
                {
                    Report(Kind::Row, label + ", row " + std::to_string(index + 1), columns[cell], &before[index][cell],
                           &after[index][cell]);
                }
            }
        }
    }

    void CompareReceiveFolders()
    {
        ComPtr<IMAPITable> tables[2];
        const HRESULT before = m_unwrapped.GetReceiveFolderTable(MAPI_UNICODE, tables[0].Put());
        const HRESULT after = m_wrapped.GetReceiveFolderTable(MAPI_UNICODE, tables[1].Put());
        if (before != after)
            ReportTable("receive folders", ResultName(before) + " unwrapped, " + ResultName(after) + " wrapped");
        else if (SUCCEEDED(before))
            CompareTables("receive folders", *tables[0], *tables[1]);
    }

    void ReportTable(const std::string& label, const std::string& text)
    {
        ++m_report.unexplained;
        m_report.differences.push_back({"table " + label, "", text, "", ""});
    }

    void Report(Kind kind, const std::string& label, ULONG tag, const PropValue* before, const PropValue* after)
    {
        const std::string rule = before && after ? Explain(kind, tag, *before, *after) : std::string();
        const Difference difference{label, TagName(tag, &m_names), before ? ValueText(*before, 400) : "(none)",
                                    after ? ValueText(*after, 400) : "(none)", rule};
        if (rule.empty())
            ++m_report.unexplained;
        else
            ++m_report.explained[std::string(KindName(kind)) + " " + difference.property + ": " + rule];
        if (rule.empty() || kind == Kind::Store)
            m_report.differences.push_back(difference);
    }

    // Whether an entry ID is the store's, as the host's MAPI wrapped it: then it names the host's module and holds the
    // archive's own entry ID instead of the PST provider's.
    bool IsStoreEntryIdPair(const PropValue& before, const PropValue& after) const
    {
        const auto unwrap = [](const PropValue& value)
        { return UnwrapStoreEntryId(value.AsBytes().data(), value.AsBytes().size()); };
        const auto pst = unwrap(before);
        const auto archive = unwrap(after);
        return pst && archive && _stricmp(pst->dllName.c_str(), "mspst32.dll") == 0 &&
               _stricmp(archive->dllName.c_str(), "ArchiveHost.dll") == 0 && archive->entryId == m_storeEntryId;
    }

    // The rule by which a wrapped value follows from the unwrapped one; empty when there is none, or when the value is
    // not the one that it gives.
    std::string Explain(Kind kind, ULONG tag, const PropValue& before, const PropValue& after) const
    {
        if (before.Tag() != after.Tag())
            return {};
        const bool readOnlyObject = kind == Kind::Store ? !m_setting.modify : !m_setting.plain && !m_setting.modify;
        const bool isStore = kind == Kind::Store;
        const auto isLong = [&after](LONG wanted, const char* rule)
        { return after.AsLong() == wanted ? std::string(rule) : std::string(); };
        switch (tag)
        {
        case PR_ENTRYID:
        case PR_STORE_ENTRYID:
            return (tag == PR_STORE_ENTRYID || isStore) && IsStoreEntryIdPair(before, after)
                       ? "the store's entry ID names the host's module and the archive's own identifier"
                       : "";
        case PR_MDB_PROVIDER:
            return after.AsBytes() == Bytes(Quillon::Nst::providerUid.ab,
                                            Quillon::Nst::providerUid.ab + sizeof(Quillon::Nst::providerUid.ab))
                       ? "the store belongs to the archive's provider"
                       : "";
        case PR_IPM_SUBTREE_ENTRYID:
            return isStore && !m_archiveRoot.empty() && after.AsBytes() == m_archiveRoot
                       ? "the archive root is the top of the information store"
                       : "";
        default:
            break;
        }
        if (kind == Kind::Row || kind == Kind::Attachment)
            return {};
        const bool hasMask = isStore || kind == Kind::Folder;
        if (hasMask && (tag == PR_STORE_SUPPORT_MASK || tag == PR_STORE_UNICODE_MASK))
        {
            const LONG mask = before.AsLong();
            constexpr LONG itemProcessing = static_cast<LONG>(STORE_ITEMPROC);
            if (readOnlyObject)
            {
                return isLong((mask & ~(itemProcessing | STORE_MODIFY_OK | STORE_CREATE_OK)) | STORE_READONLY,
                              "a read-only store: nothing can be modified, created or processed");
            }
            return isStore ? isLong(mask & ~itemProcessing, "an archive's items are not processed") : "";
        }
        if (!readOnlyObject)
            return {};
        switch (tag)
        {
        case PR_ACCESS:
            return isLong(MAPI_ACCESS_READ, "read access only");
        case PR_ACCESS_LEVEL:
            return isLong(0, "open for reading only");
        case PR_RIGHTS:
            return kind == Kind::Folder ? isLong((before.AsLong() & 0x400) | 0x1, "the right to read, and to be seen")
                                        : "";
        default:
            return {};
        }
    }

    const MapiMemory& m_memory;
    IMsgStore& m_unwrapped;
    IMsgStore& m_wrapped;
    Setting m_setting;
    PropertyNames m_names;
    Bytes m_archiveRoot;
    Bytes m_storeEntryId;
    DiffReport m_report;
};

void PrintReport(const DiffReport& report)
{
    TextTable store({{"store property"}, {"unwrapped", false, 60}, {"wrapped", false, 60}, {"because"}});
    for (const Difference& difference : report.differences)
        if (difference.object == "store" && !difference.rule.empty())
            store.Add({difference.property, difference.unwrapped, difference.wrapped, difference.rule});
    store.Print();
    PrintLine();
    TextTable others({{"differences", true}, {"in, and why", false, 150}});
    for (const auto& [rule, count] : report.explained)
        others.Add({std::to_string(count), rule});
    others.Print();
    PrintLine();
    for (const Difference& difference : report.differences)
    {
        if (difference.rule.empty())
        {
            PrintLine(
                "UNEXPLAINED: " + Shorten(difference.object, 120) + ": " + difference.property + ": " +
                Shorten(difference.unwrapped, 120) +
                (difference.wrapped.empty() ? "" : " unwrapped, " + Shorten(difference.wrapped, 120) + " wrapped"));
        }
    }
    PrintLine(Count(report.objects, "object", "objects") + ", " + Count(report.properties, "property", "properties") +
              " and " + Count(report.rows, "table row", "table rows") +
              " compared: " + Count(report.unexplained, "unexplained difference", "unexplained differences"));
}
} // namespace

Json DiffReport::ToJson() const
{
    Json list = Json::array();
    for (const Difference& difference : differences)
    {
        list.push_back({{"object", difference.object},
                        {"property", difference.property},
                        {"unwrapped", difference.unwrapped},
                        {"wrapped", difference.wrapped},
                        {"rule", difference.rule}});
    }
    Json rules = Json::object();
    for (const auto& [rule, count] : explained)
        rules[rule] = count;
    return {{"objects", objects}, {"properties", properties},       {"rows", rows},
            {"explained", rules}, {"differences", std::move(list)}, {"unexplained", unexplained}};
}

DiffReport Compare(PstSession& unwrapped, ArchiveSession& wrapped, const Setting& setting)
{
    Comparer comparer(unwrapped, wrapped, setting);
    comparer.CompareStores();
    comparer.CompareFolders({}, "/");
    return std::move(comparer.Report());
}

std::vector<Difference> StoreDifferences(PstSession& unwrapped, ArchiveSession& wrapped, const Setting& setting)
{
    Comparer comparer(unwrapped, wrapped, setting);
    comparer.CompareStores();
    return std::move(comparer.Report().differences);
}

int RunDiff(const Options& options, const std::filesystem::path& file)
{
    RequireFile(file);
    // A logon gives a store its archive root: that shall not happen to the caller's file.
    const ScratchFolder scratch;
    const std::filesystem::path copy = scratch.CopyStore(file);
    ArchiveSession wrapped(Profile::InMemory(L"diff"));
    wrapped.Configure(copy, options.setting);
    wrapped.Logon(options.setting);
    PstSession unwrapped(copy, true, true);
    const DiffReport report = Compare(unwrapped, wrapped, options.setting);
    if (options.json)
    {
        Json json = report.ToJson();
        json["setting"] = options.setting.Name();
        PrintLine(json.dump(2));
    }
    else
    {
        PrintLine(Utf8(file.wstring()) + ", unwrapped and behind " + options.setting.Name());
        PrintLine();
        PrintReport(report);
    }
    return report.unexplained == 0 ? exitOk : exitFailed;
}
} // namespace Browser
