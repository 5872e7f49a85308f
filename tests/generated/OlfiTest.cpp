// The offline identifier ranges of any store: what is read, and what is written back.
#include "nst/Olfi.h"

#include "support/Exceptions.h"
#include "support/MapiErrors.h"
#include "tests/common/ImportHook.h"
#include "tests/common/Setting.h"
#include "tests/generated/FakeStore.h"
#include "tests/generated/Generator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>

using namespace Quillon;
using Tests::Bytes;
using Tests::Random;

namespace
{

constexpr GUID newGuid = {0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 8}};

/// A random value of the right size: ranges empty, full or all but empty, counts around what decides.
Bytes MakeOlfi(Random& random)
{
    Bytes olfi = Tests::MakeBytesOfSize(random, 80);
    for (const std::size_t range : {std::size_t(32), std::size_t(56)})
    {
        if (random.Chance(1, 3))
            continue;
        std::fill_n(olfi.begin() + static_cast<std::ptrdiff_t>(range), 22, BYTE(0));
        if (random.Chance(1, 3))
            olfi[range + random.Below(22)] = static_cast<BYTE>(random.Below(255) + 1);
        // The bytes behind a range do not count.
        else if (random.Chance(1, 3))
            olfi[range + 22 + random.Below(2)] = 1;
    }
    constexpr ULONG counts[] = {0, 1, 0x3FFFFFFF, 0x40000000, 0x40000001, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    for (const std::size_t at : {std::size_t(24), std::size_t(28)})
    {
        if (random.Chance(1, 4))
            continue;
        const ULONG count = random.Of(counts);
        std::memcpy(&olfi[at], &count, sizeof(count));
    }
    return olfi;
}

bool IsZero(const Bytes& bytes, std::size_t at, std::size_t size)
{
    for (std::size_t index = at; index < at + size; ++index)
        if (bytes[index] != 0)
            return false;
    return true;
}

/// What is written for a value, as its format says; nothing: it is left alone.
std::optional<Bytes> Extend(const Bytes& before)
{
    Bytes after = before;
    std::size_t range = 0;
    std::size_t count = 0;
    if (IsZero(before, 32, 22))
    {
        range = 32;
        count = 24;
    }
    else if (before[27] < 0x40 && IsZero(before, 56, 22))
    {
        range = 56;
        count = 28;
    }
    else
    {
        return std::nullopt;
    }
    constexpr BYTE fresh[] = {0x78, 0x56, 0x34, 0x12, 0xBC, 0x9A, 0xF0, 0xDE, 1, 2, 3, 4, 5, 6, 7, 8};
    std::copy(std::begin(fresh), std::end(fresh), after.begin() + static_cast<std::ptrdiff_t>(range));
    after[count] = after[count + 1] = after[count + 2] = 0;
    after[count + 3] = 0x80;
    return after;
}

HRESULT WINAPI GiveGuid(GUID* guid)
{
    *guid = newGuid;
    return S_OK;
}

} // namespace

TEST(GeneratedOlfi, IsExtendedAsItsFormatSays)
{
    const Tests::ImportHook<HRESULT(GUID*)> hook("CoCreateGuid", GiveGuid);
    Tests::RunCases("OLFI values", 300'000,
                    [](Random& random)
                    {
                        Tests::FakeStore store;
                        Tests::Properties properties;
                        Bytes stored = MakeOlfi(random);
                        // Mostly a value of the right size; else one of another, or no binary at all.
                        const std::size_t kind = random.Below(8);
                        SPropValue value = {};
                        value.ulPropTag = PR_OST_OLFI;
                        bool isBinary = true;
                        if (kind == 0)
                        {
                            stored = Tests::MakeBytes(random, 4000);
                        }
                        else if (kind == 1)
                        {
                            value = properties.Make(random, PROP_TAG(Tests::MakeType(random), 0x7C07));
                            isBinary = PROP_TYPE(value.ulPropTag) == PT_BINARY;
                            if (isBinary && !value.Value.bin.lpb && value.Value.bin.cb)
                                isBinary = false;
                            stored = isBinary ? Tests::BytesOfBinary(value.Value.bin) : Bytes();
                        }
                        if (kind != 1)
                        {
                            stored.reserve(1);
                            value.Value.bin = {static_cast<ULONG>(stored.size()), stored.data()};
                        }
                        store.answer = [&](const SPropTagArray*) { return std::vector<SPropValue>{value}; };
                        store.readResult = random.Chance(1, 20) ? MAPI_E_NOT_FOUND : S_OK;

                        const bool isThere = isBinary && store.readResult == S_OK;
                        if (isThere && stored.size() != 80)
                        {
                            EXPECT_THROW(Nst::SetOLFIInOST(&store), CRuntimeError);
                            EXPECT_EQ(store.writes, 0);
                            EXPECT_EQ(store.references, 1u);
                            return;
                        }
                        const std::optional<Bytes> expected = Extend(isThere ? stored : Bytes(80, 0));
                        Nst::SetOLFIInOST(&store);
                        ASSERT_EQ(store.writes, expected ? 1 : 0);
                        if (!expected)
                            return;
                        ASSERT_EQ(store.writtenTags, std::vector<ULONG>{PR_OST_OLFI});
                        ASSERT_EQ(store.writtenBytes.at(0), *expected);

                        // What was written is enough: it is not extended again.
                        Bytes again = *expected;
                        value.ulPropTag = PR_OST_OLFI;
                        value.Value.bin = {80, again.data()};
                        store.readResult = S_OK;
                        Nst::SetOLFIInOST(&store);
                        ASSERT_EQ(store.writes, 1);
                        ASSERT_EQ(store.references, 1u);
                    });
}
