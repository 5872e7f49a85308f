// The exception classes.
#include "support/Exceptions.h"

#include "support/Format.h"

#include <utility>

namespace Quillon
{

CException::CException() noexcept = default;
// The narrow text is made anew when it is asked for, so it need not be copied.
CException::CException(const CException& other) : std::exception(other) {}
CException::CException(CException&& other) noexcept = default;
CException::~CException() = default;

const char* CException::what() const noexcept
{
    try
    {
        if (m_what.GetLength() == 0)
            m_what = StringA(Format(), CP_UTF8);
        return m_what.GetString();
    }
    catch (const CException&)
    {
        return "out of memory";
    }
}

CComError::CComError(long hr) noexcept : m_hr(hr) {}
CComError::CComError(const CComError& other) = default;
CComError::CComError(CComError&& other) noexcept = default;
CComError::~CComError() = default;

StringW CComError::Format() const
{
    return FormatComError(m_hr);
}

HRESULT CComError::GetHResult() const noexcept
{
    return FAILED(m_hr) ? m_hr : E_FAIL;
}

CWinError::CWinError(DWORD error) noexcept : m_error(error) {}
CWinError::CWinError(DWORD error, const wchar_t* context) : m_error(error), m_context(context) {}
CWinError::CWinError(const CWinError& other) = default;
CWinError::CWinError(CWinError&& other) noexcept = default;
CWinError::~CWinError() = default;

StringW CWinError::Format() const
{
    return FormatErrorWithContext(FormatSystemError(m_error, true), m_context);
}

HRESULT CWinError::GetHResult() const noexcept
{
    const HRESULT hr = HRESULT_FROM_WIN32(m_error);
    return FAILED(hr) ? hr : E_FAIL;
}

DWORD CWinError::GetError() const noexcept
{
    return m_error;
}

CRuntimeError::CRuntimeError(const wchar_t* message) : m_message(message), m_forUser(false) {}
CRuntimeError::CRuntimeError(const char* message) : m_message(StringA(message).GetUnicode(CP_ACP)), m_forUser(false) {}
CRuntimeError::CRuntimeError(const StringW& message, bool forUser) : m_message(message), m_forUser(forUser) {}
CRuntimeError::CRuntimeError(const CRuntimeError& other) = default;
CRuntimeError::CRuntimeError(CRuntimeError&& other) noexcept = default;
CRuntimeError::~CRuntimeError() = default;

StringW CRuntimeError::Format() const
{
    return m_message;
}

HRESULT CRuntimeError::GetHResult() const noexcept
{
    return E_FAIL;
}

bool CRuntimeError::IsForUser() const noexcept
{
    return m_forUser;
}

} // namespace Quillon
