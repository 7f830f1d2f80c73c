// A line below the messages that is drawn again and again while the object lives, by a recurrent job. Where nobody would
// see it, there is no such job.
//
// Threads: one. `text` is called on another, one call at a time.
// Errors: what the library throws when it cannot schedule the job.
// Lifetime: all that `text` refers to must outlive the object, whose destructor takes the line away.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "concurrency/jobs/job_group.h"
#include "examples/file_digests/messages.h"

namespace FileDigests {

class StatusLine {
  public:
    // What to show in so many columns. If it throws, the line stays as it is, and the log says so.
    using Text = std::function<std::string(int columns)>;

    StatusLine(Messages& messages, Text text);
    ~StatusLine();
    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

  private:
    Messages& m_messages;
    const Text m_text;
    std::optional<Orvane::JobGroup> m_redraws;
};

}  // namespace FileDigests
