// How a store is named in profiles.
#include "testbed/pst/StoreIdentity.h"

#include "common/Boundary.h"
#include "common/StoreEntryId.h"
#include "testbed/common/Namespace.h"
#include "testbed/common/PropCodec.h"

#include <algorithm>
#include <cstring>

namespace Testbed::Pst
{
namespace
{
constexpr size_t pathOffset = 22;
constexpr size_t uidOffset = 4;

struct TagList
{
    ULONG count;
    ULONG tags[4];
};

Bytes Unwrapped(const void* entryId, size_t size)
{
    if (!entryId || size == 0)
        return {};
    if (auto unwrapped = UnwrapStoreEntryId(entryId, size))
        return std::move(unwrapped->entryId);
    const auto* bytes = static_cast<const BYTE*>(entryId);
    return Bytes(bytes, bytes + size);
}
} // namespace

const MAPIUID providerUid = {
    {0x1C, 0x83, 0x02, 0xA4, 0x6F, 0x51, 0x4B, 0x0D, 0x9E, 0x27, 0xD4, 0x5C, 0x3A, 0x90, 0x71, 0xEE}};

std::wstring FullPath(const std::wstring& path)
{
    std::wstring cleaned = path;
    std::replace(cleaned.begin(), cleaned.end(), L'/', L'\\');
    const DWORD size = GetFullPathNameW(cleaned.c_str(), 0, nullptr, nullptr);
    if (size == 0)
        return cleaned;
    std::wstring full(size, L'\0');
    full.resize(GetFullPathNameW(cleaned.c_str(), size, full.data(), nullptr));
    return full;
}

Bytes MakeStoreEntryId(const std::wstring& path)
{
    Bytes entryId(pathOffset + (path.size() + 1) * sizeof(wchar_t), 0);
    std::memcpy(entryId.data() + uidOffset, providerUid.ab, sizeof(providerUid.ab));
    std::memcpy(entryId.data() + pathOffset, path.data(), path.size() * sizeof(wchar_t));
    return entryId;
}

std::wstring PathOfStoreEntryId(const void* entryId, size_t size)
{
    const Bytes bytes = Unwrapped(entryId, size);
    if (bytes.size() < pathOffset + sizeof(wchar_t) || (bytes.size() - pathOffset) % sizeof(wchar_t) != 0)
        return {};
    std::wstring path((bytes.size() - pathOffset) / sizeof(wchar_t), L'\0');
    std::memcpy(path.data(), bytes.data() + pathOffset, path.size() * sizeof(wchar_t));
    if (path.back() != L'\0')
        return {};
    path.resize(path.find(L'\0'));
    return path;
}

bool SameStore(const void* entryId1, size_t size1, const void* entryId2, size_t size2)
{
    const Bytes first = Unwrapped(entryId1, size1);
    const Bytes second = Unwrapped(entryId2, size2);
    if (first.empty() || second.empty())
        return false;
    if (first == second)
        return true;
    const std::wstring path1 = PathOfStoreEntryId(first.data(), first.size());
    const std::wstring path2 = PathOfStoreEntryId(second.data(), second.size());
    if (path1.empty() || path2.empty() ||
        std::memcmp(first.data() + uidOffset, second.data() + uidOffset, sizeof(MAPIUID)) != 0)
    {
        return false;
    }
    const std::wstring full1 = FullPath(path1);
    const std::wstring full2 = FullPath(path2);
    return CompareStringOrdinal(full1.c_str(), -1, full2.c_str(), -1, TRUE) == CSTR_EQUAL;
}

std::wstring ReadPath(ULONG count, const SPropValue* values)
{
    std::wstring path;
    // Wide texts come later in the list than narrow ones of the same meaning, and win.
    const ULONG order[] = {Testbed::Tags::offlineStorePathA, Testbed::Tags::offlineStorePathW, Testbed::Tags::pstPathA,
                           Testbed::Tags::pstPathW};
    const std::vector<PropValue> copied = CopyProps(count, values);
    for (const ULONG tag : order)
    {
        for (const PropValue& value : copied)
            if (value.Tag() == tag && !value.AsText().empty())
                path = value.AsText();
    }
    return path;
}

std::wstring ReadPath(IProfSect& section, const MapiMemory& memory)
{
    static TagList tags = {4,
                           {Testbed::Tags::pstPathW, Testbed::Tags::pstPathA, Testbed::Tags::offlineStorePathW,
                            Testbed::Tags::offlineStorePathA}};
    ULONG count = 0;
    MapiBlock<SPropValue> values(memory);
    Check(section.GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, values.Put()),
          L"The profile section cannot be read");
    return ReadPath(count, values.Get());
}
} // namespace Testbed::Pst
