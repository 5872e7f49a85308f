// Sessions with the archive and with bare PST files.
#include "tools/browser/ArchiveSession.h"

#include "common/Text.h"
#include "host/HostSettings.h"

#include <system_error>

using namespace Common;
using namespace Testbed;

namespace Browser
{
namespace
{
ServiceDefinition ArchiveService()
{
    return {L"ARCHIVE", L"Archive", ProgramFolder() / "ArchiveHost.dll", "ServiceEntry"};
}

SessionOptions PstOptions()
{
    auto mapi = MapiModule::LoadRegistered();
    // The mail client's modules lie together.
    const auto module = mapi->Path().parent_path() / "mspst32.dll";
    return {{L"PST", L"Personal Folders", module, "NSTServiceEntry"}, Profile::InMemory(L"source"), std::move(mapi)};
}

PropValue OptionsValue(const Setting& setting)
{
    return PropValue::Long(PR_ARCHIVE_HOST_OPTIONS, setting.Options());
}

// Undoes what a failed configuration left, so that a wrong path does not leave a profile that cannot be used.
class NewServiceGuard
{
public:
    explicit NewServiceGuard(MailSession& session) : m_session(session) {}
    ~NewServiceGuard()
    {
        if (m_armed)
        {
            try
            {
                m_session.DeleteService();
            }
            catch (const std::exception&)
            {
                // What made the configuration fail is reported, and not this.
            }
        }
    }
    NewServiceGuard(const NewServiceGuard&) = delete;
    NewServiceGuard& operator=(const NewServiceGuard&) = delete;
    void Keep() noexcept { m_armed = false; }

private:
    MailSession& m_session;
    bool m_armed = true;
};
} // namespace

LONG Setting::Options() const noexcept
{
    LONG options = 0;
    options |= plain ? LONG{ArchiveHost::OptionPlainWrappers} : LONG{ArchiveHost::OptionLibraryWrappers};
    options |= modify ? LONG{ArchiveHost::OptionModifyStores} : 0;
    return options;
}

std::string Setting::Name() const
{
    return std::string(plain ? "plain" : "read-only") + " wrappers, modification " + (modify ? "on" : "off");
}

std::filesystem::path ProgramFolder()
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;)
    {
        const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0)
            Fail(MAPI_E_CALL_FAILED, L"The system does not say where this program lies.");
        if (length < path.size())
        {
            path.resize(length);
            return std::filesystem::path(path).parent_path();
        }
        path.resize(path.size() * 2);
    }
}

std::filesystem::path DefaultProfile()
{
    return ProgramFolder().parent_path() / "demo" / "archive.profile";
}

ArchiveSession::ArchiveSession(std::shared_ptr<Profile> profile)
    : m_session(SessionOptions{ArchiveService(), std::move(profile), nullptr})
{
}

bool ArchiveSession::Configured() const
{
    return m_session.HasService();
}

void ArchiveSession::Configure(const std::filesystem::path& archive, const Setting& setting)
{
    const std::filesystem::path full = std::filesystem::absolute(archive).make_preferred();
    const bool isNew = !m_session.HasService();
    if (isNew)
        m_session.CreateService();
    NewServiceGuard guard(m_session);
    if (!isNew)
        guard.Keep();
    m_session.Configure({PropValue::String(Tags::offlineStorePathW, full.wstring()), OptionsValue(setting)});
    if (isNew)
    {
        // Only a logon shows whether there can be a store.
        m_session.Logon();
        m_session.Logoff();
    }
    guard.Keep();
}

std::filesystem::path ArchiveSession::ArchivePath() const
{
    if (!m_session.HasService())
        return {};
    const PropertyBag section = m_session.ProfileOf().Section(m_session.ServiceSection());
    const PropValue* const path = section.Find(PROP_ID(Tags::offlineStorePathW));
    return path ? std::filesystem::path(path->AsText()) : std::filesystem::path();
}

void ArchiveSession::Logon(const Setting& setting)
{
    if (!Configured())
    {
        Fail(MAPI_E_UNCONFIGURED, L"The profile \"" + m_session.ProfileOf().File().wstring() +
                                      L"\" has no archive yet; \"archive-browser import FILE.pst\" makes one.");
    }
    const PropertyBag section = m_session.ProfileOf().Section(m_session.ServiceSection());
    const PropValue* const options = section.Find(PROP_ID(PR_ARCHIVE_HOST_OPTIONS));
    if (!options || options->AsLong() != setting.Options())
        m_session.Configure({OptionsValue(setting)});
    m_session.Logon();
}

PstSession::PstSession(const std::filesystem::path& file, bool mustExist, bool writable) : m_session(PstOptions())
{
    if (mustExist)
        RequireFile(file);
    m_session.CreateService();
    m_session.ConfigurePath(std::filesystem::absolute(file).make_preferred().wstring());
    LogonOptions options;
    options.flags = MDB_NO_DIALOG | MAPI_UNICODE | logonUnicode | (writable ? MDB_WRITE : 0);
    m_session.Logon(options);
}

void RequireFile(const std::filesystem::path& file)
{
    std::error_code error;
    const auto status = std::filesystem::status(file, error);
    if (!std::filesystem::exists(status))
        Fail(MAPI_E_NOT_FOUND, L"There is no file \"" + file.wstring() + L"\".");
    if (!std::filesystem::is_regular_file(status))
        Fail(MAPI_E_NOT_FOUND, L"\"" + file.wstring() + L"\" is not a file.");
}

std::filesystem::path OverlayOf(const std::filesystem::path& file)
{
    std::filesystem::path overlay = file;
    overlay += ".overlay";
    return overlay;
}

ScratchFolder::ScratchFolder()
{
    const Uid uid = Uid::Create();
    m_path = std::filesystem::temp_directory_path() / (L"archive-browser-" + uid.Text());
    std::filesystem::create_directory(m_path);
}

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::filesystem::path ScratchFolder::CopyStore(const std::filesystem::path& file) const
{
    const std::filesystem::path copy = m_path / file.filename();
    for (const auto& [from, to] : {std::pair(file, copy), std::pair(OverlayOf(file), OverlayOf(copy))})
    {
        std::error_code error;
        if (!std::filesystem::exists(from, error))
            continue;
        std::filesystem::copy_file(from, to, error);
        if (error)
        {
            Fail(MAPI_E_DISK_ERROR, L"\"" + from.wstring() + L"\" cannot be copied to \"" + to.wstring() + L"\": " +
                                        WideFromAnsi(error.message()) + L".");
        }
    }
    return copy;
}
} // namespace Browser
