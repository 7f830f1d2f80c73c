// The second process: this program once more, with other arguments.
//
// Errors: std::system_error if it cannot be started.
// Lifetime: the destructor ends it.
#pragma once

#include <string>

#include "examples/shared_counter/handle.h"

namespace SharedCounter {

class SecondProcess {
  public:
    // `arguments` follow the program's own name on the command line.
    explicit SecondProcess(const std::wstring& arguments);
    ~SecondProcess();
    SecondProcess(const SecondProcess&) = delete;
    SecondProcess& operator=(const SecondProcess&) = delete;

    // Waits until the event is set; false if the process ends before.
    bool WaitFor(HANDLE event) const;

    // Ends it where it stands, without a chance to clean up. Returns when it is gone.
    void Kill() const;

  private:
    const Handle m_process;
};

}  // namespace SharedCounter
