// The whole path in one process, over real and generated mail: service entry, configuration, provider initialisation,
// logon, listing, reading, refusals, and a second logon.
#include "tests/e2e/Environment.h"

#include "common/StoreEntryId.h"
#include "host/HostSettings.h"
#include "nst/KivNstCore.h"
#include "tools/browser/ArchiveSession.h"
#include "tools/browser/Copy.h"
#include "tools/browser/Tree.h"

using namespace Testbed;
using namespace Browser;

namespace Tests
{
namespace
{
struct Input
{
    const char* name;
    // Gives the file in a new folder; empty where the fetched mail is not here.
    std::filesystem::path (*make)(const std::filesystem::path& folder);
    // Messages that an independent reader (readpst, pffexport) finds; 0 where none was asked.
    size_t messages;
};

std::filesystem::path CopyFetched(const std::filesystem::path& folder, const wchar_t* name)
{
    const std::filesystem::path file = FetchedFile(name);
    return file.empty() ? file : CopyInto(folder, file);
}

const Input inputs[] = {
    {"Outlook", [](const std::filesystem::path& folder) { return CopyInto(folder, SmallFiles()[0]); }, 0},
    {"Sample1", [](const std::filesystem::path& folder) { return CopyInto(folder, SmallFiles()[1]); }, 0},
    {"Submessage", [](const std::filesystem::path& folder) { return CopyInto(folder, SmallFiles()[2]); }, 0},
    {"Enron", [](const std::filesystem::path& folder) { return CopyFetched(folder, L"enron.pst"); }, 71},
    {"Generated", [](const std::filesystem::path& folder) { return SampleInto(folder, 8, 25); }, size_t{8} * 25},
};

class PathTest : public testing::TestWithParam<Input>
{
protected:
    void SetUp() override
    {
        m_folder = NewFolder();
        m_file = GetParam().make(m_folder);
        REQUIRE_FETCHED(m_file);
    }

    std::filesystem::path m_folder;
    std::filesystem::path m_file;
};

LONG LongOf(const MapiMemory& memory, IMAPIProp& object, ULONG tag)
{
    const auto value = ReadProp(memory, object, tag);
    EXPECT_TRUE(value.has_value()) << "property " << std::hex << tag;
    return value ? value->AsLong() : -1;
}

// Reads every message below a folder as a client would, and gives how many there are.
size_t ReadMessages(const MapiMemory& memory, IMsgStore& store, const Bytes& entryId)
{
    const auto folder = OpenFolder(store, entryId);
    size_t count = 0;
    for (const Row& row : ReadTable(memory, *Contents(*folder, false), {PR_ENTRYID, PR_SUBJECT_W}))
    {
        const auto message = OpenMessage(store, row[0].AsBytes());
        EXPECT_EQ(ReadText(memory, *message, PR_SUBJECT_W), Utf8(row[1].AsText()));
        ReadText(memory, *message, PR_BODY_W);
        Recipients(memory, *message);
        for (const ULONG number : AttachmentNumbers(memory, *message))
            EXPECT_FALSE(ReadProperties(memory, *OpenAttachment(*message, number), true).values.empty());
        EXPECT_EQ(LongOf(memory, *message, PR_ACCESS), LONG(MAPI_ACCESS_READ));
        EXPECT_EQ(LongOf(memory, *message, PR_ACCESS_LEVEL), 0);
        EXPECT_EQ(message->SaveChanges(0), MAPI_E_NO_ACCESS);
        ++count;
    }
    for (const FolderRow& row : SubFolders(memory, *folder))
        count += row.type == FOLDER_SEARCH ? 0 : ReadMessages(memory, store, row.entryId);
    return count;
}

TEST_P(PathTest, GoesFromTheServiceEntryToTheSecondLogon)
{
    const std::string before = ContentsOf(m_file);
    Bytes archiveRoot;
    {
        ArchiveSession archive(TestMapi(), PlaceOf(m_folder));
        EXPECT_FALSE(archive.Configured());
        archive.Configure(m_file, {});
        EXPECT_TRUE(archive.Configured());

        // The configuration gave the store its identity.
        archive.Logon({});
        const auto stores = ListStores(archive.Memory(), archive.Session());
        ASSERT_EQ(stores.size(), 1u);
        const auto entryId = UnwrapStoreEntryId(stores[0].entryId.data(), stores[0].entryId.size());
        ASSERT_TRUE(entryId.has_value());
        EXPECT_EQ(entryId->dllName, "ArchiveHost.dll");
        const Quillon::Binary own = Quillon::Nst::CreateStoreEntryID(m_file.c_str());
        EXPECT_EQ(entryId->entryId, Bytes(own.GetBuffer(), own.GetBuffer() + own.GetSize()));

        const MapiMemory& memory = archive.Memory();
        IMsgStore& store = archive.Store();
        const LONG mask = LongOf(memory, store, PR_STORE_SUPPORT_MASK);
        EXPECT_EQ(mask & (STORE_MODIFY_OK | STORE_CREATE_OK | 0x00200000), 0);
        EXPECT_NE(mask & STORE_READONLY, 0);
        EXPECT_EQ(LongOf(memory, store, PR_ACCESS), LONG(MAPI_ACCESS_READ));

        archiveRoot = TopOfStore(memory, store);
        const auto root = OpenFolder(store, archiveRoot);
        EXPECT_EQ(ReadText(memory, *root, PR_DISPLAY_NAME_W), "Archiver Store Root");
        EXPECT_EQ(LongOf(memory, *root, PROP_TAG(PT_LONG, 0x6639)), 0x401);
        const size_t messages = ReadMessages(memory, store, {});
        EXPECT_GT(messages, 0u);
        EXPECT_EQ(messages, GetParam().messages != 0 ? GetParam().messages : messages);
        // The session opens entries wrapped, too.
        ULONG type = 0;
        ComPtr<IUnknown> object;
        ASSERT_EQ(archive.Session().OpenEntry(ULONG(archiveRoot.size()), EntryIdOf(archiveRoot), nullptr, MAPI_MODIFY,
                                              &type, object.Put()),
                  S_OK);
        EXPECT_EQ(type, ULONG(MAPI_FOLDER));
        std::wstring name = L"New";
        ComPtr<IMAPIFolder> created;
        EXPECT_EQ(object.As<IMAPIFolder>(IID_IMAPIFolder)
                      ->CreateFolder(FOLDER_GENERIC, name.data(), nullptr, nullptr, MAPI_UNICODE, created.Put()),
                  MAPI_E_NO_ACCESS);
        EXPECT_FALSE(created);
        // No identity of the profile's user is reported for an archive.
        ComPtr<IMAPITable> status;
        ASSERT_EQ(archive.Session().GetStatusTable(MAPI_UNICODE, status.Put()), S_OK);
        size_t providers = 0;
        for (const Row& row : ReadTable(memory, *status, {PR_RESOURCE_TYPE, PR_IDENTITY_ENTRYID, PR_STATUS_CODE}))
        {
            if (row[0].AsLong() != MAPI_STORE_PROVIDER)
                continue;
            ++providers;
            EXPECT_TRUE(row[1].IsError());
            EXPECT_FALSE(row[2].IsError());
        }
        EXPECT_EQ(providers, 1u);
    }
    {
        // As a mail client that is started later.
        ArchiveSession archive(TestMapi(), PlaceOf(m_folder));
        archive.Logon({});
        EXPECT_EQ(TopOfStore(archive.Memory(), archive.Store()), archiveRoot);
        size_t roots = 0;
        const std::function<void(const FolderNode&)> count = [&](const FolderNode& node)
        {
            roots += node.name == L"Archiver Store Root" ? 1 : 0;
            for (const FolderNode& child : node.children)
                count(child);
        };
        count(ReadTree(archive.Memory(), archive.Store(), true));
        EXPECT_EQ(roots, 1u);
    }
    EXPECT_EQ(ContentsOf(m_file), before) << "the PST file was changed";
}

INSTANTIATE_TEST_SUITE_P(Files, PathTest, testing::ValuesIn(inputs),
                         [](const testing::TestParamInfo<Input>& input) { return input.param.name; });
} // namespace
} // namespace Tests
