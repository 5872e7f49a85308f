// What makes an object look and act read-only, shared by the store, folder and message wrappers.
#pragma once

#include "support/CallWrapping.h"
#include "support/MapiProperties.h"

namespace Quillon::Nst
{

/// Logs the refusal of a modifying call and gives its code. Takes the line's text.
inline HRESULT Refuse(const wchar_t* line) noexcept
{
    LogEntry(LogId::Warning, line);
    return MAPI_E_NO_ACCESS;
}

/// The same for a refusal whose text ends in a name or property tag that `makeDetail` gives. Logging must not make the
/// call fail in another way, so a detail that there is no memory for is left out.
template <class MakeDetail>
HRESULT RefuseWithDetail(const wchar_t* line, MakeDetail&& makeDetail) noexcept
{
    if (!Logging::IsLogEnabled(LogId::Warning))
        return MAPI_E_NO_ACCESS;
    try
    {
        return Refuse(line + makeDetail());
    }
    catch (const CException&)
    {
        return Refuse(line);
    }
}

/// The same with the tags of the call listed on a detail line of their own. `tags` are the arguments of
/// Mapi::FormatMapiPropertyTags.
template <class... Tags>
HRESULT RefuseWithTags(const wchar_t* line, Tags... tags) noexcept
{
    if (!Logging::IsLogEnabled(LogId::Warning))
        return MAPI_E_NO_ACCESS;
    Refuse(line);
    try
    {
        LogDetails(LogId::Warning, Mapi::FormatMapiPropertyTags(tags...));
    }
    catch (const CException&)
    {
        LogDetails(LogId::Warning, L"(no memory for the property tags)");
    }
    return MAPI_E_NO_ACCESS;
}

/// Rewrites PR_ACCESS and PR_ACCESS_LEVEL to read-only; leaves any other property.
inline void OverrideAccess(SPropValue& property) noexcept
{
    switch (property.ulPropTag)
    {
    case PR_ACCESS:
        property.Value.l = MAPI_ACCESS_READ;
        break;
    case PR_ACCESS_LEVEL:
        property.Value.l = 0;
        break;
    default:
        break;
    }
}

/// Rewrites a store's capability masks to those of a read-only store; leaves any other property.
inline void OverrideSupportMask(SPropValue& property) noexcept
{
    if (property.ulPropTag != PR_STORE_SUPPORT_MASK && property.ulPropTag != PR_STORE_UNICODE_MASK)
        return;
    constexpr LONG writable = STORE_MODIFY_OK | STORE_CREATE_OK | static_cast<LONG>(STORE_ITEMPROC);
    property.Value.l = (property.Value.l & ~writable) | STORE_READONLY;
}

} // namespace Quillon::Nst
