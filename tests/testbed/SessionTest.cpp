// The session: how it drives a provider module, and the support object that it hands out.
#include "tests/testbed/Environment.h"
#include "tests/testbed/FakeProvider.h"

#include "common/MemoryStream.h"
#include "common/StoreEntryId.h"
#include "testbed/mapi/MailSession.h"

using namespace Testbed;
using Tests::ExpectFailure;
using Tests::Memory;

namespace
{
// Keeps the module loaded between sessions, so that what it records stays.
class Pinned
{
public:
    explicit Pinned(const std::filesystem::path& path) : m_module(LoadLibraryW(path.c_str())) {}
    ~Pinned() { FreeLibrary(m_module); }
    Pinned(const Pinned&) = delete;
    Pinned& operator=(const Pinned&) = delete;

    Tests::FakeProviderState& State() const
    {
        const auto get = reinterpret_cast<Tests::GET_FAKE_PROVIDER_STATE>(
            reinterpret_cast<void*>(GetProcAddress(m_module, "GetFakeProviderState")));
        return *get();
    }

private:
    HMODULE m_module;
};

class Session : public testing::Test
{
protected:
    void SetUp() override
    {
        fake = {};
        profile = Profile::InMemory(L"Test profile");
        session = std::make_unique<MailSession>(Options());
    }

    void TearDown() override
    {
        session.reset();
        fake = {};
    }

    SessionOptions Options() const
    {
        return {{L"FAKE", L"A fake service", module, "ServiceEntry", 4}, profile, Tests::Mapi()};
    }

    void StoreEntryId(const Bytes& entryId)
    {
        profile->Change(session->ProviderSection(), {PropValue::Binary(PR_ENTRYID, entryId)});
    }

    std::filesystem::path module = Tests::BinFolder() / L"FakeProvider32.dll";
    Pinned pinned{module};
    Tests::FakeProviderState& fake = pinned.State();
    std::shared_ptr<Profile> profile;
    std::unique_ptr<MailSession> session;
};

using Calls = std::vector<std::string>;

class Sink final : public ComObject<IMAPIAdviseSink, &IID_IMAPIAdviseSink>
{
public:
    STDMETHODIMP_(ULONG) OnNotify(ULONG count, LPNOTIFICATION notifications) override
    {
        for (ULONG i = 0; i < count; ++i)
            events.push_back(notifications[i].ulEventType);
        return answer;
    }
    std::vector<ULONG> events;
    ULONG answer = 0;
};
} // namespace

TEST_F(Session, CreatesAServiceAndItsProvider)
{
    EXPECT_FALSE(session->HasService());
    ExpectFailure(MAPI_E_UNCONFIGURED, [&] { session->ServiceSection(); });
    session->CreateService();
    EXPECT_TRUE(session->HasService());
    EXPECT_EQ(fake.calls, Calls{"entry 2"});
    EXPECT_TRUE(fake.entryHadAdmin);
    EXPECT_TRUE(fake.entryHadSupport);

    const PropertyBag service = profile->Section(session->ServiceSection());
    EXPECT_EQ(Uid::From(service.Find(PROP_ID(PR_SERVICE_UID))), session->ServiceSection());
    EXPECT_EQ(service.Find(PROP_ID(PR_SERVICE_DLL_NAME))->AsText(), L"FakeProvider32.dll");
    EXPECT_EQ(service.Find(PROP_ID(PR_STORE_PROVIDERS))->AsBytes().size(), 16u);
    const PropertyBag provider = profile->Section(session->ProviderSection());
    EXPECT_EQ(Uid::From(provider.Find(PROP_ID(PR_SERVICE_UID))), session->ServiceSection());
    EXPECT_EQ(provider.Find(PROP_ID(PR_PROVIDER_DLL_NAME))->AsText(), L"FakeProvider32.dll");
    EXPECT_EQ(provider.Find(PROP_ID(PR_RESOURCE_FLAGS))->AsLong(), 4);

    ExpectFailure(MAPI_E_COLLISION, [&] { session->CreateService(); });
    EXPECT_EQ(profile->Sections().size(), 2u);
}

TEST_F(Session, LeavesNothingOfAServiceThatFailedToBeCreated)
{
    fake.entryResult = MAPI_E_NO_SUPPORT;
    fake.errorText = L"Not this one.";
    try
    {
        session->CreateService();
        ADD_FAILURE() << "created";
    }
    catch (const Failure& failure)
    {
        EXPECT_EQ(failure.Result(), MAPI_E_NO_SUPPORT);
        EXPECT_NE(failure.Text().find(L"Not this one."), std::wstring::npos);
        EXPECT_NE(failure.Text().find(L"MAPI_E_NO_SUPPORT (0x80040102)"), std::wstring::npos);
    }
    EXPECT_TRUE(profile->Sections().empty());
}

TEST_F(Session, SaysWhichModuleItCannotUse)
{
    SessionOptions missing = Options();
    missing.service.modulePath = L"C:\\nowhere\\missing.dll";
    ExpectFailure(MAPI_E_NOT_FOUND, [&] { MailSession(missing).CreateService(); });
    SessionOptions unfit = Options();
    unfit.service.entryName = "NoSuchEntry";
    ExpectFailure(MAPI_E_VERSION, [&] { MailSession(unfit).CreateService(); });
    EXPECT_TRUE(profile->Sections().empty());
    ExpectFailure(MAPI_E_INVALID_PARAMETER, [] { MailSession session{SessionOptions{}}; });
    ExpectFailure(MAPI_E_NOT_FOUND, [] { MapiModule::Load(L"C:\\nowhere\\olmapi32.dll"); });
    ExpectFailure(MAPI_E_VERSION, [&] { MapiModule::Load(module); });
}

TEST_F(Session, ConfiguresWithValues)
{
    session->CreateService();
    session->ConfigurePath(L"C:\\mail\\a.pst");
    EXPECT_EQ(fake.calls, (Calls{"entry 2", "entry 3"}));
    ASSERT_EQ(fake.entryValues.size(), 1u);
    EXPECT_EQ(fake.entryValues[0].Tag(), Tags::offlineStorePathW);
    EXPECT_EQ(fake.entryValues[0].AsText(), L"C:\\mail\\a.pst");
    EXPECT_EQ(session->CallEntry(MSG_SERVICE_PROVIDER_CREATE, {}, nullptr, false, false), S_OK);
    EXPECT_FALSE(fake.entryHadAdmin);
    EXPECT_FALSE(fake.entryHadSupport);
}

TEST_F(Session, LogsOnWithTheUnwrappedEntryId)
{
    session->CreateService();
    session->Logon();
    EXPECT_TRUE(fake.logonEntryId.empty());
    EXPECT_EQ(fake.logonProfile, L"Test profile");
    EXPECT_EQ(fake.logonFlags, MDB_WRITE | MDB_NO_DIALOG | MAPI_UNICODE);
    EXPECT_EQ(session->ProviderVersion(), ULONG(CURRENT_SPI_VERSION));
    EXPECT_NE(session->Store(), nullptr);
    EXPECT_NE(session->LogonObject(), nullptr);

    const BYTE own[] = {0, 0, 0, 0, 7, 8};
    StoreEntryId(WrapStoreEntryId("FakeProvider32.dll", own, sizeof(own)));
    LogonOptions narrow;
    narrow.flags = MDB_WRITE;
    session->Logon(narrow);
    EXPECT_EQ(fake.logonEntryId, Bytes(std::begin(own), std::end(own)));
    EXPECT_EQ(fake.logonProfile, L"Test profile");

    StoreEntryId({1, 2, 3});
    ExpectFailure(MAPI_E_INVALID_ENTRYID, [&] { session->Logon(); });
}

TEST_F(Session, EndsInMapisOrder)
{
    session->CreateService();
    session->Logon();
    fake.calls.clear();
    session->Logoff();
    EXPECT_EQ(fake.calls, (Calls{"store logoff", "logoff", "shutdown"}));
    EXPECT_EQ(session->Store(), nullptr);
    session->Logoff();
    EXPECT_EQ(fake.calls.size(), 3u);
    session->Logon();
    EXPECT_NE(session->Store(), nullptr);
    fake.calls.clear();
    session->DeleteService();
    EXPECT_EQ(fake.calls, (Calls{"store logoff", "logoff", "entry 4"}));
    EXPECT_TRUE(profile->Sections().empty());
}

TEST_F(Session, GivesTheProvidersOwnFailure)
{
    session->CreateService();
    fake.logonResult = MAPI_E_CORRUPT_STORE;
    fake.errorText = L"The store is \x20AC damaged.";
    std::wstring text;
    EXPECT_EQ(session->TryLogon({}, &text), MAPI_E_CORRUPT_STORE);
    EXPECT_EQ(text, fake.errorText);
    ExpectFailure(MAPI_E_CORRUPT_STORE, [&] { session->Logon(); });
    ExpectFailure(MAPI_E_NOT_INITIALIZED, [&] { session->OpenStore(); });
    fake.logonResult = S_OK;
    fake.giveStore = false;
    ExpectFailure(MAPI_E_LOGON_FAILED, [&] { session->Logon(); });
    EXPECT_EQ(session->Provider(), nullptr);
    fake.initResult = MAPI_E_VERSION;
    ExpectFailure(MAPI_E_VERSION, [&] { session->LoadProvider(); });
}

TEST_F(Session, LogsTheSpoolerOnWithTheSecurityOfTheLogon)
{
    session->CreateService();
    session->Logon();
    ComPtr<IMSLogon> logon;
    ComPtr<IMsgStore> store;
    EXPECT_EQ(session->SpoolerLogon(0, logon, store), S_OK);
    EXPECT_EQ(fake.spoolerSecurity, (Bytes{42, 0}));
    EXPECT_TRUE(logon);
    EXPECT_TRUE(store);
}

TEST_F(Session, OpensEntriesByTheLogonOrTheStore)
{
    session->CreateService();
    BYTE own[] = {0, 0, 0, 0, 7, 8};
    ULONG type = 0;
    ComPtr<IUnknown> object;
    EXPECT_EQ(session->OpenEntry(6, reinterpret_cast<ENTRYID*>(own), nullptr, 0, &type, object.Put()),
              MAPI_E_UNKNOWN_ENTRYID);
    session->Logon();
    Bytes wrapped = WrapStoreEntryId("fakeprovider32.dll", own, sizeof(own));
    EXPECT_EQ(session->OpenEntry(static_cast<ULONG>(wrapped.size()), reinterpret_cast<ENTRYID*>(wrapped.data()),
                                 nullptr, 0, &type, object.Put()),
              S_OK);
    EXPECT_EQ(type, MAPI_STORE);
    fake.calls.clear();
    EXPECT_EQ(fake.support->OpenEntry(6, reinterpret_cast<ENTRYID*>(own), nullptr, 0, &type, object.Put()),
              MAPI_E_NOT_FOUND);
    fake.giveLogon = false;
    session->Logon();
    EXPECT_EQ(session->OpenEntry(6, reinterpret_cast<ENTRYID*>(own), nullptr, 0, &type, object.Put()),
              MAPI_E_NOT_FOUND);
    EXPECT_EQ(fake.calls, (Calls{"open entry", "store logoff", "logoff", "logon", "store open entry"}));
}

TEST_F(Session, ShowsTheStatusRow)
{
    session->CreateService();
    session->Logon();
    const MapiBlock<SPropValue> values(
        Memory(), MakePropArray(Memory(), {PropValue::String(PR_PROVIDER_DISPLAY_W, L"Provider"), PropValue(),
                                           PropValue::Long(PR_STATUS_CODE, STATUS_AVAILABLE)}));
    EXPECT_EQ(fake.support->ModifyStatusRow(3, values.Get(), 0), S_OK);
    EXPECT_EQ(session->StatusRow().Find(PROP_ID(PR_PROVIDER_DISPLAY))->AsText(), L"Provider");
    EXPECT_EQ(session->StatusRow().Find(0), nullptr);
    EXPECT_EQ(fake.support->ModifyStatusRow(1, &values[2], STATUSROW_UPDATE), S_OK);
    EXPECT_NE(session->StatusRow().Find(PROP_ID(PR_PROVIDER_DISPLAY)), nullptr);
    EXPECT_EQ(fake.support->ModifyStatusRow(1, &values[2], 0), S_OK);
    EXPECT_EQ(session->StatusRow().Find(PROP_ID(PR_PROVIDER_DISPLAY)), nullptr);
    EXPECT_EQ(fake.support->ModifyStatusRow(0, nullptr, 1), MAPI_E_UNKNOWN_FLAGS);

    MapiRows rows(Memory());
    ASSERT_EQ(session->StatusTable()->QueryRows(5, 0, rows.Put()), S_OK);
    EXPECT_EQ(rows.Count(), 1u);
}

TEST_F(Session, SupportOpensProfileSections)
{
    session->CreateService();
    const auto support = session->MakeSupport();
    ComPtr<IProfSect> section;
    ASSERT_EQ(support->OpenProfileSection(nullptr, MAPI_MODIFY, section.Put()), S_OK);
    const MapiBlock<SPropTagArray> tags(Memory(), MakeTagArray(Memory(), {PR_SERVICE_UID}));
    ULONG count = 0;
    MapiBlock<SPropValue> values(Memory());
    ASSERT_EQ(section->GetProps(tags.Get(), 0, &count, values.Put()), S_OK);
    MAPIUID uid;
    ASSERT_EQ(values[0].Value.bin.cb, sizeof(uid));
    std::memcpy(uid.ab, values[0].Value.bin.lpb, sizeof(uid));
    EXPECT_EQ(support->OpenProfileSection(&uid, MAPI_MODIFY, section.Put()), S_OK);
    MAPIUID other = Uid::Create();
    EXPECT_EQ(support->OpenProfileSection(&other, 0, section.Put()), MAPI_E_NOT_FOUND);
    EXPECT_EQ(support->OpenProfileSection(nullptr, 0x100, section.Put()), MAPI_E_UNKNOWN_FLAGS);
    MapiBlock<MAPIERROR> error(Memory());
    EXPECT_EQ(support->GetLastError(MAPI_E_UNKNOWN_FLAGS, MAPI_UNICODE, error.Put()), S_OK);
    EXPECT_TRUE(error);
}

TEST_F(Session, SupportNotifiesSubscribers)
{
    session->CreateService();
    const auto support = session->MakeSupport();
    const auto sink = MakeObject<Sink>();
    SizedNOTIFKEY(2, key) = {2, {1, 2}};
    SizedNOTIFKEY(2, otherKey) = {2, {1, 3}};
    ULONG connection = 0;
    ASSERT_EQ(support->Subscribe(reinterpret_cast<NOTIFKEY*>(&key), fnevObjectCreated | fnevObjectDeleted, NOTIFY_SYNC,
                                 sink.Get(), &connection),
              S_OK);
    NOTIFICATION notifications[2] = {};
    notifications[0].ulEventType = fnevObjectDeleted;
    notifications[1].ulEventType = fnevNewMail;
    ULONG flags = 0;
    EXPECT_EQ(support->Notify(reinterpret_cast<NOTIFKEY*>(&otherKey), 2, notifications, &flags), S_OK);
    EXPECT_TRUE(sink->events.empty());
    EXPECT_EQ(support->Notify(reinterpret_cast<NOTIFKEY*>(&key), 2, notifications, &flags), S_OK);
    EXPECT_EQ(sink->events, std::vector<ULONG>{fnevObjectDeleted});
    EXPECT_EQ(flags, 0u);
    sink->answer = CALLBACK_DISCONTINUE;
    EXPECT_EQ(support->Notify(reinterpret_cast<NOTIFKEY*>(&key), 2, notifications, &flags), S_OK);
    EXPECT_EQ(flags, NOTIFY_CANCELED);
    EXPECT_EQ(support->Unsubscribe(connection), S_OK);
    EXPECT_EQ(support->Unsubscribe(connection), MAPI_E_NOT_FOUND);
}

TEST_F(Session, SupportComparesAndWrapsEntryIds)
{
    session->CreateService();
    session->Logon();
    BYTE first[] = {0, 0, 0, 0, 1};
    BYTE second[] = {0, 0, 0, 0, 2};
    auto* const firstId = reinterpret_cast<ENTRYID*>(first);
    auto* const secondId = reinterpret_cast<ENTRYID*>(second);
    ULONG equal = 0;
    EXPECT_EQ(fake.support->CompareEntryIDs(5, firstId, 5, firstId, 0, &equal), S_OK);
    EXPECT_TRUE(equal);
    EXPECT_EQ(fake.support->CompareEntryIDs(5, firstId, 0, nullptr, 0, &equal), S_OK);
    EXPECT_FALSE(equal);
    // Different bytes may still name the same object, which only the provider knows.
    EXPECT_EQ(fake.support->CompareEntryIDs(5, firstId, 5, secondId, 0, &equal), S_OK);
    EXPECT_TRUE(equal);

    ULONG size = 0;
    MapiBlock<ENTRYID> wrapped(Memory());
    EXPECT_EQ(fake.support->WrapStoreEntryID(5, firstId, &size, wrapped.Put()), S_OK);
    const auto unwrapped = UnwrapStoreEntryId(wrapped.Get(), size);
    ASSERT_TRUE(unwrapped);
    EXPECT_EQ(unwrapped->dllName, "FakeProvider32.dll");
    EXPECT_EQ(unwrapped->entryId, Bytes(std::begin(first), std::end(first)));
}

TEST_F(Session, SupportOutlivesTheSession)
{
    session->CreateService();
    session->Logon();
    const ComPtr<IMAPISupport> support = fake.support;
    session.reset();
    BYTE own[] = {0, 0, 0, 0, 7, 8};
    ULONG type = 0;
    ComPtr<IUnknown> object;
    EXPECT_EQ(support->OpenEntry(6, reinterpret_cast<ENTRYID*>(own), nullptr, 0, &type, object.Put()),
              MAPI_E_END_OF_SESSION);
    MAPIUID uid{};
    EXPECT_EQ(support->NewUID(&uid), S_OK);
    EXPECT_NE(Uid(uid), Uid());
}

TEST_F(Session, SupportMakesObjectsInvalid)
{
    session->CreateService();
    const auto support = session->MakeSupport();
    // As a provider does it: the object lies in a MAPI block, and is no more than its bytes once it is given up.
    void* const block = Memory().Allocate(32);
    ASSERT_EQ(support->MakeInvalid(0, block, 2, 12), S_OK);
    auto* const object = static_cast<IMAPIProp*>(block);
    void* other = block;
    EXPECT_EQ(object->QueryInterface(IID_IUnknown, &other), MAPI_E_INVALID_OBJECT);
    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(object->SaveChanges(0), MAPI_E_INVALID_OBJECT);
    EXPECT_EQ(object->AddRef(), 3u);
    EXPECT_EQ(object->Release(), 2u);
    EXPECT_EQ(object->Release(), 1u);
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_EQ(support->MakeInvalid(0, nullptr, 1, 3), MAPI_E_INVALID_PARAMETER);
}

TEST_F(Session, SupportMakesStoragesOfStreams)
{
    session->CreateService();
    const auto support = session->MakeSupport();
    Bytes contents;
    const auto commit = [&contents](const Bytes& bytes)
    {
        contents = bytes;
        return S_OK;
    };
    {
        const auto stream = CreateMemoryStream({}, commit);
        ComPtr<IStorage> storage;
        ASSERT_EQ(
            support->IStorageFromStream(stream.Get(), &IID_IStream, STGSTRM_CREATE | STGSTRM_MODIFY, storage.Put()),
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
    ASSERT_EQ(support->IStorageFromStream(stream.Get(), nullptr, STGSTRM_CURRENT, storage.Put()), S_OK);
    ComPtr<IStream> inner;
    ASSERT_EQ(storage->OpenStream(L"inner", nullptr, STGM_READ | STGM_SHARE_EXCLUSIVE, 0, inner.Put()), S_OK);
    EXPECT_EQ(ReadStream(*inner, 100), (Bytes{'a', 'b', 'c'}));
    EXPECT_EQ(support->IStorageFromStream(support.Get(), nullptr, 0, storage.Put()), MAPI_E_INTERFACE_NOT_SUPPORTED);
}

TEST_F(Session, SupportRefusesToCopyFromWhatIsNoFolder)
{
    session->CreateService();
    session->Logon();
    BYTE own[] = {0, 0, 0, 0, 7, 8};
    // The source is asked for the interface that the caller names for it.
    EXPECT_EQ(fake.support->CopyFolder(&IID_IMessage, session->Store(), 6, reinterpret_cast<ENTRYID*>(own), nullptr,
                                       session->Store(), nullptr, 0, nullptr, 0),
              MAPI_E_INTERFACE_NOT_SUPPORTED);
    EXPECT_EQ(fake.support->CopyFolder(&IID_IMsgStore, session->Store(), 6, reinterpret_cast<ENTRYID*>(own), nullptr,
                                       session->Store(), nullptr, 0, nullptr, 0),
              MAPI_E_INTERFACE_NOT_SUPPORTED);
    EXPECT_EQ(fake.support->CopyFolder(nullptr, nullptr, 6, reinterpret_cast<ENTRYID*>(own), nullptr, nullptr, nullptr,
                                       0, nullptr, 0),
              MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(fake.support->OpenAddressBook(nullptr, 0, nullptr), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(fake.support->SpoolerYield(0), MAPI_E_NO_SUPPORT);
}

TEST_F(Session, TwoSessionsShareAProfile)
{
    session->CreateService();
    SessionOptions options = Options();
    options.service.serviceName = L"SECOND";
    MailSession second(options);
    EXPECT_FALSE(second.HasService());
    second.CreateService();
    EXPECT_FALSE(second.ServiceSection() == session->ServiceSection());
    session->Logon();
    second.Logon();
    EXPECT_NE(second.Store(), session->Store());
    session->DeleteService();
    EXPECT_TRUE(second.HasService());
}
