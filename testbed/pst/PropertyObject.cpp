// The IMAPIProp half that the store, its folders, messages and attachments have in common.
#include "testbed/pst/PropertyObject.h"

#include "common/Text.h"
#include "testbed/common/Namespace.h"

#include <algorithm>
#include <cstring>

namespace Testbed::Pst
{
namespace
{
// A property that is read as a stream is held in memory.
bool IsStreamType(ULONG type)
{
    return type == PT_BINARY || type == PT_STRING8 || type == PT_UNICODE;
}

bool IsStreamInterface(REFIID iid)
{
    return IsEqualIID(iid, IID_IStream) || IsEqualIID(iid, IID_ISequentialStream);
}
} // namespace

ComPtr<IUnknown> PropertyHost::OpenObject(ULONG, REFIID, ULONG, ULONG)
{
    return {};
}

void PropertyHost::RequireModifiable()
{
    if (!Modifiable())
        Fail(MAPI_E_NO_ACCESS, L"The object is not open for writing");
}

HRESULT PropertyHost::GetPropsBody(LPSPropTagArray tags, ULONG flags, ULONG* count, LPSPropValue* values)
{
    RequireAlive();
    return Testbed::GetProps(*Properties(), m_session->Memory(), tags, m_session->Flags(flags), count, values);
}

HRESULT PropertyHost::GetPropListBody(ULONG flags, LPSPropTagArray* tags)
{
    RequireAlive();
    return Testbed::GetPropList(*Properties(), m_session->Memory(), m_session->Flags(flags), tags);
}

HRESULT PropertyHost::SetPropsBody(ULONG count, LPSPropValue values, LPSPropProblemArray* problems)
{
    RequireAlive();
    RequireModifiable();
    const HRESULT result = Testbed::SetProps(*this, m_session->Memory(), count, values, problems);
    Flush();
    return result;
}

HRESULT PropertyHost::DeletePropsBody(LPSPropTagArray tags, LPSPropProblemArray* problems)
{
    RequireAlive();
    RequireModifiable();
    const HRESULT result = Testbed::DeleteProps(*this, m_session->Memory(), tags, problems);
    Flush();
    return result;
}

HRESULT PropertyHost::SaveChangesBody(ULONG flags)
{
    constexpr ULONG known = KEEP_OPEN_READONLY | KEEP_OPEN_READWRITE | FORCE_SAVE | MAPI_DEFERRED_ERRORS;
    RequireFlags(flags, known);
    if ((flags & KEEP_OPEN_READONLY) != 0 && (flags & KEEP_OPEN_READWRITE) != 0)
        return MAPI_E_INVALID_PARAMETER;
    return Save(flags);
}

ComPtr<IStream> PropertyHost::OpenStream(ULONG tag, ULONG flags)
{
    const auto properties = Properties();
    const auto known = properties->Describe(PROP_ID(tag));
    ULONG type = PROP_TYPE(tag);
    // An attachment's data are one property that clients name by two types.
    if (type == PT_OBJECT && known)
        type = PROP_TYPE(known->tag);
    const bool create = (flags & MAPI_CREATE) != 0;
    if (!known && !create)
        Fail(MAPI_E_NOT_FOUND, L"The object does not have the property");
    if (!IsStreamType(type))
        Fail(MAPI_E_INTERFACE_NOT_SUPPORTED, L"Only texts and binary properties can be read as a stream");
    Bytes bytes;
    if (known && !create)
    {
        const auto value = properties->Load(PROP_ID(tag));
        const auto converted = value ? value->As(type) : std::nullopt;
        if (!converted)
            Fail(MAPI_E_NOT_FOUND, L"The object does not have the property in that type");
        bytes = StreamBytes(*converted, type);
    }
    if ((flags & (MAPI_MODIFY | MAPI_CREATE)) == 0)
        return CreateMemoryStream(std::move(bytes));
    RequireModifiable();
    const ULONG whole = CHANGE_PROP_TYPE(tag, type);
    if (create)
    {
        const SCODE result = Set(FromStreamBytes(whole, {}));
        if (FAILED(result))
            Fail(result, L"The property cannot be written");
        Flush();
    }
    // The stream lives on its own, so it keeps the object that it writes to.
    const ComPtr<IUnknown> self(Self().second);
    return CreateMemoryStream(std::move(bytes),
                              [this, self, whole](const Bytes& contents) -> HRESULT
                              {
                                  const std::lock_guard lock(Lock());
                                  return Guarded(m_lastError,
                                                 [&]() -> HRESULT
                                                 {
                                                     const SCODE result = Set(FromStreamBytes(whole, contents));
                                                     Flush();
                                                     return result;
                                                 });
                              });
}

HRESULT PropertyHost::OpenPropertyBody(ULONG tag, LPCIID iid, ULONG options, ULONG flags, LPUNKNOWN* object)
{
    if (!iid || !object || PROP_ID(tag) == PROP_ID(PR_NULL) || PROP_TYPE(tag) == PT_UNSPECIFIED)
        return MAPI_E_INVALID_PARAMETER;
    constexpr ULONG known = MAPI_CREATE | MAPI_MODIFY | MAPI_DEFERRED_ERRORS;
    RequireFlags(flags, known);
    RequireAlive();
    if ((flags & (MAPI_CREATE | MAPI_MODIFY)) != 0)
        RequireModifiable();
    if (ComPtr<IUnknown> opened = OpenObject(tag, *iid, options, flags))
    {
        *object = opened.Detach();
        return S_OK;
    }
    if (!IsStreamInterface(*iid))
        return MAPI_E_INTERFACE_NOT_SUPPORTED;
    *object = OpenStream(tag, flags).Detach();
    return S_OK;
}

HRESULT PropertyHost::CopyToBody(ULONG excludedCount, LPCIID excluded, LPSPropTagArray excludedTags, ULONG_PTR uiParam,
                                 LPMAPIPROGRESS progress, LPCIID iid, LPVOID destination, ULONG flags,
                                 LPSPropProblemArray* problems)
{
    if (!destination)
        return MAPI_E_INVALID_PARAMETER;
    const auto [selfIid, self] = Self();
    return m_session->Support()->DoCopyTo(selfIid, self, excludedCount, excluded, excludedTags, uiParam, progress, iid,
                                          destination, flags, problems);
}

HRESULT PropertyHost::CopyPropsBody(LPSPropTagArray tags, ULONG_PTR uiParam, LPMAPIPROGRESS progress, LPCIID iid,
                                    LPVOID destination, ULONG flags, LPSPropProblemArray* problems)
{
    if (!destination || !tags)
        return MAPI_E_INVALID_PARAMETER;
    const auto [selfIid, self] = Self();
    return m_session->Support()->DoCopyProps(selfIid, self, tags, uiParam, progress, iid, destination, flags, problems);
}

HRESULT PropertyHost::GetNamesBody(LPSPropTagArray* tags, LPGUID set, ULONG flags, ULONG* count, LPMAPINAMEID** names)
{
    if (!tags || !count || !names)
        return MAPI_E_INVALID_PARAMETER;
    RequireFlags(flags, MAPI_NO_STRINGS | MAPI_NO_IDS);
    const MapiMemory& memory = m_session->Memory();
    std::vector<std::optional<PropertyName>> found;
    MapiBlock<SPropTagArray> listed(memory);
    if (*tags)
    {
        for (ULONG index = 0; index < (*tags)->cValues; ++index)
        {
            const ULONG id = PROP_ID((*tags)->aulPropTag[index]);
            auto name = m_session->Core()->NameOfId(id);
            // Identifiers below 0x8000 are names of their own in the set PS_MAPI.
            if (!name && id < 0x8000 && id != 0)
                name = PropertyName{PS_MAPI, {}, static_cast<std::int32_t>(id)};
            found.push_back(std::move(name));
        }
    }
    else
    {
        std::vector<ULONG> known;
        for (const NamedProperty& property : m_session->Core()->Names())
        {
            const bool isText = !property.name.text.empty();
            if ((set && !IsEqualGUID(*set, property.name.set)) || (isText && (flags & MAPI_NO_STRINGS) != 0) ||
                (!isText && (flags & MAPI_NO_IDS) != 0))
            {
                continue;
            }
            known.push_back(PROP_TAG(PT_UNSPECIFIED, property.id));
            found.emplace_back(property.name);
        }
        listed = MapiBlock<SPropTagArray>(memory, MakeTagArray(memory, known));
    }
    MapiBlock<LPMAPINAMEID> block(
        memory, static_cast<LPMAPINAMEID*>(memory.Allocate(std::max<size_t>(found.size(), 1) * sizeof(LPMAPINAMEID))));
    bool missing = false;
    for (size_t index = 0; index < found.size(); ++index)
    {
        const std::optional<PropertyName>& known = found[index];
        if (!known)
        {
            missing = true;
            continue;
        }
        const PropertyName& name = *known;
        auto* entry = static_cast<MAPINAMEID*>(memory.AllocateMore(sizeof(MAPINAMEID) + sizeof(GUID), block.Get()));
        entry->lpguid = reinterpret_cast<LPGUID>(entry + 1);
        *entry->lpguid = name.set;
        entry->ulKind = name.text.empty() ? MNID_ID : MNID_STRING;
        if (name.text.empty())
        {
            entry->Kind.lID = name.number;
        }
        else
        {
            const size_t size = (name.text.size() + 1) * sizeof(wchar_t);
            entry->Kind.lpwstrName = static_cast<LPWSTR>(memory.AllocateMore(size, block.Get()));
            std::memcpy(entry->Kind.lpwstrName, name.text.c_str(), size);
        }
        block[index] = entry;
    }
    *count = static_cast<ULONG>(found.size());
    *names = block.Detach();
    if (listed)
        *tags = listed.Detach();
    return missing ? MAPI_W_ERRORS_RETURNED : S_OK;
}

HRESULT PropertyHost::GetIdsBody(ULONG count, LPMAPINAMEID* names, ULONG flags, LPSPropTagArray* tags)
{
    if (!tags || (count != 0 && !names))
        return MAPI_E_INVALID_PARAMETER;
    RequireFlags(flags, MAPI_CREATE);
    std::vector<PropertyName> wanted;
    std::vector<ULONG> ids;
    if (count == 0)
    {
        for (const NamedProperty& property : m_session->Core()->Names())
            ids.push_back(property.id);
    }
    else
    {
        for (ULONG index = 0; index < count; ++index)
        {
            const MAPINAMEID* name = names[index];
            if (!name || !name->lpguid || (name->ulKind != MNID_ID && name->ulKind != MNID_STRING) ||
                (name->ulKind == MNID_STRING && (!name->Kind.lpwstrName || !*name->Kind.lpwstrName)))
            {
                return MAPI_E_INVALID_PARAMETER;
            }
            PropertyName copy;
            copy.set = *name->lpguid;
            if (name->ulKind == MNID_STRING)
                copy.text = name->Kind.lpwstrName;
            else
                copy.number = name->Kind.lID;
            wanted.push_back(std::move(copy));
        }
        ids = m_session->Core()->IdsOfNames(wanted, (flags & MAPI_CREATE) != 0);
        for (size_t index = 0; index < ids.size(); ++index)
        {
            if (ids[index] == 0 && IsEqualGUID(wanted[index].set, PS_MAPI) && wanted[index].text.empty() &&
                wanted[index].number > 0 && wanted[index].number < 0x8000)
            {
                ids[index] = static_cast<ULONG>(wanted[index].number);
            }
        }
    }
    std::vector<ULONG> list;
    list.reserve(ids.size());
    for (const ULONG id : ids)
        list.push_back(id == 0 ? PROP_TAG(PT_ERROR, 0) : PROP_TAG(PT_UNSPECIFIED, id));
    *tags = MakeTagArray(m_session->Memory(), list);
    return std::find(ids.begin(), ids.end(), 0u) == ids.end() ? S_OK : MAPI_W_ERRORS_RETURNED;
}
} // namespace Testbed::Pst
