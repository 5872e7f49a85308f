// A store whose answers a case makes up.
#pragma once

#include "tests/common/InertObjects.h"

#include <functional>
#include <vector>

namespace Tests
{

/// Lives on the stack of a case; its references are counted, and all given up at its end.
class FakeStore final : public InertStore
{
public:
    ULONG references = 1;
    /// What GetProps gives, copied into MAPI memory, asked for these tags; null tags ask for all.
    std::function<std::vector<SPropValue>(const SPropTagArray* tags)> answer;
    /// GetProps' result.
    HRESULT readResult = S_OK;
    /// What SetProps was given, if it was: the tags, and the bytes of those that are binary.
    int writes = 0;
    std::vector<ULONG> writtenTags;
    std::vector<std::vector<BYTE>> writtenBytes;
    HRESULT writeResult = S_OK;
    int deletions = 0;
    int comparisons = 0;

    STDMETHODIMP QueryInterface(REFIID riid, LPVOID* ppvObj) override;
    STDMETHODIMP_(ULONG) AddRef() override { return ++references; }
    STDMETHODIMP_(ULONG) Release() override { return --references; }
    STDMETHODIMP GetProps(LPSPropTagArray lpPropTagArray, ULONG ulFlags, ULONG* lpcValues,
                          LPSPropValue* lppPropArray) override;
    STDMETHODIMP SetProps(ULONG cValues, LPSPropValue lpPropArray, LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP DeleteProps(LPSPropTagArray lpPropTagArray, LPSPropProblemArray* lppProblems) override;
    STDMETHODIMP CompareEntryIDs(ULONG cbEntryID1, LPENTRYID lpEntryID1, ULONG cbEntryID2, LPENTRYID lpEntryID2,
                                 ULONG ulFlags, ULONG* lpulResult) override;
};

} // namespace Tests
