// CNstMapiSupport.
#include "nst/NstMapiSupport.h"

#include "tests/wrappers/Setting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

using namespace Quillon::Nst;
using Quillon::LogId;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Return;

namespace Tests
{
namespace
{

class SupportWrapper : public testing::Test
{
protected:
    DoublePointer<testing::NiceMock<SupportDouble>> mapi = MakeNice<SupportDouble>();
    DoublePointer<testing::NiceMock<ProfileSectionDouble>> section = MakeNice<ProfileSectionDouble>();
    DoublePointer<CNstMapiSupport> support =
        Wrap<CNstMapiSupport>(ATL::CComQIPtr<IMAPISupport>(static_cast<IMAPISupport*>(mapi.Get())),
                              ATL::CComQIPtr<IProfSect>(static_cast<IProfSect*>(section.Get())));
    LogCapture log;
};

TEST_F(SupportWrapper, DropsTheIdentityFromTheStatusRowInPlace)
{
    struct Row
    {
        ULONG before;
        ULONG after;
    };
    static constexpr Row rows[] = {
        {0x3E00001E, 1},                                // PR_IDENTITY_DISPLAY, narrow
        {0x3E00001F, 1},                                // and wide
        {PR_PROVIDER_DISPLAY_W, PR_PROVIDER_DISPLAY_W}, // stays
        {0x3E010102, 1},                                // PR_IDENTITY_ENTRYID
        {0x3E050102, 1},                                // PR_IDENTITY_SEARCH_KEY
        {PR_STATUS_CODE, PR_STATUS_CODE},               //
        {0x3E00000A, 0x3E00000A},                       // other types of the same identifiers
        {0x3E010003, 0x3E010003},                       //
        {PR_RESOURCE_METHODS, PR_RESOURCE_METHODS},     //
        {0x3E020102, 0x3E020102},
    };
    std::vector<SPropValue> values(std::size(rows));
    for (std::size_t index = 0; index < values.size(); ++index)
    {
        values[index].ulPropTag = rows[index].before;
        values[index].Value.l = static_cast<LONG>(index);
    }
    const auto count = static_cast<ULONG>(values.size());
    EXPECT_CALL(*mapi, ModifyStatusRow(count, values.data(), STATUSROW_UPDATE))
        .WillOnce(
            [](ULONG seen, SPropValue* array, ULONG) -> HRESULT
            {
                for (ULONG index = 0; index < seen; ++index)
                {
                    EXPECT_EQ(array[index].ulPropTag, rows[index].after) << index;
                    EXPECT_EQ(array[index].Value.l, static_cast<LONG>(index));
                }
                return MAPI_W_ERRORS_RETURNED;
            });
    EXPECT_EQ(support->ModifyStatusRow(count, values.data(), STATUSROW_UPDATE), MAPI_W_ERRORS_RETURNED);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Entry(LogId::Warning, MapiText(MAPI_W_ERRORS_RETURNED, L"IMAPISupport::ModifyStatusRow"))));
}

TEST_F(SupportWrapper, PassesAStatusRowWithoutValuesOn)
{
    EXPECT_CALL(*mapi, ModifyStatusRow(0, Opaque<SPropValue*>(1), 2)).WillOnce(Return(S_OK));
    EXPECT_EQ(support->ModifyStatusRow(0, Opaque<SPropValue*>(1), 2), S_OK);
    EXPECT_CALL(*mapi, ModifyStatusRow(3, nullptr, 2)).WillOnce(Return(S_OK));
    EXPECT_EQ(support->ModifyStatusRow(3, nullptr, 2), S_OK);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

MAPIUID SpecialUid()
{
    return {{0x85, 0xED, 0x14, 0x23, 0x9D, 0xF7, 0x42, 0x66, 0x8B, 0xF2, 0xFB, 0xD4, 0xA5, 0x21, 0x29, 0x41}};
}

TEST_F(SupportWrapper, GivesTheHeldSectionForTheSpecialUidWhateverTheFlags)
{
    MAPIUID uid = SpecialUid();
    EXPECT_EQ(std::memcmp(&uid, &globalProfileSectionUid, sizeof(uid)), 0);
    EXPECT_CALL(*mapi, OpenProfileSection).Times(0);
    for (const ULONG flags : {0ul, MAPI_MODIFY, 0xFFFFFFFFul})
    {
        IProfSect* given = nullptr;
        EXPECT_EQ(support->OpenProfileSection(&uid, flags, &given), S_OK);
        EXPECT_EQ(given, section.Get());
        EXPECT_EQ(section->References(), 3u);
        given->Release();
    }
    // The section's own answer, unlogged.
    EXPECT_CALL(*section, QueryInterface(IID_IProfSect, _)).WillOnce(Return(E_FAIL));
    IProfSect* given = nullptr;
    EXPECT_EQ(support->OpenProfileSection(&uid, 0, &given), E_FAIL);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(SupportWrapper, KeepsTheSectionWhileItIsAsked)
{
    MAPIUID uid = SpecialUid();
    CNstMapiSupport* const wrapper = support.Get();
    wrapper->AddRef();
    support.Release();
    EXPECT_CALL(*section, QueryInterface(IID_IProfSect, _))
        .WillOnce(
            [this, wrapper](REFIID, void**) -> HRESULT
            {
                EXPECT_EQ(wrapper->Release(), 0u);
                EXPECT_EQ(section->References(), 2u);
                return E_FAIL;
            });
    IProfSect* given = nullptr;
    EXPECT_EQ(wrapper->OpenProfileSection(&uid, 0, &given), E_FAIL);
    EXPECT_EQ(section->References(), 1u);
}

TEST_F(SupportWrapper, PassesEveryOtherUidOn)
{
    IProfSect* output = nullptr;
    EXPECT_CALL(*mapi, OpenProfileSection(nullptr, MAPI_MODIFY, &output)).WillOnce(Return(S_OK));
    EXPECT_EQ(support->OpenProfileSection(nullptr, MAPI_MODIFY, &output), S_OK);
    for (std::size_t byte = 0; byte < sizeof(MAPIUID); ++byte)
    {
        MAPIUID uid = SpecialUid();
        uid.ab[byte] ^= 1;
        EXPECT_CALL(*mapi, OpenProfileSection(&uid, MAPI_MODIFY, &output)).WillOnce(Return(MAPI_E_NOT_FOUND));
        EXPECT_EQ(support->OpenProfileSection(&uid, MAPI_MODIFY, &output), MAPI_E_NOT_FOUND) << byte;
    }
    EXPECT_THAT(log.Lines(), IsEmpty()) << "an absent section is no news";
    EXPECT_CALL(*mapi, OpenProfileSection).WillOnce(Return(MAPI_E_NO_ACCESS));
    EXPECT_EQ(support->OpenProfileSection(nullptr, 0, &output), MAPI_E_NO_ACCESS);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Entry(LogId::Error, MapiText(MAPI_E_NO_ACCESS, L"IMAPISupport::OpenProfileSection"))));
}

TEST_F(SupportWrapper, SaysSoWhenItHoldsNoSection)
{
    const auto alone =
        Wrap<CNstMapiSupport>(ATL::CComQIPtr<IMAPISupport>(static_cast<IMAPISupport*>(mapi.Get())), nullptr);
    MAPIUID uid = SpecialUid();
    IProfSect* given = Opaque<IProfSect*>(1);
    EXPECT_CALL(*mapi, OpenProfileSection).Times(0);
    EXPECT_EQ(alone->OpenProfileSection(&uid, 0, &given), E_POINTER);
    EXPECT_EQ(given, Opaque<IProfSect*>(1));
    EXPECT_THAT(log.Lines(),
                ElementsAre(Entry(LogId::Error, L"IMAPISupport::OpenProfileSection: " + ComText(E_POINTER))));
}

TEST_F(SupportWrapper, PassesAForeignInterfaceOnAndItsAbsenceIsNoNews)
{
    void* object = nullptr;
    EXPECT_EQ(support->QueryInterface(IID_IMAPISup, &object), S_OK);
    EXPECT_EQ(object, support.Get());
    support->Release();
    EXPECT_EQ(support->QueryInterface(IID_IStream, &object), E_NOINTERFACE);
    EXPECT_THAT(log.Lines(), IsEmpty());
    const auto unknown = MakeNice<UnknownDouble>();
    EXPECT_CALL(*mapi, QueryInterface(IID_IStream, &object))
        .WillOnce(testing::DoAll(testing::SetArgPointee<1>(static_cast<void*>(unknown.Get())), Return(S_OK)));
    EXPECT_EQ(support->QueryInterface(IID_IStream, &object), S_OK);
    EXPECT_EQ(object, unknown.Get());
}

TEST_F(SupportWrapper, GivesOpenedObjectsAsTheyAre)
{
    const auto unknown = MakeNice<UnknownDouble>();
    EXPECT_CALL(*mapi, OpenEntry).WillOnce(GiveEntry(S_OK, MAPI_MESSAGE, unknown.Get()));
    ULONG type = 0;
    IUnknown* object = nullptr;
    EXPECT_EQ(support->OpenEntry(1, nullptr, nullptr, 0, &type, &object), S_OK);
    EXPECT_EQ(object, unknown.Get());
    object->Release();
}

} // namespace
} // namespace Tests
