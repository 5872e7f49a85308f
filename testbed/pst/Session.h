// What all objects of one logon share.
#pragma once

#include "common/Boundary.h"
#include "common/ComPtr.h"
#include "testbed/common/Namespace.h"
#include "testbed/pst/StoreCore.h"

#include <atomic>

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

/// The store object of a logon, for others of the logon that may outlive it.
class StoreObject
{
public:
    /// A new reference to the store, or null when the last one is being released.
    virtual ComPtr<IMsgStore> Share() noexcept = 0;

protected:
    ~StoreObject() = default;
};

/// One logon to a store, from `IMSProvider::Logon` until the store's last release, `IMSLogon::Logoff` or the provider's
/// shutdown, whichever comes first. After that all that needs the store or MAPI throws MAPI_E_INVALID_OBJECT.
/// Thread-safe.
class Session
{
public:
    struct Options
    {
        /// The store's own, unwrapped entry ID, and what clients see of it.
        Bytes storeEntryId;
        Bytes wrappedEntryId;
        /// Whether the store presents itself as one that knows wide strings.
        bool unicode = false;
        /// Whether the client asked to write.
        bool writable = false;
    };
    Session(std::shared_ptr<StoreCore> core, const MapiMemory& memory, ComPtr<IMAPISupport> support, Options options);

    std::shared_ptr<StoreCore> Core() const;
    ComPtr<IMAPISupport> Support() const;
    const MapiMemory& Memory() const noexcept { return m_memory; }
    /// The store's path, which outlives the logon's end.
    const std::wstring& Path() const noexcept { return m_path; }
    const Bytes& WrappedEntryId() const noexcept { return m_options.wrappedEntryId; }
    bool Writable() const noexcept { return m_writable; }
    /// For a further logon of the same session that asks to write.
    void MakeWritable() noexcept { m_writable = m_canWrite; }

    /// The logon's one store object; null once that is gone.
    ComPtr<IMsgStore> Store() const;
    /// Set by the store object at its beginning, and at its end with null.
    void SetStore(StoreObject* store);

    /// Tells the transports of the store's end, once in the life of the logon, and gives what MAPI says to that
    /// (LOGOFF_COMPLETE when it has been said before). `flags` is one of LOGOFF_ABORT and its like.
    ULONG LogoffTransports(ULONG flags) noexcept;
    /// Ends the logon: gives back the store's contents and MAPI's support object. May be called again, from within that
    /// object's release as well.
    void Close() noexcept;
    bool IsOpen() const noexcept;

    /// `flags` without MAPI_UNICODE for a store that presents itself as an ANSI store.
    ULONG Flags(ULONG flags) const noexcept { return m_options.unicode ? flags : flags & ~MAPI_UNICODE; }
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
    MapiMemory m_memory;
    Options m_options;
    Bytes m_recordKey;
    std::wstring m_path;
    bool m_canWrite;
    std::atomic<bool> m_writable;
    mutable Mutex m_lock;
    std::shared_ptr<StoreCore> m_core;
    ComPtr<IMAPISupport> m_support;
    bool m_transportsTold = false;
    mutable Mutex m_storeLock;
    StoreObject* m_store = nullptr;
};

/// The current time as PT_SYSTIME keeps it.
PropValue Now(ULONG tag);
} // namespace Testbed::Pst
