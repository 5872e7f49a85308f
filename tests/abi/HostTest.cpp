// A host's view: exceptions that cross the module's boundary, classes derived from each wrapper, a heap of its own.
#include "mapi/SPropValueVector.h"
#include "nst/KivNstCore.h"
#include "nst/NstAttach.h"
#include "nst/NstMapiSupport.h"
#include "nst/NstMapiTable.h"
#include "nst/NstMsLogon.h"
#include "nst/NstMsProvider.h"
#include "nst/NstMsgStore.h"
#include "nst/ReadOnlyFolder.h"
#include "nst/ReadOnlyMessage.h"
#include "support/Log.h"
#include "support/MapiErrors.h"
#include "support/MapiProperties.h"
#include "support/com_wrap.h"
#include "tests/abi/OwnHeap.h"
#include "tests/common/LogCapture.h"
#include "tests/common/StoreDoubles.h"
#include "tests/common/SupportDoubles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <typeinfo>

using namespace Quillon;
using namespace Quillon::Nst;
using testing::_;
using testing::Return;

namespace
{

/// What one clause caught: the type that the object has, and its text.
struct Caught
{
    const std::type_info* type = nullptr;
    std::string text;
};

template <class Clause>
Caught CatchAs(const std::function<void()>& thrower)
{
    try
    {
        thrower();
    }
    catch (const Clause& exception)
    {
        return {&typeid(exception), exception.what()};
    }
    catch (...)
    {
    }
    return {};
}

/// Expects `thrower` to throw an Exact, which each of the clauses catches.
template <class Exact, class... Clauses>
void ExpectCaughtAs(const std::function<void()>& thrower)
{
    const Tests::LogCapture log;
    for (const Caught& caught : {CatchAs<Exact>(thrower), CatchAs<Clauses>(thrower)...})
    {
        ASSERT_NE(caught.type, nullptr);
        EXPECT_EQ(*caught.type, typeid(Exact));
        EXPECT_FALSE(caught.text.empty());
    }
}

TEST(ExceptionsOfTheLibrary, AreCaughtAsThemselvesAsTheirBasesAndAsStandardExceptions)
{
    ExpectCaughtAs<CComError, CException, std::exception>([] { com_wrap<IMsgStore>(nullptr); });
    ExpectCaughtAs<CWinError, CException, std::exception>([]
                                                          { Logging::LogToFile(L"no such folder\\no such file.log"); });
    ExpectCaughtAs<CRuntimeError, CException, std::exception>(
        [] { Mapi::SPropValueVector().AddLong(PR_DISPLAY_NAME_W, 1); });
    const auto store = Tests::MakeNice<Tests::StoreDouble>();
    ON_CALL(*store, GetProps(_, _, _, _)).WillByDefault(Return(MAPI_E_CALL_FAILED));
    ExpectCaughtAs<Mapi::CMapiError, CComError, CException, std::exception>([&]
                                                                            { Mapi::QueryItemEntryId(store.Get()); });
    ExpectCaughtAs<Mapi::ExtendedMapiError, std::exception>(
        [] { throw Mapi::ExtendedMapiError(L"text", L"component", 1, 2); });
}

TEST(ExceptionsOfTheLibrary, KeepTheirContentsWhenTheHostCopiesThem)
{
    const Tests::LogCapture log;
    std::string text;
    try
    {
        try
        {
            Logging::LogToFile(L"no such folder\\no such file.log");
        }
        catch (const CWinError& error)
        {
            text = error.what();
            throw CWinError(error);
        }
    }
    catch (const CException& error)
    {
        EXPECT_EQ(error.what(), text);
        EXPECT_EQ(error.GetHResult(), HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND));
    }
    EXPECT_FALSE(text.empty());
}

int g_destroyed = 0;

/// A host's class over a wrapper, with data and an end of its own.
template <class Wrapper>
class Derived : public Wrapper
{
public:
    template <class... Arguments>
    explicit Derived(Arguments... arguments) : Wrapper(arguments...),
                                               m_text(100, L'x')
    {
    }
    ~Derived() override
    {
        EXPECT_EQ(m_text, std::wstring(100, L'x'));
        ++g_destroyed;
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        ++m_asked;
        return Wrapper::QueryInterface(riid, object);
    }

    int m_asked = 0;

private:
    std::wstring m_text;
};

/// Makes a Derived<Wrapper>, uses it as its client does and lets go of it, the last time through the library's Release.
template <class Wrapper, class... Arguments>
void ExpectWorks(REFIID own, Arguments... arguments)
{
    g_destroyed = 0;
    auto* const object = new Derived<Wrapper>(arguments...);
    IUnknown* const unknown = object;
    void* answer = nullptr;
    EXPECT_EQ(unknown->QueryInterface(own, &answer), S_OK);
    EXPECT_EQ(answer, object);
    EXPECT_EQ(object->m_asked, 1);
    EXPECT_EQ(unknown->AddRef(), 3u);
    EXPECT_EQ(unknown->Release(), 2u);
    EXPECT_EQ(unknown->Release(), 1u);
    EXPECT_EQ(g_destroyed, 0);
    EXPECT_EQ(unknown->Release(), 0u);
    EXPECT_EQ(g_destroyed, 1);
}

TEST(ClassesOfTheHost, DeriveFromEachWrapper)
{
    const auto provider = Tests::MakeNice<Tests::ProviderDouble>();
    const auto logon = Tests::MakeNice<Tests::LogonDouble>();
    const auto store = Tests::MakeNice<Tests::StoreDouble>();
    const auto folder = Tests::MakeNice<Tests::FolderDouble>();
    const auto table = Tests::MakeNice<Tests::TableDouble>();
    const auto message = Tests::MakeNice<Tests::MessageDouble>();
    const auto attachment = Tests::MakeNice<Tests::AttachDouble>();
    const auto support = Tests::MakeNice<Tests::SupportDouble>();
    const auto section = Tests::MakeNice<Tests::ProfileSectionDouble>();
    const auto before = Tests::OwnBlocks();

    ExpectWorks<CNstMsProvider>(IID_IMSProvider, provider.Get());
    ExpectWorks<CNstMsLogon>(IID_IMSLogon, logon.Get(), store.Get());
    ExpectWorks<CNstMsgStore>(IID_IMsgStore, store.Get(), support.Get());
    ExpectWorks<CNstMapiFolder>(IID_IMAPIFolder, folder.Get(), store.Get(), support.Get());
    ExpectWorks<CReadOnlyFolder>(IID_IMAPIFolder, folder.Get(), store.Get(), support.Get());
    ExpectWorks<CNstMapiTable>(IID_IMAPITable, table.Get());
    ExpectWorks<CNstMessage>(IID_IMessage, message.Get());
    ExpectWorks<CReadOnlyMessage>(IID_IMessage, message.Get());
    ExpectWorks<CNstAttach>(IID_IAttachment, attachment.Get());
    ExpectWorks<CNstMapiSupport>(IID_IMAPISup, ATL::CComQIPtr<IMAPISupport>(support.Get()),
                                 ATL::CComQIPtr<IProfSect>(section.Get()));

    EXPECT_EQ(Tests::OwnBlocks(), before);
}

/// A host's store, which makes its own folders.
class HostStore : public CNstMsgStore
{
public:
    using CNstMsgStore::CNstMsgStore;
    using CNstMsgStore::CreateFolder;
    using CNstMsgStore::CreateMessage;
};

TEST(HeapOfTheHost, GetsAndGivesNoBlockThatIsNotItsOwn)
{
    const auto store = Tests::MakeNice<Tests::StoreDouble>();
    const auto folder = Tests::MakeNice<Tests::FolderDouble>();
    const auto message = Tests::MakeNice<Tests::MessageDouble>();
    const auto support = Tests::MakeNice<Tests::SupportDouble>();
    std::size_t before = 0;
    const auto foreign = Tests::ForeignBlocks();
    for (int round = 0; round < 10; ++round)
    {
        // What is made once and kept is made in the first round.
        if (round == 1)
            before = Tests::OwnBlocks();
        const Tests::LogCapture log;
        {
            // Wrappers that the library made, released here; a wrapper of the host's, released there.
            auto* const wrapper = new Derived<HostStore>(store.Get(), support.Get());
            EXPECT_NE(wrapper->CreateFolder(folder.Get()).p, nullptr);
            EXPECT_NE(wrapper->CreateMessage(message.Get()).p, nullptr);
            wrapper->Release();
        }
        {
            // Strings, bytes and lists that the library fills and the host destroys, and the other way round.
            StringW text = Mapi::FormatMapiPropertyTag(PR_DISPLAY_NAME_W);
            text += L" and a text that is long enough for a block of its own";
            const StringW copy(text);
            Binary bytes = CreateStoreEntryID(L"C:\\folder\\archive.pst");
            const Binary other(bytes);
            bytes = Binary();
            Mapi::SPropValueVector values;
            values.AddStringW(PR_DISPLAY_NAME_W, copy.GetString());
            values.AddBinary(PR_ENTRYID, other.GetBuffer(), static_cast<ULONG>(other.GetSize()));
            Mapi::SPropValueVector moved(std::move(values));
            values = std::move(moved);
        }
        // Exceptions, which the one throws and the other destroys.
        EXPECT_THROW(Logging::LogToFile(L"no such folder\\no such file.log"), CWinError);
        EXPECT_THROW(throw CRuntimeError(L"a text of the host"), CException);
    }
    EXPECT_EQ(Tests::ForeignBlocks(), foreign);
    EXPECT_EQ(Tests::OwnBlocks(), before);
}

TEST(HeapOfTheHost, NoticesABlockOfAnother)
{
    const auto foreign = Tests::ForeignBlocks();
    auto* const block = static_cast<std::byte*>(AllocateObject(64));
    // Read at run time, or the compiler sees what is wrong with it.
    std::byte* volatile inside = block + 32;
    operator delete(inside);
    EXPECT_EQ(Tests::ForeignBlocks(), foreign + 1);
    FreeObject(block);
}

} // namespace
