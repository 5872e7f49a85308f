// SetOLFIInOST.
#include "nst/Olfi.h"

#include "support/MapiErrors.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Properties.h"
#include "tests/common/Setting.h"
#include "tests/common/StoreDoubles.h"
#include "tests/common/SupportDoubles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>

using namespace Quillon;
using Nst::SetOLFIInOST;
using testing::_;
using testing::IsEmpty;
using testing::Return;
using Tests::Bytes;
using Tests::LogCapture;
using Tests::StoreDouble;

namespace
{

constexpr ULONG olfiTag = 0x7C070102;
constexpr std::size_t size = 80;

/// A value of the property: counts as given, ranges empty or filled with a byte of their own, the rest with a pattern
/// that has to survive.
Bytes Olfi(ULONG firstCount, ULONG secondCount, bool firstFilled, bool secondFilled)
{
    Bytes olfi(size);
    for (std::size_t at = 0; at < size; ++at)
        olfi[at] = static_cast<BYTE>(0x80 + at);
    std::memcpy(&olfi[24], &firstCount, 4);
    std::memcpy(&olfi[28], &secondCount, 4);
    std::fill_n(olfi.begin() + 32, 22, firstFilled ? BYTE(0x11) : BYTE(0));
    std::fill_n(olfi.begin() + 56, 22, secondFilled ? BYTE(0x22) : BYTE(0));
    return olfi;
}

constexpr GUID newGuid = {0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 8}};

/// The value after a range at `rangeAt` was allocated, its count at `countAt`.
Bytes Allocated(Bytes olfi, std::size_t rangeAt, std::size_t countAt)
{
    constexpr ULONG count = 0x80000000;
    std::memcpy(&olfi[rangeAt], &newGuid, sizeof(newGuid));
    std::memcpy(&olfi[countAt], &count, sizeof(count));
    return olfi;
}

Bytes AllocatedFirst(Bytes olfi)
{
    return Allocated(std::move(olfi), 32, 24);
}

Bytes AllocatedSecond(Bytes olfi)
{
    return Allocated(std::move(olfi), 56, 28);
}

Bytes WithByte(Bytes olfi, std::size_t at, BYTE value)
{
    olfi[at] = value;
    return olfi;
}

/// The store's property before (none: it is missing), and what is written (nothing: no write).
struct State
{
    const char* name;
    std::optional<Bytes> before;
    std::optional<Bytes> written;
};

const State states[] = {
    {"absent", std::nullopt, AllocatedFirst(Bytes(size, 0))},
    {"all zero", Bytes(size, 0), AllocatedFirst(Bytes(size, 0))},
    {"both ranges empty", Olfi(1, 2, false, false), AllocatedFirst(Olfi(1, 2, false, false))},
    {"first range empty, its count ample", Olfi(0x7FFFFFFF, 0, false, false),
     AllocatedFirst(Olfi(0x7FFFFFFF, 0, false, false))},
    {"first range empty, second filled", Olfi(0, 9, false, true), AllocatedFirst(Olfi(0, 9, false, true))},
    {"first filled and just below ample, second empty", Olfi(0x3FFFFFFF, 5, true, false),
     AllocatedSecond(Olfi(0x3FFFFFFF, 5, true, false))},
    {"first filled and used up, second empty", Olfi(0, 0, true, false), AllocatedSecond(Olfi(0, 0, true, false))},
    {"first filled and just ample, second empty", Olfi(0x40000000, 0, true, false), std::nullopt},
    {"first filled and new, second empty", Olfi(0x80000000, 0, true, false), std::nullopt},
    {"first filled and at its most, second empty", Olfi(0xFFFFFFFF, 0, true, false), std::nullopt},
    {"both filled, first low", Olfi(0x3FFFFFFF, 0, true, true), std::nullopt},
    {"both filled, first ample", Olfi(0x40000000, 7, true, true), std::nullopt},
    // A range is empty only when all of its 22 bytes are zero.
    {"first range's first byte set", WithByte(Olfi(0x40000000, 0, false, false), 32, 1), std::nullopt},
    {"first range's last byte set", WithByte(Olfi(0x40000000, 0, false, false), 53, 1), std::nullopt},
    {"second range's first byte set", WithByte(Olfi(0, 0, true, false), 56, 1), std::nullopt},
    {"second range's last byte set", WithByte(Olfi(0, 0, true, false), 77, 1), std::nullopt},
    {"bytes behind the ranges set", WithByte(WithByte(Olfi(0, 0, true, false), 54, 7), 78, 7),
     AllocatedSecond(WithByte(WithByte(Olfi(0, 0, true, false), 54, 7), 78, 7))},
};

void GiveOlfi(StoreDouble& store, const std::optional<Bytes>& value)
{
    if (value)
        Tests::GiveProperty(store, Tests::BinaryValue(olfiTag, *value));
    else
        Tests::GiveNoProperty(store, olfiTag);
}

} // namespace

TEST(SetOLFIInOST, AllocatesARangeWhereNoneIsLeftAndOtherwiseWritesNothing)
{
    const Tests::ImportHook<HRESULT(GUID*)> guids("CoCreateGuid",
                                                  [](GUID* guid) -> HRESULT
                                                  {
                                                      *guid = newGuid;
                                                      return S_OK;
                                                  });
    for (const State& state : states)
    {
        SCOPED_TRACE(state.name);
        const LogCapture log;
        const auto store = Tests::MakeNice<StoreDouble>();
        GiveOlfi(*store, state.before);
        Bytes written;
        ON_CALL(*store, SetProps(1, _, _))
            .WillByDefault(
                [&](ULONG, SPropValue* property, SPropProblemArray**) -> HRESULT
                {
                    EXPECT_EQ(property->ulPropTag, olfiTag);
                    written = Tests::BytesOf(*property);
                    return S_OK;
                });
        EXPECT_CALL(*store, SetProps).Times(state.written ? 1 : 0);
        SetOLFIInOST(store.Get());
        EXPECT_EQ(written, state.written.value_or(Bytes()));
        EXPECT_THAT(log.Lines(), IsEmpty());
    }
}

TEST(SetOLFIInOST, GivesEachStoreAGuidOfItsOwn)
{
    Bytes written[2];
    for (Bytes& bytes : written)
    {
        const auto store = Tests::MakeNice<StoreDouble>();
        GiveOlfi(*store, std::nullopt);
        EXPECT_CALL(*store, SetProps)
            .WillOnce(
                [&](ULONG, SPropValue* property, SPropProblemArray**) -> HRESULT
                {
                    bytes = Tests::BytesOf(*property);
                    return S_OK;
                });
        SetOLFIInOST(store.Get());
        ASSERT_EQ(bytes.size(), size);
        EXPECT_NE(Bytes(bytes.begin() + 32, bytes.begin() + 48), Bytes(16, 0));
        EXPECT_EQ(Bytes(bytes.begin() + 48, bytes.end()), Bytes(32, 0)) << "the six bytes behind the GUID stay zero";
    }
    EXPECT_NE(written[0], written[1]);
}

TEST(SetOLFIInOST, DoesNothingASecondTime)
{
    const auto store = Tests::MakeNice<StoreDouble>();
    GiveOlfi(*store, std::nullopt);
    EXPECT_CALL(*store, SetProps)
        .WillOnce(
            [&](ULONG, SPropValue* property, SPropProblemArray**) -> HRESULT
            {
                GiveOlfi(*store, Tests::BytesOf(*property));
                return S_OK;
            });
    SetOLFIInOST(store.Get());
    SetOLFIInOST(store.Get());
}

TEST(SetOLFIInOST, ThrowsForAnyOtherLength)
{
    const struct
    {
        std::size_t length;
        const wchar_t* text;
    } table[] = {
        {0, L"0 bytes"},   {1, L"1 byte"},    {64, L"64 bytes"},
        {79, L"79 bytes"}, {81, L"81 bytes"}, {2048, L"2.0 KB (2048 bytes)"},
    };
    for (const auto& row : table)
    {
        const LogCapture log;
        const auto store = Tests::MakeNice<StoreDouble>();
        GiveOlfi(*store, Bytes(row.length, 0));
        EXPECT_CALL(*store, SetProps).Times(0);
        const std::wstring text = L"Buffer returned for PR_OST_OLFI has unexpected length: " + std::wstring(row.text);
        try
        {
            SetOLFIInOST(store.Get());
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const CRuntimeError& error)
        {
            EXPECT_EQ(Tests::Text(error.Format()), text);
        }
        EXPECT_THAT(log.Lines(), testing::ElementsAre(Tests::Throwing(L"Olfi.cpp", L"SetOLFIInOST", text)));
    }
}

TEST(SetOLFIInOST, ThrowsForANullStore)
{
    const LogCapture log;
    try
    {
        SetOLFIInOST(nullptr);
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const CComError& error)
    {
        EXPECT_EQ(error.GetHResult(), E_INVALIDARG);
        EXPECT_THAT(log.Lines(),
                    testing::ElementsAre(Tests::Throwing(L"Olfi.cpp", L"SetOLFIInOST", Tests::Text(error.Format()))));
    }
}

TEST(SetOLFIInOST, ThrowsWhenTheStoreRefusesTheWrite)
{
    const LogCapture log;
    const auto store = Tests::MakeNice<StoreDouble>();
    GiveOlfi(*store, std::nullopt);
    EXPECT_CALL(*store, SetProps).WillOnce(Return(MAPI_E_NO_ACCESS));
    EXPECT_THROW(SetOLFIInOST(store.Get()), Mapi::CMapiError);
}
