// Reading a table to its end.
#include "testbed/mapi/TableQuery.h"

#include "common/Boundary.h"

#include <vector>

namespace Testbed
{
namespace
{
constexpr LONG batch = 256;

// Rows that are not in a row set yet.
class Rows
{
public:
    explicit Rows(const MapiMemory& memory) : m_memory(memory) {}
    ~Rows()
    {
        for (const SRow& row : m_rows)
            m_memory.Free(row.lpProps);
    }
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

    size_t Count() const noexcept { return m_rows.size(); }

    void Take(SRowSet& set)
    {
        m_rows.reserve(m_rows.size() + set.cRows);
        for (ULONG i = 0; i < set.cRows; ++i)
        {
            SRow row = set.aRow[i];
            set.aRow[i].lpProps = nullptr;
            for (ULONG value = 0; value < row.cValues; ++value)
                if (PROP_TYPE(row.lpProps[value].ulPropTag) == PT_ERROR &&
                    row.lpProps[value].Value.err == MAPI_E_NOT_FOUND)
                    row.lpProps[value].ulPropTag = PR_NULL;
            m_rows.push_back(row);
        }
    }

    SRowSet* Give()
    {
        const size_t size = CbNewSRowSet(m_rows.size());
        auto* const set = static_cast<SRowSet*>(m_memory.Allocate(size));
        set->cRows = static_cast<ULONG>(m_rows.size());
        for (size_t i = 0; i < m_rows.size(); ++i)
            set->aRow[i] = m_rows[i];
        m_rows.clear();
        return set;
    }

private:
    MapiMemory m_memory;
    std::vector<SRow> m_rows;
};
} // namespace

HRESULT QueryAllRows(const MapiMemory& memory, IMAPITable* table, LPSPropTagArray tags, LPSRestriction restriction,
                     LPSSortOrderSet order, LONG maxRows, LPSRowSet* rows) noexcept
{
    LastError lastError(L"MAPI");
    return Guarded(lastError,
                   [&]() -> HRESULT
                   {
                       if (!table || !rows || maxRows < 0)
                           return MAPI_E_INVALID_PARAMETER;
                       *rows = nullptr;
                       if (tags)
                           Check(table->SetColumns(tags, TBL_BATCH), L"SetColumns failed.");
                       if (restriction)
                           Check(table->Restrict(restriction, TBL_BATCH), L"Restrict failed.");
                       if (order)
                           Check(table->SortTable(order, TBL_BATCH), L"SortTable failed.");
                       if (!restriction && !order)
                           Check(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr), L"SeekRow failed.");
                       Rows all(memory);
                       for (;;)
                       {
                           MapiRows some(memory);
                           Check(table->QueryRows(batch, 0, some.Put()), L"QueryRows failed.");
                           if (some.Count() == 0)
                               break;
                           all.Take(*some.Get());
                           if (maxRows && all.Count() > static_cast<size_t>(maxRows))
                               return MAPI_E_TABLE_TOO_BIG;
                       }
                       *rows = all.Give();
                       return S_OK;
                   });
}
} // namespace Testbed
