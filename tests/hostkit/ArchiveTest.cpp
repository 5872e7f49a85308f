// Archives of the kit as a host sees them: settings of each store, logons, names, values, and filling one.
#include "tests/hostkit/Environment.h"

#include "nst/KivNstCore.h"

#include <stdexcept>

using namespace Common;
using namespace Testbed;

namespace Tests
{
namespace
{

constexpr ULONG ownTag = PROP_TAG(PT_UNICODE, 0x7C31);
constexpr ULONG iconTag = PROP_TAG(PT_LONG, 0x1080);

PropValue Text(ULONG tag, const wchar_t* text)
{
    return PropValue::String(tag, text);
}

TEST(ArchiveTest, AWritableArchiveIsFilledAndThenReadByAReadOnlyOne)
{
    const std::filesystem::path file = NewFolder() / "archive.pst";
    {
        const OpenArchive archive(file, WritableHost());
        EXPECT_FALSE(Quillon::Nst::GetModifyStores());
        const auto top =
            archive.Open<IMAPIFolder>(archive.Prop(archive.Store(), PR_IPM_SUBTREE_ENTRYID).AsBytes(), MAPI_MODIFY);
        std::wstring name = L"2019";
        ComPtr<IMAPIFolder> year;
        ASSERT_EQ(top->CreateFolder(FOLDER_GENERIC, reinterpret_cast<LPTSTR>(name.data()), nullptr, nullptr,
                                    MAPI_UNICODE, year.Put()),
                  S_OK);
        ComPtr<IMessage> message;
        ASSERT_EQ(year->CreateMessage(nullptr, 0, message.Put()), S_OK);
        EXPECT_EQ(archive.Set(*message, {Text(PR_SUBJECT_W, L"kept")}), S_OK);
        ULONG number = 0;
        ComPtr<IAttach> attachment;
        ASSERT_EQ(message->CreateAttach(nullptr, 0, &number, attachment.Put()), S_OK);
        EXPECT_EQ(archive.Set(*attachment, {Text(PR_DISPLAY_NAME_W, L"file")}), S_OK);
        EXPECT_EQ(attachment->SaveChanges(0), S_OK);
        EXPECT_EQ(message->SaveChanges(KEEP_OPEN_READWRITE), S_OK);
        EXPECT_EQ(archive.Set(archive.Store(), {Text(PR_COMMENT_W, L"filled")}), S_OK);
        EXPECT_NE(archive.Prop(archive.Store(), PR_ACCESS_LEVEL).AsLong(), 0);
    }
    const OpenArchive archive(file, HostOf({}));
    const auto top = archive.Open<IMAPIFolder>(archive.Prop(archive.Store(), PR_IPM_SUBTREE_ENTRYID).AsBytes());
    const auto message = archive.FirstMessage(*top);
    ASSERT_TRUE(message);
    EXPECT_EQ(archive.Prop(*message, PR_SUBJECT_W).AsText(), L"kept");
    EXPECT_EQ(archive.Prop(archive.Store(), PR_COMMENT_W).AsText(), L"filled");
}

TEST(ArchiveTest, SettingsHoldPerStoreAndNotPerProcess)
{
    const std::filesystem::path folder = NewFolder();
    const OpenArchive writable(GeneratedPst(folder, L"a.pst"), WritableHost());
    KivNstHostKit::ArchiveSettings named;
    named.displayName = L"The other";
    const OpenArchive readOnly(GeneratedPst(folder, L"b.pst"), HostOf(std::move(named)));
    EXPECT_EQ(writable.Set(*writable.Mail(MAPI_MODIFY), {Text(PR_COMMENT_W, L"x")}), S_OK);
    EXPECT_EQ(readOnly.Set(*readOnly.Mail(MAPI_MODIFY), {Text(PR_COMMENT_W, L"x")}), MAPI_E_NO_ACCESS);
    EXPECT_EQ(readOnly.Prop(readOnly.Store(), PR_DISPLAY_NAME_W).AsText(), L"The other");
    EXPECT_NE(writable.Prop(writable.Store(), PR_DISPLAY_NAME_W).AsText(), L"The other");
}

TEST(ArchiveTest, TheFirstLogonPreparesTheArchiveWhateverAccessIsAskedFor)
{
    const std::filesystem::path file = NewFolder() / "archive.pst";
    {
        const OpenArchive archive(file, HostOf({}), MDB_NO_DIALOG | MAPI_UNICODE);
        EXPECT_FALSE(archive.Prop(archive.Store(), PR_IPM_SUBTREE_ENTRYID).IsError());
        EXPECT_FALSE(archive.Prop(archive.Store(), PR_OST_OLFI).IsError());
    }
    const std::string before = BytesOf(file);
    OpenArchive(file, HostOf({}), MDB_NO_DIALOG | MAPI_UNICODE);
    EXPECT_TRUE(BytesOf(file) == before) << "a later logon writes";
}

TEST(ArchiveTest, AFurtherLogonAndTheSpoolersGiveReadOnlyStores)
{
    const OpenArchive archive(GeneratedPst(NewFolder()), HostOf({}));
    ComPtr<IMSLogon> logon;
    ComPtr<IMsgStore> store;
    ASSERT_EQ(archive.LogOn(clientLogon, logon, store), S_OK);
    EXPECT_EQ(archive.Set(*store, {Text(PR_COMMENT_W, L"x")}), MAPI_E_NO_ACCESS);
    logon.Reset();
    store.Reset();
    const ComPtr<IMAPISupport> support = archive.Session().MakeSupport();
    ASSERT_EQ(archive.Provider().SpoolerLogon(support.Get(), 0, nullptr, 0, nullptr, clientLogon, nullptr, 0, nullptr,
                                              nullptr, logon.Put(), store.Put()),
              S_OK);
    EXPECT_EQ(archive.Set(*store, {Text(PR_COMMENT_W, L"x")}), MAPI_E_NO_ACCESS);
    EXPECT_EQ(archive.Prop(*store, PR_ACCESS_LEVEL).AsLong(-1), 0);
}

TEST(ArchiveTest, TheNameIsTheArchivesWhereverAClientLooks)
{
    KivNstHostKit::ArchiveSettings settings;
    settings.displayName = L"Mail of 2019";
    const OpenArchive archive(GeneratedPst(NewFolder()), HostOf(std::move(settings)));
    EXPECT_EQ(archive.Prop(archive.Store(), PR_DISPLAY_NAME_W).AsText(), L"Mail of 2019");
    const PropValue narrow = archive.Prop(archive.Store(), PR_DISPLAY_NAME_A);
    EXPECT_EQ(narrow.Type(), ULONG{PT_STRING8});
    EXPECT_EQ(narrow.AsText(), L"Mail of 2019");
    const Bytes uid(std::begin(Quillon::Nst::providerUid.ab), std::end(Quillon::Nst::providerUid.ab));
    EXPECT_EQ(archive.Prop(archive.Store(), PR_MDB_PROVIDER).AsBytes(), uid);
    const auto top = archive.Open<IMAPIFolder>(archive.Prop(archive.Store(), PR_IPM_SUBTREE_ENTRYID).AsBytes());
    EXPECT_EQ(archive.Prop(*top, PR_DISPLAY_NAME_W).AsText(), L"Mail of 2019");
    EXPECT_NE(archive.Prop(*archive.Mail(), PR_DISPLAY_NAME_W).AsText(), L"Mail of 2019");
    // As a row of the folder above it, whether or not the client wants to see the row's entry ID.
    ComPtr<IMAPITable> table;
    ASSERT_EQ(archive.Mail()->GetHierarchyTable(0, table.Put()), S_OK);
    size_t found = 0;
    for (const PropertyBag& row : archive.Rows(*table, {PR_DISPLAY_NAME_W}))
        found += row.Find(PROP_ID(PR_DISPLAY_NAME))->AsText() == L"Mail of 2019" ? 1 : 0;
    EXPECT_EQ(found, 1u);
    MapiBlock<SPropTagArray> columns(archive.Memory());
    ASSERT_EQ(table->QueryColumns(0, columns.Put()), S_OK);
    EXPECT_EQ(columns->cValues, 1u);
    // In the status row and in the profile.
    EXPECT_EQ(archive.Session().StatusRow().Find(PROP_ID(PR_DISPLAY_NAME))->AsText(), L"Mail of 2019");
    const PropertyBag section = archive.Session().ProfileOf().Section(archive.Session().ProviderSection());
    EXPECT_EQ(section.Find(PROP_ID(PR_DISPLAY_NAME))->AsText(), L"Mail of 2019");
    EXPECT_EQ(section.Find(PROP_ID(PR_MDB_PROVIDER))->AsBytes(), uid);
}

KivNstHostKit::ArchiveSettings WithValues()
{
    KivNstHostKit::ArchiveSettings settings;
    settings.folderValues.Set(PR_CONTAINER_CLASS_W, Quillon::StringW(L"IPF.Archive"));
    settings.messageValues.Add(ownTag,
                               [](const KivNstHostKit::CSubject& subject) -> KivNstHostKit::ArchiveValue
                               {
                                   EXPECT_EQ(subject.GetObjectType(), ULONG{MAPI_MESSAGE});
                                   return subject.GetEntryId().IsNull()
                                              ? Quillon::StringW(L"unknown")
                                              : Quillon::FormatString(L"%Iu", subject.GetEntryId().GetSize());
                               });
    settings.messageValues.Set(iconTag, LONG{42});
    return settings;
}

TEST(ArchiveTest, ValuesOfTheHostShowInObjectsAndInTables)
{
    const OpenArchive archive(GeneratedPst(NewFolder()), HostOf(WithValues()));
    const auto message = archive.FirstMessage(*archive.Mail());
    HRESULT hr = E_FAIL;
    EXPECT_EQ(archive.Prop(*message, ownTag, &hr).AsText(), L"24");
    EXPECT_EQ(hr, S_OK) << "a value that the PST does not have is no error";
    EXPECT_EQ(archive.Prop(*message, CHANGE_PROP_TYPE(ownTag, PT_STRING8)).Type(), ULONG{PT_STRING8});
    EXPECT_EQ(archive.Prop(*message, CHANGE_PROP_TYPE(ownTag, PT_UNSPECIFIED)).AsText(), L"24");
    EXPECT_EQ(archive.Prop(*message, CHANGE_PROP_TYPE(ownTag, PT_UNSPECIFIED)).Type(), ULONG{PT_STRING8});
    EXPECT_EQ(archive.Prop(*message, iconTag).AsLong(), 42);
    EXPECT_TRUE(archive.Prop(*message, CHANGE_PROP_TYPE(iconTag, PT_BINARY)).IsError())
        << "a value of another type is not the host's";

    // All properties, and the list of them.
    ULONG count = 0;
    MapiBlock<SPropValue> values(archive.Memory());
    EXPECT_TRUE(SUCCEEDED(message->GetProps(nullptr, MAPI_UNICODE, &count, values.Put())));
    const PropertyBag all(CopyProps(count, values.Get()));
    ASSERT_NE(all.Find(PROP_ID(ownTag)), nullptr);
    EXPECT_EQ(all.Find(PROP_ID(ownTag))->AsText(), L"24");
    MapiBlock<SPropTagArray> tags(archive.Memory());
    ASSERT_EQ(message->GetPropList(MAPI_UNICODE, tags.Put()), S_OK);
    EXPECT_EQ(std::count(tags->aulPropTag, tags->aulPropTag + tags->cValues, ownTag), 1);
    EXPECT_EQ(count, tags->cValues);

    const auto folder = archive.Open<IMAPIFolder>(archive.Prop(*message, PR_PARENT_ENTRYID).AsBytes());
    EXPECT_EQ(archive.Prop(*folder, PR_CONTAINER_CLASS_W).AsText(), L"IPF.Archive");
    ComPtr<IMAPITable> table;
    ASSERT_EQ(folder->GetContentsTable(0, table.Put()), S_OK);
    for (const std::vector<ULONG>& columns :
         {std::vector<ULONG>{PR_SUBJECT_W, ownTag, iconTag}, std::vector<ULONG>{PR_ENTRYID, ownTag, iconTag}})
    {
        ASSERT_EQ(table->SeekRow(BOOKMARK_BEGINNING, 0, nullptr), S_OK);
        const auto rows = archive.Rows(*table, columns);
        ASSERT_FALSE(rows.empty());
        for (const PropertyBag& row : rows)
        {
            EXPECT_EQ(row.Find(PROP_ID(ownTag))->AsText(), L"24");
            EXPECT_EQ(row.Find(PROP_ID(iconTag))->AsLong(), 42);
        }
    }
    MapiBlock<SPropTagArray> columns(archive.Memory());
    ASSERT_EQ(table->QueryColumns(TBL_ALL_COLUMNS, columns.Put()), S_OK);
    EXPECT_EQ(std::count(columns->aulPropTag, columns->aulPropTag + columns->cValues, ownTag), 1);
}

/// What a value function of a host may throw.
const std::function<void()> throwers[] = {
    [] { throw Quillon::CComError(MAPI_E_NOT_FOUND); },
    [] { throw std::runtime_error("a host's own"); },
    [] { throw std::bad_alloc(); },
    [] { throw 42; },
};
const HRESULT codes[] = {MAPI_E_NOT_FOUND, E_FAIL, E_OUTOFMEMORY, E_FAIL};

TEST(ArchiveTest, WhatAValueFunctionThrowsIsTheCallsResultAndNothingIsLeft)
{
    const std::filesystem::path file = GeneratedPst(NewFolder());
    for (size_t index = 0; index < std::size(throwers); ++index)
    {
        KivNstHostKit::ArchiveSettings settings;
        settings.messageValues.Add(ownTag,
                                   [index](const KivNstHostKit::CSubject&) -> KivNstHostKit::ArchiveValue
                                   {
                                       throwers[index]();
                                       return {};
                                   });
        const OpenArchive archive(file, HostOf(std::move(settings)));
        const auto message = archive.FirstMessage(*archive.Mail());
        SizedSPropTagArray(2, tags) = {2, {PR_SUBJECT_W, ownTag}};
        ULONG count = 0x5A5A5A5A;
        auto* const pattern = reinterpret_cast<SPropValue*>(0x5A5A5A5A);
        SPropValue* values = pattern;
        EXPECT_EQ(message->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, &values), codes[index]);
        EXPECT_EQ(count, 0x5A5A5A5Au);
        EXPECT_EQ(values, pattern);
        const auto folder = archive.Open<IMAPIFolder>(archive.Prop(*message, PR_PARENT_ENTRYID).AsBytes());
        ComPtr<IMAPITable> table;
        ASSERT_EQ(folder->GetContentsTable(0, table.Put()), S_OK);
        ASSERT_EQ(table->SetColumns(reinterpret_cast<LPSPropTagArray>(&tags), 0), S_OK);
        SRowSet* rows = nullptr;
        EXPECT_EQ(table->QueryRows(10, 0, &rows), codes[index]);
        EXPECT_EQ(rows, nullptr);
    }
}

TEST(ArchiveTest, WhatTheHostThrowsAtALogonIsItsResultAndBothOutputsAreNull)
{
    const std::filesystem::path file = GeneratedPst(NewFolder());
    const OpenArchive archive(file, HostOf({}));
    for (size_t index = 0; index < std::size(throwers); ++index)
    {
        const auto host = std::make_shared<const TestHost>(
            [index](IProfSect*)
            {
                throwers[index]();
                return KivNstHostKit::ArchiveSettings();
            });
        const auto provider =
            KivNstHostKit::MakeProvider(host, ATL::CComQIPtr<IMSProvider>(archive.Session().Provider()));
        const ComPtr<IMAPISupport> support = archive.Session().MakeSupport();
        auto* logon = reinterpret_cast<IMSLogon*>(0x5A5A5A5A);
        auto* store = reinterpret_cast<IMsgStore*>(0x5A5A5A5A);
        EXPECT_EQ(provider->Logon(support.Get(), 0, nullptr, 0, nullptr, clientLogon, nullptr, nullptr, nullptr,
                                  nullptr, &logon, &store),
                  codes[index]);
        EXPECT_EQ(logon, nullptr);
        EXPECT_EQ(store, nullptr);
        store = reinterpret_cast<IMsgStore*>(0x5A5A5A5A);
        EXPECT_EQ(provider->SpoolerLogon(support.Get(), 0, nullptr, 0, nullptr, clientLogon, nullptr, 0, nullptr,
                                         nullptr, nullptr, &store),
                  codes[index]);
        EXPECT_EQ(store, nullptr);
    }
}

} // namespace
} // namespace Tests
