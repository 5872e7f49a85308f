// Lists of properties of every type: copied into a list of the library's own, and read and written through the store
// wrapper.
#include "mapi/SPropValueVector.h"
#include "nst/KivNstCore.h"
#include "nst/NstMsgStore.h"
#include "support/Exceptions.h"
#include "support/Log.h"
#include "support/MapiBuffer.h"
#include "support/MapiProperties.h"
#include "tests/common/Setting.h"
#include "tests/generated/FakeStore.h"
#include "tests/generated/Generator.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using namespace Quillon;
using Mapi::SPropValueVector;
using Tests::Bytes;
using Tests::Random;

namespace
{

/// What a list has to hold of a property: its tag, its number, its text or bytes as bytes.
struct Held
{
    ULONG tag;
    LONG number = 0;
    Bytes payload = {};
    bool operator==(const Held&) const = default;
};

template <class Character>
Bytes BytesOfText(const Character* text)
{
    const std::basic_string<Character> copy(text ? text : std::basic_string<Character>().c_str());
    const auto* const bytes = reinterpret_cast<const BYTE*>(copy.c_str());
    return Bytes(bytes, bytes + (copy.size() + 1) * sizeof(Character));
}

/// Nothing for a property that a list refuses.
std::optional<Held> Hold(const SPropValue& value)
{
    const ULONG tag = value.ulPropTag;
    switch (tag & 0xFFFF)
    {
    case 0x0003:
        return Held{tag, value.Value.l};
    case 0x000B:
        return Held{tag, value.Value.b ? 1 : 0};
    case 0x001E:
        return Held{tag, 0, BytesOfText(value.Value.lpszA)};
    case 0x001F:
        return Held{tag, 0, BytesOfText(value.Value.lpszW)};
    case 0x0102:
        if (!value.Value.bin.lpb && value.Value.bin.cb)
            return std::nullopt;
        return Held{tag, 0, Tests::BytesOfBinary(value.Value.bin)};
    default:
        return std::nullopt;
    }
}

std::vector<Held> HeldBy(const SPropValueVector& list)
{
    std::vector<Held> held;
    for (ULONG index = 0; index < list.GetCount(); ++index)
        held.push_back(Hold(list.GetValues()[index]).value_or(Held{0}));
    return held;
}

/// Calls the typed operation that `which` chooses.
void AddTyped(SPropValueVector& list, std::size_t which, const SPropValue& value)
{
    const ULONG tag = value.ulPropTag;
    switch (which)
    {
    case 0:
        return list.AddLong(tag, value.Value.l);
    case 1:
        return list.AddBoolean(tag, value.Value.b != 0);
    case 2:
        return list.AddStringA(tag, PROP_TYPE(tag) == PT_STRING8 ? value.Value.lpszA : "text");
    case 3:
        return list.AddStringW(tag, PROP_TYPE(tag) == PT_UNICODE ? value.Value.lpszW : L"text");
    default:
        return PROP_TYPE(tag) == PT_BINARY ? list.AddBinary(tag, value.Value.bin.lpb, value.Value.bin.cb)
                                           : list.AddBinary(tag, nullptr, 0);
    }
}

constexpr ULONG typeOf[] = {PT_LONG, PT_BOOLEAN, PT_STRING8, PT_UNICODE, PT_BINARY};

/// The last entry and detail line.
struct LastLines
{
    std::wstring entry;
    std::wstring detail;

    LastLines()
    {
        Logging::SetLogSink(
            [](void* context, const Logging::LogLine& line)
            {
                auto& last = *static_cast<LastLines*>(context);
                (line.isDetail ? last.detail : last.entry) = line.text;
            },
            this);
    }
    LastLines(const LastLines&) = delete;
    LastLines& operator=(const LastLines&) = delete;
    ~LastLines()
    {
        Logging::SetLogSink([](void*, const Logging::LogLine&) {}, nullptr);
    }
};

/// A store wrapper over a made-up store.
struct WrappedStore
{
    Tests::FakeStore store;
    ATL::CComQIPtr<IMsgStore> wrapper;

    WrappedStore() { wrapper.Attach(new Nst::CNstMsgStore(&store, nullptr)); }
};

class ModifyStores
{
public:
    explicit ModifyStores(bool on) { Nst::SetModifyStores(on); }
    ModifyStores(const ModifyStores&) = delete;
    ModifyStores& operator=(const ModifyStores&) = delete;
    ~ModifyStores() { Nst::SetModifyStores(false); }
};

bool IsWritable(ULONG tag)
{
    return tag == 0x7FE90040 || tag == 0x7FE80102 || tag == 0x7FE70102 || tag == PR_SEARCH || tag == 0x7FEB001F;
}

/// The tags' names, joined.
std::wstring NamesOf(const std::vector<SPropValue>& values)
{
    std::wstring names;
    for (const SPropValue& value : values)
        names += (names.empty() ? L"" : L", ") + Tests::Text(Mapi::FormatMapiPropertyTag(value.ulPropTag));
    return names;
}

/// A tag array of any length.
struct TagArray
{
    std::vector<ULONG> words;

    explicit TagArray(const std::vector<SPropValue>& values) : words{static_cast<ULONG>(values.size())}
    {
        for (const SPropValue& value : values)
            words.push_back(value.ulPropTag);
    }
    SPropTagArray* Get() { return reinterpret_cast<SPropTagArray*>(words.data()); }
};

} // namespace

TEST(GeneratedPropertyLists, HoldCopiesOfWhatTheyAcceptAndNothingElse)
{
    Tests::RunCases(
        "property lists", 80'000,
        [](Random& random)
        {
            SPropValueVector list;
            std::vector<Held> expected;
            {
                // What was copied is gone afterwards.
                Tests::Properties properties;
                for (std::size_t left = random.Below(14); left > 0; --left)
                {
                    const ULONG tag = random.Chance(1, 2) ? PROP_TAG(random.Of(typeOf), random.Below(0x10000))
                                                          : Tests::MakeTag(random);
                    SPropValue value = properties.Make(random, tag);
                    const std::size_t which = random.Below(8);
                    std::optional<Held> held = Hold(value);
                    if (which < std::size(typeOf) && PROP_TYPE(tag) != typeOf[which])
                        held.reset();
                    const bool isBroken =
                        PROP_TYPE(tag) == PT_BINARY && !value.Value.bin.lpb && value.Value.bin.cb && (which >= 4);
                    try
                    {
                        if (which < std::size(typeOf))
                            AddTyped(list, which, value);
                        else
                            list.AddProperty(value);
                        ASSERT_TRUE(held.has_value()) << std::hex << tag;
                        expected.push_back(*held);
                    }
                    catch (const CRuntimeError& error)
                    {
                        ASSERT_FALSE(held.has_value());
                        const std::wstring text =
                            which < std::size(typeOf) ? L"Incompatible property tag: " : L"Unsupported property type: ";
                        ASSERT_EQ(Tests::Text(error.Format()), text + Tests::Text(Mapi::FormatMapiPropertyTag(tag)));
                    }
                    catch (const CComError& error)
                    {
                        ASSERT_TRUE(isBroken);
                        ASSERT_EQ(error.GetHResult(), E_INVALIDARG);
                    }
                    ASSERT_EQ(list.GetCount(), expected.size());
                    if (random.Chance(1, 10))
                        list = SPropValueVector(std::move(list));
                }
            }
            ASSERT_EQ(HeldBy(list), expected);
            ASSERT_EQ(list.GetValues() == nullptr, expected.empty());

            SPropValueVector copy;
            for (ULONG index = 0; index < list.GetCount(); ++index)
                copy.AddProperty(list.GetValues()[index]);
            list = SPropValueVector();
            ASSERT_EQ(HeldBy(copy), expected);
        });
}

TEST(GeneratedPropertyLists, AreCopiedToValuesWhereTheyAreTextOrBytes)
{
    Tests::RunCases(
        "property values", 60'000,
        [](Random& random)
        {
            Tests::Properties properties;
            const ULONG tag =
                random.Chance(1, 2) ? PROP_TAG(typeOf[2 + random.Below(3)], 0x1234) : Tests::MakeTag(random);
            const SPropValue property = properties.Make(random, tag);
            const std::optional<Held> held = Hold(property);
            const ULONG type = PROP_TYPE(tag);
            const bool isPayload = type == PT_STRING8 || type == PT_UNICODE || type == PT_BINARY;
            try
            {
                const Value value = Mapi::GetValueFromMapiProperty(&property);
                ASSERT_TRUE(held && isPayload);
                const std::size_t terminator = type == PT_BINARY ? 0 : type == PT_UNICODE ? sizeof(wchar_t) : 1;
                ASSERT_EQ(value.GetSize() + terminator, held->payload.size());
                ASSERT_EQ(Bytes(value.GetBuffer(), value.GetBuffer() + held->payload.size()), held->payload);
            }
            catch (const CException&)
            {
                ASSERT_FALSE(held && isPayload);
            }
        });
}

TEST(GeneratedPropertyLists, ThatAStoreGivesAreAlteredOnlyWhereTheyMustBe)
{
    Tests::RunCases("properties of stores", 300'000,
                    [](Random& random)
                    {
                        const ModifyStores modify(random.Chance(1, 3));
                        WrappedStore wrapped;
                        Tests::FakeStore& store = wrapped.store;
                        Tests::Properties properties;
                        std::vector<SPropValue> given;
                        for (std::size_t left = random.Below(10); left > 0; --left)
                            given.push_back(properties.Make(random));
                        Bytes root = Tests::MakeBytes(random, 200);
                        const bool hasRoot = random.Chance(9, 10);
                        store.readResult = random.Chance(1, 10) ? MAPI_W_ERRORS_RETURNED : S_OK;
                        store.answer = [&](const SPropTagArray* tags)
                        {
                            if (!tags)
                                return given;
                            SPropValue value = {};
                            value.ulPropTag = hasRoot ? 0x7FE20102 : PROP_TAG(PT_ERROR, 0x7FE2);
                            if (hasRoot)
                                value.Value.bin = {static_cast<ULONG>(root.size()), root.data()};
                            else
                                value.Value.err = MAPI_E_NOT_FOUND;
                            return std::vector<SPropValue>{value};
                        };
                        root.reserve(1);
                        bool asksForRoot = false;
                        for (const SPropValue& value : given)
                            asksForRoot = asksForRoot || value.ulPropTag == PR_IPM_SUBTREE_ENTRYID;
                        // A warning is no answer to the question for one property.
                        const bool canRead = hasRoot;

                        ULONG count = 0;
                        SPropValue* values = nullptr;
                        const HRESULT hr = wrapped.wrapper->GetProps(nullptr, 0, &count, &values);
                        const Mapi::PropValuePointer owner(values);
                        if (asksForRoot && !canRead)
                        {
                            ASSERT_EQ(hr, E_FAIL);
                            return;
                        }
                        ASSERT_EQ(hr, store.readResult);
                        ASSERT_EQ(count, given.size());
                        for (ULONG index = 0; index < count; ++index)
                        {
                            SPropValue expected = given[index];
                            const bool isModifiable = Nst::GetModifyStores();
                            switch (expected.ulPropTag)
                            {
                            case PR_ACCESS:
                                expected.Value.l = isModifiable ? expected.Value.l : 2;
                                break;
                            case PR_ACCESS_LEVEL:
                                expected.Value.l = isModifiable ? expected.Value.l : 0;
                                break;
                            case PR_STORE_SUPPORT_MASK:
                            case PR_STORE_UNICODE_MASK:
                                expected.Value.l = static_cast<LONG>(
                                    isModifiable ? static_cast<ULONG>(expected.Value.l) & ~0x00200000u
                                                 : (static_cast<ULONG>(expected.Value.l) & ~0x00200018u) | 0x2u);
                                break;
                            case PR_IPM_SUBTREE_ENTRYID:
                                ASSERT_EQ(values[index].ulPropTag, expected.ulPropTag);
                                ASSERT_EQ(Tests::BytesOfBinary(values[index].Value.bin), root);
                                continue;
                            default:
                                break;
                            }
                            // Every byte, whatever the type.
                            // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison)
                            ASSERT_EQ(std::memcmp(&values[index], &expected, sizeof(expected)), 0)
                                << std::hex << expected.ulPropTag;
                        }
                    });
}

TEST(GeneratedPropertyLists, ThatAClientWritesAreRefusedOrReachTheStore)
{
    Tests::RunCases(
        "properties written to stores", 60'000,
        [](Random& random)
        {
            const ModifyStores modify(random.Chance(1, 4));
            WrappedStore wrapped;
            LastLines log;
            Tests::Properties properties;
            std::vector<SPropValue> given;
            for (std::size_t left = random.Below(6); left > 0; --left)
                given.push_back(properties.Make(random));
            const bool isRefused =
                !Nst::GetModifyStores() && std::any_of(given.begin(), given.end(), [](const SPropValue& value)
                                                       { return !IsWritable(value.ulPropTag); });
            bool isQuiet = false;
            for (const SPropValue& value : given)
            {
                if (IsWritable(value.ulPropTag))
                    continue;
                isQuiet = value.ulPropTag == PR_IPM_SUBTREE_ENTRYID;
                break;
            }

            const auto count = static_cast<ULONG>(given.size());
            ASSERT_EQ(wrapped.wrapper->SetProps(count, given.data(), nullptr), isRefused ? MAPI_E_NO_ACCESS : S_OK);
            ASSERT_EQ(wrapped.store.writes, isRefused ? 0 : 1);
            ASSERT_EQ(log.entry.empty(), !isRefused || isQuiet);
            ASSERT_EQ(log.detail, isRefused && !isQuiet ? NamesOf(given) : L"");

            log.detail.clear();
            TagArray tags(given);
            ASSERT_EQ(wrapped.wrapper->DeleteProps(tags.Get(), nullptr), isRefused ? MAPI_E_NO_ACCESS : S_OK);
            ASSERT_EQ(wrapped.store.deletions, isRefused ? 0 : 1);
            ASSERT_EQ(log.detail, isRefused ? NamesOf(given) : L"");
        });
}

TEST(GeneratedPropertyLists, ThatAStoreGivesForItsNameAreReadOrRefused)
{
    Tests::RunCases("display names", 150'000,
                    [](Random& random)
                    {
                        Tests::FakeStore store;
                        Tests::Properties properties;
                        const ULONG type = random.Chance(1, 2) ? PT_UNICODE : Tests::MakeType(random);
                        const SPropValue value = properties.Make(random, PROP_TAG(type, 0x3001));
                        store.answer = [&](const SPropTagArray*) { return std::vector<SPropValue>{value}; };
                        const bool isText = type == PT_UNICODE || type == PT_STRING8;
                        try
                        {
                            const StringW name = Mapi::QueryItemDisplayName(&store);
                            ASSERT_TRUE(isText);
                            if (type == PT_UNICODE)
                                ASSERT_EQ(Tests::Text(name), value.Value.lpszW ? value.Value.lpszW : L"");
                        }
                        catch (const CException&)
                        {
                            ASSERT_FALSE(isText);
                        }
                    });
}
