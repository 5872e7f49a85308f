// The rules by which an archive's properties differ.
#include "tools/browser/Rules.h"

#include "common/StoreEntryId.h"
#include "common/Text.h"
#include "nst/KivNstCore.h"
#include "support/MapiHeaders.h"

#include <map>

using namespace Common;

namespace Browser
{
namespace
{
Bytes BytesOf(const Quillon::Binary& binary)
{
    return binary.GetSize() != 0 ? Bytes(binary.GetBuffer(), binary.GetBuffer() + binary.GetSize()) : Bytes();
}
} // namespace

const char* KindName(CompareKind kind) noexcept
{
    switch (kind)
    {
    case CompareKind::Store:
        return "store";
    case CompareKind::Folder:
        return "folder";
    case CompareKind::Message:
        return "message";
    case CompareKind::Attachment:
        return "attachment";
    default:
        return "table row";
    }
}

std::vector<PropertyPair> PairProperties(const ObjectProperties& before, const ObjectProperties& after)
{
    std::map<ULONG, const PropValue*> byId;
    for (size_t index = 0; index < after.values.size(); ++index)
        byId.emplace(PROP_ID(after.tags[index]), &after.values[index]);
    std::vector<PropertyPair> pairs;
    for (size_t index = 0; index < before.values.size(); ++index)
    {
        const auto found = byId.find(PROP_ID(before.tags[index]));
        pairs.push_back({before.tags[index], &before.values[index], found == byId.end() ? nullptr : found->second});
        if (found != byId.end())
            byId.erase(found);
    }
    for (size_t index = 0; index < after.values.size(); ++index)
        if (byId.contains(PROP_ID(after.tags[index])))
            pairs.push_back({after.tags[index], nullptr, &after.values[index]});
    return pairs;
}

DifferenceRules::DifferenceRules(std::wstring pstModule, Bytes archiveRoot, std::wstring hostModule,
                                 const std::filesystem::path& file, const Setting& setting)
    : m_pstModule(std::move(pstModule)),
      m_archiveRoot(std::move(archiveRoot)),
      m_hostModule(std::move(hostModule)),
      m_setting(setting),
      m_storeEntryId(BytesOf(Quillon::Nst::CreateStoreEntryID(file.wstring().c_str())))
{
}

std::string DifferenceRules::Explain(CompareKind kind, const PropertyPair& pair) const
{
    return pair.before && pair.after ? Explain(kind, pair.tag, *pair.before, *pair.after) : std::string();
}

// Whether an entry ID is the store's, as MAPI wrapped it for its module: then it names the host's module and holds
// the archive's own entry ID instead of the PST provider's.
bool DifferenceRules::IsStoreEntryIdPair(const PropValue& before, const PropValue& after) const
{
    const auto unwrap = [](const PropValue& value)
    { return UnwrapStoreEntryId(value.AsBytes().data(), value.AsBytes().size()); };
    const auto pst = unwrap(before);
    const auto archive = unwrap(after);
    return pst && archive && WideFromAnsi(pst->dllName) == m_pstModule &&
           WideFromAnsi(archive->dllName) == m_hostModule && archive->entryId == m_storeEntryId;
}

std::string DifferenceRules::Explain(CompareKind kind, ULONG tag, const PropValue& before, const PropValue& after) const
{
    if (before.Tag() != after.Tag())
        return {};
    const bool readOnlyObject = kind == CompareKind::Store ? !m_setting.modify : !m_setting.plain && !m_setting.modify;
    const bool isStore = kind == CompareKind::Store;
    const auto isLong = [&after](LONG wanted, const char* rule)
    { return after.AsLong() == wanted ? std::string(rule) : std::string(); };
    switch (tag)
    {
    case PR_ENTRYID:
    case PR_STORE_ENTRYID:
        return (tag == PR_STORE_ENTRYID || isStore) && IsStoreEntryIdPair(before, after)
                   ? "the store's entry ID names the host's module and the archive's own identifier"
                   : "";
    case PR_MDB_PROVIDER:
        return after.AsBytes() == Bytes(Quillon::Nst::providerUid.ab,
                                        Quillon::Nst::providerUid.ab + sizeof(Quillon::Nst::providerUid.ab))
                   ? "the store belongs to the archive's provider"
                   : "";
    case PR_IPM_SUBTREE_ENTRYID:
        return isStore && !m_archiveRoot.empty() && after.AsBytes() == m_archiveRoot
                   ? "the archive root is the top of the information store"
                   : "";
    default:
        break;
    }
    if (kind == CompareKind::Row || kind == CompareKind::Attachment)
        return {};
    const bool hasMask = isStore || kind == CompareKind::Folder;
    if (hasMask && (tag == PR_STORE_SUPPORT_MASK || tag == PR_STORE_UNICODE_MASK))
    {
        const LONG mask = before.AsLong();
        constexpr LONG itemProcessing = static_cast<LONG>(STORE_ITEMPROC);
        if (readOnlyObject)
        {
            return isLong((mask & ~(itemProcessing | STORE_MODIFY_OK | STORE_CREATE_OK)) | STORE_READONLY,
                          "a read-only store: nothing can be modified, created or processed");
        }
        return isStore ? isLong(mask & ~itemProcessing, "an archive's items are not processed") : "";
    }
    if (!readOnlyObject)
        return {};
    switch (tag)
    {
    case PR_ACCESS:
        return isLong(MAPI_ACCESS_READ, "read access only");
    case PR_ACCESS_LEVEL:
        return isLong(0, "open for reading only");
    case PR_RIGHTS:
        return kind == CompareKind::Folder
                   ? isLong((before.AsLong() & 0x400) | 0x1, "the right to read, and to be seen")
                   : "";
    default:
        return {};
    }
}
} // namespace Browser
