// An open attachment as its objects share it: what was read, and what has not been saved yet.
#pragma once

#include "common/Mutex.h"
#include "testbed/pst/MessageState.h"

namespace Testbed::Pst
{
/// One open attachment. Thread-safe.
class AttachmentState : public std::enable_shared_from_this<AttachmentState>
{
public:
    /// An attachment of the message; `content` is null for a new one.
    AttachmentState(std::shared_ptr<MessageState> message, ULONG number,
                    const std::shared_ptr<const AttachmentContent>& content, bool modifiable);

    const std::shared_ptr<MessageState>& Message() const noexcept { return m_message; }
    ULONG Number() const noexcept { return m_number; }
    bool Modifiable();

    /// As a message's.
    RecursiveMutex& Lock() noexcept { return m_lock; }

    std::shared_ptr<const PropertySource> Properties();
    SCODE Set(const PropValue& value);
    SCODE Remove(ULONG tag);

    /// Null when there is none.
    std::shared_ptr<const MessageContent> Embedded();
    void SetEmbedded(std::shared_ptr<const MessageContent> content);

    void Save(ULONG flags);

private:
    std::shared_ptr<MessageState> m_message;
    ULONG m_number;
    RecursiveMutex m_lock;
    bool m_modifiable;
    PropertyBag m_properties;
    std::shared_ptr<const MessageContent> m_embedded;
    bool m_changed = false;
};

/// The row of a message's attachment in its attachment table.
PropertyBag AttachmentRow(const Session& session, const AttachmentSlot& slot);
} // namespace Testbed::Pst
