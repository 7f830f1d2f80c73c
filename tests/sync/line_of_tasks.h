// Several tasks that wait for one fifo_mutex, and the order in which they come and go.
//
//     LineOfTasks line(mutex, 3);   // 0, 1 and 2 wait, in this order; the calling thread must own the mutex
//     mutex.unlock();
//     line.Join();
//     EXPECT_EQ(line.Order(), LineOfTasks::Turns({0, 1, 2}));
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "concurrency/sync/fifo_mutex.h"
#include "tests/support/arrivals.h"
#include "tests/sync/queued_task.h"

namespace Zarvo::Test {

class LineOfTasks {
  public:
    using Wait = std::function<void(Orvane::fifo_mutex&)>;

    static void PlainWait(Orvane::fifo_mutex& mutex) { mutex.lock(); }

    LineOfTasks(Orvane::fifo_mutex& mutex, std::size_t count, const Wait& wait = PlainWait) : m_mutex(mutex) {
        for (std::size_t i = 0; i < count; ++i) {
            Append(wait);
        }
    }

    void Append(const Wait& wait = PlainWait) {
        const std::size_t index = m_tasks.size();
        m_tasks.push_back(std::make_unique<QueuedTask>(m_mutex, [this, wait, index] {
            wait(m_mutex);
            TakeTurn(index);
        }));
    }

    TaskThread& operator[](std::size_t index) { return *m_tasks[index]->operator->(); }

    void Join() {
        for (const auto& task : m_tasks) {
            (*task)->Join();
        }
    }

    Names Order() const { return m_order.List(); }

    // What Order() is when these have had their turns one after the other.
    static Names Turns(const std::vector<std::size_t>& indices) {
        Names names;
        for (const std::size_t index : indices) {
            names.push_back("in " + std::to_string(index));
            names.push_back("out " + std::to_string(index));
        }
        return names;
    }

  private:
    void TakeTurn(std::size_t index) {
        m_order.Add("in " + std::to_string(index));
        m_order.Add("out " + std::to_string(index));
        m_mutex.unlock();
    }

    Orvane::fifo_mutex& m_mutex;
    Arrivals m_order;
    std::vector<std::unique_ptr<QueuedTask>> m_tasks;
};

}  // namespace Zarvo::Test
