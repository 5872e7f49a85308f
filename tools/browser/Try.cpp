// The command "try".
#include "tools/browser/Try.h"

#include "common/Boundary.h"
#include "nst/KivNstCore.h"
#include "support/Log.h"
#include "support/MapiHeaders.h"
#include "tools/browser/Commands.h"
#include "tools/browser/Copy.h"
#include "tools/browser/MapiTools.h"
#include "tools/browser/Sha256.h"

#include <algorithm>
#include <functional>
#include <optional>

using namespace Common;

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
    Stage(StoreSession& archive, PstSession& target, const Subject& subject, const Victims& victims)
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
    IMAPIFolder& EmptiedFolder()
    {
        return Keep(m_emptiedFolder, [&] { return OpenFolder(Store(), m_victims.emptiedFolder, MAPI_MODIFY); });
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
        m_emptiedFolder.Reset();
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

    StoreSession& m_archive;
    PstSession& m_target;
    Subject m_subject;
    Victims m_victims;
    ComPtr<IMAPIFolder> m_targetFolder;
    ComPtr<IMAPIFolder> m_folder;
    ComPtr<IMAPIFolder> m_emptiedFolder;
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
        {"folder", "EmptyFolder", [](Stage& s) { return s.EmptiedFolder().EmptyFolder(0, nullptr, 0); }},
    };
}

std::vector<Attempt> AllAttempts()
{
    std::vector<Attempt> all;
    for (auto&& part : {StoreAttempts(), FolderAttempts(), MessageAttempts(), AttachmentAttempts()})
        all.insert(all.end(), part.begin(), part.end());
    return all;
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

// Whether a call that passed a wrapper was refused behind it, which the library's log tells as a failure.
bool HasFailure(const std::vector<LogRecorder::Line>& lines)
{
    return std::any_of(lines.begin(), lines.end(), [](const LogRecorder::Line& line)
                       { return !line.isDetail && line.level == static_cast<int>(Quillon::LogId::Error); });
}

TryRow RunAttempt(const Attempt& attempt, Stage& stage, const Setting& setting, LogRecorder& log, AttemptWatch* watch)
{
    // Opening what the call is made on shall not show in what the call did.
    const std::string_view object = attempt.object;
    if (object == "folder")
    {
        stage.Folder();
        stage.EmptiedFolder();
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
    if (watch)
        watch->Before();
    TryRow row;
    row.setting = setting;
    row.object = attempt.object;
    row.call = attempt.call;
    const HRESULT result = attempt.run(stage);
    const auto lines = log.Take();
    row.log = JoinLog(lines);
    row.code = ResultName(result);
    row.outcome = result == MAPI_E_NO_ACCESS && !HasFailure(lines) ? "refused"
                  : SUCCEEDED(result)                              ? "succeeded"
                                                                   : "failed";
    if (watch)
        watch->After(row);
    stage.Reset();
    return row;
}

Bytes EntryIdOfObject(const MapiMemory& memory, IMAPIProp& object)
{
    const auto entryId = ReadProp(memory, object, PR_ENTRYID);
    return entryId ? entryId->AsBytes() : Bytes();
}

// What an archive that is made for the attempts has in it.
struct Scene
{
    Subject subject;
    Victims victims;
};

// Makes an archive with a copy of the subject, and with what the attempts may delete and move.
Scene MakeScene(const Options& options, ArchiveSession& archive, const Subject& original, const Setting& setting,
                const std::filesystem::path& file)
{
    archive.Logon({});
    const MapiMemory memory = archive.Memory();
    // The host makes the archive and its root, and the PST provider what is put there: a host need not let anything be
    // changed.
    ScratchArchive(options.mapi, options.place.service, file, setting);
    PstSession scratch(options.mapi, file, false, true);
    const auto root = ReadProp(memory, scratch.Store(), Quillon::Nst::archiveSubtreeEntryIdTag);
    if (!root)
        Fail(MAPI_E_NOT_FOUND, L"The archive that was made for the attempts has no root.");
    const auto top = OpenFolder(scratch.Store(), root->AsBytes(), MAPI_MODIFY);
    const auto newFolder = [](IMAPIFolder& parent, std::wstring name)
    {
        ComPtr<IMAPIFolder> made;
        Check(parent.CreateFolder(FOLDER_GENERIC, name.data(), nullptr, nullptr, MAPI_UNICODE | OPEN_IF_EXISTS,
                                  made.Put()),
              L"No folder can be made in the archive for the attempts.");
        return made;
    };
    const auto newMessage = [&](IMAPIFolder& folder, const std::function<void(IMessage&)>& fill)
    {
        ComPtr<IMessage> made;
        Check(folder.CreateMessage(nullptr, 0, made.Put()), L"No message can be made in the archive for the attempts.");
        fill(*made);
        Check(made->SaveChanges(KEEP_OPEN_READWRITE), L"A message in the archive for the attempts cannot be saved.");
        return EntryIdOfObject(memory, *made);
    };
    const auto victim = [&](IMessage& message)
    {
        const MapiBlock<SPropValue> values(memory, MakePropArray(memory, {PropValue::String(PR_SUBJECT_W, L"Victim")}));
        Check(message.SetProps(1, values.Get(), nullptr),
              L"A message in the archive for the attempts cannot be written.");
    };
    const auto folder = newFolder(*top, L"Attempts");
    const auto filledFolder = [&](const wchar_t* name)
    {
        const auto made = newFolder(*folder, name);
        newMessage(*made, victim);
        return EntryIdOfObject(memory, *made);
    };
    PropertyNames from(memory, archive.Store());
    PropertyNames to(memory, scratch.Store());
    ObjectCopier copier(memory, from, to);
    Scene scene;
    scene.subject = original;
    scene.subject.folder = EntryIdOfObject(memory, *folder);
    scene.subject.message = newMessage(*folder,
                                       [&](IMessage& message)
                                       {
                                           const auto source = OpenMessage(archive.Store(), original.message);
                                           copier.CopyMessage(*source, message, "the subject of the attempts");
                                       });
    if (original.attachment)
    {
        const auto copy = OpenMessage(scratch.Store(), scene.subject.message);
        scene.subject.attachment = AttachmentNumbers(memory, *copy).at(0);
    }
    scene.victims = {newMessage(*folder, victim), newMessage(*folder, victim), filledFolder(L"Deleted"),
                     filledFolder(L"Moved"), filledFolder(L"Emptied")};
    archive.Logoff();
    return scene;
}

// Runs the attempts that `wanted` chooses.
void RunStage(const Options& options, StoreSession& archive, const Setting& setting, const Scene& scene,
              AttemptWatch* watch, const std::function<bool(const Attempt&)>& wanted, std::vector<TryRow>& rows)
{
    const ScratchFolder scratch;
    PstSession target(options.mapi, scratch.Path() / "target.pst", false, true);
    if (watch)
        watch->Begin(archive, scene.subject.folder, scene.subject.message, scene.subject.attachment);
    Stage stage(archive, target, scene.subject, scene.victims);
    for (const Attempt& attempt : AllAttempts())
        if (wanted(attempt) && (scene.subject.attachment || std::string_view(attempt.object) != "attachment"))
            rows.push_back(RunAttempt(attempt, stage, setting, *options.log, watch));
}

// What a store holds, in one number: all properties of the store, of its folders and of the subject, and the rows of
// its contents tables.
class Fingerprint
{
public:
    Fingerprint(StoreSession& archive, const Subject& subject) : m_memory(archive.Memory()), m_store(archive.Store())
    {
        AddProperties(m_store, false);
        AddFolder({});
        const auto message = OpenMessage(m_store, subject.message);
        AddProperties(*message, true);
        for (const Row& row : Recipients(m_memory, *message))
            AddRow(row);
        for (const ULONG number : AttachmentNumbers(m_memory, *message))
            AddProperties(*OpenAttachment(*message, number), true);
    }

    std::string Finish() { return m_hash.Finish(); }

private:
    void AddFolder(const Bytes& entryId)
    {
        const auto folder = OpenFolder(m_store, entryId);
        AddProperties(*folder, false);
        const auto add = [this](const Row& row)
        {
            AddRow(row);
            return true;
        };
        for (const bool associated : {false, true})
        {
            ForEachRow(m_memory, *Contents(*folder, associated),
                       {PR_ENTRYID, PR_SUBJECT_W, PR_MESSAGE_FLAGS, PR_MSG_STATUS, PR_MESSAGE_SIZE, PR_HASATTACH,
                        PR_LAST_MODIFICATION_TIME},
                       add);
        }
        for (const FolderRow& row : SubFolders(m_memory, *folder))
            if (row.type != FOLDER_SEARCH)
                AddFolder(row.entryId);
    }

    void AddProperties(IMAPIProp& object, bool streams) { AddRow(ReadProperties(m_memory, object, streams).values); }

    void AddRow(const Row& row)
    {
        for (const PropValue& value : row)
        {
            const std::string text =
                std::to_string(value.Tag()) + "=" + ValueText(value, static_cast<size_t>(-1)) + "\n";
            m_hash.Add(text.data(), text.size());
        }
    }

    const MapiMemory& m_memory;
    IMsgStore& m_store;
    Sha256 m_hash;
};

// The calls are made on the archive itself only where they are to be refused.
void RequireReadOnly(StoreSession& archive)
{
    const auto mask = ReadProp(archive.Memory(), archive.Store(), PR_STORE_SUPPORT_MASK);
    if (!mask || (mask->AsLong() & STORE_MODIFY_OK) != 0)
    {
        Fail(MAPI_E_NO_ACCESS,
             L"The store says that it can be modified: it is no archive, and the calls, of which some "
             L"delete mail, are not tried on it.");
    }
}

// Whether the calls of a setting are made on the archive itself: where none may change it, but for the library's own
// read-only wrappers those that may by design.
bool IsTriedInPlace(const Setting& setting)
{
    return !setting.plain && !setting.modify;
}
} // namespace

TryReport TryAll(const Options& options, const std::vector<Setting>& settings, AttemptWatch* watch, bool all,
                 TryPlace place)
{
    constexpr Setting safe{};
    TryReport report;
    ArchiveSession archive(options.mapi, options.place);
    archive.Logon(safe);
    const Subject subject = SubjectFinder(archive.Memory(), archive.Store()).Find();
    report.before = Fingerprint(archive, subject).Finish();
    archive.Logoff();

    for (const Setting& setting : settings)
    {
        const bool inPlace = place == TryPlace::ArchiveWhereRefused && IsTriedInPlace(setting);
        std::vector<TryRow> rows;
        if (inPlace)
        {
            archive.Logon(setting);
            RequireReadOnly(archive);
            Bytes child = subject.folder;
            const auto folder = OpenFolder(archive.Store(), subject.folder);
            if (const auto children = SubFolders(archive.Memory(), *folder); !children.empty())
                child = children.front().entryId;
            RunStage(
                options, archive, setting, {subject, {subject.message, subject.message, child, child, subject.folder}},
                watch, [&](const Attempt& attempt)
                { return setting.kit || (setting.asIs && all) || !attempt.writesByDesign; }, rows);
            archive.Logoff();
        }
        if (inPlace && (setting.kit || setting.asIs))
        {
            report.rows.insert(report.rows.end(), rows.begin(), rows.end());
            continue;
        }
        const ScratchFolder folder;
        const std::filesystem::path file = folder.Path() / "attempts.pst";
        const Scene scene = MakeScene(options, archive, subject, setting, file);
        ScratchArchive scratch(options.mapi, options.place.service, file, setting);
        RunStage(
            options, scratch, setting, scene, watch,
            [inPlace](const Attempt& attempt) { return !inPlace || attempt.writesByDesign; }, rows);
        scratch.Logoff();
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
    archive.Logon(safe);
    report.after = Fingerprint(archive, subject).Finish();
    return report;
}

Json TryReport::ToJson() const
{
    Json list = Json::array();
    for (const TryRow& row : rows)
    {
        list.push_back({{"wrappers", row.setting.asIs    ? "host"
                                     : row.setting.kit   ? "kit"
                                     : row.setting.plain ? "plain"
                                                         : "read-only"},
                        {"modification", row.setting.modify ? "on" : "off"},
                        {"object", row.object},
                        {"call", row.call},
                        {"code", row.code},
                        {"outcome", row.outcome},
                        {"log", row.log}});
    }
    return {{"calls", std::move(list)},
            {"archive", {{"before", before}, {"after", after}, {"unchanged", ArchiveUnchanged()}}}};
}

void PrintTryRows(const TryReport& report, const Setting& setting, bool refusedOnly, size_t indent)
{
    TextTable table(
        refusedOnly ? std::vector<TextTable::Column>{{"object"}, {"call"}, {"result"}}
                    : std::vector<TextTable::Column>{{"object"}, {"call"}, {"code"}, {"outcome"}, {"log", false, 150}});
    for (const TryRow& row : report.rows)
    {
        if (!(row.setting == setting) || (refusedOnly && row.outcome != "refused"))
            continue;
        if (refusedOnly)
        {
            table.Add({row.object, row.call, row.code});
            continue;
        }
        std::string log;
        for (const std::string& line : row.log)
            log += (log.empty() ? "" : " | ") + line;
        table.Add({row.object, row.call, row.code, row.outcome, log});
    }
    table.Print(indent);
}

int RunTry(const Options& options, bool all)
{
    std::vector<Setting> settings = {{false, false}, {false, true}, {true, false}, {true, true}, {false, false, true}};
    // Of another host, or another store, nothing is known but that it says that it is read-only.
    if (!ArchiveSession(options.mapi, options.place).HasSettings())
        settings = {{false, false, false, true}};
    const TryReport report = TryAll(options, settings, nullptr, all);
    if (options.json)
    {
        PrintLine(report.ToJson().dump(2));
        return report.ArchiveUnchanged() ? exitOk : exitFailed;
    }
    for (const Setting& setting : settings)
    {
        PrintLine(setting.Name() +
                  (IsTriedInPlace(setting) ? " (on the archive itself):" : " (on an archive made for it):"));
        PrintLine();
        PrintTryRows(report, setting, false, 2);
        PrintLine();
    }
    PrintLine(report.ArchiveUnchanged() ? "The archive is what it was before." : "The archive has CHANGED.");
    return report.ArchiveUnchanged() ? exitOk : exitFailed;
}
} // namespace Browser
