// Marks of imported objects.
#include "tools/browser/SourceMark.h"

#include "common/Boundary.h"

#include <cstring>

using namespace Common;

namespace Browser
{
namespace
{
const PropertyNames::Name markName = {
    {0x8B1C2D5E, 0x4F3A, 0x4C77, {0x9E, 0x52, 0x1D, 0x0B, 0x6A, 0x7F, 0x38, 0xC4}}, L"ImportSource", 0};
} // namespace

ImportTop SourceTop(const MapiMemory& memory, IMsgStore& source, bool all)
{
    const Bytes entryId = all ? Bytes() : TopOfStore(memory, source);
    const auto folder = OpenFolder(source, entryId);
    return {folder, Wide(ReadText(memory, *folder, PR_DISPLAY_NAME_W)), entryId.empty()};
}

ULONG MarkTag(PropertyNames& names, bool create)
{
    const ULONG id = names.IdOf(markName, create);
    if (id == 0 && create)
        Fail(MAPI_E_CALL_FAILED, L"The archive has no room for the property that names an imported object's source.");
    return id != 0 ? PROP_TAG(PT_BINARY, id) : 0;
}

bool IsMark(const PropertyNames::Name& name)
{
    return !(name < markName) && !(markName < name);
}

SourceMarks::SourceMarks(const MapiMemory& memory, IMsgStore& source)
{
    const auto key = ReadProp(memory, source, PR_RECORD_KEY);
    if (!key)
        Fail(MAPI_E_CORRUPT_STORE, L"The source has no record key.");
    m_recordKey = key->AsBytes();
}

Bytes SourceMarks::Of(const Bytes& entryId) const
{
    Bytes mark = m_recordKey;
    mark.insert(mark.end(), entryId.begin(), entryId.end());
    return mark;
}
} // namespace Browser
