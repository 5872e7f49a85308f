// Wrapping and unwrapping of store entry IDs.
#include "common/StoreEntryId.h"

#include <algorithm>
#include <iterator>

namespace Common
{
namespace
{
constexpr BYTE storeUid[16] = {0x38, 0xA1, 0xBB, 0x10, 0x05, 0xE5, 0x10, 0x1A,
                               0xA1, 0xBB, 0x08, 0x00, 0x2B, 0x2A, 0x56, 0xC2};
// The flags, the identifier, and the bytes of version and flag.
constexpr size_t nameOffset = 4 + sizeof(storeUid) + 2;

constexpr size_t RoundUpTo4(size_t size)
{
    return (size + 3) & ~size_t(3);
}
} // namespace

Bytes WrapStoreEntryId(std::string_view dllName, const void* entryId, size_t size)
{
    Bytes wrapped(RoundUpTo4(nameOffset + dllName.size() + 1) + size);
    std::copy(std::begin(storeUid), std::end(storeUid), wrapped.begin() + 4);
    std::copy(dllName.begin(), dllName.end(), wrapped.begin() + nameOffset);
    const BYTE* original = static_cast<const BYTE*>(entryId);
    std::copy(original, original + size, wrapped.end() - static_cast<std::ptrdiff_t>(size));
    return wrapped;
}

std::optional<StoreEntryId> UnwrapStoreEntryId(const void* entryId, size_t size)
{
    const BYTE* bytes = static_cast<const BYTE*>(entryId);
    if (!bytes || size <= nameOffset || !std::equal(std::begin(storeUid), std::end(storeUid), bytes + 4))
        return {};
    const BYTE* const end = bytes + size;
    const BYTE* const name = bytes + nameOffset;
    const BYTE* const terminator = std::find(name, end, BYTE(0));
    if (terminator == end)
        return {};
    const size_t start = RoundUpTo4(static_cast<size_t>(terminator - bytes) + 1);
    if (start > size)
        return {};
    return StoreEntryId{std::string(name, terminator), Bytes(bytes + start, end)};
}
} // namespace Common
