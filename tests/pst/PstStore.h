// A store of the bare PST provider for tests: a session on a file, and short ways to what a test looks at.
#pragma once

#include "common/MemoryStream.h"
#include "testbed/common/PropertyBag.h"
#include "tests/common/MailSession.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

namespace Tests
{
using namespace Testbed;

/// The folder that the environment variable names; ends the program with a message when it is not set.
std::filesystem::path Location(const wchar_t* variable);

/// One message of a folder's contents table.
using Row = PropertyBag;

/// Flags of a logon that asks for Unicode, as the library under test does.
constexpr ULONG unicodeLogon = MDB_WRITE | MDB_NO_DIALOG | MAPI_UNICODE | logonUnicode;

/// A session with the provider's service, not configured yet.
std::unique_ptr<MailSession> MakeSession(std::shared_ptr<LoadedMapi> mapi);

/// An open store. Throws `Failure` where MAPI fails.
class PstStore
{
public:
    PstStore(std::shared_ptr<LoadedMapi> mapi, const std::filesystem::path& path, ULONG flags = unicodeLogon);

    IMsgStore& Object() { return *m_session->Store(); }
    MailSession& Session() { return *m_session; }
    const MapiMemory& Memory() const { return m_session->Memory(); }

    /// Opens an entry as `Interface`; an empty entry ID opens the root folder.
    template <class Interface>
    ComPtr<Interface> Open(const Bytes& entryId, ULONG flags = 0)
    {
        ULONG type = 0;
        ComPtr<Interface> object;
        Bytes copy = entryId;
        Check(Object().OpenEntry(static_cast<ULONG>(copy.size()), reinterpret_cast<LPENTRYID>(copy.data()), nullptr,
                                 flags, &type, object.template PutAs<IUnknown>()),
              L"OpenEntry failed");
        return object;
    }

    ComPtr<IMAPIFolder> Root() { return Open<IMAPIFolder>({}); }
    /// With the best access that there is, as the next.
    ComPtr<IMAPIFolder> Subtree();
    /// The folder of that path below the IPM subtree, names separated by backslashes.
    ComPtr<IMAPIFolder> Folder(const std::wstring& path);

    /// All properties of an object, wide.
    PropertyBag Props(IMAPIProp& object);
    /// One property as GetProps gives it.
    PropValue Prop(IMAPIProp& object, ULONG tag, ULONG flags = MAPI_UNICODE);
    Bytes EntryId(IMAPIProp& object) { return Prop(object, PR_ENTRYID).AsBytes(); }

    std::vector<Row> Rows(IMAPITable& table);
    std::vector<Row> Contents(IMAPIFolder& folder, ULONG flags = MAPI_UNICODE);
    std::vector<Row> Hierarchy(IMAPIFolder& folder, ULONG flags = MAPI_UNICODE);
    std::vector<Row> Recipients(IMessage& message);
    std::vector<Row> Attachments(IMessage& message);

    /// The message of a folder with that subject. Throws when there is none.
    ComPtr<IMessage> Message(IMAPIFolder& folder, const std::wstring& subject, ULONG flags = 0);

    /// Folder paths below a folder with their message counts.
    std::map<std::wstring, size_t> Tree(IMAPIFolder& folder);

    Bytes Stream(IMAPIProp& object, ULONG tag);
    HRESULT Set(IMAPIProp& object, const std::vector<PropValue>& values);

private:
    std::unique_ptr<MailSession> m_session;
};

/// Every test has a folder of its own, and ends with no object and no MAPI block left.
class PstTest : public testing::Test
{
protected:
    PstTest();
    ~PstTest() override;

    void TearDown() override;

    std::filesystem::path Path(const std::wstring& name) const { return m_folder / name; }
    /// Copies a file of the test data into the test's folder.
    std::filesystem::path Copy(const std::filesystem::path& file) const;
    PstStore Open(const std::filesystem::path& path, ULONG flags = unicodeLogon)
    {
        return PstStore(m_mapi, path, flags);
    }
    /// The code with which a logon fails, and its text.
    HRESULT FailToOpen(const std::filesystem::path& path, std::wstring& text, ULONG flags = unicodeLogon);

    /// Runs this program as another process, to its end; gives its exit code.
    static DWORD RunSelf(const wchar_t* mode, const std::filesystem::path& path);

    static Bytes FileBytes(const std::filesystem::path& file);
    static void WriteFile(const std::filesystem::path& file, const std::string& text);

    std::shared_ptr<LoadedMapi> m_mapi;

private:
    std::filesystem::path m_folder;
    HMODULE m_provider;
    ULONG m_blocks;
};

} // namespace Tests
