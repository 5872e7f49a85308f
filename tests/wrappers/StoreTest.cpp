// CNstMsgStore.
#include "nst/NstMsgStore.h"

#include "nst/NstMapiFolder.h"
#include "nst/NstMessage.h"
#include "nst/ReadOnlyFolder.h"
#include "nst/ReadOnlyMessage.h"
#include "support/MapiProperties.h"
#include "tests/wrappers/Recorder.h"
#include "tests/wrappers/Setting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

using namespace Quillon::Nst;
using Quillon::LogId;
using testing::_;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Return;

namespace Tests
{
namespace
{

constexpr auto file = L"NstMsgStore.cpp";
constexpr auto getProps = L"Quillon::Nst::CNstMsgStore::GetProps";
constexpr ULONG subtreeTag = 0x7FE20102;
constexpr unsigned ipmSubtree = 0x35E00102;
constexpr ULONG writable[] = {0x3607000D, 0x7FE70102, 0x7FE80102, 0x7FE90040, 0x7FEB001F};

class StoreWrapper : public testing::Test
{
protected:
    DoublePointer<testing::NiceMock<StoreDouble>> pst = MakeNice<StoreDouble>();
    DoublePointer<testing::NiceMock<SupportDouble>> support = MakeNice<SupportDouble>();
    DoublePointer<CNstMsgStore> store = Wrap<CNstMsgStore>(pst.Get(), support.Get());
    LogCapture log;
};

struct MaskCase
{
    ULONG tag;
    ULONG before;
    ULONG archive;
    ULONG modifiable;
};

TEST_F(StoreWrapper, RewritesItsAccessAndCapabilities)
{
    static constexpr MaskCase cases[] = {
        {0x0FF40003, 0x3F, 2, 0x3F},
        {0x0FF40003, 0, 2, 0},
        {0x0FF70003, 1, 0, 1},
        {0x340D0003, 0x0025001D, 0x00050007, 0x0005001D},
        {0x340D0003, 0, 2, 0},
        {0x340D0003, 0xFFFFFFFF, 0xFFDFFFE7, 0xFFDFFFFF},
        {0x340F0003, 0x0025001D, 0x00050007, 0x0005001D},
        {0x340F0003, 0x00200000, 2, 0},
        // Not these: the error value of a missing property, the same identifier with another type, others.
        {0x0FF4000A, 0x8004010F, 0x8004010F, 0x8004010F},
        {0x0FF40002, 0x3F, 0x3F, 0x3F},
        {0x66390003, 0x7FB, 0x7FB, 0x7FB},
        {0x36010003, 0x3F, 0x3F, 0x3F},
    };
    for (const bool modify : {false, true})
    {
        const ModifyStores setting(modify);
        std::vector<Property> properties;
        for (const MaskCase& row : cases)
            properties.push_back(NumberValue(row.tag, row.before));
        ON_CALL(*pst, GetProps).WillByDefault(GiveProps(S_OK, properties));
        Values values;
        EXPECT_EQ(values.Read(store), S_OK);
        ASSERT_EQ(values.Count(), std::size(cases));
        for (std::size_t index = 0; index < std::size(cases); ++index)
        {
            EXPECT_EQ(values[index].ulPropTag, cases[index].tag);
            EXPECT_EQ(static_cast<ULONG>(values[index].Value.l),
                      modify ? cases[index].modifiable : cases[index].archive)
                << std::hex << cases[index].tag << " of " << cases[index].before;
        }
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(StoreWrapper, GivesTheArchiveSubtreeRootAsItsTopInOneBlock)
{
    const Bytes root = {0, 0, 0, 0, 1, 2, 3, 4, 5};
    for (const bool modify : {false, true})
    {
        const ModifyStores setting(modify);
        EXPECT_CALL(*pst, GetProps(nullptr, 0, _, _))
            .WillOnce(GiveProps(
                S_OK, {BinaryValue(ipmSubtree, {9, 9}), NumberValue(PR_ACCESS, 0x3F), BinaryValue(ipmSubtree, {8})}));
        EXPECT_CALL(*pst, GetProps(Tags(std::vector<ULONG>{subtreeTag}), _, _, _))
            .Times(2)
            .WillRepeatedly(GiveProps(S_OK, {BinaryValue(subtreeTag, root)}));
        Values values;
        EXPECT_EQ(values.Read(store), S_OK);
        EXPECT_EQ(BytesOf(values[0]), root);
        EXPECT_EQ(values[0].ulPropTag, ipmSubtree);
        EXPECT_EQ(BytesOf(values[2]), root);
        testing::Mock::VerifyAndClearExpectations(pst.Get());
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(StoreWrapper, FailsForTheTopWhenThereIsNoSubtreeRootAndLeavesTheArrayToTheCaller)
{
    GiveNoProperty(*pst, subtreeTag);
    ON_CALL(*pst, GetProps(nullptr, _, _, _))
        .WillByDefault(GiveProps(S_OK, {NumberValue(PR_ACCESS, 1), BinaryValue(ipmSubtree, {9})}));
    for (const bool modify : {false, true})
    {
        const ModifyStores setting(modify);
        Values values;
        EXPECT_EQ(values.Read(store), E_FAIL);
        ASSERT_TRUE(values);
        EXPECT_EQ(values.Count(), 2u);
        EXPECT_EQ(BytesOf(values[1]), Bytes{9});
        EXPECT_THAT(log.Take(),
                    ElementsAre(Throwing(file,
                                         modify ? L"Quillon::Nst::CNstMsgStore::OverrideModifiableStoreProperties"
                                                : L"Quillon::Nst::CNstMsgStore::OverrideStoreProperties",
                                         L"KIV TIS not configured"),
                                Caught(file, getProps, L"KIV TIS not configured")));
    }
    // Without the top in the list, nothing is amiss.
    ON_CALL(*pst, GetProps(nullptr, _, _, _)).WillByDefault(GiveProps(S_OK, {NumberValue(PR_ACCESS, 1)}));
    Values values;
    EXPECT_EQ(values.Read(store), S_OK);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(StoreWrapper, FailsWithTheCodeOfAMissingAllocation)
{
    GiveProperty(*pst, BinaryValue(subtreeTag, {1, 2, 3}));
    ON_CALL(*pst, GetProps(nullptr, _, _, _))
        .WillByDefault(
            [](auto tags, auto flags, auto count, auto values)
            {
                const HRESULT hr =
                    GiveProps(MAPI_W_ERRORS_RETURNED, {BinaryValue(ipmSubtree, {9})})(tags, flags, count, values);
                MapiModule::Get().FailAllocation(3); // the two are the read of the subtree root's entry ID
                return hr;
            });
    for (const bool modify : {false, true})
    {
        const ModifyStores setting(modify);
        Values values;
        EXPECT_EQ(values.Read(store), MAPI_E_NOT_ENOUGH_MEMORY);
        EXPECT_EQ(BytesOf(values[0]), Bytes{9});
        EXPECT_THAT(log.Take(),
                    ElementsAre(Throwing(file,
                                         modify ? L"Quillon::Nst::CNstMsgStore::OverrideModifiableStoreProperties"
                                                : L"Quillon::Nst::CNstMsgStore::OverrideStoreProperties",
                                         ComText(MAPI_E_NOT_ENOUGH_MEMORY)),
                                Caught(file, getProps, ComText(MAPI_E_NOT_ENOUGH_MEMORY))));
    }
}

TEST_F(StoreWrapper, HandsTheWarningOfMissingPropertiesOnAndLogsOnlyOthers)
{
    for (const HRESULT hr : {MAPI_W_ERRORS_RETURNED, MAPI_W_POSITION_CHANGED})
    {
        EXPECT_CALL(*pst, GetProps)
            .WillOnce(GiveProps(hr, {NumberValue(PR_ACCESS, 0x3F), ErrorValue(PR_ACCESS_LEVEL, MAPI_E_NOT_FOUND)}));
        Values values;
        EXPECT_EQ(values.Read(store), hr);
        EXPECT_EQ(values[0].Value.l, 2);
        EXPECT_EQ(values[1].Value.err, MAPI_E_NOT_FOUND);
        if (hr == MAPI_W_ERRORS_RETURNED)
            EXPECT_THAT(log.Take(), IsEmpty());
        else
            EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Warning, MapiText(hr))));
    }
}

/// A host's store.
class HostStore : public CNstMsgStore
{
public:
    using CNstMsgStore::CanChangeStoreProperty;
    using CNstMsgStore::CNstMsgStore;
    using CNstMsgStore::CompareEntryIds;

    enum class Factories
    {
        Library,
        ReadOnly,
        Null,
        Throwing
    };
    Factories factories = Factories::Library;
    std::function<void(const char*, SPropValue*, ULONG)> hook;

protected:
    ATL::CComQIPtr<IMAPIFolder> CreateFolder(const ATL::CComQIPtr<IMAPIFolder>& folder) override
    {
        switch (factories)
        {
        case Factories::ReadOnly:
        {
            ATL::CComQIPtr<IMAPIFolder> made;
            made.Attach(new CReadOnlyFolder(folder, this, nullptr));
            return made;
        }
        case Factories::Null:
            return nullptr;
        case Factories::Throwing:
            throw Quillon::CComError(MAPI_E_CORRUPT_DATA);
        default:
            return CNstMsgStore::CreateFolder(folder);
        }
    }
    ATL::CComQIPtr<IMessage> CreateMessage(const ATL::CComQIPtr<IMessage>& message) override
    {
        switch (factories)
        {
        case Factories::ReadOnly:
        {
            ATL::CComQIPtr<IMessage> made;
            made.Attach(new CReadOnlyMessage(message));
            return made;
        }
        case Factories::Null:
            return nullptr;
        case Factories::Throwing:
            throw Quillon::CComError(MAPI_E_CORRUPT_DATA);
        default:
            return CNstMsgStore::CreateMessage(message);
        }
    }
    void OverrideStoreProperties(SPropValue* props, ULONG count) override
    {
        if (hook)
            hook("archive", props, count);
        else
            CNstMsgStore::OverrideStoreProperties(props, count);
    }
    void OverrideModifiableStoreProperties(SPropValue* props, ULONG count) override
    {
        if (hook)
            hook("modifiable", props, count);
        else
            CNstMsgStore::OverrideModifiableStoreProperties(props, count);
    }
};

class DerivedStore : public StoreWrapper
{
protected:
    DoublePointer<HostStore> host = Wrap<HostStore>(pst.Get(), support.Get());
};

TEST_F(DerivedStore, IsAskedToRewriteByTheHookOfTheSwitch)
{
    std::vector<std::string> calls;
    host->hook = [&calls](const char* name, SPropValue* props, ULONG count)
    {
        calls.push_back(std::string(name) + " " + std::to_string(count));
        props[0].Value.l = 77;
    };
    ON_CALL(*pst, GetProps)
        .WillByDefault(
            GiveProps(MAPI_W_ERRORS_RETURNED, {NumberValue(PR_ACCESS, 1), ErrorValue(PR_SUBJECT_W, MAPI_E_NOT_FOUND)}));
    {
        Values values;
        EXPECT_EQ(values.Read(host), MAPI_W_ERRORS_RETURNED);
        EXPECT_EQ(values[0].Value.l, 77);
    }
    {
        const ModifyStores setting(true);
        Values values;
        EXPECT_EQ(values.Read(host), MAPI_W_ERRORS_RETURNED);
    }
    // Not after a failure.
    ON_CALL(*pst, GetProps).WillByDefault(Return(MAPI_E_CORRUPT_DATA));
    Values values;
    EXPECT_EQ(values.Read(host), MAPI_E_CORRUPT_DATA);
    EXPECT_THAT(calls, ElementsAre("archive 2", "modifiable 2"));
    EXPECT_THAT(log.Lines(), ElementsAre(Throwing(file, getProps, MapiText(MAPI_E_CORRUPT_DATA)),
                                         Caught(file, getProps, MapiText(MAPI_E_CORRUPT_DATA))));
}

TEST_F(DerivedStore, TurnsAHooksExceptionIntoItsCodeAndLeavesTheArrayToTheCaller)
{
    host->hook = [](const char*, SPropValue*, ULONG) { throw Quillon::CWinError(ERROR_DISK_FULL); };
    ON_CALL(*pst, GetProps).WillByDefault(GiveProps(S_OK, {NumberValue(PR_ACCESS, 1)}));
    Values values;
    EXPECT_EQ(values.Read(host), HRESULT_FROM_WIN32(ERROR_DISK_FULL));
    EXPECT_TRUE(values);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Caught(file, getProps, Quillon::CWinError(ERROR_DISK_FULL).Format().GetString())));
}

TEST_F(DerivedStore, LetsAForeignExceptionThroughWithItsReferencesGivenBack)
{
    host->hook = [](const char*, SPropValue*, ULONG) { throw std::runtime_error("not the library's"); };
    ON_CALL(*pst, GetProps).WillByDefault(GiveProps(S_OK, {NumberValue(PR_ACCESS, 1)}));
    const ULONG references = pst->References();
    ULONG count = 0;
    SPropValue* values = nullptr;
    // By its slot: the headers tell the compiler that a MAPI method throws nothing.
    EXPECT_THROW(
        CallSlot(host.Get(), 5, {0, 0, reinterpret_cast<RawArgument>(&count), reinterpret_cast<RawArgument>(&values)}),
        std::runtime_error);
    EXPECT_EQ(pst->References(), references);
    EXPECT_THAT(log.Lines(), IsEmpty());
    MapiModule::Get().Free(values);
}

TEST_F(DerivedStore, AddsMemoryThatTheCallersOneFreeReleases)
{
    host->hook = [](const char*, SPropValue* props, ULONG)
    {
        props[0].ulPropTag = PR_SUBJECT_W;
        props[0].Value.lpszW = static_cast<wchar_t*>(MapiModule::Get().AllocateMore(sizeof(wchar_t), props));
        props[0].Value.lpszW[0] = L'\0';
    };
    ON_CALL(*pst, GetProps).WillByDefault(GiveProps(S_OK, {NumberValue(PR_ACCESS, 1)}));
    Values values;
    EXPECT_EQ(values.Read(host), S_OK);
    EXPECT_EQ(values[0].ulPropTag, PR_SUBJECT_W);
}

TEST_F(DerivedStore, AllowsFivePropertiesAlwaysAndAllWhileModificationIsOn)
{
    for (const ULONG tag : writable)
        EXPECT_TRUE(HostStore::CanChangeStoreProperty(tag)) << std::hex << tag;
    // Whole tags: another type of an allowed identifier is not allowed.
    for (const ULONG tag : {0x7FEA0102u, 0x7FE70040u, 0x7FEB001Eu, 0x7FE20102u, ipmSubtree, 0u})
    {
        EXPECT_FALSE(HostStore::CanChangeStoreProperty(tag)) << std::hex << tag;
        const ModifyStores setting(true);
        EXPECT_TRUE(HostStore::CanChangeStoreProperty(tag)) << std::hex << tag;
    }
}

TEST_F(DerivedStore, ComparesEntryIdsByTheStore)
{
    const BYTE one[] = {1, 2, 3};
    const BYTE two[] = {4, 5};
    const Quillon::Binary a(one, 3);
    const Quillon::Binary b(two, 2);
    const Quillon::Binary null;
    EXPECT_CALL(*pst, CompareEntryIDs).Times(0);
    EXPECT_FALSE(host->CompareEntryIds(a, null));
    EXPECT_FALSE(host->CompareEntryIds(null, b));
    testing::Mock::VerifyAndClearExpectations(pst.Get());

    const auto answer = [&](HRESULT hr, ULONG result)
    {
        return [=](ULONG size1, ENTRYID* id1, ULONG size2, ENTRYID* id2, ULONG flags, ULONG* output)
        {
            EXPECT_EQ(Bytes(reinterpret_cast<BYTE*>(id1), reinterpret_cast<BYTE*>(id1) + size1), (Bytes{1, 2, 3}));
            EXPECT_EQ(Bytes(reinterpret_cast<BYTE*>(id2), reinterpret_cast<BYTE*>(id2) + size2), (Bytes{4, 5}));
            EXPECT_EQ(flags, 0u);
            *output = result;
            return hr;
        };
    };
    EXPECT_CALL(*pst, CompareEntryIDs)
        .WillOnce(answer(S_OK, TRUE))
        .WillOnce(answer(S_OK, FALSE))
        .WillOnce(answer(S_OK, 2))
        .WillOnce(answer(MAPI_E_UNKNOWN_ENTRYID, TRUE));
    EXPECT_TRUE(host->CompareEntryIds(a, b));
    EXPECT_FALSE(host->CompareEntryIds(a, b));
    EXPECT_TRUE(host->CompareEntryIds(a, b));
    EXPECT_FALSE(host->CompareEntryIds(a, b));
    testing::Mock::VerifyAndClearExpectations(pst.Get());

    // Two null ones are the store's business.
    EXPECT_CALL(*pst, CompareEntryIDs(0, _, 0, _, 0, _))
        .WillOnce(testing::DoAll(testing::SetArgPointee<5>(1), Return(S_OK)));
    EXPECT_TRUE(host->CompareEntryIds(null, null));
}

TEST_F(StoreWrapper, RefusesToOpenAPropertyButTheWritableOnes)
{
    const IID iid = IID_IStream;
    auto* const untouched = Opaque<IUnknown*>(1);
    for (const ULONG tag : {0x36010003u, 0x340D0003u, 0x7FE20102u, 0x7FE70040u, ipmSubtree})
    {
        IUnknown* output = untouched;
        EXPECT_CALL(*pst, OpenProperty).Times(0);
        EXPECT_EQ(store->OpenProperty(tag, &iid, 0, 0, &output), MAPI_E_NO_ACCESS);
        EXPECT_EQ(output, untouched);
        testing::Mock::VerifyAndClearExpectations(pst.Get());
        EXPECT_THAT(log.Take(),
                    ElementsAre(Entry(LogId::Warning, std::wstring(L"IMsgStore::OpenProperty called on read-only "
                                                                   L"archive store; returning MAPI_E_NO_ACCESS: ") +
                                                          Quillon::Mapi::FormatMapiPropertyTag(tag).GetString())));

        const ModifyStores setting(true);
        EXPECT_CALL(*pst, OpenProperty(tag, &iid, 1, MAPI_MODIFY, &output)).WillOnce(Return(MAPI_E_NOT_FOUND));
        EXPECT_EQ(store->OpenProperty(tag, &iid, 1, MAPI_MODIFY, &output), MAPI_E_NOT_FOUND);
        EXPECT_THAT(log.Take(), IsEmpty());
    }
    for (const ULONG tag : writable)
    {
        IUnknown* output = untouched;
        EXPECT_CALL(*pst, OpenProperty(tag, &iid, 1, MAPI_MODIFY, &output)).WillOnce(Return(S_OK));
        EXPECT_EQ(store->OpenProperty(tag, &iid, 1, MAPI_MODIFY, &output), S_OK);
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

struct WriteCase
{
    const char* name;
    std::vector<ULONG> tags;
    bool setPasses;
    bool setIsLogged;
    bool deletePasses;
};

void PrintTo(const WriteCase& row, std::ostream* stream)
{
    *stream << row.name;
}

class StoreWrites : public StoreWrapper, public testing::WithParamInterface<WriteCase>
{
protected:
    std::wstring NamesOfTags() const
    {
        std::wstring names;
        for (const ULONG tag : GetParam().tags)
            names +=
                (names.empty() ? L"" : L", ") + std::wstring(Quillon::Mapi::FormatMapiPropertyTag(tag).GetString());
        return names;
    }
};

TEST_P(StoreWrites, AreSetAsTheTagsAllow)
{
    const WriteCase& row = GetParam();
    std::vector<SPropValue> values(row.tags.size() + 1);
    for (std::size_t index = 0; index < row.tags.size(); ++index)
        values[index].ulPropTag = row.tags[index];
    const auto count = static_cast<ULONG>(row.tags.size());
    auto* const untouched = Opaque<SPropProblemArray*>(2);
    SPropProblemArray* problems = untouched;
    EXPECT_CALL(*pst, SetProps(count, values.data(), &problems)).Times(row.setPasses ? 1 : 0);
    EXPECT_EQ(store->SetProps(count, values.data(), &problems), row.setPasses ? S_OK : MAPI_E_NO_ACCESS);
    EXPECT_EQ(problems, untouched);
    if (row.setIsLogged)
    {
        EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Warning, L"IMsgStore::SetProps called on read-only archive "
                                                                  L"store; returning MAPI_E_NO_ACCESS:"),
                                            Detail(LogId::Warning, NamesOfTags())));
    }
    else
    {
        EXPECT_THAT(log.Take(), IsEmpty());
    }
    testing::Mock::VerifyAndClearExpectations(pst.Get());

    const ModifyStores setting(true);
    EXPECT_CALL(*pst, SetProps(count, values.data(), &problems)).WillOnce(Return(MAPI_E_NO_SUPPORT));
    EXPECT_EQ(store->SetProps(count, values.data(), &problems), MAPI_E_NO_SUPPORT);
    EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Error, MapiText(MAPI_E_NO_SUPPORT, L"IMsgStore::SetProps"))));
}

TEST_P(StoreWrites, AreDeletedAsTheTagsAllow)
{
    const WriteCase& row = GetParam();
    SizedSPropTagArray(8, array) = {};
    array.cValues = static_cast<ULONG>(row.tags.size());
    std::copy(row.tags.begin(), row.tags.end(), array.aulPropTag);
    auto* const tags = reinterpret_cast<SPropTagArray*>(&array);
    auto* const untouched = Opaque<SPropProblemArray*>(2);
    SPropProblemArray* problems = untouched;
    EXPECT_CALL(*pst, DeleteProps(tags, &problems)).Times(row.deletePasses ? 1 : 0);
    EXPECT_EQ(store->DeleteProps(tags, &problems), row.deletePasses ? S_OK : MAPI_E_NO_ACCESS);
    EXPECT_EQ(problems, untouched);
    if (row.deletePasses)
    {
        EXPECT_THAT(log.Take(), IsEmpty());
    }
    else
    {
        EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Warning, L"IMsgStore::DeleteProps called on read-only "
                                                                  L"archive store; returning MAPI_E_NO_ACCESS:"),
                                            Detail(LogId::Warning, NamesOfTags())));
    }
    testing::Mock::VerifyAndClearExpectations(pst.Get());

    const ModifyStores setting(true);
    EXPECT_CALL(*pst, DeleteProps(tags, &problems)).WillOnce(Return(S_OK));
    EXPECT_EQ(store->DeleteProps(tags, &problems), S_OK);
    EXPECT_THAT(log.Take(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Tags, StoreWrites,
    testing::Values(WriteCase{"None", {}, true, false, true},
                    WriteCase{
                        "AllWritable", {0x3607000D, 0x7FE70102, 0x7FE80102, 0x7FE90040, 0x7FEB001F}, true, false, true},
                    WriteCase{"WritableThenDisplayName", {0x7FEB001F, PR_DISPLAY_NAME_W}, false, true, false},
                    WriteCase{"TopAlone", {ipmSubtree}, false, false, false},
                    WriteCase{"WritableThenTop", {0x7FE70102, ipmSubtree, PR_DISPLAY_NAME_W}, false, false, false},
                    WriteCase{"DisplayNameThenTop", {PR_DISPLAY_NAME_W, ipmSubtree}, false, true, false},
                    WriteCase{"SubtreeRoot", {0x7FE20102}, false, true, false},
                    WriteCase{"OtherTypeOfWritable", {0x7FEB001E}, false, true, false}),
    [](const auto& test) { return test.param.name; });

TEST_F(StoreWrapper, RefusesTheReceiveFolderWhileModificationIsOff)
{
    auto* const name = Opaque<wchar_t*>(1);
    auto* const id = Opaque<ENTRYID*>(2);
    EXPECT_CALL(*pst, SetReceiveFolder).Times(0);
    EXPECT_EQ(store->SetReceiveFolder(name, 3, 4, id), MAPI_E_NO_ACCESS);
    EXPECT_THAT(log.Take(), ElementsAre(Entry(LogId::Warning, L"IMsgStore::SetReceiveFolder called on read-only "
                                                              L"archive store; returning MAPI_E_NO_ACCESS")));
    testing::Mock::VerifyAndClearExpectations(pst.Get());
    const ModifyStores setting(true);
    EXPECT_CALL(*pst, SetReceiveFolder(name, 3, 4, id)).WillOnce(Return(S_OK));
    EXPECT_EQ(store->SetReceiveFolder(name, 3, 4, id), S_OK);
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(StoreWrapper, OpensAFolderWrapped)
{
    const auto folder = MakeNice<FolderDouble>();
    const IID iid = IID_IMAPIFolder;
    EXPECT_CALL(*pst, OpenEntry(0, nullptr, &iid, MAPI_BEST_ACCESS, _, _))
        .WillOnce(GiveEntry(MAPI_W_ERRORS_RETURNED, MAPI_FOLDER, folder.Get()));
    ULONG type = 99;
    IUnknown* object = nullptr;
    EXPECT_EQ(store->OpenEntry(0, nullptr, &iid, MAPI_BEST_ACCESS, &type, &object), MAPI_W_ERRORS_RETURNED);
    EXPECT_EQ(type, static_cast<ULONG>(MAPI_FOLDER));
    EXPECT_THAT(log.Take(),
                ElementsAre(Entry(LogId::Warning, MapiText(MAPI_W_ERRORS_RETURNED, L"IMsgStore::OpenEntry"))));
    auto* const wrapped = static_cast<IMAPIFolder*>(object);
    ASSERT_TRUE(IsExactly<CNstMapiFolder>(wrapped));
    EXPECT_EQ(folder->References(), 2u);

    // It goes through this store, and copies folders by the support object.
    EXPECT_CALL(*pst, OpenEntry(5, Opaque<ENTRYID*>(1), nullptr, 6, _, _)).WillOnce(Return(MAPI_E_NOT_FOUND));
    EXPECT_EQ(wrapped->OpenEntry(5, Opaque<ENTRYID*>(1), nullptr, 6, &type, &object), MAPI_E_NOT_FOUND);
    EXPECT_CALL(*support, CopyFolder).WillOnce(Return(S_OK));
    EXPECT_EQ(wrapped->CopyFolder(1, nullptr, nullptr, nullptr, nullptr, 0, nullptr, 0), S_OK);

    // And outlives it.
    store.Release();
    EXPECT_CALL(*pst, OpenEntry).WillOnce(Return(MAPI_E_NOT_FOUND));
    EXPECT_EQ(wrapped->OpenEntry(5, nullptr, nullptr, 6, &type, &object), MAPI_E_NOT_FOUND);
    EXPECT_EQ(wrapped->Release(), 0u);
    EXPECT_EQ(pst->References(), 1u);
    EXPECT_EQ(support->References(), 1u);
}

TEST_F(StoreWrapper, OpensAMessageWrapped)
{
    const auto message = MakeNice<MessageDouble>();
    EXPECT_CALL(*pst, OpenEntry).WillOnce(GiveEntry(S_OK, MAPI_MESSAGE, message.Get()));
    IUnknown* object = nullptr;
    EXPECT_EQ(store->OpenEntry(24, Opaque<ENTRYID*>(1), nullptr, 0, nullptr, &object), S_OK) << "without a type";
    EXPECT_TRUE(IsExactly<CNstMessage>(static_cast<IMessage*>(object)));
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(StoreWrapper, GivesAnyOtherObjectAsItIs)
{
    for (const ULONG type : {MAPI_STORE, MAPI_ATTACH, 0ul})
    {
        EXPECT_CALL(*pst, OpenEntry).WillOnce(GiveEntry(S_OK, type, pst.Get()));
        ULONG given = 99;
        IUnknown* object = nullptr;
        EXPECT_EQ(store->OpenEntry(24, Opaque<ENTRYID*>(1), nullptr, 0, &given, &object), S_OK);
        EXPECT_EQ(given, type);
        EXPECT_EQ(object, pst.Get());
        object->Release();
    }
}

TEST_F(StoreWrapper, FailsToOpenWithoutTouchingTheOutputs)
{
    // Even an object that came with the failure is released.
    const auto folder = MakeNice<FolderDouble>();
    EXPECT_CALL(*pst, OpenEntry).WillOnce(GiveEntry(MAPI_E_NOT_FOUND, MAPI_FOLDER, folder.Get()));
    GiveExtendedError(*pst, MAPI_E_NOT_FOUND, L"gone", L"pst", 5, 6);
    ULONG type = 99;
    auto* const untouched = Opaque<IUnknown*>(3);
    IUnknown* object = untouched;
    EXPECT_EQ(store->OpenEntry(24, Opaque<ENTRYID*>(1), nullptr, 0, &type, &object), MAPI_E_NOT_FOUND);
    EXPECT_EQ(type, 99u);
    EXPECT_EQ(object, untouched);
    wchar_t text[] = L"gone";
    wchar_t component[] = L"pst";
    const MAPIERROR error = {MAPI_ERROR_VERSION, text, component, 5, 6};
    EXPECT_THAT(log.Lines(),
                ElementsAre(Entry(
                    LogId::Error,
                    Quillon::Mapi::FormatMapiError(MAPI_E_NOT_FOUND, L"IMsgStore::OpenEntry", &error).GetString())));
    EXPECT_EQ(folder->References(), 1u);
}

TEST_F(StoreWrapper, RefusesAnObjectThatIsNotWhatItsTypeSays)
{
    struct Row
    {
        ULONG type;
        const wchar_t* text;
    };
    for (const Row& row :
         {Row{MAPI_FOLDER,
              L"OpenEntry returned a MAPI_FOLDER, but the object does not respond to the folder interface"},
          Row{MAPI_MESSAGE,
              L"OpenEntry returned a MAPI_MESSAGE, but the object does not respond to the message interface"}})
    {
        const auto table = MakeNice<TableDouble>();
        for (IUnknown* const given : {static_cast<IUnknown*>(table.Get()), static_cast<IUnknown*>(nullptr)})
        {
            EXPECT_CALL(*pst, OpenEntry).WillOnce(GiveEntry(S_OK, row.type, given));
            ULONG type = 99;
            auto* const untouched = Opaque<IUnknown*>(3);
            IUnknown* object = untouched;
            EXPECT_EQ(store->OpenEntry(24, Opaque<ENTRYID*>(1), nullptr, 0, &type, &object), E_NOINTERFACE);
            EXPECT_EQ(type, 99u);
            EXPECT_EQ(object, untouched);
            constexpr auto openEntry = L"Quillon::Nst::CNstMsgStore::OpenEntry";
            EXPECT_THAT(log.Take(),
                        ElementsAre(Entry(LogId::Error, row.text), Throwing(file, openEntry, ComText(E_NOINTERFACE)),
                                    Caught(file, openEntry, ComText(E_NOINTERFACE))));
        }
    }
}

TEST_F(StoreWrapper, OpensFoldersOnThePstStoreWhileStoresAreUnwrapped)
{
    const auto folder = MakeNice<FolderDouble>();
    EXPECT_CALL(*pst, OpenEntry).WillOnce(GiveEntry(S_OK, MAPI_FOLDER, folder.Get()));
    IUnknown* object = nullptr;
    const ULONG references = pst->References();
    {
        const UnwrapStores setting;
        EXPECT_EQ(store->OpenEntry(0, nullptr, nullptr, 0, nullptr, &object), S_OK);
    }
    ASSERT_TRUE(IsExactly<CNstMapiFolder>(static_cast<IMAPIFolder*>(object)));
    EXPECT_EQ(pst->References(), references + 1) << "the folder holds the PST store";
    // What is opened through it is the PST store's own object.
    const auto message = MakeNice<MessageDouble>();
    EXPECT_CALL(*pst, OpenEntry).WillOnce(GiveEntry(S_OK, MAPI_MESSAGE, message.Get()));
    IUnknown* opened = nullptr;
    ULONG type = 0;
    EXPECT_EQ(static_cast<IMAPIFolder*>(object)->OpenEntry(1, nullptr, nullptr, 0, &type, &opened), S_OK);
    EXPECT_EQ(opened, message.Get());
    opened->Release();
    object->Release();
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(StoreWrapper, FailsToOpenAFolderWhenItsOwnQueryIsRefused)
{
    const auto folder = MakeNice<FolderDouble>();
    EXPECT_CALL(*pst, OpenEntry).WillOnce(GiveEntry(S_OK, MAPI_FOLDER, folder.Get()));
    EXPECT_CALL(*pst, QueryInterface).WillOnce(Return(E_NOINTERFACE));
    const UnwrapStores setting;
    IUnknown* object = nullptr;
    EXPECT_EQ(store->OpenEntry(0, nullptr, nullptr, 0, nullptr, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_THAT(log.Lines(),
                ElementsAre(Throwing(file, L"Quillon::Nst::CNstMsgStore::CreateFolder", ComText(E_NOINTERFACE)),
                            Caught(file, L"Quillon::Nst::CNstMsgStore::OpenEntry", ComText(E_NOINTERFACE))));
}

TEST_F(StoreWrapper, PassesEveryInterfaceOnWhileStoresAreUnwrapped)
{
    const UnwrapStores setting;
    void* object = nullptr;
    EXPECT_EQ(store->QueryInterface(IID_IMsgStore, &object), S_OK);
    EXPECT_EQ(object, pst.Get());
    pst->Release();
    EXPECT_EQ(store->QueryInterface(IID_IMAPIFolder, &object), E_NOINTERFACE);
    EXPECT_THAT(log.Take(), IsEmpty());
    EXPECT_CALL(*pst, QueryInterface).WillOnce(Return(E_OUTOFMEMORY));
    EXPECT_EQ(store->QueryInterface(IID_IMsgStore, &object), E_OUTOFMEMORY);
    EXPECT_THAT(log.Take(),
                ElementsAre(Entry(LogId::Error, Quillon::FormatErrorWithContext(Quillon::FormatComError(E_OUTOFMEMORY),
                                                                                L"IMsgStore::QueryInterface")
                                                    .GetString())));
}

TEST_F(StoreWrapper, AnswersForItsOwnInterfacesAloneWithoutAskingThePstStore)
{
    EXPECT_CALL(*pst, QueryInterface).Times(0);
    for (const IID& iid : {IID_IMsgStore, IID_IMAPIProp, IID_IUnknown})
    {
        void* object = nullptr;
        EXPECT_EQ(store->QueryInterface(iid, &object), S_OK);
        EXPECT_EQ(object, store.Get());
        EXPECT_EQ(store->Release(), 1u);
    }
    for (const IID& iid : {IID_IMAPIFolder, IID_IMSLogon, IID_IStream})
    {
        void* object = this;
        EXPECT_EQ(store->QueryInterface(iid, &object), E_NOINTERFACE);
        EXPECT_EQ(object, nullptr);
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(StoreWrapper, LogsTheWarningOfErrorsReturnedButNotOfNamesThatAreUnknown)
{
    EXPECT_CALL(*pst, SaveChanges(1)).WillOnce(Return(MAPI_W_ERRORS_RETURNED));
    EXPECT_EQ(store->SaveChanges(1), MAPI_W_ERRORS_RETURNED);
    EXPECT_THAT(log.Take(),
                ElementsAre(Entry(LogId::Warning, MapiText(MAPI_W_ERRORS_RETURNED, L"IMsgStore::SaveChanges"))));
    EXPECT_CALL(*pst, GetIDsFromNames).WillOnce(Return(MAPI_W_ERRORS_RETURNED));
    EXPECT_EQ(store->GetIDsFromNames(0, nullptr, 0, nullptr), MAPI_W_ERRORS_RETURNED);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(StoreWrapper, LogsAFailureWhoseExtendedErrorIsNotToBeHad)
{
    EXPECT_CALL(*pst, SaveChanges(1)).WillOnce(Return(MAPI_E_NO_ACCESS));
    EXPECT_CALL(*pst, GetLastError(MAPI_E_NO_ACCESS, static_cast<ULONG>(MAPI_UNICODE), _))
        .WillOnce(
            [](HRESULT, ULONG, MAPIERROR** error) -> HRESULT
            {
                *error = Opaque<MAPIERROR*>(1); // of a call that failed: not to be read, not to be freed
                return MAPI_E_NOT_ENOUGH_MEMORY;
            });
    EXPECT_EQ(store->SaveChanges(1), MAPI_E_NO_ACCESS);
    EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Error, MapiText(MAPI_E_NO_ACCESS, L"IMsgStore::SaveChanges"))));
}

TEST_F(StoreWrapper, GivesThePstStoreForThePrivateIdentifier)
{
    constexpr IID unwrapped = {0x61B3ECD5, 0xADAD, 0x4647, {0xBE, 0xFF, 0x27, 0xCD, 0x5A, 0x3A, 0xAC, 0x70}};
    EXPECT_EQ(IID_UnwrappedMsgStore, unwrapped);
    void* object = nullptr;
    EXPECT_EQ(store->QueryInterface(unwrapped, &object), S_OK);
    EXPECT_EQ(object, pst.Get());
    pst->Release();
}

TEST_F(StoreWrapper, TellsItsEntryIdAndName)
{
    GiveProperty(*pst, BinaryValue(PR_ENTRYID, {7, 8}));
    GiveProperty(*pst, TextValue(PR_DISPLAY_NAME_W, L"Archive"));
    const Quillon::Binary id = store->GetEntryId();
    EXPECT_EQ(Bytes(id.GetBuffer(), id.GetBuffer() + id.GetSize()), (Bytes{7, 8}));
    EXPECT_EQ(std::wstring(store->GetDisplayName()), L"Archive");
    GiveNoProperty(*pst, PR_DISPLAY_NAME_W);
    EXPECT_THROW(store->GetDisplayName(), Quillon::Mapi::CMapiError);
}

TEST_F(DerivedStore, ReturnsItsOwnFoldersAndMessages)
{
    host->factories = HostStore::Factories::ReadOnly;
    const auto folder = MakeNice<FolderDouble>();
    const auto message = MakeNice<MessageDouble>();
    EXPECT_CALL(*pst, OpenEntry)
        .WillOnce(GiveEntry(S_OK, MAPI_FOLDER, folder.Get()))
        .WillOnce(GiveEntry(S_OK, MAPI_MESSAGE, message.Get()));
    IUnknown* object = nullptr;
    EXPECT_EQ(host->OpenEntry(0, nullptr, nullptr, 0, nullptr, &object), S_OK);
    EXPECT_TRUE(IsExactly<CReadOnlyFolder>(static_cast<IMAPIFolder*>(object)));
    EXPECT_EQ(object->Release(), 0u);
    EXPECT_EQ(host->OpenEntry(0, nullptr, nullptr, 0, nullptr, &object), S_OK);
    EXPECT_TRUE(IsExactly<CReadOnlyMessage>(static_cast<IMessage*>(object)));
    EXPECT_EQ(object->Release(), 0u);
}

TEST_F(DerivedStore, IsRefusedANullOfItsFactories)
{
    host->factories = HostStore::Factories::Null;
    const auto folder = MakeNice<FolderDouble>();
    const auto message = MakeNice<MessageDouble>();
    EXPECT_CALL(*pst, OpenEntry)
        .WillOnce(GiveEntry(S_OK, MAPI_FOLDER, folder.Get()))
        .WillOnce(GiveEntry(S_OK, MAPI_MESSAGE, message.Get()));
    for (int call = 0; call < 2; ++call)
    {
        ULONG type = 99;
        auto* const untouched = Opaque<IUnknown*>(3);
        IUnknown* object = untouched;
        EXPECT_EQ(host->OpenEntry(0, nullptr, nullptr, 0, &type, &object), E_POINTER);
        EXPECT_EQ(object, untouched);
        EXPECT_EQ(type, 99u);
        EXPECT_THAT(log.Take(),
                    ElementsAre(EventAtLine(L"Throwing exception", L"com_wrap.cpp", L"Quillon::com_wrap", 6,
                                            ComText(E_POINTER)),
                                Caught(file, L"Quillon::Nst::CNstMsgStore::OpenEntry", ComText(E_POINTER))));
    }
}

TEST_F(DerivedStore, HasTheExceptionsOfItsFactoriesTurnedIntoTheirCodes)
{
    host->factories = HostStore::Factories::Throwing;
    const auto folder = MakeNice<FolderDouble>();
    const auto message = MakeNice<MessageDouble>();
    EXPECT_CALL(*pst, OpenEntry)
        .WillOnce(GiveEntry(S_OK, MAPI_FOLDER, folder.Get()))
        .WillOnce(GiveEntry(S_OK, MAPI_MESSAGE, message.Get()));
    for (int call = 0; call < 2; ++call)
    {
        auto* const untouched = Opaque<IUnknown*>(3);
        IUnknown* object = untouched;
        EXPECT_EQ(host->OpenEntry(0, nullptr, nullptr, 0, nullptr, &object), MAPI_E_CORRUPT_DATA);
        EXPECT_EQ(object, untouched);
        EXPECT_THAT(log.Take(),
                    ElementsAre(Caught(file, L"Quillon::Nst::CNstMsgStore::OpenEntry", ComText(MAPI_E_CORRUPT_DATA))));
    }
}

} // namespace
} // namespace Tests
