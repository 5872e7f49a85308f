// A store of the bare PST provider for tests.
#include "tests/pst/PstStore.h"

#include "common/Text.h"
#include "tests/common/StartProcess.h"

#include <cstdlib>
#include <fstream>
#include <iostream>

namespace Tests
{
std::unique_ptr<MailSession> MakeSession(std::shared_ptr<LoadedMapi> mapi)
{
    SessionOptions options;
    options.service.serviceName = L"PST";
    options.service.displayName = L"Personal Folders";
    options.service.modulePath = Location(L"KIVNST_MAIL_CLIENT") / L"mspst32.dll";
    options.service.entryName = "NSTServiceEntry";
    options.profile = Tests::MemoryProfile(L"Tests");
    options.mapi = std::move(mapi);
    return std::make_unique<MailSession>(std::move(options));
}

namespace
{
std::wstring Variable(const wchar_t* name)
{
    std::wstring value(32767, L'\0');
    value.resize(GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size())));
    return value;
}
} // namespace

std::filesystem::path Location(const wchar_t* variable)
{
    const std::wstring value = Variable(variable);
    if (value.empty())
    {
        std::wcerr << L"The environment variable " << variable << L" is not set.\n";
        std::exit(3);
    }
    return value;
}

PstStore::PstStore(std::shared_ptr<LoadedMapi> mapi, const std::filesystem::path& path, ULONG flags)
    : m_session(MakeSession(std::move(mapi)))
{
    m_session->CreateService();
    m_session->ConfigurePath(path.wstring());
    LogonOptions options;
    options.flags = flags;
    m_session->Logon(options);
}

ComPtr<IMAPIFolder> PstStore::Subtree()
{
    return Open<IMAPIFolder>(Prop(Object(), PR_IPM_SUBTREE_ENTRYID).AsBytes(), MAPI_BEST_ACCESS);
}

ComPtr<IMAPIFolder> PstStore::Folder(const std::wstring& path)
{
    ComPtr<IMAPIFolder> folder = Subtree();
    for (size_t begin = 0; begin < path.size();)
    {
        const size_t end = std::min(path.find(L'\\', begin), path.size());
        const std::wstring name = path.substr(begin, end - begin);
        begin = end + 1;
        Bytes entryId;
        for (const Row& row : Hierarchy(*folder))
            if (TextOf(row, PR_DISPLAY_NAME) == name)
                entryId = BytesOf(row, PR_ENTRYID);
        if (entryId.empty())
            Fail(MAPI_E_NOT_FOUND, L"No folder " + name);
        folder = Open<IMAPIFolder>(entryId, MAPI_BEST_ACCESS);
    }
    return folder;
}

PropertyBag PstStore::Props(IMAPIProp& object)
{
    ULONG count = 0;
    MapiBlock<SPropValue> values(Memory());
    Check(object.GetProps(nullptr, MAPI_UNICODE, &count, values.Put()), L"GetProps failed");
    return PropertyBag(CopyProps(count, values.Get()));
}

PropValue PstStore::Prop(IMAPIProp& object, ULONG tag, ULONG flags)
{
    SizedSPropTagArray(1, tags) = {1, {tag}};
    ULONG count = 0;
    MapiBlock<SPropValue> values(Memory());
    Check(object.GetProps(reinterpret_cast<LPSPropTagArray>(&tags), flags, &count, values.Put()), L"GetProps failed");
    return PropValue::From(values[0]);
}

std::vector<Row> PstStore::Rows(IMAPITable& table)
{
    std::vector<Row> rows;
    for (;;)
    {
        MapiRows set(Memory());
        Check(table.QueryRows(500, 0, set.Put()), L"QueryRows failed");
        if (set.Count() == 0)
            return rows;
        for (ULONG index = 0; index < set.Count(); ++index)
            rows.emplace_back(CopyProps(set[index].cValues, set[index].lpProps));
    }
}

std::vector<Row> PstStore::Contents(IMAPIFolder& folder, ULONG flags)
{
    ComPtr<IMAPITable> table;
    Check(folder.GetContentsTable(flags, table.Put()), L"GetContentsTable failed");
    return Rows(*table);
}

std::vector<Row> PstStore::Hierarchy(IMAPIFolder& folder, ULONG flags)
{
    ComPtr<IMAPITable> table;
    Check(folder.GetHierarchyTable(flags, table.Put()), L"GetHierarchyTable failed");
    return Rows(*table);
}

std::vector<Row> PstStore::Recipients(IMessage& message)
{
    ComPtr<IMAPITable> table;
    Check(message.GetRecipientTable(MAPI_UNICODE, table.Put()), L"GetRecipientTable failed");
    return Rows(*table);
}

std::vector<Row> PstStore::Attachments(IMessage& message)
{
    ComPtr<IMAPITable> table;
    Check(message.GetAttachmentTable(MAPI_UNICODE, table.Put()), L"GetAttachmentTable failed");
    return Rows(*table);
}

ComPtr<IMessage> PstStore::Message(IMAPIFolder& folder, const std::wstring& subject, ULONG flags)
{
    for (const Row& row : Contents(folder))
        if (TextOf(row, PR_SUBJECT) == subject)
            return Open<IMessage>(BytesOf(row, PR_ENTRYID), flags);
    Fail(MAPI_E_NOT_FOUND, L"No message " + subject);
}

std::map<std::wstring, size_t> PstStore::Tree(IMAPIFolder& folder)
{
    std::map<std::wstring, size_t> tree;
    for (const Row& row : Hierarchy(folder))
    {
        const std::wstring name = TextOf(row, PR_DISPLAY_NAME);
        const auto child = Open<IMAPIFolder>(BytesOf(row, PR_ENTRYID));
        tree[name] = Contents(*child).size();
        for (const auto& [path, count] : Tree(*child))
            tree[name + L"\\" + path] = count;
    }
    return tree;
}

Bytes PstStore::Stream(IMAPIProp& object, ULONG tag)
{
    ComPtr<IStream> stream;
    Check(object.OpenProperty(tag, &IID_IStream, 0, 0, stream.PutAs<IUnknown>()), L"OpenProperty failed");
    return ReadStream(*stream, 1 << 30);
}

HRESULT PstStore::Set(IMAPIProp& object, const std::vector<PropValue>& values)
{
    const MapiBlock<SPropValue> array(Memory(), MakePropArray(Memory(), values));
    MapiBlock<SPropProblemArray> problems(Memory());
    const HRESULT result = object.SetProps(static_cast<ULONG>(values.size()), array.Get(), problems.Put());
    return FAILED(result) || !problems ? result : problems->aProblem[0].scode;
}

PstTest::PstTest()
    : m_mapi(LoadedMapi::Load(Location(L"KIVNST_MAIL_CLIENT") / L"olmapi32.dll")),
      // Sessions load and unload the module; this keeps it, so that its count can be read at the end.
      m_provider(LoadLibraryW((Location(L"KIVNST_MAIL_CLIENT") / L"mspst32.dll").c_str())),
      m_blocks(m_mapi->Statistics().cLive)
{
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    m_folder = Location(L"KIVNST_TEST_TEMP") / L"B\u00FCro \u90AE\u4EF6" /
               WideFromUtf8(std::string(test->test_suite_name()) + " " + test->name());
    std::filesystem::remove_all(m_folder);
    std::filesystem::create_directories(m_folder);
}

PstTest::~PstTest()
{
    FreeLibrary(m_provider);
}

void PstTest::TearDown()
{
    using LiveObjectsFunction = long (*)();
    const auto live = reinterpret_cast<LiveObjectsFunction>(
        reinterpret_cast<void*>(GetProcAddress(m_provider, "TestbedLiveObjects")));
    ASSERT_NE(live, nullptr);
    EXPECT_EQ(live(), 0);
    EXPECT_EQ(m_mapi->Statistics().cLive, m_blocks) << Utf8FromWide(m_mapi->LiveBlocks());
}

std::filesystem::path PstTest::Copy(const std::filesystem::path& file) const
{
    const std::filesystem::path copy = m_folder / file.filename();
    std::filesystem::copy_file(file, copy);
    return copy;
}

HRESULT PstTest::FailToOpen(const std::filesystem::path& path, std::wstring& text, ULONG flags)
{
    const auto session = MakeSession(m_mapi);
    session->CreateService();
    session->ConfigurePath(path.wstring());
    LogonOptions options;
    options.flags = flags;
    return session->TryLogon(options, &text);
}

DWORD PstTest::RunSelf(const wchar_t* mode, const std::filesystem::path& path)
{
    wchar_t self[MAX_PATH] = L"";
    GetModuleFileNameW(nullptr, self, MAX_PATH);
    std::wstring command = L"\"" + std::wstring(self) + L"\" " + mode + L" \"" + path.wstring() + L"\"";
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!StartProcess(self, command.data(), false, nullptr, startup, process))
        return GetLastError();
    DWORD code = 0;
    WaitForSingleObject(process.hProcess, INFINITE);
    GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return code;
}

Bytes PstTest::FileBytes(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

void PstTest::WriteFile(const std::filesystem::path& file, const std::string& text)
{
    std::ofstream(file, std::ios::binary) << text;
}
} // namespace Tests
