// The test doubles' one unit.
#include "tests/units/Doubles.h"

TESTS_DOUBLES(template)
