// A std::jthread whose body begins only when the constructor knows the thread.
//
// Why: the toolchain's own starts a thread and reads its handle afterwards, from a block that the thread frees when it
// ends. If the one that starts it gets no processor in between, that block may be somebody else's by then, and what is
// joined is no thread: "Invalid argument", "No such device or address". Four of 150,000 threads did that on a crowded
// machine.
//
// Threads: like std::jthread. Errors: an exception that leaves the body ends the process.
// Lifetime: the destructor joins.
#pragma once

#include <concepts>
#include <memory>
#include <thread>
#include <utility>

#include "tests/support/gate.h"

namespace Zarvo::Test {

class Thread : public std::jthread {
  public:
    Thread() = default;

    template <std::invocable Body>
        requires(!std::same_as<Body, Thread>)
    explicit Thread(Body body) : Thread(std::make_shared<Gate>(), std::move(body)) {}

  private:
    template <typename Body>
    Thread(const std::shared_ptr<Gate>& known, Body body)
        : std::jthread([known, body = std::move(body)]() mutable {
              known->Wait();
              body();
          }) {
        known->Open();
    }
};

}  // namespace Zarvo::Test
