#include "tests/support/arrivals.h"

#include <gtest/gtest.h>

#include <thread>

namespace Zarvo::Test {
namespace {

TEST(Arrivals, ListsInOrderOfArrivalAcrossThreads) {
    Arrivals arrivals;
    arrivals.Add("first");
    std::thread([&] { arrivals.Add("second"); }).join();
    arrivals.Add("third");

    EXPECT_EQ(arrivals.List(), Names({"first", "second", "third"}));
}

}  // namespace
}  // namespace Zarvo::Test
