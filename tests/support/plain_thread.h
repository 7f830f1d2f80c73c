// A thread that a test can give up on.
//
// Threads: the members belong to the test's thread; the body runs on the new one.
// Errors: an exception that leaves the body ends the process.
// Lifetime: the destructor joins. A body that does not end within a minute ends the process, with a line on standard
//     error: the test fails instead of hanging.
#pragma once

#include <functional>
#include <memory>

#include "tests/support/gate.h"
#include "tests/support/thread.h"

namespace Zarvo::Test {

class PlainThread {
  public:
    explicit PlainThread(std::function<void()> body);
    ~PlainThread();
    PlainThread(const PlainThread&) = delete;
    PlainThread& operator=(const PlainThread&) = delete;

    // Waits until the thread has ended.
    void Join();

    bool HasEnded() const { return m_ended->IsOpen(); }

  private:
    std::shared_ptr<Gate> m_ended;
    Thread m_thread;
};

}  // namespace Zarvo::Test
