// Making bytes, texts and properties.
#include "tests/generated/Generator.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace Tests
{
namespace
{

constexpr std::wstring_view pieces[] = {
    L"%",         L"%%",     L"%s",     L"%n",     L"%hs",     L"%1!s!",  L"%*.*f",
    L"100% full", L"%2F",    L"\xD800", L"\xDBFF", L"\xDC00",  L"\xDFFF", L"\xD83D\xDCE7",
    L"\xFFFF",    L"\xFEFF", L"\x202E", L"\x00FC", L"\x0416",  L"\x1",    L"\r\n",
    L"\n",        L"\t",     L"\\",     L"/",      L"..\\",    L":",      L"\"",
    L"'",         L"[",      L"]",      L"=",      L";",       L" ",      L"*",
    L"?",         L"|",      L"a",      L"B7",     L"archive",
};

constexpr std::string_view narrowPieces[] = {
    "%",   "%s", "%n", "%hs", "\xFF", "\xC3", "\xC3\xBC", "\xED\xA0\x80", "\x80", "\x81",
    "\x1", "\n", "\\", "/",   "\"",   " ",    "a",        "archive",
};

constexpr ULONG types[] = {
    PT_UNSPECIFIED, PT_NULL,      PT_I2,         PT_LONG,        PT_R4,         PT_DOUBLE,
    PT_CURRENCY,    PT_APPTIME,   PT_ERROR,      PT_BOOLEAN,     PT_OBJECT,     PT_I8,
    PT_STRING8,     PT_UNICODE,   PT_SYSTIME,    PT_CLSID,       PT_BINARY,     PT_MV_I2,
    PT_MV_LONG,     PT_MV_R4,     PT_MV_DOUBLE,  PT_MV_CURRENCY, PT_MV_APPTIME, PT_MV_SYSTIME,
    PT_MV_STRING8,  PT_MV_BINARY, PT_MV_UNICODE, PT_MV_CLSID,    PT_MV_I8,      PT_LONG | MV_INSTANCE | MV_FLAG};

/// Those that the library looks at, and some that have a name.
constexpr ULONG tags[] = {PR_ACCESS,
                          PR_ACCESS_LEVEL,
                          PR_STORE_SUPPORT_MASK,
                          PR_STORE_UNICODE_MASK,
                          PR_IPM_SUBTREE_ENTRYID,
                          PR_DISPLAY_NAME_W,
                          PR_DISPLAY_NAME_A,
                          PR_ENTRYID,
                          PR_RECORD_KEY,
                          PR_RIGHTS,
                          PR_OST_OLFI,
                          PR_SEARCH,
                          PR_SUBJECT_W,
                          PR_BODY_A,
                          PR_NULL,
                          PROP_TAG(PT_BINARY, 0x7FE2),
                          PROP_TAG(PT_BINARY, 0x7FE7),
                          PROP_TAG(PT_BINARY, 0x7FE8),
                          PROP_TAG(PT_SYSTIME, 0x7FE9),
                          PROP_TAG(PT_UNICODE, 0x7FEB),
                          PROP_TAG(PT_LONG, 0x7FE2)};

std::size_t MakeLength(Random& random, std::size_t most)
{
    if (random.Chance(1, 8))
        return 0;
    return random.Chance(1, 200) ? random.Below(most + 1) : random.Below(std::min<std::size_t>(most, 24) + 1);
}

} // namespace

Bytes MakeBytesOfSize(Random& random, std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t at = 0; at < size;)
    {
        const std::size_t run = std::min(size - at, random.Below(12) + 1);
        const std::size_t kind = random.Below(4);
        for (const std::size_t end = at + run; at < end; ++at)
            bytes[at] = kind == 0 ? BYTE(0) : kind == 1 ? BYTE(0xFF) : static_cast<BYTE>(random.Next());
    }
    return bytes;
}

Bytes MakeBytes(Random& random, std::size_t most)
{
    return MakeBytesOfSize(random, MakeLength(random, most));
}

std::wstring MakeText(Random& random)
{
    std::wstring text;
    for (std::size_t left = MakeLength(random, 2000); left > 0; --left)
        if (random.Chance(1, 4))
        {
            const auto character =
                static_cast<wchar_t>(random.Chance(1, 2) ? random.Below(0x7F) : random.Below(0x10000));
            text += character ? character : L'0';
        }
        else
            text += random.Of(pieces);
    return text;
}

std::string MakeNarrowText(Random& random)
{
    std::string text;
    for (std::size_t left = MakeLength(random, 2000); left > 0; --left)
        text += random.Of(narrowPieces);
    return text;
}

std::wstring MakeTextOf(Random& random, std::wstring_view characters, std::size_t most)
{
    std::wstring text(random.Below(most + 1), L'\0');
    std::generate(text.begin(), text.end(), [&] { return random.Of(characters); });
    return text;
}

ULONG MakeType(Random& random)
{
    return random.Chance(1, 10) ? static_cast<ULONG>(random.Below(0x10000)) : random.Of(types);
}

ULONG MakeTag(Random& random)
{
    if (random.Chance(1, 3))
        return random.Of(tags);
    // Most of the named ones lie below 0x4000.
    const auto id = static_cast<ULONG>(random.Chance(1, 2) ? random.Below(0x4000) : random.Below(0x10000));
    return PROP_TAG(MakeType(random), id);
}

BYTE* Properties::Keep(Bytes bytes)
{
    return m_bytes.emplace_back(std::move(bytes)).data();
}

wchar_t* Properties::Keep(std::wstring text)
{
    return m_texts.emplace_back(std::move(text)).data();
}

char* Properties::Keep(std::string text)
{
    return m_narrowTexts.emplace_back(std::move(text)).data();
}

SPropValue Properties::Make(Random& random, ULONG tag)
{
    SPropValue value = {};
    value.ulPropTag = tag;
    value.dwAlignPad = static_cast<ULONG>(random.Next());
    const auto makeBinary = [&]() -> SBinary
    {
        Bytes bytes = MakeBytes(random, 5000);
        const auto size = static_cast<ULONG>(bytes.size());
        if (random.Chance(1, 12))
            return {random.Chance(1, 2) ? 0 : static_cast<ULONG>(random.Next()), nullptr};
        bytes.push_back(0); // so that an empty one has an address
        return {size, Keep(std::move(bytes))};
    };
    switch (PROP_TYPE(tag))
    {
    case PT_STRING8:
        value.Value.lpszA = random.Chance(1, 20) ? nullptr : Keep(MakeNarrowText(random));
        break;
    case PT_UNICODE:
        value.Value.lpszW = random.Chance(1, 20) ? nullptr : Keep(MakeText(random));
        break;
    case PT_BINARY:
        value.Value.bin = makeBinary();
        break;
    case PT_MV_BINARY:
    {
        std::vector<SBinary>& list = m_binaries.emplace_back();
        for (std::size_t left = random.Below(4); left > 0; --left)
            list.push_back(makeBinary());
        value.Value.MVbin = {static_cast<ULONG>(list.size()), list.data()};
        break;
    }
    case PT_MV_UNICODE:
    {
        std::vector<wchar_t*>& list = m_pointers.emplace_back();
        for (std::size_t left = random.Below(4); left > 0; --left)
            list.push_back(Keep(MakeText(random)));
        value.Value.MVszW = {static_cast<ULONG>(list.size()), list.data()};
        break;
    }
    default:
        // Whatever the type, nothing but a number: a pointer that must not be looked behind.
        value.Value.li.QuadPart = static_cast<LONGLONG>(random.Next());
        break;
    }
    return value;
}

Bytes BytesOfBinary(const SBinary& binary)
{
    return binary.lpb ? Bytes(binary.lpb, binary.lpb + binary.cb) : Bytes();
}

} // namespace Tests
