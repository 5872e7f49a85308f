// The archive subtree root: CNstMsProvider::ConfigureNstSubtreeEntryId.
#include "nst/NstMsProvider.h"
#include "support/Exceptions.h"
#include "support/MapiErrors.h"
#include "support/MapiProperties.h"
#include "tests/common/LogCapture.h"
#include "tests/common/Properties.h"
#include "tests/common/Setting.h"
#include "tests/common/StoreDoubles.h"
#include "tests/common/SupportDoubles.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace Quillon;
using testing::_;
using testing::ElementsAre;
using testing::InSequence;
using testing::IsEmpty;
using testing::IsNull;
using testing::Return;
using Tests::BinaryValue;
using Tests::Bytes;
using Tests::FolderDouble;
using Tests::LogCapture;
using Tests::StoreDouble;
using Tests::Text;

namespace
{

constexpr auto file = L"NstMsProvider.cpp";
constexpr auto function = L"Quillon::Nst::CNstMsProvider::ConfigureNstSubtreeEntryId";
constexpr ULONG rootTag = 0x7FE20102;

/// What a host derives, to reach the operation.
class Provider : public Nst::CNstMsProvider
{
public:
    Provider() : CNstMsProvider(nullptr) {}
    using CNstMsProvider::ConfigureNstSubtreeEntryId;
};

/// A store whose IPM subtree is the folder `subtree`, which creates `root`.
struct ArchiveSetting
{
    Tests::DoublePointer<testing::NiceMock<StoreDouble>> store = Tests::MakeNice<StoreDouble>();
    Tests::DoublePointer<testing::NiceMock<FolderDouble>> subtree = Tests::MakeNice<FolderDouble>();
    Tests::DoublePointer<testing::NiceMock<FolderDouble>> root = Tests::MakeNice<FolderDouble>();
    HRESULT createResult = S_OK;
    Bytes written;

    ArchiveSetting()
    {
        Tests::GiveNoProperty(*store, rootTag);
        Tests::GiveProperty(*store, BinaryValue(PR_IPM_SUBTREE_ENTRYID, {1, 2, 3}));
        Tests::GiveProperty(*root, BinaryValue(PR_ENTRYID, {7, 8, 9, 10}));
        ON_CALL(*store, OpenEntry)
            .WillByDefault(
                [this](ULONG size, ENTRYID* entryId, const IID*, ULONG, ULONG* type, IUnknown** object) -> HRESULT
                {
                    const auto* const bytes = reinterpret_cast<const BYTE*>(entryId);
                    EXPECT_EQ(Bytes(bytes, bytes + size), (Bytes{1, 2, 3}));
                    *type = MAPI_FOLDER;
                    *object = subtree.Get();
                    (*object)->AddRef();
                    return S_OK;
                });
        ON_CALL(*subtree, CreateFolder)
            .WillByDefault(
                [this](ULONG, LPTSTR, LPTSTR, const IID*, ULONG, IMAPIFolder** folder) -> HRESULT
                {
                    if (SUCCEEDED(createResult))
                    {
                        *folder = root.Get();
                        root->AddRef();
                    }
                    return createResult;
                });
        ON_CALL(*store, SetProps)
            .WillByDefault(
                [this](ULONG count, SPropValue* property, SPropProblemArray**) -> HRESULT
                {
                    EXPECT_EQ(count, 1u);
                    EXPECT_EQ(property->ulPropTag, rootTag);
                    written = Tests::BytesOf(*property);
                    return S_OK;
                });
    }

    void Configure() const
    {
        const Tests::DoublePointer<Provider> provider(new Provider);
        provider->ConfigureNstSubtreeEntryId(store.Get());
    }

    HRESULT ThrownCode() const
    {
        try
        {
            Configure();
            return S_OK;
        }
        catch (const CException& exception)
        {
            return exception.GetHResult();
        }
    }
};

MATCHER_P(Named, name, "")
{
    return arg && std::wstring(arg) == name;
}

} // namespace

TEST(ArchiveRoot, IsCreatedUnderTheIpmSubtreeAndRecorded)
{
    const LogCapture log;
    ArchiveSetting setting;
    {
        const InSequence order;
        EXPECT_CALL(*setting.subtree,
                    CreateFolder(1, Named(L"Archiver Store Root"), IsNull(), IsNull(), 0x80000001, _));
        EXPECT_CALL(*setting.store, SetProps);
        EXPECT_CALL(*setting.store, SaveChanges(0)).WillOnce(Return(S_OK));
    }
    setting.Configure();
    EXPECT_EQ(setting.written, (Bytes{7, 8, 9, 10}));
    EXPECT_EQ(setting.subtree->References(), 1u);
    EXPECT_EQ(setting.root->References(), 1u);
    EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(ArchiveRoot, IsCreatedOnce)
{
    ArchiveSetting setting;
    EXPECT_CALL(*setting.subtree, CreateFolder).Times(1);
    EXPECT_CALL(*setting.store, SaveChanges(0)).Times(1);
    setting.Configure();
    Tests::GiveProperty(*setting.store, BinaryValue(rootTag, setting.written));
    EXPECT_CALL(*setting.store, OpenEntry).Times(0);
    setting.Configure();
}

TEST(ArchiveRoot, FailsOnAStoreWithoutAnIpmSubtree)
{
    const LogCapture log;
    const ArchiveSetting setting;
    Tests::GiveNoProperty(*setting.store, PR_IPM_SUBTREE_ENTRYID);
    EXPECT_CALL(*setting.store, OpenEntry).Times(0);
    EXPECT_EQ(setting.ThrownCode(), MAPI_E_NOT_FOUND);
}

TEST(ArchiveRoot, FailsAsWithoutAnIpmSubtreeWhenItsEntryIdIsNone)
{
    // Opened with no entry ID, a store gives its root folder.
    for (const Tests::Property& none :
         {BinaryValue(PR_IPM_SUBTREE_ENTRYID, {}),
          Tests::NumberValue(CHANGE_PROP_TYPE(PR_IPM_SUBTREE_ENTRYID, PT_LONG), 3),
          Tests::TextValue(CHANGE_PROP_TYPE(PR_IPM_SUBTREE_ENTRYID, PT_UNICODE), L"text"),
          Tests::NarrowTextValue(CHANGE_PROP_TYPE(PR_IPM_SUBTREE_ENTRYID, PT_STRING8), "text"),
          BinaryValue(PR_ENTRYID, {1, 2, 3})})
    {
        const LogCapture log;
        const ArchiveSetting setting;
        ON_CALL(*setting.store, GetProps(Tests::Tags(std::vector<ULONG>{PR_IPM_SUBTREE_ENTRYID}), _, _, _))
            .WillByDefault(Tests::GiveProps(S_OK, {none}));
        EXPECT_CALL(*setting.store, OpenEntry).Times(0);
        EXPECT_CALL(*setting.store, SetProps).Times(0);
        try
        {
            setting.Configure();
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (const Mapi::CMapiError& error)
        {
            EXPECT_EQ(error.GetHResult(), MAPI_E_NOT_FOUND);
            EXPECT_THAT(log.Lines(),
                        ElementsAre(Tests::Throwing(
                            file, function,
                            Text(Mapi::FormatMapiError(
                                MAPI_E_NOT_FOUND, Mapi::FormatMapiPropertyTag(PR_IPM_SUBTREE_ENTRYID), nullptr)))));
        }
    }
}

TEST(ArchiveRoot, FailsWhenTheSubtreeIsNoFolder)
{
    const LogCapture log;
    const ArchiveSetting setting;
    const auto message = Tests::MakeNice<Tests::MessageDouble>();
    IUnknown* given = nullptr;
    EXPECT_CALL(*setting.store, OpenEntry)
        .Times(2)
        .WillRepeatedly(
            [&given](ULONG, ENTRYID*, const IID*, ULONG, ULONG*, IUnknown** object) -> HRESULT
            {
                *object = given;
                if (given)
                    given->AddRef();
                return S_OK;
            });
    EXPECT_CALL(*setting.subtree, CreateFolder).Times(0);
    EXPECT_EQ(setting.ThrownCode(), E_FAIL);
    given = message.Get();
    EXPECT_EQ(setting.ThrownCode(), E_NOINTERFACE);
    EXPECT_EQ(message->References(), 1u);
    EXPECT_EQ(log.Lines().size(), 2u);
}

TEST(ArchiveRoot, FailsWithTheParentsRecordWhenTheFolderCannotBeCreated)
{
    const LogCapture log;
    ArchiveSetting setting;
    setting.createResult = MAPI_E_NO_ACCESS;
    Tests::GiveExtendedError(*setting.subtree, MAPI_E_NO_ACCESS, L"read-only", L"PST", 1, 2);
    EXPECT_CALL(*setting.store, SetProps).Times(0);
    EXPECT_CALL(*setting.store, SaveChanges).Times(0);
    EXPECT_EQ(setting.ThrownCode(), MAPI_E_NO_ACCESS);
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(
                                 file, function,
                                 Text(Mapi::FormatMapiError(MAPI_E_NO_ACCESS, StringW(), nullptr)) +
                                     L" [read-only; component: PST; low-level error: 0x00000001; context: 2]")));
}

TEST(ArchiveRoot, LogsAWarningAndGoesOn)
{
    const LogCapture log;
    ArchiveSetting setting;
    setting.createResult = MAPI_W_ERRORS_RETURNED;
    EXPECT_CALL(*setting.store, SaveChanges(0)).WillOnce(Return(MAPI_W_ERRORS_RETURNED));
    setting.Configure();
    const auto warning = Tests::Entry(LogId::Warning, L"MAPI_W_ERRORS_RETURNED (0x00040380)");
    EXPECT_THAT(log.Lines(), ElementsAre(warning, warning));
}

TEST(ArchiveRoot, FailsWhenItCannotBeRecorded)
{
    const LogCapture log;
    const ArchiveSetting setting;
    ON_CALL(*setting.store, SetProps).WillByDefault(Return(MAPI_E_NO_ACCESS));
    EXPECT_CALL(*setting.store, SaveChanges).Times(0);
    EXPECT_EQ(setting.ThrownCode(), MAPI_E_NO_ACCESS);
    EXPECT_EQ(setting.root->References(), 1u);
}

TEST(ArchiveRoot, FailsWhenTheStoreCannotBeSaved)
{
    const LogCapture log;
    const ArchiveSetting setting;
    EXPECT_CALL(*setting.store, SaveChanges(0)).WillOnce(Return(MAPI_E_DISK_ERROR));
    EXPECT_EQ(setting.ThrownCode(), MAPI_E_DISK_ERROR);
    EXPECT_THAT(log.Lines(), ElementsAre(Tests::Throwing(file, function, L"MAPI_E_DISK_ERROR (0x80040116)")));
}

TEST(ArchiveRoot, EndsTheProcessWhenACorruptStoreIsFatal)
{
    const auto open = []
    {
        Tests::LogToStandardError();
        Mapi::GetDieOnCorruptStore() = true;
        const ArchiveSetting setting;
        ON_CALL(*setting.store, OpenEntry).WillByDefault(Return(MAPI_E_CORRUPT_STORE));
        setting.Configure();
    };
    EXPECT_EXIT(open(), testing::ExitedWithCode(static_cast<int>(MAPI_E_CORRUPT_STORE)),
                testing::HasSubstr("error: Exiting process at OpenMapiObject.h, Quillon::Mapi::OpenMapiObject, line "));
    const std::string exiting = "error: Exiting process at NstMsProvider.cpp, "
                                "Quillon::Nst::CNstMsProvider::ConfigureNstSubtreeEntryId, line ";
    const auto create = []
    {
        Tests::LogToStandardError();
        Mapi::GetDieOnCorruptStore() = true;
        ArchiveSetting setting;
        setting.createResult = MAPI_E_CORRUPT_STORE;
        setting.Configure();
    };
    EXPECT_EXIT(create(), testing::ExitedWithCode(static_cast<int>(MAPI_E_CORRUPT_STORE)), testing::HasSubstr(exiting));
    const auto save = []
    {
        Tests::LogToStandardError();
        Mapi::GetDieOnCorruptStore() = true;
        const ArchiveSetting setting;
        ON_CALL(*setting.store, SaveChanges).WillByDefault(Return(MAPI_E_CORRUPT_STORE));
        setting.Configure();
    };
    EXPECT_EXIT(save(), testing::ExitedWithCode(static_cast<int>(MAPI_E_CORRUPT_STORE)), testing::HasSubstr(exiting));
}
