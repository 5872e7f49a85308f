// GetGlobalProfileSection.
#include "nst/KivNstCore.h"
#include "support/Exceptions.h"
#include "support/Format.h"
#include "support/MapiErrors.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Properties.h"
#include "tests/common/Setting.h"
#include "tests/common/StoreDoubles.h"
#include "tests/common/SupportDoubles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

using namespace Quillon;
using Nst::GetGlobalProfileSection;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;
using testing::Return;
using Tests::BinaryValue;
using Tests::Bytes;
using Tests::LogCapture;
using Tests::ProfileSectionDouble;
using Tests::SupportDouble;
using Tests::Text;

namespace
{

constexpr auto function = L"Quillon::Nst::GetGlobalProfileSection";
constexpr auto file = L"KivNstCore.cpp";
const Bytes serviceUid = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

using SupportPointer = ATL::CComQIPtr<IMAPISupport>;
using SectionPointer = ATL::CComQIPtr<IProfSect>;

/// An OpenProfileSection that gives `section` with `hr`.
auto Give(IProfSect* section, HRESULT hr = S_OK)
{
    return [section, hr](MAPIUID*, ULONG, IProfSect** opened) -> HRESULT
    {
        *opened = section;
        if (section)
            section->AddRef();
        return hr;
    };
}

MATCHER_P(Uid, bytes, "")
{
    return arg && std::memcmp(arg, bytes.data(), sizeof(MAPIUID)) == 0;
}

std::wstring ThrownText(const SupportPointer& support, HRESULT expected)
{
    try
    {
        GetGlobalProfileSection(support);
        ADD_FAILURE() << "nothing was thrown";
        return {};
    }
    catch (const CException& exception)
    {
        EXPECT_EQ(exception.GetHResult(), expected);
        return Text(exception.Format());
    }
}

} // namespace

TEST(GetGlobalProfileSection, IsTheProvidersOwnWhenItNamesNoService)
{
    const LogCapture log;
    const auto support = Tests::MakeStrict<SupportDouble>();
    const auto own = Tests::MakeNice<ProfileSectionDouble>();
    Tests::GiveNoProperty(*own, PR_SERVICE_UID);
    EXPECT_CALL(*support, OpenProfileSection(IsNull(), static_cast<ULONG>(MAPI_MODIFY), _)).WillOnce(Give(own.Get()));
    {
        const SectionPointer section = GetGlobalProfileSection(support.Get());
        EXPECT_EQ(section.p, own.Get());
    }
    EXPECT_EQ(own->References(), 1u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(GetGlobalProfileSection, IsTheOneOfTheServiceThatTheProvidersOwnNames)
{
    const LogCapture log;
    const auto support = Tests::MakeStrict<SupportDouble>();
    const auto own = Tests::MakeNice<ProfileSectionDouble>();
    const auto service = Tests::MakeNice<ProfileSectionDouble>();
    Tests::GiveProperty(*own, BinaryValue(PR_SERVICE_UID, serviceUid));
    EXPECT_CALL(*support, OpenProfileSection(IsNull(), static_cast<ULONG>(MAPI_MODIFY), _)).WillOnce(Give(own.Get()));
    EXPECT_CALL(*support, OpenProfileSection(Uid(serviceUid), static_cast<ULONG>(MAPI_MODIFY), _))
        .WillOnce(Give(service.Get()));
    {
        const SectionPointer section = GetGlobalProfileSection(support.Get());
        EXPECT_EQ(section.p, service.Get());
        EXPECT_EQ(own->References(), 1u) << "the provider's own section is given back";
    }
    EXPECT_EQ(service->References(), 1u);
    EXPECT_EQ(support->References(), 1u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(GetGlobalProfileSection, ThrowsForANullSupportObject)
{
    const LogCapture log;
    const std::wstring text = ThrownText(SupportPointer(), E_INVALIDARG);
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, text)));
}

TEST(GetGlobalProfileSection, ThrowsWhenTheProvidersOwnCannotBeOpened)
{
    const LogCapture log;
    const auto support = Tests::MakeNice<SupportDouble>();
    Tests::GiveExtendedError(*support, MAPI_E_NO_ACCESS, L"text", L"component", 1, 2);
    EXPECT_CALL(*support, OpenProfileSection).WillOnce(Return(MAPI_E_NO_ACCESS));
    const std::wstring text = ThrownText(support.Get(), MAPI_E_NO_ACCESS);
    EXPECT_THAT(text, testing::HasSubstr(L"text; component: component"));
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, text)));
}

TEST(GetGlobalProfileSection, ThrowsNotFoundForAServiceThatHasNoSection)
{
    const LogCapture log;
    const auto support = Tests::MakeNice<SupportDouble>();
    const auto own = Tests::MakeNice<ProfileSectionDouble>();
    Tests::GiveProperty(*own, BinaryValue(PR_SERVICE_UID, serviceUid));
    EXPECT_CALL(*support, OpenProfileSection(IsNull(), _, _)).WillOnce(Give(own.Get()));
    EXPECT_CALL(*support, OpenProfileSection(NotNull(), _, _)).WillOnce(Return(MAPI_E_NOT_FOUND));
    try
    {
        GetGlobalProfileSection(support.Get());
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const Mapi::CMapiError& error)
    {
        EXPECT_EQ(error.GetHResult(), MAPI_E_NOT_FOUND);
        EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, Text(error.Format()))));
    }
    EXPECT_EQ(own->References(), 1u);
}

TEST(GetGlobalProfileSection, LogsWarningsAtLevelOneAndGoesOn)
{
    const LogCapture log;
    const auto support = Tests::MakeNice<SupportDouble>();
    const auto own = Tests::MakeNice<ProfileSectionDouble>();
    const auto service = Tests::MakeNice<ProfileSectionDouble>();
    Tests::GiveProperty(*own, BinaryValue(PR_SERVICE_UID, serviceUid));
    EXPECT_CALL(*support, OpenProfileSection(IsNull(), _, _)).WillOnce(Give(own.Get(), MAPI_W_ERRORS_RETURNED));
    EXPECT_CALL(*support, OpenProfileSection(NotNull(), _, _)).WillOnce(Give(service.Get(), MAPI_W_PARTIAL_COMPLETION));
    EXPECT_EQ(GetGlobalProfileSection(support.Get()).p, service.Get());
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Entry(LogId::Warning, L"MAPI_W_ERRORS_RETURNED (0x00040380)"),
                                         Tests::Entry(LogId::Warning, L"MAPI_W_PARTIAL_COMPLETION (0x00040680)")));
}

TEST(GetGlobalProfileSection, NeverReadsBeyondAShortUid)
{
    const LogCapture log;
    const auto support = Tests::MakeNice<SupportDouble>();
    const auto own = Tests::MakeNice<ProfileSectionDouble>();
    Tests::GiveProperty(*own, BinaryValue(PR_SERVICE_UID, Bytes(15, 1)));
    EXPECT_CALL(*support, OpenProfileSection(_, _, _)).WillOnce(Give(own.Get()));
    ThrownText(support.Get(), E_FAIL);
    EXPECT_EQ(log.Lines().size(), 1u);
}

TEST(GetGlobalProfileSection, TakesNoUidThatHasACountButNoBytes)
{
    const LogCapture log;
    const auto support = Tests::MakeNice<SupportDouble>();
    const auto own = Tests::MakeNice<ProfileSectionDouble>();
    ON_CALL(*own, GetProps)
        .WillByDefault(
            [](SPropTagArray* tags, ULONG flags, ULONG* count, SPropValue** values) -> HRESULT
            {
                const HRESULT hr =
                    Tests::GiveProps(S_OK, {BinaryValue(PR_SERVICE_UID, serviceUid)})(tags, flags, count, values);
                (*values)->Value.bin.lpb = nullptr;
                return hr;
            });
    EXPECT_CALL(*support, OpenProfileSection(_, _, _)).WillOnce(Give(own.Get()));
    EXPECT_EQ(ThrownText(support.Get(), E_FAIL), L"PR_SERVICE_UID was of an unexpected length or type");
    EXPECT_EQ(log.Lines().size(), 1u);
}

TEST(GetGlobalProfileSection, TakesNoUidOutOfAValueOfAnotherType)
{
    const LogCapture log;
    const auto support = Tests::MakeNice<SupportDouble>();
    const auto own = Tests::MakeNice<ProfileSectionDouble>();
    // Read as bytes, this would be 16 of them at no address.
    ON_CALL(*own, GetProps)
        .WillByDefault(Tests::GiveProps(S_OK, {Tests::NumberValue(CHANGE_PROP_TYPE(PR_SERVICE_UID, PT_LONG), 16)}));
    EXPECT_CALL(*support, OpenProfileSection(_, _, _)).WillOnce(Give(own.Get()));
    EXPECT_EQ(ThrownText(support.Get(), E_FAIL), L"PR_SERVICE_UID was of an unexpected length or type");
    EXPECT_EQ(log.Lines().size(), 1u);
}

TEST(GetGlobalProfileSection, OpensBothSectionsForModification)
{
    const LogCapture log;
    const auto support = Tests::MakeNice<SupportDouble>();
    const auto own = Tests::MakeNice<ProfileSectionDouble>();
    const auto service = Tests::MakeNice<ProfileSectionDouble>();
    Tests::GiveProperty(*own, BinaryValue(PR_SERVICE_UID, serviceUid));
    EXPECT_CALL(*support, OpenProfileSection(_, 1u, _)).WillOnce(Give(own.Get())).WillOnce(Give(service.Get()));
    EXPECT_EQ(GetGlobalProfileSection(support.Get()).p, service.Get());
}

TEST(GetGlobalProfileSection, NeverGivesNull)
{
    const LogCapture log;
    const auto support = Tests::MakeNice<SupportDouble>();
    EXPECT_CALL(*support, OpenProfileSection(_, _, _)).WillOnce(Give(nullptr));
    ThrownText(support.Get(), E_POINTER);

    const auto own = Tests::MakeNice<ProfileSectionDouble>();
    Tests::GiveProperty(*own, BinaryValue(PR_SERVICE_UID, serviceUid));
    EXPECT_CALL(*support, OpenProfileSection(IsNull(), _, _)).WillOnce(Give(own.Get()));
    EXPECT_CALL(*support, OpenProfileSection(NotNull(), _, _)).WillOnce(Give(nullptr));
    ThrownText(support.Get(), E_POINTER);
}

TEST(GetGlobalProfileSection, EndsTheProcessWhenTheFailureIsFatal)
{
    const auto open = []
    {
        Mapi::GetDieOnNetworkErrors() = true;
        const auto support = Tests::MakeNice<SupportDouble>();
        ON_CALL(*support, OpenProfileSection).WillByDefault(Return(MAPI_E_NETWORK_ERROR));
        GetGlobalProfileSection(support.Get());
    };
    EXPECT_EXIT(open(), testing::ExitedWithCode(static_cast<int>(MAPI_E_NETWORK_ERROR)), _);
}
