// What this project uses of the platform's API, over POSIX threads: so that its sources can run where there are
// sanitizers. Correct rather than fast, and no more complete than its tests need.
#pragma once

#include <guiddef.h>

#include "tests/host/windows/clocks.h"
#include "tests/host/windows/errors.h"
#include "tests/host/windows/modules.h"
#include "tests/host/windows/objects.h"
#include "tests/host/windows/output.h"
#include "tests/host/windows/pages.h"
#include "tests/host/windows/registry.h"
#include "tests/host/windows/text.h"
#include "tests/host/windows/threads.h"
