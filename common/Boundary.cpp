// Failures, their texts, and the records that MAPI's GetLastError gives of them.
#include "common/Boundary.h"

#include "common/Text.h"

#include <cstring>

namespace Common
{
namespace
{
void* LinkedText(const MapiMemory& memory, void* parent, const std::wstring& text, ULONG flags)
{
    if (flags & MAPI_UNICODE)
    {
        const size_t size = (text.size() + 1) * sizeof(wchar_t);
        void* copy = memory.AllocateMore(size, parent);
        std::memcpy(copy, text.c_str(), size);
        return copy;
    }
    const std::string narrow = AnsiFromWide(text);
    void* copy = memory.AllocateMore(narrow.size() + 1, parent);
    std::memcpy(copy, narrow.c_str(), narrow.size() + 1);
    return copy;
}
} // namespace

Failure::Failure(HRESULT result, std::wstring text)
    : m_result(result),
      m_text(std::move(text)),
      m_utf8(Utf8FromWide(m_text))
{
}

void Fail(HRESULT result, std::wstring text)
{
    throw Failure(result, std::move(text));
}

void RequireFlags(ULONG flags, ULONG known)
{
    if (flags & ~known)
        Fail(MAPI_E_UNKNOWN_FLAGS, L"The call has a flag that it does not take.");
}

void Check(HRESULT result, const wchar_t* text)
{
    if (FAILED(result))
        Fail(result, std::wstring(text) + L" " + ResultText(result));
}

void LastError::Set(HRESULT result, const std::wstring& text, ULONG lowLevel) noexcept
{
    try
    {
        std::wstring copy = text;
        const std::lock_guard guard(m_lock);
        m_result = result;
        m_text = std::move(copy);
        m_lowLevel = lowLevel;
    }
    catch (const std::exception&)
    {
        // Without memory for its text the error goes without one.
    }
}

HRESULT LastError::Get(const MapiMemory& memory, HRESULT result, ULONG flags, LPMAPIERROR* error) noexcept
{
    if (!error)
        return MAPI_E_INVALID_PARAMETER;
    if (flags & ~MAPI_UNICODE)
        return MAPI_E_UNKNOWN_FLAGS;
    *error = nullptr;
    try
    {
        const std::lock_guard guard(m_lock);
        if (result != S_OK && result == m_result)
            *error = MakeMapiError(memory, m_text, m_component, m_lowLevel, flags);
        return S_OK;
    }
    catch (...)
    {
        return ResultOfCurrentException(nullptr);
    }
}

LPMAPIERROR MakeMapiError(const MapiMemory& memory, const std::wstring& text, const wchar_t* component, ULONG lowLevel,
                          ULONG flags)
{
    MapiBlock<MAPIERROR> error(memory, static_cast<MAPIERROR*>(memory.Allocate(sizeof(MAPIERROR))));
    error->ulVersion = MAPI_ERROR_VERSION;
    error->lpszError = static_cast<LPTSTR>(LinkedText(memory, error.Get(), text, flags));
    error->lpszComponent = static_cast<LPTSTR>(LinkedText(memory, error.Get(), component, flags));
    error->ulLowLevelError = lowLevel;
    return error.Detach();
}

HRESULT ResultOfCurrentException(LastError* lastError) noexcept
{
    const auto give = [lastError](HRESULT result, const std::wstring& text) noexcept
    {
        if (lastError)
            lastError->Set(result, text);
        return result;
    };

    try
    {
        throw;
    }
    catch (const Failure& failure)
    {
        return give(failure.Result(), failure.Text());
    }
    catch (const std::bad_alloc&)
    {
        return E_OUTOFMEMORY;
    }
    catch (const std::exception& exception)
    {
        try
        {
            return give(MAPI_E_CALL_FAILED, WideFromUtf8(exception.what()));
        }
        catch (const std::exception&)
        {
            return MAPI_E_CALL_FAILED;
        }
    }
    catch (...)
    {
        return MAPI_E_CALL_FAILED;
    }
}
} // namespace Common
