// Copies objects over their public interfaces only: the source is read and the destination written as any client would.
#include "testbed/mapi/CopyEngine.h"

#include "common/MemoryStream.h"
#include "common/Text.h"
#include "testbed/common/PropertyBag.h"
#include "testbed/mapi/TableQuery.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace Testbed
{
namespace
{
// Embedded messages within embedded messages, and folders within folders, deeper than this are taken for a cycle.
constexpr int maxDepth = 100;
constexpr ULONG lastNamedId = 0xFFFE;

// What tells where an object is and what its store makes of it; a copy has its own.
constexpr ULONG placeTags[] = {
    PR_ENTRYID,     PR_PARENT_ENTRYID,     PR_RECORD_KEY,        PR_INSTANCE_KEY,  PR_STORE_ENTRYID,
    PR_OBJECT_TYPE, PR_STORE_RECORD_KEY,   PR_MDB_PROVIDER,      PR_ACCESS,        PR_ACCESS_LEVEL,
    PR_ATTACH_NUM,  PR_STORE_SUPPORT_MASK, PR_MAPPING_SIGNATURE, PR_CONTENT_COUNT, PR_CONTENT_UNREAD,
    PR_SUBFOLDERS,  PR_HASATTACH,          PR_MESSAGE_SIZE,      PR_ATTACH_SIZE,   PR_FOLDER_TYPE,
};

// Properties that stand for what is in an object; they are copied by what they stand for.
constexpr ULONG structureTags[] = {
    PR_MESSAGE_RECIPIENTS, PR_MESSAGE_ATTACHMENTS, PR_ATTACH_DATA_OBJ,
    PR_CONTAINER_CONTENTS, PR_CONTAINER_HIERARCHY, PR_FOLDER_ASSOCIATED_CONTENTS,
};

// The tag of a list that names the same property as `wanted`, or the list's end.
template <class Tags>
auto FindId(const Tags& tags, ULONG wanted)
{
    return std::find_if(std::begin(tags), std::end(tags),
                        [wanted](ULONG tag) { return PROP_ID(tag) == PROP_ID(wanted); });
}

template <class Tags>
bool HasId(const Tags& tags, ULONG wanted)
{
    return FindId(tags, wanted) != std::end(tags);
}

bool IsStructure(ULONG tag)
{
    // An attachment's data has one identifier, whether it is bytes or an object; bytes are a value like any other.
    return HasId(structureTags, tag) && PROP_TYPE(tag) != PT_BINARY;
}

bool IsNamed(ULONG tag)
{
    return PROP_ID(tag) >= firstNamedId && PROP_ID(tag) <= lastNamedId;
}

bool IsStreamType(ULONG type)
{
    return type == PT_STRING8 || type == PT_UNICODE || type == PT_BINARY;
}

// The object as `interfaceId` names it, then as what is needed.
template <class T>
ComPtr<T> Ask(LPVOID object, LPCIID interfaceId, REFIID needed)
{
    if (!object)
        Fail(MAPI_E_INVALID_PARAMETER, L"An object to be copied from or to is null.");
    const ComPtr<IUnknown> unknown(static_cast<IUnknown*>(object));
    const ComPtr<IUnknown> named = unknown.As<IUnknown>(interfaceId ? *interfaceId : needed);
    ComPtr<T> result = named ? unknown.As<T>(needed) : nullptr;
    if (!result)
        Fail(MAPI_E_INTERFACE_NOT_SUPPORTED, L"An object to be copied from or to does not have the interface named.");
    return result;
}

class Progress
{
public:
    explicit Progress(LPMAPIPROGRESS progress) : m_progress(progress)
    {
        if (m_progress && (FAILED(m_progress->GetMin(&m_min)) || FAILED(m_progress->GetMax(&m_max)) || m_max < m_min))
            m_progress = nullptr;
    }

    void Report(ULONG done, ULONG total) const
    {
        if (m_progress && total)
        {
            const ULONGLONG range = m_max - m_min;
            m_progress->Progress(m_min + static_cast<ULONG>(range * done / total), done, total);
        }
    }

private:
    LPMAPIPROGRESS m_progress;
    ULONG m_min = 0;
    ULONG m_max = 0;
};

class Copier
{
public:
    explicit Copier(const MapiMemory& memory) : m_memory(memory) {}

    // The tags of an object's properties, in their own types where that can be told, strings wide.
    std::vector<ULONG> TagsOf(IMAPIProp& object) const
    {
        MapiBlock<SPropTagArray> tags(m_memory);
        Check(object.GetPropList(MAPI_UNICODE, tags.Put()), L"IMAPIProp::GetPropList failed.");
        return {tags->aulPropTag, tags->aulPropTag + tags->cValues};
    }

    std::vector<PropValue> Read(IMAPIProp& object, const std::vector<ULONG>& tags) const
    {
        if (tags.empty())
            return {};
        const MapiBlock<SPropTagArray> array(m_memory, MakeTagArray(m_memory, tags));
        ULONG count = 0;
        MapiBlock<SPropValue> values(m_memory);
        Check(object.GetProps(array.Get(), MAPI_UNICODE, &count, values.Put()), L"IMAPIProp::GetProps failed.");
        return CopyProps(count, values.Get());
    }

    // One property, or nothing.
    std::optional<PropValue> ReadOne(IMAPIProp& object, ULONG tag) const
    {
        std::vector<PropValue> values = Read(object, {tag});
        return values.empty() || values.front().IsError() ? std::nullopt : std::optional(std::move(values.front()));
    }

    // All rows of a table with the columns given; all columns for none.
    std::vector<std::vector<PropValue>> RowsOf(IMAPITable& table, const std::vector<ULONG>& columns) const
    {
        MapiBlock<SPropTagArray> tags(m_memory);
        if (columns.empty())
            Check(table.QueryColumns(TBL_ALL_COLUMNS, tags.Put()), L"IMAPITable::QueryColumns failed.");
        else
            tags = MapiBlock<SPropTagArray>(m_memory, MakeTagArray(m_memory, columns));
        MapiRows rows(m_memory);
        Check(QueryAllRows(m_memory, &table, tags.Get(), nullptr, nullptr, 0, rows.Put()),
              L"The table cannot be read.");
        std::vector<std::vector<PropValue>> all;
        all.reserve(rows.Count());
        for (ULONG row = 0; row < rows.Count(); ++row)
            all.push_back(CopyProps(rows[row].cValues, rows[row].lpProps));
        return all;
    }

    // Copies `tags` of a source to a destination, the structures that some stand for included.
    void CopyTags(IMAPIProp& source, IMAPIProp& destination, const std::vector<ULONG>& tags, ULONG flags,
                  std::vector<SPropProblem>& problems, int depth) const
    {
        if (depth > maxDepth)
            Fail(MAPI_E_TOO_COMPLEX, L"Messages are embedded in each other too deeply.");
        std::set<ULONG> kept;
        if (flags & MAPI_NOREPLACE)
            for (const ULONG tag : TagsOf(destination))
                kept.insert(PROP_ID(tag));

        std::vector<ULONG> plain;
        std::vector<ULONG> plainIndexes;
        for (ULONG index = 0; index < tags.size(); ++index)
        {
            const ULONG id = PROP_ID(tags[index]);
            if (IsStructure(tags[index]) || HasId(placeTags, tags[index]) || kept.contains(id))
                continue;
            plain.push_back(tags[index]);
            plainIndexes.push_back(index);
        }
        const std::vector<ULONG> copied = CopyPlain(source, destination, plain, plainIndexes, problems);
        CopyStructure(source, destination, tags, flags, problems, depth);
        if (flags & MAPI_MOVE)
            RemoveMoved(source, copied, tags);
    }

    // Copies one message into a new message of a folder and saves it.
    void CopyMessage(IMAPIProp& source, IMAPIFolder& destination) const
    {
        const auto messageFlags = ReadOne(source, PR_MESSAGE_FLAGS);
        const bool associated = messageFlags && (messageFlags->AsLong() & LONG(MSGFLAG_ASSOCIATED));
        ComPtr<IMessage> copy;
        Check(destination.CreateMessage(nullptr, associated ? MAPI_ASSOCIATED : 0, copy.Put()),
              L"IMAPIFolder::CreateMessage failed.");
        std::vector<SPropProblem> problems;
        CopyTags(source, *copy, WholeOf(source), 0, problems, 0);
        Check(copy->SaveChanges(0), L"IMessage::SaveChanges failed.");
    }

    // The tags to copy for a whole object: what it lists, and what is in it whether or not it lists that.
    std::vector<ULONG> WholeOf(IMAPIProp& object) const
    {
        std::vector<ULONG> tags = TagsOf(object);
        const ComPtr<IMAPIProp> pointer(&object);
        const auto add = [&tags](ULONG tag)
        {
            if (!HasId(tags, tag))
                tags.push_back(tag);
        };
        if (pointer.As<IMessage>(IID_IMessage))
        {
            add(PR_MESSAGE_RECIPIENTS);
            add(PR_MESSAGE_ATTACHMENTS);
        }
        if (pointer.As<IMAPIFolder>(IID_IMAPIFolder))
        {
            add(PR_CONTAINER_CONTENTS);
            add(PR_FOLDER_ASSOCIATED_CONTENTS);
            add(PR_CONTAINER_HIERARCHY);
        }
        if (pointer.As<IAttach>(IID_IAttachment))
            add(PR_ATTACH_DATA_OBJ);
        return tags;
    }

    // Opens an entry of a folder for reading as `T`.
    template <class T>
    ComPtr<T> Open(IMAPIContainer& container, const Bytes& entryId, REFIID iid) const
    {
        Bytes copy = entryId;
        ULONG type = 0;
        ComPtr<IUnknown> object;
        Check(container.OpenEntry(static_cast<ULONG>(copy.size()), reinterpret_cast<ENTRYID*>(copy.data()), nullptr, 0,
                                  &type, object.Put()),
              L"IMAPIContainer::OpenEntry failed.");
        ComPtr<T> result = object.As<T>(iid);
        if (!result)
            Fail(MAPI_E_INTERFACE_NOT_SUPPORTED, L"An entry is not what it is listed as.");
        return result;
    }

    // The entry IDs of a folder's messages.
    std::vector<Bytes> MessagesOf(IMAPIFolder& folder, ULONG flags) const
    {
        ComPtr<IMAPITable> table;
        Check(folder.GetContentsTable(flags, table.Put()), L"IMAPIFolder::GetContentsTable failed.");
        return EntryIdsOf(*table);
    }

    std::vector<Bytes> SubfoldersOf(IMAPIFolder& folder) const
    {
        ComPtr<IMAPITable> table;
        Check(folder.GetHierarchyTable(0, table.Put()), L"IMAPIFolder::GetHierarchyTable failed.");
        return EntryIdsOf(*table);
    }

    // Copies messages; gives those that were copied.
    std::vector<Bytes> CopyMessages(IMAPIFolder& source, const std::vector<Bytes>& messages, IMAPIFolder& destination,
                                    LPMAPIPROGRESS progress) const
    {
        const Progress reporter(progress);
        std::vector<Bytes> copied;
        ULONG done = 0;
        for (const Bytes& entryId : messages)
        {
            try
            {
                const ComPtr<IMessage> message = Open<IMessage>(source, entryId, IID_IMessage);
                CopyMessage(*message, destination);
                copied.push_back(entryId);
            }
            catch (const Failure& failure)
            {
                if (failure.Result() == MAPI_E_NOT_ENOUGH_MEMORY)
                    throw;
            }
            reporter.Report(++done, static_cast<ULONG>(messages.size()));
        }
        return copied;
    }

    // Copies what is in a folder; false when something could not be copied.
    bool CopyContents(IMAPIFolder& source, IMAPIFolder& destination, bool messages, bool associated, bool subfolders,
                      LPMAPIPROGRESS progress, int depth) const
    {
        if (depth > maxDepth)
            Fail(MAPI_E_TOO_COMPLEX, L"Folders lie in each other too deeply.");
        bool complete = true;
        if (messages)
        {
            const std::vector<Bytes> all = MessagesOf(source, 0);
            complete &= CopyMessages(source, all, destination, progress).size() == all.size();
        }
        if (associated)
        {
            const std::vector<Bytes> all = MessagesOf(source, MAPI_ASSOCIATED);
            complete &= CopyMessages(source, all, destination, nullptr).size() == all.size();
        }
        if (subfolders)
        {
            for (const Bytes& entryId : SubfoldersOf(source))
            {
                try
                {
                    const ComPtr<IMAPIFolder> folder = Open<IMAPIFolder>(source, entryId, IID_IMAPIFolder);
                    complete &= CopyFolderObject(*folder, destination, std::nullopt, true, progress, depth + 1);
                }
                catch (const Failure& failure)
                {
                    if (failure.Result() == MAPI_E_NOT_ENOUGH_MEMORY)
                        throw;
                    complete = false;
                }
            }
        }
        return complete;
    }

    // Makes a copy of a folder under a destination; false when something in it could not be copied.
    bool CopyFolderObject(IMAPIFolder& source, IMAPIFolder& destination, const std::optional<std::wstring>& newName,
                          bool subfolders, LPMAPIPROGRESS progress, int depth) const
    {
        const auto ownName = ReadOne(source, PR_DISPLAY_NAME_W);
        const auto comment = ReadOne(source, PR_COMMENT_W);
        std::wstring name = newName ? *newName : ownName ? ownName->AsText() : std::wstring();
        std::wstring commentText = comment ? comment->AsText() : std::wstring();
        if (name.empty())
            Fail(MAPI_E_BAD_VALUE, L"A folder without a name cannot be copied.");
        ComPtr<IMAPIFolder> copy;
        Check(destination.CreateFolder(FOLDER_GENERIC, static_cast<LPTSTR>(static_cast<void*>(name.data())),
                                       static_cast<LPTSTR>(static_cast<void*>(commentText.data())), nullptr,
                                       MAPI_UNICODE, copy.Put()),
              L"IMAPIFolder::CreateFolder failed.");

        std::vector<ULONG> tags = TagsOf(source);
        std::erase_if(tags,
                      [](ULONG tag)
                      {
                          return PROP_ID(tag) == PROP_ID(PR_DISPLAY_NAME) || PROP_ID(tag) == PROP_ID(PR_COMMENT) ||
                                 IsStructure(tag);
                      });
        std::vector<SPropProblem> problems;
        CopyTags(source, *copy, tags, 0, problems, depth);
        // Folders need no saving in MAPI, but one that is transacted takes it.
        copy->SaveChanges(KEEP_OPEN_READWRITE);
        return CopyContents(source, *copy, true, true, subfolders, progress, depth);
    }

private:
    std::vector<Bytes> EntryIdsOf(IMAPITable& table) const
    {
        std::vector<Bytes> entryIds;
        for (const auto& row : RowsOf(table, {PR_ENTRYID}))
            if (!row.empty() && row.front().Type() == PT_BINARY)
                entryIds.push_back(row.front().AsBytes());
        return entryIds;
    }

    // The tags under which a destination knows properties of a source; PR_NULL for a name that it did not take.
    std::vector<ULONG> MapNames(IMAPIProp& source, IMAPIProp& destination, const std::vector<ULONG>& tags) const
    {
        std::vector<ULONG> mapped = tags;
        std::vector<ULONG> named;
        std::copy_if(tags.begin(), tags.end(), std::back_inserter(named), IsNamed);
        if (named.empty())
            return mapped;
        MapiBlock<SPropTagArray> asked(m_memory, MakeTagArray(m_memory, named));
        LPSPropTagArray askedTags = asked.Get();
        ULONG count = 0;
        MapiBlock<MAPINAMEID*> names(m_memory);
        if (FAILED(source.GetNamesFromIDs(&askedTags, nullptr, 0, &count, names.Put())) || count != named.size())
        {
            std::replace_if(mapped.begin(), mapped.end(), IsNamed, PR_NULL);
            return mapped;
        }
        std::vector<MAPINAMEID*> known;
        std::copy_if(names.Get(), names.Get() + count, std::back_inserter(known),
                     [](const MAPINAMEID* name) { return name && name->lpguid; });
        MapiBlock<SPropTagArray> ids(m_memory);
        if (!known.empty() &&
            FAILED(destination.GetIDsFromNames(static_cast<ULONG>(known.size()), known.data(), MAPI_CREATE, ids.Put())))
        {
            std::replace_if(mapped.begin(), mapped.end(), IsNamed, PR_NULL);
            return mapped;
        }
        ULONG name = 0;
        ULONG id = 0;
        for (ULONG& tag : mapped)
        {
            if (!IsNamed(tag))
                continue;
            const MAPINAMEID* const own = names[name++];
            if (!own || !own->lpguid)
            {
                tag = PR_NULL;
                continue;
            }
            const ULONG found = ids->aulPropTag[id++];
            tag = PROP_TYPE(found) == PT_ERROR ? PR_NULL : PROP_TAG(PROP_TYPE(tag), PROP_ID(found));
        }
        return mapped;
    }

    // Copies properties that are values; gives the source's tags of those that were copied.
    std::vector<ULONG> CopyPlain(IMAPIProp& source, IMAPIProp& destination, const std::vector<ULONG>& tags,
                                 const std::vector<ULONG>& indexes, std::vector<SPropProblem>& problems) const
    {
        const std::vector<PropValue> values = Read(source, tags);
        const std::vector<ULONG> targets = MapNames(source, destination, tags);

        std::vector<PropValue> inlineValues;
        std::vector<size_t> inlineAt;
        std::vector<ULONG> copied;
        const auto problem = [&](size_t at, SCODE code) { problems.push_back({indexes[at], tags[at], code}); };
        for (size_t at = 0; at < values.size(); ++at)
        {
            const PropValue& value = values[at];
            if (value.IsError())
            {
                const SCODE code = value.AsLong();
                if (code == MAPI_E_NOT_FOUND)
                    continue;
                const HRESULT result = code == MAPI_E_NOT_ENOUGH_MEMORY && targets[at] != PR_NULL
                                           ? CopyByStream(source, destination, tags[at], targets[at])
                                           : code;
                SUCCEEDED(result) ? copied.push_back(tags[at]) : problem(at, result);
            }
            else if (targets[at] == PR_NULL)
            {
                problem(at, MAPI_E_NOT_FOUND);
            }
            else if (value.Type() != PT_NULL && value.Type() != PT_OBJECT)
            {
                PropValue renamed = value;
                renamed.SetId(PROP_ID(targets[at]));
                inlineValues.push_back(std::move(renamed));
                inlineAt.push_back(at);
            }
        }
        if (inlineValues.empty())
            return copied;

        const MapiBlock<SPropValue> array(m_memory, MakePropArray(m_memory, inlineValues));
        MapiBlock<SPropProblemArray> refused(m_memory);
        Check(destination.SetProps(static_cast<ULONG>(inlineValues.size()), array.Get(), refused.Put()),
              L"IMAPIProp::SetProps failed.");
        std::set<ULONG> bad;
        for (ULONG i = 0; refused && i < refused->cProblem; ++i)
        {
            const SPropProblem& entry = refused->aProblem[i];
            if (entry.ulIndex < inlineAt.size() && bad.insert(entry.ulIndex).second)
                problem(inlineAt[entry.ulIndex], entry.scode);
        }
        for (ULONG i = 0; i < inlineAt.size(); ++i)
            if (!bad.contains(i))
                copied.push_back(tags[inlineAt[i]]);
        return copied;
    }

    HRESULT CopyByStream(IMAPIProp& source, IMAPIProp& destination, ULONG tag, ULONG target) const
    {
        if (!IsStreamType(PROP_TYPE(tag)))
        {
            // Only strings and binaries have streams. A large multi-valued property cannot be read at all.
            return MAPI_E_NOT_ENOUGH_MEMORY;
        }
        ComPtr<IStream> from;
        HRESULT result = source.OpenProperty(tag, &IID_IStream, 0, 0, from.PutAs<IUnknown>());
        if (FAILED(result))
            return result;
        ComPtr<IStream> to;
        result = destination.OpenProperty(target, &IID_IStream, STGM_READWRITE | STGM_CREATE, MAPI_CREATE | MAPI_MODIFY,
                                          to.PutAs<IUnknown>());
        return FAILED(result) ? result : CopyStream(*from, *to);
    }

    static HRESULT CopyStream(IStream& from, IStream& to)
    {
        ULARGE_INTEGER none{};
        const HRESULT emptied = to.SetSize(none);
        if (FAILED(emptied))
            return emptied;
        ULARGE_INTEGER all;
        all.QuadPart = ULONGLONG(-1);
        const HRESULT result = from.CopyTo(&to, all, nullptr, nullptr);
        return FAILED(result) ? result : to.Commit(STGC_DEFAULT);
    }

    void CopyStructure(IMAPIProp& source, IMAPIProp& destination, const std::vector<ULONG>& tags, ULONG flags,
                       std::vector<SPropProblem>& problems, int depth) const
    {
        const ComPtr<IMAPIProp> from(&source);
        const ComPtr<IMAPIProp> to(&destination);
        const auto fromMessage = from.As<IMessage>(IID_IMessage);
        const auto toMessage = to.As<IMessage>(IID_IMessage);
        const auto fromFolder = from.As<IMAPIFolder>(IID_IMAPIFolder);
        const auto toFolder = to.As<IMAPIFolder>(IID_IMAPIFolder);
        const auto fromAttach = from.As<IAttach>(IID_IAttachment);
        const auto toAttach = to.As<IAttach>(IID_IAttachment);
        for (ULONG index = 0; index < tags.size(); ++index)
        {
            HRESULT result = S_OK;
            switch (IsStructure(tags[index]) ? PROP_ID(tags[index]) : PROP_ID_NULL)
            {
            case PROP_ID(PR_MESSAGE_RECIPIENTS):
                if (fromMessage && toMessage)
                    CopyRecipients(*fromMessage, *toMessage, flags);
                break;
            case PROP_ID(PR_MESSAGE_ATTACHMENTS):
                if (fromMessage && toMessage)
                    CopyAttachments(*fromMessage, *toMessage, flags, depth);
                break;
            case PROP_ID(PR_ATTACH_DATA_OBJ):
                if (fromAttach && toAttach)
                    result = CopyAttachedObject(*fromAttach, *toAttach, depth);
                break;
            case PROP_ID(PR_CONTAINER_CONTENTS):
            case PROP_ID(PR_FOLDER_ASSOCIATED_CONTENTS):
            case PROP_ID(PR_CONTAINER_HIERARCHY):
                if (fromFolder && toFolder)
                {
                    const ULONG id = PROP_ID(tags[index]);
                    const bool complete = CopyContents(*fromFolder, *toFolder, id == PROP_ID(PR_CONTAINER_CONTENTS),
                                                       id == PROP_ID(PR_FOLDER_ASSOCIATED_CONTENTS),
                                                       id == PROP_ID(PR_CONTAINER_HIERARCHY), nullptr, depth + 1);
                    result = complete ? S_OK : MAPI_E_UNABLE_TO_COMPLETE;
                }
                break;
            default:
                break;
            }
            if (FAILED(result))
                problems.push_back({index, tags[index], result});
        }
    }

    void CopyRecipients(IMessage& source, IMessage& destination, ULONG flags) const
    {
        ComPtr<IMAPITable> table;
        Check(source.GetRecipientTable(MAPI_UNICODE, table.Put()), L"IMessage::GetRecipientTable failed.");
        std::vector<std::vector<PropValue>> rows = RowsOf(*table, {});
        for (auto& row : rows)
        {
            // The destination numbers its rows itself.
            std::erase_if(row,
                          [](const PropValue& value)
                          {
                              return value.IsError() || value.Type() == PT_NULL || value.Id() == PROP_ID(PR_ROWID) ||
                                     value.Id() == PROP_ID(PR_INSTANCE_KEY);
                          });
        }
        if (rows.empty() && (flags & MAPI_NOREPLACE))
            return;
        // A row set and an address list have the same layout.
        const MapiRows list(m_memory, MakeRowSet(m_memory, rows));
        static_assert(sizeof(ADRENTRY) == sizeof(SRow) && offsetof(ADRLIST, aEntries) == offsetof(SRowSet, aRow));
        const ULONG mode = flags & MAPI_NOREPLACE ? MODRECIP_ADD : 0;
        Check(destination.ModifyRecipients(mode, reinterpret_cast<ADRLIST*>(list.Get())),
              L"IMessage::ModifyRecipients failed.");
    }

    std::vector<ULONG> AttachmentsOf(IMessage& message) const
    {
        ComPtr<IMAPITable> table;
        Check(message.GetAttachmentTable(MAPI_UNICODE, table.Put()), L"IMessage::GetAttachmentTable failed.");
        std::vector<ULONG> numbers;
        for (const auto& row : RowsOf(*table, {PR_ATTACH_NUM}))
            numbers.push_back(static_cast<ULONG>(row.front().AsLong()));
        return numbers;
    }

    void CopyAttachments(IMessage& source, IMessage& destination, ULONG flags, int depth) const
    {
        if (!(flags & MAPI_NOREPLACE))
            for (const ULONG number : AttachmentsOf(destination))
                Check(destination.DeleteAttach(number, 0, nullptr, 0), L"IMessage::DeleteAttach failed.");
        for (const ULONG number : AttachmentsOf(source))
        {
            ComPtr<IAttach> from;
            Check(source.OpenAttach(number, nullptr, 0, from.Put()), L"IMessage::OpenAttach failed.");
            ComPtr<IAttach> to;
            ULONG newNumber = 0;
            Check(destination.CreateAttach(nullptr, 0, &newNumber, to.Put()), L"IMessage::CreateAttach failed.");
            std::vector<SPropProblem> problems;
            CopyTags(*from, *to, WholeOf(*from), 0, problems, depth + 1);
            const auto lost = std::find_if(problems.begin(), problems.end(), [](const SPropProblem& problem)
                                           { return PROP_ID(problem.ulPropTag) == PROP_ID(PR_ATTACH_DATA_OBJ); });
            if (lost != problems.end())
                Check(lost->scode, L"An attachment's contents cannot be copied.");
            Check(to->SaveChanges(0), L"IAttach::SaveChanges failed.");
        }
    }

    // Copies what an attachment has as an object: an embedded message, or the storage of an OLE object. The data of
    // plain attachments is a property like any other.
    HRESULT CopyAttachedObject(IAttach& source, IAttach& destination, int depth) const
    {
        const auto method = ReadOne(source, PR_ATTACH_METHOD);
        switch (method ? method->AsLong() : LONG(NO_ATTACHMENT))
        {
        case ATTACH_EMBEDDED_MSG:
            return CopyEmbedded(source, destination, depth);
        case ATTACH_OLE:
            return CopyOle(source, destination);
        default:
            return S_OK;
        }
    }

    HRESULT CopyEmbedded(IAttach& source, IAttach& destination, int depth) const
    {
        ComPtr<IMessage> from;
        HRESULT result = source.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, from.PutAs<IUnknown>());
        if (FAILED(result))
            return result;
        ComPtr<IMessage> to;
        result = destination.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                          to.PutAs<IUnknown>());
        if (FAILED(result))
            return result;
        std::vector<SPropProblem> problems;
        CopyTags(*from, *to, WholeOf(*from), 0, problems, depth + 1);
        return to->SaveChanges(0);
    }

    HRESULT CopyOle(IAttach& source, IAttach& destination) const
    {
        // As a stream where both have one, which keeps every byte; else as a storage.
        ComPtr<IStream> from;
        ComPtr<IStream> to;
        if (SUCCEEDED(source.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStream, 0, 0, from.PutAs<IUnknown>())) &&
            SUCCEEDED(destination.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStream, STGM_READWRITE | STGM_CREATE,
                                               MAPI_CREATE | MAPI_MODIFY, to.PutAs<IUnknown>())))
        {
            return CopyStream(*from, *to);
        }
        ComPtr<IStorage> fromStorage;
        ComPtr<IStorage> toStorage;
        HRESULT result = source.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStorage, 0, 0, fromStorage.PutAs<IUnknown>());
        if (result == MAPI_E_NOT_FOUND || result == MAPI_E_INTERFACE_NOT_SUPPORTED)
        {
            // Old OLE attachments keep their object in the plain data property.
            return S_OK;
        }
        if (SUCCEEDED(result))
        {
            result = destination.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IStorage, STGM_READWRITE | STGM_CREATE,
                                              MAPI_CREATE | MAPI_MODIFY, toStorage.PutAs<IUnknown>());
        }
        if (SUCCEEDED(result))
            result = fromStorage->CopyTo(0, nullptr, nullptr, toStorage.Get());
        return SUCCEEDED(result) ? toStorage->Commit(STGC_DEFAULT) : result;
    }

    // Takes out of the source what a move has copied.
    void RemoveMoved(IMAPIProp& source, const std::vector<ULONG>& copied, const std::vector<ULONG>& tags) const
    {
        if (!copied.empty())
        {
            const MapiBlock<SPropTagArray> array(m_memory, MakeTagArray(m_memory, copied));
            Check(source.DeleteProps(array.Get(), nullptr), L"IMAPIProp::DeleteProps failed.");
        }
        const auto message = ComPtr<IMAPIProp>(&source).As<IMessage>(IID_IMessage);
        if (message && HasId(tags, PR_MESSAGE_RECIPIENTS))
        {
            const MapiRows none(m_memory, MakeRowSet(m_memory, {}));
            Check(message->ModifyRecipients(0, reinterpret_cast<ADRLIST*>(none.Get())),
                  L"IMessage::ModifyRecipients failed.");
        }
        if (message && HasId(tags, PR_MESSAGE_ATTACHMENTS))
            for (const ULONG number : AttachmentsOf(*message))
                Check(message->DeleteAttach(number, 0, nullptr, 0), L"IMessage::DeleteAttach failed.");
    }

    MapiMemory m_memory;
};

// A destination folder that is the folder itself or lies in it would make the copying endless.
void RequireNoCycle(const Copier& copier, IMAPIFolder& folder, IMAPIFolder& destination)
{
    const auto own = copier.ReadOne(folder, PR_ENTRYID);
    if (!own)
        return;
    ComPtr<IMAPIFolder> current(&destination);
    for (int depth = 0; depth < maxDepth; ++depth)
    {
        const auto entryId = copier.ReadOne(*current, PR_ENTRYID);
        if (entryId && *entryId == *own)
            Fail(MAPI_E_FOLDER_CYCLE, L"A folder cannot be copied into itself.");
        const auto parent = copier.ReadOne(*current, PR_PARENT_ENTRYID);
        if (!entryId || !parent || parent->AsBytes() == entryId->AsBytes())
            return;
        try
        {
            current = copier.Open<IMAPIFolder>(*current, parent->AsBytes(), IID_IMAPIFolder);
        }
        catch (const Failure&)
        {
            // The top of what this client may open.
            return;
        }
    }
}

std::pair<ComPtr<IMAPIProp>, ComPtr<IMAPIProp>> AskBoth(const CopyPair& objects)
{
    RequireFlags(objects.flags, MAPI_MOVE | MAPI_NOREPLACE | MAPI_DECLINE_OK | MAPI_DIALOG);
    auto source = Ask<IMAPIProp>(objects.source, objects.sourceInterface, IID_IMAPIProp);
    auto destination = Ask<IMAPIProp>(objects.destination, objects.destinationInterface, IID_IMAPIProp);
    if (source.As<IUnknown>(IID_IUnknown).Get() == destination.As<IUnknown>(IID_IUnknown).Get())
        Fail(MAPI_E_NO_ACCESS, L"An object cannot be copied to itself.");
    return {std::move(source), std::move(destination)};
}

bool Excludes(const CopyExceptions& exceptions, REFIID iid)
{
    return std::any_of(exceptions.interfaces, exceptions.interfaces + exceptions.interfaceCount,
                       [&iid](const IID& excluded) { return IsEqualIID(excluded, iid); });
}
} // namespace

void CopyObject(const MapiMemory& memory, const CopyPair& objects, const CopyExceptions& exceptions,
                LPSPropProblemArray* problems)
{
    if (exceptions.interfaceCount)
        Require(exceptions.interfaces);
    const auto [source, destination] = AskBoth(objects);
    const Copier copier(memory);
    std::vector<ULONG> tags = copier.WholeOf(*source);
    std::set<ULONG> excluded;
    for (ULONG i = 0; exceptions.tags && i < exceptions.tags->cValues; ++i)
        excluded.insert(PROP_ID(exceptions.tags->aulPropTag[i]));
    // An excluded interface takes with it what it adds to the object's properties.
    const bool noProperties = Excludes(exceptions, IID_IMAPIProp);
    const bool noStructure = Excludes(exceptions, IID_IMessage) || Excludes(exceptions, IID_IMAPIFolder) ||
                             Excludes(exceptions, IID_IMAPIContainer) || Excludes(exceptions, IID_IAttachment);
    std::erase_if(tags, [&](ULONG tag)
                  { return excluded.contains(PROP_ID(tag)) || (IsStructure(tag) ? noStructure : noProperties); });
    std::vector<SPropProblem> found;
    copier.CopyTags(*source, *destination, tags, objects.flags, found, 0);
    GiveProblems(memory, found, problems);
}

void CopyProperties(const MapiMemory& memory, LPSPropTagArray tags, const CopyPair& objects,
                    LPSPropProblemArray* problems)
{
    if (!tags || tags->cValues == 0)
        Fail(MAPI_E_INVALID_PARAMETER, L"No properties to copy are named.");
    const auto [source, destination] = AskBoth(objects);
    const Copier copier(memory);
    std::vector<ULONG> asked(tags->aulPropTag, tags->aulPropTag + tags->cValues);
    // A property that is too large for its row has a stream only under its own type.
    const std::vector<ULONG> own = copier.TagsOf(*source);
    for (ULONG& tag : asked)
    {
        const auto known = FindId(own, tag);
        if (PROP_TYPE(tag) == PT_UNSPECIFIED && known != own.end())
            tag = *known;
    }
    std::vector<SPropProblem> found;
    copier.CopyTags(*source, *destination, asked, objects.flags, found, 0);
    GiveProblems(memory, found, problems);
}

HRESULT CopyMessages(const MapiMemory& memory, LPCIID sourceInterface, LPVOID source, const ENTRYLIST& messages,
                     LPCIID destinationInterface, LPVOID destination, LPMAPIPROGRESS progress, ULONG flags)
{
    RequireFlags(flags, MESSAGE_MOVE | MESSAGE_DIALOG | MAPI_DECLINE_OK);
    if (messages.cValues && !messages.lpbin)
        Fail(MAPI_E_INVALID_PARAMETER, L"The list of messages is null.");
    const auto from = Ask<IMAPIFolder>(source, sourceInterface, IID_IMAPIFolder);
    const auto to = Ask<IMAPIFolder>(destination, destinationInterface, IID_IMAPIFolder);

    std::vector<Bytes> entryIds;
    for (ULONG i = 0; i < messages.cValues; ++i)
    {
        const SBinary& entry = messages.lpbin[i];
        entryIds.emplace_back(entry.lpb, entry.lpb + entry.cb);
    }
    const Copier copier(memory);
    std::vector<Bytes> copied = copier.CopyMessages(*from, entryIds, *to, progress);
    HRESULT result = copied.size() == entryIds.size() ? S_OK : MAPI_W_PARTIAL_COMPLETION;
    if ((flags & MESSAGE_MOVE) && !copied.empty())
    {
        std::vector<SBinary> binaries;
        binaries.reserve(copied.size());
        for (Bytes& entryId : copied)
            binaries.push_back({static_cast<ULONG>(entryId.size()), entryId.data()});
        ENTRYLIST moved{static_cast<ULONG>(binaries.size()), binaries.data()};
        if (from->DeleteMessages(&moved, 0, nullptr, 0) != S_OK)
            result = MAPI_W_PARTIAL_COMPLETION;
    }
    return result;
}

HRESULT CopyFolder(const MapiMemory& memory, LPCIID sourceInterface, LPVOID source, ULONG entryIdSize,
                   LPENTRYID entryId, LPCIID destinationInterface, LPVOID destination, LPTSTR newName,
                   LPMAPIPROGRESS progress, ULONG flags)
{
    RequireFlags(flags, FOLDER_MOVE | FOLDER_DIALOG | COPY_SUBFOLDERS | MAPI_DECLINE_OK | MAPI_UNICODE);
    const auto parent = Ask<IMAPIFolder>(source, sourceInterface, IID_IMAPIFolder);
    const auto to = Ask<IMAPIFolder>(destination, destinationInterface, IID_IMAPIFolder);
    if (entryIdSize < sizeof(ENTRYID::abFlags) || !entryId)
        Fail(MAPI_E_INVALID_ENTRYID, L"The folder to copy has no entry ID.");
    const BYTE* const bytes = reinterpret_cast<const BYTE*>(entryId);
    const Copier copier(memory);
    const auto folder = copier.Open<IMAPIFolder>(*parent, Bytes(bytes, bytes + entryIdSize), IID_IMAPIFolder);
    RequireNoCycle(copier, *folder, *to);

    const bool move = (flags & FOLDER_MOVE) != 0;
    const auto name = newName ? std::optional(TextArgument(newName, flags)) : std::nullopt;
    const bool complete = copier.CopyFolderObject(*folder, *to, name, move || (flags & COPY_SUBFOLDERS), progress, 0);
    if (!complete)
        return MAPI_W_PARTIAL_COMPLETION;
    if (move)
    {
        Check(parent->DeleteFolder(entryIdSize, entryId, 0, nullptr, DEL_MESSAGES | DEL_FOLDERS),
              L"The folder was copied, but the original cannot be deleted.");
    }
    return S_OK;
}
} // namespace Testbed
