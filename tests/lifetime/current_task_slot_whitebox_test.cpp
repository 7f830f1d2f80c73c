// Which slot is in use when: the lifetime's own, or the reserve.
#include "concurrency/cancellation/current_task_slot.h"

#include <gtest/gtest.h>

#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/concurrency_lifetime.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;

TEST(CurrentTaskSlot, IsOneOfItsOwnWhileInitialisedAndTheReserveOtherwise) {
    const DWORD reserve = CurrentTaskSlot();

    ConcurrencyInitialize();
    EXPECT_NE(CurrentTaskSlot(), reserve);

    ConcurrencyUninitialize();
    EXPECT_EQ(CurrentTaskSlot(), reserve);
}

TEST(CurrentTaskSlot, IsNeverIndexZeroWhichIsNotOurs) {
    EXPECT_NE(CurrentTaskSlot(), 0U);
    const ConcurrencyLifetime lifetime;
    EXPECT_NE(CurrentTaskSlot(), 0U);
}

TEST(CurrentTaskSlot, ReserveStaysTheSameUntilItIsFreed) {
    const DWORD reserve = CurrentTaskSlot();
    EXPECT_EQ(CurrentTaskSlot(), reserve);
    {
        const ConcurrencyLifetime lifetime;
    }
    EXPECT_EQ(CurrentTaskSlot(), reserve);

    FreeReserveSlot();

    const DWORD next = TlsAlloc();  // the lowest free one
    EXPECT_LE(next, reserve);
    TlsFree(next);
}

}  // namespace
