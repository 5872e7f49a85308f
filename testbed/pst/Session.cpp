// What all objects of one logon share.
#include "testbed/pst/Session.h"

#include "common/StoreEntryId.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"
#include "testbed/pst/NewSource.h"

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
                 Bytes storeEntryId, Bytes wrappedEntryId, const MAPIUID& provider, bool unicode)
    : m_core(std::move(core)),
      m_memory(memory),
      m_support(std::move(support)),
      m_storeEntryId(std::move(storeEntryId)),
      m_wrappedEntryId(std::move(wrappedEntryId)),
      m_provider(provider),
      m_unicode(unicode)
{
}

LONG Session::SupportMask() const noexcept
{
    LONG mask = STORE_ENTRYID_UNIQUE | STORE_ATTACH_OK | STORE_NOTIFY_OK | STORE_MV_PROPS_OK | STORE_RTF_OK | htmlOk |
                localStore | itemProcessing;
    mask |= Writable() ? STORE_MODIFY_OK | STORE_CREATE_OK : STORE_READONLY;
    mask |= m_unicode ? unicodeOk : 0;
    return mask;
}

Bytes Session::EntryId(NodeId node) const
{
    return MakeEntryId(m_core->RecordKey(), node);
}

std::optional<NodeId> Session::NodeOf(ULONG size, const ENTRYID* entryId) const
{
    if (!entryId || size != entryIdSize)
        return std::nullopt;
    const auto* bytes = reinterpret_cast<const BYTE*>(entryId);
    const Bytes& key = m_core->RecordKey();
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
    if (given == m_wrappedEntryId || given == m_storeEntryId)
        return true;
    const auto unwrapped = UnwrapStoreEntryId(entryId, size);
    return unwrapped && unwrapped->entryId == m_storeEntryId;
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
    const auto node = m_core->Find(*id);
    if (!node)
        Fail(MAPI_E_NOT_FOUND, L"The store does not hold the object");
    return *node;
}

void Session::PutCommon(PropertyBag& bag) const
{
    bag.Put(PropValue::Binary(PR_STORE_ENTRYID, m_wrappedEntryId));
    bag.Put(PropValue::Binary(PR_STORE_RECORD_KEY, m_core->RecordKey()));
    bag.Put(PropValue::Binary(PR_MAPPING_SIGNATURE, m_core->RecordKey()));
    bag.Put(PropValue::Uid(PR_MDB_PROVIDER, m_provider));
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
        for (const Bytes& subscribed : {entryId, parentId, m_core->RecordKey()})
        {
            ULONG flags = 0;
            m_support->Notify(Key(subscribed).Get(), 1, &notification, &flags);
        }
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
    Bytes key = m_core->RecordKey();
    if (size != 0 && entryId && !IsStore(size, entryId))
        key = EntryId(Require(size, entryId).id);
    ULONG connection = 0;
    Check(m_support->Subscribe(Key(key).Get(), mask, 0, sink, &connection), L"MAPI refuses the subscription");
    return connection;
}

HRESULT Session::Unadvise(ULONG connection) const
{
    return m_support->Unsubscribe(connection);
}

PropValue Now(ULONG tag)
{
    FILETIME time{};
    GetSystemTimeAsFileTime(&time);
    return PropValue::Time(tag, time);
}
} // namespace Testbed::Pst
