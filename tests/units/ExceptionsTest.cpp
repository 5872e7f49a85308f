// The exceptions, thrown by the library and by its host, caught on either side.
#include "support/Exceptions.h"

#include "support/CallWrapping.h"
#include "support/Format.h"
#include "support/MapiErrors.h"
#include "support/Os.h"
#include "support/com_wrap.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"
#include "tests/common/MapiModule.h"
#include "tests/common/Setting.h"
#include "tests/common/TestDouble.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>

using namespace Quillon;
using Mapi::CMapiError;
using Mapi::MapiErrorPointer;
using Tests::Text;

namespace
{

static_assert(std::is_nothrow_move_constructible_v<CComError> && std::is_nothrow_move_constructible_v<CWinError> &&
              std::is_nothrow_move_constructible_v<CRuntimeError> && std::is_nothrow_move_constructible_v<CMapiError>);
static_assert(std::is_base_of_v<std::exception, CException> && std::is_base_of_v<CComError, CMapiError>);
static_assert(std::is_base_of_v<std::exception, Mapi::ExtendedMapiError> &&
              !std::is_base_of_v<CException, Mapi::ExtendedMapiError>);

/// Whether what `thrower` throws is caught by a handler for Base&.
template <class Base, class Thrower>
bool CaughtAs(Thrower&& thrower)
{
    try
    {
        thrower();
    }
    catch (const Base&)
    {
        return true;
    }
    catch (...)
    {
        return false;
    }
    return false;
}

CMapiError MakeMapiError(long hr, const wchar_t* context)
{
    const MapiErrorPointer error(Tests::AllocateMapiError(L"disk full", L"PST", 0x70, 5));
    return CMapiError(hr, error, context);
}

} // namespace

TEST(Exceptions, AreCaughtAsThemselvesAndAsEachOfTheirBases)
{
    const Tests::LogCapture log;
    const auto comError = [] { throw CComError(E_FAIL); };
    EXPECT_TRUE(CaughtAs<CComError>(comError));
    EXPECT_TRUE(CaughtAs<CException>(comError));
    EXPECT_TRUE(CaughtAs<std::exception>(comError));
    EXPECT_FALSE(CaughtAs<CMapiError>(comError));
    EXPECT_FALSE(CaughtAs<CWinError>(comError));

    const auto winError = [] { throw CWinError(ERROR_FILE_NOT_FOUND); };
    EXPECT_TRUE(CaughtAs<CWinError>(winError));
    EXPECT_TRUE(CaughtAs<CException>(winError));
    EXPECT_TRUE(CaughtAs<std::exception>(winError));
    EXPECT_FALSE(CaughtAs<CComError>(winError));

    const auto runtimeError = [] { throw CRuntimeError(L"text"); };
    EXPECT_TRUE(CaughtAs<CRuntimeError>(runtimeError));
    EXPECT_TRUE(CaughtAs<CException>(runtimeError));
    EXPECT_TRUE(CaughtAs<std::exception>(runtimeError));
    EXPECT_FALSE(CaughtAs<CComError>(runtimeError));

    const auto mapiError = [] { throw CMapiError(MAPI_E_NOT_FOUND, MapiErrorPointer(), nullptr); };
    EXPECT_TRUE(CaughtAs<CMapiError>(mapiError));
    EXPECT_TRUE(CaughtAs<CComError>(mapiError));
    EXPECT_TRUE(CaughtAs<CException>(mapiError));
    EXPECT_TRUE(CaughtAs<std::exception>(mapiError));
}

TEST(Exceptions, ThrownWithinTheLibraryAreCaughtByItsHost)
{
    const Tests::LogCapture log;
    const auto winError = [] { Os::ResetFileAttributes(L"Z:\\no such file"); };
    EXPECT_TRUE(CaughtAs<CWinError>(winError));
    EXPECT_TRUE(CaughtAs<CException>(winError));
    EXPECT_TRUE(CaughtAs<std::exception>(winError));
    const auto comError = [] { com_wrap<IMessage>(nullptr); };
    EXPECT_TRUE(CaughtAs<CComError>(comError));
    EXPECT_TRUE(CaughtAs<std::exception>(comError));
}

TEST(Exceptions, GiveTheResultThatAComMethodReturns)
{
    const struct
    {
        HRESULT given;
        HRESULT expected;
    } table[] = {
        {CComError(MAPI_E_NO_ACCESS).GetHResult(), MAPI_E_NO_ACCESS},
        {CComError(E_POINTER).GetHResult(), E_POINTER},
        {CComError(S_OK).GetHResult(), E_FAIL}, // never a success
        {CComError(S_FALSE).GetHResult(), E_FAIL},
        {CComError(MAPI_W_ERRORS_RETURNED).GetHResult(), E_FAIL},
        {MakeMapiError(MAPI_E_CORRUPT_STORE, nullptr).GetHResult(), MAPI_E_CORRUPT_STORE},
        {CWinError(ERROR_FILE_NOT_FOUND).GetHResult(), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)},
        {CWinError(ERROR_ACCESS_DENIED, L"context").GetHResult(), E_ACCESSDENIED},
        {CWinError(ERROR_SUCCESS).GetHResult(), E_FAIL},
        {CWinError(static_cast<DWORD>(E_POINTER)).GetHResult(), E_POINTER},
        {CRuntimeError(L"text").GetHResult(), E_FAIL},
    };
    for (std::size_t row = 0; row < std::size(table); ++row)
        EXPECT_EQ(table[row].given, table[row].expected) << "row " << row;
}

TEST(Exceptions, DescribeThemselves)
{
    EXPECT_EQ(Text(CComError(MAPI_E_NO_SUPPORT).Format()), Text(FormatComError(MAPI_E_NO_SUPPORT)));
    EXPECT_EQ(Text(CWinError(126).Format()), Text(FormatSystemError(126, true)));
    EXPECT_EQ(Text(CWinError(126, L"C:\\file 100%s").Format()),
              L"C:\\file 100%s: " + Text(FormatSystemError(126, true)));
    EXPECT_EQ(Text(CWinError(126, nullptr).Format()), Text(FormatSystemError(126, true)));
    EXPECT_EQ(Text(CRuntimeError(L"wide 50%s").Format()), L"wide 50%s");
    EXPECT_EQ(Text(CRuntimeError("narrow").Format()), L"narrow");
    EXPECT_EQ(Text(CRuntimeError(StringW(L"string"), false).Format()), L"string");
    EXPECT_EQ(CWinError(126).GetError(), 126u);
}

TEST(Exceptions, SayWhetherTheirMessageIsForTheUser)
{
    EXPECT_FALSE(CRuntimeError(StringW(L"text"), false).IsForUser());
    EXPECT_TRUE(CRuntimeError(StringW(L"text"), true).IsForUser());
    EXPECT_FALSE(CRuntimeError(L"text").IsForUser());
    EXPECT_FALSE(CRuntimeError("text").IsForUser());
}

TEST(Exceptions, TellWhatInUtf8)
{
    const CRuntimeError error(L"Gr\u00FC\u00DFe");
    const std::exception& base = error;
    EXPECT_STREQ(base.what(), "Gr\xC3\xBC\xC3\x9F"
                              "e");
    EXPECT_EQ(base.what(), base.what()) << "valid as long as the exception";
    const CRuntimeError copy(error);
    EXPECT_STREQ(copy.what(), error.what());
}

TEST(Exceptions, TellWhatWithoutMemoryToo)
{
    const Tests::LogCapture log;
    const CRuntimeError error(L"text");
    const Tests::NoMemory noMemory;
    EXPECT_STREQ(error.what(), "out of memory");
}

TEST(Exceptions, AreCopiedAndMovedWithAllThatTheyCarry)
{
    CMapiError error = MakeMapiError(MAPI_E_DISK_ERROR, L"IMsgStore::SaveChanges");
    const std::wstring text = Text(error.Format());
    const CMapiError copy(error);
    EXPECT_EQ(Text(copy.Format()), text);
    EXPECT_EQ(Text(error.Format()), text);
    const CMapiError moved(std::move(error));
    EXPECT_EQ(Text(moved.Format()), text);
    EXPECT_EQ(moved.GetHResult(), MAPI_E_DISK_ERROR);
    EXPECT_TRUE(moved.HasExtendedError());
    EXPECT_EQ(Text(moved.GetErrorText()), L"disk full");
    EXPECT_EQ(Text(moved.GetComponent()), L"PST");
    EXPECT_EQ(moved.GetLowLevelError(), 0x70u);
    EXPECT_EQ(moved.GetErrorContext(), 5u);

    CWinError winError(5, L"context");
    EXPECT_EQ(Text(CWinError(winError).Format()), Text(winError.Format()));
    const std::wstring winText = Text(winError.Format());
    EXPECT_EQ(Text(CWinError(std::move(winError)).Format()), winText);
    CRuntimeError runtimeError(StringW(L"text"), true);
    EXPECT_TRUE(CRuntimeError(runtimeError).IsForUser());
    EXPECT_EQ(Text(CRuntimeError(std::move(runtimeError)).Format()), L"text");
}

TEST(Exceptions, KeepTheExtendedErrorAfterItsMemoryIsFreed)
{
    const CMapiError error = MakeMapiError(MAPI_E_DISK_ERROR, nullptr);
    // The block was freed with the pointer that it was made from; the listener would notice a use of it.
    EXPECT_EQ(Text(error.Format()),
              L"MAPI_E_DISK_ERROR (0x80040116) [disk full; component: PST; low-level error: 0x00000070; context: 5]");
    const CMapiError without(MAPI_E_DISK_ERROR, MapiErrorPointer(), nullptr);
    EXPECT_FALSE(without.HasExtendedError());
    EXPECT_EQ(Text(without.Format()), L"MAPI_E_DISK_ERROR (0x80040116)");
}

TEST(Exceptions, TakeAnExtendedErrorWithoutTexts)
{
    auto* const block = static_cast<MAPIERROR*>(Tests::MapiModule::Get().Allocate(sizeof(MAPIERROR)));
    *block = MAPIERROR{0, nullptr, nullptr, 1, 2};
    const CMapiError error(MAPI_E_DISK_ERROR, MapiErrorPointer(block), L"context");
    EXPECT_TRUE(error.HasExtendedError());
    EXPECT_TRUE(error.GetErrorText().IsEmpty());
    EXPECT_EQ(Text(error.Format()),
              L"context: MAPI_E_DISK_ERROR (0x80040116) [; component: ; low-level error: 0x00000001; context: 2]");
}
