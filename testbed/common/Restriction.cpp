// MAPI restrictions as checked, owned trees.
#include "testbed/common/Restriction.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"

#include <algorithm>

namespace Testbed
{
namespace
{
constexpr int maxDepth = 64;
constexpr ULONG fuzzyKind = 0xFFFF;

bool IsSingleText(ULONG type)
{
    return type == PT_STRING8 || type == PT_UNICODE;
}

ULONG SingleType(ULONG type)
{
    return type & ~ULONG(MV_FLAG | MV_INSTANCE);
}

void RequireComparable(ULONG typeA, ULONG typeB)
{
    const ULONG a = SingleType(typeA);
    const ULONG b = SingleType(typeB);
    if (a != b && !(IsSingleText(a) && IsSingleText(b)))
        Fail(MAPI_E_TOO_COMPLEX, L"A restriction compares values of different types.");
}

void RequireRelation(ULONG relation)
{
    if (relation == RELOP_RE)
        Fail(MAPI_E_TOO_COMPLEX, L"Regular expressions are not supported in restrictions.");
    if (relation > RELOP_NE)
        Fail(MAPI_E_INVALID_PARAMETER, L"A restriction has an unknown relation.");
}

// Whether a test holds for one of a multi-valued property's values, or for a single-valued one.
template <class Test>
bool AnySingle(const PropValue& value, Test test)
{
    const ULONG tag = CHANGE_PROP_TYPE(value.Tag(), SingleType(value.Type()));
    const auto split = [&]<class T>(const T& payload)
    {
        if constexpr (!std::is_same_v<T, std::string> && !std::is_same_v<T, std::wstring> &&
                      !std::is_same_v<T, Bytes> && requires { payload.begin(); })
        {
            return std::any_of(payload.begin(), payload.end(),
                               [&](const auto& element) { return test(PropValue(tag, element)); });
        }
        else
        {
            return test(value);
        }
    };
    return std::visit(split, value.Data());
}

bool Holds(ULONG relation, int order)
{
    switch (relation)
    {
    case RELOP_LT:
        return order < 0;
    case RELOP_LE:
        return order <= 0;
    case RELOP_GT:
        return order > 0;
    case RELOP_GE:
        return order >= 0;
    case RELOP_EQ:
        return order == 0;
    default:
        return order != 0;
    }
}

std::wstring WithoutNonSpacing(const std::wstring& text)
{
    if (text.empty())
        return text;
    const int length = static_cast<int>(text.size());
    const int needed = FoldStringW(MAP_COMPOSITE, text.data(), length, nullptr, 0);
    std::wstring composite(static_cast<size_t>(needed), L'\0');
    FoldStringW(MAP_COMPOSITE, text.data(), length, composite.data(), needed);
    std::vector<WORD> kinds(composite.size());
    if (!GetStringTypeW(CT_CTYPE3, composite.data(), needed, kinds.data()))
        return text;
    std::wstring plain;
    for (size_t i = 0; i < composite.size(); ++i)
        if (!(kinds[i] & C3_NONSPACING))
            plain += composite[i];
    return plain;
}

// The text with what the fuzzy level ignores taken out of it.
std::wstring Folded(std::wstring text, ULONG fuzzyLevel)
{
    if (fuzzyLevel & (FL_IGNORENONSPACE | FL_LOOSE))
        text = WithoutNonSpacing(text);
    if ((fuzzyLevel & (FL_IGNORECASE | FL_LOOSE)) && !text.empty())
        CharUpperBuffW(text.data(), static_cast<DWORD>(text.size()));
    return text;
}

template <class Text>
bool IsFound(const Text& text, const Text& pattern, ULONG fuzzyLevel)
{
    switch (fuzzyLevel & fuzzyKind)
    {
    case FL_SUBSTRING:
        return std::search(text.begin(), text.end(), pattern.begin(), pattern.end()) != text.end() || pattern.empty();
    case FL_PREFIX:
        return text.size() >= pattern.size() && std::equal(pattern.begin(), pattern.end(), text.begin());
    default:
        return text == pattern;
    }
}

bool MatchesContent(const PropValue& own, const PropValue& wanted, ULONG fuzzyLevel)
{
    if (wanted.Type() == PT_BINARY)
    {
        return AnySingle(
            own, [&](const PropValue& value)
            { return value.Type() == PT_BINARY && IsFound(value.AsBytes(), wanted.AsBytes(), fuzzyLevel); });
    }
    const std::wstring pattern = Folded(wanted.AsText(), fuzzyLevel);
    return AnySingle(
        own, [&](const PropValue& value)
        { return IsSingleText(value.Type()) && IsFound(Folded(value.AsText(), fuzzyLevel), pattern, fuzzyLevel); });
}

bool MatchesProperty(const PropValue& own, const PropValue& wanted, ULONG relation)
{
    const auto holds = [&](const PropValue& value)
    {
        const auto order = Compare(value, wanted);
        return order && Holds(relation, *order);
    };
    return wanted.Type() & MV_FLAG ? holds(own) : AnySingle(own, holds);
}

// Copies of values or parts, linked to `parent`; a block also for none.
template <class To, class From>
To* LinkedCopies(const std::vector<From>& list, const MapiMemory& memory, void* parent)
{
    auto* copies = static_cast<To*>(memory.AllocateMore(std::max<size_t>(list.size(), 1) * sizeof(To), parent));
    for (size_t i = 0; i < list.size(); ++i)
        list[i].CopyTo(copies[i], memory, parent);
    return copies;
}

Restriction CopyNode(const SRestriction* restriction, int depth)
{
    Require(restriction);
    if (depth > maxDepth)
        Fail(MAPI_E_TOO_COMPLEX, L"A restriction is nested too deeply.");
    Restriction copy;
    copy.kind = restriction->rt;
    const auto& given = restriction->res;
    const auto addParts = [&](ULONG count, const SRestriction* parts)
    {
        if (count)
            Require(parts);
        for (ULONG i = 0; i < count; ++i)
            copy.parts.push_back(CopyNode(parts + i, depth + 1));
    };
    const auto addValue = [&](const SPropValue* value)
    {
        Require(value);
        copy.values.push_back(PropValue::From(*value));
        RequireComparable(PROP_TYPE(copy.tag), copy.values.front().Type());
    };
    switch (restriction->rt)
    {
    case RES_AND:
    case RES_OR:
        // Both have the same layout.
        addParts(given.resAnd.cRes, given.resAnd.lpRes);
        break;
    case RES_NOT:
        addParts(1, given.resNot.lpRes);
        break;
    case RES_CONTENT:
        copy.mode = given.resContent.ulFuzzyLevel;
        copy.tag = given.resContent.ulPropTag;
        addValue(given.resContent.lpProp);
        if (const ULONG type = copy.values.front().Type(); !IsSingleText(type) && type != PT_BINARY)
            Fail(MAPI_E_TOO_COMPLEX, L"Content restrictions work on strings and binaries only.");
        if ((copy.mode & fuzzyKind) > FL_PREFIX)
            Fail(MAPI_E_INVALID_PARAMETER, L"A content restriction has an unknown fuzzy level.");
        break;
    case RES_PROPERTY:
        copy.mode = given.resProperty.relop;
        copy.tag = given.resProperty.ulPropTag;
        RequireRelation(copy.mode);
        addValue(given.resProperty.lpProp);
        break;
    case RES_COMPAREPROPS:
        copy.mode = given.resCompareProps.relop;
        copy.tag = given.resCompareProps.ulPropTag1;
        copy.other = given.resCompareProps.ulPropTag2;
        RequireRelation(copy.mode);
        RequireComparable(PROP_TYPE(copy.tag), PROP_TYPE(copy.other));
        break;
    case RES_BITMASK:
        copy.mode = given.resBitMask.relBMR;
        copy.tag = given.resBitMask.ulPropTag;
        copy.other = given.resBitMask.ulMask;
        if (copy.mode > BMR_NEZ)
            Fail(MAPI_E_INVALID_PARAMETER, L"A bit mask restriction has an unknown relation.");
        if (PROP_TYPE(copy.tag) != PT_LONG)
            Fail(MAPI_E_TOO_COMPLEX, L"Bit mask restrictions work on PT_LONG properties only.");
        break;
    case RES_SIZE:
        copy.mode = given.resSize.relop;
        copy.tag = given.resSize.ulPropTag;
        copy.other = given.resSize.cb;
        RequireRelation(copy.mode);
        break;
    case RES_EXIST:
        copy.tag = given.resExist.ulPropTag;
        break;
    case RES_COMMENT:
        copy.values = CopyProps(given.resComment.cValues, given.resComment.lpProp);
        addParts(given.resComment.lpRes ? 1 : 0, given.resComment.lpRes);
        break;
    case RES_SUBRESTRICTION:
        Fail(MAPI_E_TOO_COMPLEX, L"Restrictions on recipients and attachments are not supported.");
    default:
        Fail(MAPI_E_INVALID_PARAMETER, L"A restriction is of an unknown kind.");
    }
    return copy;
}
} // namespace

Restriction Restriction::Copy(const SRestriction* restriction)
{
    return CopyNode(restriction, 0);
}

bool Restriction::IsWhole() const noexcept
{
    switch (kind)
    {
    case RES_NOT:
        return parts.size() == 1;
    case RES_CONTENT:
    case RES_PROPERTY:
        return values.size() == 1;
    default:
        return kind <= RES_COMMENT && kind != RES_SUBRESTRICTION;
    }
}

bool Restriction::Matches(const PropertySource& properties) const
{
    const auto matches = [&](const Restriction& part) { return part.Matches(properties); };
    switch (kind)
    {
    case RES_OR:
        return std::any_of(parts.begin(), parts.end(), matches);
    case RES_NOT:
        return !matches(parts.front());
    case RES_AND:
    case RES_COMMENT:
        return std::all_of(parts.begin(), parts.end(), matches);
    case RES_EXIST:
        return properties.Describe(PROP_ID(tag)).has_value();
    default:
        break;
    }
    const auto own = properties.Load(PROP_ID(tag));
    if (!own)
        return false;
    switch (kind)
    {
    case RES_CONTENT:
        return MatchesContent(*own, values.front(), mode);
    case RES_PROPERTY:
        return MatchesProperty(*own, values.front(), mode);
    case RES_COMPAREPROPS:
    {
        const auto second = properties.Load(PROP_ID(other));
        const auto order = second ? Compare(*own, *second) : std::nullopt;
        return order && Holds(mode, *order);
    }
    case RES_BITMASK:
        return own->Type() == PT_LONG && ((static_cast<ULONG>(own->AsLong()) & other) != 0) == (mode == BMR_NEZ);
    default:
        return Holds(mode, own->Size() < other ? -1 : own->Size() > other ? 1 : 0);
    }
}

void Restriction::CopyTo(SRestriction& target, const MapiMemory& memory, void* parent) const
{
    const auto linkedParts = [&] { return LinkedCopies<SRestriction>(parts, memory, parent); };
    const auto linkedValues = [&] { return LinkedCopies<SPropValue>(values, memory, parent); };
    const auto partCount = static_cast<ULONG>(parts.size());
    target.rt = kind;
    switch (kind)
    {
    case RES_AND:
    case RES_OR:
        target.res.resAnd = {partCount, linkedParts()};
        break;
    case RES_NOT:
        target.res.resNot = {0, linkedParts()};
        break;
    case RES_CONTENT:
        target.res.resContent = {mode, tag, linkedValues()};
        break;
    case RES_PROPERTY:
        target.res.resProperty = {mode, tag, linkedValues()};
        break;
    case RES_COMPAREPROPS:
        target.res.resCompareProps = {mode, tag, other};
        break;
    case RES_BITMASK:
        target.res.resBitMask = {mode, tag, other};
        break;
    case RES_SIZE:
        target.res.resSize = {mode, tag, other};
        break;
    case RES_COMMENT:
        target.res.resComment = {static_cast<ULONG>(values.size()), parts.empty() ? nullptr : linkedParts(),
                                 linkedValues()};
        break;
    default:
        target.res.resExist = {0, tag, 0};
        break;
    }
}

LPSRestriction MakeRestriction(const MapiMemory& memory, const Restriction& restriction)
{
    MapiBlock<SRestriction> block(memory, static_cast<SRestriction*>(memory.Allocate(sizeof(SRestriction))));
    restriction.CopyTo(*block.Get(), memory, block.Get());
    return block.Detach();
}
} // namespace Testbed
