// What Job::Get() throws beside the job's own exceptions.
//
// Contract: an exception.
#pragma once

#include <memory>

#include "concurrency/base/export.h"
#include "concurrency/cancellation/cancellation_exceptions.h"

namespace Orvane {

// The job left because of its time limit (CancelAfter): it has no outcome.
class ORVANE_CONCURRENCY_API TimeLimitException : public CancelledException {
  public:
    // Has no fields.
    TimeLimitException();
    TimeLimitException(const TimeLimitException&);
    TimeLimitException& operator=(const TimeLimitException&);
    ~TimeLimitException() override;

    // "TimeLimitException".
    const char* what() const noexcept override;

    std::shared_ptr<CloneableException> Clone() const override;
    void Rethrow() const override;
};

}  // namespace Orvane
