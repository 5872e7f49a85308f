// The command "report".
#include "tools/browser/Report.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "hostkit/Archive.h"
#include "nst/Version.h"
#include "support/Log.h"
#include "support/MapiHeaders.h"
#include "tools/browser/Commands.h"
#include "tools/browser/Copy.h"
#include "tools/browser/Modules.h"
#include "tools/browser/ReportPage.h"
#include "tools/browser/Rules.h"
#include "tools/browser/Show.h"
#include "tools/browser/Tree.h"
#include "tools/browser/Try.h"
#include "tools/setup/Locations.h"

#include <algorithm>
#include <iterator>

using namespace Common;

namespace Browser
{
namespace
{
// What of a long value, a long body and a long log the page has.
constexpr size_t longestValue = 2000;
constexpr size_t longestBody = 50000;
constexpr size_t mostLogLines = 10000;

// The bits of a message's row.
constexpr int rowHasAttachment = 1;
constexpr int rowIsUnread = 2;
constexpr int rowIsHidden = 4;

// The text's beginning, whole characters, and how long it was.
std::string Cut(const std::string& text, size_t longest)
{
    if (text.size() <= longest)
        return text;
    size_t end = longest;
    while (end != 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return text.substr(0, end) + "\u2026 (" + std::to_string(text.size()) + " bytes of UTF-8)";
}

std::string ShownValue(const PropValue& value)
{
    if (value.IsError() && value.AsLong() == MAPI_E_NOT_ENOUGH_MEMORY)
        return "(too large to come with the others)";
    return Cut(ValueText(value, longestValue), longestValue);
}

std::string Now()
{
    SYSTEMTIME now{};
    GetSystemTime(&now);
    char text[40] = {};
    std::snprintf(text, sizeof(text), "%04u-%02u-%02u %02u:%02u UTC", now.wYear, now.wMonth, now.wDay, now.wHour,
                  now.wMinute);
    return text;
}

template <size_t Size>
bool IsAmong(const ULONG (&tags)[Size], ULONG tag)
{
    return std::find(std::begin(tags), std::end(tags), tag) != std::end(tags);
}

// Has the library log step by step while it lives.
class Traced
{
public:
    Traced() noexcept : m_before(Quillon::Logging::EnableTraceLogging(true)) {}
    ~Traced() { Quillon::Logging::EnableTraceLogging(m_before); }
    Traced(const Traced&) = delete;
    Traced& operator=(const Traced&) = delete;

private:
    bool m_before;
};

// Reads what the page shows, and keeps it as the page takes it.
class Reporter
{
public:
    Reporter(const Options& options, const ReportChoice& choice)
        : m_options(options),
          m_setting(options.setting),
          m_choice(choice)
    {
        m_data["format"] = 1;
        m_data["created"] = Now();
        m_data["tool"] = KIVNST_VERSION;
        m_data["library"] = Utf8(Quillon::Nst::GetLibraryVersionText());
        m_data["system"] = Utf8(SystemText());
        m_data["service"] = Utf8(options.place.service);
        m_data["readOnly"] = !options.setting.modify;
        for (const char* const list : {"folders", "details", "objects", "tags", "rules", "log", "modules", "problems"})
            m_data[list] = Json::array();
    }

    // Everything; throws where not even the archive can be opened.
    void Read()
    {
        ReadArchive();
        ReadUnwrapped();
        Attempt();
    }

    // What the page shows; what was not read is not in it.
    Json& Finish()
    {
        TakeLog();
        if (m_data["modules"].empty())
            ReadModules({});
        Json& counts = m_data["counts"];
        counts = CountsJson(m_counts);
        counts["listed"] = m_listed;
        counts["detailed"] = m_data["details"].size();
        counts["properties"] = m_properties;
        counts["changed"] = m_changed;
        counts["unexplained"] = m_unexplained;
        counts["attempted"] = m_attempted;
        counts["refused"] = m_refused;
        m_data["logLost"] = m_logLost;
        return m_data;
    }

    void AddProblem(const std::string& text)
    {
        // One for each folder of many would help nobody.
        constexpr size_t most = 50;
        if (++m_problems <= most)
            m_data["problems"].push_back(text);
    }
    size_t Problems() const noexcept { return m_problems; }

private:
    // An object whose properties are read behind the wrapper, to be compared with the PST provider's.
    struct ReadObject
    {
        CompareKind kind = CompareKind::Store;
        Bytes entryId;
        std::optional<ULONG> attachment;
        ObjectProperties properties;
    };

    void Say(const std::string& line) const
    {
        if (!m_options.json)
            PrintLine(line);
    }

    template <class F>
    bool Guard(const std::string& what, F&& body)
    {
        try
        {
            body();
            return true;
        }
        catch (const std::exception& error)
        {
            AddProblem(what + ": " + error.what());
            return false;
        }
    }

    // The archive as its clients see it.
    void ReadArchive()
    {
        ArchiveSession archive(m_options.mapi, m_options.place);
        m_data["profile"] = Utf8(archive.Profile());
        if (m_options.place.store.empty())
            m_file = archive.ArchivePath();
        m_data["archive"] = Utf8(m_file.wstring());
        // Of another host's settings nothing is known.
        m_setting.asIs = m_setting == Setting{} && !archive.HasSettings();
        m_data["setting"] = m_setting.Name();
        m_data["hostDecides"] = m_setting.asIs;
        Say("Opening the archive");
        {
            const Traced traced;
            archive.Logon(m_setting);
        }
        m_hostModule = archive.DllName();
        m_data["module"] = Utf8(m_hostModule);
        const MapiMemory memory = archive.Memory();
        m_data["store"] = ReadText(memory, archive.Store(), PR_DISPLAY_NAME_W);
        {
            PropertyNames names(memory, archive.Store());
            AddObject({CompareKind::Store, {}, {}, ReadProperties(memory, archive.Store(), false)}, names);
            const FolderNode tree = ReadTree(memory, archive.Store(), m_choice.all);
            m_counts = CountTree(tree);
            AddFolder(memory, archive.Store(), names, tree, 0);
        }
        ReadModules(m_hostModule);
        TakeLog();
    }

    void AddFolder(const MapiMemory& memory, IMsgStore& store, PropertyNames& names, const FolderNode& node, int depth)
    {
        Json folder = {{"name", Utf8(node.name)}, {"depth", depth},        {"messages", node.messages},
                       {"unread", node.unread},   {"hidden", node.hidden}, {"rows", Json::array()}};
        const std::string label = "folder \"" + Shorten(Utf8(node.name), 60) + "\"";
        Guard(label,
              [&]
              {
                  const auto opened = OpenFolder(store, node.entryId);
                  folder["object"] =
                      AddObject({CompareKind::Folder, node.entryId, {}, ReadProperties(memory, *opened, false)}, names);
                  for (const bool hidden : {false, true})
                      AddMessages(memory, store, names, *Contents(*opened, hidden), hidden, folder["rows"], label);
              });
        if (node.messages != 0)
            Say("  " + label + ": " + Count(static_cast<size_t>(node.messages), "message", "messages"));
        m_data["folders"].push_back(std::move(folder));
        for (const FolderNode& child : node.children)
            AddFolder(memory, store, names, child, depth + 1);
    }

    void AddMessages(const MapiMemory& memory, IMsgStore& store, PropertyNames& names, IMAPITable& table, bool hidden,
                     Json& rows, const std::string& label)
    {
        size_t count = 0;
        ForEachRow(
            memory, table,
            {PR_ENTRYID, PR_SENDER_NAME_W, PR_SUBJECT_W, PR_MESSAGE_DELIVERY_TIME, PR_CLIENT_SUBMIT_TIME,
             PR_MESSAGE_SIZE, PR_HASATTACH, PR_MESSAGE_FLAGS},
            [&](const Row& row)
            {
                int bits = hidden ? rowIsHidden : 0;
                bits |= !row[6].IsError() && row[6].AsLong() != 0 ? rowHasAttachment : 0;
                bits |= !row[7].IsError() && (row[7].AsLong() & MSGFLAG_READ) == 0 ? rowIsUnread : 0;
                const std::string delivered = TimeText(row[3]);
                Json entry = {Cut(Utf8(row[2].AsText()), longestValue), Cut(Utf8(row[1].AsText()), longestValue),
                              delivered.empty() ? TimeText(row[4]) : delivered, row[5].IsError() ? 0 : row[5].AsLong(),
                              bits};
                if (count < m_choice.detailed)
                {
                    Guard("message " + std::to_string(count + 1) + " of " + label,
                          [&] { entry.push_back(AddMessage(memory, store, names, row[0].AsBytes())); });
                }
                rows.push_back(std::move(entry));
                ++count;
                ++m_listed;
                return true;
            },
            0, m_choice.listed);
    }

    // Gives the place of the message among the details.
    size_t AddMessage(const MapiMemory& memory, IMsgStore& store, PropertyNames& names, const Bytes& entryId)
    {
        const auto message = OpenMessage(store, entryId);
        Json detail = MessageJson(memory, *message);
        detail["body"] = Cut(detail["body"].get<std::string>(), longestBody);
        detail["object"] =
            AddObject({CompareKind::Message, entryId, {}, ReadProperties(memory, *message, false)}, names);
        size_t index = 0;
        for (const ULONG number : AttachmentNumbers(memory, *message))
        {
            if (index == detail["attachments"].size())
                break;
            const auto attachment = OpenAttachment(*message, number);
            detail["attachments"][index++]["object"] = AddObject(
                {CompareKind::Attachment, entryId, number, ReadProperties(memory, *attachment, false)}, names);
        }
        m_data["details"].push_back(std::move(detail));
        return m_data["details"].size() - 1;
    }

    // The same objects as the PST provider shows them.
    void ReadUnwrapped()
    {
        std::string reason;
        if (m_file.empty())
            reason = "the store is not the archive of a message service, whose file the profile names";
        else
            Say("Comparing with the file as the mail client's PST provider shows it");
        try
        {
            if (reason.empty())
                Compare();
        }
        catch (const std::exception& error)
        {
            reason = error.what();
            AddProblem("nothing is compared: " + reason);
        }
        m_data["compared"] = reason.empty();
        m_data["notCompared"] = reason;
        // What nothing is compared with is shown as it is.
        for (size_t index = 0; index < m_objects.size(); ++index)
            if (m_data["objects"][index]["properties"].is_null())
                ShowObject(index, PairProperties({}, m_objects[index].properties), nullptr, nullptr);
        m_objects.clear();
        TakeLog();
    }

    void Compare()
    {
        // Opened as the host opens it, since what a provider tells of access depends on that. It was open just now: how
        // a provider keeps it is its own matter.
        PstSession session(m_options.mapi, m_file, false, true);
        const MapiMemory memory = session.Memory();
        IMsgStore& store = session.Store();
        const auto root = ReadProp(memory, store, Quillon::Nst::archiveSubtreeEntryIdTag);
        const DifferenceRules rules(session.DllName(), root ? root->AsBytes() : Bytes(), m_hostModule, m_file,
                                    m_setting);
        PropertyNames names(memory, store);
        // Attachments come right behind their message.
        Bytes messageId;
        ComPtr<IMessage> message;
        for (size_t index = 0; index < m_objects.size(); ++index)
        {
            ReadObject& object = m_objects[index];
            const bool compared =
                Guard(std::string("comparing a ") + KindName(object.kind),
                      [&]
                      {
                          if (object.kind == CompareKind::Message)
                          {
                              message.Reset();
                              message = OpenMessage(store, object.entryId);
                              messageId = object.entryId;
                          }
                          ComPtr<IMAPIProp> before;
                          if (object.kind == CompareKind::Store)
                              before = ComPtr<IMAPIProp>(&store);
                          else if (object.kind == CompareKind::Folder)
                              before = OpenFolder(store, object.entryId);
                          else if (!message || messageId != object.entryId)
                              Fail(MAPI_E_NOT_FOUND, L"its message could not be opened.");
                          else if (object.attachment)
                              before = OpenAttachment(*message, *object.attachment);
                          else
                              before = message;
                          const ObjectProperties properties = ReadProperties(memory, *before, false);
                          ShowObject(index, PairProperties(properties, object.properties), &rules, &names);
                      });
            if (compared)
                object.properties = {};
        }
    }

    size_t AddObject(ReadObject object, PropertyNames& names)
    {
        // Names are to be had while the store is open.
        for (const ULONG tag : object.properties.tags)
            TagIndex(tag, &names);
        m_objects.push_back(std::move(object));
        m_data["objects"].push_back({{"kind", KindName(m_objects.back().kind)}, {"properties", nullptr}});
        return m_objects.size() - 1;
    }

    void ShowObject(size_t index, const std::vector<PropertyPair>& pairs, const DifferenceRules* rules,
                    PropertyNames* names)
    {
        Json list = Json::array();
        for (const PropertyPair& pair : pairs)
        {
            ++m_properties;
            Json entry = {TagIndex(pair.tag, names), pair.after ? Json(ShownValue(*pair.after)) : Json()};
            if (rules && !pair.Same())
            {
                ++m_changed;
                const std::string rule = rules->Explain(m_objects[index].kind, pair);
                m_unexplained += rule.empty() ? 1 : 0;
                entry.push_back(pair.before ? Json(ShownValue(*pair.before)) : Json());
                entry.push_back(rule.empty() ? Json(-1) : Json(RuleIndex(rule)));
            }
            list.push_back(std::move(entry));
        }
        m_data["objects"][index]["properties"] = std::move(list);
        m_data["objects"][index]["compared"] = rules != nullptr;
    }

    size_t TagIndex(ULONG tag, PropertyNames* names)
    {
        const auto [known, isNew] = m_tags.emplace(tag, m_tags.size());
        if (isNew)
        {
            char number[16] = {};
            std::snprintf(number, sizeof(number), "0x%08lX", static_cast<unsigned long>(tag));
            // Of what the library's own wrappers leave writable: 1 in a store, 2 in a folder.
            const bool marked = !m_setting.kit && !m_setting.asIs;
            const int writable = (marked && IsAmong(KivNstHostKit::libraryStoreTags, tag) ? 1 : 0) |
                                 (marked && IsAmong(KivNstHostKit::libraryFolderTags, tag) ? 2 : 0);
            m_data["tags"].push_back({number, TagName(tag, names), writable});
        }
        return known->second;
    }

    size_t RuleIndex(const std::string& rule)
    {
        Json& rules = m_data["rules"];
        const auto found = std::find(rules.begin(), rules.end(), Json(rule));
        const auto index = static_cast<size_t>(found - rules.begin());
        if (found == rules.end())
            rules.push_back(rule);
        return index;
    }

    // What the modifying calls give, on an archive made for it: the archive itself is never risked.
    void Attempt()
    {
        std::string reason;
        if (!m_choice.attempts)
            reason = "left out on request (--no-try)";
        else if (m_file.empty())
            reason = "the store is not the archive of a message service, of which another could be made";
        if (reason.empty())
        {
            Say("Attempting every modifying call on an archive made for it");
            try
            {
                const TryReport tried = TryAll(m_options, {m_setting}, nullptr, true, TryPlace::OwnArchives);
                Json rows = Json::array();
                for (const TryRow& row : tried.rows)
                {
                    ++m_attempted;
                    m_refused += row.outcome == "refused" ? 1 : 0;
                    rows.push_back({row.object, row.call, row.code, row.outcome, row.log});
                }
                m_data["attempts"] = std::move(rows);
                m_data["unchanged"] = tried.ArchiveUnchanged();
                if (!tried.ArchiveUnchanged())
                    AddProblem("the archive is not what it was before the calls");
            }
            catch (const Failure& failure)
            {
                reason = failure.what();
                // Without mail there is nothing to make them on, which is nobody's fault.
                if (failure.Result() != MAPI_E_NOT_FOUND || m_counts.messages != 0)
                    AddProblem("no call was attempted: " + reason);
            }
        }
        m_data["notTried"] = reason;
    }

    void ReadModules(const std::wstring& hostModule)
    {
        const std::wstring host = hostModule.empty() ? std::wstring() : Setup::GetLoadedName(hostModule);
        Guard("modules",
              [&]
              {
                  Json modules = Json::array();
                  for (const LoadedModule& module : ListModules())
                  {
                      modules.push_back({Utf8(module.name), Utf8(module.version), Utf8(module.description),
                                         Utf8(module.folder), Role(module.name, host)});
                  }
                  m_data["modules"] = std::move(modules);
              });
    }

    // What a module is here; empty for those that are nothing special.
    static std::string Role(const std::wstring& name, const std::wstring& host)
    {
        const auto is = [&](const wchar_t* other)
        { return CompareStringOrdinal(name.c_str(), -1, other, -1, TRUE) == CSTR_EQUAL; };
        if (!host.empty() && is(host.c_str()))
            return "the host";
        if (is(L"KivNst.dll"))
            return "the library";
        if (is(L"archive-browser.exe"))
            return "this tool";
        if (is(L"mspst32.dll"))
            return "the PST provider";
        if (is(L"mapi32.dll") || is(L"olmapi32.dll") || is(L"msmapi32.dll"))
            return "MAPI";
        if (is(L"libstdc++-6.dll") || is(L"libgcc_s_seh-1.dll") || is(L"libwinpthread-1.dll") ||
            is(L"vcruntime140.dll") || is(L"msvcp140.dll"))
            return "the compiler's runtime";
        return {};
    }

    void TakeLog()
    {
        for (const LogRecorder::Line& line : m_options.log->Take())
        {
            Json& log = m_data["log"];
            if (log.size() >= mostLogLines)
            {
                ++m_logLost;
                continue;
            }
            if (line.isDetail && !log.empty())
                log.back()[3].push_back(Cut(line.text, longestValue));
            else
                log.push_back({LevelName(line.level), line.time, Cut(line.text, longestValue), Json::array()});
        }
    }

    static std::string LevelName(int level)
    {
        return Utf8(Quillon::Logging::GetLevelName(static_cast<Quillon::LogId>(level)));
    }

    const Options& m_options;
    Setting m_setting;
    ReportChoice m_choice;
    std::filesystem::path m_file;
    std::wstring m_hostModule;
    std::vector<ReadObject> m_objects;
    std::map<ULONG, size_t> m_tags;
    ObjectCounts m_counts;
    size_t m_listed = 0;
    size_t m_properties = 0;
    size_t m_changed = 0;
    size_t m_unexplained = 0;
    size_t m_attempted = 0;
    size_t m_refused = 0;
    size_t m_logLost = 0;
    size_t m_problems = 0;
    Json m_data;
};

std::string Summary(const Json& data)
{
    const Json& counts = data["counts"];
    const auto number = [&](const char* name) { return counts[name].get<size_t>(); };
    const size_t changed = number("changed");
    return Count(number("folders"), "folder", "folders") + ", " +
           Count(number("listed"), "message listed", "messages listed") + ", " + std::to_string(number("detailed")) +
           " of them with all that belongs to them; " + std::to_string(changed) + " of " +
           Count(number("properties"), "property", "properties") + " changed by the wrapper, " +
           std::to_string(number("unexplained")) + " of them unexplained; " + std::to_string(number("refused")) +
           " of " + Count(number("attempted"), "modifying call", "modifying calls") + " refused";
}
} // namespace

int RunReport(const Options& options, const std::filesystem::path& file, const ReportChoice& choice)
{
    RequireReportPlace(file, choice.force);
    Reporter reporter(options, choice);
    std::exception_ptr failure;
    try
    {
        reporter.Read();
    }
    catch (const std::exception& error)
    {
        // The log that it left is what a ticket needs.
        failure = std::current_exception();
        reporter.AddProblem(error.what());
    }
    Json& data = reporter.Finish();
    WriteReportPage(file, MakeReportPage(data));
    if (failure)
    {
        if (!options.json)
            PrintLine(Utf8(file.wstring()) + ": the log and the modules alone");
        std::rethrow_exception(failure);
    }
    if (options.json)
    {
        PrintLine(
            Json{{"file", Utf8(file.wstring())}, {"counts", data["counts"]}, {"problems", data["problems"]}}.dump(2));
    }
    else
    {
        PrintLine(Utf8(file.wstring()) + ": " + Summary(data));
    }
    if (reporter.Problems() == 0)
        return exitOk;
    Fail(MAPI_W_ERRORS_RETURNED, L"The report is written, but " + std::to_wstring(reporter.Problems()) +
                                     (reporter.Problems() == 1 ? L" thing" : L" things") +
                                     L" could not be read; it names them.");
}
} // namespace Browser
