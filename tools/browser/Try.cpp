// The command "try".
#include "tools/browser/Try.h"

#include "common/Boundary.h"
#include "nst/NstMapiFolder.h"
#include "nst/NstMsgStore.h"
#include "tools/browser/Commands.h"
#include "tools/browser/Copy.h"
#include "tools/browser/MapiTools.h"
#include "tools/browser/Observer.h"
#include "tools/browser/Sha256.h"

#include <algorithm>
#include <functional>
#include <optional>

using namespace Common;
using namespace Testbed;

namespace Browser
{
namespace
{
// The store properties that an archive keeps writable for its host.
constexpr ULONG hostText = PROP_TAG(PT_UNICODE, 0x7FEB);
constexpr ULONG hostTime = PROP_TAG(PT_SYSTIME, 0x7FE9);
constexpr ULONG hostBytes1 = PROP_TAG(PT_BINARY, 0x7FE7);
constexpr ULONG hostBytes2 = PROP_TAG(PT_BINARY, 0x7FE8);
// The folder properties that a read-only folder keeps writable.
constexpr ULONG folderBytes1 = PROP_TAG(PT_BINARY, 0x3020);
constexpr ULONG folderBytes2 = PROP_TAG(PT_BINARY, 0x3021);

// What the attempts are made on.
struct Subject
{
    Bytes folder;
    Bytes message;
    std::optional<ULONG> attachment;
};

// Objects that are there to be deleted and moved.
struct Victims
{
    Bytes deletedMessage;
    Bytes movedMessage;
    Bytes deletedFolder;
    Bytes movedFolder;
    Bytes emptiedFolder;
};

// Finds the first message with an attachment, else the first message.
class SubjectFinder
{
public:
    SubjectFinder(const MapiMemory& memory, IMsgStore& store) : m_memory(memory), m_store(store) {}

    Subject Find()
    {
        for (const Bytes& top : {TopOfStore(m_memory, m_store), Bytes()})
            if (Search(top) || m_found)
                break;
        if (!m_found)
            Fail(MAPI_E_NOT_FOUND, L"The archive has no message to try the calls on; import some first.");
        return *m_found;
    }

private:
    bool Search(const Bytes& entryId)
    {
        const auto folder = OpenFolder(m_store, entryId);
        const auto own = ReadProp(m_memory, *folder, PR_ENTRYID);
        for (const Row& row : ReadTable(m_memory, *Contents(*folder, false), {PR_ENTRYID, PR_HASATTACH}))
        {
            if (!m_found)
                m_found = Subject{own ? own->AsBytes() : Bytes(), row[0].AsBytes(), {}};
            if (row[1].IsError() || row[1].AsLong() == 0)
                continue;
            const auto message = OpenMessage(m_store, row[0].AsBytes());
            if (const auto numbers = AttachmentNumbers(m_memory, *message); !numbers.empty())
            {
                m_found = Subject{own ? own->AsBytes() : Bytes(), row[0].AsBytes(), numbers.front()};
                return true;
            }
        }
        for (const FolderRow& row : SubFolders(m_memory, *folder))
            if (row.type != FOLDER_SEARCH && Search(row.entryId))
                return true;
        return false;
    }

    const MapiMemory& m_memory;
    IMsgStore& m_store;
    std::optional<Subject> m_found;
};

// A list of one message, as the folder's methods take it.
class MessageList
{
public:
    explicit MessageList(Bytes entryId) : m_entryId(std::move(entryId))
    {
        m_binary = {static_cast<ULONG>(m_entryId.size()), m_entryId.data()};
        m_list = {1, &m_binary};
    }
    MessageList(const MessageList&) = delete;
    MessageList& operator=(const MessageList&) = delete;
    LPENTRYLIST Get() noexcept { return &m_list; }

private:
    Bytes m_entryId;
    SBinary m_binary{};
    ENTRYLIST m_list{};
};

// A session in one setting with the objects that the calls are made on, each opened afresh for every call.
class Stage
{
public:
    Stage(ArchiveSession& archive, PstSession& target, const Subject& subject, const Victims& victims)
        : m_archive(archive),
          m_target(target),
          m_subject(subject),
          m_victims(victims),
          m_targetFolder(OpenFolder(target.Store(), TopOfStore(target.Memory(), target.Store()), MAPI_MODIFY))
    {
    }

    const MapiMemory& Memory() const { return m_archive.Memory(); }
    IMsgStore& Store() const { return m_archive.Store(); }
    IMsgStore& TargetStore() const { return m_target.Store(); }
    IMAPIFolder& TargetFolder() const { return *m_targetFolder; }
    const Subject& What() const noexcept { return m_subject; }
    const Victims& Doomed() const noexcept { return m_victims; }

    IMAPIFolder& Folder()
    {
        return Keep(m_folder, [&] { return OpenFolder(Store(), m_subject.folder, MAPI_MODIFY); });
    }
    IMessage& Message()
    {
        return Keep(m_message, [&] { return OpenMessage(Store(), m_subject.message, MAPI_MODIFY); });
    }
    IAttach& Attachment()
    {
        return Keep(m_attachment, [&] { return OpenAttachment(Message(), *m_subject.attachment, MAPI_MODIFY); });
    }
    IMessage& TargetMessage()
    {
        return Keep(m_targetMessage,
                    [&]
                    {
                        ComPtr<IMessage> message;
                        Check(m_targetFolder->CreateMessage(nullptr, 0, message.Put()), L"No message can be made.");
                        return message;
                    });
    }
    IAttach& TargetAttachment()
    {
        return Keep(m_targetAttachment,
                    [&]
                    {
                        ULONG number = 0;
                        ComPtr<IAttach> attachment;
                        Check(TargetMessage().CreateAttach(nullptr, 0, &number, attachment.Put()),
                              L"No attachment can be made.");
                        return attachment;
                    });
    }

    void Reset()
    {
        m_targetAttachment.Reset();
        m_targetMessage.Reset();
        m_attachment.Reset();
        m_message.Reset();
        m_folder.Reset();
    }

    // SetProps of one value (or none); problems count as failures.
    HRESULT Set(IMAPIProp& object, const std::vector<PropValue>& values) const
    {
        const MapiBlock<SPropValue> array(Memory(), MakePropArray(Memory(), values));
        MapiBlock<SPropProblemArray> problems(Memory());
        const HRESULT result = object.SetProps(static_cast<ULONG>(values.size()), array.Get(), problems.Put());
        return SUCCEEDED(result) && problems && problems->cProblem != 0 ? problems->aProblem[0].scode : result;
    }
    HRESULT Delete(IMAPIProp& object, ULONG tag) const
    {
        const MapiBlock<SPropTagArray> tags(Memory(), MakeTagArray(Memory(), {tag}));
        return object.DeleteProps(tags.Get(), nullptr);
    }
    static HRESULT OpenStream(IMAPIProp& object, ULONG tag, ULONG flags)
    {
        ComPtr<IStream> stream;
        return object.OpenProperty(tag, &IID_IStream, STGM_READ, flags, stream.PutAs<IUnknown>());
    }
    HRESULT CopyTo(IMAPIProp& object, LPCIID iid, IUnknown& target, const std::vector<ULONG>& excluded = {}) const
    {
        const MapiBlock<SPropTagArray> tags(Memory(), excluded.empty() ? nullptr : MakeTagArray(Memory(), excluded));
        return object.CopyTo(0, nullptr, tags.Get(), 0, nullptr, iid, &target, 0, nullptr);
    }
    HRESULT CopyProps(IMAPIProp& object, LPCIID iid, IUnknown& target, ULONG tag) const
    {
        const MapiBlock<SPropTagArray> tags(Memory(), MakeTagArray(Memory(), {tag}));
        return object.CopyProps(tags.Get(), 0, nullptr, iid, &target, 0, nullptr);
    }
    HRESULT MakeName(IMAPIProp& object) const
    {
        GUID set = {0x2F0B7D10, 0x6D43, 0x4E0A, {0x8A, 0x64, 0x5B, 0x77, 0x19, 0xC3, 0xE2, 0x01}};
        MAPINAMEID name{};
        name.lpguid = &set;
        name.ulKind = MNID_STRING;
        std::wstring text = L"Attempt";
        name.Kind.lpwstrName = text.data();
        MAPINAMEID* names = &name;
        MapiBlock<SPropTagArray> tags(Memory());
        return object.GetIDsFromNames(1, &names, MAPI_CREATE, tags.Put());
    }

private:
    template <class T, class F>
    static T& Keep(ComPtr<T>& place, F&& open)
    {
        if (!place)
            place = open();
        return *place;
    }

    ArchiveSession& m_archive;
    PstSession& m_target;
    Subject m_subject;
    Victims m_victims;
    ComPtr<IMAPIFolder> m_targetFolder;
    ComPtr<IMAPIFolder> m_folder;
    ComPtr<IMessage> m_message;
    ComPtr<IAttach> m_attachment;
    ComPtr<IMessage> m_targetMessage;
    ComPtr<IAttach> m_targetAttachment;
};

struct Attempt
{
    const char* object;
    const char* call;
    std::function<HRESULT(Stage&)> run;
    // May change the archive by design, in every setting: never made on the archive itself.
    bool writesByDesign = false;
};

ULONG SizeOf(const Bytes& bytes)
{
    return static_cast<ULONG>(bytes.size());
}

PropValue Text(ULONG tag)
{
    return PropValue::String(tag, L"attempt");
}

PropValue SomeBytes(ULONG tag)
{
    return PropValue::Binary(tag, Bytes{1, 2, 3});
}

std::vector<Attempt> StoreAttempts()
{
    return {
        {"store", "SaveChanges", [](Stage& s) { return s.Store().SaveChanges(KEEP_OPEN_READWRITE); }},
        {"store", "SetProps(PR_DISPLAY_NAME_W)", [](Stage& s) { return s.Set(s.Store(), {Text(PR_DISPLAY_NAME_W)}); }},
        {"store", "SetProps(PR_IPM_SUBTREE_ENTRYID)",
         [](Stage& s) { return s.Set(s.Store(), {PropValue::Binary(PR_IPM_SUBTREE_ENTRYID, s.What().folder)}); }},
        {"store", "SetProps(the host's own)",
         [](Stage& s)
         {
             FILETIME time{};
             GetSystemTimeAsFileTime(&time);
             return s.Set(s.Store(), {Text(hostText), PropValue::Time(hostTime, time), SomeBytes(hostBytes1),
                                      SomeBytes(hostBytes2)});
         },
         true},
        {"store", "SetProps(the host's own, PR_COMMENT_W)",
         [](Stage& s) { return s.Set(s.Store(), {Text(hostText), Text(PR_COMMENT_W)}); }},
        {"store", "DeleteProps(PR_COMMENT_W)", [](Stage& s) { return s.Delete(s.Store(), PR_COMMENT_W); }},
        {"store", "DeleteProps(PR_IPM_SUBTREE_ENTRYID)",
         [](Stage& s) { return s.Delete(s.Store(), PR_IPM_SUBTREE_ENTRYID); }},
        {"store", "DeleteProps(the host's own)", [](Stage& s) { return s.Delete(s.Store(), hostText); }, true},
        {"store", "OpenProperty(PR_DISPLAY_NAME_W)",
         [](Stage& s) { return Stage::OpenStream(s.Store(), PR_DISPLAY_NAME_W, 0); }},
        {"store", "OpenProperty(PR_DISPLAY_NAME_W, MAPI_MODIFY)",
         [](Stage& s) { return Stage::OpenStream(s.Store(), PR_DISPLAY_NAME_W, MAPI_MODIFY); }},
        {"store", "OpenProperty(PR_SEARCH)",
         [](Stage& s)
         {
             ComPtr<IMAPIProp> object;
             return s.Store().OpenProperty(PR_SEARCH, &IID_IMAPIContainer, 0, 0, object.PutAs<IUnknown>());
         }},
        {"store", "CopyTo", [](Stage& s) { return s.CopyTo(s.Store(), &IID_IMsgStore, s.TargetStore()); }},
        {"store", "CopyProps",
         [](Stage& s) { return s.CopyProps(s.Store(), &IID_IMsgStore, s.TargetStore(), PR_DISPLAY_NAME_W); }},
        {"store", "GetIDsFromNames(MAPI_CREATE)", [](Stage& s) { return s.MakeName(s.Store()); }, true},
        {"store", "SetReceiveFolder",
         [](Stage& s)
         {
             std::wstring messageClass = L"IPM.Attempt";
             return s.Store().SetReceiveFolder(messageClass.data(), MAPI_UNICODE, SizeOf(s.What().folder),
                                               EntryIdOf(s.What().folder));
         }},
        {"store", "AbortSubmit",
         [](Stage& s) { return s.Store().AbortSubmit(SizeOf(s.What().message), EntryIdOf(s.What().message), 0); }},
        {"store", "SetLockState", [](Stage& s) { return s.Store().SetLockState(&s.Message(), MSG_LOCKED); }},
        {"store", "FinishedMsg",
         [](Stage& s) { return s.Store().FinishedMsg(0, SizeOf(s.What().message), EntryIdOf(s.What().message)); }},
        {"store", "NotifyNewMail",
         [](Stage& s)
         {
             NOTIFICATION notification{};
             notification.ulEventType = fnevNewMail;
             return s.Store().NotifyNewMail(&notification);
         }},
    };
}

std::vector<Attempt> AttachmentAttempts()
{
    return {
        {"attachment", "SaveChanges", [](Stage& s) { return s.Attachment().SaveChanges(KEEP_OPEN_READWRITE); }},
        {"attachment", "SetProps", [](Stage& s) { return s.Set(s.Attachment(), {Text(PR_DISPLAY_NAME_W)}); }},
        {"attachment", "DeleteProps", [](Stage& s) { return s.Delete(s.Attachment(), PR_DISPLAY_NAME_W); }},
        {"attachment", "OpenProperty(PR_ATTACH_DATA_BIN, MAPI_MODIFY)",
         [](Stage& s) { return Stage::OpenStream(s.Attachment(), PR_ATTACH_DATA_BIN, MAPI_MODIFY); }},
        {"attachment", "CopyTo",
         [](Stage& s) { return s.CopyTo(s.Attachment(), &IID_IAttachment, s.TargetAttachment()); }},
        {"attachment", "CopyProps", [](Stage& s)
         { return s.CopyProps(s.Attachment(), &IID_IAttachment, s.TargetAttachment(), PR_ATTACH_METHOD); }},
        {"attachment", "GetIDsFromNames(MAPI_CREATE)", [](Stage& s) { return s.MakeName(s.Attachment()); }, true},
    };
}

std::vector<Attempt> MessageAttempts()
{
    return {
        {"message", "SaveChanges", [](Stage& s) { return s.Message().SaveChanges(KEEP_OPEN_READWRITE); }},
        {"message", "SetProps", [](Stage& s) { return s.Set(s.Message(), {Text(PR_SUBJECT_W)}); }},
        {"message", "SetProps(none)", [](Stage& s) { return s.Message().SetProps(0, nullptr, nullptr); }},
        {"message", "DeleteProps", [](Stage& s) { return s.Delete(s.Message(), PR_SUBJECT_W); }},
        {"message", "OpenProperty(PR_SUBJECT_W, MAPI_MODIFY)",
         [](Stage& s) { return Stage::OpenStream(s.Message(), PR_SUBJECT_W, MAPI_MODIFY); }},
        {"message", "OpenProperty(PR_COMMENT_W, MAPI_CREATE | MAPI_MODIFY)",
         [](Stage& s) { return Stage::OpenStream(s.Message(), PR_COMMENT_W, MAPI_CREATE | MAPI_MODIFY); }},
        {"message", "CopyTo", [](Stage& s) { return s.CopyTo(s.Message(), &IID_IMessage, s.TargetMessage()); }},
        {"message", "CopyProps",
         [](Stage& s) { return s.CopyProps(s.Message(), &IID_IMessage, s.TargetMessage(), PR_SUBJECT_W); }},
        {"message", "GetIDsFromNames(MAPI_CREATE)", [](Stage& s) { return s.MakeName(s.Message()); }, true},
        {"message", "OpenAttach(MAPI_MODIFY)",
         [](Stage& s)
         {
             ComPtr<IAttach> attachment;
             return s.Message().OpenAttach(s.What().attachment.value_or(0), nullptr, MAPI_MODIFY, attachment.Put());
         }},
        {"message", "CreateAttach",
         [](Stage& s)
         {
             ULONG number = 0;
             ComPtr<IAttach> attachment;
             return s.Message().CreateAttach(nullptr, 0, &number, attachment.Put());
         }},
        {"message", "DeleteAttach",
         [](Stage& s) { return s.Message().DeleteAttach(s.What().attachment.value_or(0), 0, nullptr, 0); }},
        {"message", "ModifyRecipients", [](Stage& s) { return s.Message().ModifyRecipients(0, nullptr); }},
        {"message", "SubmitMessage", [](Stage& s) { return s.Message().SubmitMessage(0); }},
        {"message", "SetReadFlag(CLEAR_READ_FLAG)", [](Stage& s) { return s.Message().SetReadFlag(CLEAR_READ_FLAG); }},
    };
}

std::vector<Attempt> FolderAttempts()
{
    return {
        {"folder", "SaveChanges", [](Stage& s) { return s.Folder().SaveChanges(KEEP_OPEN_READWRITE); }},
        {"folder", "SetProps(PR_COMMENT_W)", [](Stage& s) { return s.Set(s.Folder(), {Text(PR_COMMENT_W)}); }},
        {"folder", "SetProps(0x30200102, 0x30210102)",
         [](Stage& s) { return s.Set(s.Folder(), {SomeBytes(folderBytes1), SomeBytes(folderBytes2)}); }, true},
        {"folder", "SetProps(0x30200102, PR_COMMENT_W)",
         [](Stage& s) { return s.Set(s.Folder(), {SomeBytes(folderBytes1), Text(PR_COMMENT_W)}); }},
        {"folder", "SetProps(none)",
         [](Stage& s)
         {
             SPropValue nothing{};
             return s.Folder().SetProps(0, &nothing, nullptr);
         }},
        {"folder", "DeleteProps", [](Stage& s) { return s.Delete(s.Folder(), PR_COMMENT_W); }},
        {"folder", "OpenProperty(PR_CONTAINER_CONTENTS)",
         [](Stage& s)
         {
             ComPtr<IMAPITable> table;
             return s.Folder().OpenProperty(PR_CONTAINER_CONTENTS, &IID_IMAPITable, 0, 0, table.PutAs<IUnknown>());
         }},
        {"folder", "OpenProperty(PR_DISPLAY_NAME_W, MAPI_MODIFY)",
         [](Stage& s) { return Stage::OpenStream(s.Folder(), PR_DISPLAY_NAME_W, MAPI_MODIFY); }},
        {"folder", "CopyTo",
         [](Stage& s)
         {
             return s.CopyTo(
                 s.Folder(), &IID_IMAPIFolder, s.TargetFolder(),
                 {PR_CONTAINER_CONTENTS, PR_CONTAINER_HIERARCHY, PR_FOLDER_ASSOCIATED_CONTENTS, PR_DISPLAY_NAME_W});
         }},
        {"folder", "CopyProps",
         [](Stage& s) { return s.CopyProps(s.Folder(), &IID_IMAPIFolder, s.TargetFolder(), PR_COMMENT_W); }},
        {"folder", "GetIDsFromNames(MAPI_CREATE)", [](Stage& s) { return s.MakeName(s.Folder()); }, true},
        {"folder", "SetSearchCriteria", [](Stage& s) { return s.Folder().SetSearchCriteria(nullptr, nullptr, 0); }},
        {"folder", "CreateMessage",
         [](Stage& s)
         {
             ComPtr<IMessage> message;
             return s.Folder().CreateMessage(nullptr, 0, message.Put());
         }},
        {"folder", "CopyMessages",
         [](Stage& s)
         {
             MessageList list(s.What().message);
             return s.Folder().CopyMessages(list.Get(), nullptr, &s.TargetFolder(), 0, nullptr, 0);
         }},
        {"folder", "CopyMessages(MESSAGE_MOVE)",
         [](Stage& s)
         {
             MessageList list(s.Doomed().movedMessage);
             return s.Folder().CopyMessages(list.Get(), nullptr, &s.TargetFolder(), 0, nullptr, MESSAGE_MOVE);
         }},
        {"folder", "DeleteMessages",
         [](Stage& s)
         {
             MessageList list(s.Doomed().deletedMessage);
             return s.Folder().DeleteMessages(list.Get(), 0, nullptr, 0);
         }},
        {"folder", "CreateFolder",
         [](Stage& s)
         {
             std::wstring name = L"Attempt";
             ComPtr<IMAPIFolder> folder;
             return s.Folder().CreateFolder(FOLDER_GENERIC, name.data(), nullptr, nullptr, MAPI_UNICODE, folder.Put());
         }},
        {"folder", "CopyFolder",
         [](Stage& s)
         {
             const Bytes& entryId = s.Doomed().movedFolder;
             return s.Folder().CopyFolder(SizeOf(entryId), EntryIdOf(entryId), nullptr, &s.TargetFolder(), nullptr, 0,
                                          nullptr, 0);
         }},
        {"folder", "CopyFolder(FOLDER_MOVE)",
         [](Stage& s)
         {
             const Bytes& entryId = s.Doomed().movedFolder;
             return s.Folder().CopyFolder(SizeOf(entryId), EntryIdOf(entryId), nullptr, &s.TargetFolder(), nullptr, 0,
                                          nullptr, FOLDER_MOVE);
         }},
        {"folder", "DeleteFolder",
         [](Stage& s)
         {
             const Bytes& entryId = s.Doomed().deletedFolder;
             return s.Folder().DeleteFolder(SizeOf(entryId), EntryIdOf(entryId), 0, nullptr,
                                            DEL_MESSAGES | DEL_FOLDERS);
         }},
        {"folder", "SetReadFlags(CLEAR_READ_FLAG)",
         [](Stage& s)
         {
             MessageList list(s.What().message);
             return s.Folder().SetReadFlags(list.Get(), 0, nullptr, CLEAR_READ_FLAG);
         }},
        {"folder", "SetMessageStatus",
         [](Stage& s)
         {
             ULONG old = 0;
             return s.Folder().SetMessageStatus(SizeOf(s.What().message), EntryIdOf(s.What().message), MSGSTATUS_TAGGED,
                                                MSGSTATUS_TAGGED, &old);
         }},
        {"folder", "SaveContentsSort",
         [](Stage& s)
         {
             SSortOrderSet order{};
             return s.Folder().SaveContentsSort(&order, 0);
         }},
        {"folder", "EmptyFolder",
         [](Stage& s)
         {
             const auto folder = OpenFolder(s.Store(), s.Doomed().emptiedFolder, MAPI_MODIFY);
             TakeCalls();
             return folder->EmptyFolder(0, nullptr, 0);
         }},
    };
}

std::vector<Attempt> AllAttempts()
{
    std::vector<Attempt> all;
    for (auto&& part : {StoreAttempts(), FolderAttempts(), MessageAttempts(), AttachmentAttempts()})
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

// The method that an attempt's provider object is asked for: "IMAPIFolder::CreateMessage".
std::string MethodOf(const Attempt& attempt)
{
    const std::string_view call = attempt.call;
    const std::string method(call.substr(0, call.find('(')));
    const std::string_view object = attempt.object;
    if (object == "folder" && method == "CopyFolder")
        return "IMAPISupport::CopyFolder";
    return (object == "store"     ? "IMsgStore::"
            : object == "folder"  ? "IMAPIFolder::"
            : object == "message" ? "IMessage::"
                                  : "IAttach::") +
           method;
}

// The library's lines, details joined to what they belong to.
std::vector<std::string> JoinLog(const std::vector<LogRecorder::Line>& lines)
{
    std::vector<std::string> joined;
    for (const LogRecorder::Line& line : lines)
        if (line.isDetail && !joined.empty())
            joined.back() += " " + line.text;
        else
            joined.push_back(line.text);
    return joined;
}

TryRow RunAttempt(const Attempt& attempt, Stage& stage, const Setting& setting, LogRecorder& log)
{
    // Opening what the call is made on shall not show in what the call did.
    const std::string_view object = attempt.object;
    if (object == "folder")
    {
        stage.Folder();
    }
    else if (object == "message")
    {
        stage.Message();
        stage.TargetMessage();
    }
    else if (object == "attachment")
    {
        stage.Attachment();
        stage.TargetAttachment();
    }
    else
    {
        stage.Message();
    }
    log.Take();
    TakeCalls();
    TryRow row;
    row.setting = setting;
    row.object = attempt.object;
    row.call = attempt.call;
    const HRESULT result = attempt.run(stage);
    row.reached = TakeCalls();
    row.log = JoinLog(log.Take());
    row.code = ResultName(result);
    const bool reached = std::find(row.reached.begin(), row.reached.end(), MethodOf(attempt)) != row.reached.end();
    row.outcome = reached                      ? "let through"
                  : result == MAPI_E_NO_ACCESS ? "refused"
                  : result == S_OK             ? "ignored"
                                               : "failed";
    stage.Reset();
    return row;
}

// Watches the classes of the provider's objects, which the wrapped ones give on demand.
void WatchProvider(ArchiveSession& archive, const Subject& subject)
{
    ComPtr<IMsgStore> store;
    Check(archive.Store().QueryInterface(Quillon::Nst::IID_UnwrappedMsgStore, reinterpret_cast<void**>(store.Put())),
          L"The archive does not give the store behind it.");
    Watch(*store);
    Watch(*OpenFolder(*store, subject.folder));
    const auto message = OpenMessage(*store, subject.message);
    Watch(*message);
    if (subject.attachment)
        Watch(*OpenAttachment(*message, *subject.attachment));
    Watch(*archive.Session().MakeSupport());
}

Bytes EntryIdOfObject(const MapiMemory& memory, IMAPIProp& object)
{
    const auto entryId = ReadProp(memory, object, PR_ENTRYID);
    return entryId ? entryId->AsBytes() : Bytes();
}

// Makes what the attempts may delete and move, in a copy of the archive.
Victims MakeVictims(const std::filesystem::path& copy, const Subject& subject)
{
    PstSession session(copy, false, true);
    const auto parent = OpenFolder(session.Store(), subject.folder, MAPI_MODIFY);
    const auto message = [&](IMAPIFolder& folder)
    {
        ComPtr<IMessage> made;
        Check(folder.CreateMessage(nullptr, 0, made.Put()), L"No message can be made in the copy of the archive.");
        const MapiBlock<SPropValue> values(
            session.Memory(), MakePropArray(session.Memory(), {PropValue::String(PR_SUBJECT_W, L"Victim")}));
        Check(made->SetProps(1, values.Get(), nullptr), L"A message in the copy of the archive cannot be written.");
        Check(made->SaveChanges(KEEP_OPEN_READWRITE), L"A message in the copy of the archive cannot be saved.");
        return EntryIdOfObject(session.Memory(), *made);
    };
    const auto folder = [&](std::wstring name)
    {
        ComPtr<IMAPIFolder> made;
        Check(parent->CreateFolder(FOLDER_GENERIC, name.data(), nullptr, nullptr, MAPI_UNICODE | OPEN_IF_EXISTS,
                                   made.Put()),
              L"No folder can be made in the copy of the archive.");
        message(*made);
        return EntryIdOfObject(session.Memory(), *made);
    };
    return {message(*parent), message(*parent), folder(L"Deleted"), folder(L"Moved"), folder(L"Emptied")};
}

// Runs the attempts that `wanted` chooses.
void RunStage(ArchiveSession& archive, const Setting& setting, const Subject& subject, const Victims& victims,
              LogRecorder& log, const std::function<bool(const Attempt&)>& wanted, std::vector<TryRow>& rows)
{
    const ScratchFolder scratch;
    PstSession target(scratch.Path() / "target.pst", false, true);
    WatchProvider(archive, subject);
    Stage stage(archive, target, subject, victims);
    for (const Attempt& attempt : AllAttempts())
        if (wanted(attempt) && (subject.attachment || std::string_view(attempt.object) != "attachment"))
            rows.push_back(RunAttempt(attempt, stage, setting, log));
}
} // namespace

TryReport TryAll(const Options& options, const std::vector<Setting>& settings)
{
    constexpr Setting safe{};
    TryReport report;
    ArchiveSession archive(options.OpenProfile());
    archive.Logon(safe);
    const std::filesystem::path file = archive.ArchivePath();
    const Subject subject = SubjectFinder(archive.Memory(), archive.Store()).Find();
    // What the first logon to an archive writes is there from here on.
    archive.Logoff();
    report.pstBefore = Sha256Of(file);
    report.overlayBefore = Sha256Of(OverlayOf(file));

    for (const Setting& setting : settings)
    {
        const bool inPlace = setting == safe;
        std::vector<TryRow> rows;
        if (inPlace)
        {
            archive.Logon(setting);
            Bytes child = subject.folder;
            const auto folder = OpenFolder(archive.Store(), subject.folder);
            if (const auto children = SubFolders(archive.Memory(), *folder); !children.empty())
                child = children.front().entryId;
            RunStage(
                archive, setting, subject, {subject.message, subject.message, child, child, subject.folder},
                *options.log, [](const Attempt& attempt) { return !attempt.writesByDesign; }, rows);
        }
        archive.Logoff();
        const ScratchFolder scratch;
        const std::filesystem::path copy = scratch.CopyStore(file);
        const Victims victims = MakeVictims(copy, subject);
        ArchiveSession copied(Profile::InMemory(L"attempts"));
        copied.Configure(copy, setting);
        copied.Logon(setting);
        RunStage(
            copied, setting, subject, victims, *options.log,
            [inPlace](const Attempt& attempt) { return !inPlace || attempt.writesByDesign; }, rows);
        // In the order of the attempts, wherever they were made.
        std::vector<std::pair<std::string, std::string>> order;
        for (const Attempt& attempt : AllAttempts())
            order.emplace_back(attempt.object, attempt.call);
        const auto position = [&](const TryRow& row)
        { return std::find(order.begin(), order.end(), std::pair(row.object, row.call)); };
        std::stable_sort(rows.begin(), rows.end(),
                         [&](const TryRow& a, const TryRow& b) { return position(a) < position(b); });
        report.rows.insert(report.rows.end(), rows.begin(), rows.end());
    }
    report.pstAfter = Sha256Of(file);
    report.overlayAfter = Sha256Of(OverlayOf(file));
    return report;
}

Json TryReport::ToJson() const
{
    Json list = Json::array();
    for (const TryRow& row : rows)
    {
        list.push_back({{"wrappers", row.setting.plain ? "plain" : "read-only"},
                        {"modification", row.setting.modify ? "on" : "off"},
                        {"object", row.object},
                        {"call", row.call},
                        {"code", row.code},
                        {"outcome", row.outcome},
                        {"reached", row.reached},
                        {"log", row.log}});
    }
    return {{"calls", std::move(list)},
            {"archive",
             {{"pstSha256Before", pstBefore},
              {"pstSha256After", pstAfter},
              {"overlaySha256Before", overlayBefore},
              {"overlaySha256After", overlayAfter},
              {"unchanged", ArchiveUnchanged()}}}};
}

void PrintTryRows(const TryReport& report, const Setting& setting, bool refusedOnly, size_t indent)
{
    TextTable table(refusedOnly ? std::vector<TextTable::Column>{{"object"}, {"call"}, {"result"}}
                                : std::vector<TextTable::Column>{{"object"},
                                                                 {"call"},
                                                                 {"code"},
                                                                 {"outcome"},
                                                                 {"provider reached by", false, 64},
                                                                 {"log", false, 150}});
    for (const TryRow& row : report.rows)
    {
        if (!(row.setting == setting) || (refusedOnly && row.outcome != "refused"))
            continue;
        if (refusedOnly)
        {
            table.Add({row.object, row.call, row.code});
            continue;
        }
        std::string reached;
        for (const std::string& call : row.reached)
            if (reached.find(call) == std::string::npos)
                reached += (reached.empty() ? "" : ", ") + call;
        std::string log;
        for (const std::string& line : row.log)
            log += (log.empty() ? "" : " | ") + line;
        table.Add({row.object, row.call, row.code, row.outcome, reached, log});
    }
    table.Print(indent);
}

int RunTry(const Options& options)
{
    const std::vector<Setting> settings = {{false, false}, {false, true}, {true, false}, {true, true}};
    const TryReport report = TryAll(options, settings);
    if (options.json)
    {
        PrintLine(report.ToJson().dump(2));
        return report.ArchiveUnchanged() ? exitOk : exitFailed;
    }
    for (const Setting& setting : settings)
    {
        PrintLine(setting.Name() + (setting == Setting{} ? " (on the archive itself):" : " (on a copy):"));
        PrintLine();
        PrintTryRows(report, setting, false, 2);
        PrintLine();
    }
    PrintLine(report.ArchiveUnchanged() ? "The archive's files are what they were before."
                                        : "The archive's files have CHANGED.");
    return report.ArchiveUnchanged() ? exitOk : exitFailed;
}
} // namespace Browser
