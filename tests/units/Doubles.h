// The test doubles as these tests use them. Each is made in one unit: its tables of mocked methods are large.
#pragma once

#include "tests/common/SupportDoubles.h"

#define TESTS_DOUBLES(declare)                                                                                         \
    declare class testing::NiceMock<::Tests::FolderDouble>;                                                            \
    declare class testing::NiceMock<::Tests::MessageDouble>;                                                           \
    declare class testing::NiceMock<::Tests::ProfileSectionDouble>;                                                    \
    declare class testing::NiceMock<::Tests::ProviderAdminDouble>;                                                     \
    declare class testing::NiceMock<::Tests::ProviderDouble>;                                                          \
    declare class testing::NiceMock<::Tests::StoreDouble>;                                                             \
    declare class testing::NiceMock<::Tests::SupportDouble>;                                                           \
    declare class testing::NiceMock<::Tests::UnknownDouble>;                                                           \
    declare class testing::StrictMock<::Tests::MessageDouble>;                                                         \
    declare class testing::StrictMock<::Tests::StoreDouble>;                                                           \
    declare class testing::StrictMock<::Tests::SupportDouble>;

TESTS_DOUBLES(extern template)
