// The names of property tags.
#include "support/Format.h"
#include "support/MapiProperties.h"

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
constexpr TagName tagNames[] = {
#include "support/PropertyTagNames.inc"
};
#undef KIVNST_TAG

} // namespace

StringW FormatMapiPropertyTag(ULONG tag)
{
    // Where two names share a tag, the first stands.
    for (const TagName& entry : tagNames)
        if (entry.tag == tag)
            return StringW(entry.name);
    return FormatString(L"0x%08lX", tag);
}

} // namespace Quillon::Mapi
