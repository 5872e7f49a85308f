// The table engine and restrictions.
#include "tests/testbed/Environment.h"

#include "testbed/common/Table.h"

#include <cstring>

using namespace Testbed;
using Tests::ExpectFailure;
using Tests::Memory;

namespace
{
constexpr ULONG nameTag = PROP_TAG(PT_UNICODE, 0x3001);
constexpr ULONG numberTag = PROP_TAG(PT_LONG, 0x3602);
constexpr ULONG dataTag = PROP_TAG(PT_BINARY, 0x6002);
constexpr ULONG listTag = PROP_TAG(PT_MV_UNICODE, 0x6003);

// Rows that come and go, and that count how often they are fetched.
class TestRows : public RowSource
{
public:
    struct Entry
    {
        std::uint64_t key;
        std::shared_ptr<PropertyBag> properties;
    };

    void Add(const std::wstring& name, std::optional<LONG> number)
    {
        auto bag = std::make_shared<PropertyBag>();
        bag->Put(PropValue::String(nameTag, name));
        if (number)
            bag->Put(PropValue::Long(numberTag, *number));
        entries.push_back({nextKey++, std::move(bag)});
    }

    void Erase(std::wstring name)
    {
        std::erase_if(entries, [&](const Entry& entry) { return entry.properties->Find(0x3001)->AsText() == name; });
        ++generation;
    }

    size_t RowCount() const override { return entries.size(); }
    std::shared_ptr<const PropertySource> Row(size_t index) const override
    {
        ++fetched;
        return entries.at(index).properties;
    }
    std::uint64_t RowKey(size_t index) const override { return entries.at(index).key; }
    std::uint64_t Generation() const override { return generation; }
    std::vector<ULONG> DefaultColumns() const override { return {nameTag, numberTag}; }
    std::vector<ULONG> AllColumns() const override { return {nameTag, numberTag, dataTag}; }

    std::vector<Entry> entries;
    std::uint64_t nextKey = 100;
    std::uint64_t generation = 1;
    mutable size_t fetched = 0;
};

class Table : public testing::Test
{
protected:
    void SetUp() override
    {
        rows->Add(L"delta", 4);
        rows->Add(L"Alpha", 1);
        rows->Add(L"charlie", std::nullopt);
        rows->Add(L"bravo", 1);
        table = CreateTable(rows, Memory(), MAPI_UNICODE, L"test");
    }

    // The first column's texts of the next rows.
    std::vector<std::wstring> Names(LONG count = 100, ULONG flags = 0)
    {
        MapiRows set(Memory());
        EXPECT_EQ(table->QueryRows(count, flags, set.Put()), S_OK);
        std::vector<std::wstring> names;
        for (ULONG row = 0; row < set.Count(); ++row)
            names.push_back(PropValue::From(set[row].lpProps[0]).AsText());
        return names;
    }

    ULONG Position()
    {
        ULONG row = 0;
        ULONG numerator = 0;
        ULONG denominator = 0;
        EXPECT_EQ(table->QueryPosition(&row, &numerator, &denominator), S_OK);
        EXPECT_NE(denominator, 0u);
        return row;
    }

    HRESULT Sort(std::vector<SSortOrder> order)
    {
        std::vector<BYTE> buffer(CbNewSSortOrderSet(order.size() + 1));
        auto* const set = reinterpret_cast<SSortOrderSet*>(buffer.data());
        set->cSorts = static_cast<ULONG>(order.size());
        std::copy(order.begin(), order.end(), set->aSort);
        return table->SortTable(set, 0);
    }

    HRESULT Find(const std::wstring& name, BOOKMARK origin, ULONG flags = 0)
    {
        std::wstring text = name;
        SPropValue value{};
        value.ulPropTag = nameTag;
        value.Value.lpszW = text.data();
        SRestriction restriction{};
        restriction.rt = RES_PROPERTY;
        restriction.res.resProperty = {RELOP_EQ, nameTag, &value};
        return table->FindRow(&restriction, origin, flags);
    }

    std::shared_ptr<TestRows> rows = std::make_shared<TestRows>();
    ComPtr<IMAPITable> table;
};

class Sink final : public ComObject<IMAPIAdviseSink, &IID_IMAPIAdviseSink>
{
public:
    STDMETHODIMP_(ULONG) OnNotify(ULONG count, LPNOTIFICATION notifications) override
    {
        for (ULONG i = 0; i < count; ++i)
        {
            const TABLE_NOTIFICATION& table = notifications[i].info.tab;
            events.push_back(table.ulTableEvent);
            keys.push_back(KeyOf(table.propIndex));
            priors.push_back(KeyOf(table.propPrior));
            cells.push_back(table.row.cValues);
        }
        return 0;
    }

    static std::uint64_t KeyOf(const SPropValue& value)
    {
        std::uint64_t key = 0;
        if (value.ulPropTag == PR_INSTANCE_KEY && value.Value.bin.cb == sizeof(key))
            std::memcpy(&key, value.Value.bin.lpb, sizeof(key));
        return key;
    }

    std::vector<ULONG> events;
    std::vector<std::uint64_t> keys;
    std::vector<std::uint64_t> priors;
    std::vector<ULONG> cells;
};

// Rows whose long values are cut, as those of objects that have the whole.
class CutRows final : public TestRows
{
public:
    bool CutsLongValues() const override { return true; }
};

// The setting that has tables do what others may do, for as long as this lives.
class TableSetting
{
public:
    explicit TableSetting(const wchar_t* value) { SetEnvironmentVariableW(L"KIVNST_TESTBED_TABLES", value); }
    ~TableSetting() { SetEnvironmentVariableW(L"KIVNST_TESTBED_TABLES", nullptr); }
    TableSetting(const TableSetting&) = delete;
    TableSetting& operator=(const TableSetting&) = delete;
};
} // namespace

using Strings = std::vector<std::wstring>;

TEST_F(Table, GivesRowsInTheirNaturalOrderAndStandsBehindThem)
{
    EXPECT_EQ(Names(), (Strings{L"delta", L"Alpha", L"charlie", L"bravo"}));
    EXPECT_EQ(Position(), 4u);
    EXPECT_EQ(Names(), Strings());
}

TEST_F(Table, FetchesOnlyTheRowsThatAreRead)
{
    EXPECT_EQ(Names(2).size(), 2u);
    EXPECT_EQ(rows->fetched, 2u);
    ULONG count = 0;
    EXPECT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 4u);
    EXPECT_EQ(rows->fetched, 2u);
}

TEST_F(Table, ReadsBackwardsInTheTablesOrder)
{
    EXPECT_EQ(table->SeekRow(BOOKMARK_END, 0, nullptr), S_OK);
    EXPECT_EQ(Names(-2), (Strings{L"charlie", L"bravo"}));
    EXPECT_EQ(Position(), 2u);
    EXPECT_EQ(Names(-100), (Strings{L"delta", L"Alpha"}));
    EXPECT_EQ(Names(-1), Strings());
}

TEST_F(Table, KeepsItsPlaceWhenToldTo)
{
    EXPECT_EQ(Names(1, TBL_NOADVANCE), (Strings{L"delta"}));
    EXPECT_EQ(Position(), 0u);
    MapiRows set(Memory());
    EXPECT_EQ(table->QueryRows(0, 0, set.Put()), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(table->QueryRows(1, 0x80, set.Put()), MAPI_E_UNKNOWN_FLAGS);
    EXPECT_EQ(table->QueryRows(1, 0, nullptr), MAPI_E_INVALID_PARAMETER);
}

TEST_F(Table, EachRowIsABlockOfItsOwn)
{
    MapiRows set(Memory());
    ASSERT_EQ(table->QueryRows(2, 0, set.Put()), S_OK);
    // A client may keep a row and free the rest.
    const MapiBlock<SPropValue> kept(Memory(), std::exchange(set->aRow[0].lpProps, nullptr));
    set.Reset();
    EXPECT_EQ(PropValue::From(kept[0]).AsText(), L"delta");
}

TEST_F(Table, MarksMissingCells)
{
    EXPECT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 2, nullptr), S_OK);
    MapiRows set(Memory());
    ASSERT_EQ(table->QueryRows(1, 0, set.Put()), S_OK);
    EXPECT_EQ(set[0].lpProps[1].ulPropTag, PROP_TAG(PT_ERROR, 0x3602));
    EXPECT_EQ(set[0].lpProps[1].Value.err, MAPI_E_NOT_FOUND);
}

TEST_F(Table, ShowsTheColumnsThatAreSet)
{
    SizedSPropTagArray(2, columns) = {2, {numberTag, PR_NULL}};
    EXPECT_EQ(table->SetColumns(reinterpret_cast<SPropTagArray*>(&columns), TBL_BATCH), S_OK);
    MapiRows set(Memory());
    ASSERT_EQ(table->QueryRows(1, 0, set.Put()), S_OK);
    ASSERT_EQ(set[0].cValues, 2u);
    EXPECT_EQ(set[0].lpProps[0].Value.l, 4);
    EXPECT_EQ(set[0].lpProps[1].ulPropTag, PR_NULL);

    MapiBlock<SPropTagArray> shown(Memory());
    EXPECT_EQ(table->QueryColumns(0, shown.Put()), S_OK);
    EXPECT_EQ(shown->cValues, 2u);
    EXPECT_EQ(table->QueryColumns(TBL_ALL_COLUMNS, shown.Put()), S_OK);
    EXPECT_EQ(shown->cValues, 3u);

    EXPECT_EQ(table->SetColumns(nullptr, 0), MAPI_E_INVALID_PARAMETER);
    columns.cValues = 0;
    EXPECT_EQ(table->SetColumns(reinterpret_cast<SPropTagArray*>(&columns), 0), MAPI_E_INVALID_PARAMETER);
}

TEST_F(Table, OpenedWithoutUnicodeShowsNarrowColumns)
{
    table = CreateTable(rows, Memory(), 0, L"test");
    MapiBlock<SPropTagArray> shown(Memory());
    EXPECT_EQ(table->QueryColumns(0, shown.Put()), S_OK);
    EXPECT_EQ(shown->aulPropTag[0], PROP_TAG(PT_STRING8, 0x3001));
    EXPECT_EQ(Names(1), (Strings{L"delta"}));
}

TEST_F(Table, SortsUpAndDownWithMissingValuesLast)
{
    EXPECT_EQ(Sort({{nameTag, TABLE_SORT_ASCEND}}), S_OK);
    EXPECT_EQ(Names(), (Strings{L"Alpha", L"bravo", L"charlie", L"delta"}));
    EXPECT_EQ(Sort({{numberTag, TABLE_SORT_DESCEND}}), S_OK);
    EXPECT_EQ(Names(), (Strings{L"delta", L"Alpha", L"bravo", L"charlie"}));
    EXPECT_EQ(Sort({{numberTag, TABLE_SORT_ASCEND}, {nameTag, TABLE_SORT_DESCEND}}), S_OK);
    EXPECT_EQ(Names(), (Strings{L"bravo", L"Alpha", L"delta", L"charlie"}));

    MapiBlock<SSortOrderSet> order(Memory());
    EXPECT_EQ(table->QuerySortOrder(order.Put()), S_OK);
    ASSERT_EQ(order->cSorts, 2u);
    const SSortOrder* const sorts = order->aSort;
    EXPECT_EQ(sorts[1].ulOrder, TABLE_SORT_DESCEND);

    EXPECT_EQ(Sort({}), S_OK);
    EXPECT_EQ(Names(), (Strings{L"delta", L"Alpha", L"charlie", L"bravo"}));
}

TEST_F(Table, RefusesCategories)
{
    SizedSSortOrderSet(1, set) = {1, 1, 0, {{nameTag, TABLE_SORT_ASCEND}}};
    EXPECT_EQ(table->SortTable(reinterpret_cast<SSortOrderSet*>(&set), 0), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(table->SortTable(nullptr, 0), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(Sort({{nameTag, 17}}), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(Sort({{listTag | MV_INSTANCE, TABLE_SORT_ASCEND}}), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(table->ExpandRow(0, nullptr, 0, 0, nullptr, nullptr), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(Names().size(), 4u);
}

TEST_F(Table, RestrictsAndOpensUpAgain)
{
    SPropValue value{};
    value.ulPropTag = numberTag;
    value.Value.l = 1;
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty = {RELOP_EQ, numberTag, &value};
    EXPECT_EQ(table->Restrict(&restriction, 0), S_OK);
    EXPECT_EQ(Sort({{nameTag, TABLE_SORT_DESCEND}}), S_OK);
    EXPECT_EQ(Names(), (Strings{L"bravo", L"Alpha"}));
    ULONG count = 0;
    EXPECT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(table->Restrict(nullptr, 0), S_OK);
    EXPECT_EQ(Position(), 0u);
    EXPECT_EQ(Names().size(), 4u);
}

TEST_F(Table, ARefusedRestrictionLeavesTheTableAsItWas)
{
    EXPECT_EQ(Names(1).size(), 1u);
    SRestriction restriction{};
    restriction.rt = 99;
    EXPECT_EQ(table->Restrict(&restriction, 0), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(Names(), (Strings{L"Alpha", L"charlie", L"bravo"}));
    MapiBlock<MAPIERROR> error(Memory());
    EXPECT_EQ(table->GetLastError(MAPI_E_INVALID_PARAMETER, MAPI_UNICODE, error.Put()), S_OK);
    ASSERT_TRUE(error);
    EXPECT_STREQ(reinterpret_cast<const wchar_t*>(error->lpszComponent), L"test");
}

TEST_F(Table, SeeksWithinItsRows)
{
    LONG sought = 0;
    EXPECT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 3, &sought), S_OK);
    EXPECT_EQ(sought, 3);
    EXPECT_EQ(table->SeekRow(BOOKMARK_CURRENT, 5, &sought), S_OK);
    EXPECT_EQ(sought, 1);
    EXPECT_EQ(table->SeekRow(BOOKMARK_END, -10, &sought), S_OK);
    EXPECT_EQ(sought, -4);
    EXPECT_EQ(table->SeekRow(77, 0, &sought), MAPI_E_INVALID_BOOKMARK);
    EXPECT_EQ(table->SeekRowApprox(1, 2), S_OK);
    EXPECT_EQ(Position(), 2u);
    EXPECT_EQ(table->SeekRowApprox(5, 2), S_OK);
    EXPECT_EQ(Position(), 4u);
    EXPECT_EQ(table->SeekRowApprox(1, 0), MAPI_E_INVALID_PARAMETER);
}

TEST_F(Table, KeepsBookmarks)
{
    EXPECT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 1, nullptr), S_OK);
    BOOKMARK bookmark = 0;
    EXPECT_EQ(table->CreateBookmark(&bookmark), S_OK);
    EXPECT_GT(bookmark, BOOKMARK_END);
    EXPECT_EQ(table->SeekRow(BOOKMARK_END, 0, nullptr), S_OK);
    EXPECT_EQ(table->SeekRow(bookmark, 1, nullptr), S_OK);
    EXPECT_EQ(Position(), 2u);
    EXPECT_EQ(table->FreeBookmark(bookmark), S_OK);
    EXPECT_EQ(table->FreeBookmark(bookmark), MAPI_E_INVALID_BOOKMARK);
    EXPECT_EQ(table->FreeBookmark(BOOKMARK_END), S_OK);
    EXPECT_EQ(table->CreateBookmark(&bookmark), S_OK);
    EXPECT_EQ(Sort({{nameTag, TABLE_SORT_ASCEND}}), S_OK);
    EXPECT_EQ(table->SeekRow(bookmark, 0, nullptr), MAPI_E_INVALID_BOOKMARK);
}

TEST_F(Table, RefusesABookmarkThatIsCutTo32Bits)
{
    BOOKMARK first = 0;
    BOOKMARK second = 0;
    ASSERT_EQ(table->CreateBookmark(&first), S_OK);
    ASSERT_EQ(table->CreateBookmark(&second), S_OK);
    EXPECT_NE(first >> 32, 0u);
    EXPECT_NE(first >> 32, second >> 32);
    for (const BOOKMARK cut : {first & MAXDWORD, (second & ~BOOKMARK{MAXDWORD}) | (first & MAXDWORD)})
    {
        EXPECT_EQ(table->SeekRow(cut, 0, nullptr), MAPI_E_INVALID_BOOKMARK);
        EXPECT_EQ(Find(L"bravo", cut), MAPI_E_INVALID_BOOKMARK);
        EXPECT_EQ(table->FreeBookmark(cut), MAPI_E_INVALID_BOOKMARK);
    }
    EXPECT_EQ(table->SeekRow(first, 0, nullptr), S_OK);
}

TEST_F(Table, FindsForwardsAndBackwards)
{
    EXPECT_EQ(Find(L"CHARLIE", BOOKMARK_BEGINNING), S_OK);
    EXPECT_EQ(Position(), 2u);
    EXPECT_EQ(Find(L"charlie", BOOKMARK_CURRENT), S_OK);
    EXPECT_EQ(Find(L"Alpha", BOOKMARK_CURRENT), MAPI_E_NOT_FOUND);
    EXPECT_EQ(Position(), 2u);
    EXPECT_EQ(Find(L"Alpha", BOOKMARK_CURRENT, DIR_BACKWARD), S_OK);
    EXPECT_EQ(Position(), 1u);
    // Backwards the search begins before the bookmark's row, which itself is not looked at.
    EXPECT_EQ(Find(L"Alpha", BOOKMARK_CURRENT, DIR_BACKWARD), MAPI_E_NOT_FOUND);
    EXPECT_EQ(Find(L"delta", BOOKMARK_CURRENT, DIR_BACKWARD), S_OK);
    EXPECT_EQ(Find(L"bravo", BOOKMARK_END, DIR_BACKWARD), S_OK);
    EXPECT_EQ(Find(L"delta", BOOKMARK_BEGINNING, DIR_BACKWARD), MAPI_E_NOT_FOUND);
    EXPECT_EQ(table->FindRow(nullptr, BOOKMARK_BEGINNING, 0), MAPI_E_INVALID_PARAMETER);
}

TEST_F(Table, FollowsChangesOfItsRows)
{
    EXPECT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 2, nullptr), S_OK);
    BOOKMARK bookmark = 0;
    EXPECT_EQ(table->CreateBookmark(&bookmark), S_OK);
    // A row before the position goes: the position stays with its row.
    rows->Erase(L"delta");
    EXPECT_EQ(Position(), 1u);
    EXPECT_EQ(Names(1, TBL_NOADVANCE), (Strings{L"charlie"}));
    EXPECT_EQ(table->SeekRow(bookmark, 0, nullptr), S_OK);
    // The row itself goes: the position is on the one that followed, and seeking says so once.
    rows->Erase(L"charlie");
    EXPECT_EQ(table->SeekRow(bookmark, 0, nullptr), MAPI_W_POSITION_CHANGED);
    EXPECT_EQ(table->SeekRow(bookmark, 0, nullptr), S_OK);
    EXPECT_EQ(Names(), (Strings{L"bravo"}));
}

TEST_F(Table, TellsItsSinksOfChanges)
{
    const auto sink = MakeObject<Sink>();
    ULONG_PTR connection = 0;
    EXPECT_EQ(table->Advise(fnevTableModified, nullptr, &connection), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(table->Advise(fnevNewMail, sink.Get(), &connection), MAPI_E_INVALID_PARAMETER);
    ASSERT_EQ(table->Advise(fnevTableModified, sink.Get(), &connection), S_OK);
    rows->Erase(L"charlie");
    EXPECT_EQ(Names().size(), 3u);
    rows->Add(L"echo", 5);
    ++rows->generation;
    EXPECT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr), S_OK);
    EXPECT_EQ(sink->events, (std::vector<ULONG>{TABLE_ROW_DELETED, TABLE_ROW_ADDED}));
    EXPECT_EQ(sink->keys, (std::vector<std::uint64_t>{102, 104}));
    // The row before it; a row that has gone has none, and no contents.
    EXPECT_EQ(sink->priors, (std::vector<std::uint64_t>{0, 103}));
    EXPECT_EQ(sink->cells, (std::vector<ULONG>{0, 2}));
    EXPECT_NE(connection >> 32, 0u);
    EXPECT_EQ(table->Unadvise(connection & MAXDWORD), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(table->Unadvise(connection), S_OK);
    EXPECT_EQ(table->Unadvise(connection), MAPI_E_INVALID_PARAMETER);
    rows->Erase(L"Alpha");
    EXPECT_EQ(Names().size(), 3u);
    EXPECT_EQ(sink->events.size(), 2u);
}

TEST_F(Table, TellsOfManyChangesAtOnceWithoutNamingThem)
{
    const auto sink = MakeObject<Sink>();
    ULONG_PTR connection = 0;
    ASSERT_EQ(table->Advise(fnevTableModified, sink.Get(), &connection), S_OK);
    for (int row = 0; row < 100; ++row)
        rows->Add(L"many", row);
    ++rows->generation;
    EXPECT_EQ(Position(), 0u);
    EXPECT_EQ(sink->events, std::vector<ULONG>{TABLE_CHANGED});
}

TEST_F(Table, CutsLongValuesWhereTheWholeIsElsewhere)
{
    const auto cut = std::make_shared<CutRows>();
    cut->Add(std::wstring(300, L'x'), 1);
    cut->entries[0].properties->Put(PropValue::Binary(dataTag, Bytes(5000, 7)));
    cut->entries[0].properties->Put(PropValue::Binary(PR_ENTRYID, Bytes(300, 8)));
    const auto cells = [&](const std::shared_ptr<TestRows>& source, ULONG textTag)
    {
        const ComPtr<IMAPITable> opened = CreateTable(source, Memory(), MAPI_UNICODE, L"test");
        SizedSPropTagArray(3, columns) = {3, {textTag, dataTag, PR_ENTRYID}};
        EXPECT_EQ(opened->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0), S_OK);
        MapiRows set(Memory());
        EXPECT_EQ(opened->QueryRows(1, 0, set.Put()), S_OK);
        return CopyProps(set[0].cValues, set[0].lpProps);
    };
    std::vector<PropValue> values = cells(cut, nameTag);
    EXPECT_EQ(values[0].AsText(), std::wstring(255, L'x'));
    EXPECT_EQ(values[1].AsBytes(), Bytes(255, 7));
    // A cut identifier would be none.
    EXPECT_EQ(values[2].AsBytes(), Bytes(300, 8));
    EXPECT_EQ(cells(cut, CHANGE_PROP_TYPE(nameTag, PT_STRING8))[0].AsText(), std::wstring(255, L'x'));

    const auto whole = std::make_shared<TestRows>();
    whole->entries = cut->entries;
    values = cells(whole, nameTag);
    EXPECT_EQ(values[0].AsText(), std::wstring(300, L'x'));
    EXPECT_EQ(values[1].AsLong(), MAPI_E_NOT_ENOUGH_MEMORY);
}

TEST_F(Table, GivesFewerRowsThanAskedWhenToldTo)
{
    const TableSetting setting(L"rows=3");
    table = CreateTable(rows, Memory(), MAPI_UNICODE, L"test");
    EXPECT_EQ(Names(100), (Strings{L"delta", L"Alpha", L"charlie"}));
    EXPECT_EQ(Names(100), Strings{L"bravo"});
    EXPECT_EQ(Names(-100), (Strings{L"Alpha", L"charlie", L"bravo"}));
    EXPECT_EQ(Position(), 1u);
}

TEST_F(Table, IsBusyAndUncertainWhenToldTo)
{
    const TableSetting setting(L"busy=3 approx");
    table = CreateTable(rows, Memory(), MAPI_UNICODE, L"test");
    ULONG count = 0;
    EXPECT_EQ(table->GetRowCount(0, &count), MAPI_W_APPROX_COUNT);
    EXPECT_GT(count, 4u);
    EXPECT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr), S_OK);
    MapiRows set(Memory());
    EXPECT_EQ(table->QueryRows(10, 0, set.Put()), MAPI_E_BUSY);
    ULONG status = 0;
    EXPECT_EQ(table->WaitForCompletion(0, 1000, &status), S_OK);
    EXPECT_EQ(table->QueryRows(10, 0, set.Put()), S_OK);
    EXPECT_EQ(set.Count(), 4u);
}

TEST_F(Table, IsAlwaysDone)
{
    ULONG status = 1;
    ULONG type = 0;
    EXPECT_EQ(table->GetStatus(&status, &type), S_OK);
    EXPECT_EQ(status, TBLSTAT_COMPLETE);
    EXPECT_EQ(table->WaitForCompletion(0, 1000, &status), S_OK);
    EXPECT_EQ(table->Abort(), S_OK);
}

TEST_F(Table, AFailedAllocationLosesNothing)
{
    const ULONGLONG calls = Tests::Mapi()->Statistics().cCalls;
    Names(3, TBL_NOADVANCE);
    const auto needed = static_cast<ULONG>(Tests::Mapi()->Statistics().cCalls - calls);
    for (ULONG nth = 1; nth <= needed; ++nth)
    {
        Tests::Mapi()->FailAllocation(nth);
        MapiRows set(Memory());
        EXPECT_EQ(table->QueryRows(3, 0, set.Put()), MAPI_E_NOT_ENOUGH_MEMORY);
        EXPECT_EQ(Position(), 0u);
        EXPECT_EQ(Tests::Mapi()->LiveBlocks(), L"");
    }
}

namespace
{
class Restrictions : public testing::Test
{
protected:
    Restrictions()
    {
        bag.Put(PropValue::String(nameTag, L"Caf\x00E9 Central"));
        bag.Put(PropValue::Long(numberTag, 6));
        bag.Put(PropValue::Long(PROP_TAG(PT_LONG, 0x3603), 7));
        bag.Put(PropValue::Binary(dataTag, Bytes{1, 2, 3, 4}));
        bag.Put(PropValue(listTag, std::vector<std::wstring>{L"red", L"green"}));
    }

    bool Matches(const SRestriction& restriction) const { return Restriction::Copy(&restriction).Matches(bag); }

    bool Text(ULONG level, std::wstring text, ULONG tag = nameTag) const
    {
        SPropValue value{};
        value.ulPropTag = PROP_TAG(PT_UNICODE, PROP_ID(tag));
        value.Value.lpszW = text.data();
        SRestriction restriction{};
        restriction.rt = RES_CONTENT;
        restriction.res.resContent = {level, tag, &value};
        return Matches(restriction);
    }

    bool Number(ULONG relop, LONG number, ULONG tag = numberTag) const
    {
        SPropValue value{};
        value.ulPropTag = tag;
        value.Value.l = number;
        SRestriction restriction{};
        restriction.rt = RES_PROPERTY;
        restriction.res.resProperty = {relop, tag, &value};
        return Matches(restriction);
    }

    PropertyBag bag;
};
} // namespace

TEST_F(Restrictions, ByContent)
{
    EXPECT_TRUE(Text(FL_FULLSTRING, L"Caf\x00E9 Central"));
    EXPECT_FALSE(Text(FL_FULLSTRING, L"Caf\x00E9"));
    EXPECT_FALSE(Text(FL_FULLSTRING, L"caf\x00E9 central"));
    EXPECT_TRUE(Text(FL_FULLSTRING | FL_IGNORECASE, L"CAF\x00C9 central"));
    EXPECT_TRUE(Text(FL_PREFIX, L"Caf"));
    EXPECT_FALSE(Text(FL_PREFIX, L"Central"));
    EXPECT_TRUE(Text(FL_SUBSTRING, L"Cent"));
    EXPECT_FALSE(Text(FL_SUBSTRING, L"cent"));
    EXPECT_TRUE(Text(FL_SUBSTRING, L""));
    EXPECT_TRUE(Text(FL_SUBSTRING | FL_IGNORENONSPACE, L"Cafe "));
    EXPECT_TRUE(Text(FL_SUBSTRING | FL_LOOSE, L"cafe "));
    EXPECT_TRUE(Text(FL_FULLSTRING, L"green", listTag));
    EXPECT_FALSE(Text(FL_FULLSTRING, L"blue", listTag));
    EXPECT_FALSE(Text(FL_FULLSTRING, L"x", PR_SUBJECT_W));
}

TEST_F(Restrictions, ByBinaryContent)
{
    BYTE bytes[] = {2, 3};
    SPropValue value{};
    value.ulPropTag = dataTag;
    value.Value.bin = {2, bytes};
    SRestriction restriction{};
    restriction.rt = RES_CONTENT;
    restriction.res.resContent = {FL_SUBSTRING, dataTag, &value};
    EXPECT_TRUE(Matches(restriction));
    restriction.res.resContent.ulFuzzyLevel = FL_PREFIX;
    EXPECT_FALSE(Matches(restriction));
}

TEST_F(Restrictions, ByRelation)
{
    const std::vector<std::tuple<ULONG, LONG, bool>> cases = {
        {RELOP_LT, 6, false}, {RELOP_LT, 7, true},  {RELOP_LE, 6, true},  {RELOP_LE, 5, false},
        {RELOP_GT, 6, false}, {RELOP_GT, 5, true},  {RELOP_GE, 6, true},  {RELOP_GE, 7, false},
        {RELOP_EQ, 6, true},  {RELOP_EQ, 5, false}, {RELOP_NE, 6, false}, {RELOP_NE, 5, true},
    };
    for (const auto& [relop, number, expected] : cases)
        EXPECT_EQ(Number(relop, number), expected) << "relation " << relop << " to " << number;
    // What is missing compares to nothing.
    EXPECT_FALSE(Number(RELOP_NE, 5, PROP_TAG(PT_LONG, 0x3650)));
    ExpectFailure(MAPI_E_TOO_COMPLEX, [&] { Number(RELOP_RE, 5); });
    ExpectFailure(MAPI_E_INVALID_PARAMETER, [&] { Number(17, 5); });
}

TEST_F(Restrictions, ByBitsSizeExistenceAndOtherProperties)
{
    SRestriction restriction{};
    restriction.rt = RES_BITMASK;
    restriction.res.resBitMask = {BMR_NEZ, numberTag, 2};
    EXPECT_TRUE(Matches(restriction));
    restriction.res.resBitMask = {BMR_EQZ, numberTag, 2};
    EXPECT_FALSE(Matches(restriction));
    restriction.res.resBitMask = {BMR_EQZ, numberTag, 1};
    EXPECT_TRUE(Matches(restriction));
    restriction.res.resBitMask = {BMR_EQZ, nameTag, 1};
    ExpectFailure(MAPI_E_TOO_COMPLEX, [&] { Matches(restriction); });

    restriction.rt = RES_SIZE;
    restriction.res.resSize = {RELOP_EQ, dataTag, 4};
    EXPECT_TRUE(Matches(restriction));
    restriction.res.resSize = {RELOP_GT, dataTag, 4};
    EXPECT_FALSE(Matches(restriction));

    restriction.rt = RES_EXIST;
    restriction.res.resExist = {0, dataTag, 0};
    EXPECT_TRUE(Matches(restriction));
    restriction.res.resExist = {0, PR_SUBJECT, 0};
    EXPECT_FALSE(Matches(restriction));

    restriction.rt = RES_COMPAREPROPS;
    restriction.res.resCompareProps = {RELOP_LT, numberTag, PROP_TAG(PT_LONG, 0x3603)};
    EXPECT_TRUE(Matches(restriction));
    restriction.res.resCompareProps.relop = RELOP_EQ;
    EXPECT_FALSE(Matches(restriction));
}

TEST_F(Restrictions, Combined)
{
    SRestriction parts[2] = {};
    parts[0].rt = RES_EXIST;
    parts[0].res.resExist.ulPropTag = nameTag;
    parts[1].rt = RES_EXIST;
    parts[1].res.resExist.ulPropTag = PR_SUBJECT;
    SRestriction all{};
    all.rt = RES_AND;
    all.res.resAnd = {2, parts};
    EXPECT_FALSE(Matches(all));
    all.rt = RES_OR;
    EXPECT_TRUE(Matches(all));
    SRestriction negation{};
    negation.rt = RES_NOT;
    negation.res.resNot = {0, &all};
    EXPECT_FALSE(Matches(negation));
    SRestriction comment{};
    comment.rt = RES_COMMENT;
    comment.res.resComment = {0, &all, nullptr};
    EXPECT_TRUE(Matches(comment));
    all.rt = RES_AND;
    all.res.resAnd = {0, nullptr};
    EXPECT_TRUE(Matches(all));
    all.rt = RES_OR;
    EXPECT_FALSE(Matches(all));
}

TEST_F(Restrictions, MalformedOrTooComplex)
{
    SRestriction restriction{};
    restriction.rt = RES_SUBRESTRICTION;
    ExpectFailure(MAPI_E_TOO_COMPLEX, [&] { Matches(restriction); });
    restriction.rt = RES_AND;
    restriction.res.resAnd = {1, nullptr};
    ExpectFailure(MAPI_E_INVALID_PARAMETER, [&] { Matches(restriction); });
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty = {RELOP_EQ, numberTag, nullptr};
    ExpectFailure(MAPI_E_INVALID_PARAMETER, [&] { Matches(restriction); });
    restriction.rt = RES_NOT;
    restriction.res.resNot = {0, &restriction};
    ExpectFailure(MAPI_E_TOO_COMPLEX, [&] { Matches(restriction); });
}

TEST_F(Restrictions, OfEachKindAreGivenBackAsTheyCame)
{
    SPropValue number{};
    number.ulPropTag = numberTag;
    number.Value.l = 6;
    wchar_t text[] = L"red";
    SPropValue word{};
    word.ulPropTag = nameTag;
    word.Value.lpszW = text;
    SRestriction kinds[9] = {};
    kinds[0].rt = RES_PROPERTY;
    kinds[0].res.resProperty = {RELOP_GE, numberTag, &number};
    kinds[1].rt = RES_CONTENT;
    kinds[1].res.resContent = {FL_PREFIX | FL_IGNORECASE, nameTag, &word};
    kinds[2].rt = RES_COMPAREPROPS;
    kinds[2].res.resCompareProps = {RELOP_LT, numberTag, PROP_TAG(PT_LONG, 0x3603)};
    kinds[3].rt = RES_BITMASK;
    kinds[3].res.resBitMask = {BMR_NEZ, numberTag, 4};
    kinds[4].rt = RES_SIZE;
    kinds[4].res.resSize = {RELOP_NE, dataTag, 17};
    kinds[5].rt = RES_EXIST;
    kinds[5].res.resExist.ulPropTag = dataTag;
    kinds[6].rt = RES_NOT;
    kinds[6].res.resNot.lpRes = &kinds[0];
    kinds[7].rt = RES_COMMENT;
    kinds[7].res.resComment = {1, &kinds[1], &word};
    kinds[8].rt = RES_COMMENT;
    kinds[8].res.resComment = {1, nullptr, &number};
    SRestriction any{};
    any.rt = RES_OR;
    any.res.resOr = {9, kinds};
    const std::function<void(const Restriction&, const Restriction&)> expectSame =
        [&](const Restriction& a, const Restriction& b)
    {
        EXPECT_EQ(a.kind, b.kind);
        EXPECT_EQ(a.mode, b.mode) << a.kind;
        EXPECT_EQ(a.tag, b.tag) << a.kind;
        EXPECT_EQ(a.other, b.other) << a.kind;
        EXPECT_TRUE(a.values == b.values) << a.kind;
        EXPECT_TRUE(a.IsWhole()) << a.kind;
        ASSERT_EQ(a.parts.size(), b.parts.size()) << a.kind;
        for (size_t i = 0; i < a.parts.size(); ++i)
            expectSame(a.parts[i], b.parts[i]);
    };
    const Restriction first = Restriction::Copy(&any);
    ASSERT_EQ(first.parts.size(), 9u);
    EXPECT_EQ(first.parts[4].other, 17u);
    EXPECT_EQ(first.parts[4].mode, static_cast<ULONG>(RELOP_NE));
    EXPECT_TRUE(first.parts[8].parts.empty());
    const MapiBlock<SRestriction> copy(Memory(), MakeRestriction(Memory(), first));
    expectSame(Restriction::Copy(copy.Get()), first);
}

TEST_F(Restrictions, AreGivenBackAsTheyCame)
{
    SPropValue value{};
    value.ulPropTag = numberTag;
    value.Value.l = 6;
    SRestriction parts[2] = {};
    parts[0].rt = RES_PROPERTY;
    parts[0].res.resProperty = {RELOP_EQ, numberTag, &value};
    parts[1].rt = RES_BITMASK;
    parts[1].res.resBitMask = {BMR_NEZ, numberTag, 4};
    SRestriction all{};
    all.rt = RES_AND;
    all.res.resAnd = {2, parts};
    const MapiBlock<SRestriction> copy(Memory(), MakeRestriction(Memory(), Restriction::Copy(&all)));
    ASSERT_EQ(copy->rt, RES_AND);
    ASSERT_EQ(copy->res.resAnd.cRes, 2u);
    EXPECT_EQ(copy->res.resAnd.lpRes[0].res.resProperty.lpProp->Value.l, 6);
    EXPECT_EQ(copy->res.resAnd.lpRes[1].res.resBitMask.ulMask, 4u);
    EXPECT_TRUE(Matches(*copy.Get()));
}
