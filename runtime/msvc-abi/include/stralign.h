// One of its inline functions calls a function that units here may not call.
#pragma once

#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
#include_next <stralign.h>
#pragma clang diagnostic pop
