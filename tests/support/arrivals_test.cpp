#include "tests/support/arrivals.h"
#include "tests/support/thread.h"

#include <gtest/gtest.h>

namespace Zarvo::Test {
namespace {

TEST(Arrivals, ListsInOrderOfArrivalAcrossThreads) {
    Arrivals arrivals;
    arrivals.Add("first");
    Thread([&] { arrivals.Add("second"); }).join();
    arrivals.Add("third");

    EXPECT_EQ(arrivals.List(), Names({"first", "second", "third"}));
}

}  // namespace
}  // namespace Zarvo::Test
