// A pool whose workers are all taken, so that what is queued waits.
//
// Threads: the members belong to the test's thread.
// Lifetime: declare it after the library's lifetime, before what waits in the pool. The destructor releases the workers.
#pragma once

#include <gtest/gtest.h>

#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/held_worker.h"
#include "tests/threadpool/pool_numbers.h"

namespace Zarvo::Test {

// Six run; two more are held where they do not count as busy. The next task that is queued decides on a growth, which finds
// no worker that could run it.
class FullPool {
  public:
    FullPool() { EXPECT_TRUE(m_held.Start(kFirstFull, &Orvane::Internal::GlobalThreadPool::Queue)); }
    FullPool(const FullPool&) = delete;
    FullPool& operator=(const FullPool&) = delete;

    void Release() {
        m_first.Release();
        m_second.Release();
        m_held.Release();
    }

  private:
    HeldWorker m_first{&Orvane::Internal::GlobalThreadPool::Queue};
    HeldWorker m_second{&Orvane::Internal::GlobalThreadPool::Queue};
    HeldTasks m_held;
};

}  // namespace Zarvo::Test
