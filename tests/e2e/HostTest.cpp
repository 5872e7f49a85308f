// The sample host's own code: its settings and its boundary.
#include "tests/e2e/Environment.h"

#include "common/ComObject.h"
#include "common/Text.h"
#include "host/HostSettings.h"
#include "nst/KivNstCore.h"
#include "tests/common/MailSession.h"
#include "tools/browser/ArchiveSession.h"
#include "tools/browser/LogRecorder.h"
#include "tools/browser/MapiTools.h"
#include "tools/setup/Locations.h"

using namespace Testbed;
using namespace Browser;

namespace Tests
{
namespace
{
// The host's service in a profile of its own, without what ArchiveSession does around it.
SessionOptions HostOptions(const std::shared_ptr<Profile>& profile)
{
    return {{L"ARCHIVE", L"Archive", std::filesystem::path(Setup::GetProgramFolder()) / "ArchiveHost32.dll",
             "ServiceEntry"},
            profile,
            nullptr};
}

TEST(HostTest, UnknownOptionsAreRefusedWithATextAndNothingIsStored)
{
    const auto profile = MemoryProfile(L"host");
    MailSession session(HostOptions(profile));
    session.CreateService();
    std::wstring text;
    EXPECT_EQ(session.CallEntry(MSG_SERVICE_CONFIGURE,
                                {PropValue::String(Common::Tags::offlineStorePathW, L"C:\\somewhere.pst"),
                                 PropValue::Long(PR_ARCHIVE_HOST_OPTIONS, 0x40)},
                                &text),
              MAPI_E_INVALID_PARAMETER);
    EXPECT_NE(text.find(L"0x00000040"), std::wstring::npos) << Utf8FromWide(text);
    const PropertyBag section = profile->Section(session.ServiceSection());
    EXPECT_EQ(section.Find(PROP_ID(PR_ARCHIVE_HOST_OPTIONS)), nullptr);
    EXPECT_EQ(section.Find(PROP_ID(Common::Tags::offlineStorePathW)), nullptr);
}

TEST(HostTest, FailuresOfTheLibraryComeAsCodesWithATextAndALogLine)
{
    LogRecorder log(false);
    MailSession session(HostOptions(MemoryProfile(L"host")));
    session.CreateService();
    std::wstring text;
    EXPECT_EQ(session.CallEntry(MSG_SERVICE_PROVIDER_CREATE, {}, &text), MAPI_E_NO_SUPPORT);
    EXPECT_NE(text.find(L"MAPI_E_NO_SUPPORT"), std::wstring::npos) << Utf8FromWide(text);
    EXPECT_EQ(session.CallEntry(MSG_SERVICE_CONFIGURE, {}, &text, false), MAPI_E_INVALID_PARAMETER);
    bool caught = false;
    for (const LogRecorder::Line& line : log.Take())
        caught = caught || line.text.starts_with("Caught exception at ArchiveHost.cpp, ServiceEntry");
    EXPECT_TRUE(caught);
}

TEST(HostTest, ProviderInitialisationGivesCodesInsteadOfExceptions)
{
    const auto module = LoadLibraryW((std::filesystem::path(Setup::GetProgramFolder()) / "ArchiveHost32.dll").c_str());
    ASSERT_NE(module, nullptr);
    const auto init =
        reinterpret_cast<MSPROVIDERINIT*>(reinterpret_cast<void*>(GetProcAddress(module, "MSProviderInit")));
    ASSERT_NE(init, nullptr);
    ULONG version = 0;
    ComPtr<IMSProvider> provider;
    EXPECT_EQ(init(module, nullptr, nullptr, nullptr, nullptr, 0, CURRENT_SPI_VERSION, &version, nullptr),
              MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(init(module, nullptr, nullptr, nullptr, nullptr, 0, CURRENT_SPI_VERSION - 1, &version, provider.Put()),
              MAPI_E_VERSION);
    EXPECT_FALSE(provider);
    EXPECT_EQ(version, ULONG(CURRENT_SPI_VERSION));
    FreeLibrary(module);
}

TEST(HostTest, TheLogFileSettingSendsTheLogThere)
{
    const std::filesystem::path folder = NewFolder();
    const auto profile = MemoryProfile(L"host");
    {
        MailSession session(HostOptions(profile));
        session.CreateService();
        session.Configure({PropValue::String(Common::Tags::offlineStorePathW, (folder / "archive.pst").wstring()),
                           PropValue::String(PR_ARCHIVE_HOST_LOG_FILE, (folder / "host.log").wstring())});
        session.Logon();
        EXPECT_EQ(session.Store()->SetReceiveFolder(nullptr, 0, 0, nullptr), MAPI_E_NO_ACCESS);
    }
    // The recorder takes the log over and gives it back to the debugger's output, which closes the file.
    const LogRecorder other(false);
    EXPECT_NE(ContentsOf(folder / "host.log").find("warning: IMsgStore::SetReceiveFolder called on read-only archive"),
              std::string::npos)
        << ContentsOf(folder / "host.log");
}

TEST(HostTest, TheSettingsChooseWrappersAndModification)
{
    const std::filesystem::path folder = NewFolder();
    ArchiveSession archive(TestMapi(), PlaceOf(folder));
    archive.Configure(SampleInto(folder, 2, 2), {});
    for (const Setting& setting :
         {Setting{false, false}, Setting{false, true}, Setting{true, false}, Setting{true, true}})
    {
        archive.Logon(setting);
        EXPECT_EQ(Quillon::Nst::GetModifyStores(), setting.modify);
        const auto root = OpenFolder(archive.Store(), {});
        const auto access = ReadProp(archive.Memory(), *root, PR_ACCESS);
        ASSERT_TRUE(access.has_value());
        EXPECT_EQ(access->AsLong() == MAPI_ACCESS_READ, !setting.plain && !setting.modify) << setting.Name();
        const auto store = ReadProp(archive.Memory(), archive.Store(), PR_ACCESS_LEVEL);
        ASSERT_TRUE(store.has_value());
        EXPECT_EQ(store->AsLong() == 0, !setting.modify) << setting.Name();
    }
}

class IdleSink : public ComObject<IMAPIAdviseSink, &IID_IMAPIAdviseSink>
{
public:
    STDMETHODIMP_(ULONG) OnNotify(ULONG, LPNOTIFICATION) override { return 0; }
};

// The PST provider takes no number back of which a bit is missing.
TEST(HostTest, BookmarksAndConnectionsThatAreAddressesComeBackWhole)
{
    const std::filesystem::path folder = NewFolder();
    LogRecorder log(false);
    ArchiveSession archive(TestMapi(), PlaceOf(folder));
    archive.Configure(SampleInto(folder, 3, 1), {});
    archive.Logon({false, false});
    const auto root = OpenFolder(archive.Store(), {});
    const auto table = Hierarchy(*root);
    ULONG rows = 0;
    ASSERT_EQ(table->GetRowCount(0, &rows), S_OK);
    ASSERT_GE(rows, 2u);

    LONG sought = 0;
    BOOKMARK last = 0;
    BOOKMARK end = 0;
    ASSERT_EQ(table->SeekRow(BOOKMARK_BEGINNING, static_cast<LONG>(rows) - 1, nullptr), S_OK);
    ASSERT_EQ(table->CreateBookmark(&last), S_OK);
    ASSERT_EQ(table->SeekRow(BOOKMARK_END, 0, nullptr), S_OK);
    ASSERT_EQ(table->CreateBookmark(&end), S_OK);
    EXPECT_NE(last >> 32, 0u);
    EXPECT_NE(last >> 32, end >> 32);
    EXPECT_EQ(table->SeekRow(last, 1, &sought), S_OK);
    EXPECT_EQ(sought, 1);
    EXPECT_EQ(table->SeekRow(end, -1, &sought), S_OK);
    EXPECT_EQ(sought, -1);
    SRestriction any = {};
    any.rt = RES_EXIST;
    any.res.resExist.ulPropTag = PR_ENTRYID;
    EXPECT_EQ(table->FindRow(&any, last, 0), S_OK);
    EXPECT_EQ(table->FindRow(&any, last & MAXDWORD, 0), MAPI_E_INVALID_BOOKMARK);
    EXPECT_EQ(table->SeekRow(last & MAXDWORD, 0, nullptr), MAPI_E_INVALID_BOOKMARK);
    EXPECT_EQ(table->FreeBookmark(last), S_OK);
    EXPECT_EQ(table->FreeBookmark(last), MAPI_E_INVALID_BOOKMARK);
    EXPECT_EQ(table->FreeBookmark(end), S_OK);

    const auto sink = MakeObject<IdleSink>();
    ULONG_PTR connection = 0;
    ASSERT_EQ(table->Advise(fnevTableModified, sink.Get(), &connection), S_OK);
    EXPECT_NE(connection >> 32, 0u);
    EXPECT_EQ(table->Unadvise(connection), S_OK);
    EXPECT_EQ(table->Unadvise(connection), MAPI_E_INVALID_PARAMETER);
    ASSERT_EQ(archive.Store().Advise(0, nullptr, fnevObjectModified, sink.Get(), &connection), S_OK);
    EXPECT_NE(connection >> 32, 0u);
    EXPECT_EQ(archive.Store().Unadvise(connection), S_OK);
    EXPECT_EQ(archive.Store().Unadvise(connection), MAPI_E_NOT_FOUND);
}
} // namespace
} // namespace Tests
