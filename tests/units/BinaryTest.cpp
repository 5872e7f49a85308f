// Binary.
#include "support/Binary.h"

#include "support/Exceptions.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Properties.h"
#include "tests/common/Setting.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>

using Quillon::Binary;
using Quillon::Value;
using Tests::Bytes;
using Tests::Text;

namespace
{

constexpr BYTE someBytes[] = {1, 2, 3, 4, 5};

Bytes BytesOf(const Binary& binary)
{
    return Bytes(binary.GetBuffer(), binary.GetBuffer() + binary.GetSize());
}

} // namespace

TEST(Binary, IsNullUntilItHasABuffer)
{
    const Binary null;
    EXPECT_TRUE(null.IsNull());
    EXPECT_EQ(null.GetSize(), 0u);
    EXPECT_EQ(null.GetBuffer(), nullptr);

    const Binary copy(null);
    EXPECT_TRUE(copy.IsNull());
    const Binary fromNothing{Value()};
    EXPECT_TRUE(fromNothing.IsNull());
}

TEST(Binary, OfSizeZeroIsNotNull)
{
    const Binary empty(nullptr, 0);
    EXPECT_FALSE(empty.IsNull());
    EXPECT_EQ(empty.GetSize(), 0u);
    EXPECT_FALSE(Binary(empty).IsNull());

    Binary sized;
    sized.SetSize(0);
    EXPECT_FALSE(sized.IsNull());
    Binary appended;
    appended.Append(nullptr, 0);
    EXPECT_FALSE(appended.IsNull());
}

TEST(Binary, CopiesAreIndependentAndMovesLeaveNull)
{
    Binary first(someBytes, 5);
    Binary copy(first);
    copy.GetBuffer()[0] = 9;
    EXPECT_EQ(BytesOf(first), (Bytes{1, 2, 3, 4, 5}));
    EXPECT_EQ(BytesOf(copy), (Bytes{9, 2, 3, 4, 5}));

    const BYTE* const where = copy.GetBuffer();
    Binary moved(std::move(copy));
    EXPECT_EQ(moved.GetBuffer(), where) << "a move copied";
    EXPECT_TRUE(copy.IsNull()); // NOLINT(bugprone-use-after-move): what a move leaves is the point
    EXPECT_EQ(copy.GetSize(), 0u);

    first = std::move(moved);
    EXPECT_EQ(BytesOf(first), (Bytes{9, 2, 3, 4, 5}));
    EXPECT_TRUE(moved.IsNull()); // NOLINT(bugprone-use-after-move)
    moved = first;
    EXPECT_EQ(BytesOf(moved), BytesOf(first));
    Binary& same = first;
    first = same;
    first = std::move(same);
    EXPECT_EQ(BytesOf(first), (Bytes{9, 2, 3, 4, 5}));
}

TEST(Binary, AppendsPartsOfItself)
{
    Binary binary(someBytes, 5);
    for (int round = 0; round < 6; ++round)
        binary.Append(binary.GetBuffer() + 1, binary.GetSize() - 1);
    Bytes expected(someBytes, someBytes + 5);
    for (int round = 0; round < 6; ++round)
    {
        const Bytes tail(expected.begin() + 1, expected.end());
        expected.insert(expected.end(), tail.begin(), tail.end());
    }
    EXPECT_EQ(BytesOf(binary), expected);
    EXPECT_EQ(&binary.Append(someBytes, 1), &binary);
}

TEST(Binary, LengthenedGetsZeroBytesAndCutKeepsItsHead)
{
    Binary binary(someBytes, 5);
    binary.SetSize(2);
    EXPECT_EQ(BytesOf(binary), (Bytes{1, 2}));
    binary.SetSize(6);
    EXPECT_EQ(BytesOf(binary), (Bytes{1, 2, 0, 0, 0, 0}));
    binary.SetSize(0);
    EXPECT_FALSE(binary.IsNull());
    binary.SetSize(1000);
    EXPECT_EQ(BytesOf(binary), Bytes(1000, 0));
}

TEST(Binary, ReservedRoomIsUsed)
{
    Binary binary(someBytes, 5);
    binary.Reserve(20);
    const BYTE* const where = binary.GetBuffer();
    binary.Append(someBytes, 5).Append(someBytes, 5).Append(someBytes, 5);
    EXPECT_EQ(binary.GetBuffer(), where);
    EXPECT_EQ(binary.GetSize(), 20u);
    binary.Reserve(3);
    EXPECT_EQ(binary.GetSize(), 20u);
}

TEST(Binary, SaysItsSizeForALogLine)
{
    const struct
    {
        std::size_t size;
        const wchar_t* expected;
    } table[] = {
        {0, L"0 bytes"},
        {1, L"1 byte"},
        {64, L"64 bytes"},
        {1023, L"1023 bytes"},
        {1024, L"1.0 KB (1024 bytes)"},
        {1536, L"1.5 KB (1536 bytes)"},
        {std::size_t{3} * 1024 * 1024, L"3.0 MB (3145728 bytes)"},
    };
    for (const auto& row : table)
    {
        Binary binary;
        binary.SetSize(row.size);
        EXPECT_EQ(Text(binary.FormatSize()), row.expected);
    }
    EXPECT_EQ(Text(Binary().FormatSize()), L"0 bytes");
}

TEST(Binary, SaysThatThereIsNoMemoryAndStaysAsItWas)
{
    const Tests::LogCapture log;
    Binary binary(someBytes, 5);
    for (const std::size_t size : {SIZE_MAX, SIZE_MAX - 4, SIZE_MAX / 2 + 1})
    {
        EXPECT_THROW(binary.Reserve(size), Quillon::CComError);
        EXPECT_THROW(binary.SetSize(size), Quillon::CComError);
        EXPECT_THROW(binary.Append(someBytes, size), Quillon::CComError);
    }
    {
        const Tests::NoMemory noMemory;
        EXPECT_THROW(binary.Append(someBytes, 5), Quillon::CComError);
        EXPECT_THROW(Binary{binary}, Quillon::CComError);
        EXPECT_THROW(Binary(someBytes, 5), Quillon::CComError);
    }
    EXPECT_EQ(BytesOf(binary), (Bytes{1, 2, 3, 4, 5}));
}
