// Copying of messages.
#include "tools/browser/Copy.h"

#include "common/Boundary.h"
#include "common/MemoryStream.h"
#include "support/MapiHeaders.h"
#include "tools/browser/SourceMark.h"

#include <algorithm>

using namespace Common;

namespace Browser
{
namespace
{
// What comes in one SetProps at most: larger values go by stream, as a client of a real store does it.
constexpr size_t inlineLimit = size_t{32} * 1024;

void WriteStream(IMAPIProp& target, const PropValue& value)
{
    ComPtr<IStream> stream;
    Check(target.OpenProperty(value.Tag(), &IID_IStream, STGM_READWRITE, MAPI_CREATE | MAPI_MODIFY,
                              stream.PutAs<IUnknown>()),
          L"A large property cannot be written.");
    const Bytes bytes = StreamBytes(value, value.Type());
    constexpr size_t portion = 1u << 20;
    for (size_t position = 0; position < bytes.size(); position += portion)
    {
        const auto size = static_cast<ULONG>(std::min(portion, bytes.size() - position));
        ULONG written = 0;
        Check(stream->Write(bytes.data() + position, size, &written), L"A large property cannot be written.");
        if (written != size)
            Fail(MAPI_E_NOT_ENOUGH_DISK, L"A large property cannot be written whole.");
    }
    Check(stream->Commit(STGC_DEFAULT), L"A large property cannot be written.");
}

bool IsStreamed(const PropValue& value)
{
    return value.Size() > inlineLimit &&
           (value.Type() == PT_UNICODE || value.Type() == PT_STRING8 || value.Type() == PT_BINARY);
}

PropValue WithTag(const PropValue& value, ULONG tag)
{
    return {tag, value.Data()};
}
} // namespace

bool BelongsToPlace(ObjectKind kind, ULONG tag) noexcept
{
    switch (PROP_ID(tag))
    {
    case PROP_ID(PR_ENTRYID):
    case PROP_ID(PR_PARENT_ENTRYID):
    case PROP_ID(PR_STORE_ENTRYID):
    case PROP_ID(PR_RECORD_KEY):
    case PROP_ID(PR_STORE_RECORD_KEY):
    case PROP_ID(PR_MAPPING_SIGNATURE):
    case PROP_ID(PR_INSTANCE_KEY):
    case PROP_ID(PR_MDB_PROVIDER):
    case PROP_ID(PR_STORE_SUPPORT_MASK):
    case PROP_ID(PR_ACCESS):
    case PROP_ID(PR_ACCESS_LEVEL):
    // A store numbers attachments itself; PST files keep their own count with a message, too.
    case PROP_ID(PR_ATTACH_NUM):
        return true;
    // A store counts these itself, and each in its own way.
    case PROP_ID(PR_MESSAGE_SIZE):
        return kind == ObjectKind::Message;
    case PROP_ID(PR_ATTACH_SIZE):
        return kind == ObjectKind::Attachment;
    // What a client may do with a folder is up to the store that it lies in.
    case PROP_ID(PR_RIGHTS):
        return kind == ObjectKind::Folder;
    default:
        return false;
    }
}

ULONG ObjectCopier::TargetTag(ULONG sourceTag, bool create)
{
    if (PROP_ID(sourceTag) < 0x8000)
        return sourceTag;
    const PropertyNames::Name* const name = m_sourceNames.NameOf(PROP_ID(sourceTag));
    if (!name || IsMark(*name))
        return 0;
    const ULONG id = m_targetNames.IdOf(*name, create);
    return id != 0 ? PROP_TAG(PROP_TYPE(sourceTag), id) : 0;
}

void ObjectCopier::CopyProperties(ObjectKind kind, IMAPIProp& source, IMAPIProp& target, const std::string& label)
{
    const ObjectProperties properties = ReadProperties(m_memory, source, true);
    std::vector<PropValue> values;
    for (size_t index = 0; index < properties.values.size(); ++index)
    {
        const ULONG tag = properties.tags[index];
        const PropValue& value = properties.values[index];
        if (BelongsToPlace(kind, tag) || PROP_TYPE(tag) == PT_OBJECT || value.Type() == PT_NULL)
            continue;
        // A folder got its name when it was made.
        if (kind == ObjectKind::Folder && PROP_ID(tag) == PROP_ID(PR_DISPLAY_NAME))
            continue;
        if (value.IsError())
        {
            m_problems.push_back({label, tag, value.AsLong()});
            continue;
        }
        const ULONG targetTag = TargetTag(tag, true);
        if (targetTag == 0)
        {
            const auto* name = m_sourceNames.NameOf(PROP_ID(tag));
            if (!name)
                m_problems.push_back({label, tag, MAPI_E_NOT_FOUND});
            continue;
        }
        values.push_back(WithTag(value, CHANGE_PROP_TYPE(targetTag, value.Type())));
    }
    const auto large =
        std::stable_partition(values.begin(), values.end(), [](const PropValue& value) { return !IsStreamed(value); });
    if (const auto count = static_cast<ULONG>(large - values.begin()); count != 0)
    {
        const MapiBlock<SPropValue> array(m_memory, MakePropArray(m_memory, {values.begin(), large}));
        MapiBlock<SPropProblemArray> problems(m_memory);
        Check(target.SetProps(count, array.Get(), problems.Put()),
              L"An imported object's properties cannot be written.");
        for (ULONG index = 0; problems && index < problems->cProblem; ++index)
        {
            const SPropProblem& problem = problems->aProblem[index];
            // What the store computes it has computed from what was copied; `verify` compares the outcome.
            if (problem.scode != MAPI_E_COMPUTED)
                m_problems.push_back({label, problem.ulPropTag, problem.scode});
        }
    }
    for (auto value = large; value != values.end(); ++value)
        WriteStream(target, *value);
}

std::vector<Row> Recipients(const MapiMemory& memory, IMessage& message)
{
    ComPtr<IMAPITable> table;
    Check(message.GetRecipientTable(MAPI_UNICODE, table.Put()), L"A message does not list its recipients.");
    std::vector<Row> rows = ReadTable(memory, *table, {});
    for (Row& row : rows)
    {
        std::erase_if(row,
                      [](const PropValue& value)
                      {
                          return value.IsError() || value.Type() == PT_OBJECT || value.Type() == PT_NULL ||
                                 value.Id() == PROP_ID(PR_INSTANCE_KEY);
                      });
    }
    return rows;
}

std::vector<ULONG> AttachmentNumbers(const MapiMemory& memory, IMessage& message)
{
    ComPtr<IMAPITable> table;
    Check(message.GetAttachmentTable(MAPI_UNICODE, table.Put()), L"A message does not list its attachments.");
    std::vector<ULONG> numbers;
    for (const Row& row : ReadTable(memory, *table, {PR_ATTACH_NUM}))
        numbers.push_back(static_cast<ULONG>(row[0].AsLong()));
    return numbers;
}

void ObjectCopier::CopyRecipients(IMessage& source, IMessage& target)
{
    std::vector<Row> rows = Recipients(m_memory, source);
    for (Row& row : rows)
    {
        Row mapped;
        for (const PropValue& value : row)
            if (const ULONG tag = TargetTag(value.Tag(), true); tag != 0)
                mapped.push_back(WithTag(value, tag));
        row = std::move(mapped);
    }
    if (rows.empty())
        return;
    // An address list and a row set are one structure under two names.
    const MapiRows list(m_memory, MakeRowSet(m_memory, rows));
    Check(target.ModifyRecipients(0, reinterpret_cast<LPADRLIST>(list.Get())),
          L"An imported message's recipients cannot be written.");
}

void ObjectCopier::CopyAttachment(IMessage& source, ULONG number, IMessage& target, const std::string& label)
{
    const auto from = OpenAttachment(source, number);
    ULONG newNumber = 0;
    ComPtr<IAttach> to;
    Check(target.CreateAttach(nullptr, 0, &newNumber, to.Put()), L"An imported message takes no attachment.");
    CopyProperties(ObjectKind::Attachment, *from, *to, label);
    const auto method = ReadProp(m_memory, *from, PR_ATTACH_METHOD);
    if (method && method->AsLong() == ATTACH_EMBEDDED_MSG)
    {
        const auto embedded = OpenEmbedded(*from);
        const auto copy = OpenEmbedded(*to, MAPI_CREATE | MAPI_MODIFY);
        CopyMessage(*embedded, *copy, label + " > message");
        Check(copy->SaveChanges(0), L"A message that is attached to an imported message cannot be saved.");
        ++m_embedded;
    }
    else if (method && method->AsLong() == ATTACH_OLE)
    {
        // An OLE object's storage comes by the same identifier as data, where the store has it as bytes.
        if (!ReadProp(m_memory, *to, PR_ATTACH_DATA_BIN))
            m_problems.push_back({label, PR_ATTACH_DATA_OBJ, MAPI_E_NOT_FOUND});
    }
    Check(to->SaveChanges(0), L"An imported attachment cannot be saved.");
    ++m_attachments;
}

void ObjectCopier::CopyMessage(IMessage& source, IMessage& target, const std::string& label)
{
    CopyProperties(ObjectKind::Message, source, target, label);
    CopyRecipients(source, target);
    for (const ULONG number : AttachmentNumbers(m_memory, source))
        CopyAttachment(source, number, target, label + " > attachment " + std::to_string(number));
}
} // namespace Browser
