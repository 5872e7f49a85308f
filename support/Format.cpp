// Texts of errors and codes.
#include "support/Format.h"

#include "support/ArgumentList.h"
#include "support/LocalText.h"
#include "support/MapiHeaders.h"

namespace Quillon
{
namespace
{

struct ResultCodeName
{
    HRESULT code;
    const wchar_t* name;
};

// Where MAPI and COM share a code, MAPI's name stands: it is a MAPI library that speaks.
#define KIVNST_CODE(name) {name, L"" #name}
constexpr ResultCodeName resultCodeNames[] = {
    KIVNST_CODE(MAPI_E_CALL_FAILED),
    KIVNST_CODE(MAPI_E_NOT_ENOUGH_MEMORY),
    KIVNST_CODE(MAPI_E_INVALID_PARAMETER),
    KIVNST_CODE(MAPI_E_INTERFACE_NOT_SUPPORTED),
    KIVNST_CODE(MAPI_E_NO_ACCESS),
    KIVNST_CODE(MAPI_E_NO_SUPPORT),
    KIVNST_CODE(MAPI_E_BAD_CHARWIDTH),
    KIVNST_CODE(MAPI_E_STRING_TOO_LONG),
    KIVNST_CODE(MAPI_E_UNKNOWN_FLAGS),
    KIVNST_CODE(MAPI_E_INVALID_ENTRYID),
    KIVNST_CODE(MAPI_E_INVALID_OBJECT),
    KIVNST_CODE(MAPI_E_OBJECT_CHANGED),
    KIVNST_CODE(MAPI_E_OBJECT_DELETED),
    KIVNST_CODE(MAPI_E_BUSY),
    KIVNST_CODE(MAPI_E_NOT_ENOUGH_DISK),
    KIVNST_CODE(MAPI_E_NOT_ENOUGH_RESOURCES),
    KIVNST_CODE(MAPI_E_NOT_FOUND),
    KIVNST_CODE(MAPI_E_VERSION),
    KIVNST_CODE(MAPI_E_LOGON_FAILED),
    KIVNST_CODE(MAPI_E_SESSION_LIMIT),
    KIVNST_CODE(MAPI_E_USER_CANCEL),
    KIVNST_CODE(MAPI_E_UNABLE_TO_ABORT),
    KIVNST_CODE(MAPI_E_NETWORK_ERROR),
    KIVNST_CODE(MAPI_E_DISK_ERROR),
    KIVNST_CODE(MAPI_E_TOO_COMPLEX),
    KIVNST_CODE(MAPI_E_BAD_COLUMN),
    KIVNST_CODE(MAPI_E_EXTENDED_ERROR),
    KIVNST_CODE(MAPI_E_COMPUTED),
    KIVNST_CODE(MAPI_E_CORRUPT_DATA),
    KIVNST_CODE(MAPI_E_UNCONFIGURED),
    KIVNST_CODE(MAPI_E_FAILONEPROVIDER),
    KIVNST_CODE(MAPI_E_UNKNOWN_CPID),
    KIVNST_CODE(MAPI_E_UNKNOWN_LCID),
    KIVNST_CODE(MAPI_E_PASSWORD_CHANGE_REQUIRED),
    KIVNST_CODE(MAPI_E_PASSWORD_EXPIRED),
    KIVNST_CODE(MAPI_E_INVALID_WORKSTATION_ACCOUNT),
    KIVNST_CODE(MAPI_E_INVALID_ACCESS_TIME),
    KIVNST_CODE(MAPI_E_ACCOUNT_DISABLED),
    KIVNST_CODE(MAPI_E_END_OF_SESSION),
    KIVNST_CODE(MAPI_E_UNKNOWN_ENTRYID),
    KIVNST_CODE(MAPI_E_MISSING_REQUIRED_COLUMN),
    KIVNST_CODE(MAPI_W_NO_SERVICE),
    KIVNST_CODE(MAPI_E_BAD_VALUE),
    KIVNST_CODE(MAPI_E_INVALID_TYPE),
    KIVNST_CODE(MAPI_E_TYPE_NO_SUPPORT),
    KIVNST_CODE(MAPI_E_UNEXPECTED_TYPE),
    KIVNST_CODE(MAPI_E_TOO_BIG),
    KIVNST_CODE(MAPI_E_DECLINE_COPY),
    KIVNST_CODE(MAPI_E_UNEXPECTED_ID),
    KIVNST_CODE(MAPI_W_ERRORS_RETURNED),
    KIVNST_CODE(MAPI_E_UNABLE_TO_COMPLETE),
    KIVNST_CODE(MAPI_E_TIMEOUT),
    KIVNST_CODE(MAPI_E_TABLE_EMPTY),
    KIVNST_CODE(MAPI_E_TABLE_TOO_BIG),
    KIVNST_CODE(MAPI_E_INVALID_BOOKMARK),
    KIVNST_CODE(MAPI_W_POSITION_CHANGED),
    KIVNST_CODE(MAPI_W_APPROX_COUNT),
    KIVNST_CODE(MAPI_E_WAIT),
    KIVNST_CODE(MAPI_E_CANCEL),
    KIVNST_CODE(MAPI_E_NOT_ME),
    KIVNST_CODE(MAPI_W_CANCEL_MESSAGE),
    KIVNST_CODE(MAPI_E_CORRUPT_STORE),
    KIVNST_CODE(MAPI_E_NOT_IN_QUEUE),
    KIVNST_CODE(MAPI_E_NO_SUPPRESS),
    KIVNST_CODE(MAPI_E_COLLISION),
    KIVNST_CODE(MAPI_E_NOT_INITIALIZED),
    KIVNST_CODE(MAPI_E_NON_STANDARD),
    KIVNST_CODE(MAPI_E_NO_RECIPIENTS),
    KIVNST_CODE(MAPI_E_SUBMITTED),
    KIVNST_CODE(MAPI_E_HAS_FOLDERS),
    KIVNST_CODE(MAPI_E_HAS_MESSAGES),
    KIVNST_CODE(MAPI_E_FOLDER_CYCLE),
    KIVNST_CODE(MAPI_W_PARTIAL_COMPLETION),
    KIVNST_CODE(MAPI_E_AMBIGUOUS_RECIP),
    KIVNST_CODE(S_FALSE),
    KIVNST_CODE(E_ABORT),
    KIVNST_CODE(E_HANDLE),
    KIVNST_CODE(E_NOTIMPL),
    KIVNST_CODE(E_POINTER),
    KIVNST_CODE(E_UNEXPECTED),
    KIVNST_CODE(CO_E_NOTINITIALIZED),
    KIVNST_CODE(REGDB_E_CLASSNOTREG),
    KIVNST_CODE(RPC_E_CHANGED_MODE),
    KIVNST_CODE(RPC_E_DISCONNECTED),
    KIVNST_CODE(RPC_E_WRONG_THREAD),
};
#undef KIVNST_CODE

/// Puts the text in one line: each line break with the blanks around it becomes one blank, what lies at the end is left
/// out. Gives the length that is left.
DWORD JoinLines(wchar_t* text, DWORD length) noexcept
{
    DWORD kept = 0;
    for (DWORD at = 0; at < length; ++at)
    {
        if (text[at] >= L' ')
        {
            text[kept++] = text[at];
            continue;
        }
        while (kept > 0 && text[kept - 1] == L' ')
            --kept;
        while (at + 1 < length && text[at + 1] <= L' ')
            ++at;
        text[kept++] = L' ';
    }
    while (kept > 0 && text[kept - 1] == L' ')
        --kept;
    return kept;
}

/// The system's message in one line; empty when there is none.
StringW GetSystemMessage(unsigned code)
{
    // MAPI's own codes are of the facility that every interface uses for itself: the table's texts for them are of
    // other interfaces.
    if (HRESULT_FACILITY(code) == FACILITY_ITF && GetResultCodeName(static_cast<long>(code)))
        return StringW();
    Detail::LocalText text;
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                       nullptr, code, 0, reinterpret_cast<wchar_t*>(text.Put()), 0, nullptr);
    return StringW(text.Get(), JoinLines(text.Get(), length));
}

StringW FormatCode(unsigned code)
{
    if (const wchar_t* const name = GetResultCodeName(static_cast<long>(code)))
        return FormatString(L"%s (0x%08X)", name, code);
    return FormatString(L"0x%08X", code);
}

StringW JoinMessage(const StringW& code, const StringW& message)
{
    return message.IsEmpty() ? code : code + L": " + message;
}

} // namespace

StringW FormatString(const wchar_t* format, ...)
{
    Detail::ArgumentList arguments;
    va_start(arguments.list, format);
    StringW text;
    text.AppendFormatArguments(format, arguments.list);
    return text;
}

const wchar_t* GetResultCodeName(long hr) noexcept
{
    for (const ResultCodeName& entry : resultCodeNames)
        if (entry.code == hr)
            return entry.name;
    return nullptr;
}

StringW FormatComError(long hr)
{
    const auto code = static_cast<unsigned>(hr);
    return JoinMessage(FormatCode(code), GetSystemMessage(code));
}

StringW FormatSystemError(unsigned code, bool withCode)
{
    StringW message = GetSystemMessage(code);
    if (!withCode && !message.IsEmpty())
        return message;
    constexpr unsigned largestWin32Error = 0xFFFF;
    const StringW number =
        code <= largestWin32Error ? FormatString(L"Error %u (0x%08X)", code, code) : FormatCode(code);
    return JoinMessage(number, withCode ? message : StringW());
}

StringW FormatErrorWithContext(const StringW& error, const StringW& context)
{
    return context.IsEmpty() ? error : context + L": " + error;
}

} // namespace Quillon
