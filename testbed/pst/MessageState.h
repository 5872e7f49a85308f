// An open message as its objects share it: what was read, and what has not been saved yet.
#pragma once

#include "common/Mutex.h"
#include "testbed/pst/Session.h"

namespace Testbed::Pst
{
/// Whether the store works this property of a message or an attachment out itself, so that no client can set it.
bool IsComputedOfMessages(ULONG id);

/// The bytes that an object's properties take.
size_t SizeOf(const PropertyBag& bag);

/// A message's content held in memory: what an embedded message's SaveChanges leaves until the outer one is saved.
std::shared_ptr<const MessageContent> MakeMessageContent(PropertyBag properties, std::vector<PropertyBag> recipients,
                                                         std::vector<AttachmentSlot> attachments);

/// Opens attachments, changes, saves. Objects that work on the same message hold it together. Thread-safe.
class MessageState : public std::enable_shared_from_this<MessageState>
{
public:
    /// A message of the store.
    static std::shared_ptr<MessageState> Open(std::shared_ptr<Session> session, const Node& node, bool modifiable);
    /// A message that its first save puts into the folder.
    static std::shared_ptr<MessageState> Create(std::shared_ptr<Session> session, NodeId folder, bool associated);
    /// A message that lies in an attachment and not in the store; `content` is null for a new one. Its saves go to
    /// `keep`.
    using Keeper = std::function<void(std::shared_ptr<const MessageContent>)>;
    static std::shared_ptr<MessageState> Embed(std::shared_ptr<Session> session,
                                               std::shared_ptr<const MessageContent> content, bool modifiable,
                                               Keeper keep);

    const std::shared_ptr<Session>& SessionOf() const noexcept { return m_session; }
    bool Modifiable();
    /// Throws MAPI_E_OBJECT_DELETED when the message was deleted from its folder.
    void RequireAlive();

    /// What the objects over this hold during their methods, as callers of the methods down to `SetRecipients` do.
    RecursiveMutex& Lock() noexcept { return m_lock; }

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
    explicit MessageState(std::shared_ptr<Session> session) : m_session(std::move(session)) {}

    void Complete();
    std::shared_ptr<const MessageContent> Snapshot();
    /// The attachments as they are kept, read when they are first asked for. The caller holds the lock.
    std::vector<AttachmentSlot>& LoadedAttachments();

    std::shared_ptr<Session> m_session;
    RecursiveMutex m_lock;
    bool m_modifiable = false;
    bool m_new = false;
    // A message of the store once it has been saved there.
    std::optional<Node> m_node;
    NodeId m_folder = 0;
    bool m_associated = false;
    // Where an embedded message's saves go.
    Keeper m_keep;
    std::shared_ptr<const MessageContent> m_content;
    PropertyBag m_properties;
    std::optional<std::vector<PropertyBag>> m_recipients;
    std::optional<std::vector<AttachmentSlot>> m_attachments;
    ULONG m_nextAttachment = 0;
    PropertyChanges m_changes;
    bool m_recipientsChanged = false;
    bool m_attachmentsChanged = false;
};

} // namespace Testbed::Pst
