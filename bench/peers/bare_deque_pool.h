// The least that a thread pool can be: function pointers in a deque, a slim lock, a condition, a fixed number of
// threads. No names, no futures, no cancellation, no errors: the floor to measure against.
//
// Threads: Submit() on any thread; destroy it on the thread that made it.
// Lifetime: the destructor runs what is queued and joins the threads.
#pragma once

#include <cstddef>
#include <deque>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "tests/support/thread.h"

namespace Zarvo::Bench {

class BareDequePool {
  public:
    using Function = void (*)(void* argument);

    explicit BareDequePool(std::size_t workers);
    ~BareDequePool();
    BareDequePool(const BareDequePool&) = delete;
    BareDequePool& operator=(const BareDequePool&) = delete;

    void Submit(Function function, void* argument);

  private:
    struct Entry {
        Function function;
        void* argument;
    };

    void RunWorker();

    SRWLOCK m_lock = SRWLOCK_INIT;
    CONDITION_VARIABLE m_workAvailable = CONDITION_VARIABLE_INIT;
    std::deque<Entry> m_queue;  // guarded by m_lock
    bool m_stopping = false;    // guarded by m_lock
    std::vector<Test::Thread> m_workers;
};

}  // namespace Zarvo::Bench
