// What a search folder searches for, and where.
#include "testbed/pst/SearchCriteria.h"

#include "common/Boundary.h"
#include "testbed/common/PropCodec.h"

#include <cstring>

namespace Testbed::Pst
{
namespace
{
using Numbers = std::vector<std::int32_t>;

// The parts of one restriction are kept as a bag whose identifiers count them.
constexpr ULONG numbersTag = PROP_TAG(PT_MV_LONG, 1);
constexpr ULONG firstValue = 0x100;
constexpr ULONG firstRestriction = 0x8000;
constexpr ULONG foldersTag = PROP_TAG(PT_MV_LONG, 2);
constexpr ULONG restrictionTag = PROP_TAG(PT_BINARY, 3);
constexpr ULONG recursiveTag = PROP_TAG(PT_BOOLEAN, 4);
constexpr ULONG foregroundTag = PROP_TAG(PT_BOOLEAN, 5);
constexpr ULONG runningTag = PROP_TAG(PT_BOOLEAN, 6);

[[noreturn]] void FailDamaged()
{
    Fail(MAPI_E_CORRUPT_STORE, L"The criteria of a search folder are damaged");
}

template <class T>
const T& Required(const PropertyBag& bag, ULONG tag)
{
    const PropValue* value = bag.Find(PROP_ID(tag));
    const T* payload = value ? value->Get<T>() : nullptr;
    if (!payload)
        FailDamaged();
    return *payload;
}

Bytes Write(const Restriction& restriction)
{
    PropertyBag bag;
    bag.Put(PropValue(
        numbersTag, Numbers{static_cast<std::int32_t>(restriction.kind), static_cast<std::int32_t>(restriction.mode),
                            static_cast<std::int32_t>(restriction.tag), static_cast<std::int32_t>(restriction.other)}));
    ULONG id = firstValue;
    for (const PropValue& value : restriction.values)
        bag.Put(PropValue::Binary(PROP_TAG(PT_BINARY, id++), WriteValue(value)));
    id = firstRestriction;
    for (const Restriction& part : restriction.parts)
        bag.Put(PropValue::Binary(PROP_TAG(PT_BINARY, id++), Write(part)));
    return WriteBag(bag);
}

Restriction Read(const Bytes& bytes)
{
    const PropertyBag bag = ReadBag(bytes);
    const auto& numbers = Required<Numbers>(bag, numbersTag);
    if (numbers.size() != 4)
        FailDamaged();
    Restriction restriction;
    restriction.kind = static_cast<ULONG>(numbers[0]);
    restriction.mode = static_cast<ULONG>(numbers[1]);
    restriction.tag = static_cast<ULONG>(numbers[2]);
    restriction.other = static_cast<ULONG>(numbers[3]);
    for (const auto& [id, value] : bag.Values())
        if (id >= firstRestriction)
            restriction.parts.push_back(Read(value.AsBytes()));
        else if (id >= firstValue)
            restriction.values.push_back(ReadValue(value.AsBytes()));
    if (!restriction.IsWhole())
        FailDamaged();
    return restriction;
}
} // namespace

Bytes WriteCriteria(const SearchCriteria& criteria)
{
    PropertyBag bag;
    bag.Put(PropValue::Binary(restrictionTag, Write(criteria.restriction)));
    Numbers folders(criteria.folders.size());
    for (size_t index = 0; index < folders.size(); ++index)
        folders[index] = static_cast<std::int32_t>(criteria.folders[index]);
    bag.Put(PropValue(foldersTag, std::move(folders)));
    bag.Put(PropValue::Boolean(recursiveTag, criteria.recursive));
    bag.Put(PropValue::Boolean(foregroundTag, criteria.foreground));
    bag.Put(PropValue::Boolean(runningTag, criteria.running));
    return WriteBag(bag);
}

SearchCriteria ReadCriteria(const Bytes& bytes)
{
    const PropertyBag bag = ReadBag(bytes);
    SearchCriteria criteria;
    criteria.restriction = Read(Required<Bytes>(bag, restrictionTag));
    for (const std::int32_t folder : Required<Numbers>(bag, foldersTag))
        criteria.folders.push_back(static_cast<NodeId>(folder));
    criteria.recursive = Required<bool>(bag, recursiveTag);
    criteria.foreground = Required<bool>(bag, foregroundTag);
    criteria.running = Required<bool>(bag, runningTag);
    return criteria;
}
} // namespace Testbed::Pst
