// What the testbed's tests share: the MAPI module, a folder to write in, and a watch for what is left behind.
#pragma once

#include "tests/common/LoadedMapi.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace Tests
{
/// The MAPI module of the build's mail client folder, loaded by the first call.
const std::shared_ptr<LoadedMapi>& Mapi();
/// Its memory.
const Common::MapiMemory& Memory();

/// A path in the test's own folder; nothing is there by that name.
std::filesystem::path TempPath(const std::wstring& name);
/// A folder of the build: "mail-client" or "bin".
std::filesystem::path MailClientFolder();
std::filesystem::path BinFolder();

/// Expects that `body` throws a `Failure` with this result.
template <class F>
void ExpectFailure(HRESULT result, F&& body)
{
    try
    {
        body();
        ADD_FAILURE() << "no failure was thrown";
    }
    catch (const Common::Failure& failure)
    {
        EXPECT_EQ(failure.Result(), result) << failure.what();
        EXPECT_FALSE(failure.Text().empty());
    }
}

/// Fails every test at whose end a MAPI block or a COM object of this program is left.
void InstallLeakListener();
} // namespace Tests
