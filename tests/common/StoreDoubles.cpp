// The doubles of the store provider's objects. Defined in one unit, because they are large.
#include "tests/common/StoreDoubles.h"

namespace Tests
{

template <class Unused>
UnknownDoubleOf<Unused>::UnknownDoubleOf() : TestDouble("unknown", {IID_IUnknown})
{
}

template <class Unused>
UnknownDoubleOf<Unused>::~UnknownDoubleOf() = default;

template <class Unused>
ProviderDoubleOf<Unused>::ProviderDoubleOf() : TestDouble("provider", {IID_IMSProvider, IID_IUnknown})
{
}

template <class Unused>
ProviderDoubleOf<Unused>::~ProviderDoubleOf() = default;

template <class Unused>
LogonDoubleOf<Unused>::LogonDoubleOf() : TestDouble("logon", {IID_IMSLogon, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

template <class Unused>
LogonDoubleOf<Unused>::~LogonDoubleOf() = default;

template <class Unused>
StoreDoubleOf<Unused>::StoreDoubleOf() : TestDouble("store", {IID_IMsgStore, IID_IMAPIProp, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

template <class Unused>
StoreDoubleOf<Unused>::~StoreDoubleOf() = default;

template <class Unused>
FolderDoubleOf<Unused>::FolderDoubleOf()
    : TestDouble("folder", {IID_IMAPIFolder, IID_IMAPIContainer, IID_IMAPIProp, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

template <class Unused>
FolderDoubleOf<Unused>::~FolderDoubleOf() = default;

template <class Unused>
TableDoubleOf<Unused>::TableDoubleOf() : TestDouble("table", {IID_IMAPITable, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

template <class Unused>
TableDoubleOf<Unused>::~TableDoubleOf() = default;

template <class Unused>
MessageDoubleOf<Unused>::MessageDoubleOf() : TestDouble("message", {IID_IMessage, IID_IMAPIProp, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

template <class Unused>
MessageDoubleOf<Unused>::~MessageDoubleOf() = default;

template <class Unused>
AttachDoubleOf<Unused>::AttachDoubleOf() : TestDouble("attachment", {IID_IAttachment, IID_IMAPIProp, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

template <class Unused>
AttachDoubleOf<Unused>::~AttachDoubleOf() = default;

} // namespace Tests

template class Tests::AttachDoubleOf<void>;
template class Tests::FolderDoubleOf<void>;
template class Tests::LogonDoubleOf<void>;
template class Tests::MessageDoubleOf<void>;
template class Tests::ProviderDoubleOf<void>;
template class Tests::StoreDoubleOf<void>;
template class Tests::TableDoubleOf<void>;
template class Tests::UnknownDoubleOf<void>;
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
