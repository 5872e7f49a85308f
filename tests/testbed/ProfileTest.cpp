// Profiles, their sections and their administration.
#include "tests/testbed/Environment.h"

#include "testbed/mapi/ProfileStore.h"
#include "testbed/mapi/ProviderAdmin.h"

using namespace Testbed;
using Tests::ExpectFailure;
using Tests::Memory;

namespace
{
constexpr ULONG secureTag = PROP_TAG(PT_BINARY, 0x67F0);

// A profile that is removed with its last user.
std::shared_ptr<Profile> NewProfile()
{
    static int number = 0;
    const auto profile =
        ProfileStore::Create(L"Section test " + std::to_wstring(GetTickCount64()) + L" " + std::to_wstring(++number));
    return {profile.get(), [profile](Profile*) { ProfileStore::Delete(profile->Name()); }};
}

HRESULT Set(IProfSect& section, const std::vector<PropValue>& values)
{
    const MapiBlock<SPropValue> array(Memory(), MakePropArray(Memory(), values));
    return section.SetProps(static_cast<ULONG>(values.size()), array.Get(), nullptr);
}

// One property of a section in the type asked for.
PropValue Get(IProfSect& section, ULONG tag)
{
    const MapiBlock<SPropTagArray> tags(Memory(), MakeTagArray(Memory(), {tag}));
    ULONG count = 0;
    MapiBlock<SPropValue> values(Memory());
    EXPECT_TRUE(SUCCEEDED(section.GetProps(tags.Get(), 0, &count, values.Put())));
    return count == 1 ? PropValue::From(values[0]) : PropValue();
}
} // namespace

TEST(Profile, KeepsValuesOfAllTypes)
{
    const auto profile = NewProfile();
    const Uid first = Uid::Create();
    const std::vector<PropValue> values = {
        PropValue::String(PR_DISPLAY_NAME_W, L"Name \x20AC \"quoted\""),
        PropValue::String8(PR_COMMENT_A, "caf\xE9"),
        PropValue::Long(PR_RESOURCE_FLAGS, -3),
        PropValue::Binary(PR_ENTRYID, Bytes{0, 1, 255}),
        PropValue::Boolean(PR_DEFAULT_STORE, true),
        PropValue(PROP_TAG(PT_DOUBLE, 0x6001), 0.1),
        PropValue(PROP_TAG(PT_SYSTIME, 0x6002), std::int64_t(0x01D0123456789ABC)),
        PropValue(PROP_TAG(PT_CLSID, 0x6003), GUID{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}}),
        PropValue(PROP_TAG(PT_MV_UNICODE, 0x6004), std::vector<std::wstring>{L"a", L"bc"}),
        PropValue(PROP_TAG(PT_MV_BINARY, 0x6005), std::vector<Bytes>{{1}, {}}),
        PropValue(PROP_TAG(PT_MV_LONG, 0x6006), std::vector<std::int32_t>{1, -2}),
    };
    profile->Change(first, values);
    const auto again = ProfileStore::Find(profile->Name());
    ASSERT_TRUE(again);
    const PropertyBag section = again->Section(first);
    EXPECT_EQ(section.Values().size(), values.size());
    for (const PropValue& value : values)
    {
        ASSERT_NE(section.Find(value.Id()), nullptr);
        EXPECT_TRUE(*section.Find(value.Id()) == value) << std::hex << value.Tag();
    }
    // Of another type it is the same property.
    profile->Change(first, {PropValue::String8(PR_DISPLAY_NAME_A, "narrow")});
    EXPECT_EQ(again->Section(first).Find(PROP_ID(PR_DISPLAY_NAME))->Tag(), PR_DISPLAY_NAME_A);
    EXPECT_EQ(again->Section(first).Values().size(), values.size());
    again->Change(first, {}, {PROP_ID(PR_RESOURCE_FLAGS)});
    EXPECT_EQ(profile->Section(first).Find(PROP_ID(PR_RESOURCE_FLAGS)), nullptr);
    profile->Remove(first);
    EXPECT_FALSE(again->HasSection(first));
}

TEST(ProfileSection, ChangesTakeEffectAtOnceAndStay)
{
    const auto profile = NewProfile();
    const Uid uid = Uid::Create();
    profile->Change(uid, {});
    const auto writer = OpenSection(profile, uid, MAPI_MODIFY, SectionUser::Entry, Memory());
    const auto reader = OpenSection(profile, uid, 0, SectionUser::Entry, Memory());
    EXPECT_EQ(Set(*writer, {PropValue::String(PR_DISPLAY_NAME_W, L"Name")}), S_OK);
    EXPECT_EQ(Get(*reader, PR_DISPLAY_NAME_A).AsText(), L"Name");
    EXPECT_NE(ProfileStore::Find(profile->Name())->Section(uid).Find(PROP_ID(PR_DISPLAY_NAME)), nullptr);
    EXPECT_EQ(writer->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    const MapiBlock<SPropTagArray> tags(Memory(), MakeTagArray(Memory(), {PR_DISPLAY_NAME_W}));
    EXPECT_EQ(writer->DeleteProps(tags.Get(), nullptr), S_OK);
    EXPECT_EQ(Get(*reader, PR_DISPLAY_NAME_A).AsLong(), MAPI_E_NOT_FOUND);
    EXPECT_EQ(writer->SaveChanges(0), S_OK);
    EXPECT_EQ(Set(*writer, {PropValue::Long(PR_RESOURCE_FLAGS, 1)}), S_OK);
}

TEST(ProfileSection, IsReadOnlyUnlessOpenedForWriting)
{
    const auto profile = NewProfile();
    const Uid uid = Uid::Create();
    profile->Change(uid, {PropValue::Long(PR_RESOURCE_FLAGS, 1)});
    const auto section = OpenSection(profile, uid, 0, SectionUser::Entry, Memory());
    EXPECT_EQ(Set(*section, {PropValue::Long(PR_RESOURCE_FLAGS, 2)}), MAPI_E_NO_ACCESS);
    EXPECT_EQ(section->SaveChanges(0), S_OK);
    MapiBlock<MAPIERROR> error(Memory());
    EXPECT_EQ(section->GetLastError(MAPI_E_NO_ACCESS, MAPI_UNICODE, error.Put()), S_OK);
    EXPECT_TRUE(error);
    EXPECT_EQ(section->GetNamesFromIDs(nullptr, nullptr, 0, nullptr, nullptr), MAPI_E_NO_SUPPORT);
    EXPECT_EQ(section->OpenProperty(PR_RESOURCE_FLAGS, nullptr, 0, 0, nullptr), MAPI_E_INTERFACE_NOT_SUPPORTED);
    ExpectFailure(MAPI_E_NOT_FOUND, [&] { OpenSection(profile, Uid::Create(), 0, SectionUser::Entry, Memory()); });
    EXPECT_TRUE(section.As<IMAPIProp>(IID_IMAPIProp));
    EXPECT_FALSE(section.As<IMsgStore>(IID_IMsgStore));
}

TEST(ProfileSection, HidesSecureProperties)
{
    const auto profile = NewProfile();
    const Uid uid = Uid::Create();
    profile->Change(uid, {PropValue::Long(PR_RESOURCE_FLAGS, 1), PropValue::Binary(secureTag, Bytes{1})});
    const auto section = OpenSection(profile, uid, MAPI_MODIFY, SectionUser::Entry, Memory());
    MapiBlock<SPropTagArray> tags(Memory());
    EXPECT_EQ(section->GetPropList(0, tags.Put()), S_OK);
    // And the two that every section has.
    EXPECT_EQ(tags->cValues, 3u);
    EXPECT_EQ(Get(*section, secureTag).AsBytes(), Bytes{1});
}

TEST(ProfileSection, SaysThatItsSectionIsGone)
{
    const auto profile = NewProfile();
    const Uid uid = Uid::Create();
    profile->Change(uid, {});
    const auto section = OpenSection(profile, uid, MAPI_MODIFY, SectionUser::Entry, Memory());
    profile->Remove(uid);
    EXPECT_EQ(Set(*section, {PropValue::Long(PR_RESOURCE_FLAGS, 2)}), MAPI_E_OBJECT_DELETED);
    EXPECT_FALSE(profile->HasSection(uid));
}

TEST(ProfileSection, CopiesToAnother)
{
    const auto profile = NewProfile();
    const Uid from = Uid::Create();
    const Uid to = Uid::Create();
    profile->Change(from, {PropValue::Long(PR_RESOURCE_FLAGS, 1), PropValue::Long(PR_RESOURCE_TYPE, 2),
                           PropValue::String(PR_DISPLAY_NAME_W, L"Name")});
    profile->Change(to, {PropValue::Long(PR_RESOURCE_FLAGS, 9)});
    const auto source = OpenSection(profile, from, MAPI_MODIFY, SectionUser::Entry, Memory());
    const auto target = OpenSection(profile, to, MAPI_MODIFY, SectionUser::Entry, Memory());
    const MapiBlock<SPropTagArray> excluded(Memory(), MakeTagArray(Memory(), {PR_RESOURCE_TYPE}));

    EXPECT_EQ(
        source->CopyTo(0, nullptr, excluded.Get(), 0, nullptr, &IID_IProfSect, target.Get(), MAPI_NOREPLACE, nullptr),
        S_OK);
    EXPECT_EQ(profile->Section(to).Find(PROP_ID(PR_RESOURCE_FLAGS))->AsLong(), 9);
    EXPECT_EQ(profile->Section(to).Find(PROP_ID(PR_RESOURCE_TYPE)), nullptr);
    EXPECT_NE(profile->Section(to).Find(PROP_ID(PR_DISPLAY_NAME)), nullptr);

    EXPECT_EQ(source->CopyProps(excluded.Get(), 0, nullptr, &IID_IProfSect, target.Get(), MAPI_MOVE, nullptr), S_OK);
    EXPECT_EQ(profile->Section(to).Find(PROP_ID(PR_RESOURCE_TYPE))->AsLong(), 2);
    EXPECT_EQ(profile->Section(from).Find(PROP_ID(PR_RESOURCE_TYPE)), nullptr);

    EXPECT_EQ(source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IMessage, target.Get(), 0, nullptr),
              MAPI_E_INTERFACE_NOT_SUPPORTED);
    EXPECT_EQ(source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IProfSect, source.Get(), 0, nullptr),
              MAPI_E_NO_ACCESS);
    EXPECT_EQ(source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IProfSect, nullptr, 0, nullptr),
              MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(source->CopyTo(0, nullptr, nullptr, 0, nullptr, &IID_IProfSect, target.Get(), 0x100, nullptr),
              MAPI_E_UNKNOWN_FLAGS);
}

namespace
{
class Admin : public testing::Test
{
protected:
    void SetUp() override
    {
        profile->Change(service,
                        {PropValue::Uid(PR_SERVICE_UID, service), PropValue::String(PR_SERVICE_NAME_W, L"ARCHIVE")});
        admin = CreateProviderAdmin(profile, service,
                                    {{L"Store",
                                      {PropValue::String(PR_PROVIDER_DLL_NAME_W, L"host.dll"),
                                       PropValue::Long(PR_RESOURCE_TYPE, MAPI_STORE_PROVIDER)}}},
                                    SectionUser::Entry, Memory(),
                                    [this](ULONG context, const Uid&)
                                    {
                                        contexts.push_back(context);
                                        return answer;
                                    });
    }

    HRESULT Create(std::wstring name, Uid& uid)
    {
        SPropValue value{};
        value.ulPropTag = PR_STATUS_CODE;
        value.Value.l = 5;
        return admin->CreateProvider(reinterpret_cast<LPTSTR>(name.data()), 1, &value, 0, MAPI_UNICODE, &uid);
    }

    std::shared_ptr<Profile> profile = NewProfile();
    Uid service = Uid::Create();
    std::vector<ULONG> contexts;
    HRESULT answer = S_OK;
    ComPtr<IProviderAdmin> admin;
};
} // namespace

TEST_F(Admin, CreatesListsAndDeletesProviders)
{
    Uid uid;
    ASSERT_EQ(Create(L"Store", uid), S_OK);
    EXPECT_EQ(ProvidersOf(*profile, service), std::vector<Uid>{uid});
    const PropertyBag section = profile->Section(uid);
    EXPECT_EQ(Uid::From(section.Find(PROP_ID(PR_SERVICE_UID))), service);
    EXPECT_EQ(Uid::From(section.Find(PROP_ID(PR_PROVIDER_UID))), uid);
    EXPECT_EQ(section.Find(PROP_ID(PR_PROVIDER_DLL_NAME))->AsText(), L"host.dll");
    EXPECT_EQ(section.Find(PROP_ID(PR_SERVICE_NAME))->AsText(), L"ARCHIVE");
    EXPECT_EQ(section.Find(PROP_ID(PR_RESOURCE_TYPE))->AsLong(), LONG(MAPI_STORE_PROVIDER));
    EXPECT_EQ(section.Find(PROP_ID(PR_STATUS_CODE))->AsLong(), 5);

    ComPtr<IMAPITable> table;
    ASSERT_EQ(admin->GetProviderTable(MAPI_UNICODE, table.Put()), S_OK);
    MapiRows rows(Memory());
    ASSERT_EQ(table->QueryRows(10, 0, rows.Put()), S_OK);
    EXPECT_EQ(rows.Count(), 1u);

    EXPECT_EQ(admin->DeleteProvider(&uid), S_OK);
    EXPECT_FALSE(profile->HasSection(uid));
    EXPECT_TRUE(ProvidersOf(*profile, service).empty());
    EXPECT_EQ(admin->DeleteProvider(&uid), MAPI_E_NOT_FOUND);
    EXPECT_EQ(contexts, (std::vector<ULONG>{MSG_SERVICE_PROVIDER_CREATE, MSG_SERVICE_PROVIDER_DELETE}));
}

TEST_F(Admin, UndoesACreationThatTheServiceRefuses)
{
    answer = MAPI_E_NO_SUPPORT;
    Uid uid;
    EXPECT_EQ(Create(L"Store", uid), MAPI_E_NO_SUPPORT);
    // Those that MAPI has in every profile, and the service's.
    EXPECT_EQ(profile->Sections().size(), 4u);
    EXPECT_TRUE(ProvidersOf(*profile, service).empty());
    EXPECT_EQ(Create(L"Other", uid), MAPI_E_NOT_FOUND);
    EXPECT_EQ(admin->CreateProvider(nullptr, 0, nullptr, 0, 0, &uid), MAPI_E_INVALID_PARAMETER);
}

TEST_F(Admin, OpensTheServicesOwnSectionForNoUid)
{
    ComPtr<IProfSect> section;
    ASSERT_EQ(admin->OpenProfileSection(nullptr, nullptr, MAPI_MODIFY, section.Put()), S_OK);
    EXPECT_EQ(Get(*section, PR_SERVICE_NAME_W).AsText(), L"ARCHIVE");
    EXPECT_EQ(Set(*section, {PropValue::Long(PR_STATUS_CODE, 3)}), S_OK);
    Uid other = Uid::Create();
    EXPECT_EQ(admin->OpenProfileSection(&other, nullptr, 0, section.Put()), MAPI_E_NOT_FOUND);
    EXPECT_EQ(admin->OpenProfileSection(nullptr, &IID_IMessage, 0, section.Put()), MAPI_E_INTERFACE_NOT_SUPPORTED);
}
