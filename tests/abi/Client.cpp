// A mail client's run over a host module, written out line by line: configures the service, fills an archive, reads it
// again and is refused. It links nothing of the library, so host and client may be of different C++ ABIs: what they
// share is MAPI's interfaces alone, which it gets from mapi32.dll.
//
//     abi-client HOST FOLDER
//
// HOST is the host's file, which MAPI has to find by its name (that ends in "32"): beside this program, say. FOLDER
// must be there and empty; the library's log is left in it as library.log.
#include "common/Boundary.h"
#include "common/Text.h"
#include "host/HostSettings.h"
#include "tests/common/MapiClient.h"

#include <windows.h>

#include <cstdio>
#include <string>
#include <vector>

using namespace Common;

namespace
{
void Line(const std::string& text)
{
    std::printf("%s\n", text.c_str());
}

std::string Code(HRESULT hr)
{
    char text[16];
    snprintf(text, sizeof(text), "0x%08lX", static_cast<unsigned long>(hr));
    return text;
}

void Report(const char* what, HRESULT hr)
{
    Line(std::string(what) + ": " + Code(hr));
}

/// The rows of a table with these columns.
class Rows
{
public:
    Rows(const MapiMemory& memory, IMAPITable* table, LPSPropTagArray columns) : m_memory(memory)
    {
        Report("SetColumns", table->SetColumns(columns, TBL_BATCH));
        Report("QueryRows", table->QueryRows(100, 0, &m_rows));
    }
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;
    ~Rows() { FreeRows(m_memory, m_rows); }

    ULONG Count() const { return m_rows ? m_rows->cRows : 0; }
    const SPropValue& At(ULONG row, ULONG column) const { return m_rows->aRow[row].lpProps[column]; }

private:
    const MapiMemory& m_memory;
    LPSRowSet m_rows = nullptr;
};

std::string TextOf(const SPropValue& value)
{
    return PROP_TYPE(value.ulPropTag) == PT_UNICODE ? Utf8FromWide(value.Value.lpszW) : "-";
}

/// A property's value.
class Property
{
public:
    Property(const MapiMemory& memory, IMAPIProp* object, ULONG tag) : m_memory(memory)
    {
        SizedSPropTagArray(1, tags) = {1, {tag}};
        ULONG count = 0;
        const HRESULT hr = object->GetProps(reinterpret_cast<LPSPropTagArray>(&tags), MAPI_UNICODE, &count, &m_value);
        if (hr != S_OK)
            Report("GetProps", hr);
    }
    Property(const Property&) = delete;
    Property& operator=(const Property&) = delete;
    ~Property() { m_memory.Free(m_value); }

    const SPropValue* operator->() const { return m_value; }
    const SPropValue& operator*() const { return *m_value; }

private:
    const MapiMemory& m_memory;
    LPSPropValue m_value = nullptr;
};

template <class Object>
ComPtr<Object> OpenAs(IMsgStore* store, const SBinary& entryId, ULONG flags, const char* what)
{
    ULONG type = 0;
    ComPtr<IUnknown> object;
    const HRESULT hr =
        store->OpenEntry(entryId.cb, reinterpret_cast<LPENTRYID>(entryId.lpb), nullptr, flags, &type, object.Put());
    Line(std::string(what) + ": " + Code(hr) + ", type " + std::to_string(type));
    ComPtr<Object> opened;
    if (SUCCEEDED(hr))
        opened = ComPtr<Object>(static_cast<Object*>(object.Get()));
    return opened;
}

void Fill(const MapiMemory& memory, IMsgStore* store)
{
    const Property subtree(memory, store, PR_IPM_SUBTREE_ENTRYID);
    const auto root = OpenAs<IMAPIFolder>(store, subtree->Value.bin, MAPI_MODIFY, "root");
    ComPtr<IMAPIFolder> folder;
    Report("CreateFolder", root->CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>(L"Letters"), nullptr, nullptr,
                                              MAPI_UNICODE, folder.Put()));
    for (const wchar_t* subject : {L"First", L"Zweiter \u00FC", L"Third"})
    {
        ComPtr<IMessage> message;
        Report("CreateMessage", folder->CreateMessage(nullptr, 0, message.Put()));
        SPropValue values[2] = {};
        values[0].ulPropTag = PR_SUBJECT_W;
        values[0].Value.lpszW = const_cast<LPWSTR>(subject);
        values[1].ulPropTag = PR_MESSAGE_CLASS_W;
        values[1].Value.lpszW = const_cast<LPWSTR>(L"IPM.Note");
        Report("SetProps", message->SetProps(2, values, nullptr));
        ULONG number = 0;
        ComPtr<IAttach> attachment;
        Report("CreateAttach", message->CreateAttach(nullptr, 0, &number, attachment.Put()));
        values[0].ulPropTag = PR_ATTACH_LONG_FILENAME_W;
        values[0].Value.lpszW = const_cast<LPWSTR>(L"note.txt");
        values[1].ulPropTag = PR_ATTACH_METHOD;
        values[1].Value.l = ATTACH_BY_VALUE;
        Report("SetProps", attachment->SetProps(2, values, nullptr));
        Report("SaveChanges", attachment->SaveChanges(0));
        Report("SaveChanges", message->SaveChanges(0));
    }
}

void ReadMessage(const MapiMemory& memory, IMsgStore* store, const SBinary& entryId)
{
    const auto message = OpenAs<IMessage>(store, entryId, 0, "message");
    const Property subject(memory, message.Get(), PR_SUBJECT_W);
    Line("  subject: " + TextOf(*subject));
    ComPtr<IAttach> attachment;
    Report("OpenAttach", message->OpenAttach(0, nullptr, 0, attachment.Put()));
    const Property name(memory, attachment.Get(), PR_ATTACH_LONG_FILENAME_W);
    Line("  attachment: " + TextOf(*name));
    SPropValue value = *subject;
    Report("SetProps", message->SetProps(1, &value, nullptr));
    Report("SaveChanges", message->SaveChanges(0));
    ComPtr<IMAPITable> recipients;
    Report("GetRecipientTable", message->GetRecipientTable(0, recipients.Put()));
}

void Read(const MapiMemory& memory, IMsgStore* store)
{
    const Property mask(memory, store, PR_STORE_SUPPORT_MASK);
    Line("support mask: " + Code(mask->Value.l));
    const Property subtree(memory, store, PR_IPM_SUBTREE_ENTRYID);
    const auto root = OpenAs<IMAPIFolder>(store, subtree->Value.bin, 0, "root");
    ComPtr<IMAPITable> hierarchy;
    Report("GetHierarchyTable", root->GetHierarchyTable(MAPI_UNICODE, hierarchy.Put()));
    SizedSPropTagArray(2, columns) = {2, {PR_ENTRYID, PR_DISPLAY_NAME_W}};
    const Rows folders(memory, hierarchy.Get(), reinterpret_cast<LPSPropTagArray>(&columns));
    for (ULONG row = 0; row < folders.Count(); ++row)
    {
        Line("folder " + TextOf(folders.At(row, 1)));
        const auto folder = OpenAs<IMAPIFolder>(store, folders.At(row, 0).Value.bin, 0, "folder");
        ComPtr<IMAPITable> contents;
        Report("GetContentsTable", folder->GetContentsTable(MAPI_UNICODE, contents.Put()));
        BOOKMARK bookmark = 0;
        Report("CreateBookmark", contents->CreateBookmark(&bookmark));
        Report("FreeBookmark", contents->FreeBookmark(bookmark));
        SizedSPropTagArray(1, entryIds) = {1, {PR_ENTRYID}};
        const Rows messages(memory, contents.Get(), reinterpret_cast<LPSPropTagArray>(&entryIds));
        for (ULONG each = 0; each < messages.Count(); ++each)
            ReadMessage(memory, store, messages.At(each, 0).Value.bin);
        ComPtr<IMessage> message;
        Report("CreateMessage", folder->CreateMessage(nullptr, 0, message.Put()));
        ComPtr<IMAPIFolder> inner;
        Report("CreateFolder", folder->CreateFolder(FOLDER_GENERIC, const_cast<LPTSTR>(L"Inner"), nullptr, nullptr,
                                                    MAPI_UNICODE, inner.Put()));
        Report("EmptyFolder", folder->EmptyFolder(0, nullptr, 0));
    }
    Report("SetReceiveFolder", store->SetReceiveFolder(nullptr, 0, 0, nullptr));
}

// The name under which a host's file is registered: without the "32" that MAPI adds.
std::wstring RegisteredName(const std::filesystem::path& host)
{
    std::wstring stem = host.stem().wstring();
    if (!stem.ends_with(L"32"))
        Fail(MAPI_E_INVALID_PARAMETER, L"The host's name does not end in 32.");
    return stem.substr(0, stem.size() - 2) + host.extension().wstring();
}

int Run(const std::filesystem::path& host, const std::filesystem::path& folder)
{
    constexpr auto serviceName = L"ABI CLIENT";
    const Tests::MapiClient client;
    const Tests::InstalledTestService installed(serviceName, RegisteredName(host), L"ServiceEntry");
    const Tests::TestProfile profile(client);
    const MAPIUID service = profile.CreateService(serviceName);
    const auto logOn = [&](LONG options, const auto& work)
    {
        profile.Configure(service, {PropValue::String(Tags::offlineStorePathW, (folder / "archive.pst").wstring()),
                                    PropValue::String(PR_ARCHIVE_HOST_LOG_FILE, (folder / "library.log").wstring()),
                                    PropValue::Long(PR_ARCHIVE_HOST_OPTIONS, options)});
        const Tests::TestSession session(client, profile.Name());
        const ComPtr<IMsgStore> store = session.OpenStore(&service);
        Line("logged on with options " + std::to_string(options));
        work(client.Memory(), store.Get());
    };
    logOn(ArchiveHost::OptionPlainWrappers | ArchiveHost::OptionModifyStores, Fill);
    logOn(0, Read);
    Line("done");
    return 0;
}
} // namespace

int wmain(int count, wchar_t** arguments) // NOLINT(misc-use-internal-linkage)
{
    if (count != 3)
    {
        Line("usage: abi-client HOST FOLDER");
        return 2;
    }
    try
    {
        return Run(arguments[1], arguments[2]);
    }
    catch (const std::exception& error)
    {
        Line(std::string("failed: ") + error.what());
        return 1;
    }
}
