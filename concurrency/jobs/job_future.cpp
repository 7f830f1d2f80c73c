#include "concurrency/jobs/job_future.h"

#include "concurrency/cancellation/cloneable_exception.h"

namespace Orvane::Internal {

namespace {

// Stands for the exception, which the job keeps.
class KeptByTheJob : public CloneableException {
  public:
    std::shared_ptr<CloneableException> Clone() const override { return nullptr; }
    void Rethrow() const override {}
};

}  // namespace

void JobFuture::Fail() {
    SetException(KeptByTheJob());
}

}  // namespace Orvane::Internal
