// Copying a message with all that belongs to it between stores, over MAPI's interfaces alone.
#pragma once

#include "tools/browser/MapiTools.h"

namespace Browser
{
/// What kind of object a property belongs to.
enum class ObjectKind
{
    Folder,
    Message,
    Attachment
};

/// Whether a property says where an object lies or what its store makes of it, so that a copy has one of its own.
bool BelongsToPlace(ObjectKind kind, ULONG tag) noexcept;

/// Something that could not be copied.
struct CopyProblem
{
    std::string object;
    ULONG tag = PR_NULL;
    HRESULT code = S_OK;
};

/// Copies objects from one store to another. One thread at a time.
class ObjectCopier
{
public:
    /// Named properties keep their names: `source` and `target` are the stores' own.
    ObjectCopier(const Common::MapiMemory& memory, PropertyNames& source, PropertyNames& target)
        : m_memory(memory),
          m_sourceNames(source),
          m_targetNames(target)
    {
    }

    /// The tag under which the target keeps a property of the source; 0 when it has no counterpart there.
    ULONG TargetTag(ULONG sourceTag, bool create);

    /// Copies properties, recipients and attachments, embedded messages included, into a message that is open for
    /// writing; saves the attachments, but not the message. `label` names it in problems.
    void CopyMessage(IMessage& source, IMessage& target, const std::string& label);
    /// Copies an object's own properties, large ones by stream.
    void CopyProperties(ObjectKind kind, IMAPIProp& source, IMAPIProp& target, const std::string& label);

    size_t Attachments() const noexcept { return m_attachments; }
    size_t EmbeddedMessages() const noexcept { return m_embedded; }
    const std::vector<CopyProblem>& Problems() const noexcept { return m_problems; }

private:
    void CopyRecipients(IMessage& source, IMessage& target);
    void CopyAttachment(IMessage& source, ULONG number, IMessage& target, const std::string& label);

    Common::MapiMemory m_memory;
    PropertyNames& m_sourceNames;
    PropertyNames& m_targetNames;
    size_t m_attachments = 0;
    size_t m_embedded = 0;
    std::vector<CopyProblem> m_problems;
};

/// A message's recipients, without what a store makes of a row.
std::vector<Row> Recipients(const Common::MapiMemory& memory, IMessage& message);
/// The numbers of a message's attachments, in their table's order.
std::vector<ULONG> AttachmentNumbers(const Common::MapiMemory& memory, IMessage& message);
} // namespace Browser
