// CNstMessage, CReadOnlyMessage and CNstAttach.
#include "nst/NstAttach.h"
#include "nst/ReadOnlyMessage.h"
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

class MessageWrapper : public testing::Test
{
protected:
    DoublePointer<testing::NiceMock<MessageDouble>> pst = MakeNice<MessageDouble>();
    LogCapture log;
};

/// A host's message.
class HostMessage : public CNstMessage
{
public:
    using CNstMessage::CNstMessage;
    std::function<void(SPropValue*, ULONG)> hook;

    /// As a host wraps attachments.
    STDMETHODIMP OpenAttach(ULONG ulAttachmentNum, LPCIID lpInterface, ULONG ulFlags, LPATTACH* lppAttach) override
    {
        ATL::CComQIPtr<IAttach> attachment;
        const HRESULT hr = CNstMessage::OpenAttach(ulAttachmentNum, lpInterface, ulFlags, &attachment);
        if (SUCCEEDED(hr))
            *lppAttach = new CNstAttach(attachment);
        return hr;
    }

protected:
    void OverrideMessageProperties(SPropValue* values, ULONG count) override { hook(values, count); }
};

TEST_F(MessageWrapper, ShowsTheHookWhatTheStoreReturned)
{
    const auto host = Wrap<HostMessage>(pst.Get());
    std::vector<ULONG> tags;
    host->hook = [&tags](SPropValue* values, ULONG count)
    {
        for (ULONG index = 0; index < count; ++index)
            tags.push_back(values[index].ulPropTag);
    };
    const std::vector<Property> properties = {NumberValue(PR_ACCESS, 1), ErrorValue(PR_SUBJECT_W, MAPI_E_NOT_FOUND)};
    for (const HRESULT hr : {MAPI_W_ERRORS_RETURNED, MAPI_W_POSITION_CHANGED, MAPI_E_NO_ACCESS})
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
    constexpr auto getProps = L"Quillon::Nst::CNstMessage::GetProps";
    EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Warning, MapiText(MAPI_W_POSITION_CHANGED)),
                                         Throwing(L"NstMessage.cpp", getProps, MapiText(MAPI_E_NO_ACCESS)),
                                         Caught(L"NstMessage.cpp", getProps, MapiText(MAPI_E_NO_ACCESS))));
}

TEST_F(MessageWrapper, TurnsTheHooksExceptionIntoItsCode)
{
    const auto host = Wrap<HostMessage>(pst.Get());
    host->hook = [](SPropValue*, ULONG) { throw Quillon::CComError(MAPI_E_CORRUPT_DATA); };
    EXPECT_CALL(*pst, GetProps).WillOnce(GiveProps(S_OK, {NumberValue(PR_ACCESS, 1)}));
    Values values;
    EXPECT_EQ(values.Read(host), MAPI_E_CORRUPT_DATA);
    EXPECT_TRUE(values);
    EXPECT_THAT(log.Lines(), ElementsAre(Caught(L"NstMessage.cpp", L"Quillon::Nst::CNstMessage::GetProps",
                                                ComText(MAPI_E_CORRUPT_DATA))));
}

TEST_F(MessageWrapper, AnswersForNoFolderAndSaysNothing)
{
    const auto message = Wrap<CNstMessage>(pst.Get());
    EXPECT_CALL(*pst, QueryInterface).Times(0);
    void* object = this;
    EXPECT_EQ(message->QueryInterface(IID_IMAPIFolder, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(MessageWrapper, GivesAttachmentsAsTheyAre)
{
    const auto message = Wrap<CNstMessage>(pst.Get());
    const auto attachment = MakeNice<AttachDouble>();
    EXPECT_CALL(*pst, OpenAttach(3, nullptr, MAPI_BEST_ACCESS, _)).WillOnce(GiveObject(S_OK, attachment.Get()));
    IAttach* opened = nullptr;
    EXPECT_EQ(message->OpenAttach(3, nullptr, MAPI_BEST_ACCESS, &opened), S_OK);
    EXPECT_EQ(opened, attachment.Get());
    void* same = nullptr;
    EXPECT_EQ(opened->QueryInterface(IID_IAttachment, &same), S_OK);
    EXPECT_EQ(same, attachment.Get());
    opened->Release();
    opened->Release();
}

TEST_F(MessageWrapper, LetsAHostWrapAttachments)
{
    const auto host = Wrap<HostMessage>(pst.Get());
    const auto attachment = MakeNice<AttachDouble>();
    EXPECT_CALL(*pst, OpenAttach).WillOnce(GiveObject(S_OK, attachment.Get()));
    IAttach* opened = nullptr;
    EXPECT_EQ(host->OpenAttach(0, nullptr, 0, &opened), S_OK);
    ASSERT_TRUE(IsExactly<CNstAttach>(opened));
    EXPECT_EQ(opened->Release(), 0u);
}

class AttachmentWrapper : public testing::Test
{
protected:
    DoublePointer<testing::NiceMock<AttachDouble>> pst = MakeNice<AttachDouble>();
    DoublePointer<CNstAttach> attachment = Wrap<CNstAttach>(pst.Get());
    LogCapture log;
};

TEST_F(AttachmentWrapper, ReturnsMissingValuesInSilenceAndAltersNone)
{
    EXPECT_CALL(*pst, GetProps).WillOnce(GiveProps(MAPI_W_ERRORS_RETURNED, {NumberValue(PR_ACCESS, 0x3F)}));
    Values values;
    EXPECT_EQ(values.Read(attachment), MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(values[0].Value.l, 0x3F);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(AttachmentWrapper, ReturnsAnotherWarningOfGetPropsAfterALine)
{
    EXPECT_CALL(*pst, GetProps).WillOnce(GiveProps(MAPI_W_POSITION_CHANGED, {NumberValue(PR_ACCESS, 0x3F)}));
    Values values;
    EXPECT_EQ(values.Read(attachment), MAPI_W_POSITION_CHANGED);
    EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Warning, MapiText(MAPI_W_POSITION_CHANGED))));
}

TEST_F(AttachmentWrapper, DeclinesACopyInSilence)
{
    EXPECT_CALL(*pst, CopyTo).WillOnce(Return(MAPI_E_DECLINE_COPY));
    EXPECT_EQ(attachment->CopyTo(0, nullptr, nullptr, 0, nullptr, nullptr, nullptr, 0, nullptr), MAPI_E_DECLINE_COPY);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(AttachmentWrapper, AnswersForNoMessageAndSaysNothing)
{
    EXPECT_CALL(*pst, QueryInterface).Times(0);
    void* object = this;
    EXPECT_EQ(attachment->QueryInterface(IID_IMessage, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(MessageWrapper, DeclinesACopyInSilenceButNotItsLackOfSupport)
{
    const auto message = Wrap<CNstMessage>(pst.Get());
    EXPECT_CALL(*pst, CopyTo).WillOnce(Return(MAPI_E_DECLINE_COPY)).WillOnce(Return(MAPI_E_NO_SUPPORT));
    EXPECT_EQ(message->CopyTo(0, nullptr, nullptr, 0, nullptr, nullptr, nullptr, 0, nullptr), MAPI_E_DECLINE_COPY);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(message->CopyTo(0, nullptr, nullptr, 0, nullptr, nullptr, nullptr, 0, nullptr), MAPI_E_NO_SUPPORT);
    EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Error, MapiText(MAPI_E_NO_SUPPORT, L"IMessage::CopyTo"))));
}

TEST_F(MessageWrapper, ReportsThePropertiesAsTheyAre)
{
    const auto message = Wrap<CNstMessage>(pst.Get());
    ON_CALL(*pst, GetProps).WillByDefault(GiveProps(S_OK, {NumberValue(PR_ACCESS, 0x3F)}));
    Values values;
    EXPECT_EQ(values.Read(message), S_OK);
    EXPECT_EQ(values[0].Value.l, 0x3F);
}

class ReadOnlyMessageWrapper : public MessageWrapper
{
protected:
    DoublePointer<CReadOnlyMessage> message = Wrap<CReadOnlyMessage>(pst.Get());
};

/// A call that is refused with a fixed line.
struct Refusal
{
    const char* method;
    const wchar_t* line;
    HRESULT (*call)(IMessage& message, void** output);
    void (*expect)(MessageDouble& pst, int times);
};

void PrintTo(const Refusal& row, std::ostream* stream)
{
    *stream << row.method;
}

const Refusal refusals[] = {
    {"SaveChanges", L"IMessage::SaveChanges called on read-only message; returning MAPI_E_NO_ACCESS",
     [](IMessage& message, void**) { return message.SaveChanges(KEEP_OPEN_READWRITE); },
     [](MessageDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, SaveChanges(KEEP_OPEN_READWRITE)), times); }},
    {"SetPropsOfNone", L"IMessage::SetProps called on read-only message; returning MAPI_E_NO_ACCESS:",
     [](IMessage& message, void** output)
     { return message.SetProps(0, nullptr, reinterpret_cast<SPropProblemArray**>(output)); },
     [](MessageDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, SetProps), times); }},
    {"SetPropsWithACountOfNone", L"IMessage::SetProps called on read-only message; returning MAPI_E_NO_ACCESS:",
     [](IMessage& message, void** output)
     { return message.SetProps(0, Opaque<SPropValue*>(1), reinterpret_cast<SPropProblemArray**>(output)); },
     [](MessageDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, SetProps), times); }},
    {"SetPropsWithoutAnArray", L"IMessage::SetProps called on read-only message; returning MAPI_E_NO_ACCESS:",
     [](IMessage& message, void** output)
     { return message.SetProps(3, nullptr, reinterpret_cast<SPropProblemArray**>(output)); },
     [](MessageDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, SetProps), times); }},
    {"DeletePropsWithoutAnArray", L"IMessage::DeleteProps called on read-only message; returning MAPI_E_NO_ACCESS:",
     [](IMessage& message, void** output)
     { return message.DeleteProps(nullptr, reinterpret_cast<SPropProblemArray**>(output)); },
     [](MessageDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, DeleteProps), times); }},
    {"CreateAttach", L"IMessage::CreateAttach called on read-only archive store message; returning MAPI_E_NO_ACCESS",
     [](IMessage& message, void** output)
     {
         return message.CreateAttach(nullptr, 0, reinterpret_cast<ULONG*>(output), reinterpret_cast<IAttach**>(output));
     },
     [](MessageDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, CreateAttach), times); }},
    {"DeleteAttach", L"IMessage::DeleteAttach called on read-only archive store message; returning MAPI_E_NO_ACCESS",
     [](IMessage& message, void**) { return message.DeleteAttach(1, 2, nullptr, 3); },
     [](MessageDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, DeleteAttach(1, 2, nullptr, 3)), times); }},
    {"ModifyRecipients", L"IMessage::ModifyRecipients called on read-only message; returning MAPI_E_NO_ACCESS",
     [](IMessage& message, void**) { return message.ModifyRecipients(MODRECIP_ADD, nullptr); },
     [](MessageDouble& pst, int times)
     { FailTimes(EXPECT_CALL(pst, ModifyRecipients(MODRECIP_ADD, nullptr)), times); }},
    {"SubmitMessage", L"IMessage::SubmitMessage called on read-only message; returning MAPI_E_NO_ACCESS",
     [](IMessage& message, void**) { return message.SubmitMessage(FORCE_SUBMIT); },
     [](MessageDouble& pst, int times) { FailTimes(EXPECT_CALL(pst, SubmitMessage(FORCE_SUBMIT)), times); }},
};

class Refusals : public ReadOnlyMessageWrapper, public testing::WithParamInterface<Refusal>
{
};

TEST_P(Refusals, FollowTheSwitchOfTheMoment)
{
    const Refusal& row = GetParam();
    void* output = this;
    for (int round = 0; round < 2; ++round)
    {
        row.expect(*pst, 0);
        EXPECT_EQ(row.call(*message, &output), MAPI_E_NO_ACCESS);
        EXPECT_EQ(output, this);
        EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Warning, row.line)));
        testing::Mock::VerifyAndClearExpectations(pst.Get());

        const ModifyStores setting(true);
        row.expect(*pst, 1);
        EXPECT_EQ(row.call(*message, &output), E_FAIL);
        EXPECT_EQ(log.Take().size(), 1u);
        testing::Mock::VerifyAndClearExpectations(pst.Get());
    }
}

INSTANTIATE_TEST_SUITE_P(Methods, Refusals, testing::ValuesIn(refusals),
                         [](const auto& test) { return test.param.method; });

TEST_F(ReadOnlyMessageWrapper, RefusesToWriteAnyPropertyAndListsThem)
{
    SPropValue values[2] = {};
    values[0].ulPropTag = 0x30200102;
    values[1].ulPropTag = PR_SUBJECT_W;
    SizedSPropTagArray(2, tags) = {2, {PR_BODY_W, 0x7FE70102}};
    auto* const untouched = Opaque<SPropProblemArray*>(1);
    SPropProblemArray* problems = untouched;
    EXPECT_CALL(*pst, SetProps).Times(0);
    EXPECT_CALL(*pst, DeleteProps).Times(0);
    EXPECT_EQ(message->SetProps(2, values, &problems), MAPI_E_NO_ACCESS);
    EXPECT_EQ(message->DeleteProps(reinterpret_cast<SPropTagArray*>(&tags), &problems), MAPI_E_NO_ACCESS);
    EXPECT_EQ(problems, untouched);
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(
            Entry(LogId::Warning, L"IMessage::SetProps called on read-only message; returning MAPI_E_NO_ACCESS:"),
            Detail(LogId::Warning, L"0x30200102, PR_SUBJECT_W"),
            Entry(LogId::Warning, L"IMessage::DeleteProps called on read-only message; returning MAPI_E_NO_ACCESS:"),
            Detail(LogId::Warning, L"PR_BODY_W, 0x7FE70102")));
}

TEST_F(ReadOnlyMessageWrapper, OpensWithoutWriteAccess)
{
    struct Row
    {
        ULONG asked;
        ULONG passedOn;
    };
    static constexpr Row rows[] = {
        {MAPI_MODIFY | MAPI_DEFERRED_ERRORS, 8},
        {0x13, 2},
        {MAPI_BEST_ACCESS, 0},
        {0, 0},
        {0xFFFFFFFF, 0xFFFFFFEE},
        {0x11, 0},
        {0x10, 0},
        {1, 0},
    };
    const auto object = MakeNice<UnknownDouble>();
    const auto attachment = MakeNice<AttachDouble>();
    for (const bool modify : {false, true, false})
    {
        const ModifyStores setting(modify);
        for (const Row& row : rows)
        {
            const ULONG flags = modify ? row.asked : row.passedOn;
            IUnknown* opened = nullptr;
            EXPECT_CALL(*pst, OpenProperty(PR_BODY, &IID_IStream, 7, flags, &opened))
                .WillOnce(GiveObject(S_OK, static_cast<IUnknown*>(object.Get())));
            EXPECT_EQ(message->OpenProperty(PR_BODY, &IID_IStream, 7, row.asked, &opened), S_OK);
            EXPECT_EQ(opened, object.Get()) << "unwrapped";
            opened->Release();
            IAttach* attach = nullptr;
            EXPECT_CALL(*pst, OpenAttach(9, nullptr, flags, &attach)).WillOnce(GiveObject(S_OK, attachment.Get()));
            EXPECT_EQ(message->OpenAttach(9, nullptr, row.asked, &attach), S_OK);
            EXPECT_EQ(attach, attachment.Get()) << "unwrapped";
            attach->Release();
        }
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadOnlyMessageWrapper, ReturnsThePstMessagesOwnRefusal)
{
    IUnknown* object = nullptr;
    EXPECT_CALL(*pst, OpenProperty).WillOnce(Return(MAPI_E_NO_ACCESS));
    EXPECT_EQ(message->OpenProperty(PR_BODY, &IID_IStream, 0, MAPI_CREATE | MAPI_MODIFY, &object), MAPI_E_NO_ACCESS);
    EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Error, MapiText(MAPI_E_NO_ACCESS, L"IMessage::OpenProperty"))));
}

TEST_F(ReadOnlyMessageWrapper, IgnoresReadFlagsWhileModificationIsOff)
{
    for (const ULONG flags : {0ul, CLEAR_READ_FLAG, SUPPRESS_RECEIPT})
    {
        EXPECT_CALL(*pst, SetReadFlag).Times(0);
        EXPECT_EQ(message->SetReadFlag(flags), S_OK);
        testing::Mock::VerifyAndClearExpectations(pst.Get());
        const ModifyStores setting(true);
        EXPECT_CALL(*pst, SetReadFlag(flags)).WillOnce(Return(MAPI_E_NO_SUPPRESS));
        EXPECT_EQ(message->SetReadFlag(flags), MAPI_E_NO_SUPPRESS);
        EXPECT_THAT(log.Take(),
                    ElementsAre(Entry(LogId::Error, MapiText(MAPI_E_NO_SUPPRESS, L"IMessage::SetReadFlag"))));
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadOnlyMessageWrapper, ReportsItselfReadOnlyByTheSwitchOfTheMoment)
{
    struct Row
    {
        ULONG tag;
        ULONG before;
        ULONG after;
    };
    static constexpr Row rows[] = {
        {0x0FF40003, 0x3F, 2},      {0x0FF70003, 1, 0},       {0x0FF4000A, 0x8004010F, 0x8004010F},
        {0x66390003, 0x7FB, 0x7FB}, {0x340D0003, 0x1D, 0x1D}, {PR_MESSAGE_FLAGS, 9, 9},
    };
    std::vector<Property> properties;
    for (const Row& row : rows)
        properties.push_back(NumberValue(row.tag, row.before));
    ON_CALL(*pst, GetProps).WillByDefault(GiveProps(S_OK, properties));
    for (const bool modify : {false, true, false})
    {
        const ModifyStores setting(modify);
        Values values;
        EXPECT_EQ(values.Read(message), S_OK);
        ASSERT_EQ(values.Count(), std::size(rows));
        for (std::size_t index = 0; index < std::size(rows); ++index)
            EXPECT_EQ(static_cast<ULONG>(values[index].Value.l), modify ? rows[index].before : rows[index].after)
                << std::hex << rows[index].tag;
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ReadOnlyMessageWrapper, LetsThroughWhatIsNotRefusedOnPurpose)
{
    EXPECT_CALL(*pst, CopyTo).WillOnce(Return(S_OK));
    EXPECT_EQ(message->CopyTo(0, nullptr, nullptr, 0, nullptr, nullptr, nullptr, MAPI_MOVE, nullptr), S_OK);
    EXPECT_CALL(*pst, CopyProps).WillOnce(Return(S_OK));
    EXPECT_EQ(message->CopyProps(nullptr, 0, nullptr, nullptr, nullptr, MAPI_MOVE, nullptr), S_OK);
    const auto table = MakeNice<TableDouble>();
    EXPECT_CALL(*pst, GetRecipientTable).WillOnce(GiveObject(S_OK, table.Get()));
    IMAPITable* given = nullptr;
    EXPECT_EQ(message->GetRecipientTable(0, &given), S_OK);
    EXPECT_EQ(given, table.Get());
    given->Release();
    EXPECT_THAT(log.Lines(), IsEmpty());
}

} // namespace
} // namespace Tests
