// The exceptions by which the library's functions report failure. A COM method of the library turns each into the code
// that GetHResult gives; a host does the same at its own boundary. Besides what its comment names, every function of
// the library that is not noexcept may throw CComError(E_OUTOFMEMORY).
#pragma once

#include "support/Export.h"
#include "support/StringW.h"

#include <windows.h>

#include <exception>

namespace Quillon
{

/// The base of all. Copying one may throw CComError(E_OUTOFMEMORY); moving one never throws.
class KIVNST_API CException : public std::exception
{
public:
    CException(const CException& other);
    CException(CException&& other) noexcept;
    CException& operator=(const CException&) = delete;
    ~CException() override;

    /// One line that describes the failure, for logs.
    virtual StringW Format() const = 0;

    /// The code that a COM method returns for this exception; always a failure.
    virtual HRESULT GetHResult() const noexcept = 0;

    /// Format()'s text in UTF-8. Valid as long as the exception.
    const char* what() const noexcept override;

protected:
    CException() noexcept;

private:
    mutable StringA m_what;
};

/// A COM call failed with an HRESULT, or the library refuses with one.
class KIVNST_API CComError : public CException
{
public:
    explicit CComError(long hr) noexcept;
    CComError(const CComError& other);
    CComError(CComError&& other) noexcept;
    ~CComError() override;

    StringW Format() const override;
    /// The code given; a code that is no failure is reported as E_FAIL.
    HRESULT GetHResult() const noexcept override;

private:
    HRESULT m_hr;
};

/// A Win32 call failed.
class KIVNST_API CWinError : public CException
{
public:
    explicit CWinError(DWORD error) noexcept;
    CWinError(DWORD error, const wchar_t* context);
    CWinError(const CWinError& other);
    CWinError(CWinError&& other) noexcept;
    ~CWinError() override;

    StringW Format() const override;
    /// HRESULT_FROM_WIN32 of the code; E_FAIL for code 0.
    HRESULT GetHResult() const noexcept override;
    DWORD GetError() const noexcept;

private:
    DWORD m_error;
    StringW m_context;
};

/// A failure of the library's own, told by a message.
class KIVNST_API CRuntimeError : public CException
{
public:
    explicit CRuntimeError(const wchar_t* message);
    /// `message` is in the system's ANSI code page.
    explicit CRuntimeError(const char* message);
    /// `forUser` says that the message is fit to be shown to the mail client's user as it stands.
    CRuntimeError(const StringW& message, bool forUser);
    CRuntimeError(const CRuntimeError& other);
    CRuntimeError(CRuntimeError&& other) noexcept;
    ~CRuntimeError() override;

    StringW Format() const override;
    /// E_FAIL.
    HRESULT GetHResult() const noexcept override;
    bool IsForUser() const noexcept;

private:
    StringW m_message;
    bool m_forUser;
};

} // namespace Quillon
