// Single calls on an object.
#include "benchmarks/Cases.h"
#include "benchmarks/Forwarders.h"
#include "benchmarks/Provider.h"
#include "nst/NstMapiSupport.h"

#include <memory>
#include <vector>

using namespace Quillon::Nst;

namespace Benchmarks
{
namespace
{

/// A list of tags as MAPI takes it.
class Tags
{
public:
    explicit Tags(const std::vector<ULONG>& tags)
    {
        m_list.push_back(static_cast<ULONG>(tags.size()));
        m_list.insert(m_list.end(), tags.begin(), tags.end());
    }
    SPropTagArray* Get() const noexcept { return reinterpret_cast<SPropTagArray*>(m_list.data()); }

private:
    mutable std::vector<ULONG> m_list;
};

/// So many tags, of which `overridden` are among those that the wrapper rewrites.
std::vector<ULONG> MakeTags(std::size_t count, std::size_t overridden)
{
    constexpr ULONG rewritten[] = {PR_ACCESS, PR_STORE_SUPPORT_MASK, PR_ACCESS_LEVEL, PR_STORE_UNICODE_MASK};
    std::vector<ULONG> tags;
    for (std::size_t index = 0; index < count; ++index)
    {
        tags.push_back(index < overridden ? rewritten[index % 4]
                                          : PROP_TAG(PT_LONG, 0x6700 + static_cast<ULONG>(index)));
    }
    return tags;
}

void AddGetProps(const std::string& name, const Objects<IMsgStore>& stores, const std::vector<ULONG>& list)
{
    const auto tags = std::make_shared<Tags>(list);
    AddCase(name, stores,
            [tags](IMsgStore* store)
            {
                ULONG count = 0;
                SPropValue* values = nullptr;
                store->GetProps(tags->Get(), 0, &count, &values);
                GetMapi().freeBuffer(values);
            });
}

void AddOpenEntry(const std::string& name, const Objects<IMsgStore>& stores, ENTRYID* id)
{
    AddCase(name, stores,
            [id](IMsgStore* store)
            {
                ULONG type = 0;
                IUnknown* object = nullptr;
                store->OpenEntry(entryIdSize, id, nullptr, 0, &type, &object);
                object->Release();
            });
}

} // namespace

void AddSupportCases()
{
    IMAPISupport* const support = MakeSupport();
    const Objects<IMAPISupport> supports{support, ForwardSupport(support), new CNstMapiSupport(support, nullptr)};
    AddCase("pass-through/11 arguments", supports,
            [](IMAPISupport* object)
            {
                object->DoCopyTo(&IID_IMessage, nullptr, 0, nullptr, nullptr, 0, nullptr, &IID_IMessage, nullptr, 0,
                                 nullptr);
            });
}

void AddCallCases(const Wrapping& wrapping)
{
    const std::string prefix = wrapping.prefix;
    IMAPITable* const table = MakeTable(100);
    AddCase(prefix + "pass-through/0 arguments", Objects<IMAPITable>{table, ForwardTable(table), wrapping.table(table)},
            [](IMAPITable* object) { object->Abort(); });

    IMAPISupport* const support = MakeSupport();
    IMsgStore* const store = MakeStore();
    IMsgStore* const storeWrapper = wrapping.store(store, support);
    const Objects<IMsgStore> stores{store, ForwardStore(store), storeWrapper};
    AddCase(prefix + "QueryInterface", stores,
            [](IMsgStore* object)
            {
                void* answer = nullptr;
                object->QueryInterface(IID_IMAPIProp, &answer);
                static_cast<IUnknown*>(answer)->Release();
            });

    for (const std::size_t count : {1, 20, 200})
    {
        const std::string name = prefix + "GetProps/" + std::to_string(count);
        AddGetProps(name + ", none overridden", stores, MakeTags(count, 0));
        if (count > 1)
            AddGetProps(name + ", 4 overridden", stores, MakeTags(count, 4));
        AddGetProps(name + ", all overridden", stores, MakeTags(count, count));
        std::vector<ULONG> withSubtree = MakeTags(count, 0);
        withSubtree.back() = PR_IPM_SUBTREE_ENTRYID;
        AddGetProps(name + ", with the subtree", stores, withSubtree);
    }

    AddOpenEntry(prefix + "OpenEntry/folder", stores, GetFolderEntryId());
    AddOpenEntry(prefix + "OpenEntry/message", stores, GetMessageEntryId());

    IMAPIFolder* const folder = MakeFolder(100);
    AddCase(prefix + "GetContentsTable",
            Objects<IMAPIFolder>{folder, ForwardFolder(folder), wrapping.folder(folder, storeWrapper, support)},
            [](IMAPIFolder* object)
            {
                IMAPITable* answer = nullptr;
                object->GetContentsTable(0, &answer);
                answer->Release();
            });
}

} // namespace Benchmarks
