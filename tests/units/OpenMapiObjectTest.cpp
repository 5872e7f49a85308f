// OpenMapiObject.
#include "mapi/OpenMapiObject.h"

#include "tests/common/LogCapture.h"
#include "tests/common/Setting.h"
#include "tests/common/StoreDoubles.h"
#include "tests/common/SupportDoubles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Quillon;
using Mapi::CMapiError;
using Mapi::OpenMapiObject;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Return;
using Tests::FolderDouble;
using Tests::LogCapture;
using Tests::StoreDouble;
using Tests::Text;

namespace
{

constexpr auto function = L"Quillon::Mapi::OpenMapiObject";
constexpr BYTE entryId[] = {1, 2, 3, 4, 5};

/// An OpenEntry that gives `object` with `hr`.
auto Give(IUnknown* object, HRESULT hr = S_OK)
{
    return [object, hr](ULONG, ENTRYID*, const IID*, ULONG, ULONG* type, IUnknown** unknown) -> HRESULT
    {
        *type = MAPI_FOLDER;
        *unknown = object;
        if (object)
            object->AddRef();
        return hr;
    };
}

HRESULT ThrownCode(IMsgStore* store)
{
    try
    {
        OpenMapiObject<IMAPIFolder>(store, entryId, sizeof(entryId));
        return S_OK;
    }
    catch (const CMapiError& error)
    {
        return error.GetHResult();
    }
}

} // namespace

TEST(OpenMapiObject, OpensTheEntryAsTheInterfaceThatIsWanted)
{
    const LogCapture log;
    const auto store = Tests::MakeStrict<StoreDouble>();
    const auto folder = Tests::MakeNice<FolderDouble>();
    EXPECT_CALL(*store, OpenEntry(5, reinterpret_cast<ENTRYID*>(const_cast<BYTE*>(entryId)), nullptr, 0, _, _))
        .WillOnce(Give(folder.Get()));
    {
        const ATL::CComQIPtr<IMAPIFolder> opened = OpenMapiObject<IMAPIFolder>(store.Get(), entryId, sizeof(entryId));
        EXPECT_EQ(opened.p, folder.Get());
        EXPECT_EQ(folder->References(), 2u);
    }
    EXPECT_EQ(folder->References(), 1u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(OpenMapiObject, OpensWithTheProcessWideFlags)
{
    const auto store = Tests::MakeStrict<StoreDouble>();
    const auto folder = Tests::MakeNice<FolderDouble>();
    Mapi::GetOpenMapiObjectFlags() = MAPI_MODIFY | MAPI_DEFERRED_ERRORS;
    EXPECT_CALL(*store, OpenEntry(_, _, nullptr, static_cast<ULONG>(MAPI_MODIFY | MAPI_DEFERRED_ERRORS), _, _))
        .WillOnce(Give(folder.Get()));
    OpenMapiObject<IMAPIFolder>(store.Get(), entryId, sizeof(entryId));
    Mapi::GetOpenMapiObjectFlags() = 0;
}

TEST(OpenMapiObject, ThrowsTheStoresFailureWithItsExtendedError)
{
    const LogCapture log;
    const auto store = Tests::MakeNice<StoreDouble>();
    EXPECT_CALL(*store, OpenEntry).WillOnce(Return(MAPI_E_NOT_FOUND));
    Tests::GiveExtendedError(*store, MAPI_E_NOT_FOUND, L"text", L"component", 1, 2);
    try
    {
        OpenMapiObject<IMAPIFolder>(store.Get(), entryId, sizeof(entryId));
        ADD_FAILURE() << "nothing was thrown";
    }
    catch (const CMapiError& error)
    {
        EXPECT_EQ(error.GetHResult(), MAPI_E_NOT_FOUND);
        EXPECT_EQ(Text(error.GetErrorText()), L"text");
        EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(L"OpenMapiObject.h", function, Text(error.Format()))));
    }
}

TEST(OpenMapiObject, LogsAWarningAtLevelOneAndGoesOn)
{
    const LogCapture log;
    const auto store = Tests::MakeNice<StoreDouble>();
    const auto folder = Tests::MakeNice<FolderDouble>();
    EXPECT_CALL(*store, OpenEntry).WillOnce(Give(folder.Get(), MAPI_W_ERRORS_RETURNED));
    EXPECT_EQ(OpenMapiObject<IMAPIFolder>(store.Get(), entryId, sizeof(entryId)).p, folder.Get());
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Entry(LogId::Warning, L"MAPI_W_ERRORS_RETURNED (0x00040380)")));
}

TEST(OpenMapiObject, ThrowsWhenTheStoreGivesNoObject)
{
    const LogCapture log;
    const auto store = Tests::MakeNice<StoreDouble>();
    EXPECT_CALL(*store, OpenEntry).WillOnce(Give(nullptr));
    EXPECT_CALL(*store, GetLastError).Times(0);
    EXPECT_EQ(ThrownCode(store.Get()), E_FAIL);
    EXPECT_EQ(log.Lines().size(), 1u);
}

TEST(OpenMapiObject, ThrowsWhenTheObjectIsOfAnotherKind)
{
    const LogCapture log;
    const auto store = Tests::MakeNice<StoreDouble>();
    const auto message = Tests::MakeNice<Tests::MessageDouble>();
    EXPECT_CALL(*store, OpenEntry).WillOnce(Give(message.Get()));
    EXPECT_EQ(ThrownCode(store.Get()), E_NOINTERFACE);
    EXPECT_EQ(message->References(), 1u);
    EXPECT_EQ(log.Lines().size(), 1u);
}

TEST(OpenMapiObject, EndsTheProcessWhenACorruptStoreIsFatal)
{
    const auto open = []
    {
        Mapi::GetDieOnCorruptStore() = true;
        const auto store = Tests::MakeNice<StoreDouble>();
        ON_CALL(*store, OpenEntry).WillByDefault(Return(MAPI_E_CORRUPT_STORE));
        ThrownCode(store.Get());
    };
    EXPECT_EXIT(open(), testing::ExitedWithCode(static_cast<int>(MAPI_E_CORRUPT_STORE)), _);
}
