// The interfaces of a store provider's objects, and of MAPI's support object, with every method but those of IUnknown
// answered MAPI_E_NO_SUPPORT: bases for stand-ins that a test writes by hand, where it needs few of the methods or must
// not pay for a mock.
#pragma once

#include "support/MapiHeaders.h"

namespace Tests
{

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-parameter"
// The macros end each method with a semicolon, which a body does not need.
#pragma GCC diagnostic ignored "-Wextra-semi"
#endif

#define TESTS_NO_SUPPORT                                                                                               \
    override                                                                                                           \
    {                                                                                                                  \
        return MAPI_E_NO_SUPPORT;                                                                                      \
    }

class InertStore : public IMsgStore
{
public:
    MAPI_IMAPIPROP_METHODS(TESTS_NO_SUPPORT)
    MAPI_IMSGSTORE_METHODS(TESTS_NO_SUPPORT)
};

class InertFolder : public IMAPIFolder
{
public:
    MAPI_IMAPIPROP_METHODS(TESTS_NO_SUPPORT)
    MAPI_IMAPICONTAINER_METHODS(TESTS_NO_SUPPORT)
    MAPI_IMAPIFOLDER_METHODS(TESTS_NO_SUPPORT)
};

class InertMessage : public IMessage
{
public:
    MAPI_IMAPIPROP_METHODS(TESTS_NO_SUPPORT)
    MAPI_IMESSAGE_METHODS(TESTS_NO_SUPPORT)
};

class InertTable : public IMAPITable
{
public:
    MAPI_IMAPITABLE_METHODS(TESTS_NO_SUPPORT)
};

class InertSupport : public IMAPISupport
{
public:
    MAPI_IMAPISUPPORT_METHODS1(TESTS_NO_SUPPORT)
    MAPI_IMAPISUPPORT_METHODS2(TESTS_NO_SUPPORT)
    MAPI_IMAPISUPPORT_METHODS3(TESTS_NO_SUPPORT)
};

#undef TESTS_NO_SUPPORT
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

} // namespace Tests
