#include "concurrency/jobs/job_exceptions.h"

namespace Orvane {

TimeLimitException::TimeLimitException() = default;
TimeLimitException::TimeLimitException(const TimeLimitException&) = default;
TimeLimitException& TimeLimitException::operator=(const TimeLimitException&) = default;
TimeLimitException::~TimeLimitException() = default;

const char* TimeLimitException::what() const noexcept {
    return "TimeLimitException";
}

std::shared_ptr<CloneableException> TimeLimitException::Clone() const {
    return std::shared_ptr<CloneableException>(new TimeLimitException(*this));
}

void TimeLimitException::Rethrow() const {
    throw TimeLimitException(*this);
}

}  // namespace Orvane
