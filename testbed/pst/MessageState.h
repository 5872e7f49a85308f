// An open message, and its attachments, as their objects share them: what was read, and what has not been saved yet.
#pragma once

#include "testbed/pst/Session.h"

namespace Testbed::Pst
{
class AttachmentState;

/// A message's content held in memory: what an embedded message's SaveChanges leaves until the outer one is saved.
std::shared_ptr<const MessageContent> MakeMessageContent(PropertyBag properties, std::vector<PropertyBag> recipients,
                                                         std::vector<AttachmentSlot> attachments);

/// Opens attachments, changes, saves. Objects that work on the same message hold it together. Thread-safe.
class MessageState : public std::enable_shared_from_this<MessageState>
{
public:
    /// A message of the store.
    static std::shared_ptr<MessageState> Open(std::shared_ptr<const Session> session, const Node& node,
                                              bool modifiable);
    /// A message that its first save puts into the folder.
    static std::shared_ptr<MessageState> Create(std::shared_ptr<const Session> session, NodeId folder, bool associated);
    /// The message embedded in an attachment; `content` is null for a new one.
    static std::shared_ptr<MessageState> Embed(std::shared_ptr<AttachmentState> owner,
                                               std::shared_ptr<const MessageContent> content, bool modifiable);

    const std::shared_ptr<const Session>& SessionOf() const noexcept { return m_session; }
    bool Modifiable();
    /// Throws MAPI_E_OBJECT_DELETED when the message was deleted from its folder.
    void RequireAlive();

    /// What the objects over this hold during their methods, as callers of the methods down to `SetRecipients` do.
    std::recursive_mutex& Lock() noexcept { return m_lock; }

    /// The properties as clients see them.
    std::shared_ptr<const PropertySource> Properties();
    SCODE Set(const PropValue& value);
    SCODE Remove(ULONG tag);

    const std::vector<PropertyBag>& Recipients();
    void SetRecipients(std::vector<PropertyBag> recipients);

    std::vector<AttachmentSlot> Attachments();
    /// A number that no attachment of the message has or had while it was open.
    ULONG NewAttachmentNumber();
    void PutAttachment(ULONG number, std::shared_ptr<const AttachmentContent> content);
    /// Gives whether there was one.
    bool RemoveAttachment(ULONG number);

    /// Sets or clears the read flag: of a message of the store at once, of others with their next save.
    void SetRead(bool read);

    /// The body of SaveChanges.
    void Save(ULONG flags);

private:
    explicit MessageState(std::shared_ptr<const Session> session) : m_session(std::move(session)) {}

    void Complete();
    std::shared_ptr<const MessageContent> Snapshot();
    /// The attachments as they are kept, read when they are first asked for. The caller holds the lock.
    std::vector<AttachmentSlot>& LoadedAttachments();

    std::shared_ptr<const Session> m_session;
    std::recursive_mutex m_lock;
    bool m_modifiable = false;
    bool m_new = false;
    // A message of the store once it has been saved there.
    std::optional<Node> m_node;
    NodeId m_folder = 0;
    bool m_associated = false;
    // The attachment that an embedded message lies in.
    std::shared_ptr<AttachmentState> m_owner;
    std::shared_ptr<const MessageContent> m_content;
    PropertyBag m_properties;
    std::optional<std::vector<PropertyBag>> m_recipients;
    std::optional<std::vector<AttachmentSlot>> m_attachments;
    ULONG m_nextAttachment = 0;
    PropertyChanges m_changes;
    bool m_recipientsChanged = false;
    bool m_attachmentsChanged = false;
};

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
    std::recursive_mutex& Lock() noexcept { return m_lock; }

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
    std::recursive_mutex m_lock;
    bool m_modifiable;
    PropertyBag m_properties;
    std::shared_ptr<const MessageContent> m_embedded;
    bool m_changed = false;
};

/// The row of a message's attachment in its attachment table.
PropertyBag AttachmentRow(const Session& session, const AttachmentSlot& slot);
} // namespace Testbed::Pst
