// MAPI failures: texts, exceptions, switches.
#include "support/MapiErrors.h"

#include "support/CallWrapping.h"
#include "support/Format.h"

#include <climits>
#include <cstring>
#include <utility>

namespace Quillon::Mapi
{
namespace
{

bool g_dieOnNetworkErrors = false;
bool g_dieOnOutOfMemoryErrors = false;
bool g_dieOnCorruptStore = false;
ULONG g_openMapiObjectFlags = 0;

/// A text of a MAPIERROR that holds wide strings, whatever LPTSTR is where this is compiled.
const wchar_t* WideText(LPTSTR text) noexcept
{
    return text;
}

StringW FormatExtendedError(const StringW& text, const StringW& component, ULONG lowLevelError, ULONG context)
{
    return FormatString(L" [%s; component: %s; low-level error: 0x%08lX; context: %lu]", text.GetString(),
                        component.GetString(), lowLevelError, context);
}

/// Where one of the strings of a copied MAPIERROR begins and how many bytes it has, terminator included.
struct CopiedText
{
    const void* source;
    std::size_t size;
};

} // namespace

CMapiError::CMapiError(long hr, const MapiErrorPointer& error, const wchar_t* context)
    : CComError(hr),
      m_context(context),
      m_lowLevelError(0),
      m_errorContext(0),
      m_hasExtendedError(false)
{
    if (!error)
        return;
    m_errorText = StringW(WideText(error->lpszError));
    m_component = StringW(WideText(error->lpszComponent));
    m_lowLevelError = error->ulLowLevelError;
    m_errorContext = error->ulContext;
    m_hasExtendedError = true;
}

CMapiError::CMapiError(const CMapiError& other) = default;
CMapiError::CMapiError(CMapiError&& other) noexcept = default;
CMapiError::~CMapiError() = default;

StringW CMapiError::Format() const
{
    StringW text = FormatErrorWithContext(CComError::Format(), m_context);
    if (!m_hasExtendedError)
        return text;
    return text + FormatExtendedError(m_errorText, m_component, m_lowLevelError, m_errorContext);
}

bool CMapiError::HasExtendedError() const noexcept
{
    return m_hasExtendedError;
}

const StringW& CMapiError::GetErrorText() const noexcept
{
    return m_errorText;
}

const StringW& CMapiError::GetComponent() const noexcept
{
    return m_component;
}

ULONG CMapiError::GetLowLevelError() const noexcept
{
    return m_lowLevelError;
}

ULONG CMapiError::GetErrorContext() const noexcept
{
    return m_errorContext;
}

ExtendedMapiError::ExtendedMapiError(const wchar_t* error, const wchar_t* component, ULONG lowLevelError, ULONG context)
    : m_error(error),
      m_component(component),
      m_lowLevelError(lowLevelError),
      m_context(context)
{
}

ExtendedMapiError::ExtendedMapiError(const ExtendedMapiError& other) = default;
ExtendedMapiError::~ExtendedMapiError() = default;

MAPIERROR ExtendedMapiError::GetError() const noexcept
{
    // MAPIERROR has no const strings; who reads it does not write them.
    MAPIERROR error = {};
    error.ulVersion = MAPI_ERROR_VERSION;
    error.lpszError = const_cast<LPTSTR>(m_error.GetString());
    error.lpszComponent = const_cast<LPTSTR>(m_component.GetString());
    error.ulLowLevelError = m_lowLevelError;
    error.ulContext = m_context;
    return error;
}

const char* ExtendedMapiError::what() const noexcept
{
    return "extended MAPI error";
}

StringW FormatMapiError(long hr, const StringW& context, const MAPIERROR* error)
{
    StringW text = FormatErrorWithContext(FormatComError(hr), context);
    if (!error)
        return text;
    return text + FormatExtendedError(StringW(WideText(error->lpszError)), StringW(WideText(error->lpszComponent)),
                                      error->ulLowLevelError, error->ulContext);
}

MapiErrorPointer CreateMapiError(ULONG flags, const MAPIERROR& source)
{
    const StringW error(WideText(source.lpszError));
    const StringW component(WideText(source.lpszComponent));
    const bool wide = (flags & MAPI_UNICODE) != 0;
    const StringA narrowError = wide ? StringA() : StringA(error);
    const StringA narrowComponent = wide ? StringA() : StringA(component);
    const CopiedText texts[] = {
        wide ? CopiedText{error.GetString(), (error.GetLength() + 1) * sizeof(wchar_t)}
             : CopiedText{narrowError.GetString(), narrowError.GetLength() + 1},
        wide ? CopiedText{component.GetString(), (component.GetLength() + 1) * sizeof(wchar_t)}
             : CopiedText{narrowComponent.GetString(), narrowComponent.GetLength() + 1},
    };

    // One block: the structure, then its strings.
    const std::size_t size = sizeof(MAPIERROR) + texts[0].size + texts[1].size;
    if (size > ULONG_MAX)
        Throw(CComError(E_OUTOFMEMORY), L"Quillon::Mapi::CreateMapiError");
    MapiErrorPointer copy(static_cast<MAPIERROR*>(AllocateMapiBuffer(static_cast<ULONG>(size))));
    auto* const first = reinterpret_cast<BYTE*>(copy.Get() + 1);
    auto* const second = first + texts[0].size;
    std::memcpy(first, texts[0].source, texts[0].size);
    std::memcpy(second, texts[1].source, texts[1].size);
    *copy = MAPIERROR{source.ulVersion, reinterpret_cast<LPTSTR>(first), reinterpret_cast<LPTSTR>(second),
                      source.ulLowLevelError, source.ulContext};
    return copy;
}

bool& GetDieOnNetworkErrors() noexcept
{
    return g_dieOnNetworkErrors;
}

bool& GetDieOnOutOfMemoryErrors() noexcept
{
    return g_dieOnOutOfMemoryErrors;
}

bool& GetDieOnCorruptStore() noexcept
{
    return g_dieOnCorruptStore;
}

ULONG& GetOpenMapiObjectFlags() noexcept
{
    return g_openMapiObjectFlags;
}

} // namespace Quillon::Mapi
