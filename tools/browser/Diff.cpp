// The command "diff".
#include "tools/browser/Diff.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "nst/KivNstCore.h"
#include "tools/browser/Commands.h"
#include "tools/browser/Copy.h"
#include "tools/browser/Rules.h"
#include "tools/browser/Sha256.h"
#include "tools/browser/Tree.h"

#include <cstring>
#include <functional>

using namespace Common;

namespace Browser
{
namespace
{
constexpr ULONG archiveRoot = Quillon::Nst::archiveSubtreeEntryIdTag;

// A value that is compared and shown, but too long to be kept: its size and its SHA-256.
PropValue Condensed(const PropValue& value)
{
    constexpr size_t longest = 1024;
    if (value.Size() <= longest)
        return value;
    const auto mark = [](const void* bytes, size_t size)
    {
        Sha256 hash;
        hash.Add(bytes, size);
        return std::to_string(size) + " bytes, SHA-256 " + hash.Finish();
    };
    if (const auto* text = value.Get<std::wstring>())
        return PropValue::String(value.Tag(), Wide(mark(text->data(), text->size() * sizeof(wchar_t))));
    if (const auto* text = value.Get<std::string>())
        return PropValue::String(value.Tag(), Wide(mark(text->data(), text->size())));
    if (const auto* bytes = value.Get<Bytes>())
    {
        const std::string text = mark(bytes->data(), bytes->size());
        return PropValue::Binary(value.Tag(), text.data(), text.size());
    }
    return value;
}

Row Condensed(Row row)
{
    for (PropValue& value : row)
        value = Condensed(value);
    return row;
}

ObjectProperties PropertiesOf(const MapiMemory& memory, CompareKind kind, IMAPIProp& object)
{
    // A store and a read-only folder open no property, so there only what comes inline can be compared.
    ObjectProperties properties =
        ReadProperties(memory, object, kind == CompareKind::Message || kind == CompareKind::Attachment);
    for (PropValue& value : properties.values)
        value = Condensed(value);
    return properties;
}

ComPtr<IMAPITable> RecipientTable(IMessage& message)
{
    ComPtr<IMAPITable> table;
    Check(message.GetRecipientTable(MAPI_UNICODE, table.Put()), L"A message does not list its recipients.");
    return table;
}

ComPtr<IMAPITable> AttachmentTable(IMessage& message)
{
    ComPtr<IMAPITable> table;
    Check(message.GetAttachmentTable(MAPI_UNICODE, table.Put()), L"A message does not list its attachments.");
    return table;
}
} // namespace

// A table as it was.
struct TableRecord
{
    std::vector<ULONG> columns;
    std::vector<Row> rows;
};

// An object as it was, with what lies in it.
struct ObjectRecord
{
    Bytes entryId;
    ULONG number = 0;
    std::string label;
    ObjectProperties properties;
    std::vector<TableRecord> tables;
    // Of a folder its messages, shown and hidden; of a message its attachments; of an attachment its message.
    std::vector<ObjectRecord> parts;
    std::vector<ObjectRecord> folders;
};

struct StoreRecord
{
    std::wstring dllName;
    Bytes archiveRoot;
    ObjectProperties properties;
    HRESULT receiveResult = S_OK;
    TableRecord receiveFolders;
    std::optional<ObjectRecord> root;
};

namespace
{
// Reads the store that the provider shows.
class Recorder
{
public:
    Recorder(const MapiMemory& memory, IMsgStore& store, size_t messages, const Progress& progress)
        : m_memory(memory),
          m_store(store),
          m_pace(messages, progress)
    {
    }

    ObjectRecord RecordFolder(const Bytes& entryId, const std::string& label)
    {
        ObjectRecord record;
        record.entryId = entryId;
        record.label = label;
        const auto folder = OpenFolder(m_store, entryId);
        record.properties = PropertiesOf(m_memory, CompareKind::Folder, *folder);
        record.tables.push_back(RecordTable(*Hierarchy(*folder)));
        for (const bool associated : {false, true})
        {
            record.tables.push_back(RecordTable(*Contents(*folder, associated)));
            ForEachRow(m_memory, *Contents(*folder, associated), {PR_ENTRYID, PR_SUBJECT_W},
                       [&](const Row& row)
                       {
                           ObjectRecord message =
                               RecordMessage(*OpenMessage(m_store, row[0].AsBytes()),
                                             label + " > \"" + Shorten(Utf8(row[1].AsText()), 60) + "\"");
                           message.entryId = row[0].AsBytes();
                           record.parts.push_back(std::move(message));
                           m_pace.Step("unwrapped, " + label);
                           return true;
                       });
        }
        for (const FolderRow& row : SubFolders(m_memory, *folder))
            record.folders.push_back(RecordFolder(row.entryId, (label == "/" ? "" : label) + "/" + Utf8(row.name)));
        return record;
    }

    TableRecord RecordTable(IMAPITable& table) const
    {
        TableRecord record;
        record.columns = AllColumns(m_memory, table);
        ForEachRow(m_memory, table, record.columns,
                   [&](Row&& row)
                   {
                       record.rows.push_back(Condensed(std::move(row)));
                       return true;
                   });
        return record;
    }

private:
    ObjectRecord RecordMessage(IMessage& message, const std::string& label) const
    {
        ObjectRecord record;
        record.label = label;
        record.properties = PropertiesOf(m_memory, CompareKind::Message, message);
        record.tables = {RecordTable(*RecipientTable(message)), RecordTable(*AttachmentTable(message))};
        for (const ULONG number : AttachmentNumbers(m_memory, message))
        {
            const auto opened = OpenAttachment(message, number);
            ObjectRecord attachment;
            attachment.label = label + " > attachment " + std::to_string(number);
            attachment.number = number;
            attachment.properties = PropertiesOf(m_memory, CompareKind::Attachment, *opened);
            const auto method = ReadProp(m_memory, *opened, PR_ATTACH_METHOD);
            if (method && method->AsLong() == ATTACH_EMBEDDED_MSG)
                attachment.parts.push_back(RecordMessage(*OpenEmbedded(*opened), attachment.label + " > message"));
            record.parts.push_back(std::move(attachment));
        }
        return record;
    }

    const MapiMemory& m_memory;
    IMsgStore& m_store;
    Pace m_pace;
};

// The messages that the folders below one have, hidden ones too.
size_t CountMessages(const ObjectRecord& folder)
{
    size_t count = folder.parts.size();
    for (const ObjectRecord& child : folder.folders)
        count += CountMessages(child);
    return count;
}

// Compares a store with what it was before it was wrapped.
class Comparer
{
public:
    Comparer(const StoreRecord& unwrapped, StoreSession& wrapped, const std::filesystem::path& file,
             const Setting& setting, const Progress& progress)
        : m_memory(wrapped.Memory()),
          m_unwrapped(unwrapped),
          m_wrapped(wrapped.Store()),
          m_pace(unwrapped.root ? CountMessages(*unwrapped.root) : 0, progress),
          m_names(wrapped.Memory(), wrapped.Store()),
          m_rules(unwrapped.dllName, unwrapped.archiveRoot, wrapped.DllName(), file, setting)
    {
    }

    void CompareStores()
    {
        ++m_report.objects;
        CompareProperties(CompareKind::Store, "store", m_unwrapped.properties, m_wrapped);
        ComPtr<IMAPITable> table;
        const HRESULT result = m_wrapped.GetReceiveFolderTable(MAPI_UNICODE, table.Put());
        if (result != m_unwrapped.receiveResult)
        {
            ReportTable("receive folders",
                        ResultName(m_unwrapped.receiveResult) + " unwrapped, " + ResultName(result) + " wrapped");
        }
        else if (SUCCEEDED(result))
        {
            CompareTables("receive folders", m_unwrapped.receiveFolders, *table);
        }
    }

    void CompareFolders(const ObjectRecord& before)
    {
        ++m_report.objects;
        const std::string& label = before.label;
        const auto wrapped = OpenFolder(m_wrapped, before.entryId);
        CompareProperties(CompareKind::Folder, "folder " + label, before.properties, *wrapped);
        CompareTables(label + " (sub-folders)", before.tables[0], *Hierarchy(*wrapped));
        CompareTables(label + " (messages)", before.tables[1], *Contents(*wrapped, false));
        CompareTables(label + " (hidden messages)", before.tables[2], *Contents(*wrapped, true));
        for (const ObjectRecord& message : before.parts)
        {
            CompareMessages(message, *OpenMessage(m_wrapped, message.entryId));
            m_pace.Step("wrapped, " + label);
        }
        for (const ObjectRecord& folder : before.folders)
            CompareFolders(folder);
    }

    DiffReport& Report() noexcept { return m_report; }

private:
    void CompareMessages(const ObjectRecord& before, IMessage& wrapped)
    {
        ++m_report.objects;
        CompareProperties(CompareKind::Message, "message " + before.label, before.properties, wrapped);
        CompareTables(before.label + " (recipients)", before.tables[0], *RecipientTable(wrapped));
        CompareTables(before.label + " (attachments)", before.tables[1], *AttachmentTable(wrapped));
        for (const ObjectRecord& attachment : before.parts)
        {
            ++m_report.objects;
            const auto opened = OpenAttachment(wrapped, attachment.number);
            CompareProperties(CompareKind::Attachment, "attachment " + attachment.label, attachment.properties,
                              *opened);
            // What an attachment holds is handed out unwrapped, so nothing is different there.
            for (const ObjectRecord& message : attachment.parts)
                CompareMessages(message, *OpenEmbedded(*opened));
        }
    }

    void CompareProperties(CompareKind kind, const std::string& label, const ObjectProperties& before,
                           IMAPIProp& wrapped)
    {
        const ObjectProperties after = PropertiesOf(m_memory, kind, wrapped);
        for (const PropertyPair& pair : PairProperties(before, after))
        {
            m_report.properties += pair.before ? 1 : 0;
            if (!pair.Same())
                Report(kind, label, pair);
        }
    }

    void CompareTables(const std::string& label, const TableRecord& before, IMAPITable& wrapped)
    {
        if (before.columns != AllColumns(m_memory, wrapped))
            ReportTable(label, "the columns are not the same");
        size_t index = 0;
        ForEachRow(m_memory, wrapped, before.columns,
                   [&](const Row& cells)
                   {
                       if (index < before.rows.size())
                           CompareRows(label + ", row " + std::to_string(index + 1), before.columns, before.rows[index],
                                       Condensed(cells));
                       ++index;
                       return true;
                   });
        if (before.rows.size() != index)
        {
            ReportTable(label,
                        std::to_string(before.rows.size()) + " rows unwrapped, " + std::to_string(index) + " wrapped");
        }
    }

    void CompareRows(const std::string& label, const std::vector<ULONG>& columns, const Row& before, const Row& after)
    {
        ++m_report.rows;
        for (size_t cell = 0; cell < columns.size(); ++cell)
            if (!(before.at(cell) == after.at(cell)))
                Report(CompareKind::Row, label, {columns[cell], &before[cell], &after[cell]});
    }

    void ReportTable(const std::string& label, const std::string& text)
    {
        ++m_report.unexplained;
        m_report.differences.push_back({"table " + label, "", text, "", ""});
    }

    void Report(CompareKind kind, const std::string& label, const PropertyPair& pair)
    {
        const std::string rule = m_rules.Explain(kind, pair);
        const Difference difference{label, TagName(pair.tag, &m_names),
                                    pair.before ? ValueText(*pair.before, 400) : "(none)",
                                    pair.after ? ValueText(*pair.after, 400) : "(none)", rule};
        if (rule.empty())
            ++m_report.unexplained;
        else
            ++m_report.explained[std::string(KindName(kind)) + " " + difference.property + ": " + rule];
        if (rule.empty() || kind == CompareKind::Store)
            m_report.differences.push_back(difference);
    }

    const MapiMemory& m_memory;
    const StoreRecord& m_unwrapped;
    IMsgStore& m_wrapped;
    Pace m_pace;
    PropertyNames m_names;
    DifferenceRules m_rules;
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

std::shared_ptr<const StoreRecord> Record(StoreSession& unwrapped, bool withFolders, const Progress& progress)
{
    const MapiMemory& memory = unwrapped.Memory();
    ObjectCounts expected;
    if (withFolders)
        expected = CountTree(ReadTree(memory, unwrapped.Store(), true));
    Recorder recorder(memory, unwrapped.Store(), expected.messages + expected.hidden, progress);
    auto record = std::make_shared<StoreRecord>();
    record->dllName = unwrapped.DllName();
    if (const auto root = ReadProp(memory, unwrapped.Store(), archiveRoot))
        record->archiveRoot = root->AsBytes();
    record->properties = PropertiesOf(memory, CompareKind::Store, unwrapped.Store());
    ComPtr<IMAPITable> table;
    record->receiveResult = unwrapped.Store().GetReceiveFolderTable(MAPI_UNICODE, table.Put());
    if (SUCCEEDED(record->receiveResult))
        record->receiveFolders = recorder.RecordTable(*table);
    if (withFolders)
        record->root = recorder.RecordFolder({}, "/");
    return record;
}

DiffReport Compare(const StoreRecord& unwrapped, StoreSession& wrapped, const std::filesystem::path& file,
                   const Setting& setting, const Progress& progress)
{
    Comparer comparer(unwrapped, wrapped, file, setting, progress);
    comparer.CompareStores();
    if (unwrapped.root)
        comparer.CompareFolders(*unwrapped.root);
    return std::move(comparer.Report());
}

int RunDiff(const Options& options, const std::filesystem::path& file)
{
    RequireFile(file);
    const Progress progress = [&](const std::string& line)
    {
        if (!options.json)
            PrintLine(line);
    };
    // A logon gives a store its archive root: that shall not happen to the caller's file.
    const ScratchFolder scratch;
    const std::filesystem::path copy = scratch.Copy(file);
    // Every store that is opened is closed before the next: a provider need not open one file twice.
    ScratchArchive(options.mapi, options.place.service, copy, options.setting);
    std::shared_ptr<const StoreRecord> unwrapped;
    {
        PstSession session(options.mapi, copy, true, true);
        unwrapped = Record(session, true, progress);
    }
    ScratchArchive wrapped(options.mapi, options.place.service, copy, options.setting);
    const DiffReport report = Compare(*unwrapped, wrapped, copy, options.setting, progress);
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
