// The MAPI subsystem as a client sees it, through mapi32.dll, with a provider that does as it is told.
#include "tests/common/MapiClient.h"
#include "tests/testbed/Environment.h"
#include "tests/testbed/FakeProvider.h"
#include "tests/testbed/OtherProcess.h"

#include "common/MemoryStream.h"
#include "common/StoreEntryId.h"
#include "common/Text.h"
#include "testbed/mapi/Olmapi.h"

#include <atomic>
#include <cstring>
#include <fstream>
#include <thread>

using namespace Common;
using namespace Tests;

namespace
{
constexpr ULONG writing = MDB_WRITE | MDB_NO_DIALOG | MDB_NO_MAIL;
constexpr ULONG sessionFlags = MAPI_EXTENDED | MAPI_NEW_SESSION | MAPI_NO_MAIL;
constexpr MAPIUID fakeUid = {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}};
constexpr ULONG secureTag = PROP_TAG(PT_BINARY, 0x67F0);
using Calls = std::vector<std::string>;

LPTSTR Wide(const std::wstring& text)
{
    return reinterpret_cast<LPTSTR>(const_cast<wchar_t*>(text.c_str()));
}

LPENTRYID EntryId(const Bytes& bytes)
{
    return reinterpret_cast<LPENTRYID>(const_cast<BYTE*>(bytes.data()));
}

// An entry ID of an object in a store of the fake provider.
Bytes FakeEntryId(const MAPIUID& uid = fakeUid)
{
    Bytes bytes(4 + sizeof(uid.ab) + 1);
    std::memcpy(bytes.data() + 4, uid.ab, sizeof(uid.ab));
    bytes.back() = 99;
    return bytes;
}

HRESULT Set(IMAPIProp& object, const PropValue& value, SCODE* problem = nullptr)
{
    const MapiBlock<SPropValue> array(Memory(), MakePropArray(Memory(), {value}));
    MapiBlock<SPropProblemArray> problems(Memory());
    const HRESULT result = object.SetProps(1, array.Get(), problems.Put());
    if (problem)
        *problem = problems ? problems->aProblem[0].scode : S_OK;
    return result;
}

PropValue Get(IMAPIProp& object, ULONG tag)
{
    const MapiBlock<SPropTagArray> tags(Memory(), MakeTagArray(Memory(), {tag}));
    ULONG count = 0;
    MapiBlock<SPropValue> values(Memory());
    EXPECT_TRUE(SUCCEEDED(object.GetProps(tags.Get(), 0, &count, values.Put())));
    return count == 1 ? PropValue::From(values[0]) : PropValue();
}

class Sink final : public ComObject<IMAPIAdviseSink, &IID_IMAPIAdviseSink>
{
public:
    STDMETHODIMP_(ULONG) OnNotify(ULONG count, LPNOTIFICATION notifications) override
    {
        thread = GetCurrentThreadId();
        if (count && notifications[0].ulEventType == fnevObjectDeleted && notifications[0].info.obj.lpEntryID)
            firstByte = reinterpret_cast<const BYTE*>(notifications[0].info.obj.lpEntryID)[0];
        events += static_cast<int>(count);
        return S_OK;
    }

    bool WaitFor(int count) const
    {
        for (int tries = 0; tries < 500 && events < count; ++tries)
            Sleep(10);
        return events == count;
    }

    std::atomic<int> events = 0;
    std::atomic<DWORD> thread = 0;
    std::atomic<int> firstByte = -1;
};

// Holds the fake provider's module loaded.
class FakeModule
{
public:
    FakeModule() : m_module(LoadLibraryW((BinFolder() / L"FakeProvider32.dll").c_str()))
    {
        const auto get = reinterpret_cast<GET_FAKE_PROVIDER_STATE>(
            reinterpret_cast<void*>(GetProcAddress(m_module, "GetFakeProviderState")));
        m_state = get();
        *m_state = {};
    }
    ~FakeModule()
    {
        *m_state = {};
        FreeLibrary(m_module);
    }
    FakeModule(const FakeModule&) = delete;
    FakeModule& operator=(const FakeModule&) = delete;

    FakeProviderState& State() const { return *m_state; }

private:
    HMODULE m_module;
    FakeProviderState* m_state;
};

// One service of the fake provider, in MAPISVC.INF and in a profile of its own.
class Road : public testing::Test
{
protected:
    FakeModule module;
    FakeProviderState& fake = module.State();
    MapiClient client;
    InstalledTestService installed{L"FAKE", L"FakeProvider.dll", L"ServiceEntry", L"",
                                   L"STATUS_NO_DEFAULT_STORE|STATUS_NO_PRIMARY_IDENTITY"};
    TestProfile profile{client};

    // What the profile's end still calls knows nothing of the test any more.
    void TearDown() override
    {
        fake.inEntry = nullptr;
        fake.inLogon = nullptr;
        fake.entryResult = S_OK;
    }

    // The same with the service in the profile, and the calls for that forgotten.
    MAPIUID AddService()
    {
        const MAPIUID uid = profile.CreateService(L"FAKE");
        fake.calls.clear();
        return uid;
    }

    // Opens a section by the administration of services.
    HRESULT OpenSection(MAPIUID uid, ULONG flags, ComPtr<IProfSect>& section) const
    {
        return profile.Services()->OpenProfileSection(&uid, nullptr, flags, section.Put());
    }

    MapiClient::Row ProviderRow(const MAPIUID& service) const
    {
        auto services = profile.Services();
        MAPIUID uid = service;
        ComPtr<IProviderAdmin> admin;
        EXPECT_EQ(services->AdminProviders(&uid, 0, admin.Put()), S_OK);
        ComPtr<IMAPITable> table;
        EXPECT_EQ(admin->GetProviderTable(0, table.Put()), S_OK);
        const auto rows = client.Rows(*table, {});
        EXPECT_EQ(rows.size(), 1u);
        return rows.front();
    }
};

std::vector<std::wstring> ProfileNames(const MapiClient& client)
{
    ComPtr<IMAPITable> table;
    EXPECT_EQ(client.Admin()->GetProfileTable(0, table.Put()), S_OK);
    std::vector<std::wstring> names;
    for (const auto& row : client.Rows(*table, {PR_DISPLAY_NAME_W}))
        names.push_back(row.at(PROP_ID(PR_DISPLAY_NAME)).AsText());
    return names;
}

constexpr DWORD aMinute = 60000;

// Starts this program once more with these arguments; null when it does not start.
HANDLE StartOtherProcess(const std::wstring& arguments)
{
    wchar_t program[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring command = L"\"" + std::wstring(program) + L"\" " + arguments;
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    EXPECT_TRUE(
        CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process));
    if (process.hThread)
        CloseHandle(process.hThread);
    return process.hProcess;
}

bool Has(const std::vector<std::wstring>& names, const std::wstring& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}
} // namespace

TEST(MapiStart, RefusesCallsBeforeItIsInitialized)
{
    const HMODULE mapi = LoadLibraryW((MailClientFolder() / L"olmapi32.dll").c_str());
    const auto admin =
        reinterpret_cast<LPMAPIADMINPROFILES>(reinterpret_cast<void*>(GetProcAddress(mapi, "MAPIAdminProfiles")));
    const auto logon = reinterpret_cast<LPMAPILOGONEX>(reinterpret_cast<void*>(GetProcAddress(mapi, "MAPILogonEx")));
    ComPtr<IProfAdmin> profiles;
    ComPtr<IMAPISession> session;
    EXPECT_EQ(admin(0, profiles.Put()), MAPI_E_NOT_INITIALIZED);
    EXPECT_EQ(logon(0, nullptr, nullptr, MAPI_EXTENDED, session.Put()), MAPI_E_NOT_INITIALIZED);
    FreeLibrary(mapi);
}

TEST(MapiStart, ChecksTheArgumentsOfInitialization)
{
    const HMODULE mapi = LoadLibraryW(L"mapi32.dll");
    const auto initialize =
        reinterpret_cast<LPMAPIINITIALIZE>(reinterpret_cast<void*>(GetProcAddress(mapi, "MAPIInitialize")));
    const auto uninitialize =
        reinterpret_cast<LPMAPIUNINITIALIZE>(reinterpret_cast<void*>(GetProcAddress(mapi, "MAPIUninitialize")));
    MAPIINIT_0 init = {7, 0};
    EXPECT_EQ(initialize(&init), MAPI_E_INVALID_PARAMETER);
    init = {MAPI_INIT_VERSION, 0x4000};
    EXPECT_EQ(initialize(&init), MAPI_E_UNKNOWN_FLAGS);
    EXPECT_EQ(initialize(nullptr), S_OK);
    uninitialize();
    FreeLibrary(mapi);
}

TEST(MapiStart, CountsInitialization)
{
    const MapiClient first;
    {
        const MapiClient second;
    }
    EXPECT_TRUE(first.Admin());
}

TEST(ProfileAdministration, ListsProfilesUntilTheyAreDeleted)
{
    const MapiClient client;
    std::wstring name;
    {
        const TestProfile profile(client);
        name = profile.Name();
        EXPECT_TRUE(Has(ProfileNames(client), name));
    }
    EXPECT_FALSE(Has(ProfileNames(client), name));
    EXPECT_EQ(client.Admin()->DeleteProfile(Wide(name), MAPI_UNICODE), MAPI_E_NOT_FOUND);
}

TEST(ProfileAdministration, RefusesNamesThatAreTakenOrNone)
{
    const MapiClient client;
    const TestProfile profile(client);
    const auto admin = client.Admin();
    EXPECT_EQ(admin->CreateProfile(Wide(profile.Name()), nullptr, 0, MAPI_UNICODE), MAPI_E_NO_ACCESS);
    for (const wchar_t* const name : {L"", L" leading", L"trailing ", L"a\\b", L"a=b"})
        EXPECT_EQ(admin->CreateProfile(Wide(name), nullptr, 0, MAPI_UNICODE), MAPI_E_INVALID_PARAMETER) << name;
    EXPECT_EQ(admin->CreateProfile(Wide(std::wstring(65, L'a')), nullptr, 0, MAPI_UNICODE), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(admin->CreateProfile(nullptr, nullptr, 0, 0), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(admin->CreateProfile(Wide(L"x"), nullptr, 0, MAPI_UNICODE | 0x400), MAPI_E_UNKNOWN_FLAGS);
    EXPECT_FALSE(ErrorText(client.Memory(), *admin, MAPI_E_UNKNOWN_FLAGS).empty());
    EXPECT_EQ(admin->GetProfileTable(0, nullptr), MAPI_E_INVALID_PARAMETER);
}

TEST(ProfileAdministration, HasOneDefaultProfileAtMost)
{
    const MapiClient client;
    const TestProfile first(client);
    const TestProfile second(client);
    const auto admin = client.Admin();
    for (const TestProfile* const chosen : {&first, &second})
    {
        ASSERT_EQ(admin->SetDefaultProfile(Wide(chosen->Name()), MAPI_UNICODE), S_OK);
        ComPtr<IMAPITable> table;
        ASSERT_EQ(admin->GetProfileTable(0, table.Put()), S_OK);
        for (const auto& row : client.Rows(*table, {PR_DISPLAY_NAME_W, PR_DEFAULT_PROFILE}))
        {
            const bool isDefault = row.at(PROP_ID(PR_DEFAULT_PROFILE)).AsLong() != 0;
            EXPECT_EQ(isDefault, row.at(PROP_ID(PR_DISPLAY_NAME)).AsText() == chosen->Name());
        }
    }
    ComPtr<IMAPISession> session;
    EXPECT_EQ(client.TryLogon(nullptr, sessionFlags | MAPI_USE_DEFAULT, session), S_OK);
    ComPtr<IMAPITable> status;
    ASSERT_EQ(session->GetStatusTable(0, status.Put()), S_OK);
    EXPECT_EQ(client.Rows(*status, {PR_DISPLAY_NAME_W}).front().at(PROP_ID(PR_DISPLAY_NAME)).AsText(), second.Name());
    session->Logoff(0, 0, 0);
    EXPECT_EQ(admin->SetDefaultProfile(nullptr, 0), S_OK);
    EXPECT_EQ(client.TryLogon(nullptr, sessionFlags | MAPI_USE_DEFAULT, session), MAPI_E_LOGON_FAILED);
    EXPECT_EQ(admin->SetDefaultProfile(Wide(L"no such"), MAPI_UNICODE), MAPI_E_NOT_FOUND);
}

TEST(ProfileAdministration, RemovesAProfileInUseWhenItsSessionEnds)
{
    const MapiClient client;
    const TestProfile profile(client);
    TestSession session(client, profile.Name());
    EXPECT_EQ(client.Admin()->DeleteProfile(Wide(profile.Name()), MAPI_UNICODE), S_OK);
    EXPECT_FALSE(Has(ProfileNames(client), profile.Name()));
    // The session goes on with it.
    ComPtr<IProfSect> section;
    MAPIUID uid = globalProfileSection;
    ASSERT_EQ(session.Object().OpenProfileSection(&uid, nullptr, 0, section.Put()), S_OK);
    EXPECT_EQ(Get(*section, PR_PROFILE_NAME_W).AsText(), profile.Name());
    section.Reset();
    session.Logoff();
    EXPECT_EQ(client.Admin()->DeleteProfile(Wide(profile.Name()), MAPI_UNICODE), MAPI_E_NOT_FOUND);
}

TEST(ProfileAdministration, RenamesAProfileInUseWhenItsSessionEnds)
{
    const MapiClient client;
    const TestProfile profile(client);
    const std::wstring renamed = profile.Name() + L" renamed";
    TestSession session(client, profile.Name());
    EXPECT_EQ(client.Admin()->RenameProfile(Wide(profile.Name()), nullptr, Wide(renamed), 0, MAPI_UNICODE), S_OK);
    EXPECT_TRUE(Has(ProfileNames(client), profile.Name()));
    session.Logoff();
    EXPECT_FALSE(Has(ProfileNames(client), profile.Name()));
    EXPECT_EQ(client.Admin()->DeleteProfile(Wide(renamed), MAPI_UNICODE), S_OK);
}

TEST(ProfileAdministration, CopiesAllButWhatTellsAProfileFromOthers)
{
    const MapiClient client;
    const TestProfile profile(client);
    const std::wstring copy = profile.Name() + L" copy";
    MAPIUID uid = fakeUid;
    ComPtr<IProfSect> section;
    ASSERT_EQ(profile.Services()->OpenProfileSection(&uid, nullptr, MAPI_MODIFY, section.Put()), S_OK);
    EXPECT_EQ(Set(*section, PropValue::Long(PROP_TAG(PT_LONG, 0x6601), 5)), S_OK);
    section.Reset();
    const auto admin = client.Admin();
    ASSERT_EQ(admin->CopyProfile(Wide(profile.Name()), nullptr, Wide(copy), 0, MAPI_UNICODE), S_OK);
    ComPtr<IMsgServiceAdmin> services;
    ASSERT_EQ(admin->AdminServices(Wide(copy), nullptr, 0, MAPI_UNICODE, services.Put()), S_OK);
    ASSERT_EQ(services->OpenProfileSection(&uid, nullptr, 0, section.Put()), S_OK);
    EXPECT_EQ(Get(*section, PROP_TAG(PT_LONG, 0x6601)).AsLong(), 5);
    std::memcpy(uid.ab, &MUID_PROFILE_INSTANCE, sizeof(uid.ab));
    ComPtr<IProfSect> first;
    ComPtr<IProfSect> second;
    ASSERT_EQ(services->OpenProfileSection(&uid, nullptr, 0, first.Put()), S_OK);
    ASSERT_EQ(profile.Services()->OpenProfileSection(&uid, nullptr, 0, second.Put()), S_OK);
    EXPECT_EQ(Get(*first, PR_SEARCH_KEY).AsBytes().size(), 16u);
    EXPECT_NE(Get(*first, PR_SEARCH_KEY).AsBytes(), Get(*second, PR_SEARCH_KEY).AsBytes());
    EXPECT_EQ(admin->CopyProfile(Wide(L"no such"), nullptr, Wide(copy), 0, MAPI_UNICODE), MAPI_E_NOT_FOUND);
    EXPECT_EQ(admin->DeleteProfile(Wide(copy), MAPI_UNICODE), S_OK);
    EXPECT_EQ(admin->ChangeProfilePassword(nullptr, nullptr, nullptr, 0), S_OK);
    EXPECT_EQ(admin->AdminServices(Wide(L"no such"), nullptr, 0, MAPI_UNICODE, services.Put()), MAPI_E_LOGON_FAILED);
}

TEST(ProfileAdministrationDeathTest, KeepsProfilesOfAKilledProcessButNotItsDeletedOnes)
{
    const std::wstring name = L"Killed " + std::to_wstring(GetTickCount64() / 100000);
    EXPECT_EXIT(
        {
            const MapiClient client;
            auto* const kept = new TestProfile(client, name);
            auto* const gone = new TestProfile(client, name + L" gone");
            auto* const session = new TestSession(client, gone->Name());
            client.Admin()->DeleteProfile(Wide(gone->Name()), MAPI_UNICODE);
            TerminateProcess(GetCurrentProcess(), kept && session ? 17 : 1);
        },
        testing::ExitedWithCode(17), "");
    const MapiClient client;
    EXPECT_TRUE(Has(ProfileNames(client), name));
    EXPECT_EQ(client.Admin()->DeleteProfile(Wide(name), MAPI_UNICODE), S_OK);
    EXPECT_EQ(client.Admin()->DeleteProfile(Wide(name + L" gone"), MAPI_UNICODE), MAPI_E_NOT_FOUND);
}

TEST_F(Road, CopiesTheEntriesOfTheFileIntoTheProfile)
{
    InstalledTestService::Write(L"FAKE", L"66010003", L"06000000");
    InstalledTestService::Write(L"FAKE", L"6602001e", L"text");
    InstalledTestService::Write(L"FAKE_P", L"0x66030102", L"00ff10");
    InstalledTestService::Write(L"FAKE", L"WIZARD_ENTRY_NAME", L"Wizard");
    InstalledTestService::Write(L"FAKE", L"PR_SERVICE_SUPPORT_FILES", L"a.dll, b.dll");
    const MAPIUID uid = AddService();
    ComPtr<IProfSect> section;
    ASSERT_EQ(OpenSection(uid, 0, section), S_OK);
    EXPECT_EQ(Get(*section, PROP_TAG(PT_LONG, 0x6601)).AsLong(), 6);
    EXPECT_EQ(Get(*section, PROP_TAG(PT_STRING8, 0x6602)).AsText(), L"text");
    EXPECT_EQ(Get(*section, PR_SERVICE_NAME_W).AsText(), L"FAKE");
    EXPECT_EQ(Get(*section, PR_DISPLAY_NAME_W).AsText(), L"FAKE service");
    EXPECT_EQ(Get(*section, PR_SERVICE_UID), PropValue::Uid(PR_SERVICE_UID, uid));
    EXPECT_EQ(Get(*section, PR_STORE_PROVIDERS).AsBytes().size(), sizeof(MAPIUID));
    const auto files = Get(*section, PR_SERVICE_SUPPORT_FILES_W);
    ASSERT_TRUE(files.Get<std::vector<std::wstring>>());
    EXPECT_EQ(files.Get<std::vector<std::wstring>>()->size(), 2u);

    const auto row = ProviderRow(uid);
    EXPECT_EQ(row.at(PROP_ID(PR_PROVIDER_DLL_NAME)).AsText(), L"FakeProvider.dll");
    EXPECT_EQ(row.at(PROP_ID(PR_RESOURCE_TYPE)).AsLong(), LONG(MAPI_STORE_PROVIDER));
    EXPECT_EQ(row.at(PROP_ID(PR_RESOURCE_FLAGS)).AsLong(), LONG(STATUS_NO_DEFAULT_STORE | STATUS_NO_PRIMARY_IDENTITY));
    EXPECT_EQ(row.at(PROP_ID(PR_SERVICE_UID)), PropValue::Uid(PR_SERVICE_UID, uid));
    MAPIUID provider = profile.ProviderOf(uid);
    ASSERT_EQ(OpenSection(provider, mapiForceAccess, section), S_OK);
    EXPECT_EQ(Get(*section, PROP_TAG(PT_BINARY, 0x6603)).AsBytes(), (Bytes{0, 0xFF, 0x10}));
}

TEST_F(Road, FindsNoServiceThatTheFileDoesNotList)
{
    const auto services = profile.Services();
    EXPECT_EQ(services->CreateMsgService(Wide(L"FAKE_P"), nullptr, 0, MAPI_UNICODE), MAPI_E_NOT_FOUND);
    EXPECT_NE(ErrorText(client.Memory(), *services, MAPI_E_NOT_FOUND).find(L"FAKE_P"), std::wstring::npos);
    EXPECT_EQ(services->CreateMsgService(nullptr, nullptr, 0, 0), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(services->CreateMsgService(Wide(L"FAKE"), nullptr, 0, MAPI_UNICODE | 0x1000), MAPI_E_UNKNOWN_FLAGS);
    EXPECT_TRUE(fake.calls.empty());
}

TEST_F(Road, SaysThatTheFileIsNotThere)
{
    const std::filesystem::path file = InstalledTestService::File();
    const std::filesystem::path away = file.wstring() + L".away";
    std::filesystem::rename(file, away);
    const auto services = profile.Services();
    EXPECT_EQ(services->CreateMsgService(Wide(L"FAKE"), nullptr, 0, MAPI_UNICODE), MAPI_E_NOT_FOUND);
    EXPECT_NE(ErrorText(client.Memory(), *services, MAPI_E_NOT_FOUND).find(L"MAPISVC.INF is neither"),
              std::wstring::npos);
    std::filesystem::rename(away, file);
}

TEST_F(Road, TakesTheNarrowNameOfAServiceToo)
{
    EXPECT_EQ(profile.Services()->CreateMsgService(reinterpret_cast<LPTSTR>(const_cast<char*>("fake")), nullptr, 0, 0),
              S_OK);
    ComPtr<IMAPITable> table;
    ASSERT_EQ(profile.Services()->GetMsgServiceTable(0, table.Put()), S_OK);
    const auto rows = client.Rows(*table, {PR_SERVICE_NAME_A, PR_SERVICE_ENTRY_NAME, PR_SERVICE_DLL_NAME_A});
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].at(PROP_ID(PR_SERVICE_NAME)), PropValue::String8(PR_SERVICE_NAME_A, "FAKE"));
    EXPECT_EQ(rows[0].at(PROP_ID(PR_SERVICE_ENTRY_NAME)), PropValue::String8(PR_SERVICE_ENTRY_NAME, "ServiceEntry"));
}

TEST_F(Road, MakesOneCopyOfAServiceThatAllowsOne)
{
    InstalledTestService::Write(L"FAKE", L"PR_RESOURCE_FLAGS", L"SERVICE_SINGLE_COPY");
    AddService();
    EXPECT_EQ(profile.Services()->CreateMsgService(Wide(L"FAKE"), nullptr, 0, MAPI_UNICODE), MAPI_E_NO_ACCESS);
}

TEST_F(Road, CreatesAServiceWithoutADialogAndWithoutValues)
{
    profile.CreateService(L"FAKE");
    EXPECT_EQ(fake.calls, Calls{"entry 2"});
    EXPECT_EQ(fake.entryFlags & (SERVICE_UI_ALLOWED | SERVICE_UI_ALWAYS), 0u);
    EXPECT_TRUE(fake.entryValues.empty());
    EXPECT_TRUE(fake.entryHadAdmin);
    EXPECT_TRUE(fake.entryHadSupport);
}

TEST_F(Road, KeepsAServiceThatWaitsForItsConfiguration)
{
    fake.entryResult = MAPI_E_UNCONFIGURED;
    const MAPIUID uid = AddService();
    fake.entryResult = S_OK;
    profile.Configure(uid, {PropValue::Long(PROP_TAG(PT_LONG, 0x6601), 1)});
    EXPECT_EQ(fake.calls, Calls{"entry 3"});
}

TEST_F(Road, TakesBackAServiceThatFailedToBeCreated)
{
    fake.entryResult = MAPI_E_NO_SUPPORT;
    fake.errorText = L"Not this one.";
    const auto services = profile.Services();
    MAPIUID uid = {};
    EXPECT_EQ(services->CreateMsgServiceEx(Wide(L"FAKE"), nullptr, 0, MAPI_UNICODE, &uid), MAPI_E_NO_SUPPORT);
    EXPECT_NE(ErrorText(client.Memory(), *services, MAPI_E_NO_SUPPORT).find(L"Not this one."), std::wstring::npos);
    ComPtr<IMAPITable> table;
    ASSERT_EQ(services->GetMsgServiceTable(0, table.Put()), S_OK);
    EXPECT_TRUE(client.Rows(*table, {PR_SERVICE_NAME}).empty());
    ASSERT_EQ(services->GetProviderTable(0, table.Put()), S_OK);
    EXPECT_TRUE(client.Rows(*table, {PR_PROVIDER_UID}).empty());
}

TEST_F(Road, PutsTheSuffixBeforeTheFirstPeriodOfTheWholeName)
{
    // With the suffix already in it, the name leads to a file with two.
    InstalledTestService::Write(L"FAKE", L"PR_SERVICE_DLL_NAME", L"FakeProvider32.dll");
    const auto services = profile.Services();
    EXPECT_EQ(services->CreateMsgService(Wide(L"FAKE"), nullptr, 0, MAPI_UNICODE), MAPI_E_NOT_FOUND);
    EXPECT_NE(ErrorText(client.Memory(), *services, MAPI_E_NOT_FOUND).find(L"FakeProvider3232.dll"),
              std::wstring::npos);
    // A period in a folder's name gets it.
    const std::wstring path = (TempPath(L"a.b") / L"FakeProvider.dll").wstring();
    InstalledTestService::Write(L"FAKE", L"PR_SERVICE_DLL_NAME", path.c_str());
    EXPECT_EQ(services->CreateMsgService(Wide(L"FAKE"), nullptr, 0, MAPI_UNICODE), MAPI_E_NOT_FOUND);
    EXPECT_NE(ErrorText(client.Memory(), *services, MAPI_E_NOT_FOUND).find(L"a32.b"), std::wstring::npos);
    EXPECT_TRUE(fake.calls.empty());
}

TEST_F(Road, HandsValuesAndFlagsToTheEntryAndItsResultBack)
{
    MAPIUID uid = AddService();
    const PropValue value = PropValue::String(PROP_TAG(PT_UNICODE, 0x6604), L"value");
    profile.Configure(uid, {value});
    EXPECT_EQ(fake.calls, Calls{"entry 3"});
    EXPECT_EQ(fake.entryValues, std::vector<PropValue>{value});
    EXPECT_EQ(fake.entryFlags, ULONG(MAPI_UNICODE));
    fake.entryResult = MAPI_E_USER_CANCEL;
    const auto services = profile.Services();
    EXPECT_EQ(services->ConfigureMsgService(&uid, 0, SERVICE_UI_ALLOWED, 0, nullptr), MAPI_E_USER_CANCEL);
    EXPECT_EQ(fake.entryFlags, ULONG(SERVICE_UI_ALLOWED));
    MAPIUID other = fakeUid;
    EXPECT_EQ(services->ConfigureMsgService(&other, 0, 0, 0, nullptr), MAPI_E_NOT_FOUND);
    EXPECT_EQ(services->ConfigureMsgService(&uid, 0, 0, 1, nullptr), MAPI_E_INVALID_PARAMETER);
}

TEST_F(Road, ConfiguresNoServiceWithoutAnEntry)
{
    InstalledTestService::Write(L"FAKE", L"PR_SERVICE_ENTRY_NAME", nullptr);
    MAPIUID uid = AddService();
    EXPECT_EQ(profile.Services()->ConfigureMsgService(&uid, 0, 0, 0, nullptr), MAPI_E_NOT_INITIALIZED);
}

TEST_F(Road, DeletesAServiceAfterItsEntryWasTold)
{
    MAPIUID uid = AddService();
    MAPIUID provider = profile.ProviderOf(uid);
    HRESULT during = E_FAIL;
    fake.inEntry = [&](IMAPISupport*, IProviderAdmin* admin)
    {
        ComPtr<IProfSect> section;
        during = admin->OpenProfileSection(&provider, nullptr, 0, section.Put());
    };
    const auto services = profile.Services();
    EXPECT_EQ(services->DeleteMsgService(&uid), S_OK);
    EXPECT_EQ(fake.calls, Calls{"entry 4"});
    EXPECT_EQ(during, S_OK);
    ComPtr<IProfSect> section;
    EXPECT_EQ(OpenSection(uid, 0, section), MAPI_E_NOT_FOUND);
    EXPECT_EQ(OpenSection(provider, mapiForceAccess, section), MAPI_E_NOT_FOUND);
    EXPECT_EQ(services->DeleteMsgService(&uid), MAPI_E_NOT_FOUND);
}

TEST_F(Road, GivesTheEntryASupportObjectOfSevenMethods)
{
    HRESULT wrap = S_OK;
    HRESULT status = S_OK;
    HRESULT uids = S_OK;
    HRESULT fresh = E_FAIL;
    HRESULT open = E_FAIL;
    fake.inEntry = [&](IMAPISupport* support, IProviderAdmin* admin)
    {
        const Bytes id = FakeEntryId();
        ULONG size = 0;
        MapiBlock<ENTRYID> wrapped(Memory());
        wrap = support->WrapStoreEntryID(static_cast<ULONG>(id.size()), EntryId(id), &size, wrapped.Put());
        SPropValue value = {};
        value.ulPropTag = PR_STATUS_CODE;
        status = support->ModifyStatusRow(1, &value, 0);
        MAPIUID uid = fakeUid;
        uids = support->SetProviderUID(&uid, 0);
        fresh = support->NewUID(&uid);
        ComPtr<IProfSect> section;
        // The service's own, which nobody else may open meanwhile.
        open = admin->OpenProfileSection(nullptr, nullptr, MAPI_MODIFY, section.Put());
    };
    AddService();
    EXPECT_EQ(wrap, MAPI_E_NO_SUPPORT);
    EXPECT_EQ(status, MAPI_E_NO_SUPPORT);
    EXPECT_EQ(uids, MAPI_E_NO_SUPPORT);
    EXPECT_EQ(fresh, S_OK);
    EXPECT_EQ(open, S_OK);
}

TEST_F(Road, TellsTheEntryOfAClientsNewProviderButNotOfItsOwn)
{
    MAPIUID uid = AddService();
    ComPtr<IProviderAdmin> admin;
    ASSERT_EQ(profile.Services()->AdminProviders(&uid, 0, admin.Put()), S_OK);
    MAPIUID provider = {};
    ASSERT_EQ(admin->CreateProvider(Wide(L"FAKE_P"), 0, nullptr, 0, MAPI_UNICODE, &provider), S_OK);
    EXPECT_EQ(fake.calls, Calls{"entry 6"});
    EXPECT_EQ(admin->DeleteProvider(&provider), S_OK);
    EXPECT_EQ(fake.calls, (Calls{"entry 6", "entry 7"}));
    EXPECT_EQ(admin->DeleteProvider(&provider), MAPI_E_NOT_FOUND);
    EXPECT_EQ(admin->OpenProfileSection(nullptr, nullptr, 0, nullptr), MAPI_E_INVALID_PARAMETER);

    HRESULT inner = E_FAIL;
    fake.calls.clear();
    fake.inEntry = [&](IMAPISupport*, IProviderAdmin* own)
    {
        MAPIUID created = {};
        inner = own->CreateProvider(Wide(L"FAKE_P"), 0, nullptr, 0, MAPI_UNICODE, &created);
    };
    profile.Configure(uid, {});
    EXPECT_EQ(inner, S_OK);
    EXPECT_EQ(fake.calls, Calls{"entry 3"});
    fake.inEntry = nullptr;
    ComPtr<IMAPITable> table;
    ASSERT_EQ(profile.Services()->GetProviderTable(0, table.Put()), S_OK);
    EXPECT_EQ(client.Rows(*table, {PR_PROVIDER_UID}).size(), 2u);
}

TEST_F(Road, OffersNoCopyRenameOrOrderOfServices)
{
    MAPIUID uid = AddService();
    const auto services = profile.Services();
    EXPECT_EQ(services->RenameMsgService(&uid, 0, Wide(L"x")), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(services->CopyMsgService(&uid, nullptr, nullptr, nullptr, nullptr, 0, 0), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(services->MsgServiceTransportOrder(0, nullptr, 0), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(services->SetPrimaryIdentity(&uid, 0), MAPI_E_NO_SUPPORT);
}

TEST_F(Road, OpensASectionForManyReadersOrOneWriter)
{
    const MAPIUID uid = AddService();
    ComPtr<IProfSect> first;
    ComPtr<IProfSect> second;
    ComPtr<IProfSect> third;
    ASSERT_EQ(OpenSection(uid, 0, first), S_OK);
    EXPECT_EQ(OpenSection(uid, 0, second), S_OK);
    EXPECT_EQ(OpenSection(uid, MAPI_MODIFY, third), MAPI_E_NO_ACCESS);
    first.Reset();
    second.Reset();
    ASSERT_EQ(OpenSection(uid, MAPI_MODIFY, first), S_OK);
    EXPECT_EQ(OpenSection(uid, 0, second), MAPI_E_NO_ACCESS);
    EXPECT_EQ(OpenSection(uid, MAPI_MODIFY, second), MAPI_E_NO_ACCESS);
    TestSession session(client, profile.Name());
    MAPIUID copy = uid;
    EXPECT_EQ(session.Object().OpenProfileSection(&copy, nullptr, 0, second.Put()), MAPI_E_NO_ACCESS);
    first.Reset();
    EXPECT_EQ(session.Object().OpenProfileSection(&copy, nullptr, 0, second.Put()), S_OK);
}

TEST_F(Road, HoldsASectionAgainstOtherProcessesUntilItsHolderIsEnded)
{
    const HANDLE held = CreateEventW(nullptr, TRUE, FALSE, heldEvent);
    const HANDLE process = StartOtherProcess(WideFromUtf8(holdArgument) + L" \"" + profile.Name() + L"\"");
    EXPECT_EQ(WaitForSingleObject(held, aMinute), WAIT_OBJECT_0);
    ComPtr<IProfSect> section;
    EXPECT_EQ(OpenSection(heldSection, 0, section), MAPI_E_NO_ACCESS);
    EXPECT_EQ(OpenSection(heldSection, MAPI_MODIFY, section), MAPI_E_NO_ACCESS);
    TerminateProcess(process, 1);
    WaitForSingleObject(process, INFINITE);
    EXPECT_EQ(OpenSection(heldSection, MAPI_MODIFY, section), S_OK);
    for (const HANDLE handle : {process, held})
        CloseHandle(handle);
}

TEST_F(Road, ConfiguresNoServiceWhoseSectionAClientHolds)
{
    MAPIUID uid = AddService();
    HRESULT opened = S_OK;
    fake.inEntry = [&](IMAPISupport*, IProviderAdmin* admin)
    {
        ComPtr<IProfSect> section;
        opened = admin->OpenProfileSection(nullptr, nullptr, MAPI_MODIFY, section.Put());
    };
    ComPtr<IProfSect> held;
    ASSERT_EQ(OpenSection(uid, MAPI_MODIFY, held), S_OK);
    profile.Configure(uid, {});
    EXPECT_EQ(opened, MAPI_E_NO_ACCESS);
    held.Reset();
    profile.Configure(uid, {});
    EXPECT_EQ(opened, S_OK);
}

TEST_F(Road, MakesASectionForAWriterAndNoneForAReader)
{
    ComPtr<IProfSect> section;
    EXPECT_EQ(OpenSection(fakeUid, 0, section), MAPI_E_NOT_FOUND);
    EXPECT_EQ(OpenSection(fakeUid, MAPI_MODIFY, section), S_OK);
    section.Reset();
    ASSERT_EQ(OpenSection(fakeUid, 0, section), S_OK);
    EXPECT_EQ(Set(*section, PropValue::Long(PR_STATUS_CODE, 1)), MAPI_E_NO_ACCESS);
    EXPECT_EQ(OpenSection(fakeUid, 0x2, section), MAPI_E_UNKNOWN_FLAGS);
    MAPIUID uid = fakeUid;
    EXPECT_EQ(profile.Services()->OpenProfileSection(&uid, &IID_IMessage, 0, section.Put()),
              MAPI_E_INTERFACE_NOT_SUPPORTED);
}

TEST_F(Road, OpensAProvidersSectionToAClientByForceAlone)
{
    MAPIUID provider = profile.ProviderOf(AddService());
    ComPtr<IProfSect> section;
    EXPECT_EQ(OpenSection(provider, 0, section), MAPI_E_NO_ACCESS);
    EXPECT_EQ(OpenSection(provider, mapiForceAccess | MAPI_MODIFY, section), S_OK);
    section.Reset();
    TestSession session(client, profile.Name());
    EXPECT_EQ(session.Object().OpenProfileSection(&provider, nullptr, 0, section.Put()), MAPI_E_NO_ACCESS);
    EXPECT_EQ(session.Object().OpenProfileSection(&provider, nullptr, mapiForceAccess, section.Put()), S_OK);
}

TEST_F(Road, KeepsWhatASectionAlwaysHasAndHidesWhatIsSecure)
{
    ComPtr<IProfSect> section;
    ASSERT_EQ(OpenSection(fakeUid, MAPI_MODIFY, section), S_OK);
    EXPECT_EQ(Get(*section, PR_OBJECT_TYPE).AsLong(), LONG(MAPI_PROFSECT));
    EXPECT_EQ(Get(*section, PR_PROFILE_NAME_W).AsText(), profile.Name());
    SCODE problem = S_OK;
    EXPECT_EQ(Set(*section, PropValue::Long(PR_OBJECT_TYPE, 1), &problem), S_OK);
    EXPECT_EQ(problem, MAPI_E_COMPUTED);
    EXPECT_EQ(Set(*section, PropValue::Long(PROP_TAG(PT_LONG, 0x8001), 1), &problem), S_OK);
    EXPECT_TRUE(FAILED(problem));
    EXPECT_EQ(section->GetIDsFromNames(0, nullptr, 0, nullptr), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(section->GetNamesFromIDs(nullptr, nullptr, 0, nullptr, nullptr), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(Set(*section, PropValue::Binary(secureTag, Bytes{1})), S_OK);
    MapiBlock<SPropTagArray> tags(Memory());
    EXPECT_EQ(section->GetPropList(0, tags.Put()), S_OK);
    EXPECT_EQ(tags->cValues, 2u);
    EXPECT_EQ(Get(*section, secureTag).AsBytes(), Bytes{1});
    EXPECT_EQ(section->SaveChanges(0), S_OK);
}

TEST_F(Road, LogsOnByNameOrFails)
{
    ComPtr<IMAPISession> session;
    EXPECT_EQ(client.TryLogon(L"no such profile", sessionFlags, session), MAPI_E_LOGON_FAILED);
    EXPECT_EQ(client.TryLogon(nullptr, sessionFlags, session), MAPI_E_LOGON_FAILED);
    EXPECT_EQ(client.TryLogon(std::wstring(65, L'a').c_str(), sessionFlags, session), MAPI_E_LOGON_FAILED);
    EXPECT_EQ(client.TryLogon(profile.Name().c_str(), sessionFlags | 0x40000000, session), MAPI_E_UNKNOWN_FLAGS);
    EXPECT_FALSE(session);
    ASSERT_EQ(client.TryLogon(profile.Name().c_str(), sessionFlags, session), S_OK);
    EXPECT_TRUE(session.As<IMAPISession>(IID_IMAPISession));
}

TEST_F(Road, SharesASessionWithThoseWhoDoNotWantTheirOwn)
{
    const TestProfile other(client);
    ComPtr<IMAPISession> shared;
    ASSERT_EQ(client.TryLogon(profile.Name().c_str(), MAPI_EXTENDED | MAPI_ALLOW_OTHERS | MAPI_NO_MAIL, shared), S_OK);
    const auto nameOf = [&](IMAPISession& session)
    {
        ComPtr<IMAPITable> table;
        EXPECT_EQ(session.GetStatusTable(0, table.Put()), S_OK);
        return client.Rows(*table, {PR_DISPLAY_NAME_W}).front().at(PROP_ID(PR_DISPLAY_NAME)).AsText();
    };
    // The name does not count then.
    ComPtr<IMAPISession> joined;
    ASSERT_EQ(client.TryLogon(other.Name().c_str(), MAPI_EXTENDED, joined), S_OK);
    EXPECT_EQ(nameOf(*joined), profile.Name());
    ComPtr<IMAPISession> own;
    ASSERT_EQ(client.TryLogon(other.Name().c_str(), sessionFlags, own), S_OK);
    EXPECT_EQ(nameOf(*own), other.Name());
    shared->Logoff(0, 0, 0);
    EXPECT_EQ(nameOf(*joined), profile.Name());
    joined->Logoff(0, 0, 0);
    EXPECT_EQ(client.TryLogon(nullptr, MAPI_EXTENDED, shared), MAPI_E_LOGON_FAILED);
}

TEST_F(Road, LeavesOfASessionAfterItsLogoffTheReleaseAlone)
{
    ComPtr<IMAPISession> session = client.Logon(profile.Name());
    EXPECT_EQ(session->Logoff(0, 0x80, 0), MAPI_E_UNKNOWN_FLAGS);
    EXPECT_EQ(session->Logoff(0, 0, 0), S_OK);
    ComPtr<IMAPITable> table;
    EXPECT_EQ(session->GetMsgStoresTable(0, table.Put()), MAPI_E_END_OF_SESSION);
    EXPECT_EQ(session->Logoff(0, 0, 0), MAPI_E_END_OF_SESSION);
}

TEST_F(Road, ListsTheStoresOfTheProfile)
{
    const MAPIUID uid = AddService();
    TestSession session(client, profile.Name());
    ComPtr<IMAPITable> table;
    ASSERT_EQ(session.Object().GetMsgStoresTable(MAPI_UNICODE, table.Put()), S_OK);
    const auto rows = client.Rows(*table, {});
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(rows[0].at(PROP_ID(PR_DISPLAY_NAME)), PropValue::String(PR_DISPLAY_NAME_W, L"FAKE store"));
    EXPECT_EQ(rows[0].at(PROP_ID(PR_OBJECT_TYPE)).AsLong(), LONG(MAPI_STORE));
    EXPECT_EQ(rows[0].at(PROP_ID(PR_RESOURCE_TYPE)).AsLong(), LONG(MAPI_STORE_PROVIDER));
    EXPECT_EQ(rows[0].at(PROP_ID(PR_DEFAULT_STORE)).AsLong(), 0);
    const Bytes entryId = rows[0].at(PROP_ID(PR_ENTRYID)).AsBytes();
    const auto unwrapped = UnwrapStoreEntryId(entryId.data(), entryId.size());
    ASSERT_TRUE(unwrapped);
    EXPECT_EQ(unwrapped->dllName, "FakeProvider.dll");
    // Nothing is loaded for that.
    EXPECT_TRUE(fake.calls.empty());
    EXPECT_EQ(session.StoreEntryId(&uid), entryId);

    // The table follows the profile.
    const auto sink = MakeObject<Sink>();
    ULONG_PTR connection = 0;
    ASSERT_EQ(table->Advise(fnevTableModified, sink.Get(), &connection), S_OK);
    profile.CreateService(L"FAKE");
    EXPECT_EQ(client.Rows(*table, {PR_ENTRYID}).size(), 2u);
    EXPECT_TRUE(sink->WaitFor(1));
    EXPECT_EQ(table->Unadvise(connection), S_OK);
}

TEST_F(Road, LetsTheDefaultStoreBeChosen)
{
    const MAPIUID first = AddService();
    const MAPIUID second = AddService();
    TestSession session(client, profile.Name());
    const auto isDefault = [&](const MAPIUID& uid)
    {
        ComPtr<IMAPITable> table;
        EXPECT_EQ(session.Object().GetMsgStoresTable(0, table.Put()), S_OK);
        for (const auto& row : client.Rows(*table, {PR_SERVICE_UID, PR_DEFAULT_STORE}))
            if (row.at(PROP_ID(PR_SERVICE_UID)) == PropValue::Uid(PR_SERVICE_UID, uid))
                return row.at(PROP_ID(PR_DEFAULT_STORE)).AsLong() != 0;
        return false;
    };
    const Bytes id = session.StoreEntryId(&second);
    ASSERT_EQ(session.Object().SetDefaultStore(MAPI_DEFAULT_STORE, static_cast<ULONG>(id.size()), EntryId(id)), S_OK);
    EXPECT_FALSE(isDefault(first));
    EXPECT_TRUE(isDefault(second));
    EXPECT_EQ(session.Object().SetDefaultStore(MAPI_DEFAULT_STORE, 0, nullptr), S_OK);
    EXPECT_FALSE(isDefault(second));
    EXPECT_EQ(session.Object().SetDefaultStore(0x7, 0, nullptr), MAPI_E_INVALID_PARAMETER);
}

TEST_F(Road, ShowsProvidersOnlyUnwrappedEntryIds)
{
    MAPIUID provider = profile.ProviderOf(AddService());
    const Bytes own = {0, 0, 0, 0, 7, 8, 9};
    const Bytes wrapped = WrapStoreEntryId("FakeProvider.dll", own.data(), own.size());
    {
        ComPtr<IProfSect> section;
        ASSERT_EQ(OpenSection(provider, mapiForceAccess | MAPI_MODIFY, section), S_OK);
        EXPECT_EQ(Set(*section, PropValue::Binary(PR_ENTRYID, wrapped)), S_OK);
    }
    TestSession session(client, profile.Name());
    EXPECT_EQ(session.StoreEntryId(), wrapped);
    ComPtr<IMsgStore> store;
    ASSERT_EQ(session.TryOpenStore(wrapped, writing, store), S_OK);
    EXPECT_EQ(fake.logonEntryId, own);
    store.Reset();
    // An entry ID without its envelope is known, too, where a section has it.
    ASSERT_EQ(session.TryOpenStore(own, writing, store), S_OK);
    EXPECT_EQ(fake.logonEntryId, own);
    store.Reset();
    ComPtr<IMsgStore> none;
    EXPECT_EQ(session.TryOpenStore({0, 0, 0, 0, 1}, writing, none), MAPI_E_NOT_FOUND);
    EXPECT_EQ(session.TryOpenStore({0, 0}, writing, none), MAPI_E_INVALID_ENTRYID);
    EXPECT_EQ(session.TryOpenStore({}, writing, none), MAPI_E_INVALID_PARAMETER);
}

TEST_F(Road, GivesNoEntryIdWhileTheProviderHasNone)
{
    AddService();
    TestSession session(client, profile.Name());
    EXPECT_TRUE(session.OpenStore());
    EXPECT_TRUE(fake.logonEntryId.empty());
    EXPECT_EQ(fake.logonProfile, profile.Name());
    EXPECT_EQ(fake.calls, (Calls{"init", "logon", "store gone", "logoff"}));
}

TEST_F(Road, PassesTheLogonsFlagsOn)
{
    AddService();
    TestSession session(client, profile.Name());
    const Bytes id = session.StoreEntryId();
    ComPtr<IMsgStore> store;
    ASSERT_EQ(session.TryOpenStore(id, MDB_NO_MAIL, store), S_OK);
    EXPECT_EQ(fake.logonFlags, ULONG(MDB_NO_MAIL | MAPI_UNICODE));
    store.Reset();
    ASSERT_EQ(session.TryOpenStore(id, writing | MDB_TEMPORARY | MAPI_DEFERRED_ERRORS, store), S_OK);
    EXPECT_EQ(fake.logonFlags, ULONG(writing | MDB_TEMPORARY | MAPI_DEFERRED_ERRORS | MAPI_UNICODE));
    EXPECT_EQ(session.TryOpenStore(id, 0x4000, store), MAPI_E_UNKNOWN_FLAGS);
}

TEST_F(Road, TriesBestAccessForWritingFirst)
{
    AddService();
    TestSession session(client, profile.Name());
    const Bytes id = session.StoreEntryId();
    fake.firstLogonResults = {MAPI_E_NO_ACCESS};
    ComPtr<IMsgStore> store;
    ASSERT_EQ(session.TryOpenStore(id, MAPI_BEST_ACCESS | MDB_NO_MAIL, store), S_OK);
    EXPECT_EQ(fake.calls, (Calls{"init", "logon", "logon"}));
    EXPECT_EQ(fake.logonFlags & MDB_WRITE, 0u);
    store.Reset();
    fake.firstLogonResults = {MAPI_E_NO_ACCESS};
    EXPECT_EQ(session.TryOpenStore(id, writing, store), MAPI_E_NO_ACCESS);
}

TEST_F(Road, ConfiguresAnUnconfiguredServiceOnceAndTriesAgain)
{
    AddService();
    TestSession session(client, profile.Name());
    const Bytes id = session.StoreEntryId();
    fake.firstLogonResults = {MAPI_E_UNCONFIGURED};
    ComPtr<IMsgStore> store;
    ASSERT_EQ(session.TryOpenStore(id, writing, store), S_OK);
    EXPECT_EQ(fake.calls, (Calls{"init", "logon", "entry 3", "logon"}));
    EXPECT_EQ(fake.entryFlags & SERVICE_UI_ALLOWED, 0u);
    store.Reset();
    fake.calls.clear();
    fake.logonResult = MAPI_E_UNCONFIGURED;
    EXPECT_EQ(session.TryOpenStore(id, writing, store), MAPI_E_LOGON_FAILED);
    EXPECT_EQ(fake.calls, (Calls{"logon", "entry 3", "logon"}));
}

TEST_F(Road, HasAFailedServiceOffForTheSession)
{
    AddService();
    fake.logonResult = MAPI_E_CORRUPT_STORE;
    fake.errorText = L"The store is damaged.";
    TestSession session(client, profile.Name());
    const Bytes id = session.StoreEntryId();
    ComPtr<IMsgStore> store;
    EXPECT_EQ(session.TryOpenStore(id, writing, store), MAPI_E_CORRUPT_STORE);
    EXPECT_NE(ErrorText(Memory(), session.Object(), MAPI_E_CORRUPT_STORE).find(L"The store is damaged."),
              std::wstring::npos);
    fake.logonResult = S_OK;
    fake.calls.clear();
    EXPECT_EQ(session.TryOpenStore(id, writing, store), MAPI_E_LOGON_FAILED);
    EXPECT_TRUE(fake.calls.empty());
    TestSession next(client, profile.Name());
    EXPECT_EQ(next.TryOpenStore(id, writing, store), S_OK);
}

TEST_F(Road, LeavesAServiceOnWhereOneProviderFailed)
{
    AddService();
    fake.firstLogonResults = {MAPI_E_FAILONEPROVIDER};
    TestSession session(client, profile.Name());
    const Bytes id = session.StoreEntryId();
    ComPtr<IMsgStore> store;
    EXPECT_EQ(session.TryOpenStore(id, writing, store), MAPI_E_FAILONEPROVIDER);
    EXPECT_EQ(session.TryOpenStore(id, writing, store), S_OK);
}

TEST_F(Road, GivesAStoreWithAWarningAndItsText)
{
    AddService();
    fake.logonResult = MAPI_W_ERRORS_RETURNED;
    fake.errorText = L"Not all of it.";
    TestSession session(client, profile.Name());
    const Bytes id = session.StoreEntryId();
    ComPtr<IMsgStore> store;
    EXPECT_EQ(session.TryOpenStore(id, writing, store), MAPI_W_ERRORS_RETURNED);
    EXPECT_TRUE(store);
    EXPECT_EQ(ErrorText(Memory(), session.Object(), MAPI_W_ERRORS_RETURNED), L"Not all of it.");
}

TEST_F(Road, SaysWhichProviderCannotBeLoaded)
{
    InstalledTestService::Write(L"FAKE_P", L"PR_PROVIDER_DLL_NAME", L"nowhere.dll");
    AddService();
    TestSession session(client, profile.Name());
    ComPtr<IMsgStore> store;
    EXPECT_EQ(session.TryOpenStore(session.StoreEntryId(), writing, store), MAPI_E_FAILONEPROVIDER);
    EXPECT_NE(ErrorText(Memory(), session.Object(), MAPI_E_FAILONEPROVIDER).find(L"nowhere32.dll"), std::wstring::npos);
}

TEST_F(Road, TakesNoProviderOfAnOlderVersion)
{
    AddService();
    fake.version = 1;
    TestSession session(client, profile.Name());
    ComPtr<IMsgStore> store;
    EXPECT_EQ(session.TryOpenStore(session.StoreEntryId(), writing, store), MAPI_E_VERSION);
    EXPECT_EQ(fake.calls, Calls{"init"});
}

TEST_F(Road, TakesTheShortWayToAnOpenStore)
{
    AddService();
    fake.shareStore = true;
    fake.uids = {fakeUid};
    TestSession session(client, profile.Name());
    const auto first = session.OpenStore();
    IMAPISupport* const support = fake.support;
    auto second = session.OpenStore();
    EXPECT_EQ(first.Get(), second.Get());
    EXPECT_EQ(fake.calls, (Calls{"init", "logon", "logon"}));
    // The first logon goes on.
    second.Reset();
    EXPECT_EQ(fake.support, support);
    ULONG type = 0;
    ComPtr<IUnknown> object;
    const Bytes id = FakeEntryId();
    EXPECT_EQ(session.Object().OpenEntry(static_cast<ULONG>(id.size()), EntryId(id), nullptr, 0, &type, object.Put()),
              MAPI_E_NOT_FOUND);
    EXPECT_EQ(fake.calls.back(), "open entry");
}

TEST_F(Road, ShutsAStoreDownByItsLastRelease)
{
    AddService();
    TestSession session(client, profile.Name());
    auto store = session.OpenStore();
    fake.calls.clear();
    store.Reset();
    EXPECT_EQ(fake.calls, (Calls{"store gone", "logoff"}));
    session.Logoff();
    EXPECT_EQ(fake.calls, (Calls{"store gone", "logoff", "shutdown"}));
}

TEST_F(Road, ShutsAStoreDownByTheSessionsLogoff)
{
    AddService();
    TestSession session(client, profile.Name());
    auto store = session.OpenStore();
    fake.calls.clear();
    session.Logoff();
    EXPECT_EQ(fake.calls, (Calls{"logoff", "shutdown"}));
    store.Reset();
    EXPECT_EQ(fake.calls, (Calls{"logoff", "shutdown", "store gone"}));
}

TEST_F(Road, LogsOffWhereTheClientOnlyReleases)
{
    AddService();
    ComPtr<IMsgStore> store;
    {
        TestSession session(client, profile.Name());
        store = session.OpenStore();
        fake.calls.clear();
    }
    EXPECT_EQ(fake.calls, (Calls{"logoff", "shutdown"}));
}

using RoadDeathTest = Road;

TEST_F(RoadDeathTest, LosesASupportObjectThatIsKeptWithoutAReference)
{
    AddService();
    fake.addRefSupport = false;
    TestSession session(client, profile.Name());
    const auto store = session.OpenStore();
    // It was shut down at once.
    EXPECT_EQ(fake.calls, (Calls{"init", "logon", "logoff"}));
    MAPIUID uid = {};
    EXPECT_EXIT(fake.support->NewUID(&uid), testing::ExitedWithCode(static_cast<int>(Testbed::OlmapiExit::LostObject)),
                "after its last reference");
}

TEST_F(Road, SendsEntryIdsToWhoRegisteredTheirIdentifier)
{
    AddService();
    fake.uids = {fakeUid};
    TestSession session(client, profile.Name());
    auto store = session.OpenStore();
    ULONG type = 0;
    ComPtr<IUnknown> object;
    const auto open = [&](const Bytes& id)
    {
        return session.Object().OpenEntry(static_cast<ULONG>(id.size()), EntryId(id), nullptr, MAPI_MODIFY, &type,
                                          object.Put());
    };
    fake.calls.clear();
    EXPECT_EQ(open(FakeEntryId()), MAPI_E_NOT_FOUND);
    EXPECT_EQ(fake.calls, Calls{"open entry"});
    EXPECT_EQ(fake.openFlags, ULONG(MAPI_MODIFY));
    MAPIUID other = fakeUid;
    other.ab[0] = 77;
    EXPECT_EQ(open(FakeEntryId(other)), MAPI_E_UNKNOWN_ENTRYID);
    EXPECT_EQ(session.Object().OpenEntry(0, nullptr, nullptr, 0, &type, object.Put()), MAPI_E_INVALID_PARAMETER);
    // The store's own opens it, with the access that was asked for.
    EXPECT_EQ(open(session.StoreEntryId()), S_OK);
    EXPECT_EQ(type, ULONG(MAPI_STORE));
    EXPECT_EQ(fake.logonFlags & (MDB_WRITE | MDB_NO_DIALOG), ULONG(MDB_WRITE | MDB_NO_DIALOG));
    object.Reset();

    ULONG same = FALSE;
    const Bytes id = FakeEntryId();
    const auto size = static_cast<ULONG>(id.size());
    EXPECT_EQ(session.Object().CompareEntryIDs(size, EntryId(id), size, EntryId(id), 0, &same), S_OK);
    EXPECT_TRUE(same);
    EXPECT_EQ(fake.calls.back(), "compare");
    ULONG_PTR connection = 0;
    const auto sink = MakeObject<Sink>();
    ASSERT_EQ(session.Object().Advise(size, EntryId(id), fnevObjectModified, sink.Get(), &connection), S_OK);
    EXPECT_GT(connection, ULONG_PTR(MAXDWORD));
    EXPECT_EQ(session.Object().Unadvise(connection), S_OK);
    EXPECT_EQ(fake.calls.back(), "unadvise 77");
    EXPECT_EQ(session.Object().Unadvise(connection), MAPI_E_NOT_FOUND);

    // With its store goes the identifier.
    store.Reset();
    EXPECT_EQ(open(FakeEntryId()), MAPI_E_UNKNOWN_ENTRYID);
}

TEST_F(Road, TellsASessionsSinkOfItsLogoff)
{
    TestSession session(client, profile.Name());
    const auto sink = MakeObject<Sink>();
    ULONG_PTR connection = 0;
    ASSERT_EQ(session.Object().Advise(0, nullptr, 0, sink.Get(), &connection), S_OK);
    EXPECT_NE(connection, 0u);
    session.Logoff();
    EXPECT_TRUE(sink->WaitFor(1));
}

TEST_F(Road, WritesStatusRowsForASession)
{
    AddService();
    TestSession session(client, profile.Name());
    auto store = session.OpenStore();
    std::vector<PropValue> row = {PropValue::String(PR_DISPLAY_NAME_W, L"Status"),
                                  PropValue::Long(PR_STATUS_CODE, STATUS_AVAILABLE)};
    MapiBlock<SPropValue> values(Memory(), MakePropArray(Memory(), row));
    ASSERT_EQ(fake.support->ModifyStatusRow(2, values.Get(), 0), S_OK);
    row = {PropValue::Long(PR_STATUS_CODE, STATUS_OFFLINE)};
    values = MapiBlock<SPropValue>(Memory(), MakePropArray(Memory(), row));
    ASSERT_EQ(fake.support->ModifyStatusRow(1, values.Get(), STATUSROW_UPDATE), S_OK);
    ComPtr<IMAPITable> table;
    const auto rows = [&]
    {
        EXPECT_EQ(session.Object().GetStatusTable(0, table.Put()), S_OK);
        return client.Rows(*table, {PR_DISPLAY_NAME_W, PR_STATUS_CODE, PR_RESOURCE_TYPE, PR_PROVIDER_DLL_NAME_W,
                                    PR_OBJECT_TYPE, PR_ENTRYID});
    };
    const auto shown = rows();
    ASSERT_EQ(shown.size(), 3u);
    EXPECT_EQ(shown[0].at(PROP_ID(PR_RESOURCE_TYPE)).AsLong(), LONG(MAPI_SUBSYSTEM));
    EXPECT_EQ(shown[0].at(PROP_ID(PR_DISPLAY_NAME)).AsText(), profile.Name());
    EXPECT_EQ(shown[1].at(PROP_ID(PR_RESOURCE_TYPE)).AsLong(), LONG(MAPI_SPOOLER));
    EXPECT_EQ(shown[1].at(PROP_ID(PR_STATUS_CODE)).AsLong(), LONG(STATUS_FAILURE));
    EXPECT_EQ(shown[2].at(PROP_ID(PR_DISPLAY_NAME)).AsText(), L"Status");
    EXPECT_EQ(shown[2].at(PROP_ID(PR_STATUS_CODE)).AsLong(), LONG(STATUS_OFFLINE));
    EXPECT_EQ(shown[2].at(PROP_ID(PR_PROVIDER_DLL_NAME)).AsText(), L"FakeProvider.dll");
    EXPECT_EQ(shown[2].at(PROP_ID(PR_OBJECT_TYPE)).AsLong(), LONG(MAPI_STATUS));
    const Bytes id = shown[2].at(PROP_ID(PR_ENTRYID)).AsBytes();
    ULONG type = 0;
    ComPtr<IUnknown> object;
    session.Object().OpenEntry(static_cast<ULONG>(id.size()), EntryId(id), nullptr, 0, &type, object.Put());
    EXPECT_EQ(fake.calls.back(), "open status");
    store.Reset();
    EXPECT_EQ(rows().size(), 2u);
}

TEST_F(Road, NotifiesLaterUnlessAProviderWantsItAtOnce)
{
    AddService();
    TestSession session(client, profile.Name());
    const auto store = session.OpenStore();
    const auto later = MakeObject<Sink>();
    const auto atOnce = MakeObject<Sink>();
    SizedNOTIFKEY(2, key) = {2, {1, 2}};
    auto* const keyPointer = reinterpret_cast<NOTIFKEY*>(&key);
    ULONG first = 0;
    ULONG second = 0;
    ASSERT_EQ(fake.support->Subscribe(keyPointer, fnevObjectDeleted, 0, later.Get(), &first), S_OK);
    ASSERT_EQ(fake.support->Subscribe(keyPointer, fnevObjectDeleted, NOTIFY_SYNC, atOnce.Get(), &second), S_OK);
    EXPECT_NE(first, 0u);
    Bytes id = FakeEntryId();
    id[0] = 42;
    NOTIFICATION notification{};
    notification.ulEventType = fnevObjectDeleted;
    notification.info.obj.cbEntryID = static_cast<ULONG>(id.size());
    notification.info.obj.lpEntryID = EntryId(id);
    ULONG flags = 0;
    ASSERT_EQ(fake.support->Notify(keyPointer, 1, &notification, &flags), S_OK);
    // What the provider passed is its own again.
    id[0] = 1;
    EXPECT_EQ(atOnce->events, 1);
    EXPECT_EQ(atOnce->thread, GetCurrentThreadId());
    EXPECT_TRUE(later->WaitFor(1));
    EXPECT_NE(later->thread, GetCurrentThreadId());
    EXPECT_EQ(later->firstByte, 42);
    EXPECT_EQ(fake.support->Unsubscribe(first), S_OK);
    EXPECT_EQ(fake.support->Unsubscribe(first), MAPI_E_NOT_FOUND);
    EXPECT_EQ(fake.support->Unsubscribe(second), S_OK);
}

TEST_F(Road, CallsAThreadsSinkOnThatThread)
{
    using THREADSINK = HRESULT(WINAPI*)(LPMAPIADVISESINK, LPMAPIADVISESINK*);
    const HMODULE mapi = LoadLibraryW(L"mapi32.dll");
    const auto makeSink =
        reinterpret_cast<THREADSINK>(reinterpret_cast<void*>(GetProcAddress(mapi, "HrThisThreadAdviseSink@8")));
    ASSERT_TRUE(makeSink);
    const auto sink = MakeObject<Sink>();
    ComPtr<IMAPIAdviseSink> here;
    ASSERT_EQ(makeSink(sink.Get(), here.Put()), S_OK);
    std::thread(
        [&]
        {
            NOTIFICATION notification{};
            notification.ulEventType = fnevNewMail;
            here->OnNotify(1, &notification);
        })
        .join();
    EXPECT_EQ(sink->events, 0);
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE))
        DispatchMessageW(&message);
    EXPECT_EQ(sink->events, 1);
    EXPECT_EQ(sink->thread, GetCurrentThreadId());
    here.Reset();
    FreeLibrary(mapi);
}

TEST_F(Road, OpensAStoreOfNoSectionInATemporaryOne)
{
    AddService();
    const Bytes own = {0, 0, 0, 0, 5, 5};
    const Bytes wrapped = WrapStoreEntryId("FakeProvider.dll", own.data(), own.size());
    TestSession session(client, profile.Name());
    const auto count = [&]
    {
        ComPtr<IMAPITable> table;
        EXPECT_EQ(session.Object().GetMsgStoresTable(0, table.Put()), S_OK);
        return client.Rows(*table, {PR_ENTRYID}).size();
    };
    ComPtr<IMsgStore> store;
    ASSERT_EQ(session.TryOpenStore(wrapped, writing, store), S_OK);
    EXPECT_EQ(fake.logonEntryId, own);
    EXPECT_EQ(count(), 1u);
    EXPECT_EQ(fake.support->ModifyProfile(MDB_TEMPORARY), S_OK);
    EXPECT_EQ(count(), 1u);
    EXPECT_EQ(fake.support->ModifyProfile(0), S_OK);
    EXPECT_EQ(count(), 2u);
}

TEST_F(Road, KeepsFromAProviderWhatMapiKeepsInItsSection)
{
    AddService();
    SCODE flagsProblem = S_OK;
    SCODE nameProblem = S_OK;
    HRESULT missing = S_OK;
    fake.inLogon = [&](IMAPISupport& support)
    {
        ComPtr<IProfSect> section;
        ASSERT_EQ(support.OpenProfileSection(nullptr, MAPI_MODIFY, section.Put()), S_OK);
        Set(*section, PropValue::Long(PR_RESOURCE_FLAGS, 0), &flagsProblem);
        Set(*section, PropValue::String(PR_PROVIDER_DLL_NAME_W, L"x"), &nameProblem);
        EXPECT_EQ(Set(*section, PropValue::Long(PR_STATUS_CODE, 1)), S_OK);
        MAPIUID uid = fakeUid;
        missing = support.OpenProfileSection(&uid, 0, section.Put());
        EXPECT_EQ(support.OpenProfileSection(nullptr, mapiForceAccess, section.Put()), MAPI_E_UNKNOWN_FLAGS);
    };
    TestSession session(client, profile.Name());
    EXPECT_TRUE(session.OpenStore());
    EXPECT_EQ(flagsProblem, MAPI_E_COMPUTED);
    EXPECT_EQ(nameProblem, MAPI_E_COMPUTED);
    EXPECT_EQ(missing, MAPI_E_NOT_FOUND);
}

TEST_F(Road, LocksProvidersSectionsWhereItIsToldTo)
{
    MAPIUID provider = profile.ProviderOf(AddService());
    HRESULT opened = E_FAIL;
    fake.inLogon = [&](IMAPISupport& support)
    {
        ComPtr<IProfSect> section;
        ComPtr<IProfSect> again;
        opened = support.OpenProfileSection(nullptr, MAPI_MODIFY, section.Put());
        // The opens of one session do not stand in each other's way.
        EXPECT_EQ(support.OpenProfileSection(nullptr, MAPI_MODIFY, again.Put()), opened);
    };
    ComPtr<IProfSect> held;
    ASSERT_EQ(OpenSection(provider, mapiForceAccess | MAPI_MODIFY, held), S_OK);
    TestSession session(client, profile.Name());
    session.OpenStore();
    EXPECT_EQ(opened, S_OK);
    SetEnvironmentVariableW(L"KIVNST_TESTBED_LOCK_PROVIDER_SECTIONS", L"1");
    session.OpenStore();
    EXPECT_EQ(opened, MAPI_E_NO_ACCESS);
    held.Reset();
    session.OpenStore();
    EXPECT_EQ(opened, S_OK);
    SetEnvironmentVariableW(L"KIVNST_TESTBED_LOCK_PROVIDER_SECTIONS", nullptr);
}

TEST_F(Road, HelpsAProviderWithEntryIdsAndInvalidObjects)
{
    AddService();
    fake.uids = {fakeUid};
    TestSession session(client, profile.Name());
    const auto store = session.OpenStore();
    const Bytes id = FakeEntryId();
    const auto size = static_cast<ULONG>(id.size());
    ULONG wrappedSize = 0;
    MapiBlock<ENTRYID> wrapped(Memory());
    ASSERT_EQ(fake.support->WrapStoreEntryID(size, EntryId(id), &wrappedSize, wrapped.Put()), S_OK);
    const auto unwrapped = UnwrapStoreEntryId(wrapped.Get(), wrappedSize);
    ASSERT_TRUE(unwrapped);
    EXPECT_EQ(unwrapped->dllName, "FakeProvider.dll");
    EXPECT_EQ(unwrapped->entryId, id);
    ULONG same = TRUE;
    EXPECT_EQ(fake.support->CompareEntryIDs(size, EntryId(id), 0, nullptr, 0, &same), S_OK);
    EXPECT_FALSE(same);
    ULONG flags = LOGOFF_ORDERLY;
    EXPECT_EQ(fake.support->StoreLogoffTransports(&flags), S_OK);
    EXPECT_EQ(flags, ULONG(LOGOFF_COMPLETE));
    EXPECT_EQ(fake.support->OpenAddressBook(nullptr, 0, nullptr), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(fake.support->SpoolerYield(0), MAPI_E_NO_SUPPORT);

    void* const block = Memory().Allocate(32);
    ASSERT_EQ(fake.support->MakeInvalid(0, block, 2, 12), S_OK);
    auto* const object = static_cast<IMAPIProp*>(block);
    EXPECT_EQ(object->SaveChanges(0), MAPI_E_INVALID_OBJECT);
    EXPECT_EQ(object->AddRef(), 3u);
    EXPECT_EQ(object->Release(), 2u);
    EXPECT_EQ(object->Release(), 1u);
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_EQ(fake.support->MakeInvalid(0, nullptr, 1, 3), MAPI_E_INVALID_PARAMETER);
}

TEST_F(Road, MakesStoragesOfStreams)
{
    AddService();
    TestSession session(client, profile.Name());
    const auto store = session.OpenStore();
    Bytes contents;
    {
        const auto stream = CreateMemoryStream({},
                                               [&contents](const Bytes& bytes)
                                               {
                                                   contents = bytes;
                                                   return S_OK;
                                               });
        ComPtr<IStorage> storage;
        ASSERT_EQ(fake.support->IStorageFromStream(stream.Get(), &IID_IStream, STGSTRM_CREATE | STGSTRM_MODIFY,
                                                   storage.Put()),
                  S_OK);
        ComPtr<IStream> inner;
        ASSERT_EQ(storage->CreateStream(L"inner", STGM_CREATE | STGM_WRITE | STGM_SHARE_EXCLUSIVE, 0, 0, inner.Put()),
                  S_OK);
        EXPECT_EQ(inner->Write("abc", 3, nullptr), S_OK);
        inner.Reset();
        EXPECT_EQ(storage->Commit(STGC_DEFAULT), S_OK);
    }
    EXPECT_GT(contents.size(), 512u);
    const auto stream = CreateMemoryStream(contents);
    ComPtr<IStorage> storage;
    ASSERT_EQ(fake.support->IStorageFromStream(stream.Get(), nullptr, STGSTRM_CURRENT, storage.Put()), S_OK);
    ComPtr<IStream> inner;
    ASSERT_EQ(storage->OpenStream(L"inner", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, inner.Put()), S_OK);
    EXPECT_EQ(ReadStream(*inner, 100), (Bytes{'a', 'b', 'c'}));
    EXPECT_EQ(fake.support->IStorageFromStream(store.Get(), nullptr, 0, storage.Put()), MAPI_E_INTERFACE_NOT_SUPPORTED);
}

TEST_F(Road, RefusesToCopyFromWhatIsNoFolder)
{
    AddService();
    TestSession session(client, profile.Name());
    const auto store = session.OpenStore();
    const Bytes id = FakeEntryId();
    const auto copy = [&](LPCIID iid, IUnknown* from)
    {
        return fake.support->CopyFolder(iid, from, static_cast<ULONG>(id.size()), EntryId(id), nullptr, from, nullptr,
                                        0, nullptr, 0);
    };
    // The source is asked for the interface that the caller names for it.
    EXPECT_EQ(copy(&IID_IMessage, store.Get()), MAPI_E_INTERFACE_NOT_SUPPORTED);
    EXPECT_EQ(copy(&IID_IMsgStore, store.Get()), MAPI_E_INTERFACE_NOT_SUPPORTED);
    EXPECT_EQ(copy(nullptr, nullptr), MAPI_E_INVALID_PARAMETER);
}

TEST_F(Road, AnswersAProviderThatOutlivesTheSession)
{
    AddService();
    ComPtr<IMAPISupport> kept;
    {
        TestSession session(client, profile.Name());
        const auto store = session.OpenStore();
        kept = ComPtr<IMAPISupport>(fake.support);
        session.Logoff();
    }
    ULONG type = 0;
    ComPtr<IUnknown> object;
    const Bytes id = FakeEntryId();
    EXPECT_EQ(kept->OpenEntry(static_cast<ULONG>(id.size()), EntryId(id), nullptr, 0, &type, object.Put()),
              MAPI_E_END_OF_SESSION);
    MAPIUID uid = {};
    EXPECT_EQ(kept->NewUID(&uid), S_OK);
}

TEST_F(Road, HasOneProviderObjectForASessionAndAnotherForTheNext)
{
    AddService();
    AddService();
    TestSession first(client, profile.Name());
    ComPtr<IMAPITable> table;
    ASSERT_EQ(first.Object().GetMsgStoresTable(0, table.Put()), S_OK);
    std::vector<ComPtr<IMsgStore>> stores;
    for (const auto& row : client.Rows(*table, {PR_ENTRYID}))
        ASSERT_EQ(first.TryOpenStore(row.at(PROP_ID(PR_ENTRYID)).AsBytes(), writing, stores.emplace_back()), S_OK);
    EXPECT_EQ(fake.calls, (Calls{"init", "logon", "logon"}));
    const TestSession second(client, profile.Name());
    ASSERT_EQ(second.TryOpenStore(first.StoreEntryId(), writing, stores.emplace_back()), S_OK);
    EXPECT_EQ(fake.calls, (Calls{"init", "logon", "logon", "init", "logon"}));
    stores.clear();
}

TEST_F(Road, ReadsAllRowsOrSaysThatThereAreTooMany)
{
    using QUERYALLROWS =
        HRESULT(WINAPI*)(LPMAPITABLE, LPSPropTagArray, LPSRestriction, LPSSortOrderSet, LONG, LPSRowSet*);
    const HMODULE mapi = LoadLibraryW(L"mapi32.dll");
    const auto query =
        reinterpret_cast<QUERYALLROWS>(reinterpret_cast<void*>(GetProcAddress(mapi, "HrQueryAllRows@24")));
    AddService();
    AddService();
    ComPtr<IMAPITable> table;
    ASSERT_EQ(profile.Services()->GetMsgServiceTable(0, table.Put()), S_OK);
    MapiRows rows(Memory());
    EXPECT_EQ(query(table.Get(), nullptr, nullptr, nullptr, 1, rows.Put()), MAPI_E_TABLE_TOO_BIG);
    EXPECT_FALSE(rows);
    EXPECT_EQ(query(table.Get(), nullptr, nullptr, nullptr, 2, rows.Put()), S_OK);
    EXPECT_EQ(rows.Count(), 2u);
    SizedSPropTagArray(1, tags) = {1, {PR_COMMENT_A}};
    ASSERT_EQ(query(table.Get(), reinterpret_cast<LPSPropTagArray>(&tags), nullptr, nullptr, 0, rows.Put()), S_OK);
    EXPECT_EQ(rows[0].lpProps[0].ulPropTag, ULONG(PR_NULL));
    EXPECT_EQ(query(nullptr, nullptr, nullptr, nullptr, 0, rows.Put()), MAPI_E_INVALID_PARAMETER);
    FreeLibrary(mapi);
}

TEST(MapiRoad, OpensAStoreOfANewProfile)
{
    const MapiClient client;
    const TestProfile profile(client);
    const MAPIUID service = profile.AddPst(TempPath(L"road\\new.pst"));
    TestSession session(client, profile.Name());
    const auto store = session.OpenStore(&service);
    const Bytes subtree = Get(*store, PR_IPM_SUBTREE_ENTRYID).AsBytes();
    ULONG type = 0;
    ComPtr<IUnknown> folder;
    ASSERT_EQ(session.Object().OpenEntry(static_cast<ULONG>(subtree.size()), EntryId(subtree), nullptr, 0, &type,
                                         folder.Put()),
              S_OK);
    EXPECT_EQ(type, ULONG(MAPI_FOLDER));
}

TEST(MapiRoad, OpensTwoStoresOfOneProfileAndOneInTwoSessions)
{
    const MapiClient client;
    const TestProfile profile(client);
    const MAPIUID first = profile.AddPst(TempPath(L"two\\first.pst"));
    const MAPIUID second = profile.AddPst(TempPath(L"two\\second.pst"));
    TestSession session(client, profile.Name());
    TestSession other(client, profile.Name());
    const auto store1 = session.OpenStore(&first);
    const auto store2 = session.OpenStore(&second);
    const auto store3 = other.OpenStore(&first);
    const auto key = [](IMsgStore& store) { return Get(store, PR_RECORD_KEY).AsBytes(); };
    EXPECT_NE(key(*store1), key(*store2));
    EXPECT_EQ(key(*store1), key(*store3));
    for (IMsgStore* const store : {store1.Get(), store2.Get()})
    {
        const Bytes subtree = Get(*store, PR_IPM_SUBTREE_ENTRYID).AsBytes();
        ULONG type = 0;
        ComPtr<IUnknown> folder;
        EXPECT_EQ(session.Object().OpenEntry(static_cast<ULONG>(subtree.size()), EntryId(subtree), nullptr, 0, &type,
                                             folder.Put()),
                  S_OK);
    }
}

TEST(MapiRoad, LetsAClientsProcessEndThatDidNotEndMapi)
{
    const MapiClient client;
    const TestProfile profile(client);
    profile.AddPst(TempPath(L"left\\new.pst"));
    for (const ULONG flags : {ULONG(0), ULONG(MAPI_MULTITHREAD_NOTIFICATIONS)})
    {
        const HANDLE process =
            StartOtherProcess(WideFromUtf8(leaveArgument) + L" \"" + profile.Name() + L"\" " + std::to_wstring(flags));
        EXPECT_EQ(WaitForSingleObject(process, aMinute), WAIT_OBJECT_0) << flags;
        TerminateProcess(process, 1);
        DWORD code = 1;
        EXPECT_TRUE(GetExitCodeProcess(process, &code));
        EXPECT_EQ(code, 0u) << flags;
        CloseHandle(process);
    }
    TestSession(client, profile.Name()).OpenStore();
}

TEST(MapiRoad, LetsAClientReadAStoreByTheDocumentation)
{
    const MapiClient client;
    const TestProfile profile(client);
    const auto file = TempPath(L"read\\sample.pst");
    std::ofstream(file, std::ios::binary) << "KivNst sample store\nfolders=2 messages=3 seed=5\n";
    profile.AddPst(file);
    TestSession session(client, profile.Name());
    const auto store = session.OpenStore(nullptr, MDB_NO_DIALOG | MDB_NO_MAIL);
    const auto open = [&](const Bytes& id, LPUNKNOWN* object)
    {
        ULONG type = 0;
        return session.Object().OpenEntry(static_cast<ULONG>(id.size()), EntryId(id), nullptr, 0, &type, object);
    };

    ULONG size = 0;
    MapiBlock<ENTRYID> inbox(Memory());
    MapiBlock<wchar_t> messageClass(Memory());
    EXPECT_EQ(store->GetReceiveFolder(nullptr, MAPI_UNICODE, &size, inbox.Put(),
                                      reinterpret_cast<LPTSTR*>(messageClass.Put())),
              S_OK);
    EXPECT_GT(size, 0u);

    ComPtr<IMAPIFolder> subtree;
    ASSERT_EQ(open(Get(*store, PR_IPM_SUBTREE_ENTRYID).AsBytes(), subtree.PutAs<IUnknown>()), S_OK);
    ComPtr<IMAPITable> hierarchy;
    ASSERT_EQ(subtree->GetHierarchyTable(CONVENIENT_DEPTH, hierarchy.Put()), S_OK);
    size_t messages = 0;
    size_t bodies = 0;
    for (const auto& folderRow : client.Rows(*hierarchy, {PR_ENTRYID, PR_DISPLAY_NAME_W, PR_CONTENT_COUNT}))
    {
        ComPtr<IMAPIFolder> folder;
        ASSERT_EQ(open(folderRow.at(PROP_ID(PR_ENTRYID)).AsBytes(), folder.PutAs<IUnknown>()), S_OK);
        ComPtr<IMAPITable> contents;
        ASSERT_EQ(folder->GetContentsTable(0, contents.Put()), S_OK);
        const auto rows = client.Rows(*contents, {PR_ENTRYID, PR_SUBJECT_W});
        EXPECT_EQ(rows.size(), static_cast<size_t>(folderRow.at(PROP_ID(PR_CONTENT_COUNT)).AsLong()));
        messages += rows.size();
        for (const auto& row : rows)
        {
            ComPtr<IMessage> message;
            ASSERT_EQ(open(row.at(PROP_ID(PR_ENTRYID)).AsBytes(), message.PutAs<IUnknown>()), S_OK);
            ComPtr<IStream> body;
            if (SUCCEEDED(message->OpenProperty(PR_BODY_W, &IID_IStream, 0, 0, body.PutAs<IUnknown>())))
                bodies += ReadStream(*body, 1 << 20).empty() ? 0 : 1;
            ComPtr<IMAPITable> recipients;
            ASSERT_EQ(message->GetRecipientTable(MAPI_UNICODE, recipients.Put()), S_OK);
            EXPECT_FALSE(client.Rows(*recipients, {PR_DISPLAY_NAME_W}).empty());
        }
    }
    EXPECT_GE(messages, 6u);
    EXPECT_EQ(bodies, messages);

    GUID set = PS_PUBLIC_STRINGS;
    wchar_t name[] = L"Keywords";
    MAPINAMEID id{&set, MNID_STRING, {}};
    id.Kind.lpwstrName = name;
    LPMAPINAMEID ids = &id;
    MapiBlock<SPropTagArray> tags(Memory());
    EXPECT_TRUE(SUCCEEDED(store->GetIDsFromNames(1, &ids, 0, tags.Put())));
    ASSERT_TRUE(tags);
    EXPECT_EQ(tags->cValues, 1u);
}
