// A worker of the global pool that is ended by force, as some clients do.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/gate.h"

namespace Zarvo::Test {

// Returns when the worker is gone. It dies in a sleep, where it holds no lock.
inline void KillOneWorker() {
    struct Worker {
        Gate entered;
        std::atomic<DWORD> id = 0;
    };
    const auto worker = std::make_shared<Worker>();
    Orvane::Internal::GlobalThreadPool::Queue(Orvane::MakeTask(L"killed", [worker] {
        worker->id = GetCurrentThreadId();
        worker->entered.Open();
        Sleep(INFINITE);
    }));
    worker->entered.Wait();
    const HANDLE thread = OpenThread(THREAD_TERMINATE | SYNCHRONIZE, FALSE, worker->id);
    ASSERT_NE(thread, nullptr);
    EXPECT_TRUE(TerminateThread(thread, 0));
    EXPECT_EQ(WaitForSingleObject(thread, 30'000), WAIT_OBJECT_0);
    CloseHandle(thread);
}

}  // namespace Zarvo::Test
