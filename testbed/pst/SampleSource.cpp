// Sample mail, generated in code: a store of any size that takes no room.
#include "testbed/pst/SampleSource.h"

#include "common/Boundary.h"
#include "common/Text.h"
#include "testbed/common/Namespace.h"
#include "testbed/pst/NewSource.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace Testbed::Pst
{
namespace
{
// Below this lie the special folders' numbers.
constexpr std::uint32_t firstIndex = 0x800;
constexpr std::uint32_t endOfIndexes = Nodes::firstCreated >> 5;
constexpr ULONG keywords = PROP_TAG(PT_MV_UNICODE, 0x8000);
constexpr ULONG sampleNumber = PROP_TAG(PT_LONG, 0x8001);
// 2020-01-01 00:00 UTC, in units of 100 ns since 1601.
constexpr std::int64_t firstTime = 132223104000000000;
constexpr std::int64_t minute = 600000000;

// SplitMix64: a generator of a few instructions whose numbers depend on nothing but the seed.
class Random
{
public:
    explicit Random(std::uint64_t seed) noexcept : m_state(seed) {}

    std::uint64_t Next() noexcept
    {
        std::uint64_t value = m_state += 0x9E3779B97F4A7C15;
        value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
        value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
        return value ^ (value >> 31);
    }

    size_t Below(size_t end) noexcept { return static_cast<size_t>(Next() % end); }

    template <class T, size_t N>
    const T& Pick(const T (&from)[N]) noexcept
    {
        return from[Below(N)];
    }

private:
    std::uint64_t m_state;
};

constexpr const wchar_t* folderNames[] = {
    L"Projects",          L"Invoices", L"B\u00FCro",    L"Reisen",  L"\u041F\u0438\u0441\u044C\u043C\u0430",
    L"Photos \U0001F4F7", L"Team",     L"\u8BF7\u6C42", L"Archive", L"Caf\u00E9",
};

constexpr const wchar_t* subjects[] = {
    L"Meeting on Thursday",
    L"Invoice for your last order",
    L"\u00C4nderung am Vertrag",
    L"D\u00E9jeuner demain ?",
    L"\u0421\u0447\u0451\u0442 \u043D\u0430 \u043E\u043F\u043B\u0430\u0442\u0443",
    L"\u4F1A\u8B70\u306E\u8B70\u4E8B\u9332",
    L"Party tonight \U0001F389\U0001F37E",
    L"Quarterly figures",
    L"\u05E9\u05DC\u05D5\u05DD \u05DC\u05DB\u05D5\u05DC\u05DD",
    L"Minutes of the last call",
    L"Smile \U0001F600 and a long subject that goes on for a good while, so that a column has something to cut",
    L"",
};

constexpr const wchar_t* prefixes[] = {L"", L"", L"RE: ", L"FW: ", L"AW: "};

struct Person
{
    const wchar_t* name;
    const wchar_t* address;
};

constexpr Person people[] = {
    {L"Ada Archer", L"ada.archer@example.com"},
    {L"J\u00FCrgen Gr\u00F6\u00DFe", L"juergen.groesse@example.org"},
    {L"\u674E\u5C0F\u9F99", L"li@example.net"},
    {L"Olga \u041F\u0435\u0442\u0440\u043E\u0432\u0430", L"olga@example.com"},
    {L"Zo\u00EB O'Neill", L"zoe.oneill@example.org"},
    {L"Support \U0001F6E0", L"support@example.net"},
    {L"Bob Brown", L"bob.brown@example.com"},
};

constexpr const wchar_t* sentences[] = {
    L"Please find the figures below.",
    L"I have moved the meeting to the afternoon.",
    L"Viele Gr\u00FC\u00DFe aus K\u00F6ln.",
    L"Could you have a look at this before Friday?",
    L"\u041F\u0440\u0438\u0432\u0435\u0442!",
    L"Thanks a lot \U0001F64F",
    L"The parcel left our warehouse this morning.",
    L"\u3088\u308D\u3057\u304F\u304A\u9858\u3044\u3057\u307E\u3059\u3002",
    L"As discussed on the phone, we go ahead with the second option.",
};

constexpr const wchar_t* keywordTexts[] = {L"Red", L"Gr\u00FCn", L"Urgent \U0001F525"};

constexpr const wchar_t* fileNames[] = {L"report.txt", L"\u00DCbersicht.txt", L"photo \U0001F4F7.txt", L"plan.txt"};

Bytes Utf8Bytes(std::wstring_view text)
{
    const std::string utf8 = Utf8FromWide(text);
    return Bytes(utf8.begin(), utf8.end());
}

// What tells one generated message from another. An embedded one is numbered by its own depth.
struct MessageKey
{
    std::uint64_t seed = 0;
    std::uint32_t number = 0;
    int depth = 0;
};

constexpr int deepestEmbedded = 2;
// Larger than what GetProps gives at once, so that clients have to read it as a stream.
constexpr size_t largeAttachment = 150000;

class SampleMessage : public MessageContent
{
public:
    explicit SampleMessage(const MessageKey& key);

    PropertyBag Summary() const;
    bool IsRead() const noexcept { return m_read; }
    PropertyBag Properties() const override;
    std::vector<PropertyBag> Recipients() const override;
    std::vector<std::shared_ptr<const AttachmentContent>> Attachments() const override;

private:
    bool HasText() const noexcept { return m_key.number % 5 == 0; }
    bool HasLarge() const noexcept { return m_key.number % 11 == 3; }
    bool HasEmbedded() const noexcept { return m_key.number % 7 == 2 && m_key.depth < deepestEmbedded; }
    bool HasAttachment() const noexcept { return HasText() || HasLarge() || HasEmbedded(); }
    std::wstring Body() const;

    MessageKey m_key;
    std::uint64_t m_textSeed = 0;
    const Person* m_sender = nullptr;
    std::vector<const Person*> m_to;
    std::vector<const Person*> m_cc;
    std::wstring m_prefix;
    std::wstring m_subject;
    std::int64_t m_time = 0;
    bool m_read = false;
    LONG m_importance = IMPORTANCE_NORMAL;
};

SampleMessage::SampleMessage(const MessageKey& key) : m_key(key)
{
    Random random(key.seed * 0x100000001B3 + key.number + (static_cast<std::uint64_t>(key.depth) << 48));
    m_textSeed = random.Next();
    m_sender = &random.Pick(people);
    const size_t to = 1 + random.Below(3);
    for (size_t index = 0; index < to; ++index)
        m_to.push_back(&random.Pick(people));
    if (random.Below(3) == 0)
        m_cc.push_back(&random.Pick(people));
    m_prefix = random.Pick(prefixes);
    m_subject = random.Pick(subjects);
    if (!m_subject.empty())
        m_subject += L" #" + std::to_wstring(key.number);
    m_time = firstTime + static_cast<std::int64_t>(random.Below(size_t{3} * 365 * 24 * 60)) * minute;
    m_read = random.Below(4) != 0;
    m_importance = random.Below(10) == 0 ? IMPORTANCE_HIGH : IMPORTANCE_NORMAL;
}

std::wstring SampleMessage::Body() const
{
    Random random(m_textSeed);
    std::wstring body;
    const size_t count = 3 + random.Below(20);
    for (size_t index = 0; index < count; ++index)
    {
        body += random.Pick(sentences);
        body += index % 4 == 3 ? L"\r\n" : L" ";
    }
    return body;
}

std::wstring Names(const std::vector<const Person*>& persons)
{
    std::wstring names;
    for (const Person* person : persons)
    {
        names += names.empty() ? L"" : L"; ";
        names += person->name;
    }
    return names;
}

PropertyBag SampleMessage::Summary() const
{
    PropertyBag bag;
    bag.Put(PropValue::String(PR_MESSAGE_CLASS_W, L"IPM.Note"));
    bag.Put(PropValue::String(PR_SUBJECT_W, m_prefix + m_subject));
    bag.Put(PropValue::String(PR_SUBJECT_PREFIX_W, m_prefix));
    bag.Put(PropValue::String(PR_NORMALIZED_SUBJECT_W, m_subject));
    bag.Put(PropValue::String(PR_SENDER_NAME_W, m_sender->name));
    bag.Put(PropValue::String(PR_SENT_REPRESENTING_NAME_W, m_sender->name));
    bag.Put(PropValue::String(PR_DISPLAY_TO_W, Names(m_to)));
    bag.Put(PropValue::String(PR_DISPLAY_CC_W, Names(m_cc)));
    bag.Put(PropValue::String(PR_DISPLAY_BCC_W, L""));
    bag.Put(PropValue(PR_CLIENT_SUBMIT_TIME, m_time));
    bag.Put(PropValue(PR_MESSAGE_DELIVERY_TIME, m_time + minute));
    bag.Put(PropValue(PR_CREATION_TIME, m_time + minute));
    bag.Put(PropValue(PR_LAST_MODIFICATION_TIME, m_time + minute));
    bag.Put(PropValue::Long(PR_MESSAGE_FLAGS, (m_read ? MSGFLAG_READ : 0) | (HasAttachment() ? MSGFLAG_HASATTACH : 0)));
    bag.Put(PropValue::Boolean(PR_HASATTACH, HasAttachment()));
    bag.Put(PropValue::Long(PR_IMPORTANCE, m_importance));
    bag.Put(PropValue::Long(PR_PRIORITY, m_importance == IMPORTANCE_HIGH ? PRIO_URGENT : PRIO_NORMAL));
    bag.Put(PropValue::Long(PR_SENSITIVITY, SENSITIVITY_NONE));
    LONG size = 1500 + static_cast<LONG>(m_textSeed % 5000);
    size += HasLarge() ? static_cast<LONG>(largeAttachment) : 0;
    bag.Put(PropValue::Long(PR_MESSAGE_SIZE, size));
    bag.Put(PropValue::Long(sampleNumber, static_cast<LONG>(m_key.number)));
    const std::uint64_t searchKey[2] = {m_key.seed, m_textSeed};
    bag.Put(PropValue::Binary(PR_SEARCH_KEY, searchKey, sizeof(searchKey)));
    return bag;
}

PropertyBag SampleMessage::Properties() const
{
    PropertyBag bag = Summary();
    const std::wstring body = Body();
    bag.Put(PropValue::String(PR_BODY_W, body));
    if (m_key.number % 3 == 0)
    {
        bag.Put(PropValue::Binary(PROP_TAG(PT_BINARY, 0x1013),
                                  Utf8Bytes(L"<html><body><p>" + body + L"</p></body></html>")));
        bag.Put(PropValue::Long(PROP_TAG(PT_LONG, 0x3FDE), CP_UTF8));
    }
    bag.Put(PropValue::String(PR_SENDER_ADDRTYPE_W, L"SMTP"));
    bag.Put(PropValue::String(PR_SENDER_EMAIL_ADDRESS_W, m_sender->address));
    bag.Put(PropValue::String(PR_SENT_REPRESENTING_ADDRTYPE_W, L"SMTP"));
    bag.Put(PropValue::String(PR_SENT_REPRESENTING_EMAIL_ADDRESS_W, m_sender->address));
    bag.Put(PropValue::String(PR_CONVERSATION_TOPIC_W, m_subject));
    bag.Put(PropValue::String(PROP_TAG(PT_UNICODE, 0x1035),
                              L"<" + HexText(&m_textSeed, sizeof(m_textSeed)) + L"@sample.example.com>"));
    if (m_key.number % 4 == 1)
    {
        Random random(m_textSeed + 1);
        bag.Put(PropValue(keywords, std::vector<std::wstring>{random.Pick(keywordTexts), L"Sample"}));
    }
    return bag;
}

std::vector<PropertyBag> SampleMessage::Recipients() const
{
    std::vector<PropertyBag> recipients;
    const auto add = [&](const Person& person, LONG type)
    {
        PropertyBag bag;
        bag.Put(PropValue::Long(PR_RECIPIENT_TYPE, type));
        bag.Put(PropValue::String(PR_DISPLAY_NAME_W, person.name));
        bag.Put(PropValue::String(PR_ADDRTYPE_W, L"SMTP"));
        bag.Put(PropValue::String(PR_EMAIL_ADDRESS_W, person.address));
        bag.Put(PropValue::Boolean(PR_RESPONSIBILITY, true));
        bag.Put(PropValue::Long(PR_OBJECT_TYPE, MAPI_MAILUSER));
        bag.Put(PropValue::Long(PR_DISPLAY_TYPE, DT_MAILUSER));
        std::string key = "SMTP:" + AnsiFromWide(person.address);
        std::transform(key.begin(), key.end(), key.begin(),
                       [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
        bag.Put(PropValue::Binary(PR_SEARCH_KEY, key.c_str(), key.size() + 1));
        recipients.push_back(std::move(bag));
    };
    for (const Person* person : m_to)
        add(*person, MAPI_TO);
    for (const Person* person : m_cc)
        add(*person, MAPI_CC);
    return recipients;
}

std::vector<std::shared_ptr<const AttachmentContent>> SampleMessage::Attachments() const
{
    std::vector<std::shared_ptr<const AttachmentContent>> attachments;
    const auto add = [&](PropertyBag bag, const std::wstring& name, std::shared_ptr<const MessageContent> embedded)
    {
        bag.Put(PropValue::String(PR_DISPLAY_NAME_W, name));
        bag.Put(PropValue::Long(PR_RENDERING_POSITION, -1));
        bag.Put(PropValue(PR_CREATION_TIME, m_time));
        bag.Put(PropValue(PR_LAST_MODIFICATION_TIME, m_time));
        attachments.push_back(std::make_shared<MemoryAttachment>(std::move(bag), std::move(embedded)));
    };
    const auto addFile = [&](const std::wstring& name, Bytes data)
    {
        PropertyBag bag;
        bag.Put(PropValue::Long(PR_ATTACH_METHOD, ATTACH_BY_VALUE));
        bag.Put(PropValue::String(PR_ATTACH_FILENAME_W, name));
        bag.Put(PropValue::String(PR_ATTACH_LONG_FILENAME_W, name));
        bag.Put(PropValue::String(PR_ATTACH_EXTENSION_W, name.substr(name.rfind(L'.'))));
        bag.Put(PropValue::Long(PR_ATTACH_SIZE, static_cast<LONG>(data.size())));
        bag.Put(PropValue::Binary(PR_ATTACH_DATA_BIN, std::move(data)));
        add(std::move(bag), name, nullptr);
    };
    Random random(m_textSeed + 2);
    if (HasText())
        addFile(random.Pick(fileNames), Utf8Bytes(Body()));
    if (HasLarge())
    {
        Bytes data(largeAttachment);
        std::generate(data.begin(), data.end(), [&] { return static_cast<BYTE>(random.Next()); });
        addFile(L"data.bin", std::move(data));
    }
    if (HasEmbedded())
    {
        auto embedded = std::make_shared<SampleMessage>(MessageKey{m_textSeed, m_key.number, m_key.depth + 1});
        PropertyBag bag;
        const PropertyBag summary = embedded->Summary();
        bag.Put(PropValue::Long(PR_ATTACH_METHOD, ATTACH_EMBEDDED_MSG));
        bag.Put(PropValue::Object(PR_ATTACH_DATA_OBJ));
        bag.Put(PropValue::Long(PR_ATTACH_SIZE, summary.Find(PROP_ID(PR_MESSAGE_SIZE))->AsLong()));
        const std::wstring name = summary.Find(PROP_ID(PR_SUBJECT))->AsText();
        add(std::move(bag), name, std::move(embedded));
    }
    return attachments;
}

class SampleSource : public StoreSource
{
public:
    SampleSource(const SampleSize& size, const std::wstring& displayName)
        : m_size(size),
          m_special(MakeNewStore(RecordKey(size), displayName))
    {
    }

    PropertyBag StoreProperties() const override { return m_special->StoreProperties(); }

    std::optional<Node> Find(NodeId id) const override
    {
        const auto kind = KindOf(id);
        const std::uint32_t index = id >> 5;
        if (!kind || index < firstIndex)
            return m_special->Find(id);
        if (*kind == NodeKind::Folder && index < FirstMessage())
            return Node{id, *kind, ParentOf(index - firstIndex)};
        if (*kind == NodeKind::Message && index >= FirstMessage() && index - FirstMessage() < Messages())
            return Node{id, *kind, FolderId((index - FirstMessage()) / m_size.messages)};
        return std::nullopt;
    }

    std::vector<NodeId> SubFolders(NodeId parent) const override
    {
        std::vector<NodeId> found = m_special->SubFolders(parent);
        for (std::uint32_t folder = 0; folder < m_size.folders; ++folder)
            if (ParentOf(folder) == parent)
                found.push_back(FolderId(folder));
        return found;
    }

    std::vector<NodeId> Messages(NodeId folder, bool associated) const override
    {
        std::vector<NodeId> found;
        const std::uint32_t index = folder >> 5;
        if (associated || index < firstIndex || index >= FirstMessage())
            return found;
        found.reserve(m_size.messages);
        for (std::uint32_t message = 0; message < m_size.messages; ++message)
        {
            found.push_back(
                MakeNodeId(FirstMessage() + (index - firstIndex) * m_size.messages + message, NodeKind::Message));
        }
        return found;
    }

    PropertyBag FolderProperties(NodeId id) const override
    {
        const std::uint32_t index = id >> 5;
        if (index < firstIndex)
            return m_special->FolderProperties(id);
        const std::uint32_t folder = index - firstIndex;
        PropertyBag bag;
        bag.Put(PropValue::String(PR_DISPLAY_NAME_W, std::wstring(folderNames[folder % std::size(folderNames)]) + L" " +
                                                         std::to_wstring(folder + 1)));
        bag.Put(PropValue::String(PR_CONTAINER_CLASS_W, L"IPF.Note"));
        bag.Put(PropValue::String(PR_COMMENT_W, L"Generated sample mail"));
        return bag;
    }

    PropertyBag MessageSummary(const Node& message) const override { return Message(message.id).Summary(); }

    // Whatever is not in the summary is cheap to make.
    bool SummaryCovers(const Node&, ULONG) const override { return false; }

    LONG Unread(NodeId folder) const override
    {
        const std::vector<NodeId> messages = Messages(folder, false);
        return static_cast<LONG>(std::count_if(messages.begin(), messages.end(),
                                               [this](NodeId message) { return !Message(message).IsRead(); }));
    }

    std::shared_ptr<const MessageContent> OpenMessage(NodeId message) const override
    {
        return std::make_shared<SampleMessage>(Message(message));
    }

    std::vector<NamedProperty> NamedProperties() const override
    {
        NamedProperty named;
        named.id = PROP_ID(keywords);
        named.name.set = PS_PUBLIC_STRINGS;
        named.name.text = L"Keywords";
        NamedProperty number;
        number.id = PROP_ID(sampleNumber);
        number.name.set = GUID{0x5A0C21B7, 0x9C1E, 0x4C5D, {0x9B, 0x55, 0x7E, 0x30, 0x64, 0x1B, 0xA2, 0x9C}};
        number.name.number = 1;
        return {named, number};
    }

private:
    static MAPIUID RecordKey(const SampleSize& size)
    {
        Random random((static_cast<std::uint64_t>(size.folders) << 32) + size.messages);
        const std::uint64_t key[2] = {random.Next() + size.seed, random.Next() ^ size.seed};
        MAPIUID uid{};
        std::memcpy(uid.ab, key, sizeof(uid.ab));
        return uid;
    }

    std::uint32_t FirstMessage() const noexcept { return firstIndex + m_size.folders; }
    std::uint32_t Messages() const noexcept { return m_size.folders * m_size.messages; }

    static NodeId FolderId(std::uint32_t folder) noexcept { return MakeNodeId(firstIndex + folder, NodeKind::Folder); }

    static NodeId ParentOf(std::uint32_t folder) noexcept
    {
        return folder % 4 == 3 ? FolderId(folder - 1) : Nodes::subtree;
    }

    SampleMessage Message(NodeId id) const
    {
        return SampleMessage(MessageKey{m_size.seed, (id >> 5) - FirstMessage(), 0});
    }

    SampleSize m_size;
    std::shared_ptr<const StoreSource> m_special;
};

std::uint32_t ParseNumber(std::string_view line, std::string_view name)
{
    const std::string start = std::string(name) + "=";
    size_t at = line.find(start);
    while (at != std::string_view::npos && at != 0 && line[at - 1] != ' ')
        at = line.find(start, at + 1);
    std::uint32_t value = 0;
    if (at != std::string_view::npos)
    {
        const char* begin = line.data() + at + start.size();
        const char* end = line.data() + line.size();
        const auto result = std::from_chars(begin, end, value);
        if (result.ec == std::errc() && (result.ptr == end || *result.ptr == ' '))
            return value;
    }
    Fail(MAPI_E_CORRUPT_STORE, L"The sample store's file lacks a number for \"" + WideFromUtf8(name) + L"\"");
}
} // namespace

std::optional<SampleSize> ParseSample(std::string_view text)
{
    if (!text.starts_with(sampleMagic))
        return std::nullopt;
    text.remove_prefix(sampleMagic.size());
    const size_t begin = text.find_first_not_of("\r\n");
    if (begin == 0 || begin == std::string_view::npos)
        Fail(MAPI_E_CORRUPT_STORE, L"The sample store's file lacks its second line");
    std::string_view line = text.substr(begin);
    line = line.substr(0, line.find_first_of("\r\n"));
    SampleSize size;
    size.folders = ParseNumber(line, "folders");
    size.messages = ParseNumber(line, "messages");
    size.seed = ParseNumber(line, "seed");
    constexpr std::uint64_t room = endOfIndexes - firstIndex;
    if (size.folders > room ||
        static_cast<std::uint64_t>(size.folders) * (static_cast<std::uint64_t>(size.messages) + 1) > room)
    {
        Fail(MAPI_E_CORRUPT_STORE, L"The sample store's file asks for more objects than a store can number");
    }
    return size;
}

std::shared_ptr<const StoreSource> MakeSampleStore(const SampleSize& size, const std::wstring& displayName)
{
    return std::make_shared<SampleSource>(size, displayName);
}
} // namespace Testbed::Pst
