// A whole host of the kit, the module of tests/hostkit/minimal, loaded and driven as MAPI does.
#include "tests/hostkit/Environment.h"

#include "common/Text.h"
#include "nst/KivNstCore.h"

using namespace Common;
using namespace Testbed;

namespace Tests
{
namespace
{

std::filesystem::path Module()
{
    std::wstring path(32767, L'\0');
    path.resize(GetEnvironmentVariableW(L"KIVNST_BIN", path.data(), static_cast<DWORD>(path.size())));
    return std::filesystem::path(path) / "RenamedHost32.dll";
}

SessionOptions RenamedService(const std::shared_ptr<Profile>& profile)
{
    return {{L"RENAMED", L"Renamed", Module(), "ServiceEntry"}, profile, nullptr};
}

TEST(ModuleTest, ExportsTheTwoFunctionsUndecorated)
{
    const HMODULE module = LoadLibraryW(Module().c_str());
    ASSERT_NE(module, nullptr);
    EXPECT_NE(GetProcAddress(module, "ServiceEntry"), nullptr);
    EXPECT_NE(GetProcAddress(module, "MSProviderInit"), nullptr);
    FreeLibrary(module);
}

TEST(ModuleTest, ServiceEntryAnswersAsDocumented)
{
    MailSession session(RenamedService(Tests::MemoryProfile(L"host")));
    session.CreateService();
    std::wstring text;
    EXPECT_EQ(session.CallEntry(MSG_SERVICE_CONFIGURE, {}, &text), MAPI_E_UNCONFIGURED);
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(session.CallEntry(MSG_SERVICE_PROVIDER_CREATE, {}, &text), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(session.CallEntry(MSG_SERVICE_DELETE, {}, &text), S_OK);
    EXPECT_EQ(session.CallEntry(MSG_SERVICE_CONFIGURE, {}, &text, false), MAPI_E_INVALID_PARAMETER);
}

TEST(ModuleTest, ALogonWithoutAStoreInTheProfileIsUnconfiguredAndSucceedsOnceThereIsOne)
{
    const std::filesystem::path file = GeneratedPst(NewFolder());
    MailSession session(RenamedService(Tests::MemoryProfile(L"host")));
    session.CreateService();
    EXPECT_EQ(session.TryLogon({}), MAPI_E_UNCONFIGURED);
    session.ConfigurePath(file.wstring());
    EXPECT_EQ(session.TryLogon({}), S_OK);
}

TEST(ModuleTest, ShowsARenamedReadOnlyArchive)
{
    const auto profile = Tests::MemoryProfile(L"host");
    MailSession session(RenamedService(profile));
    session.CreateService();
    session.ConfigurePath((NewFolder() / "archive.pst").wstring());
    session.Logon();
    SizedSPropTagArray(2, tags) = {2, {PR_DISPLAY_NAME_W, PR_IPM_SUBTREE_ENTRYID}};
    ULONG count = 0;
    MapiBlock<SPropValue> values(session.Memory());
    ASSERT_EQ(session.Store()->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, values.Put()), S_OK);
    EXPECT_STREQ(values[0].Value.lpszW, L"Mail of 2019");
    ULONG type = 0;
    ComPtr<IMAPIFolder> top;
    ASSERT_EQ(session.Store()->OpenEntry(values[1].Value.bin.cb, reinterpret_cast<LPENTRYID>(values[1].Value.bin.lpb),
                                         nullptr, MAPI_MODIFY, &type, top.PutAs<IUnknown>()),
              S_OK);
    ComPtr<IMessage> message;
    EXPECT_EQ(top->CreateMessage(nullptr, 0, message.Put()), MAPI_E_NO_ACCESS);
    EXPECT_EQ(session.StatusRow().Find(PROP_ID(PR_DISPLAY_NAME))->AsText(), L"Mail of 2019");
    for (const Uid& section : {session.ServiceSection(), session.ProviderSection()})
    {
        const PropertyBag properties = profile->Section(section);
        EXPECT_EQ(properties.Find(PROP_ID(PR_DISPLAY_NAME))->AsText(), L"Mail of 2019");
        const Bytes uid(std::begin(Quillon::Nst::providerUid.ab), std::end(Quillon::Nst::providerUid.ab));
        EXPECT_EQ(properties.Find(PROP_ID(PR_MDB_PROVIDER))->AsBytes(), uid);
    }
}

} // namespace
} // namespace Tests
