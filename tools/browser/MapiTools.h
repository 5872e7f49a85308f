// Reading MAPI objects as a client does: properties, tables, folders by path; and how values are shown.
#pragma once

#include "common/ComPtr.h"
#include "common/PropValue.h"
#include "tools/browser/Console.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Browser
{
/// What a GetProps gave for every property that an object lists.
struct ObjectProperties
{
    /// In the object's order, strings wide; an entry that came as an error is one here.
    std::vector<Common::PropValue> values;
    /// For an error entry of the same index, the tag that the object lists; the value's own tag otherwise.
    std::vector<ULONG> tags;
};

/// Reads all properties that the object lists. With `streams` those that are too large to come inline are read through
/// OpenProperty; what cannot be read stays an error entry. Throws `Common::Failure`.
ObjectProperties ReadProperties(const Common::MapiMemory& memory, IMAPIProp& object, bool streams);

/// Reads the properties of `tags`, in their order.
std::vector<Common::PropValue> ReadProps(const Common::MapiMemory& memory, IMAPIProp& object,
                                         const std::vector<ULONG>& tags, ULONG flags = MAPI_UNICODE);
/// One property, or nothing when the object does not have it.
std::optional<Common::PropValue> ReadProp(const Common::MapiMemory& memory, IMAPIProp& object, ULONG tag);
/// A text property of any size; empty when it is missing.
std::string ReadText(const Common::MapiMemory& memory, IMAPIProp& object, ULONG tag);

/// A row of a table: a cell for each of the columns that were asked for, or of all that the table has.
using Row = std::vector<Common::PropValue>;

constexpr size_t allRows = static_cast<size_t>(-1);
/// Reads a table in portions, from the row numbered `first` (counted from 0), `limit` rows at most: with `columns`, or
/// with all that it offers.
std::vector<Row> ReadTable(const Common::MapiMemory& memory, IMAPITable& table, const std::vector<ULONG>& columns,
                           size_t limit = allRows, size_t first = 0);
/// The same, row by row for as long as `take` says so, so that a long table need not be held; no more than `most` rows
/// are asked for, a few hundred at a time.
void ForEachRow(const Common::MapiMemory& memory, IMAPITable& table, const std::vector<ULONG>& columns,
                const std::function<bool(Row&&)>& take, size_t first = 0, size_t most = allRows);
/// How many rows a table has.
size_t RowCount(IMAPITable& table);
/// The columns that a table offers.
std::vector<ULONG> AllColumns(const Common::MapiMemory& memory, IMAPITable& table);

Common::ComPtr<IMAPITable> Contents(IMAPIFolder& folder, bool associated);
Common::ComPtr<IMAPITable> Hierarchy(IMAPIFolder& folder);

/// Opens a folder or message; an empty entry ID is the root folder. Throws `Common::Failure`.
Common::ComPtr<IMAPIFolder> OpenFolder(IMsgStore& store, const Common::Bytes& entryId, ULONG flags = 0);
Common::ComPtr<IMessage> OpenMessage(IMsgStore& store, const Common::Bytes& entryId, ULONG flags = 0);
Common::ComPtr<IAttach> OpenAttachment(IMessage& message, ULONG number, ULONG flags = 0);
/// The message embedded in an attachment.
Common::ComPtr<IMessage> OpenEmbedded(IAttach& attachment, ULONG flags = 0);
/// The entry ID of the top of the information store; empty when the store has none.
Common::Bytes TopOfStore(const Common::MapiMemory& memory, IMsgStore& store);

/// A folder as its parent's hierarchy table shows it.
struct FolderRow
{
    Common::Bytes entryId;
    std::wstring name;
    LONG type = FOLDER_GENERIC;
    LONG messages = 0;
    LONG unread = 0;
    /// How many hidden messages it has, where the table tells.
    std::optional<LONG> hidden;
    /// False only where the table says that it has no sub-folder.
    bool hasChildren = true;
};
std::vector<FolderRow> SubFolders(const Common::MapiMemory& memory, IMAPIFolder& folder);

/// The entry ID of the folder that a path names, parts separated by "/" or "\" (which may also stand in a folder's
/// name), from the top of the information store or else from the root folder; an empty path and "/" are the top. Throws
/// `Common::Failure` with a sentence that names the part that is not there.
Common::Bytes FindFolder(const Common::MapiMemory& memory, IMsgStore& store, const std::wstring& path);

/// The names of a store's named properties.
class PropertyNames
{
public:
    /// A name, whole and comparable.
    struct Name
    {
        GUID set{};
        std::wstring text;
        LONG number = 0;
        bool operator<(const Name& other) const;
    };

    PropertyNames(const Common::MapiMemory& memory, IMAPIProp& object) : m_memory(memory), m_object(&object) {}

    /// The name of an identifier of 0x8000 or above, or null when the store knows none.
    const Name* NameOf(ULONG id);
    /// The identifier of a name, made when there is none and `create`; 0 when there is none.
    ULONG IdOf(const Name& name, bool create);

private:
    Common::MapiMemory m_memory;
    Common::ComPtr<IMAPIProp> m_object;
    std::map<ULONG, std::optional<Name>> m_names;
    std::map<Name, ULONG> m_ids;
};

/// "PR_SUBJECT_W", "0x7FE20102", or a named property's name.
std::string TagName(ULONG tag, PropertyNames* names = nullptr);
/// "MAPI_E_NO_ACCESS", "S_OK", or the number.
std::string ResultName(HRESULT result);
/// A value for people; with `limit`, long binaries and lists are cut to about that many characters.
std::string ValueText(const Common::PropValue& value, size_t limit = 200);
/// The whole value for programs: numbers, booleans and texts as such, binaries in hexadecimal digits, times in ISO
/// form.
Json ValueJson(const Common::PropValue& value);
/// A PT_SYSTIME as "2001-10-31 09:05".
std::string TimeText(const Common::PropValue& value);

/// Shorter names for what is used on every line.
std::string Utf8(std::wstring_view text);
std::wstring Wide(std::string_view text);
LPENTRYID EntryIdOf(const Common::Bytes& bytes) noexcept;
} // namespace Browser
