// A line below the messages that is drawn again and again while the object lives, by a recurrent task. Where nobody
// would see it, there is no such task.
//
// Threads: one. `text` is called on another, one call at a time.
// Errors: what the library throws when it cannot schedule the task.
// Lifetime: all that `text` refers to must outlive the object, whose destructor takes the line away.
#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "concurrency/scheduler/tracker.h"
#include "examples/file_digests/messages.h"

namespace FileDigests {

class StatusLine {
  public:
    // What to show in so many columns. May throw std::bad_alloc: then the line stays as it is.
    using Text = std::function<std::string(int columns)>;

    StatusLine(Messages& messages, Text text);
    ~StatusLine();
    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

  private:
    void Draw();

    Messages& m_messages;
    const Text m_text;
    std::mutex m_drawing;
    Orvane::Tracker m_redraws;
};

}  // namespace FileDigests
