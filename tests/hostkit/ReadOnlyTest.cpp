// A read-only archive of the kit: what clients call to change it is refused, whatever way they come, and its files are
// afterwards what they were; what they read they get.
#include "tests/hostkit/Environment.h"

#include "nst/KivNstCore.h"

#include <functional>

using namespace Common;
using namespace Testbed;

namespace Tests
{
namespace
{

constexpr ULONG hostStoreTag = PROP_TAG(PT_UNICODE, 0x7FEB);
constexpr ULONG hostFolderTag = PROP_TAG(PT_BINARY, 0x3020);

LPENTRYID IdOf(const Bytes& bytes)
{
    return reinterpret_cast<LPENTRYID>(const_cast<BYTE*>(bytes.data()));
}

ULONG SizeOf(const Bytes& bytes)
{
    return static_cast<ULONG>(bytes.size());
}

/// What the calls are made on: everything opened as a client that wants to write opens it.
struct Stage
{
    explicit Stage(const OpenArchive& open)
        : archive(open),
          folder(open.Mail(MAPI_MODIFY)),
          message(open.FirstMessage(*folder, MAPI_MODIFY, true))
    {
        folderId = open.EntryId(*folder);
        parentOfMessage = open.Open<IMAPIFolder>(open.Prop(*message, PR_PARENT_ENTRYID).AsBytes(), MAPI_BEST_ACCESS);
        messageId = open.EntryId(*message);
        childId = open.EntryId(*parentOfMessage);
        list = {SizeOf(messageId), messageId.data()};
        messages = {1, &list};
        Check(message->OpenAttach(0, nullptr, MAPI_MODIFY, attachment.Put()), L"OpenAttach failed");
    }

    HRESULT OpenStream(IMAPIProp& object, ULONG tag, ULONG flags) const
    {
        ComPtr<IStream> stream;
        return object.OpenProperty(tag, &IID_IStream, STGM_READWRITE, flags, stream.PutAs<IUnknown>());
    }
    static HRESULT CopyTo(IMAPIProp& object, LPCIID iid, IUnknown* target, ULONG flags = 0)
    {
        return object.CopyTo(0, nullptr, nullptr, 0, nullptr, iid, target, flags, nullptr);
    }
    static HRESULT CopyProps(IMAPIProp& object, ULONG tag, LPCIID iid, IUnknown* target, ULONG flags = 0)
    {
        SizedSPropTagArray(1, tags) = {1, {tag}};
        return object.CopyProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, nullptr, iid, target, flags, nullptr);
    }

    const OpenArchive& archive;
    ComPtr<IMAPIFolder> folder;
    ComPtr<IMessage> message;
    ComPtr<IMAPIFolder> parentOfMessage;
    ComPtr<IAttach> attachment;
    Bytes folderId;
    Bytes childId;
    Bytes messageId;
    SBinary list{};
    ENTRYLIST messages{};
};

PropValue Text(ULONG tag)
{
    return PropValue::String(tag, L"attempt");
}

struct Attempt
{
    const char* name;
    std::function<HRESULT(Stage&)> run;
    HRESULT expected = MAPI_E_NO_ACCESS;
};

std::vector<Attempt> StoreAttempts()
{
    return {
        {"store SetProps", [](Stage& s) { return s.archive.Set(s.archive.Store(), {Text(PR_COMMENT_W)}); }},
        {"store SetProps of the top", [](Stage& s)
         { return s.archive.Set(s.archive.Store(), {PropValue::Binary(PR_IPM_SUBTREE_ENTRYID, s.folderId)}); }},
        {"store SetProps of the library's tag",
         [](Stage& s) { return s.archive.Set(s.archive.Store(), {Text(hostStoreTag)}); }},
        {"store DeleteProps", [](Stage& s) { return s.archive.Delete(s.archive.Store(), PR_DISPLAY_NAME_W); }},
        {"store OpenProperty to create",
         [](Stage& s) { return s.OpenStream(s.archive.Store(), PR_COMMENT_W, MAPI_CREATE | MAPI_MODIFY); }},
        {"store CopyTo into the archive",
         [](Stage& s) { return s.CopyTo(s.archive.Store(), &IID_IMsgStore, &s.archive.Store()); }},
        {"store SetReceiveFolder",
         [](Stage& s)
         {
             std::wstring name = L"IPM.Attempt";
             return s.archive.Store().SetReceiveFolder(name.data(), MAPI_UNICODE, SizeOf(s.folderId), IdOf(s.folderId));
         }},
        {"store AbortSubmit",
         [](Stage& s) { return s.archive.Store().AbortSubmit(SizeOf(s.messageId), IdOf(s.messageId), 0); }},
        {"store SetLockState", [](Stage& s) { return s.archive.Store().SetLockState(s.message.Get(), MSG_LOCKED); }},
        {"store FinishedMsg",
         [](Stage& s) { return s.archive.Store().FinishedMsg(0, SizeOf(s.messageId), IdOf(s.messageId)); }},
        {"store NotifyNewMail",
         [](Stage& s)
         {
             NOTIFICATION notification{};
             notification.ulEventType = fnevNewMail;
             return s.archive.Store().NotifyNewMail(&notification);
         }},
        {"logon OpenStatusEntry",
         [](Stage& s)
         {
             ULONG type = 0;
             void* entry = nullptr;
             return s.archive.Logon().OpenStatusEntry(nullptr, 0, &type, &entry);
         }},
    };
}

std::vector<Attempt> FolderAttempts()
{
    return {
        {"folder SetProps", [](Stage& s) { return s.archive.Set(*s.folder, {Text(PR_COMMENT_W)}); }},
        {"folder SetProps of the library's tag",
         [](Stage& s) { return s.archive.Set(*s.folder, {PropValue::Binary(hostFolderTag, Bytes{1})}); }},
        {"folder SetProps of nothing", [](Stage& s) { return s.folder->SetProps(0, nullptr, nullptr); }, S_OK},
        {"folder DeleteProps", [](Stage& s) { return s.archive.Delete(*s.folder, PR_DISPLAY_NAME_W); }},
        {"folder OpenProperty to create",
         [](Stage& s) { return s.OpenStream(*s.folder, PR_COMMENT_W, MAPI_CREATE | MAPI_MODIFY); }},
        {"folder CreateMessage",
         [](Stage& s)
         {
             ComPtr<IMessage> made;
             return s.folder->CreateMessage(nullptr, 0, made.Put());
         }},
        {"folder CreateFolder",
         [](Stage& s)
         {
             std::wstring name = L"Attempt";
             ComPtr<IMAPIFolder> made;
             return s.folder->CreateFolder(FOLDER_GENERIC, name.data(), nullptr, nullptr, MAPI_UNICODE, made.Put());
         }},
        {"folder CreateFolder to search among the mail",
         [](Stage& s)
         {
             std::wstring name = L"Attempt";
             ComPtr<IMAPIFolder> made;
             return s.folder->CreateFolder(FOLDER_SEARCH, name.data(), nullptr, nullptr, MAPI_UNICODE, made.Put());
         }},
        {"folder SetSearchCriteria", [](Stage& s) { return s.folder->SetSearchCriteria(nullptr, nullptr, 0); }},
        {"folder CopyMessages to move", [](Stage& s)
         { return s.parentOfMessage->CopyMessages(&s.messages, nullptr, s.folder.Get(), 0, nullptr, MESSAGE_MOVE); }},
        {"folder CopyMessages into the archive",
         [](Stage& s) { return s.parentOfMessage->CopyMessages(&s.messages, nullptr, s.folder.Get(), 0, nullptr, 0); }},
        {"folder DeleteMessages",
         [](Stage& s) { return s.parentOfMessage->DeleteMessages(&s.messages, 0, nullptr, 0); }},
        {"folder CopyFolder to move",
         [](Stage& s)
         {
             return s.folder->CopyFolder(SizeOf(s.childId), IdOf(s.childId), nullptr, s.folder.Get(), nullptr, 0,
                                         nullptr, FOLDER_MOVE);
         }},
        {"folder CopyFolder into the archive",
         [](Stage& s)
         {
             return s.folder->CopyFolder(SizeOf(s.childId), IdOf(s.childId), nullptr, s.folder.Get(), nullptr, 0,
                                         nullptr, 0);
         }},
        {"folder DeleteFolder",
         [](Stage& s)
         {
             return s.folder->DeleteFolder(SizeOf(s.childId), IdOf(s.childId), 0, nullptr, DEL_MESSAGES | DEL_FOLDERS);
         }},
        {"folder SetReadFlags",
         [](Stage& s) { return s.parentOfMessage->SetReadFlags(&s.messages, 0, nullptr, CLEAR_READ_FLAG); }},
        {"folder SetMessageStatus",
         [](Stage& s)
         {
             ULONG old = 0;
             return s.parentOfMessage->SetMessageStatus(SizeOf(s.messageId), IdOf(s.messageId), MSGSTATUS_TAGGED,
                                                        MSGSTATUS_TAGGED, &old);
         }},
        {"folder SaveContentsSort",
         [](Stage& s)
         {
             SSortOrderSet order{};
             return s.folder->SaveContentsSort(&order, 0);
         }},
        {"folder EmptyFolder", [](Stage& s) { return s.parentOfMessage->EmptyFolder(0, nullptr, 0); }},
        {"folder CopyTo to move",
         [](Stage& s) { return s.CopyTo(*s.parentOfMessage, &IID_IMAPIFolder, s.folder.Get(), MAPI_MOVE); }},
        {"folder CopyTo into the archive",
         [](Stage& s) { return s.CopyTo(*s.parentOfMessage, &IID_IMAPIFolder, s.folder.Get()); }},
        {"folder CopyProps into the archive",
         [](Stage& s) { return s.CopyProps(*s.parentOfMessage, PR_COMMENT_W, &IID_IMAPIFolder, s.folder.Get()); }},
    };
}

std::vector<Attempt> MessageAttempts()
{
    return {
        {"message SaveChanges", [](Stage& s) { return s.message->SaveChanges(KEEP_OPEN_READWRITE); }},
        {"message SetProps", [](Stage& s) { return s.archive.Set(*s.message, {Text(PR_SUBJECT_W)}); }},
        {"message DeleteProps", [](Stage& s) { return s.archive.Delete(*s.message, PR_SUBJECT_W); }},
        {"message OpenProperty to create",
         [](Stage& s) { return s.OpenStream(*s.message, PR_COMMENT_W, MAPI_CREATE | MAPI_MODIFY); }},
        {"message CreateAttach",
         [](Stage& s)
         {
             ULONG number = 0;
             ComPtr<IAttach> made;
             return s.message->CreateAttach(nullptr, 0, &number, made.Put());
         }},
        {"message DeleteAttach", [](Stage& s) { return s.message->DeleteAttach(0, 0, nullptr, 0); }},
        {"message ModifyRecipients", [](Stage& s) { return s.message->ModifyRecipients(0, nullptr); }},
        {"message SubmitMessage", [](Stage& s) { return s.message->SubmitMessage(0); }},
        {"message SetReadFlag", [](Stage& s) { return s.message->SetReadFlag(CLEAR_READ_FLAG); }, S_OK},
        {"message CopyTo into the archive",
         [](Stage& s) { return s.CopyTo(*s.message, &IID_IMessage, s.message.Get()); }},
        {"message CopyProps to move",
         [](Stage& s) { return s.CopyProps(*s.message, PR_SUBJECT_W, &IID_IMessage, s.message.Get(), MAPI_MOVE); }},
        {"attachment SaveChanges", [](Stage& s) { return s.attachment->SaveChanges(KEEP_OPEN_READWRITE); }},
        {"attachment SetProps", [](Stage& s) { return s.archive.Set(*s.attachment, {Text(PR_DISPLAY_NAME_W)}); }},
        {"attachment DeleteProps", [](Stage& s) { return s.archive.Delete(*s.attachment, PR_DISPLAY_NAME_W); }},
        {"attachment OpenProperty to create",
         [](Stage& s) { return s.OpenStream(*s.attachment, PR_ATTACH_DATA_BIN, MAPI_CREATE | MAPI_MODIFY); }},
        {"attachment CopyTo into the archive",
         [](Stage& s) { return s.CopyTo(*s.attachment, &IID_IAttachment, s.attachment.Get()); }},
    };
}

std::vector<Attempt> AllAttempts()
{
    std::vector<Attempt> all;
    for (auto&& part : {StoreAttempts(), FolderAttempts(), MessageAttempts()})
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

/// The library's process-wide switches, which other hosts of the process may have set.
class Switches
{
public:
    explicit Switches(bool on)
    {
        Quillon::Nst::SetModifyStores(on);
        Quillon::Nst::SetUnwrapStores(on);
    }
    Switches(const Switches&) = delete;
    Switches& operator=(const Switches&) = delete;
    ~Switches()
    {
        Quillon::Nst::SetModifyStores(false);
        Quillon::Nst::SetUnwrapStores(false);
    }
};

class ReadOnlyTest : public testing::TestWithParam<bool>
{
};

TEST_P(ReadOnlyTest, RefusesEveryChangeWhateverTheSwitchesOfTheProcessSay)
{
    const std::filesystem::path file = CopyOf(NewFolder(), L"submessage.pst");
    // What the first logon writes is there from here on.
    OpenArchive(file, HostOf({}));
    const std::string before = BytesOf(file);
    {
        const OpenArchive archive(file, HostOf({}));
        const Switches switches(GetParam());
        Stage stage(archive);
        for (const Attempt& attempt : AllAttempts())
            EXPECT_EQ(attempt.run(stage), attempt.expected) << attempt.name;
        EXPECT_EQ(archive.Store().SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        EXPECT_EQ(stage.folder->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    }
    EXPECT_TRUE(BytesOf(file) == before) << "the archive's files were changed";
}

INSTANTIATE_TEST_SUITE_P(Switches, ReadOnlyTest, testing::Bool());

TEST(ReadOnlyArchiveTest, SaysThatItIsReadOnly)
{
    const OpenArchive archive(GeneratedPst(NewFolder()), HostOf({}));
    const auto folder = archive.Mail(MAPI_MODIFY);
    const auto message = archive.FirstMessage(*folder, MAPI_MODIFY);
    for (IMAPIProp* const object : {static_cast<IMAPIProp*>(&archive.Store()), static_cast<IMAPIProp*>(folder.Get()),
                                    static_cast<IMAPIProp*>(message.Get())})
    {
        EXPECT_EQ(archive.Prop(*object, PR_ACCESS).AsLong(-1), LONG{MAPI_ACCESS_READ});
        EXPECT_EQ(archive.Prop(*object, PR_ACCESS_LEVEL).AsLong(-1), 0);
        const LONG mask = archive.Prop(*object, PR_STORE_SUPPORT_MASK).AsLong(-1);
        EXPECT_EQ(mask & LONG{STORE_MODIFY_OK | STORE_CREATE_OK}, 0);
        EXPECT_NE(mask & LONG{STORE_READONLY}, 0);
    }
    EXPECT_EQ(archive.Prop(*folder, PR_RIGHTS).AsLong(-1), 0x401);
    ComPtr<IMAPITable> table;
    ASSERT_EQ(folder->GetHierarchyTable(0, table.Put()), S_OK);
    for (const PropertyBag& row : archive.Rows(*table, {PR_DISPLAY_NAME_W, PR_ACCESS}))
        if (const PropValue* const access = row.Find(PROP_ID(PR_ACCESS)); access && !access->IsError())
            EXPECT_EQ(access->AsLong(-1), LONG{MAPI_ACCESS_READ});
}

TEST(ReadOnlyArchiveTest, ReadingIsNeverRefused)
{
    const OpenArchive archive(CopyOf(NewFolder(), L"submessage.pst"), HostOf({}));
    Stage stage(archive);
    EXPECT_EQ(stage.OpenStream(archive.Store(), PR_DISPLAY_NAME_W, 0), S_OK);
    EXPECT_EQ(stage.OpenStream(*stage.folder, PR_DISPLAY_NAME_W, MAPI_MODIFY), S_OK);
    ComPtr<IMAPITable> table;
    EXPECT_EQ(stage.folder->OpenProperty(PR_CONTAINER_HIERARCHY, &IID_IMAPITable, 0, 0, table.PutAs<IUnknown>()), S_OK);
    EXPECT_FALSE(archive.Rows(*table, {PR_DISPLAY_NAME_W}).empty());

    // A client that asks for writing gets what it can read, and no more.
    ComPtr<IStream> stream;
    ASSERT_EQ(
        stage.message->OpenProperty(PR_SUBJECT_W, &IID_IStream, STGM_READWRITE, MAPI_MODIFY, stream.PutAs<IUnknown>()),
        S_OK);
    wchar_t text[4] = {};
    ULONG count = 0;
    EXPECT_EQ(stream->Read(text, sizeof(text), &count), S_OK);
    EXPECT_EQ(count, sizeof(text));
    EXPECT_EQ(stream->Write(L"x", sizeof(wchar_t), &count), STG_E_ACCESSDENIED);
    EXPECT_EQ(stream->SetSize({}), STG_E_ACCESSDENIED);
    EXPECT_EQ(stream->Commit(0), S_OK);
    ComPtr<IStream> clone;
    ASSERT_EQ(stream->Clone(clone.Put()), S_OK);
    EXPECT_EQ(clone->Write(L"x", sizeof(wchar_t), &count), STG_E_ACCESSDENIED);
}

TEST(ReadOnlyArchiveTest, NewNamesOfPropertiesStayUnknown)
{
    const OpenArchive archive(GeneratedPst(NewFolder()), HostOf({}));
    GUID set = {0x2F0B7D10, 0x6D43, 0x4E0A, {0x8A, 0x64, 0x5B, 0x77, 0x19, 0xC3, 0xE2, 0x01}};
    MAPINAMEID name{};
    name.lpguid = &set;
    name.ulKind = MNID_STRING;
    std::wstring text = L"Attempt";
    name.Kind.lpwstrName = text.data();
    MAPINAMEID* names = &name;
    for (const ULONG flags : {ULONG{MAPI_CREATE}, ULONG{0}})
    {
        MapiBlock<SPropTagArray> tags(archive.Memory());
        EXPECT_EQ(archive.Store().GetIDsFromNames(1, &names, flags, tags.Put()), MAPI_W_ERRORS_RETURNED);
        EXPECT_EQ(PROP_TYPE(tags->aulPropTag[0]), ULONG{PT_ERROR});
    }
}

TEST(ReadOnlyArchiveTest, NoOtherRoadLeadsToWhatCanBeChanged)
{
    const OpenArchive archive(CopyOf(NewFolder(), L"submessage.pst"), HostOf({}));
    // The store by its own entry ID is the archive.
    const auto store = archive.Open<IMsgStore>(archive.EntryId(archive.Store()));
    EXPECT_EQ(store.Get(), &archive.Store());
    // The library's private identifiers give nothing.
    const auto folder = archive.Mail();
    ComPtr<IUnknown> unwrapped;
    EXPECT_EQ(
        archive.Store().QueryInterface(Quillon::Nst::IID_UnwrappedMsgStore, reinterpret_cast<void**>(unwrapped.Put())),
        E_NOINTERFACE);
    EXPECT_EQ(folder->QueryInterface(Quillon::Nst::IID_UnwrappedMapiFolder, reinterpret_cast<void**>(unwrapped.Put())),
              E_NOINTERFACE);
    // Through the logon, and through a folder.
    const Bytes messageId = archive.EntryId(*archive.FirstMessage(*folder, 0, true));
    ULONG type = 0;
    ComPtr<IMessage> message;
    ASSERT_EQ(archive.Logon().OpenEntry(SizeOf(messageId), IdOf(messageId), nullptr, MAPI_MODIFY, &type,
                                        message.PutAs<IUnknown>()),
              S_OK);
    EXPECT_EQ(archive.Set(*message, {Text(PR_SUBJECT_W)}), MAPI_E_NO_ACCESS);
    ASSERT_EQ(
        folder->OpenEntry(SizeOf(messageId), IdOf(messageId), nullptr, MAPI_MODIFY, &type, message.PutAs<IUnknown>()),
        S_OK);
    EXPECT_EQ(archive.Set(*message, {Text(PR_SUBJECT_W)}), MAPI_E_NO_ACCESS);
    // A message within a message, by whatever interface.
    ComPtr<IAttach> attachment;
    ASSERT_EQ(message->OpenAttach(0, nullptr, MAPI_BEST_ACCESS, attachment.Put()), S_OK);
    ASSERT_EQ(archive.Prop(*attachment, PR_ATTACH_METHOD).AsLong(), LONG{ATTACH_EMBEDDED_MSG});
    for (const IID* const iid : {&IID_IMessage, &IID_IMAPIProp, &IID_IUnknown})
    {
        ComPtr<IUnknown> object;
        const HRESULT hr = attachment->OpenProperty(PR_ATTACH_DATA_OBJ, iid, 0, MAPI_MODIFY, object.Put());
        if (iid != &IID_IMessage && hr != S_OK)
            continue;
        ASSERT_EQ(hr, S_OK);
        const ComPtr<IMessage> embedded = object.As<IMessage>(IID_IMessage);
        ASSERT_TRUE(embedded);
        EXPECT_EQ(archive.Set(*embedded, {Text(PR_SUBJECT_W)}), MAPI_E_NO_ACCESS);
        EXPECT_EQ(embedded->SaveChanges(0), MAPI_E_NO_ACCESS);
    }
}

TEST(ReadOnlyArchiveTest, CopiesOutOfTheArchiveSucceed)
{
    const std::filesystem::path folder = NewFolder();
    const OpenArchive archive(CopyOf(folder, L"submessage.pst"), HostOf({}));
    const OpenArchive target(folder / "target.pst", WritableHost());
    Stage stage(archive);
    const auto top = target.Mail(MAPI_MODIFY);

    EXPECT_EQ(stage.parentOfMessage->CopyMessages(&stage.messages, nullptr, top.Get(), 0, nullptr, 0), S_OK);
    EXPECT_EQ(stage.parentOfMessage->CopyMessages(&stage.messages, nullptr, top.Get(), 0, nullptr, MAPI_DECLINE_OK),
              MAPI_E_DECLINE_COPY);
    const Bytes grandparent = archive.Prop(*stage.parentOfMessage, PR_PARENT_ENTRYID).AsBytes();
    std::wstring name = L"Copied";
    EXPECT_EQ(archive.Open<IMAPIFolder>(grandparent)
                  ->CopyFolder(SizeOf(stage.childId), IdOf(stage.childId), nullptr, top.Get(),
                               reinterpret_cast<LPTSTR>(name.data()), 0, nullptr, MAPI_UNICODE | COPY_SUBFOLDERS),
              S_OK);
    ComPtr<IMessage> copy;
    ASSERT_EQ(top->CreateMessage(nullptr, 0, copy.Put()), S_OK);
    EXPECT_EQ(stage.CopyTo(*stage.message, &IID_IMessage, copy.Get()), S_OK);
    EXPECT_EQ(stage.CopyProps(*stage.message, PR_SUBJECT_W, &IID_IMessage, copy.Get()), S_OK);
    EXPECT_EQ(copy->SaveChanges(0), S_OK);

    ComPtr<IMAPITable> table;
    ASSERT_EQ(top->GetContentsTable(0, table.Put()), S_OK);
    const std::wstring subject = archive.Prop(*stage.message, PR_SUBJECT_W).AsText();
    size_t found = 0;
    for (const PropertyBag& row : target.Rows(*table, {PR_SUBJECT_W}))
        found += row.Find(PROP_ID(PR_SUBJECT))->AsText() == subject ? 1 : 0;
    EXPECT_EQ(found, 2u);
    ASSERT_EQ(top->GetHierarchyTable(0, table.Put()), S_OK);
    bool isThere = false;
    for (const PropertyBag& row : target.Rows(*table, {PR_DISPLAY_NAME_W}))
        isThere = isThere || row.Find(PROP_ID(PR_DISPLAY_NAME))->AsText() == name;
    EXPECT_TRUE(isThere);
}

TEST(ReadOnlyArchiveTest, AClientSearchesByAFolderOfItsOwnThroughWhichNothingIsChanged)
{
    const std::filesystem::path file = GeneratedPst(NewFolder());
    Bytes searchId;
    Bytes finderId;
    {
        const OpenArchive archive(file, HostOf({}));
        finderId = archive.Prop(archive.Store(), PR_FINDER_ENTRYID).AsBytes();
        const auto finder = archive.Open<IMAPIFolder>(finderId, MAPI_MODIFY);
        std::wstring name = L"Found";
        ComPtr<IMAPIFolder> search;
        ASSERT_EQ(finder->CreateFolder(FOLDER_SEARCH, name.data(), nullptr, nullptr, MAPI_UNICODE, search.Put()), S_OK);
        SRestriction restriction = {};
        restriction.rt = RES_EXIST;
        restriction.res.resExist.ulPropTag = PR_SUBJECT_W;
        Bytes where = archive.EntryId(*archive.Mail());
        SBinary binary = {SizeOf(where), where.data()};
        ENTRYLIST list = {1, &binary};
        ASSERT_EQ(search->SetSearchCriteria(&restriction, &list, RECURSIVE_SEARCH | FOREGROUND_SEARCH), S_OK);
        searchId = archive.EntryId(*search);
        ASSERT_FALSE(searchId.empty());
    }
    const OpenArchive archive(file, HostOf({}));
    const auto search = archive.Open<IMAPIFolder>(searchId, MAPI_BEST_ACCESS);
    ComPtr<IMAPITable> table;
    ASSERT_EQ(search->GetContentsTable(0, table.Put()), S_OK);
    const auto rows = archive.Rows(*table, {PR_ENTRYID, PR_PARENT_ENTRYID});
    ASSERT_FALSE(rows.empty());
    Bytes messageId = rows[0].Find(PROP_ID(PR_ENTRYID))->AsBytes();
    SBinary binary = {SizeOf(messageId), messageId.data()};
    ENTRYLIST messages = {1, &binary};
    EXPECT_EQ(search->DeleteMessages(&messages, 0, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(search->EmptyFolder(0, nullptr, 0), MAPI_E_NO_ACCESS);
    EXPECT_EQ(search->SetReadFlags(&messages, 0, nullptr, 0), MAPI_E_NO_ACCESS);
    ULONG type = 0;
    ComPtr<IMessage> message;
    ASSERT_EQ(search->OpenEntry(SizeOf(messageId), IdOf(messageId), nullptr, MAPI_BEST_ACCESS, &type,
                                message.PutAs<IUnknown>()),
              S_OK);
    EXPECT_EQ(archive.Set(*message, {Text(PR_SUBJECT_W)}), MAPI_E_NO_ACCESS);
    EXPECT_EQ(message->SaveChanges(0), MAPI_E_NO_ACCESS);

    const auto finder = archive.Open<IMAPIFolder>(finderId, MAPI_MODIFY);
    EXPECT_EQ(archive.Set(*finder, {Text(PR_COMMENT_W)}), MAPI_E_NO_ACCESS);
    ASSERT_EQ(finder->DeleteFolder(SizeOf(searchId), IdOf(searchId), 0, nullptr, 0), S_OK);
    // The mail that was found is there still.
    EXPECT_NO_THROW(archive.Open<IMessage>(messageId));
}

TEST(ReadOnlyArchiveTest, TheHostChoosesWhatStaysWritable)
{
    KivNstHostKit::ArchiveSettings settings;
    settings.writableStoreTags.assign(std::begin(KivNstHostKit::libraryStoreTags),
                                      std::end(KivNstHostKit::libraryStoreTags));
    settings.writableFolderTags.assign(std::begin(KivNstHostKit::libraryFolderTags),
                                       std::end(KivNstHostKit::libraryFolderTags));
    settings.givesProviderObjects = true;
    const OpenArchive archive(GeneratedPst(NewFolder()), HostOf(std::move(settings)));
    EXPECT_EQ(archive.Set(archive.Store(), {Text(hostStoreTag)}), S_OK);
    EXPECT_EQ(archive.Prop(archive.Store(), hostStoreTag).AsText(), L"attempt");
    EXPECT_EQ(archive.Delete(archive.Store(), hostStoreTag), S_OK);
    EXPECT_EQ(archive.Set(archive.Store(), {Text(hostStoreTag), Text(PR_COMMENT_W)}), MAPI_E_NO_ACCESS);
    EXPECT_TRUE(archive.Prop(archive.Store(), hostStoreTag).IsError());

    const auto folder = archive.Mail(MAPI_MODIFY);
    const PropValue bytes = PropValue::Binary(hostFolderTag, Bytes{1, 2});
    EXPECT_EQ(archive.Set(*folder, {bytes}), S_OK);
    EXPECT_EQ(archive.Prop(*folder, hostFolderTag).AsBytes(), (Bytes{1, 2}));
    EXPECT_EQ(archive.Set(*folder, {bytes, Text(PR_COMMENT_W)}), MAPI_E_NO_ACCESS);

    ComPtr<IMsgStore> unwrapped;
    EXPECT_EQ(
        archive.Store().QueryInterface(Quillon::Nst::IID_UnwrappedMsgStore, reinterpret_cast<void**>(unwrapped.Put())),
        S_OK);
    EXPECT_NE(unwrapped.Get(), &archive.Store());
}

} // namespace
} // namespace Tests
