// Property values and the property half of IMAPIProp.
#include "tests/testbed/Environment.h"

#include "common/Text.h"
#include "testbed/common/PropCodec.h"

#include <tuple>

using namespace Testbed;
using Tests::ExpectFailure;
using Tests::Memory;

namespace
{
constexpr ULONG id = 0x6001;

GUID SomeGuid()
{
    return {0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}};
}

// One value of every type that MAPI has.
std::vector<PropValue> AllTypes()
{
    return {
        PropValue(PROP_TAG(PT_I2, id), std::int16_t(-2)),
        PropValue(PROP_TAG(PT_LONG, id), std::int32_t(-70000)),
        PropValue(PROP_TAG(PT_R4, id), 1.5f),
        PropValue(PROP_TAG(PT_DOUBLE, id), 2.25),
        PropValue(PROP_TAG(PT_APPTIME, id), 36526.5),
        PropValue(PROP_TAG(PT_CURRENCY, id), std::int64_t(123456)),
        PropValue(PROP_TAG(PT_BOOLEAN, id), true),
        PropValue(PROP_TAG(PT_I8, id), std::int64_t(-5000000000)),
        PropValue(PROP_TAG(PT_SYSTIME, id), std::int64_t(0x01D000000000F0F0)),
        PropValue(PROP_TAG(PT_STRING8, id), std::string("narrow")),
        PropValue(PROP_TAG(PT_UNICODE, id), std::wstring(L"wide \x20AC")),
        PropValue(PROP_TAG(PT_BINARY, id), Bytes{0, 1, 2, 255}),
        PropValue(PROP_TAG(PT_CLSID, id), SomeGuid()),
        PropValue(PROP_TAG(PT_ERROR, id), std::int32_t(MAPI_E_NOT_FOUND)),
        PropValue(PROP_TAG(PT_OBJECT, id), std::monostate()),
        PropValue(PROP_TAG(PT_MV_I2, id), std::vector<std::int16_t>{1, -1}),
        PropValue(PROP_TAG(PT_MV_LONG, id), std::vector<std::int32_t>{1, -1, 70000}),
        PropValue(PROP_TAG(PT_MV_R4, id), std::vector<float>{0.5f}),
        PropValue(PROP_TAG(PT_MV_DOUBLE, id), std::vector<double>{0.5, -0.25}),
        PropValue(PROP_TAG(PT_MV_APPTIME, id), std::vector<double>{1.0}),
        PropValue(PROP_TAG(PT_MV_CURRENCY, id), std::vector<std::int64_t>{10000}),
        PropValue(PROP_TAG(PT_MV_I8, id), std::vector<std::int64_t>{1, -1}),
        PropValue(PROP_TAG(PT_MV_SYSTIME, id), std::vector<std::int64_t>{0x01D0000000000000}),
        PropValue(PROP_TAG(PT_MV_STRING8, id), std::vector<std::string>{"a", ""}),
        PropValue(PROP_TAG(PT_MV_UNICODE, id), std::vector<std::wstring>{L"a", L"\x20AC"}),
        PropValue(PROP_TAG(PT_MV_BINARY, id), std::vector<Bytes>{{1}, {}, {2, 3}}),
        PropValue(PROP_TAG(PT_MV_CLSID, id), std::vector<GUID>{SomeGuid(), GUID{}}),
    };
}

class Array
{
public:
    explicit Array(const std::vector<ULONG>& tags) : m_tags(Memory(), MakeTagArray(Memory(), tags)) {}
    operator LPSPropTagArray() const { return m_tags.Get(); }

private:
    MapiBlock<SPropTagArray> m_tags;
};

// What GetProps gives, as a result and values.
std::pair<HRESULT, std::vector<PropValue>> Get(const PropertySource& source, LPSPropTagArray tags, ULONG flags)
{
    ULONG count = 0;
    MapiBlock<SPropValue> values(Memory());
    const HRESULT result = GetProps(source, Memory(), tags, flags, &count, values.Put());
    return {result, CopyProps(count, values.Get())};
}

PropertyBag Sample()
{
    return PropertyBag({PropValue::String(PROP_TAG(PT_UNICODE, 0x3001), L"Name"),
                        PropValue::String8(PROP_TAG(PT_STRING8, 0x3004), "Comment"),
                        PropValue::Long(PROP_TAG(PT_LONG, 0x3602), 7), PropValue::Binary(PR_ENTRYID, Bytes{1, 2, 3}),
                        PropValue::Object(PR_CONTAINER_CONTENTS)});
}
} // namespace

class EveryType : public testing::TestWithParam<size_t>
{
protected:
    PropValue Value() const { return AllTypes()[GetParam()]; }
};

TEST_P(EveryType, SurvivesTheWayThroughMapisStructures)
{
    const PropValue value = Value();
    const MapiBlock<SPropValue> array(Memory(), MakePropArray(Memory(), {value}));
    EXPECT_EQ(array->ulPropTag, value.Tag());
    EXPECT_TRUE(PropValue::From(*array.Get()) == value);
}

TEST_P(EveryType, IsReadFromTheBytesThatAreWrittenOfIt)
{
    const PropValue value = Value();
    const Bytes bytes = WriteValue(value);
    EXPECT_TRUE(ReadValue(bytes) == value);
    for (size_t size = 0; size < bytes.size(); ++size)
        ExpectFailure(MAPI_E_CORRUPT_STORE, [&] { ReadValue(Bytes(bytes.data(), bytes.data() + size)); });
}

TEST_P(EveryType, ComparesAsEqualToItself)
{
    const PropValue value = Value();
    EXPECT_EQ(Compare(value, value), 0);
}

TEST_P(EveryType, IsGivenByGetPropsUnderItsOwnType)
{
    const PropValue value = Value();
    if (value.IsError())
        return;
    const PropertyBag bag({value});
    const auto [result, values] = Get(bag, Array({value.Tag()}), 0);
    EXPECT_EQ(result, S_OK);
    ASSERT_EQ(values.size(), 1u);
    EXPECT_TRUE(values[0] == value);
}

INSTANTIATE_TEST_SUITE_P(Types, EveryType, testing::Range(size_t(0), AllTypes().size()));

TEST(PropValue, RefusesAPayloadOfAnotherType)
{
    ExpectFailure(MAPI_E_INVALID_TYPE, [] { PropValue(PROP_TAG(PT_LONG, id), std::string("text")); });
    ExpectFailure(MAPI_E_INVALID_TYPE, [] { PropValue(PROP_TAG(0x77, id), std::monostate()); });
}

TEST(PropValue, RefusesNullPayloads)
{
    SPropValue value{};
    value.ulPropTag = PROP_TAG(PT_UNICODE, id);
    ExpectFailure(MAPI_E_INVALID_PARAMETER, [&] { PropValue::From(value); });
    value.ulPropTag = PROP_TAG(PT_BINARY, id);
    value.Value.bin = {4, nullptr};
    ExpectFailure(MAPI_E_INVALID_PARAMETER, [&] { PropValue::From(value); });
    value.ulPropTag = PROP_TAG(PT_MV_LONG, id);
    value.Value.MVl = {1, nullptr};
    ExpectFailure(MAPI_E_INVALID_PARAMETER, [&] { PropValue::From(value); });
    value.ulPropTag = PROP_TAG(0x77, id);
    ExpectFailure(MAPI_E_INVALID_TYPE, [&] { PropValue::From(value); });
}

TEST(PropValue, ConvertsBetweenStringTypesOnly)
{
    const PropValue wide = PropValue::String(PROP_TAG(PT_UNICODE, id), L"caf\x00E9");
    const auto narrow = wide.As(PT_STRING8);
    ASSERT_TRUE(narrow);
    EXPECT_EQ(narrow->Type(), PT_STRING8);
    EXPECT_EQ(narrow->AsText(), L"caf\x00E9");
    EXPECT_FALSE(wide.As(PT_LONG));
    EXPECT_FALSE(wide.As(PT_MV_UNICODE));
    EXPECT_TRUE(wide.As(PT_UNSPECIFIED));
}

TEST(PropValue, ComparesStringsWithoutCaseAndBinariesByBytes)
{
    const ULONG text = PROP_TAG(PT_UNICODE, id);
    EXPECT_EQ(Compare(PropValue::String(text, L"Alpha"), PropValue::String(text, L"aLPHA")), 0);
    EXPECT_LT(*Compare(PropValue::String(text, L"alpha"), PropValue::String(text, L"Beta")), 0);
    const ULONG binary = PROP_TAG(PT_BINARY, id);
    EXPECT_LT(*Compare(PropValue::Binary(binary, Bytes{1}), PropValue::Binary(binary, Bytes{1, 0})), 0);
    EXPECT_GT(*Compare(PropValue::Binary(binary, Bytes{2}), PropValue::Binary(binary, Bytes{1, 0})), 0);
    EXPECT_FALSE(Compare(PropValue::String(text, L"1"), PropValue::Long(PROP_TAG(PT_LONG, id), 1)));
}

TEST(GetProps, MarksWhatIsMissing)
{
    const auto [result, values] =
        Get(Sample(), Array({PROP_TAG(PT_LONG, 0x3602), PROP_TAG(PT_LONG, 0x3603), PROP_TAG(PT_LONG, 0x3001)}), 0);
    EXPECT_EQ(result, MAPI_W_ERRORS_RETURNED);
    ASSERT_EQ(values.size(), 3u);
    EXPECT_EQ(values[0].AsLong(), 7);
    EXPECT_EQ(values[1].Tag(), PROP_TAG(PT_ERROR, 0x3603));
    EXPECT_EQ(values[1].AsLong(), MAPI_E_NOT_FOUND);
    // Of another type is as good as missing.
    EXPECT_EQ(values[2].Tag(), PROP_TAG(PT_ERROR, 0x3001));
}

TEST(GetProps, GivesStringsInTheWidthAskedFor)
{
    const PropertyBag bag = Sample();
    const auto wide = Get(bag, Array({PROP_TAG(PT_UNICODE, 0x3004), PROP_TAG(PT_UNSPECIFIED, 0x3004)}), MAPI_UNICODE);
    EXPECT_EQ(wide.first, S_OK);
    EXPECT_EQ(wide.second[0].Type(), PT_UNICODE);
    EXPECT_EQ(wide.second[1].Type(), PT_UNICODE);
    const auto narrow = Get(bag, Array({PROP_TAG(PT_STRING8, 0x3001), PROP_TAG(PT_UNSPECIFIED, 0x3001)}), 0);
    EXPECT_EQ(narrow.second[0].Type(), PT_STRING8);
    EXPECT_EQ(narrow.second[1].Type(), PT_STRING8);
    EXPECT_EQ(narrow.second[0].AsText(), L"Name");
}

TEST(GetProps, GivesAllForNoTags)
{
    const auto [result, values] = Get(Sample(), nullptr, MAPI_UNICODE);
    EXPECT_EQ(result, S_OK);
    EXPECT_EQ(values.size(), 5u);
    for (const PropValue& value : values)
        EXPECT_NE(value.Type(), PT_STRING8);
    const auto [emptyResult, none] = Get(PropertyBag(), nullptr, 0);
    EXPECT_EQ(emptyResult, S_OK);
    EXPECT_TRUE(none.empty());
}

TEST(GetProps, LeavesLargeValuesToStreams)
{
    PropertyBag bag;
    bag.Put(PropValue::Binary(PR_ENTRYID, Bytes(maxInlineSize)));
    EXPECT_EQ(Get(bag, Array({PR_ENTRYID}), 0).first, S_OK);
    bag.Put(PropValue::Binary(PR_ENTRYID, Bytes(maxInlineSize + 1)));
    const auto [result, values] = Get(bag, Array({PR_ENTRYID}), 0);
    EXPECT_EQ(result, MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(values[0].AsLong(), MAPI_E_NOT_ENOUGH_MEMORY);
    // 4 KB, a text's terminator included, and only of what a stream can give.
    EXPECT_EQ(maxInlineSize + 1, 4096u);
    bag.Put(PropValue::String(PR_BODY_W, std::wstring(2047, L'x')));
    EXPECT_EQ(Get(bag, Array({PR_BODY_W}), 0).second[0].AsLong(), MAPI_E_NOT_ENOUGH_MEMORY);
    bag.Put(PropValue(PROP_TAG(PT_MV_LONG, 0x6801), std::vector<std::int32_t>(2000, 1)));
    EXPECT_EQ(Get(bag, Array({PROP_TAG(PT_MV_LONG, 0x6801)}), 0).first, S_OK);
}

TEST(GetProps, RefusesBadArguments)
{
    const PropertyBag bag = Sample();
    ULONG count = 0;
    MapiBlock<SPropValue> values(Memory());
    ExpectFailure(MAPI_E_UNKNOWN_FLAGS, [&] { GetProps(bag, Memory(), nullptr, 1, &count, values.Put()); });
    ExpectFailure(MAPI_E_INVALID_PARAMETER, [&] { GetProps(bag, Memory(), nullptr, 0, nullptr, values.Put()); });
    ExpectFailure(MAPI_E_INVALID_PARAMETER, [&] { GetProps(bag, Memory(), nullptr, 0, &count, nullptr); });
    ExpectFailure(MAPI_E_INVALID_PARAMETER, [&] { GetProps(bag, Memory(), Array({}), 0, &count, values.Put()); });
}

TEST(GetProps, FreesWhatItHasWhenMemoryEnds)
{
    const PropertyBag bag = Sample();
    ULONG count = 77;
    MapiBlock<SPropValue> values(Memory());
    const ULONGLONG calls = Tests::Mapi()->Statistics().cCalls;
    GetProps(bag, Memory(), nullptr, 0, &count, values.Put());
    const auto needed = static_cast<ULONG>(Tests::Mapi()->Statistics().cCalls - calls);
    ASSERT_GT(needed, 2u);
    values.Reset();
    for (ULONG nth = 1; nth <= needed; ++nth)
    {
        count = 77;
        Tests::Mapi()->FailAllocation(nth);
        ExpectFailure(MAPI_E_NOT_ENOUGH_MEMORY, [&] { GetProps(bag, Memory(), nullptr, 0, &count, values.Put()); });
        EXPECT_EQ(count, 77u);
        EXPECT_EQ(Tests::Mapi()->LiveBlocks(), L"") << "after a failure of allocation " << nth;
    }
}

TEST(GetPropList, ListsStringsInTheWidthAskedFor)
{
    for (const ULONG flags : {ULONG(0), MAPI_UNICODE})
    {
        MapiBlock<SPropTagArray> tags(Memory());
        EXPECT_EQ(GetPropList(Sample(), Memory(), flags, tags.Put()), S_OK);
        ASSERT_EQ(tags->cValues, 5u);
        const ULONG type = flags ? PT_UNICODE : PT_STRING8;
        EXPECT_EQ(std::count(tags->aulPropTag, tags->aulPropTag + 5, PROP_TAG(type, 0x3001)), 1);
        EXPECT_EQ(std::count(tags->aulPropTag, tags->aulPropTag + 5, PROP_TAG(type, 0x3004)), 1);
    }
}

TEST(PropCodec, KeepsListsOfBags)
{
    const std::vector<PropertyBag> bags = {Sample(), PropertyBag(), Sample()};
    const auto read = ReadBags(WriteBags(bags));
    ASSERT_EQ(read.size(), 3u);
    for (size_t i = 0; i < read.size(); ++i)
        EXPECT_TRUE(read[i].Values() == bags[i].Values()) << i;
    const PropValue unknown(PROP_TAG(PT_LONG, 0x6601), std::int32_t(1));
    Bytes bytes = WriteValue(unknown);
    bytes[0] = 0x7F;
    ExpectFailure(MAPI_E_CORRUPT_STORE, [&] { ReadValue(bytes); });
}

TEST(PropCodec, TakesWhatAPstFileHolds)
{
    struct Case
    {
        ULONG type;
        Bytes bytes;
        std::optional<PropValue::Payload> expected;
    };
    const Case cases[] = {
        {PT_OBJECT, {1, 2}, PropValue::Payload()},
        {PT_I2, {0x34, 0x12}, std::int16_t(0x1234)},
        {PT_LONG, {1, 2, 3, 4}, std::int32_t(0x04030201)},
        {PT_LONG, {1, 2, 3}, std::nullopt},
        {PT_BOOLEAN, {2}, true},
        {PT_BOOLEAN, {0, 1}, false},
        {PT_BOOLEAN, {}, std::nullopt},
        {PT_SYSTIME, {1, 0, 0, 0, 0, 0, 0, 1}, std::int64_t(0x0100000000000001)},
        {PT_SYSTIME, {1, 0, 0, 0}, std::nullopt},
        {PT_STRING8, {'a', 0, 'b', 0, 0}, std::string("a\0b", 3)},
        {PT_STRING8, {0}, std::string()},
        {PT_UNICODE, {'a', 0, 0, 0, 9}, std::wstring(L"a")},
        {PT_UNICODE, {}, std::wstring()},
        {PT_BINARY, {1, 0}, Bytes{1, 0}},
        {PT_MV_LONG, {1, 0, 0, 0, 2, 0, 0, 0, 9}, std::vector<std::int32_t>{1, 2}},
        {PT_MV_STRING8, {2, 0, 0, 0, 12, 0, 0, 0, 13, 0, 0, 0, 'a', 'b', 'c'}, std::vector<std::string>{"a", "bc"}},
        {PT_MV_UNICODE, {1, 0, 0, 0, 8, 0, 0, 0, 'a', 0}, std::vector<std::wstring>{L"a"}},
        {PT_MV_BINARY, {2, 0, 0, 0, 12, 0, 0, 0, 12, 0, 0, 0, 7}, std::vector<Bytes>{{}, {7}}},
        {PT_MV_BINARY, {0, 0, 0, 0}, std::vector<Bytes>()},
        // No count, a count without its offsets, an end before its beginning, a beginning outside.
        {PT_MV_BINARY, {1, 0}, std::nullopt},
        {PT_MV_BINARY, {2, 0, 0, 0, 8, 0, 0, 0}, std::nullopt},
        {PT_MV_BINARY, {2, 0, 0, 0, 13, 0, 0, 0, 12, 0, 0, 0, 7}, std::nullopt},
        {PT_MV_BINARY, {1, 0, 0, 0, 9, 0, 0, 0}, std::nullopt},
        {0x007F, {1, 2, 3, 4}, std::nullopt},
    };
    for (const Case& each : cases)
    {
        const auto value = ValueFromFile(PROP_TAG(each.type, 0x6601), each.bytes.data(), each.bytes.size());
        ASSERT_EQ(value.has_value(), each.expected.has_value()) << std::hex << each.type;
        EXPECT_TRUE(!value || *value == PropValue(PROP_TAG(each.type, 0x6601), *each.expected))
            << std::hex << each.type;
    }
}

TEST(SetProps, TellsOfSingleProblems)
{
    PropertyBag bag = Sample();
    bag.MakeComputed(PROP_ID(PR_ENTRYID));
    SPropValue values[4] = {};
    values[0].ulPropTag = PR_ENTRYID;
    BYTE byte = 9;
    values[0].Value.bin = {1, &byte};
    values[1].ulPropTag = PROP_TAG(PT_LONG, 0x3602);
    values[1].Value.l = 8;
    values[2].ulPropTag = PROP_TAG(PT_ERROR, 0x3603);
    values[3].ulPropTag = PR_NULL;
    MapiBlock<SPropProblemArray> problems(Memory());
    EXPECT_EQ(SetProps(bag, Memory(), 4, values, problems.Put()), S_OK);
    ASSERT_TRUE(problems);
    ASSERT_EQ(problems->cProblem, 2u);
    const SPropProblem* const problem = problems->aProblem;
    EXPECT_EQ(problem[0].ulIndex, 0u);
    EXPECT_EQ(problem[0].scode, MAPI_E_COMPUTED);
    EXPECT_EQ(problem[1].ulIndex, 2u);
    EXPECT_EQ(problem[1].scode, MAPI_E_INVALID_TYPE);
    EXPECT_EQ(bag.Find(0x3602)->AsLong(), 8);
    EXPECT_EQ(bag.Find(PROP_ID(PR_ENTRYID))->AsBytes(), (Bytes{1, 2, 3}));
}

TEST(SetProps, ChangesNothingForAMalformedArray)
{
    PropertyBag bag = Sample();
    SPropValue values[2] = {};
    values[0].ulPropTag = PROP_TAG(PT_LONG, 0x3602);
    values[0].Value.l = 8;
    values[1].ulPropTag = PROP_TAG(PT_UNICODE, 0x3001);
    ExpectFailure(MAPI_E_INVALID_PARAMETER, [&] { SetProps(bag, Memory(), 2, values, nullptr); });
    EXPECT_EQ(bag.Find(0x3602)->AsLong(), 7);
    ExpectFailure(MAPI_E_INVALID_PARAMETER, [&] { SetProps(bag, Memory(), 0, values, nullptr); });
    ExpectFailure(MAPI_E_INVALID_PARAMETER, [&] { SetProps(bag, Memory(), 1, nullptr, nullptr); });
}

TEST(SetProps, ReplacesAPropertyOfAnotherType)
{
    PropertyBag bag = Sample();
    const MapiBlock<SPropValue> values(Memory(),
                                       MakePropArray(Memory(), {PropValue::Long(PROP_TAG(PT_LONG, 0x3001), 1)}));
    SetProps(bag, Memory(), 1, values.Get(), nullptr);
    EXPECT_EQ(bag.Find(0x3001)->Type(), PT_LONG);
    EXPECT_EQ(bag.Values().size(), 5u);
}

TEST(DeleteProps, TellsOfWhatIsNotThere)
{
    PropertyBag bag = Sample();
    MapiBlock<SPropProblemArray> problems(Memory());
    const ULONG unspecified = PROP_TAG(PT_UNSPECIFIED, 0x3001);
    EXPECT_EQ(DeleteProps(bag, Memory(), Array({unspecified, PR_SUBJECT}), problems.Put()), S_OK);
    ASSERT_TRUE(problems);
    ASSERT_EQ(problems->cProblem, 1u);
    EXPECT_EQ(problems->aProblem[0].ulIndex, 1u);
    EXPECT_EQ(problems->aProblem[0].scode, MAPI_E_NOT_FOUND);
    EXPECT_EQ(bag.Find(0x3001), nullptr);
    EXPECT_EQ(DeleteProps(bag, Memory(), Array({PR_ENTRYID}), problems.Put()), S_OK);
    EXPECT_FALSE(problems);
}

TEST(LastError, GivesItsTextInTheWidthAskedFor)
{
    LastError last(L"Component");
    last.Set(MAPI_E_NOT_FOUND, L"Text \x20AC", 12);
    for (const ULONG flags : {ULONG(0), MAPI_UNICODE})
    {
        MapiBlock<MAPIERROR> error(Memory());
        EXPECT_EQ(last.Get(Memory(), MAPI_E_NOT_FOUND, flags, error.Put()), S_OK);
        ASSERT_TRUE(error);
        EXPECT_EQ(TextArgument(error->lpszComponent, flags), L"Component");
        EXPECT_EQ(error->ulLowLevelError, 12u);
    }
    MapiBlock<MAPIERROR> none(Memory());
    EXPECT_EQ(last.Get(Memory(), MAPI_E_NO_ACCESS, 0, none.Put()), S_OK);
    EXPECT_FALSE(none);
    EXPECT_EQ(last.Get(Memory(), MAPI_E_NOT_FOUND, 1, none.Put()), MAPI_E_UNKNOWN_FLAGS);
    EXPECT_EQ(last.Get(Memory(), MAPI_E_NOT_FOUND, 0, nullptr), MAPI_E_INVALID_PARAMETER);
}
