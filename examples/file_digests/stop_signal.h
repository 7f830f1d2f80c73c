// Whether the work shall stop: Ctrl+C or Ctrl+Break was pressed, or the time is up. The program asks; the second press
// ends the process at once.
//
// Threads: one. Lifetime: one object at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace FileDigests {

class StopSignal {
  public:
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    // The time is up in so long from now.
    void SetTimer(std::chrono::milliseconds delay);

    bool IsSet() const;

  private:
    std::optional<std::uint64_t> m_deadline;  // in ms of the system's running time
};

}  // namespace FileDigests
