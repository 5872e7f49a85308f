// Entry IDs: those that the library makes, those that it wraps, and those that a store gives it.
#include "mapi/MapiBinding.h"
#include "nst/KivNstCore.h"
#include "nst/NstMsgStore.h"
#include "support/Exceptions.h"
#include "support/MapiBuffer.h"
#include "support/MapiProperties.h"
#include "support/Os.h"
#include "tests/common/Setting.h"
#include "tests/generated/FakeStore.h"
#include "tests/generated/Generator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

using namespace Quillon;
using Tests::Bytes;
using Tests::Random;

namespace
{

Bytes BytesOf(const Binary& binary)
{
    return Bytes(binary.GetBuffer(), binary.GetBuffer() + binary.GetSize());
}

Binary MakeBinary(const Bytes& bytes)
{
    return Binary(bytes.data(), bytes.size());
}

void Append(Bytes& bytes, std::initializer_list<int> more)
{
    for (const int byte : more)
        bytes.push_back(static_cast<BYTE>(byte));
}

/// What stands in front of the DLL's name in a wrapped entry ID.
const Bytes& WrappedHead()
{
    static const Bytes head = []
    {
        Bytes bytes;
        Append(bytes, {0, 0, 0, 0, 0x38, 0xA1, 0xBB, 0x10, 0x05, 0xE5, 0x10});
        Append(bytes, {0x1A, 0xA1, 0xBB, 0x08, 0x00, 0x2B, 0x2A, 0x56, 0xC2, 0, 0});
        return bytes;
    }();
    return head;
}

/// Reaches the store wrapper's comparison.
class ComparingStore : public Nst::CNstMsgStore
{
public:
    explicit ComparingStore(IMsgStore* store) : CNstMsgStore(store, nullptr) {}
    using CNstMsgStore::CompareEntryIds;
};

/// A textual security identifier, put together by hand.
std::wstring SidText(const Bytes& sid)
{
    std::uint64_t authority = 0;
    for (std::size_t at = 2; at < 8; ++at)
        authority = authority << 8 | sid[at];
    std::wstring text = L"S-" + std::to_wstring(sid[0]) + L"-" + std::to_wstring(authority);
    for (std::size_t index = 0; index < sid[1]; ++index)
    {
        const BYTE* const part = &sid[8 + 4 * index];
        text += L"-" + std::to_wstring(static_cast<ULONG>(part[0]) | static_cast<ULONG>(part[1]) << 8 |
                                       static_cast<ULONG>(part[2]) << 16 | static_cast<ULONG>(part[3]) << 24);
    }
    return text;
}

} // namespace

TEST(GeneratedEntryIds, OfStoresHoldTheirPathAsItIs)
{
    Tests::RunCases("store entry IDs", 300'000,
                    [](Random& random)
                    {
                        const std::wstring path = Tests::MakeText(random);
                        Bytes expected;
                        Append(expected, {0, 0, 0, 0, 0xE9, 0x2F, 0xEB, 0x75, 0x96, 0x50, 0x44, 0x86});
                        Append(expected, {0x83, 0xB8, 0x7D, 0xE5, 0x22, 0xAA, 0x49, 0x48, 0, 0});
                        for (const wchar_t character : path)
                            Append(expected, {character & 0xFF, character >> 8});
                        Append(expected, {0, 0});
                        const Binary entryId = Nst::CreateStoreEntryID(path.c_str());
                        ASSERT_EQ(BytesOf(entryId), expected);

                        const Binary key = Nst::CreateNotifyKeyFromEntryId(entryId.GetBuffer(), entryId.GetSize());
                        ASSERT_EQ(key.GetSize(), expected.size() + 4);
                        ULONG count = 0;
                        std::memcpy(&count, key.GetBuffer(), sizeof(count));
                        ASSERT_EQ(count, expected.size());
                        ASSERT_EQ(Bytes(key.GetBuffer() + 4, key.GetBuffer() + key.GetSize()), expected);
                    });
}

TEST(GeneratedEntryIds, AreWrappedSoThatTheyCanBeTakenOutAgain)
{
    Tests::RunCases("wrapped entry IDs", 200'000,
                    [](Random& random)
                    {
                        Bytes entryId = Tests::MakeBytes(random, 3000);
                        const auto size = static_cast<ULONG>(entryId.size());
                        entryId.push_back(0); // so that an empty one has an address
                        std::string dllName = Tests::MakeNarrowText(random);
                        const ULONG flags = random.Chance(1, 10) ? static_cast<ULONG>(random.Next()) : 0;
                        ULONG wrappedSize = 0;
                        ENTRYID* wrapped = nullptr;
                        const HRESULT hr =
                            Mapi::WrapStoreEntryID(flags, dllName.data(), size,
                                                   reinterpret_cast<ENTRYID*>(entryId.data()), &wrappedSize, &wrapped);
                        const Mapi::SmartPointer<ENTRYID*, Mapi::MapiBufferDestructor> owner(wrapped);
                        if (flags != 0 || size < 4)
                        {
                            ASSERT_TRUE(FAILED(hr));
                            ASSERT_EQ(wrapped, nullptr);
                            return;
                        }
                        ASSERT_EQ(hr, S_OK);
                        const auto* const bytes = reinterpret_cast<const BYTE*>(wrapped);
                        const Bytes& head = WrappedHead();
                        std::size_t at = head.size() + dllName.size() + 1;
                        const std::size_t nameEnd = at;
                        at = (at + 3) / 4 * 4;
                        ASSERT_EQ(wrappedSize, at + size);
                        ASSERT_TRUE(std::equal(head.begin(), head.end(), bytes));
                        ASSERT_EQ(std::memcmp(bytes + head.size(), dllName.c_str(), dllName.size() + 1), 0);
                        ASSERT_TRUE(std::all_of(bytes + nameEnd, bytes + at, [](BYTE byte) { return byte == 0; }));
                        ASSERT_EQ(std::memcmp(bytes + at, entryId.data(), size), 0);
                    });
}

TEST(GeneratedEntryIds, OfTheArchivesRootAreReadWhateverTheStoreGives)
{
    Tests::RunCases("archive root entry IDs", 60'000,
                    [](Random& random)
                    {
                        Tests::FakeStore store;
                        Tests::Properties properties;
                        const ULONG type = random.Chance(1, 2) ? PT_BINARY : Tests::MakeType(random);
                        const SPropValue value = properties.Make(random, PROP_TAG(type, 0x7FE2));
                        store.answer = [&](const SPropTagArray*) { return std::vector<SPropValue>{value}; };
                        store.readResult = random.Chance(1, 20) ? MAPI_E_CALL_FAILED : S_OK;
                        const SBinary& binary = value.Value.bin;
                        const bool isGood =
                            store.readResult == S_OK && type == PT_BINARY && (binary.lpb || binary.cb == 0);

                        const Binary entryId = Nst::GetNstSubtreeEntryId(&store);
                        ASSERT_EQ(entryId.IsNull(), !isGood);
                        if (isGood)
                            ASSERT_EQ(BytesOf(entryId), Tests::BytesOfBinary(binary));

                        // The strict reader tells what is wrong by its exception.
                        try
                        {
                            const Binary read = Mapi::QueryItemEntryId(&store);
                            ASSERT_TRUE(isGood);
                            ASSERT_EQ(BytesOf(read), Tests::BytesOfBinary(binary));
                        }
                        catch (const CException& exception)
                        {
                            ASSERT_FALSE(isGood);
                            ASSERT_TRUE(FAILED(exception.GetHResult()));
                        }
                        ASSERT_EQ(store.references, 1u);
                    });
}

TEST(GeneratedEntryIds, AreComparedByTheStoreUnlessOneIsMissing)
{
    Tests::RunCases("compared entry IDs", 200'000,
                    [](Random& random)
                    {
                        Tests::FakeStore store;
                        ComparingStore* const wrapper = new ComparingStore(&store);
                        const ATL::CComQIPtr<IMsgStore> owner(wrapper);
                        wrapper->Release();
                        const Bytes bytes = Tests::MakeBytes(random, 100);
                        Bytes other = random.Chance(1, 2) ? bytes : Tests::MakeBytes(random, 100);
                        if (!other.empty() && random.Chance(1, 4))
                            other[random.Below(other.size())] ^= 1;
                        const bool isFirstNull = random.Chance(1, 8);
                        const bool isSecondNull = random.Chance(1, 8);
                        const Binary first = isFirstNull ? Binary() : MakeBinary(bytes);
                        const Binary second = isSecondNull ? Binary() : MakeBinary(other);
                        store.readResult = random.Chance(1, 10) ? MAPI_E_INVALID_ENTRYID : S_OK;
                        const bool isSame =
                            isFirstNull == isSecondNull && store.readResult == S_OK && (isFirstNull || bytes == other);
                        ASSERT_EQ(wrapper->CompareEntryIds(first, second), isSame);
                        ASSERT_EQ(store.comparisons, isFirstNull == isSecondNull ? 1 : 0);
                    });
}

TEST(GeneratedSids, AreFormattedOrRefused)
{
    Tests::RunCases("security identifiers", 40'000,
                    [](Random& random)
                    {
                        Bytes sid = Tests::MakeBytes(random, 100);
                        const bool isMade = random.Chance(2, 3);
                        if (isMade)
                        {
                            const std::size_t parts = random.Below(16);
                            sid = Tests::MakeBytesOfSize(random, 8 + 4 * parts);
                            sid[0] = 1;
                            sid[1] = static_cast<BYTE>(parts);
                            sid[2] = sid[3] = 0; // larger authorities are written in hexadecimal
                            sid[4] &= 0x7F;      // not every system takes them for unsigned
                        }
                        try
                        {
                            const StringW text = Os::FormatSid(MakeBinary(sid));
                            ASSERT_GE(sid.size(), 8u);
                            ASSERT_GE(sid.size(), 8u + 4u * sid[1]);
                            if (isMade)
                                ASSERT_EQ(Tests::Text(text), SidText(sid));
                        }
                        catch (const CWinError&)
                        {
                            ASSERT_FALSE(isMade);
                        }
                    });
}
