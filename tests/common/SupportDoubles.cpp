// The doubles of MAPI's own objects. Defined in one unit, because they are large.
#include "tests/common/SupportDoubles.h"

namespace Tests
{

SupportDouble::SupportDouble() : TestDouble("support object", {IID_IMAPISup, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

SupportDouble::~SupportDouble() = default;

ProfileSectionDouble::ProfileSectionDouble()
    : TestDouble("profile section", {IID_IProfSect, IID_IMAPIProp, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

ProfileSectionDouble::~ProfileSectionDouble() = default;

ProviderAdminDouble::ProviderAdminDouble() : TestDouble("provider administration", {IID_IProviderAdmin, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

ProviderAdminDouble::~ProviderAdminDouble() = default;

} // namespace Tests

template class testing::NiceMock<Tests::ProfileSectionDouble>;
template class testing::NiceMock<Tests::ProviderAdminDouble>;
template class testing::NiceMock<Tests::SupportDouble>;
template class testing::StrictMock<Tests::SupportDouble>;
