// The forwarders. In a unit of their own and without speculation on what they call, as the library is compiled.
#include "benchmarks/Forwarders.h"

#include "tests/common/InertObjects.h"

namespace Benchmarks
{
namespace
{

/// Holds the object that is forwarded to, and counts.
template <class Inert, class I>
class Forwarder : public Inert
{
public:
    explicit Forwarder(I* object) : m_object(object) { m_object->AddRef(); }
    Forwarder(const Forwarder&) = delete;
    Forwarder& operator=(const Forwarder&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        return Forward([&](I* wrapped) { return wrapped->QueryInterface(riid, object); });
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return InterlockedIncrement(&m_references); }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = InterlockedDecrement(&m_references);
        if (left == 0)
            delete this;
        return left;
    }

protected:
    virtual ~Forwarder() { m_object->Release(); }

    /// The one reference pair: the object survives the forwarder's end in the middle of the call.
    template <class Call>
    HRESULT Forward(Call&& call)
    {
        I* const object = m_object;
        object->AddRef();
        const HRESULT hr = call(object);
        object->Release();
        return hr;
    }

private:
    ULONG m_references = 1;
    I* m_object;
};

class TableForwarder final : public Forwarder<Tests::InertTable, IMAPITable>
{
public:
    using Forwarder::Forwarder;

    HRESULT STDMETHODCALLTYPE Abort() override
    {
        return Forward([](IMAPITable* table) { return table->Abort(); });
    }
    HRESULT STDMETHODCALLTYPE SeekRow(BOOKMARK origin, LONG count, LONG* sought) override
    {
        return Forward([&](IMAPITable* table) { return table->SeekRow(origin, count, sought); });
    }
    HRESULT STDMETHODCALLTYPE QueryRows(LONG count, ULONG flags, LPSRowSet* rows) override
    {
        return Forward([&](IMAPITable* table) { return table->QueryRows(count, flags, rows); });
    }
};

class FolderForwarder final : public Forwarder<Tests::InertFolder, IMAPIFolder>
{
public:
    using Forwarder::Forwarder;

    HRESULT STDMETHODCALLTYPE GetContentsTable(ULONG flags, LPMAPITABLE* table) override
    {
        return Forward([&](IMAPIFolder* folder) { return folder->GetContentsTable(flags, table); });
    }
    HRESULT STDMETHODCALLTYPE DeleteMessages(LPENTRYLIST list, ULONG_PTR window, LPMAPIPROGRESS progress,
                                             ULONG flags) override
    {
        return Forward([&](IMAPIFolder* folder) { return folder->DeleteMessages(list, window, progress, flags); });
    }
};

class MessageForwarder final : public Forwarder<Tests::InertMessage, IMessage>
{
public:
    using Forwarder::Forwarder;

    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG flags) override
    {
        return Forward([&](IMessage* message) { return message->SaveChanges(flags); });
    }
};

class StoreForwarder final : public Forwarder<Tests::InertStore, IMsgStore>
{
public:
    using Forwarder::Forwarder;

    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG flags, ULONG* count, LPSPropValue* values) override
    {
        return Forward([&](IMsgStore* store) { return store->GetProps(tags, flags, count, values); });
    }
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG size, LPENTRYID id, LPCIID iid, ULONG flags, ULONG* type,
                                        LPUNKNOWN* object) override
    {
        return Forward([&](IMsgStore* store) { return store->OpenEntry(size, id, iid, flags, type, object); });
    }
};

class SupportForwarder final : public Forwarder<Tests::InertSupport, IMAPISupport>
{
public:
    using Forwarder::Forwarder;

    HRESULT STDMETHODCALLTYPE DoCopyTo(LPCIID sourceInterface, LPVOID source, ULONG excludedCount, LPCIID excludedIids,
                                       LPSPropTagArray excludedTags, ULONG_PTR window, LPMAPIPROGRESS progress,
                                       LPCIID targetInterface, LPVOID target, ULONG flags,
                                       LPSPropProblemArray* problems) override
    {
        return Forward(
            [&](IMAPISupport* support)
            {
                return support->DoCopyTo(sourceInterface, source, excludedCount, excludedIids, excludedTags, window,
                                         progress, targetInterface, target, flags, problems);
            });
    }
};

} // namespace

IMAPITable* ForwardTable(IMAPITable* table)
{
    return new TableForwarder(table);
}

IMAPIFolder* ForwardFolder(IMAPIFolder* folder)
{
    return new FolderForwarder(folder);
}

IMessage* ForwardMessage(IMessage* message)
{
    return new MessageForwarder(message);
}

IMsgStore* ForwardStore(IMsgStore* store)
{
    return new StoreForwarder(store);
}

IMAPISupport* ForwardSupport(IMAPISupport* support)
{
    return new SupportForwarder(support);
}

} // namespace Benchmarks
