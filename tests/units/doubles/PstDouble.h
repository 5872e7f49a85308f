// A PST module whose functions do what a test says.
#pragma once

#include "support/MapiHeaders.h"

/// What the functions of the module do; one that is null gives MAPI_E_CALL_FAILED. The module exports one object of
/// this type as "pstDouble".
struct PstDouble
{
    MSGSERVICEENTRY* serviceEntry;
    MSPROVIDERINIT* providerInit;
};
