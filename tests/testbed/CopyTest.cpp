// Copying between stores over MAPI's interfaces, with the PST provider as both ends.
#include "tests/common/MapiClient.h"
#include "tests/testbed/Environment.h"

#include "common/MemoryStream.h"
#include "common/Text.h"
#include "testbed/mapi/CopyEngine.h"
#include "testbed/mapi/SupportObject.h"

#include <cstring>
#include <fstream>
#include <map>
#include <set>

using namespace Testbed;
using Tests::Memory;

namespace
{
// PR_INTERNET_MESSAGE_ID, which the headers do not name.
constexpr ULONG internetMessageId = PROP_TAG(PT_UNICODE, 0x1035);

std::vector<PropValue> Read(IMAPIProp& object, const std::vector<ULONG>& tags)
{
    const MapiBlock<SPropTagArray> array(Memory(), MakeTagArray(Memory(), tags));
    ULONG count = 0;
    MapiBlock<SPropValue> values(Memory());
    Check(object.GetProps(array.Get(), MAPI_UNICODE, &count, values.Put()), L"GetProps failed.");
    return CopyProps(count, values.Get());
}

std::vector<std::vector<PropValue>> Rows(IMAPITable& table, const std::vector<ULONG>& columns)
{
    const MapiBlock<SPropTagArray> array(Memory(), MakeTagArray(Memory(), columns));
    Check(table.SetColumns(array.Get(), 0), L"SetColumns failed.");
    MapiRows rows(Memory());
    Check(table.QueryRows(10000, 0, rows.Put()), L"QueryRows failed.");
    std::vector<std::vector<PropValue>> all;
    for (ULONG row = 0; row < rows.Count(); ++row)
        all.push_back(CopyProps(rows[row].cValues, rows[row].lpProps));
    return all;
}

template <class T, class Container>
ComPtr<T> Open(Container& container, Bytes entryId, REFIID iid)
{
    ULONG type = 0;
    ComPtr<IUnknown> object;
    Check(container.OpenEntry(static_cast<ULONG>(entryId.size()), reinterpret_cast<ENTRYID*>(entryId.data()), nullptr,
                              MAPI_BEST_ACCESS, &type, object.Put()),
          L"OpenEntry failed.");
    return object.As<T>(iid);
}

std::vector<Bytes> Messages(IMAPIFolder& folder)
{
    ComPtr<IMAPITable> table;
    Check(folder.GetContentsTable(0, table.Put()), L"GetContentsTable failed.");
    std::vector<Bytes> entryIds;
    for (const auto& row : Rows(*table, {PR_ENTRYID}))
        entryIds.push_back(row[0].AsBytes());
    return entryIds;
}

// Subfolders by name.
std::map<std::wstring, Bytes> Subfolders(IMAPIFolder& folder)
{
    ComPtr<IMAPITable> table;
    Check(folder.GetHierarchyTable(0, table.Put()), L"GetHierarchyTable failed.");
    std::map<std::wstring, Bytes> folders;
    for (const auto& row : Rows(*table, {PR_DISPLAY_NAME_W, PR_ENTRYID}))
        folders[row[0].AsText()] = row[1].AsBytes();
    return folders;
}

std::wstring Describe(IMessage& message);

// An attachment in words: its name, its method, its contents.
std::wstring Describe(IAttach& attach)
{
    const auto values = Read(attach, {PR_ATTACH_LONG_FILENAME_W, PR_ATTACH_METHOD});
    std::wstring text = L"[" + values[0].AsText() + L" " + std::to_wstring(values[1].AsLong());
    if (values[1].AsLong() == ATTACH_EMBEDDED_MSG)
    {
        ComPtr<IMessage> embedded;
        Check(attach.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, embedded.PutAs<IUnknown>()),
              L"The embedded message cannot be opened.");
        return text + L" " + Describe(*embedded) + L"]";
    }
    ComPtr<IStream> stream;
    if (FAILED(attach.OpenProperty(PR_ATTACH_DATA_BIN, &IID_IStream, 0, 0, stream.PutAs<IUnknown>())))
        return text + L" no data]";
    const Bytes bytes = ReadStream(*stream, 1 << 30);
    size_t hash = 0;
    for (const BYTE byte : bytes)
        hash = hash * 31 + byte;
    return text + L" " + std::to_wstring(bytes.size()) + L" " + std::to_wstring(hash) + L"]";
}

// A message in words, so that two can be compared and a difference be read.
std::wstring Describe(IMessage& message)
{
    const auto values = Read(message, {PR_SUBJECT_W, PR_MESSAGE_CLASS_W, PR_SENDER_NAME_W, PR_IMPORTANCE,
                                       PR_CLIENT_SUBMIT_TIME, PR_MESSAGE_DELIVERY_TIME, internetMessageId});
    std::wstring text;
    for (const PropValue& value : values)
    {
        text += value.AsText() + std::to_wstring(value.AsLong());
        const auto* const time = value.Get<std::int64_t>();
        text += (time ? std::to_wstring(*time) : std::wstring()) + L";";
    }
    ComPtr<IStream> body;
    if (SUCCEEDED(message.OpenProperty(PR_BODY_W, &IID_IStream, 0, 0, body.PutAs<IUnknown>())))
        text += FromStreamBytes(PR_BODY_W, ReadStream(*body, 1 << 30)).AsText();
    ComPtr<IMAPITable> recipients;
    Check(message.GetRecipientTable(MAPI_UNICODE, recipients.Put()), L"GetRecipientTable failed.");
    for (const auto& row : Rows(*recipients, {PR_DISPLAY_NAME_W, PR_EMAIL_ADDRESS_W, PR_RECIPIENT_TYPE}))
        text += L"<" + row[0].AsText() + L" " + row[1].AsText() + L" " + std::to_wstring(row[2].AsLong()) + L">";
    ComPtr<IMAPITable> attachments;
    Check(message.GetAttachmentTable(MAPI_UNICODE, attachments.Put()), L"GetAttachmentTable failed.");
    for (const auto& row : Rows(*attachments, {PR_ATTACH_NUM}))
    {
        ComPtr<IAttach> attach;
        Check(message.OpenAttach(static_cast<ULONG>(row[0].AsLong()), nullptr, 0, attach.Put()), L"OpenAttach failed.");
        text += Describe(*attach);
    }
    return text;
}

// All that lies in a folder, one entry a message, in a fixed order.
std::multiset<std::wstring> DescribeAll(IMAPIFolder& folder, const std::wstring& path = {})
{
    std::multiset<std::wstring> all;
    for (const Bytes& entryId : Messages(folder))
        all.insert(path + L": " + Describe(*Open<IMessage>(folder, entryId, IID_IMessage)));
    for (const auto& [name, entryId] : Subfolders(folder))
        all.merge(DescribeAll(*Open<IMAPIFolder>(folder, entryId, IID_IMAPIFolder), path + L"/" + name));
    return all;
}

class Copying : public testing::Test
{
protected:
    void SetUp() override
    {
        const auto sample = Tests::TempPath(L"sample.pst");
        std::ofstream(sample, std::ios::binary) << "KivNst sample store\nfolders=4 messages=12 seed=3\n";
        const auto fresh = Tests::TempPath(L"fresh.pst");
        for (const auto& entry : std::filesystem::directory_iterator(fresh.parent_path()))
        {
            // What earlier runs kept beside the store.
            if (entry.path().filename().wstring().starts_with(L"fresh.pst"))
                std::filesystem::remove_all(entry.path());
        }
        const MAPIUID sampleService = profile.AddPst(sample);
        const MAPIUID freshService = profile.AddPst(fresh);
        session = std::make_unique<Tests::TestSession>(client, profile.Name());
        source = session->OpenStore(&sampleService);
        target = session->OpenStore(&freshService);
        from = Root(*source);
        to = Root(*target);
        SupportContext context;
        context.memory = Memory();
        support = CreateSupportObject(std::move(context));
    }

    void TearDown() override
    {
        support.Reset();
        from.Reset();
        to.Reset();
        source.Reset();
        target.Reset();
        session.reset();
    }

    static ComPtr<IMAPIFolder> Root(IMsgStore& store)
    {
        const auto values = Read(store, {PR_IPM_SUBTREE_ENTRYID});
        return Open<IMAPIFolder>(store, values[0].AsBytes(), IID_IMAPIFolder);
    }

    // The sample's folder that holds another.
    std::pair<std::wstring, Bytes> Nested()
    {
        for (const auto& [name, entryId] : Subfolders(*from))
            if (!Subfolders(*Open<IMAPIFolder>(*from, entryId, IID_IMAPIFolder)).empty())
                return {name, entryId};
        ADD_FAILURE() << "the sample has no folder within a folder";
        return {};
    }

    HRESULT CopyFolder(IMAPIFolder& parent, Bytes entryId, IMAPIFolder& destination, const wchar_t* name, ULONG flags)
    {
        std::wstring text = name ? std::wstring(name) : std::wstring();
        return support->CopyFolder(&IID_IMAPIFolder, &parent, static_cast<ULONG>(entryId.size()),
                                   reinterpret_cast<ENTRYID*>(entryId.data()), nullptr, &destination,
                                   name ? static_cast<LPTSTR>(static_cast<void*>(text.data())) : nullptr, 0, nullptr,
                                   flags | MAPI_UNICODE);
    }

    HRESULT CopyMessages(IMAPIFolder& folder, std::vector<Bytes> entryIds, IMAPIFolder& destination, ULONG flags)
    {
        std::vector<SBinary> binaries;
        for (Bytes& entryId : entryIds)
            binaries.push_back({static_cast<ULONG>(entryId.size()), entryId.data()});
        ENTRYLIST list{static_cast<ULONG>(binaries.size()), binaries.data()};
        return support->CopyMessages(nullptr, &folder, &list, nullptr, &destination, 0, nullptr, flags);
    }

    Tests::MapiClient client;
    Tests::TestProfile profile{client};
    std::unique_ptr<Tests::TestSession> session;
    ComPtr<IMsgStore> source;
    ComPtr<IMsgStore> target;
    ComPtr<IMAPIFolder> from;
    ComPtr<IMAPIFolder> to;
    ComPtr<IMAPISupport> support;
};
} // namespace

TEST_F(Copying, AFolderWithAllThatIsInIt)
{
    const auto [name, entryId] = Nested();
    const auto original = Open<IMAPIFolder>(*from, entryId, IID_IMAPIFolder);
    ASSERT_EQ(CopyFolder(*from, entryId, *to, nullptr, COPY_SUBFOLDERS), S_OK);
    const auto copies = Subfolders(*to);
    ASSERT_TRUE(copies.contains(name));
    const auto copy = Open<IMAPIFolder>(*to, copies.at(name), IID_IMAPIFolder);
    const auto expected = DescribeAll(*original);
    EXPECT_GE(expected.size(), 24u);
    EXPECT_EQ(DescribeAll(*copy), expected);

    EXPECT_EQ(CopyFolder(*from, entryId, *to, nullptr, COPY_SUBFOLDERS), MAPI_E_COLLISION);
    ASSERT_EQ(CopyFolder(*from, entryId, *to, L"Renamed", 0), S_OK);
    const auto renamed = Open<IMAPIFolder>(*to, Subfolders(*to).at(L"Renamed"), IID_IMAPIFolder);
    EXPECT_TRUE(Subfolders(*renamed).empty());
    EXPECT_EQ(Messages(*renamed).size(), Messages(*original).size());
}

TEST_F(Copying, AFolderCannotGoIntoItself)
{
    const auto [name, entryId] = Nested();
    ASSERT_EQ(CopyFolder(*from, entryId, *to, nullptr, COPY_SUBFOLDERS), S_OK);
    const Bytes copyId = Subfolders(*to).at(name);
    const auto copy = Open<IMAPIFolder>(*to, copyId, IID_IMAPIFolder);
    EXPECT_EQ(CopyFolder(*to, copyId, *copy, L"x", COPY_SUBFOLDERS), MAPI_E_FOLDER_CYCLE);
    const auto inner = Open<IMAPIFolder>(*copy, Subfolders(*copy).begin()->second, IID_IMAPIFolder);
    EXPECT_EQ(CopyFolder(*to, copyId, *inner, L"x", COPY_SUBFOLDERS), MAPI_E_FOLDER_CYCLE);
}

TEST_F(Copying, MovesAFolder)
{
    const auto [name, entryId] = Nested();
    ASSERT_EQ(CopyFolder(*from, entryId, *to, L"First", COPY_SUBFOLDERS), S_OK);
    ASSERT_EQ(CopyFolder(*from, entryId, *to, L"Second", 0), S_OK);
    const auto second = Open<IMAPIFolder>(*to, Subfolders(*to).at(L"Second"), IID_IMAPIFolder);
    const Bytes firstId = Subfolders(*to).at(L"First");
    const auto before = DescribeAll(*Open<IMAPIFolder>(*to, firstId, IID_IMAPIFolder));
    ASSERT_EQ(CopyFolder(*to, firstId, *second, nullptr, FOLDER_MOVE), S_OK);
    EXPECT_FALSE(Subfolders(*to).contains(L"First"));
    const auto moved = Open<IMAPIFolder>(*second, Subfolders(*second).at(L"First"), IID_IMAPIFolder);
    EXPECT_EQ(DescribeAll(*moved), before);
}

TEST_F(Copying, MessagesAndWhatCannotBeCopied)
{
    const auto [name, entryId] = Nested();
    const auto original = Open<IMAPIFolder>(*from, entryId, IID_IMAPIFolder);
    std::vector<Bytes> messages = Messages(*original);
    messages.resize(3);
    ASSERT_EQ(CopyMessages(*original, messages, *to, 0), S_OK);
    EXPECT_EQ(Messages(*to).size(), 3u);

    Bytes unknown = messages[0];
    unknown.back() = static_cast<BYTE>(~unknown.back());
    EXPECT_EQ(CopyMessages(*original, {messages[0], unknown}, *to, 0), MAPI_W_PARTIAL_COMPLETION);
    EXPECT_EQ(Messages(*to).size(), 4u);

    ASSERT_EQ(CopyFolder(*from, entryId, *to, L"Folder", 0), S_OK);
    const auto folder = Open<IMAPIFolder>(*to, Subfolders(*to).at(L"Folder"), IID_IMAPIFolder);
    const size_t held = Messages(*folder).size();
    EXPECT_EQ(CopyMessages(*to, Messages(*to), *folder, MESSAGE_MOVE), S_OK);
    EXPECT_TRUE(Messages(*to).empty());
    EXPECT_EQ(Messages(*folder).size(), held + 4);
    EXPECT_EQ(CopyMessages(*to, {}, *folder, 0x4000), MAPI_E_UNKNOWN_FLAGS);
}

TEST_F(Copying, AMessageWithoutWhatIsExcluded)
{
    const auto [name, entryId] = Nested();
    const auto original = Open<IMAPIFolder>(*from, entryId, IID_IMAPIFolder);
    const auto message = Open<IMessage>(*original, Messages(*original).front(), IID_IMessage);
    ComPtr<IMessage> copy;
    ASSERT_EQ(to->CreateMessage(nullptr, 0, copy.Put()), S_OK);
    const MapiBlock<SPropTagArray> excluded(Memory(), MakeTagArray(Memory(), {PR_MESSAGE_RECIPIENTS, PR_BODY}));
    EXPECT_EQ(support->DoCopyTo(&IID_IMessage, message.Get(), 0, nullptr, excluded.Get(), 0, nullptr, &IID_IMessage,
                                copy.Get(), 0, nullptr),
              S_OK);
    ComPtr<IMAPITable> recipients;
    ASSERT_EQ(copy->GetRecipientTable(0, recipients.Put()), S_OK);
    ULONG count = 9;
    EXPECT_EQ(recipients->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(Read(*copy, {PR_SUBJECT_W})[0].AsText(), Read(*message, {PR_SUBJECT_W})[0].AsText());
    EXPECT_TRUE(Read(*copy, {PR_BODY_W})[0].IsError());

    // And then what was left out.
    EXPECT_EQ(support->DoCopyProps(&IID_IMessage, message.Get(), excluded.Get(), 0, nullptr, &IID_IMessage, copy.Get(),
                                   0, nullptr),
              S_OK);
    EXPECT_EQ(Describe(*copy), Describe(*message));
}

TEST_F(Copying, ALargePropertyGoesByStream)
{
    ComPtr<IMessage> first;
    ComPtr<IMessage> second;
    ASSERT_EQ(to->CreateMessage(nullptr, 0, first.Put()), S_OK);
    ASSERT_EQ(to->CreateMessage(nullptr, 0, second.Put()), S_OK);
    const std::wstring text(maxInlineSize, L'x');
    const MapiBlock<SPropValue> values(Memory(), MakePropArray(Memory(), {PropValue::String(PR_BODY_W, text)}));
    ASSERT_EQ(first->SetProps(1, values.Get(), nullptr), S_OK);
    EXPECT_EQ(Read(*first, {PR_BODY_W})[0].AsLong(), MAPI_E_NOT_ENOUGH_MEMORY);
    MapiBlock<SPropProblemArray> problems(Memory());
    ASSERT_EQ(support->DoCopyTo(nullptr, first.Get(), 0, nullptr, nullptr, 0, nullptr, nullptr, second.Get(), 0,
                                problems.Put()),
              S_OK);
    ComPtr<IStream> body;
    ASSERT_EQ(second->OpenProperty(PR_BODY_W, &IID_IStream, 0, 0, body.PutAs<IUnknown>()), S_OK);
    EXPECT_EQ(FromStreamBytes(PR_BODY_W, ReadStream(*body, 1 << 30)).AsText(), text);
}

TEST_F(Copying, NamedPropertiesKeepTheirNames)
{
    GUID set = {0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 9}};
    std::wstring text = L"A name of the copy test";
    MAPINAMEID name{};
    name.lpguid = &set;
    name.ulKind = MNID_STRING;
    name.Kind.lpwstrName = text.data();
    MAPINAMEID* names = &name;
    // A name that only the target knows first, so that the identifiers in the two stores differ.
    std::wstring otherText = L"Another name";
    MAPINAMEID other = name;
    other.Kind.lpwstrName = otherText.data();
    MAPINAMEID* others = &other;
    ComPtr<IMessage> first;
    ComPtr<IMessage> second;
    const auto sampleFolder = Open<IMAPIFolder>(*from, Nested().second, IID_IMAPIFolder);
    ASSERT_EQ(sampleFolder->CreateMessage(nullptr, 0, first.Put()), S_OK);
    ASSERT_EQ(to->CreateMessage(nullptr, 0, second.Put()), S_OK);
    MapiBlock<SPropTagArray> ids(Memory());
    ASSERT_EQ(second->GetIDsFromNames(1, &others, MAPI_CREATE, ids.Put()), S_OK);
    ASSERT_EQ(first->GetIDsFromNames(1, &names, MAPI_CREATE, ids.Put()), S_OK);
    const ULONG firstTag = PROP_TAG(PT_LONG, PROP_ID(ids->aulPropTag[0]));
    const MapiBlock<SPropValue> values(Memory(), MakePropArray(Memory(), {PropValue::Long(firstTag, 77)}));
    ASSERT_EQ(first->SetProps(1, values.Get(), nullptr), S_OK);

    ASSERT_EQ(
        support->DoCopyTo(nullptr, first.Get(), 0, nullptr, nullptr, 0, nullptr, nullptr, second.Get(), 0, nullptr),
        S_OK);
    ASSERT_EQ(second->GetIDsFromNames(1, &names, 0, ids.Put()), S_OK);
    const ULONG secondTag = PROP_TAG(PT_LONG, PROP_ID(ids->aulPropTag[0]));
    EXPECT_EQ(Read(*second, {secondTag})[0].AsLong(), 77);
}

TEST_F(Copying, RefusesWhatIsNotWhatItIsSaidToBe)
{
    const auto [name, entryId] = Nested();
    const auto before = Subfolders(*to);
    Bytes copy = entryId;
    EXPECT_EQ(support->CopyFolder(&IID_IMessage, from.Get(), static_cast<ULONG>(copy.size()),
                                  reinterpret_cast<ENTRYID*>(copy.data()), nullptr, to.Get(), nullptr, 0, nullptr, 0),
              MAPI_E_INTERFACE_NOT_SUPPORTED);
    EXPECT_EQ(
        support->DoCopyTo(&IID_IMessage, from.Get(), 0, nullptr, nullptr, 0, nullptr, nullptr, to.Get(), 0, nullptr),
        MAPI_E_INTERFACE_NOT_SUPPORTED);
    EXPECT_EQ(CopyFolder(*from, {}, *to, nullptr, 0), MAPI_E_INVALID_ENTRYID);
    EXPECT_EQ(Subfolders(*to), before);
}
