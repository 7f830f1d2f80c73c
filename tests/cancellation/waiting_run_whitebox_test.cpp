// What every cancellable wait says of its end.
#include "concurrency/cancellation/waiting_run.h"

#include <gtest/gtest.h>

#include "concurrency/cancellation/wait_protocol.h"
#include "tests/cancellation/run_scope.h"

namespace {

using namespace Orvane::Internal;
using namespace Zarvo::Test;

template <typename Block>
WaitResult Wait(Block block) {
    return CurrentRun().WaitUnlessCancelled(WaitKind::Sleep, nullptr, block);
}

TEST(WaitingRun, SaysWhetherItsWaitCameBackInTime) {
    EXPECT_EQ(Wait([] { return true; }), WaitResult::Done);
    EXPECT_EQ(Wait([] { return false; }), WaitResult::TimedOut);
    const RunScope run;
    EXPECT_EQ(Wait([] { return true; }), WaitResult::Done);
    EXPECT_EQ(Wait([] { return false; }), WaitResult::TimedOut);
}

TEST(WaitingRun, SaysThatItWasAskedDuringItsWait) {
    const RunScope run;
    EXPECT_EQ(Wait([&run] {
                  run.Cancellation().RequestCancel();
                  return true;
              }),
              WaitResult::Cancelled);
}

TEST(WaitingRun, DoesNotWaitWhenItWasAskedBefore) {
    const RunScope run;
    run.Cancellation().RequestCancel();
    bool hasWaited = false;
    EXPECT_EQ(Wait([&hasWaited] { return hasWaited = true; }), WaitResult::Cancelled);
    EXPECT_FALSE(hasWaited);
}

}  // namespace
