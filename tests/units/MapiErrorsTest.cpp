// MAPI failures.
#include "support/MapiErrors.h"

#include "support/Format.h"
#include "tests/common/LogCapture.h"
#include "tests/common/MapiModule.h"
#include "tests/common/Setting.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

using namespace Quillon;
using namespace Quillon::Mapi;
using Tests::MapiModule;
using Tests::Text;

namespace
{

/// A MAPIERROR over texts that live elsewhere.
MAPIERROR Extended(const wchar_t* text, const wchar_t* component, ULONG lowLevelError, ULONG context)
{
    return MAPIERROR{MAPI_ERROR_VERSION, const_cast<LPTSTR>(text), const_cast<LPTSTR>(component), lowLevelError,
                     context};
}

} // namespace

TEST(FormatMapiError, TellsContextCodeAndExtendedError)
{
    const MAPIERROR error = Extended(L"disk full 100%s", L"PST", 0x70, 5);
    const MAPIERROR empty = Extended(nullptr, nullptr, 0, 0);
    const struct
    {
        StringW text;
        const wchar_t* expected;
    } table[] = {
        {FormatMapiError(MAPI_E_NOT_FOUND, StringW(), nullptr), L"MAPI_E_NOT_FOUND (0x8004010F)"},
        {FormatMapiError(MAPI_E_NOT_FOUND, L"IMsgStore::OpenEntry", nullptr),
         L"IMsgStore::OpenEntry: MAPI_E_NOT_FOUND (0x8004010F)"},
        {FormatMapiError(MAPI_E_DISK_ERROR, L"IMsgStore::OpenEntry", &error),
         L"IMsgStore::OpenEntry: MAPI_E_DISK_ERROR (0x80040116) [disk full 100%s; component: PST; low-level error: "
         L"0x00000070; context: 5]"},
        {FormatMapiError(MAPI_E_DISK_ERROR, StringW(), &error),
         L"MAPI_E_DISK_ERROR (0x80040116) [disk full 100%s; component: PST; low-level error: 0x00000070; context: 5]"},
        {FormatMapiError(MAPI_W_ERRORS_RETURNED, StringW(), &empty),
         L"MAPI_W_ERRORS_RETURNED (0x00040380) [; component: ; low-level error: 0x00000000; context: 0]"},
    };
    for (const auto& row : table)
        EXPECT_EQ(Text(row.text), row.expected);
}

TEST(CreateMapiError, CopiesWideTextsIntoOneBlock)
{
    const MAPIERROR source = Extended(L"Gr\u00FC\u00DFe 100%s", L"component", 0x1234, 99);
    const ULONG before = MapiModule::Get().LiveBlocks();
    const MapiErrorPointer copy = CreateMapiError(MAPI_UNICODE, source);
    EXPECT_EQ(MapiModule::Get().LiveBlocks(), before + 1);
    ASSERT_TRUE(static_cast<bool>(copy));
    EXPECT_EQ(copy->ulVersion, static_cast<ULONG>(MAPI_ERROR_VERSION));
    EXPECT_STREQ(copy->lpszError, source.lpszError);
    EXPECT_NE(copy->lpszError, source.lpszError);
    EXPECT_STREQ(copy->lpszComponent, L"component");
    EXPECT_EQ(copy->ulLowLevelError, 0x1234u);
    EXPECT_EQ(copy->ulContext, 99u);
    // MAPI's receivers read the texts with alignment that the machine may insist on.
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(copy->lpszError) % alignof(wchar_t), 0u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(copy->lpszComponent) % alignof(wchar_t), 0u);
}

TEST(CreateMapiError, NarrowsTheTextsWithoutTheUnicodeFlag)
{
    const MAPIERROR source = Extended(L"text", L"component", 1, 2);
    for (const ULONG flags : {0ul, ~MAPI_UNICODE})
    {
        const MapiErrorPointer copy = CreateMapiError(flags, source);
        EXPECT_STREQ(reinterpret_cast<const char*>(copy->lpszError), "text");
        EXPECT_STREQ(reinterpret_cast<const char*>(copy->lpszComponent), "component");
        EXPECT_EQ(copy->ulLowLevelError, 1u);
        EXPECT_EQ(copy->ulContext, 2u);
        EXPECT_EQ(copy->ulVersion, static_cast<ULONG>(MAPI_ERROR_VERSION));
    }
}

TEST(CreateMapiError, CopiesTheVersionThatItIsGiven)
{
    MAPIERROR source = Extended(L"text", L"component", 1, 2);
    source.ulVersion = 0x12345;
    EXPECT_EQ(CreateMapiError(MAPI_UNICODE, source)->ulVersion, 0x12345u);
}

TEST(CreateMapiError, GivesEmptyTextsForThoseThatAreMissing)
{
    const MAPIERROR source = Extended(nullptr, nullptr, 0, 0);
    const MapiErrorPointer wide = CreateMapiError(MAPI_UNICODE, source);
    EXPECT_STREQ(wide->lpszError, L"");
    EXPECT_STREQ(wide->lpszComponent, L"");
    const MapiErrorPointer narrow = CreateMapiError(0, source);
    EXPECT_STREQ(reinterpret_cast<const char*>(narrow->lpszError), "");
    EXPECT_STREQ(reinterpret_cast<const char*>(narrow->lpszComponent), "");
}

TEST(CreateMapiError, CopiesLongTextsWhole)
{
    const std::wstring text(100'000, L'x');
    const std::wstring component(70'001, L'y');
    const MAPIERROR source = Extended(text.c_str(), component.c_str(), 0, 0);
    const MapiErrorPointer wide = CreateMapiError(MAPI_UNICODE, source);
    EXPECT_EQ(std::wstring(wide->lpszError), text);
    EXPECT_EQ(std::wstring(wide->lpszComponent), component);
    const MapiErrorPointer narrow = CreateMapiError(0, source);
    EXPECT_EQ(std::strlen(reinterpret_cast<const char*>(narrow->lpszError)), text.size());
    EXPECT_EQ(std::strlen(reinterpret_cast<const char*>(narrow->lpszComponent)), component.size());
}

TEST(CreateMapiError, ThrowsWhenThereIsNoMemory)
{
    const Tests::LogCapture log;
    MapiModule::Get().FailAllocation(1);
    EXPECT_THROW(CreateMapiError(MAPI_UNICODE, Extended(L"text", L"component", 0, 0)), CComError);
    EXPECT_EQ(log.Lines().size(), 1u);
}

TEST(ExtendedMapiError, GivesWhatItWasMadeOfAsLongAsItLives)
{
    std::wstring text = L"no such file";
    const ExtendedMapiError error(text.c_str(), L"component", 2, 3);
    text = L"overwritten";
    const ExtendedMapiError copy(error);
    for (const ExtendedMapiError* const one : {&error, &copy})
    {
        const MAPIERROR given = one->GetError();
        EXPECT_STREQ(given.lpszError, L"no such file");
        EXPECT_STREQ(given.lpszComponent, L"component");
        EXPECT_EQ(given.ulLowLevelError, 2u);
        EXPECT_EQ(given.ulContext, 3u);
        EXPECT_EQ(given.ulVersion, static_cast<ULONG>(MAPI_ERROR_VERSION));
        EXPECT_STRNE(one->what(), "");
    }
    EXPECT_STREQ(ExtendedMapiError(L"text", nullptr, 0, 0).GetError().lpszComponent, L"");
}

TEST(OpenMapiObjectFlags, AreNoneAndCanBeSetByTheHost)
{
    EXPECT_EQ(GetOpenMapiObjectFlags(), 0u);
    GetOpenMapiObjectFlags() = MAPI_BEST_ACCESS;
    EXPECT_EQ(GetOpenMapiObjectFlags(), static_cast<ULONG>(MAPI_BEST_ACCESS));
    GetOpenMapiObjectFlags() = 0;
}
