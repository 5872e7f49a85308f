// The provider in memory.
#include "benchmarks/Provider.h"

#include "nst/KivNstCore.h"
#include "tests/common/InertObjects.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <vector>

namespace Benchmarks
{
namespace
{

/// The counted base of all objects here: answers for `own` alone.
template <class Inert>
class Object : public Inert
{
public:
    explicit Object(std::initializer_list<IID> own) : m_own(own) {}
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        for (const IID& iid : m_own)
        {
            if (riid != iid)
                continue;
            *object = this;
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
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
    virtual ~Object() = default;

private:
    /// Not of the heap: an object is one allocation.
    struct Own
    {
        explicit Own(std::initializer_list<IID> list) : count(list.size())
        {
            std::copy(list.begin(), list.end(), iids.begin());
        }
        const IID* begin() const noexcept { return iids.data(); }
        const IID* end() const noexcept { return iids.data() + count; }

        std::array<IID, 4> iids = {};
        std::size_t count;
    };

    Own m_own;
    ULONG m_references = 1;
    /// No other object's count lies on the same cache line.
    std::array<BYTE, 64> m_padding = {};
};

class Support final : public Object<Tests::InertSupport>
{
public:
    Support() : Object({IID_IMAPISup, IID_IUnknown}) {}

    HRESULT STDMETHODCALLTYPE DoCopyTo(LPCIID, LPVOID, ULONG, LPCIID, LPSPropTagArray, ULONG_PTR, LPMAPIPROGRESS,
                                       LPCIID, LPVOID, ULONG, LPSPropProblemArray*) override
    {
        return S_OK;
    }
};

constexpr BYTE folderMark = 'f';
constexpr BYTE messageMark = 'm';

/// An entry ID whose first byte behind the flags says what it opens.
struct EntryId
{
    explicit EntryId(BYTE mark) { bytes[4] = mark; }
    std::array<BYTE, entryIdSize> bytes = {};
};

EntryId folderEntryId(folderMark);
EntryId messageEntryId(messageMark);

/// Writes values and what they point to into one block.
class Writer
{
public:
    /// `payload` are the bytes of what `count` values may point to. Null values where there is no memory.
    Writer(ULONG count, ULONG payload)
    {
        void* block = nullptr;
        const ULONG size = count * static_cast<ULONG>(sizeof(SPropValue)) + payload;
        if (SUCCEEDED(GetMapi().allocateBuffer(size, &block)))
        {
            values = static_cast<SPropValue*>(block);
            m_payload = static_cast<BYTE*>(block) + count * sizeof(SPropValue);
        }
    }
    void* Put(const void* bytes, std::size_t size) noexcept
    {
        void* const place = m_payload;
        std::memcpy(place, bytes, size);
        m_payload += (size + 7) & ~std::size_t{7};
        return place;
    }

    SPropValue* values = nullptr;

private:
    BYTE* m_payload = nullptr;
};

constexpr wchar_t subject[] = L"Minutes of the meeting on the second quarter";
constexpr wchar_t sender[] = L"A. N. Other";
constexpr wchar_t messageClass[] = L"IPM.Note";

/// What a mail client shows of a folder's messages, and what it needs to open them.
constexpr ULONG columns[] = {
    PR_ENTRYID,      PR_INSTANCE_KEY,  PR_SUBJECT_W,  PR_SENDER_NAME_W, PR_MESSAGE_CLASS_W, PR_MESSAGE_DELIVERY_TIME,
    PR_MESSAGE_SIZE, PR_MESSAGE_FLAGS, PR_IMPORTANCE, PR_SENSITIVITY,   PR_HASATTACH,       PR_CLIENT_SUBMIT_TIME,
};
constexpr ULONG columnCount = static_cast<ULONG>(std::size(columns));
constexpr ULONG rowPayload = 32 + 8 + 96 + 24 + 24;

SPropValue* MakeRow(ULONG row)
{
    Writer writer(columnCount, rowPayload);
    for (ULONG column = 0; writer.values && column < columnCount; ++column)
    {
        SPropValue& value = writer.values[column];
        value.ulPropTag = columns[column];
        value.dwAlignPad = 0;
        switch (columns[column])
        {
        case PR_ENTRYID:
        {
            EntryId id(messageMark);
            std::memcpy(&id.bytes[8], &row, sizeof(row));
            value.Value.bin = {entryIdSize, static_cast<BYTE*>(writer.Put(id.bytes.data(), entryIdSize))};
            break;
        }
        case PR_INSTANCE_KEY:
            value.Value.bin = {sizeof(row), static_cast<BYTE*>(writer.Put(&row, sizeof(row)))};
            break;
        case PR_SUBJECT_W:
            value.Value.lpszW = static_cast<wchar_t*>(writer.Put(subject, sizeof(subject)));
            break;
        case PR_SENDER_NAME_W:
            value.Value.lpszW = static_cast<wchar_t*>(writer.Put(sender, sizeof(sender)));
            break;
        case PR_MESSAGE_CLASS_W:
            value.Value.lpszW = static_cast<wchar_t*>(writer.Put(messageClass, sizeof(messageClass)));
            break;
        default:
            value.Value.li.QuadPart = row;
            break;
        }
    }
    return writer.values;
}

class Table final : public Object<Tests::InertTable>
{
public:
    explicit Table(ULONG rows) : Object({IID_IMAPITable, IID_IUnknown}), m_rows(rows) {}

    HRESULT STDMETHODCALLTYPE Abort() override { return S_OK; }
    HRESULT STDMETHODCALLTYPE SeekRow(BOOKMARK, LONG row, LONG*) override
    {
        m_next = static_cast<ULONG>(row);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE QueryRows(LONG count, ULONG, LPSRowSet* result) override
    {
        const ULONG given = std::min<ULONG>(static_cast<ULONG>(count), m_rows - m_next);
        void* block = nullptr;
        const ULONG size = static_cast<ULONG>(offsetof(SRowSet, aRow)) + given * static_cast<ULONG>(sizeof(SRow));
        if (const SCODE code = GetMapi().allocateBuffer(size, &block); FAILED(code))
            return code;
        auto* const set = static_cast<SRowSet*>(block);
        set->cRows = given;
        for (ULONG row = 0; row < given; ++row)
            set->aRow[row] = {0, columnCount, MakeRow(m_next++)};
        *result = set;
        return S_OK;
    }

private:
    ULONG m_rows;
    ULONG m_next = 0;
};

/// The tags that the store answers, sorted: those that a wrapper rewrites, and numbers.
std::vector<ULONG> MakeStoreTags()
{
    std::vector<ULONG> tags = {PR_ACCESS,
                               PR_ACCESS_LEVEL,
                               PR_STORE_SUPPORT_MASK,
                               PR_STORE_UNICODE_MASK,
                               PR_IPM_SUBTREE_ENTRYID,
                               Quillon::Nst::archiveSubtreeEntryIdTag};
    for (ULONG id = 0x6700; tags.size() < 206; ++id)
        tags.push_back(PROP_TAG(PT_LONG, id));
    std::sort(tags.begin(), tags.end());
    return tags;
}

class Store final : public Object<Tests::InertStore>
{
public:
    Store() : Object({IID_IMsgStore, IID_IMAPIProp, IID_IUnknown}) {}

    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray tags, ULONG, ULONG* count, LPSPropValue* result) override
    {
        // Found by its tag, as any provider has to.
        static const std::vector<ULONG> own = MakeStoreTags();
        ULONG payload = 0;
        for (ULONG index = 0; index < tags->cValues; ++index)
            payload += PROP_TYPE(tags->aulPropTag[index]) == PT_BINARY ? entryIdSize : 0;
        Writer writer(tags->cValues, payload);
        if (!writer.values)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        HRESULT hr = S_OK;
        for (ULONG index = 0; index < tags->cValues; ++index)
        {
            const ULONG tag = tags->aulPropTag[index];
            SPropValue& value = writer.values[index];
            value.ulPropTag = tag;
            value.dwAlignPad = 0;
            const auto found = std::lower_bound(own.begin(), own.end(), tag);
            if (found == own.end() || *found != tag)
            {
                value.ulPropTag = PROP_TAG(PT_ERROR, PROP_ID(tag));
                value.Value.err = MAPI_E_NOT_FOUND;
                hr = MAPI_W_ERRORS_RETURNED;
            }
            else if (PROP_TYPE(tag) == PT_BINARY)
                value.Value.bin = {entryIdSize,
                                   static_cast<BYTE*>(writer.Put(folderEntryId.bytes.data(), entryIdSize))};
            else
                value.Value.l = -1;
        }
        *count = tags->cValues;
        *result = writer.values;
        return hr;
    }
    HRESULT STDMETHODCALLTYPE OpenEntry(ULONG, LPENTRYID id, LPCIID, ULONG, ULONG* type, LPUNKNOWN* object) override
    {
        const bool isFolder = reinterpret_cast<const BYTE*>(id)[4] == folderMark;
        *type = isFolder ? MAPI_FOLDER : MAPI_MESSAGE;
        *object = isFolder ? static_cast<IUnknown*>(MakeFolder(100)) : static_cast<IUnknown*>(MakeMessage());
        return S_OK;
    }
};

class Folder final : public Object<Tests::InertFolder>
{
public:
    explicit Folder(ULONG rows)
        : Object({IID_IMAPIFolder, IID_IMAPIContainer, IID_IMAPIProp, IID_IUnknown}),
          m_rows(rows)
    {
    }

    HRESULT STDMETHODCALLTYPE GetContentsTable(ULONG, LPMAPITABLE* table) override
    {
        *table = new Table(m_rows);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetProps(LPSPropTagArray, ULONG, ULONG* count, LPSPropValue* result) override
    {
        constexpr wchar_t name[] = L"Inbox";
        Writer writer(1, sizeof(name) + 8);
        if (!writer.values)
            return MAPI_E_NOT_ENOUGH_MEMORY;
        writer.values->ulPropTag = PR_DISPLAY_NAME_W;
        writer.values->Value.lpszW = static_cast<wchar_t*>(writer.Put(name, sizeof(name)));
        *count = 1;
        *result = writer.values;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE DeleteMessages(LPENTRYLIST, ULONG_PTR, LPMAPIPROGRESS, ULONG) override { return S_OK; }

private:
    ULONG m_rows;
};

class Message final : public Object<Tests::InertMessage>
{
public:
    Message() : Object({IID_IMessage, IID_IMAPIProp, IID_IUnknown}) {}

    HRESULT STDMETHODCALLTYPE SaveChanges(ULONG) override { return S_OK; }
};

template <class Function>
Function Find(HMODULE module, const char* name)
{
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

Mapi LoadMapi()
{
    // Under the name that the library looks for in the process.
    const HMODULE module = LoadLibraryW(L"olmapi32.dll");
    if (!module)
    {
        std::fputs("olmapi32.dll is not beside the program.\n", stderr);
        std::exit(1);
    }
    return {Find<LPALLOCATEBUFFER>(module, "MAPIAllocateBuffer"), Find<LPALLOCATEMORE>(module, "MAPIAllocateMore"),
            Find<LPFREEBUFFER>(module, "MAPIFreeBuffer")};
}

} // namespace

const Mapi& GetMapi()
{
    static const Mapi mapi = LoadMapi();
    return mapi;
}

IMAPITable* MakeTable(ULONG rows)
{
    return new Table(rows);
}

IMAPIFolder* MakeFolder(ULONG rows)
{
    return new Folder(rows);
}

IMessage* MakeMessage()
{
    return new Message;
}

IMsgStore* MakeStore()
{
    return new Store;
}

IMAPISupport* MakeSupport()
{
    return new Support;
}

ENTRYID* GetFolderEntryId() noexcept
{
    return reinterpret_cast<ENTRYID*>(folderEntryId.bytes.data());
}

ENTRYID* GetMessageEntryId() noexcept
{
    return reinterpret_cast<ENTRYID*>(messageEntryId.bytes.data());
}

} // namespace Benchmarks
