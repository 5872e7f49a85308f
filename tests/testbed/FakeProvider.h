// A provider module for tests of the session: it records how it was called and answers as it is told.
#pragma once

#include "common/ComPtr.h"
#include "common/PropValue.h"

#include <functional>
#include <string>
#include <vector>

namespace Tests
{
/// What FakeProvider32.dll was asked and what it is to answer. The test program and the module are built by the same
/// compiler with the same library, so they may share it.
struct FakeProviderState
{
    // What it answers. Of the logon's results the first ones are used up before the last is repeated.
    HRESULT entryResult = S_OK;
    HRESULT initResult = S_OK;
    ULONG version = CURRENT_SPI_VERSION;
    HRESULT logonResult = S_OK;
    std::vector<HRESULT> firstLogonResults;
    std::wstring errorText;
    bool giveStore = true;
    bool giveLogon = true;
    // Whether it keeps its support object as it should, with a reference.
    bool addRefSupport = true;
    // Whether a second logon gives the store that is open already.
    bool shareStore = false;
    // The identifiers that it registers for its entry IDs.
    std::vector<MAPIUID> uids;
    // Run within Logon, with the support object.
    std::function<void(IMAPISupport&)> inLogon;
    // Run within the service's entry.
    std::function<void(IMAPISupport*, IProviderAdmin*)> inEntry;

    // What it was asked, in order: "entry 2", "init", "logon"...
    std::vector<std::string> calls;
    std::vector<Common::PropValue> entryValues;
    ULONG entryFlags = 0;
    bool entryHadAdmin = false;
    bool entryHadSupport = false;
    Common::Bytes logonEntryId;
    std::wstring logonProfile;
    ULONG logonFlags = 0;
    ULONG openFlags = 0;
    // The support object of the logon last made, for as long as its store is open.
    IMAPISupport* support = nullptr;
    // The store last given, without a reference.
    IMsgStore* store = nullptr;
};

/// "GetFakeProviderState".
using GET_FAKE_PROVIDER_STATE = FakeProviderState* (*)();
} // namespace Tests
