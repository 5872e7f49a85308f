// The store's identifiers and the process-wide switches.
#include "nst/KivNstCore.h"

#include "tests/common/LogCapture.h"
#include "tests/common/Properties.h"
#include "tests/common/StoreDoubles.h"
#include "tests/common/SupportDoubles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace Quillon;
using Tests::Bytes;

namespace
{

const Bytes providerUid = {0xE9, 0x2F, 0xEB, 0x75, 0x96, 0x50, 0x44, 0x86,
                           0x83, 0xB8, 0x7D, 0xE5, 0x22, 0xAA, 0x49, 0x48};

Bytes BytesOf(const Binary& binary)
{
    return Bytes(binary.GetBuffer(), binary.GetBuffer() + binary.GetSize());
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// UTF-16LE with its terminator.
Bytes WideBytes(const std::wstring& text)
{
    Bytes bytes;
    for (const wchar_t* at = text.c_str(); at != text.c_str() + text.size() + 1; ++at)
    {
        bytes.push_back(static_cast<BYTE>(*at & 0xFF));
        bytes.push_back(static_cast<BYTE>(*at >> 8));
    }
    return bytes;
}

} // namespace

TEST(ProviderUid, IsTheOneThatProfilesHold)
{
    EXPECT_EQ(Bytes(Nst::providerUid.ab, Nst::providerUid.ab + 16), providerUid);
}

TEST(CreateStoreEntryID, OfAnEmptyPathHas24Bytes)
{
    const Binary entryId = Nst::CreateStoreEntryID(L"");
    EXPECT_EQ(BytesOf(entryId), Bytes(4, 0) + providerUid + Bytes(4, 0));
    EXPECT_EQ(BytesOf(Nst::CreateStoreEntryID(nullptr)), BytesOf(entryId));
}

TEST(CreateStoreEntryID, OfAPathOf8CharactersHas40Bytes)
{
    const Binary entryId = Nst::CreateStoreEntryID(L"C:\\a.pst");
    ASSERT_EQ(entryId.GetSize(), 40u);
    EXPECT_EQ(BytesOf(entryId), Bytes(4, 0) + providerUid + Bytes(2, 0) + WideBytes(L"C:\\a.pst"));
    EXPECT_EQ(std::memcmp(entryId.GetBuffer() + 22, L"C:\\a.pst", 16), 0);
    EXPECT_EQ(entryId.GetBuffer()[38], 0);
    EXPECT_EQ(entryId.GetBuffer()[39], 0);
}

TEST(CreateStoreEntryID, HoldsAnyPath)
{
    const std::wstring paths[] = {L"x", L"C:\\Gr\u00FC\u00DFe\\\u4E2D 100%s.pst", std::wstring(1, wchar_t(0xD800)),
                                  L"\\\\?\\C:\\" + std::wstring(40'000, L'p')};
    for (const std::wstring& path : paths)
    {
        const Binary entryId = Nst::CreateStoreEntryID(path.c_str());
        ASSERT_EQ(entryId.GetSize(), 2 * path.size() + 24);
        EXPECT_EQ(BytesOf(entryId), Bytes(4, 0) + providerUid + Bytes(2, 0) + WideBytes(path));
    }
}

TEST(CreateNotifyKeyFromEntryId, IsACountAndTheBytes)
{
    const Bytes entryId = {9, 8, 7, 6, 5};
    EXPECT_EQ(BytesOf(Nst::CreateNotifyKeyFromEntryId(entryId.data(), entryId.size())),
              (Bytes{5, 0, 0, 0, 9, 8, 7, 6, 5}));
    const Bytes large(0x12345, 0xAB);
    EXPECT_EQ(BytesOf(Nst::CreateNotifyKeyFromEntryId(large.data(), large.size())), (Bytes{0x45, 0x23, 1, 0}) + large);
}

TEST(CreateNotifyKeyFromEntryId, OfNothingIsFourZeroBytes)
{
    EXPECT_EQ(BytesOf(Nst::CreateNotifyKeyFromEntryId(nullptr, 0)), Bytes(4, 0));
}

TEST(GetNstSubtreeEntryId, GivesWhatTheStoreRecords)
{
    const Tests::LogCapture log;
    const auto store = Tests::MakeStrict<Tests::StoreDouble>();
    EXPECT_CALL(*store, GetProps(Tests::Tags(std::vector<ULONG>{0x7FE20102}), testing::_, testing::_, testing::_))
        .WillOnce(Tests::GiveProps(S_OK, {Tests::BinaryValue(0x7FE20102, {1, 2, 3})}));
    EXPECT_EQ(BytesOf(Nst::GetNstSubtreeEntryId(store.Get())), (Bytes{1, 2, 3}));
    EXPECT_THAT(log.Lines(), testing::IsEmpty());
}

TEST(GetNstSubtreeEntryId, IsNullForAStoreThatWasNeverGivenARoot)
{
    const Tests::LogCapture log;
    const auto store = Tests::MakeNice<Tests::StoreDouble>();
    Tests::GiveNoProperty(*store, 0x7FE20102);
    EXPECT_TRUE(Nst::GetNstSubtreeEntryId(store.Get()).IsNull());
    EXPECT_THAT(log.Lines(), testing::IsEmpty());
}

TEST(GetNstSubtreeEntryId, IsNullAndThrowsNothingWhenTheStoreFails)
{
    const Tests::LogCapture log;
    const auto store = Tests::MakeNice<Tests::StoreDouble>();
    ON_CALL(*store, GetProps).WillByDefault(testing::Return(MAPI_E_CORRUPT_STORE));
    EXPECT_TRUE(Nst::GetNstSubtreeEntryId(store.Get()).IsNull());
}

TEST(Switches, AreOffAndIndependentOfEachOther)
{
    EXPECT_FALSE(Nst::GetUnwrapStores());
    EXPECT_FALSE(Nst::GetModifyStores());
    Nst::SetUnwrapStores(true);
    EXPECT_TRUE(Nst::GetUnwrapStores());
    EXPECT_FALSE(Nst::GetModifyStores());
    Nst::SetModifyStores(true);
    Nst::SetUnwrapStores(false);
    EXPECT_FALSE(Nst::GetUnwrapStores());
    EXPECT_TRUE(Nst::GetModifyStores());
    Nst::SetModifyStores(false);
    EXPECT_FALSE(Nst::GetModifyStores());
}
