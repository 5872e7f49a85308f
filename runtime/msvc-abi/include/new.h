// The name under which libc++ looks for the runtime's allocation functions.
#pragma once

#include <vcruntime_new.h>
