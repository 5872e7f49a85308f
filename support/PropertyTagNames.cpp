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

#define KIVNST_TAG(name) TagName{name, L"" #name},
constexpr auto tagNames = []
{
    std::array sorted{
#include "support/PropertyTagNames.inc"
    };
    // Where two names share a tag, the one that the header gives first stays in front. Sorting in a constant
    // expression has no stable form, so the place in the header decides between equals.
    for (std::size_t index = 1; index < sorted.size(); ++index)
    {
        for (std::size_t at = index; at > 0 && sorted[at].tag < sorted[at - 1].tag; --at)
            std::swap(sorted[at], sorted[at - 1]);
    }
    return sorted;
}();
#undef KIVNST_TAG

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
