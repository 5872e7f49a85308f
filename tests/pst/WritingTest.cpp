// What is written is there at the next logon, and only what was saved; the PST file itself stays as it is.
#include "tests/pst/PstStore.h"

#include "common/Text.h"
#include "tests/common/StartProcess.h"

#include <algorithm>
#include <atomic>

namespace Tests
{
namespace
{
constexpr ULONG olfi = PROP_TAG(PT_BINARY, 0x7C07);
constexpr ULONG archiveRoot = PROP_TAG(PT_BINARY, 0x7FE2);

class WritingTest : public PstTest
{
protected:
    std::filesystem::path Small(const wchar_t* name = L"sample1.pst")
    {
        return Copy(Location(L"KIVNST_TEST_DATA") / L"pst" / name);
    }

    static LPTSTR Text(const wchar_t* text) { return const_cast<LPTSTR>(text); }

    static ComPtr<IMAPIFolder> CreateFolder(IMAPIFolder& parent, const wchar_t* name, ULONG flags = MAPI_UNICODE)
    {
        ComPtr<IMAPIFolder> folder;
        Check(parent.CreateFolder(FOLDER_GENERIC, Text(name), nullptr, nullptr, flags, folder.Put()),
              L"CreateFolder failed");
        return folder;
    }

    static ComPtr<IMessage> CreateMessage(PstStore& store, IMAPIFolder& folder, const wchar_t* subject,
                                          bool save = true)
    {
        ComPtr<IMessage> message;
        Check(folder.CreateMessage(nullptr, 0, message.Put()), L"CreateMessage failed");
        Check(store.Set(*message, {PropValue::String(PR_SUBJECT_W, subject)}), L"SetProps failed");
        if (save)
            Check(message->SaveChanges(KEEP_OPEN_READWRITE), L"SaveChanges failed");
        return message;
    }

    static void AddRecipients(PstStore& store, IMessage& message, const std::vector<std::wstring>& names)
    {
        const MapiMemory& memory = store.Memory();
        const size_t size = CbNewADRLIST(static_cast<ULONG>(names.size()));
        MapiRows list(memory, static_cast<LPSRowSet>(memory.Allocate(size)));
        auto* entries = reinterpret_cast<LPADRLIST>(list.Get());
        for (const std::wstring& name : names)
        {
            const std::vector<PropValue> values = {
                PropValue::Long(PR_RECIPIENT_TYPE, entries->cEntries == 0 ? MAPI_TO : MAPI_CC),
                PropValue::String(PR_DISPLAY_NAME_W, name), PropValue::String(PR_ADDRTYPE_W, L"SMTP"),
                PropValue::String(PR_EMAIL_ADDRESS_W, name + L"@example.com")};
            ADRENTRY& entry = entries->aEntries[entries->cEntries];
            entry.rgPropVals = MakePropArray(memory, values);
            entry.cValues = static_cast<ULONG>(values.size());
            ++entries->cEntries;
        }
        Check(message.ModifyRecipients(MODRECIP_ADD, entries), L"ModifyRecipients failed");
    }

    static void WriteStream(IMAPIProp& object, ULONG tag, const Bytes& bytes)
    {
        ComPtr<IStream> stream;
        Check(
            object.OpenProperty(tag, &IID_IStream, STGM_READWRITE, MAPI_CREATE | MAPI_MODIFY, stream.PutAs<IUnknown>()),
            L"OpenProperty failed");
        for (size_t at = 0; at < bytes.size(); at += 70000)
        {
            const auto size = static_cast<ULONG>(std::min<size_t>(70000, bytes.size() - at));
            Check(stream->Write(bytes.data() + at, size, nullptr), L"Write failed");
        }
        Check(stream->Commit(STGC_DEFAULT), L"Commit failed");
    }

    static Bytes Pattern(size_t size)
    {
        Bytes bytes(size);
        for (size_t index = 0; index < size; ++index)
            bytes[index] = static_cast<BYTE>(index * 31 + (index >> 8));
        return bytes;
    }
};

TEST_F(WritingTest, KeepsAWholeMessage)
{
    const auto file = Small();
    const Bytes before = FileBytes(file);
    const Bytes body = Pattern(200000);
    const Bytes data = Pattern(300001);
    Bytes entryId;
    {
        PstStore store = Open(file);
        const auto folder = CreateFolder(*store.Subtree(), L"Neu \U0001F4C1");
        const auto message = CreateMessage(store, *folder, L"RE: Gr\u00FC\u00DFe \U0001F600", false);
        ASSERT_EQ(store.Set(*message, {PropValue::String(PR_BODY_W, L"Text"), PropValue::Long(PR_IMPORTANCE, 2),
                                       PropValue(PROP_TAG(PT_MV_LONG, 0x6801), std::vector<std::int32_t>{1, 2, 3}),
                                       PropValue::Long(PR_MESSAGE_FLAGS, MSGFLAG_READ)}),
                  S_OK);
        AddRecipients(store, *message, {L"Ada", L"J\u00FCrgen"});
        WriteStream(*message, PR_RTF_COMPRESSED, body);

        ComPtr<IAttach> file1;
        ULONG number = 0;
        ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, file1.Put()), S_OK);
        ASSERT_EQ(store.Set(*file1, {PropValue::Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
                                     PropValue::String(PR_ATTACH_LONG_FILENAME_W, L"\u8868.bin")}),
                  S_OK);
        WriteStream(*file1, PR_ATTACH_DATA_BIN, data);
        ASSERT_EQ(file1->SaveChanges(0), S_OK);

        ComPtr<IAttach> holder;
        ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, holder.Put()), S_OK);
        EXPECT_EQ(number, 1u);
        ASSERT_EQ(store.Set(*holder, {PropValue::Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG)}), S_OK);
        ComPtr<IMessage> inner;
        ASSERT_EQ(holder->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, MAPI_CREATE | MAPI_MODIFY,
                                       inner.PutAs<IUnknown>()),
                  S_OK);
        ASSERT_EQ(store.Set(*inner, {PropValue::String(PR_SUBJECT_W, L"Inside")}), S_OK);
        AddRecipients(store, *inner, {L"Zo\u00EB"});
        ComPtr<IAttach> innerFile;
        ASSERT_EQ(inner->CreateAttach(nullptr, 0, &number, innerFile.Put()), S_OK);
        ASSERT_EQ(store.Set(*innerFile, {PropValue::Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE),
                                         PropValue::Binary(PR_ATTACH_DATA_BIN, Bytes{1, 2, 3})}),
                  S_OK);
        ASSERT_EQ(innerFile->SaveChanges(0), S_OK);
        ASSERT_EQ(inner->SaveChanges(0), S_OK);
        ASSERT_EQ(holder->SaveChanges(0), S_OK);

        EXPECT_TRUE(store.Contents(*folder).empty());
        ASSERT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        EXPECT_EQ(store.Contents(*folder).size(), 1u);
        entryId = store.EntryId(*message);
        EXPECT_EQ(entryId.size(), 24u);
    }
    {
        PstStore store = Open(file);
        const auto folder = store.Folder(L"Neu \U0001F4C1");
        const auto rows = store.Contents(*folder);
        ASSERT_EQ(rows.size(), 1u);
        EXPECT_EQ(BytesOf(rows[0], PR_ENTRYID), entryId);
        EXPECT_EQ(TextOf(rows[0], PR_NORMALIZED_SUBJECT), L"Gr\u00FC\u00DFe \U0001F600");
        EXPECT_EQ(LongOf(rows[0], PR_MESSAGE_FLAGS), MSGFLAG_READ | MSGFLAG_HASATTACH);
        EXPECT_GT(LongOf(rows[0], PR_MESSAGE_SIZE), 500000);
        const auto message = store.Open<IMessage>(entryId);
        EXPECT_EQ(store.Prop(*message, PR_BODY_W).AsText(), L"Text");
        EXPECT_EQ(store.Prop(*message, PR_DISPLAY_TO_W).AsText(), L"Ada");
        EXPECT_EQ(store.Prop(*message, PR_DISPLAY_CC_W).AsText(), L"J\u00FCrgen");
        EXPECT_EQ(store.Prop(*message, PR_RTF_COMPRESSED).AsLong(), MAPI_E_NOT_ENOUGH_MEMORY);
        EXPECT_EQ(store.Stream(*message, PR_RTF_COMPRESSED), body);
        EXPECT_EQ(store.Prop(*message, PROP_TAG(PT_MV_LONG, 0x6801)),
                  PropValue(PROP_TAG(PT_MV_LONG, 0x6801), std::vector<std::int32_t>{1, 2, 3}));
        const auto recipients = store.Recipients(*message);
        ASSERT_EQ(recipients.size(), 2u);
        EXPECT_EQ(TextOf(recipients[1], PR_EMAIL_ADDRESS), L"J\u00FCrgen@example.com");
        const auto attachments = store.Attachments(*message);
        ASSERT_EQ(attachments.size(), 2u);
        EXPECT_EQ(TextOf(attachments[0], PR_ATTACH_LONG_FILENAME), L"\u8868.bin");
        EXPECT_EQ(LongOf(attachments[0], PR_ATTACH_SIZE), 300001);
        ComPtr<IAttach> attachment;
        ASSERT_EQ(message->OpenAttach(0, nullptr, 0, attachment.Put()), S_OK);
        EXPECT_EQ(store.Stream(*attachment, PR_ATTACH_DATA_BIN), data);
        ASSERT_EQ(message->OpenAttach(1, nullptr, 0, attachment.Put()), S_OK);
        ComPtr<IMessage> inner;
        ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, inner.PutAs<IUnknown>()), S_OK);
        EXPECT_EQ(store.Prop(*inner, PR_SUBJECT_W).AsText(), L"Inside");
        EXPECT_EQ(store.Recipients(*inner).size(), 1u);
        ASSERT_EQ(store.Attachments(*inner).size(), 1u);
        ASSERT_EQ(inner->OpenAttach(0, nullptr, 0, attachment.Put()), S_OK);
        EXPECT_EQ(store.Prop(*attachment, PR_ATTACH_DATA_BIN).AsBytes(), (Bytes{1, 2, 3}));
    }
    EXPECT_EQ(FileBytes(file), before);
}

TEST_F(WritingTest, ShowsAMessagesChangesWhenTheyAreSaved)
{
    const auto file = Small();
    PstStore store = Open(file);
    const auto folder = store.Folder(L"Sample1");
    const Bytes entryId = BytesOf(store.Contents(*folder).at(0), PR_ENTRYID);
    const auto writer = store.Open<IMessage>(entryId, MAPI_MODIFY);
    const std::wstring subject = store.Prop(*writer, PR_SUBJECT_W).AsText();
    ASSERT_EQ(store.Set(*writer, {PropValue::String(PR_SUBJECT_W, L"Changed")}), S_OK);
    SizedSPropTagArray(1, gone) = {1, {PR_BODY}};
    ASSERT_EQ(writer->DeleteProps(reinterpret_cast<LPSPropTagArray>(&gone), nullptr), S_OK);
    EXPECT_EQ(store.Prop(*writer, PR_SUBJECT_W).AsText(), L"Changed");
    EXPECT_EQ(store.Prop(*store.Open<IMessage>(entryId), PR_SUBJECT_W).AsText(), subject);
    EXPECT_EQ(TextOf(store.Contents(*folder).at(0), PR_SUBJECT), subject);
    ASSERT_EQ(writer->SaveChanges(KEEP_OPEN_READONLY), S_OK);
    EXPECT_EQ(TextOf(store.Contents(*folder).at(0), PR_SUBJECT), L"Changed");
    EXPECT_EQ(store.Set(*writer, {PropValue::String(PR_SUBJECT_W, L"Again")}), MAPI_E_NO_ACCESS);

    const auto reader = store.Open<IMessage>(entryId);
    EXPECT_EQ(store.Prop(*reader, PR_SUBJECT_W).AsText(), L"Changed");
    EXPECT_EQ(store.Prop(*reader, PR_BODY_W).AsLong(), MAPI_E_NOT_FOUND);
    // What was not changed is still the file's own.
    EXPECT_EQ(store.Attachments(*reader).size(), 1u);
    EXPECT_EQ(store.Set(*reader, {PropValue::String(PR_SUBJECT_W, L"x")}), MAPI_E_NO_ACCESS);
    EXPECT_EQ(store.Prop(*reader, PR_ACCESS_LEVEL).AsLong(), 0);
}

TEST_F(WritingTest, ChangesAttachmentsOfAMessageOfTheFile)
{
    const auto file = Small();
    {
        PstStore store = Open(file);
        const auto folder = store.Folder(L"Sample1");
        const auto message = store.Open<IMessage>(BytesOf(store.Contents(*folder).at(0), PR_ENTRYID), MAPI_MODIFY);
        ComPtr<IAttach> added;
        ULONG number = 0;
        ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, added.Put()), S_OK);
        ASSERT_EQ(store.Set(*added, {PropValue::String(PR_ATTACH_FILENAME_W, L"a.txt"),
                                     PropValue::Binary(PR_ATTACH_DATA_BIN, Bytes{9, 8})}),
                  S_OK);
        ASSERT_EQ(added->SaveChanges(0), S_OK);
        ASSERT_EQ(message->SaveChanges(0), S_OK);
    }
    {
        PstStore store = Open(file);
        const auto folder = store.Folder(L"Sample1");
        const auto message = store.Open<IMessage>(BytesOf(store.Contents(*folder).at(0), PR_ENTRYID), MAPI_MODIFY);
        const auto rows = store.Attachments(*message);
        ASSERT_EQ(rows.size(), 2u);
        ComPtr<IAttach> first;
        ASSERT_EQ(message->OpenAttach(0, nullptr, 0, first.Put()), S_OK);
        EXPECT_EQ(store.Stream(*first, PR_ATTACH_DATA_BIN).size(), 93142u);
        ASSERT_EQ(message->DeleteAttach(0, 0, nullptr, 0), S_OK);
        ASSERT_EQ(message->SaveChanges(0), S_OK);
    }
    PstStore store = Open(file);
    const auto folder = store.Folder(L"Sample1");
    const auto message = store.Open<IMessage>(BytesOf(store.Contents(*folder).at(0), PR_ENTRYID));
    const auto rows = store.Attachments(*message);
    ASSERT_EQ(rows.size(), 1u);
    EXPECT_EQ(LongOf(rows[0], PR_ATTACH_NUM), 1);
    EXPECT_EQ(TextOf(rows[0], PR_ATTACH_FILENAME), L"a.txt");
}

TEST_F(WritingTest, KeepsTheStoresOwnProperties)
{
    const auto file = Small();
    const Bytes range = Pattern(80);
    {
        PstStore store = Open(file);
        ASSERT_EQ(store.Set(store.Object(), {PropValue::Binary(olfi, range),
                                             PropValue::Binary(archiveRoot, store.EntryId(*store.Subtree()))}),
                  S_OK);
        ASSERT_EQ(store.Object().SaveChanges(0), S_OK);
        EXPECT_EQ(store.Set(store.Object(), {PropValue::Long(PR_STORE_SUPPORT_MASK, 0)}), MAPI_E_COMPUTED);
    }
    PstStore store = Open(file);
    EXPECT_EQ(store.Prop(store.Object(), olfi).AsBytes(), range);
    EXPECT_EQ(store.Prop(store.Object(), archiveRoot).AsBytes(), store.EntryId(*store.Subtree()));
}

TEST_F(WritingTest, CreatesRenamesMovesAndDeletesFolders)
{
    const auto file = Small();
    {
        PstStore store = Open(file);
        const auto top = store.Subtree();
        const auto first = CreateFolder(*top, L"First");
        ComPtr<IMAPIFolder> refused;
        EXPECT_EQ(top->CreateFolder(FOLDER_GENERIC, Text(L"FIRST"), nullptr, nullptr, MAPI_UNICODE, refused.Put()),
                  MAPI_E_COLLISION);
        EXPECT_EQ(store.EntryId(*CreateFolder(*top, L"first", MAPI_UNICODE | OPEN_IF_EXISTS)), store.EntryId(*first));
        const auto second = CreateFolder(*first, L"Second");
        CreateMessage(store, *second, L"In the second");
        EXPECT_EQ(store.Set(*second, {PropValue::String(PR_DISPLAY_NAME_W, L"Renamed")}), S_OK);
        Bytes id = store.EntryId(*second);
        const auto destination = store.Folder(L"Sample1");
        // A folder does not go into itself.
        Bytes firstId = store.EntryId(*first);
        EXPECT_EQ(top->CopyFolder(static_cast<ULONG>(firstId.size()), reinterpret_cast<LPENTRYID>(firstId.data()),
                                  &IID_IMAPIFolder, second.Get(), nullptr, 0, nullptr, FOLDER_MOVE | MAPI_UNICODE),
                  MAPI_E_FOLDER_CYCLE);
        ASSERT_EQ(first->CopyFolder(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                    &IID_IMAPIFolder, destination.Get(), nullptr, 0, nullptr,
                                    FOLDER_MOVE | MAPI_UNICODE),
                  S_OK);
        EXPECT_EQ(top->DeleteFolder(static_cast<ULONG>(firstId.size()), reinterpret_cast<LPENTRYID>(firstId.data()), 0,
                                    nullptr, 0),
                  S_OK);
    }
    using Tree = std::map<std::wstring, size_t>;
    {
        PstStore store = Open(file);
        EXPECT_EQ(store.Tree(*store.Subtree()),
                  (Tree{{L"Deleted Items", 0}, {L"Sample1", 1}, {L"Sample1\\Renamed", 1}}));
        const auto top = store.Subtree();
        Bytes id = store.EntryId(*store.Folder(L"Sample1"));
        const auto remove = [&](ULONG flags)
        {
            return top->DeleteFolder(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()), 0, nullptr,
                                     flags);
        };
        EXPECT_EQ(remove(0), MAPI_E_HAS_MESSAGES);
        EXPECT_EQ(remove(DEL_MESSAGES), MAPI_E_HAS_FOLDERS);
        EXPECT_EQ(remove(DEL_MESSAGES | DEL_FOLDERS), S_OK);
    }
    PstStore store = Open(file);
    EXPECT_EQ(store.Tree(*store.Subtree()), (Tree{{L"Deleted Items", 0}}));
}

TEST_F(WritingTest, MovesMarksAndDeletesMessages)
{
    const auto file = Small();
    PstStore store = Open(file);
    const auto from = store.Folder(L"Sample1");
    const auto to = CreateFolder(*store.Subtree(), L"Target");
    Bytes id = BytesOf(store.Contents(*from).at(0), PR_ENTRYID);
    SBinary entry = {static_cast<ULONG>(id.size()), id.data()};
    ENTRYLIST list = {1, &entry};
    ComPtr<IMAPITable> open;
    ASSERT_EQ(from->GetContentsTable(0, open.Put()), S_OK);

    ASSERT_EQ(from->SetReadFlags(&list, 0, nullptr, CLEAR_READ_FLAG), S_OK);
    EXPECT_EQ(LongOf(store.Contents(*from).at(0), PR_MESSAGE_FLAGS) & MSGFLAG_READ, 0);
    EXPECT_EQ(store.Prop(*from, PR_CONTENT_UNREAD).AsLong(), 1);
    ASSERT_EQ(store.Open<IMessage>(id)->SetReadFlag(0), S_OK);
    EXPECT_EQ(store.Prop(*from, PR_CONTENT_UNREAD).AsLong(), 0);

    ULONG status = 0;
    ASSERT_EQ(from->SetMessageStatus(entry.cb, reinterpret_cast<LPENTRYID>(entry.lpb), MSGSTATUS_TAGGED,
                                     MSGSTATUS_TAGGED, &status),
              S_OK);
    EXPECT_EQ(status, 0u);
    ASSERT_EQ(from->GetMessageStatus(entry.cb, reinterpret_cast<LPENTRYID>(entry.lpb), 0, &status), S_OK);
    EXPECT_EQ(status, static_cast<ULONG>(MSGSTATUS_TAGGED));

    ASSERT_EQ(from->CopyMessages(&list, &IID_IMAPIFolder, to.Get(), 0, nullptr, MESSAGE_MOVE), S_OK);
    EXPECT_TRUE(store.Contents(*from).empty());
    EXPECT_TRUE(store.Rows(*open).empty());
    ASSERT_EQ(store.Contents(*to).size(), 1u);
    EXPECT_EQ(BytesOf(store.Contents(*to)[0], PR_PARENT_ENTRYID), store.EntryId(*to));
    EXPECT_EQ(store.Attachments(*store.Open<IMessage>(id)).size(), 1u);

    ASSERT_EQ(to->CopyMessages(&list, &IID_IMAPIFolder, from.Get(), 0, nullptr, 0), S_OK);
    ASSERT_EQ(store.Contents(*from).size(), 1u);
    EXPECT_NE(BytesOf(store.Contents(*from)[0], PR_ENTRYID), id);
    EXPECT_EQ(store.Attachments(*store.Open<IMessage>(BytesOf(store.Contents(*from)[0], PR_ENTRYID))).size(), 1u);

    const auto held = store.Open<IMessage>(id, MAPI_MODIFY);
    ASSERT_EQ(to->DeleteMessages(&list, 0, nullptr, 0), S_OK);
    EXPECT_TRUE(store.Contents(*to).empty());
    ULONG count = 0;
    MapiBlock<SPropValue> values(store.Memory());
    EXPECT_EQ(held->GetProps(nullptr, 0, &count, values.Put()), MAPI_E_OBJECT_DELETED);
    ULONG type = 0;
    ComPtr<IUnknown> object;
    EXPECT_EQ(
        store.Object().OpenEntry(entry.cb, reinterpret_cast<LPENTRYID>(entry.lpb), nullptr, 0, &type, object.Put()),
        MAPI_E_NOT_FOUND);
}

TEST_F(WritingTest, GivesNewNamesNewIdentifiers)
{
    const auto file = Small();
    GUID set = {0x12345678, 0x1234, 0x5678, {1, 2, 3, 4, 5, 6, 7, 8}};
    MAPINAMEID text{};
    text.lpguid = &set;
    text.ulKind = MNID_STRING;
    text.Kind.lpwstrName = const_cast<LPWSTR>(L"Gr\u00F6\u00DFe");
    MAPINAMEID number{};
    number.lpguid = &set;
    number.ulKind = MNID_ID;
    number.Kind.lID = 77;
    LPMAPINAMEID names[] = {&text, &number};
    ULONG ids[2] = {};
    {
        PstStore store = Open(file);
        MapiBlock<SPropTagArray> tags(store.Memory());
        EXPECT_EQ(store.Object().GetIDsFromNames(2, names, 0, tags.Put()), MAPI_W_ERRORS_RETURNED);
        EXPECT_EQ(PROP_TYPE(tags->aulPropTag[0]), static_cast<ULONG>(PT_ERROR));
        ASSERT_EQ(store.Object().GetIDsFromNames(2, names, MAPI_CREATE, tags.Put()), S_OK);
        ids[0] = PROP_ID(tags->aulPropTag[0]);
        ids[1] = PROP_ID(tags->aulPropTag[1]);
        EXPECT_GE(ids[0], 0x8000u);
        EXPECT_NE(ids[0], ids[1]);
    }
    PstStore store = Open(file);
    MapiBlock<SPropTagArray> tags(store.Memory());
    ASSERT_EQ(store.Object().GetIDsFromNames(2, names, 0, tags.Put()), S_OK);
    EXPECT_EQ(PROP_ID(tags->aulPropTag[0]), ids[0]);
    EXPECT_EQ(PROP_ID(tags->aulPropTag[1]), ids[1]);
}

TEST_F(WritingTest, IsSharedByTwoSessions)
{
    const auto file = Small();
    PstStore first = Open(file);
    PstStore second = Open(file);
    const auto folder = CreateFolder(*first.Subtree(), L"Shared");
    CreateMessage(first, *folder, L"One");
    EXPECT_EQ(second.Contents(*second.Folder(L"Shared")).size(), 1u);
}

class Sink : public ComObject<IMAPIAdviseSink, &IID_IMAPIAdviseSink>
{
public:
    STDMETHODIMP_(ULONG) OnNotify(ULONG cNotif, LPNOTIFICATION lpNotifications) override
    {
        for (ULONG index = 0; index < cNotif; ++index)
            events.push_back(lpNotifications[index].ulEventType);
        return S_OK;
    }

    std::vector<ULONG> events;
};

TEST_F(WritingTest, TellsThoseWhoSubscribed)
{
    PstStore store = Open(Small());
    const auto folder = store.Folder(L"Sample1");
    const auto sink = MakeObject<Sink>();
    Bytes id = store.EntryId(*folder);
    ULONG_PTR connection = 0;
    ASSERT_EQ(store.Object().Advise(static_cast<ULONG>(id.size()), reinterpret_cast<LPENTRYID>(id.data()),
                                    fnevObjectCreated | fnevObjectModified, sink.Get(), &connection),
              S_OK);
    const auto message = CreateMessage(store, *folder, L"New");
    ASSERT_EQ(store.Set(*message, {PropValue::Long(PR_IMPORTANCE, 2)}), S_OK);
    ASSERT_EQ(message->SaveChanges(0), S_OK);
    EXPECT_EQ(sink->events, (std::vector<ULONG>{fnevObjectCreated, fnevObjectModified}));
    EXPECT_NE(connection >> 32, 0u);
    EXPECT_EQ(store.Object().Unadvise(connection & MAXDWORD), MAPI_E_NOT_FOUND);
    EXPECT_EQ(store.Object().Unadvise(connection), S_OK);
    EXPECT_EQ(store.Object().Unadvise(connection), MAPI_E_NOT_FOUND);
}

TEST_F(WritingTest, KeepsReceiveFolders)
{
    const auto file = Small(L"outlook.pst");
    const auto receive = [](PstStore& store, const wchar_t* messageClass)
    {
        ULONG size = 0;
        MapiBlock<ENTRYID> entryId(store.Memory());
        MapiBlock<TCHAR> explicitClass(store.Memory());
        Check(store.Object().GetReceiveFolder(Text(messageClass), MAPI_UNICODE, &size, entryId.Put(),
                                              explicitClass.Put()),
              L"GetReceiveFolder failed");
        const auto* bytes = reinterpret_cast<const BYTE*>(entryId.Get());
        return Bytes(bytes, bytes + size);
    };
    Bytes notes;
    {
        PstStore store = Open(file);
        EXPECT_EQ(receive(store, L""), store.EntryId(*store.Folder(L"Inbox")));
        notes = store.EntryId(*store.Folder(L"Notes"));
        ASSERT_EQ(store.Object().SetReceiveFolder(Text(L"IPM.StickyNote"), MAPI_UNICODE,
                                                  static_cast<ULONG>(notes.size()),
                                                  reinterpret_cast<LPENTRYID>(notes.data())),
                  S_OK);
    }
    PstStore store = Open(file);
    EXPECT_EQ(receive(store, L"IPM.stickynote.Yellow"), notes);
    EXPECT_EQ(receive(store, L"IPM.StickyNotes"), store.EntryId(*store.Folder(L"Inbox")));
    ComPtr<IMAPITable> table;
    ASSERT_EQ(store.Object().GetReceiveFolderTable(MAPI_UNICODE, table.Put()), S_OK);
    EXPECT_EQ(store.Rows(*table).size(), 2u);
}

TEST_F(WritingTest, RefusesChangesWhenTheOverlayIsReadOnly)
{
    const auto file = Small();
    {
        PstStore store = Open(file);
        CreateFolder(*store.Subtree(), L"Before");
    }
    const std::filesystem::path overlay = file.wstring() + L".overlay";
    ASSERT_TRUE(SetFileAttributesW(overlay.c_str(), FILE_ATTRIBUTE_READONLY));
    std::wstring text;
    EXPECT_EQ(FailToOpen(file, text), MAPI_E_NO_ACCESS);
    EXPECT_NE(text.find(L".overlay"), std::wstring::npos);
    {
        PstStore store = Open(file, logonUnicode);
        EXPECT_TRUE(store.Tree(*store.Subtree()).contains(L"Before"));
        EXPECT_EQ(store.Prop(store.Object(), PR_ACCESS_LEVEL).AsLong(), 0);
        EXPECT_NE(store.Prop(store.Object(), PR_STORE_SUPPORT_MASK).AsLong() & STORE_READONLY, 0);
        ComPtr<IMAPIFolder> folder;
        EXPECT_EQ(
            store.Subtree()->CreateFolder(FOLDER_GENERIC, Text(L"After"), nullptr, nullptr, MAPI_UNICODE, folder.Put()),
            MAPI_E_NO_ACCESS);
        EXPECT_EQ(store.Set(store.Object(), {PropValue::Binary(olfi, Bytes(80))}), MAPI_E_NO_ACCESS);
    }
    ASSERT_TRUE(SetFileAttributesW(overlay.c_str(), FILE_ATTRIBUTE_NORMAL));
}

TEST_F(WritingTest, RefusesAnOverlayThatIsNone)
{
    const auto file = Small();
    WriteFile(file.wstring() + L".overlay", "This is not a database, and is longer than nothing at all.");
    std::wstring text;
    EXPECT_EQ(FailToOpen(file, text), MAPI_E_CORRUPT_STORE);
    EXPECT_NE(text.find(L".overlay"), std::wstring::npos) << Utf8FromWide(text);
}

TEST_F(WritingTest, SurvivesTheEndOfItsProcess)
{
    const auto file = Path(L"killed.pst");
    wchar_t self[MAX_PATH] = L"";
    GetModuleFileNameW(nullptr, self, MAX_PATH);
    std::wstring command = L"\"" + std::wstring(self) + L"\" --write-for-ever \"" + file.wstring() + L"\"";
    size_t before = 0;
    for (int run = 0; run < 3; ++run)
    {
        STARTUPINFOW startup{};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process{};
        ASSERT_TRUE(Tests::StartProcess(self, command.data(), false, nullptr, startup, process));
        // Somewhere within a save, once it is writing.
        size_t size = 0;
        for (int wait = 0; wait < 600 && size <= before + 2000000; ++wait)
        {
            Sleep(50 + static_cast<DWORD>(run) * 7);
            std::error_code none;
            size = 0;
            for (const wchar_t* part : {L".overlay", L".overlay-wal"})
            {
                const auto bytes = std::filesystem::file_size(file.wstring() + part, none);
                size += none ? 0 : static_cast<size_t>(bytes);
            }
        }
        TerminateProcess(process.hProcess, 1);
        WaitForSingleObject(process.hProcess, INFINITE);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
        ASSERT_GT(size, before);
        {
            // What the end left in the log is taken over.
            PstStore store = Open(file);
        }
        before = static_cast<size_t>(std::filesystem::file_size(file.wstring() + L".overlay"));

        PstStore store = Open(file);
        const auto rows = store.Contents(*store.Subtree());
        EXPECT_GT(rows.size(), 5u);
        for (const Row& row : rows)
        {
            const LONG number = LongOf(row, PR_IMPORTANCE);
            EXPECT_EQ(TextOf(row, PR_SUBJECT), std::to_wstring(number));
            const auto message = store.Open<IMessage>(BytesOf(row, PR_ENTRYID));
            EXPECT_EQ(store.Stream(*message, PR_RTF_COMPRESSED), Bytes(20000, static_cast<BYTE>(number)));
        }
    }
}
} // namespace
} // namespace Tests
