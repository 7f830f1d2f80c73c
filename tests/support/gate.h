// Ways for a test to hold threads at a known place.
//
// Threads: every member may be called from any thread.
// Errors: a wait that lasts longer than a minute throws std::runtime_error: the test fails instead of hanging.
// Lifetime: must outlive the calls; a waiter may still be inside when the other side's call has returned, so keep it
//     until the waiting threads are joined.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace Zarvo::Test {

// Closed at first; once opened it stays open.
class Gate {
  public:
    Gate();
    void Open();
    void Wait();
    bool IsOpen() const;

  private:
    mutable std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_open = false;
};

// Opens when `count` arrivals have come.
class Countdown {
  public:
    explicit Countdown(std::size_t count);

    void Arrive();
    void Wait();

    // Arrives and waits for the others.
    void Meet();

    std::size_t Missing() const;

  private:
    mutable std::mutex m_mutex;
    std::size_t m_missing;
    Gate m_all;
};

}  // namespace Zarvo::Test
