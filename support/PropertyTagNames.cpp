// The names of property tags.
#include "support/Format.h"
#include "support/MapiProperties.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace Quillon::Mapi
{
namespace
{

struct TagName
{
    ULONG tag;
    const wchar_t* name;
};

#define KIVNST_TAG(name) {name, L"" #name},
constexpr TagName headerOrder[] = {
#include "support/PropertyTagNames.inc"
};
#undef KIVNST_TAG

/// The names in the order of their tags. Where two share a tag, the one that the header gives first stays in front.
constexpr auto tagNames = []
{
    std::array<TagName, std::size(headerOrder)> sorted{};
    for (std::size_t index = 0; index < sorted.size(); ++index)
    {
        std::size_t at = index;
        for (; at > 0 && headerOrder[index].tag < sorted[at - 1].tag; --at)
            sorted[at] = sorted[at - 1];
        sorted[at] = headerOrder[index];
    }
    return sorted;
}();

} // namespace

StringW FormatMapiPropertyTag(ULONG tag)
{
    const auto found = std::lower_bound(std::begin(tagNames), std::end(tagNames), tag,
                                        [](const TagName& entry, ULONG sought) { return entry.tag < sought; });
    if (found != std::end(tagNames) && found->tag == tag)
        return StringW(found->name);
    return FormatString(L"0x%08lX", tag);
}

} // namespace Quillon::Mapi
