// MAPI restrictions as a tree of checked, owned nodes.
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

using Node = std::shared_ptr<const Restriction>;

bool IsText(ULONG type)
{
    return type == PT_STRING8 || type == PT_UNICODE;
}

ULONG SingleType(ULONG type)
{
    return type & ~ULONG(MV_FLAG | MV_INSTANCE);
}

bool Comparable(ULONG a, ULONG b)
{
    const ULONG x = SingleType(a);
    const ULONG y = SingleType(b);
    return x == y || (IsText(x) && IsText(y));
}

// A multi-valued property's values one by one; a single-valued one as it is.
std::vector<PropValue> Singles(const PropValue& value)
{
    std::vector<PropValue> singles;
    const ULONG tag = CHANGE_PROP_TYPE(value.Tag(), SingleType(value.Type()));
    const auto split = [&]<class T>(const T& payload)
    {
        if constexpr (!std::is_same_v<T, std::string> && !std::is_same_v<T, std::wstring> &&
                      !std::is_same_v<T, Bytes> && requires { payload.begin(); })
        {
            for (const auto& element : payload)
                singles.emplace_back(tag, element);
        }
        else
        {
            singles.push_back(value);
        }
    };
    std::visit(split, value.Data());
    return singles;
}

bool Holds(ULONG relop, int order)
{
    switch (relop)
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

void CheckRelop(ULONG relop)
{
    if (relop == RELOP_RE)
        Fail(MAPI_E_TOO_COMPLEX, L"Regular expressions are not supported in restrictions.");
    if (relop > RELOP_NE)
        Fail(MAPI_E_INVALID_PARAMETER, L"A restriction has an unknown relation.");
}

SPropValue* LinkedProp(const PropValue& value, const MapiMemory& memory, void* parent)
{
    auto* copy = static_cast<SPropValue*>(memory.AllocateMore(sizeof(SPropValue), parent));
    value.CopyTo(*copy, memory, parent);
    return copy;
}

SRestriction* LinkedNode(const Node& node, const MapiMemory& memory, void* parent)
{
    auto* copy = static_cast<SRestriction*>(memory.AllocateMore(sizeof(SRestriction), parent));
    node->CopyTo(*copy, memory, parent);
    return copy;
}

class Combination final : public Restriction
{
public:
    Combination(ULONG kind, std::vector<Node> parts) : m_kind(kind), m_parts(std::move(parts)) {}

    bool Matches(const PropertySource& properties) const override
    {
        const auto matches = [&properties](const Node& part) { return part->Matches(properties); };
        return m_kind == RES_AND ? std::all_of(m_parts.begin(), m_parts.end(), matches)
                                 : std::any_of(m_parts.begin(), m_parts.end(), matches);
    }

    void CopyTo(SRestriction& target, const MapiMemory& memory, void* parent) const override
    {
        const size_t size = std::max<size_t>(m_parts.size(), 1) * sizeof(SRestriction);
        auto* parts = static_cast<SRestriction*>(memory.AllocateMore(size, parent));
        for (size_t i = 0; i < m_parts.size(); ++i)
            m_parts[i]->CopyTo(parts[i], memory, parent);
        target.rt = m_kind;
        // Both kinds have the same layout.
        target.res.resAnd = {static_cast<ULONG>(m_parts.size()), parts};
    }

    Plan Planned() const override
    {
        Plan plan{m_kind, 0, 0, 0, {}, {}};
        for (const Node& part : m_parts)
            plan.parts.push_back(part->Planned());
        return plan;
    }

private:
    ULONG m_kind;
    std::vector<Node> m_parts;
};

class Negation final : public Restriction
{
public:
    explicit Negation(Node part) : m_part(std::move(part)) {}

    bool Matches(const PropertySource& properties) const override { return !m_part->Matches(properties); }

    void CopyTo(SRestriction& target, const MapiMemory& memory, void* parent) const override
    {
        target.rt = RES_NOT;
        target.res.resNot = {0, LinkedNode(m_part, memory, parent)};
    }

    Plan Planned() const override { return {RES_NOT, 0, 0, 0, {}, {m_part->Planned()}}; }

private:
    Node m_part;
};

class Comment final : public Restriction
{
public:
    Comment(Node part, std::vector<PropValue> values) : m_part(std::move(part)), m_values(std::move(values)) {}

    bool Matches(const PropertySource& properties) const override { return !m_part || m_part->Matches(properties); }

    void CopyTo(SRestriction& target, const MapiMemory& memory, void* parent) const override
    {
        const size_t size = std::max<size_t>(m_values.size(), 1) * sizeof(SPropValue);
        auto* values = static_cast<SPropValue*>(memory.AllocateMore(size, parent));
        for (size_t i = 0; i < m_values.size(); ++i)
            m_values[i].CopyTo(values[i], memory, parent);
        target.rt = RES_COMMENT;
        target.res.resComment = {static_cast<ULONG>(m_values.size()),
                                 m_part ? LinkedNode(m_part, memory, parent) : nullptr, values};
    }

    Plan Planned() const override
    {
        return {RES_COMMENT, 0, 0, 0, m_values, m_part ? std::vector<Plan>{m_part->Planned()} : std::vector<Plan>()};
    }

private:
    Node m_part;
    std::vector<PropValue> m_values;
};

class Property final : public Restriction
{
public:
    Property(ULONG relop, ULONG tag, PropValue value) : m_relop(relop), m_tag(tag), m_value(std::move(value)) {}

    bool Matches(const PropertySource& properties) const override
    {
        const auto own = properties.Load(PROP_ID(m_tag));
        if (!own)
            return false;
        const auto holds = [this](const PropValue& value)
        {
            const auto order = Compare(value, m_value);
            return order && Holds(m_relop, *order);
        };
        if ((own->Type() & MV_FLAG) && !(m_value.Type() & MV_FLAG))
        {
            const auto singles = Singles(*own);
            return std::any_of(singles.begin(), singles.end(), holds);
        }
        return holds(*own);
    }

    void CopyTo(SRestriction& target, const MapiMemory& memory, void* parent) const override
    {
        target.rt = RES_PROPERTY;
        target.res.resProperty = {m_relop, m_tag, LinkedProp(m_value, memory, parent)};
    }

    Plan Planned() const override { return {RES_PROPERTY, m_relop, m_tag, 0, {m_value}, {}}; }

private:
    ULONG m_relop;
    ULONG m_tag;
    PropValue m_value;
};

class Content final : public Restriction
{
public:
    Content(ULONG fuzzyLevel, ULONG tag, PropValue value)
        : m_fuzzyLevel(fuzzyLevel),
          m_tag(tag),
          m_value(std::move(value)),
          m_pattern(m_value.Type() == PT_BINARY ? std::wstring() : Folded(m_value.AsText()))
    {
    }

    bool Matches(const PropertySource& properties) const override
    {
        const auto own = properties.Load(PROP_ID(m_tag));
        if (!own)
            return false;
        const auto singles = Singles(*own);
        return std::any_of(singles.begin(), singles.end(), [this](const PropValue& value) { return Contains(value); });
    }

    void CopyTo(SRestriction& target, const MapiMemory& memory, void* parent) const override
    {
        target.rt = RES_CONTENT;
        target.res.resContent = {m_fuzzyLevel, m_tag, LinkedProp(m_value, memory, parent)};
    }

    Plan Planned() const override { return {RES_CONTENT, m_fuzzyLevel, m_tag, 0, {m_value}, {}}; }

private:
    template <class Text>
    bool Found(const Text& text, const Text& pattern) const
    {
        switch (m_fuzzyLevel & 0xFFFF)
        {
        case FL_SUBSTRING:
            return std::search(text.begin(), text.end(), pattern.begin(), pattern.end()) != text.end() ||
                   pattern.empty();
        case FL_PREFIX:
            return text.size() >= pattern.size() && std::equal(pattern.begin(), pattern.end(), text.begin());
        default:
            return text == pattern;
        }
    }

    bool Contains(const PropValue& value) const
    {
        if (m_value.Type() == PT_BINARY)
            return value.Type() == PT_BINARY && Found(value.AsBytes(), m_value.AsBytes());
        return IsText(value.Type()) && Found(Folded(value.AsText()), m_pattern);
    }

    // The text with what the fuzzy level ignores taken out of it.
    std::wstring Folded(std::wstring text) const
    {
        if (m_fuzzyLevel & (FL_IGNORENONSPACE | FL_LOOSE))
            text = WithoutNonSpacing(text);
        if ((m_fuzzyLevel & (FL_IGNORECASE | FL_LOOSE)) && !text.empty())
            CharUpperBuffW(text.data(), static_cast<DWORD>(text.size()));
        return text;
    }

    static std::wstring WithoutNonSpacing(const std::wstring& text)
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

    ULONG m_fuzzyLevel;
    ULONG m_tag;
    PropValue m_value;
    std::wstring m_pattern;
};

class TwoProperties final : public Restriction
{
public:
    explicit TwoProperties(const SComparePropsRestriction& restriction) : m_restriction(restriction) {}

    bool Matches(const PropertySource& properties) const override
    {
        const auto first = properties.Load(PROP_ID(m_restriction.ulPropTag1));
        const auto second = properties.Load(PROP_ID(m_restriction.ulPropTag2));
        const auto order = first && second ? Compare(*first, *second) : std::nullopt;
        return order && Holds(m_restriction.relop, *order);
    }

    void CopyTo(SRestriction& target, const MapiMemory&, void*) const override
    {
        target.rt = RES_COMPAREPROPS;
        target.res.resCompareProps = m_restriction;
    }

    Plan Planned() const override
    {
        return {RES_COMPAREPROPS, m_restriction.relop, m_restriction.ulPropTag1, m_restriction.ulPropTag2, {}, {}};
    }

private:
    SComparePropsRestriction m_restriction;
};

class BitMask final : public Restriction
{
public:
    explicit BitMask(const SBitMaskRestriction& restriction) : m_restriction(restriction) {}

    bool Matches(const PropertySource& properties) const override
    {
        const auto own = properties.Load(PROP_ID(m_restriction.ulPropTag));
        if (!own || own->Type() != PT_LONG)
            return false;
        const bool set = (static_cast<ULONG>(own->AsLong()) & m_restriction.ulMask) != 0;
        return set == (m_restriction.relBMR == BMR_NEZ);
    }

    void CopyTo(SRestriction& target, const MapiMemory&, void*) const override
    {
        target.rt = RES_BITMASK;
        target.res.resBitMask = m_restriction;
    }

    Plan Planned() const override
    {
        return {RES_BITMASK, m_restriction.relBMR, m_restriction.ulPropTag, m_restriction.ulMask, {}, {}};
    }

private:
    SBitMaskRestriction m_restriction;
};

class SizeOfProperty final : public Restriction
{
public:
    explicit SizeOfProperty(const SSizeRestriction& restriction) : m_restriction(restriction) {}

    bool Matches(const PropertySource& properties) const override
    {
        const auto own = properties.Load(PROP_ID(m_restriction.ulPropTag));
        const size_t wanted = m_restriction.cb;
        return own && Holds(m_restriction.relop, own->Size() < wanted ? -1 : own->Size() > wanted ? 1 : 0);
    }

    void CopyTo(SRestriction& target, const MapiMemory&, void*) const override
    {
        target.rt = RES_SIZE;
        target.res.resSize = m_restriction;
    }

    Plan Planned() const override
    {
        return {RES_SIZE, m_restriction.relop, m_restriction.ulPropTag, m_restriction.cb, {}, {}};
    }

private:
    SSizeRestriction m_restriction;
};

class Existence final : public Restriction
{
public:
    explicit Existence(ULONG tag) : m_tag(tag) {}

    bool Matches(const PropertySource& properties) const override
    {
        return properties.Describe(PROP_ID(m_tag)).has_value();
    }

    void CopyTo(SRestriction& target, const MapiMemory&, void*) const override
    {
        target.rt = RES_EXIST;
        target.res.resExist = {0, m_tag, 0};
    }

    Plan Planned() const override { return {RES_EXIST, 0, m_tag, 0, {}, {}}; }

private:
    ULONG m_tag;
};

const SPropValue& Operand(const SPropValue* value)
{
    if (!value)
        Fail(MAPI_E_INVALID_PARAMETER, L"A restriction has no value to compare with.");
    return *value;
}

Node CopyNode(const SRestriction* restriction, int depth);

std::vector<Node> CopyNodes(const SAndRestriction& restriction, int depth)
{
    if (restriction.cRes && !restriction.lpRes)
        Fail(MAPI_E_INVALID_PARAMETER, L"A restriction lacks its parts.");
    std::vector<Node> parts;
    parts.reserve(restriction.cRes);
    for (ULONG i = 0; i < restriction.cRes; ++i)
        parts.push_back(CopyNode(restriction.lpRes + i, depth));
    return parts;
}

Node CopyContent(const SContentRestriction& restriction)
{
    PropValue value = PropValue::From(Operand(restriction.lpProp));
    const ULONG type = SingleType(PROP_TYPE(restriction.ulPropTag));
    if (!(IsText(type) || type == PT_BINARY) || (value.Type() & MV_FLAG) || !Comparable(type, value.Type()))
        Fail(MAPI_E_TOO_COMPLEX, L"Content restrictions work on strings and binaries only.");
    if ((restriction.ulFuzzyLevel & 0xFFFF) > FL_PREFIX)
        Fail(MAPI_E_INVALID_PARAMETER, L"A content restriction has an unknown fuzzy level.");
    return std::make_shared<Content>(restriction.ulFuzzyLevel, restriction.ulPropTag, std::move(value));
}

Node CopyProperty(const SPropertyRestriction& restriction)
{
    CheckRelop(restriction.relop);
    PropValue value = PropValue::From(Operand(restriction.lpProp));
    if (!Comparable(PROP_TYPE(restriction.ulPropTag), value.Type()))
        Fail(MAPI_E_TOO_COMPLEX, L"A property restriction compares values of different types.");
    return std::make_shared<Property>(restriction.relop, restriction.ulPropTag, std::move(value));
}

Node CopyNode(const SRestriction* restriction, int depth)
{
    if (!restriction)
        Fail(MAPI_E_INVALID_PARAMETER, L"A restriction is null.");
    if (depth > maxDepth)
        Fail(MAPI_E_TOO_COMPLEX, L"A restriction is nested too deeply.");
    switch (restriction->rt)
    {
    case RES_AND:
    case RES_OR:
        return std::make_shared<Combination>(restriction->rt, CopyNodes(restriction->res.resAnd, depth + 1));
    case RES_NOT:
        return std::make_shared<Negation>(CopyNode(restriction->res.resNot.lpRes, depth + 1));
    case RES_CONTENT:
        return CopyContent(restriction->res.resContent);
    case RES_PROPERTY:
        return CopyProperty(restriction->res.resProperty);
    case RES_COMPAREPROPS:
        CheckRelop(restriction->res.resCompareProps.relop);
        if (!Comparable(PROP_TYPE(restriction->res.resCompareProps.ulPropTag1),
                        PROP_TYPE(restriction->res.resCompareProps.ulPropTag2)))
        {
            Fail(MAPI_E_TOO_COMPLEX, L"A restriction compares properties of different types.");
        }
        return std::make_shared<TwoProperties>(restriction->res.resCompareProps);
    case RES_BITMASK:
        if (restriction->res.resBitMask.relBMR > BMR_NEZ)
            Fail(MAPI_E_INVALID_PARAMETER, L"A bit mask restriction has an unknown relation.");
        if (PROP_TYPE(restriction->res.resBitMask.ulPropTag) != PT_LONG)
            Fail(MAPI_E_TOO_COMPLEX, L"Bit mask restrictions work on PT_LONG properties only.");
        return std::make_shared<BitMask>(restriction->res.resBitMask);
    case RES_SIZE:
        CheckRelop(restriction->res.resSize.relop);
        return std::make_shared<SizeOfProperty>(restriction->res.resSize);
    case RES_EXIST:
        return std::make_shared<Existence>(restriction->res.resExist.ulPropTag);
    case RES_COMMENT:
    {
        const SCommentRestriction& comment = restriction->res.resComment;
        return std::make_shared<Comment>(comment.lpRes ? CopyNode(comment.lpRes, depth + 1) : nullptr,
                                         CopyProps(comment.cValues, comment.lpProp));
    }
    case RES_SUBRESTRICTION:
        Fail(MAPI_E_TOO_COMPLEX, L"Restrictions on recipients and attachments are not supported.");
    default:
        Fail(MAPI_E_INVALID_PARAMETER, L"A restriction is of an unknown kind.");
    }
}
} // namespace

std::shared_ptr<const Restriction> Restriction::Copy(const SRestriction* restriction)
{
    return CopyNode(restriction, 0);
}

std::shared_ptr<const Restriction> Restriction::Make(const Plan& plan)
{
    const auto require = [](bool whole)
    {
        if (!whole)
            Fail(MAPI_E_INVALID_PARAMETER, L"A restriction's plan lacks a part.");
    };
    std::vector<Node> parts;
    for (const Plan& part : plan.parts)
        parts.push_back(Make(part));
    switch (plan.kind)
    {
    case RES_AND:
    case RES_OR:
        return std::make_shared<Combination>(plan.kind, std::move(parts));
    case RES_NOT:
        require(parts.size() == 1);
        return std::make_shared<Negation>(parts.front());
    case RES_CONTENT:
        require(plan.values.size() == 1);
        return std::make_shared<Content>(plan.mode, plan.tag, plan.values.front());
    case RES_PROPERTY:
        require(plan.values.size() == 1);
        return std::make_shared<Property>(plan.mode, plan.tag, plan.values.front());
    case RES_COMPAREPROPS:
        return std::make_shared<TwoProperties>(SComparePropsRestriction{plan.mode, plan.tag, plan.other});
    case RES_BITMASK:
        return std::make_shared<BitMask>(SBitMaskRestriction{plan.mode, plan.tag, plan.other});
    case RES_SIZE:
        return std::make_shared<SizeOfProperty>(SSizeRestriction{plan.mode, plan.tag, plan.other});
    case RES_EXIST:
        return std::make_shared<Existence>(plan.tag);
    case RES_COMMENT:
        return std::make_shared<Comment>(parts.empty() ? nullptr : parts.front(), plan.values);
    default:
        require(false);
        return nullptr;
    }
}

LPSRestriction MakeRestriction(const MapiMemory& memory, const Restriction& restriction)
{
    MapiBlock<SRestriction> block(memory, static_cast<SRestriction*>(memory.Allocate(sizeof(SRestriction))));
    restriction.CopyTo(*block.Get(), memory, block.Get());
    return block.Detach();
}
} // namespace Testbed
