// Whether the work shall stop: Ctrl+C or Ctrl+Break was pressed. The program is asked; the second press ends the process
// at once.
//
// Threads: one object at a time; its token may go anywhere. Callbacks on the token run on a thread of the system.
#pragma once

#include <stop_token>

namespace FileDigests {

class StopSignal {
  public:
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    std::stop_token Token() const;
};

}  // namespace FileDigests
