// An exception of which a future can keep a copy and throw it again on another thread.
#pragma once

#include <memory>

namespace Orvane {

// Derive virtually, beside a class derived from std::exception, and override both operations in every concrete class.
class CloneableException {
  public:
    // A heap copy of the most derived object. Errors: std::bad_alloc, and whatever the copy throws.
    virtual std::shared_ptr<CloneableException> Clone() const = 0;

    // Throws a copy of the most derived object. Callers must not assume that it never returns.
    virtual void Rethrow() const = 0;

    virtual ~CloneableException() = default;

  protected:
    CloneableException() = default;
    CloneableException(const CloneableException&) = default;
    CloneableException& operator=(const CloneableException&) = default;
};

}  // namespace Orvane
