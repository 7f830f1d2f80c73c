// What few jobs have: an event for their end, a time limit, handles that they watch, a link to a stop token.
#pragma once

#include <memory>
#include <system_error>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/handle_watch.h"
#include "concurrency/jobs/time_limits.h"
#include "concurrency/jobs/token_link.h"

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

struct JobExtras {
    std::unique_ptr<ManualEvent> ended;
    TimeLimit limit;
    HandleWatches watches;
    std::shared_ptr<TokenLink> token;  // until the job has ended
};

}  // namespace Orvane::Internal
