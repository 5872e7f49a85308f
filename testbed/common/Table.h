// An IMAPITable over rows that are fetched as they are needed.
#pragma once

#include "common/Boundary.h"
#include "common/ComObject.h"
#include "testbed/common/Namespace.h"
#include "testbed/common/Restriction.h"

#include <functional>
#include <memory>

namespace Testbed
{
/// The rows behind a table, in their natural order. The table calls it with its own lock held, one call at a time; a
/// source that several tables share does its own locking.
class RowSource
{
public:
    virtual ~RowSource() = default;

    virtual size_t RowCount() const = 0;

    /// The properties of row `index`. Called for a row only when it is read, sorted or filtered by.
    virtual std::shared_ptr<const PropertySource> Row(size_t index) const = 0;

    /// A number that names the row for as long as it exists, so that positions and bookmarks survive changes.
    virtual std::uint64_t RowKey(size_t index) const { return index; }

    /// PR_INSTANCE_KEY of the row of a key, of one that has gone, too.
    virtual PropValue InstanceKey(std::uint64_t key) const
    {
        return PropValue::Binary(PR_INSTANCE_KEY, &key, sizeof(key));
    }

    /// Has `changed` called after each change, with the keys of what came, went or was changed, whether or not these
    /// are rows, until the result is dropped. Null for a source that never changes.
    // NOLINTNEXTLINE(performance-unnecessary-value-param): those that override it keep the function.
    virtual std::shared_ptr<void> Watch(std::function<void(const std::vector<std::uint64_t>&)>) const { return {}; }

    /// Whether rows show long texts and binary values cut: only for rows of objects, which give the whole.
    virtual bool CutsLongValues() const { return false; }

    /// Changes whenever rows were added, removed or changed; the table then arranges its rows afresh. A source that
    /// never changes leaves it at 0.
    virtual std::uint64_t Generation() const { return 0; }

    /// The columns that a new table shows; strings in either width, the table's flags decide.
    virtual std::vector<ULONG> DefaultColumns() const = 0;

    /// The columns that QueryColumns gives for TBL_ALL_COLUMNS.
    virtual std::vector<ULONG> AllColumns() const { return DefaultColumns(); }
};

/// Rows held in memory.
class MemoryRows : public RowSource
{
public:
    MemoryRows(std::vector<ULONG> columns, std::vector<PropertyBag> rows);

    size_t RowCount() const override { return m_rows.size(); }
    std::shared_ptr<const PropertySource> Row(size_t index) const override { return m_rows.at(index); }
    std::vector<ULONG> DefaultColumns() const override { return m_columns; }

private:
    std::vector<ULONG> m_columns;
    std::vector<std::shared_ptr<const PropertySource>> m_rows;
};

/// Creates a table. `flags` is the caller's: with MAPI_UNICODE the default columns have wide strings, else narrow.
/// `component` names the module in extended errors.
///
/// Contract beyond MAPI's text, where that leaves a choice:
/// - Missing cells are PT_ERROR with MAPI_E_NOT_FOUND. Where `RowSource::CutsLongValues`, texts end after 255
/// characters
///   and binary values, identifiers and keys excepted, after 255 bytes; elsewhere cells over `maxInlineSize` are
///   PT_ERROR with MAPI_E_NOT_ENOUGH_MEMORY. Orders and restrictions go by the whole values.
/// - SortTable: categories and instances of multi-values are refused with MAPI_E_NO_SUPPORT; no criteria (cSorts 0)
///   brings the natural order back; equal rows keep it; rows without the property come last in both directions.
/// - SortTable and Restrict put the position at the beginning and lose all bookmarks (MAPI_E_INVALID_BOOKMARK after
/// it).
/// - FindRow begins at the row that the bookmark names, or backwards at the row before it.
/// - A bookmark or position whose row has gone stands on the row that followed; SeekRow and FindRow then say
///   MAPI_W_POSITION_CHANGED once.
/// - QueryRows with a count of 0 is MAPI_E_INVALID_PARAMETER; at an end it gives an empty row set and S_OK.
/// - All operations are done when the call returns: GetStatus is TBLSTAT_COMPLETE, Abort has nothing to do, TBL_ASYNC
///   and TBL_BATCH are accepted.
/// - Advise keeps the sink until Unadvise or the table's end. It is told on the thread that makes the change, after it,
///   which rows of the view were added, deleted (without their contents) or modified; of many at once only
///   TABLE_CHANGED.
/// - Expanding and collapsing are refused with MAPI_E_NO_SUPPORT.
///
/// What MAPI allows a table and this one never does by itself can be had, to see how a client takes it, by the
/// environment variable KIVNST_TESTBED_TABLES, which is read when a table is made: words with blanks between them,
/// "rows=N" (QueryRows gives no more than N rows at a time), "busy=N" (every N-th call, from 2 on, of those that may
/// say so gives MAPI_E_BUSY), "approx" (GetRowCount gives more than there are, and MAPI_W_APPROX_COUNT). Thread-safe.
ComPtr<IMAPITable> CreateTable(std::shared_ptr<const RowSource> rows, const MapiMemory& memory, ULONG flags,
                               const wchar_t* component);
} // namespace Testbed
