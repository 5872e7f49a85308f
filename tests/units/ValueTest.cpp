// Value.
#include "support/Binary.h"

#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <utility>

using Quillon::Binary;
using Quillon::Value;
using Kind = Quillon::Value::Kind;

TEST(Value, HoldsNothingByItself)
{
    const Value value;
    EXPECT_EQ(value.GetKind(), Kind::Empty);
    EXPECT_TRUE(value.IsEmpty());
    EXPECT_EQ(value.GetBuffer(), nullptr);
    EXPECT_EQ(value.GetSize(), 0u);
    EXPECT_EQ(Value(Binary()).GetKind(), Kind::Empty) << "a null buffer is nothing";
}

TEST(Value, HoldsTextWithItsTerminator)
{
    const Value narrow("narrow");
    EXPECT_EQ(narrow.GetKind(), Kind::StringA);
    EXPECT_STREQ(reinterpret_cast<const char*>(narrow.GetBuffer()), "narrow");
    EXPECT_EQ(narrow.GetSize(), 6u);

    const Value wide(L"wide");
    EXPECT_EQ(wide.GetKind(), Kind::StringW);
    EXPECT_STREQ(reinterpret_cast<const wchar_t*>(wide.GetBuffer()), L"wide");
    EXPECT_EQ(wide.GetSize(), 8u);
}

TEST(Value, OfNullTextIsAnEmptyString)
{
    const Value narrow(static_cast<const char*>(nullptr));
    EXPECT_EQ(narrow.GetKind(), Kind::StringA);
    EXPECT_STREQ(reinterpret_cast<const char*>(narrow.GetBuffer()), "");
    EXPECT_EQ(narrow.GetSize(), 0u);
    const Value wide(static_cast<const wchar_t*>(nullptr));
    EXPECT_EQ(wide.GetKind(), Kind::StringW);
    EXPECT_STREQ(reinterpret_cast<const wchar_t*>(wide.GetBuffer()), L"");
    EXPECT_EQ(wide.GetSize(), 0u);
}

TEST(Value, TakesBytesOverAndGivesThemBack)
{
    constexpr BYTE bytes[] = {7, 0, 8};
    Binary source(bytes, 3);
    const BYTE* const where = source.GetBuffer();
    Value value(std::move(source));
    EXPECT_TRUE(source.IsNull()); // NOLINT(bugprone-use-after-move): what a move leaves is the point
    EXPECT_EQ(value.GetKind(), Kind::Bytes);
    EXPECT_EQ(value.GetBuffer(), where);
    EXPECT_EQ(value.GetSize(), 3u);

    const Binary back(std::move(value));
    EXPECT_EQ(back.GetBuffer(), where);
    EXPECT_EQ(back.GetSize(), 3u);
    EXPECT_TRUE(value.IsEmpty()); // NOLINT(bugprone-use-after-move)
}

TEST(Value, OfNoBytesIsNotEmpty)
{
    Value value(Binary(nullptr, 0));
    EXPECT_EQ(value.GetKind(), Kind::Bytes);
    EXPECT_FALSE(Binary(std::move(value)).IsNull());
}

TEST(Value, ThatHoldsTextGivesNoBytes)
{
    EXPECT_TRUE(Binary(Value("text")).IsNull());
    Value wide(L"text");
    EXPECT_TRUE(Binary(std::move(wide)).IsNull());
    EXPECT_TRUE(wide.IsEmpty()); // NOLINT(bugprone-use-after-move): it is said to be empty afterwards
}

TEST(Value, CopiesMovesAndAssignsAsAValue)
{
    const Value text("text");
    Value copy(text);
    EXPECT_NE(copy.GetBuffer(), text.GetBuffer());
    EXPECT_STREQ(reinterpret_cast<const char*>(copy.GetBuffer()), "text");
    Value moved(std::move(copy));
    EXPECT_EQ(moved.GetKind(), Kind::StringA);
    EXPECT_TRUE(copy.IsEmpty()); // NOLINT(bugprone-use-after-move): what a move leaves is the point
    copy = moved;
    EXPECT_EQ(copy.GetKind(), Kind::StringA);
    copy = Value(L"other");
    EXPECT_EQ(copy.GetKind(), Kind::StringW);
    Value& same = copy;
    copy = std::move(same);
    EXPECT_EQ(copy.GetKind(), Kind::StringW);
    EXPECT_STREQ(reinterpret_cast<const wchar_t*>(copy.GetBuffer()), L"other");
    copy = Value();
    EXPECT_TRUE(copy.IsEmpty());
}
