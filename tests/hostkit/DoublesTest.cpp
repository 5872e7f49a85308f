// What a host of the kit does with a PST provider and a MAPI that behave as the testbed's do not: search folders, a
// medium that cannot be written, streams that could be written to, a folder without a name.
#include "hostkit/ExactWrappers.h"
#include "hostkit/HostKit.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"
#include "tests/faults/Surroundings.h"

#include <gmock/gmock.h>

#include <cstring>

using namespace Quillon;
using KivNstHostKit::ArchiveSettings;

namespace Tests
{
namespace
{

enum Slot
{
    QueryInterfaceSlot = 0,
    SupportModifyStatusRowSlot = 8,
    SupportOpenProfileSectionSlot = 9,
    LogonSlot = 4,
    CompareEntryIdsSlot = 16,
    StoreOpenEntrySlot = 17,
    OpenPropertySlot = 7,
    SetSearchCriteriaSlot = 17,
    CreateFolderSlot = 22,
    DeleteFolderSlot = 24
};

template <class T>
T* Pointer(RawArgument argument)
{
    return reinterpret_cast<T*>(argument);
}

KivNstHostKit::ArchivePointer MakeArchive(Surroundings& surroundings)
{
    return std::make_shared<const KivNstHostKit::CArchive>(
        ArchiveSettings(), ATL::CComQIPtr<IMsgStore>(surroundings.store.As<IMsgStore>()),
        ATL::CComQIPtr<IMAPISupport>(surroundings.support.As<IMAPISupport>()));
}

std::size_t CallsOf(const Recorder& object, int slot)
{
    std::size_t count = 0;
    for (const Recorder::Call& call : object.Calls())
        count += call.slot == slot ? 1 : 0;
    return count;
}

/// A store with a folder for searches, in which a client's search folder lies.
class SearchFolderTest : public testing::Test
{
protected:
    SearchFolderTest()
    {
        surroundings.store.properties[PR_FINDER_ENTRYID] = BinaryValue(PR_FINDER_ENTRYID, {5, 5});
        surroundings.store.SetBehaviour(CompareEntryIdsSlot,
                                        [](const RawArguments& arguments) -> HRESULT
                                        {
                                            *Pointer<ULONG>(arguments[5]) =
                                                arguments[0] == arguments[2] &&
                                                std::memcmp(Pointer<void>(arguments[1]), Pointer<void>(arguments[3]),
                                                            static_cast<ULONG>(arguments[0])) == 0;
                                            return S_OK;
                                        });
        surroundings.folder.properties[PR_ENTRYID] = BinaryValue(PR_ENTRYID, {5, 5});
        surroundings.folder.properties[PR_FOLDER_TYPE] = NumberValue(PR_FOLDER_TYPE, FOLDER_GENERIC);
        surroundings.root.properties[PR_ENTRYID] = BinaryValue(PR_ENTRYID, {6, 6});
        surroundings.root.properties[PR_PARENT_ENTRYID] = BinaryValue(PR_PARENT_ENTRYID, {5, 5});
        surroundings.root.properties[PR_FOLDER_TYPE] = NumberValue(PR_FOLDER_TYPE, FOLDER_SEARCH);
        surroundings.opened = &surroundings.root;
        finder = Wrap(surroundings.folder);
        search = Wrap(surroundings.root);
    }

    ATL::CComQIPtr<IMAPIFolder> Wrap(FaultyObject& folder)
    {
        return KivNstHostKit::MakeFolder(MakeArchive(surroundings),
                                         ATL::CComQIPtr<IMAPIFolder>(folder.As<IMAPIFolder>()), nullptr);
    }
    HRESULT SetComment(IMAPIFolder* folder)
    {
        SPropValue value = {};
        value.ulPropTag = PR_COMMENT_W;
        return folder->SetProps(1, &value, nullptr);
    }

    Surroundings surroundings;
    ATL::CComQIPtr<IMAPIFolder> finder;
    ATL::CComQIPtr<IMAPIFolder> search;
};

TEST_F(SearchFolderTest, SearchFoldersAreMadeAndDeletedWhereTheDocumentationPutsThem)
{
    ATL::CComQIPtr<IMAPIFolder> made;
    EXPECT_EQ(finder->CreateFolder(FOLDER_SEARCH, nullptr, nullptr, nullptr, 0, &made), S_OK);
    EXPECT_NE(made.p, surroundings.root.As<IMAPIFolder>()) << "not wrapped";
    EXPECT_EQ(finder->CreateFolder(FOLDER_GENERIC, nullptr, nullptr, nullptr, 0, nullptr), MAPI_E_NO_ACCESS);
    BYTE entryId[] = {6, 6};
    EXPECT_EQ(finder->DeleteFolder(sizeof(entryId), reinterpret_cast<ENTRYID*>(entryId), 0, nullptr, 0), S_OK);
    EXPECT_EQ(CallsOf(surroundings.folder, DeleteFolderSlot), 1u);
    surroundings.root.properties[PR_FOLDER_TYPE] = NumberValue(PR_FOLDER_TYPE, FOLDER_GENERIC);
    EXPECT_EQ(finder->DeleteFolder(sizeof(entryId), reinterpret_cast<ENTRYID*>(entryId), 0, nullptr, 0),
              MAPI_E_NO_ACCESS);
    surroundings.store.properties.erase(PR_FINDER_ENTRYID);
    EXPECT_EQ(finder->CreateFolder(FOLDER_SEARCH, nullptr, nullptr, nullptr, 0, nullptr), MAPI_E_NO_ACCESS);
}

TEST_F(SearchFolderTest, TheyAreToldWhatToLookForAndHoldNothingThatCanBeDeletedInThem)
{
    EXPECT_EQ(search->SetSearchCriteria(nullptr, nullptr, 0), S_OK);
    EXPECT_EQ(CallsOf(surroundings.root, SetSearchCriteriaSlot), 1u);
    EXPECT_EQ(SetComment(search), S_OK);
    EXPECT_EQ(search->DeleteMessages(nullptr, 0, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(search->EmptyFolder(0, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(search->SetReadFlags(nullptr, 0, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(search->CreateMessage(nullptr, 0, nullptr), MAPI_E_NO_ACCESS);
    EXPECT_EQ(search->CopyMessages(nullptr, nullptr, nullptr, 0, nullptr, MESSAGE_MOVE), MAPI_E_NO_ACCESS);
    // The folder around it, and a search folder that lies elsewhere, are the archive's.
    EXPECT_EQ(finder->SetSearchCriteria(nullptr, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(SetComment(finder), MAPI_E_NO_ACCESS);
    surroundings.root.properties[PR_PARENT_ENTRYID] = BinaryValue(PR_PARENT_ENTRYID, {7, 7});
    EXPECT_EQ(search->SetSearchCriteria(nullptr, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(SetComment(search), MAPI_E_NO_ACCESS);
}

class TestHost : public KivNstHostKit::CArchiveHost
{
public:
    StringW GetModuleName() const override { return L"TestHost.dll"; }
    ArchiveSettings GetSettings(IProfSect*) const override
    {
        ArchiveSettings settings;
        settings.displayName = L"Archive";
        return settings;
    }
};

class LogonTest : public testing::Test
{
protected:
    LogonTest()
    {
        surroundings.serviceSection.properties[PR_SERVICE_UID] = BinaryValue(PR_SERVICE_UID, Bytes(16, 1));
        provider = KivNstHostKit::MakeProvider(std::make_shared<const TestHost>(),
                                               ATL::CComQIPtr<IMSProvider>(surroundings.provider.As<IMSProvider>()));
        surroundings.provider.SetBehaviour(LogonSlot,
                                           [this](const RawArguments& arguments) -> HRESULT
                                           {
                                               const auto asked = static_cast<ULONG>(arguments[5]);
                                               flags.push_back(asked);
                                               pstSupport =
                                                   ATL::CComQIPtr<IMAPISupport>(Pointer<IMAPISupport>(arguments[0]));
                                               if (isReadOnlyMedium && (asked & MDB_WRITE))
                                                   return MAPI_E_NO_ACCESS;
                                               if (arguments[10])
                                                   surroundings.logon.GiveTo(arguments, 10);
                                               surroundings.store.GiveTo(arguments, 11);
                                               return S_OK;
                                           });
    }
    HRESULT LogOn(ULONG asked)
    {
        store.Release();
        logon.Release();
        return provider->Logon(surroundings.support.As<IMAPISupport>(), 0, nullptr, 0, nullptr, asked, nullptr, nullptr,
                               nullptr, nullptr, &logon, &store);
    }

    Surroundings surroundings;
    bool isReadOnlyMedium = false;
    std::vector<ULONG> flags;
    ATL::CComQIPtr<IMAPISupport> pstSupport;
    ATL::CComQIPtr<IMSProvider> provider;
    ATL::CComQIPtr<IMSLogon> logon;
    ATL::CComQIPtr<IMsgStore> store;
};

TEST_F(LogonTest, OpensThePstForWritingWhateverAccessIsAskedFor)
{
    EXPECT_EQ(LogOn(MDB_OST_LOGON_ANSI), S_OK);
    EXPECT_EQ(flags, (std::vector<ULONG>{MDB_WRITE | MDB_OST_LOGON_UNICODE}));
}

TEST_F(LogonTest, APreparedArchiveOpensOnAMediumThatCannotBeWritten)
{
    isReadOnlyMedium = true;
    EXPECT_EQ(LogOn(MDB_WRITE), S_OK);
    EXPECT_EQ(flags, (std::vector<ULONG>{MDB_WRITE | MDB_OST_LOGON_UNICODE, MDB_OST_LOGON_UNICODE}));
    EXPECT_TRUE(store);
    for (const Recorder::Call& call : surroundings.store.Calls())
        EXPECT_NE(call.slot, 8) << "the store was written to";
}

TEST_F(LogonTest, LeavesNoProfileSectionOpenAndGivesThePstTheServicesWhenItAsks)
{
    EXPECT_EQ(LogOn(0), S_OK);
    for (const FaultyObject* const section : {&surroundings.ownSection, &surroundings.serviceSection})
        EXPECT_EQ(section->References(), 1u);
    MAPIUID uid = Nst::globalProfileSectionUid;
    MAPIUID asked = {};
    surroundings.support.SetBehaviour(SupportOpenProfileSectionSlot,
                                      [&](const RawArguments& arguments) -> HRESULT
                                      {
                                          asked = *Pointer<MAPIUID>(arguments[0]);
                                          surroundings.serviceSection.GiveTo(arguments, 2);
                                          return S_OK;
                                      });
    ATL::CComQIPtr<IProfSect> section;
    EXPECT_EQ(pstSupport->OpenProfileSection(&uid, MAPI_MODIFY, &section), S_OK);
    EXPECT_EQ(section.p, surroundings.serviceSection.As<IProfSect>());
    EXPECT_EQ(Bytes(asked.ab, asked.ab + 16), Bytes(16, 1));
}

TEST_F(LogonTest, TheStatusRowHasTheArchivesNameAndNoStatusObject)
{
    EXPECT_EQ(LogOn(0), S_OK);
    wchar_t wide[] = L"PST";
    char narrow[] = "PST";
    SPropValue row[3] = {};
    row[0].ulPropTag = PR_DISPLAY_NAME_W;
    row[0].Value.lpszW = wide;
    row[1].ulPropTag = PR_DISPLAY_NAME_A;
    row[1].Value.lpszA = narrow;
    row[2].ulPropTag = PR_RESOURCE_METHODS;
    row[2].Value.l = 0x7F;
    bool wasCalled = false;
    surroundings.support.SetBehaviour(SupportModifyStatusRowSlot,
                                      [&](const RawArguments& arguments) -> HRESULT
                                      {
                                          wasCalled = true;
                                          const auto* const given = Pointer<SPropValue>(arguments[1]);
                                          EXPECT_STREQ(given[0].Value.lpszW, L"Archive");
                                          EXPECT_STREQ(given[1].Value.lpszA, "Archive");
                                          EXPECT_EQ(given[2].Value.l, 0);
                                          return S_OK;
                                      });
    EXPECT_EQ(pstSupport->ModifyStatusRow(3, row, 0), S_OK);
    EXPECT_TRUE(wasCalled);
    EXPECT_STREQ(row[0].Value.lpszW, L"PST") << "the PST provider's own array was changed";
    void* entry = nullptr;
    EXPECT_EQ(logon->OpenStatusEntry(nullptr, 0, nullptr, &entry), MAPI_E_NO_ACCESS);
}

TEST(ServiceTest, AConfigurationWithoutAPathIsUnconfigured)
{
    Surroundings surroundings;
    const auto configure = [&]
    {
        return KivNstHostKit::EnterService<TestHost>(L"ServiceEntry", nullptr, surroundings.support.As<IMAPISupport>(),
                                                     0, 0, MSG_SERVICE_CONFIGURE, 0, nullptr,
                                                     surroundings.admin.As<IProviderAdmin>(), nullptr);
    };
    EXPECT_EQ(configure(), S_OK);
    surroundings.serviceSection.properties.erase(PR_PROFILE_OFFLINE_STORE_PATH_W);
    EXPECT_EQ(configure(), MAPI_E_UNCONFIGURED);
    surroundings.serviceSection.properties[PR_PROFILE_OFFLINE_STORE_PATH] =
        NarrowTextValue(PR_PROFILE_OFFLINE_STORE_PATH, "C:\\archive.pst");
    EXPECT_EQ(configure(), S_OK);
}

TEST(ArchiveStreamTest, AStreamThatCouldBeWrittenToIsNot)
{
    Surroundings surroundings;
    Recorder stream(false);
    stream.SetBehaviour(QueryInterfaceSlot,
                        [&](const RawArguments& arguments) -> HRESULT
                        {
                            *Pointer<void*>(arguments[1]) = &stream;
                            stream.As<IUnknown>()->AddRef();
                            return S_OK;
                        });
    ULONG options = 0;
    ULONG flags = 0;
    surroundings.message.SetBehaviour(OpenPropertySlot,
                                      [&](const RawArguments& arguments) -> HRESULT
                                      {
                                          options = static_cast<ULONG>(arguments[2]);
                                          flags = static_cast<ULONG>(arguments[3]);
                                          *Pointer<void*>(arguments[4]) = &stream;
                                          stream.As<IUnknown>()->AddRef();
                                          return S_OK;
                                      });
    {
        const auto message = KivNstHostKit::MakeMessage(MakeArchive(surroundings),
                                                        ATL::CComQIPtr<IMessage>(surroundings.message.As<IMessage>()));
        ATL::CComPtr<IUnknown> object;
        EXPECT_EQ(message->OpenProperty(PR_BODY_W, nullptr, 0, 0, &object), MAPI_E_INVALID_PARAMETER);
        ASSERT_EQ(message->OpenProperty(PR_BODY_W, &KivNstHostKit::iidStream, STGM_READWRITE | STGM_TRANSACTED,
                                        MAPI_MODIFY, &object),
                  S_OK);
        EXPECT_EQ(options, ULONG{STGM_READ});
        EXPECT_EQ(flags, 0u);
        auto* const readOnly = static_cast<IStream*>(object.p);
        EXPECT_EQ(readOnly->Write(&options, sizeof(options), nullptr), STG_E_ACCESSDENIED);
        EXPECT_EQ(readOnly->SetSize({}), STG_E_ACCESSDENIED);
        EXPECT_EQ(readOnly->Commit(0), S_OK);
        constexpr int writing[] = {4, 6, 8, 9}; // Write, SetSize, Commit, Revert
        for (const int slot : writing)
            EXPECT_EQ(CallsOf(stream, slot), 0u) << slot;
        EXPECT_EQ(readOnly->Read(&options, sizeof(options), nullptr), S_OK);
        EXPECT_EQ(CallsOf(stream, 3), 1u);
    }
    EXPECT_EQ(stream.References(), 1u);
}

std::vector<HANDLE> g_flushed;

TEST(HostLogTest, IsFlushedBeforeTheProcessIsEndedAndNoLongerOnceItIsClosed)
{
    const ImportHook<BOOL WINAPI(HANDLE)> hook(
        "FlushFileBuffers",
        [](HANDLE file) -> BOOL
        {
            g_flushed.push_back(file);
            return TRUE;
        },
        nullptr);
    wchar_t folder[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, folder);
    KivNstHostKit::LogSettings settings;
    settings.path = FormatString(L"%skivnst-flushed-%lu.log", folder, GetCurrentProcessId());
    KivNstHostKit::CHostLog::Get().Open(settings);
    OnDie(1);
    EXPECT_EQ(g_flushed.size(), 1u);
    KivNstHostKit::CHostLog::Get().Close();
    OnDie(1);
    EXPECT_EQ(g_flushed.size(), 1u);
    EXPECT_TRUE(DeleteFileW(settings.path)) << "there was no log";
}

TEST(ExactWrappersTest, AFolderWithoutAReadableNameRefusesAllTheSame)
{
    Surroundings surroundings;
    surroundings.folder.SetBehaviour(5, [](const RawArguments&) -> HRESULT { return MAPI_E_CALL_FAILED; });
    const auto folder = com_wrap<IMAPIFolder>(new KivNstHostKit::CFolderGuard<KivNstHostKit::CExactReadOnlyFolder>(
        surroundings.folder.As<IMAPIFolder>(), surroundings.store.As<IMsgStore>(),
        surroundings.support.As<IMAPISupport>()));
    LogCapture log;
    // Outputs stay as they were.
    auto* const pattern = reinterpret_cast<IMAPIFolder*>(0x5A5A5A5A);
    IMAPIFolder* created = pattern;
    IMessage* message = reinterpret_cast<IMessage*>(pattern);
    ULONG status = 0x5A5A5A5A;
    EXPECT_EQ(folder->CreateFolder(FOLDER_GENERIC, nullptr, nullptr, nullptr, MAPI_UNICODE, &created),
              MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->CreateMessage(nullptr, 0, &message), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->CopyMessages(nullptr, nullptr, nullptr, 0, nullptr, MESSAGE_MOVE), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->DeleteMessages(nullptr, 0, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->DeleteFolder(0, nullptr, 0, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->SetReadFlags(nullptr, 0, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->SetMessageStatus(0, nullptr, 0, 0, &status), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->EmptyFolder(0, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(created, pattern);
    EXPECT_EQ(message, reinterpret_cast<IMessage*>(pattern));
    EXPECT_EQ(status, 0x5A5A5A5Au);
    std::size_t caught = 0;
    for (const LogLine& line : log.Take())
        caught += line.text.starts_with(L"Caught exception at ExactWrappers.h, KivNstHostKit::CExactReadOnlyFolder::")
                      ? 1
                      : 0;
    EXPECT_EQ(caught, 8u);
}

} // namespace
} // namespace Tests
