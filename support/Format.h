// Texts of errors and codes, and printf-style formatting into a StringW.
#pragma once

#include "support/Export.h"
#include "support/StringW.h"

namespace Quillon
{

/// Formats printf-style and wide, and throws, as StringW::AppendFormat. Any thread.
KIVNST_API StringW FormatString(const wchar_t* format, ...);

/// The text of an HRESULT: its name where MAPI or COM has one, its number, the system's message where there is one;
/// "MAPI_E_NO_ACCESS (0x80070005): Access denied." or "MAPI_E_NO_SUPPORT (0x80040102)". One line. Any thread.
KIVNST_API StringW FormatComError(long hr);

/// The text of a Win32 error or an HRESULT from the system's message table. With `withCode` the name or number stands
/// in front as in FormatComError ("Error 126 (0x0000007E): Module not found."); without it the message alone is given,
/// and the number where there is no message. One line. Any thread.
KIVNST_API StringW FormatSystemError(unsigned code, bool withCode);

/// "context: error", or the error alone when the context is empty. Any thread.
KIVNST_API StringW FormatErrorWithContext(const StringW& error, const StringW& context);

/// The name that MAPI or COM gives a code ("MAPI_E_NO_ACCESS"), or null. Any thread.
KIVNST_API const wchar_t* GetResultCodeName(long hr) noexcept;

} // namespace Quillon
