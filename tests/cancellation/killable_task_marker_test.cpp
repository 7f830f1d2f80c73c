#include "concurrency/cancellation/killable_task_marker.h"

#include <gtest/gtest.h>

#include <optional>
#include <type_traits>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "tests/cancellation/run_scope.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

TEST(KillableTaskMarker, MakesTheRunKillableForItsScope) {
    const RunScope run;
    EXPECT_FALSE(run.Cancellation().GetKillable());

    {
        const KillableTaskMarker marker;
        EXPECT_TRUE(run.Cancellation().GetKillable());
    }

    EXPECT_FALSE(run.Cancellation().GetKillable());
}

TEST(KillableTaskMarker, DoesNotNest) {
    const RunScope run;
    const KillableTaskMarker outer;

    {
        const KillableTaskMarker inner;
    }

    EXPECT_FALSE(run.Cancellation().GetKillable());
}

TEST(KillableTaskMarker, OtherThreadsSeeIt) {
    const RunScope run;
    const KillableTaskMarker marker;

    bool killable = false;
    Thread([&] { killable = run.Cancellation().GetKillable(); }).join();

    EXPECT_TRUE(killable);
}

TEST(KillableTaskMarker, EndsWithItsScopeWhenAnExceptionLeavesIt) {
    const RunScope run;
    run.Cancellation().RequestCancel();

    EXPECT_THROW(
        {
            const KillableTaskMarker marker;
            CancellationPoint();
        },
        CancelRequestedException);

    EXPECT_FALSE(run.Cancellation().GetKillable());
}

TEST(KillableTaskMarker, KeepsNothingAndLooksTheRunUpAnewAtItsEnd) {
    const RunScope outer;
    std::optional<KillableTaskMarker> marker(std::in_place);
    const RunScope inner;
    inner.Cancellation().SetKillable(true);

    marker.reset();

    EXPECT_TRUE(outer.Cancellation().GetKillable());
    EXPECT_FALSE(inner.Cancellation().GetKillable());
}

TEST(KillableTaskMarker, LeavesTheRequestAlone) {
    const RunScope run;

    {
        const KillableTaskMarker marker;
    }

    EXPECT_FALSE(run.Cancellation().IsRequested());
}

TEST(KillableTaskMarker, HasNoDataAndADestructorThatDoesNotThrow) {
    static_assert(std::is_empty_v<KillableTaskMarker>);
    static_assert(std::is_nothrow_destructible_v<KillableTaskMarker>);
}

}  // namespace
