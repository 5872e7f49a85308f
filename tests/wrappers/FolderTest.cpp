// CNstMapiFolder and CNstMapiTable.
#include "nst/NstMapiFolder.h"

#include "nst/NstMapiTable.h"
#include "nst/NstMessage.h"
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

constexpr auto file = L"NstMapiFolder.cpp";

class FolderWrapper : public testing::Test
{
protected:
    DoublePointer<testing::NiceMock<FolderDouble>> pst = MakeNice<FolderDouble>();
    DoublePointer<testing::NiceMock<StoreDouble>> store = MakeNice<StoreDouble>();
    DoublePointer<testing::NiceMock<SupportDouble>> support = MakeNice<SupportDouble>();
    DoublePointer<CNstMapiFolder> folder = Wrap<CNstMapiFolder>(pst.Get(), store.Get(), support.Get());
    LogCapture log;
};

TEST_F(FolderWrapper, ReportsThePropertiesAsTheyAre)
{
    ON_CALL(*pst, GetProps)
        .WillByDefault(
            GiveProps(MAPI_W_ERRORS_RETURNED, {NumberValue(PR_ACCESS, 0x3F), NumberValue(PR_ACCESS_LEVEL, 1)}));
    Values values;
    EXPECT_EQ(values.Read(folder), MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(values[0].Value.l, 0x3F);
    EXPECT_EQ(values[1].Value.l, 1);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

/// A host's folder.
class HostFolder : public CNstMapiFolder
{
public:
    using CNstMapiFolder::CNstMapiFolder;
    std::function<void(SPropValue*, ULONG)> hook;

protected:
    void OverrideFolderProperties(SPropValue* values, ULONG count) override { hook(values, count); }
};

TEST_F(FolderWrapper, CallsTheHookAfterSuccessAndWarningsAndNotAfterAFailure)
{
    const auto host = Wrap<HostFolder>(pst.Get(), store.Get(), support.Get());
    std::vector<ULONG> tags;
    host->hook = [&tags](SPropValue* values, ULONG count)
    {
        for (ULONG index = 0; index < count; ++index)
            tags.push_back(values[index].ulPropTag);
    };
    const std::vector<Property> properties = {NumberValue(PR_ACCESS, 1), ErrorValue(PR_SUBJECT_W, MAPI_E_NOT_FOUND)};
    for (const HRESULT hr : {S_OK, MAPI_W_ERRORS_RETURNED, MAPI_W_POSITION_CHANGED, MAPI_E_NO_ACCESS})
    {
        tags.clear();
        EXPECT_CALL(*pst, GetProps).WillOnce(GiveProps(hr, properties));
        Values values;
        EXPECT_EQ(values.Read(host), hr);
        if (FAILED(hr))
            EXPECT_THAT(tags, IsEmpty());
        else
            EXPECT_THAT(tags, ElementsAre(PR_ACCESS, CHANGE_PROP_TYPE(PR_SUBJECT_W, PT_ERROR)));
    }
    constexpr auto getProps = L"Quillon::Nst::CNstMapiFolder::GetProps";
    EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Warning, MapiText(MAPI_W_POSITION_CHANGED)),
                                         Throwing(file, getProps, MapiText(MAPI_E_NO_ACCESS)),
                                         Caught(file, getProps, MapiText(MAPI_E_NO_ACCESS))));
}

TEST_F(FolderWrapper, TurnsTheHooksExceptionIntoItsCode)
{
    const auto host = Wrap<HostFolder>(pst.Get(), store.Get(), support.Get());
    host->hook = [](SPropValue*, ULONG) { throw Quillon::CRuntimeError(L"100%s"); };
    EXPECT_CALL(*pst, GetProps).WillOnce(GiveProps(S_OK, {NumberValue(PR_ACCESS, 1)}));
    Values values;
    EXPECT_EQ(values.Read(host), E_FAIL);
    EXPECT_TRUE(values);
    EXPECT_THAT(log.Lines(), ElementsAre(Caught(file, L"Quillon::Nst::CNstMapiFolder::GetProps", L"100%s")));
}

TEST_F(FolderWrapper, WrapsItsTablesAndKeepsAWarningToItself)
{
    const auto table = MakeNice<TableDouble>();
    for (const HRESULT hr : {S_OK, MAPI_W_ERRORS_RETURNED, MAPI_W_POSITION_CHANGED})
    {
        EXPECT_CALL(*pst, GetContentsTable(MAPI_DEFERRED_ERRORS, _)).WillOnce(GiveObject(hr, table.Get()));
        EXPECT_CALL(*pst, GetHierarchyTable(CONVENIENT_DEPTH, _)).WillOnce(GiveObject(hr, table.Get()));
        IMAPITable* contents = nullptr;
        IMAPITable* hierarchy = nullptr;
        EXPECT_EQ(folder->GetContentsTable(MAPI_DEFERRED_ERRORS, &contents), S_OK);
        EXPECT_EQ(folder->GetHierarchyTable(CONVENIENT_DEPTH, &hierarchy), S_OK);
        EXPECT_TRUE(IsExactly<CNstMapiTable>(contents));
        EXPECT_TRUE(IsExactly<CNstMapiTable>(hierarchy));
        EXPECT_EQ(table->References(), 3u);
        EXPECT_EQ(contents->Release(), 0u);
        EXPECT_EQ(hierarchy->Release(), 0u);
        if (hr == S_OK)
        {
            EXPECT_THAT(log.Take(), IsEmpty());
        }
        else
        {
            EXPECT_THAT(log.Take(),
                        ElementsAre(Entry(LogId::Warning, MapiText(hr)), Entry(LogId::Warning, MapiText(hr))));
        }
    }
}

TEST_F(FolderWrapper, GivesTablesThatOutliveIt)
{
    const auto table = MakeNice<TableDouble>();
    EXPECT_CALL(*pst, GetContentsTable).WillOnce(GiveObject(S_OK, table.Get()));
    IMAPITable* contents = nullptr;
    EXPECT_EQ(folder->GetContentsTable(0, &contents), S_OK);
    folder.Release();
    EXPECT_EQ(pst->References(), 1u) << "a table holds no folder";
    SRowSet* rows = nullptr;
    auto* const given = Opaque<SRowSet*>(1);
    EXPECT_CALL(*table, QueryRows(-5, 1, &rows))
        .WillOnce(testing::DoAll(testing::SetArgPointee<2>(given), Return(S_OK)));
    EXPECT_EQ(contents->QueryRows(-5, 1, &rows), S_OK);
    EXPECT_EQ(rows, given) << "the PST table's own rows";
    EXPECT_EQ(contents->Release(), 0u);
}

TEST_F(FolderWrapper, GivesTablesThatAnswerForNoPropertyObject)
{
    const auto pstTable = MakeNice<TableDouble>();
    const auto table = Wrap<CNstMapiTable>(pstTable.Get());
    EXPECT_CALL(*pstTable, QueryInterface).Times(0);
    void* object = this;
    EXPECT_EQ(table->QueryInterface(IID_IMAPIProp, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(FolderWrapper, FindsNoRowInSilenceButNotAnUnknownPosition)
{
    const auto pstTable = MakeNice<TableDouble>();
    const auto table = Wrap<CNstMapiTable>(pstTable.Get());
    EXPECT_CALL(*pstTable, FindRow).WillOnce(Return(MAPI_E_NOT_FOUND));
    EXPECT_EQ(table->FindRow(nullptr, BOOKMARK_BEGINNING, 0), MAPI_E_NOT_FOUND);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_CALL(*pstTable, SeekRow).WillOnce(Return(MAPI_E_NOT_FOUND));
    EXPECT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 1, nullptr), MAPI_E_NOT_FOUND);
    EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Error, MapiText(MAPI_E_NOT_FOUND, L"IMAPITable::SeekRow"))));
}

TEST_F(FolderWrapper, OpensEntriesByItsStoreAndNeverByThePstFolder)
{
    ULONG type = 0;
    IUnknown* object = nullptr;
    EXPECT_CALL(*pst, OpenEntry).Times(0);
    EXPECT_CALL(*store, OpenEntry(1, Opaque<ENTRYID*>(1), nullptr, 2, &type, &object))
        .WillOnce(Return(MAPI_E_NO_ACCESS));
    EXPECT_EQ(folder->OpenEntry(1, Opaque<ENTRYID*>(1), nullptr, 2, &type, &object), MAPI_E_NO_ACCESS);
    EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Error, MapiText(MAPI_E_NO_ACCESS, L"IMsgStore::OpenEntry"))));
}

TEST_F(FolderWrapper, OpensWhatIsWrappedAsTheStoreWrapperOpensIt)
{
    const auto storeWrapper = Wrap<CNstMsgStore>(store.Get(), support.Get());
    const auto wrapped = Wrap<CNstMapiFolder>(pst.Get(), storeWrapper.Get(), support.Get());
    const auto message = MakeNice<MessageDouble>();
    EXPECT_CALL(*store, OpenEntry).WillOnce(GiveEntry(S_OK, MAPI_MESSAGE, message.Get()));
    ULONG type = 0;
    IUnknown* object = nullptr;
    EXPECT_EQ(wrapped->OpenEntry(1, nullptr, nullptr, 0, &type, &object), S_OK);
    EXPECT_TRUE(IsExactly<CNstMessage>(static_cast<IMessage*>(object)));
    object->Release();

    // A failure is told once by each of the two, and that the store wrapper had no more to say of it.
    EXPECT_CALL(*store, OpenEntry).WillOnce(Return(MAPI_E_NOT_FOUND));
    EXPECT_EQ(wrapped->OpenEntry(1, nullptr, nullptr, 0, &type, &object), MAPI_E_NOT_FOUND);
    const auto line = Entry(LogId::Error, MapiText(MAPI_E_NOT_FOUND, L"IMsgStore::OpenEntry"));
    EXPECT_THAT(log.Lines(),
                ElementsAre(line, Entry(LogId::Error, MapiText(MAPI_E_NO_SUPPORT, L"IMsgStore::GetLastError")), line));
}

TEST_F(FolderWrapper, CreatesMessagesWrapped)
{
    const auto message = MakeNice<MessageDouble>();
    const IID iid = IID_IMessage;
    for (const HRESULT hr : {S_OK, MAPI_W_ERRORS_RETURNED})
    {
        EXPECT_CALL(*pst, CreateMessage(&iid, MAPI_ASSOCIATED, _)).WillOnce(GiveObject(hr, message.Get()));
        IMessage* created = nullptr;
        EXPECT_EQ(folder->CreateMessage(&iid, MAPI_ASSOCIATED, &created), S_OK);
        EXPECT_TRUE(IsExactly<CNstMessage>(created));
        EXPECT_EQ(created->Release(), 0u);
    }
    EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Warning, MapiText(MAPI_W_ERRORS_RETURNED))));
}

TEST_F(FolderWrapper, CreatesFoldersThatGoThroughTheSameStore)
{
    const auto child = MakeNice<FolderDouble>();
    wchar_t name[] = L"name";
    wchar_t comment[] = L"comment";
    const IID iid = IID_IMAPIFolder;
    EXPECT_CALL(*pst, CreateFolder(FOLDER_SEARCH, name, comment, &iid, OPEN_IF_EXISTS, _))
        .WillOnce(GiveObject(S_OK, child.Get()));
    IMAPIFolder* created = nullptr;
    EXPECT_EQ(folder->CreateFolder(FOLDER_SEARCH, name, comment, &iid, OPEN_IF_EXISTS, &created), S_OK);
    ASSERT_TRUE(IsExactly<CNstMapiFolder>(created));
    folder.Release();
    ULONG type = 0;
    IUnknown* object = nullptr;
    EXPECT_CALL(*child, OpenEntry).Times(0);
    EXPECT_CALL(*store, OpenEntry).WillOnce(Return(MAPI_E_NOT_FOUND));
    EXPECT_EQ(created->OpenEntry(1, nullptr, nullptr, 0, &type, &object), MAPI_E_NOT_FOUND);
    EXPECT_CALL(*support, CopyFolder(_, created, _, _, _, _, _, _, _, _)).WillOnce(Return(S_OK));
    EXPECT_EQ(created->CopyFolder(1, nullptr, nullptr, nullptr, nullptr, 0, nullptr, 0), S_OK);
    EXPECT_EQ(created->Release(), 0u);
}

TEST_F(FolderWrapper, LeavesItsOutputsWhenTheCallFails)
{
    struct Row
    {
        const wchar_t* function;
        std::function<HRESULT(void**)> call;
    };
    const Row rows[] = {
        {L"GetContentsTable",
         [&](void** output)
         {
             EXPECT_CALL(*pst, GetContentsTable).WillOnce(Return(MAPI_E_CORRUPT_DATA));
             return folder->GetContentsTable(0, reinterpret_cast<IMAPITable**>(output));
         }},
        {L"GetHierarchyTable",
         [&](void** output)
         {
             EXPECT_CALL(*pst, GetHierarchyTable).WillOnce(Return(MAPI_E_CORRUPT_DATA));
             return folder->GetHierarchyTable(0, reinterpret_cast<IMAPITable**>(output));
         }},
        {L"CreateMessage",
         [&](void** output)
         {
             EXPECT_CALL(*pst, CreateMessage).WillOnce(Return(MAPI_E_CORRUPT_DATA));
             return folder->CreateMessage(nullptr, 0, reinterpret_cast<IMessage**>(output));
         }},
        {L"CreateFolder",
         [&](void** output)
         {
             EXPECT_CALL(*pst, CreateFolder).WillOnce(Return(MAPI_E_CORRUPT_DATA));
             return folder->CreateFolder(1, nullptr, nullptr, nullptr, 0, reinterpret_cast<IMAPIFolder**>(output));
         }},
    };
    for (const Row& row : rows)
    {
        void* output = this;
        EXPECT_EQ(row.call(&output), MAPI_E_CORRUPT_DATA);
        EXPECT_EQ(output, this);
        const std::wstring function = std::wstring(L"Quillon::Nst::CNstMapiFolder::") + row.function;
        EXPECT_THAT(log.Take(), ElementsAre(Throwing(file, function, MapiText(MAPI_E_CORRUPT_DATA)),
                                            Caught(file, function, MapiText(MAPI_E_CORRUPT_DATA))));
    }
}

TEST_F(FolderWrapper, CopiesAFolderByTheSupportObjectNamingTheSourceAMessage)
{
    wchar_t name[] = L"name";
    const IID iid = IID_IMAPIFolder;
    EXPECT_CALL(*pst, CopyFolder).Times(0);
    EXPECT_CALL(*support,
                CopyFolder(testing::Pointee(IID_IMessage), static_cast<void*>(folder.Get()), 3, Opaque<ENTRYID*>(1),
                           &iid, Opaque<>(2), name, 4, Opaque<IMAPIProgress*>(5), FOLDER_MOVE))
        .WillOnce(Return(MAPI_E_DECLINE_COPY));
    EXPECT_EQ(
        folder->CopyFolder(3, Opaque<ENTRYID*>(1), &iid, Opaque<>(2), name, 4, Opaque<IMAPIProgress*>(5), FOLDER_MOVE),
        MAPI_E_DECLINE_COPY);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Entry(LogId::Error, MapiText(MAPI_E_DECLINE_COPY, L"IMAPISupport::CopyFolder"))));
}

TEST_F(FolderWrapper, DoesWithoutACompanionAsFarAsItCan)
{
    const auto alone = Wrap<CNstMapiFolder>(pst.Get(), nullptr, nullptr);
    ULONG type = 0;
    IUnknown* object = nullptr;
    EXPECT_EQ(alone->OpenEntry(1, nullptr, nullptr, 0, &type, &object), E_POINTER);
    EXPECT_EQ(alone->CopyFolder(1, nullptr, nullptr, nullptr, nullptr, 0, nullptr, 0), E_POINTER);
    EXPECT_CALL(*pst, SaveChanges(3)).WillOnce(Return(S_OK));
    EXPECT_EQ(alone->SaveChanges(3), S_OK);
    EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Error, L"IMsgStore::OpenEntry: " + ComText(E_POINTER)),
                                         Entry(LogId::Error, L"IMAPISupport::CopyFolder: " + ComText(E_POINTER))));
}

TEST_F(FolderWrapper, SetsSearchCriteriaAsTheyAreAndSaysNothing)
{
    EXPECT_CALL(*pst, SetSearchCriteria(Opaque<SRestriction*>(1), Opaque<ENTRYLIST*>(2), RECURSIVE_SEARCH))
        .WillOnce(Return(S_OK));
    EXPECT_EQ(folder->SetSearchCriteria(Opaque<SRestriction*>(1), Opaque<ENTRYLIST*>(2), RECURSIVE_SEARCH), S_OK);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(FolderWrapper, DeclinesACopyOfMessagesInSilence)
{
    EXPECT_CALL(*pst, CopyMessages).WillOnce(Return(MAPI_E_DECLINE_COPY));
    EXPECT_EQ(folder->CopyMessages(nullptr, nullptr, nullptr, 0, nullptr, MESSAGE_MOVE), MAPI_E_DECLINE_COPY);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(FolderWrapper, GivesOpenedPropertiesAsTheyAre)
{
    const auto object = MakeNice<UnknownDouble>();
    EXPECT_CALL(*pst, OpenProperty).WillOnce(GiveObject(S_OK, static_cast<IUnknown*>(object.Get())));
    IUnknown* opened = nullptr;
    EXPECT_EQ(folder->OpenProperty(PR_CONTAINER_CONTENTS, &IID_IMAPITable, 0, MAPI_MODIFY, &opened), S_OK);
    EXPECT_EQ(opened, object.Get());
    opened->Release();
}

TEST_F(FolderWrapper, TellsItsEntryIdAndName)
{
    GiveProperty(*pst, BinaryValue(PR_ENTRYID, {7, 8}));
    GiveProperty(*pst, TextValue(PR_DISPLAY_NAME_W, L"Inbox"));
    const Quillon::Binary id = folder->GetEntryId();
    EXPECT_EQ(Bytes(id.GetBuffer(), id.GetBuffer() + id.GetSize()), (Bytes{7, 8}));
    EXPECT_EQ(std::wstring(folder->GetDisplayName()), L"Inbox");
    GiveNoProperty(*pst, PR_ENTRYID);
    GiveNoProperty(*pst, PR_DISPLAY_NAME_W);
    EXPECT_THROW(folder->GetEntryId(), Quillon::Mapi::CMapiError);
    EXPECT_THROW(folder->GetDisplayName(), Quillon::Mapi::CMapiError);
}

TEST_F(FolderWrapper, GivesThePstFolderForThePrivateIdentifier)
{
    constexpr IID unwrapped = {0xF7E23915, 0x55A7, 0x47BE, {0xA5, 0x9D, 0x20, 0xC0, 0xFF, 0x7F, 0xF9, 0x52}};
    EXPECT_EQ(IID_UnwrappedMapiFolder, unwrapped);
    void* object = nullptr;
    EXPECT_EQ(folder->QueryInterface(unwrapped, &object), S_OK);
    EXPECT_EQ(object, pst.Get());
    pst->Release();
}

} // namespace
} // namespace Tests
