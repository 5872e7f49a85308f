// Gives the platform's interfaces the identifiers that __uuidof reads, as Visual Studio's headers do.
#pragma once

#include_next <rpcndr.h>

#undef MIDL_INTERFACE
#define MIDL_INTERFACE(identifier) struct __declspec(uuid(identifier)) __declspec(novtable)
