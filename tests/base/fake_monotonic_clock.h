// Moved; include the header below.
#pragma once

#include "tests/support/fake_monotonic_clock.h"
