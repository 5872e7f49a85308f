// The two ways in which the browser opens stores: an archive through the sample host, and a PST file unwrapped.
#pragma once

#include "testbed/mapi/MailSession.h"

#include <filesystem>
#include <memory>

namespace Browser
{
/// How the archive's objects come out: which wrappers, and whether they let changes through.
struct Setting
{
    bool plain = false;
    bool modify = false;

    /// The host's option bits.
    LONG Options() const noexcept;
    /// "read-only wrappers, modification off".
    std::string Name() const;

    bool operator==(const Setting&) const = default;
};

/// The folder of this program, where the host's modules lie too.
std::filesystem::path ProgramFolder();

/// The profile that is used where none is named: in the folder "demo" beside the program's own.
std::filesystem::path DefaultProfile();

/// The archive of a profile, opened through ArchiveHost.dll as MAPI does. Methods throw `Common::Failure`.
class ArchiveSession
{
public:
    explicit ArchiveSession(std::shared_ptr<Testbed::Profile> profile);

    /// Whether the profile has an archive.
    bool Configured() const;
    /// Creates the service where there is none yet, and gives it the archive's file and the setting. A service that
    /// fails to be configured leaves the profile as it was.
    void Configure(const std::filesystem::path& archive, const Setting& setting);
    /// The archive's file as the profile names it; empty when there is none.
    std::filesystem::path ArchivePath() const;
    /// Has the host use the setting and logs on (anew).
    void Logon(const Setting& setting);
    void Logoff() { m_session.Logoff(); }

    Testbed::MailSession& Session() noexcept { return m_session; }
    const Common::MapiMemory& Memory() const { return m_session.Memory(); }
    IMsgStore& Store() const { return *m_session.Store(); }

private:
    Testbed::MailSession m_session;
};

/// A PST file opened with the mail client's provider alone. Throws `Common::Failure` when there is no such file, or
/// none that is a PST.
class PstSession
{
public:
    /// `mustExist` false makes a new store where no file is. `writable` asks for write access.
    explicit PstSession(const std::filesystem::path& file, bool mustExist = true, bool writable = false);

    Testbed::MailSession& Session() noexcept { return m_session; }
    const Common::MapiMemory& Memory() const { return m_session.Memory(); }
    IMsgStore& Store() const { return *m_session.Store(); }

private:
    Testbed::MailSession m_session;
};

/// Throws `Common::Failure`, with a sentence that names the file, unless there is a file that can be read.
void RequireFile(const std::filesystem::path& file);

/// A folder of its own in the temporary folder, removed with all that is in it at the end.
class ScratchFolder
{
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& Path() const noexcept { return m_path; }
    /// Copies an archive, or any PST, with the file in which the provider keeps changes to it; gives the copy's path.
    std::filesystem::path CopyStore(const std::filesystem::path& file) const;

private:
    std::filesystem::path m_path;
};

/// The file in which the PST provider keeps the changes to a store.
std::filesystem::path OverlayOf(const std::filesystem::path& file);
} // namespace Browser
