#include "concurrency/base/loader_lock.h"

#include <gtest/gtest.h>

namespace {

// tests/journeys has a thread that holds it.
TEST(LoaderLock, IsNotHeldByAThreadThatLoadsNothing) {
    EXPECT_FALSE(Orvane::Internal::HoldsLoaderLock());
}

}  // namespace
