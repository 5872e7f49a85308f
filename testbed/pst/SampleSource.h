// Sample mail, generated in code: a store of any size that takes no room.
#pragma once

#include "testbed/pst/StoreSource.h"

#include <string_view>

namespace Testbed::Pst
{
/// What a sample store holds.
struct SampleSize
{
    /// Folders below the top of the store; every fourth one lies in the folder before it.
    std::uint32_t folders = 0;
    /// Messages in each of these folders.
    std::uint32_t messages = 0;
    /// Another seed gives other mail, and another store.
    std::uint32_t seed = 0;
};

/// The text that a sample store's file starts with, followed by a line end and "folders=F messages=M seed=S".
constexpr std::string_view sampleMagic = "KivNst sample store";

/// Reads a sample store's file; nothing when it does not start with the magic. Throws `Failure`
/// (MAPI_E_CORRUPT_STORE) when it does and the rest is not as it should be, or asks for more than a store can number.
std::optional<SampleSize> ParseSample(std::string_view text);

/// The store that the text describes. The same size and seed always give the same mail.
std::shared_ptr<const StoreSource> MakeSampleStore(const SampleSize& size, const std::wstring& displayName);
} // namespace Testbed::Pst
