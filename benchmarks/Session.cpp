// A logon and the reading of all mail by way of MAPI, of a PST file with the mail client's provider alone and behind a
// host's service.
#include "common/Text.h"
#include "tools/browser/ArchiveSession.h"

#include <benchmark/benchmark.h>

#include <objbase.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

using namespace Common;
using namespace Browser;

namespace
{

/// A profile with one store.
struct Place
{
    std::shared_ptr<const Mapi> mapi;
    std::wstring profile;
    Bytes store;
};

/// A session with the store of a place, for as long as it lives.
class OpenPlace
{
public:
    explicit OpenPlace(const Place& place) : m_session(place.mapi, place.profile)
    {
        Check(m_session.Session().OpenMsgStore(0, static_cast<ULONG>(place.store.size()), EntryIdOf(place.store),
                                               nullptr, MDB_NO_DIALOG, m_store.Put()),
              L"The store cannot be opened.");
    }

    const MapiMemory& Memory() const noexcept { return m_session.Memory(); }
    IMsgStore& Store() const noexcept { return *m_store; }

private:
    ProfileSession m_session;
    ComPtr<IMsgStore> m_store;
};

/// The fetched mail, or generated where there is none.
std::filesystem::path FindMail(const std::filesystem::path& folder)
{
    wchar_t place[MAX_PATH] = {};
    const DWORD length = GetEnvironmentVariableW(L"KIVNST_PST_DATA", place, MAX_PATH);
    std::filesystem::path file = std::filesystem::path(place) / "enron.pst";
    std::error_code error;
    if (length != 0 && length < MAX_PATH && std::filesystem::exists(file, error))
        return file;
    file = folder / "sample.pst";
    std::ofstream(file, std::ios::binary) << "KivNst sample store\nfolders=4 messages=20 seed=1\n";
    return file;
}

Place MakeProfile(const std::shared_ptr<const Mapi>& mapi, const std::wstring& name)
{
    if (ProfileExists(*mapi, name))
        DeleteProfile(*mapi, name);
    CreateProfile(*mapi, name);
    return {mapi, name, {}};
}

/// The only store of the profile.
Place WithStore(Place place)
{
    const ProfileSession session(place.mapi, place.profile);
    const auto stores = ListStores(session.Memory(), session.Session());
    if (stores.size() != 1)
        Fail(MAPI_E_NOT_FOUND, L"The profile \"" + place.profile + L"\" has not one store.");
    place.store = stores.front().entryId;
    return place;
}

std::filesystem::path CopyMail(const std::filesystem::path& mail, const wchar_t* name)
{
    const std::filesystem::path copy = std::filesystem::current_path() / name;
    // GCC's library does not write over a file on Windows, whatever it is told.
    std::filesystem::remove(copy);
    std::filesystem::remove(copy.wstring() + L".overlay");
    std::filesystem::copy_file(mail, copy);
    return copy;
}

Place MakeDirect(const std::shared_ptr<const Mapi>& mapi, const std::filesystem::path& file)
{
    Place place = MakeProfile(mapi, L"Benchmark direct");
    Services services(*mapi, place.profile);
    services.Create(L"MSUPST MS");
    services.Configure(services.List().front(), {PropValue::String(Tags::pstPathW, file.wstring())});
    return WithStore(place);
}

Place MakeArchive(const std::shared_ptr<const Mapi>& mapi, const std::filesystem::path& file, const wchar_t* profile,
                  const Setting& setting)
{
    Place place = MakeProfile(mapi, profile);
    ArchiveSession(mapi, {place.profile, L"ArchiveSvc", {}}).Configure(file, setting);
    return WithStore(place);
}

/// Reads all properties of all messages below a folder; gives how many properties there are.
std::size_t ReadAll(const OpenPlace& place, const Bytes& entryId)
{
    std::size_t count = 0;
    const auto folder = OpenFolder(place.Store(), entryId);
    for (const Row& row : ReadTable(place.Memory(), *Contents(*folder, false), {PR_ENTRYID}))
    {
        const auto message = OpenMessage(place.Store(), row[0].AsBytes());
        count += ReadProperties(place.Memory(), *message, true).values.size();
    }
    for (const FolderRow& row : SubFolders(place.Memory(), *folder))
        if (row.type != FOLDER_SEARCH)
            count += ReadAll(place, row.entryId);
    return count;
}

void AddCases(const std::string& of, const char* variant, const Place& place)
{
    benchmark::RegisterBenchmark(("logon and logoff" + of + "/" + variant).c_str(),
                                 [place](benchmark::State& state)
                                 {
                                     for ([[maybe_unused]] auto _ : state)
                                         const OpenPlace open(place);
                                 })
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("all messages' properties" + of + "/" + variant).c_str(),
                                 [place](benchmark::State& state)
                                 {
                                     const OpenPlace open(place);
                                     std::size_t count = 0;
                                     for ([[maybe_unused]] auto _ : state)
                                         count = ReadAll(open, {});
                                     if (count == 0)
                                         state.SkipWithError("there are no messages");
                                 })
        ->Unit(benchmark::kMillisecond);
}

int Run(int argc, char** argv)
{
    const auto mapi = Mapi::Start();
    const std::filesystem::path mail = FindMail(std::filesystem::current_path());
    Setting kit;
    kit.kit = true;
    const Place direct = MakeDirect(mapi, CopyMail(mail, L"direct.pst"));
    const Place library = MakeArchive(mapi, CopyMail(mail, L"library.pst"), L"Benchmark library", {});
    const Place hostKit = MakeArchive(mapi, CopyMail(mail, L"kit.pst"), L"Benchmark kit", kit);
    AddCases("", "direct", direct);
    AddCases("", "wrapper", library);
    AddCases(", host kit", "direct", direct);
    AddCases(", host kit", "wrapper", hostKit);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // What they hold of MAPI is released before MAPI ends.
    benchmark::ClearRegisteredBenchmarks();
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 1;
    try
    {
        return Run(argc, argv);
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
