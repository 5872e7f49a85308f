// The commands "list", "show" and "props".
#include "tools/browser/Show.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "tools/browser/Commands.h"
#include "tools/browser/Copy.h"

#include <algorithm>
#include <cwctype>
#include <variant>

using namespace Common;

namespace Browser
{
namespace
{
const std::vector<ULONG> listColumns = {
    PR_ENTRYID,      PR_SENDER_NAME_W, PR_SUBJECT_W,    PR_MESSAGE_DELIVERY_TIME, PR_CLIENT_SUBMIT_TIME,
    PR_MESSAGE_SIZE, PR_HASATTACH,     PR_MESSAGE_FLAGS};

// What an argument of the command line names.
struct Target
{
    ComPtr<IMAPIProp> object;
    ComPtr<IMessage> message;
    std::string kind;
};

size_t ParseNumber(const std::wstring& text, const std::wstring& whole)
{
    constexpr size_t longest = 9;
    if (text.empty() || text.size() > longest ||
        !std::all_of(text.begin(), text.end(), [](wchar_t c) { return c >= L'0' && c <= L'9'; }))
    {
        Fail(MAPI_E_INVALID_PARAMETER,
             L"\"" + whole + L"\" names no object: a number is expected after \"#\" and \"@\".");
    }
    return std::stoul(text);
}

bool IsEntryId(const std::wstring& text)
{
    constexpr size_t shortest = 48;
    return text.size() >= shortest && text.size() % 2 == 0 &&
           std::all_of(text.begin(), text.end(), [](wchar_t c) { return std::iswxdigit(c) != 0; });
}

ComPtr<IMessage> MessageAt(const MapiMemory& memory, IMsgStore& store, const std::wstring& path, size_t number)
{
    const auto folder = OpenFolder(store, FindFolder(memory, store, path));
    const auto table = Contents(*folder, false);
    const auto rows = number == 0 ? std::vector<Row>() : ReadTable(memory, *table, {PR_ENTRYID}, 1, number - 1);
    if (rows.empty())
    {
        Fail(MAPI_E_NOT_FOUND, L"There is no message " + std::to_wstring(number) + L" in \"" + path +
                                   L"\", which has " + std::to_wstring(RowCount(*table)) + L".");
    }
    return OpenMessage(store, rows.front()[0].AsBytes());
}

// "store", "root", a folder's path, FOLDER#N for a message, FOLDER#N@K for an attachment of it, or an entry ID.
Target FindTarget(const MapiMemory& memory, IMsgStore& store, const std::wstring& name)
{
    if (name == L"store")
        return {ComPtr<IMAPIProp>(&store), {}, "store"};
    if (name == L"root")
        return {OpenFolder(store, {}), {}, "folder"};
    if (IsEntryId(name))
    {
        const Bytes entryId = BytesFromHex(name);
        ULONG type = 0;
        ComPtr<IUnknown> object;
        const HRESULT result =
            store.OpenEntry(static_cast<ULONG>(entryId.size()), EntryIdOf(entryId), nullptr, 0, &type, object.Put());
        if (FAILED(result))
            Fail(result, L"The store has no object of that entry ID: " + ResultText(result) + L".");
        return {object.As<IMAPIProp>(IID_IMAPIProp), object.As<IMessage>(IID_IMessage),
                type == MAPI_MESSAGE  ? "message"
                : type == MAPI_FOLDER ? "folder"
                                      : "object"};
    }
    const size_t hash = name.rfind(L'#');
    if (hash == std::wstring::npos)
        return {OpenFolder(store, FindFolder(memory, store, name)), {}, "folder"};
    std::wstring number = name.substr(hash + 1);
    std::wstring attachment;
    const size_t at = number.find(L'@');
    if (at != std::wstring::npos)
    {
        attachment = number.substr(at + 1);
        number.resize(at);
    }
    auto message = MessageAt(memory, store, name.substr(0, hash), ParseNumber(number, name));
    if (at == std::wstring::npos)
        return {message, message, "message"};
    const auto numbers = AttachmentNumbers(memory, *message);
    const size_t index = ParseNumber(attachment, name);
    if (index == 0 || index > numbers.size())
    {
        Fail(MAPI_E_NOT_FOUND, L"The message has " + std::to_wstring(numbers.size()) + L" attachments and no number " +
                                   std::to_wstring(index) + L".");
    }
    return {OpenAttachment(*message, numbers[index - 1]), {}, "attachment"};
}

std::string Date(const Row& row)
{
    const std::string delivered = TimeText(row[3]);
    return delivered.empty() ? TimeText(row[4]) : delivered;
}

const char* RecipientKind(LONG type)
{
    switch (type)
    {
    case MAPI_ORIG:
        return "From";
    case MAPI_TO:
        return "To";
    case MAPI_CC:
        return "Cc";
    case MAPI_BCC:
        return "Bcc";
    default:
        return "?";
    }
}

const char* AttachMethod(LONG method)
{
    switch (method)
    {
    case ATTACH_BY_VALUE:
        return "by value";
    case ATTACH_EMBEDDED_MSG:
        return "message";
    case ATTACH_OLE:
        return "OLE object";
    case ATTACH_BY_REFERENCE:
    case ATTACH_BY_REF_RESOLVE:
    case ATTACH_BY_REF_ONLY:
        return "by reference";
    default:
        return "none";
    }
}

std::string FirstText(const Row& row, std::initializer_list<size_t> cells)
{
    for (const size_t cell : cells)
        if (const std::wstring text = row[cell].AsText(); !text.empty())
            return Utf8(text);
    return {};
}

// A body's lines, with whatever line ends it has.
void PrintBody(const std::string& body)
{
    size_t begin = 0;
    while (begin < body.size())
    {
        const size_t end = std::min(body.find('\n', begin), body.size());
        std::string line = body.substr(begin, end - begin);
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        PrintLine(line);
        begin = end + 1;
    }
}
} // namespace

Json MessageJson(const MapiMemory& memory, IMessage& message)
{
    Json json;
    json["subject"] = ReadText(memory, message, PR_SUBJECT_W);
    json["from"] = ReadText(memory, message, PR_SENDER_NAME_W);
    json["fromAddress"] = ReadText(memory, message, PR_SENDER_EMAIL_ADDRESS_W);
    const auto values = ReadProps(memory, message,
                                  {PR_MESSAGE_DELIVERY_TIME, PR_CLIENT_SUBMIT_TIME, PR_MESSAGE_CLASS_W, PR_MESSAGE_SIZE,
                                   PR_ACCESS, PR_ACCESS_LEVEL});
    json["delivered"] = values[0].IsError() ? Json() : ValueJson(values[0]);
    json["sent"] = values[1].IsError() ? Json() : ValueJson(values[1]);
    json["class"] = Utf8(values[2].AsText());
    json["size"] = values[3].AsLong();
    json["access"] = values[4].AsLong();
    json["accessLevel"] = values[5].AsLong();
    ComPtr<IMAPITable> table;
    Check(message.GetRecipientTable(MAPI_UNICODE, table.Put()), L"A message does not list its recipients.");
    json["recipients"] = Json::array();
    for (const Row& row : ReadTable(memory, *table, {PR_RECIPIENT_TYPE, PR_DISPLAY_NAME_W, PR_EMAIL_ADDRESS_W}))
    {
        json["recipients"].push_back({{"kind", RecipientKind(row[0].AsLong())},
                                      {"name", Utf8(row[1].AsText())},
                                      {"address", Utf8(row[2].AsText())}});
    }
    Check(message.GetAttachmentTable(MAPI_UNICODE, table.Put()), L"A message does not list its attachments.");
    json["attachments"] = Json::array();
    for (const Row& row : ReadTable(memory, *table,
                                    {PR_ATTACH_NUM, PR_ATTACH_LONG_FILENAME_W, PR_ATTACH_FILENAME_W, PR_DISPLAY_NAME_W,
                                     PR_ATTACH_METHOD, PR_ATTACH_SIZE}))
    {
        json["attachments"].push_back(
            {{"name", FirstText(row, {1, 2, 3})}, {"kind", AttachMethod(row[4].AsLong())}, {"size", row[5].AsLong()}});
    }
    json["body"] = ReadText(memory, message, PR_BODY_W);
    return json;
}

size_t PrintMessages(const MapiMemory& memory, IMAPIFolder& folder, size_t limit, size_t indent)
{
    const auto contents = Contents(folder, false);
    const auto rows = ReadTable(memory, *contents, listColumns, limit);
    TextTable table({{"#", true}, {"from", false, 28}, {"subject", false, 48}, {"date"}, {"size", true}, {"att."}});
    for (size_t index = 0; index < rows.size(); ++index)
    {
        const Row& row = rows[index];
        table.Add({std::to_string(index + 1), Utf8(row[1].AsText()), Utf8(row[2].AsText()), Date(row),
                   std::to_string(row[5].AsLong()), row[6].AsLong() != 0 && !row[6].IsError() ? "yes" : ""});
    }
    table.Print(indent);
    return rows.size() < limit ? rows.size() : RowCount(*contents);
}

int RunList(const Options& options, const std::wstring& folder, size_t limit)
{
    ArchiveSession archive(options.mapi, options.place);
    archive.Logon(options.setting);
    const auto opened = OpenFolder(archive.Store(), FindFolder(archive.Memory(), archive.Store(), folder));
    if (options.json)
    {
        Json messages = Json::array();
        const auto contents = Contents(*opened, false);
        const auto rows = ReadTable(archive.Memory(), *contents, listColumns, limit);
        for (size_t index = 0; index < rows.size(); ++index)
        {
            const Row& row = rows[index];
            messages.push_back({{"number", index + 1},
                                {"entryId", ValueJson(row[0])},
                                {"from", Utf8(row[1].AsText())},
                                {"subject", Utf8(row[2].AsText())},
                                {"delivered", row[3].IsError() ? Json() : ValueJson(row[3])},
                                {"sent", row[4].IsError() ? Json() : ValueJson(row[4])},
                                {"size", row[5].AsLong()},
                                {"attachments", !row[6].IsError() && row[6].AsLong() != 0},
                                {"read", (row[7].AsLong() & MSGFLAG_READ) != 0}});
        }
        PrintLine(Json{{"messages", std::move(messages)}, {"count", RowCount(*contents)}}.dump(2));
        return exitOk;
    }
    const size_t count = PrintMessages(archive.Memory(), *opened, limit, 0);
    PrintLine();
    PrintLine(limit < count ? "the first " + std::to_string(limit) + " of " + Count(count, "message", "messages")
                            : Count(count, "message", "messages"));
    return exitOk;
}

int RunShow(const Options& options, const std::wstring& name)
{
    ArchiveSession archive(options.mapi, options.place);
    archive.Logon(options.setting);
    const Target target = FindTarget(archive.Memory(), archive.Store(), name);
    if (!target.message)
    {
        Fail(MAPI_E_INVALID_PARAMETER, L"\"" + name +
                                           L"\" is no message; FOLDER#NUMBER names one, with the number that "
                                           L"\"archive-browser list FOLDER\" shows.");
    }
    const Json json = MessageJson(archive.Memory(), *target.message);
    if (options.json)
    {
        PrintLine(json.dump(2));
        return exitOk;
    }
    const auto header = [](const char* title, const std::string& text)
    {
        if (!text.empty())
            PrintLine(std::string(title) + std::string(12 - std::string_view(title).size(), ' ') + Shorten(text, 400));
    };
    const auto text = [&](const char* key) { return json[key].is_string() ? json[key].get<std::string>() : ""; };
    header("Subject", text("subject"));
    const std::string address = text("fromAddress");
    header("From", text("from") + (address.empty() ? "" : " <" + address + ">"));
    for (const Json& recipient : json["recipients"])
    {
        const auto to = recipient["address"].get<std::string>();
        header(recipient["kind"].get<std::string>().c_str(),
               recipient["name"].get<std::string>() + (to.empty() ? "" : " <" + to + ">"));
    }
    header("Sent", text("sent"));
    header("Delivered", text("delivered"));
    header("Class", text("class"));
    size_t number = 0;
    for (const Json& attachment : json["attachments"])
    {
        header("Attachment", "@" + std::to_string(++number) + "  " + attachment["name"].get<std::string>() + "  (" +
                                 attachment["kind"].get<std::string>() + ", " +
                                 std::to_string(attachment["size"].get<long>()) + " bytes)");
    }
    PrintLine();
    PrintBody(text("body"));
    return exitOk;
}

int RunProps(const Options& options, const std::wstring& name)
{
    ArchiveSession archive(options.mapi, options.place);
    archive.Logon(options.setting);
    const Target target = FindTarget(archive.Memory(), archive.Store(), name);
    if (!target.object)
        Fail(MAPI_E_INTERFACE_NOT_SUPPORTED, L"\"" + name + L"\" has no properties.");
    // What only a stream could give, a store or a folder refuses to open on purpose; its entry says so.
    const bool streams = target.kind == "message" || target.kind == "attachment";
    const ObjectProperties properties = ReadProperties(archive.Memory(), *target.object, streams);
    PropertyNames names(archive.Memory(), *target.object);
    if (options.json)
    {
        Json list = Json::array();
        for (size_t index = 0; index < properties.values.size(); ++index)
        {
            char tag[16] = {};
            std::snprintf(tag, sizeof(tag), "0x%08lX", static_cast<unsigned long>(properties.tags[index]));
            list.push_back({{"tag", tag},
                            {"name", TagName(properties.tags[index], &names)},
                            {"value", ValueJson(properties.values[index])}});
        }
        PrintLine(Json{{"object", target.kind}, {"properties", std::move(list)}}.dump(2));
        return exitOk;
    }
    TextTable table({{"tag"}, {"name", false, 60}, {"value", false, 100}});
    for (size_t index = 0; index < properties.values.size(); ++index)
    {
        char tag[16] = {};
        std::snprintf(tag, sizeof(tag), "0x%08lX", static_cast<unsigned long>(properties.tags[index]));
        table.Add({tag, TagName(properties.tags[index], &names), ValueText(properties.values[index])});
    }
    table.Print();
    PrintLine();
    PrintLine(Count(properties.values.size(), "property", "properties"));
    return exitOk;
}
} // namespace Browser
