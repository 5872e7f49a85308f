// The mark that an imported object carries: what it was copied from.
#pragma once

#include "tools/browser/MapiTools.h"

namespace Browser
{
/// Where an import takes a store's mail from.
struct ImportTop
{
    Common::ComPtr<IMAPIFolder> folder;
    std::wstring name;
    /// Whether it is the store's root folder.
    bool isRoot = false;
};

/// The folder whose contents are imported: the top of the information store, or with `all`, or when the store has no
/// such folder, its root.
ImportTop SourceTop(const Common::MapiMemory& memory, IMsgStore& source, bool all);

/// The property of an archive's folders and messages that names their source, as a tag of type PT_BINARY; made when the
/// archive has none yet and `create`, else 0 then. It is a named property, so that it cannot meet one of the mail's
/// own.
ULONG MarkTag(PropertyNames& names, bool create);

/// Whether a source's named property is such a mark itself (the source is an archive, too); it is not copied.
bool IsMark(const PropertyNames::Name& name);

/// A source object's mark: the record key of its store and its entry ID.
class SourceMarks
{
public:
    SourceMarks(const Common::MapiMemory& memory, IMsgStore& source);
    Common::Bytes Of(const Common::Bytes& entryId) const;

private:
    Common::Bytes m_recordKey;
};
} // namespace Browser
