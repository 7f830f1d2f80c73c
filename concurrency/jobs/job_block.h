// The memory of a job: one piece, with the body, and behind it the characters of the name.
#pragma once

#include <cstddef>

#include "concurrency/jobs/job_body.h"

namespace Orvane::Internal {

class JobBlock {
  public:
    // Errors: std::bad_alloc.
    JobBlock(const JobBodyType& type, const wchar_t* name);
    ~JobBlock() = default;
    JobBlock(const JobBlock&) = delete;
    JobBlock& operator=(const JobBlock&) = delete;

    void* Body() const noexcept { return m_start; }
    const wchar_t* Name() const noexcept;
    const JobBodyType& Type() const noexcept { return m_type; }

    // `alignment` as the type names it. Does not look at the type: its module may have been unloaded.
    void Free(std::size_t alignment) const noexcept;

  private:
    const JobBodyType& m_type;
    void* m_start;
};

}  // namespace Orvane::Internal
