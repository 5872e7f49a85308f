// CNstMessageService::ConfigureService: the identity that a store is given.
#include "mapi/MapiBinding.h"
#include "support/CallWrapping.h"
#include "support/Format.h"
#include "tests/common/Alone.h"
#include "tests/common/LogCapture.h"
#include "tests/units/ServiceSetting.h"
#include "tests/units/doubles/MapiDouble.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using namespace Quillon;
using testing::_;
using testing::ElementsAre;
using testing::InSequence;
using testing::IsEmpty;
using testing::IsNull;
using testing::Return;
using Tests::BinaryValue;
using Tests::Bytes;
using Tests::ErrorValue;
using Tests::GiveProps;
using Tests::LogCapture;
using Tests::NarrowTextValue;
using Tests::OpenSection;
using Tests::ProfileSectionDouble;
using Tests::Property;
using Tests::ProviderAdminDouble;
using Tests::SupportDouble;
using Tests::Text;
using Tests::TextValue;

namespace
{

constexpr auto file = L"NstMessageService.cpp";
constexpr auto function = L"Quillon::Nst::CNstMessageService::ConfigureService";
constexpr auto nonSuccess = L"Non-success condition during COM call";

const std::vector<ULONG> serviceTags = {0x6610001F, 0x6610001E, 0x3D000102, 0x0FFF0102};
const std::vector<ULONG> providerTags = {0x3D0C0102};
const Bytes providerSectionUid = {0xA0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
const Bytes serviceUid = {0xB0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
const Bytes newUid = {0xC0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};

const Property noWidePath = ErrorValue(0x6610001F, MAPI_E_NOT_FOUND);
const Property noNarrowPath = ErrorValue(0x6610001E, MAPI_E_NOT_FOUND);
const Property noEntryId = ErrorValue(0x0FFF0102, MAPI_E_NOT_FOUND);
const Property noProviders = ErrorValue(0x3D000102, MAPI_E_NOT_FOUND);

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// The entry ID that MAPI's wrapping of a store's entry ID for this path gives.
Bytes WrappedEntryId(const std::wstring& path)
{
    const Bytes wrapUid = {0x38, 0xA1, 0xBB, 0x10, 0x05, 0xE5, 0x10, 0x1A,
                           0xA1, 0xBB, 0x08, 0x00, 0x2B, 0x2A, 0x56, 0xC2};
    const std::string dll = "ArchiveHost.dll"; // 15 characters and the terminator
    Bytes wrapped = Bytes(4, 0) + wrapUid + Bytes(2, 0) + Bytes(dll.begin(), dll.end()) + Bytes(1, 0);
    while (wrapped.size() % 4 != 0)
        wrapped.push_back(0);
    Bytes id = Bytes(4, 0) + Tests::ProviderUidBytes() + Bytes(2, 0);
    for (const wchar_t* at = path.c_str(); at <= path.c_str() + path.size(); ++at)
        id = id + Bytes{static_cast<BYTE>(*at & 0xFF), static_cast<BYTE>(*at >> 8)};
    return wrapped + id;
}

/// One written value, in a form that compares and prints.
std::wstring Describe(const SPropValue& value)
{
    std::wstring text = Text(FormatString(L"%08lX ", value.ulPropTag));
    switch (PROP_TYPE(value.ulPropTag))
    {
    case PT_LONG:
        return text + std::to_wstring(value.Value.l);
    case PT_BOOLEAN:
        return text + (value.Value.b ? L"true" : L"false");
    case PT_UNICODE:
        return text + value.Value.lpszW;
    case PT_STRING8:
        return text + Text(StringA(value.Value.lpszA).GetUnicode(0));
    case PT_BINARY:
        for (const BYTE byte : Tests::BytesOf(value))
            text += Text(FormatString(L"%02X", byte));
        return text;
    default:
        return text + L"?";
    }
}

std::wstring Described(ULONG tag, const Bytes& bytes)
{
    SPropValue value = {};
    value.ulPropTag = tag;
    Bytes copy = bytes;
    value.Value.bin = {static_cast<ULONG>(copy.size()), copy.data()};
    return Describe(value);
}

using Values = std::vector<std::wstring>;

/// The fixed part of the list, in its order.
Values FixedValues(const std::wstring& path, const wchar_t* pathTag)
{
    const Bytes wrapped = WrappedEntryId(path);
    return {Described(0x0FFF0102, wrapped),
            Described(0x0FFB0102, wrapped),
            Described(0x0FF90102, serviceUid),
            Described(0x0FFA0102, newUid),
            Described(0x300B0102, newUid),
            Described(0x67F00102, newUid),
            L"6603001E My PR_PROFILE_USER",
            L"66010003 0",
            Described(0x34140102, Tests::ProviderUidBytes()),
            pathTag + (L" " + path)};
}

class ServiceConfiguration : public testing::Test
{
protected:
    ServiceConfiguration()
    {
        GiveSection({TextValue(0x6610001F, L"C:\\archive.pst"), noNarrowPath,
                     BinaryValue(0x3D000102, providerSectionUid + serviceUid), noEntryId});
        GiveServiceUid(BinaryValue(0x3D0C0102, serviceUid));
        ON_CALL(*admin, OpenProfileSection).WillByDefault(OpenSection(providerSection.Get()));
        ON_CALL(*support, NewUID)
            .WillByDefault(
                [](MAPIUID* uid) -> HRESULT
                {
                    for (const BYTE byte : uid->ab)
                        EXPECT_EQ(byte, 0) << "it starts zeroed";
                    std::memcpy(uid, newUid.data(), sizeof(*uid));
                    return S_OK;
                });
        ON_CALL(*providerSection, SetProps).WillByDefault(Record(providerValues));
        ON_CALL(*section, SetProps).WillByDefault(Record(serviceValues));
    }

    ~ServiceConfiguration() override
    {
        EXPECT_EQ(section->References(), 1u);
        EXPECT_EQ(providerSection->References(), 1u);
        EXPECT_EQ(admin->References(), 1u);
        EXPECT_EQ(support->References(), 1u);
    }

    static std::function<HRESULT(ULONG, SPropValue*, SPropProblemArray**)> Record(Values& values)
    {
        return [&values](ULONG count, SPropValue* props, SPropProblemArray**) -> HRESULT
        {
            values.clear();
            for (ULONG index = 0; index < count; ++index)
                values.push_back(Describe(props[index]));
            return S_OK;
        };
    }

    void GiveSection(const std::vector<Property>& values, HRESULT hr = S_OK)
    {
        ON_CALL(*section, GetProps(Tests::Tags(serviceTags), 0, _, _)).WillByDefault(GiveProps(hr, values));
    }

    void GiveServiceUid(const Property& value, HRESULT hr = S_OK)
    {
        ON_CALL(*providerSection, GetProps(Tests::Tags(providerTags), 0, _, _)).WillByDefault(GiveProps(hr, {value}));
    }

    void Configure(const Mapi::SPropValueVector& settings = {})
    {
        host.ConfigureService(support.Get(), section.Get(), admin.Get(), settings);
    }

    /// The code and the text that a configuration throws.
    std::pair<HRESULT, std::wstring> Thrown()
    {
        try
        {
            Configure();
        }
        catch (const CException& exception)
        {
            return {exception.GetHResult(), Text(exception.Format())};
        }
        return {S_OK, L"nothing"};
    }

    Tests::Host host;
    Values providerValues;
    Values serviceValues;
    Tests::DoublePointer<testing::NiceMock<SupportDouble>> support = Tests::MakeNice<SupportDouble>();
    Tests::DoublePointer<testing::NiceMock<ProviderAdminDouble>> admin = Tests::MakeNice<ProviderAdminDouble>();
    Tests::DoublePointer<testing::NiceMock<ProfileSectionDouble>> section = Tests::MakeNice<ProfileSectionDouble>();
    Tests::DoublePointer<testing::NiceMock<ProfileSectionDouble>> providerSection =
        Tests::MakeNice<ProfileSectionDouble>();
};

MATCHER_P(Uid, bytes, "")
{
    return arg && std::memcmp(arg, bytes.data(), sizeof(MAPIUID)) == 0;
}

} // namespace

TEST_F(ServiceConfiguration, WritesTheTenValuesInOrderToTheProvidersSectionAndThenToTheServices)
{
    const LogCapture log;
    {
        const InSequence order;
        EXPECT_CALL(*section, GetProps(Tests::Tags(serviceTags), 0, _, _));
        EXPECT_CALL(*admin, OpenProfileSection(Uid(providerSectionUid), IsNull(), static_cast<ULONG>(MAPI_MODIFY), _));
        EXPECT_CALL(*providerSection, GetProps(Tests::Tags(providerTags), 0, _, _));
        EXPECT_CALL(*support, NewUID);
        EXPECT_CALL(*providerSection, SetProps(10, _, IsNull()));
        EXPECT_CALL(*section, SetProps(10, _, IsNull()));
    }
    EXPECT_CALL(*section, SaveChanges).Times(0);
    EXPECT_CALL(*providerSection, SaveChanges).Times(0);
    Configure();
    EXPECT_EQ(providerValues, FixedValues(L"C:\\archive.pst", L"6700001F"));
    EXPECT_EQ(serviceValues, providerValues);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ServiceConfiguration, PutsTheSettingsInFront)
{
    const LogCapture log;
    Mapi::SPropValueVector settings;
    settings.AddStringW(0x6610001F, L"C:\\new.pst");
    settings.AddLong(PR_PRIORITY, -3);
    settings.AddBoolean(PROP_TAG(PT_BOOLEAN, 0x6620), true);
    settings.AddStringA(PROP_TAG(PT_STRING8, 0x6621), "narrow");
    settings.AddBinary(PROP_TAG(PT_BINARY, 0x6622), newUid.data(), 2);
    Configure(settings);
    Values expected = {L"6610001F C:\\new.pst", L"00260003 -3", L"6620000B true", L"6621001E narrow", L"66220102 C001"};
    const Values fixed = FixedValues(L"C:\\archive.pst", L"6700001F");
    expected.insert(expected.end(), fixed.begin(), fixed.end());
    EXPECT_EQ(providerValues, expected);
    EXPECT_EQ(serviceValues, expected);
}

TEST_F(ServiceConfiguration, TakesTheWidePathWhenThereAreBoth)
{
    const LogCapture log;
    GiveSection({TextValue(0x6610001F, L"C:\\\u4E2D.pst"), NarrowTextValue(0x6610001E, "C:\\other.pst"),
                 BinaryValue(0x3D000102, providerSectionUid), noEntryId});
    Configure();
    EXPECT_EQ(providerValues, FixedValues(L"C:\\\u4E2D.pst", L"6700001F"));
}

TEST_F(ServiceConfiguration, WritesTheNarrowPathNarrowWhenThereIsNoOther)
{
    const LogCapture log;
    const std::wstring path = L"C:\\Gr\u00FC\u00DFe.pst";
    const StringA narrow{StringW(path.c_str())}; // in the ANSI code page, as MAPI's narrow texts are
    GiveSection({noWidePath, NarrowTextValue(0x6610001E, narrow.GetString()),
                 BinaryValue(0x3D000102, providerSectionUid), noEntryId},
                MAPI_W_ERRORS_RETURNED);
    Configure();
    EXPECT_EQ(providerValues, FixedValues(path, L"6700001E")) << "the entry ID is of the path's wide conversion";
}

TEST_F(ServiceConfiguration, OnlyReadsASectionThatHasItsIdentityOrNoProviderYet)
{
    const Property path = TextValue(0x6610001F, L"C:\\archive.pst");
    const Property providers = BinaryValue(0x3D000102, providerSectionUid);
    const Property entryId = BinaryValue(0x0FFF0102, {1, 2, 3});
    for (const std::vector<Property>& values : {std::vector<Property>{path, noNarrowPath, providers, entryId},
                                                {path, noNarrowPath, noProviders, noEntryId},
                                                {path, noNarrowPath, noProviders, entryId}})
    {
        const LogCapture log;
        GiveSection(values);
        EXPECT_CALL(*admin, OpenProfileSection).Times(0);
        EXPECT_CALL(*support, NewUID).Times(0);
        EXPECT_CALL(*section, SetProps).Times(0);
        Configure();
        EXPECT_THAT(log.Lines(), IsEmpty());
    }
}

TEST_F(ServiceConfiguration, ThrowsUnlessTheServiceUidHas16Bytes)
{
    const std::wstring text = L"PR_SERVICE_UID was of an unexpected length or type";
    for (const Property& value : {BinaryValue(0x3D0C0102, Bytes(15, 1)), BinaryValue(0x3D0C0102, Bytes(17, 1)),
                                  BinaryValue(0x3D0C0102, {}), ErrorValue(0x3D0C0102, MAPI_E_NOT_FOUND),
                                  // An error value whose code reads as 16 is none either.
                                  ErrorValue(0x3D0C0102, 16)})
    {
        const LogCapture log;
        GiveServiceUid(value);
        EXPECT_CALL(*section, SetProps).Times(0);
        EXPECT_CALL(*providerSection, SetProps).Times(0);
        const auto thrown = Thrown();
        EXPECT_EQ(thrown.first, E_FAIL);
        EXPECT_EQ(thrown.second, text);
        EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, text)));
    }
}

/// Takes the bytes away from what a GetProps gives, and leaves their count.
auto WithoutItsBytes(std::vector<Property> values, std::size_t which)
{
    return [give = GiveProps(S_OK, std::move(values)), which](auto... arguments) -> HRESULT
    {
        const HRESULT hr = give(arguments...);
        SPropValue** const output = std::get<3>(std::tuple(arguments...));
        (*output)[which].Value.bin.lpb = nullptr;
        return hr;
    };
}

TEST_F(ServiceConfiguration, ThrowsForUidsThatHaveACountButNoBytes)
{
    EXPECT_CALL(*section, SetProps).Times(0);
    EXPECT_CALL(*providerSection, SetProps).Times(0);
    {
        const LogCapture log;
        ON_CALL(*providerSection, GetProps).WillByDefault(WithoutItsBytes({BinaryValue(0x3D0C0102, serviceUid)}, 0));
        EXPECT_EQ(Thrown(), std::pair(E_FAIL, std::wstring(L"PR_SERVICE_UID was of an unexpected length or type")));
        EXPECT_EQ(log.Lines().size(), 1u);
    }
    const LogCapture log;
    ON_CALL(*section, GetProps)
        .WillByDefault(WithoutItsBytes({TextValue(0x6610001F, L"C:\\archive.pst"), noNarrowPath,
                                        BinaryValue(0x3D000102, providerSectionUid), noEntryId},
                                       2));
    EXPECT_CALL(*admin, OpenProfileSection).Times(0);
    const std::wstring text = L"PR_STORE_PROVIDERS was of an unexpected length";
    EXPECT_EQ(Thrown(), std::pair(E_FAIL, text));
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, text)));
}

TEST_F(ServiceConfiguration, ThrowsForASectionWithoutAPathOrWithAShortProviderList)
{
    const struct
    {
        std::vector<Property> values;
        std::wstring text;
    } table[] = {
        {{noWidePath, noNarrowPath, BinaryValue(0x3D000102, providerSectionUid), noEntryId},
         L"The profile section holds no path of the store"},
        {{TextValue(0x6610001F, L"C:\\a.pst"), noNarrowPath, BinaryValue(0x3D000102, Bytes(15, 1)), noEntryId},
         L"PR_STORE_PROVIDERS was of an unexpected length"},
    };
    for (const auto& row : table)
    {
        const LogCapture log;
        GiveSection(row.values);
        EXPECT_CALL(*section, SetProps).Times(0);
        EXPECT_EQ(Thrown(), std::pair(E_FAIL, row.text));
        EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, row.text)));
    }
}

TEST_F(ServiceConfiguration, ThrowsWhenItIsGivenNoProviderSection)
{
    const LogCapture log;
    ON_CALL(*admin, OpenProfileSection).WillByDefault(OpenSection(nullptr));
    EXPECT_CALL(*section, SetProps).Times(0);
    EXPECT_EQ(Thrown().first, E_POINTER);
    EXPECT_EQ(log.Lines().size(), 1u);
}

TEST_F(ServiceConfiguration, ThrowsForASectionThatReturnsTooFewValues)
{
    const LogCapture log;
    GiveSection({noWidePath});
    EXPECT_EQ(Thrown().first, E_FAIL);
    EXPECT_EQ(log.Lines().size(), 1u);
}

TEST_F(ServiceConfiguration, ThrowsWhenMapiHasNoMemoryForTheWrappedEntryId)
{
    const LogCapture log;
    GiveSection({TextValue(0x6610001F, L"C:\\archive.pst"), noNarrowPath, BinaryValue(0x3D000102, providerSectionUid),
                 noEntryId});
    ON_CALL(*providerSection, GetProps)
        .WillByDefault(
            [](SPropTagArray*, ULONG, ULONG* count, SPropValue** values) -> HRESULT
            {
                *count = 1;
                *values = Tests::AllocateProps({BinaryValue(0x3D0C0102, serviceUid)});
                Tests::MapiModule::Get().FailAllocation(1);
                return S_OK;
            });
    EXPECT_CALL(*section, SetProps).Times(0);
    const auto thrown = Thrown();
    EXPECT_EQ(thrown.first, MAPI_E_NOT_ENOUGH_MEMORY);
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, thrown.second)));
}

// The calls on the profile, each with a failure and with a warning.

namespace
{

struct Doubles
{
    SupportDouble& support;
    ProviderAdminDouble& admin;
    ProfileSectionDouble& section;
    ProfileSectionDouble& provider;
};

struct ConfigurationCall
{
    const char* name;
    void (*give)(const Doubles& doubles, HRESULT hr);
};

const ConfigurationCall configurationCalls[] = {
    {"GetPropsOfTheService",
     [](const Doubles& doubles, HRESULT hr)
     {
         ON_CALL(doubles.section, GetProps)
             .WillByDefault(GiveProps(hr, {TextValue(0x6610001F, L"C:\\archive.pst"), noNarrowPath,
                                           BinaryValue(0x3D000102, providerSectionUid), noEntryId}));
     }},
    {"OpenProfileSection", [](const Doubles& doubles, HRESULT hr)
     { ON_CALL(doubles.admin, OpenProfileSection).WillByDefault(OpenSection(&doubles.provider, hr)); }},
    {"GetPropsOfTheProvider", [](const Doubles& doubles, HRESULT hr)
     { ON_CALL(doubles.provider, GetProps).WillByDefault(GiveProps(hr, {BinaryValue(0x3D0C0102, serviceUid)})); }},
    {"NewUID", [](const Doubles& doubles, HRESULT hr) { ON_CALL(doubles.support, NewUID).WillByDefault(Return(hr)); }},
    {"SetPropsOfTheProvider",
     [](const Doubles& doubles, HRESULT hr) { ON_CALL(doubles.provider, SetProps).WillByDefault(Return(hr)); }},
    {"SetPropsOfTheService",
     [](const Doubles& doubles, HRESULT hr) { ON_CALL(doubles.section, SetProps).WillByDefault(Return(hr)); }},
};

void PrintTo(const ConfigurationCall& row, std::ostream* stream)
{
    *stream << row.name;
}

class ServiceConfigurationCall : public ServiceConfiguration, public testing::WithParamInterface<ConfigurationCall>
{
protected:
    void Give(HRESULT hr) { GetParam().give({*support, *admin, *section, *providerSection}, hr); }
};

} // namespace

TEST_P(ServiceConfigurationCall, FailureIsThrownWithTheObjectsExtendedError)
{
    const LogCapture log;
    Give(MAPI_E_NO_ACCESS);
    Tests::GiveExtendedError(*support, MAPI_E_NO_ACCESS, L"locked", L"profile", 1, 2);
    Tests::GiveExtendedError(*admin, MAPI_E_NO_ACCESS, L"locked", L"profile", 1, 2);
    Tests::GiveExtendedError(*section, MAPI_E_NO_ACCESS, L"locked", L"profile", 1, 2);
    Tests::GiveExtendedError(*providerSection, MAPI_E_NO_ACCESS, L"locked", L"profile", 1, 2);
    const auto thrown = Thrown();
    EXPECT_EQ(thrown.first, MAPI_E_NO_ACCESS);
    EXPECT_THAT(thrown.second, testing::HasSubstr(L"[locked; component: profile;"));
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, thrown.second)));
    EXPECT_TRUE(serviceValues.empty());
}

TEST_P(ServiceConfigurationCall, WarningIsLoggedAsAnEventLine)
{
    const LogCapture log;
    Give(MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(Thrown().first, S_OK);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Tests::Event(nonSuccess, file, function, L"MAPI_W_ERRORS_RETURNED (0x00040380)")));
}

TEST_P(ServiceConfigurationCall, FatalFailureEndsTheProcess)
{
    const auto configure = [this]
    {
        Mapi::GetDieOnNetworkErrors() = true;
        Give(MAPI_E_NETWORK_ERROR);
        Configure();
    };
    EXPECT_EXIT(configure(), testing::ExitedWithCode(static_cast<int>(MAPI_E_NETWORK_ERROR)), _);
}

INSTANTIATE_TEST_SUITE_P(Calls, ServiceConfigurationCall, testing::ValuesIn(configurationCalls),
                         [](const auto& row) { return std::string(row.param.name); });

// Other MAPI modules than the testbed's: each in a process that has none yet.

namespace
{

HRESULT wrapResult = S_OK;

/// A configuration with the doubles of the fixture, but another MAPI module bound: what WrapStoreEntryID gives is
/// `wrapResult`.
class OtherMapi : public ServiceConfiguration
{
public:
    void TestBody() override {}
    std::pair<HRESULT, std::wstring> Run() { return Thrown(); }
    const Values& Written() const { return serviceValues; }
};

/// Binds the library to a module of the name `name` among the doubles; its memory is that of the testbed's module.
void BindOther(const Tests::TempFolder& folder, const wchar_t* name)
{
    Tests::CopyDouble(name, folder / L"olmapi32.dll");
    const HMODULE module = LoadLibraryW((folder / L"olmapi32.dll").c_str());
    ASSERT_EQ(Mapi::GetMapiModule(), module);
    if (void* const address = reinterpret_cast<void*>(GetProcAddress(module, "mapiDouble")))
    {
        auto& functions = *static_cast<MapiDouble*>(address);
        functions.freeBuffer = [](LPVOID block) -> ULONG
        {
            Tests::MapiModule::Get().Free(block);
            return 0;
        };
        functions.wrapStoreEntryId = [](ULONG flags, LPSTR dll, ULONG size, LPENTRYID, ULONG* wrappedSize,
                                        LPENTRYID* wrapped) -> HRESULT
        {
            EXPECT_EQ(flags, 0u);
            EXPECT_STREQ(dll, "ArchiveHost.dll");
            EXPECT_EQ(size, 24 + 2 * 14u);
            if (FAILED(wrapResult))
                return wrapResult;
            *wrappedSize = 5;
            *wrapped = static_cast<LPENTRYID>(Tests::MapiModule::Get().Allocate(5));
            std::memcpy(*wrapped, "12345", 5);
            return wrapResult;
        };
    }
}

} // namespace

TEST_ALONE(ServiceConfigurationAlone, ThrowsWhenMapiCannotWrap)
{
    const Tests::TempFolder folder;
    BindOther(folder, L"PstDouble.dll");
    const LogCapture log;
    OtherMapi configuration;
    const auto thrown = configuration.Run();
    EXPECT_EQ(thrown.first, E_FAIL);
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, Text(FormatComError(E_FAIL)))));
    EXPECT_TRUE(configuration.Written().empty());
}

TEST_ALONE(ServiceConfigurationAlone, ThrowsTheCodeThatMapisWrappingGives)
{
    const Tests::TempFolder folder;
    BindOther(folder, L"MapiDouble.dll");
    wrapResult = MAPI_E_INVALID_ENTRYID;
    const LogCapture log;
    OtherMapi configuration;
    EXPECT_EQ(configuration.Run().first, MAPI_E_INVALID_ENTRYID);
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, L"MAPI_E_INVALID_ENTRYID (0x80040107)")));
}

TEST_ALONE(ServiceConfigurationAlone, LogsTheWarningThatMapisWrappingGivesAndGoesOn)
{
    const Tests::TempFolder folder;
    BindOther(folder, L"MapiDouble.dll");
    wrapResult = MAPI_W_ERRORS_RETURNED;
    const LogCapture log;
    OtherMapi configuration;
    EXPECT_EQ(configuration.Run().first, S_OK);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Tests::Event(nonSuccess, file, function, L"MAPI_W_ERRORS_RETURNED (0x00040380)")));
    ASSERT_EQ(configuration.Written().size(), 10u);
    EXPECT_EQ(configuration.Written()[0], L"0FFF0102 3132333435");
    EXPECT_EQ(configuration.Written()[1], L"0FFB0102 3132333435");
}
