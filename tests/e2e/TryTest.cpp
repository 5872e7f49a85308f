// Every modifying call in the five settings, held against the contract: which are refused, let through or ignored, and
// what the log says of them.
#include "tests/e2e/Environment.h"

#include "nst/NstMsgStore.h"
#include "tests/e2e/Browser.h"
#include "tests/e2e/Observer.h"
#include "tools/browser/Try.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

using namespace Common;

namespace Tests
{
namespace
{
using Json = nlohmann::ordered_json;

// What becomes of a call.
enum class Fate
{
    LetThrough,
    // MAPI_E_NO_ACCESS by the wrapper, the provider's method is not called.
    Refused,
    // S_OK by the wrapper, the provider's method is not called.
    Ignored,
};
constexpr Fate l = Fate::LetThrough;
constexpr Fate r = Fate::Refused;
constexpr Fate i = Fate::Ignored;

struct Expected
{
    const char* object;
    const char* call;
    // Read-only wrappers with modification off, read-only on, plain off, plain on.
    Fate fates[4];
    // The whole line with which the call is refused, "{name}" standing for the folder's name; null when there is none.
    const char* line;
};

const Expected table[] = {
    {"store", "SaveChanges", {l, l, l, l}, nullptr},
    {"store",
     "SetProps(PR_DISPLAY_NAME_W)",
     {r, l, r, l},
     "IMsgStore::SetProps called on read-only archive store; returning MAPI_E_NO_ACCESS: PR_DISPLAY_NAME_W"},
    // The one refusal without a line: mail clients try it on every store.
    {"store", "SetProps(PR_IPM_SUBTREE_ENTRYID)", {r, l, r, l}, nullptr},
    {"store", "SetProps(the host's own)", {l, l, l, l}, nullptr},
    {"store",
     "SetProps(the host's own, PR_COMMENT_W)",
     {r, l, r, l},
     "IMsgStore::SetProps called on read-only archive store; returning MAPI_E_NO_ACCESS: 0x7FEB001F, PR_COMMENT_W"},
    {"store",
     "DeleteProps(PR_COMMENT_W)",
     {r, l, r, l},
     "IMsgStore::DeleteProps called on read-only archive store; returning MAPI_E_NO_ACCESS: PR_COMMENT_W"},
    {"store",
     "DeleteProps(PR_IPM_SUBTREE_ENTRYID)",
     {r, l, r, l},
     "IMsgStore::DeleteProps called on read-only archive store; returning MAPI_E_NO_ACCESS: PR_IPM_SUBTREE_ENTRYID"},
    {"store", "DeleteProps(the host's own)", {l, l, l, l}, nullptr},
    {"store",
     "OpenProperty(PR_DISPLAY_NAME_W)",
     {r, l, r, l},
     "IMsgStore::OpenProperty called on read-only archive store; returning MAPI_E_NO_ACCESS: PR_DISPLAY_NAME_W"},
    {"store",
     "OpenProperty(PR_DISPLAY_NAME_W, MAPI_MODIFY)",
     {r, l, r, l},
     "IMsgStore::OpenProperty called on read-only archive store; returning MAPI_E_NO_ACCESS: PR_DISPLAY_NAME_W"},
    {"store", "OpenProperty(PR_SEARCH)", {l, l, l, l}, nullptr},
    {"store", "CopyTo", {l, l, l, l}, nullptr},
    {"store", "CopyProps", {l, l, l, l}, nullptr},
    {"store", "GetIDsFromNames(MAPI_CREATE)", {l, l, l, l}, nullptr},
    {"store",
     "SetReceiveFolder",
     {r, l, r, l},
     "IMsgStore::SetReceiveFolder called on read-only archive store; returning MAPI_E_NO_ACCESS"},
    {"store", "AbortSubmit", {l, l, l, l}, nullptr},
    {"store", "SetLockState", {l, l, l, l}, nullptr},
    {"store", "FinishedMsg", {l, l, l, l}, nullptr},
    {"store", "NotifyNewMail", {l, l, l, l}, nullptr},

    {"folder", "SaveChanges", {l, l, l, l}, nullptr},
    {"folder",
     "SetProps(PR_COMMENT_W)",
     {r, l, l, l},
     "IMAPIFolder::SetProps called on read-only folder; returning MAPI_E_NO_ACCESS: PR_COMMENT_W"},
    {"folder", "SetProps(0x30200102, 0x30210102)", {l, l, l, l}, nullptr},
    {"folder",
     "SetProps(0x30200102, PR_COMMENT_W)",
     {r, l, l, l},
     "IMAPIFolder::SetProps called on read-only folder; returning MAPI_E_NO_ACCESS: 0x30200102, PR_COMMENT_W"},
    {"folder", "SetProps(none)", {i, l, l, l}, nullptr},
    {"folder",
     "DeleteProps",
     {r, l, l, l},
     "IMAPIFolder::DeleteProps called on read-only folder; returning MAPI_E_NO_ACCESS: PR_COMMENT_W"},
    {"folder",
     "OpenProperty(PR_CONTAINER_CONTENTS)",
     {r, l, l, l},
     "IMAPIFolder::OpenProperty called on read-only folder; returning MAPI_E_NO_ACCESS: PR_CONTAINER_CONTENTS"},
    {"folder",
     "OpenProperty(PR_DISPLAY_NAME_W, MAPI_MODIFY)",
     {r, l, l, l},
     "IMAPIFolder::OpenProperty called on read-only folder; returning MAPI_E_NO_ACCESS: PR_DISPLAY_NAME_W"},
    {"folder", "CopyTo", {l, l, l, l}, nullptr},
    {"folder", "CopyProps", {l, l, l, l}, nullptr},
    {"folder", "GetIDsFromNames(MAPI_CREATE)", {l, l, l, l}, nullptr},
    {"folder", "SetSearchCriteria", {l, l, l, l}, nullptr},
    {"folder",
     "CreateMessage",
     {r, l, l, l},
     "IMAPIFolder::CreateMessage called on read-only folder; returning MAPI_E_NO_ACCESS: {name}"},
    {"folder", "CopyMessages", {l, l, l, l}, nullptr},
    {"folder",
     "CopyMessages(MESSAGE_MOVE)",
     {r, l, l, l},
     "IMAPIFolder::CopyMessages called with MESSAGE_MOVE on read-only folder; returning MAPI_E_NO_ACCESS: {name}"},
    {"folder",
     "DeleteMessages",
     {r, l, l, l},
     "IMAPIFolder::DeleteMessages called on read-only folder; returning MAPI_E_NO_ACCESS: {name}"},
    {"folder",
     "CreateFolder",
     {r, l, l, l},
     "IMAPIFolder::CreateFolder called on read-only folder; returning MAPI_E_NO_ACCESS: {name}"},
    {"folder", "CopyFolder", {l, l, l, l}, nullptr},
    {"folder", "CopyFolder(FOLDER_MOVE)", {l, l, l, l}, nullptr},
    {"folder",
     "DeleteFolder",
     {r, l, l, l},
     "IMAPIFolder::DeleteFolder called on read-only folder; returning MAPI_E_NO_ACCESS: {name}"},
    {"folder",
     "SetReadFlags(CLEAR_READ_FLAG)",
     {r, l, l, l},
     "IMAPIFolder::SetReadFlags called on read-only folder; returning MAPI_E_NO_ACCESS: {name}"},
    {"folder",
     "SetMessageStatus",
     {r, l, l, l},
     "IMAPIFolder::SetMessageStatus called on read-only folder; returning MAPI_E_NO_ACCESS: {name}"},
    {"folder", "SaveContentsSort", {l, l, l, l}, nullptr},
    {"folder",
     "EmptyFolder",
     {r, l, l, l},
     "IMAPIFolder::EmptyFolder called on read-only folder; returning MAPI_E_NO_ACCESS: {name}"},

    {"message",
     "SaveChanges",
     {r, l, l, l},
     "IMessage::SaveChanges called on read-only message; returning MAPI_E_NO_ACCESS"},
    {"message",
     "SetProps",
     {r, l, l, l},
     "IMessage::SetProps called on read-only message; returning MAPI_E_NO_ACCESS: PR_SUBJECT_W"},
    {"message",
     "SetProps(none)",
     {r, l, l, l},
     "IMessage::SetProps called on read-only message; returning MAPI_E_NO_ACCESS:"},
    {"message",
     "DeleteProps",
     {r, l, l, l},
     "IMessage::DeleteProps called on read-only message; returning MAPI_E_NO_ACCESS: PR_SUBJECT_W"},
    {"message", "OpenProperty(PR_SUBJECT_W, MAPI_MODIFY)", {l, l, l, l}, nullptr},
    {"message", "OpenProperty(PR_COMMENT_W, MAPI_CREATE | MAPI_MODIFY)", {l, l, l, l}, nullptr},
    {"message", "CopyTo", {l, l, l, l}, nullptr},
    {"message", "CopyProps", {l, l, l, l}, nullptr},
    {"message", "GetIDsFromNames(MAPI_CREATE)", {l, l, l, l}, nullptr},
    {"message", "OpenAttach(MAPI_MODIFY)", {l, l, l, l}, nullptr},
    {"message",
     "CreateAttach",
     {r, l, l, l},
     "IMessage::CreateAttach called on read-only archive store message; returning MAPI_E_NO_ACCESS"},
    {"message",
     "DeleteAttach",
     {r, l, l, l},
     "IMessage::DeleteAttach called on read-only archive store message; returning MAPI_E_NO_ACCESS"},
    {"message",
     "ModifyRecipients",
     {r, l, l, l},
     "IMessage::ModifyRecipients called on read-only message; returning MAPI_E_NO_ACCESS"},
    {"message",
     "SubmitMessage",
     {r, l, l, l},
     "IMessage::SubmitMessage called on read-only message; returning MAPI_E_NO_ACCESS"},
    {"message", "SetReadFlag(CLEAR_READ_FLAG)", {i, l, l, l}, nullptr},

    // Attachments refuse nothing themselves: a read-only message opens them without write access.
    {"attachment", "SaveChanges", {l, l, l, l}, nullptr},
    {"attachment", "SetProps", {l, l, l, l}, nullptr},
    {"attachment", "DeleteProps", {l, l, l, l}, nullptr},
    {"attachment", "OpenProperty(PR_ATTACH_DATA_BIN, MAPI_MODIFY)", {l, l, l, l}, nullptr},
    {"attachment", "CopyTo", {l, l, l, l}, nullptr},
    {"attachment", "CopyProps", {l, l, l, l}, nullptr},
    {"attachment", "GetIDsFromNames(MAPI_CREATE)", {l, l, l, l}, nullptr},
};

// The method that an attempt's provider object is asked for: "IMAPIFolder::CreateMessage".
std::string MethodOf(const std::string& object, const std::string& call)
{
    return (object == "store"     ? "IMsgStore::"
            : object == "folder"  ? "IMAPIFolder::"
            : object == "message" ? "IMessage::"
                                  : "IAttach::") +
           call.substr(0, call.find('('));
}

// Watches the classes of the provider's objects, which the wrapped ones give on demand, and notes what each attempt
// reached.
class ProviderWatch : public Browser::AttemptWatch
{
public:
    void Begin(Browser::StoreSession& archive, const Bytes& folder, const Bytes& message,
               std::optional<ULONG> attachment) override
    {
        ComPtr<IMsgStore> store;
        // The kit's archive does not give the store behind it, but its classes are those watched before.
        if (FAILED(archive.Store().QueryInterface(Quillon::Nst::IID_UnwrappedMsgStore,
                                                  reinterpret_cast<void**>(store.Put()))))
            return;
        Watch(*store);
        Watch(*Browser::OpenFolder(*store, folder));
        const auto opened = Browser::OpenMessage(*store, message);
        Watch(*opened);
        if (attachment)
            Watch(*Browser::OpenAttachment(*opened, *attachment));
    }
    void Before() override { TakeCalls(); }
    void After(const Browser::TryRow& row) override
    {
        m_reached[Key(Browser::TryReport{{row}, {}, {}}.ToJson()["calls"][0])] = TakeCalls();
    }

    const std::vector<std::string>& ReachedBy(const Json& row) { return m_reached[Key(row)]; }

private:
    static std::string Key(const Json& row)
    {
        return Json{row["wrappers"], row["modification"], row["object"], row["call"]}.dump();
    }

    std::map<std::string, std::vector<std::string>> m_reached;
};

// All attempts on the archive of a folder's profile, with what became of each.
Json TryAll(const std::filesystem::path& folder)
{
    Browser::LogRecorder log(false);
    Browser::Options options;
    options.mapi = TestMapi();
    options.place = PlaceOf(folder);
    options.log = &log;
    ProviderWatch watch;
    Json report =
        Browser::TryAll(options, {{false, false}, {false, true}, {true, false}, {true, true}, {false, false, true}},
                        &watch)
            .ToJson();
    for (Json& row : report["calls"])
    {
        const std::vector<std::string>& reached = watch.ReachedBy(row);
        const std::string object = row["object"];
        const std::string call = row["call"];
        row["reached"] = reached;
        // A folder's copying goes to the support object, which is told of a message and says so in the log.
        // So does all copying out of the kit's archive.
        const bool isReached = row["wrappers"] == "kit" && call.starts_with("Copy") ? row["code"] == "S_OK"
                               : object == "folder" && call.starts_with("CopyFolder")
                                   ? row["log"].dump().find("IMAPISupport::CopyFolder: ") != std::string::npos
                                   : std::find(reached.begin(), reached.end(), MethodOf(object, call)) != reached.end();
        row["outcome"] = isReached                           ? "let through"
                         : row["code"] == "MAPI_E_NO_ACCESS" ? "refused"
                         : row["code"] == "S_OK"             ? "ignored"
                                                             : "failed";
    }
    return report;
}

const char* NameOf(Fate fate)
{
    return fate == l ? "let through" : fate == r ? "refused" : "ignored";
}

bool EndsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// The name that a refusal's line ends in, where the table says that it ends in one.
void ExpectLine(const Json& row, const std::string& expected)
{
    ASSERT_EQ(row["log"].size(), 1u) << row;
    const std::string line = row["log"][0];
    const size_t place = expected.find("{name}");
    if (place == std::string::npos)
    {
        EXPECT_EQ(line, expected);
        return;
    }
    EXPECT_EQ(line.substr(0, place), expected.substr(0, place));
    EXPECT_GT(line.size(), place) << "the folder's name is missing: " << line;
}

void ConfigureArchive(const std::filesystem::path& folder, const std::filesystem::path& file)
{
    Browser::ArchiveSession(TestMapi(), PlaceOf(folder)).Configure(file, {});
}

// What becomes of a call in the kit's archive: all is refused but reading and what changes nothing.
Fate KitFate(const Expected& expected)
{
    static const std::set<std::string> reading = {
        "SaveChanges",
        "OpenProperty(PR_DISPLAY_NAME_W)",
        "OpenProperty(PR_DISPLAY_NAME_W, MAPI_MODIFY)",
        "OpenProperty(PR_SEARCH)",
        "OpenProperty(PR_CONTAINER_CONTENTS)",
        "OpenProperty(PR_SUBJECT_W, MAPI_MODIFY)",
        "OpenProperty(PR_ATTACH_DATA_BIN, MAPI_MODIFY)",
        "OpenAttach(MAPI_MODIFY)",
        "CopyTo",
        "CopyProps",
        "CopyMessages",
        "CopyFolder",
        "GetIDsFromNames(MAPI_CREATE)",
    };
    const std::string object = expected.object;
    const std::string call = expected.call;
    if (call == "SetProps(none)" || call == "SetReadFlag(CLEAR_READ_FLAG)")
        return i;
    const bool isSaved = object == "message" || object == "attachment";
    return reading.contains(call) && !(isSaved && call == "SaveChanges") ? l : r;
}

void CheckKit(const Json& row, const Expected& expected)
{
    const Fate fate = KitFate(expected);
    EXPECT_EQ(row["outcome"], NameOf(fate)) << row;
    if (fate == l)
        return;
    EXPECT_EQ(row["code"], fate == r ? "MAPI_E_NO_ACCESS" : "S_OK");
    const bool isSilent = fate == i || std::string(expected.call) == "SetProps(PR_IPM_SUBTREE_ENTRYID)";
    EXPECT_EQ(row["log"].size(), isSilent ? 0u : 1u) << row;
    EXPECT_EQ(row["log"].dump().find("returning MAPI_E_NO_ACCESS") == std::string::npos, isSilent) << row;
    // Nothing is asked of the provider but for properties.
    for (const std::string call : row["reached"])
        EXPECT_TRUE(EndsWith(call, "::GetProps") || EndsWith(call, "::CompareEntryIDs")) << call;
}

void CheckAgainstTable(const Json& report, bool withAttachments)
{
    std::map<std::string, Json> rows;
    for (const Json& row : report["calls"])
    {
        const std::string key = row["wrappers"].get<std::string>() + "/" + row["modification"].get<std::string>() +
                                "/" + row["object"].get<std::string>() + "/" + row["call"].get<std::string>();
        EXPECT_TRUE(rows.emplace(key, row).second) << "tried twice: " << key;
    }
    size_t checked = 0;
    for (const Expected& expected : table)
    {
        if (!withAttachments && std::string(expected.object) == "attachment")
            continue;
        const std::string kitKey = std::string("kit/off/") + expected.object + "/" + expected.call;
        ASSERT_TRUE(rows.contains(kitKey)) << "not tried: " << kitKey;
        {
            SCOPED_TRACE(kitKey);
            CheckKit(rows[kitKey], expected);
            ++checked;
        }
        for (size_t setting = 0; setting < 4; ++setting)
        {
            const std::string key = std::string(setting < 2 ? "read-only" : "plain") + "/" +
                                    (setting % 2 == 0 ? "off" : "on") + "/" + expected.object + "/" + expected.call;
            ASSERT_TRUE(rows.contains(key)) << "not tried: " << key;
            SCOPED_TRACE(key);
            const Json& row = rows[key];
            const Fate fate = expected.fates[setting];
            EXPECT_EQ(row["outcome"], NameOf(fate)) << row;
            ++checked;
            if (fate == l)
                continue;
            EXPECT_EQ(row["code"], fate == r ? "MAPI_E_NO_ACCESS" : "S_OK");
            if (expected.line)
                ExpectLine(row, expected.line);
            else
                EXPECT_EQ(row["log"], Json::array());
            // Nothing is asked of the provider but, for the line, a folder's name.
            const bool named = expected.line && EndsWith(expected.line, "{name}");
            EXPECT_EQ(row["reached"], named ? Json::array({"IMAPIFolder::GetProps"}) : Json::array());
        }
    }
    EXPECT_EQ(checked, rows.size()) << "the browser tries calls that the table does not have";
}

TEST(TryTest, EnronRefusesLetsThroughAndIgnoresWhatTheContractSays)
{
    const std::filesystem::path file = FetchedFile(L"enron.pst");
    REQUIRE_FETCHED(file);
    const std::filesystem::path folder = NewFolder();
    const std::filesystem::path archive = CopyInto(folder, file);
    std::filesystem::path overlay = archive;
    overlay += ".overlay";
    ConfigureArchive(folder, archive);
    // What a logon writes is there now.
    const std::string before = ContentsOf(overlay);
    ASSERT_FALSE(before.empty());

    const Json report = TryAll(folder);
    CheckAgainstTable(report, true);
    EXPECT_EQ(report["archive"]["unchanged"], true);
    EXPECT_TRUE(ContentsOf(overlay) == before) << "the overlay beside the PST was changed";
    EXPECT_TRUE(ContentsOf(archive) == ContentsOf(file)) << "the PST was changed";
}

TEST(TryTest, GeneratedMailAndSmallFilesDoTheSame)
{
    const std::filesystem::path folder = NewFolder();
    const std::filesystem::path archive = SampleInto(folder, 3, 20);
    ConfigureArchive(folder, archive);
    const Json report = TryAll(folder);
    const bool attachments = std::any_of(report["calls"].begin(), report["calls"].end(),
                                         [](const Json& row) { return row["object"] == "attachment"; });
    CheckAgainstTable(report, attachments);
    EXPECT_EQ(report["archive"]["unchanged"], true);

    const std::filesystem::path second = NewFolder();
    ConfigureArchive(second, CopyInto(second, SmallFiles()[2]));
    CheckAgainstTable(TryAll(second), true);
}

// What a host of a few lines over the kit gives, which knows none of the sample host's settings.
TEST(TryTest, AHostOfTheKitRefusesEveryChangeAsItIs)
{
    const ServiceInFile service(L"RenamedTestSvc", L"Renamed", L"RenamedHost.dll");
    const std::filesystem::path folder = NewFolder();
    const std::filesystem::path archive = CopyInto(folder, SmallFiles()[2]);
    std::filesystem::path overlay = archive;
    overlay += ".overlay";
    const auto run = [&](std::vector<std::wstring> arguments)
    {
        arguments.insert(arguments.begin(), {L"--service", L"RenamedTestSvc"});
        return RunBrowserJson(folder, arguments);
    };
    run({L"configure", archive.wstring()});
    const std::string before = ContentsOf(overlay);
    ASSERT_FALSE(before.empty());

    const Json report = run({L"try", L"--all"});
    std::map<std::string, Json> rows;
    for (const Json& row : report["calls"])
    {
        EXPECT_EQ(row["wrappers"], "host");
        rows.emplace(row["object"].get<std::string>() + "/" + row["call"].get<std::string>(), row);
    }
    EXPECT_EQ(rows.size(), std::size(table));
    for (const Expected& expected : table)
    {
        const Json& row = rows[std::string(expected.object) + "/" + expected.call];
        const Fate fate = KitFate(expected);
        EXPECT_EQ(row["outcome"] == "refused", fate == r) << row;
        if (fate == i)
            EXPECT_EQ(row["code"], "S_OK") << row;
    }
    EXPECT_EQ(report["archive"]["unchanged"], true);
    EXPECT_TRUE(ContentsOf(overlay) == before) << "the overlay beside the PST was changed";

    // What a host may let through by design is left out unless it is asked for.
    const Json withoutAll = run({L"try"});
    for (const Json& row : withoutAll["calls"])
        rows.erase(row["object"].get<std::string>() + "/" + row["call"].get<std::string>());
    std::vector<std::string> left;
    for (const auto& [name, row] : rows)
        left.push_back(name);
    EXPECT_EQ(left, (std::vector<std::string>{
                        "attachment/GetIDsFromNames(MAPI_CREATE)", "folder/GetIDsFromNames(MAPI_CREATE)",
                        "folder/SetProps(0x30200102, 0x30210102)", "message/GetIDsFromNames(MAPI_CREATE)",
                        "store/DeleteProps(the host's own)", "store/GetIDsFromNames(MAPI_CREATE)",
                        "store/SetProps(the host's own)"}));
}

// A call that is let through really arrives: with modification on the copy of the archive is changed.
TEST(TryTest, WhatIsLetThroughTakesEffect)
{
    const std::filesystem::path folder = NewFolder();
    ConfigureArchive(folder, SampleInto(folder, 2, 5));
    size_t succeeded = 0;
    const Json report = TryAll(folder);
    for (const Json& row : report["calls"])
    {
        const bool all = row["modification"] == "on";
        const std::string call = row["call"];
        if (all &&
            (call == "CreateMessage" || call == "DeleteMessages" || call == "CreateFolder" || call == "DeleteFolder" ||
             call == "EmptyFolder" || call == "SetMessageStatus" || call == "CopyMessages(MESSAGE_MOVE)" ||
             call == "SetReceiveFolder" || call == "CreateAttach" || call == "ModifyRecipients"))
        {
            EXPECT_EQ(row["code"], "S_OK") << row;
            ++succeeded;
        }
    }
    EXPECT_EQ(succeeded, 2u * 10u);
}
} // namespace
} // namespace Tests
