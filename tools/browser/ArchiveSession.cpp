// Sessions with the archive, with other stores and with bare PST files.
#include "tools/browser/ArchiveSession.h"

#include "common/Text.h"
#include "host/HostSettings.h"

#include <cstring>
#include <system_error>

using namespace Common;

namespace Browser
{
namespace
{
// The mail client's own service for PST files of today's format.
constexpr auto pstService = L"MSUPST MS";

// No standard folders are made and the spooler is not told; nobody is asked anything.
constexpr ULONG quietly = MDB_NO_DIALOG | MDB_NO_MAIL;

PropValue OptionsValue(const Setting& setting)
{
    return PropValue::Long(PR_ARCHIVE_HOST_OPTIONS, setting.Options());
}

std::wstring FullPath(const std::filesystem::path& file)
{
    return std::filesystem::absolute(file).make_preferred().wstring();
}

// The options of the service's store; an error for that of another host than the sample host, which keeps them from the
// first configuration on.
PropValue OptionsOf(const Services& services, const ServiceRow& service)
{
    return services.Read(service, {PR_ARCHIVE_HOST_OPTIONS}).front();
}

// Has a service that is configured use the setting. Another host's is left alone.
void Choose(Services& services, const ServiceRow& service, const Setting& setting)
{
    if (setting.asIs)
        return;
    const PropValue options = OptionsOf(services, service);
    if (!options.IsError())
    {
        if (options.AsLong() != setting.Options())
            services.Configure(service, {OptionsValue(setting)});
    }
    else if (!(setting == Setting{}))
    {
        Fail(MAPI_E_NO_SUPPORT, L"The message service \"" + service.name +
                                    L"\" is not the sample host's: which objects it gives, and whether they can be "
                                    L"changed, is its own affair.");
    }
}

// Gives a service without an archive one.
void GiveArchive(Services& services, const ServiceRow& service, const std::filesystem::path& archive,
                 const Setting& setting)
{
    services.Configure(service, {PropValue::String(Tags::offlineStorePathW, FullPath(archive))});
    Choose(services, service, setting);
}

// Adds a service to a profile that has none of it yet.
ServiceRow AddService(Services& services, const std::wstring& name)
{
    const MAPIUID uid = services.Create(name);
    for (ServiceRow& row : services.List())
        if (std::memcmp(&row.uid, &uid, sizeof(uid)) == 0)
            return std::move(row);
    Fail(MAPI_E_CALL_FAILED, L"MAPI does not list the message service \"" + name + L"\", which it has just made.");
}

// Undoes what a failed configuration left, so that a wrong path does not leave a profile that cannot be used.
class Undo
{
public:
    explicit Undo(std::function<void()> undo) : m_undo(std::move(undo)) {}
    ~Undo()
    {
        try
        {
            if (m_undo)
                m_undo();
        }
        catch (const std::exception&)
        {
            // What made the configuration fail is reported, and not this.
        }
    }
    Undo(const Undo&) = delete;
    Undo& operator=(const Undo&) = delete;
    void Keep() noexcept { m_undo = nullptr; }

private:
    std::function<void()> m_undo;
};
} // namespace

LONG Setting::Options() const noexcept
{
    LONG options = 0;
    if (!kit)
        options |= plain ? LONG{ArchiveHost::OptionPlainWrappers} : LONG{ArchiveHost::OptionLibraryWrappers};
    options |= modify ? LONG{ArchiveHost::OptionModifyStores} : 0;
    return options;
}

std::string Setting::Name() const
{
    if (asIs)
        return "the host's own objects";
    return std::string(kit     ? "the host kit's"
                       : plain ? "plain"
                               : "read-only") +
           " wrappers, modification " + (modify ? "on" : "off");
}

std::vector<StoreRow> ListStores(const MapiMemory& memory, IMAPISession& session)
{
    ComPtr<IMAPITable> table;
    CheckCall(memory, session, session.GetMsgStoresTable(MAPI_UNICODE, table.Put()), L"IMAPISession::GetMsgStoresTable",
              L"The session does not list its stores");
    std::vector<StoreRow> stores;
    for (const Row& row : ReadTable(
             memory, *table, {PR_ENTRYID, PR_DISPLAY_NAME_W, PR_PROVIDER_DISPLAY_W, PR_SERVICE_UID, PR_DEFAULT_STORE}))
    {
        stores.push_back({row[1].AsText(), row[2].AsText(), row[0].AsBytes(), row[3].AsBytes(),
                          !row[4].IsError() && row[4].AsLong() != 0});
    }
    return stores;
}

ProfileSession::ProfileSession(std::shared_ptr<const Mapi> mapi, const std::wstring& profile)
    : m_mapi(std::move(mapi)),
      m_session(m_mapi->Logon(profile))
{
}

ProfileSession::~ProfileSession()
{
    m_session->Logoff(0, 0, 0);
}

void StoreSession::Logoff() noexcept
{
    m_store.Reset();
    m_session.reset();
}

void StoreSession::Begin(const std::wstring& profile)
{
    Logoff();
    m_session = std::make_unique<ProfileSession>(m_mapi, profile);
}

void StoreSession::Open(const ServiceRow& service, ULONG flags)
{
    m_dllName = service.dllName;
    for (const StoreRow& row : ListStores(Memory(), Session()))
        if (row.service.size() == sizeof(MAPIUID) &&
            std::memcmp(row.service.data(), &service.uid, sizeof(MAPIUID)) == 0)
            return Open(row, service.name, flags);
    LogCause(L"IMAPISession::GetMsgStoresTable", MAPI_E_NOT_FOUND,
             L"no store of the message service \"" + service.name + L"\"");
    std::wstring explained = ExplainService(service.name);
    if (!explained.empty())
        Fail(MAPI_E_NOT_FOUND, std::move(explained));
    Fail(MAPI_E_NOT_FOUND, L"The profile's message service \"" + service.name + L"\" has no store.");
}

void StoreSession::Open(const std::wstring& name, ULONG flags)
{
    m_dllName.clear();
    for (const StoreRow& row : ListStores(Memory(), Session()))
        if (CompareStringOrdinal(row.name.c_str(), -1, name.c_str(), -1, TRUE) == CSTR_EQUAL)
            return Open(row, {}, flags);
    Fail(MAPI_E_NOT_FOUND,
         L"The profile has no store \"" + name + L"\"; \"archive-browser stores\" lists those that there are.");
}

void StoreSession::Open(const StoreRow& row, const std::wstring& service, ULONG flags)
{
    const HRESULT result = Session().OpenMsgStore(0, static_cast<ULONG>(row.entryId.size()), EntryIdOf(row.entryId),
                                                  nullptr, flags | quietly, m_store.Put());
    if (SUCCEEDED(result) && m_store)
        return;
    const std::wstring said = ExtendedError(Memory(), Session(), result);
    LogCause(L"IMAPISession::OpenMsgStore", result, said);
    std::wstring explained = service.empty() ? std::wstring() : ExplainService(service);
    if (!explained.empty())
        Fail(result, std::move(explained));
    Fail(result, FailureText(L"The store \"" + row.name + L"\" cannot be opened" +
                                 (result == MAPI_E_NO_ACCESS
                                      ? L" (another program may have its file or its profile section open)"
                                      : L""),
                             result, said));
}

ArchiveSession::ArchiveSession(std::shared_ptr<const Mapi> mapi, Place place)
    : StoreSession(std::move(mapi)),
      m_place(std::move(place))
{
    m_place.profile = ProfileOrDefault(*MapiOf(), m_place.profile);
}

const std::wstring& ArchiveSession::Profile() const
{
    if (m_place.profile.empty())
        Fail(MAPI_E_NOT_FOUND, L"There is no default profile; --profile names another one.");
    return m_place.profile;
}

std::optional<ServiceRow> ArchiveSession::Service() const
{
    if (!ProfileExists(*MapiOf(), Profile()))
        return {};
    return Services(*MapiOf(), Profile()).Find(m_place.service);
}

bool ArchiveSession::Configured() const
{
    const auto service = Service();
    if (!service)
        return false;
    // A program that was stopped in between left the service without a file.
    const auto paths = Services(*MapiOf(), Profile()).Read(*service, {Tags::offlineStorePathW, Tags::pstPathW});
    return !paths[0].IsError() || !paths[1].IsError();
}

void ArchiveSession::Configure(const std::filesystem::path& archive, const Setting& setting)
{
    const std::wstring full = FullPath(archive);
    if (Configured())
    {
        // A host's service gives its store an identity once.
        const std::filesystem::path present = ArchivePath();
        if (present.empty())
        {
            Services unconfigured(*MapiOf(), Profile());
            GiveArchive(unconfigured, *Service(), archive, setting);
            return;
        }
        if (CompareStringOrdinal(present.c_str(), -1, full.c_str(), -1, TRUE) != CSTR_EQUAL)
        {
            Fail(MAPI_E_COLLISION, L"The archive of the profile \"" + Profile() + L"\" is \"" + present.wstring() +
                                       L"\" already; another profile can have another one.");
        }
        Services services(*MapiOf(), Profile());
        Choose(services, *Service(), setting);
        return;
    }
    const bool isNew = !ProfileExists(*MapiOf(), Profile());
    if (isNew)
        CreateProfile(*MapiOf(), Profile());
    Undo noProfile([this] { DeleteProfile(*MapiOf(), Profile()); });
    if (!isNew)
        noProfile.Keep();
    Services services(*MapiOf(), Profile());
    const auto begun = services.Find(m_place.service);
    const ServiceRow service = begun ? *begun : AddService(services, m_place.service);
    Undo noService(
        [&]
        {
            Logoff();
            services.Delete(service.uid);
        });
    GiveArchive(services, service, archive, setting);
    // Only a logon shows whether there can be a store.
    Begin(Profile());
    Open(service, MDB_WRITE);
    Logoff();
    noService.Keep();
    noProfile.Keep();
}

std::filesystem::path ArchiveSession::ArchivePath() const
{
    const auto service = Service();
    if (!service)
        return {};
    return Services(*MapiOf(), Profile()).Read(*service, {Tags::offlineStorePathW}).front().AsText();
}

void ArchiveSession::Logon(const Setting& setting)
{
    // A session that runs would still have the setting of before.
    Logoff();
    if (!ProfileExists(*MapiOf(), Profile()))
    {
        Fail(MAPI_E_NOT_FOUND, L"There is no profile \"" + Profile() +
                                   L"\"; \"archive-browser import FILE.pst\" makes it, with an archive in it.");
    }
    if (!m_place.store.empty())
    {
        Begin(Profile());
        Open(m_place.store, MAPI_BEST_ACCESS);
        return;
    }
    Services services(*MapiOf(), Profile());
    const auto service = services.Find(m_place.service);
    if (!service)
    {
        Fail(MAPI_E_UNCONFIGURED, L"The profile \"" + Profile() + L"\" has no archive yet: its services lack \"" +
                                      m_place.service + L"\", which \"archive-browser import FILE.pst\" adds.");
    }
    if (services.Read(*service, {Tags::offlineStorePathW}).front().AsText().empty())
    {
        Fail(MAPI_E_UNCONFIGURED,
             L"The message service \"" + m_place.service + L"\" of the profile \"" + Profile() +
                 L"\" names no file for its archive; \"archive-browser configure FILE.pst\" gives it one.");
    }
    Choose(services, *service, setting);
    Begin(Profile());
    Open(*service, MDB_WRITE);
}

bool ArchiveSession::HasSettings() const
{
    const auto service = m_place.store.empty() ? Service() : std::nullopt;
    return service && !OptionsOf(Services(*MapiOf(), Profile()), *service).IsError();
}

ScratchArchive::ScratchArchive(std::shared_ptr<const Mapi> mapi, const std::wstring& service,
                               const std::filesystem::path& file, const Setting& setting)
    : StoreSession(std::move(mapi))
{
    TemporaryProfile profile(MapiOf());
    Services services(*MapiOf(), profile.Name());
    const ServiceRow row = AddService(services, service);
    GiveArchive(services, row, file, setting);
    Begin(profile.Name());
    profile.Delete();
    Open(row, MDB_WRITE);
}

PstSession::PstSession(std::shared_ptr<const Mapi> mapi, const std::filesystem::path& file, bool mustExist,
                       bool writable)
    : StoreSession(std::move(mapi))
{
    if (mustExist)
        RequireFile(file);
    TemporaryProfile profile(MapiOf());
    Services services(*MapiOf(), profile.Name());
    const ServiceRow row = AddService(services, pstService);
    services.Configure(row, {PropValue::String(Tags::pstPathW, FullPath(file))});
    Begin(profile.Name());
    profile.Delete();
    Open(row, writable ? MDB_WRITE : 0);
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

std::filesystem::path DefaultArchive(const std::wstring& profile)
{
    return std::filesystem::current_path() / (profile + L".pst");
}

ScratchFolder::ScratchFolder()
{
    GUID guid{};
    Check(CoCreateGuid(&guid), L"The system makes no identifier.");
    m_path = std::filesystem::temp_directory_path() / (L"archive-browser-" + HexText(&guid, sizeof(guid)));
    std::filesystem::create_directory(m_path);
}

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::filesystem::path ScratchFolder::Copy(const std::filesystem::path& file) const
{
    std::filesystem::path copy = m_path / file.filename();
    std::error_code error;
    std::filesystem::copy_file(file, copy, error);
    if (error)
    {
        Fail(MAPI_E_DISK_ERROR, L"\"" + file.wstring() + L"\" cannot be copied to \"" + copy.wstring() + L"\": " +
                                    WideFromAnsi(error.message()) + L".");
    }
    return copy;
}
} // namespace Browser
