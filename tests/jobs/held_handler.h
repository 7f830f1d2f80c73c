// A failure handler that holds the thread that ends a job, after the end of that job is known.
//
// Threads: the first failure's thread is held, until LetGo() or the object's end. One object at a time.
// Errors, lifetime: as Gate.
#pragma once

#include <atomic>

#include "concurrency/tasks/failure_handler.h"
#include "tests/support/gate.h"

namespace Zarvo::Test {

class HeldHandler {
  public:
    HeldHandler() {
        s_current = this;
        Orvane::SetFailureHandler([](const Orvane::UnreadFailure&) { s_current.load()->Hold(); });
    }
    ~HeldHandler() {
        LetGo();
        Orvane::SetFailureHandler(nullptr);
    }
    HeldHandler(const HeldHandler&) = delete;
    HeldHandler& operator=(const HeldHandler&) = delete;

    void AwaitCall() { m_isIn.Wait(); }
    void LetGo() { m_mayGo.Open(); }
    bool HasReturned() const { return m_hasReturned; }

  private:
    void Hold() {
        m_isIn.Open();
        m_mayGo.Wait();
        m_hasReturned = true;
    }

    static inline std::atomic<HeldHandler*> s_current = nullptr;

    Gate m_isIn;
    Gate m_mayGo;
    std::atomic<bool> m_hasReturned = false;
};

}  // namespace Zarvo::Test
