#include "concurrency/base/mutex.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>

#include "concurrency/base/ranked_mutex.h"
#include "tests/support/gate.h"
#include "tests/support/resource_probe.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane::Internal;
using namespace Zarvo::Test;

// The mutexes that the library has.
template <typename Mutex>
class MutexTest : public testing::Test {
  public:
    using Ranked = RankedMutex<Mutex, LockRank::Leaf>;

    static bool IsFreeForOthers(Ranked& mutex) {
        bool taken = false;
        Thread([&] {
            taken = mutex.try_lock();
            if (taken) {
                mutex.unlock();
            }
        }).join();
        return taken;
    }

    // Two threads want it at a time.
    static void Contend() {
        const auto mutex = std::make_unique<Ranked>();
        Gate comes;
        mutex->lock();
        Thread other([&] {
            comes.Open();
            const RankedLock lock(*mutex);
        });
        comes.Wait();
        mutex->unlock();
        other.join();
    }
};

using RecursiveMutexes = testing::Types<RecursiveMutex, std::recursive_mutex>;
TYPED_TEST_SUITE(MutexTest, RecursiveMutexes);

TYPED_TEST(MutexTest, LetsOneThreadInAndThatAgain) {
    typename TestFixture::Ranked mutex;
    mutex.lock();
    EXPECT_TRUE(mutex.try_lock());
    EXPECT_FALSE(this->IsFreeForOthers(mutex));
    mutex.unlock();
    EXPECT_FALSE(this->IsFreeForOthers(mutex));
    mutex.unlock();
    EXPECT_TRUE(this->IsFreeForOthers(mutex));
}

TYPED_TEST(MutexTest, MakesTheSecondThreadWait) {
    typename TestFixture::Ranked mutex;
    int counter = 0;
    const auto count = [&] {
        for (int i = 0; i < 1000; ++i) {
            const RankedLock lock(mutex);
            ++counter;
        }
    };
    Thread other(count);
    count();
    other.join();
    EXPECT_EQ(counter, 2000);
}

TYPED_TEST(MutexTest, GivesBackAllItTook) {
    {
        // The runtime may keep a record for as many threads as there have been at a time.
        Thread one(&TestFixture::Contend);
        Thread another(&TestFixture::Contend);
    }
    EXPECT_EQ(GrowthOver(50, &TestFixture::Contend), Resources{});
}

}  // namespace
