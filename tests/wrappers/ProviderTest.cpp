// CNstMsProvider.
#include "nst/NstMsProvider.h"

#include "nst/NstMapiSupport.h"
#include "nst/NstMsLogon.h"
#include "nst/NstMsgStore.h"
#include "tests/wrappers/Setting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

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

constexpr auto file = L"NstMsProvider.cpp";
constexpr auto logonFunction = L"Quillon::Nst::CNstMsProvider::Logon";
constexpr auto spoolerFunction = L"Quillon::Nst::CNstMsProvider::SpoolerLogon";
constexpr ULONG olfiTag = 0x7C070102;

/// A host's provider.
class HostProvider : public CNstMsProvider
{
public:
    using CNstMsProvider::CNstMsProvider;

    /// Which factory gives null, or throws.
    enum class Factory
    {
        None,
        Support,
        Store,
        Logon
    };
    Factory null = Factory::None;
    Factory throwing = Factory::None;
    bool configures = false;

protected:
    ATL::CComQIPtr<IMAPISupport> CreateMapiSupport(const ATL::CComQIPtr<IMAPISupport>& support,
                                                   const ATL::CComQIPtr<IProfSect>& section) override
    {
        return Make(Factory::Support, [&] { return CNstMsProvider::CreateMapiSupport(support, section); });
    }
    ATL::CComQIPtr<IMsgStore> CreateMessageStore(const ATL::CComQIPtr<IMsgStore>& store,
                                                 const ATL::CComQIPtr<IMAPISupport>& support) override
    {
        if (configures)
            ConfigureNstSubtreeEntryId(store);
        return Make(Factory::Store, [&] { return CNstMsProvider::CreateMessageStore(store, support); });
    }
    ATL::CComQIPtr<IMSLogon> CreateMsLogon(const ATL::CComQIPtr<IMSLogon>& logon,
                                           const ATL::CComQIPtr<IMsgStore>& store) override
    {
        return Make(Factory::Logon, [&] { return CNstMsProvider::CreateMsLogon(logon, store); });
    }

private:
    template <class MakeIt>
    auto Make(Factory which, MakeIt&& make) -> decltype(make())
    {
        if (throwing == which)
            throw Quillon::CComError(MAPI_E_CORRUPT_DATA);
        if (null == which)
            return nullptr;
        return make();
    }
};

class ProviderWrapper : public testing::Test
{
protected:
    ProviderWrapper()
    {
        ON_CALL(*support, OpenProfileSection(nullptr, MAPI_MODIFY, _))
            .WillByDefault(GiveObject(S_OK, static_cast<IProfSect*>(section.Get())));
        GiveNoProperty(*section, PR_SERVICE_UID);
        GiveNoProperty(*pstStore, olfiTag);
        ON_CALL(*pst, Logon)
            .WillByDefault(
                [this](IMAPISupport* given, auto, wchar_t*, ULONG, ENTRYID*, ULONG flags, const IID*, ULONG*, BYTE**,
                       MAPIERROR**, IMSLogon** givenLogon, IMsgStore** givenStore)
                {
                    EXPECT_TRUE(IsExactly<CNstMapiSupport>(given));
                    seenFlags = flags;
                    if (FAILED(result))
                        return result;
                    *givenLogon = givesLogon ? pstLogon.Get() : nullptr;
                    *givenStore = givesStore ? pstStore.Get() : nullptr;
                    if (givesLogon)
                        pstLogon->AddRef();
                    if (givesStore)
                        pstStore->AddRef();
                    return result;
                });
    }

    /// Logs on with flags of its own; `logon` and `store` receive the outputs.
    HRESULT Logon(IMSProvider* called, ULONG flags = 0)
    {
        return called->Logon(support.Get(), 0, nullptr, 0, nullptr, flags, nullptr, nullptr, nullptr, nullptr, &logon,
                             &store);
    }

    /// Expects what a failed logon leaves.
    void ExpectNothingGiven()
    {
        EXPECT_EQ(store, nullptr);
        EXPECT_EQ(logon, Opaque<IMSLogon*>(1)) << "left as it was";
        for (const CountedObject* const object :
             std::initializer_list<CountedObject*>{pstLogon.Get(), pstStore.Get(), support.Get(), section.Get()})
            EXPECT_EQ(object->References(), 1u) << object->Name();
    }

    DoublePointer<testing::NiceMock<ProviderDouble>> pst = MakeNice<ProviderDouble>();
    DoublePointer<testing::NiceMock<SupportDouble>> support = MakeNice<SupportDouble>();
    DoublePointer<testing::NiceMock<ProfileSectionDouble>> section = MakeNice<ProfileSectionDouble>();
    DoublePointer<testing::NiceMock<LogonDouble>> pstLogon = MakeNice<LogonDouble>();
    DoublePointer<testing::NiceMock<StoreDouble>> pstStore = MakeNice<StoreDouble>();
    DoublePointer<HostProvider> provider = Wrap<HostProvider>(pst.Get());
    HRESULT result = S_OK;
    bool givesLogon = true;
    bool givesStore = true;
    ULONG seenFlags = 0;
    IMSLogon* logon = Opaque<IMSLogon*>(1);
    IMsgStore* store = Opaque<IMsgStore*>(2);
    LogCapture log;
};

TEST_F(ProviderWrapper, GivesALogonAndAStoreWrappedThatOutliveIt)
{
    EXPECT_EQ(Logon(provider), S_OK);
    ASSERT_TRUE(IsExactly<CNstMsgStore>(store));
    ASSERT_TRUE(IsExactly<CNstMsLogon>(logon));
    provider.Release();
    EXPECT_EQ(pst->References(), 1u);

    // The logon opens through that store.
    EXPECT_CALL(*pstLogon, OpenEntry).Times(0);
    EXPECT_CALL(*pstStore, OpenEntry).WillOnce(Return(MAPI_E_NOT_FOUND));
    ULONG type = 0;
    IUnknown* object = nullptr;
    EXPECT_EQ(logon->OpenEntry(1, nullptr, nullptr, 0, &type, &object), MAPI_E_NOT_FOUND);
    EXPECT_THAT(log.Lines(), ElementsAre(Entry(LogId::Error, MapiText(MAPI_E_NOT_FOUND, L"IMsgStore::OpenEntry")),
                                         Entry(LogId::Error, MapiText(MAPI_E_NOT_FOUND, L"IMSLogon::OpenEntry"))));
    EXPECT_EQ(store->Release(), 1u) << "the logon holds the store";
    EXPECT_EQ(logon->Release(), 0u);
    EXPECT_EQ(pstStore->References(), 1u);
    EXPECT_EQ(pstLogon->References(), 1u);
}

TEST_F(ProviderWrapper, ForcesTheUnicodeFormatAndLeavesTheOtherFlags)
{
    struct Row
    {
        ULONG asked;
        ULONG seen;
    };
    for (const Row& row : {Row{0, 0x800}, Row{0x1000, 0x800}, Row{0x800, 0x800}, Row{0x1800, 0x800},
                           Row{0xFFFFFFFF, 0xFFFFEFFF}, Row{0x80001005, 0x80000805}})
    {
        EXPECT_EQ(Logon(provider, row.asked), S_OK);
        EXPECT_EQ(seenFlags, row.seen) << std::hex << row.asked;
        store->Release();
        logon->Release();
    }
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ProviderWrapper, WritesTheOfflineFolderIdentifier)
{
    EXPECT_CALL(*pstStore, SetProps(1, testing::Pointee(testing::Field(&SPropValue::ulPropTag, olfiTag)), _))
        .WillOnce(
            [](ULONG, SPropValue* value, SPropProblemArray**) -> HRESULT
            {
                const Bytes bytes = BytesOf(*value);
                EXPECT_EQ(bytes.size(), 80u);
                EXPECT_EQ(Bytes(bytes.begin() + 24, bytes.begin() + 32), (Bytes{0, 0, 0, 0x80, 0, 0, 0, 0}));
                EXPECT_NE(Bytes(bytes.begin() + 32, bytes.begin() + 48), Bytes(16));
                EXPECT_EQ(Bytes(bytes.begin() + 48, bytes.end()), Bytes(32));
                EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 24), Bytes(24));
                return S_OK;
            });
    EXPECT_EQ(Logon(provider), S_OK);
    store->Release();
    logon->Release();
}

TEST_F(ProviderWrapper, KeepsAWarningToItself)
{
    result = MAPI_W_ERRORS_RETURNED;
    EXPECT_EQ(Logon(provider), S_OK);
    EXPECT_THAT(log.Lines(), ElementsAre(Event(L"Non-success condition during COM call", file, logonFunction,
                                               Quillon::FormatSystemError(MAPI_W_ERRORS_RETURNED, true).GetString())));
    store->Release();
    logon->Release();
}

TEST_F(ProviderWrapper, FailsWithTheCodeOfThePstProvider)
{
    result = MAPI_E_LOGON_FAILED;
    EXPECT_CALL(*pstStore, SetProps).Times(0);
    EXPECT_EQ(Logon(provider), MAPI_E_LOGON_FAILED);
    ExpectNothingGiven();
    EXPECT_THAT(log.Lines(), ElementsAre(Throwing(file, logonFunction, ComText(MAPI_E_LOGON_FAILED)),
                                         Caught(file, logonFunction, ComText(MAPI_E_LOGON_FAILED))));
}

TEST_F(ProviderWrapper, DoesWithoutALogonObject)
{
    givesLogon = false;
    EXPECT_EQ(Logon(provider), S_OK);
    EXPECT_EQ(logon, nullptr);
    ASSERT_TRUE(IsExactly<CNstMsgStore>(store));
    EXPECT_EQ(store->Release(), 0u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST_F(ProviderWrapper, FailsWithoutAStore)
{
    givesStore = false;
    EXPECT_EQ(Logon(provider), E_INVALIDARG);
    ExpectNothingGiven();
    EXPECT_THAT(log.Lines(), ElementsAre(Throwing(L"Olfi.cpp", L"SetOLFIInOST", ComText(E_INVALIDARG)),
                                         Caught(file, logonFunction, ComText(E_INVALIDARG))));
}

TEST_F(ProviderWrapper, FailsOnAnIdentifierOfTheWrongSizeAndKeepsNothing)
{
    GiveProperty(*pstStore, BinaryValue(olfiTag, Bytes(64)));
    EXPECT_EQ(Logon(provider), E_FAIL);
    ExpectNothingGiven();
    const BYTE bytes[64] = {};
    const std::wstring text = std::wstring(L"Buffer returned for PR_OST_OLFI has unexpected length: ") +
                              Quillon::Binary(bytes, sizeof(bytes)).FormatSize().GetString();
    EXPECT_THAT(log.Lines(),
                ElementsAre(Throwing(L"Olfi.cpp", L"SetOLFIInOST", text), Caught(file, logonFunction, text)));
}

TEST_F(ProviderWrapper, FailsWithoutASupportObject)
{
    EXPECT_CALL(*pst, Logon).Times(0);
    EXPECT_CALL(*pst, SpoolerLogon).Times(0);
    EXPECT_EQ(provider->Logon(nullptr, 0, nullptr, 0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, &logon, &store),
              E_INVALIDARG);
    ExpectNothingGiven();
    const auto thrown = Throwing(L"KivNstCore.cpp", L"Quillon::Nst::GetGlobalProfileSection", ComText(E_INVALIDARG));
    EXPECT_THAT(log.Take(), ElementsAre(thrown, Caught(file, logonFunction, ComText(E_INVALIDARG))));
    EXPECT_EQ(provider->SpoolerLogon(nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, nullptr, &logon, &store),
              E_INVALIDARG);
    EXPECT_THAT(log.Take(), ElementsAre(thrown, Caught(file, spoolerFunction, ComText(E_INVALIDARG))));
}

TEST_F(ProviderWrapper, FailsWithoutAProfileSection)
{
    ON_CALL(*support, OpenProfileSection).WillByDefault(Return(MAPI_E_NO_ACCESS));
    EXPECT_CALL(*pst, Logon).Times(0);
    EXPECT_EQ(Logon(provider), MAPI_E_NO_ACCESS);
    ExpectNothingGiven();
    EXPECT_THAT(log.Lines(), ElementsAre(Throwing(L"KivNstCore.cpp", L"Quillon::Nst::GetGlobalProfileSection",
                                                  MapiText(MAPI_E_NO_ACCESS)),
                                         Caught(file, logonFunction, MapiText(MAPI_E_NO_ACCESS))));
}

TEST_F(ProviderWrapper, RefusesANullOfAFactory)
{
    using Factory = HostProvider::Factory;
    for (const Factory which : {Factory::Support, Factory::Store, Factory::Logon})
    {
        provider->null = which;
        logon = Opaque<IMSLogon*>(1);
        store = Opaque<IMsgStore*>(2);
        EXPECT_EQ(Logon(provider), E_POINTER);
        ExpectNothingGiven();
        EXPECT_THAT(log.Take(), ElementsAre(EventAtLine(L"Throwing exception", L"com_wrap.cpp", L"Quillon::com_wrap", 6,
                                                        ComText(E_POINTER)),
                                            Caught(file, logonFunction, ComText(E_POINTER))));
    }
    provider->null = Factory::Support;
    EXPECT_CALL(*pst, SpoolerLogon).Times(0);
    EXPECT_EQ(provider->SpoolerLogon(support, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, nullptr, &logon, &store),
              E_POINTER);
    EXPECT_THAT(log.Take(), ElementsAre(EventAtLine(L"Throwing exception", L"com_wrap.cpp", L"Quillon::com_wrap", 6,
                                                    ComText(E_POINTER)),
                                        Caught(file, spoolerFunction, ComText(E_POINTER))));
}

TEST_F(ProviderWrapper, TurnsAFactorysExceptionIntoItsCode)
{
    using Factory = HostProvider::Factory;
    for (const Factory which : {Factory::Support, Factory::Store, Factory::Logon})
    {
        provider->throwing = which;
        logon = Opaque<IMSLogon*>(1);
        store = Opaque<IMsgStore*>(2);
        EXPECT_EQ(Logon(provider), MAPI_E_CORRUPT_DATA);
        ExpectNothingGiven();
        EXPECT_THAT(log.Take(), ElementsAre(Caught(file, logonFunction, ComText(MAPI_E_CORRUPT_DATA))));
    }
}

TEST_F(ProviderWrapper, LetsAHostPrepareTheSubtreeRootOnTheWay)
{
    // A host that does so once finds it done the next time.
    GiveProperty(*pstStore, BinaryValue(0x7FE20102, {1, 2, 3}));
    provider->configures = true;
    EXPECT_CALL(*pstStore, OpenEntry).Times(0);
    EXPECT_CALL(*pstStore, SaveChanges).Times(0);
    EXPECT_EQ(Logon(provider), S_OK);
    store->Release();
    logon->Release();
}

TEST_F(ProviderWrapper, FailsWhenTheHostCannotPrepareTheSubtreeRoot)
{
    GiveNoProperty(*pstStore, 0x7FE20102);
    GiveNoProperty(*pstStore, 0x35E00102);
    provider->configures = true;
    EXPECT_EQ(Logon(provider), MAPI_E_NOT_FOUND);
    ExpectNothingGiven();
    ASSERT_FALSE(log.Lines().empty());
    EXPECT_EQ(log.Lines().back().text.find(L"Caught exception at NstMsProvider.cpp"), 0u);
}

TEST_F(ProviderWrapper, GivesTheSpoolerThePstProvidersOwnObjects)
{
    GiveNoProperty(*section, PR_SERVICE_UID);
    BYTE security[] = {1, 2};
    MAPIERROR* error = nullptr;
    EXPECT_CALL(*pstStore, GetProps).Times(0);
    EXPECT_CALL(*pstStore, SetProps).Times(0);
    EXPECT_CALL(*pst, SpoolerLogon(_, 3, Opaque<wchar_t*>(1), 4, Opaque<ENTRYID*>(2), 0x1005, nullptr, 2, security,
                                   &error, &logon, &store))
        .WillOnce(
            [this](IMAPISupport* given, auto, wchar_t*, ULONG, ENTRYID*, ULONG, const IID*, ULONG, BYTE*, MAPIERROR**,
                   IMSLogon** logonOutput, IMsgStore** storeOutput) -> HRESULT
            {
                EXPECT_TRUE(IsExactly<CNstMapiSupport>(given));
                *logonOutput = pstLogon.Get();
                *storeOutput = pstStore.Get();
                return MAPI_W_ERRORS_RETURNED;
            });
    EXPECT_EQ(provider->SpoolerLogon(support, 3, Opaque<wchar_t*>(1), 4, Opaque<ENTRYID*>(2), 0x1005, nullptr, 2,
                                     security, &error, &logon, &store),
              S_OK);
    EXPECT_EQ(logon, pstLogon.Get());
    EXPECT_EQ(store, pstStore.Get());
    EXPECT_THAT(log.Lines(), ElementsAre(Event(L"Non-success condition during COM call", file, spoolerFunction,
                                               Quillon::FormatSystemError(MAPI_W_ERRORS_RETURNED, true).GetString())));
}

TEST_F(ProviderWrapper, HandsThePstProviderTheServicesSection)
{
    // The section that the support wrapper gives for its private UID is the one of the message service.
    const auto service = MakeNice<ProfileSectionDouble>();
    const MAPIUID uid = {{9, 8, 7}};
    GiveProperty(*section, BinaryValue(PR_SERVICE_UID, Bytes(uid.ab, uid.ab + sizeof(uid.ab))));
    EXPECT_CALL(*support, OpenProfileSection(nullptr, MAPI_MODIFY, _))
        .WillOnce(GiveObject(S_OK, static_cast<IProfSect*>(section.Get())));
    EXPECT_CALL(*support, OpenProfileSection(testing::NotNull(), MAPI_MODIFY, _))
        .WillOnce(
            [&](MAPIUID* asked, ULONG, IProfSect** output) -> HRESULT
            {
                EXPECT_TRUE(std::equal(asked->ab, asked->ab + sizeof(asked->ab), uid.ab));
                *output = service.Get();
                service->AddRef();
                return S_OK;
            });
    EXPECT_CALL(*pst, Logon)
        .WillOnce(
            [&](IMAPISupport* given, auto, wchar_t*, ULONG, ENTRYID*, ULONG, const IID*, ULONG*, BYTE**, MAPIERROR**,
                IMSLogon**, IMsgStore**) -> HRESULT
            {
                IProfSect* held = nullptr;
                MAPIUID asked = globalProfileSectionUid;
                EXPECT_EQ(given->OpenProfileSection(&asked, 0, &held), S_OK);
                EXPECT_EQ(held, service.Get());
                if (held)
                    held->Release();
                return MAPI_E_LOGON_FAILED;
            });
    EXPECT_EQ(Logon(provider), MAPI_E_LOGON_FAILED);
    ExpectNothingGiven();
}

TEST_F(ProviderWrapper, LeavesALogonWithoutAPlaceForItsObjectsToThePstProvider)
{
    const auto logOn = [this](IMSLogon** logonPlace, IMsgStore** storePlace)
    {
        return provider->Logon(support, 0, nullptr, 0, nullptr, 0, nullptr, nullptr, nullptr, nullptr, logonPlace,
                               storePlace);
    };
    const auto give = [this](IMAPISupport*, auto, wchar_t*, ULONG, ENTRYID*, ULONG, const IID*, ULONG*, BYTE**,
                             MAPIERROR**, IMSLogon** givenLogon, IMsgStore** givenStore) -> HRESULT
    {
        if (givenLogon)
        {
            *givenLogon = pstLogon.Get();
            pstLogon->AddRef();
        }
        if (givenStore)
        {
            *givenStore = pstStore.Get();
            pstStore->AddRef();
        }
        return result;
    };
    using testing::IsNull;
    using testing::NotNull;

    EXPECT_CALL(*pst, Logon(_, _, _, _, _, _, _, _, _, _, IsNull(), NotNull()))
        .WillOnce(Return(MAPI_E_INVALID_PARAMETER))
        .WillOnce(give);
    EXPECT_EQ(logOn(nullptr, &store), MAPI_E_INVALID_PARAMETER);
    ExpectNothingGiven();
    EXPECT_EQ(logOn(nullptr, &store), S_OK);
    ASSERT_TRUE(IsExactly<CNstMsgStore>(store));
    EXPECT_EQ(store->Release(), 0u);

    store = nullptr;
    EXPECT_CALL(*pst, Logon(_, _, _, _, _, _, _, _, _, _, NotNull(), IsNull()))
        .WillOnce(Return(MAPI_E_INVALID_PARAMETER))
        .WillOnce(give);
    EXPECT_EQ(logOn(&logon, nullptr), MAPI_E_INVALID_PARAMETER);
    EXPECT_EQ(logOn(&logon, nullptr), E_INVALIDARG) << "a logon needs a store";
    ExpectNothingGiven();

    EXPECT_CALL(*pst, SpoolerLogon(_, _, _, _, _, _, _, _, _, _, IsNull(), IsNull()))
        .WillOnce(Return(MAPI_E_INVALID_PARAMETER));
    EXPECT_EQ(
        provider->SpoolerLogon(support, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, nullptr, nullptr, nullptr),
        MAPI_E_INVALID_PARAMETER);
}

} // namespace
} // namespace Tests
