// Who waits for what at the moment: a wait that does not end ends the soak, and is named.
//
// Threads: any.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "tests/support/stopwatch.h"
#include "tests/support/thread.h"

namespace Zarvo::Test {

class SoakWatch {
  public:
    // No wait may last longer than `patience`.
    explicit SoakWatch(std::chrono::seconds patience);
    ~SoakWatch();
    SoakWatch(const SoakWatch&) = delete;
    SoakWatch& operator=(const SoakWatch&) = delete;

    // From here to End() something is waited for. `what` is a literal.
    std::size_t Begin(const char* what);
    void End(std::size_t wait);

    // The same for a block.
    class Wait {
      public:
        Wait(SoakWatch& watch, const char* what) : m_watch(watch), m_wait(watch.Begin(what)) {}
        ~Wait() { m_watch.End(m_wait); }
        Wait(const Wait&) = delete;
        Wait& operator=(const Wait&) = delete;

      private:
        SoakWatch& m_watch;
        const std::size_t m_wait;
    };

    static constexpr int kLostWakeUp = 4;  // the exit code

  private:
    struct Entry {
        std::atomic<const char*> what = nullptr;  // whoever writes it over null has the entry
        std::atomic<std::int64_t> since = 0;      // 0 while the entry is being written
    };

    bool NameWhatLasts() const;
    void Look();

    const std::chrono::seconds m_patience;
    const Stopwatch m_clock;
    std::array<Entry, 512> m_entries;
    std::atomic<bool> m_isOver = false;
    Thread m_thread;  // last: it uses the others
};

}  // namespace Zarvo::Test
