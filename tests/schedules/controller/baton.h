// What a thread waits for until it is its turn.
#pragma once

namespace Schedules {

class Baton {
  public:
    // By the thread. Returns once for each Pass().
    void Await() noexcept;

    // By the thread whose turn it was.
    void Pass() noexcept;

  private:
    int m_isHere = 0;  // a futex
};

}  // namespace Schedules
