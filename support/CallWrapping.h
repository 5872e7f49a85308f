// How every call is checked, every failure logged and every exception turned into a result code. The whole family:
//
//   CheckCall(hr, function)                        checked call: a failure is thrown as CComError, a warning logged
//   CheckMapiCall<Quiet>(hr, object, function)     the same for a call on a MAPI object: the die-on switches are
//                                                  consulted, a failure is thrown as Mapi::CMapiError with the object's
//                                                  extended error, a warning other than Quiet is logged with it
//   CheckProfileCall(hr, object, function)         as CheckMapiCall, but a warning is logged as an event line
//   Throw(exception, function)                     logs "Throwing exception" and throws
//   CaughtException(exception, function)           logs "Caught exception" and gives the HRESULT to return
//   PASS_THROUGH(object, method, quiet, ...)       forwards a call unchanged and logs its result but for 0 and `quiet`
//   PASS_THROUGH_COM(object, method, quiet, ...)   the same without an extended error and without an extra reference
//   CheckPassThrough, CheckComResult               the result-logging rules behind the two
//   AnswerWithSelf(...)                            QueryInterface's answer for the interfaces that are the object's own
//   AnswerElsePassOn(...)                          the same; for any other interface the wrapped object is asked
//   ReportNullObject(callName)                     logs a call that cannot be forwarded, its object being null:
//   E_POINTER
//
// `function` is the function's qualified name as a literal; file and line are those of the statement, captured by
// CallSite. On success each of them is a compare; all else is out of line. Everything here may be called on any thread.
#pragma once

#include "support/ComPtr.h"
#include "support/Exceptions.h"
#include "support/Log.h"
#include "support/MapiErrors.h"

#include <source_location>
#include <utility>

#if defined(_MSC_VER)
#define KIVNST_COLD __declspec(noinline)
#define KIVNST_INLINE __forceinline
#else
#define KIVNST_COLD [[gnu::cold, gnu::noinline]]
#define KIVNST_INLINE [[gnu::always_inline]] inline
#endif

namespace Quillon
{

/// Where an event happened. Made implicitly from the function's name at the statement that reports.
struct CallSite
{
    CallSite(const wchar_t* qualifiedName, // NOLINT(google-explicit-constructor): the point of the type
             std::source_location location = std::source_location::current()) noexcept
        : function(qualifiedName),
          file(location.file_name()),
          line(static_cast<int>(location.line()))
    {
    }

    const wchar_t* function;
    const char* file;
    int line;
};

namespace Detail
{

/// An object of any MAPI interface with a GetLastError, for the reporting that is out of line.
class ErrorSource
{
public:
    template <class I>
    explicit ErrorSource(I* object) noexcept
        : m_object(object),
          m_getLastError([](void* self, HRESULT hr, MAPIERROR** error)
                         { return static_cast<I*>(self)->GetLastError(hr, MAPI_UNICODE, error); })
    {
    }

    /// The object's extended error for `hr`; null when it has none. GetLastError is asked once.
    Mapi::MapiErrorPointer GetError(HRESULT hr) const;

private:
    void* m_object;
    HRESULT (*m_getLastError)(void* self, HRESULT hr, MAPIERROR** error);
};

/// How a warning of a MAPI object is logged.
enum class WarningForm
{
    MapiError,
    EventLine
};

KIVNST_COLD KIVNST_API void LogThrowing(const CException& exception, const CallSite& site) noexcept;
KIVNST_COLD KIVNST_API void ReportCall(HRESULT hr, const CallSite& site);
KIVNST_COLD KIVNST_API void ReportMapiCall(HRESULT hr, const ErrorSource& object, const CallSite& site,
                                           WarningForm warning);
KIVNST_COLD KIVNST_API void LogMapiResult(HRESULT hr, const ErrorSource& object, const wchar_t* callName) noexcept;
KIVNST_COLD KIVNST_API void LogComResult(HRESULT hr, const wchar_t* callName) noexcept;

} // namespace Detail

/// Logs "Throwing exception" for `exception` and throws it.
template <class Exception>
[[noreturn]] KIVNST_COLD void Throw(Exception exception, const CallSite& site)
{
    Detail::LogThrowing(exception, site);
    throw Exception(std::move(exception));
}

/// Logs "Caught exception" and gives the code that the COM method returns. Leaves the last error as it was.
KIVNST_COLD KIVNST_API HRESULT CaughtException(const CException& exception, const CallSite& site) noexcept;

/// Logs, as a COM call's failure, that the object to call is null; gives E_POINTER. A wrapper made over null, or over a
/// companion that was null, must not take the mail client down.
KIVNST_COLD KIVNST_API HRESULT ReportNullObject(const wchar_t* callName) noexcept;

/// The checked call. A failure is logged and thrown as CComError; a warning is logged and the work goes on.
inline void CheckCall(HRESULT hr, const CallSite& site)
{
    if (hr != S_OK) [[unlikely]]
        Detail::ReportCall(hr, site);
}

/// The checked call on a MAPI object, which must not be null. Ends the process when `hr` is one of the four codes whose
/// die-on switch is on.
template <HRESULT Quiet = S_OK, class I>
void CheckMapiCall(HRESULT hr, I* object, const CallSite& site)
{
    if (hr != S_OK && hr != Quiet) [[unlikely]]
        Detail::ReportMapiCall(hr, Detail::ErrorSource(object), site, Detail::WarningForm::MapiError);
}

/// The checked call on an object of the profile.
template <class I>
void CheckProfileCall(HRESULT hr, I* object, const CallSite& site)
{
    if (hr != S_OK) [[unlikely]]
        Detail::ReportMapiCall(hr, Detail::ErrorSource(object), site, Detail::WarningForm::EventLine);
}

/// The result-logging rule for MAPI calls: logs any result but 0 and `toleratedCode`, with the object's extended error,
/// at level 0 for a failure and 1 for a warning; gives the result back. The caller holds the reference on the object.
template <class I>
HRESULT CheckPassThrough(HRESULT hr, I* wrappedObject, const wchar_t* callName, HRESULT toleratedCode) noexcept
{
    if (hr != S_OK && hr != toleratedCode) [[unlikely]]
        Detail::LogMapiResult(hr, Detail::ErrorSource(wrappedObject), callName);
    return hr;
}

/// The result-logging rule for COM calls: the same without an extended error.
inline HRESULT CheckComResult(HRESULT hr, const wchar_t* callName, HRESULT toleratedCode) noexcept
{
    if (hr != S_OK && hr != toleratedCode) [[unlikely]]
        Detail::LogComResult(hr, callName);
    return hr;
}

namespace Detail
{

/// A reference on an object that is not null, for a pass-through: inlined in the unwinding, too, so that the pointer
/// stays in a register.
template <class I>
class HeldReference
{
public:
    KIVNST_INLINE explicit HeldReference(I* object) : m_object(object) { m_object->AddRef(); }
    HeldReference(const HeldReference&) = delete;
    HeldReference& operator=(const HeldReference&) = delete;
    KIVNST_INLINE ~HeldReference() { m_object->Release(); }

private:
    I* m_object;
};

template <auto Method, class I, class... Arguments>
HRESULT PassThrough(I* object, const wchar_t* callName, HRESULT quiet, Arguments... arguments)
{
    if (!object) [[unlikely]]
        return ReportNullObject(callName);
    // The object survives a last Release of the wrapper during the call.
    const HeldReference<I> reference(object);
    return CheckPassThrough((object->*Method)(arguments...), object, callName, quiet);
}

template <auto Method, class I, class... Arguments>
HRESULT PassThroughCom(I* object, const wchar_t* callName, HRESULT quiet, Arguments&&... arguments)
{
    if (!object) [[unlikely]]
        return ReportNullObject(callName);
    return CheckComResult((object->*Method)(std::forward<Arguments>(arguments)...), callName, quiet);
}

} // namespace Detail

/// QueryInterface's answer for the interfaces that are the object's own: stores `self` with a reference and gives S_OK
/// when `riid` is one of `own`; otherwise null and E_NOINTERFACE. A null `ppv` gives E_POINTER.
template <class Self, class... Iids>
HRESULT AnswerWithSelf(Self* self, REFIID riid, void** ppv, const Iids&... own) noexcept
{
    if (!ppv)
        return E_POINTER;
    if (!((riid == own) || ...))
    {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    *ppv = self;
    self->AddRef();
    return S_OK;
}

/// QueryInterface's answer of a wrapper that asks the wrapped object for any interface that is not its own; `callName`
/// is that call's name in the log.
template <class Self, class I, class... Iids>
HRESULT AnswerElsePassOn(Self* self, I* wrapped, const wchar_t* callName, REFIID riid, void** ppv, const Iids&... own)
{
    if (((riid == own) || ...))
        return AnswerWithSelf(self, riid, ppv, own...);
    return Detail::PassThroughCom<&I::QueryInterface>(wrapped, callName, E_NOINTERFACE, riid, ppv);
}

} // namespace Quillon

/// Forwards a call: `return PASS_THROUGH(m_table, IMAPITable::FindRow, MAPI_E_NOT_FOUND, lpRestriction, bkOrigin,
/// ulFlags);`. The call's name in the log is the method's name as written. `object` is a counted pointer; a null one
/// is logged at level 0 and gives E_POINTER.
#define PASS_THROUGH(object, method, quiet, ...)                                                                       \
    ::Quillon::Detail::PassThrough<&method>((object).p, L"" #method, quiet __VA_OPT__(, ) __VA_ARGS__)

/// The same by the rule for COM calls.
#define PASS_THROUGH_COM(object, method, quiet, ...)                                                                   \
    ::Quillon::Detail::PassThroughCom<&method>((object).p, L"" #method, quiet __VA_OPT__(, ) __VA_ARGS__)
