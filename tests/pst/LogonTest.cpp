// How a store begins and ends: what its logon takes of MAPI's support object, and the two ways in which it is shut
// down.
#include "tests/pst/PstStore.h"

namespace Tests
{
namespace
{
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"
#pragma GCC diagnostic ignored "-Wextra-semi"
#endif
#define NO_SUPPORT                                                                                                     \
    override                                                                                                           \
    {                                                                                                                  \
        return MAPI_E_NO_SUPPORT;                                                                                      \
    }
class InertSupport : public IMAPISupport
{
public:
    MAPI_IMAPISUPPORT_METHODS1(NO_SUPPORT)
    MAPI_IMAPISUPPORT_METHODS2(NO_SUPPORT)
    MAPI_IMAPISUPPORT_METHODS3(NO_SUPPORT)
};
#undef NO_SUPPORT
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

// What happened to one support object.
struct Record
{
    ULONG uids = 0;
    ULONG rows = 0;
    ULONG sections = 0;
    bool released = false;
    std::vector<ULONG> transports;
    // What MAPI does in the last release: it logs the store off.
    ComPtr<IMSLogon> logon;
};

// MAPI's support object as far as a store's logon goes, over another one, with a record of what is done with it.
class SupportObject final : public ComObject<InertSupport, &IID_IMAPISup>
{
public:
    SupportObject(ComPtr<IMAPISupport> real, Record& record) : m_real(std::move(real)), m_record(record) {}
    ~SupportObject() override
    {
        m_record.released = true;
        if (const ComPtr<IMSLogon> logon = std::move(m_record.logon))
        {
            m_record.logon.Reset();
            ULONG flags = 0;
            logon->Logoff(&flags);
        }
    }

    STDMETHODIMP OpenProfileSection(LPMAPIUID uid, ULONG flags, LPPROFSECT* section) override
    {
        ++m_record.sections;
        return m_real->OpenProfileSection(uid, flags, section);
    }
    STDMETHODIMP WrapStoreEntryID(ULONG size, LPENTRYID entryId, ULONG* wrappedSize, LPENTRYID* wrapped) override
    {
        return m_real->WrapStoreEntryID(size, entryId, wrappedSize, wrapped);
    }
    STDMETHODIMP SetProviderUID(LPMAPIUID, ULONG) override
    {
        ++m_record.uids;
        return S_OK;
    }
    STDMETHODIMP ModifyStatusRow(ULONG, LPSPropValue, ULONG) override
    {
        ++m_record.rows;
        return S_OK;
    }
    STDMETHODIMP StoreLogoffTransports(ULONG* flags) override
    {
        m_record.transports.push_back(*flags);
        *flags = LOGOFF_OUTBOUND_QUEUE;
        return S_OK;
    }

private:
    ComPtr<IMAPISupport> m_real;
    Record& m_record;
};

class LogonTest : public PstTest
{
protected:
    // A session whose provider object the test logs on to by itself.
    LogonTest() : m_session(MakeSession(m_mapi))
    {
        m_session->CreateService();
        m_session->ConfigurePath(Path(L"store.pst").wstring());
        m_session->LoadProvider();
    }

    void TearDown() override
    {
        m_session.reset();
        PstTest::TearDown();
    }

    HRESULT Logon(Record& record, ComPtr<IMSLogon>& logon, ComPtr<IMsgStore>& store, ULONG flags = unicodeLogon,
                  const Bytes& entryId = {})
    {
        const ComPtr<IMAPISupport> support = MakeObject<SupportObject>(m_session->MakeSupport(), record);
        ULONG size = 0;
        BYTE* security = nullptr;
        Bytes copy = entryId;
        return m_session->Provider()->Logon(support.Get(), 0, nullptr, static_cast<ULONG>(copy.size()),
                                            copy.empty() ? nullptr : reinterpret_cast<LPENTRYID>(copy.data()), flags,
                                            nullptr, &size, &security, nullptr, logon.Put(), store.Put());
    }

    PropValue Prop(IMAPIProp& object, ULONG tag)
    {
        SizedSPropTagArray(1, tags) = {1, {tag}};
        ULONG count = 0;
        MapiBlock<SPropValue> values(m_session->Memory());
        const HRESULT result = object.GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, values.Put());
        return FAILED(result) ? PropValue::Error(tag, result) : PropValue::From(values[0]);
    }

    std::unique_ptr<MailSession> m_session;
};

TEST_F(LogonTest, KeepsTheSupportObjectWithAReferenceOfItsOwn)
{
    Record record;
    ComPtr<IMSLogon> logon;
    ComPtr<IMsgStore> store;
    ASSERT_EQ(Logon(record, logon, store), S_OK);
    ASSERT_TRUE(logon && store);
    EXPECT_EQ(record.uids, 1u);
    EXPECT_EQ(record.rows, 1u);
    EXPECT_FALSE(record.released);
}

TEST_F(LogonTest, TheStoresLastReleaseShutsItDownByWayOfTheSupportObject)
{
    Record record;
    ComPtr<IMsgStore> store;
    ASSERT_EQ(Logon(record, record.logon, store), S_OK);
    ComPtr<IUnknown> root;
    ULONG type = 0;
    ASSERT_EQ(store->OpenEntry(0, nullptr, nullptr, 0, &type, root.Put()), S_OK);
    const ComPtr<IMAPIFolder> folder = root.As<IMAPIFolder>(IID_IMAPIFolder);
    ComPtr<IMAPITable> table;
    ASSERT_EQ(folder->GetHierarchyTable(0, table.Put()), S_OK);
    store.Reset();
    EXPECT_EQ(record.transports, std::vector<ULONG>{LOGOFF_ABORT});
    EXPECT_TRUE(record.released);
    EXPECT_FALSE(record.logon);
    // What was opened by way of the store is invalid with it.
    EXPECT_EQ(Prop(*folder, PR_DISPLAY_NAME_W).AsLong(), MAPI_E_INVALID_OBJECT);
    EXPECT_EQ(folder->GetContentsTable(0, table.Put()), MAPI_E_INVALID_OBJECT);
    EXPECT_FALSE(table);
    // And the file is free.
    EXPECT_TRUE(DeleteFileW((Path(L"store.pst").wstring() + L".overlay").c_str()));
}

TEST_F(LogonTest, LogoffShutsItDownBeforeTheStoreIsReleased)
{
    Record record;
    ComPtr<IMSLogon> logon;
    ComPtr<IMsgStore> store;
    ASSERT_EQ(Logon(record, logon, store), S_OK);
    ULONG flags = 0;
    EXPECT_EQ(logon->Logoff(&flags), S_OK);
    EXPECT_TRUE(record.released);
    EXPECT_TRUE(record.transports.empty());
    EXPECT_EQ(Prop(*store, PR_DISPLAY_NAME_W).AsLong(), MAPI_E_INVALID_OBJECT);
    ULONG type = 0;
    ComPtr<IUnknown> root;
    EXPECT_EQ(logon->OpenEntry(0, nullptr, nullptr, 0, &type, root.Put()), MAPI_E_INVALID_OBJECT);
    // Either way is good for being the second.
    EXPECT_EQ(logon->Logoff(&flags), S_OK);
    store.Reset();
    EXPECT_TRUE(record.transports.empty());
}

TEST_F(LogonTest, TheProvidersShutdownEndsWhatIsOpen)
{
    Record record;
    ComPtr<IMSLogon> logon;
    ComPtr<IMsgStore> store;
    ASSERT_EQ(Logon(record, logon, store), S_OK);
    ULONG flags = 0;
    EXPECT_EQ(m_session->Provider()->Shutdown(&flags), S_OK);
    EXPECT_TRUE(record.released);
    EXPECT_EQ(Prop(*store, PR_DISPLAY_NAME_W).AsLong(), MAPI_E_INVALID_OBJECT);
}

TEST_F(LogonTest, StoreLogoffTellsTheTransportsOnce)
{
    Record record;
    ComPtr<IMSLogon> logon;
    ComPtr<IMsgStore> store;
    ASSERT_EQ(Logon(record, logon, store), S_OK);
    ULONG flags = LOGOFF_ORDERLY | LOGOFF_PURGE;
    EXPECT_EQ(store->StoreLogoff(&flags), MAPI_E_UNKNOWN_FLAGS);
    EXPECT_EQ(store->StoreLogoff(nullptr), MAPI_E_INVALID_PARAMETER);
    flags = LOGOFF_ORDERLY;
    EXPECT_EQ(store->StoreLogoff(&flags), S_OK);
    // What MAPI says to it reaches the client.
    EXPECT_EQ(flags, static_cast<ULONG>(LOGOFF_OUTBOUND_QUEUE));
    flags = LOGOFF_PURGE;
    EXPECT_EQ(store->StoreLogoff(&flags), S_OK);
    EXPECT_EQ(flags, static_cast<ULONG>(LOGOFF_COMPLETE));
    store.Reset();
    EXPECT_EQ(record.transports, std::vector<ULONG>{LOGOFF_ORDERLY});
    EXPECT_TRUE(record.released);
}

TEST_F(LogonTest, ASecondLogonGivesTheOpenStoreAndNoLogonObject)
{
    Record first;
    ComPtr<IMSLogon> logon;
    ComPtr<IMsgStore> store;
    ASSERT_EQ(Logon(first, logon, store, MDB_NO_DIALOG | logonUnicode), S_OK);
    Record second;
    ComPtr<IMSLogon> none;
    ComPtr<IMsgStore> same;
    ASSERT_EQ(Logon(second, none, same), S_OK);
    EXPECT_FALSE(none);
    EXPECT_EQ(same.Get(), store.Get());
    EXPECT_EQ(second.uids, 0u);
    EXPECT_EQ(second.rows, 0u);
    EXPECT_TRUE(second.released);
    // The store is one, so whoever asked for the most decides what may be done with it.
    EXPECT_EQ(Prop(*store, PR_ACCESS_LEVEL).AsLong(), MAPI_MODIFY);
    // The first reference is not the last one now.
    store.Reset();
    EXPECT_FALSE(first.released);
    EXPECT_FALSE(Prop(*same, PR_DISPLAY_NAME_W).IsError());
    same.Reset();
    EXPECT_TRUE(first.released);
}

TEST_F(LogonTest, ASecondLogonByEntryIdLooksAtNoProfileSection)
{
    Record first;
    ComPtr<IMSLogon> logon;
    ComPtr<IMsgStore> store;
    ASSERT_EQ(Logon(first, logon, store), S_OK);
    Record second;
    ComPtr<IMSLogon> none;
    ComPtr<IMsgStore> same;
    ASSERT_EQ(Logon(second, none, same, unicodeLogon, Prop(*store, PR_ENTRYID).AsBytes()), S_OK);
    EXPECT_EQ(same.Get(), store.Get());
    EXPECT_EQ(second.sections, 0u);
}

TEST_F(LogonTest, AStoreThatWasClosedIsOpenedAfresh)
{
    Record first;
    Record second;
    ComPtr<IMSLogon> logon;
    ComPtr<IMsgStore> store;
    ASSERT_EQ(Logon(first, logon, store), S_OK);
    store.Reset();
    logon.Reset();
    ASSERT_EQ(Logon(second, logon, store), S_OK);
    EXPECT_TRUE(logon);
    EXPECT_EQ(second.uids, 1u);
}

TEST_F(LogonTest, TheProvidersIdentifierIsItsOwnWhateverTheProfileSays)
{
    MAPIUID other{};
    std::fill(std::begin(other.ab), std::end(other.ab), BYTE(0xAB));
    m_session->ProfileOf().Change(m_session->ProviderSection(), {PropValue::Uid(PR_MDB_PROVIDER, other)});
    Record record;
    ComPtr<IMSLogon> logon;
    ComPtr<IMsgStore> store;
    ASSERT_EQ(Logon(record, logon, store), S_OK);
    const Bytes uid = Prop(*store, PR_MDB_PROVIDER).AsBytes();
    EXPECT_EQ(uid.size(), sizeof(MAPIUID));
    EXPECT_NE(uid, Bytes(sizeof(MAPIUID), 0xAB));
}

TEST_F(LogonTest, AnotherProcessHasToWait)
{
    PstStore store = Open(Path(L"held.pst"));
    ComPtr<IMAPIFolder> folder;
    ASSERT_EQ(store.Subtree()->CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>(L"Held"), nullptr, nullptr, MAPI_UNICODE,
                                            folder.Put()),
              S_OK);
    EXPECT_EQ(RunSelf(L"--open", Path(L"held.pst")), static_cast<DWORD>(MAPI_E_BUSY));
}
} // namespace
} // namespace Tests
