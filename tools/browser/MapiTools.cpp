// Reading MAPI objects.
#include "tools/browser/MapiTools.h"

#include "common/Boundary.h"
#include "common/MemoryStream.h"
#include "common/Text.h"
#include "support/Format.h"
#include "support/MapiProperties.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cwctype>

using namespace Common;

namespace Browser
{
namespace
{
// What a property may have at most; more is no mail.
constexpr size_t largestProperty = 1u << 30;
constexpr LONG rowsAtOnce = 200;

std::wstring Lower(std::wstring_view text)
{
    std::wstring lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](wchar_t c) { return static_cast<wchar_t>(std::towlower(c)); });
    return lower;
}

bool IsSeparator(wchar_t character)
{
    return character == L'/' || character == L'\\';
}

// The value of a large property; nothing when it cannot be read by stream.
std::optional<PropValue> ReadLarge(IMAPIProp& object, ULONG tag)
{
    const ULONG type = PROP_TYPE(tag);
    if (type != PT_UNICODE && type != PT_STRING8 && type != PT_BINARY)
        return {};
    ComPtr<IStream> stream;
    if (FAILED(object.OpenProperty(tag, &IID_IStream, STGM_READ, 0, stream.PutAs<IUnknown>())) || !stream)
        return {};
    return FromStreamBytes(tag, ReadStream(*stream, largestProperty));
}

// A table's call, tried again while the table is busy with an earlier one.
template <class Call>
HRESULT WhenReady(IMAPITable& table, Call&& call)
{
    constexpr int most = 100;
    constexpr ULONG milliseconds = 300;
    HRESULT result = call();
    for (int tries = 1; result == MAPI_E_BUSY && tries < most; ++tries)
    {
        ULONG status = 0;
        if (FAILED(table.WaitForCompletion(0, milliseconds, &status)))
            Sleep(milliseconds / 10);
        result = call();
    }
    return result;
}

std::string GuidText(const GUID& guid)
{
    wchar_t text[40] = {};
    StringFromGUID2(guid, text, 40);
    return Utf8(text);
}

template <class T, class F>
std::string Join(const std::vector<T>& values, size_t limit, F&& text)
{
    std::string joined;
    for (const T& value : values)
    {
        joined += joined.empty() ? "" : "; ";
        if (joined.size() > limit)
            return joined + "\u2026";
        joined += text(value);
    }
    return joined;
}

std::string BytesText(const Bytes& bytes, size_t limit)
{
    const size_t shown = std::min(bytes.size(), limit / 2);
    std::string text = Utf8(HexText(bytes.data(), shown));
    if (shown < bytes.size())
        text += "\u2026 (" + std::to_string(bytes.size()) + " bytes)";
    return text;
}

std::string IsoTime(std::int64_t time, bool seconds)
{
    ULARGE_INTEGER value{};
    value.QuadPart = static_cast<std::uint64_t>(time);
    const FILETIME fileTime{value.LowPart, value.HighPart};
    SYSTEMTIME system{};
    if (!FileTimeToSystemTime(&fileTime, &system))
        return std::to_string(time);
    char text[40] = {};
    if (seconds)
    {
        std::snprintf(text, sizeof(text), "%04u-%02u-%02uT%02u:%02u:%02u.%03uZ", system.wYear, system.wMonth,
                      system.wDay, system.wHour, system.wMinute, system.wSecond, system.wMilliseconds);
    }
    else
    {
        std::snprintf(text, sizeof(text), "%04u-%02u-%02u %02u:%02u", system.wYear, system.wMonth, system.wDay,
                      system.wHour, system.wMinute);
    }
    return text;
}

ComPtr<IUnknown> OpenEntry(IMsgStore& store, const Bytes& entryId, ULONG flags, ULONG wanted, const wchar_t* what)
{
    ULONG type = 0;
    ComPtr<IUnknown> object;
    const HRESULT result =
        store.OpenEntry(static_cast<ULONG>(entryId.size()), entryId.empty() ? nullptr : EntryIdOf(entryId), nullptr,
                        flags, &type, object.Put());
    if (FAILED(result))
        Fail(result, std::wstring(what) + L" cannot be opened: " + ResultText(result) + L".");
    if (type != wanted)
        Fail(MAPI_E_INVALID_ENTRYID, std::wstring(L"What the entry ID names is not ") + what + L".");
    return object;
}
} // namespace

std::string Utf8(std::wstring_view text)
{
    return Utf8FromWide(text);
}

std::wstring Wide(std::string_view text)
{
    return WideFromUtf8(text);
}

LPENTRYID EntryIdOf(const Bytes& bytes) noexcept
{
    // MAPI's methods take entry IDs without const and do not write to them.
    return reinterpret_cast<LPENTRYID>(const_cast<BYTE*>(bytes.data()));
}

ObjectProperties ReadProperties(const MapiMemory& memory, IMAPIProp& object, bool streams)
{
    ULONG count = 0;
    MapiBlock<SPropValue> values(memory);
    const HRESULT result = object.GetProps(nullptr, MAPI_UNICODE, &count, values.Put());
    if (FAILED(result))
        Fail(result, L"An object's properties cannot be read: " + ResultText(result) + L".");
    ObjectProperties properties;
    properties.values = CopyProps(count, values.Get());
    std::map<ULONG, ULONG> types;
    for (const PropValue& value : properties.values)
    {
        // What comes as an error has lost its type, which the list of properties names.
        if (value.IsError() && types.empty())
        {
            MapiBlock<SPropTagArray> list(memory);
            Check(object.GetPropList(MAPI_UNICODE, list.Put()), L"An object does not list its properties.");
            for (ULONG index = 0; list && index < list->cValues; ++index)
                types.emplace(PROP_ID(list->aulPropTag[index]), list->aulPropTag[index]);
        }
        const auto listed = value.IsError() ? types.find(value.Id()) : types.end();
        properties.tags.push_back(listed != types.end() ? listed->second : value.Tag());
    }
    for (size_t index = 0; index < properties.values.size(); ++index)
    {
        PropValue& value = properties.values[index];
        if (streams && value.IsError() && value.AsLong() == MAPI_E_NOT_ENOUGH_MEMORY)
        {
            if (auto large = ReadLarge(object, properties.tags[index]))
                value = std::move(*large);
        }
    }
    return properties;
}

std::vector<PropValue> ReadProps(const MapiMemory& memory, IMAPIProp& object, const std::vector<ULONG>& tags,
                                 ULONG flags)
{
    const MapiBlock<SPropTagArray> array(memory, MakeTagArray(memory, tags));
    ULONG count = 0;
    MapiBlock<SPropValue> values(memory);
    const HRESULT result = object.GetProps(array.Get(), flags, &count, values.Put());
    if (FAILED(result))
        Fail(result, L"An object's properties cannot be read: " + ResultText(result) + L".");
    if (count != tags.size())
        Fail(MAPI_E_CALL_FAILED, L"An object gave another number of properties than it was asked for.");
    return CopyProps(count, values.Get());
}

std::optional<PropValue> ReadProp(const MapiMemory& memory, IMAPIProp& object, ULONG tag)
{
    PropValue value = ReadProps(memory, object, {tag}).front();
    if (value.IsError())
        return {};
    return value;
}

std::string ReadText(const MapiMemory& memory, IMAPIProp& object, ULONG tag)
{
    const PropValue value = ReadProps(memory, object, {tag}).front();
    if (value.IsError() && value.AsLong() == MAPI_E_NOT_ENOUGH_MEMORY)
    {
        const auto large = ReadLarge(object, tag);
        return large ? Utf8(large->AsText()) : std::string();
    }
    return Utf8(value.AsText());
}

std::vector<ULONG> AllColumns(const MapiMemory& memory, IMAPITable& table)
{
    MapiBlock<SPropTagArray> columns(memory);
    Check(table.QueryColumns(TBL_ALL_COLUMNS, columns.Put()), L"A table does not name its columns.");
    return {columns->aulPropTag, columns->aulPropTag + columns->cValues};
}

void ForEachRow(const MapiMemory& memory, IMAPITable& table, const std::vector<ULONG>& columns,
                const std::function<bool(Row&&)>& take, size_t first, size_t most)
{
    const MapiBlock<SPropTagArray> set(memory,
                                       MakeTagArray(memory, columns.empty() ? AllColumns(memory, table) : columns));
    Check(WhenReady(table, [&] { return table.SetColumns(set.Get(), 0); }), L"A table does not take its columns.");
    Check(WhenReady(table, [&] { return table.SeekRow(BOOKMARK_BEGINNING, static_cast<LONG>(first), nullptr); }),
          L"A table cannot be read from its beginning.");
    while (most != 0)
    {
        const auto portionSize = static_cast<LONG>(std::min<size_t>(most, rowsAtOnce));
        MapiRows portion(memory);
        Check(WhenReady(table, [&] { return table.QueryRows(portionSize, 0, portion.Put()); }),
              L"A table's rows cannot be read.");
        // A portion may be smaller than what was asked for; the end is where none comes.
        if (portion.Count() == 0)
            return;
        most -= std::min<size_t>(most, portion.Count());
        for (ULONG index = 0; index < portion.Count(); ++index)
            if (!take(CopyProps(portion[index].cValues, portion[index].lpProps)))
                return;
    }
}

std::vector<Row> ReadTable(const MapiMemory& memory, IMAPITable& table, const std::vector<ULONG>& columns, size_t limit,
                           size_t first)
{
    std::vector<Row> rows;
    const auto take = [&](Row&& row)
    {
        rows.push_back(std::move(row));
        return true;
    };
    ForEachRow(memory, table, columns, take, first, limit);
    return rows;
}

size_t RowCount(IMAPITable& table)
{
    ULONG count = 0;
    Check(WhenReady(table, [&] { return table.GetRowCount(0, &count); }), L"A table does not count its rows.");
    return count;
}

ComPtr<IMAPITable> Contents(IMAPIFolder& folder, bool associated)
{
    ComPtr<IMAPITable> table;
    Check(folder.GetContentsTable(MAPI_UNICODE | (associated ? MAPI_ASSOCIATED : 0), table.Put()),
          L"A folder does not list its messages.");
    return table;
}

ComPtr<IMAPITable> Hierarchy(IMAPIFolder& folder)
{
    ComPtr<IMAPITable> table;
    Check(folder.GetHierarchyTable(MAPI_UNICODE, table.Put()), L"A folder does not list its sub-folders.");
    return table;
}

ComPtr<IMAPIFolder> OpenFolder(IMsgStore& store, const Bytes& entryId, ULONG flags)
{
    const auto object = OpenEntry(store, entryId, flags, MAPI_FOLDER, L"a folder");
    auto folder = object.As<IMAPIFolder>(IID_IMAPIFolder);
    if (!folder)
        Fail(MAPI_E_INTERFACE_NOT_SUPPORTED, L"A folder does not answer as a folder.");
    return folder;
}

ComPtr<IMessage> OpenMessage(IMsgStore& store, const Bytes& entryId, ULONG flags)
{
    const auto object = OpenEntry(store, entryId, flags, MAPI_MESSAGE, L"a message");
    auto message = object.As<IMessage>(IID_IMessage);
    if (!message)
        Fail(MAPI_E_INTERFACE_NOT_SUPPORTED, L"A message does not answer as a message.");
    return message;
}

ComPtr<IAttach> OpenAttachment(IMessage& message, ULONG number, ULONG flags)
{
    ComPtr<IAttach> attachment;
    Check(message.OpenAttach(number, nullptr, flags, attachment.Put()), L"An attachment cannot be opened.");
    return attachment;
}

ComPtr<IMessage> OpenEmbedded(IAttach& attachment, ULONG flags)
{
    ComPtr<IMessage> message;
    Check(attachment.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, flags, message.PutAs<IUnknown>()),
          L"A message that is attached to a message cannot be opened.");
    return message;
}

Bytes TopOfStore(const MapiMemory& memory, IMsgStore& store)
{
    try
    {
        const auto top = ReadProp(memory, store, PR_IPM_SUBTREE_ENTRYID);
        return top ? top->AsBytes() : Bytes();
    }
    catch (const Failure& failure)
    {
        // The library's wrapper fails the whole call where it has no root to put there.
        Fail(failure.Result(),
             L"The store has no archive root: its host has to call ConfigureNstSubtreeEntryId where it "
             L"makes the store (" +
                 ResultText(failure.Result()) + L").");
    }
}

std::vector<FolderRow> SubFolders(const MapiMemory& memory, IMAPIFolder& folder)
{
    const auto table = Hierarchy(folder);
    std::vector<FolderRow> folders;
    for (const Row& row : ReadTable(memory, *table,
                                    {PR_ENTRYID, PR_DISPLAY_NAME_W, PR_FOLDER_TYPE, PR_CONTENT_COUNT, PR_CONTENT_UNREAD,
                                     PR_ASSOC_CONTENT_COUNT, PR_SUBFOLDERS}))
    {
        folders.push_back({row[0].AsBytes(), row[1].AsText(), row[2].AsLong(FOLDER_GENERIC), row[3].AsLong(),
                           row[4].AsLong(), row[5].IsError() ? std::optional<LONG>() : row[5].AsLong(),
                           row[6].IsError() || row[6].AsLong() != 0});
    }
    return folders;
}

Bytes FindFolder(const MapiMemory& memory, IMsgStore& store, const std::wstring& path)
{
    std::wstring wanted = path;
    while (!wanted.empty() && IsSeparator(wanted.front()))
        wanted.erase(0, 1);
    while (!wanted.empty() && IsSeparator(wanted.back()))
        wanted.pop_back();
    Bytes top = TopOfStore(memory, store);
    if (wanted.empty())
        return top;
    // How far a walk came is kept for the message.
    std::wstring missing = wanted;
    std::wstring parent;
    const std::function<std::optional<Bytes>(const Bytes&, const std::wstring&, const std::wstring&)> walk =
        [&](const Bytes& entryId, const std::wstring& rest, const std::wstring& walked) -> std::optional<Bytes>
    {
        if (rest.empty())
            return entryId;
        if (rest.size() < missing.size())
        {
            missing = rest;
            parent = walked;
        }
        const auto folder = OpenFolder(store, entryId);
        for (const FolderRow& row : SubFolders(memory, *folder))
        {
            const size_t length = row.name.size();
            if (length == 0 || length > rest.size() || Lower(rest.substr(0, length)) != Lower(row.name) ||
                (length < rest.size() && !IsSeparator(rest[length])))
            {
                continue;
            }
            const std::wstring left = length < rest.size() ? rest.substr(length + 1) : std::wstring();
            if (auto found = walk(row.entryId, left, walked.empty() ? row.name : walked + L"/" + row.name))
                return found;
        }
        return {};
    };
    if (!top.empty())
    {
        if (const auto found = walk(top, wanted, {}))
            return *found;
    }
    if (const auto found = walk({}, wanted, {}))
        return *found;
    Fail(MAPI_E_NOT_FOUND, L"There is no folder \"" + missing + L"\"" +
                               (parent.empty() ? std::wstring() : L" in \"" + parent + L"\"") + L".");
}

bool PropertyNames::Name::operator<(const Name& other) const
{
    const int order = std::memcmp(&set, &other.set, sizeof(set));
    return order != 0 ? order < 0 : std::tie(text, number) < std::tie(other.text, other.number);
}

const PropertyNames::Name* PropertyNames::NameOf(ULONG id)
{
    auto known = m_names.find(id);
    if (known == m_names.end())
    {
        std::optional<Name> named;
        MapiBlock<SPropTagArray> tags(m_memory, MakeTagArray(m_memory, {PROP_TAG(PT_UNSPECIFIED, id)}));
        SPropTagArray* asked = tags.Get();
        ULONG count = 0;
        MapiBlock<LPMAPINAMEID> names(m_memory);
        if (SUCCEEDED(m_object->GetNamesFromIDs(&asked, nullptr, 0, &count, names.Put())) && count == 1 && names[0])
        {
            const MAPINAMEID& found = *names[0];
            Name name{*found.lpguid, {}, 0};
            if (found.ulKind == MNID_STRING)
                name.text = found.Kind.lpwstrName;
            else
                name.number = found.Kind.lID;
            named = std::move(name);
        }
        known = m_names.emplace(id, std::move(named)).first;
    }
    const std::optional<Name>& name = known->second;
    return name ? &*name : nullptr;
}

ULONG PropertyNames::IdOf(const Name& name, bool create)
{
    if (const auto known = m_ids.find(name); known != m_ids.end())
        return known->second;
    GUID set = name.set;
    std::wstring text = name.text;
    MAPINAMEID entry{};
    entry.lpguid = &set;
    entry.ulKind = text.empty() ? MNID_ID : MNID_STRING;
    if (text.empty())
        entry.Kind.lID = name.number;
    else
        entry.Kind.lpwstrName = text.data();
    MAPINAMEID* entries = &entry;
    MapiBlock<SPropTagArray> tags(m_memory);
    const HRESULT result = m_object->GetIDsFromNames(1, &entries, create ? MAPI_CREATE : 0, tags.Put());
    if (FAILED(result) || !tags || tags->cValues != 1 || PROP_TYPE(tags->aulPropTag[0]) == PT_ERROR)
        return 0;
    return m_ids[name] = PROP_ID(tags->aulPropTag[0]);
}

std::string TagName(ULONG tag, PropertyNames* names)
{
    if (PROP_ID(tag) >= 0x8000 && names)
    {
        if (const auto* name = names->NameOf(PROP_ID(tag)))
        {
            char number[16] = {};
            std::snprintf(number, sizeof(number), "0x%04lX", static_cast<unsigned long>(name->number));
            return (name->text.empty() ? std::string(number) : "\"" + Utf8(name->text) + "\"") + " of " +
                   GuidText(name->set);
        }
    }
    return Utf8(Quillon::Mapi::FormatMapiPropertyTag(tag).GetString());
}

std::string ResultName(HRESULT result)
{
    if (const wchar_t* name = Quillon::GetResultCodeName(result))
        return Utf8(name);
    if (result == S_OK)
        return "S_OK";
    char number[16] = {};
    std::snprintf(number, sizeof(number), "0x%08lX", static_cast<unsigned long>(result));
    return number;
}

std::string TimeText(const PropValue& value)
{
    const auto* time = value.Type() == PT_SYSTIME ? value.Get<std::int64_t>() : nullptr;
    return time ? IsoTime(*time, false) : std::string();
}

std::string ValueText(const PropValue& value, size_t limit)
{
    switch (value.Type())
    {
    case PT_ERROR:
        return ResultName(value.AsLong());
    case PT_OBJECT:
        return "(object)";
    case PT_NULL:
        return {};
    case PT_I2:
        return std::to_string(value.AsLong());
    case PT_LONG:
    {
        char text[32] = {};
        std::snprintf(text, sizeof(text), "%ld (0x%lX)", static_cast<long>(value.AsLong()),
                      static_cast<unsigned long>(static_cast<ULONG>(value.AsLong())));
        return text;
    }
    case PT_BOOLEAN:
        return value.AsLong() != 0 ? "true" : "false";
    case PT_SYSTIME:
        return IsoTime(*value.Get<std::int64_t>(), true);
    case PT_STRING8:
    case PT_UNICODE:
        return Utf8(value.AsText());
    case PT_BINARY:
        return BytesText(value.AsBytes(), limit);
    case PT_CLSID:
        return GuidText(*value.Get<GUID>());
    default:
        break;
    }
    if (const auto* number = value.Get<float>())
        return std::to_string(*number);
    if (const auto* number = value.Get<double>())
        return std::to_string(*number);
    if (const auto* number = value.Get<std::int64_t>())
        return std::to_string(*number);
    if (const auto* texts = value.Get<std::vector<std::wstring>>())
        return Join(*texts, limit, [](const std::wstring& text) { return Utf8(text); });
    if (const auto* texts = value.Get<std::vector<std::string>>())
        return Join(*texts, limit, [](const std::string& text) { return Utf8(WideFromAnsi(text)); });
    if (const auto* all = value.Get<std::vector<Bytes>>())
        return Join(*all, limit, [limit](const Bytes& bytes) { return BytesText(bytes, limit); });
    if (const auto* numbers = value.Get<std::vector<std::int32_t>>())
        return Join(*numbers, limit, [](std::int32_t number) { return std::to_string(number); });
    if (const auto* numbers = value.Get<std::vector<std::int16_t>>())
        return Join(*numbers, limit, [](std::int16_t number) { return std::to_string(number); });
    if (const auto* numbers = value.Get<std::vector<std::int64_t>>())
    {
        const bool times = value.Type() == PT_MV_SYSTIME;
        return Join(*numbers, limit,
                    [times](std::int64_t number) { return times ? IsoTime(number, true) : std::to_string(number); });
    }
    if (const auto* guids = value.Get<std::vector<GUID>>())
        return Join(*guids, limit, [](const GUID& guid) { return GuidText(guid); });
    if (const auto* numbers = value.Get<std::vector<double>>())
        return Join(*numbers, limit, [](double number) { return std::to_string(number); });
    if (const auto* numbers = value.Get<std::vector<float>>())
        return Join(*numbers, limit, [](float number) { return std::to_string(number); });
    return {};
}

Json ValueJson(const PropValue& value)
{
    switch (value.Type())
    {
    case PT_I2:
    case PT_LONG:
        return value.AsLong();
    case PT_BOOLEAN:
        return value.AsLong() != 0;
    case PT_BINARY:
        return Utf8(HexText(value.AsBytes().data(), value.AsBytes().size()));
    case PT_ERROR:
        return Json{{"error", ResultName(value.AsLong())}};
    case PT_NULL:
    case PT_OBJECT:
        return nullptr;
    default:
        break;
    }
    if (const auto* number = value.Get<double>())
        return *number;
    if (const auto* number = value.Get<float>())
        return *number;
    if (const auto* number = value.Get<std::int64_t>(); number && value.Type() != PT_SYSTIME)
        return *number;
    const auto list = [](const auto& values, auto&& convert)
    {
        Json array = Json::array();
        for (const auto& entry : values)
            array.push_back(convert(entry));
        return array;
    };
    if (const auto* texts = value.Get<std::vector<std::wstring>>())
        return list(*texts, [](const std::wstring& text) { return Utf8(text); });
    if (const auto* texts = value.Get<std::vector<std::string>>())
        return list(*texts, [](const std::string& text) { return Utf8(WideFromAnsi(text)); });
    if (const auto* all = value.Get<std::vector<Bytes>>())
        return list(*all, [](const Bytes& bytes) { return Utf8(HexText(bytes.data(), bytes.size())); });
    return ValueText(value, static_cast<size_t>(-1));
}
} // namespace Browser
