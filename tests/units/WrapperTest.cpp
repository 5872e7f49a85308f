// What all wrappers share: references, interfaces, forwarded calls.
#include "mapi/MapiBinding.h"
#include "nst/KivNstCore.h"
#include "nst/NstAttach.h"
#include "nst/NstMapiSupport.h"
#include "nst/NstMapiTable.h"
#include "nst/NstMsLogon.h"
#include "nst/NstMsProvider.h"
#include "nst/NstMsgStore.h"
#include "nst/ReadOnlyFolder.h"
#include "nst/ReadOnlyMessage.h"
#include "support/Format.h"
#include "support/MapiErrors.h"
#include "tests/common/Alone.h"
#include "tests/common/ImportHook.h"
#include "tests/common/LogCapture.h"
#include "tests/common/MapiModule.h"
#include "tests/common/Properties.h"
#include "tests/common/Setting.h"
#include "tests/common/StoreDoubles.h"
#include "tests/common/SupportDoubles.h"
#include "tests/units/doubles/MapiDouble.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <initializer_list>
#include <string>

using namespace Quillon;
using namespace Quillon::Nst;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Return;
using Tests::Entry;

namespace
{

constexpr IID unknownIid = {0x12345678, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};

std::wstring MapiText(HRESULT hr, const wchar_t* callName)
{
    return Mapi::FormatMapiError(hr, callName, nullptr).GetString();
}

static_assert(sizeof(CReadOnlyFolder) == sizeof(CNstMapiFolder), "it has no fields of its own");
static_assert(sizeof(CReadOnlyMessage) == sizeof(CNstMessage), "it has no fields of its own");

/// Stands for the reference count among the fields of a wrapper.
const void* const countField = nullptr;

/// Expects the wrapper, whose count is 1, to consist of its table and these fields, each in a word of its own.
template <class Wrapper>
void ExpectFields(const Wrapper& wrapper, std::initializer_list<const void*> fields)
{
    EXPECT_EQ(sizeof(Wrapper), (fields.size() + 1) * sizeof(void*));
    const auto* at = reinterpret_cast<const BYTE*>(&wrapper);
    for (const void* const field : fields)
    {
        at += sizeof(void*);
        if (field == countField)
        {
            ULONG count = 0;
            std::memcpy(&count, at, sizeof(count));
            EXPECT_EQ(count, 1u);
        }
        else
        {
            EXPECT_EQ(std::memcmp(at, &field, sizeof(field)), 0);
        }
    }
}

/// Opens what derived classes alone may call.
class ComparingStore : public CNstMsgStore
{
public:
    using CNstMsgStore::CNstMsgStore;
    using CNstMsgStore::CompareEntryIds;
};

class StoreOverPst : public testing::Test
{
protected:
    ~StoreOverPst() override { SetUnwrapStores(false); }

    Tests::DoublePointer<testing::NiceMock<Tests::StoreDouble>> pst = Tests::MakeNice<Tests::StoreDouble>();
    Tests::DoublePointer<ComparingStore> store{new ComparingStore(pst.Get(), nullptr)};
    Tests::LogCapture log;
};

using WrapperReferences = StoreOverPst;
using WrapperInterfaces = StoreOverPst;
using ForwardedCall = StoreOverPst;
using RefusedCall = StoreOverPst;
using StoreEntryIds = StoreOverPst;

} // namespace

TEST_F(WrapperReferences, ReleaseTellsThoseThatAreLeftAndTheLastEndsTheWrapper)
{
    auto* const wrapper = new CNstMsgStore(pst.Get(), nullptr);
    EXPECT_EQ(pst->References(), 3u);
    EXPECT_EQ(wrapper->AddRef(), 2u);
    EXPECT_EQ(wrapper->AddRef(), 3u);
    EXPECT_EQ(wrapper->Release(), 2u);
    EXPECT_EQ(wrapper->Release(), 1u);
    EXPECT_EQ(pst->References(), 3u);
    EXPECT_EQ(wrapper->Release(), 0u);
    EXPECT_EQ(pst->References(), 2u) << "what the constructor took is given back";
}

TEST(WrapperFields, AreTheCountAndThePointersInTheirOrder)
{
    const auto provider = Tests::MakeNice<Tests::ProviderDouble>();
    const auto logon = Tests::MakeNice<Tests::LogonDouble>();
    const auto store = Tests::MakeNice<Tests::StoreDouble>();
    const auto folder = Tests::MakeNice<Tests::FolderDouble>();
    const auto table = Tests::MakeNice<Tests::TableDouble>();
    const auto message = Tests::MakeNice<Tests::MessageDouble>();
    const auto attach = Tests::MakeNice<Tests::AttachDouble>();
    const auto support = Tests::MakeNice<Tests::SupportDouble>();
    const auto section = Tests::MakeNice<Tests::ProfileSectionDouble>();
    IMsgStore* const storePointer = store.Get();
    IMAPISupport* const supportPointer = support.Get();
    IProfSect* const sectionPointer = section.Get();

    ExpectFields(CNstMsProvider(provider.Get()), {countField, static_cast<IMSProvider*>(provider.Get())});
    ExpectFields(CNstMsLogon(logon.Get(), storePointer),
                 {countField, static_cast<IMSLogon*>(logon.Get()), storePointer});
    ExpectFields(CNstMsgStore(storePointer, supportPointer), {storePointer, supportPointer, countField});
    ExpectFields(CNstMapiFolder(folder.Get(), storePointer, supportPointer),
                 {storePointer, static_cast<IMAPIFolder*>(folder.Get()), supportPointer, countField});
    ExpectFields(CNstMapiTable(table.Get()), {static_cast<IMAPITable*>(table.Get()), countField});
    ExpectFields(CNstMessage(message.Get()), {static_cast<IMessage*>(message.Get()), countField});
    ExpectFields(CNstAttach(attach.Get()), {static_cast<IAttach*>(attach.Get()), countField});
    ExpectFields(CNstMapiSupport(supportPointer, sectionPointer), {countField, supportPointer, sectionPointer});
}

TEST_F(WrapperInterfaces, ALogonHasNoPropertiesAndSaysNothingOfIt)
{
    const auto pstLogon = Tests::MakeNice<Tests::LogonDouble>();
    EXPECT_CALL(*pstLogon, QueryInterface).Times(0);
    const Tests::DoublePointer<CNstMsLogon> logon(new CNstMsLogon(pstLogon.Get(), nullptr));
    void* object = this;
    EXPECT_EQ(logon->QueryInterface(IID_IMAPIProp, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(WrapperInterfaces, AStoreLacksAnUnknownOneWithoutAskingThePstStore)
{
    EXPECT_CALL(*pst, QueryInterface).Times(0);
    for (const IID& iid : {unknownIid, IID_IMAPIFolder, IID_IProfSect})
    {
        void* object = this;
        EXPECT_EQ(store->QueryInterface(iid, &object), E_NOINTERFACE);
        EXPECT_EQ(object, nullptr);
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(WrapperInterfaces, HaveNowhereToGoWithoutAnAddress)
{
    EXPECT_CALL(*pst, QueryInterface).Times(0);
    EXPECT_EQ(store->QueryInterface(IID_IMsgStore, nullptr), E_POINTER);
    EXPECT_EQ(store->QueryInterface(unknownIid, nullptr), E_POINTER);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(WrapperInterfaces, AStoreOverNothingHasNone)
{
    const Tests::DoublePointer<CNstMsgStore> empty(new CNstMsgStore(nullptr, nullptr));
    SetUnwrapStores(true);
    void* object = nullptr;
    EXPECT_EQ(empty->QueryInterface(IID_IMsgStore, &object), E_POINTER);
    EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Error, L"IMsgStore::QueryInterface: " +
                                                                 std::wstring(FormatComError(E_POINTER).GetString()))));
}

TEST_F(WrapperInterfaces, AnUnwrappedStoreAnswersAsThePstStoreAndLogsAllFailuresButALackingInterface)
{
    SetUnwrapStores(true);
    void* object = nullptr;
    EXPECT_EQ(store->QueryInterface(IID_IMsgStore, &object), S_OK);
    EXPECT_EQ(object, pst.Get());
    pst->Release();
    EXPECT_EQ(store->QueryInterface(unknownIid, &object), E_NOINTERFACE);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_CALL(*pst, QueryInterface(unknownIid, &object)).WillOnce(Return(E_ACCESSDENIED));
    EXPECT_CALL(*pst, GetLastError).Times(0);
    EXPECT_EQ(store->QueryInterface(unknownIid, &object), E_ACCESSDENIED);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Entry(LogId::Error, L"IMsgStore::QueryInterface: " +
                                                    std::wstring(FormatComError(E_ACCESSDENIED).GetString()))));
}

TEST_F(ForwardedCall, LogsTheWarningErrorsReturnedAtLevelOneAndReturnsIt)
{
    EXPECT_CALL(*pst, GetPropList(5, nullptr)).WillOnce(Return(0x00040380));
    EXPECT_EQ(store->GetPropList(5, nullptr), 0x00040380);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Entry(LogId::Warning, MapiText(MAPI_W_ERRORS_RETURNED, L"IMsgStore::GetPropList"))));
}

TEST_F(ForwardedCall, SaysNothingOfNamesThatHaveNoIdentifier)
{
    EXPECT_CALL(*pst, GetIDsFromNames).WillOnce(Return(MAPI_W_ERRORS_RETURNED)).WillOnce(Return(MAPI_E_NOT_FOUND));
    EXPECT_EQ(store->GetIDsFromNames(1, nullptr, 0, nullptr), MAPI_W_ERRORS_RETURNED);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(store->GetIDsFromNames(1, nullptr, 0, nullptr), MAPI_E_NOT_FOUND);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Entry(LogId::Error, MapiText(MAPI_E_NOT_FOUND, L"IMsgStore::GetIDsFromNames"))));
}

TEST_F(ForwardedCall, LogsALineAlsoWhenThereIsNoExtendedErrorToBeHad)
{
    EXPECT_CALL(*pst, GetLastError(MAPI_E_DISK_ERROR, static_cast<ULONG>(MAPI_UNICODE), _))
        .WillOnce(Return(MAPI_E_CALL_FAILED));
    EXPECT_CALL(*pst, SaveChanges(0)).WillOnce(Return(MAPI_E_DISK_ERROR));
    EXPECT_EQ(store->SaveChanges(0), MAPI_E_DISK_ERROR);
    EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Error, MapiText(MAPI_E_DISK_ERROR, L"IMsgStore::SaveChanges"))));
}

TEST_F(ForwardedCall, NeedsNoMemoryUnlessThereIsSomethingToLog)
{
    const Tests::NoMemory noMemory;
    EXPECT_CALL(*pst, SaveChanges).WillOnce(Return(S_OK));
    EXPECT_CALL(*pst, OpenProperty).WillOnce(Return(MAPI_E_NOT_FOUND));
    EXPECT_EQ(store->SaveChanges(0), S_OK);
    EXPECT_EQ(store->OpenProperty(PR_SEARCH, nullptr, 0, 0, nullptr), MAPI_E_NOT_FOUND);
    void* object = nullptr;
    EXPECT_EQ(store->QueryInterface(IID_IMAPIProp, &object), S_OK);
    store->Release();
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(RefusedCall, IsRefusedAlsoWithoutTheMemoryToSayWhat)
{
    const auto pstFolder = Tests::MakeNice<Tests::FolderDouble>();
    const auto pstMessage = Tests::MakeNice<Tests::MessageDouble>();
    const Tests::DoublePointer<CReadOnlyFolder> folder(new CReadOnlyFolder(pstFolder.Get(), nullptr, nullptr));
    const Tests::DoublePointer<CReadOnlyMessage> message(new CReadOnlyMessage(pstMessage.Get()));
    EXPECT_CALL(*pst, OpenProperty).Times(0);
    EXPECT_CALL(*pst, SetProps).Times(0);
    EXPECT_CALL(*pst, DeleteProps).Times(0);
    SizedSPropTagArray(1, tags) = {1, {PR_DISPLAY_NAME_W}};
    auto* const array = reinterpret_cast<SPropTagArray*>(&tags);
    SPropValue value = {};
    value.ulPropTag = PR_DISPLAY_NAME_W;
    struct Row
    {
        const wchar_t* line;
        bool hasDetails;
        std::function<HRESULT()> call;
    };
    const Row rows[] = {
        {L"IMsgStore::OpenProperty called on read-only archive store; returning MAPI_E_NO_ACCESS: ", false,
         [&] { return store->OpenProperty(PR_DISPLAY_NAME_W, nullptr, 0, 0, nullptr); }},
        {L"IMsgStore::SetProps called on read-only archive store; returning MAPI_E_NO_ACCESS:", true,
         [&] { return store->SetProps(1, &value, nullptr); }},
        {L"IMsgStore::DeleteProps called on read-only archive store; returning MAPI_E_NO_ACCESS:", true,
         [&] { return store->DeleteProps(array, nullptr); }},
        {L"IMAPIFolder::OpenProperty called on read-only folder; returning MAPI_E_NO_ACCESS: ", false,
         [&] { return folder->OpenProperty(PR_DISPLAY_NAME_W, nullptr, 0, 0, nullptr); }},
        {L"IMAPIFolder::SetProps called on read-only folder; returning MAPI_E_NO_ACCESS:", true,
         [&] { return folder->SetProps(1, &value, nullptr); }},
        {L"IMAPIFolder::DeleteProps called on read-only folder; returning MAPI_E_NO_ACCESS:", true,
         [&] { return folder->DeleteProps(array, nullptr); }},
        {L"IMessage::SetProps called on read-only message; returning MAPI_E_NO_ACCESS:", true,
         [&] { return message->SetProps(1, &value, nullptr); }},
        {L"IMessage::DeleteProps called on read-only message; returning MAPI_E_NO_ACCESS:", true,
         [&] { return message->DeleteProps(array, nullptr); }},
    };
    for (const Row& row : rows)
    {
        log.Take();
        {
            const Tests::NoMemory noMemory;
            EXPECT_EQ(row.call(), MAPI_E_NO_ACCESS);
        }
        std::vector<Tests::LogLine> told;
        for (const Tests::LogLine& line : log.Take())
            if (line.level != LogId::Exception) // that there is no memory
                told.push_back(line);
        if (row.hasDetails)
            EXPECT_THAT(told, ElementsAre(Entry(LogId::Warning, row.line),
                                          Tests::Detail(LogId::Warning, L"(no memory for the property tags)")));
        else
            EXPECT_THAT(told, ElementsAre(Entry(LogId::Warning, row.line)));
    }
}

TEST_ALONE(StoreTop, IsGivenAlsoWhenTheAllocationWarnsAndTheWarningIsTold)
{
    const Tests::TempFolder folder;
    Tests::CopyDouble(L"MapiDouble.dll", folder / L"olmapi32.dll");
    const HMODULE module = LoadLibraryW((folder / L"olmapi32.dll").c_str());
    ASSERT_EQ(Mapi::GetMapiModule(), module);
    auto& functions = *reinterpret_cast<MapiDouble*>(reinterpret_cast<void*>(GetProcAddress(module, "mapiDouble")));
    functions.freeBuffer = [](LPVOID block) -> ULONG
    {
        Tests::MapiModule::Get().Free(block);
        return 0;
    };
    functions.allocateMore = [](ULONG size, LPVOID object, LPVOID* block) -> SCODE
    {
        *block = Tests::MapiModule::Get().AllocateMore(size, object);
        return MAPI_W_ERRORS_RETURNED;
    };

    const auto pst = Tests::MakeNice<Tests::StoreDouble>();
    const Tests::DoublePointer<CNstMsgStore> store(new CNstMsgStore(pst.Get(), nullptr));
    ON_CALL(*pst, GetProps).WillByDefault(Tests::GiveProps(S_OK, {Tests::BinaryValue(PR_IPM_SUBTREE_ENTRYID, {9})}));
    Tests::GiveProperty(*pst, Tests::BinaryValue(archiveSubtreeEntryIdTag, {1, 2, 3}));
    for (const bool modify : {false, true})
    {
        SetModifyStores(modify);
        const Tests::LogCapture log;
        ULONG count = 0;
        SPropValue* values = nullptr;
        EXPECT_EQ(store->GetProps(nullptr, 0, &count, &values), S_OK);
        ASSERT_EQ(count, 1u);
        EXPECT_EQ(Tests::BytesOf(values[0]), (Tests::Bytes{1, 2, 3}));
        Tests::MapiModule::Get().Free(values);
        EXPECT_THAT(log.Lines(),
                    ElementsAre(Tests::Event(L"Non-success condition during COM call", L"NstMsgStore.cpp",
                                             modify ? L"Quillon::Nst::CNstMsgStore::OverrideModifiableStoreProperties"
                                                    : L"Quillon::Nst::CNstMsgStore::OverrideStoreProperties",
                                             L"MAPI_W_ERRORS_RETURNED (0x00040380)")));
    }
}

TEST_F(StoreEntryIds, OfWhichOneIsNullDifferWithoutAskingThePstStore)
{
    const BYTE bytes[] = {1, 2, 3};
    const Binary some(bytes, sizeof(bytes));
    EXPECT_CALL(*pst, CompareEntryIDs).Times(0);
    EXPECT_FALSE(store->CompareEntryIds(some, Binary()));
    EXPECT_FALSE(store->CompareEntryIds(Binary(), some));
}

TEST(SupportSections, ThatAreAbsentAreNotLoggedButOtherFailuresAre)
{
    const Tests::LogCapture log;
    const auto mapi = Tests::MakeNice<Tests::SupportDouble>();
    const Tests::DoublePointer<CNstMapiSupport> support(
        new CNstMapiSupport(ATL::CComQIPtr<IMAPISupport>(static_cast<IMAPISupport*>(mapi.Get())), nullptr));
    EXPECT_CALL(*mapi, OpenProfileSection).WillOnce(Return(MAPI_E_NOT_FOUND)).WillOnce(Return(MAPI_E_UNCONFIGURED));
    EXPECT_EQ(support->OpenProfileSection(nullptr, MAPI_MODIFY, nullptr), MAPI_E_NOT_FOUND);
    EXPECT_THAT(log.Lines(), IsEmpty());
    EXPECT_EQ(support->OpenProfileSection(nullptr, MAPI_MODIFY, nullptr), MAPI_E_UNCONFIGURED);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Entry(LogId::Error, MapiText(MAPI_E_UNCONFIGURED, L"IMAPISupport::OpenProfileSection"))));
}
