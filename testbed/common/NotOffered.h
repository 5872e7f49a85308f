// Methods that the testbed does not offer.
#pragma once

/// Defines a method of a class, given the types of its arguments, that answers MAPI_E_NO_SUPPORT.
#define NOT_OFFERED(type, method, ...)                                                                                 \
    STDMETHODIMP type::method(__VA_ARGS__)                                                                             \
    {                                                                                                                  \
        return MAPI_E_NO_SUPPORT;                                                                                      \
    }                                                                                                                  \
    static_assert(true, "for the semicolon")
