// A table of an archive's folder, whose rows show what the objects themselves show.
#pragma once

#include "hostkit/Archive.h"
#include "hostkit/Guards.h"
#include "hostkit/Lock.h"
#include "nst/NstMapiTable.h"
#include "support/com_wrap.h"

#include <algorithm>

namespace KivNstHostKit
{

/// Puts the archive's values into rows on their way to the client. Sorting, restricting and seeking are the PST's and
/// go by the PST's values; so do the rows in a table's notifications. Made by MakeTable. Any thread.
class CArchiveTable : public Quillon::Nst::CNstMapiTable
{
public:
    /// Takes a reference on `table`, the PST's; its rows are objects of `objectType`.
    CArchiveTable(ArchivePointer archive, IMAPITable* table, ULONG objectType)
        : CNstMapiTable(table),
          m_archive(std::move(archive)),
          m_objectType(objectType)
    {
    }

    STDMETHODIMP SetColumns(LPSPropTagArray lpPropTagArray, ULONG ulFlags) override
    {
        if (!lpPropTagArray || GetValues().IsEmpty())
            return CNstMapiTable::SetColumns(lpPropTagArray, ulFlags);
        Columns columns;
        columns.tags = TagsOf(lpPropTagArray);
        // The host's functions want to know whose row it is; the client is not shown a column that it did not ask for.
        columns.isEntryIdHidden = GetValues().NeedsSubject() && std::find(columns.tags.begin(), columns.tags.end(),
                                                                          ULONG{PR_ENTRYID}) == columns.tags.end();
        if (columns.isEntryIdHidden)
            columns.tags.push_back(PR_ENTRYID);
        std::vector<ULONG> block = MakeTagBlock(columns.tags);
        const HRESULT hr = CNstMapiTable::SetColumns(AsTagArray(block), ulFlags);
        if (SUCCEEDED(hr))
        {
            const CLock lock(m_lock);
            m_columns = std::move(columns);
        }
        return hr;
    }

    STDMETHODIMP QueryColumns(ULONG ulFlags, LPSPropTagArray* lpPropTagArray) override
    {
        if (!lpPropTagArray || GetValues().IsEmpty())
            return CNstMapiTable::QueryColumns(ulFlags, lpPropTagArray);
        Quillon::Mapi::SmartPointer<SPropTagArray*, Quillon::Mapi::MapiBufferDestructor> known;
        const HRESULT hr = CNstMapiTable::QueryColumns(ulFlags, known.Put());
        if (FAILED(hr))
            return hr;
        std::vector<ULONG> tags = TagsOf(known.Get());
        if (ulFlags & TBL_ALL_COLUMNS)
            GetValues().AppendTags(MAPI_UNICODE, tags);
        else if (GetColumns().isEntryIdHidden && !tags.empty())
            tags.pop_back();
        *lpPropTagArray = AllocateTagArray(tags);
        return hr;
    }

    STDMETHODIMP QueryRows(LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows) override
    {
        if (!lppRows)
            return CNstMapiTable::QueryRows(lRowCount, ulFlags, lppRows);
        Rows rows;
        const HRESULT hr = CNstMapiTable::QueryRows(lRowCount, ulFlags, &rows.set);
        if (FAILED(hr))
            return hr;
        Rewrite(rows);
        *lppRows = rows.Detach();
        return hr;
    }

    STDMETHODIMP ExpandRow(ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulRowCount, ULONG ulFlags,
                           LPSRowSet* lppRows, ULONG* lpulMoreRows) override
    {
        if (!lppRows)
            return CNstMapiTable::ExpandRow(cbInstanceKey, pbInstanceKey, ulRowCount, ulFlags, lppRows, lpulMoreRows);
        Rows rows;
        const HRESULT hr =
            CNstMapiTable::ExpandRow(cbInstanceKey, pbInstanceKey, ulRowCount, ulFlags, &rows.set, lpulMoreRows);
        if (FAILED(hr))
            return hr;
        Rewrite(rows);
        *lppRows = rows.Detach();
        return hr;
    }

private:
    /// What the PST's table was told to show; no tags until a client says.
    struct Columns
    {
        std::vector<ULONG> tags;
        bool isEntryIdHidden = false;
    };

    /// Rows until they are the client's.
    struct Rows
    {
        Rows() = default;
        Rows(const Rows&) = delete;
        Rows& operator=(const Rows&) = delete;
        ~Rows()
        {
            for (ULONG index = 0; set && index < set->cRows; ++index)
                Quillon::Mapi::FreeMapiBuffer(set->aRow[index].lpProps);
            Quillon::Mapi::FreeMapiBuffer(set);
        }
        SRowSet* Detach() noexcept { return std::exchange(set, nullptr); }

        SRowSet* set = nullptr;
    };

    const CValues& GetValues() const noexcept { return m_archive->GetValues(m_objectType); }
    Columns GetColumns()
    {
        const CLock lock(m_lock);
        return m_columns;
    }

    void Rewrite(const Rows& rows)
    {
        const Columns columns = GetColumns();
        for (ULONG index = 0; rows.set && index < rows.set->cRows; ++index)
        {
            SRow& row = rows.set->aRow[index];
            const CSubject subject(m_objectType, row.lpProps, row.cValues, nullptr);
            const bool isEach = columns.tags.size() == row.cValues;
            GetValues().Apply(subject, isEach ? columns.tags.data() : nullptr, MAPI_UNICODE, row.lpProps, row.cValues,
                              row.lpProps);
            if (!m_archive->IsWritable())
                ShowReadOnly(row.lpProps, row.cValues);
            if (isEach && columns.isEntryIdHidden)
                --row.cValues;
        }
    }

    const ArchivePointer m_archive;
    const ULONG m_objectType;
    SRWLOCK m_lock = SRWLOCK_INIT;
    Columns m_columns;
};

/// The table that a client is given over the PST's, which must not be null.
inline ATL::CComQIPtr<IMAPITable> MakeTable(const ArchivePointer& archive, const ATL::CComQIPtr<IMAPITable>& table,
                                            ULONG objectType)
{
    return Quillon::com_wrap<IMAPITable>(
        new CTableGuard<CArchiveTable>(archive, Quillon::com_wrap(table).p, objectType));
}

} // namespace KivNstHostKit
