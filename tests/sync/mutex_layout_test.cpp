// The order of the fields, which is part of the interface.

#include <gtest/gtest.h>

#include "tests/sync/mutex_fields.h"

namespace {

using namespace Orvane;

TEST(CheckedMutex, KeepsTheLockBeforeTheFlagBehindTheVirtualTable) {
    const checked_mutex mutex;
    const auto offsets = FieldOrder::OffsetsOf(mutex);

    EXPECT_EQ(offsets.mutex, sizeof(void*));
    EXPECT_GE(offsets.condition, offsets.mutex + sizeof(std::mutex));
    EXPECT_GE(offsets.held, offsets.condition + sizeof(std::condition_variable));
    EXPECT_GE(offsets.locked, offsets.held + 4);
    EXPECT_LT(offsets.locked, sizeof(checked_mutex));
}

TEST(InterprocessMutex, KeepsHandleThenFlagThenOwner) {
    const interprocess_mutex mutex;
    const auto offsets = FieldOrder::OffsetsOf(mutex);

    EXPECT_EQ(offsets.handle, 0U);
    EXPECT_EQ(offsets.locked, sizeof(HANDLE));
    EXPECT_EQ(offsets.owner, sizeof(HANDLE) + 4);
    EXPECT_EQ(sizeof(interprocess_mutex), sizeof(HANDLE) + 8);
}

}  // namespace
