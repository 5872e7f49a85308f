// The made-up store.
#include "tests/generated/FakeStore.h"

#include "tests/common/MapiModule.h"

#include <algorithm>
#include <cstring>

namespace Tests
{

STDMETHODIMP FakeStore::QueryInterface(REFIID riid, LPVOID* ppvObj)
{
    if (riid != IID_IMsgStore && riid != IID_IUnknown)
    {
        *ppvObj = nullptr;
        return E_NOINTERFACE;
    }
    *ppvObj = this;
    AddRef();
    return S_OK;
}

STDMETHODIMP FakeStore::GetProps(LPSPropTagArray lpPropTagArray, ULONG, ULONG* lpcValues, LPSPropValue* lppPropArray)
{
    if (FAILED(readResult))
        return readResult;
    const std::vector<SPropValue> values = answer(lpPropTagArray);
    const std::size_t size = values.size() * sizeof(SPropValue);
    // What the values point to is the case's own and outlives the call.
    auto* const copy = static_cast<SPropValue*>(MapiModule::Get().Allocate(size));
    std::copy(values.begin(), values.end(), copy);
    *lpcValues = static_cast<ULONG>(values.size());
    *lppPropArray = copy;
    return readResult;
}

STDMETHODIMP FakeStore::SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray*)
{
    ++writes;
    for (ULONG index = 0; index < cValues; ++index)
    {
        const SPropValue& value = lpPropArray[index];
        writtenTags.push_back(value.ulPropTag);
        if (value.ulPropTag == PR_OST_OLFI && value.Value.bin.lpb)
            writtenBytes.emplace_back(value.Value.bin.lpb, value.Value.bin.lpb + value.Value.bin.cb);
    }
    return writeResult;
}

STDMETHODIMP FakeStore::DeleteProps(LPSPropTagArray, LPSPropProblemArray*)
{
    ++deletions;
    return writeResult;
}

STDMETHODIMP FakeStore::CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                                        ULONG, ULONG* lpulResult)
{
    ++comparisons;
    *lpulResult = cbEntryID1 == cbEntryID2 && (cbEntryID1 == 0 || std::memcmp(lpEntryID1, lpEntryID2, cbEntryID1) == 0);
    return readResult;
}

} // namespace Tests
