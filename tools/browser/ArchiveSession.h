// The ways in which the browser opens stores: a profile's archive, any other store of a profile, and a PST file
// unwrapped.
#pragma once

#include "tools/browser/MapiTools.h"
#include "tools/browser/Profile.h"

#include <filesystem>
#include <memory>

namespace Browser
{
/// How the archive's objects come out: which wrappers, and whether they let changes through.
struct Setting
{
    bool plain = false;
    bool modify = false;
    /// The host kit's objects, and not the library's own of either kind.
    bool kit = false;
    /// What the store's host gives of itself; it is told nothing. The others are settings of the sample host.
    bool asIs = false;

    /// The sample host's option bits.
    LONG Options() const noexcept;
    /// "read-only wrappers, modification off".
    std::string Name() const;

    bool operator==(const Setting&) const = default;
};

/// A store as the stores table of a session shows it.
struct StoreRow
{
    std::wstring name;
    std::wstring provider;
    Common::Bytes entryId;
    /// The identifier of the message service that it belongs to; empty where the table does not say.
    Common::Bytes service;
    bool isDefault = false;
};

/// The stores of a session's profile. Throws `Common::Failure`.
std::vector<StoreRow> ListStores(const Common::MapiMemory& memory, IMAPISession& session);

/// A session with a profile, for as long as it lives. Methods of this and of the classes below throw `Common::Failure`.
class ProfileSession
{
public:
    /// An empty name is the default profile.
    ProfileSession(std::shared_ptr<const Mapi> mapi, const std::wstring& profile);
    ~ProfileSession();
    ProfileSession(const ProfileSession&) = delete;
    ProfileSession& operator=(const ProfileSession&) = delete;

    const Common::MapiMemory& Memory() const noexcept { return m_mapi->Memory(); }
    IMAPISession& Session() const noexcept { return *m_session; }

private:
    std::shared_ptr<const Mapi> m_mapi;
    Common::ComPtr<IMAPISession> m_session;
};

/// A store that is open, in a session of its own.
class StoreSession
{
public:
    StoreSession(const StoreSession&) = delete;
    StoreSession& operator=(const StoreSession&) = delete;

    const Common::MapiMemory& Memory() const noexcept { return m_mapi->Memory(); }
    IMAPISession& Session() const noexcept { return m_session->Session(); }
    IMsgStore& Store() const noexcept { return *m_store; }
    /// The module of the store's message service as the profile names it; empty where the store was named itself.
    const std::wstring& DllName() const noexcept { return m_dllName; }
    /// Releases the store and ends the session.
    void Logoff() noexcept;

protected:
    explicit StoreSession(std::shared_ptr<const Mapi> mapi) : m_mapi(std::move(mapi)) {}
    ~StoreSession() { Logoff(); }

    const std::shared_ptr<const Mapi>& MapiOf() const noexcept { return m_mapi; }
    /// Begins a session with a profile.
    void Begin(const std::wstring& profile);
    /// Opens the store of a message service.
    void Open(const ServiceRow& service, ULONG flags);
    /// Opens the store of that display name.
    void Open(const std::wstring& name, ULONG flags);

private:
    void Open(const StoreRow& row, const std::wstring& service, ULONG flags);

    std::shared_ptr<const Mapi> m_mapi;
    std::unique_ptr<ProfileSession> m_session;
    Common::ComPtr<IMsgStore> m_store;
    std::wstring m_dllName;
};

/// Which store of which profile is meant.
struct Place
{
    /// Empty for the default profile.
    std::wstring profile;
    /// The message service whose store is the archive, as MAPISVC.INF names it.
    std::wstring service;
    /// The display name of another store; empty for the service's.
    std::wstring store;
};

/// The archive of a profile, opened as a mail client opens it.
class ArchiveSession : public StoreSession
{
public:
    ArchiveSession(std::shared_ptr<const Mapi> mapi, Place place);

    /// The profile's name.
    const std::wstring& Profile() const;
    /// Whether there is the profile and has the service, with a file.
    bool Configured() const;
    /// Makes the profile and the service where they are not there yet, and gives the service the archive's file and the
    /// setting. What fails to be configured leaves the profile as it was.
    void Configure(const std::filesystem::path& archive, const Setting& setting);
    /// The archive's file as the profile names it; empty when there is none.
    std::filesystem::path ArchivePath() const;
    /// Has the host use the setting and logs on (anew). Another store than the service's is opened as it is, and so is
    /// that of another host than the sample host, from which a setting that is not the default cannot be had.
    void Logon(const Setting& setting);
    /// Whether the store is one of the sample host, whose settings can be chosen.
    bool HasSettings() const;

private:
    std::optional<ServiceRow> Service() const;

    Place m_place;
};

/// A file behind a host's service in a temporary profile.
class ScratchArchive : public StoreSession
{
public:
    ScratchArchive(std::shared_ptr<const Mapi> mapi, const std::wstring& service, const std::filesystem::path& file,
                   const Setting& setting);
};

/// A PST file opened with the mail client's provider alone, in a temporary profile. Throws `Common::Failure` when there
/// is no such file, or none that is a PST.
class PstSession : public StoreSession
{
public:
    /// `mustExist` false makes a new store where no file is. `writable` asks for write access.
    PstSession(std::shared_ptr<const Mapi> mapi, const std::filesystem::path& file, bool mustExist = true,
               bool writable = false);
};

/// Throws `Common::Failure`, with a sentence that names the file, unless there is a file that can be read.
void RequireFile(const std::filesystem::path& file);

/// The file that a profile's archive gets where none is named: the profile's name in the current folder.
std::filesystem::path DefaultArchive(const std::wstring& profile);

/// A folder of its own in the temporary folder, removed with all that is in it at the end.
class ScratchFolder
{
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& Path() const noexcept { return m_path; }
    /// Copies a file into the folder; gives the copy's path.
    std::filesystem::path Copy(const std::filesystem::path& file) const;

private:
    std::filesystem::path m_path;
};
} // namespace Browser
