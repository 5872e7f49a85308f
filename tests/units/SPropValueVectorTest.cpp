// SPropValueVector.
#include "mapi/SPropValueVector.h"

#include "support/Exceptions.h"
#include "support/MapiProperties.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Properties.h"
#include "tests/common/Setting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>

using namespace Quillon;
using Mapi::SPropValueVector;
using Tests::Bytes;
using Tests::LogCapture;
using Tests::Text;

namespace
{

constexpr BYTE someBytes[] = {1, 2, 3};

/// An operation that adds, the type that it takes, and its function in the event line.
struct Adder
{
    const char* name;
    ULONG type;
    void (*add)(SPropValueVector& list, ULONG tag);
};

const Adder adders[] = {
    {"AddStringA", PT_STRING8, [](SPropValueVector& list, ULONG tag) { list.AddStringA(tag, "text"); }},
    {"AddStringW", PT_UNICODE, [](SPropValueVector& list, ULONG tag) { list.AddStringW(tag, L"text"); }},
    {"AddBinary", PT_BINARY, [](SPropValueVector& list, ULONG tag) { list.AddBinary(tag, someBytes, 3); }},
    {"AddLong", PT_LONG, [](SPropValueVector& list, ULONG tag) { list.AddLong(tag, 5); }},
    {"AddBoolean", PT_BOOLEAN, [](SPropValueVector& list, ULONG tag) { list.AddBoolean(tag, true); }},
};

constexpr ULONG allTypes[] = {PT_UNSPECIFIED, PT_NULL,  PT_I2,      PT_LONG,    PT_R4,         PT_DOUBLE,   PT_CURRENCY,
                              PT_APPTIME,     PT_ERROR, PT_BOOLEAN, PT_OBJECT,  PT_I8,         PT_STRING8,  PT_UNICODE,
                              PT_SYSTIME,     PT_CLSID, PT_BINARY,  PT_MV_LONG, PT_MV_UNICODE, PT_MV_BINARY};

} // namespace

TEST(SPropValueVector, IsEmptyWithANullAddressByItself)
{
    const SPropValueVector list;
    EXPECT_TRUE(list.IsEmpty());
    EXPECT_EQ(list.GetCount(), 0u);
    EXPECT_EQ(list.GetValues(), nullptr);
}

TEST(SPropValueVector, StoresValuesInOrderWithTheirWholeTags)
{
    SPropValueVector list;
    std::string narrow = "narrow";
    std::wstring wide = L"wide";
    BYTE bytes[] = {7, 0, 8};
    list.AddStringA(0x6603001E, narrow.c_str());
    list.AddStringW(0x6700001F, wide.c_str());
    list.AddBinary(0x0FFF0102, bytes, 3);
    list.AddLong(0x66010003, -7);
    list.AddBoolean(0x6602000B, true);
    list.AddBoolean(0x6604000B, false);
    narrow = "XXXXXX";
    wide = L"XXXX";
    bytes[0] = 0;

    ASSERT_EQ(list.GetCount(), 6u);
    EXPECT_FALSE(list.IsEmpty());
    const SPropValue* const values = list.GetValues();
    EXPECT_EQ(values[0].ulPropTag, 0x6603001Eu);
    EXPECT_STREQ(values[0].Value.lpszA, "narrow");
    EXPECT_EQ(values[1].ulPropTag, 0x6700001Fu);
    EXPECT_STREQ(values[1].Value.lpszW, L"wide");
    EXPECT_EQ(values[2].ulPropTag, 0x0FFF0102u);
    EXPECT_EQ(Tests::BytesOf(values[2]), (Bytes{7, 0, 8}));
    EXPECT_EQ(values[3].ulPropTag, 0x66010003u);
    EXPECT_EQ(values[3].Value.l, -7);
    EXPECT_EQ(values[4].ulPropTag, 0x6602000Bu);
    EXPECT_EQ(values[4].Value.b, 1);
    EXPECT_EQ(values[5].Value.b, 0);
}

TEST(SPropValueVector, RefusesEveryOtherTypeAndStaysAsItWas)
{
    for (const Adder& adder : adders)
    {
        for (const ULONG type : allTypes)
        {
            const ULONG tag = PROP_TAG(type, 0x6612);
            SCOPED_TRACE(std::string(adder.name) + " of type " + std::to_string(type));
            const LogCapture log;
            SPropValueVector list;
            list.AddLong(PR_PRIORITY, 1);
            if (type == adder.type)
            {
                adder.add(list, tag);
                EXPECT_EQ(list.GetCount(), 2u);
                continue;
            }
            const std::wstring text = L"Incompatible property tag: " + Text(Mapi::FormatMapiPropertyTag(tag));
            try
            {
                adder.add(list, tag);
                ADD_FAILURE() << "nothing was thrown";
            }
            catch (const CRuntimeError& error)
            {
                EXPECT_EQ(Text(error.Format()), text);
                EXPECT_FALSE(error.IsForUser());
            }
            const std::string name = adder.name;
            EXPECT_THAT(log.Lines(),
                        testing::ElementsAre(Tests::Throwing(
                            L"SPropValueVector.cpp",
                            L"Quillon::Mapi::SPropValueVector::" + std::wstring(name.begin(), name.end()), text)));
            EXPECT_EQ(list.GetCount(), 1u);
            EXPECT_EQ(list.GetValues()[0].ulPropTag, PR_PRIORITY);
        }
    }
}

TEST(SPropValueVector, CopiesPropertiesOfTheFiveTypesWithTheirPayloads)
{
    SPropValueVector source;
    for (const Adder& adder : adders)
        adder.add(source, PROP_TAG(adder.type, 0x6612));
    SPropValueVector copy;
    for (ULONG index = 0; index < source.GetCount(); ++index)
        copy.AddProperty(source.GetValues()[index]);
    const SPropValue* const from = source.GetValues();
    source = SPropValueVector();
    ASSERT_EQ(copy.GetCount(), 5u);
    const SPropValue* const values = copy.GetValues();
    EXPECT_NE(values, from);
    EXPECT_STREQ(values[0].Value.lpszA, "text");
    EXPECT_STREQ(values[1].Value.lpszW, L"text");
    EXPECT_EQ(Tests::BytesOf(values[2]), (Bytes{1, 2, 3}));
    EXPECT_EQ(values[3].Value.l, 5);
    EXPECT_EQ(values[4].Value.b, 1);
    for (std::size_t index = 0; index < 5; ++index)
        EXPECT_EQ(values[index].ulPropTag, PROP_TAG(adders[index].type, 0x6612));
}

TEST(SPropValueVector, TakesAnyNonZeroBooleanForTrue)
{
    SPropValueVector list;
    SPropValue property = {};
    property.ulPropTag = PROP_TAG(PT_BOOLEAN, 0x6612);
    property.Value.b = 0xFF00;
    list.AddProperty(property);
    property.Value.b = 0;
    list.AddProperty(property);
    EXPECT_EQ(list.GetValues()[0].Value.b, 1);
    EXPECT_EQ(list.GetValues()[1].Value.b, 0);
}

TEST(SPropValueVector, RefusesPropertiesOfOtherTypes)
{
    for (const ULONG type : allTypes)
    {
        if (type == PT_LONG || type == PT_BOOLEAN || type == PT_STRING8 || type == PT_UNICODE || type == PT_BINARY)
            continue;
        const LogCapture log;
        SPropValueVector list;
        SPropValue property = {};
        property.ulPropTag = PROP_TAG(type, 0x6612);
        const std::wstring text =
            L"Unsupported property type: " + Text(Mapi::FormatMapiPropertyTag(property.ulPropTag));
        try
        {
            list.AddProperty(property);
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const CRuntimeError& error)
        {
            EXPECT_EQ(Text(error.Format()), text);
        }
        EXPECT_THAT(log.Lines(), testing::ElementsAre(Tests::Throwing(
                                     L"SPropValueVector.cpp", L"Quillon::Mapi::SPropValueVector::AddProperty", text)));
        EXPECT_TRUE(list.IsEmpty());
        EXPECT_EQ(list.GetValues(), nullptr);
    }
}

TEST(SPropValueVector, KeepsEveryPayloadWhileItGrowsByThousands)
{
    constexpr ULONG count = 5000;
    SPropValueVector list;
    for (ULONG index = 0; index < count; ++index)
    {
        list.AddStringW(PR_SUBJECT_W, (L"wide " + std::to_wstring(index)).c_str());
        list.AddStringA(PR_SUBJECT_A, ("narrow " + std::to_string(index)).c_str());
        list.AddBinary(PR_RECORD_KEY, reinterpret_cast<const BYTE*>(&index), sizeof(index));
        list.AddLong(PR_PRIORITY, static_cast<LONG>(index));
    }
    ASSERT_EQ(list.GetCount(), 4 * count);
    const SPropValue* values = list.GetValues();
    for (ULONG index = 0; index < count; ++index, values += 4)
    {
        ASSERT_EQ(values[0].Value.lpszW, L"wide " + std::to_wstring(index));
        ASSERT_EQ(values[1].Value.lpszA, "narrow " + std::to_string(index));
        ASSERT_EQ(values[2].Value.bin.cb, sizeof(index));
        ASSERT_EQ(std::memcmp(values[2].Value.bin.lpb, &index, sizeof(index)), 0);
        ASSERT_EQ(values[3].Value.l, static_cast<LONG>(index));
    }
}

TEST(SPropValueVector, NeverMovesAPayload)
{
    SPropValueVector list;
    list.AddStringW(PR_SUBJECT_W, L"first");
    const wchar_t* const first = list.GetValues()[0].Value.lpszW;
    for (int index = 0; index < 1000; ++index)
        list.AddStringW(PR_SUBJECT_W, L"more");
    EXPECT_EQ(list.GetValues()[0].Value.lpszW, first);
    EXPECT_STREQ(first, L"first");
    const SPropValueVector moved(std::move(list));
    EXPECT_EQ(moved.GetValues()[0].Value.lpszW, first);
}

TEST(SPropValueVector, CanBeGivenItsOwnValues)
{
    SPropValueVector list;
    list.AddStringW(PR_SUBJECT_W, L"text");
    for (int index = 0; index < 100; ++index)
        list.AddProperty(list.GetValues()[0]);
    for (ULONG index = 0; index < list.GetCount(); ++index)
        ASSERT_STREQ(list.GetValues()[index].Value.lpszW, L"text");
}

TEST(SPropValueVector, HoldsEmptyPayloads)
{
    SPropValueVector list;
    list.AddStringA(PR_SUBJECT_A, nullptr);
    list.AddStringW(PR_SUBJECT_W, nullptr);
    list.AddBinary(PR_RECORD_KEY, nullptr, 0);
    EXPECT_STREQ(list.GetValues()[0].Value.lpszA, "");
    EXPECT_STREQ(list.GetValues()[1].Value.lpszW, L"");
    EXPECT_EQ(list.GetValues()[2].Value.bin.cb, 0u);
    EXPECT_NE(list.GetValues()[2].Value.bin.lpb, nullptr);
}

TEST(SPropValueVector, MovesLeaveAnEmptyListThatCanBeUsed)
{
    SPropValueVector list;
    list.AddLong(PR_PRIORITY, 1);
    SPropValueVector moved(std::move(list));
    EXPECT_TRUE(list.IsEmpty()); // NOLINT(bugprone-use-after-move): what a move leaves is the point
    EXPECT_EQ(moved.GetCount(), 1u);
    list.AddLong(PR_PRIORITY, 2);
    list.AddLong(PR_PRIORITY, 3);
    moved = std::move(list);
    EXPECT_EQ(moved.GetCount(), 2u);
    SPropValueVector& same = moved;
    moved = std::move(same);
    EXPECT_EQ(moved.GetCount(), 2u);
}

TEST(SPropValueVector, StaysAsItWasWhenThereIsNoMemory)
{
    const LogCapture log;
    SPropValueVector list;
    list.AddStringW(PR_SUBJECT_W, L"first");
    for (int index = 0; index < 20; ++index)
    {
        const Tests::NoMemory noMemory;
        EXPECT_THROW(list.AddStringW(PR_SUBJECT_W, L"text"), CComError);
        EXPECT_THROW(list.AddStringA(PR_SUBJECT_A, "text"), CComError);
        EXPECT_THROW(list.AddBinary(PR_RECORD_KEY, someBytes, 3), CComError);
    }
    ASSERT_EQ(list.GetCount(), 1u);
    EXPECT_STREQ(list.GetValues()[0].Value.lpszW, L"first");
}
