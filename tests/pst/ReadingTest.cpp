// What real PST files hold, compared with what independent readers (pffexport, readpst) give for them.
#include "tests/pst/PstStore.h"

#include "common/Text.h"

#include <algorithm>
#include <atomic>
#include <thread>

namespace Tests
{
namespace
{
std::filesystem::path SmallFile(const wchar_t* name)
{
    return Location(L"KIVNST_TEST_DATA") / L"pst" / name;
}

std::filesystem::path Enron()
{
    return Location(L"KIVNST_PST_DATA") / L"enron.pst";
}

class ReadingTest : public PstTest
{
};

using Tree = std::map<std::wstring, size_t>;

TEST_F(ReadingTest, ListsTheFoldersOfTheSmallFiles)
{
    {
        PstStore store = Open(SmallFile(L"sample1.pst"));
        EXPECT_EQ(store.Tree(*store.Subtree()), (Tree{{L"Deleted Items", 0}, {L"Sample1", 1}}));
    }
    {
        PstStore store = Open(SmallFile(L"submessage.pst"));
        EXPECT_EQ(store.Tree(*store.Subtree()), (Tree{{L"Deleted Items", 0}, {L"submessage", 1}}));
    }
    PstStore store = Open(SmallFile(L"outlook.pst"));
    const Tree tree = store.Tree(*store.Subtree());
    EXPECT_EQ(tree.at(L"Inbox"), 1u);
    EXPECT_EQ(tree.at(L"Recovered_Group2"), 1u);
    EXPECT_EQ(tree.at(L"Recovered_Group2\\Inbox"), 0u);
    EXPECT_TRUE(tree.contains(L"\u6536\u4EF6\u7BB1"));
}

TEST_F(ReadingTest, ListsTheFoldersOfARealArchive)
{
    PstStore store = Open(Enron());
    const Tree tree = store.Tree(*store.Subtree());
    const std::wstring box = L"lokay-m\\MLOKAY (Non-Privileged)";
    EXPECT_EQ(tree, (Tree{{L"Deleted Items", 0},
                          {L"lokay-m", 0},
                          {box, 1},
                          {box + L"\\Personal", 47},
                          {box + L"\\Sent Items", 2},
                          {box + L"\\Systems", 7},
                          {box + L"\\TW-Commercial Group", 14}}));
}

TEST_F(ReadingTest, ListsTheFoldersOfOfflineStores)
{
    {
        PstStore store = Open(Location(L"KIVNST_PST_DATA") / L"pstextractortest@outlook.com.ost");
        const Tree tree = store.Tree(*store.Root());
        const std::wstring top = L"Root - Mailbox\\IPM_SUBTREE\\";
        EXPECT_EQ(tree.at(top + L"Calendar"), 9u);
        EXPECT_EQ(tree.at(top + L"Calendar\\United States holidays"), 160u);
        EXPECT_EQ(tree.at(top + L"Deleted Items"), 1u);
        EXPECT_EQ(tree.at(top + L"Inbox"), 10u);
        EXPECT_EQ(tree.at(top + L"Sent Items"), 2u);
        EXPECT_EQ(tree.at(top + L"Sync Issues"), 1u);
    }
    PstStore store = Open(Location(L"KIVNST_PST_DATA") / L"pstextractortestpdf@outlook.com.ost");
    const Tree tree = store.Tree(*store.Root());
    EXPECT_EQ(tree.at(L"Root - Mailbox\\IPM_SUBTREE\\Inbox"), 2u);
    // Its own properties name the top of its mail, too.
    EXPECT_TRUE(store.Tree(*store.Subtree()).contains(L"Inbox"));
}

TEST_F(ReadingTest, GivesTheAttachmentsOfARealArchive)
{
    PstStore store = Open(Enron());
    size_t attachments = 0;
    size_t messages = 0;
    std::map<std::wstring, size_t> sizes;
    const auto box = store.Folder(L"lokay-m\\MLOKAY (Non-Privileged)");
    std::vector<Bytes> folders = {store.EntryId(*box)};
    for (const Row& row : store.Hierarchy(*box))
        folders.push_back(BytesOf(row, PR_ENTRYID));
    for (const Bytes& entryId : folders)
    {
        const auto folder = store.Open<IMAPIFolder>(entryId);
        for (const Row& row : store.Contents(*folder))
        {
            ++messages;
            const auto message = store.Open<IMessage>(BytesOf(row, PR_ENTRYID));
            // A row and its message say the same of what both know.
            EXPECT_EQ(TextOf(row, PR_SUBJECT), store.Prop(*message, PR_SUBJECT_W).AsText());
            EXPECT_FALSE(store.Prop(*message, PR_BODY_W).Size() == 0);
            for (const Row& attachmentRow : store.Attachments(*message))
            {
                ++attachments;
                ComPtr<IAttach> attachment;
                ASSERT_EQ(message->OpenAttach(static_cast<ULONG>(LongOf(attachmentRow, PR_ATTACH_NUM)), nullptr, 0,
                                              attachment.Put()),
                          S_OK);
                if (LongOf(attachmentRow, PR_ATTACH_METHOD) == ATTACH_BY_VALUE)
                {
                    sizes[TextOf(attachmentRow, PR_ATTACH_LONG_FILENAME)] =
                        store.Stream(*attachment, PR_ATTACH_DATA_BIN).size();
                }
            }
        }
    }
    EXPECT_EQ(messages, 71u);
    EXPECT_EQ(attachments, 70u);
    EXPECT_EQ(sizes[L"TWEOL.pdf"], 206848u);
    EXPECT_EQ(sizes[L"015_12A.JPG"], 576516u);
    EXPECT_EQ(sizes[L"invite2001.doc"], 866304u);
    EXPECT_EQ(sizes[L"child's menu.gif"], 41056u);
}

TEST_F(ReadingTest, OpensAnEmbeddedMessage)
{
    PstStore store = Open(SmallFile(L"submessage.pst"));
    const auto folder = store.Folder(L"submessage");
    const auto rows = store.Contents(*folder);
    ASSERT_EQ(rows.size(), 1u);
    const auto message = store.Open<IMessage>(BytesOf(rows[0], PR_ENTRYID));
    EXPECT_EQ(TextOf(rows[0], PR_SUBJECT), L"This is a message which has an embedded message attached");
    const auto attachments = store.Attachments(*message);
    ASSERT_EQ(attachments.size(), 1u);
    EXPECT_EQ(LongOf(attachments[0], PR_ATTACH_METHOD), ATTACH_EMBEDDED_MSG);
    ComPtr<IAttach> attachment;
    ASSERT_EQ(message->OpenAttach(0, nullptr, 0, attachment.Put()), S_OK);
    EXPECT_EQ(store.Prop(*attachment, PR_ATTACH_DATA_OBJ).Type(), static_cast<ULONG>(PT_OBJECT));
    ComPtr<IMessage> embedded;
    ASSERT_EQ(attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, embedded.PutAs<IUnknown>()), S_OK);
    EXPECT_EQ(store.Prop(*embedded, PR_SUBJECT_W).AsText(), L"This is an embedded message");
    EXPECT_EQ(store.Recipients(*embedded).size(), 1u);
    EXPECT_EQ(store.Prop(*embedded, PR_ENTRYID).AsLong(), MAPI_E_NOT_FOUND);
    // It was opened for reading, and so was the message.
    EXPECT_EQ(store.Set(*embedded, {PropValue::String(PR_SUBJECT_W, L"x")}), MAPI_E_NO_ACCESS);
}

TEST_F(ReadingTest, GivesErrorsForWhatIsMissing)
{
    PstStore store = Open(SmallFile(L"sample1.pst"));
    const auto folder = store.Folder(L"Sample1");
    const auto rows = store.Contents(*folder);
    ASSERT_EQ(rows.size(), 1u);
    const auto message = store.Open<IMessage>(BytesOf(rows[0], PR_ENTRYID));
    SizedSPropTagArray(3, tags) = {3, {PR_SUBJECT_W, PROP_TAG(PT_LONG, 0x6FFF), PR_SUBJECT_A}};
    ULONG count = 0;
    MapiBlock<SPropValue> values(store.Memory());
    ASSERT_EQ(message->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, values.Put()),
              MAPI_W_ERRORS_RETURNED);
    ASSERT_EQ(count, 3u);
    EXPECT_EQ(std::wstring(values[0].Value.lpszW), TextOf(rows[0], PR_SUBJECT));
    EXPECT_EQ(values[1].ulPropTag, PROP_TAG(PT_ERROR, 0x6FFF));
    EXPECT_EQ(values[1].Value.err, MAPI_E_NOT_FOUND);
    EXPECT_EQ(std::string(values[2].Value.lpszA), AnsiFromWide(TextOf(rows[0], PR_SUBJECT)));
    EXPECT_EQ(PROP_TYPE(store.Prop(*message, CHANGE_PROP_TYPE(PR_SUBJECT, PT_UNSPECIFIED), 0).Tag()),
              static_cast<ULONG>(PT_STRING8));
}

TEST_F(ReadingTest, DescribesTheStore)
{
    PstStore store = Open(SmallFile(L"outlook.pst"));
    const PropertyBag props = store.Props(store.Object());
    EXPECT_EQ(LongOf(props, PR_OBJECT_TYPE), MAPI_STORE);
    const LONG unicodeMask = LongOf(props, PROP_TAG(PT_LONG, 0x340F));
    EXPECT_EQ(LongOf(props, PR_STORE_SUPPORT_MASK), unicodeMask);
    EXPECT_NE(unicodeMask & 0x00040000, 0);
    EXPECT_NE(unicodeMask & STORE_MODIFY_OK, 0);
    EXPECT_EQ(BytesOf(props, PR_RECORD_KEY).size(), 16u);
    EXPECT_EQ(LongOf(props, PR_ACCESS_LEVEL), MAPI_MODIFY);
    EXPECT_EQ(BytesOf(props, PR_IPM_SUBTREE_ENTRYID).size(), 24u);

    // Its own entry ID opens the store, and none opens the root folder.
    ULONG type = 0;
    Bytes entryId = BytesOf(props, PR_ENTRYID);
    ComPtr<IUnknown> object;
    ASSERT_EQ(store.Object().OpenEntry(static_cast<ULONG>(entryId.size()), reinterpret_cast<LPENTRYID>(entryId.data()),
                                       nullptr, 0, &type, object.Put()),
              S_OK);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_STORE));
    ASSERT_EQ(store.Object().OpenEntry(0, nullptr, nullptr, 0, &type, object.Put()), S_OK);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_FOLDER));
    EXPECT_EQ(LongOf(store.Props(*store.Root()), PR_FOLDER_TYPE), FOLDER_ROOT);
    EXPECT_EQ(LongOf(store.Props(*store.Subtree()), PR_FOLDER_TYPE), FOLDER_GENERIC);

    const PropertyBag status = store.Session().StatusRow();
    EXPECT_EQ(LongOf(status, PR_STATUS_CODE), STATUS_AVAILABLE);
    EXPECT_FALSE(TextOf(status, PR_IDENTITY_DISPLAY).empty());
    EXPECT_FALSE(BytesOf(status, PR_IDENTITY_ENTRYID).empty());
}

TEST_F(ReadingTest, IsAnAnsiStoreUnlessAskedForUnicode)
{
    for (const ULONG flags : {MDB_WRITE | MAPI_UNICODE, MDB_WRITE | logonUnicode | logonAnsi})
    {
        PstStore store = Open(SmallFile(L"sample1.pst"), flags);
        EXPECT_EQ(store.Prop(store.Object(), PR_STORE_SUPPORT_MASK).AsLong() & 0x00040000, 0);
        ULONG count = 0;
        MapiBlock<SPropValue> values(store.Memory());
        ASSERT_EQ(store.Object().GetProps(nullptr, MAPI_UNICODE, &count, values.Put()), S_OK);
        for (ULONG index = 0; index < count; ++index)
            EXPECT_NE(PROP_TYPE(values[index].ulPropTag), static_cast<ULONG>(PT_UNICODE));
        // A wide string that is asked for by its tag is given all the same.
        EXPECT_EQ(store.Prop(store.Object(), PR_DISPLAY_NAME_W).Type(), static_cast<ULONG>(PT_UNICODE));
    }
}

TEST_F(ReadingTest, ResolvesNamedPropertiesBothWays)
{
    PstStore store = Open(Enron());
    const auto root = store.Root();
    ULONG count = 0;
    LPSPropTagArray listed = nullptr;
    MapiBlock<LPMAPINAMEID> names(store.Memory());
    ASSERT_EQ(root->GetNamesFromIDs(&listed, nullptr, 0, &count, names.Put()), S_OK);
    const MapiBlock<SPropTagArray> tags(store.Memory(), listed);
    ASSERT_GT(count, 20u);
    MapiBlock<SPropTagArray> back(store.Memory());
    ASSERT_EQ(root->GetIDsFromNames(count, names.Get(), 0, back.Put()), S_OK);
    for (ULONG index = 0; index < count; ++index)
        EXPECT_EQ(PROP_ID(back->aulPropTag[index]), PROP_ID(tags->aulPropTag[index])) << index;
}

TEST_F(ReadingTest, ListsAllFoldersInOneTable)
{
    PstStore store = Open(Enron());
    const auto rows = store.Hierarchy(*store.Subtree(), MAPI_UNICODE | CONVENIENT_DEPTH);
    EXPECT_EQ(rows.size(), 7u);
    const auto personal = std::find_if(rows.begin(), rows.end(),
                                       [](const Row& row) { return TextOf(row, PR_DISPLAY_NAME) == L"Personal"; });
    ASSERT_NE(personal, rows.end());
    EXPECT_EQ(LongOf(*personal, PR_DEPTH), 3);
    EXPECT_EQ(LongOf(*personal, PR_CONTENT_COUNT), 47);
}

TEST_F(ReadingTest, ReadsWithoutLeavingAnythingBeside)
{
    const auto file = Copy(SmallFile(L"sample1.pst"));
    {
        PstStore store = Open(file);
        store.Tree(*store.Root());
    }
    size_t files = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(file.parent_path()))
        ++files;
    EXPECT_EQ(files, 1u);
}

TEST_F(ReadingTest, IsReadFromSeveralThreads)
{
    PstStore store = Open(Enron());
    const auto folder = store.Folder(L"lokay-m\\MLOKAY (Non-Privileged)\\Personal");
    const auto rows = store.Contents(*folder);
    std::atomic<size_t> read = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
    {
        threads.emplace_back(
            [&]
            {
                for (const Row& row : rows)
                {
                    const auto message = store.Open<IMessage>(BytesOf(row, PR_ENTRYID));
                    if (store.Prop(*message, PR_SUBJECT_W).AsText() == TextOf(row, PR_SUBJECT))
                        ++read;
                }
            });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(read, 4 * rows.size());
}

TEST_F(ReadingTest, FailsClearlyForWhatIsNoPstFile)
{
    std::wstring text;
    WriteFile(Path(L"text.pst"), "This is a letter, not a store.");
    EXPECT_EQ(FailToOpen(Path(L"text.pst"), text), MAPI_E_CORRUPT_STORE);
    EXPECT_NE(text.find(L"text.pst"), std::wstring::npos) << Utf8FromWide(text);

    // The right beginning alone does not make a store.
    WriteFile(Path(L"short.pst"), "!BDN and then nothing of use");
    EXPECT_EQ(FailToOpen(Path(L"short.pst"), text), MAPI_E_CORRUPT_STORE);
    Bytes cut = FileBytes(SmallFile(L"sample1.pst"));
    WriteFile(Path(L"cut.pst"), std::string(cut.begin(), cut.begin() + 4096));
    EXPECT_EQ(FailToOpen(Path(L"cut.pst"), text), MAPI_E_CORRUPT_STORE);

    EXPECT_EQ(FailToOpen(Path(L"nowhere") / L"mail.pst", text), MAPI_E_NOT_FOUND);
    EXPECT_FALSE(text.empty());
    std::filesystem::create_directory(Path(L"folder.pst"));
    EXPECT_EQ(FailToOpen(Path(L"folder.pst"), text), MAPI_E_CORRUPT_STORE);
}
} // namespace
} // namespace Tests
