// What all objects of one logon share.
#include "testbed/pst/Session.h"

#include "common/StoreEntryId.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"
#include "testbed/pst/NewSource.h"
#include "testbed/pst/StoreIdentity.h"

#include <algorithm>
#include <cstring>

namespace Testbed::Pst
{
const wchar_t* const componentName = L"mspst32";

namespace
{
constexpr LONG htmlOk = 0x00010000;
constexpr LONG unicodeOk = 0x00040000;
constexpr LONG localStore = 0x00080000;
constexpr LONG itemProcessing = 0x00200000;
constexpr size_t entryIdSize = 24;
constexpr size_t flagsSize = 4;

// A notification key in a block that is aligned for its count.
class Key
{
public:
    explicit Key(const Bytes& bytes) : m_block((sizeof(ULONG) + bytes.size() + sizeof(ULONG) - 1) / sizeof(ULONG) + 1)
    {
        auto* key = Get();
        key->cb = static_cast<ULONG>(bytes.size());
        std::memcpy(key->ab, bytes.data(), bytes.size());
    }

    NOTIFKEY* Get() { return reinterpret_cast<NOTIFKEY*>(m_block.data()); }

private:
    std::vector<ULONG> m_block;
};
} // namespace

Session::Session(std::shared_ptr<StoreCore> core, const MapiMemory& memory, ComPtr<IMAPISupport> support,
                 Options options)
    : m_memory(memory),
      m_options(std::move(options)),
      m_recordKey(core->RecordKey()),
      m_path(core->Path()),
      m_canWrite(core->Writable()),
      m_writable(m_options.writable && m_canWrite),
      m_core(std::move(core)),
      m_support(std::move(support))
{
}

std::shared_ptr<StoreCore> Session::Core() const
{
    const std::lock_guard lock(m_lock);
    if (!m_core)
        Fail(MAPI_E_INVALID_OBJECT, L"The store has been closed");
    return m_core;
}

ComPtr<IMAPISupport> Session::Support() const
{
    const std::lock_guard lock(m_lock);
    if (!m_support)
        Fail(MAPI_E_INVALID_OBJECT, L"The store has been closed");
    return m_support;
}

ComPtr<IMsgStore> Session::Store() const
{
    const std::lock_guard lock(m_storeLock);
    return m_store ? m_store->Share() : nullptr;
}

void Session::SetStore(StoreObject* store)
{
    const std::lock_guard lock(m_storeLock);
    m_store = store;
}

ULONG Session::LogoffTransports(ULONG flags) noexcept
{
    ComPtr<IMAPISupport> support;
    {
        const std::lock_guard lock(m_lock);
        if (m_transportsTold || !m_support)
            return LOGOFF_COMPLETE;
        m_transportsTold = true;
        support = m_support;
    }
    // A subsystem without transports may refuse; then nothing is under way.
    return SUCCEEDED(support->StoreLogoffTransports(&flags)) ? flags : LOGOFF_COMPLETE;
}

void Session::Close() noexcept
{
    std::shared_ptr<StoreCore> core;
    ComPtr<IMAPISupport> support;
    {
        const std::lock_guard lock(m_lock);
        core.swap(m_core);
        support = std::move(m_support);
        m_support.Reset();
    }
    // The contents first, so that the file is free when MAPI hears of the end, which comes back here by way of Logoff.
    core.reset();
    support.Reset();
}

bool Session::IsOpen() const noexcept
{
    const std::lock_guard lock(m_lock);
    return m_core != nullptr;
}

LONG Session::SupportMask() const noexcept
{
    LONG mask = STORE_ENTRYID_UNIQUE | STORE_SEARCH_OK | STORE_ATTACH_OK | STORE_NOTIFY_OK | STORE_MV_PROPS_OK |
                STORE_RTF_OK | htmlOk | localStore | itemProcessing;
    mask |= Writable() ? STORE_MODIFY_OK | STORE_CREATE_OK : STORE_READONLY;
    mask |= m_options.unicode ? unicodeOk : 0;
    return mask;
}

Bytes Session::EntryId(NodeId node) const
{
    return MakeEntryId(m_recordKey, node);
}

std::optional<NodeId> Session::NodeOf(ULONG size, const ENTRYID* entryId) const
{
    if (!entryId || size != entryIdSize)
        return std::nullopt;
    const auto* bytes = reinterpret_cast<const BYTE*>(entryId);
    const Bytes& key = m_recordKey;
    if (std::memcmp(bytes + flagsSize, key.data(), key.size()) != 0)
        return std::nullopt;
    NodeId node = 0;
    std::memcpy(&node, bytes + entryIdSize - sizeof(node), sizeof(node));
    return node;
}

bool Session::IsStore(ULONG size, const ENTRYID* entryId) const
{
    if (!entryId || size == 0)
        return false;
    const auto* bytes = reinterpret_cast<const BYTE*>(entryId);
    const Bytes given(bytes, bytes + size);
    if (given == m_options.wrappedEntryId || given == m_options.storeEntryId)
        return true;
    const auto unwrapped = UnwrapStoreEntryId(entryId, size);
    return unwrapped && unwrapped->entryId == m_options.storeEntryId;
}

bool Session::SameObject(ULONG size1, const ENTRYID* entryId1, ULONG size2, const ENTRYID* entryId2) const
{
    if (IsStore(size1, entryId1) && IsStore(size2, entryId2))
        return true;
    const auto node1 = NodeOf(size1, entryId1);
    const auto node2 = NodeOf(size2, entryId2);
    return node1 && node2 && *node1 == *node2;
}

Node Session::Require(ULONG size, const ENTRYID* entryId) const
{
    const auto id = NodeOf(size, entryId);
    if (!id)
        Fail(MAPI_E_INVALID_ENTRYID, L"The entry ID is not one of this store");
    const auto node = Core()->Find(*id);
    if (!node)
        Fail(MAPI_E_NOT_FOUND, L"The store does not hold the object");
    return *node;
}

void Session::PutCommon(PropertyBag& bag) const
{
    bag.Put(PropValue::Binary(PR_STORE_ENTRYID, m_options.wrappedEntryId));
    bag.Put(PropValue::Binary(PR_STORE_RECORD_KEY, m_recordKey));
    bag.Put(PropValue::Binary(PR_MAPPING_SIGNATURE, m_recordKey));
    bag.Put(PropValue::Uid(PR_MDB_PROVIDER, providerUid));
    bag.Put(PropValue::Long(PR_STORE_SUPPORT_MASK, SupportMask()));
}

void Session::Notify(ULONG event, const Node& node, const Node* oldNode) const noexcept
{
    try
    {
        const auto pointer = [](Bytes& bytes) { return reinterpret_cast<LPENTRYID>(bytes.data()); };
        const auto size = [](const Bytes& bytes) { return static_cast<ULONG>(bytes.size()); };
        Bytes entryId = EntryId(node.id);
        Bytes parentId = EntryId(node.parent);
        Bytes oldParentId = EntryId(oldNode ? oldNode->parent : node.parent);
        NOTIFICATION notification{};
        notification.ulEventType = event;
        OBJECT_NOTIFICATION& object = notification.info.obj;
        object.ulObjType = IsFolder(node.kind) ? MAPI_FOLDER : MAPI_MESSAGE;
        object.cbEntryID = size(entryId);
        object.lpEntryID = pointer(entryId);
        object.cbParentID = size(parentId);
        object.lpParentID = pointer(parentId);
        if (oldNode)
        {
            object.cbOldID = size(entryId);
            object.lpOldID = pointer(entryId);
            object.cbOldParentID = size(oldParentId);
            object.lpOldParentID = pointer(oldParentId);
        }
        const ComPtr<IMAPISupport> support = Support();
        for (const Bytes& subscribed : {entryId, parentId, m_recordKey})
        {
            ULONG flags = 0;
            support->Notify(Key(subscribed).Get(), 1, &notification, &flags);
        }
        Core()->Announce({node.id, node.parent, oldNode ? oldNode->parent : node.parent});
    }
    catch (...)
    {
        // Without memory for the news there are none; the change itself has been made.
        return;
    }
}

ULONG Session::Advise(ULONG size, const ENTRYID* entryId, ULONG mask, IMAPIAdviseSink* sink) const
{
    if (!sink)
        Fail(MAPI_E_INVALID_PARAMETER, L"Advise needs a sink");
    Bytes key = m_recordKey;
    if (size != 0 && entryId && !IsStore(size, entryId))
        key = EntryId(Require(size, entryId).id);
    ULONG connection = 0;
    Check(Support()->Subscribe(Key(key).Get(), mask, 0, sink, &connection), L"MAPI refuses the subscription");
    return connection;
}

HRESULT Session::Unadvise(ULONG connection) const
{
    return Support()->Unsubscribe(connection);
}

PropValue Now(ULONG tag)
{
    FILETIME time{};
    GetSystemTimeAsFileTime(&time);
    return PropValue::Time(tag, time);
}
} // namespace Testbed::Pst
