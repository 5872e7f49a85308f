// The table engine: columns, order, filter, position and bookmarks over a source of rows.
#include "testbed/common/Table.h"

#include "testbed/common/AddressNumbers.h"
#include "testbed/common/NotOffered.h"

#include <algorithm>
#include <cstdlib>
#include <cwchar>
#include <limits>
#include <numeric>

namespace Testbed
{
namespace
{
// Beyond this many at once a client is told to look at the whole table.
constexpr size_t mostEvents = 64;
constexpr size_t cutLength = 255;
constexpr ULONG approximation = 8;

// What KIVNST_TESTBED_TABLES asks for; 0 for nothing.
struct Whims
{
    size_t rows = 0;
    ULONG busy = 0;
    bool approximate = false;

    static Whims Read()
    {
        std::wstring text(MAX_PATH, L'\0');
        text.resize(std::min<size_t>(
            GetEnvironmentVariableW(L"KIVNST_TESTBED_TABLES", text.data(), static_cast<DWORD>(text.size())), MAX_PATH));
        const auto number = [&](const wchar_t* word) -> ULONG
        {
            const size_t at = text.find(word);
            return at == std::wstring::npos ? 0 : std::wcstoul(text.c_str() + at + std::wcslen(word), nullptr, 10);
        };
        Whims whims;
        whims.rows = number(L"rows=");
        whims.busy = number(L"busy=");
        whims.approximate = text.find(L"approx") != std::wstring::npos;
        return whims;
    }
};

// A cut identifier would be none.
bool IsIdentifier(ULONG id)
{
    static const std::set<ULONG> ids = {
        PROP_ID(PR_ENTRYID),          PROP_ID(PR_PARENT_ENTRYID), PROP_ID(PR_STORE_ENTRYID), PROP_ID(PR_RECORD_KEY),
        PROP_ID(PR_STORE_RECORD_KEY), PROP_ID(PR_INSTANCE_KEY),   PROP_ID(PR_SEARCH_KEY),
    };
    return ids.contains(id);
}

PropValue Cut(PropValue value)
{
    if (const auto* wide = value.Get<std::wstring>(); wide && wide->size() > cutLength)
        return PropValue(value.Tag(), wide->substr(0, cutLength));
    if (const auto* narrow = value.Get<std::string>(); narrow && narrow->size() > cutLength)
        return PropValue(value.Tag(), narrow->substr(0, cutLength));
    if (const auto* bytes = value.Get<Bytes>(); bytes && bytes->size() > cutLength && !IsIdentifier(value.Id()))
        return PropValue::Binary(value.Tag(), bytes->data(), cutLength);
    return value;
}

class Table final : public ComObject<IMAPITable, &IID_IMAPITable>
{
public:
    Table(std::shared_ptr<const RowSource> rows, const MapiMemory& memory, ULONG flags, const wchar_t* component)
        : m_rows(std::move(rows)),
          m_memory(memory),
          m_flags(flags & MAPI_UNICODE),
          m_lastError(component),
          m_columns(Shown(m_rows->DefaultColumns())),
          m_generation(m_rows->Generation())
    {
        SetPosition(0);
    }

    ~Table() override
    {
        if (m_self)
        {
            const std::lock_guard guard(m_self->lock);
            m_self->table = nullptr;
        }
    }

    MAPI_IMAPITABLE_METHODS(override)

private:
    // Where a position or bookmark stands. The key finds the row again when rows come and go around it.
    struct Mark
    {
        size_t index = 0;
        std::optional<std::uint64_t> key;
        bool changed = false;
    };

    struct Sink
    {
        ULONG mask = 0;
        ComPtr<IMAPIAdviseSink> sink;
    };

    // The way from the source's news to this table, which may be gone by then.
    struct Self
    {
        Mutex lock;
        Table* table = nullptr;

        ComPtr<Table> Lock() noexcept
        {
            const std::lock_guard guard(lock);
            return table && table->TryAddRef() ? ComPtr<Table>::Attach(table) : nullptr;
        }
    };

    // Notifications with the memory that they point into, and those who get them.
    struct News
    {
        std::vector<NOTIFICATION> list;
        std::vector<MapiBlock<SPropValue>> blocks;
        std::vector<ComPtr<IMAPIAdviseSink>> sinks;

        void Tell() noexcept
        {
            for (const auto& sink : sinks)
                if (!list.empty())
                    sink->OnNotify(static_cast<ULONG>(list.size()), list.data());
        }
    };

    // Runs one call: brings the view up to date, does the work with the lock held, tells the sinks without it.
    template <class F>
    HRESULT Call(F&& body) noexcept
    {
        News news;
        HRESULT result;
        {
            const std::lock_guard guard(m_lock);
            result = Guarded(m_lastError,
                             [&]() -> HRESULT
                             {
                                 Refresh(news, {});
                                 return body();
                             });
        }
        news.Tell();
        return result;
    }

    // The source's news: some of these may be rows of this table.
    void Changed(const std::vector<std::uint64_t>& keys) noexcept
    {
        News news;
        {
            const std::lock_guard guard(m_lock);
            LastError ignored(L"");
            Guarded(ignored, [&] { Refresh(news, keys); });
        }
        news.Tell();
    }

    // Throws when this call is one of those that find the table busy.
    void RequireIdle()
    {
        if (m_whims.busy > 1 && ++m_calls % m_whims.busy == 0)
            Fail(MAPI_E_BUSY, L"The table is busy, as it was asked to be.");
    }

    // The columns with strings in the width that the table was opened with.
    std::vector<ULONG> Shown(std::vector<ULONG> columns) const
    {
        for (ULONG& tag : columns)
        {
            const ULONG type = PROP_TYPE(tag);
            const ULONG single = type & ~ULONG(MV_FLAG);
            if (single == PT_STRING8 || single == PT_UNICODE)
                tag = CHANGE_PROP_TYPE(tag, (type & MV_FLAG) | (m_flags & MAPI_UNICODE ? PT_UNICODE : PT_STRING8));
        }
        return columns;
    }

    size_t Count() const { return m_view ? m_view->size() : m_rows->RowCount(); }
    size_t SourceIndex(size_t index) const { return m_view ? (*m_view)[index] : index; }
    std::shared_ptr<const PropertySource> RowAt(size_t index) const { return m_rows->Row(SourceIndex(index)); }

    Mark MarkAt(size_t index) const
    {
        return {index, index < Count() ? std::optional(m_rows->RowKey(SourceIndex(index))) : std::nullopt, false};
    }

    void SetPosition(size_t index) { m_position = MarkAt(index); }

    // Arranges the rows by restriction and order. Without either, no list of rows is kept.
    void Arrange()
    {
        if (!m_restriction && m_order.empty())
        {
            m_view.reset();
            return;
        }
        std::vector<size_t> view(m_rows->RowCount());
        std::iota(view.begin(), view.end(), size_t(0));
        if (m_restriction)
            std::erase_if(view, [this](size_t row) { return !m_restriction->Matches(*m_rows->Row(row)); });
        if (!m_order.empty())
            Sort(view);
        m_view = std::move(view);
    }

    void Sort(std::vector<size_t>& view) const
    {
        struct Keyed
        {
            size_t row;
            std::vector<std::optional<PropValue>> keys;
        };
        std::vector<Keyed> rows;
        rows.reserve(view.size());
        for (const size_t row : view)
        {
            const auto properties = m_rows->Row(row);
            Keyed keyed{row, {}};
            for (const SSortOrder& order : m_order)
            {
                PropValue key = GetProp(*properties, order.ulPropTag, m_flags, std::numeric_limits<size_t>::max());
                keyed.keys.push_back(key.IsError() ? std::nullopt : std::optional(std::move(key)));
            }
            rows.push_back(std::move(keyed));
        }

        const auto before = [this](const Keyed& a, const Keyed& b)
        {
            for (size_t i = 0; i < m_order.size(); ++i)
            {
                if (!a.keys[i] || !b.keys[i])
                {
                    if (a.keys[i].has_value() != b.keys[i].has_value())
                        return a.keys[i].has_value();
                    continue;
                }
                const int order = Compare(*a.keys[i], *b.keys[i]).value_or(0);
                if (order != 0)
                    return (order < 0) == (m_order[i].ulOrder == TABLE_SORT_ASCEND);
            }
            return false;
        };
        std::stable_sort(rows.begin(), rows.end(), before);
        std::transform(rows.begin(), rows.end(), view.begin(), [](const Keyed& keyed) { return keyed.row; });
    }

    std::vector<std::uint64_t> Keys() const
    {
        std::vector<std::uint64_t> keys(Count());
        for (size_t index = 0; index < keys.size(); ++index)
            keys[index] = m_rows->RowKey(SourceIndex(index));
        return keys;
    }

    // Follows changes of the source and notes what the sinks are to hear of them; `touched` are keys of what changed.
    void Refresh(News& news, const std::vector<std::uint64_t>& touched)
    {
        const std::uint64_t generation = m_rows->Generation();
        const bool changed = generation != m_generation;
        if (changed)
        {
            Arrange();
            Follow(m_position);
            for (auto& [bookmark, mark] : m_bookmarks)
                Follow(mark);
            m_generation = generation;
        }
        if (m_sinks.empty() || (!changed && touched.empty()))
            return;
        const std::vector<std::uint64_t> before = std::exchange(m_shown, Keys());
        Report(news, before, touched);
        for (const auto& [connection, sink] : m_sinks)
            news.sinks.push_back(sink.sink);
    }

    void Report(News& news, const std::vector<std::uint64_t>& before, const std::vector<std::uint64_t>& touched) const
    {
        const std::set<std::uint64_t> had(before.begin(), before.end());
        const std::set<std::uint64_t> has(m_shown.begin(), m_shown.end());
        const std::set<std::uint64_t> changed(touched.begin(), touched.end());
        for (const std::uint64_t key : before)
            if (!has.contains(key))
                Add(news, TABLE_ROW_DELETED, key, std::nullopt);
        for (size_t index = 0; index < m_shown.size() && news.list.size() <= mostEvents; ++index)
        {
            const std::uint64_t key = m_shown[index];
            if (!had.contains(key))
                Add(news, TABLE_ROW_ADDED, key, index);
            else if (changed.contains(key))
                Add(news, TABLE_ROW_MODIFIED, key, index);
        }
        if (news.list.size() > mostEvents)
        {
            news.list.clear();
            news.blocks.clear();
            NOTIFICATION notification{};
            notification.ulEventType = fnevTableModified;
            notification.info.tab.ulTableEvent = TABLE_CHANGED;
            news.list.push_back(notification);
        }
    }

    void Add(News& news, ULONG event, std::uint64_t key, std::optional<size_t> index) const
    {
        if (news.list.size() > mostEvents)
            return;
        const bool follows = index && *index > 0;
        const MapiBlock<SPropValue>& keys = news.blocks.emplace_back(
            m_memory, MakePropArray(m_memory, {m_rows->InstanceKey(key),
                                               follows ? m_rows->InstanceKey(m_shown[*index - 1]) : PropValue()}));
        NOTIFICATION notification{};
        notification.ulEventType = fnevTableModified;
        TABLE_NOTIFICATION& table = notification.info.tab;
        table.ulTableEvent = event;
        table.propIndex = keys.Get()[0];
        table.propPrior = keys.Get()[1];
        if (index)
        {
            const std::vector<PropValue> values = RowValues(*index);
            table.row.cValues = static_cast<ULONG>(values.size());
            table.row.lpProps = news.blocks.emplace_back(m_memory, MakePropArray(m_memory, values)).Get();
        }
        news.list.push_back(notification);
    }

    void Follow(Mark& mark) const
    {
        const size_t count = Count();
        if (!mark.key)
        {
            mark = MarkAt(count);
            return;
        }
        for (size_t index = 0; index < count; ++index)
        {
            if (m_rows->RowKey(SourceIndex(index)) == *mark.key)
            {
                mark.index = index;
                return;
            }
        }
        mark = MarkAt(std::min(mark.index, count));
        mark.changed = true;
    }

    // The index that a bookmark names; `changed` tells (once) that its row has gone.
    size_t Resolve(BOOKMARK bookmark, bool& changed)
    {
        changed = false;
        switch (bookmark)
        {
        case BOOKMARK_BEGINNING:
            return 0;
        case BOOKMARK_END:
            return Count();
        case BOOKMARK_CURRENT:
            changed = std::exchange(m_position.changed, false);
            return m_position.index;
        default:
        {
            const auto found = m_bookmarks.find(bookmark);
            if (found == m_bookmarks.end())
                Fail(MAPI_E_INVALID_BOOKMARK, L"The table has no such bookmark.");
            changed = std::exchange(found->second.changed, false);
            return found->second.index;
        }
        }
    }

    std::vector<PropValue> RowValues(size_t index) const
    {
        const auto row = RowAt(index);
        std::vector<PropValue> values;
        values.reserve(m_columns.size());
        const bool cut = m_rows->CutsLongValues();
        for (const ULONG tag : m_columns)
        {
            values.push_back(cut ? Cut(GetProp(*row, tag, m_flags, std::numeric_limits<size_t>::max()))
                                 : GetProp(*row, tag, m_flags));
        }
        return values;
    }

    void Rearranged()
    {
        Arrange();
        m_bookmarks.clear();
        SetPosition(0);
        if (!m_sinks.empty())
            m_shown = Keys();
    }

    Mutex m_lock;
    std::shared_ptr<const RowSource> m_rows;
    MapiMemory m_memory;
    ULONG m_flags;
    LastError m_lastError;
    std::vector<ULONG> m_columns;
    std::optional<Restriction> m_restriction;
    std::vector<SSortOrder> m_order;
    // Source indexes in the order shown; none means the source's own rows.
    std::optional<std::vector<size_t>> m_view;
    std::uint64_t m_generation;
    Mark m_position;
    std::map<BOOKMARK, Mark> m_bookmarks;
    ULONG m_bookmarksMade = 0;
    std::map<ULONG_PTR, Sink> m_sinks;
    ULONG m_connectionsMade = 0;
    // For the sinks: the keys of the rows that they know of, and where the source's news come from.
    std::vector<std::uint64_t> m_shown;
    std::shared_ptr<Self> m_self;
    std::shared_ptr<void> m_watch;
    Whims m_whims = Whims::Read();
    ULONG m_calls = 0;
};

STDMETHODIMP Table::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return m_lastError.Get(m_memory, hResult, ulFlags, lppMAPIError);
}

STDMETHODIMP Table::Advise(ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink, ULONG_PTR* lpulConnection)
{
    return Call(
        [&]
        {
            Require(lpulConnection);
            if (!lpAdviseSink || !(ulEventMask & fnevTableModified))
                Fail(MAPI_E_INVALID_PARAMETER, L"A table tells a sink of table changes only.");
            if (m_sinks.empty())
                m_shown = Keys();
            if (!m_self)
            {
                m_self = std::make_shared<Self>();
                m_self->table = this;
                m_watch = m_rows->Watch(
                    [self = m_self](const std::vector<std::uint64_t>& keys)
                    {
                        if (const ComPtr<Table> table = self->Lock())
                            table->Changed(keys);
                    });
            }
            const ULONG_PTR connection = AddressNumbers::Of(m_connectionsMade++);
            m_sinks[connection] = {ulEventMask, ComPtr<IMAPIAdviseSink>(lpAdviseSink)};
            *lpulConnection = connection;
            return S_OK;
        });
}

STDMETHODIMP Table::Unadvise(ULONG_PTR ulConnection)
{
    // Released only after the lock is, for the sink may call back.
    ComPtr<IMAPIAdviseSink> dropped;
    return Call(
        [&]
        {
            const auto found = m_sinks.find(ulConnection);
            if (found == m_sinks.end())
                Fail(MAPI_E_INVALID_PARAMETER, L"The table has no such connection.");
            dropped = std::move(found->second.sink);
            m_sinks.erase(found);
            return S_OK;
        });
}

STDMETHODIMP Table::GetStatus(ULONG* lpulTableStatus, ULONG* lpulTableType)
{
    return Call(
        [&]
        {
            Require(lpulTableStatus);
            Require(lpulTableType);
            *lpulTableStatus = TBLSTAT_COMPLETE;
            *lpulTableType = TBLTYPE_DYNAMIC;
            return S_OK;
        });
}

STDMETHODIMP Table::SetColumns(LPSPropTagArray lpPropTagArray, ULONG ulFlags)
{
    return Call(
        [&]
        {
            RequireFlags(ulFlags, TBL_ASYNC | TBL_BATCH);
            RequireIdle();
            if (!lpPropTagArray || lpPropTagArray->cValues == 0)
                Fail(MAPI_E_INVALID_PARAMETER, L"A table needs at least one column.");
            m_columns.assign(lpPropTagArray->aulPropTag, lpPropTagArray->aulPropTag + lpPropTagArray->cValues);
            return S_OK;
        });
}

STDMETHODIMP Table::QueryColumns(ULONG ulFlags, LPSPropTagArray* lpPropTagArray)
{
    return Call(
        [&]
        {
            Require(lpPropTagArray);
            RequireFlags(ulFlags, TBL_ALL_COLUMNS);
            RequireIdle();
            *lpPropTagArray =
                MakeTagArray(m_memory, ulFlags & TBL_ALL_COLUMNS ? Shown(m_rows->AllColumns()) : m_columns);
            return S_OK;
        });
}

STDMETHODIMP Table::GetRowCount(ULONG ulFlags, ULONG* lpulCount)
{
    return Call(
        [&]
        {
            Require(lpulCount);
            RequireFlags(ulFlags, TBL_NOWAIT);
            RequireIdle();
            *lpulCount = static_cast<ULONG>(Count());
            if (!m_whims.approximate)
                return S_OK;
            *lpulCount += approximation;
            return MAPI_W_APPROX_COUNT;
        });
}

STDMETHODIMP Table::SeekRow(BOOKMARK bkOrigin, LONG lRowCount, LONG* lplRowsSought)
{
    return Call(
        [&]
        {
            RequireIdle();
            bool changed = false;
            const auto origin = static_cast<std::int64_t>(Resolve(bkOrigin, changed));
            const auto last = static_cast<std::int64_t>(Count());
            const std::int64_t target = std::clamp<std::int64_t>(origin + lRowCount, 0, last);
            SetPosition(static_cast<size_t>(target));
            if (lplRowsSought)
                *lplRowsSought = static_cast<LONG>(target - origin);
            return changed ? MAPI_W_POSITION_CHANGED : S_OK;
        });
}

STDMETHODIMP Table::SeekRowApprox(ULONG ulNumerator, ULONG ulDenominator)
{
    return Call(
        [&]
        {
            if (ulDenominator == 0)
                Fail(MAPI_E_INVALID_PARAMETER, L"The denominator of a position is 0.");
            RequireIdle();
            const std::uint64_t count = Count();
            SetPosition(ulNumerator >= ulDenominator ? Count()
                                                     : static_cast<size_t>(count * ulNumerator / ulDenominator));
            return S_OK;
        });
}

STDMETHODIMP Table::QueryPosition(ULONG* lpulRow, ULONG* lpulNumerator, ULONG* lpulDenominator)
{
    return Call(
        [&]
        {
            Require(lpulRow);
            Require(lpulNumerator);
            Require(lpulDenominator);
            *lpulRow = static_cast<ULONG>(m_position.index);
            *lpulNumerator = static_cast<ULONG>(m_position.index);
            *lpulDenominator = static_cast<ULONG>(std::max<size_t>(Count(), 1));
            return S_OK;
        });
}

STDMETHODIMP Table::FindRow(LPSRestriction lpRestriction, BOOKMARK bkOrigin, ULONG ulFlags)
{
    return Call(
        [&]
        {
            RequireFlags(ulFlags, DIR_BACKWARD);
            const Restriction restriction = Restriction::Copy(lpRestriction);
            bool changed = false;
            const size_t origin = Resolve(bkOrigin, changed);
            const size_t count = Count();
            const auto matches = [&](size_t index) { return restriction.Matches(*RowAt(index)); };

            std::optional<size_t> found;
            if (ulFlags & DIR_BACKWARD)
                for (size_t index = std::min(origin, count); index > 0 && !found; --index)
                    found = matches(index - 1) ? std::optional(index - 1) : std::nullopt;
            else
                for (size_t index = origin; index < count && !found; ++index)
                    found = matches(index) ? std::optional(index) : std::nullopt;
            if (!found)
                Fail(MAPI_E_NOT_FOUND, L"No row matches.");
            SetPosition(*found);
            return changed ? MAPI_W_POSITION_CHANGED : S_OK;
        });
}

STDMETHODIMP Table::Restrict(LPSRestriction lpRestriction, ULONG ulFlags)
{
    return Call(
        [&]
        {
            RequireFlags(ulFlags, TBL_ASYNC | TBL_BATCH);
            RequireIdle();
            m_restriction = lpRestriction ? std::optional(Restriction::Copy(lpRestriction)) : std::nullopt;
            Rearranged();
            return S_OK;
        });
}

STDMETHODIMP Table::CreateBookmark(BOOKMARK* lpbkPosition)
{
    return Call(
        [&]
        {
            Require(lpbkPosition);
            const BOOKMARK bookmark = AddressNumbers::Of(m_bookmarksMade++);
            m_bookmarks[bookmark] = m_position;
            *lpbkPosition = bookmark;
            return S_OK;
        });
}

STDMETHODIMP Table::FreeBookmark(BOOKMARK bkPosition)
{
    return Call(
        [&]
        {
            if (bkPosition > BOOKMARK_END && m_bookmarks.erase(bkPosition) == 0)
                Fail(MAPI_E_INVALID_BOOKMARK, L"The table has no such bookmark.");
            return S_OK;
        });
}

STDMETHODIMP Table::SortTable(LPSSortOrderSet lpSortCriteria, ULONG ulFlags)
{
    return Call(
        [&]
        {
            RequireFlags(ulFlags, TBL_ASYNC | TBL_BATCH);
            RequireIdle();
            if (!lpSortCriteria)
                Fail(MAPI_E_INVALID_PARAMETER, L"SortTable needs an order.");
            if (lpSortCriteria->cCategories || lpSortCriteria->cExpanded)
                Fail(MAPI_E_NO_SUPPORT, L"The table has no categories.");
            std::vector<SSortOrder> order(lpSortCriteria->aSort, lpSortCriteria->aSort + lpSortCriteria->cSorts);
            for (const SSortOrder& sort : order)
            {
                if (PROP_TYPE(sort.ulPropTag) & MV_INSTANCE)
                    Fail(MAPI_E_NO_SUPPORT, L"The table does not show single values of multi-valued properties.");
                if (sort.ulOrder != TABLE_SORT_ASCEND && sort.ulOrder != TABLE_SORT_DESCEND)
                    Fail(MAPI_E_INVALID_PARAMETER, L"A table sorts upwards or downwards.");
            }
            m_order = std::move(order);
            Rearranged();
            return S_OK;
        });
}

STDMETHODIMP Table::QuerySortOrder(LPSSortOrderSet* lppSortCriteria)
{
    return Call(
        [&]
        {
            Require(lppSortCriteria);
            RequireIdle();
            const size_t size = CbNewSSortOrderSet(std::max<size_t>(m_order.size(), 1));
            auto* set = static_cast<SSortOrderSet*>(m_memory.Allocate(size));
            set->cSorts = static_cast<ULONG>(m_order.size());
            std::copy(m_order.begin(), m_order.end(), set->aSort);
            *lppSortCriteria = set;
            return S_OK;
        });
}

STDMETHODIMP Table::QueryRows(LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows)
{
    return Call(
        [&]
        {
            Require(lppRows);
            RequireFlags(ulFlags, TBL_NOADVANCE);
            RequireIdle();
            if (lRowCount == 0)
                Fail(MAPI_E_INVALID_PARAMETER, L"QueryRows needs a number of rows.");
            // Backwards, the rows before the position are given, still in the table's order.
            auto wanted = static_cast<size_t>(std::abs(static_cast<std::int64_t>(lRowCount)));
            if (m_whims.rows != 0)
                wanted = std::min(wanted, m_whims.rows);
            const size_t position = m_position.index;
            const size_t first = lRowCount > 0 ? position : position - std::min(position, wanted);
            const size_t last = lRowCount > 0 ? position + std::min(Count() - position, wanted) : position;

            std::vector<std::vector<PropValue>> rows;
            rows.reserve(last - first);
            for (size_t index = first; index < last; ++index)
                rows.push_back(RowValues(index));
            *lppRows = MakeRowSet(m_memory, rows);
            if (!(ulFlags & TBL_NOADVANCE))
                SetPosition(lRowCount > 0 ? last : first);
            return S_OK;
        });
}

STDMETHODIMP Table::Abort()
{
    return S_OK;
}

STDMETHODIMP Table::WaitForCompletion(ULONG, ULONG, ULONG* lpulTableStatus)
{
    if (lpulTableStatus)
        *lpulTableStatus = TBLSTAT_COMPLETE;
    return S_OK;
}

NOT_OFFERED(Table, ExpandRow, ULONG, LPBYTE, ULONG, ULONG, LPSRowSet*, ULONG*);
NOT_OFFERED(Table, CollapseRow, ULONG, LPBYTE, ULONG, ULONG*);
NOT_OFFERED(Table, GetCollapseState, ULONG, ULONG, LPBYTE, ULONG*, LPBYTE*);
NOT_OFFERED(Table, SetCollapseState, ULONG, ULONG, LPBYTE, BOOKMARK*);
} // namespace

MemoryRows::MemoryRows(std::vector<ULONG> columns, std::vector<PropertyBag> rows) : m_columns(std::move(columns))
{
    m_rows.reserve(rows.size());
    for (PropertyBag& row : rows)
        m_rows.push_back(std::make_shared<PropertyBag>(std::move(row)));
}

ComPtr<IMAPITable> CreateTable(std::shared_ptr<const RowSource> rows, const MapiMemory& memory, ULONG flags,
                               const wchar_t* component)
{
    return MakeObject<Table>(std::move(rows), memory, flags, component);
}
} // namespace Testbed
