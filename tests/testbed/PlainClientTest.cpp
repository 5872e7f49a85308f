// A MAPI client written from MAPI's pages alone and in their manner: plain calls and structures, narrow texts, all of
// it through mapi32.dll, with none of this project's helpers but those that name a file for the test.
#include "tests/testbed/Environment.h"

#include <fstream>

namespace
{
using HRQUERYALLROWS = HRESULT(WINAPI*)(LPMAPITABLE, LPSPropTagArray, LPSRestriction, LPSSortOrderSet, LONG,
                                        LPSRowSet*);
using HRGETONEPROP = HRESULT(WINAPI*)(LPMAPIPROP, ULONG, LPSPropValue*);
using FREEPROWS = void(WINAPI*)(LPSRowSet);

// What the pages name and the headers here do not.
constexpr ULONG pstPathA = PROP_TAG(PT_STRING8, 0x6700);
constexpr ULONG forceAccess = 0x00080000;
constexpr LONG unicodeOk = 0x00040000;

LPSTR Copied(const char* text)
{
    // The structures' texts are not constant, and nobody changes them.
    return const_cast<LPSTR>(text);
}

LPTSTR Narrow(const char* text)
{
    return reinterpret_cast<LPTSTR>(Copied(text));
}

class PlainClient : public testing::Test
{
protected:
    void SetUp() override
    {
        mapi = LoadLibraryW(L"mapi32.dll");
        ASSERT_NE(mapi, nullptr);
        Find("MAPIInitialize", initialize);
        Find("MAPIUninitialize", uninitialize);
        Find("MAPIAdminProfiles", adminProfiles);
        Find("MAPILogonEx", logonEx);
        Find("MAPIFreeBuffer", freeBuffer);
        Find("HrQueryAllRows@24", queryAllRows);
        Find("HrGetOneProp@12", getOneProp);
        Find("FreeProws@4", freeProws);
        ASSERT_EQ(initialize(nullptr), S_OK);
        ASSERT_EQ(adminProfiles(0, &profileAdmin), S_OK);
        ASSERT_EQ(profileAdmin->CreateProfile(Narrow(profileName), nullptr, 0, 0), S_OK);
        ASSERT_EQ(profileAdmin->AdminServices(Narrow(profileName), nullptr, 0, 0, &serviceAdmin), S_OK);
    }

    void TearDown() override
    {
        if (store)
            store->Release();
        if (session)
        {
            EXPECT_EQ(session->Logoff(0, 0, 0), S_OK);
            session->Release();
        }
        if (serviceAdmin)
            serviceAdmin->Release();
        if (profileAdmin)
        {
            EXPECT_EQ(profileAdmin->DeleteProfile(Narrow(profileName), 0), S_OK);
            profileAdmin->Release();
            uninitialize();
        }
        FreeLibrary(mapi);
    }

    // The way of "Programmatically create a profile", to a service that is found in the table and configured.
    void CreateService(const std::filesystem::path& file)
    {
        ASSERT_EQ(serviceAdmin->CreateMsgService(Narrow("MSUPST MS"), nullptr, 0, 0), S_OK);
        LPMAPITABLE table = nullptr;
        ASSERT_EQ(serviceAdmin->GetMsgServiceTable(0, &table), S_OK);
        SizedSPropTagArray(2, columns) = {2, {PR_SERVICE_NAME_A, PR_SERVICE_UID}};
        SPropValue name{};
        name.ulPropTag = PR_SERVICE_NAME_A;
        name.Value.lpszA = Copied("MSUPST MS");
        SRestriction restriction{};
        restriction.rt = RES_CONTENT;
        restriction.res.resContent = {FL_FULLSTRING, PR_SERVICE_NAME_A, &name};
        LPSRowSet rows = nullptr;
        ASSERT_EQ(queryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), &restriction, nullptr, 0, &rows),
                  S_OK);
        table->Release();
        ASSERT_EQ(rows->cRows, 1u);
        EXPECT_STREQ(rows->aRow[0].lpProps[0].Value.lpszA, "MSUPST MS");
        serviceUid = *reinterpret_cast<LPMAPIUID>(rows->aRow[0].lpProps[1].Value.bin.lpb);
        freeProws(rows);

        const std::string path = file.string();
        SPropValue value{};
        value.ulPropTag = pstPathA;
        value.Value.lpszA = Copied(path.c_str());
        ASSERT_EQ(serviceAdmin->ConfigureMsgService(&serviceUid, 0, 0, 1, &value), S_OK);
    }

    void LogOn()
    {
        ASSERT_EQ(logonEx(0, Narrow(profileName), nullptr, MAPI_EXTENDED | MAPI_NEW_SESSION | MAPI_EXPLICIT_PROFILE,
                          &session),
                  S_OK);
    }

    // Opens the one store that the restriction leaves of the stores table.
    void OpenStoreBy(SRestriction restriction, LPMDB* opened)
    {
        LPMAPITABLE table = nullptr;
        ASSERT_EQ(session->GetMsgStoresTable(0, &table), S_OK);
        SizedSPropTagArray(2, columns) = {2, {PR_ENTRYID, PR_PROVIDER_DISPLAY_A}};
        LPSRowSet rows = nullptr;
        ASSERT_EQ(queryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), &restriction, nullptr, 0, &rows),
                  S_OK);
        table->Release();
        ASSERT_EQ(rows->cRows, 1u);
        const SBinary entryId = rows->aRow[0].lpProps[0].Value.bin;
        EXPECT_EQ(session->OpenMsgStore(0, entryId.cb, reinterpret_cast<LPENTRYID>(entryId.lpb), nullptr,
                                        MDB_NO_DIALOG | MDB_NO_MAIL, opened),
                  S_OK);
        freeProws(rows);
    }

    // The default store, by the bits of PR_RESOURCE_FLAGS.
    void OpenDefaultStore()
    {
        SRestriction restriction{};
        restriction.rt = RES_BITMASK;
        restriction.res.resBitMask = {BMR_NEZ, PR_RESOURCE_FLAGS, STATUS_DEFAULT_STORE};
        OpenStoreBy(restriction, &store);
        ASSERT_NE(store, nullptr);
    }

    // What was read on the way through a store.
    struct Seen
    {
        size_t folders = 0;
        size_t messages = 0;
        size_t recipients = 0;
        size_t attachments = 0;
        size_t embedded = 0;
        size_t streams = 0;
        std::uint64_t streamBytes = 0;
        size_t names = 0;
    };

    void WalkStore(Seen& seen)
    {
        WalkProperties(*store, seen);
        LPSPropValue subtree = nullptr;
        ASSERT_EQ(getOneProp(store, PR_IPM_SUBTREE_ENTRYID, &subtree), S_OK);
        ULONG type = 0;
        LPMAPIFOLDER folder = nullptr;
        ASSERT_EQ(store->OpenEntry(subtree->Value.bin.cb, reinterpret_cast<LPENTRYID>(subtree->Value.bin.lpb), nullptr,
                                   0, &type, reinterpret_cast<LPUNKNOWN*>(&folder)),
                  S_OK);
        freeBuffer(subtree);
        EXPECT_EQ(type, static_cast<ULONG>(MAPI_FOLDER));
        WalkFolder(*folder, seen);
        folder->Release();
    }

    HMODULE mapi = nullptr;
    LPMAPIINITIALIZE initialize = nullptr;
    LPMAPIUNINITIALIZE uninitialize = nullptr;
    LPMAPIADMINPROFILES adminProfiles = nullptr;
    LPMAPILOGONEX logonEx = nullptr;
    LPFREEBUFFER freeBuffer = nullptr;
    HRQUERYALLROWS queryAllRows = nullptr;
    HRGETONEPROP getOneProp = nullptr;
    FREEPROWS freeProws = nullptr;

    const char* const profileName = "Plain client";
    LPPROFADMIN profileAdmin = nullptr;
    LPSERVICEADMIN serviceAdmin = nullptr;
    MAPIUID serviceUid{};
    LPMAPISESSION session = nullptr;
    LPMDB store = nullptr;

private:
    template <class F>
    void Find(const char* name, F& function) const
    {
        function = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(mapi, name)));
        ASSERT_NE(function, nullptr) << name;
    }

    void ReadToTheEnd(LPSTREAM stream, Seen& seen)
    {
        STATSTG stat{};
        EXPECT_EQ(stream->Stat(&stat, STATFLAG_NONAME), S_OK);
        std::uint64_t bytes = 0;
        BYTE buffer[4000];
        ULONG read = 0;
        do
        {
            ASSERT_TRUE(SUCCEEDED(stream->Read(buffer, sizeof(buffer), &read)));
            bytes += read;
        } while (read != 0);
        EXPECT_EQ(bytes, stat.cbSize.QuadPart);
        ++seen.streams;
        seen.streamBytes += bytes;
        stream->Release();
    }

    // All properties of an object, in both widths; those that are too large by their streams, and the names of those
    // that have one.
    void WalkProperties(IMAPIProp& object, Seen& seen)
    {
        for (const ULONG width : {ULONG(0), MAPI_UNICODE})
        {
            LPSPropTagArray list = nullptr;
            ASSERT_EQ(object.GetPropList(width, &list), S_OK);
            ULONG count = 0;
            LPSPropValue values = nullptr;
            ASSERT_TRUE(SUCCEEDED(object.GetProps(nullptr, width, &count, &values)));
            EXPECT_EQ(count, list->cValues);
            for (ULONG i = 0; i < count; ++i)
            {
                const SPropValue& value = values[i];
                EXPECT_EQ(PROP_ID(value.ulPropTag), PROP_ID(list->aulPropTag[i]));
                if (PROP_TYPE(value.ulPropTag) == PT_ERROR)
                {
                    ASSERT_EQ(value.Value.err, MAPI_E_NOT_ENOUGH_MEMORY) << std::hex << value.ulPropTag;
                    LPSTREAM stream = nullptr;
                    ASSERT_EQ(object.OpenProperty(list->aulPropTag[i], &IID_IStream, 0, 0,
                                                  reinterpret_cast<LPUNKNOWN*>(&stream)),
                              S_OK);
                    ReadToTheEnd(stream, seen);
                }
                else if (PROP_TYPE(value.ulPropTag) == PT_UNICODE || PROP_TYPE(value.ulPropTag) == PT_STRING8)
                {
                    EXPECT_EQ(PROP_TYPE(value.ulPropTag), width ? PT_UNICODE : PT_STRING8);
                }
                if (PROP_ID(value.ulPropTag) >= 0x8000)
                    WalkName(object, list->aulPropTag[i], seen);
            }
            freeBuffer(values);
            freeBuffer(list);
        }
    }

    // An identifier's name leads back to the identifier.
    void WalkName(IMAPIProp& object, ULONG tag, Seen& seen)
    {
        SizedSPropTagArray(1, asked) = {1, {tag}};
        auto* tags = reinterpret_cast<LPSPropTagArray>(&asked);
        ULONG count = 0;
        LPMAPINAMEID* names = nullptr;
        ASSERT_EQ(object.GetNamesFromIDs(&tags, nullptr, 0, &count, &names), S_OK);
        ASSERT_EQ(count, 1u);
        LPSPropTagArray ids = nullptr;
        ASSERT_EQ(object.GetIDsFromNames(1, names, 0, &ids), S_OK);
        ASSERT_EQ(ids->cValues, 1u);
        EXPECT_EQ(PROP_ID(ids->aulPropTag[0]), PROP_ID(tag));
        freeBuffer(ids);
        freeBuffer(names);
        ++seen.names;
    }

    void WalkFolder(IMAPIFolder& folder, Seen& seen)
    {
        ++seen.folders;
        WalkProperties(folder, seen);
        LPMAPITABLE table = nullptr;
        ASSERT_EQ(folder.GetContentsTable(0, &table), S_OK);
        WalkRows(folder, table, MAPI_MESSAGE, seen);
        ASSERT_EQ(folder.GetHierarchyTable(0, &table), S_OK);
        WalkRows(folder, table, MAPI_FOLDER, seen);
    }

    void WalkRows(IMAPIFolder& folder, LPMAPITABLE table, ULONG expected, Seen& seen)
    {
        SizedSPropTagArray(2, columns) = {2, {PR_ENTRYID, PR_OBJECT_TYPE}};
        LPSRowSet rows = nullptr;
        ASSERT_EQ(queryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows), S_OK);
        table->Release();
        for (ULONG i = 0; i < rows->cRows; ++i)
        {
            const SBinary entryId = rows->aRow[i].lpProps[0].Value.bin;
            ULONG type = 0;
            LPUNKNOWN object = nullptr;
            ASSERT_EQ(
                folder.OpenEntry(entryId.cb, reinterpret_cast<LPENTRYID>(entryId.lpb), nullptr, 0, &type, &object),
                S_OK);
            EXPECT_EQ(type, expected);
            EXPECT_EQ(rows->aRow[i].lpProps[1].Value.l, static_cast<LONG>(expected));
            if (type == MAPI_MESSAGE)
                WalkMessage(*static_cast<LPMESSAGE>(object), seen);
            else
                WalkFolder(*static_cast<LPMAPIFOLDER>(object), seen);
            object->Release();
        }
        freeProws(rows);
    }

    void WalkMessage(IMessage& message, Seen& seen)
    {
        ++seen.messages;
        WalkProperties(message, seen);
        LPMAPITABLE table = nullptr;
        LPSRowSet rows = nullptr;
        ASSERT_EQ(message.GetRecipientTable(0, &table), S_OK);
        SizedSPropTagArray(3, who) = {3, {PR_RECIPIENT_TYPE, PR_DISPLAY_NAME_A, PR_ROWID}};
        ASSERT_EQ(queryAllRows(table, reinterpret_cast<LPSPropTagArray>(&who), nullptr, nullptr, 0, &rows), S_OK);
        table->Release();
        seen.recipients += rows->cRows;
        freeProws(rows);

        // The way of "Opening an attachment".
        ASSERT_EQ(message.GetAttachmentTable(0, &table), S_OK);
        SizedSPropTagArray(1, which) = {1, {PR_ATTACH_NUM}};
        ASSERT_EQ(queryAllRows(table, reinterpret_cast<LPSPropTagArray>(&which), nullptr, nullptr, 0, &rows), S_OK);
        table->Release();
        for (ULONG i = 0; i < rows->cRows; ++i)
        {
            LPATTACH attachment = nullptr;
            ASSERT_EQ(message.OpenAttach(static_cast<ULONG>(rows->aRow[i].lpProps[0].Value.l), nullptr, 0, &attachment),
                      S_OK);
            WalkAttachment(*attachment, seen);
            attachment->Release();
        }
        freeProws(rows);
    }

    void WalkAttachment(IAttach& attachment, Seen& seen)
    {
        ++seen.attachments;
        WalkProperties(attachment, seen);
        LPSPropValue method = nullptr;
        ASSERT_EQ(getOneProp(&attachment, PR_ATTACH_METHOD, &method), S_OK);
        const LONG how = method->Value.l;
        freeBuffer(method);
        if (how == ATTACH_BY_VALUE)
        {
            LPSTREAM data = nullptr;
            ASSERT_EQ(
                attachment.OpenProperty(PR_ATTACH_DATA_BIN, &IID_IStream, 0, 0, reinterpret_cast<LPUNKNOWN*>(&data)),
                S_OK);
            ReadToTheEnd(data, seen);
        }
        else if (how == ATTACH_EMBEDDED_MSG)
        {
            ++seen.embedded;
            LPMESSAGE inner = nullptr;
            ASSERT_EQ(
                attachment.OpenProperty(PR_ATTACH_DATA_OBJ, &IID_IMessage, 0, 0, reinterpret_cast<LPUNKNOWN*>(&inner)),
                S_OK);
            WalkMessage(*inner, seen);
            inner->Release();
        }
    }
};

std::filesystem::path SampleStore()
{
    const auto file = Tests::TempPath(L"plain\\sample.pst");
    std::ofstream(file, std::ios::binary) << "KivNst sample store\nfolders=2 messages=8 seed=5\n";
    return file;
}
} // namespace

TEST_F(PlainClient, ReadsAndWritesProfilesAndTheirSections)
{
    CreateService(SampleStore());
    LPMAPITABLE table = nullptr;
    ASSERT_EQ(profileAdmin->GetProfileTable(0, &table), S_OK);
    SizedSPropTagArray(2, columns) = {2, {PR_DISPLAY_NAME_A, PR_DEFAULT_PROFILE}};
    LPSRowSet rows = nullptr;
    ASSERT_EQ(queryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows), S_OK);
    table->Release();
    bool listed = false;
    for (ULONG i = 0; i < rows->cRows; ++i)
        listed = listed || std::string(rows->aRow[i].lpProps[0].Value.lpszA) == profileName;
    EXPECT_TRUE(listed);
    freeProws(rows);

    LPPROFSECT section = nullptr;
    ASSERT_EQ(serviceAdmin->OpenProfileSection(&serviceUid, nullptr, forceAccess, &section), S_OK);
    LPSPropValue path = nullptr;
    ASSERT_EQ(getOneProp(section, pstPathA, &path), S_OK);
    EXPECT_NE(std::string(path->Value.lpszA).find("sample.pst"), std::string::npos);
    freeBuffer(path);
    section->Release();

    GUID guid = {0xC8B0DB13, 0x05AA, 0x1A10, {0x9B, 0xB0, 0x00, 0xAA, 0x00, 0x2F, 0xC4, 0x5A}};
    auto* const global = reinterpret_cast<LPMAPIUID>(&guid);
    ASSERT_EQ(serviceAdmin->OpenProfileSection(global, nullptr, forceAccess | MAPI_MODIFY, &section), S_OK);
    SPropValue user{};
    user.ulPropTag = PROP_TAG(PT_STRING8, 0x6641);
    user.Value.lpszA = Copied("=SMTP:anthony@example.com");
    EXPECT_EQ(section->SetProps(1, &user, nullptr), S_OK);
    EXPECT_EQ(section->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
    section->Release();
    ASSERT_EQ(serviceAdmin->OpenProfileSection(global, nullptr, 0, &section), S_OK);
    LPSPropValue read = nullptr;
    ASSERT_EQ(getOneProp(section, user.ulPropTag, &read), S_OK);
    EXPECT_STREQ(read->Value.lpszA, user.Value.lpszA);
    freeBuffer(read);
    section->Release();

    LPPROVIDERADMIN providerAdmin = nullptr;
    ASSERT_EQ(serviceAdmin->AdminProviders(&serviceUid, 0, &providerAdmin), S_OK);
    ASSERT_EQ(providerAdmin->GetProviderTable(0, &table), S_OK);
    SizedSPropTagArray(2, provider) = {2, {PR_PROVIDER_UID, PR_RESOURCE_TYPE}};
    ASSERT_EQ(queryAllRows(table, reinterpret_cast<LPSPropTagArray>(&provider), nullptr, nullptr, 0, &rows), S_OK);
    table->Release();
    ASSERT_EQ(rows->cRows, 1u);
    EXPECT_EQ(rows->aRow[0].lpProps[1].Value.l, static_cast<LONG>(MAPI_STORE_PROVIDER));
    auto* const uid = reinterpret_cast<LPMAPIUID>(rows->aRow[0].lpProps[0].Value.bin.lpb);
    EXPECT_EQ(providerAdmin->OpenProfileSection(uid, nullptr, forceAccess, &section), S_OK);
    section->Release();
    freeProws(rows);
    providerAdmin->Release();
}

TEST_F(PlainClient, FindsTheDefaultStoreInEachDocumentedWay)
{
    CreateService(SampleStore());
    LogOn();
    SPropValue isDefault{};
    isDefault.ulPropTag = PR_DEFAULT_STORE;
    isDefault.Value.b = TRUE;
    SRestriction both[2] = {};
    both[0].rt = RES_EXIST;
    both[0].res.resExist.ulPropTag = PR_DEFAULT_STORE;
    both[1].rt = RES_PROPERTY;
    both[1].res.resProperty = {RELOP_EQ, PR_DEFAULT_STORE, &isDefault};
    SPropValue display{};
    display.ulPropTag = PR_PROVIDER_DISPLAY_A;
    display.Value.lpszA = Copied("Personal Folders");
    SRestriction restrictions[3] = {};
    restrictions[0].rt = RES_AND;
    restrictions[0].res.resAnd = {2, both};
    restrictions[1].rt = RES_BITMASK;
    restrictions[1].res.resBitMask = {BMR_NEZ, PR_RESOURCE_FLAGS, STATUS_DEFAULT_STORE};
    restrictions[2].rt = RES_PROPERTY;
    restrictions[2].res.resProperty = {RELOP_EQ, PR_PROVIDER_DISPLAY_A, &display};
    for (const SRestriction& restriction : restrictions)
    {
        LPMDB opened = nullptr;
        OpenStoreBy(restriction, &opened);
        ASSERT_NE(opened, nullptr);
        LPSPropValue mask = nullptr;
        ASSERT_EQ(getOneProp(opened, PR_STORE_SUPPORT_MASK, &mask), S_OK);
        // The service says that its file has the Unicode format.
        EXPECT_NE(mask->Value.l & unicodeOk, 0);
        EXPECT_EQ(mask->Value.l & STORE_MODIFY_OK, 0);
        freeBuffer(mask);
        opened->Release();
    }
}

TEST_F(PlainClient, ReadsAllThereIsInAStore)
{
    CreateService(SampleStore());
    LogOn();
    OpenDefaultStore();
    Seen seen;
    WalkStore(seen);
    // The top, two of mail, and the deleted items.
    EXPECT_EQ(seen.folders, 4u);
    // 16 and, in the third and the tenth, one that holds another.
    EXPECT_EQ(seen.messages, 20u);
    EXPECT_EQ(seen.embedded, 4u);
    EXPECT_GE(seen.recipients, seen.messages);
    EXPECT_GE(seen.attachments, 8u);
    EXPECT_GE(seen.streamBytes, 2u * 150000);
    EXPECT_GE(seen.names, 40u);
}

TEST_F(PlainClient, ReadsRealFiles)
{
    wchar_t data[MAX_PATH] = {};
    GetEnvironmentVariableW(L"KIVNST_TEST_DATA", data, MAX_PATH);
    const auto file = Tests::TempPath(L"plain\\submessage.pst");
    std::filesystem::copy_file(std::filesystem::path(data) / L"pst" / L"submessage.pst", file);
    CreateService(file);
    LogOn();
    OpenDefaultStore();
    Seen seen;
    WalkStore(seen);
    EXPECT_EQ(seen.embedded, 1u);
    EXPECT_GE(seen.messages, 2u);
}

TEST_F(PlainClient, AsksForReceiveFolders)
{
    CreateService(SampleStore());
    LogOn();
    OpenDefaultStore();
    ULONG size = 0;
    LPENTRYID folder = nullptr;
    LPTSTR messageClass = nullptr;
    ASSERT_EQ(store->GetReceiveFolder(Narrow("IPM.Note.Special"), 0, &size, &folder, &messageClass), S_OK);
    EXPECT_STREQ(reinterpret_cast<const char*>(messageClass), "");
    ULONG type = 0;
    LPUNKNOWN object = nullptr;
    EXPECT_EQ(store->OpenEntry(size, folder, &IID_IMAPIFolder, MAPI_BEST_ACCESS, &type, &object), S_OK);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_FOLDER));
    object->Release();
    freeBuffer(messageClass);

    LPMAPITABLE table = nullptr;
    ASSERT_EQ(store->GetReceiveFolderTable(0, &table), S_OK);
    SizedSPropTagArray(2, columns) = {2, {PR_ENTRYID, PR_MESSAGE_CLASS_A}};
    LPSRowSet rows = nullptr;
    ASSERT_EQ(queryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr, nullptr, 0, &rows), S_OK);
    table->Release();
    ASSERT_EQ(rows->cRows, 1u);
    const SBinary listed = rows->aRow[0].lpProps[0].Value.bin;
    ULONG same = FALSE;
    EXPECT_EQ(session->CompareEntryIDs(size, folder, listed.cb, reinterpret_cast<LPENTRYID>(listed.lpb), 0, &same),
              S_OK);
    EXPECT_TRUE(same);
    freeBuffer(folder);
    freeProws(rows);
}

TEST_F(PlainClient, SortsRestrictsAndFindsRows)
{
    CreateService(SampleStore());
    LogOn();
    OpenDefaultStore();
    LPSPropValue subtree = nullptr;
    ASSERT_EQ(getOneProp(store, PR_IPM_SUBTREE_ENTRYID, &subtree), S_OK);
    ULONG type = 0;
    LPMAPIFOLDER top = nullptr;
    ASSERT_EQ(session->OpenEntry(subtree->Value.bin.cb, reinterpret_cast<LPENTRYID>(subtree->Value.bin.lpb), nullptr, 0,
                                 &type, reinterpret_cast<LPUNKNOWN*>(&top)),
              S_OK);
    freeBuffer(subtree);
    LPMAPITABLE table = nullptr;
    ASSERT_EQ(top->GetHierarchyTable(CONVENIENT_DEPTH, &table), S_OK);
    top->Release();
    SizedSPropTagArray(2, columns) = {2, {PR_DISPLAY_NAME_A, PR_CONTENT_COUNT}};
    SizedSSortOrderSet(1, order) = {1, 0, 0, {{PR_DISPLAY_NAME_A, TABLE_SORT_DESCEND}}};
    LPSRowSet rows = nullptr;
    ASSERT_EQ(queryAllRows(table, reinterpret_cast<LPSPropTagArray>(&columns), nullptr,
                           reinterpret_cast<LPSSortOrderSet>(&order), 0, &rows),
              S_OK);
    ASSERT_EQ(rows->cRows, 3u);
    for (const ULONG i : {0, 1})
        EXPECT_GT(std::string(rows->aRow[i].lpProps[0].Value.lpszA), rows->aRow[i + 1].lpProps[0].Value.lpszA);
    EXPECT_EQ(rows->aRow[0].lpProps[1].Value.l, 8);
    const SRow* const sorted = rows->aRow;
    const std::string last = sorted[2].lpProps[0].Value.lpszA;
    freeProws(rows);

    SPropValue name{};
    name.ulPropTag = PR_DISPLAY_NAME_A;
    name.Value.lpszA = Copied(last.c_str());
    SRestriction restriction{};
    restriction.rt = RES_PROPERTY;
    restriction.res.resProperty = {RELOP_EQ, PR_DISPLAY_NAME_A, &name};
    EXPECT_EQ(table->FindRow(&restriction, BOOKMARK_BEGINNING, 0), S_OK);
    ULONG row = 0;
    ULONG numerator = 0;
    ULONG denominator = 0;
    EXPECT_EQ(table->QueryPosition(&row, &numerator, &denominator), S_OK);
    EXPECT_EQ(row, 2u);
    EXPECT_EQ(table->Restrict(&restriction, 0), S_OK);
    ULONG count = 0;
    EXPECT_EQ(table->GetRowCount(0, &count), S_OK);
    EXPECT_EQ(count, 1u);
    LONG sought = 0;
    EXPECT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 1, &sought), S_OK);
    EXPECT_EQ(sought, 1);
    ASSERT_EQ(table->QueryRows(10, 0, &rows), S_OK);
    EXPECT_EQ(rows->cRows, 0u);
    freeProws(rows);
    table->Release();
}
