#include "concurrency/jobs/job_bound.h"

#include <algorithm>

#include "concurrency/base/processors.h"

namespace Orvane {

std::size_t DefaultBound() noexcept {
    return (std::max)(std::size_t{8}, std::size_t{2} * Internal::ProcessorCount());
}

}  // namespace Orvane
