// Identifiers of profile sections, and names.
#include "testbed/mapi/Profile.h"

#include "common/Boundary.h"
#include "common/Text.h"

namespace Testbed
{
Uid Uid::Create()
{
    GUID guid;
    Check(CoCreateGuid(&guid), L"CoCreateGuid failed.");
    Uid uid;
    std::memcpy(uid.ab, &guid, sizeof(uid.ab));
    return uid;
}

std::optional<Uid> Uid::From(const PropValue* value)
{
    if (!value || value->Type() != PT_BINARY || value->AsBytes().size() != sizeof(MAPIUID))
        return {};
    Uid uid;
    std::memcpy(uid.ab, value->AsBytes().data(), sizeof(uid.ab));
    return uid;
}

std::wstring Uid::Text() const
{
    return HexText(ab, sizeof(ab));
}

bool SameName(const std::wstring& a, const std::wstring& b) noexcept
{
    return CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_EQUAL;
}
} // namespace Testbed
