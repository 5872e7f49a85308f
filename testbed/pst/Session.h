// What all objects of one logon share.
#pragma once

#include "common/Boundary.h"
#include "common/ComPtr.h"
#include "testbed/common/Namespace.h"
#include "testbed/pst/StoreCore.h"

namespace Testbed::Pst
{
/// The name of this module in extended errors.
extern const wchar_t* const componentName;

/// Property tags that MAPI's headers do not name.
namespace Tags
{
constexpr ULONG rights = PROP_TAG(PT_LONG, 0x6639);
constexpr ULONG storeUnicodeMask = PROP_TAG(PT_LONG, 0x340F);
constexpr ULONG internetCodePage = PROP_TAG(PT_LONG, 0x3FDE);
} // namespace Tags

/// One logon to a store. Immutable but for the notifications that it sends; thread-safe.
class Session
{
public:
    /// `storeEntryId` is the store's own, unwrapped entry ID, `wrappedEntryId` what clients see of it. `unicode` says
    /// whether the store presents itself as one that knows wide strings.
    Session(std::shared_ptr<StoreCore> core, const MapiMemory& memory, ComPtr<IMAPISupport> support, Bytes storeEntryId,
            Bytes wrappedEntryId, const MAPIUID& provider, bool unicode);

    StoreCore& Core() const noexcept { return *m_core; }
    const MapiMemory& Memory() const noexcept { return m_memory; }
    IMAPISupport& Support() const noexcept { return *m_support; }
    const MAPIUID& Provider() const noexcept { return m_provider; }
    const Bytes& WrappedEntryId() const noexcept { return m_wrappedEntryId; }
    bool Writable() const noexcept { return m_core->Writable(); }

    /// `flags` without MAPI_UNICODE for a store that presents itself as an ANSI store.
    ULONG Flags(ULONG flags) const noexcept { return m_unicode ? flags : flags & ~MAPI_UNICODE; }
    /// PR_STORE_SUPPORT_MASK (and PR_STORE_UNICODE_MASK).
    LONG SupportMask() const noexcept;

    Bytes EntryId(NodeId node) const;
    /// The node that an entry ID of this store names, or nothing for one of another kind or of another store.
    std::optional<NodeId> NodeOf(ULONG size, const ENTRYID* entryId) const;
    /// Whether an entry ID, wrapped or not, is the store's own.
    bool IsStore(ULONG size, const ENTRYID* entryId) const;
    /// Whether two entry IDs name the same object.
    bool SameObject(ULONG size1, const ENTRYID* entryId1, ULONG size2, const ENTRYID* entryId2) const;

    /// The node of an entry ID and what is known of it. Throws `Failure`: MAPI_E_INVALID_ENTRYID for one that is not
    /// of this store, MAPI_E_NOT_FOUND when the object does not exist.
    Node Require(ULONG size, const ENTRYID* entryId) const;

    /// The properties that every object of the store has.
    void PutCommon(PropertyBag& bag) const;

    /// Tells those who subscribed to the object, to its folder or to the whole store of an event
    /// (fnevObjectCreated, ...Modified, ...Deleted, ...Moved). Never throws: what was done is done.
    void Notify(ULONG event, const Node& node, const Node* oldNode = nullptr) const noexcept;
    /// Subscribes a sink to an object's events, or for a null entry ID to those of the whole store.
    ULONG Advise(ULONG size, const ENTRYID* entryId, ULONG mask, IMAPIAdviseSink* sink) const;
    HRESULT Unadvise(ULONG connection) const;

private:
    std::shared_ptr<StoreCore> m_core;
    MapiMemory m_memory;
    ComPtr<IMAPISupport> m_support;
    Bytes m_storeEntryId;
    Bytes m_wrappedEntryId;
    MAPIUID m_provider;
    bool m_unicode;
};

/// The current time as PT_SYSTIME keeps it.
PropValue Now(ULONG tag);
} // namespace Testbed::Pst
