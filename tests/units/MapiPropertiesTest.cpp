// Reading and writing single properties.
#include "support/MapiProperties.h"

#include "support/Format.h"
#include "tests/common/LogCapture.h"
#include "tests/common/MapiModule.h"
#include "tests/common/Properties.h"
#include "tests/common/Setting.h"
#include "tests/common/StoreDoubles.h"
#include "tests/common/SupportDoubles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

using namespace Quillon;
using namespace Quillon::Mapi;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Return;
using Tests::BinaryValue;
using Tests::Bytes;
using Tests::ErrorValue;
using Tests::GiveProps;
using Tests::LogCapture;
using Tests::MessageDouble;
using Tests::NarrowTextValue;
using Tests::NumberValue;
using Tests::Tags;
using Tests::Text;
using Tests::TextValue;

namespace
{

/// A read that fails: what the object answers, the code that a reader throws, whether a Try reader logs.
struct FailedRead
{
    const char* name;
    HRESULT hr;
    std::vector<Tests::Property> values;
    HRESULT thrown;
    bool logged;
};

const FailedRead failedReads[] = {
    {"the call fails", MAPI_E_CALL_FAILED, {}, MAPI_E_CALL_FAILED, true},
    {"the call says not found", MAPI_E_NOT_FOUND, {}, MAPI_E_NOT_FOUND, false},
    {"the property is missing",
     MAPI_W_ERRORS_RETURNED,
     {ErrorValue(PR_RECORD_KEY, MAPI_E_NOT_FOUND)},
     MAPI_E_NOT_FOUND,
     false},
    {"the property is too large",
     MAPI_W_ERRORS_RETURNED,
     {ErrorValue(PR_RECORD_KEY, MAPI_E_NOT_ENOUGH_MEMORY)},
     MAPI_E_NOT_ENOUGH_MEMORY,
     true},
    {"an error value with success", S_OK, {ErrorValue(PR_RECORD_KEY, MAPI_E_NO_ACCESS)}, MAPI_E_NO_ACCESS, true},
    {"an error value that is none", S_OK, {ErrorValue(PR_RECORD_KEY, S_OK)}, MAPI_E_NOT_FOUND, false},
    {"too many values",
     S_OK,
     {BinaryValue(PR_RECORD_KEY, {1}), BinaryValue(PR_RECORD_KEY, {1})},
     MAPI_E_NOT_FOUND,
     false},
};

} // namespace

TEST(QueryItemProperty, ReadsOneProperty)
{
    const LogCapture log;
    const auto object = Tests::MakeStrict<MessageDouble>();
    EXPECT_CALL(*object, GetProps(Tags(std::vector<ULONG>{PR_RECORD_KEY}), 0, _, _))
        .WillOnce(GiveProps(S_OK, {BinaryValue(PR_RECORD_KEY, {1, 2, 3})}));
    const PropValuePointer property = QueryItemProperty(object.Get(), PR_RECORD_KEY);
    ASSERT_TRUE(static_cast<bool>(property));
    EXPECT_EQ(property->ulPropTag, PR_RECORD_KEY);
    EXPECT_EQ(Tests::BytesOf(*property), (Bytes{1, 2, 3}));
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(QueryItemProperty, ThrowsWhenThereIsNone)
{
    for (const FailedRead& row : failedReads)
    {
        SCOPED_TRACE(row.name);
        const LogCapture log;
        const auto object = Tests::MakeNice<MessageDouble>();
        ON_CALL(*object, GetProps).WillByDefault(GiveProps(row.hr, row.values));
        Tests::GiveExtendedError(*object, row.thrown, L"text", L"component", 1, 2);
        try
        {
            QueryItemProperty(object.Get(), PR_RECORD_KEY);
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const CMapiError& error)
        {
            EXPECT_EQ(error.GetHResult(), row.thrown);
            EXPECT_EQ(Text(error.GetErrorText()), L"text");
            EXPECT_THAT(Text(error.Format()), testing::HasSubstr(L"PR_RECORD_KEY")) << "says which property";
            EXPECT_THAT(log.Lines(),
                        ElementsAre(Tests::Throwing(L"MapiProperties.cpp", L"Quillon::Mapi::QueryItemProperty",
                                                    Text(error.Format()))));
        }
    }
}

TEST(QueryItemProperty, FreesNothingOfACallThatFailed)
{
    const LogCapture log;
    static SPropValue leftOver = {};
    const auto object = Tests::MakeNice<MessageDouble>();
    ON_CALL(*object, GetProps)
        .WillByDefault(
            [](SPropTagArray*, ULONG, ULONG* count, SPropValue** values) -> HRESULT
            {
                *count = 1;
                *values = &leftOver; // to free this would end the process
                return MAPI_E_CALL_FAILED;
            });
    EXPECT_THROW(QueryItemProperty(object.Get(), PR_RECORD_KEY), CMapiError);
    EXPECT_FALSE(static_cast<bool>(TryQueryItemProperty(object.Get(), PR_RECORD_KEY)));
}

TEST(TryQueryItemProperty, GivesThePropertyOrNull)
{
    const auto object = Tests::MakeNice<MessageDouble>();
    Tests::GiveProperty(*object, NumberValue(PR_MESSAGE_FLAGS, 7));
    const PropValuePointer property = TryQueryItemProperty(object.Get(), PR_MESSAGE_FLAGS);
    ASSERT_TRUE(static_cast<bool>(property));
    EXPECT_EQ(property->Value.l, 7);
    for (const FailedRead& row : failedReads)
    {
        SCOPED_TRACE(row.name);
        LogCapture log;
        ON_CALL(*object, GetProps).WillByDefault(GiveProps(row.hr, row.values));
        EXPECT_FALSE(static_cast<bool>(TryQueryItemProperty(object.Get(), PR_RECORD_KEY)));
        if (row.logged)
        {
            EXPECT_THAT(log.Lines(),
                        ElementsAre(Tests::Entry(LogId::Error,
                                                 Text(FormatMapiError(row.thrown, L"IMAPIProp::GetProps", nullptr)))));
        }
        else
        {
            EXPECT_THAT(log.Lines(), IsEmpty());
        }
    }
}

TEST(TryQueryItemPropertyValue, GivesTextAndBytesAndOtherwiseNothing)
{
    const LogCapture log;
    const auto object = Tests::MakeNice<MessageDouble>();
    Tests::GiveProperty(*object, BinaryValue(PR_RECORD_KEY, {4, 5}));
    Tests::GiveProperty(*object, TextValue(PR_SUBJECT_W, L"wide"));
    Tests::GiveProperty(*object, NarrowTextValue(PR_SUBJECT_A, "narrow"));
    Tests::GiveProperty(*object, NumberValue(PR_MESSAGE_FLAGS, 7));
    Tests::GiveNoProperty(*object, PR_ENTRYID);

    const Value bytes = TryQueryItemPropertyValue(object.Get(), PR_RECORD_KEY);
    EXPECT_EQ(bytes.GetKind(), Value::Kind::Bytes);
    EXPECT_EQ(bytes.GetSize(), 2u);
    const Value wide = TryQueryItemPropertyValue(object.Get(), PR_SUBJECT_W);
    EXPECT_EQ(wide.GetKind(), Value::Kind::StringW);
    EXPECT_STREQ(reinterpret_cast<const wchar_t*>(wide.GetBuffer()), L"wide");
    const Value narrow = TryQueryItemPropertyValue(object.Get(), PR_SUBJECT_A);
    EXPECT_EQ(narrow.GetKind(), Value::Kind::StringA);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_TRUE(TryQueryItemPropertyValue(object.Get(), PR_ENTRYID).IsEmpty());
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_TRUE(TryQueryItemPropertyValue(object.Get(), PR_MESSAGE_FLAGS).IsEmpty());
}

TEST(GetValueFromMapiProperty, CopiesTextAndBytes)
{
    wchar_t wideText[] = L"wide";
    char narrowText[] = "narrow";
    BYTE bytes[] = {1, 0, 2};
    SPropValue property = {};
    property.ulPropTag = PR_SUBJECT_W;
    property.Value.lpszW = wideText;
    const Value wide = GetValueFromMapiProperty(&property);
    wideText[0] = L'X';
    EXPECT_STREQ(reinterpret_cast<const wchar_t*>(wide.GetBuffer()), L"wide");

    property.ulPropTag = PR_SUBJECT_A;
    property.Value.lpszA = narrowText;
    const Value narrow = GetValueFromMapiProperty(&property);
    narrowText[0] = 'X';
    EXPECT_STREQ(reinterpret_cast<const char*>(narrow.GetBuffer()), "narrow");

    property.ulPropTag = PR_RECORD_KEY;
    property.Value.bin = {3, bytes};
    const Value binary = GetValueFromMapiProperty(&property);
    bytes[0] = 9;
    EXPECT_EQ(binary.GetSize(), 3u);
    EXPECT_EQ(binary.GetBuffer()[0], 1);

    property.Value.bin = {0, nullptr};
    EXPECT_EQ(GetValueFromMapiProperty(&property).GetKind(), Value::Kind::Bytes) << "no bytes are bytes too";
}

TEST(GetValueFromMapiProperty, RefusesOtherTypes)
{
    for (const ULONG tag : {PR_MESSAGE_FLAGS, PR_CLIENT_SUBMIT_TIME, PROP_TAG(PT_ERROR, 0x3001),
                            PROP_TAG(PT_MV_BINARY, 0x6000), PROP_TAG(PT_NULL, 0)})
    {
        const LogCapture log;
        SPropValue property = {};
        property.ulPropTag = tag;
        try
        {
            GetValueFromMapiProperty(&property);
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const CRuntimeError& error)
        {
            EXPECT_EQ(Text(error.Format()), L"Unsupported property type: " + Text(FormatMapiPropertyTag(tag)));
            EXPECT_EQ(log.Lines().size(), 1u);
        }
    }
}

TEST(QueryItemEntryId, GivesTheBytesOrThrows)
{
    const LogCapture log;
    const auto object = Tests::MakeNice<MessageDouble>();
    Tests::GiveProperty(*object, BinaryValue(PR_ENTRYID, {1, 2, 3, 4}));
    const Binary entryId = QueryItemEntryId(object.Get());
    EXPECT_EQ(Bytes(entryId.GetBuffer(), entryId.GetBuffer() + entryId.GetSize()), (Bytes{1, 2, 3, 4}));
    EXPECT_THAT(log.Lines(), IsEmpty());

    Tests::GiveNoProperty(*object, PR_ENTRYID);
    EXPECT_THROW(QueryItemEntryId(object.Get()), CMapiError);
}

TEST(QueryItemDisplayName, GivesTheTextOrThrows)
{
    const LogCapture log;
    const auto object = Tests::MakeNice<MessageDouble>();
    Tests::GiveProperty(*object, TextValue(PR_DISPLAY_NAME_W, L"Na\u00EFve"));
    EXPECT_EQ(Text(QueryItemDisplayName(object.Get())), L"Na\u00EFve");

    // A provider without wide strings may answer in narrow ones.
    ON_CALL(*object, GetProps).WillByDefault(GiveProps(S_OK, {NarrowTextValue(PR_DISPLAY_NAME_A, "narrow")}));
    EXPECT_EQ(Text(QueryItemDisplayName(object.Get())), L"narrow");
    EXPECT_THAT(log.Lines(), IsEmpty());

    ON_CALL(*object, GetProps)
        .WillByDefault(GiveProps(MAPI_W_ERRORS_RETURNED, {ErrorValue(PR_DISPLAY_NAME_W, MAPI_E_NOT_FOUND)}));
    EXPECT_THROW(QueryItemDisplayName(object.Get()), CMapiError);
}

TEST(QueryItemProperties, RefuseAnotherTypeThanWasAskedForByName)
{
    const auto object = Tests::MakeNice<MessageDouble>();
    const auto refuse = [&object](ULONG tag, const wchar_t* function, auto query)
    {
        const LogCapture log;
        ON_CALL(*object, GetProps).WillByDefault(GiveProps(S_OK, {NumberValue(tag, 7)}));
        const std::wstring text = L"Unsupported property type: " + Text(FormatMapiPropertyTag(tag));
        EXPECT_THROW(query(object.Get()), Quillon::CRuntimeError);
        EXPECT_THAT(log.Lines(), testing::ElementsAre(Tests::Throwing(L"MapiProperties.cpp", function, text)));
    };
    refuse(PROP_TAG(PT_LONG, PROP_ID(PR_ENTRYID)), L"Quillon::Mapi::QueryItemEntryId",
           [](IMAPIProp* given) { QueryItemEntryId(given); });
    refuse(PROP_TAG(PT_LONG, PROP_ID(PR_DISPLAY_NAME_W)), L"Quillon::Mapi::QueryItemDisplayName",
           [](IMAPIProp* given) { QueryItemDisplayName(given); });
}

TEST(HrSetOneProp, SetsTheProperty)
{
    const LogCapture log;
    const auto object = Tests::MakeStrict<MessageDouble>();
    SPropValue property = {};
    property.ulPropTag = PR_MESSAGE_FLAGS;
    EXPECT_CALL(*object, SetProps(1, &property, _)).WillOnce(Return(S_OK));
    HrSetOneProp(object.Get(), &property);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(HrSetOneProp, ThrowsWhenTheCallFails)
{
    const LogCapture log;
    const auto object = Tests::MakeNice<MessageDouble>();
    SPropValue property = {};
    property.ulPropTag = PR_MESSAGE_FLAGS;
    ON_CALL(*object, SetProps).WillByDefault(Return(MAPI_E_NO_ACCESS));
    Tests::GiveExtendedError(*object, MAPI_E_NO_ACCESS, L"read-only", L"PST", 1, 2);
    try
    {
        HrSetOneProp(object.Get(), &property);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const CMapiError& error)
    {
        EXPECT_EQ(error.GetHResult(), MAPI_E_NO_ACCESS);
        EXPECT_EQ(Text(error.GetErrorText()), L"read-only");
        EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(L"MapiProperties.cpp", L"Quillon::Mapi::HrSetOneProp",
                                                             Text(error.Format()))));
    }
}

TEST(HrSetOneProp, ThrowsTheProblemThatTheObjectReportsAndFreesTheReport)
{
    const LogCapture log;
    const auto object = Tests::MakeNice<MessageDouble>();
    SPropValue property = {};
    property.ulPropTag = PR_MESSAGE_FLAGS;
    ON_CALL(*object, SetProps)
        .WillByDefault(
            [](ULONG, SPropValue*, SPropProblemArray** problems) -> HRESULT
            {
                if (!problems)
                    return S_OK;
                *problems =
                    static_cast<SPropProblemArray*>(Tests::MapiModule::Get().Allocate(sizeof(SPropProblemArray)));
                (*problems)->cProblem = 1;
                (*problems)->aProblem[0] = {0, PR_MESSAGE_FLAGS, MAPI_E_COMPUTED};
                return S_OK;
            });
    try
    {
        HrSetOneProp(object.Get(), &property);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const CMapiError& error)
    {
        EXPECT_EQ(error.GetHResult(), MAPI_E_COMPUTED);
    }
}

TEST(MapiProperties, AnswerANullObjectAsOneWhoseCallFails)
{
    const LogCapture log;
    SPropValue property = {};
    const auto code = [](auto&& action)
    {
        try
        {
            action();
            return S_OK;
        }
        catch (const CMapiError& error)
        {
            return error.GetHResult();
        }
    };
    EXPECT_EQ(code([] { QueryItemProperty(nullptr, PR_ENTRYID); }), E_POINTER);
    EXPECT_EQ(code([] { QueryItemEntryId(nullptr); }), E_POINTER);
    EXPECT_EQ(code([] { QueryItemDisplayName(nullptr); }), E_POINTER);
    EXPECT_EQ(code([&] { HrSetOneProp(nullptr, &property); }), E_POINTER);
    EXPECT_FALSE(static_cast<bool>(TryQueryItemProperty(nullptr, PR_ENTRYID)));
    EXPECT_TRUE(TryQueryItemPropertyValue(nullptr, PR_ENTRYID).IsEmpty());
}

TEST(GetMapiPath, IsThePathOfTheModuleThatIsBound)
{
    EXPECT_EQ(Text(GetMapiPath()), Tests::MapiModule::Get().Path());
}
