// A unit that includes the MAPI headers as a host's might; what it does wrong is said on the command line.
#if defined(TEST_COM_HEADERS_FIRST)
#include <windows.h>

#include <objbase.h>
#endif
#if defined(TEST_DEFINED_TOO_LATE)
#define COM_STDMETHOD_CAN_THROW
#endif
#if defined(TEST_MARKED_AS_CORRECTED)
#define MAPI_TYPES_ARE_64_BIT
#endif

#include "support/MapiHeaders.h"
