// The doubles of the store provider's objects. Defined in one unit, because they are large.
#include "tests/common/StoreDoubles.h"

namespace Tests
{

UnknownDouble::UnknownDouble() : TestDouble("unknown", {IID_IUnknown}) {}

UnknownDouble::~UnknownDouble() = default;

ProviderDouble::ProviderDouble() : TestDouble("provider", {IID_IMSProvider, IID_IUnknown}) {}

ProviderDouble::~ProviderDouble() = default;

LogonDouble::LogonDouble() : TestDouble("logon", {IID_IMSLogon, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

LogonDouble::~LogonDouble() = default;

StoreDouble::StoreDouble() : TestDouble("store", {IID_IMsgStore, IID_IMAPIProp, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

StoreDouble::~StoreDouble() = default;

FolderDouble::FolderDouble() : TestDouble("folder", {IID_IMAPIFolder, IID_IMAPIContainer, IID_IMAPIProp, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

FolderDouble::~FolderDouble() = default;

TableDouble::TableDouble() : TestDouble("table", {IID_IMAPITable, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

TableDouble::~TableDouble() = default;

MessageDouble::MessageDouble() : TestDouble("message", {IID_IMessage, IID_IMAPIProp, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

MessageDouble::~MessageDouble() = default;

AttachDouble::AttachDouble() : TestDouble("attachment", {IID_IAttachment, IID_IMAPIProp, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

AttachDouble::~AttachDouble() = default;

} // namespace Tests

template class testing::NiceMock<Tests::AttachDouble>;
template class testing::NiceMock<Tests::FolderDouble>;
template class testing::NiceMock<Tests::LogonDouble>;
template class testing::NiceMock<Tests::MessageDouble>;
template class testing::NiceMock<Tests::ProviderDouble>;
template class testing::NiceMock<Tests::StoreDouble>;
template class testing::NiceMock<Tests::TableDouble>;
template class testing::NiceMock<Tests::UnknownDouble>;
template class testing::StrictMock<Tests::MessageDouble>;
template class testing::StrictMock<Tests::StoreDouble>;
