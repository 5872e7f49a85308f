// What the cases are made of: bytes, texts and properties, more often than not such as do harm.
#pragma once

#include "support/MapiHeaders.h"
#include "tests/generated/Cases.h"

#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace Tests
{

using Bytes = std::vector<BYTE>;

/// Up to `most` bytes, often runs of 0 or 0xFF.
Bytes MakeBytes(Random& random, std::size_t most);
/// Exactly so many.
Bytes MakeBytesOfSize(Random& random, std::size_t size);

/// A text without zeros: percent signs, lone surrogates, control characters, what paths and INI files take for their
/// own, and plain text. Mostly short.
std::wstring MakeText(Random& random);
/// The same of single bytes, which need be no text of any code page.
std::string MakeNarrowText(Random& random);
/// A text of at most `most` characters out of `characters`.
std::wstring MakeTextOf(Random& random, std::wstring_view characters, std::size_t most);

/// A property type: one of those that there are, or anything.
ULONG MakeType(Random& random);
/// A tag: well known, named, or anything.
ULONG MakeTag(Random& random);

/// Property values of every type with what they point to; some contradict themselves, as a broken provider's would:
/// null pointers, binaries of a size without an address, unknown types. Strings are always terminated: what is not
/// cannot be told apart.
class Properties
{
public:
    SPropValue Make(Random& random, ULONG tag);
    SPropValue Make(Random& random) { return Make(random, MakeTag(random)); }

private:
    BYTE* Keep(Bytes bytes);
    wchar_t* Keep(std::wstring text);
    char* Keep(std::string text);

    // Their elements stay where they are.
    std::deque<Bytes> m_bytes;
    std::deque<std::wstring> m_texts;
    std::deque<std::string> m_narrowTexts;
    std::deque<std::vector<SBinary>> m_binaries;
    std::deque<std::vector<wchar_t*>> m_pointers;
};

/// The bytes of a binary, none when it has no address.
Bytes BytesOfBinary(const SBinary& binary);

} // namespace Tests
