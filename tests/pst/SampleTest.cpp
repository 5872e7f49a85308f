// Generated sample stores and new, empty ones.
#include "tests/pst/PstStore.h"

#include "common/Text.h"

#include <chrono>
#include <iostream>

namespace Tests
{
namespace
{
class SampleTest : public PstTest
{
protected:
    std::filesystem::path Sample(const char* line, const wchar_t* name = L"sample.pst")
    {
        WriteFile(Path(name), std::string("KivNst sample store\n") + line + "\n");
        return Path(name);
    }
};

TEST_F(SampleTest, HoldsTheFoldersAndMessagesAskedFor)
{
    PstStore store = Open(Sample("folders=6 messages=12 seed=1"));
    const auto tree = store.Tree(*store.Subtree());
    size_t folders = 0;
    size_t nested = 0;
    for (const auto& [path, count] : tree)
    {
        if (path != L"Deleted Items")
        {
            ++folders;
            nested += path.find(L'\\') != std::wstring::npos ? 1 : 0;
            EXPECT_EQ(count, 12u) << Utf8FromWide(path);
        }
    }
    EXPECT_EQ(folders, 6u);
    EXPECT_EQ(nested, 1u);
}

TEST_F(SampleTest, GivesTheSameMailEveryTime)
{
    const auto all = [this](const std::filesystem::path& path)
    {
        PstStore store = Open(path);
        std::vector<PropertyBag> found;
        for (const Row& folder : store.Hierarchy(*store.Subtree()))
        {
            const auto opened = store.Open<IMAPIFolder>(BytesOf(folder, PR_ENTRYID));
            for (const Row& row : store.Contents(*opened))
            {
                const auto message = store.Open<IMessage>(BytesOf(row, PR_ENTRYID));
                PropertyBag bag = store.Props(*message);
                bag.Erase(PROP_ID(PR_STORE_ENTRYID));
                found.push_back(std::move(bag));
            }
        }
        return found;
    };
    const auto first = all(Sample("folders=2 messages=30 seed=7", L"first.pst"));
    const auto second = all(Sample("folders=2 messages=30 seed=7", L"second.pst"));
    const auto other = all(Sample("folders=2 messages=30 seed=8", L"other.pst"));
    ASSERT_EQ(first.size(), 60u);
    ASSERT_EQ(first.size(), second.size());
    size_t different = 0;
    for (size_t index = 0; index < first.size(); ++index)
    {
        EXPECT_EQ(first[index].Values(), second[index].Values()) << index;
        different += TextOf(first[index], PR_BODY) != TextOf(other[index], PR_BODY) ? 1 : 0;
    }
    EXPECT_GT(different, 50u);
}

TEST_F(SampleTest, HoldsEveryKindOfAttachment)
{
    PstStore store = Open(Sample("folders=1 messages=40 seed=3"));
    const auto folders = store.Hierarchy(*store.Subtree());
    size_t files = 0;
    size_t large = 0;
    size_t embedded = 0;
    size_t keywords = 0;
    for (const Row& folderRow : folders)
    {
        const auto folder = store.Open<IMAPIFolder>(BytesOf(folderRow, PR_ENTRYID));
        for (const Row& row : store.Contents(*folder))
        {
            const auto message = store.Open<IMessage>(BytesOf(row, PR_ENTRYID));
            EXPECT_GE(store.Recipients(*message).size(), 1u);
            keywords += store.Prop(*message, PROP_TAG(PT_MV_UNICODE, 0x8000)).IsError() ? 0 : 1;
            for (const Row& attachmentRow : store.Attachments(*message))
            {
                ComPtr<IAttach> attachment;
                ASSERT_EQ(message->OpenAttach(static_cast<ULONG>(LongOf(attachmentRow, PR_ATTACH_NUM)), nullptr, 0,
                                              attachment.Put()),
                          S_OK);
                if (LongOf(attachmentRow, PR_ATTACH_METHOD) == ATTACH_EMBEDDED_MSG)
                {
                    ComPtr<IMessage> inner;
                    ASSERT_EQ(
                        attachment->OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, inner.PutAs<IUnknown>()),
                        S_OK);
                    EXPECT_FALSE(store.Prop(*inner, PR_BODY_W).IsError());
                    ++embedded;
                    continue;
                }
                ++files;
                const size_t size = store.Stream(*attachment, PR_ATTACH_DATA_BIN).size();
                EXPECT_EQ(size, static_cast<size_t>(LongOf(attachmentRow, PR_ATTACH_SIZE)));
                if (size > maxInlineSize)
                {
                    ++large;
                    EXPECT_EQ(store.Prop(*attachment, PR_ATTACH_DATA_BIN).AsLong(), MAPI_E_NOT_ENOUGH_MEMORY);
                }
            }
        }
    }
    EXPECT_GE(files, 10u);
    EXPECT_GE(large, 3u);
    EXPECT_GE(embedded, 5u);
    EXPECT_GE(keywords, 5u);
}

TEST_F(SampleTest, ListsAHundredThousandMessages)
{
    PstStore store = Open(Sample("folders=1 messages=100000 seed=5"));
    const auto begin = std::chrono::steady_clock::now();
    const auto rows = store.Hierarchy(*store.Subtree());
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(LongOf(rows[1], PR_CONTENT_COUNT), 100000);
    EXPECT_GT(LongOf(rows[1], PR_CONTENT_UNREAD), 10000);
    const auto folder = store.Open<IMAPIFolder>(BytesOf(rows[1], PR_ENTRYID));
    ComPtr<IMAPITable> table;
    ASSERT_EQ(folder->GetContentsTable(MAPI_UNICODE, table.Put()), S_OK);
    ULONG count = 0;
    ASSERT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 100000u);
    SizedSPropTagArray(3, columns) = {3, {PR_SUBJECT_W, PR_MESSAGE_DELIVERY_TIME, PR_MESSAGE_FLAGS}};
    ASSERT_EQ(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&columns), 0), S_OK);
    SizedSSortOrderSet(1, order) = {1, 0, 0, {{PR_MESSAGE_DELIVERY_TIME, TABLE_SORT_DESCEND}}};
    ASSERT_EQ(table->SortTable(reinterpret_cast<LPSSortOrderSet>(&order), 0), S_OK);
    const auto sorted = store.Rows(*table);
    ASSERT_EQ(sorted.size(), 100000u);
    const auto timeOf = [&](size_t row)
    { return *sorted[row].Find(PROP_ID(PR_MESSAGE_DELIVERY_TIME))->Get<std::int64_t>(); };
    EXPECT_GE(timeOf(0), timeOf(1));
    EXPECT_GE(timeOf(49999), timeOf(50000));
    const auto took = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin);
    std::cout << "listed and sorted in " << took.count() << " s\n";
    EXPECT_LT(took.count(), 120);
}

TEST_F(SampleTest, RefusesSizesThatItCannotNumber)
{
    std::wstring text;
    EXPECT_EQ(FailToOpen(Sample("folders=70000 messages=70000 seed=1"), text), MAPI_E_CORRUPT_STORE);
    EXPECT_EQ(FailToOpen(Sample("folders=1 messages=99999999999 seed=1"), text), MAPI_E_CORRUPT_STORE);
    EXPECT_EQ(FailToOpen(Sample("folders=1 seed=1"), text), MAPI_E_CORRUPT_STORE);
    EXPECT_FALSE(text.empty());
}

TEST_F(SampleTest, MakesANewStoreWhereNoFileIs)
{
    const auto path = Path(L"new.pst");
    Bytes recordKey;
    {
        PstStore store = Open(path);
        recordKey = store.Prop(store.Object(), PR_RECORD_KEY).AsBytes();
        EXPECT_EQ(store.Prop(store.Object(), PR_DISPLAY_NAME_W).AsText(), L"new");
        const auto tree = store.Tree(*store.Root());
        EXPECT_TRUE(tree.contains(L"Top of Personal Folders\\Deleted Items"));
        EXPECT_TRUE(tree.contains(L"Search Root"));
        EXPECT_EQ(store.Prop(store.Object(), PR_VALID_FOLDER_MASK).AsLong(),
                  FOLDER_IPM_SUBTREE_VALID | FOLDER_IPM_WASTEBASKET_VALID | FOLDER_FINDER_VALID);
        ComPtr<IMAPIFolder> folder;
        ASSERT_EQ(store.Subtree()->CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>(L"Mine"), nullptr, nullptr,
                                                MAPI_UNICODE, folder.Put()),
                  S_OK);
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    {
        PstStore store = Open(path);
        EXPECT_EQ(store.Prop(store.Object(), PR_RECORD_KEY).AsBytes(), recordKey);
        EXPECT_TRUE(store.Tree(*store.Subtree()).contains(L"Mine"));
    }
    // Another store's file in its place is not taken for this one.
    Sample("folders=1 messages=1 seed=1", L"new.pst");
    std::wstring text;
    EXPECT_EQ(FailToOpen(path, text), MAPI_E_CORRUPT_STORE);
    EXPECT_NE(text.find(L".overlay"), std::wstring::npos);
}
} // namespace
} // namespace Tests
