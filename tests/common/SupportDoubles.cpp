// The doubles of MAPI's own objects. Defined in one unit, because they are large.
#include "tests/common/SupportDoubles.h"

namespace Tests
{

template <class Unused>
SupportDoubleOf<Unused>::SupportDoubleOf() : TestDouble("support object", {IID_IMAPISup, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

template <class Unused>
SupportDoubleOf<Unused>::~SupportDoubleOf() = default;

template <class Unused>
ProfileSectionDoubleOf<Unused>::ProfileSectionDoubleOf()
    : TestDouble("profile section", {IID_IProfSect, IID_IMAPIProp, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

template <class Unused>
ProfileSectionDoubleOf<Unused>::~ProfileSectionDoubleOf() = default;

template <class Unused>
ProviderAdminDoubleOf<Unused>::ProviderAdminDoubleOf()
    : TestDouble("provider administration", {IID_IProviderAdmin, IID_IUnknown})
{
    ON_CALL(*this, GetLastError).WillByDefault(testing::Return(MAPI_E_NO_SUPPORT));
}

template <class Unused>
ProviderAdminDoubleOf<Unused>::~ProviderAdminDoubleOf() = default;

} // namespace Tests

template class Tests::ProfileSectionDoubleOf<void>;
template class Tests::ProviderAdminDoubleOf<void>;
template class Tests::SupportDoubleOf<void>;
template class testing::NiceMock<Tests::ProfileSectionDouble>;
template class testing::NiceMock<Tests::ProviderAdminDouble>;
template class testing::NiceMock<Tests::SupportDouble>;
template class testing::StrictMock<Tests::SupportDouble>;
