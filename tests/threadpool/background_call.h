// A call that may block, on a thread of its own.
//
// Threads: the members belong to the test's thread.
// Lifetime: the destructor waits for the call. If that does not end within a minute the process ends, with a line on
//     standard error: the test fails instead of hanging.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <functional>
#include <utility>

#include "tests/support/eventually.h"
#include "tests/support/thread.h"

namespace Zarvo::Test {

class BackgroundCall {
  public:
    explicit BackgroundCall(std::function<void()> call)
        : m_thread([this, call = std::move(call)] {
              try {
                  call();
              } catch (...) {
                  m_error = std::current_exception();
              }
              m_ended = true;
          }) {}

    ~BackgroundCall() {
        if (!Eventually([this] { return m_ended.load(); }, kLimit)) {
            std::fputs("BackgroundCall: the call has not ended within a minute\n", stderr);
            std::fflush(stderr);
            std::abort();
        }
        m_thread.join();
    }

    BackgroundCall(const BackgroundCall&) = delete;
    BackgroundCall& operator=(const BackgroundCall&) = delete;

    bool IsRunning() const { return !m_ended; }

    // Waits for the end; false if the call does not end in time. Throws what the call threw.
    [[nodiscard]] bool Ends() const {
        if (!Eventually([this] { return m_ended.load(); })) {
            return false;
        }
        if (m_error) {
            std::rethrow_exception(m_error);
        }
        return true;
    }

  private:
    static constexpr std::chrono::seconds kLimit{60};

    std::atomic<bool> m_ended = false;
    std::exception_ptr m_error;  // written before m_ended
    Thread m_thread;        // last: it uses the others
};

}  // namespace Zarvo::Test
