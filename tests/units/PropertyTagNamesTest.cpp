// The names of property tags and of search flags.
#include "support/MapiProperties.h"

#include "tests/common/LogCapture.h"
#include "tests/common/Setting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

using namespace Quillon::Mapi;
using Tests::Text;

namespace
{

struct NamedTag
{
    ULONG tag;
    const wchar_t* name;
};

const NamedTag headerTags[] = {
#define HEADER_CODE(name)
#define HEADER_TAG(name) {name, L"" #name},
#include "MapiNames.inc"
#undef HEADER_CODE
#undef HEADER_TAG
};

std::vector<BYTE> TagArray(const std::vector<ULONG>& tags)
{
    std::vector<BYTE> memory(sizeof(SPropTagArray) + tags.size() * sizeof(ULONG));
    auto* const array = reinterpret_cast<SPropTagArray*>(memory.data());
    array->cValues = static_cast<ULONG>(tags.size());
    std::copy(tags.begin(), tags.end(), array->aulPropTag);
    return memory;
}

} // namespace

TEST(FormatMapiPropertyTag, NamesEveryTagOfTheMapiHeader)
{
    ASSERT_GT(std::size(headerTags), 500u);
    std::map<ULONG, std::set<std::wstring>> names;
    for (const NamedTag& row : headerTags)
        names[row.tag].insert(row.name);
    for (const auto& [tag, candidates] : names)
    {
        // Of the names that share a tag, one stands.
        EXPECT_EQ(candidates.count(Text(FormatMapiPropertyTag(tag))), 1u)
            << std::hex << tag << " is given as " << Tests::Narrow(Text(FormatMapiPropertyTag(tag)));
    }
}

TEST(FormatMapiPropertyTag, NamesTagsThatTheHeaderLacks)
{
    EXPECT_EQ(Text(FormatMapiPropertyTag(0x7C070102)), L"PR_OST_OLFI");
    EXPECT_EQ(Text(FormatMapiPropertyTag(0x66390003)), L"PR_RIGHTS");
    EXPECT_EQ(Text(FormatMapiPropertyTag(0x340F0003)), L"PR_STORE_UNICODE_MASK");
}

TEST(FormatMapiPropertyTag, TellsStringTypesApart)
{
    EXPECT_EQ(Text(FormatMapiPropertyTag(0x3001001F)), L"PR_DISPLAY_NAME_W");
    EXPECT_EQ(Text(FormatMapiPropertyTag(0x3001001E)), L"PR_DISPLAY_NAME_A");
}

TEST(FormatMapiPropertyTag, GivesOtherTagsInHexadecimal)
{
    EXPECT_EQ(Text(FormatMapiPropertyTag(0x7FE70102)), L"0x7FE70102");
    EXPECT_EQ(Text(FormatMapiPropertyTag(0x3001000A)), L"0x3001000A");
    EXPECT_EQ(Text(FormatMapiPropertyTag(0x80010003)), L"0x80010003");
    EXPECT_EQ(Text(FormatMapiPropertyTag(0xFFFFFFFF)), L"0xFFFFFFFF");
}

TEST(FormatMapiPropertyTags, JoinsTheNamesOfATagArray)
{
    std::vector<BYTE> memory = TagArray({PR_ENTRYID, 0x7FE70102, PR_DISPLAY_NAME_W});
    EXPECT_EQ(Text(FormatMapiPropertyTags(reinterpret_cast<const SPropTagArray*>(memory.data()))),
              L"PR_ENTRYID, 0x7FE70102, PR_DISPLAY_NAME_W");
    memory = TagArray({PR_ENTRYID});
    EXPECT_EQ(Text(FormatMapiPropertyTags(reinterpret_cast<const SPropTagArray*>(memory.data()))), L"PR_ENTRYID");
    memory = TagArray({});
    EXPECT_EQ(Text(FormatMapiPropertyTags(reinterpret_cast<const SPropTagArray*>(memory.data()))), L"");
    EXPECT_EQ(Text(FormatMapiPropertyTags(static_cast<const SPropTagArray*>(nullptr))), L"");
}

TEST(FormatMapiPropertyTags, JoinsTheNamesOfAValueArray)
{
    SPropValue values[2] = {};
    values[0].ulPropTag = PR_SUBJECT_A;
    values[1].ulPropTag = PR_MESSAGE_FLAGS;
    EXPECT_EQ(Text(FormatMapiPropertyTags(values, 2)), L"PR_SUBJECT_A, PR_MESSAGE_FLAGS");
    EXPECT_EQ(Text(FormatMapiPropertyTags(values, 1)), L"PR_SUBJECT_A");
    EXPECT_EQ(Text(FormatMapiPropertyTags(values, 0)), L"");
    EXPECT_EQ(Text(FormatMapiPropertyTags(nullptr, 2)), L"");
}

TEST(FormatSetSearchCriteriaFlags, NamesTheBits)
{
    const struct
    {
        ULONG flags;
        const wchar_t* expected;
    } table[] = {
        {0, L"0"},
        {STOP_SEARCH, L"STOP_SEARCH"},
        {RESTART_SEARCH, L"RESTART_SEARCH"},
        {RECURSIVE_SEARCH, L"RECURSIVE_SEARCH"},
        {SHALLOW_SEARCH, L"SHALLOW_SEARCH"},
        {FOREGROUND_SEARCH, L"FOREGROUND_SEARCH"},
        {BACKGROUND_SEARCH, L"BACKGROUND_SEARCH"},
        {RESTART_SEARCH | RECURSIVE_SEARCH | BACKGROUND_SEARCH,
         L"RESTART_SEARCH | RECURSIVE_SEARCH | BACKGROUND_SEARCH"},
        {0x3F, L"STOP_SEARCH | RESTART_SEARCH | RECURSIVE_SEARCH | SHALLOW_SEARCH | FOREGROUND_SEARCH | "
               L"BACKGROUND_SEARCH"},
        {STOP_SEARCH | 0xF000, L"STOP_SEARCH | 0xF000"},
        {0x80000000, L"0x80000000"},
    };
    for (const auto& row : table)
        EXPECT_EQ(Text(FormatSetSearchCriteriaFlags(row.flags)), row.expected);
}
