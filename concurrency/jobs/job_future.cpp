#include "concurrency/jobs/job_future.h"

#include "concurrency/base/last_words.h"
#include "concurrency/cancellation/cloneable_exception.h"
#include "concurrency/jobs/job_state.h"

namespace Orvane::Internal {

namespace {

// Stands for the exception, which the job keeps.
class KeptByTheJob : public CloneableException {
  public:
    std::shared_ptr<CloneableException> Clone() const override { return nullptr; }
    void Rethrow() const override {}
};

// From the outermost name inwards. Not deep: see JobName::kLongestChain.
void AddNames(const JobName* name, LastWords& words) noexcept {
    if (name != nullptr) {
        AddNames(name->above.get(), words);
        words.AddTask(name->text.c_str());
    }
}

}  // namespace

void JobFuture::NameRun(LastWords& words) const noexcept {
    AddNames(m_job.Above().get(), words);
    words.AddTask(m_job.Name());
}

std::shared_ptr<const JobName> JobFuture::MakeName() const {
    return std::make_shared<const JobName>(m_job.Name(), m_job.Above());
}

void JobFuture::Fail() {
    SetException(KeptByTheJob());
}

}  // namespace Orvane::Internal
