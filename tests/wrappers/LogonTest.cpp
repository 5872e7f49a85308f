// CNstMsLogon.
#include "nst/NstMsLogon.h"

#include "nst/NstMapiFolder.h"
#include "nst/NstMsgStore.h"
#include "tests/wrappers/Setting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Quillon::Nst;
using Quillon::LogId;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Return;

namespace Tests
{
namespace
{

class LogonWrapper : public testing::Test
{
protected:
    DoublePointer<testing::NiceMock<LogonDouble>> pst = MakeNice<LogonDouble>();
    DoublePointer<testing::NiceMock<StoreDouble>> pstStore = MakeNice<StoreDouble>();
    DoublePointer<CNstMsgStore> store = Wrap<CNstMsgStore>(pstStore.Get(), nullptr);
    DoublePointer<CNstMsLogon> logon = Wrap<CNstMsLogon>(pst.Get(), store.Get());
    LogCapture log;
};

TEST_F(LogonWrapper, OpensAFolderWrappedByItsStoreAndNeverByThePstLogon)
{
    const auto folder = MakeNice<FolderDouble>();
    const IID iid = IID_IMAPIFolder;
    EXPECT_CALL(*pst, OpenEntry).Times(0);
    EXPECT_CALL(*pstStore, OpenEntry(24, Opaque<ENTRYID*>(1), &iid, MAPI_MODIFY, _, _))
        .WillOnce(GiveEntry(S_OK, MAPI_FOLDER, folder.Get()));
    store.Release(); // the logon keeps it
    ULONG type = 0;
    IUnknown* object = nullptr;
    EXPECT_EQ(logon->OpenEntry(24, Opaque<ENTRYID*>(1), &iid, MAPI_MODIFY, &type, &object), S_OK);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_FOLDER));
    EXPECT_TRUE(IsExactly<CNstMapiFolder>(static_cast<IMAPIFolder*>(object)));
    logon.Release();
    EXPECT_EQ(pst->References(), 1u);
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_EQ(pstStore->References(), 1u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(LogonWrapper, TellsAFailedOpenTwiceEachWithItsOwnExtendedError)
{
    wchar_t storeText[] = L"of the store";
    wchar_t logonText[] = L"of the logon";
    wchar_t component[] = L"pst";
    GiveExtendedError(*pstStore, MAPI_E_NOT_FOUND, storeText, component, 1, 2);
    GiveExtendedError(*pst, MAPI_E_NOT_FOUND, logonText, component, 3, 4);
    EXPECT_CALL(*pstStore, OpenEntry).WillOnce(Return(MAPI_E_NOT_FOUND));
    ULONG type = 0;
    IUnknown* object = nullptr;
    EXPECT_EQ(logon->OpenEntry(24, nullptr, nullptr, 0, &type, &object), MAPI_E_NOT_FOUND);
    const MAPIERROR storeError = {MAPI_ERROR_VERSION, storeText, component, 1, 2};
    const MAPIERROR logonError = {MAPI_ERROR_VERSION, logonText, component, 3, 4};
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            Entry(LogId::Error,
                  Quillon::Mapi::FormatMapiError(MAPI_E_NOT_FOUND, L"IMsgStore::OpenEntry", &storeError).GetString()),
            Entry(LogId::Error,
                  Quillon::Mapi::FormatMapiError(MAPI_E_NOT_FOUND, L"IMSLogon::OpenEntry", &logonError).GetString())));
}

TEST_F(LogonWrapper, AnswersForNoOtherInterfaceWithoutAskingThePstLogonOrALine)
{
    EXPECT_CALL(*pst, QueryInterface).Times(0);
    for (const IID& iid : {IID_IMAPIProp, IID_IMsgStore})
    {
        void* object = this;
        EXPECT_EQ(logon->QueryInterface(iid, &object), E_NOINTERFACE);
        EXPECT_EQ(object, nullptr);
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(LogonWrapper, CountsItsReferencesAndEndsWithTheLast)
{
    auto* const object = new CNstMsLogon(pst.Get(), store.Get());
    EXPECT_EQ(pst->References(), 3u);
    EXPECT_EQ(object->AddRef(), 2u);
    EXPECT_EQ(object->AddRef(), 3u);
    EXPECT_EQ(object->Release(), 2u);
    EXPECT_EQ(object->Release(), 1u);
    EXPECT_EQ(pst->References(), 3u);
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_EQ(pst->References(), 2u);
}

TEST_F(LogonWrapper, RegistersTheSinkItselfWithThePstLogon)
{
    auto* const sink = Opaque<IMAPIAdviseSink*>(1);
    ULONG connection = 0;
    EXPECT_CALL(*pst, Advise(4, Opaque<ENTRYID*>(2), fnevObjectModified, sink, &connection))
        .WillOnce(testing::DoAll(testing::SetArgPointee<4>(77), Return(S_OK)));
    EXPECT_EQ(logon->Advise(4, Opaque<ENTRYID*>(2), fnevObjectModified, sink, &connection), S_OK);
    EXPECT_EQ(connection, 77u);
    EXPECT_CALL(*pst, Unadvise(77)).WillOnce(Return(S_OK));
    EXPECT_EQ(logon->Unadvise(77), S_OK);
}

TEST_F(LogonWrapper, DoesNotOpenWithoutAStore)
{
    const auto alone = Wrap<CNstMsLogon>(pst.Get(), nullptr);
    EXPECT_CALL(*pst, OpenEntry).Times(0);
    ULONG type = 0;
    IUnknown* object = Opaque<IUnknown*>(1);
    EXPECT_EQ(alone->OpenEntry(24, nullptr, nullptr, 0, &type, &object), E_POINTER);
    EXPECT_EQ(object, Opaque<IUnknown*>(1));
    EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Error, L"IMSLogon::OpenEntry: " + ComText(E_POINTER))));
}

TEST_F(LogonWrapper, LogsOffByThePstLogonAndGoesOn)
{
    ULONG flags = 5;
    EXPECT_CALL(*pst, Logoff(&flags)).WillOnce(Return(S_OK));
    EXPECT_EQ(logon->Logoff(&flags), S_OK);
    EXPECT_EQ(pst->References(), 2u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

} // namespace
} // namespace Tests
