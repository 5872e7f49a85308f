// MAPI failures: their texts, their exceptions, and the switches that make some of them fatal.
#pragma once

#include "support/Exceptions.h"
#include "support/MapiBuffer.h"

namespace Quillon::Mapi
{

/// A call on a MAPI object failed. Carries the code, a copy of the extended error that the object reported, and a
/// context text.
class KIVNST_API CMapiError : public CComError
{
public:
    /// `error` holds wide strings, as GetLastError gives with MAPI_UNICODE; it may hold null. `context` may be null.
    CMapiError(long hr, const MapiErrorPointer& error, const wchar_t* context);
    CMapiError(const CMapiError& other);
    CMapiError(CMapiError&& other) noexcept;
    ~CMapiError() override;

    /// As FormatMapiError.
    StringW Format() const override;

    /// Whether the object reported an extended error, and what it said.
    bool HasExtendedError() const noexcept;
    const StringW& GetErrorText() const noexcept;
    const StringW& GetComponent() const noexcept;
    ULONG GetLowLevelError() const noexcept;
    ULONG GetErrorContext() const noexcept;

private:
    StringW m_context;
    StringW m_errorText;
    StringW m_component;
    ULONG m_lowLevelError;
    ULONG m_errorContext;
    bool m_hasExtendedError;
};

/// Thrown by a host from ConfigureService to have the message-service entry report an extended error to its caller.
/// Not a CException: only the service entry handles it.
struct KIVNST_API ExtendedMapiError : public std::exception
{
    /// `error` is shown to the user; `component` names the module at fault and may be null.
    ExtendedMapiError(const wchar_t* error, const wchar_t* component, ULONG lowLevelError, ULONG context);
    ExtendedMapiError(const ExtendedMapiError& other);
    ExtendedMapiError& operator=(const ExtendedMapiError&) = delete;
    ~ExtendedMapiError() override;

    /// The error with wide strings, valid as long as this object.
    MAPIERROR GetError() const noexcept;
    const char* what() const noexcept override;

private:
    StringW m_error;
    StringW m_component;
    ULONG m_lowLevelError;
    ULONG m_context;
};

/// The text of a MAPI failure: the context, the code, and where `error` is not null its text, component and low-level
/// code: "IMsgStore::OpenEntry: MAPI_E_CALL_FAILED (0x80004005): Unspecified error. [disk full; component: PST;
/// low-level error: 0x00000070; context: 5]". `error` holds wide strings. Any thread.
KIVNST_API StringW FormatMapiError(long hr, const StringW& context, const MAPIERROR* error);

/// A copy of `source` (wide strings) in MAPI memory, as a GetLastError implementation must return: one block to free,
/// strings wide when `flags` holds MAPI_UNICODE, else in the ANSI code page. Throws CComError when memory or the MAPI
/// module is missing. Any thread.
KIVNST_API MapiErrorPointer CreateMapiError(ULONG flags, const MAPIERROR& source);

/// Process-wide switches, off at load, that make a failure end the process: MAPI_E_NETWORK_ERROR; MAPI_E_TOO_BIG and
/// MAPI_E_NOT_ENOUGH_MEMORY; MAPI_E_CORRUPT_STORE. A host sets them once, before it logs on; they are read without
/// locking on every failing call.
KIVNST_API bool& GetDieOnNetworkErrors() noexcept;
KIVNST_API bool& GetDieOnOutOfMemoryErrors() noexcept;
KIVNST_API bool& GetDieOnCorruptStore() noexcept;

/// Process-wide flags that the open helper adds to an OpenEntry call; 0 at load. A host sets them once.
KIVNST_API ULONG& GetOpenMapiObjectFlags() noexcept;

} // namespace Quillon::Mapi
