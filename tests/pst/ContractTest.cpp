// What MAPI's pages say of stores, folders, tables and properties, on the provider's objects.
#include "tests/pst/PstStore.h"

#include <algorithm>

namespace Tests
{
namespace
{
constexpr ULONG readOnlyLogon = MDB_NO_DIALOG | MAPI_UNICODE | logonUnicode;

LPTSTR Text(const wchar_t* text)
{
    return const_cast<LPTSTR>(text);
}

class ContractTest : public PstTest
{
protected:
    PstStore New(const wchar_t* name = L"new.pst") { return Open(Path(name)); }

    static ComPtr<IMAPIFolder> CreateFolder(IMAPIFolder& parent, const wchar_t* name, ULONG type = FOLDER_GENERIC)
    {
        ComPtr<IMAPIFolder> folder;
        Check(parent.CreateFolder(type, Text(name), nullptr, nullptr, MAPI_UNICODE, folder.Put()),
              L"CreateFolder failed");
        return folder;
    }

    static ComPtr<IMessage> CreateMessage(PstStore& store, IMAPIFolder& folder, const std::wstring& subject,
                                          LONG importance = 1)
    {
        ComPtr<IMessage> message;
        Check(folder.CreateMessage(nullptr, 0, message.Put()), L"CreateMessage failed");
        Check(
            store.Set(*message, {PropValue::String(PR_SUBJECT_W, subject), PropValue::Long(PR_IMPORTANCE, importance)}),
            L"SetProps failed");
        Check(message->SaveChanges(KEEP_OPEN_READWRITE), L"SaveChanges failed");
        return message;
    }

    static std::vector<std::wstring> Subjects(PstStore& store, IMAPIFolder& folder)
    {
        std::vector<std::wstring> subjects;
        for (const Row& row : store.Contents(folder))
            subjects.push_back(TextOf(row, PR_SUBJECT));
        return subjects;
    }

    // A list of one entry, over bytes that have to live as long.
    struct OneEntry
    {
        explicit OneEntry(Bytes id) : bytes(std::move(id)), entry{static_cast<ULONG>(bytes.size()), bytes.data()} {}
        Bytes bytes;
        SBinary entry;
        ENTRYLIST list{1, &entry};
    };
};

TEST_F(ContractTest, AStoreOpenedWithoutWriteRefusesEveryChange)
{
    Bytes id;
    {
        PstStore store = New();
        const auto message = CreateMessage(store, *CreateFolder(*store.Subtree(), L"Mail"), L"One");
        id = store.EntryId(*message);
    }
    PstStore store = Open(Path(L"new.pst"), readOnlyLogon);
    const LONG mask = store.Prop(store.Object(), PR_STORE_SUPPORT_MASK).AsLong();
    EXPECT_EQ(mask & (STORE_MODIFY_OK | STORE_CREATE_OK), 0);
    EXPECT_NE(mask & STORE_READONLY, 0);
    EXPECT_EQ(store.Prop(store.Object(), PR_ACCESS_LEVEL).AsLong(), 0);
    EXPECT_EQ(store.Set(store.Object(), {PropValue::String(PR_COMMENT_W, L"x")}), MAPI_E_NO_ACCESS);
    ComPtr<IStream> stream;
    EXPECT_EQ(store.Object().OpenProperty(PR_DISPLAY_NAME_W, &IID_IStream, STGM_READWRITE, MAPI_MODIFY,
                                          stream.PutAs<IUnknown>()),
              MAPI_E_NO_ACCESS);
    ULONG type = 0;
    ComPtr<IUnknown> opened;
    EXPECT_EQ(store.Object().OpenEntry(0, nullptr, nullptr, MAPI_MODIFY, &type, opened.Put()), MAPI_E_NO_ACCESS);
    // The best access is to read.
    const auto folder = store.Folder(L"Mail");
    EXPECT_EQ(store.Prop(*folder, PR_ACCESS_LEVEL).AsLong(), 0);
    EXPECT_EQ(store.Prop(*folder, PR_ACCESS).AsLong(), MAPI_ACCESS_READ);
    ComPtr<IMAPIFolder> created;
    EXPECT_EQ(folder->CreateFolder(FOLDER_GENERIC, Text(L"x"), nullptr, nullptr, MAPI_UNICODE, created.Put()),
              MAPI_E_NO_ACCESS);
    ComPtr<IMessage> message;
    EXPECT_EQ(folder->CreateMessage(nullptr, 0, message.Put()), MAPI_E_NO_ACCESS);
    OneEntry entry(id);
    EXPECT_EQ(folder->DeleteMessages(&entry.list, 0, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->EmptyFolder(0, nullptr, 0), MAPI_E_NO_ACCESS);
    const auto read = store.Open<IMessage>(id, MAPI_BEST_ACCESS);
    EXPECT_EQ(store.Set(*read, {PropValue::Long(PR_IMPORTANCE, 2)}), MAPI_E_NO_ACCESS);
    EXPECT_EQ(read->SetReadFlag(CLEAR_READ_FLAG), MAPI_E_NO_ACCESS);
    EXPECT_EQ(store.Object().SetReceiveFolder(Text(L"IPM"), MAPI_UNICODE, 0, nullptr), MAPI_E_NO_ACCESS);
}

TEST_F(ContractTest, AFolderOpenedWithoutModifyIsReadOnly)
{
    PstStore store = New();
    const auto writable = CreateFolder(*store.Subtree(), L"Mail");
    const Bytes messageId = store.EntryId(*CreateMessage(store, *writable, L"One"));
    CreateFolder(*writable, L"Below");
    const auto folder = store.Open<IMAPIFolder>(store.EntryId(*writable));
    EXPECT_EQ(store.Prop(*folder, PR_ACCESS_LEVEL).AsLong(), 0);
    EXPECT_EQ(store.Prop(*writable, PR_ACCESS_LEVEL).AsLong(), MAPI_MODIFY);
    EXPECT_EQ(store.Set(*folder, {PropValue::String(PR_COMMENT_W, L"x")}), MAPI_E_NO_ACCESS);
    ComPtr<IMessage> message;
    EXPECT_EQ(folder->CreateMessage(nullptr, 0, message.Put()), MAPI_E_NO_ACCESS);
    ComPtr<IMAPIFolder> created;
    EXPECT_EQ(folder->CreateFolder(FOLDER_GENERIC, Text(L"Below"), nullptr, nullptr, MAPI_UNICODE | OPEN_IF_EXISTS,
                                   created.Put()),
              MAPI_E_NO_ACCESS);
    OneEntry entry(messageId);
    EXPECT_EQ(folder->DeleteMessages(&entry.list, 0, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->SetReadFlags(&entry.list, 0, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->EmptyFolder(0, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->CopyMessages(&entry.list, &IID_IMAPIFolder, writable.Get(), 0, nullptr, MESSAGE_MOVE),
              MAPI_E_NO_ACCESS);
    // Nor is it a destination.
    EXPECT_EQ(writable->CopyMessages(&entry.list, &IID_IMAPIFolder, folder.Get(), 0, nullptr, MESSAGE_MOVE),
              MAPI_E_NO_ACCESS);
    EXPECT_EQ(store.Contents(*writable).size(), 1u);
    EXPECT_EQ(store.Set(*store.Open<IMAPIFolder>(store.EntryId(*folder), MAPI_MODIFY),
                        {PropValue::String(PR_COMMENT_W, L"x")}),
              S_OK);
}

TEST_F(ContractTest, LongValuesComeByOpenPropertyAlone)
{
    PstStore store = New();
    const auto folder = CreateFolder(*store.Subtree(), L"Mail");
    const auto message = CreateMessage(store, *folder, std::wstring(300, L's'));
    const std::wstring body(5000, L'b');
    ASSERT_EQ(store.Set(*message, {PropValue::String(PR_BODY_W, body)}), S_OK);
    ASSERT_EQ(message->SaveChanges(0), S_OK);
    const auto read = store.Open<IMessage>(BytesOf(store.Contents(*folder).at(0), PR_ENTRYID));
    EXPECT_EQ(store.Prop(*read, PR_BODY_W).AsLong(), MAPI_E_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(FromStreamBytes(PR_BODY_W, store.Stream(*read, PR_BODY_W)).AsText(), body);
    ComPtr<IStream> stream;
    EXPECT_EQ(
        read->OpenProperty(PROP_TAG(PT_UNSPECIFIED, PROP_ID(PR_BODY)), &IID_IStream, 0, 0, stream.PutAs<IUnknown>()),
        MAPI_E_INVALID_PARAMETER);
    // A folder's table shows the beginning, the message itself the whole.
    EXPECT_EQ(TextOf(store.Contents(*folder).at(0), PR_SUBJECT), std::wstring(255, L's'));
    EXPECT_EQ(store.Prop(*read, PR_SUBJECT_W).AsText(), std::wstring(300, L's'));
}

TEST_F(ContractTest, CountsFollowEveryChange)
{
    PstStore store = Open(Copy(Location(L"KIVNST_TEST_DATA") / L"pst" / L"sample1.pst"));
    const auto from = store.Folder(L"Sample1");
    const auto to = CreateFolder(*store.Subtree(), L"Target");
    const auto counts = [&](IMAPIFolder& folder)
    {
        return std::vector<LONG>{store.Prop(folder, PR_CONTENT_COUNT).AsLong(),
                                 store.Prop(folder, PR_CONTENT_UNREAD).AsLong(),
                                 store.Prop(folder, PR_ASSOC_CONTENT_COUNT).AsLong()};
    };
    using Counts = std::vector<LONG>;
    EXPECT_EQ(counts(*from), (Counts{1, 0, 0}));
    EXPECT_EQ(counts(*to), (Counts{0, 0, 0}));
    OneEntry own(BytesOf(store.Contents(*from).at(0), PR_ENTRYID));
    ASSERT_EQ(from->SetReadFlags(&own.list, 0, nullptr, CLEAR_READ_FLAG), S_OK);
    EXPECT_EQ(counts(*from), (Counts{1, 1, 0}));
    ASSERT_EQ(from->CopyMessages(&own.list, &IID_IMAPIFolder, to.Get(), 0, nullptr, MESSAGE_MOVE), S_OK);
    EXPECT_EQ(counts(*from), (Counts{0, 0, 0}));
    EXPECT_EQ(counts(*to), (Counts{1, 1, 0}));
    const auto message = CreateMessage(store, *from, L"New");
    ComPtr<IMessage> hidden;
    ASSERT_EQ(from->CreateMessage(nullptr, MAPI_ASSOCIATED, hidden.Put()), S_OK);
    ASSERT_EQ(hidden->SaveChanges(0), S_OK);
    EXPECT_EQ(counts(*from), (Counts{1, 0, 1}));
    ASSERT_EQ(message->SetReadFlag(CLEAR_READ_FLAG), S_OK);
    EXPECT_EQ(counts(*from), (Counts{1, 1, 1}));
    ASSERT_EQ(to->CopyMessages(&own.list, &IID_IMAPIFolder, from.Get(), 0, nullptr, MESSAGE_MOVE), S_OK);
    EXPECT_EQ(counts(*from), (Counts{2, 2, 1}));
    ASSERT_EQ(from->DeleteMessages(&own.list, 0, nullptr, 0), S_OK);
    EXPECT_EQ(counts(*from), (Counts{1, 1, 1}));
    ASSERT_EQ(from->EmptyFolder(0, nullptr, DEL_ASSOCIATED), S_OK);
    EXPECT_EQ(counts(*from), (Counts{0, 0, 0}));
}

class Sink final : public ComObject<IMAPIAdviseSink, &IID_IMAPIAdviseSink>
{
public:
    STDMETHODIMP_(ULONG) OnNotify(ULONG count, LPNOTIFICATION notifications) override
    {
        for (ULONG index = 0; index < count; ++index)
        {
            const TABLE_NOTIFICATION& table = notifications[index].info.tab;
            events.push_back(table.ulTableEvent);
            instances.push_back(PropValue::From(table.propIndex).AsBytes());
            priors.push_back(PropValue::From(table.propPrior).AsBytes());
            rows.emplace_back(CopyProps(table.row.cValues, table.row.lpProps));
        }
        return S_OK;
    }

    std::vector<ULONG> events;
    std::vector<Bytes> instances;
    std::vector<Bytes> priors;
    std::vector<PropertyBag> rows;
};

TEST_F(ContractTest, TableNotificationsNameTheRow)
{
    PstStore store = New();
    const auto folder = CreateFolder(*store.Subtree(), L"Mail");
    const auto first = CreateMessage(store, *folder, L"First");
    ComPtr<IMAPITable> table;
    ASSERT_EQ(folder->GetContentsTable(MAPI_UNICODE, table.Put()), S_OK);
    const auto sink = MakeObject<Sink>();
    ULONG_PTR connection = 0;
    ASSERT_EQ(table->Advise(fnevTableModified, sink.Get(), &connection), S_OK);
    const auto second = CreateMessage(store, *folder, L"Second");
    ASSERT_EQ(store.Set(*first, {PropValue::String(PR_SUBJECT_W, L"Changed")}), S_OK);
    ASSERT_EQ(first->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    OneEntry gone(store.EntryId(*second));
    const auto rows = store.Contents(*folder);
    ASSERT_EQ(rows.size(), 2u);
    ASSERT_EQ(folder->DeleteMessages(&gone.list, 0, nullptr, 0), S_OK);
    ASSERT_EQ(sink->events, (std::vector<ULONG>{TABLE_ROW_ADDED, TABLE_ROW_MODIFIED, TABLE_ROW_DELETED}));
    const Bytes firstInstance = BytesOf(rows[0], PR_INSTANCE_KEY);
    const Bytes secondInstance = BytesOf(rows[1], PR_INSTANCE_KEY);
    EXPECT_EQ(sink->instances, (std::vector<Bytes>{secondInstance, firstInstance, secondInstance}));
    EXPECT_EQ(sink->priors, (std::vector<Bytes>{firstInstance, {}, {}}));
    EXPECT_EQ(TextOf(sink->rows[0], PR_SUBJECT), L"Second");
    EXPECT_EQ(TextOf(sink->rows[1], PR_SUBJECT), L"Changed");
    EXPECT_TRUE(sink->rows[2].Values().empty());
    EXPECT_EQ(table->Unadvise(connection), S_OK);
    CreateMessage(store, *folder, L"Third");
    EXPECT_EQ(sink->events.size(), 3u);
}

TEST_F(ContractTest, RowsThatARestrictionHidesAreNotToldOf)
{
    PstStore store = New();
    const auto folder = CreateFolder(*store.Subtree(), L"Mail");
    ComPtr<IMAPITable> table;
    ASSERT_EQ(folder->GetContentsTable(MAPI_UNICODE, table.Put()), S_OK);
    SPropValue value{};
    value.ulPropTag = PR_IMPORTANCE;
    value.Value.l = 2;
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty = {RELOP_EQ, PR_IMPORTANCE, &value};
    ASSERT_EQ(table->Restrict(&restriction, 0), S_OK);
    const auto sink = MakeObject<Sink>();
    ULONG_PTR connection = 0;
    ASSERT_EQ(table->Advise(fnevTableModified, sink.Get(), &connection), S_OK);
    const auto message = CreateMessage(store, *folder, L"Hidden", 1);
    EXPECT_TRUE(sink->events.empty());
    ASSERT_EQ(store.Set(*message, {PropValue::Long(PR_IMPORTANCE, 2)}), S_OK);
    ASSERT_EQ(message->SaveChanges(0), S_OK);
    EXPECT_EQ(sink->events, std::vector<ULONG>{TABLE_ROW_ADDED});
}

class SearchTest : public ContractTest
{
protected:
    // Messages of importance 2 are what is searched for.
    SearchTest()
    {
        m_value.ulPropTag = PR_IMPORTANCE;
        m_value.Value.l = 2;
        m_restriction.rt = RES_PROPERTY;
        m_restriction.res.resProperty = {RELOP_EQ, PR_IMPORTANCE, &m_value};
    }

    static ComPtr<IMAPIFolder> CreateSearch(PstStore& store, const wchar_t* name = L"Found")
    {
        const auto finder =
            store.Open<IMAPIFolder>(store.Prop(store.Object(), PR_FINDER_ENTRYID).AsBytes(), MAPI_MODIFY);
        return CreateFolder(*finder, name, FOLDER_SEARCH);
    }

    SPropValue m_value{};
    SRestriction m_restriction{};
};

TEST_F(SearchTest, FindsWhatMatchesAndFollowsChanges)
{
    Bytes searchId;
    {
        PstStore store = New();
        EXPECT_NE(store.Prop(store.Object(), PR_STORE_SUPPORT_MASK).AsLong() & STORE_SEARCH_OK, 0);
        const auto top = CreateFolder(*store.Subtree(), L"Mail");
        const auto below = CreateFolder(*top, L"Below");
        CreateMessage(store, *top, L"Top", 2);
        CreateMessage(store, *below, L"Deep", 2);
        CreateMessage(store, *top, L"Other", 1);
        const auto search = CreateSearch(store);
        EXPECT_EQ(store.Prop(*search, PR_FOLDER_TYPE).AsLong(), FOLDER_SEARCH);
        EXPECT_TRUE(Subjects(store, *search).empty());
        OneEntry where(store.EntryId(*top));
        ASSERT_EQ(search->SetSearchCriteria(&m_restriction, &where.list, SHALLOW_SEARCH), S_OK);
        EXPECT_EQ(Subjects(store, *search), std::vector<std::wstring>{L"Top"});
        ASSERT_EQ(search->SetSearchCriteria(nullptr, nullptr, RECURSIVE_SEARCH), S_OK);
        EXPECT_EQ(Subjects(store, *search), (std::vector<std::wstring>{L"Top", L"Deep"}));
        EXPECT_EQ(store.Prop(*search, PR_CONTENT_COUNT).AsLong(), 2);
        // A row says where the message lies, not where it was found.
        EXPECT_EQ(BytesOf(store.Contents(*search).at(1), PR_PARENT_ENTRYID), store.EntryId(*below));
        CreateMessage(store, *below, L"Later", 2);
        EXPECT_EQ(Subjects(store, *search).size(), 3u);
        searchId = store.EntryId(*search);
    }
    PstStore store = Open(Path(L"new.pst"));
    const auto search = store.Open<IMAPIFolder>(searchId, MAPI_MODIFY);
    EXPECT_EQ(Subjects(store, *search).size(), 3u);
    // What is deleted there is deleted where it lies; the search folder's own end takes nothing with it.
    OneEntry gone(BytesOf(store.Contents(*search).at(0), PR_ENTRYID));
    ASSERT_EQ(search->DeleteMessages(&gone.list, 0, nullptr, 0), S_OK);
    EXPECT_EQ(Subjects(store, *store.Folder(L"Mail")), std::vector<std::wstring>{L"Other"});
    const auto finder = store.Open<IMAPIFolder>(store.Prop(store.Object(), PR_FINDER_ENTRYID).AsBytes(), MAPI_MODIFY);
    ASSERT_EQ(finder->DeleteFolder(static_cast<ULONG>(searchId.size()), reinterpret_cast<LPENTRYID>(searchId.data()), 0,
                                   nullptr, 0),
              S_OK);
    EXPECT_EQ(store.Contents(*store.Folder(L"Mail\\Below")).size(), 2u);
}

TEST_F(SearchTest, AStoppedSearchKeepsWhatItFound)
{
    PstStore store = New();
    const auto top = CreateFolder(*store.Subtree(), L"Mail");
    CreateMessage(store, *top, L"One", 2);
    const auto search = CreateSearch(store);
    OneEntry where(store.EntryId(*top));
    ASSERT_EQ(search->SetSearchCriteria(&m_restriction, &where.list, 0), S_OK);
    ASSERT_EQ(search->SetSearchCriteria(nullptr, nullptr, STOP_SEARCH), S_OK);
    CreateMessage(store, *top, L"Two", 2);
    EXPECT_EQ(Subjects(store, *search), std::vector<std::wstring>{L"One"});
    ULONG state = 0;
    ASSERT_EQ(search->GetSearchCriteria(0, nullptr, nullptr, &state), S_OK);
    EXPECT_EQ(state & SEARCH_RUNNING, 0u);
    ASSERT_EQ(search->SetSearchCriteria(nullptr, nullptr, RESTART_SEARCH), S_OK);
    EXPECT_EQ(Subjects(store, *search).size(), 2u);
}

TEST_F(SearchTest, GivesItsCriteriaBack)
{
    PstStore store = New();
    const auto search = CreateSearch(store);
    const MapiMemory& memory = store.Memory();
    MapiBlock<SRestriction> restriction(memory);
    MapiBlock<ENTRYLIST> list(memory);
    ULONG state = 0;
    EXPECT_EQ(search->GetSearchCriteria(0, restriction.Put(), list.Put(), &state), MAPI_E_NOT_INITIALIZED);
    OneEntry where(store.EntryId(*store.Subtree()));
    SRestriction both[] = {m_restriction, {}};
    both[1].rt = RES_EXIST;
    both[1].res.resExist.ulPropTag = PR_SUBJECT_W;
    SRestriction all{};
    all.rt = RES_AND;
    all.res.resAnd = {2, both};
    ASSERT_EQ(search->SetSearchCriteria(&all, &where.list, RECURSIVE_SEARCH | FOREGROUND_SEARCH), S_OK);
    ASSERT_EQ(search->GetSearchCriteria(MAPI_UNICODE, restriction.Put(), list.Put(), &state), S_OK);
    EXPECT_EQ(state & (SEARCH_RUNNING | SEARCH_RECURSIVE | SEARCH_FOREGROUND),
              static_cast<ULONG>(SEARCH_RUNNING | SEARCH_RECURSIVE | SEARCH_FOREGROUND));
    ASSERT_EQ(restriction->rt, static_cast<ULONG>(RES_AND));
    ASSERT_EQ(restriction->res.resAnd.cRes, 2u);
    const SPropertyRestriction& first = restriction->res.resAnd.lpRes[0].res.resProperty;
    EXPECT_EQ(first.ulPropTag, static_cast<ULONG>(PR_IMPORTANCE));
    EXPECT_EQ(first.lpProp->Value.l, 2);
    EXPECT_EQ(restriction->res.resAnd.lpRes[1].res.resExist.ulPropTag, static_cast<ULONG>(PR_SUBJECT_W));
    ASSERT_EQ(list->cValues, 1u);
    EXPECT_EQ(Bytes(list->lpbin[0].lpb, list->lpbin[0].lpb + list->lpbin[0].cb), where.bytes);
}

TEST_F(SearchTest, RefusesWhatCannotBeSearched)
{
    PstStore store = New();
    const auto folder = CreateFolder(*store.Subtree(), L"Mail");
    const auto search = CreateSearch(store);
    OneEntry where(store.EntryId(*folder));
    EXPECT_EQ(search->SetSearchCriteria(nullptr, &where.list, 0), MAPI_E_NOT_INITIALIZED);
    EXPECT_EQ(search->SetSearchCriteria(&m_restriction, nullptr, 0), MAPI_E_NOT_INITIALIZED);
    EXPECT_EQ(search->SetSearchCriteria(&m_restriction, &where.list, STOP_SEARCH | RESTART_SEARCH),
              MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(search->SetSearchCriteria(&m_restriction, &where.list, RECURSIVE_SEARCH | SHALLOW_SEARCH),
              MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(search->SetSearchCriteria(&m_restriction, &where.list, 0x40000000), MAPI_E_UNKNOWN_FLAGS);
    SRestriction sub{};
    sub.rt = RES_SUBRESTRICTION;
    sub.res.resSub = {PR_MESSAGE_RECIPIENTS, &m_restriction};
    EXPECT_EQ(search->SetSearchCriteria(&sub, &where.list, 0), MAPI_E_TOO_COMPLEX);
    EXPECT_EQ(folder->SetSearchCriteria(&m_restriction, &where.list, 0), MAPI_E_NO_SUPPORT);
    // A search folder is neither searched nor filled, and has nothing below it.
    OneEntry itself(store.EntryId(*search));
    EXPECT_EQ(search->SetSearchCriteria(&m_restriction, &itself.list, 0), MAPI_E_INVALID_ENTRYID);
    ComPtr<IMessage> message;
    EXPECT_EQ(search->CreateMessage(nullptr, 0, message.Put()), MAPI_E_NO_ACCESS);
    ComPtr<IMAPIFolder> below;
    EXPECT_EQ(search->CreateFolder(FOLDER_GENERIC, Text(L"x"), nullptr, nullptr, MAPI_UNICODE, below.Put()),
              MAPI_E_NO_ACCESS);
}
} // namespace
} // namespace Tests
