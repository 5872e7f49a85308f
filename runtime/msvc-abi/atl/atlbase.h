// ATL's main header, of which only the interface pointers are wanted here.
#pragma once

#include <atlcomcli.h>
