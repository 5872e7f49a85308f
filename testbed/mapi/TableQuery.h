// HrQueryAllRows: all rows of a table at once.
#pragma once

#include "common/MapiMemory.h"
#include "testbed/common/Namespace.h"

namespace Testbed
{
/// The body of MAPI's function of that name: sets columns, restriction and order, where they are given, and gives all
/// rows; MAPI_E_TABLE_TOO_BIG when there are more than `maxRows`, where that is not 0. What a row does not have is
/// PR_NULL in it.
HRESULT QueryAllRows(const MapiMemory& memory, IMAPITable* table, LPSPropTagArray tags, LPSRestriction restriction,
                     LPSSortOrderSet order, LONG maxRows, LPSRowSet* rows) noexcept;
} // namespace Testbed
