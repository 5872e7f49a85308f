// The cheap doubles.
#include "tests/threads/Doubles.h"

#include "nst/KivNstCore.h"
#include "tests/common/MapiModule.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <cwchar>

namespace Tests
{
namespace
{

/// The objects that ended last, oldest replaced first.
constexpr std::size_t mostEnded = 4096;
std::array<std::atomic<CheapObject*>, mostEnded> g_ended;
std::atomic<std::size_t> g_nextEnded = 0;

constexpr wchar_t anyText[] = L"100% %s %n";

/// The value of the property; its data is linked to `parent`.
SPropValue MakeValue(ULONG tag, void* parent)
{
    const MapiModule& mapi = MapiModule::Get();
    SPropValue value = {};
    value.ulPropTag = tag;
    switch (PROP_TYPE(tag))
    {
    case PT_LONG:
        value.Value.l = everyBit;
        break;
    case PT_BINARY:
        value.Value.bin = {entryIdSize, static_cast<BYTE*>(mapi.AllocateMore(entryIdSize, parent))};
        std::memset(value.Value.bin.lpb, tag == Quillon::Nst::archiveSubtreeEntryIdTag ? archiveByte : anyByte,
                    entryIdSize);
        break;
    case PT_UNICODE:
        value.Value.lpszW = static_cast<wchar_t*>(mapi.AllocateMore(sizeof(anyText), parent));
        std::memcpy(value.Value.lpszW, anyText, sizeof(anyText));
        break;
    default:
        value.ulPropTag = PROP_TAG(PT_ERROR, PROP_ID(tag));
        value.Value.err = MAPI_E_NOT_FOUND;
        break;
    }
    return value;
}

HRESULT GiveTable(LPMAPITABLE* table)
{
    *table = new CheapTable;
    return S_OK;
}

} // namespace

Tally& GetTally() noexcept
{
    static Tally tally;
    return tally;
}

CheapObject::CheapObject() noexcept
{
    ++GetTally().made;
}

CheapObject::~CheapObject() = default;

void CheapObject::DeleteEnded() noexcept
{
    for (auto& ended : g_ended)
        delete ended.exchange(nullptr);
}

ULONG CheapObject::Reference() noexcept
{
    const LONG before = m_references.fetch_add(1);
    if (before <= 0)
        ++GetTally().misused;
    return static_cast<ULONG>(before + 1);
}

ULONG CheapObject::Dereference() noexcept
{
    const LONG left = m_references.fetch_sub(1) - 1;
    if (left < 0)
        ++GetTally().misused;
    if (left != 0)
        return static_cast<ULONG>(left);
    ++GetTally().ended;
    delete g_ended[g_nextEnded++ % mostEnded].exchange(this);
    return 0;
}

void CheapObject::Enter() noexcept
{
    ++GetTally().calls;
    if (m_references.load() <= 0)
        ++GetTally().misused;
}

bool CheapObject::EnterAndFail() noexcept
{
    Enter();
    static thread_local unsigned turn = 0;
    if (++turn % 61 != 0)
        return false;
    ++GetTally().failed;
    return true;
}

template <class Inert>
STDMETHODIMP Cheap<Inert>::QueryInterface(REFIID riid, LPVOID* ppvObj)
{
    Enter();
    if (riid != m_iid && riid != IID_IUnknown)
    {
        *ppvObj = nullptr;
        return E_NOINTERFACE;
    }
    *ppvObj = static_cast<Inert*>(this);
    AddRef();
    return S_OK;
}

template <class Inert>
STDMETHODIMP Cheap<Inert>::GetLastError(HRESULT, ULONG ulFlags, LPMAPIERROR* lppMAPIError)
{
    Enter();
    if (ulFlags != MAPI_UNICODE)
        return MAPI_E_BAD_CHARWIDTH;
    const MapiModule& mapi = MapiModule::Get();
    auto* const error = static_cast<MAPIERROR*>(mapi.Allocate(sizeof(MAPIERROR)));
    auto* const text = static_cast<wchar_t*>(mapi.AllocateMore(sizeof(anyText), error));
    std::memcpy(text, anyText, sizeof(anyText));
    *error = {MAPI_ERROR_VERSION, text, text, 112, 7};
    *lppMAPIError = error;
    return S_OK;
}

template <class Inert>
STDMETHODIMP CheapProp<Inert>::SaveChanges(ULONG)
{
    this->Enter();
    if (onSaveChanges)
        onSaveChanges();
    return S_OK;
}

template <class Inert>
STDMETHODIMP CheapProp<Inert>::GetProps(LPSPropTagArray lpPropTagArray, ULONG, ULONG* lpcValues,
                                        LPSPropValue* lppPropArray)
{
    if (this->EnterAndFail())
        return MAPI_E_CALL_FAILED;
    static SPropTagArray all = {1, {PR_DISPLAY_NAME_W}};
    const SPropTagArray& tags = lpPropTagArray ? *lpPropTagArray : all;
    auto* const values = static_cast<SPropValue*>(MapiModule::Get().Allocate(tags.cValues * sizeof(SPropValue)));
    HRESULT result = S_OK;
    for (ULONG index = 0; index < tags.cValues; ++index)
    {
        values[index] = MakeValue(tags.aulPropTag[index], values);
        if (PROP_TYPE(values[index].ulPropTag) == PT_ERROR)
            result = MAPI_W_ERRORS_RETURNED;
    }
    *lpcValues = tags.cValues;
    *lppPropArray = values;
    return result;
}

template <class Inert>
STDMETHODIMP CheapProp<Inert>::OpenProperty(ULONG, LPCIID, ULONG, ULONG, LPUNKNOWN*)
{
    return this->EnterAndFail() ? MAPI_E_CALL_FAILED : MAPI_E_NOT_FOUND;
}

template <class Inert>
STDMETHODIMP CheapProp<Inert>::SetProps(ULONG, LPSPropValue, LPSPropProblemArray*)
{
    this->Enter();
    ++GetTally().writes;
    return S_OK;
}

template <class Inert>
STDMETHODIMP CheapProp<Inert>::DeleteProps(LPSPropTagArray, LPSPropProblemArray*)
{
    this->Enter();
    ++GetTally().writes;
    return S_OK;
}

CheapStore::CheapStore() noexcept : CheapProp(IID_IMsgStore) {}

STDMETHODIMP CheapStore::OpenEntry(ULONG, LPENTRYID lpEntryID, LPCIID, ULONG, ULONG* lpulObjType, LPUNKNOWN* lppUnk)
{
    if (EnterAndFail())
        return MAPI_E_CORRUPT_DATA;
    const auto give = [&](ULONG type, IUnknown* object)
    {
        *lpulObjType = type;
        *lppUnk = object;
        return S_OK;
    };
    switch (static_cast<EntryKind>(lpEntryID->abFlags[0]))
    {
    case EntryKind::Folder:
        return give(MAPI_FOLDER, new CheapFolder);
    case EntryKind::Message:
        return give(MAPI_MESSAGE, new CheapMessage);
    case EntryKind::Other:
        return give(MAPI_STATUS, new CheapTable);
    case EntryKind::FalseFolder:
        return give(MAPI_FOLDER, new CheapMessage);
    case EntryKind::FalseMessage:
        return give(MAPI_MESSAGE, new CheapFolder);
    default:
        return MAPI_E_NOT_FOUND;
    }
}

STDMETHODIMP CheapStore::CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                                         ULONG, ULONG* lpulResult)
{
    if (EnterAndFail())
        return MAPI_E_INVALID_ENTRYID;
    *lpulResult = cbEntryID1 == cbEntryID2 && std::memcmp(lpEntryID1, lpEntryID2, cbEntryID1) == 0;
    return S_OK;
}

STDMETHODIMP CheapStore::SetReceiveFolder(LPTSTR, ULONG, ULONG, LPENTRYID)
{
    Enter();
    ++GetTally().writes;
    return S_OK;
}

CheapFolder::CheapFolder() noexcept : CheapProp(IID_IMAPIFolder) {}

STDMETHODIMP CheapFolder::GetContentsTable(ULONG, LPMAPITABLE* lppTable)
{
    return EnterAndFail() ? MAPI_E_CALL_FAILED : GiveTable(lppTable);
}

STDMETHODIMP CheapFolder::GetHierarchyTable(ULONG, LPMAPITABLE* lppTable)
{
    return EnterAndFail() ? MAPI_E_CALL_FAILED : GiveTable(lppTable);
}

STDMETHODIMP CheapFolder::CreateMessage(LPCIID, ULONG, LPMESSAGE* lppMessage)
{
    Enter();
    ++GetTally().writes;
    *lppMessage = new CheapMessage;
    return S_OK;
}

STDMETHODIMP CheapFolder::CreateFolder(ULONG, LPTSTR, LPTSTR, LPCIID, ULONG, LPMAPIFOLDER* lppFolder)
{
    Enter();
    ++GetTally().writes;
    *lppFolder = new CheapFolder;
    return S_OK;
}

CheapMessage::CheapMessage() noexcept : CheapProp(IID_IMessage) {}

STDMETHODIMP CheapMessage::GetAttachmentTable(ULONG, LPMAPITABLE* lppTable)
{
    return EnterAndFail() ? MAPI_E_CALL_FAILED : GiveTable(lppTable);
}

CheapTable::CheapTable() noexcept : Cheap(IID_IMAPITable) {}

STDMETHODIMP CheapTable::GetRowCount(ULONG, ULONG* lpulCount)
{
    if (EnterAndFail())
        return MAPI_E_BUSY;
    *lpulCount = 3;
    return S_OK;
}

STDMETHODIMP CheapTable::FindRow(LPSRestriction, BOOKMARK, ULONG)
{
    return EnterAndFail() ? MAPI_E_TOO_COMPLEX : MAPI_E_NOT_FOUND;
}

STDMETHODIMP CheapTable::QueryRows(LONG lRowCount, ULONG, LPSRowSet* lppRows)
{
    if (EnterAndFail())
        return MAPI_E_CALL_FAILED;
    const MapiModule& mapi = MapiModule::Get();
    const auto count = static_cast<ULONG>(lRowCount);
    auto* const rows = static_cast<SRowSet*>(mapi.Allocate(CbNewSRowSet(count)));
    rows->cRows = count;
    for (ULONG index = 0; index < count; ++index)
    {
        auto* const values = static_cast<SPropValue*>(mapi.Allocate(sizeof(SPropValue)));
        values[0] = MakeValue(PR_ENTRYID, values);
        rows->aRow[index] = {0, 1, values};
    }
    *lppRows = rows;
    return S_OK;
}

STDMETHODIMP CheapTable::Abort()
{
    Enter();
    if (onAbort)
        onAbort();
    return S_OK;
}

void FreeRows(SRowSet* rows)
{
    const MapiModule& mapi = MapiModule::Get();
    for (ULONG index = 0; index < rows->cRows; ++index)
        mapi.Free(rows->aRow[index].lpProps);
    mapi.Free(rows);
}

template class CheapProp<InertStore>;
template class CheapProp<InertFolder>;
template class CheapProp<InertMessage>;

} // namespace Tests
