// Workers that are suspended at any of their steps, with a lock of the library in their hands too, as by a debugger.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <iostream>
#include <stdexcept>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/faults/mixed_load.h"
#include "tests/support/gate.h"
#include "tests/support/stress_run.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

// Some workers of the pool.
class Workers {
  public:
    Workers() {
        constexpr std::size_t kHeld = 5;
        Countdown all(kHeld);
        std::vector<Job<DWORD>> jobs;
        for (std::size_t i = 0; i < kHeld; ++i) {
            jobs.push_back(Orvane::Run(L"tells its thread", [&all] {
                all.Meet();
                return GetCurrentThreadId();
            }));
        }
        for (auto& job : jobs) {
            m_handles.push_back(OpenThread(THREAD_SUSPEND_RESUME, FALSE, job.Get()));
            if (m_handles.back() == nullptr) {
                throw std::runtime_error("a worker cannot be opened");
            }
        }
    }
    ~Workers() {
        for (const HANDLE handle : m_handles) {
            CloseHandle(handle);
        }
    }
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    HANDLE operator[](std::size_t index) const { return m_handles[index]; }
    std::size_t Count() const { return m_handles.size(); }

  private:
    std::vector<HANDLE> m_handles;
};

TEST(SuspendedWorkers, DoAllThatIsAskedForOnceTheyGoOn) {
    const StressRun run(10);
    const ConcurrencyLifetime lifetime;
    const Workers workers;
    std::atomic<bool> isOver = false;
    std::atomic<int> suspended = 0;
    {
        // On purpose without memory and locks while one is suspended: it may hold them.
        Thread suspends([&] {
            Random random = run.Generator(0, 1);
            while (!isOver) {
                const HANDLE worker = workers[Choose(random, workers.Count())];
                const auto pause = static_cast<DWORD>(Choose(random, 4));
                if (SuspendThread(worker) != static_cast<DWORD>(-1)) {
                    Sleep(pause);
                    ResumeThread(worker);
                    ++suspended;
                }
                Linger(random);
            }
        });
        for (int round = 0; round < run.Rounds(); ++round) {
            ExpectAMixedLoadToEnd();
        }
        isOver = true;
    }
    std::cout << suspended << " times" << std::endl;
    EXPECT_GT(suspended, 0);
}

}  // namespace
