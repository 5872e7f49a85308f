// CNstMapiTable.
#include "nst/NstMapiTable.h"

#include "nst/ReferenceCount.h"
#include "support/CallWrapping.h"

namespace Quillon::Nst
{

CNstMapiTable::CNstMapiTable(IMAPITable* table) : m_table(table), m_references(1) {}

CNstMapiTable::~CNstMapiTable() = default;

STDMETHODIMP CNstMapiTable::QueryInterface(REFIID riid, LPVOID* ppvObj)
{
    return AnswerWithSelf(this, riid, ppvObj, IID_IMAPITable, IID_IUnknown);
}

STDMETHODIMP_(ULONG) CNstMapiTable::AddRef()
{
    return AddReference(m_references);
}

STDMETHODIMP_(ULONG) CNstMapiTable::Release()
{
    return ReleaseReference(this, m_references);
}

STDMETHODIMP CNstMapiTable::GetLastError(HRESULT hResult, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    return PASS_THROUGH(m_table, IMAPITable::GetLastError, S_OK, hResult, ulFlags, lppMAPIError);
}

STDMETHODIMP CNstMapiTable::Advise(ULONG ulEventMask, LPMAPIADVISESINK lpAdviseSink, ULONG_PTR* lpulConnection)
{
    return PASS_THROUGH(m_table, IMAPITable::Advise, S_OK, ulEventMask, lpAdviseSink, lpulConnection);
}

STDMETHODIMP CNstMapiTable::Unadvise(ULONG_PTR ulConnection)
{
    return PASS_THROUGH(m_table, IMAPITable::Unadvise, S_OK, ulConnection);
}

STDMETHODIMP CNstMapiTable::GetStatus(ULONG* lpulTableStatus, ULONG* lpulTableType)
{
    return PASS_THROUGH(m_table, IMAPITable::GetStatus, S_OK, lpulTableStatus, lpulTableType);
}

STDMETHODIMP CNstMapiTable::SetColumns(LPSPropTagArray lpPropTagArray, ULONG ulFlags)
{
    return PASS_THROUGH(m_table, IMAPITable::SetColumns, S_OK, lpPropTagArray, ulFlags);
}

STDMETHODIMP CNstMapiTable::QueryColumns(ULONG ulFlags, LPSPropTagArray* lpPropTagArray)
{
    return PASS_THROUGH(m_table, IMAPITable::QueryColumns, S_OK, ulFlags, lpPropTagArray);
}

STDMETHODIMP CNstMapiTable::GetRowCount(ULONG ulFlags, ULONG* lpulCount)
{
    return PASS_THROUGH(m_table, IMAPITable::GetRowCount, S_OK, ulFlags, lpulCount);
}

STDMETHODIMP CNstMapiTable::SeekRow(BOOKMARK bkOrigin, LONG lRowCount, LONG* lplRowsSought)
{
    return PASS_THROUGH(m_table, IMAPITable::SeekRow, S_OK, bkOrigin, lRowCount, lplRowsSought);
}

STDMETHODIMP CNstMapiTable::SeekRowApprox(ULONG ulNumerator, ULONG ulDenominator)
{
    return PASS_THROUGH(m_table, IMAPITable::SeekRowApprox, S_OK, ulNumerator, ulDenominator);
}

STDMETHODIMP CNstMapiTable::QueryPosition(ULONG* lpulRow, ULONG* lpulNumerator, ULONG* lpulDenominator)
{
    return PASS_THROUGH(m_table, IMAPITable::QueryPosition, S_OK, lpulRow, lpulNumerator, lpulDenominator);
}

STDMETHODIMP CNstMapiTable::FindRow(LPSRestriction lpRestriction, BOOKMARK bkOrigin, ULONG ulFlags)
{
    return PASS_THROUGH(m_table, IMAPITable::FindRow, MAPI_E_NOT_FOUND, lpRestriction, bkOrigin, ulFlags);
}

STDMETHODIMP CNstMapiTable::Restrict(LPSRestriction lpRestriction, ULONG ulFlags)
{
    return PASS_THROUGH(m_table, IMAPITable::Restrict, S_OK, lpRestriction, ulFlags);
}

STDMETHODIMP CNstMapiTable::CreateBookmark(BOOKMARK* lpbkPosition)
{
    return PASS_THROUGH(m_table, IMAPITable::CreateBookmark, S_OK, lpbkPosition);
}

STDMETHODIMP CNstMapiTable::FreeBookmark(BOOKMARK bkPosition)
{
    return PASS_THROUGH(m_table, IMAPITable::FreeBookmark, S_OK, bkPosition);
}

STDMETHODIMP CNstMapiTable::SortTable(LPSSortOrderSet lpSortCriteria, ULONG ulFlags)
{
    return PASS_THROUGH(m_table, IMAPITable::SortTable, S_OK, lpSortCriteria, ulFlags);
}

STDMETHODIMP CNstMapiTable::QuerySortOrder(LPSSortOrderSet* lppSortCriteria)
{
    return PASS_THROUGH(m_table, IMAPITable::QuerySortOrder, S_OK, lppSortCriteria);
}

STDMETHODIMP CNstMapiTable::QueryRows(LONG lRowCount, ULONG ulFlags, LPSRowSet* lppRows)
{
    return PASS_THROUGH(m_table, IMAPITable::QueryRows, S_OK, lRowCount, ulFlags, lppRows);
}

STDMETHODIMP CNstMapiTable::Abort()
{
    return PASS_THROUGH(m_table, IMAPITable::Abort, S_OK);
}

STDMETHODIMP CNstMapiTable::ExpandRow(ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulRowCount, ULONG ulFlags,
                                      LPSRowSet* lppRows, ULONG* lpulMoreRows)
{
    return PASS_THROUGH(m_table, IMAPITable::ExpandRow, S_OK, cbInstanceKey, pbInstanceKey, ulRowCount, ulFlags,
                        lppRows, lpulMoreRows);
}

STDMETHODIMP CNstMapiTable::CollapseRow(ULONG cbInstanceKey, LPBYTE pbInstanceKey, ULONG ulFlags, ULONG* lpulRowCount)
{
    return PASS_THROUGH(m_table, IMAPITable::CollapseRow, S_OK, cbInstanceKey, pbInstanceKey, ulFlags, lpulRowCount);
}

STDMETHODIMP CNstMapiTable::WaitForCompletion(ULONG ulFlags, ULONG ulTimeout, ULONG* lpulTableStatus)
{
    return PASS_THROUGH(m_table, IMAPITable::WaitForCompletion, S_OK, ulFlags, ulTimeout, lpulTableStatus);
}

STDMETHODIMP CNstMapiTable::GetCollapseState(ULONG ulFlags, ULONG cbInstanceKey, LPBYTE lpbInstanceKey,
                                             ULONG* lpcbCollapseState, LPBYTE* lppbCollapseState)
{
    return PASS_THROUGH(m_table, IMAPITable::GetCollapseState, S_OK, ulFlags, cbInstanceKey, lpbInstanceKey,
                        lpcbCollapseState, lppbCollapseState);
}

STDMETHODIMP CNstMapiTable::SetCollapseState(ULONG ulFlags, ULONG cbCollapseState, LPBYTE pbCollapseState,
                                             BOOKMARK* lpbkLocation)
{
    return PASS_THROUGH(m_table, IMAPITable::SetCollapseState, S_OK, ulFlags, cbCollapseState, pbCollapseState,
                        lpbkLocation);
}

} // namespace Quillon::Nst
