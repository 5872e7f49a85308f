// Messages as the overlay holds them: what was changed of one of the source, and the whole of one that was made.
#pragma once

#include "testbed/pst/Overlay.h"

namespace Testbed::Pst
{
/// An attachment of a message with the number by which clients open it.
struct AttachmentSlot
{
    ULONG number = 0;
    std::shared_ptr<const AttachmentContent> content;
};

/// What one SaveChanges of a message changes.
struct MessageUpdate
{
    PropertyChanges changes;
    /// The new recipients, when they changed.
    std::optional<std::vector<PropertyBag>> recipients;
    /// The new attachments, when they changed.
    std::optional<std::vector<AttachmentSlot>> attachments;
};

/// The content of a message: what the overlay holds of it over `base`, which is null for a message that was made there.
std::shared_ptr<const MessageContent> OpenStoredMessage(std::shared_ptr<Overlay> overlay, ObjectId message,
                                                        std::shared_ptr<const MessageContent> base);

/// A message's attachments as slots, numbered from 0 for content that does not number them itself.
std::vector<AttachmentSlot> SlotsOf(const MessageContent& content);

/// Stores a new message, within a transaction.
void AddMessage(Overlay& overlay, ObjectId message, const MessageUpdate& update);
/// Adds an update to what is stored of a message, within a transaction.
void ChangeMessage(Overlay& overlay, ObjectId message, const MessageUpdate& update);
} // namespace Testbed::Pst
