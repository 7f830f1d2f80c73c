// What few jobs have: an event for their end, a time limit, handles that they watch, a link to a stop token.
#pragma once

#include <memory>
#include <stop_token>
#include <system_error>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/cancellable.h"
#include "concurrency/jobs/handle_watch.h"
#include "concurrency/jobs/time_limits.h"

namespace Orvane::Internal {

// A manual-reset event.
class ManualEvent {
  public:
    // Errors: std::system_error.
    ManualEvent() : m_handle(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
        if (m_handle == nullptr) {
            throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), "CreateEvent");
        }
    }
    ~ManualEvent() { CloseHandle(m_handle); }
    ManualEvent(const ManualEvent&) = delete;
    ManualEvent& operator=(const ManualEvent&) = delete;

    HANDLE Handle() const noexcept { return m_handle; }

  private:
    const HANDLE m_handle;
};

class JobState;

// What the user's stop token calls.
class TokenLink {
  public:
    explicit TokenLink(std::weak_ptr<JobState> job) : m_job(std::move(job)) {}

    void operator()() const noexcept;

  private:
    std::weak_ptr<JobState> m_job;
};

struct JobExtras {
    std::unique_ptr<ManualEvent> ended;
    TimeLimit limit;
    HandleWatches watches;
    std::unique_ptr<std::stop_callback<TokenLink>> token;
    bool isTokenCalling = false;  // a thread is in the callback, and destroys it if the job has ended meanwhile
};

}  // namespace Orvane::Internal
