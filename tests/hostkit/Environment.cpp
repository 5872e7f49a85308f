// Archives of the host kit for tests.
#include "tests/hostkit/Environment.h"

#include "common/Text.h"

#include <fstream>
#include <sstream>

using namespace Common;
using namespace Testbed;

namespace Tests
{
namespace
{

std::filesystem::path FolderOf(const wchar_t* variable)
{
    std::wstring value(32767, L'\0');
    value.resize(GetEnvironmentVariableW(variable, value.data(), static_cast<DWORD>(value.size())));
    if (value.empty())
        Fail(MAPI_E_NOT_FOUND, std::wstring(variable) + L" is not set; the tests are started by ctest.");
    return value;
}

const std::shared_ptr<LoadedMapi>& Mapi()
{
    static const auto module = LoadedMapi::LoadRegistered();
    return module;
}

/// The PST provider's objects that live.
long ProviderObjects()
{
    const HMODULE module = GetModuleHandleW(L"mspst32.dll");
    const auto count =
        module ? reinterpret_cast<long (*)()>(reinterpret_cast<void*>(GetProcAddress(module, "TestbedLiveObjects")))
               : nullptr;
    return count ? count() : 0;
}

class LeakListener : public testing::EmptyTestEventListener
{
public:
    void OnTestStart(const testing::TestInfo&) override
    {
        m_serial = Mapi()->Statistics().cAllocated + 1;
        m_objects = LiveObjects();
        m_providerObjects = ProviderObjects();
    }
    void OnTestEnd(const testing::TestInfo&) override
    {
        EXPECT_EQ(Utf8FromWide(Mapi()->LiveBlocks(m_serial)), "") << "MAPI blocks are left";
        EXPECT_EQ(LiveObjects(), m_objects) << "COM objects of the session are left";
        EXPECT_EQ(ProviderObjects(), m_providerObjects) << "COM objects of the PST provider are left";
    }

private:
    ULONGLONG m_serial = 0;
    long m_objects = 0;
    long m_providerObjects = 0;
};

} // namespace

KivNstHostKit::HostPointer HostOf(KivNstHostKit::ArchiveSettings settings)
{
    return std::make_shared<const TestHost>([settings = std::move(settings)](IProfSect*) { return settings; });
}

KivNstHostKit::HostPointer WritableHost()
{
    KivNstHostKit::ArchiveSettings settings;
    settings.isWritable = true;
    return HostOf(std::move(settings));
}

OpenArchive::OpenArchive(const std::filesystem::path& file, const KivNstHostKit::HostPointer& host, ULONG flags)
{
    SessionOptions options;
    options.service = {L"PST", L"Personal Folders", Mapi()->Path().parent_path() / "mspst32.dll", "NSTServiceEntry"};
    options.profile = Tests::MemoryProfile(L"hostkit");
    options.mapi = Mapi();
    m_session = std::make_unique<MailSession>(std::move(options));
    m_session->CreateService();
    m_session->ConfigurePath(file.wstring());
    m_session->LoadProvider();
    m_provider = ComPtr<IMSProvider>::Attach(
        KivNstHostKit::MakeProvider(host, ATL::CComQIPtr<IMSProvider>(m_session->Provider())).Detach());
    Check(LogOn(flags, m_logon, m_store), L"The logon failed");
}

OpenArchive::~OpenArchive() = default;

HRESULT OpenArchive::LogOn(ULONG flags, ComPtr<IMSLogon>& logon, ComPtr<IMsgStore>& store) const
{
    const ComPtr<IMAPISupport> support = m_session->MakeSupport();
    return m_provider->Logon(support.Get(), 0, nullptr, 0, nullptr, flags, nullptr, nullptr, nullptr, nullptr,
                             logon.Put(), store.Put());
}

ComPtr<IMAPIFolder> OpenArchive::Mail(ULONG flags) const
{
    // The archive's top lies beside the folders that the PST had before.
    const auto top = Open<IMAPIFolder>(Prop(Store(), PR_IPM_SUBTREE_ENTRYID).AsBytes());
    return Open<IMAPIFolder>(Prop(*top, PR_PARENT_ENTRYID).AsBytes(), flags);
}

ComPtr<IMessage> OpenArchive::FirstMessage(IMAPIFolder& folder, ULONG flags, bool withAttachment) const
{
    ComPtr<IMAPITable> table;
    Check(folder.GetContentsTable(0, table.Put()), L"GetContentsTable failed");
    for (const PropertyBag& row : Rows(*table, {PR_ENTRYID, PR_HASATTACH}))
    {
        const PropValue* const attachments = row.Find(PROP_ID(PR_HASATTACH));
        if (!withAttachment || (attachments && attachments->AsLong() != 0))
            return Open<IMessage>(row.Find(PROP_ID(PR_ENTRYID))->AsBytes(), flags);
    }
    Check(folder.GetHierarchyTable(0, table.Put()), L"GetHierarchyTable failed");
    for (const PropertyBag& row : Rows(*table, {PR_ENTRYID, PR_FOLDER_TYPE}))
    {
        const auto child = Open<IMAPIFolder>(row.Find(PROP_ID(PR_ENTRYID))->AsBytes());
        if (ComPtr<IMessage> found = FirstMessage(*child, flags, withAttachment))
            return found;
    }
    return {};
}

PropValue OpenArchive::Prop(IMAPIProp& object, ULONG tag, HRESULT* result) const
{
    SizedSPropTagArray(1, tags) = {1, {tag}};
    ULONG count = 0;
    MapiBlock<SPropValue> values(Memory());
    const HRESULT hr = object.GetProps(reinterpret_cast<LPSPropTagArray>(&tags), 0, &count, values.Put());
    if (result)
        *result = hr;
    Check(hr, L"GetProps failed");
    return PropValue::From(values[0]);
}

HRESULT OpenArchive::Set(IMAPIProp& object, const std::vector<PropValue>& values) const
{
    const MapiBlock<SPropValue> array(Memory(), MakePropArray(Memory(), values));
    MapiBlock<SPropProblemArray> problems(Memory());
    const HRESULT hr = object.SetProps(static_cast<ULONG>(values.size()), array.Get(), problems.Put());
    return SUCCEEDED(hr) && problems && problems->cProblem != 0 ? problems->aProblem[0].scode : hr;
}

HRESULT OpenArchive::Delete(IMAPIProp& object, ULONG tag) const
{
    SizedSPropTagArray(1, tags) = {1, {tag}};
    return object.DeleteProps(reinterpret_cast<LPSPropTagArray>(&tags), nullptr);
}

std::vector<PropertyBag> OpenArchive::Rows(IMAPITable& table, const std::vector<ULONG>& columns) const
{
    if (!columns.empty())
    {
        const MapiBlock<SPropTagArray> tags(Memory(), MakeTagArray(Memory(), columns));
        Check(table.SetColumns(tags.Get(), 0), L"SetColumns failed");
    }
    std::vector<PropertyBag> rows;
    for (;;)
    {
        MapiRows set(Memory());
        Check(table.QueryRows(100, 0, set.Put()), L"QueryRows failed");
        if (set.Count() == 0)
            return rows;
        for (ULONG index = 0; index < set.Count(); ++index)
        {
            if (!columns.empty())
                EXPECT_EQ(set[index].cValues, columns.size());
            rows.emplace_back(CopyProps(set[index].cValues, set[index].lpProps));
        }
    }
}

std::filesystem::path NewFolder()
{
    const testing::TestInfo& test = *testing::UnitTest::GetInstance()->current_test_info();
    const std::filesystem::path folder =
        FolderOf(L"KIVNST_TEST_TEMP") / (std::string(test.test_suite_name()) + "." + test.name());
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    return folder;
}

std::filesystem::path GeneratedPst(const std::filesystem::path& folder, const std::wstring& name)
{
    std::ofstream(folder / name, std::ios::binary) << "KivNst sample store\nfolders=3 messages=6 seed=7\n";
    return folder / name;
}

std::filesystem::path CopyOf(const std::filesystem::path& folder, const std::wstring& name)
{
    std::filesystem::copy_file(FolderOf(L"KIVNST_TEST_DATA") / L"pst" / name, folder / name);
    return folder / name;
}

std::string BytesOf(const std::filesystem::path& file)
{
    std::ostringstream bytes;
    for (const wchar_t* const end : {L"", L".overlay"})
    {
        std::filesystem::path part = file;
        part += end;
        std::ifstream stream(part, std::ios::binary);
        bytes << (stream ? "there " : "not there ");
        if (stream)
            bytes << stream.rdbuf();
    }
    return bytes.str();
}

void InstallLeakListener()
{
    Mapi();
    testing::UnitTest::GetInstance()->listeners().Append(new LeakListener);
}

} // namespace Tests
