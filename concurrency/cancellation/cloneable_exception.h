// An exception of which a future can keep a copy and throw it again on another thread.
#pragma once

#include <memory>

namespace Orvane {

// Derive virtually, beside a class derived from std::exception, and override both operations in every concrete class.
//
// Contract: an exception.
class CloneableException {
  public:
    // A heap copy of the most derived object. Errors: std::bad_alloc, and whatever the copy throws.
    virtual std::shared_ptr<CloneableException> Clone() const = 0;

    // Throws a copy of the most derived object. Callers must not assume that it never returns.
    virtual void Rethrow() const = 0;

    // Destroyed by its most derived class.
    virtual ~CloneableException() = default;

  protected:
    // For derived classes: it has no fields.
    CloneableException() = default;
    CloneableException(const CloneableException&) = default;
    CloneableException& operator=(const CloneableException&) = default;
};

}  // namespace Orvane
