// Moved; include the header below.
#pragma once

#include "tests/support/fake_wall_clock.h"
