#include "tests/support/plain_thread.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "concurrency/base/windows_api.h"

namespace Zarvo::Test {
namespace {

TEST(PlainThread, RunsTheBodyOnAnotherThread) {
    DWORD id = 0;
    PlainThread thread([&] { id = ::GetCurrentThreadId(); });
    thread.Join();

    EXPECT_NE(id, 0U);
    EXPECT_NE(id, ::GetCurrentThreadId());
}

TEST(PlainThread, HasEndedOnceTheBodyHas) {
    Gate gate;
    PlainThread thread([&] { gate.Wait(); });

    EXPECT_FALSE(thread.HasEnded());
    gate.Open();
    thread.Join();
    EXPECT_TRUE(thread.HasEnded());
}

TEST(PlainThread, DestructorJoins) {
    bool ran = false;
    {
        const PlainThread thread([&] { ran = true; });
    }

    EXPECT_TRUE(ran);
}

TEST(PlainThread, DestroysTheBodyBeforeItCountsAsEnded) {
    auto bound = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = bound;
    PlainThread thread([bound = std::move(bound)] {});
    thread.Join();

    EXPECT_TRUE(watched.expired());
}

}  // namespace
}  // namespace Zarvo::Test
