// The boundary between code that throws and MAPI, which knows no exceptions: an exception of any type becomes a result
// code and a line of log. Everything here may be called on any thread.
#pragma once

#include "support/Binary.h"
#include "support/CallWrapping.h"

#include <cstring>
#include <exception>
#include <new>
#include <type_traits>
#include <utility>

namespace KivNstHostKit
{

using Quillon::Binary;
using Quillon::CallSite;
using Quillon::StringW;

namespace Detail
{

/// Logs an exception that is none of the library's, in the form of the library's own event lines.
inline void LogForeignException(const CallSite& site, const char* what) noexcept
{
    const char* file = site.file;
    for (const char* at = file; *at; ++at)
        if (*at == '/' || *at == '\\')
            file = at + 1;
    Quillon::LogFormattedEntry(Quillon::LogId::Exception, L"Caught exception at %hs, %s, line %d: %hs", file,
                               site.function, site.line, what);
}

} // namespace Detail

/// Logs the exception that is being handled and gives its result code: GetHResult() of the library's own,
/// MAPI_E_INVALID_PARAMETER for an extended error, E_OUTOFMEMORY for a lack of memory, E_FAIL for any other, whatever
/// its type. Only within a handler.
inline HRESULT ResultOfException(const CallSite& site) noexcept
{
    try
    {
        throw;
    }
    catch (const Quillon::CException& exception)
    {
        return Quillon::CaughtException(exception, site);
    }
    catch (const Quillon::Mapi::ExtendedMapiError& error)
    {
        Detail::LogForeignException(site, error.what());
        return MAPI_E_INVALID_PARAMETER;
    }
    catch (const std::bad_alloc&)
    {
        Detail::LogForeignException(site, "out of memory");
        return E_OUTOFMEMORY;
    }
    catch (const std::exception& exception)
    {
        Detail::LogForeignException(site, exception.what());
        return E_FAIL;
    }
    catch (...)
    {
        Detail::LogForeignException(site, "an exception of unknown type");
        return E_FAIL;
    }
}

/// Runs `body`, which gives an HRESULT or nothing, and gives its result, S_OK, or the code of the exception with which
/// it ended. `site` is the method's name as a literal.
template <class Body>
HRESULT AtBoundary(const CallSite& site, Body&& body) noexcept
{
    try
    {
        if constexpr (std::is_void_v<std::invoke_result_t<Body>>)
        {
            std::forward<Body>(body)();
            return S_OK;
        }
        else
        {
            return std::forward<Body>(body)();
        }
    }
    catch (...)
    {
        return ResultOfException(site);
    }
}

/// Logs the refusal of a modifying call, in the words of the library's own refusals, and gives MAPI_E_NO_ACCESS. `noun`
/// is what the call was made on; `detail` may be empty.
inline HRESULT RefuseCall(const wchar_t* interfaceName, const wchar_t* method, const wchar_t* noun,
                          const wchar_t* detail = L"") noexcept
{
    Quillon::LogFormattedEntry(Quillon::LogId::Warning,
                               L"%s::%s called on read-only %s; returning MAPI_E_NO_ACCESS%s%s", interfaceName, method,
                               noun, *detail ? L": " : L"", detail);
    return MAPI_E_NO_ACCESS;
}

} // namespace KivNstHostKit
