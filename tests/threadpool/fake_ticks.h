// Moved; include the header below.
#pragma once

#include "tests/support/fake_ticks.h"
