// What both programs for the debugger stand still in: a mutex with an owner and a line of waiters, and a job that waits for its own.
// The debugger looks at the globals.
#pragma once

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/jobs/job.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/debugger/awaited_waits.h"

inline Orvane::fifo_mutex mutex;
inline DWORD owner_thread = 0;
inline DWORD first_waiter = 0;
inline DWORD second_waiter = 0;

inline Orvane::Job<void> outer_job;
inline DWORD inner_thread = 0;

namespace Zarvo::Test {

// In the order in which the runs are to be listed: the longest first. It returns when each is in its wait.
//
// Lifetime: until the process ends.
class KnownRuns {
  public:
    // The owner of the mutex calls `waitForEver`, which waits in `wait`.
    KnownRuns(void (*waitForEver)(), const wchar_t* wait)
        : m_owner(Orvane::RunInNewThread(L"Owner", [waitForEver] {
              mutex.lock();
              mutex.lock();
              waitForEver();
          })) {
        owner_thread = AwaitWait(L"Owner", wait);
        m_first = Orvane::RunInNewThread(L"First", [] { mutex.lock(); });
        first_waiter = AwaitWait(L"First", L"fifo_mutex::lock");
        m_second = Orvane::RunInNewThread(L"Second", [] { mutex.lock(); });
        second_waiter = AwaitWait(L"Second", L"fifo_mutex::lock");

        outer_job = Orvane::Run(L"Outer", [] {
            AwaitNextTick();
            Orvane::Run(L"Inner", [] { Orvane::CancellableSleep(kWithoutEnd); }).Wait();
        });
        inner_thread = AwaitWait(L"Inner", L"CancellableSleep");
        AwaitWait(L"Outer", L"a wait for");
    }

  private:
    Orvane::Job<void> m_owner;
    Orvane::Job<void> m_first;
    Orvane::Job<void> m_second;
};

}  // namespace Zarvo::Test
