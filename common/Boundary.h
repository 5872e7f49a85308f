// The boundary between code that throws and COM methods, which must not: exceptions become result codes, and their
// texts are kept for the object's GetLastError.
#pragma once

#include "common/MapiMemory.h"
#include "common/Mutex.h"

#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace Common
{
/// A failure with the MAPI code that a caller is to see and a sentence for people.
class Failure : public std::exception
{
public:
    Failure(HRESULT result, std::wstring text);

    HRESULT Result() const noexcept { return m_result; }
    const std::wstring& Text() const noexcept { return m_text; }
    /// The text in UTF-8.
    const char* what() const noexcept override { return m_utf8.c_str(); }

private:
    HRESULT m_result;
    std::wstring m_text;
    std::string m_utf8;
};

/// Throws `Failure`.
[[noreturn]] void Fail(HRESULT result, std::wstring text);

/// Throws `Failure` with MAPI_E_UNKNOWN_FLAGS when `flags` has a flag that is not in `known`.
void RequireFlags(ULONG flags, ULONG known);

/// Throws `Failure` with `text` when `result` is a failure; warnings pass.
void Check(HRESULT result, const wchar_t* text);

/// The last extended error of one object, for its GetLastError method. Thread-safe.
class LastError
{
public:
    /// `component` names the object's module in the records that `Get` makes; the string has to live as long.
    explicit LastError(const wchar_t* component) noexcept : m_component(component) {}

    /// Remembers `text` for `result`; `lowLevel` is a Win32 or library code, 0 for none. Never throws.
    void Set(HRESULT result, const std::wstring& text, ULONG lowLevel = 0) noexcept;

    /// The body of a GetLastError method: for the remembered result gives a MAPIERROR with its strings (wide when
    /// `flags` has MAPI_UNICODE, else narrow), in one block of `memory` that the caller frees; for any other result
    /// gives S_OK and a null record, as MAPI wants for errors without further information.
    HRESULT Get(const MapiMemory& memory, HRESULT result, ULONG flags, LPMAPIERROR* error) noexcept;

private:
    Mutex m_lock;
    const wchar_t* m_component;
    HRESULT m_result = S_OK;
    std::wstring m_text;
    ULONG m_lowLevel = 0;
};

/// Makes a MAPIERROR record as `LastError::Get` does; throws `Failure` when there is no memory.
LPMAPIERROR MakeMapiError(const MapiMemory& memory, const std::wstring& text, const wchar_t* component, ULONG lowLevel,
                          ULONG flags);

/// Turns the exception that is being handled into its result code and remembers its text. Only inside a catch block.
HRESULT ResultOfCurrentException(LastError* lastError) noexcept;

/// Runs `body` (which returns HRESULT or nothing) and gives its result, S_OK, or for an exception: the code of a
/// `Failure`, E_OUTOFMEMORY for std::bad_alloc, MAPI_E_CALL_FAILED for anything else. The text goes to `lastError`.
template <class F>
HRESULT Guarded(LastError& lastError, F&& body) noexcept
{
    try
    {
        if constexpr (std::is_void_v<std::invoke_result_t<F>>)
        {
            std::forward<F>(body)();
            return S_OK;
        }
        else
        {
            return std::forward<F>(body)();
        }
    }
    catch (...)
    {
        return ResultOfCurrentException(&lastError);
    }
}
} // namespace Common
