// SetOLFIInOST.
#include "nst/Olfi.h"

#include "support/CallWrapping.h"
#include "support/MapiProperties.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace Quillon::Nst
{
namespace
{

// The property's value: 80 bytes, little-endian, of which only these are touched.
constexpr std::size_t olfiSize = 80;
constexpr std::size_t firstCountOffset = 24;
constexpr std::size_t secondCountOffset = 28;
constexpr std::size_t firstRangeOffset = 32;
constexpr std::size_t secondRangeOffset = 56;

/// A range: a GUID and six bytes; empty when all of them are zero.
constexpr std::size_t rangeSize = 22;

/// How many identifiers a new range has left.
constexpr std::uint32_t newRangeCount = 0x80000000;
/// A first range with this many left needs no second one yet.
constexpr std::uint32_t ampleCount = 0x40000000;

bool IsEmptyRange(const BYTE* range) noexcept
{
    return std::all_of(range, range + rangeSize, [](BYTE byte) { return byte == 0; });
}

std::uint32_t ReadCount(const BYTE* olfi, std::size_t offset) noexcept
{
    std::uint32_t count = 0;
    std::memcpy(&count, olfi + offset, sizeof(count));
    return count;
}

void AllocateRange(BYTE* olfi, std::size_t rangeOffset, std::size_t countOffset) noexcept
{
    GUID guid = {};
    CoCreateGuid(&guid);
    std::memcpy(olfi + rangeOffset, &guid, sizeof(guid));
    std::memcpy(olfi + countOffset, &newRangeCount, sizeof(newRangeCount));
}

} // namespace

void SetOLFIInOST(IMsgStore* store)
{
    constexpr auto function = L"SetOLFIInOST";
    if (!store)
        Throw(CComError(E_INVALIDARG), function);

    BYTE olfi[olfiSize] = {};
    const Binary stored(Mapi::TryQueryItemPropertyValue(store, PR_OST_OLFI));
    if (!stored.IsNull())
    {
        if (stored.GetSize() != olfiSize)
        {
            Throw(
                CRuntimeError(L"Buffer returned for PR_OST_OLFI has unexpected length: " + stored.FormatSize(), false),
                function);
        }
        std::memcpy(olfi, stored.GetBuffer(), olfiSize);
    }

    if (IsEmptyRange(olfi + firstRangeOffset))
        AllocateRange(olfi, firstRangeOffset, firstCountOffset);
    else if (ReadCount(olfi, firstCountOffset) < ampleCount && IsEmptyRange(olfi + secondRangeOffset))
        AllocateRange(olfi, secondRangeOffset, secondCountOffset);
    else
        return;

    SPropValue property = {};
    property.ulPropTag = PR_OST_OLFI;
    property.Value.bin = {olfiSize, olfi};
    Mapi::HrSetOneProp(store, &property);
}

} // namespace Quillon::Nst
