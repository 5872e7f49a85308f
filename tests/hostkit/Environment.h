// Archives of the host kit over the testbed's PST provider, opened as MAPI opens them, and short ways to what a test
// looks at.
#pragma once

#include "hostkit/HostKit.h"
#include "testbed/common/PropertyBag.h"
#include "tests/common/MailSession.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace Tests
{

/// A host whose settings a test gives.
class TestHost : public KivNstHostKit::CArchiveHost
{
public:
    using Settings = std::function<KivNstHostKit::ArchiveSettings(IProfSect*)>;

    explicit TestHost(Settings settings = {}) : m_settings(std::move(settings)) {}
    Quillon::StringW GetModuleName() const override { return L"TestHost.dll"; }
    KivNstHostKit::ArchiveSettings GetSettings(IProfSect* section) const override
    {
        return m_settings ? m_settings(section) : KivNstHostKit::ArchiveSettings();
    }

private:
    Settings m_settings;
};

/// A host of fixed settings.
KivNstHostKit::HostPointer HostOf(KivNstHostKit::ArchiveSettings settings);
KivNstHostKit::HostPointer WritableHost();

/// The access that a mail client asks for.
constexpr ULONG clientLogon = MDB_WRITE | MDB_NO_DIALOG | MAPI_UNICODE;

/// A PST file opened through a kit's provider. Throws `Common::Failure` where MAPI fails.
class OpenArchive
{
public:
    OpenArchive(const std::filesystem::path& file, const KivNstHostKit::HostPointer& host, ULONG flags = clientLogon);
    ~OpenArchive();
    OpenArchive(const OpenArchive&) = delete;
    OpenArchive& operator=(const OpenArchive&) = delete;

    IMsgStore& Store() const { return *m_store; }
    IMSLogon& Logon() const { return *m_logon; }
    IMSProvider& Provider() const { return *m_provider; }
    const Common::MapiMemory& Memory() const { return m_session->Memory(); }
    Tests::MailSession& Session() const { return *m_session; }

    /// A further logon, whose result it gives.
    HRESULT LogOn(ULONG flags, Common::ComPtr<IMSLogon>& logon, Common::ComPtr<IMsgStore>& store) const;

    /// Opens an entry as `I`; an empty entry ID is the store's root folder.
    template <class I>
    Common::ComPtr<I> Open(Common::Bytes entryId, ULONG flags = 0) const
    {
        ULONG type = 0;
        Common::ComPtr<I> object;
        Common::Check(m_store->OpenEntry(static_cast<ULONG>(entryId.size()),
                                         entryId.empty() ? nullptr : reinterpret_cast<LPENTRYID>(entryId.data()),
                                         nullptr, flags, &type, object.template PutAs<IUnknown>()),
                      L"OpenEntry failed");
        return object;
    }
    /// The top of the PST's own folders, under which its mail lies.
    Common::ComPtr<IMAPIFolder> Mail(ULONG flags = 0) const;
    /// The first message of the folder, or of one below it.
    Common::ComPtr<IMessage> FirstMessage(IMAPIFolder& folder, ULONG flags = 0, bool withAttachment = false) const;

    /// One property; PT_ERROR where there is none. `result` gets what GetProps gave.
    Common::PropValue Prop(IMAPIProp& object, ULONG tag, HRESULT* result = nullptr) const;
    Common::Bytes EntryId(IMAPIProp& object) const { return Prop(object, PR_ENTRYID).AsBytes(); }
    HRESULT Set(IMAPIProp& object, const std::vector<Common::PropValue>& values) const;
    HRESULT Delete(IMAPIProp& object, ULONG tag) const;
    /// All rows, with these columns where there are any.
    std::vector<Testbed::PropertyBag> Rows(IMAPITable& table, const std::vector<ULONG>& columns = {}) const;

private:
    std::unique_ptr<Tests::MailSession> m_session;
    Common::ComPtr<IMSProvider> m_provider;
    Common::ComPtr<IMSLogon> m_logon;
    Common::ComPtr<IMsgStore> m_store;
};

/// Files of the test's own, and the bytes that they and the PST provider's file beside them have.
std::filesystem::path NewFolder();
std::filesystem::path GeneratedPst(const std::filesystem::path& folder, const std::wstring& name = L"sample.pst");
std::filesystem::path CopyOf(const std::filesystem::path& folder, const std::wstring& name);
std::string BytesOf(const std::filesystem::path& file);

/// Fails each test at whose end a MAPI block or one of the PST provider's objects is left.
void InstallLeakListener();

} // namespace Tests
