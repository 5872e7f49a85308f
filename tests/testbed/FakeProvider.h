// A provider module for tests of the session: it records how it was called and answers as it is told.
#pragma once

#include "common/ComPtr.h"
#include "common/PropValue.h"

#include <string>
#include <vector>

namespace Tests
{
/// What FakeProvider.dll was asked and what it is to answer. The test program and the module are built by the same
/// compiler with the same library, so they may share it.
struct FakeProviderState
{
    // What it answers.
    HRESULT entryResult = S_OK;
    HRESULT initResult = S_OK;
    HRESULT logonResult = S_OK;
    std::wstring errorText;
    bool giveStore = true;
    bool giveLogon = true;

    // What it was asked, in order: "entry 2", "init", "logon"...
    std::vector<std::string> calls;
    std::vector<Common::PropValue> entryValues;
    bool entryHadAdmin = false;
    bool entryHadSupport = false;
    Common::Bytes logonEntryId;
    std::wstring logonProfile;
    ULONG logonFlags = 0;
    Common::Bytes spoolerSecurity;
    Common::ComPtr<IMAPISupport> support;
};

/// "GetFakeProviderState".
using GET_FAKE_PROVIDER_STATE = FakeProviderState* (*)();
} // namespace Tests
