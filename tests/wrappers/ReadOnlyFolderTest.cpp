// CReadOnlyFolder.
#include "nst/ReadOnlyFolder.h"

#include "nst/NstMapiTable.h"
#include "nst/NstMessage.h"
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

constexpr auto name = L"Inbox 100%s";

class ReadOnlyFolderWrapper : public testing::Test
{
protected:
    ReadOnlyFolderWrapper() { GiveProperty(*pst, TextValue(PR_DISPLAY_NAME_W, name)); }

    DoublePointer<testing::NiceMock<FolderDouble>> pst = MakeNice<FolderDouble>();
    DoublePointer<testing::NiceMock<StoreDouble>> store = MakeNice<StoreDouble>();
    DoublePointer<testing::NiceMock<SupportDouble>> support = MakeNice<SupportDouble>();
    DoublePointer<CReadOnlyFolder> folder = Wrap<CReadOnlyFolder>(pst.Get(), store.Get(), support.Get());
    LogCapture log;
};

/// A call that is refused with a line that ends in the folder's name.
struct NamedRefusal
{
    const char* method;
    const wchar_t* line;
    HRESULT (*call)(IMAPIFolder& folder, void** output);
    /// Expects the PST folder to be called so often.
    void (*expect)(FolderDouble& pst, int times);
};

void PrintTo(const NamedRefusal& row, std::ostream* stream)
{
    *stream << row.method;
}

const NamedRefusal namedRefusals[] = {
    {"CreateMessage", L"IMAPIFolder::CreateMessage called on read-only folder; returning MAPI_E_NO_ACCESS: ",
     [](IMAPIFolder& folder, void** output)
     { return folder.CreateMessage(nullptr, 0, reinterpret_cast<IMessage**>(output)); },
     [](FolderDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, CreateMessage), times); }},
    {"CopyMessages",
     L"IMAPIFolder::CopyMessages called with MESSAGE_MOVE on read-only folder; returning MAPI_E_NO_ACCESS: ",
     [](IMAPIFolder& folder, void**)
     { return folder.CopyMessages(nullptr, nullptr, nullptr, 0, nullptr, MESSAGE_MOVE); },
     [](FolderDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, CopyMessages), times); }},
    {"CopyMessagesWithADialog",
     L"IMAPIFolder::CopyMessages called with MESSAGE_MOVE on read-only folder; returning MAPI_E_NO_ACCESS: ",
     [](IMAPIFolder& folder, void**)
     { return folder.CopyMessages(nullptr, nullptr, nullptr, 0, nullptr, MESSAGE_MOVE | MESSAGE_DIALOG); },
     [](FolderDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, CopyMessages), times); }},
    {"DeleteMessages", L"IMAPIFolder::DeleteMessages called on read-only folder; returning MAPI_E_NO_ACCESS: ",
     [](IMAPIFolder& folder, void**) { return folder.DeleteMessages(nullptr, 0, nullptr, 0); },
     [](FolderDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, DeleteMessages), times); }},
    {"CreateFolder", L"IMAPIFolder::CreateFolder called on read-only folder; returning MAPI_E_NO_ACCESS: ",
     [](IMAPIFolder& folder, void** output)
     {
         return folder.CreateFolder(FOLDER_GENERIC, nullptr, nullptr, nullptr, OPEN_IF_EXISTS,
                                    reinterpret_cast<IMAPIFolder**>(output));
     },
     [](FolderDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, CreateFolder), times); }},
    {"DeleteFolder", L"IMAPIFolder::DeleteFolder called on read-only folder; returning MAPI_E_NO_ACCESS: ",
     [](IMAPIFolder& folder, void**) { return folder.DeleteFolder(0, nullptr, 0, nullptr, 0); },
     [](FolderDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, DeleteFolder), times); }},
    {"SetReadFlags", L"IMAPIFolder::SetReadFlags called on read-only folder; returning MAPI_E_NO_ACCESS: ",
     [](IMAPIFolder& folder, void**)
     { return folder.SetReadFlags(nullptr, 0, nullptr, CLEAR_READ_FLAG | SUPPRESS_RECEIPT); },
     [](FolderDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, SetReadFlags), times); }},
    {"SetMessageStatus", L"IMAPIFolder::SetMessageStatus called on read-only folder; returning MAPI_E_NO_ACCESS: ",
     [](IMAPIFolder& folder, void** output)
     { return folder.SetMessageStatus(0, nullptr, 0, 0, reinterpret_cast<ULONG*>(output)); },
     [](FolderDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, SetMessageStatus), times); }},
    {"EmptyFolder", L"IMAPIFolder::EmptyFolder called on read-only folder; returning MAPI_E_NO_ACCESS: ",
     [](IMAPIFolder& folder, void**) { return folder.EmptyFolder(0, nullptr, 0); },
     [](FolderDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, EmptyFolder), times); }},
};

class NamedRefusals : public ReadOnlyFolderWrapper, public testing::WithParamInterface<NamedRefusal>
{
};

TEST_P(NamedRefusals, NameTheFolderAndFollowTheSwitchOfTheMoment)
{
    const NamedRefusal& row = GetParam();
    void* output = this;
    for (int round = 0; round < 2; ++round)
    {
        row.expect(*pst, 0);
        EXPECT_EQ(row.call(*folder, &output), MAPI_E_NO_ACCESS);
        EXPECT_EQ(output, this);
        EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Warning, std::wstring(row.line) + name)));
        testing::Mock::VerifyAndClearExpectations(pst.Get());
        GiveProperty(*pst, TextValue(PR_DISPLAY_NAME_W, name));

        // An open folder is writable from the next call on.
        const ModifyStores setting(true);
        row.expect(*pst, 1);
        EXPECT_EQ(row.call(*folder, &output), E_FAIL);
        EXPECT_EQ(output, this);
        for (const LogLine& line : log.Take())
            EXPECT_EQ(line.text.find(L"read-only"), std::wstring::npos);
        testing::Mock::VerifyAndClearExpectations(pst.Get());
        GiveProperty(*pst, TextValue(PR_DISPLAY_NAME_W, name));
    }
}

TEST_P(NamedRefusals, LetTheExceptionOutThatANameThatCannotBeReadGives)
{
    ON_CALL(*pst, GetProps).WillByDefault(Return(MAPI_E_CORRUPT_DATA));
    const ULONG references = pst->References();
    GetParam().expect(*pst, 0);
    void* output = this;
    try
    {
        GetParam().call(*folder, &output);
        ADD_FAILURE() << "no exception";
    }
    catch (const Quillon::CException& exception)
    {
        EXPECT_EQ(exception.GetHResult(), MAPI_E_CORRUPT_DATA);
    }
    EXPECT_EQ(output, this);
    EXPECT_EQ(pst->References(), references);
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(log.Lines()[0].level, LogId::Exception);
}

TEST_P(NamedRefusals, ReadTheNameWithTheLogOffToo)
{
    Quillon::Logging::TurnLogOff();
    GetParam().expect(*pst, 0);
    void* output = this;
    EXPECT_EQ(GetParam().call(*folder, &output), MAPI_E_NO_ACCESS);
    ON_CALL(*pst, GetProps).WillByDefault(Return(MAPI_E_CORRUPT_DATA));
    EXPECT_THROW(GetParam().call(*folder, &output), Quillon::CException);
    EXPECT_EQ(output, this);
    EXPECT_TRUE(log.Lines().empty());
}

INSTANTIATE_TEST_SUITE_P(Methods, NamedRefusals, testing::ValuesIn(namedRefusals),
                         [](const auto& test) { return test.param.method; });

TEST_F(ReadOnlyFolderWrapper, RefusesToOpenAnyPropertyAndNamesIt)
{
    auto* const untouched = Opaque<IUnknown*>(1);
    IUnknown* object = untouched;
    EXPECT_CALL(*pst, OpenProperty).Times(0);
    EXPECT_EQ(folder->OpenProperty(PR_CONTAINER_CONTENTS, &IID_IMAPITable, 0, 0, &object), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->OpenProperty(0x7FE70102, nullptr, 0, MAPI_CREATE | MAPI_MODIFY, &object), MAPI_E_NO_ACCESS);
    EXPECT_EQ(object, untouched);
    EXPECT_THAT(log.Take(),
                ElementsAre(Entry(LogId::Warning, L"IMAPIFolder::OpenProperty called on read-only folder; returning "
                                                  L"MAPI_E_NO_ACCESS: PR_CONTAINER_CONTENTS"),
                            Entry(LogId::Warning, L"IMAPIFolder::OpenProperty called on read-only folder; returning "
                                                  L"MAPI_E_NO_ACCESS: 0x7FE70102")));
    testing::Mock::VerifyAndClearExpectations(pst.Get());
    const ModifyStores setting(true);
    EXPECT_CALL(*pst, OpenProperty(PR_CONTAINER_CONTENTS, &IID_IMAPITable, 1, 2, &object)).WillOnce(Return(S_OK));
    EXPECT_EQ(folder->OpenProperty(PR_CONTAINER_CONTENTS, &IID_IMAPITable, 1, 2, &object), S_OK);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

struct SetCase
{
    const char* name;
    std::vector<ULONG> tags;
    bool passes;
    const wchar_t* detail;
};

void PrintTo(const SetCase& row, std::ostream* stream)
{
    *stream << row.name;
}

class ReadOnlyFolderSets : public ReadOnlyFolderWrapper, public testing::WithParamInterface<SetCase>
{
};

TEST_F(ReadOnlyFolderWrapper, RefusesAllTheSameWithTheLogOff)
{
    Quillon::Logging::TurnLogOff();
    SPropTagArray tags = {1, {PR_DISPLAY_NAME_W}};
    SPropValue value = {};
    value.ulPropTag = PR_DISPLAY_NAME_W;
    EXPECT_CALL(*pst, GetLastError).Times(0);
    EXPECT_CALL(*pst, OpenProperty).Times(0);
    EXPECT_CALL(*pst, DeleteProps).Times(0);
    EXPECT_CALL(*pst, SetProps).Times(0);
    EXPECT_CALL(*pst, SaveChanges).WillOnce(testing::Return(MAPI_E_CALL_FAILED));
    EXPECT_EQ(folder->OpenProperty(PR_DISPLAY_NAME_W, nullptr, 0, 0, nullptr), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->DeleteProps(&tags, nullptr), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->SetProps(1, &value, nullptr), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->SaveChanges(0), MAPI_E_CALL_FAILED);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_P(ReadOnlyFolderSets, OnlyWhatIsAllowed)
{
    const SetCase& row = GetParam();
    std::vector<SPropValue> values(row.tags.size());
    for (std::size_t index = 0; index < row.tags.size(); ++index)
        values[index].ulPropTag = row.tags[index];
    const auto count = static_cast<ULONG>(row.tags.size());
    auto* const untouched = Opaque<SPropProblemArray*>(1);
    SPropProblemArray* problems = untouched;
    ON_CALL(*pst, SetProps).WillByDefault(Return(MAPI_W_ERRORS_RETURNED));
    EXPECT_CALL(*pst, SetProps(count, values.data(), &problems)).Times(row.passes ? 1 : 0);
    EXPECT_EQ(folder->SetProps(count, values.data(), &problems),
              row.passes ? MAPI_W_ERRORS_RETURNED : MAPI_E_NO_ACCESS);
    EXPECT_EQ(problems, untouched);
    if (row.passes)
    {
        EXPECT_THAT(log.Take(),
                    ElementsAre(Entry(LogId::Warning, MapiText(MAPI_W_ERRORS_RETURNED, L"IMAPIFolder::SetProps"))));
    }
    else
    {
        EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Warning, L"IMAPIFolder::SetProps called on read-only folder; "
                                                                  L"returning MAPI_E_NO_ACCESS:"),
                                            Detail(LogId::Warning, row.detail)));
    }
    testing::Mock::VerifyAndClearExpectations(pst.Get());
    const ModifyStores setting(true);
    EXPECT_CALL(*pst, SetProps(count, values.data(), &problems)).WillOnce(Return(S_OK));
    EXPECT_EQ(folder->SetProps(count, values.data(), &problems), S_OK);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Tags, ReadOnlyFolderSets,
    testing::Values(
        SetCase{"TheFirstAllowed", {0x30200102}, true, nullptr},
        SetCase{"TheSecondAllowed", {0x30210102}, true, nullptr},
        SetCase{"BothAllowed", {0x30210102, 0x30200102}, true, nullptr},
        SetCase{"AllowedThenDisplayName", {0x30200102, PR_DISPLAY_NAME_W}, false, L"0x30200102, PR_DISPLAY_NAME_W"},
        SetCase{"DisplayNameThenAllowed", {PR_DISPLAY_NAME_W, 0x30200102}, false, L"PR_DISPLAY_NAME_W, 0x30200102"},
        SetCase{"OtherTypeOfAllowed", {0x3020001F}, false, L"0x3020001F"}),
    [](const auto& test) { return test.param.name; });

TEST_F(ReadOnlyFolderWrapper, SetsNothingInSilence)
{
    EXPECT_CALL(*pst, SetProps).Times(0);
    EXPECT_EQ(folder->SetProps(0, nullptr, nullptr), S_OK);
    EXPECT_EQ(folder->SetProps(0, Opaque<SPropValue*>(1), Opaque<SPropProblemArray**>(2)), S_OK);
    EXPECT_THAT(log.Lines(), IsEmpty());
    testing::Mock::VerifyAndClearExpectations(pst.Get());
    const ModifyStores setting(true);
    EXPECT_CALL(*pst, SetProps(0, nullptr, nullptr)).WillOnce(Return(MAPI_E_INVALID_PARAMETER));
    EXPECT_EQ(folder->SetProps(0, nullptr, nullptr), MAPI_E_INVALID_PARAMETER);
}

TEST_F(ReadOnlyFolderWrapper, RefusesAMissingArrayWithoutADetailLine)
{
    EXPECT_CALL(*pst, SetProps).Times(0);
    EXPECT_CALL(*pst, DeleteProps).Times(0);
    EXPECT_EQ(folder->SetProps(2, nullptr, nullptr), MAPI_E_NO_ACCESS);
    EXPECT_EQ(folder->DeleteProps(nullptr, nullptr), MAPI_E_NO_ACCESS);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Entry(LogId::Warning,
                                  L"IMAPIFolder::SetProps called on read-only folder; returning MAPI_E_NO_ACCESS:"),
                            Entry(LogId::Warning, L"IMAPIFolder::DeleteProps called on read-only folder; returning "
                                                  L"MAPI_E_NO_ACCESS:")));
}

TEST_F(ReadOnlyFolderWrapper, DeletesNothingNotEvenWhatMayBeSet)
{
    SizedSPropTagArray(2, tags) = {2, {0x30200102, PR_COMMENT_W}};
    auto* const array = reinterpret_cast<SPropTagArray*>(&tags);
    auto* const untouched = Opaque<SPropProblemArray*>(1);
    SPropProblemArray* problems = untouched;
    EXPECT_CALL(*pst, DeleteProps).Times(0);
    EXPECT_EQ(folder->DeleteProps(array, &problems), MAPI_E_NO_ACCESS);
    EXPECT_EQ(problems, untouched);
    EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Warning, L"IMAPIFolder::DeleteProps called on read-only folder; "
                                                              L"returning MAPI_E_NO_ACCESS:"),
                                        Detail(LogId::Warning, L"0x30200102, PR_COMMENT_W")));
    testing::Mock::VerifyAndClearExpectations(pst.Get());
    const ModifyStores setting(true);
    EXPECT_CALL(*pst, DeleteProps(array, &problems)).WillOnce(Return(S_OK));
    EXPECT_EQ(folder->DeleteProps(array, &problems), S_OK);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadOnlyFolderWrapper, CopiesMessagesThatAreNotMoved)
{
    for (const ULONG flags : {0ul, MESSAGE_DIALOG, 0xFFFFFFFEul})
    {
        EXPECT_CALL(*pst, CopyMessages(Opaque<ENTRYLIST*>(1), &IID_IMAPIFolder, Opaque<>(2), 3,
                                       Opaque<IMAPIProgress*>(4), flags))
            .WillOnce(Return(MAPI_E_DECLINE_COPY));
        EXPECT_EQ(folder->CopyMessages(Opaque<ENTRYLIST*>(1), &IID_IMAPIFolder, Opaque<>(2), 3,
                                       Opaque<IMAPIProgress*>(4), flags),
                  MAPI_E_DECLINE_COPY);
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

struct RightsCase
{
    ULONG tag;
    ULONG before;
    ULONG after;
};

constexpr RightsCase rightsCases[] = {
    {0x0FF40003, 0x3F, 2},
    {0x0FF70003, 1, 0},
    {0x66390003, 0x7FB, 0x401},
    {0x66390003, 0, 1},
    {0x66390003, 0xFFFFFBFE, 1},
    {0x340D0003, 0x00240019, 0x00040003},
    {0x340D0003, 0xFFFFFFFF, 0xFFDFFFE7},
    {0x340F0003, 0x00240019, 0x00040003},
    {0x0FF4000A, 0x8004010F, 0x8004010F},
    {0x6639000A, 0x8004010F, 0x8004010F},
    {0x66390002, 0x7FB, 0x7FB},
    {PR_CONTENT_COUNT, 5, 5},
};

TEST_F(ReadOnlyFolderWrapper, ReportsItselfReadOnlyByTheSwitchOfTheMoment)
{
    std::vector<Property> properties;
    for (const RightsCase& row : rightsCases)
        properties.push_back(NumberValue(row.tag, row.before));
    ON_CALL(*pst, GetProps).WillByDefault(GiveProps(MAPI_W_ERRORS_RETURNED, properties));
    for (const bool modify : {false, true, false})
    {
        const ModifyStores setting(modify);
        Values values;
        EXPECT_EQ(values.Read(folder), MAPI_W_ERRORS_RETURNED);
        ASSERT_EQ(values.Count(), std::size(rightsCases));
        for (std::size_t index = 0; index < values.Count(); ++index)
        {
            EXPECT_EQ(values[index].ulPropTag, rightsCases[index].tag);
            EXPECT_EQ(static_cast<ULONG>(values[index].Value.l),
                      modify ? rightsCases[index].before : rightsCases[index].after)
                << std::hex << rightsCases[index].tag;
        }
    }
    // Nothing is added to an empty answer.
    ON_CALL(*pst, GetProps).WillByDefault(GiveProps(S_OK, {}));
    Values values;
    EXPECT_EQ(values.Read(folder), S_OK);
    EXPECT_EQ(values.Count(), 0u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadOnlyFolderWrapper, LetsThroughWhatIsNotRefusedOnPurpose)
{
    for (const bool modify : {false, true})
    {
        const ModifyStores setting(modify);
        EXPECT_CALL(*pst, SaveChanges(KEEP_OPEN_READWRITE)).WillOnce(Return(S_OK));
        EXPECT_EQ(folder->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        EXPECT_CALL(*pst, CopyTo).WillOnce(Return(S_OK));
        EXPECT_EQ(folder->CopyTo(0, nullptr, nullptr, 0, nullptr, nullptr, nullptr, MAPI_MOVE, nullptr), S_OK);
        EXPECT_CALL(*pst, CopyProps).WillOnce(Return(S_OK));
        EXPECT_EQ(folder->CopyProps(nullptr, 0, nullptr, nullptr, nullptr, MAPI_MOVE, nullptr), S_OK);
        EXPECT_CALL(*support, CopyFolder(_, static_cast<void*>(folder.Get()), _, _, _, _, _, _, _, FOLDER_MOVE))
            .WillOnce(Return(S_OK));
        EXPECT_EQ(folder->CopyFolder(0, nullptr, nullptr, nullptr, nullptr, 0, nullptr, FOLDER_MOVE), S_OK);
        EXPECT_CALL(*pst, SetSearchCriteria).WillOnce(Return(S_OK));
        EXPECT_EQ(folder->SetSearchCriteria(nullptr, nullptr, RESTART_SEARCH), S_OK);
        EXPECT_CALL(*pst, SaveContentsSort).WillOnce(Return(S_OK));
        EXPECT_EQ(folder->SaveContentsSort(nullptr, 0), S_OK);
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadOnlyFolderWrapper, CreatesPlainObjectsWhileModificationIsOn)
{
    const ModifyStores setting(true);
    const auto child = MakeNice<FolderDouble>();
    const auto message = MakeNice<MessageDouble>();
    EXPECT_CALL(*pst, CreateFolder).WillOnce(GiveObject(S_OK, child.Get()));
    EXPECT_CALL(*pst, CreateMessage).WillOnce(GiveObject(S_OK, message.Get()));
    IMAPIFolder* createdFolder = nullptr;
    IMessage* createdMessage = nullptr;
    EXPECT_EQ(folder->CreateFolder(FOLDER_GENERIC, nullptr, nullptr, nullptr, 0, &createdFolder), S_OK);
    EXPECT_EQ(folder->CreateMessage(nullptr, 0, &createdMessage), S_OK);
    EXPECT_TRUE(IsExactly<CNstMapiFolder>(createdFolder));
    EXPECT_TRUE(IsExactly<CNstMessage>(createdMessage));
    createdFolder->Release();
    createdMessage->Release();
}

TEST_F(ReadOnlyFolderWrapper, LeavesTheRowsOfItsTablesAsTheyAre)
{
    const auto table = MakeNice<TableDouble>();
    EXPECT_CALL(*pst, GetContentsTable).WillOnce(GiveObject(S_OK, table.Get()));
    IMAPITable* wrapped = nullptr;
    EXPECT_EQ(folder->GetContentsTable(0, &wrapped), S_OK);
    SPropValue access = {};
    access.ulPropTag = PR_ACCESS;
    access.Value.l = 0x3F;
    SRowSet rows = {1, {{0, 1, &access}}};
    EXPECT_CALL(*table, QueryRows).WillOnce(testing::DoAll(testing::SetArgPointee<2>(&rows), Return(S_OK)));
    SRowSet* given = nullptr;
    EXPECT_EQ(wrapped->QueryRows(1, 0, &given), S_OK);
    EXPECT_EQ(given, &rows);
    EXPECT_EQ(access.Value.l, 0x3F);
    wrapped->Release();
}

} // namespace
} // namespace Tests
