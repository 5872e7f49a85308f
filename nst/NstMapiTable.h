// CNstMapiTable: the wrapper of the tables that folders give.
#pragma once

#include "support/ComPtr.h"
#include "support/Export.h"

namespace Quillon::Nst
{

/// Wraps IMAPITable and alters nothing: its calls are logged, and a host may derive from it. Any thread; the count
/// starts at 1.
class KIVNST_API CNstMapiTable : public IMAPITable
{
public:
    KIVNST_OWN_HEAP

    /// Takes a reference on `table`.
    explicit CNstMapiTable(IMAPITable* table);
    CNstMapiTable(const CNstMapiTable&) = delete;
    CNstMapiTable& operator=(const CNstMapiTable&) = delete;

    MAPI_IUNKNOWN_METHODS(override)
    MAPI_IMAPITABLE_METHODS(override)

    virtual ~CNstMapiTable();

private:
    ATL::CComQIPtr<IMAPITable> m_table;
    ULONG m_references;
};

} // namespace Quillon::Nst
