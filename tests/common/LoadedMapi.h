// The loaded MAPI module (olmapi32.dll), found as MAPI's stub finds it.
#pragma once

#include "common/Boundary.h"
#include "testbed/mapi/Olmapi.h"

#include <filesystem>
#include <memory>

namespace Tests
{
/// Holds olmapi32.dll loaded and gives its functions. Several may exist; they share the module's state.
class LoadedMapi
{
public:
    /// Loads the module from `path`. Throws `Failure` (MAPI_E_NOT_FOUND with the path and the system's reason, or
    /// MAPI_E_VERSION when it lacks MAPI's functions).
    static std::shared_ptr<LoadedMapi> Load(const std::filesystem::path& path);

    /// Loads the module that the registered mail client names (HKEY_LOCAL_MACHINE\Software\Clients\Mail).
    /// Throws `Failure` as `Load` does, and MAPI_E_NOT_INITIALIZED when no mail client is registered.
    static std::shared_ptr<LoadedMapi> LoadRegistered();

    ~LoadedMapi();
    LoadedMapi(const LoadedMapi&) = delete;
    LoadedMapi& operator=(const LoadedMapi&) = delete;

    const std::filesystem::path& Path() const noexcept { return m_path; }
    const Common::MapiMemory& Memory() const noexcept { return m_memory; }

    /// The counts of blocks; a module without them (any other MAPI) gives zeros.
    Testbed::OlmapiStatistics Statistics() const noexcept;
    /// See "OlmapiFailAllocation"; nothing in a module without it.
    void FailAllocation(ULONG nth) const noexcept;
    /// A text that lists the live blocks, one a line; empty when there are none.
    std::wstring LiveBlocks(ULONGLONG firstSerial = 0) const;
    /// See "OlmapiRequireNoBlocks".
    void RequireNoBlocks(ULONGLONG firstSerial = 0) const noexcept;

private:
    LoadedMapi(HMODULE module, std::filesystem::path path);

    HMODULE m_module;
    std::filesystem::path m_path;
    Common::MapiMemory m_memory;
};
} // namespace Tests
