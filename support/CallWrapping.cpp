// The reporting behind the call-wrapping shapes, all of it off the successful path.
#include "support/CallWrapping.h"

#include "support/Die.h"
#include "support/Format.h"
#include "support/LastError.h"
#include "support/LogText.h"
#include "support/Os.h"
#include "support/ThreadMark.h"

namespace Quillon
{
namespace
{

constexpr auto throwingException = L"Throwing exception";
constexpr auto caughtException = L"Caught exception";
constexpr auto nonSuccess = L"Non-success condition during COM call";
constexpr auto exitingProcess = L"Exiting process";

LogId LevelOf(HRESULT hr) noexcept
{
    return hr < 0 ? LogId::Error : LogId::Warning;
}

bool IsFatal(HRESULT hr) noexcept
{
    switch (hr)
    {
    case MAPI_E_NETWORK_ERROR:
        return Mapi::GetDieOnNetworkErrors();
    case MAPI_E_TOO_BIG: // deliberately taken for an out-of-memory failure
    case MAPI_E_NOT_ENOUGH_MEMORY:
        return Mapi::GetDieOnOutOfMemoryErrors();
    case MAPI_E_CORRUPT_STORE:
        return Mapi::GetDieOnCorruptStore();
    default:
        return false;
    }
}

/// The event line: the event word, the unit's file name, the function, the line and the description.
StringW FormatEvent(const wchar_t* event, const CallSite& site, const StringW& description)
{
    const StringW file = Os::GetNameFromPath(StringA(site.file).GetUnicode(CP_UTF8));
    return FormatString(L"%s at %s, %s, line %d: %s", event, file.GetString(), site.function, site.line,
                        description.GetString());
}

[[noreturn]] void Die(HRESULT hr, const Detail::ErrorSource& object, const CallSite& site)
{
    Detail::LogText(LogId::Error, exitingProcess,
                    [&] { return Mapi::FormatMapiError(hr, StringW(), object.GetError(hr).Get()); });
    Detail::LogText(LogId::Error, exitingProcess,
                    [&]
                    {
                        const auto code = static_cast<unsigned>(hr);
                        return FormatEvent(exitingProcess, site,
                                           code == 0xFFFFFFFF ? StringW(L"Unknown reason")
                                                              : FormatSystemError(code, true));
                    });
    OnDie(static_cast<unsigned>(hr));
    ExitProcess(static_cast<UINT>(hr));
}

} // namespace

namespace Detail
{

Mapi::MapiErrorPointer ErrorSource::GetError(HRESULT hr) const
{
    if (!m_object)
        return Mapi::MapiErrorPointer();
    MAPIERROR* error = nullptr;
    if (FAILED(m_getLastError(m_object, hr, &error)))
        error = nullptr; // an output of a failed call is nobody's to free
    return Mapi::MapiErrorPointer(error);
}

void LogThrowing(const CException& exception, const CallSite& site) noexcept
{
    const KeepLastError lastError;
    // An exception that making the text raises is not told in turn, which would raise the next, without end: the event
    // is then logged without its text.
    const ThreadMark mark(Doing::MakingText);
    if (!mark.IsNested())
    {
        LogText(LogId::Exception, throwingException,
                [&] { return FormatEvent(throwingException, site, exception.Format()); });
    }
}

void ReportCall(HRESULT hr, const CallSite& site)
{
    if (hr < 0)
        Throw(CComError(hr), site);
    LogText(LogId::Warning, nonSuccess,
            [&]
            {
                return FormatEvent(
                    nonSuccess, site,
                    FormatErrorWithContext(FormatSystemError(static_cast<unsigned>(hr), true), StringW()));
            });
}

void ReportMapiCall(HRESULT hr, const ErrorSource& object, const CallSite& site, WarningForm warning)
{
    if (IsFatal(hr))
        Die(hr, object, site);
    if (hr < 0)
        Throw(Mapi::CMapiError(hr, object.GetError(hr), nullptr), site);
    if (warning == WarningForm::EventLine)
        ReportCall(hr, site);
    else
        LogMapiResult(hr, object, L"");
}

void LogMapiResult(HRESULT hr, const ErrorSource& object, const wchar_t* callName) noexcept
{
    LogText(LevelOf(hr), *callName ? callName : nonSuccess,
            [&] { return Mapi::FormatMapiError(hr, callName, object.GetError(hr).Get()); });
}

void LogComResult(HRESULT hr, const wchar_t* callName) noexcept
{
    LogText(LevelOf(hr), callName, [&] { return FormatErrorWithContext(FormatComError(hr), StringW(callName)); });
}

} // namespace Detail

HRESULT ReportNullObject(const wchar_t* callName) noexcept
{
    Detail::LogComResult(E_POINTER, callName);
    return E_POINTER;
}

HRESULT CaughtException(const CException& exception, const CallSite& site) noexcept
{
    Detail::LogText(LogId::Exception, caughtException,
                    [&] { return FormatEvent(caughtException, site, exception.Format()); });
    return exception.GetHResult();
}

} // namespace Quillon
