// A flood: some threads submit empty tasks as fast as they can.
#pragma once

#include <algorithm>
#include <cstddef>
#include <latch>
#include <vector>

#include "bench/harness/counter_clock.h"
#include "bench/harness/finish_line.h"
#include "tests/support/thread.h"

namespace Zarvo::Bench {

// Calls `submit(finish)` once for each task, spread over `producers` threads; what it submits must end with
// finish.Arrive(). Returns the nanoseconds for each task, from the first submit until the last task has run.
//
// The calling thread is the one producer, or starts the others and only waits.
template <typename Submit>
double Flood(std::size_t tasks, std::size_t producers, Submit submit) {
    const std::size_t share = std::max<std::size_t>(tasks / producers, 1);
    FinishLine finish(share * producers);
    const auto produce = [&] {
        for (std::size_t i = 0; i < share; ++i) {
            submit(finish);
        }
    };
    CounterClock::time_point start;
    if (producers == 1) {
        start = CounterClock::now();
        produce();
    } else {
        std::latch gate(1);
        std::vector<Test::Thread> threads;
        for (std::size_t i = 0; i < producers; ++i) {
            threads.emplace_back([&] {
                gate.wait();
                produce();
            });
        }
        start = CounterClock::now();
        gate.count_down();
        threads.clear();
    }
    const auto end = finish.WaitForLast();
    return static_cast<double>((end - start).count()) / static_cast<double>(share * producers);
}

// Submits some tasks one by one, each when the one before has run: afterwards a pool's threads exist.
template <typename Submit>
void WarmUp(Submit submit) {
    constexpr int kTasks = 32;
    for (int i = 0; i < kTasks; ++i) {
        FinishLine finish(1);
        submit(finish);
        finish.WaitForLast();
    }
}

}  // namespace Zarvo::Bench
