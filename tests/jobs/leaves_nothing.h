// Whether something that is done again and again leaves memory or handles behind.
#pragma once

#include <gtest/gtest.h>

#include "tests/support/eventually.h"
#include "tests/support/resource_probe.h"

namespace Zarvo::Test {

template <typename Call>
void ExpectItLeavesNothing(Call once) {
    once();
    Resources growth;
    const ResourceProbe probe;
    for (int i = 0; i < 100; ++i) {
        once();
    }
    EXPECT_TRUE(Eventually([&] {
        growth = probe.Growth();
        return growth.blocks < 50 && growth.handles < 50;
    })) << growth;
}

}  // namespace Zarvo::Test
